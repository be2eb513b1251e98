/// @file ListJobs.h
///
/// Jobs made at random, with what a model of lists says of them.
#ifndef LISTJOBS_H
#define LISTJOBS_H

#include "TraceVerbs.h"
#include "list_model.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

/// A job file, and what the model says that its sinks get.
struct ListJob
{
    struct Output
    {
        std::string port; ///< as the inputs of other modules name it
        List list;
        int readers = 0;
        bool mustBeRead = false;
    };
    struct File
    {
        std::string path;
        std::string reader; ///< the module that reads it
        List list;
    };

    std::string text = "modules:\n";
    std::map<std::string, std::string> expected; ///< by the name of the list_sink: listText()
    std::map<std::string, int64_t> taken;        ///< traces, by the name of another sink
    std::vector<File> files;                     ///< that the job writes
    std::vector<Output> outputs;
    int shippedModules = 0;
    std::map<std::string, int> uses; ///< of each module
};

/// What `module`, "gain, factor: 2", makes of a list in a job of its own; an empty name of a module
/// with inputs and a list of none mean a source.
using RunAlone = std::function<List(const std::string& module, const List* input)>;

/// Makes one job. Samples that shipped modules compute are those of RunAlone; what else happens to
/// traces on their way is the model's.
class ListJobMaker
{
public:
    /// `directory` is for files.
    ListJobMaker(unsigned seed, RunAlone alone, std::string directory);

    ListJob make();

private:
    std::string oneOf(const std::vector<std::string>& words);
    std::string newName(const std::string& module);
    void addOutput(const std::string& port, const List& list, bool mustBeRead = false);
    std::size_t anyOutput();
    const List& read(std::size_t output);
    void addModule(const std::string& name, const std::string& module,
                   const std::vector<std::size_t>& inputs);

    void addSource();
    void addListSource();
    void addFileSource();
    void addSynthetic();

    void addListStep();
    void addSplit();
    void addTee();
    void addShipped();
    List shippedList(const std::string& module, const List& input);

    void addSink(std::size_t output);
    void addWriter(std::size_t output);
    void addPicture(std::size_t output);

    Dice dice;
    RunAlone alone;
    std::string directory;
    ListJob job;
    int names = 0;
};

#endif
