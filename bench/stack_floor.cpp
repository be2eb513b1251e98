// What the job segy_in -> stack -> segy_out costs at least: one program that reads a file, adds the
// traces of a field record, divides the sums by the numbers of samples that are not zero, and
// writes.
//
//     bench_stack_floor IN OUT
#include "FloorSegy.h"

#include <algorithm>

namespace {

constexpr std::size_t fieldRecord = 8;   // bytes before the word
constexpr std::size_t tracesSummed = 32; // 16 bits

class Stack
{
public:
    explicit Stack(const floors::Reader& reader)
        : record(reader.record.size()), sums(reader.samples.size()), live(reader.samples.size())
    {
    }

    bool isEmpty() const { return traces == 0; }
    std::uint32_t key() const { return floors::word32(record.data() + fieldRecord); }

    void add(const floors::Reader& reader)
    {
        if (isEmpty()) {
            record = reader.record;
            std::fill(sums.begin(), sums.end(), 0.0);
            std::fill(live.begin(), live.end(), 0);
        }
        for (std::size_t i = 0; i < sums.size(); ++i) {
            sums[i] += static_cast<double>(reader.samples[i]);
            live[i] += reader.samples[i] != 0 ? 1 : 0;
        }
        ++traces;
    }

    void write(FILE* out)
    {
        unsigned char* to = record.data() + floors::traceHeaderBytes;
        for (std::size_t i = 0; i < sums.size(); ++i) {
            const auto value = static_cast<float>(sums[i] / std::max(live[i], 1));
            std::uint32_t bits;
            std::memcpy(&bits, &value, sizeof bits);
            bits = __builtin_bswap32(bits);
            std::memcpy(to + 4 * i, &bits, sizeof bits);
        }
        record[tracesSummed] = static_cast<unsigned char>(traces >> 8);
        record[tracesSummed + 1] = static_cast<unsigned char>(traces);
        if (std::fwrite(record.data(), record.size(), 1, out) != 1)
            floors::fail("can not write");
        traces = 0;
    }

private:
    std::vector<unsigned char> record; // of the first trace
    std::vector<double> sums;
    std::vector<int> live;
    int traces = 0;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        floors::fail("usage: bench_stack_floor IN OUT");
    floors::Reader reader(argv[1]);
    FILE* out = floors::open(argv[2], "wb");
    std::fwrite(reader.fileHeader, floors::fileHeaderBytes, 1, out);
    Stack stack(reader);
    while (reader.next()) {
        if (!stack.isEmpty() && stack.key() != floors::word32(reader.record.data() + fieldRecord))
            stack.write(out);
        stack.add(reader);
    }
    if (!stack.isEmpty())
        stack.write(out);
    return std::fclose(out) == 0 ? 0 : 2;
}
