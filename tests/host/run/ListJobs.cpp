#include "ListJobs.h"

#include <algorithm>

namespace {

constexpr std::size_t longestList = 300;

std::string parameter(const std::string& name, int value)
{
    return ", " + name + ": " + std::to_string(value);
}

} // namespace

ListJobMaker::ListJobMaker(unsigned seed, RunAlone runAlone, std::string files)
    : dice(seed), alone(std::move(runAlone)), directory(std::move(files))
{
}

ListJob ListJobMaker::make()
{
    for (int i = dice.between(1, 3); i > 0; --i)
        addSource();
    for (int i = dice.between(1, 9); i > 0; --i) {
        if (dice.oneIn(8))
            addSplit();
        else if (dice.oneIn(12))
            addTee();
        else if (dice.oneIn(3))
            addShipped();
        else
            addListStep();
    }
    for (std::size_t i = 0; i < job.outputs.size(); ++i) {
        // Some outputs stay unread, but not all.
        const bool isUnread = job.outputs[i].readers == 0;
        if (isUnread ? job.outputs[i].mustBeRead || !dice.oneIn(6) || job.expected.empty()
                     : dice.oneIn(4))
            addSink(i);
        if (dice.oneIn(10))
            addWriter(i);
        if (dice.oneIn(10))
            addPicture(i);
    }
    return job;
}

std::string ListJobMaker::oneOf(const std::vector<std::string>& words)
{
    return dice.pick(words);
}

std::string ListJobMaker::newName(const std::string& module)
{
    ++job.uses[module];
    return module + std::to_string(++names);
}

void ListJobMaker::addOutput(const std::string& port, const List& list, bool mustBeRead)
{
    job.outputs.push_back({port, list, 0, mustBeRead});
}

// The last one more often than others, so that there are long ways.
std::size_t ListJobMaker::anyOutput()
{
    const int outputs = static_cast<int>(job.outputs.size());
    return static_cast<std::size_t>(dice.oneIn(2) ? outputs - 1 : dice.below(outputs));
}

const List& ListJobMaker::read(std::size_t output)
{
    ++job.outputs[output].readers;
    return job.outputs[output].list;
}

// `module` with its parameters.
void ListJobMaker::addModule(const std::string& name, const std::string& module,
                             const std::vector<std::size_t>& inputs)
{
    job.text += "  - {name: " + name + ", module: " + module;
    if (!inputs.empty()) {
        std::string ports;
        for (const std::size_t input : inputs)
            ports += (ports.empty() ? "" : ", ") + job.outputs[input].port;
        job.text += ", inputs: [" + ports + "]";
    }
    job.text += "}\n";
}

// ---- Sources ----

void ListJobMaker::addSource()
{
    if (dice.oneIn(8))
        addFileSource();
    else if (dice.oneIn(8))
        addSynthetic();
    else
        addListSource();
}

void ListJobMaker::addListSource()
{
    const std::string name = newName("list_source");
    const int from =
        1 + (dice.oneIn(2) ? static_cast<int>(job.outputs.size()) * 1000 : dice.below(10));
    const int traces = dice.oneIn(12) ? dice.below(2) : dice.between(1, 40);
    List list;
    for (int i = 0; i < traces; ++i)
        list.push_back(listTrace(from + i));
    addModule(name,
              "list_source" + parameter("traces", traces) + parameter("from", from) +
                  parameter("bursts", dice.oneIn(4) ? 0 : 1) + parameter("seed", dice.below(1000)),
              {});
    addOutput(name, list, true);
}

void ListJobMaker::addFileSource()
{
    const std::string format = oneOf({"segy", "su"});
    const std::string name = newName(format + "_in");
    const std::string file = directory + "/" + name + "." + format;
    List list;
    for (int i = dice.between(1, 40); i > 0; --i)
        list.push_back(listTrace(100 - i));
    alone(format + "_out, file: " + file + (format == "segy" ? ", format: ieee" : ""), &list);
    addModule(name, format + "_in, file: " + file, {});
    addOutput(name, list, true);
    ++job.shippedModules;
}

void ListJobMaker::addSynthetic()
{
    const std::string name = newName("synthetic");
    const std::string module = "synthetic" + parameter("shots", dice.between(0, 3)) +
                               parameter("channels", dice.between(1, 12)) +
                               parameter("samples", listSamples) + ", interval: 2 ms" +
                               parameter("seed", dice.below(1000));
    addModule(name, module, {});
    addOutput(name, alone(module, nullptr), true);
    ++job.shippedModules;
}

// ---- Modules in the middle ----

void ListJobMaker::addListStep()
{
    ListStep step;
    step.kind = static_cast<ListKind>(dice.below(static_cast<int>(ListKind::count)));
    if (dice.oneIn(4))
        step.kind = ListKind::pass;
    step.n = dice.between(1, 6);
    step.calls = dice.oneIn(3) ? dice.between(2, 4) : 1;
    step.scribbles = dice.oneIn(2);
    step.defines = dice.oneIn(4);
    std::vector<std::size_t> inputs;
    for (int i = isJoin(step.kind) ? dice.between(2, 3) : 1; i > 0; --i)
        inputs.push_back(anyOutput());

    // A module that gives one trace for each is never called when none comes: the kernel cannot
    // tell those behind it that there is none.
    const List& first = job.outputs[inputs[0]].list;
    if (first.empty() && step.kind == ListKind::pass)
        step.kind = ListKind::repeat;
    if (first.size() * static_cast<std::size_t>(step.n) > longestList)
        step.n = 1;

    // By hand and with the kit's stream form: the same lists.
    const std::string module =
        step.kind < ListKind::concat && dice.oneIn(2) ? "list_stream" : "list_step";
    const std::string name = newName(module);
    addModule(name,
              module + parameter("kind", static_cast<int>(step.kind)) + parameter("n", step.n) +
                  parameter("calls", step.calls) + parameter("scribbles", step.scribbles) +
                  parameter("defines", step.defines),
              inputs);
    std::vector<List> lists;
    for (const std::size_t input : inputs)
        lists.push_back(read(input));
    addOutput(name, listOf(step, lists));
}

void ListJobMaker::addSplit()
{
    const auto kind = static_cast<SplitKind>(dice.below(static_cast<int>(SplitKind::count)));
    const int n = dice.between(1, 5);
    const int outputs = dice.between(2, 3);
    const std::size_t input = anyOutput();
    const std::string name = newName("list_split");
    addModule(name, "list_split" + parameter("kind", static_cast<int>(kind)) + parameter("n", n),
              {input});
    int port = 0;
    // How many there are is seen from what is read: the last one always is.
    for (const List& list : splitOf(kind, n, outputs, read(input))) {
        ++port;
        addOutput(name + "." + std::to_string(port), list, port == outputs);
    }
}

void ListJobMaker::addTee()
{
    const std::size_t input = anyOutput();
    const std::string name = newName("tee");
    addModule(name, "tee", {input});
    const List list = read(input);
    const int outputs = dice.between(1, 3);
    for (int port = 1; port <= outputs; ++port)
        addOutput(name + "." + std::to_string(port), list, port == outputs);
    ++job.shippedModules;
}

void ListJobMaker::addShipped()
{
    static const std::vector<std::string> modules = {
        "gain",  "agc",      "mute",     "bandpass", "sort",     "sort",       "stack",
        "stack", "trace_qc", "spectrum", "section",  "trace_qc", "header_plot"};
    const std::size_t input = anyOutput();
    const List list = job.outputs[input].list;
    std::string module = oneOf(modules);
    const std::string name = newName(module);
    if (module == "gain")
        module += ", " + oneOf({"factor: 2", "factor: -0.25", "time_power: 1.5", "exponent: 3",
                                "balance: rms", "balance: max", "balance: mean", "clip: 5"});
    else if (module == "agc")
        module += ", window: " + oneOf({"8 ms", "20 ms", "0.2 s"}) +
                  ", mode: " + oneOf({"rms", "mean"}) + ", level: " + oneOf({"1", "2.5"});
    else if (module == "mute")
        module += ", mode: " + oneOf({"top", "bottom"}) + ", offsets: [-100, 400], times: [" +
                  oneOf({"0, 0.03", "0.02, 0.01"}) + "], taper: " + oneOf({"0", "0.006"});
    else if (module == "bandpass")
        module += ", " + oneOf({"low: 30", "high: 90", "corners: [5, 20, 80, 120]"});
    else if (module == "sort")
        module += ", keys: " + oneOf({"[cdp]", "[-offset]", "[cdp, -tracl]", "[-cdp, offset]"});
    else if (module == "stack")
        module += ", normalise: " + oneOf({"live", "sqrt", "count", "none"});
    else if (module == "trace_qc")
        module += ", gather: " + oneOf({"cdp", "fldr"}) +
                  parameter("max_gather", dice.between(1, 30)) +
                  parameter("window", 3 + 2 * dice.below(8)) +
                  ", messages: 0, plot: " + oneOf({"true", "false"});
    else if (module == "header_plot")
        module += ", mode: " + oneOf({"points, x: tracl", "fold, x: cdp"});
    else if (module == "section")
        module +=
            parameter("every", dice.between(1, 3)) + parameter("max_traces", dice.between(1, 50));
    addModule(name, module, {input});
    read(input);
    addOutput(name, shippedList(module, list));
    ++job.shippedModules;
}

// Modules that only look on, and those that only change the order, are the model's.
List ListJobMaker::shippedList(const std::string& module, const List& input)
{
    const std::string name = module.substr(0, module.find(','));
    if (name == "trace_qc" || name == "section" || name == "header_plot" || name == "spectrum")
        return input;
    if (name != "sort")
        return alone(module, &input);
    List sorted = input;
    std::stable_sort(sorted.begin(), sorted.end(), [&](const ListTrace& a, const ListTrace& b) {
        if (module.find("[cdp]") != std::string::npos)
            return a.key < b.key;
        if (module.find("[-offset]") != std::string::npos)
            return a.offset > b.offset;
        if (module.find("[cdp, -tracl]") != std::string::npos)
            return a.key != b.key ? a.key < b.key : a.id > b.id;
        return a.key != b.key ? a.key > b.key : a.offset < b.offset;
    });
    return sorted;
}

// ---- Sinks ----

void ListJobMaker::addSink(std::size_t output)
{
    const std::string name = newName("list_sink");
    addModule(name, "list_sink", {output});
    std::string text;
    for (const ListTrace& trace : read(output))
        text += listText(trace);
    job.expected[name] = text;
}

void ListJobMaker::addWriter(std::size_t output)
{
    const std::string format = oneOf({"segy", "su"});
    const std::string name = newName(format + "_out");
    const std::string file = directory + "/" + name + "." + format;
    if (job.outputs[output].list.empty())
        return; // no file that could be read
    addModule(name, format + "_out, file: " + file + (format == "segy" ? ", format: ieee" : ""),
              {output});
    job.files.push_back({file, format + "_in", read(output)});
    ++job.shippedModules;
}

void ListJobMaker::addPicture(std::size_t output)
{
    const std::string module = oneOf({"section", "header_plot", "spectrum", "trace_qc"});
    const std::string name = newName(module);
    addModule(name, module + (module == "header_plot" ? ", x: tracl" : ""), {output});
    job.taken[name] = static_cast<int64_t>(read(output).size());
    ++job.shippedModules;
}
