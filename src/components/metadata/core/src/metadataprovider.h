/// @file metadataprovider.h
///
/// Key/value metadata of data files, kept beside the data and not in it.
#ifndef METADATAPROVIDER_H
#define METADATAPROVIDER_H

#include "metadata_export.h"

#include <map>
#include <string>

namespace VORN {

/// Where the metadata of a data file lie, and how they are written and read.
///
/// Every data file has one small metadata file in the metadata directory at the top of its
/// project, named after the path of the data file within the project:
///
///     /data/p1/lines/l001.sgy   --->   /data/p1/.metadata/lines_l001.sgy
///     \______/ project                 \______/ \_______/ \____________/ flattened path
///
/// The project is the reference directory for the files below it. For other files it is the
/// nearest directory upwards that holds a file "project.vpj", unless such files are not allowed.
///
/// A metadata file is a run of entries, each a key, a NUL, a value and a NUL, in ascending
/// byte-wise order of the keys, and two NULs at the end. Nothing else: no header, no lengths, no
/// character-set conversion.
///
/// Paths are compared and cut as text: nothing is normalised, "." and ".." and doubled slashes
/// are characters like others. Failures are a false result or an empty path; nothing is printed.
///
/// One instance serves the whole process. It is made on first use without locking and lives to
/// the end of the process; all calls come from one thread. Nothing here locks the files. Processes
/// that share a project exclude each other with lock files: a record lock taken on a metadata file
/// itself would be lost as soon as loadMetadata() closes that file.
class METADATA_EXPORT MetadataProvider
{
public:
    /// Called once for each entry that is read; `ctx` is what the caller of the reading function
    /// passed. The texts live for the length of the call.
    using Visitor = void (*)(void* ctx, const std::string& key, const std::string& value);

    /// The instance of the process: no reference directory, metadata directory ".metadata", files
    /// outside the reference directory allowed. The caller never deletes it.
    static MetadataProvider* getInstance();

    MetadataProvider(const MetadataProvider&) = delete;
    MetadataProvider& operator=(const MetadataProvider&) = delete;

    /// Makes `ref` the reference directory, with a "/" at its end whether or not `ref` has one.
    /// An empty `ref` becomes the reference directory, which then is none, and ends in
    /// std::out_of_range, as an empty text has no last character to look at.
    void setRefDir(const std::string& ref);

    /// Makes `part` the name of the metadata directory within a project, as it is given.
    void setMetaDir(const std::string& part);

    /// Whether files outside the reference directory have metadata.
    void setAllowNonDefault(bool allow);

    /// The reference directory with its "/" at the end; empty when there is none.
    std::string getRefDir();

    /// The path of the metadata file of data file `_file`, or the empty text when it has none.
    /// Neither file need exist.
    ///
    /// Outside the reference directory, directories are tried for "project.vpj" from that of the
    /// file upwards, and the last one tried stands in when none holds it: "/" for an absolute
    /// path, so that /a/b/c.dat gives /.metadata/a_b_c.dat. A relative path is not made absolute:
    /// a/b/c.dat gives a/.metadata/b_c.dat, while ab/c.dat and c.dat give the empty text. The empty
    /// path gives the metadata directory of the working directory, followed by "/".
    ///
    /// @param ret_proj  may be null; receives the project directory with its "/" at the end, and is
    ///                  untouched when the result is empty
    std::string getRefPath(const std::string& _file, std::string* ret_proj);

    /// Writes `data` as the metadata file of data file `ref_file`, in place of what it held. The
    /// new file is written beside the former one and takes its name when it is whole. Only a link
    /// or a device, or a file in a directory where none can be made, is written in place.
    ///
    /// False when the data file has no metadata path, when `data` cannot be packed (see
    /// packMetadata), when the file stream threw, and when the new file could not be written whole,
    /// for lack of room for one; the former file then stays as it was. Otherwise true, which is no
    /// proof of a written file: a metadata directory that does not exist is not made, and a file
    /// that cannot be opened, or not be written in place, goes unnoticed.
    bool storeMetadata(const std::string& ref_file, const std::map<std::string, std::string>& data);

    /// Reads the metadata file of data file `ref_file` and reports its entries to `f`, as
    /// parseMetadata does.
    ///
    /// False, with nothing reported, when the data file has no metadata path, or when the metadata
    /// file is missing, cannot be read, is not a regular file or is larger than 2147483647 bytes.
    /// True otherwise, for an empty file too. Requires: `f` is not null.
    bool loadMetadata(const std::string& ref_file, Visitor f, void* ctx);

    /// Reports the entries in the first `size` bytes of `buf` to `f`, in their order there.
    ///
    /// Ends at the first empty text, so that an entry with an empty key or an empty value and all
    /// entries after it are not reported. A last text without its NUL ends with the buffer; a last
    /// key without a value is dropped. Nothing past `size` is read, and nothing at all when `size`
    /// is zero or negative. Always true. Requires: `f` is not null.
    bool parseMetadata(const char* buf, int size, Visitor f, void* ctx);

    /// Encodes `data` into a new block and returns its size in bytes: 2, and for each entry the
    /// lengths of key and value and 2.
    ///
    /// The caller owns `*buf` and releases it with free(). When the size exceeds 2147483647 bytes
    /// or there is no memory, `*buf` is null and the result 0. Keys and values must not hold a
    /// NUL: they are copied as they are and would be read back as something else.
    int packMetadata(char** buf, const std::map<std::string, std::string>& data);

private:
    MetadataProvider() = default;

    std::string refDir;                ///< project directory, ends with "/"; empty: none
    std::string metaDir = ".metadata"; ///< name of the metadata directory in a project
    bool allowNonDefault = true;       ///< files outside refDir have metadata
};

} // namespace VORN

#endif
