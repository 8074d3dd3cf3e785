// The folded key names are ordered and searched by, and the IDs given to
// names whose hashes collide.
#include "library/SortKey.h"
#include "library/TagStore.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

TEST(SortKeyTest, CaseAndAccentsFoldAway)
{
    EXPECT_EQ(SortKey("été"), "ete");
    EXPECT_EQ(SortKey("ETE"), "ete");
    EXPECT_EQ(SortKey("CAFÉ"), SortKey("cafe"));
    EXPECT_EQ(SortKey("Zoë"), "zoe");
    EXPECT_EQ(SortKey("Ünïcödé"), "unicode");
}

TEST(SortKeyTest, CompatibilityFormsAndFoldsThatGrow)
{
    EXPECT_EQ(SortKey("ﬁne"), "fine");
    EXPECT_EQ(SortKey("Straße"), "strasse");
}

TEST(SortKeyTest, AccentedNamesSortWithTheirBaseLetter)
{
    // By bytes "Été" (0xC3...) would come after "Zebra"; by key it comes before.
    EXPECT_LT(SortKey("Été"), SortKey("Greatest Hits"));
    EXPECT_GT(SortKey("Été"), SortKey("Classics"));
}

TEST(SortKeyTest, InvalidUtf8StillGetsAKey)
{
    const std::string latin1 = "Caf\xe9";  // ISO8859-1, not UTF-8
    const std::string key = SortKey(latin1);
    EXPECT_EQ(key.compare(0, 3, "caf"), 0) << key;
    EXPECT_EQ(SortKey(""), "");
}

// Plain ASCII takes a short way; with one accented letter after it, the same
// character goes the Unicode way. Both must fold every character alike.
TEST(SortKeyTest, EveryAsciiCharacterFoldsAsTheUnicodeWayFoldsIt)
{
    for (int c = 1; c < 0x80; ++c) {
        const std::string ascii(1, static_cast<char>(c));
        EXPECT_EQ(SortKey(ascii) + "e", SortKey(ascii + "é")) << "character " << c;
    }
    EXPECT_EQ(SortKey("Various Artists"), "various artists");
}

TEST(AssignIdsTest, EachNameGetsItsHashWhenFree)
{
    const auto ids = AssignIds<std::string>({"a", "b"}, [](const std::string& name) {
        return static_cast<uint32_t>(name[0]);
    });
    EXPECT_EQ(ids.at("a"), 97u);
    EXPECT_EQ(ids.at("b"), 98u);
}

TEST(AssignIdsTest, ACollisionGoesToTheNextFreeIdInNameOrder)
{
    // "b" and "c" hash to the slot "a" holds: the one sorting first takes
    // the next free ID, whatever order the set was filled in.
    const auto hash = [](const std::string& name) { return name == "d" ? 11u : 10u; };
    const auto ids = AssignIds<std::string>({"c", "d", "b", "a"}, hash);
    EXPECT_EQ(ids.at("a"), 10u);
    EXPECT_EQ(ids.at("b"), 11u);
    EXPECT_EQ(ids.at("c"), 12u);
    EXPECT_EQ(ids.at("d"), 13u);  // its own 11 was taken by "b" before it
}

TEST(AssignIdsTest, NeitherTheNoEntryIdNorZeroIsGivenAndProbingWraps)
{
    const auto ids = AssignIds<std::string>({"a", "b", "c"}, [](const std::string&) { return 0xFFFFFFFEu; });
    EXPECT_EQ(ids.at("a"), 0xFFFFFFFEu);
    EXPECT_EQ(ids.at("b"), 1u);
    EXPECT_EQ(ids.at("c"), 2u);
    EXPECT_EQ(AssignIds<std::string>({"z"}, [](const std::string&) { return 0u; }).at("z"), 1u);
}
