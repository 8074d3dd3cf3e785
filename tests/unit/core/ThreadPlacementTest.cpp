// A thread's nice value, and a split of cores between a thread and its
// helpers that gives the first thread its cores back at its end.
#include "core/ThreadPlacement.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <thread>

namespace {
cpu_set_t Allowed()
{
    cpu_set_t cores{};
    sched_getaffinity(0, sizeof cores, &cores);
    return cores;
}
}  // namespace

TEST(ThreadPlacementTest, AThreadsNicenessIsItsOwn)
{
    const int mine = ThisThreadNiceness();
    int helpers = mine;
    std::thread([&helpers] {
        SetThisThreadNiceness(ThisThreadNiceness() + 1);
        helpers = ThisThreadNiceness();
    }).join();
    EXPECT_EQ(helpers, mine < 19 ? mine + 1 : 19);
    EXPECT_EQ(ThisThreadNiceness(), mine);
}

TEST(ThreadPlacementTest, TheHelperRunsOffTheFirstThreadsCoreWhichGetsItsCoresBack)
{
    const cpu_set_t before = Allowed();
    {
        const CCoreSplit cores;
        const cpu_set_t first = Allowed();
        cpu_set_t helper{};
        std::thread([&] {
            cores.KeepOffFirstCore();
            helper = Allowed();
        }).join();
        if (CPU_COUNT(&before) < 2) {
            EXPECT_TRUE(CPU_EQUAL(&first, &before)) << "one core: nothing to split";
            EXPECT_TRUE(CPU_EQUAL(&helper, &before));
        } else {
            EXPECT_EQ(CPU_COUNT(&first), 1);
            cpu_set_t both{};
            CPU_AND(&both, &first, &helper);
            EXPECT_EQ(CPU_COUNT(&both), 0) << "the helper shares the first thread's core";
            EXPECT_EQ(CPU_COUNT(&helper), CPU_COUNT(&before) - 1);
        }
    }
    const cpu_set_t after = Allowed();
    EXPECT_TRUE(CPU_EQUAL(&after, &before));
}
