// How the modules of a job are connected.
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "job/JobCheck.h"

#include "job/YamlFields.h"

#include <algorithm>
#include <fmt/format.h>

namespace host {

namespace {

constexpr int mostPorts = 1000;

class WiringCheck
{
public:
    WiringCheck(const JobFile& file, std::vector<ResolvedModule>& list, Diagnostics& messages)
        : job(file), modules(list), diagnostics(messages)
    {
    }

    void run()
    {
        for (std::size_t i = 0; i < modules.size(); ++i)
            connect(i);
        for (std::size_t i = 0; i < modules.size(); ++i) {
            countInputs(i);
            openOutputs(i);
        }
        findCycles();
    }

private:
    // The inputs of module `i`; those that are wrong are left out.
    void connect(std::size_t i)
    {
        for (const JobConnection& connection : job.modules[i].inputs) {
            const auto dot = connection.text.find('.');
            const std::string name = connection.text.substr(0, dot);
            const int producer = indexOf(name);
            if (producer < 0) {
                diagnostics.error(connection.place,
                                  fmt::format("input of module {}: the job has no module {}{}",
                                              quote(job.modules[i].name), quote(name),
                                              suggestion(name, namesWithout(i), "it has")));
                continue;
            }
            const std::string port =
                dot == std::string::npos ? "" : connection.text.substr(dot + 1);
            const int number = portNumber(producer, port, dot != std::string::npos, connection);
            if (number < 0)
                continue;
            modules[i].inputs.push_back({producer, number});
            std::vector<int>& consumers = modules[static_cast<std::size_t>(producer)].consumers;
            const auto index = static_cast<std::size_t>(number);
            if (consumers.size() <= index)
                consumers.resize(index + 1, 0);
            ++consumers[index];
        }
    }

    int indexOf(const std::string& name) const
    {
        for (std::size_t i = 0; i < job.modules.size(); ++i) {
            if (job.modules[i].name == name)
                return static_cast<int>(i);
        }
        return -1;
    }

    std::vector<std::string> namesWithout(std::size_t i) const
    {
        std::vector<std::string> names;
        for (const JobModule& module : job.modules) {
            if (&module != &job.modules[i] && !module.name.empty())
                names.push_back(module.name);
        }
        return names;
    }

    // The port from 0, or -1 after an error.
    int portNumber(int producer, const std::string& port, bool named,
                   const JobConnection& connection)
    {
        const ResolvedModule& module = modules[static_cast<std::size_t>(producer)];
        const PortSpec ports =
            module.manifest != nullptr ? module.manifest->outputs : PortSpec{0, PortSpec::any, {}};
        if (ports.max == 0) {
            diagnostics.error(
                connection.place,
                fmt::format("module {} ({}) has no output to connect to", quote(module.name),
                            module.replaced != nullptr ? "a sink of the application in its place"
                                                       : escaped(module.module)));
            return -1;
        }
        if (!named)
            return 0;
        const auto name = std::find(ports.names.begin(), ports.names.end(), port);
        if (name != ports.names.end())
            return static_cast<int>(name - ports.names.begin());
        const auto number = parseInteger(port);
        const int most = ports.max == PortSpec::any ? mostPorts : ports.max;
        if (number && *number >= 1 && *number <= most)
            return static_cast<int>(*number - 1);
        diagnostics.error(connection.place,
                          fmt::format("module {} has no output {}; {}", quote(module.name),
                                      quote(port), describePorts(ports)));
        return -1;
    }

    static std::string describePorts(const PortSpec& ports)
    {
        if (ports.max == PortSpec::any)
            return "its outputs are numbered from 1";
        std::string text = ports.max == 1 ? "it has one, number 1"
                                          : fmt::format("it has the numbers 1 to {}", ports.max);
        if (!ports.names.empty())
            text += " (" + escaped(joined(ports.names, ", ")) + ")";
        return text;
    }

    void countInputs(std::size_t i)
    {
        const JobModule& given = job.modules[i];
        if (modules[i].manifest == nullptr || given.name.empty())
            return;
        const PortSpec& ports = modules[i].manifest->inputs;
        const int count = static_cast<int>(given.inputs.size());
        if (count < ports.min)
            diagnostics.error(given.inputsPlace,
                              fmt::format("module {} has {}; expected {}{}", quote(given.name),
                                          counted(count, "input"), ports.countText(),
                                          count == 0 ? "; add \"input: NAME\"" : ""));
        else if (ports.max != PortSpec::any && count > ports.max)
            diagnostics.error(given.inputsPlace,
                              fmt::format("module {} has {}; expected {}", quote(given.name),
                                          counted(count, "input"),
                                          ports.max != 0 ? ports.countText()
                                          : modules[i].replaced != nullptr
                                              ? "none: a source of the application is in its place"
                                              : "none, it is a source"));
    }

    // Gives module `i` the outputs that it needs, whether they are read or not, and checks that it
    // would run.
    void openOutputs(std::size_t i)
    {
        ResolvedModule& module = modules[i];
        const bool isRead = !module.consumers.empty();
        if (module.manifest != nullptr) {
            const auto needed = static_cast<std::size_t>(module.manifest->outputs.min);
            if (module.consumers.size() < needed)
                module.consumers.resize(needed, 0);
        }
        const bool canRun = !module.library.empty() || module.replaced != nullptr;
        if (isRead || !canRun || module.name.empty() || lacksInputs(i))
            return;
        const JobModule& given = job.modules[i];
        if (given.inputs.empty())
            diagnostics.error(given.place,
                              fmt::format("module {} would never run: {}", quote(given.name),
                                          hasNoPorts(module) ? "it has neither input nor output"
                                                             : "nothing reads its output"));
        else if (!module.consumers.empty() && !diagnostics.hasErrors())
            diagnostics.warning(given.place,
                                fmt::format("nothing reads the output of module {}; its traces are "
                                            "dropped",
                                            quote(given.name)));
    }

    // That error has been reported.
    bool lacksInputs(std::size_t i) const
    {
        const ManifestPointer& manifest = modules[i].manifest;
        return manifest != nullptr && manifest->inputs.min > 0 && job.modules[i].inputs.empty();
    }

    static bool hasNoPorts(const ResolvedModule& module)
    {
        return module.manifest != nullptr && module.manifest->inputs.max == 0 &&
               module.manifest->outputs.max == 0;
    }

    void findCycles()
    {
        consumersOf.resize(modules.size());
        for (std::size_t i = 0; i < modules.size(); ++i) {
            for (const ResolvedInput& input : modules[i].inputs)
                consumersOf[static_cast<std::size_t>(input.module)].push_back(i);
        }
        state.assign(modules.size(), State::unseen);
        for (std::size_t i = 0; i < modules.size(); ++i)
            follow(i);
    }

    // Depth-first search along the flow of traces; a module that is reached from itself closes a
    // cycle.
    void follow(std::size_t i)
    {
        if (state[i] == State::onPath)
            reportCycle(i);
        if (state[i] != State::unseen)
            return;
        state[i] = State::onPath;
        path.push_back(i);
        for (const std::size_t consumer : consumersOf[i])
            follow(consumer);
        path.pop_back();
        state[i] = State::done;
    }

    void reportCycle(std::size_t first)
    {
        const auto start = std::find(path.begin(), path.end(), first);
        std::string text;
        for (auto it = start; it != path.end(); ++it)
            text += job.modules[*it].name + " -> ";
        text += job.modules[first].name;
        Place place = job.modules[first].inputsPlace;
        for (const JobConnection& connection : job.modules[first].inputs) {
            const std::string name = connection.text.substr(0, connection.text.find('.'));
            if (name == job.modules[path.back()].name)
                place = connection.place;
        }
        diagnostics.error(place, "the modules form a cycle: " + escaped(text) +
                                     "; traces can only flow one way");
    }

    enum class State
    {
        unseen,
        onPath,
        done
    };

    const JobFile& job;
    std::vector<ResolvedModule>& modules;
    Diagnostics& diagnostics;
    std::vector<std::vector<std::size_t>> consumersOf;
    std::vector<State> state;
    std::vector<std::size_t> path;
};

} // namespace

void checkWiring(const JobFile& job, std::vector<ResolvedModule>& modules, Diagnostics& diagnostics)
{
    WiringCheck(job, modules, diagnostics).run();
}

} // namespace host
