// Which names count as audio, and how a USBMEDIA_FORMATS setting is read:
// the default must take exactly the names the fixed ".mp3"/".wma"/".wav"
// rule took, whatever else the setting allows.
#include "library/AudioFormats.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// The rule the walk applied before the extensions could be chosen.
bool FixedRule(const std::string& name)
{
    if (name.size() < 5 || name[0] == '.') {
        return false;
    }
    std::string last = name.substr(name.size() - 4);
    for (char& c : last) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return last == ".mp3" || last == ".wma" || last == ".wav";
}

std::vector<std::string> Ignored(const std::string& setting)
{
    std::vector<std::string> ignored;
    CAudioFormats::Parse(setting, &ignored);
    return ignored;
}

}  // namespace

TEST(AudioFormatsTest, EmptySettingMeansTheThreeDefaults)
{
    EXPECT_EQ(CAudioFormats::Parse("").List(), "mp3,wma,wav");
    EXPECT_EQ(CAudioFormats::Parse(" , ,").List(), "mp3,wma,wav");
    EXPECT_TRUE(Ignored(" , ,").empty());
}

TEST(AudioFormatsTest, DefaultTakesExactlyWhatTheFixedRuleTook)
{
    const CAudioFormats formats = CAudioFormats::Parse("");
    const std::vector<std::string> stems = {"", "x", ".", ".hidden", "a.b", "song ", "Ä", "mp3", "a.mp3"};
    const std::vector<std::string> tails = {".mp3", ".MP3", ".Wav", ".wMa", ".wav ", ".mp3.txt", ".flac", ".mp",
                                            "mp3",  ".mp4", "..mp3", ".mp3.", "",      ".m\xc3\xa4", ".wa"};
    for (const std::string& stem : stems) {
        for (const std::string& tail : tails) {
            const std::string name = stem + tail;
            EXPECT_EQ(formats.Matches(name), FixedRule(name)) << "\"" << name << "\"";
        }
    }
    EXPECT_TRUE(formats.Matches("x.mp3"));
    EXPECT_FALSE(formats.Matches(".mp3"));
    EXPECT_FALSE(formats.Matches(std::string("a.mp3\0", 6)));
}

TEST(AudioFormatsTest, CaseAndSpacesDoNotMatter)
{
    const CAudioFormats formats = CAudioFormats::Parse(" FLAC ,\tMp3 , ogg");
    EXPECT_EQ(formats.List(), "flac,mp3,ogg");
    EXPECT_TRUE(formats.Matches("Song.FlAc"));
    EXPECT_TRUE(formats.Matches("a.OGG"));
    EXPECT_TRUE(formats.Matches("a.mp3"));
    EXPECT_FALSE(formats.Matches("a.wav"));  // not named, so not taken
    EXPECT_FALSE(formats.Matches("a.wma"));
    EXPECT_FALSE(formats.Matches(".flac"));
    EXPECT_FALSE(formats.Matches(".hidden.flac"));
    EXPECT_FALSE(formats.Matches("flac"));
}

TEST(AudioFormatsTest, BogusEntriesAreIgnoredAndTheRestKept)
{
    const std::string setting = "mp3,.flac,fl ac,ogg!,toolongext,m\xc3\xa4,opus,*";
    EXPECT_EQ(CAudioFormats::Parse(setting).List(), "mp3,opus");
    EXPECT_EQ(Ignored(setting),
              (std::vector<std::string>{".flac", "fl ac", "ogg!", "toolongext", "m\xc3\xa4", "*"}));
}

TEST(AudioFormatsTest, EightLettersOrDigitsAreTheLongestExtension)
{
    const CAudioFormats formats = CAudioFormats::Parse("abcdefgh,abcdefghi,mp2,3gp");
    EXPECT_EQ(formats.List(), "abcdefgh,mp2,3gp");
    EXPECT_TRUE(formats.Matches("x.ABCDEFGH"));
    EXPECT_FALSE(formats.Matches("x.abcdefghi"));
    EXPECT_FALSE(formats.Matches("x.abcdefg"));
    EXPECT_TRUE(formats.Matches("x.3GP"));
}

TEST(AudioFormatsTest, RepeatsCountOnce)
{
    const CAudioFormats formats = CAudioFormats::Parse("mp3,MP3, mp3 ,flac,Flac");
    EXPECT_EQ(formats.List(), "mp3,flac");
    EXPECT_EQ(formats.Count(), 2u);
    EXPECT_TRUE(Ignored("mp3,MP3, mp3 ,flac,Flac").empty());
}

TEST(AudioFormatsTest, OnlyTheFirstSixteenDistinctEntriesCount)
{
    std::string setting;
    for (int i = 0; i < 20; ++i) {
        setting += (i == 0 ? "" : ",") + std::string("e") + std::to_string(i);
    }
    setting += ",e0";  // a repeat past the cap is no new entry
    const CAudioFormats formats = CAudioFormats::Parse(setting);
    EXPECT_EQ(formats.Count(), kMaxAudioFormats);
    EXPECT_TRUE(formats.Matches("a.e15"));
    EXPECT_FALSE(formats.Matches("a.e16"));
    EXPECT_TRUE(formats.Matches("a.e0"));
    EXPECT_EQ(Ignored(setting), (std::vector<std::string>{"e16", "e17", "e18", "e19"}));
}

TEST(AudioFormatsTest, NothingUsableFallsBackToTheDefault)
{
    const std::string setting = "flac.ogg, .mp3 ,???";
    EXPECT_EQ(CAudioFormats::Parse(setting).List(), "mp3,wma,wav");
    EXPECT_EQ(Ignored(setting), (std::vector<std::string>{"flac.ogg", ".mp3", "???"}));
}

TEST(AudioFormatsTest, TheWalksTestIsTheDefaultUnderTest)
{
    if (std::getenv("USBMEDIA_FORMATS") != nullptr) {
        GTEST_SKIP() << "USBMEDIA_FORMATS is set for this run";
    }
    EXPECT_EQ(AudioFormats().List(), "mp3,wma,wav");
    EXPECT_TRUE(IsAudioFileName("Song.WAV"));
    EXPECT_FALSE(IsAudioFileName("Song.flac"));
}
