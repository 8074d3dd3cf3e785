// Byte-level cases of the two converters: how the hand-written UTF-8 decoder
// treats malformed input, and what Latin1ToUtf8 gives when iconv is not
// available.
#include "core/TextConversion.h"

#include <gtest/gtest.h>

#include <iconv.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {
// Set in the copy of this program that runs without file descriptors.
constexpr const char* kNoDescriptorsMark = "USBMEDIA_TEST_NO_DESCRIPTORS";
}  // namespace

TEST(Utf8ToLatin1BytesTest, LoneThreeByteLeadYieldsItsPayloadBits)
{
    EXPECT_EQ(Utf8ToLatin1("\xE9" "A"), std::string("\x09" "A"));
    EXPECT_EQ(Utf8ToLatin1("a\xEF"), std::string("a\x0F"));
}

TEST(Utf8ToLatin1BytesTest, LoneFourByteLeadYieldsItsPayloadBits)
{
    EXPECT_EQ(Utf8ToLatin1("\xF5" "x"), std::string("\x05" "x"));
    EXPECT_EQ(Utf8ToLatin1("x\xF7"), std::string("x\x07"));
}

TEST(Utf8ToLatin1BytesTest, CodePointsAboveTheUnicodeRangeAreDropped)
{
    // F4 90 80 80 is 0x110000, F7 BF BF BF is 0x1FFFFF.
    EXPECT_EQ(Utf8ToLatin1("a\xF4\x90\x80\x80" "b"), "ab");
    EXPECT_EQ(Utf8ToLatin1("\xF7\xBF\xBF\xBF"), "");
    // A long run of continuations keeps shifting and stays dropped.
    EXPECT_EQ(Utf8ToLatin1("c\xF7\xBF\xBF\xBF\xBF\xBF\xBF\xBF" "d"), "cd");
}

TEST(Utf8ToLatin1BytesTest, OverlongFormsDecodeToTheirValue)
{
    // C0 AF is an overlong "/": paths are matched byte for byte, so it
    // becomes the plain byte.
    EXPECT_EQ(Utf8ToLatin1("\xC0\xAF"), "/");
    EXPECT_EQ(Utf8ToLatin1("a\xC0\xAF" "b"), "a/b");
}

TEST(Utf8ToLatin1BytesTest, LeadingContinuationByteAccumulatesFromZero)
{
    // 0x80 alone decodes to 0, which ends the text.
    EXPECT_EQ(Utf8ToLatin1("\x80"), "");
    EXPECT_EQ(Utf8ToLatin1("\x80" "abc"), "");
    EXPECT_EQ(Utf8ToLatin1("\x80\x41"), std::string(""));
    EXPECT_EQ(Utf8ToLatin1("\x80\xBF" "z"), std::string("\x3F" "z"));
}

TEST(Utf8ToLatin1BytesTest, TextEndsAtTheFirstDecodedNul)
{
    // The fuzzer's input: a lone 0xE0 before a letter decodes to NUL.
    EXPECT_EQ(Utf8ToLatin1("/mnt/\xE0usb-stick2"), "/mnt/");
    EXPECT_EQ(Utf8ToLatin1("\xE0usb"), "");
    // The same from a lone 4-byte lead, a 2-byte lead and an overlong NUL.
    EXPECT_EQ(Utf8ToLatin1("ab\xF0" "cd"), "ab");
    EXPECT_EQ(Utf8ToLatin1("ab\xC0" "cd"), "ab");
    EXPECT_EQ(Utf8ToLatin1("ab\xC0\x80" "cd"), "ab");
    EXPECT_EQ(Utf8ToLatin1("ab\xE0\x80\x80" "cd"), "ab");
    // Nothing of the result is a NUL byte.
    for (int lead = 0xC0; lead <= 0xFF; ++lead) {
        const char text[] = {'x', static_cast<char>(lead), 'y', '\0'};
        EXPECT_EQ(Utf8ToLatin1(text).find('\0'), std::string::npos) << lead;
    }
}

// iconv loads its converters from files; with no file descriptor left it
// cannot open one, as on a device that ran out of descriptors. A converter
// once loaded stays loaded for the life of the process, so each check runs
// in a fresh copy of this program that never converted anything before.
namespace {
// Runs the test `name` again in a fresh copy of this program, with the mark
// set, and expects it to pass there.
void ExpectPassesInFreshCopy(const std::string& name)
{
    if (std::getenv("USBMEDIA_GUEST_ENV") != nullptr) {
        // Set by the emulator wrapper of the cross build: there /proc/self/exe
        // names the emulator, not this test, so the re-run cannot start.
        GTEST_SKIP() << "re-running the test binary is not possible under qemu-user";
    }
    const std::string filter = "--gtest_filter=" + name;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        setenv(kNoDescriptorsMark, "1", 1);
        execl("/proc/self/exe", "/proc/self/exe", filter.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the check without descriptors failed (see its output above)";
}

// Only the soft limit drops, so it can be given back before the results
// are checked (the test framework and the sanitizers need descriptors of
// their own).
class CNoDescriptors {
public:
    CNoDescriptors()
    {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &m_saved), 0);
        const rlimit none{0, m_saved.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~CNoDescriptors() { Restore(); }
    CNoDescriptors(const CNoDescriptors&) = delete;
    CNoDescriptors& operator=(const CNoDescriptors&) = delete;
    void Restore()
    {
        if (!m_restored) {
            EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &m_saved), 0);
            m_restored = true;
        }
    }

private:
    rlimit m_saved{};
    bool m_restored = false;
};
}  // namespace

TEST(Latin1ToUtf8BytesTest, GivesEmptyWhenIconvCannotOpen)
{
    if (std::getenv(kNoDescriptorsMark) == nullptr) {
        ExpectPassesInFreshCopy("Latin1ToUtf8BytesTest.GivesEmptyWhenIconvCannotOpen");
        return;
    }
    CNoDescriptors noDescriptors;
    const bool iconvOpened = iconv_open("UTF-8", "ISO8859-1") != reinterpret_cast<iconv_t>(-1);
    const bool openedAtStart = OpenTextConverters();
    const std::string accented = Latin1ToUtf8("Caf\xE9");
    const std::string plain = Latin1ToUtf8("plain");
    noDescriptors.Restore();
    ASSERT_FALSE(iconvOpened) << "iconv opened without descriptors";
    EXPECT_FALSE(openedAtStart);
    EXPECT_EQ(accented, "");
    EXPECT_EQ(plain, "");
}

TEST(Latin1ToUtf8BytesTest, ConverterOpenedAtStartServesWithoutDescriptors)
{
    if (std::getenv(kNoDescriptorsMark) == nullptr) {
        ExpectPassesInFreshCopy("Latin1ToUtf8BytesTest.ConverterOpenedAtStartServesWithoutDescriptors");
        return;
    }
    ASSERT_TRUE(OpenTextConverters());
    CNoDescriptors noDescriptors;
    const std::string accented = Latin1ToUtf8("E: Caf\xE9 not found");
    const bool openedAgain = OpenTextConverters();
    noDescriptors.Restore();
    EXPECT_EQ(accented, "E: Caf\xC3\xA9 not found");
    EXPECT_TRUE(openedAgain);  // kept, not opened again
}
