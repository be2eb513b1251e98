/// @file ListFixture.h
///
/// Runs jobs of the list modules (tests/modules/list_*) in this process.
#ifndef LISTFIXTURE_H
#define LISTFIXTURE_H

#include "TestTree.h"
#include "draw/PadStore.h"
#include "job/JobCheck.h"
#include "run/JobRunner.h"

#include <filesystem>
#include <gmock/gmock.h>

/// A module tree with the list modules, some others of the tests, and the processing modules.
class ListFixture : public KernelFixture
{
protected:
    ListFixture()
    {
        std::filesystem::create_directories(homeDirectory / "lib");
        for (const char* name :
             {"list_source", "list_step", "list_stream", "list_split", "list_sink", "delay_one",
              "drop_last", "unmarked_end", "endless_end", "endless_sink", "fail_at_end"})
            addModule(name);
        for (const std::string name : {"list_step", "list_stream"})
            writeFile(homeDirectory / ("lib/" + name + ".yaml"),
                      manifest(name, "{min: 1, max: 1}"));
        writeFile(homeDirectory / "lib/list_split.yaml",
                  manifest("list_split", "{min: 1, max: any}"));
        for (const char* name :
             {"tee", "gain", "agc", "mute", "bandpass", "sort", "stack", "trace_qc", "spectrum",
              "section", "header_plot", "synthetic", "segy_in", "segy_out", "su_in", "su_out"})
        {
            addModule(name);
            std::filesystem::create_symlink(VORN_TEST_HOME "/lib/" + std::string(name) + ".yaml",
                                            homeDirectory / ("lib/" + std::string(name) + ".yaml"));
        }
    }

    void addModule(const std::string& name) const
    {
        const std::string library = "lib/lib" + name + ".so";
        std::filesystem::create_symlink(VORN_TEST_HOME "/" + library, homeDirectory / library);
    }

    host::RunResult run(const std::string& text, int tracesInMemory)
    {
        host::Diagnostics diagnostics;
        const auto file = host::parseJobFile(text, homeDirectory / "job.yaml", diagnostics);
        host::ResolvedJob resolved =
            host::checkJob(*file, host::ModuleCatalog(homeDirectory.path()), diagnostics);
        EXPECT_EQ(diagnostics.errors(), 0) << text;
        resolved.scratchTraces = tracesInMemory;
        host::JobRunner runner(resolved, scratchDirectory.path());
        host::PadStore pads;
        pads.install(runner.manager());
        return runner.run();
    }

    static std::vector<std::string> errorsOf(const host::RunResult& result)
    {
        std::vector<std::string> texts;
        for (const host::RunMessage& message : result.messages) {
            if (message.severity >= host::errorSeverity)
                texts.push_back(message.text);
        }
        return texts;
    }

    /// What the sink `name` has noted: "number:first sample" of each trace.
    static std::string listOf(const host::RunResult& result, const std::string& name)
    {
        for (const host::RunModule& module : result.modules) {
            if (module.name == name && module.metadata.count("list") > 0)
                return module.metadata.at("list");
        }
        return "-";
    }

    TemporaryDirectory homeDirectory;

private:
    /// Its outputs are there also where no module reads them.
    static std::string manifest(const std::string& name, const std::string& outputs)
    {
        std::string text = "module: " + name +
                           "\n"
                           "version: 0.1.0\n"
                           "purpose: A step of the model of lists\n"
                           "language: c++\n"
                           "inputs: {min: 1, max: any}\n"
                           "outputs: " +
                           outputs +
                           "\n"
                           "parameters:\n";
        for (const char* parameter : {"kind", "n", "calls", "scribbles", "defines"})
            text +=
                std::string("  - {name: ") + parameter + ", type: int, help: see list_model.h}\n";
        return text + "reads: []\nwrites: []\ndraws: none\n";
    }
};

#endif
