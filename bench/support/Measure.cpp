#include "Measure.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <malloc.h>

namespace bench {

Options prepare(int argc, char** argv)
{
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 32 << 20); // the most that the heap takes
    setenv("QT_LOGGING_RULES", "default.debug=false", 1);

    Options options;
    options.directory = std::filesystem::temp_directory_path();
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool followed = i + 1 < argc;
        if (word == "--quick")
            options.quick = true;
        else if (word == "--curves")
            options.curves = true;
        else if (word == "--directory" && followed)
            options.directory = argv[++i];
        else if (word == "--repetitions" && followed)
            options.repetitions = std::atoi(argv[++i]);
        else
            options.rest.push_back(word);
    }
    return options;
}

double now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Line lineThrough(const std::map<int, double>& points)
{
    double n = 0, x = 0, y = 0, xx = 0, xy = 0;
    for (const auto& [place, value] : points) {
        n += 1;
        x += place;
        y += value;
        xx += static_cast<double>(place) * place;
        xy += place * value;
    }
    const double slope = (n * xy - x * y) / (n * xx - x * x);
    return {slope, (y - slope * x) / n};
}

void report(const std::string& measure, double value,
            const std::vector<std::pair<std::string, double>>& details)
{
    std::printf("{\"measure\": \"%s\", \"value\": %.6g", measure.c_str(), value);
    for (const auto& [name, number] : details)
        std::printf(", \"%s\": %.6g", name.c_str(), number);
    std::printf("}\n");
    std::fflush(stdout);
}

void reportPoint(const std::string& curve, double x, double y)
{
    std::printf("{\"curve\": \"%s\", \"x\": %.6g, \"y\": %.6g}\n", curve.c_str(), x, y);
    std::fflush(stdout);
}

void fail(const std::string& reason)
{
    std::fprintf(stderr, "%s\n", reason.c_str());
    std::exit(2);
}

} // namespace bench
