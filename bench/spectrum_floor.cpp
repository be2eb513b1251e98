// What the mean amplitude spectrum of a file costs at least: one program that reads it, takes the
// spectra in the same way as the module, and prints the frequencies and their amplitudes.
//
//     bench_spectrum_floor IN
#include "FloorSegy.h"
#include "spectrum_math.h"

int main(int argc, char** argv)
{
    if (argc != 2)
        floors::fail("usage: bench_spectrum_floor IN");
    floors::Reader reader(argv[1]);
    spectrum_sum* sum = spectrum_create(reader.count, reader.interval, SPECTRUM_COSINE);
    if (sum == nullptr)
        floors::fail("can not make the transform");
    int odd = 0;
    while (reader.next()) {
        if (spectrum_add(sum, reader.samples.data(), reader.count, 0, &odd) < 0)
            floors::fail("not enough memory");
    }
    std::vector<double> amplitudes(static_cast<std::size_t>(spectrum_bins(sum)));
    if (spectrum_mean(sum, amplitudes.data()) == 0)
        floors::fail("not enough memory");
    for (std::size_t i = 0; i < amplitudes.size(); ++i)
        std::printf("%.6g %.6g\n", static_cast<double>(i) * spectrum_step(sum), amplitudes[i]);
    spectrum_free(sum);
    return std::fflush(stdout) == 0 ? 0 : 2;
}
