/// @file RecordedModule.h
///
/// What a record says of its module as a whole: everything but its calls.
#ifndef RECORDEDMODULE_H
#define RECORDEDMODULE_H

#include "GroupEntity.h"
#include "LibraryEntity.h"
#include "UniVar.h"
#include "watch/RecordBytes.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class JobManager;
class ModuleEntity;

namespace host {

/// A trace attribute of the job's schema.
struct RecordedAttribute
{
    std::string name;
    int type = 0;
    int dimension = 0;
    std::string description;
    int cstSlot = 0;
    int cstType = 0;
    int bitA = 0;
    int bitZ = 0;
    int mapCoefficient = 0;
};

/// The groups and libraries that values refer to: values own neither.
struct OwnedTables
{
    std::vector<std::unique_ptr<GroupEntity>> groups;
    std::vector<std::unique_ptr<LibraryEntity>> libraries;
};

/// The module and its job.
struct RecordedModule
{
    std::string vornVersion; ///< that has written the record
    std::string name;        ///< in its job
    std::string module;      ///< its kind, "agc"
    std::string library;     ///< relative to VORN_HOME/lib
    std::string libraryPath; ///< absolute, on the machine of the record
    std::string vornHome;
    std::string job;
    std::string projectDirectory;
    std::string scratchDirectory;
    int scratchTraces = 0;
    int inputs = 0;                       ///< channels
    std::vector<int> consumers;           ///< of each output channel
    int64_t limit = 0;                    ///< calls of `process_` that are recorded at most; 0: all
    std::vector<std::string> inputFiles;  ///< parameters that name files to read
    std::vector<std::string> outputFiles; ///< and to write
    std::vector<std::string> replacedFiles; ///< those of the latter whose file existed before
    std::vector<RecordedAttribute> schema;
    std::map<std::string, UniVar> parameters;
    std::map<std::string, UniVar> resources; ///< before the first call, as the next
    std::map<std::string, UniVar> options;
    OwnedTables tables; ///< of these values
};

/// Appends it all.
void writeModule(const RecordedModule& module, ByteWriter& bytes);
/// Throws RecordError.
RecordedModule readModule(ByteReader& bytes);

/// The metadata that a module sees: those of the job, and of each module upstream, nearest ones
/// first.
struct VisibleMetaData
{
    std::map<std::string, std::string> job;
    std::vector<std::map<std::string, std::string>> upstream;
};

void writeMetaData(const VisibleMetaData& values, ByteWriter& bytes);
/// Throws RecordError.
VisibleMetaData readMetaData(ByteReader& bytes);

} // namespace host

#endif
