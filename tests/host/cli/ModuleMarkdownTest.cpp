// What a manifest says of a module, as Markdown.
#include "cli/ModuleMarkdown.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

host::Manifest manifestWith(const std::string& purpose, const std::string& help)
{
    host::Manifest manifest;
    manifest.module = "agc";
    manifest.purpose = purpose;
    manifest.description = "Reads <file>.";
    host::ParameterSpec spec;
    spec.name = "a";
    spec.type = host::ParameterType::text;
    spec.help = help;
    manifest.parameters.push_back(spec);
    return manifest;
}

TEST(ModuleMarkdownTest, APurposeEndsWithOneFullStop)
{
    EXPECT_THAT(host::chapterMarkdown(manifestWith("Gain control", "a")),
                StartsWith("## agc\n\nGain control.\n\n"));
    EXPECT_THAT(host::chapterMarkdown(manifestWith("Gain control.", "a")),
                StartsWith("## agc\n\nGain control.\n\n"));
}

TEST(ModuleMarkdownTest, TextIsNotTakenForHtml)
{
    const std::string text =
        host::chapterMarkdown(manifestWith("Reads", "of <file>, `a<b` or ` <c>"));

    EXPECT_THAT(text, HasSubstr("\n\nReads \\<file>.\n\n"));
    EXPECT_THAT(text, HasSubstr("| of \\<file>, `a<b` or ` \\<c> |"));
}

} // namespace
