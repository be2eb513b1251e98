// A sink for tests of reports: shows its traces on a pad with the title that the job gives,
// directives included, draws a line of their first samples on another one, and sends a message.
#include "MOXKernel.h"
#include "knl.h"

#include <string>
#include <vector>

namespace {

constexpr int longestText = 20000;

std::string textParameter(const char* name, const char* otherwise)
{
    std::vector<char> text(longestText);
    return knl_getStrModuleParameter(name, text.data()) == 1 ? text.data() : otherwise;
}

int numberParameter(const char* name, int otherwise)
{
    int number = otherwise;
    knl_getI32ModuleParameter(name, &number);
    return number;
}

struct Pads
{
    int section;
    int graph;
    int traces;
};

Pads* pads()
{
    void* found = nullptr;
    knl_getModuleResource("pads", &found);
    return static_cast<Pads*>(found);
}

} // namespace

extern "C" {

int preprocess_()
{
    auto* made = static_cast<Pads*>(knl_allocateResource(static_cast<int>(sizeof(Pads))));
    if (made == nullptr)
        return 1;
    made->section = knl_createPad(1, 0, 1, textParameter("title", "traces").c_str());
    made->graph = knl_createPad(2, 0, 1, textParameter("graph", "first samples").c_str());
    made->traces = 0;
    knl_setModuleResource("pads", made);
    knl_newpen(made->graph, 3);
    std::string text;
    for (int i = 0; i < numberParameter("repeat", 1); ++i)
        text += textParameter("say", "");
    for (int i = 0; !text.empty() && i < numberParameter("times", 1); ++i)
        knl_sendMessage(numberParameter("severity", 2), text.c_str());
    return 0;
}

int process_()
{
    void* in = nullptr;
    float* samples = nullptr;
    if (knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    Pads* drawn = pads();
    addTraceToPad(drawn->section, in);
    const int middle = numberParameter("sample", 0);
    if (knl_getTraceSamples(in, &samples, 0) == 1) {
        const int pen = drawn->traces == 0 ? 3 : 2;
        ++drawn->traces;
        knl_plot(drawn->graph, static_cast<float>(drawn->traces), samples[middle], pen);
    }
    return 0;
}

int postprocess_()
{
    return knl_freeResource(pads());
}
}
