// Metadata files: where they lie (getRefPath), what is in them (packMetadata, parseMetadata), and
// the way between memory and disk (storeMetadata, loadMetadata). The path is worked out on text
// alone; the only question asked of the file system is whether a directory holds a project file.

#include "metadataprovider.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace VORN {

namespace {

constexpr mode_t newFilePermissions = 0666;
constexpr int mostTemporaryNames = 100;
constexpr char pathSeparator = '/';
constexpr char projectFile[] = "project.vpj";

struct FreeBlock
{
    void operator()(char* block) const { std::free(block); }
};
// Blocks come from malloc, as packMetadata hands its own over to callers that know only free.
using Block = std::unique_ptr<char, FreeBlock>;

// A path within a project as the name of one file. The backslash goes too, although it separates
// nothing in the searches below: projects move between systems.
std::string flattened(std::string path)
{
    for (char& c : path) {
        if (c == pathSeparator || c == '\\')
            c = '_';
    }
    return path;
}

bool exists(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

// Copies `text` and its NUL to `to`; returns the place after them.
char* append(char* to, const std::string& text)
{
    std::memcpy(to, text.c_str(), text.size() + 1);
    return to + text.size() + 1;
}

// A new, empty file beside the one at `path`, to be renamed to it; its name, or "" where none can
// be made or where `path` is what a file must not replace (a link, a device, a directory).
std::string createBeside(const std::string& path)
{
    struct stat former;
    const bool replaces = lstat(path.c_str(), &former) == 0;
    if (replaces && (!S_ISREG(former.st_mode) || access(path.c_str(), W_OK) != 0))
        return {};

    // Names that are taken are those of processes that were killed here.
    for (int number = 0; number < mostTemporaryNames; ++number) {
        std::string name =
            path + ".vorn-" + std::to_string(getpid()) + '-' + std::to_string(number);
        const int descriptor =
            open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, newFilePermissions);
        if (descriptor != -1) {
            if (replaces) {
                [[maybe_unused]] const int result = fchmod(descriptor, former.st_mode & 07777);
            }
            ::close(descriptor);
            return name;
        }
        if (errno != EEXIST)
            break;
    }
    return {};
}

enum class Written
{
    notOpened,
    inPart,
    whole
};

// Throws what the stream throws.
Written writeBlock(const std::string& path, const char* block, int size)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.is_open())
        return Written::notOpened;
    file.write(block, size);
    file.close();
    return file.fail() ? Written::inPart : Written::whole;
}

size_t packedSize(const std::map<std::string, std::string>& data)
{
    size_t size = 2;
    for (const auto& [key, value] : data)
        size += key.size() + value.size() + 2;
    return size;
}

} // namespace

MetadataProvider* MetadataProvider::getInstance()
{
    static MetadataProvider* const instance = new MetadataProvider; // deliberate: never destroyed
    return instance;
}

void MetadataProvider::setRefDir(const std::string& ref)
{
    refDir = ref;
    // deliberate: at() throws for the empty text, which by then is the reference directory.
    if (refDir.at(refDir.size() - 1) != pathSeparator)
        refDir += pathSeparator;
}

void MetadataProvider::setMetaDir(const std::string& part)
{
    metaDir = part;
}

void MetadataProvider::setAllowNonDefault(bool allow)
{
    allowNonDefault = allow;
}

std::string MetadataProvider::getRefDir()
{
    return refDir;
}

std::string MetadataProvider::getRefPath(const std::string& _file, std::string* ret_proj)
{
    if (!refDir.empty() && _file.starts_with(refDir)) {
        const std::string name = flattened(_file.substr(refDir.size()));
        if (ret_proj != nullptr) // may be where `_file` stands: written once that is read
            *ret_proj = refDir;
        return refDir + metaDir + pathSeparator + name;
    }
    if (!allowNonDefault)
        return {};

    // Upwards, one directory at a time: `dir` keeps its "/" and `tail` gets what it loses. The
    // search gives up at position 0, not where no "/" is left, so the root serves as the project
    // of last resort, and so does a first directory whose name has one letter (deliberate).
    std::string dir = _file;
    std::string tail;
    size_t pos = dir.size();
    while (pos != 0) {
        pos = dir.rfind(pathSeparator, pos);
        if (pos == std::string::npos)
            return {};
        tail.insert(0, dir, pos + 1);
        dir.resize(pos + 1);
        if (exists(dir + projectFile))
            break;
        if (pos != 0)
            --pos;
    }
    if (ret_proj != nullptr)
        *ret_proj = dir;
    return dir + metaDir + pathSeparator + flattened(tail);
}

int MetadataProvider::packMetadata(char** buf, const std::map<std::string, std::string>& data)
{
    const size_t size = packedSize(data);
    *buf = size <= INT_MAX ? static_cast<char*>(std::malloc(size)) : nullptr;
    if (*buf == nullptr)
        return 0;

    char* end = *buf;
    for (const auto& [key, value] : data)
        end = append(append(end, key), value);
    end[0] = '\0';
    end[1] = '\0';
    return static_cast<int>(size);
}

bool MetadataProvider::parseMetadata(const char* buf, int size, Visitor f, void* ctx)
{
    std::string key;
    bool keyPending = false;
    int pos = 0;
    // deliberate: the first empty text ends the parse, be it the end mark or an empty value.
    while (pos < size && buf[pos] != '\0') {
        const size_t length = strnlen(buf + pos, static_cast<size_t>(size - pos));
        std::string text(buf + pos, length);
        if (keyPending)
            f(ctx, key, text);
        else
            key = std::move(text);
        keyPending = !keyPending;

        pos += static_cast<int>(length);
        if (pos < size) // a text without its NUL ends at `size`, which may be the largest int
            ++pos;
    }
    return true;
}

bool MetadataProvider::storeMetadata(const std::string& ref_file,
                                     const std::map<std::string, std::string>& data)
{
    const std::string path = getRefPath(ref_file, nullptr);
    if (path.empty())
        return false;

    char* packed = nullptr;
    const int size = packMetadata(&packed, data);
    const Block block(packed);
    if (block == nullptr)
        return false;

    // The former file stays whole until the new one is.
    const std::string temporary = createBeside(path);
    Written written = Written::inPart;
    try {
        written = writeBlock(temporary.empty() ? path : temporary, block.get(), size);
    } catch (const std::exception&) {
        // From beneath the stream: its locale's conversion, or no memory for its buffer.
        unlink(temporary.c_str());
        return false;
    }
    if (temporary.empty())
        return true; // deliberate: what a device takes is not asked for
    if (written == Written::whole && std::rename(temporary.c_str(), path.c_str()) == 0)
        return true;
    unlink(temporary.c_str());
    // deliberate: what cannot be opened is not a failure, so that a job whose project has no
    // metadata directory goes on without metadata.
    return written == Written::notOpened;
}

bool MetadataProvider::loadMetadata(const std::string& ref_file, Visitor f, void* ctx)
{
    const std::string path = getRefPath(ref_file, nullptr);
    if (path.empty())
        return false;

    // Looked at before it is opened: opening a pipe would wait for a writer, and a directory
    // opens, but has no size.
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;

    std::ifstream file(path, std::ios::binary);
    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg(); // -1 when any step failed
    if (size < 0 || size > INT_MAX)
        return false;
    file.seekg(0, std::ios::beg);

    // malloc may answer null when asked for nothing, which would look like a failure.
    const Block block(static_cast<char*>(std::malloc(static_cast<size_t>(size) + 1)));
    if (block == nullptr)
        return false;
    file.read(block.get(), size);
    if (file.bad())
        return false;
    // The file may have shrunk since its size was asked for: only what was read is parsed.
    return parseMetadata(block.get(), static_cast<int>(file.gcount()), f, ctx);
}

} // namespace VORN
