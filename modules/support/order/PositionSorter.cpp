// A record is the keys, two in a word, and the number behind them: comparing records as lists of
// unsigned integers is the whole order, and all records differ.
#include "order/PositionSorter.h"

#include <algorithm>
#include <array>
#include <queue>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace order {

class PositionSorter::Records
{
public:
    virtual ~Records() = default;
    virtual void add(const uint32_t* keys, std::size_t count, int64_t number) = 0;
    virtual void finish(PositionWriter& writer) = 0;

protected:
    Records() = default;
    Records(const Records&) = default;
    Records& operator=(const Records&) = default;
};

namespace {

constexpr const char* runsName = "runs of the traces to be sorted";

template <std::size_t words>
class RecordsOf : public PositionSorter::Records
{
public:
    using Record = std::array<uint64_t, words + 1>;

    RecordsOf(std::string directoryGiven, int64_t memoryBytes)
        : directory(std::move(directoryGiven)),
          most(std::max<std::size_t>(2, static_cast<std::size_t>(memoryBytes) / sizeof(Record)))
    {
    }
    ~RecordsOf() override
    {
        if (descriptor >= 0)
            close(descriptor);
    }
    RecordsOf(const RecordsOf&) = delete;
    RecordsOf& operator=(const RecordsOf&) = delete;

    void add(const uint32_t* keys, std::size_t count, int64_t number) override
    {
        Record record = {};
        for (std::size_t i = 0; i < count; ++i)
            record[i / 2] |= uint64_t{keys[i]} << (i % 2 == 0 ? 32 : 0);
        record[words] = static_cast<uint64_t>(number);
        if (records.size() == most)
            writeRun();
        records.push_back(record);
    }

    void finish(PositionWriter& writer) override
    {
        if (runs.empty()) {
            sortRecords();
            for (const Record& record : records)
                writer.add(static_cast<int64_t>(record[words]));
            records.clear();
            return;
        }
        writeRun();
        records = {};
        merge(writer);
    }

private:
    // In the file; counted in records.
    struct Run
    {
        int64_t next;
        int64_t end;
        std::vector<Record> window = {};
        std::size_t place = 0; // in the window
    };

    // Inputs that are sorted already are frequent.
    void sortRecords()
    {
        if (!std::is_sorted(records.begin(), records.end()))
            std::sort(records.begin(), records.end());
    }

    void writeRun()
    {
        sortRecords();
        if (descriptor < 0)
            descriptor = openUnnamedFile(directory);
        const int64_t begin = runs.empty() ? 0 : runs.back().end;
        writeAt(descriptor, offsetOf(begin), records.data(), records.size() * sizeof(Record),
                runsName);
        runs.push_back({begin, begin + static_cast<int64_t>(records.size())});
        records.clear();
    }

    static int64_t offsetOf(int64_t record)
    {
        return record * static_cast<int64_t>(sizeof(Record));
    }

    // The next record of a run; null behind the last one.
    const Record* next(Run& run) const
    {
        constexpr int64_t windowRecords = 1 << 14;
        if (run.place == run.window.size()) {
            run.window.resize(
                static_cast<std::size_t>(std::min(windowRecords, run.end - run.next)));
            run.place = 0;
            readAt(descriptor, offsetOf(run.next), run.window.data(),
                   run.window.size() * sizeof(Record), runsName);
            run.next += static_cast<int64_t>(run.window.size());
        }
        return run.place < run.window.size() ? &run.window[run.place++] : nullptr;
    }

    void merge(PositionWriter& writer)
    {
        using Entry = std::pair<Record, std::size_t>; // and its run
        std::priority_queue<Entry, std::vector<Entry>, std::greater<>> least;
        for (std::size_t i = 0; i < runs.size(); ++i) {
            if (const Record* record = next(runs[i]))
                least.emplace(*record, i);
        }
        while (!least.empty()) {
            const auto [record, run] = least.top();
            least.pop();
            writer.add(static_cast<int64_t>(record[words]));
            if (const Record* later = next(runs[run]))
                least.emplace(*later, run);
        }
    }

    std::string directory;
    std::size_t most;
    std::vector<Record> records;
    std::vector<Run> runs;
    int descriptor = -1;
};

std::unique_ptr<PositionSorter::Records> recordsFor(std::size_t keys, const std::string& directory,
                                                    int64_t memoryBytes)
{
    switch ((keys + 1) / 2) {
    case 1:
        return std::make_unique<RecordsOf<1>>(directory, memoryBytes);
    case 2:
        return std::make_unique<RecordsOf<2>>(directory, memoryBytes);
    case 3:
        return std::make_unique<RecordsOf<3>>(directory, memoryBytes);
    case 4:
        return std::make_unique<RecordsOf<4>>(directory, memoryBytes);
    default:
        throw std::invalid_argument("traces are sorted by 1 to 8 header words, not by " +
                                    std::to_string(keys));
    }
}

} // namespace

PositionSorter::PositionSorter(std::vector<bool> order, const std::string& directory,
                               int64_t memoryBytes)
    : descending(std::move(order)), records(recordsFor(descending.size(), directory, memoryBytes))
{
}

PositionSorter::~PositionSorter() = default;

void PositionSorter::add(const int32_t* values, int64_t number)
{
    constexpr uint32_t sign = uint32_t{1} << 31;
    std::array<uint32_t, mostKeys> keys;
    for (std::size_t i = 0; i < descending.size(); ++i) {
        const uint32_t ascending = static_cast<uint32_t>(values[i]) ^ sign;
        keys[i] = descending[i] ? ~ascending : ascending;
    }
    records->add(keys.data(), descending.size(), number);
}

void PositionSorter::finish(PositionWriter& writer)
{
    records->finish(writer);
}

} // namespace order
