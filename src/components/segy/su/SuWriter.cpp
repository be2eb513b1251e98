#include "su/SuWriter.h"

#include "segy/HeaderWords.h"
#include "segy/Samples.h"

#include <cstring>
#include <string>

namespace VORN {

SuWriter::SuWriter(OutputFile& output, int samples, bool littleEndian)
    : file(output), samplesPerTrace(samples), little(littleEndian)
{
    constexpr int most = 65535;
    if (samples < 1 || samples > most)
        throw TraceFileError(file.path() + ": traces of " + std::to_string(samples) +
                             " samples cannot be written; Seismic Unix states 1 to 65535");
    if (file.firstTrace() > 0)
        file.startAt(bytesOf(file.firstTrace()));
}

int64_t SuWriter::bytesOf(int64_t traces) const
{
    return traces * (segyTraceHeaderBytes + 4 * static_cast<int64_t>(samplesPerTrace));
}

void SuWriter::write(const unsigned char* header, const float* samples)
{
    static const HeaderWord& ns = *findTraceHeaderWord("ns");
    const auto count = static_cast<std::size_t>(samplesPerTrace);
    unsigned char* room = file.append(segyTraceHeaderBytes + 4 * count);
    std::memcpy(room, header, segyTraceHeaderBytes);
    writeWord(room, ns, little, samplesPerTrace);
    encodeSamples(samples, count, SampleFormat::ieeeFloat, little, room + segyTraceHeaderBytes);
}

} // namespace VORN
