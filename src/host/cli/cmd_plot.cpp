// vorn plot FILE.sgy -o PICTURE: a section without a job file.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "cli/CommandTable.h"
#include "draw/Page.h"
#include "draw/SectionPlot.h"
#include "file/FileRoles.h"
#include "segy/NumberRanges.h"
#include "segy/SegyReader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <new>

namespace host {

namespace {

using VORN::SegyReader;

constexpr double widthInPoints = 900;
constexpr double heightInPoints = 600;
constexpr int64_t mostTraces =
    20000; // more cannot be distinguished, and all have to fit into memory

VORN::NumberRanges chosenTraces(const Arguments& arguments)
{
    try {
        return VORN::NumberRanges(arguments.text("--traces", "1:"));
    } catch (const std::invalid_argument& error) {
        throw CommandError(std::string("--traces: ") + error.what());
    }
}

const VORN::HeaderWord* labelWord(const Arguments& arguments)
{
    const std::string key = arguments.text("--label");
    if (key.empty())
        return nullptr;
    const VORN::HeaderWord* word = VORN::findTraceHeaderWord(key);
    if (word != nullptr)
        return word;
    std::vector<std::string> keys;
    for (const VORN::HeaderWord& one : VORN::traceHeaderWords())
        keys.emplace_back(one.key);
    throw CommandError("--label: there is no trace header word " + quote(key) +
                       suggestion(key, keys, ""));
}

// The traces to draw: every n-th where there are more than a picture can show.
std::vector<int64_t> tracesToDraw(const SegyReader& reader, const VORN::NumberRanges& wanted)
{
    std::vector<int64_t> chosen;
    for (int64_t i = 0; i < reader.layout().traces; ++i) {
        if (wanted.contains(i + 1))
            chosen.push_back(i);
    }
    const auto count = static_cast<int64_t>(chosen.size());
    if (count <= mostTraces)
        return chosen;
    const int64_t step = (count + mostTraces - 1) / mostTraces;
    std::vector<int64_t> some;
    for (int64_t i = 0; i < count; i += step)
        some.push_back(chosen[static_cast<std::size_t>(i)]);
    std::fprintf(stderr, "vorn: %s: %s are too many for a picture; every %lldth is drawn\n",
                 escaped(reader.path()).c_str(), counted(count, "trace").c_str(),
                 static_cast<long long>(step));
    return some;
}

// Samples between the two times, in seconds.
struct Window
{
    int first = 0;
    int count = 0;
};

Window timeWindow(const Arguments& arguments, int samples, double interval, double start)
{
    const double from = arguments.number("--from", start);
    const double to = arguments.number("--to", start + interval * (samples - 1));
    const auto nearest = [=](double time) {
        const double sample = std::round((time - start) / interval);
        return static_cast<int>(std::clamp(sample, 0.0, std::max(0.0, samples - 1.0)));
    };
    const int first = nearest(from);
    const int last = nearest(to);
    if (last <= first)
        throw CommandError("--from " + formatNumber(from) + " --to " + formatNumber(to) +
                           ": no samples lie between these times; the traces go from " +
                           formatNumber(start) + " s to " +
                           formatNumber(start + interval * (samples - 1)) + " s");
    return {first, last - first + 1};
}

// Where the traces lie in time.
struct Placement
{
    double start = 0;       // seconds of the first sample of all
    std::vector<int> leads; // samples from there to each trace's first
    int samples = 0;        // from there to the last of all
};

// Traces of one file may have been recorded with different delays.
Placement placeTraces(SegyReader& reader, const std::vector<int64_t>& chosen, double interval,
                      bool timed)
{
    const VORN::HeaderWord& delay = *VORN::findTraceHeaderWord("delrt");
    std::vector<int> delays; // milliseconds
    delays.reserve(chosen.size());
    for (const int64_t index : chosen)
        delays.push_back(timed ? reader.word(reader.header(index), delay) : 0);
    const int earliest = *std::min_element(delays.begin(), delays.end());
    Placement place;
    place.start = earliest * 1e-3;
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        place.leads.push_back(
            static_cast<int>(std::lround((delays[i] - earliest) * 1e-3 / interval)));
        place.samples = std::max(place.samples, place.leads[i] + reader.samplesOf(chosen[i]));
    }
    return place;
}

Section readSection(SegyReader& reader, const Arguments& arguments)
{
    const VORN::HeaderWord* label = labelWord(arguments);
    const std::vector<int64_t> chosen = tracesToDraw(reader, chosenTraces(arguments));
    if (chosen.empty())
        throw CommandError(reader.path() + ": there is no trace to draw; the file holds " +
                           counted(reader.layout().traces, "trace"));

    Section section;
    const bool timed = reader.layout().interval > 0;
    section.interval = timed ? reader.layout().interval * 1e-6 : 1;
    const Placement place = placeTraces(reader, chosen, section.interval, timed);
    const Window window = timeWindow(arguments, place.samples, section.interval, place.start);
    section.start = place.start + window.first * section.interval;

    std::vector<float> samples(static_cast<std::size_t>(reader.layout().samples));
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        const int64_t index = chosen[i];
        reader.read(index, nullptr, samples.data());
        const int lead = place.leads[i];
        const int begin = std::max(window.first, lead);
        const int end =
            std::max(begin, std::min(window.first + window.count, lead + reader.samplesOf(index)));
        // A trace outside of the window has no samples left.
        const auto from = samples.begin() + (end > begin ? begin - lead : 0);
        section.traces.emplace_back(from, from + (end - begin));
        section.leads.push_back(begin - window.first);
        section.labels.push_back(label != nullptr ? reader.word(reader.header(index), *label)
                                                  : static_cast<double>(index + 1));
    }
    return section;
}

SectionStyle styleOf(const Arguments& arguments, const SegyReader& reader)
{
    SectionStyle style;
    style.title = arguments.text("--title",
                                 escaped(std::filesystem::path(reader.path()).filename().string()));
    style.mode = arguments.text("--mode", style.mode);
    style.colourMap = arguments.text("--colors", style.colourMap);
    style.clipPercentile = arguments.number("--clip", style.clipPercentile);
    style.xLabel = arguments.text("--label", style.xLabel);
    style.yLabel = reader.layout().interval > 0 ? style.yLabel : "sample";
    if (!(style.clipPercentile > 0 && style.clipPercentile <= 100))
        throw CommandError("--clip " + formatNumber(style.clipPercentile) +
                           ": expected a percentage above 0, at most 100");
    return style;
}

int runPlot(const Arguments& arguments)
{
    try {
        SegyReader reader(arguments.text("FILE.sgy"));
        for (const std::string& warning : reader.warnings())
            std::fprintf(stderr, "vorn: %s: warning: %s\n", escaped(reader.path()).c_str(),
                         escaped(warning).c_str());
        const std::string path = arguments.text("--output");
        VORN::usedFiles().add(reader.path(), "the input file " + quote(reader.path()));
        claimOutput({"-o", path, "the picture"});
        const SectionStyle style = styleOf(arguments, reader);
        const Section section = readSection(reader, arguments);
        Page page(path, widthInPoints, heightInPoints, "-o");
        drawSection(page.context(), page.area(), section, style);
        page.finish();
        if (!isStandardOutput(path))
            std::printf("%s\n", escaped(path).c_str());
    } catch (const VORN::TraceFileError& error) {
        throw CommandError(error.what());
    } catch (const DrawingError& error) {
        throw CommandError(error.what());
    } catch (const std::bad_alloc&) {
        throw CommandError(arguments.text("FILE.sgy") +
                           ": there is not enough memory to draw this many samples; choose fewer "
                           "traces with --traces");
    }
    return exitDone;
}

} // namespace

Command plotCommand()
{
    return {"plot",
            runPlot,
            "Draw a SEG-Y file as a section",
            "Time runs downwards, traces across, each beginning at its delay (header word delrt). "
            "Amplitudes above the clip, a percentile of all "
            "that are drawn, are clipped; the picture says at which amplitude.",
            {{"FILE.sgy", "the SEG-Y file", ValueKind::file}},
            {{"-o,--output",
              "PICTURE",
              "a name that ends in .png, .svg or .pdf",
              ValueKind::file,
              {},
              false,
              true},
             {"-m,--mode",
              "MODE",
              "how amplitudes are shown",
              ValueKind::choice,
              {"density", "wiggle"}},
             {"-c,--colors",
              "MAP",
              "colours of a density picture",
              ValueKind::choice,
              {"gray", "seismic", "black-white-red"}},
             {"--clip", "PERCENT", "percentile of the amplitudes to clip at; 98 by default",
              ValueKind::number},
             {"-t,--traces", "A:B", "draw these traces only, counted from 1"},
             {"--from", "SECONDS", "first time to draw", ValueKind::number},
             {"--to", "SECONDS", "last time to draw", ValueKind::number},
             {"--label", "WORD", "label traces with this header word instead of their number"},
             {"--title", "TEXT", "title instead of the file's name"}},
            {{"vorn plot line.sgy -o line.png", "the whole file in gray"},
             {"vorn plot shot.sgy -o shot.svg -m wiggle -t 1:48 --label tracf",
              "one record as wiggles"}}};
}

} // namespace host
