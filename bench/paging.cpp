// What it costs to page one trace out and another one in, beside one pwrite and one pread of such a
// record on the same file system (--directory), in the same pattern.
#include "Measure.h"

#include "JobManager.h"
#include "ScratchManager.h"
#include "SeisTraceSet.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace bench;

constexpr std::size_t recordBytes = samplesPerTrace * sizeof(float) + headerBytes;

class FloorFile
{
public:
    FloorFile(const std::string& directory, int recordCount) : records(recordCount)
    {
        std::string path = directory + "/bench-XXXXXX";
        file = mkstemp(path.data());
        if (file < 0)
            fail("can not create a file in " + directory);
        unlink(path.c_str());
        for (int i = 0; i < records; ++i)
            write(i);
    }
    ~FloorFile() { close(file); }
    FloorFile(const FloorFile&) = delete;
    FloorFile& operator=(const FloorFile&) = delete;

    // Reads a record, and writes one over the record read before, as the kernel does with places
    // that have become free.
    void exchange(int i)
    {
        if (pread(file, buffer, recordBytes, place(i)) != static_cast<ssize_t>(recordBytes))
            fail("can not read");
        write(i == 0 ? records - 1 : i - 1);
    }

private:
    static off_t place(int i) { return static_cast<off_t>(i) * static_cast<off_t>(recordBytes); }
    void write(int i)
    {
        if (pwrite(file, buffer, recordBytes, place(i)) != static_cast<ssize_t>(recordBytes))
            fail("can not write");
    }

    int records;
    int file;
    char buffer[recordBytes] = {};
};

// Twice as many traces as may be resident, used one after the other: every use pages one in and
// another one out.
class PagedTraces
{
public:
    explicit PagedTraces(int limit) : count(2 * limit)
    {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = limit;
        set.configureByTemplate(samplesPerTrace, 2000, nullptr);
        set.currentHeaderSize = headerBytes;
        for (int i = 0; i < count; ++i)
            set.getSamples(i)[0] = static_cast<float>(i);
    }
    ~PagedTraces()
    {
        while (set.getNumberOfTraces() > 0)
            set.removeTrace(set.getNumberOfTraces() - 1);
    }
    PagedTraces(const PagedTraces&) = delete;
    PagedTraces& operator=(const PagedTraces&) = delete;

    void use(int i)
    {
        SeisTrace* trace = set.getTrace(i % count, false);
        if (trace->traceSamples != nullptr)
            fail("a trace was resident that should not be");
        if (set.getSamples(i % count)[0] != static_cast<float>(i % count))
            fail("a trace came back with other samples");
    }
    int size() const { return count; }

private:
    int count;
    SeisTraceSet set;
};

struct Times
{
    Least kernel; // seconds per trace in and trace out
    Least floor;
};

Times timesWith(int limit, const Options& options)
{
    const int repetitions = options.repetitions > 0 ? options.repetitions : options.quick ? 7 : 25;
    const int uses = 2000;
    Times times;
    FloorFile floor(options.directory, limit);
    PagedTraces traces(limit);
    int used = 0;
    int exchanged = 0;
    for (int i = 0; i < repetitions; ++i) {
        times.floor.add(timeOf([&] {
                            for (int n = 0; n < uses; ++n)
                                floor.exchange(exchanged++ % limit);
                        }) /
                        uses);
        times.kernel.add(timeOf([&] {
                             for (int n = 0; n < uses; ++n)
                                 traces.use(used++);
                         }) /
                         uses);
    }
    return times;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = prepare(argc, argv);
    setenv("VORN_SCRATCH", options.directory.c_str(), 1);
    unsetenv("VORN_SCRATCH_SIZE");
    if (options.curves) {
        for (const int limit : {10, 100, 1000, 10000}) {
            const Times times = timesWith(limit, options);
            reportPoint("paging.kernel", limit, times.kernel.get() * 1e6);
            reportPoint("paging.floor", limit, times.floor.get() * 1e6);
        }
    } else {
        const Times times = timesWith(1000, options);
        report("paging", times.kernel.get() / times.floor.get(),
               {{"kernel_us", times.kernel.get() * 1e6}, {"floor_us", times.floor.get() * 1e6}});
    }
    ScratchManager::getInstance()->deleteScratch();
    return 0;
}
