#include "run/OutputDigests.h"

#include "file/FileIdentity.h"
#include "file/UnfinishedOutputs.h"

#include <sys/stat.h>

namespace host {

struct OutputDigests::Writing
{
    explicit Writing(HashThread& thread) : hash(thread) {}

    HashedStream hash;
    int64_t hashed = 0; // bytes from the beginning on; -1: not in their order
};

OutputDigests::OutputDigests()
{
    VORN::observeOutputs(this);
}

OutputDigests::~OutputDigests()
{
    VORN::observeOutputs(nullptr);
}

void OutputDigests::opened(const VORN::OutputFile& file)
{
    const std::lock_guard<std::mutex> lock(mutex);
    open[&file] = std::make_shared<Writing>(thread);
}

void OutputDigests::written(const VORN::OutputFile& file, int64_t offset,
                            const unsigned char* bytes, std::size_t count)
{
    Writing* writing = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        writing = open.at(&file).get(); // stays where it is until the file is closed
    }
    if (writing->hashed != offset) {
        writing->hashed = -1;
        return;
    }
    writing->hash.add(bytes, count);
    writing->hashed += static_cast<int64_t>(count);
}

void OutputDigests::completed(const VORN::OutputFile& file)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const std::shared_ptr<Writing>& writing = open.at(&file);
    const std::string place = VORN::canonicalPath(file.path());
    if (writing->hashed == file.size())
        known[place] = writing;
    else
        known.erase(place);
}

void OutputDigests::closed(const VORN::OutputFile& file) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex);
    open.erase(&file);
}

std::string OutputDigests::find(const std::string& path) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = known.find(VORN::canonicalPath(path));
    struct stat status;
    if (found == known.end() || stat(path.c_str(), &status) != 0 ||
        status.st_size != found->second->hashed || !VORN::isCompletedOutput(status))
        return "";
    return found->second->hash.hex();
}

} // namespace host
