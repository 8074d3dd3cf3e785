// indexUsbStorage reports the player's status when it finds nothing, and
// the index itself does not clear that status first: what an earlier
// operation left there is what the client reads.

#include "tests/integration/DeviceFixture.h"

#include <gtest/gtest.h>

using device_test::DeviceTest;

namespace {
class StaleStatusTest : public DeviceTest {};
}  // namespace

TEST_F(StaleStatusTest, EarlierFailureSurfacesInIndexUsbStorageError)
{
    StartDaemon();
    const Json::Value play = Call("playUSB");
    ASSERT_EQ(play["error"]["code"].asInt(), -1) << play.toStyledString();

    const Json::Value reply = Index(Stick2());  // mounted, but holds no media
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["code"].asInt(), -1) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["message"].asString(), "E: No Song to play!") << reply.toStyledString();
}
