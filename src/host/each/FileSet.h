/// @file FileSet.h
///
/// The files that a job is run for, and the folders of their results.
#ifndef FILESET_H
#define FILESET_H

#include <map>
#include <set>
#include <string>
#include <vector>

namespace host {

/// The record of a run in the folder of its results. A folder with such a file holds results.
constexpr char recordName[] = "vorn-file.json";

/// The files that patterns have found.
struct FileSet
{
    std::vector<std::string> files; ///< absolute; in the order of the patterns, each once
    std::vector<std::string> notes; ///< what was left out, one sentence each
};

/// The files that `patterns` match. Left out are directories, devices and the like, and what lies
/// in `directory` or in another folder of results, so that outputs of an earlier call are not taken
/// for inputs. Throws CommandError, which begins with `option`, where a pattern or the whole
/// matches nothing.
FileSet findFiles(const std::vector<std::string>& patterns, const std::string& directory,
                  const std::string& option);

/// A name for a folder of the results of `file`: that of the file without its ending, with "_" for
/// whatever is not a letter, a digit, ".", "_", "-", "+" or "=", and for a "." or "-" at its
/// beginning. Letters of other alphabets stay. At most 100 bytes.
std::string folderName(const std::string& file);

/// A text of its own for a path, whatever bytes it has.
std::string pathKey(const std::string& path);

/// Gives each file a folder of its own. A file whose results are there already keeps its folder,
/// whichever other files there are.
class FolderNames
{
public:
    /// Looks for folders of results in `directory`, which need not exist.
    explicit FolderNames(std::string directory);

    /// The folder of each file. Where the plain name belongs to another file, or to a folder that
    /// holds something else, a number follows it, and `notes` gets a sentence.
    std::vector<std::string> forFiles(const std::vector<std::string>& files,
                                      std::vector<std::string>& notes);

    /// Folders of results of other files than those that got one.
    int others() const;

private:
    std::string ownerOf(const std::string& name) const;

    std::string place;
    std::map<std::string, std::string> owners; ///< key of the file, by folder
    std::set<std::string> taken;               ///< folders given away
};

} // namespace host

#endif
