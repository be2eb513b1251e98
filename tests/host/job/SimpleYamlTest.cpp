// The faster reader of manifests gives what the other one gives, with every place, or nothing.
#include "job/YamlReader.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <string>
#include <vector>

using namespace host;

namespace {

namespace fs = std::filesystem;

// A tree as text, with all that a node has.
std::string written(const YamlValue& node)
{
    std::string text = std::to_string(static_cast<int>(node->kind)) + "@" +
                       std::to_string(node->place.line) + ":" + std::to_string(node->place.column) +
                       "/" + std::to_string(node->levels) + (node->isQuoted ? "q" : "") + "<" +
                       node->text + ">";
    for (const YamlValue& item : node->items)
        text += "[" + written(item) + "]";
    for (const YamlEntry& entry : node->entries)
        text += "{" + entry.key + "@" + std::to_string(entry.place.line) + ":" +
                std::to_string(entry.place.column) + "=" + written(entry.value) + "}";
    return text;
}

// What readYaml() makes of it; its errors where it has some.
std::string expected(const std::string& yaml)
{
    Diagnostics diagnostics;
    const YamlValue document = readYaml(yaml, "f", diagnostics);
    std::string errors;
    for (const Diagnostic& one : diagnostics.sorted())
        errors += "error: " + one.text + "\n";
    return document == nullptr || !errors.empty() ? errors : written(document);
}

// Whether the faster reader takes `yaml`; it must then agree with the other one.
bool isTaken(const std::string& yaml)
{
    const YamlValue document = readSimpleYaml(yaml, "f");
    if (document == nullptr)
        return false;
    EXPECT_EQ(written(document), expected(yaml)) << yaml;
    return true;
}

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> manifests()
{
    std::vector<std::string> texts;
    for (const auto& entry :
         fs::recursive_directory_iterator(fs::path(VORN_TEST_SOURCE_DIR) / "../modules"))
    {
        if (entry.path().extension() == ".yaml" &&
            entry.path().stem() == entry.path().parent_path().filename())
            texts.push_back(contentOf(entry.path()));
    }
    return texts;
}

} // namespace

TEST(SimpleYamlTest, ManifestsAreReadAlike)
{
    const std::vector<std::string> texts = manifests();
    std::size_t taken = 0;
    for (const std::string& text : texts)
        taken += isTaken(text) ? 1 : 0;
    EXPECT_GT(texts.size(), 20U);
    EXPECT_GT(taken, texts.size() * 2 / 3);
}

TEST(SimpleYamlTest, TextsOfEveryStyleAreReadAlike)
{
    for (const char* yaml : {
             "a: b\n",
             "a: {min: 0, max: [1, 2 s]}\nb:\n  - c: d\n    e: f\n  - g\n",
             "a: 'it''s'\nb: \"x\\ty\"\n",
             "a: >\n  folded\n  text\n\n  next\n   indented\n\nb: |\n  kept\n    as\n\n  is\n",
             "a: >-\n  no line feed\nb: |-\n  none\n",
             "a: several\n  lines\n\n  of words\n",
             "# only\na: b # comments\n",
         })
        EXPECT_TRUE(isTaken(yaml)) << yaml;
}

TEST(SimpleYamlTest, WhatParsersMayReadDifferentlyIsLeftToTheOther)
{
    for (const char* yaml : {
             "",
             "a",
             "- a\n",
             "a: \xC3\xA9\n",
             "a:\tb\n",
             "a: b\r\n",
             "a:\n",
             "a: ~\n",
             "a: null\n",
             "a: &x b\n",
             "a: &x [b]\nc: *x\n",
             "a: !t b\n",
             "a: !!str b\n",
             "? a\n: b\n",
             "a: \"b\n  c\"\n",
             "a: >+\n  b\n\n",
             "a: |\n",
             "---\na: b\n",
             "a: b\n...\n",
             "%YAML 1.2\n---\na: b\n",
             "a: b\n---\nc: d\n",
             "a: b\na: c\n",
             "<<: b\n",
             "a: [b\n",
             "a: b: c\n",
             "a: \"\\0\"\n",
         })
        EXPECT_EQ(readSimpleYaml(yaml, "f"), nullptr) << yaml;
}

TEST(SimpleYamlTest, DamagedManifestsAreReadAlikeOrLeftToTheOther)
{
    const std::vector<std::string> texts = manifests();
    const std::string characters = "ab: -\n\n  >|[]{},\"'#?&*!%~\\.12";
    std::mt19937 random(11); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage each time
    int taken = 0;
    for (int round = 0; round < 1500; ++round) {
        std::string text = texts[random() % texts.size()];
        for (auto changes = 1 + random() % 4; changes > 0; --changes) {
            const std::size_t at = random() % text.size();
            const char character = characters[random() % characters.size()];
            if (random() % 2 == 0)
                text.insert(at, 1, character);
            else
                text[at] = character;
        }
        taken += isTaken(text) ? 1 : 0;
    }
    EXPECT_GT(taken, 100);
}
