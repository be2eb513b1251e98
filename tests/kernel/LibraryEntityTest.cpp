#include "LibraryEntity.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(LibraryEntityTest, DefaultLibraryIsEmpty)
{
    const LibraryEntity library;
    EXPECT_EQ(library.getLibraryType(), "");
    EXPECT_EQ(library.getLibraryPath(), "");
    EXPECT_TRUE(library.libriParams.empty());
}

TEST(LibraryEntityTest, TypeAndPathAreStoredAsGiven)
{
    const LibraryEntity library("gd", "/data/some where");
    EXPECT_EQ(library.libraryType, "gd") << "no check, no change of case";
    EXPECT_EQ(library.libraryPath, "/data/some where");
    EXPECT_EQ(library.getLibraryType(), "gd");
    EXPECT_EQ(library.getLibraryPath(), "/data/some where");
    EXPECT_TRUE(library.libriParams.empty());
}

TEST(LibraryEntityTest, FieldsLieInTheirOrder)
{
    const LibraryEntity library;
    const void* type = &library.libraryType;
    const void* path = &library.libraryPath;
    const void* parameters = &library.libriParams;
    EXPECT_EQ(type, &library);
    EXPECT_LT(type, path);
    EXPECT_LT(path, parameters);
}

TEST(LibraryEntityTest, SetParameterReturnsOneAndReplaces)
{
    LibraryEntity library;
    EXPECT_EQ(library.setParameter("window", UniVar(500)), 1);
    EXPECT_EQ(library.setParameter("window", UniVar("half a second")), 1);
    EXPECT_EQ(library.getParameter("window").getStrValue(), "half a second");
    EXPECT_EQ(library.libriParams.size(), 1u);
}

TEST(LibraryEntityTest, ParameterIsACopyOnTheWayInAndOut)
{
    const int elements[] = {1, 2};
    UniVar given(elements, 2);
    LibraryEntity library;
    library.setParameter("list", given);
    given.getI32ArrayValue()[0] = 9;
    EXPECT_EQ(library.getParameter("list").getStrValue(), "[1,2]");

    library.getParameter("list").getI32ArrayValue()[1] = 9;
    EXPECT_EQ(library.getParameter("list").getStrValue(), "[1,2]");
}

TEST(LibraryEntityTest, ParameterCanBeSetFromItself)
{
    LibraryEntity library;
    library.setParameter("list", UniVar("a text that needs a block of its own"));
    library.setParameter("list", library.libriParams["list"]);
    EXPECT_EQ(library.getParameter("list").getStrValue(), "a text that needs a block of its own");
}

TEST(LibraryEntityTest, AskingForAMissingParameterInsertsIt)
{
    LibraryEntity library;
    EXPECT_EQ(library.getParameter("missing").getType(), undefinedType);
    EXPECT_TRUE(library.isParameterPresent("missing"));
}

TEST(LibraryEntityTest, AskingForPresenceInsertsNothing)
{
    LibraryEntity library;
    EXPECT_FALSE(library.isParameterPresent("missing"));
    EXPECT_TRUE(library.libriParams.empty());
    library.setParameter("there", UniVar());
    EXPECT_TRUE(library.isParameterPresent("there"));
}

TEST(LibraryEntityTest, NamesAreComparedExactly)
{
    LibraryEntity library;
    library.setParameter("Window", UniVar(1));
    EXPECT_FALSE(library.isParameterPresent("window"));
    EXPECT_FALSE(library.isParameterPresent("Window "));
    EXPECT_TRUE(library.isParameterPresent("Window"));
}

TEST(LibraryEntityTest, ValueRefersToTheLibraryWithoutOwningIt)
{
    LibraryEntity library("CN", "contours");
    {
        const UniVar value(&library);
        const UniVar copy = value;
        EXPECT_EQ(copy.getLibraryValue(), &library);
    }
    EXPECT_EQ(library.getLibraryPath(), "contours");
}

} // namespace
