#include "ModuleTest.h"
#include "TextFiles.h"
#include "words/CsvFile.h"

#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::string contentOf(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::stringstream text;
    text << stream.rdbuf();
    return text.str();
}

// An array of records as its format describes it: the fields of the header with their places in a
// record, and the records.
struct NpyArray
{
    struct Field
    {
        std::string type;
        std::size_t place;
    };

    explicit NpyArray(const std::string& bytes)
    {
        EXPECT_EQ(bytes.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
        const std::size_t length =
            static_cast<unsigned char>(bytes[8]) +
            256 * static_cast<std::size_t>(static_cast<unsigned char>(bytes[9]));
        EXPECT_EQ((10 + length) % 64, 0U) << "the data have to be aligned";
        header = bytes.substr(10, length);
        EXPECT_EQ(header.back(), '\n');
        data = bytes.substr(10 + length);
        const std::size_t shape = header.find("'shape': (");
        count = std::stoul(header.substr(shape + 10));
        for (std::size_t at = header.find("[(") + 1; header[at] == '(';) {
            const std::size_t comma = header.find("', '", at);
            const std::size_t end = header.find("'), ", comma);
            const std::string type = header.substr(comma + 4, end - comma - 4);
            fields[header.substr(at + 2, comma - at - 2)] = {type, width};
            width += std::stoul(type.substr(2));
            at = end + 4;
        }
        EXPECT_EQ(data.size(), count * width);
    }

    std::string bytes(const std::string& field, std::size_t row, const std::string& type) const
    {
        EXPECT_EQ(fields.at(field).type, type) << field;
        return data.substr(row * width + fields.at(field).place, std::stoul(type.substr(2)));
    }

    // Little endian, on whatever machine the test runs.
    template <typename Number, typename Bits>
    Number number(const std::string& field, std::size_t row, const std::string& type) const
    {
        Bits bits = 0;
        const std::string all = bytes(field, row, type);
        for (std::size_t i = all.size(); i-- > 0;)
            bits = static_cast<Bits>(bits << 8 | static_cast<unsigned char>(all[i]));
        return std::bit_cast<Number>(bits);
    }

    std::string header;
    std::string data;
    std::size_t count = 0;
    std::size_t width = 0;
    std::map<std::string, Field> fields;
};

class HeaderTableTest : public ModuleTest
{
protected:
    HeaderTableTest() : ModuleTest("header_table") { pushTraces(); }

    void pushTraces()
    {
        harness.define("big", 3);
        harness.define("level", 4);
        harness.define("fine", 5);
        harness.define("remark", 9);
        harness.define("list", 4, 3);
        const std::int64_t big = (std::int64_t{1} << 53) + 1; // a double does not hold it
        push(7, big, 0.1F, 0.1, "good");
        push(INT_MIN, -big, std::numeric_limits<float>::quiet_NaN(), -1e300, "a, \"b\"");
        push(0, INT64_MAX, -std::numeric_limits<float>::infinity(), 1.0 / 3, "");
    }

    void push(int cdp, std::int64_t big, float level, double fine, const char* remark)
    {
        const std::vector<float> list = {1, 2, 3};
        harness.push({1, 2}, {{"cdp", UniVar(cdp)},
                              {"big", UniVar(big)},
                              {"level", UniVar(level)},
                              {"fine", UniVar(fine)},
                              {"remark", UniVar(remark)},
                              {"list", UniVar(list.data(), 3)}});
    }

    // Writes the table of these words.
    std::string written(const std::string& name, const std::string& words,
                        std::map<std::string, UniVar> more = {})
    {
        restart();
        pushTraces();
        more["file"] = UniVar(files.path(name));
        more["words"] = UniVar(words);
        add(more);
        run();
        return contentOf(files.path(name));
    }

    TextFiles files;
};

TEST_F(HeaderTableTest, CsvHoldsEachValueExactly)
{
    EXPECT_EQ(written("t.csv", "cdp\nbig\nlevel\nfine\nremark"),
              "trace,cdp,big,level,fine,remark\n"
              "1,7,9007199254740993,0.1,0.1,good\n"
              "2,-2147483648,-9007199254740993,nan,-1e+300,\"a, \"\"b\"\"\"\n"
              "3,0,9223372036854775807,-inf,0.3333333333333333,\n");
    EXPECT_THAT(messages(1), ElementsAre(files.path("t.csv") + ": 3 rows of 6 columns"));
}

TEST_F(HeaderTableTest, ColumnsStandInTheOrderOfTheWords)
{
    EXPECT_EQ(written("t.csv", "fine\ncdp", {{"numbers", UniVar(0)}}),
              "fine,cdp\n0.1,7\n-1e+300,-2147483648\n0.3333333333333333,0\n");
}

TEST_F(HeaderTableTest, NpyHoldsEachValueExactly)
{
    const NpyArray array(written("t.npy", "cdp\nbig\nlevel\nfine\nremark"));

    EXPECT_EQ(array.count, 3U);
    EXPECT_THAT(array.header, StartsWith("{'descr': [('trace', '<i8'), ('cdp', '<i4'), "));
    EXPECT_THAT(array.header, HasSubstr("('remark', '|S64'), ], 'fortran_order': False, "
                                        "'shape': (3,), }"));
    EXPECT_EQ((array.number<std::int64_t, std::uint64_t>("trace", 1, "<i8")), 2);
    EXPECT_EQ((array.number<std::int32_t, std::uint32_t>("cdp", 1, "<i4")), INT_MIN);
    EXPECT_EQ((array.number<std::int64_t, std::uint64_t>("big", 0, "<i8")), 9007199254740993);
    EXPECT_EQ((array.number<std::int64_t, std::uint64_t>("big", 2, "<i8")), INT64_MAX);
    EXPECT_EQ((array.number<float, std::uint32_t>("level", 0, "<f4")), 0.1F);
    EXPECT_TRUE(std::isnan(array.number<float, std::uint32_t>("level", 1, "<f4")));
    EXPECT_EQ((array.number<double, std::uint64_t>("fine", 1, "<f8")), -1e300);
    EXPECT_EQ((array.number<double, std::uint64_t>("fine", 2, "<f8")), 1.0 / 3);
    EXPECT_STREQ(array.bytes("remark", 1, "|S64").c_str(), "a, \"b\"");
    EXPECT_EQ(array.bytes("remark", 2, "|S64"), std::string(64, '\0'));
}

TEST_F(HeaderTableTest, TheFormatMayBeGiven)
{
    EXPECT_THAT(written("t.npy", "cdp", {{"format", UniVar("csv")}}), StartsWith("trace,cdp\n1,7"));
    EXPECT_EQ(NpyArray(written("table", "cdp", {{"format", UniVar("npy")}})).count, 3U);
    EXPECT_THAT(written("table", "cdp"), StartsWith("trace,cdp\n"));
}

TEST_F(HeaderTableTest, TracesPassUnchanged)
{
    written("t.csv", "cdp");

    ASSERT_EQ(result.traces.size(), 3U);
    EXPECT_THAT(all("cdp"), ElementsAre(7, INT_MIN, 0));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(1, 2));
}

TEST_F(HeaderTableTest, ATableCanEndAJob)
{
    harness.withSink = false;
    add({{"file", UniVar(files.path("t.csv"))}, {"words", UniVar("cdp")}});

    run();

    EXPECT_EQ(contentOf(files.path("t.csv")), "trace,cdp\n1,7\n2,-2147483648\n3,0\n");
}

TEST_F(HeaderTableTest, MeasuresOfTheQualityControlAreWords)
{
    restart();
    harness.define("qc_rms", 4);
    for (int i = 1; i <= 5; ++i)
        harness.push(std::vector<float>(100, static_cast<float>(i)), {{"fldr", UniVar(1)}});
    harness.add("check", "libtrace_qc.so");
    add({{"file", UniVar(files.path("t.csv"))}, {"words", UniVar("qc_rms\nqc_flags")}});

    run();

    EXPECT_EQ(contentOf(files.path("t.csv")),
              "trace,qc_rms,qc_flags\n1,1,1\n2,2,1\n3,3,1\n4,4,1\n5,5,1\n");
    const words::CsvFile read(files.path("t.csv"));
    EXPECT_EQ(read.number(4, read.column("qc_rms")), 5);
}

TEST_F(HeaderTableTest, AFailedJobLeavesTheFormerTable)
{
    const std::string path = files.write("t.csv", "former\n");
    add({{"file", UniVar(path)}, {"words", UniVar("cdp")}});
    add({{"file", UniVar(files.path("other.csv"))}, {"words", UniVar("missing")}});

    runInVain("the traces have no header word \"missing\"; name words that they have with words");

    EXPECT_EQ(contentOf(path), "former\n");
    EXPECT_EQ(std::filesystem::exists(files.path("other.csv")), false);
}

TEST_F(HeaderTableTest, ATableWithoutRowsIsNotWritten)
{
    const std::string path = files.path("t.npy");
    harness.add("none", "libselect.so").parameters["where"] = UniVar("cdp == 5");
    add({{"file", UniVar(path)}, {"words", UniVar("cdp")}});

    result = harness.run();

    EXPECT_THAT(messages(3), ElementsAre(path + ": is not written, since no trace arrived"));
    EXPECT_EQ(std::filesystem::exists(path), false);
}

TEST_F(HeaderTableTest, SettingsAreRefused)
{
    const std::string file = files.path("t.csv");
    const std::string there = files.write("there.csv", "former\n");
    const struct
    {
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {{{"words", UniVar("cdp")}}, "file is missing; give the name of a file to write"},
        {{{"file", UniVar(file)}}, "words is missing; give a list of header words"},
        {{{"file", UniVar(file)}, {"words", UniVar("cdp\nfine\ncdp")}},
         "words has \"cdp\" twice; give each word once"},
        {{{"file", UniVar(file)}, {"words", UniVar("trace")}},
         "words has \"trace\", and the numbers of traces have this name, too; leave them out with "
         "numbers: no"},
        {{{"file", UniVar(file)}, {"words", UniVar("cpd")}},
         "the traces have no header word \"cpd\"; name words that they have with words"},
        {{{"file", UniVar(file)}, {"words", UniVar("cdp\nlist")}},
         "the attribute \"list\" is an array; name words with one value"},
        {{{"file", UniVar(there)}, {"words", UniVar("cdp")}, {"overwrite", UniVar(0)}},
         there + ": is there already; remove it, or allow it to be overwritten"},
        {{{"file", UniVar(files.path("no/t.csv"))}, {"words", UniVar("cdp")}},
         files.path("no/t.csv") + ": cannot be written: no file can be created in its directory: "
                                  "No such file or directory"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushTraces();
        add(row.parameters);

        runInVain(row.message);

        EXPECT_EQ(contentOf(there), "former\n");
        EXPECT_EQ(std::filesystem::exists(file), false);
    }
}

TEST_F(HeaderTableTest, TwoTablesDoNotShareAFile)
{
    const std::string path = files.path("t.csv");
    add({{"file", UniVar(path)}, {"words", UniVar("cdp")}});
    add({{"file", UniVar(path)}, {"words", UniVar("cdp")}});

    runInVain(path + ": is written by module \"module1\", too; write to another file");
}

} // namespace
