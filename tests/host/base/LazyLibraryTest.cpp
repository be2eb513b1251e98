// Libraries are loaded with their first function, and one that is missing is told by its name.
#include "base/LazyLibrary.h"

#include "base/CommandError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

using namespace host;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

std::string failureOf(const LazyLibrary& library, const char* function)
{
    try {
        library.function(function);
    } catch (const CommandError& error) {
        return error.what();
    }
    return "none";
}

} // namespace

TEST(LazyLibraryTest, FunctionsOfALibraryAreFound)
{
    const LazyLibrary mathematics("libm.so.6", "roots");
    const auto root = reinterpret_cast<double (*)(double)>(mathematics.function("sqrt"));
    EXPECT_EQ(root(9.0), 3.0);
    EXPECT_EQ(mathematics.function("sqrt"), mathematics.function("sqrt"));
}

TEST(LazyLibraryTest, AMissingLibraryIsTold)
{
    const LazyLibrary missing("libvorn_no_such.so.7", "pictures");
    const std::string text = failureOf(missing, "paint");
    EXPECT_THAT(text, StartsWith("pictures need the library libvorn_no_such.so.7, which cannot be "
                                 "used: "));
    EXPECT_THAT(text, HasSubstr("No such file"));
}

TEST(LazyLibraryTest, AMissingFunctionIsTold)
{
    const LazyLibrary mathematics("libm.so.6", "roots");
    const std::string text = failureOf(mathematics, "vorn_no_such_root");
    EXPECT_THAT(text, StartsWith("roots need the library libm.so.6, which cannot be used: "));
    EXPECT_THAT(text, HasSubstr("vorn_no_such_root"));
}
