#include "vorn_version.h"

#include "JobManager.h"

#include <gtest/gtest.h>

namespace {

static_assert(VORN_VERSION_CHECK(0, 1, 0));
static_assert(VORN_VERSION_CHECK(VORN_VERSION_MAJOR, VORN_VERSION_MINOR, VORN_VERSION_PATCH));
static_assert(!VORN_VERSION_CHECK(VORN_VERSION_MAJOR, VORN_VERSION_MINOR, VORN_VERSION_PATCH + 1));
static_assert(!VORN_VERSION_CHECK(VORN_VERSION_MAJOR + 1, 0, 0));

TEST(Version, OfTheLibraryIsThatOfTheHeadersAndOfQt)
{
    EXPECT_STREQ(vorn_version(), VORN_VERSION);
    EXPECT_EQ(vorn_version_number(),
              VORN_VERSION_NUMBER(VORN_VERSION_MAJOR, VORN_VERSION_MINOR, VORN_VERSION_PATCH));
    EXPECT_EQ(vorn_qt_major(), QT_VERSION_MAJOR);
}

} // namespace
