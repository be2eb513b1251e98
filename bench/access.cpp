// What modules pay for looking a value up by its name, and for one of the attributes of a list.
// There is no floor beside it: the measure is the time per value.
#include "Measure.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "SeisTraceSet.h"

extern "C" {
#include "knl.h"
}

#include <cstdio>

namespace {

using namespace bench;

constexpr int names = 20;

// Of 12 characters each.
struct Names
{
    char attributes[names][16];
    char parameters[names][16];

    Names()
    {
        for (int i = 0; i < names; ++i) {
            std::snprintf(attributes[i], sizeof attributes[i], "attribute_%02d", i);
            std::snprintf(parameters[i], sizeof parameters[i], "parameter_%02d", i);
        }
    }
};

// Nanoseconds of a call; `call` gets the number of a name. Short rounds: some of them are left
// alone by whatever else the machine does.
template <typename Call>
double timeOfCall(int rounds, Call call)
{
    const int calls = 100 * names;
    Least least;
    for (int i = 0; i < rounds; ++i) {
        least.add(timeOf([&] {
                      for (int n = 0; n < calls; ++n)
                          call(n % names);
                  }) /
                  calls);
    }
    return least.get() * 1e9;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = prepare(argc, argv);
    const int rounds = options.repetitions > 0 ? options.repetitions : options.quick ? 200 : 1000;
    const Names name;
    ModuleEntity module("bench");
    SeisTraceSet set;
    JobManager* job = JobManager::getInstance();
    set.setTraceLength(samplesPerTrace);
    for (int i = 0; i < names; ++i) {
        job->addTraceAttributeDefinition(name.attributes[i], 2, 1, "", 0, 0, 0, 0, 0);
        set.defineAttribute(name.attributes[i]);
        module.setParameter(name.parameters[i], UniVar(i));
    }
    job->setActiveModule(&module);
    for (int i = 0; i < names; ++i) {
        int value = -1;
        if (knl_setI32TraceAttribute(&set, name.attributes[i], 7 * i) != 1 ||
            knl_getI32TraceAttribute(&set, name.attributes[i], &value) != 1 || value != 7 * i)
            fail("an attribute is lost");
        if (knl_getI32ModuleParameter(name.parameters[i], &value) != 1 || value != i)
            fail("a parameter is lost");
    }

    const char* attributes[names];
    for (int i = 0; i < names; ++i)
        attributes[i] = name.attributes[i];
    void* list = nullptr;
    int values[names] = {};
    if (knl_bldAttributeList(attributes, names, &list) != 0 ||
        knl_getI32TraceAttributes(list, &set, 0, values) != names || values[names - 1] == 0)
        fail("a list of attributes is lost");

    int value = 0;
    report("access.get", timeOfCall(rounds, [&](int i) {
               knl_getI32TraceAttribute(&set, name.attributes[i], &value);
               use(&value);
           }));
    report("access.set", timeOfCall(rounds, [&](int i) {
               knl_setI32TraceAttribute(&set, name.attributes[i], i);
           }));
    report("access.get_list", timeOfCall(rounds, [&](int i) {
               if (i == 0)
                   knl_getI32TraceAttributes(list, &set, 0, values);
               use(&values[i]);
           }));
    report("access.set_list", timeOfCall(rounds, [&](int i) {
               values[i] = i;
               if (i == 0)
                   knl_setI32TraceAttributes(list, &set, 0, values);
           }));
    report("access.parameter", timeOfCall(rounds, [&](int i) {
               knl_getI32ModuleParameter(name.parameters[i], &value);
               use(&value);
           }));
    job->setActiveModule(nullptr);
    set.removeTrace(0);
    return 0;
}
