// The MP3 decoder the service prefers (player/DecoderRanks.cpp): mpg123audiodec
// must give the same audio as libav's avdec_mp3 (same sample count, same
// duration), and decodebin must pick it once the ranks are set, unless
// GST_PLUGIN_FEATURE_RANK says otherwise. The service's decodebin also hands
// on decoded MP3 in buffers of at least 100 ms (player/DecoderOutput.cpp):
// the same samples, in fewer buffers.
#include "player/DecoderOutput.h"
#include "player/DecoderRanks.h"

#include "tests/support/MediaFactory.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>

using testing_support::MediaFactory;

namespace {

struct SDecoded {
    bool ok = false;
    std::string error;
    int rate = 0;
    int channels = 0;
    uint64_t bytes = 0;
    int64_t endNs = -1;  // end of the last buffer
    int buffers = 0;
    int64_t shortestButLastNs = -1;  // the shortest buffer before the last one
    int64_t lastDurationNs = -1;
    std::string decoder;  // the factory decodebin chose (decodebin runs only)

    uint64_t Samples() const { return channels > 0 ? bytes / (2u * static_cast<uint64_t>(channels)) : 0; }
};

// What the streaming threads fill in while the test thread waits on the bus.
// GStreamer's own locks order the two, but ThreadSanitizer cannot see them
// inside uninstrumented GLib, so the record has a lock of its own.
struct SDecodeRun {
    std::mutex mutex;
    SDecoded decoded;  // guarded by mutex
};

void OnHandoff(GstElement*, GstBuffer* buffer, GstPad* pad, gpointer data)
{
    auto* run = static_cast<SDecodeRun*>(data);
    const std::lock_guard<std::mutex> lock(run->mutex);
    SDecoded* decoded = &run->decoded;
    if (decoded->channels == 0) {
        GstCaps* caps = gst_pad_get_current_caps(pad);
        if (caps != nullptr) {
            const GstStructure* structure = gst_caps_get_structure(caps, 0);
            gst_structure_get_int(structure, "rate", &decoded->rate);
            gst_structure_get_int(structure, "channels", &decoded->channels);
            gst_caps_unref(caps);
        }
    }
    decoded->bytes += gst_buffer_get_size(buffer);
    ++decoded->buffers;
    if (decoded->lastDurationNs >= 0 &&
        (decoded->shortestButLastNs < 0 || decoded->lastDurationNs < decoded->shortestButLastNs)) {
        decoded->shortestButLastNs = decoded->lastDurationNs;
    }
    decoded->lastDurationNs =
        GST_BUFFER_DURATION_IS_VALID(buffer) ? static_cast<int64_t>(GST_BUFFER_DURATION(buffer)) : -1;
    if (GST_BUFFER_PTS_IS_VALID(buffer) && GST_BUFFER_DURATION_IS_VALID(buffer)) {
        decoded->endNs = static_cast<int64_t>(GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer));
    }
}

// The audio decoder inside a decodebin, found by its class.
void OnElementAdded(GstBin*, GstElement* element, gpointer data)
{
    GstElementFactory* factory = gst_element_get_factory(element);
    if (factory == nullptr) {
        return;
    }
    const gchar* klass = gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS);
    if (klass != nullptr && g_strrstr(klass, "Decoder") != nullptr && g_strrstr(klass, "Audio") != nullptr) {
        auto* run = static_cast<SDecodeRun*>(data);
        const std::lock_guard<std::mutex> lock(run->mutex);
        run->decoded.decoder = GST_OBJECT_NAME(factory);
    }
}

// Decodes `file` to 16-bit interleaved PCM with `decoder` ("decodebin" or an
// MP3 decoder after mpegaudioparse) and counts what comes out. `batched`
// applies the service's decoder output setting to the decodebin.
SDecoded Decode(const std::string& file, const std::string& decoder, bool batched = false)
{
    const std::string middle = decoder == "decodebin" ? "decodebin name=dec" : "mpegaudioparse ! " + decoder;
    const std::string description = "filesrc location=\"" + file + "\" ! " + middle +
                                    " ! audioconvert ! audio/x-raw,format=S16LE,layout=interleaved"
                                    " ! fakesink name=out signal-handoffs=true";
    SDecodeRun run;
    SDecoded& decoded = run.decoded;  // only this thread touches it before the pipeline runs
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (error != nullptr) {
        decoded.error = error->message;
        g_error_free(error);
        if (pipeline != nullptr) {
            gst_object_unref(pipeline);
        }
        return decoded;
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    g_signal_connect(sink, "handoff", G_CALLBACK(OnHandoff), &run);
    gst_object_unref(sink);
    if (GstElement* bin = gst_bin_get_by_name(GST_BIN(pipeline), "dec")) {
        if (batched) {
            BatchDecoderOutput(bin);
        }
        g_signal_connect(bin, "deep-element-added",
                         G_CALLBACK(+[](GstBin* self, GstBin*, GstElement* element, gpointer data) {
                             OnElementAdded(self, element, data);
                         }),
                         &run);
        gst_object_unref(bin);
    }
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, 120 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    gst_element_set_state(pipeline, GST_STATE_NULL);  // no streaming thread runs past this
    const std::lock_guard<std::mutex> lock(run.mutex);
    if (message == nullptr) {
        decoded.error = "no end of stream within 120 s";
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        GError* failure = nullptr;
        gst_message_parse_error(message, &failure, nullptr);
        decoded.error = failure != nullptr ? failure->message : "error";
        g_clear_error(&failure);
    } else {
        decoded.ok = true;
    }
    if (message != nullptr) {
        gst_message_unref(message);
    }
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    return decoded;
}

bool HasFeature(const char* name)
{
    GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), name);
    if (feature == nullptr) {
        return false;
    }
    gst_object_unref(feature);
    return true;
}

guint Rank(const char* name)
{
    GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), name);
    const guint rank = feature != nullptr ? gst_plugin_feature_get_rank(feature) : 0;
    if (feature != nullptr) {
        gst_object_unref(feature);
    }
    return rank;
}

class DecoderChoiceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        gst_init(nullptr, nullptr);
        if (!HasFeature("mpg123audiodec") || !HasFeature("avdec_mp3")) {
            GTEST_SKIP() << "needs both mpg123audiodec (gstreamer1.0-plugins-good) and avdec_mp3 (gstreamer1.0-libav)";
        }
    }
};

// The decoders run inside this test process here, not in the daemon, and
// ThreadSanitizer reports GLib's hand-over of buffers between its streaming
// and calling threads as races it cannot see ordered. The normal and ASan
// builds run these comparisons; the daemon's own decoding runs under every build.
#if defined(__SANITIZE_THREAD__)
#define SKIP_IN_PROCESS_DECODING() GTEST_SKIP() << "in-process decoding is not checked under ThreadSanitizer"
#else
#define SKIP_IN_PROCESS_DECODING() static_cast<void>(0)
#endif
}  // namespace

TEST_F(DecoderChoiceTest, BothMp3DecodersGiveTheSameAudio)
{
    SKIP_IN_PROCESS_DECODING();
    const std::string files[] = {
        MediaFactory::Mp3(5.0, "Title", "Artist", "Album"),                  // mono, ID3v2 tag
        MediaFactory::Encode("decoders-stereo.mp3", 7.3, {"lamemp3enc"}),  // stereo, no tag
    };
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        const SDecoded mpg123 = Decode(file, "mpg123audiodec");
        const SDecoded libav = Decode(file, "avdec_mp3");
        ASSERT_TRUE(mpg123.ok) << mpg123.error;
        ASSERT_TRUE(libav.ok) << libav.error;
        EXPECT_GT(mpg123.Samples(), 0u);
        EXPECT_EQ(mpg123.rate, libav.rate);
        EXPECT_EQ(mpg123.channels, libav.channels);
        EXPECT_EQ(mpg123.Samples(), libav.Samples());
        EXPECT_EQ(mpg123.endNs, libav.endNs);
        // The duration the samples make up matches the buffers' time stamps.
        ASSERT_GT(mpg123.rate, 0);
        const int64_t samplesNs = static_cast<int64_t>(gst_util_uint64_scale(
            mpg123.Samples(), GST_SECOND, static_cast<guint64>(mpg123.rate)));
        EXPECT_NEAR(static_cast<double>(mpg123.endNs), static_cast<double>(samplesNs), 1e6);
    }
}

TEST_F(DecoderChoiceTest, ServicePrefersMpg123)
{
    unsetenv("GST_PLUGIN_FEATURE_RANK");
    PreferCheaperDecoders();
    EXPECT_GT(Rank("mpg123audiodec"), Rank("avdec_mp3"));
    EXPECT_FALSE(PreferCheaperDecoders()) << "a second call changes nothing";
    SKIP_IN_PROCESS_DECODING();
    const SDecoded decoded = Decode(MediaFactory::Mp3(2.0), "decodebin");
    ASSERT_TRUE(decoded.ok) << decoded.error;
    EXPECT_EQ(decoded.decoder, "mpg123audiodec");
}

TEST_F(DecoderChoiceTest, BatchedOutputGivesTheSameAudioInBuffersOfAtLeastATenthOfASecond)
{
    SKIP_IN_PROCESS_DECODING();
    unsetenv("GST_PLUGIN_FEATURE_RANK");
    PreferCheaperDecoders();
    const std::string file = MediaFactory::Mp3(5.0, "Title", "Artist", "Album");
    const SDecoded plain = Decode(file, "decodebin");
    const SDecoded batched = Decode(file, "decodebin", true);
    ASSERT_TRUE(plain.ok) << plain.error;
    ASSERT_TRUE(batched.ok) << batched.error;
    EXPECT_EQ(batched.decoder, plain.decoder);
    EXPECT_EQ(batched.Samples(), plain.Samples());
    EXPECT_EQ(batched.endNs, plain.endNs);
    EXPECT_LT(plain.shortestButLastNs, kDecoderOutputNs) << "a compressed frame holds less than the batch";
    EXPECT_GE(batched.shortestButLastNs, kDecoderOutputNs);
    EXPECT_LE(batched.buffers * 3, plain.buffers) << "at least three times fewer buffers";
}

// GStreamer batches only behind an element that answers latency queries;
// asfdemux does not, so WMA comes out as before: same audio, same buffers.
TEST_F(DecoderChoiceTest, BatchedOutputLeavesWmaAsItWas)
{
    SKIP_IN_PROCESS_DECODING();
    const std::string file = MediaFactory::Wma(3.0);
    const SDecoded plain = Decode(file, "decodebin");
    const SDecoded batched = Decode(file, "decodebin", true);
    ASSERT_TRUE(plain.ok) << plain.error;
    ASSERT_TRUE(batched.ok) << batched.error;
    EXPECT_GT(batched.Samples(), 0u);
    EXPECT_EQ(batched.Samples(), plain.Samples());
    EXPECT_EQ(batched.endNs, plain.endNs);
    EXPECT_LE(batched.buffers, plain.buffers);
}

TEST_F(DecoderChoiceTest, FeatureRankVariableKeepsTheLastWord)
{
    const guint before = Rank("mpg123audiodec");
    setenv("GST_PLUGIN_FEATURE_RANK", "avdec_mp3:MAX", 1);
    EXPECT_FALSE(PreferCheaperDecoders());
    EXPECT_EQ(Rank("mpg123audiodec"), before);
    setenv("GST_PLUGIN_FEATURE_RANK", "mpg123audiodec:NONE,alsasink:PRIMARY", 1);
    EXPECT_FALSE(PreferCheaperDecoders());
    EXPECT_EQ(Rank("mpg123audiodec"), before);
    unsetenv("GST_PLUGIN_FEATURE_RANK");
}
