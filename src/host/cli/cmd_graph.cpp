// vorn graph JOB.yaml: the job as a picture.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "base/Text.h"
#include "cli/JobLoader.h"
#include "draw/DotProgram.h"
#include "draw/JobGraph.h"
#include "file/FileIdentity.h"
#include "job/JobFileRoles.h"
#include "run/JobBuilder.h"

#include <cstdio>
#include <filesystem>

namespace host {

namespace {

// By the file's ending; "dot" for the graph's text, which is also what goes through a pipe.
std::string formatOf(const std::string& path)
{
    const std::string ending = lowerCase(std::filesystem::path(path).extension().string());
    for (const char* format : {"svg", "png", "pdf", "dot"}) {
        if (ending == std::string(".") + format)
            return format;
    }
    if (ending.empty() && VORN::isWrittenThrough(path))
        return "dot";
    throw CommandError("-o: the file " + quote(path) +
                       " must end with .svg, .png, .pdf or .dot, which selects the format");
}

int runGraph(const Arguments& arguments)
{
    const std::string path = arguments.text("--output");
    const std::string format = path.empty() ? "dot" : formatOf(path);
    const Output output = {"-o", path, "the picture"};
    const LoadedJob loaded = loadJob(arguments);
    refuseErrors(loaded);
    useFilesOf(loaded.job);
    if (!path.empty())
        claimOutput(output);
    const std::string dot = graphDot(loaded.job, kernelOrder(loaded.job),
                                     arguments.has("--verbose") ? Tees::shown : Tees::hidden);
    const std::string picture = format == "dot" ? dot : drawDot(dot, format);
    if (path.empty()) {
        std::fwrite(picture.data(), 1, picture.size(), stdout);
    } else {
        writeWholeFile(output, picture);
        if (!isStandardOutput(path))
            std::printf("%s\n", escaped(path).c_str());
    }
    return exitDone;
}

} // namespace

Command graphCommand()
{
    std::vector<OptionSpec> options = {
        {"-o,--output", "FILE",
         "write to this file, a picture by its ending .svg, .png or .pdf, or "
         "the graph's text (.dot)",
         ValueKind::file},
        {"-v,--verbose", "", "show the tees before several readers of an output as well"}};
    for (const OptionSpec& option : jobOptions())
        options.push_back(option);
    return {
        "graph",
        runGraph,
        "Draw the modules of a job and how they are connected",
        "Draws a box for each module, numbered in the order in which the kernel runs them, with "
        "the parameters that the job sets. Without -o the graph is printed in Graphviz' "
        "language. Pictures are drawn by Graphviz' program dot.",
        {jobArgument()},
        options,
        {{"vorn graph job.yaml -o job.svg", "a picture of the job"},
         {"vorn graph job.yaml | less", "the graph as text"}}};
}

} // namespace host
