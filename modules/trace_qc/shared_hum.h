/// @file shared_hum.h
///
/// Hum that most traces of a gather have. Independent of the kernel.
///
/// A channel with hum is a bad one; hum in all of them is a property of the survey, and a list of
/// all traces would hide the other faults. Records that are too short for a trace to be judged by
/// itself have nothing that stands out then.
#ifndef SHARED_HUM_H
#define SHARED_HUM_H

#include "mains_hum.h"
#include "sums/ExactSums.h"

#include <cstdint>
#include <span>
#include <string>

class SharedHum
{
public:
    /// @param leastShare  share of the energy from which on a trace has hum
    explicit SharedHum(double leastShare) : least(leastShare) {}

    /// Takes the traces of a gather that are not dead. True where more than half of them, and 5 at
    /// least, have hum of the same mains: they count then.
    bool add(std::span<const Hum> traces);

    /// What was found in all gathers: "50 Hz and harmonics: 96 of 100 traces in 2 of 3 gathers, 41
    /// % of the energy on average, 20 to 63 %". Empty without a gather that shares hum.
    std::string summary() const;

    /// Adds what another has found in other gathers.
    void add(SharedHum& other);

    /// Its values, for saving and reading.
    template <typename File>
    void transfer(File& file)
    {
        file(gathers, gathersWith, traces, tracesWith, sum, lowest, highest, has50, has60);
    }

private:
    double least;
    std::int64_t gathers = 0;
    std::int64_t gathersWith = 0;
    std::int64_t traces = 0; // of all gathers
    std::int64_t tracesWith = 0;
    sums::ExactSums sum; // of shares
    double lowest = 1;
    double highest = 0;
    bool has50 = false;
    bool has60 = false;
};

#endif
