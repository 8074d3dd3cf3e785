// The decoding pipeline of one track:
//   filesrc "source" ! decodebin "decoder" ~ [audiobin: audioconvert "aconv" ! sink]
// The decoder's audio pad is linked to the audio bin when it appears; its
// audio decoder hands on 100 ms buffers (DecoderOutput.h).
#include "player/UsbMediaPlayer.h"

#include "player/DecoderOutput.h"
#include "player/GstHandles.h"

#include "core/Environment.h"
#include "core/Logger.h"
#include "library/StickPaths.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";

GstCapsPtr PadCaps(GstPad* pad)
{
    GstCapsPtr caps(gst_pad_get_current_caps(pad));
    if (!caps) {
        caps.reset(gst_pad_query_caps(pad, nullptr));
    }
    return caps;
}

bool IsAudioPad(GstPad* pad)
{
    const GstCapsPtr caps = PadCaps(pad);
    if (!caps || gst_caps_get_size(caps.get()) == 0) {
        return false;
    }
    const gchar* name = gst_structure_get_name(gst_caps_get_structure(caps.get(), 0));
    return name != nullptr && g_strrstr(name, "audio") != nullptr;
}

// Runs on a streaming thread: touches only the audio bin it was given.
// Only the first audio stream is played; video and later audio stay unlinked.
void OnDecodedPadAdded(GstElement*, GstPad* pad, gpointer audioBin)
{
    if (!IsAudioPad(pad)) {
        return;
    }
    const GstPadPtr binSink(gst_element_get_static_pad(GST_ELEMENT(audioBin), "sink"));
    if (!binSink || gst_pad_is_linked(binSink.get())) {
        return;
    }
    gst_pad_link(pad, binSink.get());
}

// "alsasink", or the element description the environment names instead
// (several elements become one bin with a ghost sink pad).
GstElementPtr MakeSoundOutput()
{
    const std::string description = AudioSinkDescription();
    if (description == kDefaultAudioSink) {
        return AdoptElement(gst_element_factory_make(kDefaultAudioSink, "sink"));
    }
    GError* rawError = nullptr;
    GstElement* sink = description.find('!') == std::string::npos
                           ? gst_parse_launch(description.c_str(), &rawError)
                           : gst_parse_bin_from_description(description.c_str(), TRUE, &rawError);
    const GErrorPtr error(rawError);
    if (error) {
        LOG(LOG_WARN, "Sound output \"%s\": %s\n", description.c_str(), error->message);
    }
    GstElementPtr output = AdoptElement(sink);
    if (output) {
        gst_object_set_name(GST_OBJECT(output.get()), "sink");
    }
    return output;
}

// Adds `element` to `bin` (which takes its own reference) and returns the
// bin's element, or null when the element could not be made.
GstElement* AddTo(GstElement* bin, const GstElementPtr& element)
{
    if (!element) {
        return nullptr;
    }
    gst_bin_add(GST_BIN(bin), element.get());
    return element.get();
}

// audioconvert "aconv" ! sink in the bin "audiobin", added to `pipeline`;
// returns the pipeline's audio bin (null when it could not be made).
GstElement* AddAudioBin(GstElement* pipeline)
{
    const GstElementPtr audioBin = AdoptElement(gst_bin_new("audiobin"));
    const GstElementPtr convert = AdoptElement(gst_element_factory_make("audioconvert", "aconv"));
    const GstElementPtr sink = MakeSoundOutput();
    GstElement* const audioConvert = AddTo(audioBin.get(), convert);
    GstElement* const audioSink = AddTo(audioBin.get(), sink);
    if (audioConvert != nullptr && audioSink != nullptr) {
        gst_element_link(audioConvert, audioSink);
    }
    if (audioConvert != nullptr) {
        const GstPadPtr convertSink(gst_element_get_static_pad(audioConvert, "sink"));
        gst_element_add_pad(audioBin.get(), gst_ghost_pad_new("sink", convertSink.get()));
    }
    return AddTo(pipeline, audioBin);
}

// A new pipeline playing `location`; it owns all its elements. Without a
// location its source fails to start as for a missing file.
GstPipelinePtr BuildPipeline(const std::optional<std::string>& location)
{
    GstPipelinePtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new("pipeline"))));
    const GstElementPtr source = AdoptElement(gst_element_factory_make("filesrc", "source"));
    const GstElementPtr decoder = AdoptElement(gst_element_factory_make("decodebin", "decoder"));
    if (source && location) {
        g_object_set(source.get(), "location", location->c_str(), nullptr);
    }
    GstElement* const addedSource = AddTo(pipeline.get(), source);
    GstElement* const addedDecoder = AddTo(pipeline.get(), decoder);
    if (addedSource != nullptr && addedDecoder != nullptr) {
        gst_element_link(addedSource, addedDecoder);
    }
    GstElement* const audioBin = AddAudioBin(pipeline.get());
    if (addedDecoder != nullptr) {
        g_signal_connect(addedDecoder, "pad-added", G_CALLBACK(OnDecodedPadAdded), audioBin);
        BatchDecoderOutput(addedDecoder);
    }
    return pipeline;
}

bool IsLoadable(const CTrackInfo& track)
{
    return !track.m_isFolder && !track.m_name.empty() && !track.m_path.empty();
}
}  // namespace

bool CUsbMediaPlayer::SetTrackLocked(const CFile& file)
{
    LOG(LOG_INFO, "SetTrack\n");
    return m_currentTrack.SetFromFile(file);
}

// Loads the playlist's current entry into a new pipeline, left in the NULL
// state.
bool CUsbMediaPlayer::ResetPlayingLocked()
{
    LOG(LOG_INFO, "ResetPlaying\n");
    StopPlayingLocked();
    if (const CFile* entry = m_playlist.Current()) {
        const CFile current = *entry;
        SetTrackLocked(current);
    }
    const std::string location = m_currentTrack.m_path + "/" + m_currentTrack.m_name;
    if (!IsLoadable(m_currentTrack)) {
        SetError("No file selected to play - " + location, -4);
        return false;
    }
    LOG(LOG_INFO, "Set Pipeline - %s\n", location.c_str());
    // The file is opened where it really lies, and only on its own stick: a
    // link put on the stick in place of a listed file leads nowhere.
    m_pipeline = BuildPipeline(TrackLocation(m_currentTrack.m_path, m_currentTrack.m_name));
    const GstBusPtr bus(gst_pipeline_get_bus(GST_PIPELINE(m_pipeline.get())));
    // Removed with the pipeline (StopPlaying), so the watch id is not kept.
    gst_bus_add_watch(bus.get(), &CUsbMediaPlayer::OnBusMessage, this);
    return true;
}

bool CUsbMediaPlayer::PlayTrackLocked()
{
    LOG(LOG_INFO, "PlayTrack\n");
    if (ResetPlayingLocked()) {
        LOG(LOG_INFO, "Start GST Pipeline\n");
        // The notification may have found no client and stopped playback.
        if (SetPlayerStateLocked(STATE_PLAYING) && m_pipeline) {
            gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
        }
    }
    return GetPlayerStateLocked() == STATE_PLAYING;
}

void CUsbMediaPlayer::StopPlayingLocked()
{
    LOG(LOG_INFO, "StopPlaying\n");
    if (m_pipeline) {
        // Messages of the old pipeline are of no interest any more.
        const GstBusPtr bus(gst_pipeline_get_bus(GST_PIPELINE(m_pipeline.get())));
        gst_bus_remove_watch(bus.get());
        m_pipeline.reset();
    }
    // Stopping already: a send that finds nobody changes nothing more.
    static_cast<void>(SetPlayerStateLocked(STATE_STOPPED));
    m_currentTime = 0;
    m_currentTrack.ClearTrack();
    m_tagMessageCount = 0;
    m_albumArt.Release();
}

bool CUsbMediaPlayer::SetCurrentTrackTimeLocked()
{
    gint64 position = 0;
    if (m_pipeline && gst_element_query_position(m_pipeline.get(), GST_FORMAT_TIME, &position)) {
        m_currentTime = static_cast<uint32_t>(position / GST_SECOND);
        return true;
    }
    LOG(LOG_WARN, "SetCurrentTrackTime result is false!\n");
    return false;
}

// A duration of 0 s (not known yet) keeps the one stored.
bool CUsbMediaPlayer::QueryTrackDurationLocked()
{
    gint64 duration = 0;
    if (m_pipeline && gst_element_query_duration(m_pipeline.get(), GST_FORMAT_TIME, &duration)) {
        const gint64 seconds = duration / GST_SECOND;
        if (seconds > 0) {
            m_currentTrack.m_duration = static_cast<uint32_t>(seconds);
        }
        return true;
    }
    LOG(LOG_INFO, "USB - query duration returned false!");
    return false;
}
