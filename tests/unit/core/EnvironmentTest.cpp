#include "core/Environment.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(EnvironmentTest, DefaultsWithoutVariables)
{
    unsetenv("USBMEDIA_ROOT");
    unsetenv("USBMEDIA_AUDIO_SINK");
    unsetenv("USBMEDIA_PORT");
    EXPECT_EQ(SystemPath("/mnt/usb-stick1"), "/mnt/usb-stick1");
    EXPECT_EQ(AudioSinkDescription(), "alsasink");
    EXPECT_EQ(RpcPort(), 8885);
}

TEST(EnvironmentTest, RootIsPrefixedWithoutDoubleSlash)
{
    setenv("USBMEDIA_ROOT", "/tmp/demo/", 1);
    EXPECT_EQ(SystemPath("/mnt"), "/tmp/demo/mnt");
    setenv("USBMEDIA_ROOT", "/tmp/demo", 1);
    EXPECT_EQ(SystemPath("/home/root/art_dump"), "/tmp/demo/home/root/art_dump");
    unsetenv("USBMEDIA_ROOT");
}

TEST(EnvironmentTest, SinkAndPortOverrides)
{
    setenv("USBMEDIA_AUDIO_SINK", "fakesink sync=true", 1);
    setenv("USBMEDIA_PORT", "9001", 1);
    EXPECT_EQ(AudioSinkDescription(), "fakesink sync=true");
    EXPECT_EQ(RpcPort(), 9001);
    setenv("USBMEDIA_PORT", "not-a-port", 1);
    EXPECT_EQ(RpcPort(), 8885);
    setenv("USBMEDIA_PORT", "70000", 1);
    EXPECT_EQ(RpcPort(), 8885);
    unsetenv("USBMEDIA_AUDIO_SINK");
    unsetenv("USBMEDIA_PORT");
}

TEST(EnvironmentTest, StateDirectoryFromSystemdOrUnderTheRoot)
{
    unsetenv("STATE_DIRECTORY");
    unsetenv("USBMEDIA_ROOT");
    EXPECT_EQ(StateDirectory(), "/var/lib/usb-media-service");
    setenv("USBMEDIA_ROOT", "/tmp/demo", 1);
    EXPECT_EQ(StateDirectory(), "/tmp/demo/var/lib/usb-media-service");
    // systemd's own choice wins; of several folders the first is ours.
    setenv("STATE_DIRECTORY", "/var/lib/usb-media-service", 1);
    EXPECT_EQ(StateDirectory(), "/var/lib/usb-media-service");
    setenv("STATE_DIRECTORY", "/var/lib/a:/var/lib/b", 1);
    EXPECT_EQ(StateDirectory(), "/var/lib/a");
    unsetenv("STATE_DIRECTORY");
    unsetenv("USBMEDIA_ROOT");
}

TEST(EnvironmentTest, AudioFormatsSettingAsSet)
{
    unsetenv("USBMEDIA_FORMATS");
    EXPECT_EQ(AudioFormatsSetting(), "");
    setenv("USBMEDIA_FORMATS", "", 1);
    EXPECT_EQ(AudioFormatsSetting(), "");
    setenv("USBMEDIA_FORMATS", " mp3, FLAC ", 1);
    EXPECT_EQ(AudioFormatsSetting(), " mp3, FLAC ");
    unsetenv("USBMEDIA_FORMATS");
}
