#include "ModuleTest.h"

#include <cmath>
#include <limits>
#include <set>
#include <sstream>

extern "C" {
double header_plot_scaled(double value, double scalar);
void header_plot_thin(int* count, double* x, double* y, int columns, int rows, int most);
int header_plot_count(int capacity, int64_t* keys, int64_t* counts, int64_t key, int64_t times);
int header_plot_collect(int capacity, int64_t* keys, int64_t* counts);
void header_plot_columns(int count, const int64_t* keys, const int64_t* counts, int columns,
                         int64_t width, int64_t* heights);
double header_plot_round_up(double value);
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// ---- Scalars ----

TEST(HeaderPlotMathTest, PositiveScalarsMultiplyAndNegativeOnesDivide)
{
    const struct
    {
        double value;
        double scalar;
        double scaled;
    } rows[] = {{123, 0, 123},    {123, 1, 123},      {123, -1, 123},    {123, 10, 1230},
                {123, -10, 12.3}, {-2000, -100, -20}, {-7, 1000, -7000}, {0, -100, 0}};
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(header_plot_scaled(row.value, row.scalar), row.scaled)
            << row.value << " " << row.scalar;
}

// ---- Points ----

using Points = std::vector<std::pair<double, double>>;

Points thinned(const Points& points, int columns, int rows, int most = 1000000)
{
    std::vector<double> x;
    std::vector<double> y;
    for (const auto& [px, py] : points) {
        x.push_back(px);
        y.push_back(py);
    }
    int count = static_cast<int>(points.size());
    header_plot_thin(&count, x.data(), y.data(), columns, rows, most);
    Points left;
    for (size_t i = 0; i < static_cast<size_t>(count); ++i)
        left.emplace_back(x[i], y[i]);
    return left;
}

TEST(HeaderPlotMathTest, FirstPointOfEachCellStaysWhereItIs)
{
    const Points points = {{0, 0}, {100, 10}, {9, 4}, {11, 4}, {10, 1}, {95, 9.9}, {15, 6}};
    // Cells of 10 by 5, from the least to the greatest value.
    EXPECT_THAT(thinned(points, 10, 2), ElementsAre(std::pair(0.0, 0.0), std::pair(100.0, 10.0),
                                                    std::pair(11.0, 4.0), std::pair(15.0, 6.0)));
}

TEST(HeaderPlotMathTest, PointsOnALineOrInOnePlaceHaveCellsToo)
{
    EXPECT_THAT(thinned({{5, 1}, {5, 2}, {5, 3}, {5, 3}}, 10, 10), SizeIs(3));
    EXPECT_THAT(thinned({{5, 1}, {5, 1}, {5, 1}}, 10, 10), ElementsAre(std::pair(5.0, 1.0)));
    EXPECT_THAT(thinned({}, 10, 10), IsEmpty());
}

TEST(HeaderPlotMathTest, RasterGetsCoarserUntilFewEnoughAreLeft)
{
    Points points;
    for (int i = 0; i < 64; ++i) {
        for (int j = 0; j < 64; ++j)
            points.emplace_back(i, j);
    }
    EXPECT_THAT(thinned(points, 64, 64, 4096), SizeIs(4096));
    EXPECT_THAT(thinned(points, 64, 64, 4095), SizeIs(1024));
    EXPECT_THAT(thinned(points, 64, 64, 1023), SizeIs(256));
    EXPECT_THAT(thinned(points, 64, 64, 1), ElementsAre(std::pair(0.0, 0.0)));
}

TEST(HeaderPlotMathTest, DistancesBeyondAllNumbersAreNoTrouble)
{
    const double most = std::numeric_limits<double>::max();
    const Points points = {{-most, -most}, {most, most}, {0, 0}, {most / 2, -most}};
    EXPECT_EQ(thinned(points, 4, 4), points);
}

// ---- Counting ----

using Counts = std::vector<std::pair<int64_t, int64_t>>;

struct Table
{
    explicit Table(size_t capacity) : keys(capacity), counts(capacity, 0) {}

    int count(int64_t key, int64_t times = 1)
    {
        return header_plot_count(static_cast<int>(keys.size()), keys.data(), counts.data(), key,
                                 times);
    }

    Counts collect()
    {
        const int used =
            header_plot_collect(static_cast<int>(keys.size()), keys.data(), counts.data());
        Counts list;
        for (size_t i = 0; i < static_cast<size_t>(used); ++i)
            list.emplace_back(keys[i], counts[i]);
        return list;
    }

    std::vector<int64_t> keys;
    std::vector<int64_t> counts;
};

TEST(HeaderPlotMathTest, KeysAreCountedAndSorted)
{
    Table table(8);
    EXPECT_EQ(table.count(5), 1);
    EXPECT_EQ(table.count(-3), 1);
    EXPECT_EQ(table.count(5), 0);
    EXPECT_EQ(table.count(0, 7), 1);
    EXPECT_EQ(table.count(5, 2), 0);
    EXPECT_THAT(table.collect(), ElementsAre(std::pair(-3, 1), std::pair(0, 7), std::pair(5, 4)));
}

TEST(HeaderPlotMathTest, KeysThatMeetInATableAreKeptApart)
{
    Table table(1024);
    std::map<int64_t, int64_t> expected;
    for (int64_t i = 0; i < 3000; ++i) {
        const int64_t key = (i * 7919 % 1000 - 500) * (int64_t(1) << 40);
        EXPECT_EQ(table.count(key), expected.count(key) == 0 ? 1 : 0);
        ++expected[key];
    }
    EXPECT_EQ(table.collect(), Counts(expected.begin(), expected.end()));
}

TEST(HeaderPlotMathTest, ColumnsShowTheGreatestCount)
{
    const int64_t keys[] = {-2, -1, 0, 3, 4, 9};
    const int64_t counts[] = {5, 7, 6, 1, 2, 8};
    std::vector<int64_t> heights(4, -99);
    header_plot_columns(6, keys, counts, 4, 3, heights.data());
    EXPECT_THAT(heights, ElementsAre(7, 1, 2, 8)); // -2 to 0, 1 to 3, 4 to 6, 7 to 9
    heights.assign(12, -99);
    header_plot_columns(6, keys, counts, 12, 1, heights.data());
    EXPECT_THAT(heights, ElementsAre(5, 7, 6, 0, 0, 1, 2, 0, 0, 0, 0, 8));
}

TEST(HeaderPlotMathTest, EndsOfAxesAreRoundNumbers)
{
    const struct
    {
        double value;
        double rounded;
    } rows[] = {{1, 1}, {1.1, 1.2}, {4.08, 5}, {61, 80}, {0.3, 0.3}, {812345, 1000000},
                {0, 1}, {-3, 1},    {NAN, 1}};
    for (const auto& row : rows)
        EXPECT_NEAR(header_plot_round_up(row.value), row.rounded, 1e-12 * row.rounded) << row.value;
}

// ---- In a job ----

class HeaderPlotTest : public ModuleTest
{
protected:
    HeaderPlotTest() : ModuleTest("header_plot") { harness.withSink = false; }

    void push(std::map<std::string, UniVar> attributes)
    {
        harness.push({1, 2}, std::move(attributes));
    }

    std::map<std::string, std::string> directives(size_t pad = 0)
    {
        std::map<std::string, std::string> found;
        std::istringstream lines(result.pads.at(pad).title);
        std::string line;
        std::getline(lines, found["title"]);
        while (std::getline(lines, line))
            found[line.substr(0, line.find(':'))] = line.substr(line.find(':') + 2);
        return found;
    }

    std::pair<double, double> range(const std::string& key)
    {
        std::istringstream text(directives()[key]);
        std::pair<double, double> ends(-99, -99);
        text >> ends.first >> ends.second;
        return ends;
    }

    // Symbols by the pen that drew them.
    std::map<int, Points> symbols()
    {
        std::map<int, Points> drawn;
        int pen = 0;
        for (const plotCommandStruct& command : result.pads.at(0).commands) {
            if (command.cmdType == 5)
                pen = command.ipen;
            if (command.cmdType == 3)
                drawn[pen].emplace_back(command.xpage, command.ypage);
        }
        return drawn;
    }

    // The corners of what the pen has drawn.
    Points line()
    {
        Points corners;
        for (const plotCommandStruct& command : result.pads.at(0).commands) {
            if (command.cmdType == 1)
                corners.emplace_back(command.xpage, command.ypage);
        }
        return corners;
    }

    // What the module has said; the kernel speaks under the name of the last module of a job, too.
    std::vector<std::string> reports()
    {
        std::vector<std::string> texts;
        for (const std::string& text : messages(1)) {
            if (text.find("****") == std::string::npos)
                texts.push_back(text);
        }
        return texts;
    }

    std::string note(const std::string& key)
    {
        return result.moduleMetadata["module1"]["qc.header_plot." + key];
    }
};

TEST_F(HeaderPlotTest, OffsetsAreDrawnByTraceNumberUnlessToldOtherwise)
{
    for (const int offset : {100, 300, 200})
        push({{"offset", UniVar(offset)}});
    add();

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    EXPECT_EQ(result.pads[0].type, 2);
    EXPECT_THAT(symbols(), ElementsAre(std::pair(3, Points{{1, 100}, {2, 300}, {3, 200}})));
    auto lines = directives();
    EXPECT_EQ(lines["title"], "offset against trace number");
    EXPECT_EQ(lines["x"], "trace number");
    EXPECT_EQ(lines["y"], "offset");
    EXPECT_EQ(lines["note"], "3 traces, 3 points");
    EXPECT_EQ(lines.count("legend"), 0u);
    EXPECT_DOUBLE_EQ(range("xrange").first, 0.94);
    EXPECT_DOUBLE_EQ(range("xrange").second, 3.06);
    EXPECT_DOUBLE_EQ(range("yrange").first, 94);
    EXPECT_DOUBLE_EQ(range("yrange").second, 306);
    EXPECT_THAT(reports(), ElementsAre("offset from 100 to 300 in 3 traces"));
    EXPECT_EQ(note("offset.min"), "100");
    EXPECT_EQ(note("offset.max"), "300");
}

TEST_F(HeaderPlotTest, TracesPassOn)
{
    for (const char* mode : {"points", "fold"}) {
        restart();
        push({{"offset", UniVar(100)}, {"cdp", UniVar(1)}});
        push({{"offset", UniVar(200)}, {"cdp", UniVar(1)}});
        add({{"mode", UniVar(mode)}});

        run();

        EXPECT_THAT(all("offset"), ElementsAre(100, 200));
        EXPECT_THAT(result.traces[1].samples, ElementsAre(1, 2));
        EXPECT_THAT(result.pads, SizeIs(1));
    }
}

TEST_F(HeaderPlotTest, AnyAttributeIsDrawnAgainstAnyOther)
{
    harness.define("quality", 5);
    push({{"quality", UniVar(0.25)}, {"ep", UniVar(7)}});
    push({{"quality", UniVar(0.75)}, {"ep", UniVar(-8)}});
    add({{"x", UniVar("ep")}, {"y", UniVar("quality")}, {"title", UniVar("Quality")}});

    run();

    EXPECT_THAT(symbols()[3], ElementsAre(std::pair(7.0, 0.25), std::pair(-8.0, 0.75)));
    EXPECT_EQ(directives()["title"], "Quality");
    EXPECT_THAT(reports(), ElementsAre("quality from 0.25 to 0.75 in 2 traces",
                                       "ep from -8 to 7 in 2 traces"));
}

TEST_F(HeaderPlotTest, SymbolsHaveAShapeAndASize)
{
    const char* shapes[] = {"square", "circle", "triangle", "plus", "cross", "diamond", "dot"};
    for (int code = 0; code < 7; ++code) {
        restart();
        harness.withSink = false;
        push({{"offset", UniVar(1)}});
        add({{"symbol", UniVar(shapes[code])}, {"size", UniVar(4.5)}});

        run();

        const plotCommandStruct symbol = result.pads.at(0).commands.at(1);
        EXPECT_EQ(symbol.cmdType, 3) << shapes[code];
        EXPECT_EQ(symbol.inteq, code) << shapes[code];
        EXPECT_LE(symbol.inchar, 0) << shapes[code];
        EXPECT_EQ(symbol.height, 4.5f) << shapes[code];
    }
}

TEST_F(HeaderPlotTest, SeveralWordsHavePensOfTheirOwn)
{
    push({{"sx", UniVar(10)}, {"gx", UniVar(50)}, {"ep", UniVar(1)}});
    push({{"sx", UniVar(20)}, {"gx", UniVar(60)}, {"ep", UniVar(2)}});
    add({{"x", UniVar("ep")}, {"y", UniVar("sx\ngx")}});

    run();

    EXPECT_THAT(symbols(), ElementsAre(std::pair(2, Points{{1, 50}, {2, 60}}),
                                       std::pair(3, Points{{1, 10}, {2, 20}})));
    EXPECT_EQ(directives()["legend"], "3:6=sx,2:6=gx,");
    EXPECT_EQ(directives()["y"], "sx, gx");
    EXPECT_EQ(directives()["note"], "2 traces, 4 points");
    EXPECT_THAT(reports(), ElementsAre("sx from 10 to 20 in 2 traces", "ep from 1 to 2 in 2 traces",
                                       "gx from 50 to 60 in 2 traces"));
}

TEST_F(HeaderPlotTest, EachWordUpwardsCanHaveOneAlong)
{
    push({{"cdp", UniVar(1)}, {"gx", UniVar(2)}, {"cdpx", UniVar(3)}, {"gy", UniVar(4)}});
    add({{"x", UniVar("cdp\ngx")}, {"y", UniVar("cdpx\ngy")}});

    run();

    EXPECT_THAT(symbols(), ElementsAre(std::pair(2, Points{{2, 4}}), std::pair(3, Points{{1, 3}})));
    EXPECT_EQ(directives()["legend"], "3:6=cdpx against cdp,2:6=gy against gx,");
    EXPECT_EQ(directives()["title"], "cdpx, gy against cdp, gx");
}

TEST_F(HeaderPlotTest, CoordinatesAndElevationsAreScaled)
{
    const struct
    {
        const char* word;
        const char* scalar;
    } rows[] = {{"sx", "scalco"},     {"sy", "scalco"},   {"gx", "scalco"},    {"gy", "scalco"},
                {"cdpx", "scalco"},   {"cdpy", "scalco"}, {"gelev", "scalel"}, {"selev", "scalel"},
                {"sdepth", "scalel"}, {"gdel", "scalel"}, {"sdel", "scalel"},  {"swdep", "scalel"},
                {"gwdep", "scalel"},  {"sp", "scalsp"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.word);
        restart();
        harness.withSink = false;
        push({{row.word, UniVar(500)}, {row.scalar, UniVar(-10)}});
        push({{row.word, UniVar(50)}, {row.scalar, UniVar(10)}});
        push({{row.word, UniVar(50)}, {row.scalar, UniVar(0)}});
        add({{"y", UniVar(row.word)}});

        run();

        EXPECT_THAT(symbols()[3],
                    ElementsAre(std::pair(1.0, 50.0), std::pair(2.0, 500.0), std::pair(3.0, 50.0)));
        EXPECT_THAT(directives()["note"],
                    EndsWith(std::string("; ") + row.word + " scaled by " + row.scalar));
    }
}

TEST_F(HeaderPlotTest, MapsHaveEqualScales)
{
    const struct
    {
        const char* x;
        const char* y;
        const char* choice;
        const char* scale;
    } rows[] = {{"sx", "sy", "auto", "equal"},     {"cdpx", "cdpy", "auto", "equal"},
                {"gy", "gx", "auto", "equal"},     {"sx\ngx", "sy\ngy", "auto", "equal"},
                {"sx\ncdp", "sy\ngy", "auto", ""}, {"sx", "gx", "auto", ""}, // along one direction
                {"sx", "offset", "auto", ""},      {"sx", "sy", "fit", ""},
                {"sx", "gelev", "equal", "equal"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.x) + " " + row.y + " " + row.choice);
        restart();
        harness.withSink = false;
        harness.push({}, {{"sx", UniVar(1)},
                          {"sy", UniVar(2)},
                          {"gx", UniVar(1)},
                          {"gy", UniVar(2)},
                          {"cdpx", UniVar(1)},
                          {"cdpy", UniVar(2)},
                          {"cdp", UniVar(5)},
                          {"offset", UniVar(3)},
                          {"gelev", UniVar(4)}});
        add({{"x", UniVar(row.x)}, {"y", UniVar(row.y)}, {"scale", UniVar(row.choice)}});

        run();

        EXPECT_EQ(directives()["scales"], row.scale);
    }
}

TEST_F(HeaderPlotTest, OtherWordsAreNotScaled)
{
    push({{"offset", UniVar(500)}, {"scalco", UniVar(-10)}, {"scalel", UniVar(-10)}});
    add();

    run();

    EXPECT_THAT(symbols()[3], ElementsAre(std::pair(1.0, 500.0)));
}

TEST_F(HeaderPlotTest, ScalarsCanBeLeftAside)
{
    push({{"sx", UniVar(500)}, {"scalco", UniVar(-10)}});
    add({{"y", UniVar("sx")}, {"scaled", UniVar(0)}});

    run();

    EXPECT_THAT(symbols()[3], ElementsAre(std::pair(1.0, 500.0)));
    EXPECT_EQ(directives()["note"], "1 trace, 1 point");
}

TEST_F(HeaderPlotTest, CoordinatesWithoutAScalarAreAsTheyAre)
{
    push({{"sx", UniVar(500)}});
    add({{"y", UniVar("sx")}});

    run();

    EXPECT_THAT(symbols()[3], ElementsAre(std::pair(1.0, 500.0)));
}

TEST_F(HeaderPlotTest, PointsThatCoverEachOtherAreDrawnOnce)
{
    for (int i = 0; i < 4; ++i) {
        for (int channel = 1; channel <= 3; ++channel)
            push({{"tracf", UniVar(channel)}, {"offset", UniVar(100 * channel)}});
    }
    add({{"x", UniVar("tracf")}});

    run();

    EXPECT_THAT(symbols()[3], SizeIs(3));
    EXPECT_EQ(directives()["note"], "12 traces, 3 points; what would cover another point is left "
                                    "out");
}

TEST_F(HeaderPlotTest, LargeDataMakeNoLargeDrawing)
{
    // More points than are kept at a time, all different, over a range that grows.
    const int side = 600;
    for (int i = 0; i < side; ++i) {
        for (int j = 0; j < side; ++j)
            harness.push({}, {{"ep", UniVar(i)}, {"offset", UniVar(j)}});
    }
    add({{"x", UniVar("ep")}});

    run();

    const Points points = symbols()[3];
    EXPECT_LE(points.size(), 40000u);
    EXPECT_GE(points.size(), 30000u); // 240 by 160 cells
    std::set<std::pair<int, int>> covered;
    for (const auto& [x, y] : points)
        covered.emplace(static_cast<int>(x / 10), static_cast<int>(y / 10));
    EXPECT_THAT(covered, SizeIs(60 * 60)); // no hole
    EXPECT_EQ(note("offset.max"), "599");
}

TEST_F(HeaderPlotTest, OneValueAloneHasAnAxis)
{
    push({{"sx", UniVar(20000000)}});
    add({{"y", UniVar("sx")}});

    run();

    EXPECT_EQ(range("xrange"), std::pair(0.5, 1.5));
    EXPECT_EQ(range("yrange"), std::pair(19999980.0, 20000020.0));
}

TEST_F(HeaderPlotTest, WordsOfZerosGiveAWarning)
{
    push({{"offset", UniVar(0)}});
    push({{"offset", UniVar(0)}});
    add();

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("offset is 0 in all traces; the data may not have this header word"));
}

TEST_F(HeaderPlotTest, ValuesThatAreNoNumbersAreLeftOut)
{
    for (const char* mode : {"points", "fold"}) {
        restart();
        harness.withSink = false;
        harness.define("level", 5);
        push({{"level", UniVar(std::numeric_limits<double>::quiet_NaN())}});
        push({{"level", UniVar(4.0)}});
        push({{"level", UniVar(-std::numeric_limits<double>::infinity())}});
        add({{"mode", UniVar(mode)}, {mode == std::string("fold") ? "x" : "y", UniVar("level")}});

        run();

        EXPECT_THAT(messages(2), ElementsAre("traces with a value that is infinite, NaN or too "
                                             "large to count: 2; they are left out"));
        EXPECT_THAT(reports(), Contains("level from 4 to 4 in 1 trace"));
    }
}

TEST_F(HeaderPlotTest, FoldCountsTracesByCdp)
{
    for (const int cdp : {3, 1, 3, 5, 3, 1})
        push({{"cdp", UniVar(cdp)}});
    add({{"mode", UniVar("fold")}});

    run();

    // Bars with the whole number in their middle.
    EXPECT_THAT(line(), testing::ElementsAreArray(Points{{0.5, 0}, {0.5, 0}, {0.5, 2}, {1.5, 2},
                                                         {1.5, 0},                               //
                                                         {1.5, 0}, {1.5, 0}, {2.5, 0}, {2.5, 0}, //
                                                         {2.5, 0}, {2.5, 3}, {3.5, 3}, {3.5, 0}, //
                                                         {3.5, 0}, {3.5, 0}, {4.5, 0}, {4.5, 0}, //
                                                         {4.5, 0}, {4.5, 1}, {5.5, 1}, {5.5, 0}, //
                                                         {5.5, 0}}));
    auto lines = directives();
    EXPECT_EQ(lines["title"], "Traces by cdp");
    EXPECT_EQ(lines["x"], "cdp");
    EXPECT_EQ(lines["y"], "traces");
    EXPECT_EQ(lines["note"], "6 traces, fold 1 to 3, mean 2");
    EXPECT_EQ(range("yrange"), std::pair(0.0, 4.0));
    EXPECT_THAT(reports(), ElementsAre("cdp from 1 to 5 in 6 traces",
                                       "fold from 1 to 3, mean 2, of 3 values"));
    EXPECT_EQ(note("fold.min"), "1");
    EXPECT_EQ(note("fold.max"), "3");
    EXPECT_EQ(note("fold.mean"), "2");
}

TEST_F(HeaderPlotTest, FoldCanCountInBins)
{
    for (const int offset : {-1, 0, 99, 100, 199, 250})
        push({{"offset", UniVar(offset)}});
    add({{"mode", UniVar("fold")}, {"x", UniVar("offset")}, {"bin", UniVar(100)}});

    run();

    std::set<std::pair<double, double>> corners;
    for (const auto& corner : line()) {
        if (corner.second > 0)
            corners.insert(corner);
    }
    EXPECT_THAT(corners,
                ElementsAre(std::pair(-100, 1), std::pair(0, 1), std::pair(0, 2), std::pair(100, 2),
                            std::pair(200, 1), std::pair(200, 2), std::pair(300, 1)));
    EXPECT_EQ(directives()["note"], "6 traces, fold 1 to 2, mean 1.5; bins of 100");
    EXPECT_THAT(reports(), Contains("fold from 1 to 2, mean 1.5, of 4 bins"));
}

TEST_F(HeaderPlotTest, FoldOfManyValuesIsDrawnInColumns)
{
    for (int cdp = 1; cdp <= 5000; ++cdp) {
        push({{"cdp", UniVar(cdp)}});
        if (cdp == 2503)
            push({{"cdp", UniVar(cdp)}});
    }
    add({{"mode", UniVar("fold")}});

    run();

    EXPECT_LE(result.pads.at(0).commands.size(), 2003u);
    EXPECT_THAT(line(), Contains(std::pair(2500.5, 2.0))); // 2501 to 2505
    EXPECT_THAT(line(), Contains(std::pair(2505.5, 2.0)));
    EXPECT_EQ(directives()["note"], "5001 traces, fold 1 to 2, mean 1; each column shows the "
                                    "greatest of 5");
    EXPECT_THAT(reports(), Contains("fold from 1 to 2, mean 1, of 5000 values"));
}

TEST_F(HeaderPlotTest, FoldHasNoTroubleWithValuesFarApart)
{
    for (const int cdp : {-2000000000, 2000000000, 0, 0})
        push({{"cdp", UniVar(cdp)}});
    add({{"mode", UniVar("fold")}});

    run();

    EXPECT_THAT(reports(), Contains("fold from 1 to 2, mean 1.33, of 3 values"));
    EXPECT_LE(result.pads.at(0).commands.size(), 2003u);
}

TEST_F(HeaderPlotTest, FoldOfTooManyValuesIsCountedInWiderBins)
{
    const int count = (1 << 20) + 2; // one pair more than are counted apart
    harness.input.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        push({{"cdp", UniVar(i)}});
    add({{"mode", UniVar("fold")}});

    run();

    EXPECT_THAT(messages(2), ElementsAre("cdp has too many values; they are counted in bins of 2"));
    EXPECT_THAT(reports(), Contains("fold from 2 to 2, mean 2, of 524289 values"));
}

TEST_F(HeaderPlotTest, NothingIsDrawnWithoutATrace)
{
    for (const bool withSink : {true, false}) {
        restart();
        harness.withSink = withSink;
        add();

        run();

        EXPECT_THAT(result.pads, IsEmpty());
        EXPECT_THAT(messages(2), ElementsAre("there is no trace to draw"));
    }
}

TEST_F(HeaderPlotTest, TwoPlotsHaveSettingsOfTheirOwn)
{
    harness.withSink = true;
    push({{"offset", UniVar(7)}, {"cdp", UniVar(8)}});
    add();
    add({{"mode", UniVar("fold")}});

    run();

    ASSERT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(result.pads[0].title, StartsWith("offset against trace number\n"));
    EXPECT_THAT(result.pads[1].title, StartsWith("Traces by cdp\n"));
}

TEST_F(HeaderPlotTest, TracesNeedTheHeaderWord)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"x", UniVar("shot")}},
         "the traces have no header word \"shot\"; name one that they have with x"},
        {{{"y", UniVar("offset\ndistance")}},
         "the traces have no header word \"distance\"; name one that they have with y"},
        {{{"mode", UniVar("fold")}},
         "the traces have no header word \"cdp\"; name one that they have with x"},
    };
    for (const auto& row : rows) {
        for (const bool withSink : {true, false}) {
            SCOPED_TRACE(row.message);
            restart();
            harness.withSink = withSink;
            push({{"offset", UniVar(1)}});
            push({{"offset", UniVar(2)}});
            add(row.parameters);

            runInVain(row.message);
            EXPECT_THAT(result.pads, IsEmpty());
        }
    }
}

TEST_F(HeaderPlotTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"mode", UniVar("bars")}}, "mode is \"bars\"; give points or fold"},
        {{{"symbol", UniVar("star")}},
         "symbol is \"star\"; give dot, square, circle, triangle, plus, cross or diamond"},
        {{{"size", UniVar(0)}}, "size is 0 points; give a number above 0 and at most 100"},
        {{{"y", UniVar("a\nb\nc\nd\ne")}},
         "y has 5 elements; give a list of at most 4 header words"},
        {{{"x", UniVar("a\nb")}},
         "x and y have 2 and 1 header words; give one x, or one for each "
         "y"},
        {{{"mode", UniVar("fold")}, {"x", UniVar("a\nb")}},
         "x has 2 header words; give one of which values are counted"},
        {{{"mode", UniVar("fold")}, {"bin", UniVar(-1)}}, "bin is -1; give a number above 0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        push({{"offset", UniVar(1)}});
        add(row.parameters);

        runInVain(row.message);
    }
}

} // namespace
