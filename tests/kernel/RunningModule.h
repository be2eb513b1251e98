// What the tests of the module interface share: a job with a module that counts as running, a host
// that writes down what it is told, and one of each thing that modules hold handles of.
#ifndef RUNNINGMODULE_H
#define RUNNINGMODULE_H

#include "DataChannel.h"
#include "GroupEntity.h"
#include "JobManager.h"
#include "LibraryEntity.h"
#include "ModuleEntity.h"
#include "SeisTraceSet.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// A trace set that ends with its traces: a plain one leaves them to others.
template <typename Set>
class WithTraces : public Set
{
public:
    ~WithTraces() override
    {
        while (this->getNumberOfTraces() > 0)
            this->removeTrace(0);
    }
};

class RunningModuleTest : public testing::Test
{
protected:
    struct Message
    {
        int type;
        std::string module;
        std::string text;
    };
    struct Pad
    {
        int ident, type, align, visible;
        std::string title;
    };
    struct Plot
    {
        int ident;
        plotCommandStruct command;
        std::string text; // of a symbol, which lives no longer than the call
    };

    RunningModuleTest() : directory(makeDirectory())
    {
        delete JobManager::jobManagerInstance;
        JobManager::jobManagerInstance = nullptr;
        job().installMessageFunc(onMessage, onArgument, this);
        job().installCreatePadFunc(onPad, this);
        job().installAddTraceToPadFuncFunc(onTraces, this);
        job().installAddPlotToPadFuncFunc(onPlot, this);
        job().installExecAppliFunc(onCommand, this);
        run(&module);
    }

    ~RunningModuleTest() override
    {
        run(nullptr);
        for (SeisTraceSet* set : module.workTraceSets)
            dropTracesOf(set);
        delete JobManager::jobManagerInstance;
        JobManager::jobManagerInstance = nullptr;
        std::filesystem::remove_all(directory);
    }

    static JobManager& job() { return *JobManager::getInstance(); }

    // From now on, `running` counts as the module whose entry point runs; null: none does.
    void run(ModuleEntity* running) { job().setActiveModule(running); }

    void define(const char* attribute, int type, int dim)
    {
        job().addTraceAttributeDefinition(attribute, type, dim, "", 0, 0, 0, 0, 0);
    }

    std::string pathOf(const std::string& name) const { return (directory / name).string(); }

    static std::string contentOf(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }

    ModuleEntity module{"agc"};
    WithTraces<SeisTraceSet> traceSet;
    LibraryEntity library{"HZ", "/lib"};
    GroupEntity group;

    std::vector<Message> messages;
    std::vector<std::string> arguments;
    std::vector<Pad> pads;
    std::vector<Plot> plots;
    std::map<int, void*> tracesOnPads;
    std::vector<std::string> commands;

private:
    static std::filesystem::path makeDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "vorn_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no directory for the test");
        return name;
    }

    static void dropTracesOf(SeisTraceSet* set)
    {
        while (set->getNumberOfTraces() > 0)
            set->removeTrace(0);
        delete set;
    }

    static RunningModuleTest* self(void* object) { return static_cast<RunningModuleTest*>(object); }
    static int onMessage(int type, char*, const char* from, const char* text, void* object)
    {
        self(object)->messages.push_back({type, from, text});
        return 0;
    }
    static int onArgument(const char* text, void* object)
    {
        self(object)->arguments.push_back(text);
        return 0;
    }
    static int onPad(int ident, int type, int align, int visible, const char* title, void* object)
    {
        self(object)->pads.push_back({ident, type, align, visible, title});
        return 0;
    }
    static int onTraces(int ident, void* traces, void* object)
    {
        self(object)->tracesOnPads[ident] = traces;
        return 0;
    }
    static int onPlot(int ident, plotCommandStruct command, void* object)
    {
        self(object)->plots.push_back({ident, command, command.cbcd ? command.cbcd : ""});
        return 0;
    }
    static int onCommand(const char* text, void* object)
    {
        self(object)->commands.push_back(text);
        return 0;
    }

    std::filesystem::path directory;
};

#endif
