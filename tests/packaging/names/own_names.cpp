// An application that has functions of the facade's names, by chance or (MEANS_TO) on purpose: the
// first module that it loads makes the kernel say so, or not.
#include "JobManager.h"

#include <cstdio>
#include <string>
#include <vector>

void sendMessage(int, const char*) {}

int createPad(int, int, int, const char*)
{
    return 7;
}

int fileOpen(const char*)
{
    return -1;
}

// Another function of the name, since its arguments differ: no harm.
int getTraceLength(const std::string& text)
{
    return static_cast<int>(text.size());
}

namespace {

// Of this source alone.
[[maybe_unused]] void freeResource(void*) {}

struct Message
{
    int type;
    std::string sender;
    std::string text;
};

int note(int type, char*, const char* sender, const char* text, void* messages)
{
    static_cast<std::vector<Message>*>(messages)->push_back({type, sender, text});
    return 0;
}

} // namespace

#ifdef MEANS_TO
extern "C" const int vorn_interposes_kernel = 1;
constexpr std::size_t expected = 0;
#else
constexpr std::size_t expected = 1;
#endif

int main(int, char** argv)
{
    std::vector<Message> messages;
    JobManager* job = JobManager::getInstance();
    job->installMessageFunc(note, nullptr, &messages);
    const bool isLoaded = job->initJobModule("first", "libhost_plain.so") != nullptr &&
                          job->initJobModule("second", "libhost_plain.so") != nullptr;
    for (const Message& message : messages)
        std::printf("%d %s %s\n", message.type, message.sender.c_str(), message.text.c_str());
    if (!isLoaded || messages.size() != expected)
        return 1;
    if (expected == 0)
        return 0;
    const std::string text =
        std::string(argv[0]) +
        " has functions of the kernel's names: sendMessage(int, char const*), createPad(int, int, "
        "int, char const*), fileOpen(char const*). Modules call these, and the kernel hears "
        "nothing; rename them, or make them local to their source";
    const bool isRight =
        messages[0].type == 3 && messages[0].sender == "Kernel" && messages[0].text == text;
    return isRight ? 0 : 1;
}
