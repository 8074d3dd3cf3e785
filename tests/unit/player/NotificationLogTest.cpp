// A notification with no request server to send it through: dropped, with
// the warning record the player is known by.
#include "player/UsbMediaPlayer.h"

#include "core/Logger.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

using testing_support::ReadFile;
using testing_support::TempDir;

TEST(NotificationLogTest, NotificationBeforeTheServerExistsLogsItsLine)
{
    const TempDir directory;
    const std::string logPath = directory / "log.txt";
    CLogger& logger = CLogger::GetInstance();
    logger.SetLevel(LOG_WARN);
    ASSERT_TRUE(logger.OpenFile(logPath.c_str()));
    CUsbMediaPlayer::GetInstance().SetRepeatMode(REPEAT_ALL);
    logger.CloseFile();
    EXPECT_NE(ReadFile(logPath).find("[WARN ][CUsbMediaPlayer:1863]\n\tm_pTcpServer = NULL\n"), std::string::npos)
        << ReadFile(logPath);
    EXPECT_EQ(CUsbMediaPlayer::GetInstance().GetRepeatMode(), REPEAT_ALL);
}
