// vorn plot FILE.sgy -o PICTURE: a section without a job file.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "base/Numbers.h"
#include "base/Quantities.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "cli/SegyOptions.h"
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
#include <optional>

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

const VORN::HeaderWord* labelWord(const Arguments& arguments,
                                  const std::vector<VORN::HeaderWord>& table)
{
    const std::string key = arguments.text("--label");
    if (key.empty())
        return nullptr;
    const VORN::HeaderWord* word = findWord(table, key);
    if (word != nullptr)
        return word;
    throw CommandError("--label: there is no trace header word " + quote(key) +
                       suggestion(key, keysOf(table), ""));
}

// The traces to draw: every n-th where there are more than a picture can show.
std::vector<int64_t> tracesToDraw(const SegyReader& reader, const VORN::NumberRanges& wanted)
{
    const int64_t traces = reader.layout().traces;
    const int64_t count = wanted.count(1, traces);
    const int64_t step = std::max<int64_t>(1, (count + mostTraces - 1) / mostTraces);
    std::vector<int64_t> chosen;
    for (std::optional<int64_t> number = wanted.next(1); number && *number <= traces;
         number = wanted.skip(*number, step))
        chosen.push_back(*number - 1);
    if (step > 1)
        std::fprintf(stderr, "vorn: %s: %s are too many for a picture; every %s is drawn\n",
                     escaped(reader.path()).c_str(), counted(count, "trace").c_str(),
                     ordinal(step).c_str());
    return chosen;
}

// Samples between the two times, in seconds.
struct Window
{
    int64_t first = 0;
    int64_t count = 0;
};

Window timeWindow(const Arguments& arguments, int64_t samples, double interval, double start)
{
    const double from = arguments.number("--from", start);
    const double last = start + interval * static_cast<double>(samples - 1);
    const double to = arguments.number("--to", last);
    const auto nearest = [=](double time) {
        const double sample = std::round((time - start) / interval);
        return static_cast<int64_t>(
            std::clamp(sample, 0.0, std::max(0.0, static_cast<double>(samples) - 1.0)));
    };
    const int64_t firstSample = nearest(from);
    const int64_t lastSample = nearest(to);
    if (lastSample <= firstSample)
        throw CommandError("--from " + formatNumber(from) + " --to " + formatNumber(to) +
                           ": no samples lie between these times; the traces go from " +
                           formatNumber(start) + " s to " + formatNumber(last) + " s");
    return {firstSample, lastSample - firstSample + 1};
}

// Where the traces lie in time.
struct Placement
{
    double start = 0;           // seconds of the first sample of all
    std::vector<int64_t> leads; // samples from there to each trace's first
    int64_t samples = 0;        // from there to the last of all
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
        place.leads.push_back(std::lround((delays[i] - earliest) * 1e-3 / interval));
        place.samples = std::max(place.samples, place.leads[i] + reader.samplesOf(chosen[i]));
    }
    return place;
}

// What is drawn of the file: which traces, and which of their samples.
struct Selection
{
    std::vector<int64_t> chosen; // traces of the file, from 0
    std::vector<int64_t> begins; // first sample of each in the picture, from 0
    Section section;
};

Selection select(SegyReader& reader, const Arguments& arguments)
{
    const VORN::WordMap map = wordMap(arguments);
    const std::vector<VORN::HeaderWord> table = map.applied(VORN::traceHeaderWords());
    const VORN::HeaderWord* label = labelWord(arguments, table);
    Selection found;
    found.chosen = tracesToDraw(reader, chosenTraces(arguments));
    if (found.chosen.empty())
        throw CommandError(reader.path() + ": there is no trace to draw; the file holds " +
                           counted(reader.layout().traces, "trace"));

    Section& section = found.section;
    section.labels.traces.name = arguments.text("--label", "trace");
    const bool timed = reader.layout().interval > 0;
    section.interval = timed ? reader.layout().interval * 1e-6 : 1;
    const Placement place = placeTraces(reader, found.chosen, section.interval, timed);
    const Window window = timeWindow(arguments, place.samples, section.interval, place.start);
    section.start = place.start + static_cast<double>(window.first) * section.interval;
    for (std::size_t i = 0; i < found.chosen.size(); ++i) {
        const int64_t index = found.chosen[i];
        const int64_t lead = place.leads[i];
        const int64_t begin = std::max(window.first, lead);
        // A trace outside of the window has no samples left.
        const int64_t end =
            std::max(begin, std::min(window.first + window.count, lead + reader.samplesOf(index)));
        found.begins.push_back(begin - lead);
        section.places.push_back({begin - window.first, end - begin});
        section.labels.traces.values.push_back(
            label != nullptr
                ? VORN::readWordValue(reader.header(index), *label, reader.layout().littleEndian)
                      .number()
                : static_cast<double>(index + 1));
    }
    return found;
}

// In pieces: a trace may be longer than memory.
void readSamples(SegyReader& reader, const Selection& selection, SectionRaster& raster)
{
    constexpr int64_t mostAtOnce = 1 << 18;
    std::vector<float> piece;
    for (std::size_t i = 0; i < selection.chosen.size(); ++i) {
        const int64_t samples = selection.section.places[i].samples;
        for (int64_t done = 0; done < samples;) {
            const int64_t count = std::min(mostAtOnce, samples - done);
            piece.resize(static_cast<std::size_t>(count));
            reader.readSamples(selection.chosen[i], selection.begins[i] + done, count,
                               piece.data());
            raster.add(i, piece);
            done += count;
        }
    }
}

SectionStyle styleOf(const Arguments& arguments, const SegyReader& reader)
{
    SectionStyle style;
    style.title = arguments.text("--title",
                                 escaped(std::filesystem::path(reader.path()).filename().string()));
    style.mode = arguments.text("--mode", style.mode);
    style.colourMap = arguments.text("--colors", style.colourMap);
    style.clipPercentile = arguments.number("--clip", style.clipPercentile);
    style.yLabel = reader.layout().interval > 0 ? style.yLabel : "sample";
    if (!(style.clipPercentile > 0 && style.clipPercentile <= 100))
        throw CommandError("--clip " + formatNumber(style.clipPercentile) +
                           ": expected a percentage above 0, at most 100");
    return style;
}

int runPlot(const Arguments& arguments)
{
    try {
        SegyReader reader(arguments.text("FILE.sgy"), segyOverrides(arguments));
        for (const std::string& warning : reader.warnings())
            std::fprintf(stderr, "vorn: %s: warning: %s\n", escaped(reader.path()).c_str(),
                         escaped(warning).c_str());
        const std::string path = arguments.text("--output");
        VORN::usedFiles().add(reader.path(), "the input file " + quote(reader.path()));
        claimOutput({"-o", path, "the picture"});
        const SectionStyle style = styleOf(arguments, reader);
        const Selection selection = select(reader, arguments);
        Page page(path, widthInPoints, heightInPoints, "-o");
        SectionRaster raster(sectionPlot(page.area(), selection.section), isWiggle(style),
                             selection.section.places);
        readSamples(reader, selection, raster);
        drawSection(page.context(), page.area(), selection.section, raster, style);
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
    Command command = {
        "plot",
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
    for (const OptionSpec& option : segyOptions())
        command.options.push_back(option);
    return command;
}

} // namespace host
