// The search keys held in memory: every row whose key holds the text, once
// and in list order, and never a match made of the end of one key and the
// start of the next.
#include "library/SearchKeys.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

TEST(SearchKeysTest, EveryRowWhoseKeyHoldsTheTextOnceInListOrder)
{
    CSearchKeys keys;
    keys.Add("cafe noir", 30);
    keys.Add("le cafe du cafe", 10);
    keys.Add("the", 20);
    keys.Add("cafe", 40);
    EXPECT_EQ(keys.RowsHolding("cafe"), (std::vector<int64_t>{30, 10, 40}));
    EXPECT_EQ(keys.RowsHolding("e"), (std::vector<int64_t>{30, 10, 20, 40}));
    EXPECT_TRUE(keys.RowsHolding("noir le").empty());
}

TEST(SearchKeysTest, NoMatchSpansTwoKeys)
{
    CSearchKeys keys;
    keys.Add("ab", 1);
    keys.Add("cd", 2);
    EXPECT_TRUE(keys.RowsHolding("bc").empty());
    EXPECT_EQ(keys.RowsHolding("d"), (std::vector<int64_t>{2}));
    keys.Clear();
    EXPECT_TRUE(keys.RowsHolding("a").empty());
}
