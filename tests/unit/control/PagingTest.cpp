// Which records a browse or search page carries.
#include "control/Paging.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

namespace {
std::vector<size_t> Positions(const SBrowsePage& page)
{
    std::vector<size_t> positions;
    for (size_t i = page.begin; i < page.end; ++i) {
        positions.push_back(i);
    }
    return positions;
}
}  // namespace

TEST(BrowsePageTest, PageInsideTheList)
{
    const SBrowsePage page = BrowsePage(25, 20, 10);
    EXPECT_EQ(page.currIndex, 20u);
    EXPECT_EQ(Positions(page), (std::vector<size_t>{20, 21, 22, 23, 24}));
}

TEST(BrowsePageTest, StartIndexModuloTheSize)
{
    const SBrowsePage page = BrowsePage(25, 47, 10);
    EXPECT_EQ(page.currIndex, 22u);
    EXPECT_EQ(Positions(page), (std::vector<size_t>{22, 23, 24}));
}

TEST(BrowsePageTest, NegativeStartCountsFromTheEnd)
{
    SBrowsePage page = BrowsePage(25, -1, 10);
    EXPECT_EQ(page.currIndex, 24u);
    EXPECT_EQ(Positions(page), (std::vector<size_t>{24}));
    page = BrowsePage(25, -26, 10);
    EXPECT_EQ(page.currIndex, 24u);
    page = BrowsePage(25, INT_MIN, 10);
    EXPECT_EQ(page.currIndex, static_cast<uint32_t>(((static_cast<long long>(INT_MIN) % 25) + 25) % 25));
}

TEST(BrowsePageTest, AListThatFitsIsSentWholeFromZero)
{
    for (const int start : {0, 3, 4, 5, 99, -1}) {
        const SBrowsePage page = BrowsePage(5, start, 10);
        EXPECT_EQ(page.currIndex, 0u) << start;
        EXPECT_EQ(Positions(page), (std::vector<size_t>{0, 1, 2, 3, 4})) << start;
    }
    const SBrowsePage exact = BrowsePage(5, 2, 5);
    EXPECT_EQ(exact.currIndex, 0u);
    EXPECT_EQ(Positions(exact).size(), 5u);
}

TEST(BrowsePageTest, PageNeverWrapsToTheStart)
{
    const SBrowsePage page = BrowsePage(25, 23, 10);
    EXPECT_EQ(Positions(page), (std::vector<size_t>{23, 24}));
}

TEST(BrowsePageTest, ZeroItemCountSendsNothingFromTheReducedStart)
{
    const SBrowsePage page = BrowsePage(25, 28, 0);
    EXPECT_EQ(page.currIndex, 3u);
    EXPECT_TRUE(Positions(page).empty());
}

TEST(BrowsePageTest, NegativeItemCountBelowTheStartSendsNothing)
{
    const SBrowsePage page = BrowsePage(25, 10, -3);
    EXPECT_EQ(page.currIndex, 10u);
    EXPECT_TRUE(Positions(page).empty());
}

TEST(BrowsePageTest, NegativeItemCountNeverSendsEntries)
{
    // A non-positive page size sends nothing, however the start and the
    // count add up; "currIndex" is still the reduced start.
    const SBrowsePage page = BrowsePage(25, 0, -1);
    EXPECT_EQ(page.currIndex, 0u);
    EXPECT_TRUE(Positions(page).empty());
    const SBrowsePage tail = BrowsePage(25, 22, -30);
    EXPECT_EQ(tail.currIndex, 22u);
    EXPECT_TRUE(Positions(tail).empty());
    EXPECT_TRUE(Positions(BrowsePage(25, 20, -5)).empty());
    EXPECT_TRUE(Positions(BrowsePage(25, 3, INT_MIN)).empty());
}

TEST(BrowsePageTest, HugeItemCountDoesNotOverflow)
{
    const SBrowsePage page = BrowsePage(25, 20, INT_MAX);
    EXPECT_EQ(page.currIndex, 0u);
    EXPECT_EQ(Positions(page).size(), 25u);
}

TEST(BrowsePageTest, EmptyList)
{
    SBrowsePage page = BrowsePage(0, 0, 10);
    EXPECT_EQ(page.currIndex, 0u);
    EXPECT_TRUE(Positions(page).empty());
    page = BrowsePage(0, 7, 10);
    EXPECT_EQ(page.currIndex, 0u);
    EXPECT_TRUE(Positions(page).empty());
    // A negative count is below the empty size: the start stays unreduced.
    page = BrowsePage(0, 7, -1);
    EXPECT_EQ(page.currIndex, 7u);
    EXPECT_TRUE(Positions(page).empty());
}

TEST(ReducedStartTest, Values)
{
    EXPECT_EQ(ReducedStart(25, 47), 22);
    EXPECT_EQ(ReducedStart(25, -1), 24);
    EXPECT_EQ(ReducedStart(25, -25), 0);
    EXPECT_EQ(ReducedStart(0, -4), -4);
    EXPECT_EQ(ReducedStart(1, 12345), 0);
}

TEST(SearchPageTest, PageWrapsAroundTheList)
{
    const SSearchPage page = SearchPage(5, 3, 4);
    EXPECT_EQ(page.currIndex, 3u);
    EXPECT_EQ(page.positions, (std::vector<size_t>{3, 4, 0, 1}));
}

TEST(SearchPageTest, StartModuloAndNegative)
{
    const SSearchPage page = SearchPage(5, -1, 2);
    EXPECT_EQ(page.currIndex, 4u);
    EXPECT_EQ(page.positions, (std::vector<size_t>{4, 0}));
}

TEST(SearchPageTest, ListThatFitsIsSentWholeFromZero)
{
    const SSearchPage page = SearchPage(3, 2, 3);
    EXPECT_EQ(page.currIndex, 0u);
    EXPECT_EQ(page.positions, (std::vector<size_t>{0, 1, 2}));
}

TEST(SearchPageTest, NegativeCountIsHugeUnsignedSoTheWholeListGoes)
{
    const SSearchPage page = SearchPage(4, 2, -1);
    EXPECT_EQ(page.currIndex, 0u);
    EXPECT_EQ(page.positions.size(), 4u);
}

TEST(SearchPageTest, ZeroCountSendsNothing)
{
    const SSearchPage page = SearchPage(4, 6, 0);
    EXPECT_EQ(page.currIndex, 2u);
    EXPECT_TRUE(page.positions.empty());
}

TEST(SearchPageTest, EmptyList)
{
    const SSearchPage page = SearchPage(0, 3, 10);
    EXPECT_EQ(page.currIndex, 0u);
    EXPECT_TRUE(page.positions.empty());
}
