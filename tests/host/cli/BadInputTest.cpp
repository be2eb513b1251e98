// What cannot be read, written or loaded: each ends the command with one line that names it, and
// leaves everything else in the folder as it was.
#include "ProcessingTree.h"

#include "SegyBytes.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace fs = std::filesystem;

namespace {

std::string inWork(std::string text, const TestTree& tree)
{
    const std::string mark = "<work>";
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at))
        text.replace(at, mark.size(), tree.work());
    return text;
}

// "12:34:56 fatal       read   TEXT" without its time.
std::string withoutTime(const std::string& line)
{
    return line.size() > 9 && line[2] == ':' && line[5] == ':' ? line.substr(9) : line;
}

// Without the line of the job file that a message of a module ends with.
std::string withoutPlace(const std::string& line)
{
    const std::size_t place = line.rfind(" (job.yaml:");
    return place == std::string::npos ? line : line.substr(0, place);
}

class BadInputTest : public ::testing::Test
{
protected:
    BadInputTest()
    {
        fs::copy_file(VORN_TEST_SOURCE_DIR "/host/data/line.sgy", tree.path("line.sgy"));
        tree.write("job.yaml",
                   "modules:\n"
                   "  - {name: read, module: segy_in, file: line.sgy}\n"
                   "  - {name: sorted, module: sort, input: read, keys: [-cdp]}\n"
                   "  - {name: write, module: segy_out, input: sorted, file: out.sgy}\n");
        tree.write("out.sgy", "of an earlier job\n");
    }

    // The first bytes of line.sgy, and then zeros up to `size`.
    void writePart(const std::string& name, std::size_t bytes, std::uintmax_t size) const
    {
        Bytes part = readBytes(tree.path("line.sgy"));
        part.resize(bytes);
        writeBytes(tree.path(name), part);
        fs::resize_file(tree.path(name), size);
    }
    // One trace that is longer than memory, nearly all of it a hole.
    void writeLongTrace(const std::string& name, uint32_t samples) const
    {
        Bytes bytes = readBytes(tree.path("line.sgy"));
        bytes.resize(3840);
        putInteger(bytes, 3220, 2, 0);
        putInteger(bytes, 3268, 4, samples); // where revision 2 has it
        putInteger(bytes, 3500, 2, 0x200);
        putInteger(bytes, 3714, 2, 0);
        writeBytes(tree.path(name), bytes);
        fs::resize_file(tree.path(name), 3840 + 4 * static_cast<std::uintmax_t>(samples));
    }

    ProcessingTree tree;
};

struct BadRow
{
    std::string name; // of the row
    std::vector<std::string> words;
    std::string line; // the one that says it
    int exitCode = 2;
};

} // namespace

// ---- Files that are no input ----

TEST_F(BadInputTest, WrongCallsSayOneLineAndChangeNothing)
{
    fs::create_directory(tree.path("folder"));
    fs::create_directory(tree.path("folder.png"));
    fs::create_symlink("line.sgy", tree.path("line.png"));
    tree.write("empty.sgy", "");
    tree.write("noise.sgy", std::string(20000, '\xE7'));
    writePart("header.sgy", 3600, 3600);
    writePart("cut.sgy", 3599, 3599);
    const std::string tooSmall = " bytes, and the file header alone takes 3600";
    const std::string noFormat =
        "noise.sgy: is not a SEG-Y file that can be read: the sample format code in bytes "
        "3225-3226 "
        "is -6169 (big endian) or -6169 (little endian), and neither is known; state `format` if "
        "you know it";
    const std::string file = "parameter \"file\" of module ";
    // clang-format off
    const std::vector<BadRow> rows = {
        {"header, missing", {"header", "no.sgy"}, "no.sgy: cannot be opened: No such file or directory"},
        {"header, empty", {"header", "empty.sgy"}, "empty.sgy: is not a SEG-Y file: it has 0" + tooSmall},
        {"header, cut", {"header", "cut.sgy"}, "cut.sgy: is not a SEG-Y file: it has 3599" + tooSmall},
        {"header, binary", {"header", "noise.sgy"}, noFormat},
        {"header, directory", {"header", "folder"}, "folder: is not a file that can be read; give the path of a trace file"},
        {"header, no such trace", {"header", "line.sgy", "-t", "9"}, "line.sgy: --traces 9 selects no trace; the file holds 8 traces"},
        {"plot, missing", {"plot", "no.sgy", "-o", "x.png"}, "no.sgy: cannot be opened: No such file or directory"},
        {"plot, empty", {"plot", "empty.sgy", "-o", "x.png"}, "empty.sgy: is not a SEG-Y file: it has 0" + tooSmall},
        {"plot, binary", {"plot", "noise.sgy", "-o", "x.png"}, noFormat},
        {"plot, no such trace", {"plot", "line.sgy", "-o", "x.png", "-t", "9:"}, "line.sgy: there is no trace to draw; the file holds 8 traces"},
        {"plot to nowhere", {"plot", "line.sgy", "-o", "nowhere/x.png"}, "nowhere/x.png: cannot be written: no file can be created in its directory: No such file or directory"},
        {"plot to a directory", {"plot", "line.sgy", "-o", "folder.png"}, "-o: \"folder.png\" is not a regular file; give the path of a file"},
        {"plot over its input", {"plot", "line.sgy", "-o", "line.png"}, "-o: the picture \"line.png\" would replace the input file \"line.sgy\"; write to another file"},
        {"run, missing", {"run", "job.yaml", "--set", "read.file=lin.sgy"}, "--set read.file=lin.sgy: " + file + "\"read\" is \"<work>/lin.sgy\"; the file does not exist; did you mean \"line.sgy\"?"},
        {"run, directory", {"run", "job.yaml", "--set", "read.file=folder"}, "--set read.file=folder: " + file + "\"read\" is \"<work>/folder\"; this is a directory; a file is needed"},
        {"run, no range", {"run", "job.yaml", "--set", "read.traces=9:x"}, "--set read.traces=9:x: parameter \"traces\" of module \"read\": \"x\" in \"9:x\" is not a number; write numbers and ranges as in 1:100:2,200"},
        {"run to nowhere", {"run", "job.yaml", "--set", "write.file=nowhere/x.sgy"}, "--set write.file=nowhere/x.sgy: " + file + "\"write\" is \"<work>/nowhere/x.sgy\"; there is no directory \"<work>/nowhere\"; make it first"},
        {"run to a directory", {"run", "job.yaml", "--set", "write.file=folder"}, "--set write.file=folder: " + file + "\"write\" is \"<work>/folder\"; this is a directory; a file is needed"},
        {"run over its input", {"run", "job.yaml", "--set", "write.file=./line.sgy"}, "--set write.file=./line.sgy: " + file + "\"write\" is \"<work>/line.sgy\", which " + file + "\"read\" reads; write to another file"},
        {"run over its input by another name", {"run", "job.yaml", "--set", "write.file=line.png"}, "--set write.file=line.png: " + file + "\"write\" is \"<work>/line.png\", which " + file + "\"read\" reads; write to another file"},
        {"scratch nowhere", {"run", "job.yaml", "--scratch", "nowhere"}, "--scratch: the scratch directory \"<work>/nowhere\" is not a directory"},
        {"scratch in a file", {"run", "job.yaml", "--scratch", "line.sgy"}, "--scratch: the scratch directory \"<work>/line.sgy\" is not a directory"},
        {"pictures in a file", {"run", "job.yaml", "--pictures", "line.sgy"}, "--pictures: the directory \"line.sgy\" cannot be made: Not a directory"},
        {"job missing", {"run", "jop.yaml"}, "jop.yaml: cannot be read: No such file or directory"},
        {"job that is a directory", {"run", "folder"}, "folder: is a directory; a file is needed"},
        {"job empty", {"run", "empty.sgy"}, "empty.sgy: is empty"},
        {"graph to nowhere", {"graph", "job.yaml", "-o", "nowhere/x.dot"}, "the file \"nowhere/x.dot\" cannot be written: no file can be created in its directory: No such file or directory"},
    };
    // clang-format on
    const auto before = tree.snapshot();
    for (const BadRow& row : rows) {
        SCOPED_TRACE(row.name);

        const ProcessResult result = tree.run(row.words);

        EXPECT_EQ(result.exitCode, row.exitCode);
        EXPECT_EQ(result.errors, "vorn: " + inWork(row.line, tree) + "\n");
        EXPECT_EQ(result.output, "");
        EXPECT_TRUE(tree.snapshot() == before) << "something in the folder has changed";
    }
}

TEST_F(BadInputTest, JobsThatCannotReadTheirInputSayWhyOnceAndWriteNothing)
{
    tree.write("empty.sgy", "");
    tree.write("noise.sgy", std::string(20000, '\xE7'));
    writePart("cut.sgy", 3599, 3599);
    // clang-format off
    const std::vector<BadRow> rows = {
        {"empty", {"read.file=empty.sgy"}, "<work>/empty.sgy: is not a SEG-Y file: it has 0 bytes, and the file header alone takes 3600", 1},
        {"cut", {"read.file=cut.sgy"}, "<work>/cut.sgy: is not a SEG-Y file: it has 3599 bytes, and the file header alone takes 3600", 1},
        {"binary", {"read.file=noise.sgy"}, "<work>/noise.sgy: is not a SEG-Y file that can be read: the sample format code in bytes 3225-3226 is -6169 (big endian) or -6169 (little endian), and neither is known; state `format` if you know it", 1},
        {"text", {"read.file=job.yaml"}, "<work>/job.yaml: is not a SEG-Y file: it has 185 bytes, and the file header alone takes 3600", 1},
        {"selection", {"read.traces=9:12"}, "<work>/line.sgy: none of its 8 traces is selected by traces 9:12", 1},
        {"output that is there", {"write.overwrite=false"}, "<work>/out.sgy: is there already; remove it, or allow it to be overwritten", 1},
    };
    // clang-format on
    const auto before = tree.snapshot();
    for (const BadRow& row : rows) {
        SCOPED_TRACE(row.name);

        const ProcessResult result = tree.run({"run", "job.yaml", "--set", row.words[0]});

        EXPECT_EQ(result.exitCode, row.exitCode);
        const std::vector<std::string> fatal = linesWith(result.errors, " fatal ");
        ASSERT_THAT(fatal, SizeIs(1)) << result.errors;
        EXPECT_THAT(withoutTime(fatal[0]), testing::ContainsRegex(" \\(job\\.yaml:[0-9]+\\)$"));
        EXPECT_THAT(withoutPlace(withoutTime(fatal[0])),
                    testing::EndsWith(" " + inWork(row.line, tree)));
        EXPECT_THAT(result.errors,
                    HasSubstr("vorn: module \"write\" did not write " + tree.path("out.sgy") +
                              "; the existing file of that name is older\n"));
        EXPECT_TRUE(tree.snapshot() == before) << "something in the folder has changed";
    }
}

TEST_F(BadInputTest, AFileWithoutTracesIsNoReasonToReplaceAnOutput)
{
    writePart("header.sgy", 3600, 3600);
    writePart("almost.sgy", 3999, 3999);
    const auto before = tree.snapshot();
    for (const std::string name : {"header.sgy", "almost.sgy"}) {
        const ProcessResult result = tree.run({"run", "job.yaml", "--set", "read.file=" + name});

        EXPECT_EQ(result.exitCode, 1) << name;
        EXPECT_THAT(linesWith(result.errors, name + ": holds no whole trace: the binary header "
                                                    "states 40 samples per trace"),
                    ElementsAre(HasSubstr(" fatal "), HasSubstr("out.sgy: is not written, since")));
        EXPECT_TRUE(tree.snapshot() == before) << name;
    }
}

TEST_F(BadInputTest, OfACutFileTheWholeTracesAreReadWithAWarning)
{
    writePart("cut.sgy", 4999, 4999); // 3 traces and 199 of the next one's 400 bytes

    const ProcessResult result = tree.run({"run", "job.yaml", "-q", "--set", "read.file=cut.sgy"});

    EXPECT_EQ(result.exitCode, 0);
    const std::vector<std::string> said = linesWith(result.errors, "");
    ASSERT_THAT(said, SizeIs(1)) << result.errors;
    EXPECT_EQ(withoutPlace(withoutTime(said[0])),
              "warning     read   " + tree.path("cut.sgy") +
                  ": the last trace is cut: 199 of its 400 bytes are there; it is left out, and 3 "
                  "whole traces are read");
    EXPECT_EQ(fs::file_size(tree.path("out.sgy")), 3600u + 3 * 400);
}

TEST_F(BadInputTest, TracesThatContradictTheIntervalOfTheirFileAreReportedOnce)
{
    SegyBytes file = ieeeFile(3, 4);
    file.setTrace(256, 117, 2, 2000);
    file.write(tree.path("line.sgy"));
    const std::string expected = "1 of 3 traces state another sample interval than 4000 "
                                 "microseconds, the first of them trace 2 with 2000; all are read "
                                 "as 4000; where theirs is right, read them apart with `traces` "
                                 "and `interval`";

    const ProcessResult header = tree.run({"header", "line.sgy"});
    const ProcessResult json = tree.run({"header", "line.sgy", "--json"});
    const ProcessResult job = tree.run({"run", "job.yaml"});

    EXPECT_EQ(header.errors, "vorn: line.sgy: warning: " + expected + "\n");
    EXPECT_THAT(linesWith(json.output, expected), SizeIs(1));
    EXPECT_EQ(job.exitCode, 0);
    EXPECT_THAT(linesWith(job.errors, expected), SizeIs(1));
}

TEST_F(BadInputTest, AFileThatIsTooLongForItsTracesIsReadAsFarAsTheyGo)
{
    writePart("long.sgy", 6800, 6850);

    const ProcessResult result = tree.run({"header", "long.sgy"});

    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "vorn: long.sgy: warning: the last trace is cut: 50 of its 400 bytes "
                             "are there; it is left out, and 8 whole traces are read\n");
}

TEST_F(BadInputTest, TracesLargerThanMemoryEndTheCommandWithTheirFilesName)
{
    if (!memoryIsOurs)
        GTEST_SKIP() << "the address sanitizer needs all addresses";
    constexpr rlim_t memory = 1 << 30;
    writeLongTrace("long.sgy", 1500000000); // 6 gigabytes
    const auto before = tree.snapshot();

    const ProcessResult job = tree.runLimited(
        RLIMIT_AS, memory,
        {"run", "job.yaml", "--set", "read.file=long.sgy", "--set", "read.memory_limit=20 GB"});
    EXPECT_EQ(job.exitCode, 1);
    const std::vector<std::string> fatal = linesWith(job.errors, " fatal ");
    ASSERT_THAT(fatal, SizeIs(1)) << job.errors;
    EXPECT_THAT(withoutPlace(fatal[0]),
                testing::EndsWith(" read   " + tree.path("long.sgy") +
                                  ": there is no memory for a trace of 6000000240 "
                                  "bytes; if its traces are shorter than that, state "
                                  "`samples`"));
    EXPECT_TRUE(tree.snapshot() == before);
}

// ---- Disks that are full ----

TEST_F(BadInputTest, AFullDiskLeavesNoOutputThatLooksComplete)
{
    const std::string full = " cannot be written beyond its first 1024 bytes (";
    const struct
    {
        std::vector<std::string> words;
        std::string says;
        int exitCode;
    } rows[] = {
        {{"run", "job.yaml"}, tree.path("out.sgy") + ":" + full, 1},
        {{"plot", "line.sgy", "-o", "line.png"}, "vorn: line.png:" + full, 2},
        {{"plot", "line.sgy", "-o", "line.svg"}, "vorn: line.svg:" + full, 2},
        {{"plot", "line.sgy", "-o", "line.pdf"}, "vorn: line.pdf:" + full, 2},
        {{"graph", "job.yaml", "-o", "job.svg"}, "vorn: the file \"job.svg\"" + full, 2},
    };
    const auto before = tree.snapshot();
    for (const auto& row : rows) {
        const ProcessResult result = tree.runLimited(RLIMIT_FSIZE, 1024, row.words);

        EXPECT_EQ(result.exitCode, row.exitCode) << row.says;
        const std::vector<std::string> lines = linesWith(result.errors, row.says);
        ASSERT_THAT(lines, SizeIs(1)) << result.errors;
        EXPECT_THAT(withoutPlace(lines[0]),
                    testing::EndsWith(": File too large; make room there, or write to "
                                      "another place"));
        EXPECT_TRUE(tree.snapshot() == before) << row.says;
    }
}

TEST_F(BadInputTest, WithoutRoomForTheScratchFileTheResultIsTheSame)
{
    fs::create_directory(tree.path("scratch"));
    tree.write("many.yaml",
               "modules:\n"
               "  - {name: shots, module: synthetic, shots: 200, channels: 5, samples: 50}\n"
               "  - {name: sorted, module: sort, input: shots, keys: [offset]}\n"
               "  - {name: stacked, module: stack, input: sorted, key: offset}\n"
               "  - {name: write, module: segy_out, input: stacked, file: room.sgy}\n");
    ASSERT_EQ(tree.run({"run", "many.yaml"}).exitCode, 0);

    const ProcessResult result =
        tree.runLimited(RLIMIT_FSIZE, 50000,
                        {"run", "many.yaml", "-v", "--scratch", "scratch", "--scratch-traces", "10",
                         "--set", "write.file=noroom.sgy"});

    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr(" successfully created\n")) << "one was to be tried";
    EXPECT_TRUE(readBytes(tree.path("noroom.sgy")) == readBytes(tree.path("room.sgy")));
    EXPECT_THAT(tree.namesIn("scratch"), IsEmpty());
}

// ---- What one has no right to ----

TEST_F(BadInputTest, WithoutPermissionOneLineSaysForWhat)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root may read and write everything";
    fs::create_directory(tree.path("locked"));
    writePart("secret.sgy", 6800, 6800);
    ASSERT_EQ(chmod(tree.path("secret.sgy").c_str(), 0), 0);
    ASSERT_EQ(chmod(tree.path("locked").c_str(), 0500), 0);
    const std::string file = "parameter \"file\" of module ";
    // clang-format off
    const std::vector<BadRow> rows = {
        {"header", {"header", "secret.sgy"}, "secret.sgy: cannot be opened: Permission denied"},
        {"plot", {"plot", "secret.sgy", "-o", "x.png"}, "secret.sgy: cannot be opened: Permission denied"},
        {"plot into it", {"plot", "line.sgy", "-o", "locked/x.png"}, "locked/x.png: cannot be written: no file can be created in its directory: Permission denied"},
        {"run", {"run", "job.yaml", "--set", "read.file=secret.sgy"}, "--set read.file=secret.sgy: " + file + "\"read\" is \"<work>/secret.sgy\"; you have no permission to read the file"},
        {"run into it", {"run", "job.yaml", "--set", "write.file=locked/x.sgy"}, "--set write.file=locked/x.sgy: " + file + "\"write\" is \"<work>/locked/x.sgy\"; the directory \"<work>/locked\" cannot be written to"},
        {"scratch", {"run", "job.yaml", "--scratch", "locked"}, "--scratch: the scratch directory \"<work>/locked\" cannot be written to"},
        {"pictures", {"run", "job.yaml", "--pictures", "locked"}, "--pictures: the directory \"locked\" cannot be written to"},
    };
    // clang-format on
    const std::vector<std::string> before = tree.names();
    for (const BadRow& row : rows) {
        SCOPED_TRACE(row.name);

        const ProcessResult result = tree.run(row.words);

        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.errors, "vorn: " + inWork(row.line, tree) + "\n");
        EXPECT_EQ(tree.names(), before);
        EXPECT_THAT(tree.namesIn("locked"), IsEmpty());
    }
    chmod(tree.path("locked").c_str(), 0700);
}

// Field data are protected so; nobody means to lose them, root neither.
TEST_F(BadInputTest, WriteProtectedFilesAreNeverReplaced)
{
    const std::string why = "is write-protected; write to another file, or give yourself "
                            "permission first (chmod u+w)";
    for (const char* name : {"out.sgy", "raw.su", "line.png", "job.svg", "job.dot"}) {
        tree.write(name, "precious\n");
        ASSERT_EQ(chmod(tree.path(name).c_str(), 0444), 0);
    }
    fs::create_symlink("out.sgy", tree.path("link.sgy"));
    tree.write("su.yaml", "modules:\n"
                          "  - {name: read, module: segy_in, file: line.sgy}\n"
                          "  - {name: write, module: su_out, input: read, file: raw.su}\n");
    const std::string file = ": parameter \"file\" of module \"write\" is \"<work>/";
    // clang-format off
    const std::vector<BadRow> rows = {
        {"segy_out", {"run", "job.yaml"}, "job.yaml:4:58" + file + "out.sgy\"; the file " + why},
        {"a link", {"run", "job.yaml", "--set", "write.file=link.sgy"}, "--set write.file=link.sgy" + file + "link.sgy\"; the file " + why},
        {"su_out", {"run", "su.yaml"}, "su.yaml:3:54" + file + "raw.su\"; the file " + why},
        {"plot", {"plot", "line.sgy", "-o", "line.png"}, "-o: the file \"line.png\" " + why},
        {"graph", {"graph", "su.yaml", "--set", "write.file=x.su", "-o", "job.svg"}, "-o: the file \"job.svg\" " + why},
        {"graph's text", {"graph", "su.yaml", "--set", "write.file=x.su", "-o", "job.dot"}, "-o: the file \"job.dot\" " + why},
    };
    // clang-format on
    const auto before = tree.snapshot();
    for (const BadRow& row : rows) {
        SCOPED_TRACE(row.name);

        const ProcessResult result = tree.run(row.words);

        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(result.errors, testing::StartsWith("vorn: " + inWork(row.line, tree) + "\n"));
        EXPECT_TRUE(tree.snapshot() == before);
    }
}

// ---- Modules that are none ----

TEST_F(BadInputTest, ModulesThatCannotBeLoadedAreNamedWithTheirPlaceInTheJob)
{
    const struct
    {
        const char* module;
        std::string says;
    } rows[] = {
        {"host_notalibrary", "libhost_notalibrary.so"}, {"host_noprocess", "process_"},
        {"host_nolibrary", "libhost_nolibrary.so"},     {"host_crashing", "libhost_crashing.so"},
        {"undefined_host", "libundefined_host.so"},     {"segy_inn", "did you mean \"segy_in\"?"},
    };
    for (const auto& row : rows) {
        tree.write("bad.yaml", "modules:\n"
                               "  - {name: read, module: segy_in, file: line.sgy}\n"
                               "  - {name: bad, module: " +
                                   std::string(row.module) +
                                   ", input: read}\n"
                                   "  - {name: write, module: segy_out, input: read, file: "
                                   "out.sgy}\n");
        const auto before = tree.snapshot();

        const ProcessResult result = tree.run({"run", "bad.yaml"});

        EXPECT_EQ(result.exitCode, 2) << row.module;
        const std::vector<std::string> lines = linesWith(result.errors, "");
        ASSERT_THAT(lines, SizeIs(1)) << result.errors;
        EXPECT_THAT(lines[0], testing::StartsWith("vorn: bad.yaml:3:")) << row.module;
        EXPECT_THAT(lines[0], HasSubstr(row.says));
        EXPECT_EQ(result.output, "");
        EXPECT_TRUE(tree.snapshot() == before) << row.module;
    }
}

TEST_F(BadInputTest, HeaderWordsThatThereAreNotAreRefusedByTheCheck)
{
    tree.write("bad.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: line.sgy}\n"
                           "  - {name: sort, module: sort, input: read, keys: [-cpd]}\n"
                           "  - {name: mute, module: mute, input: sort, header: ofset}\n"
                           "  - {name: sum, module: stack, input: mute, key: CDP}\n"
                           "  - {name: plot, module: header_plot, input: sum, x: fldrr, y: [cdp, "
                           "gxx]}\n"
                           "  - {name: draw, module: section, input: sum, xattr: cdpp}\n");

    const ProcessResult result = tree.run({"check", "bad.yaml"});

    EXPECT_EQ(result.exitCode, 2);
    for (const char* says :
         {"bad.yaml:3:52: parameter \"keys\" of module \"sort\" is \"cpd\"",
          "\"ofset\"; the traces of this job have no attribute of that name; did you mean "
          "\"offset\"?",
          "\"CDP\"", "\"fldrr\"", "\"gxx\"", "\"cdpp\""})
        EXPECT_THAT(linesWith(result.errors, says), SizeIs(1)) << result.errors;
    EXPECT_THAT(linesWith(result.errors, "did you mean"), SizeIs(6));
}

TEST_F(BadInputTest, AllErrorsOfAJobAreToldAtOnceAndNothingIsRun)
{
    tree.write("bad.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: lime.sgy}\n"
                           "  - {name: low, module: bandpass, input: read, corners: [5 m]}\n"
                           "  - {name: write, module: segy_out, input: lowe, file: out.sgy}\n");
    const auto before = tree.snapshot();

    const ProcessResult result = tree.run({"run", "bad.yaml"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors,
              inWork("vorn: bad.yaml:2:41: parameter \"file\" of module \"read\" is "
                     "\"<work>/lime.sgy\"; the file does not exist; did you mean \"line.sgy\"?\n"
                     "vorn: bad.yaml:3:58: parameter \"corners\" of module \"low\" is \"5 m\"; "
                     "expected a number of at least 0 in Hz (also kHz); the unit \"m\" does not "
                     "fit\n"
                     "vorn: bad.yaml:4:44: input of module \"write\": the job has no module "
                     "\"lowe\"; did you mean \"low\"?\n"
                     "vorn: bad.yaml: 3 errors; nothing was run\n",
                     tree));
    EXPECT_TRUE(tree.snapshot() == before);
}
