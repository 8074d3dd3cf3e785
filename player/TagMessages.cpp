// Tag messages of the playing track: title, artist and album for the track
// record, trackInfoNotification once they are known, and the cover image.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Logger.h"

#include <utility>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";

// Only the first three tag messages of a track are read; clients hear about
// the track after the second (after every one of them for ".wav" files,
// whose tags come in a single message). Every message counts, codec-only
// ones included: GStreamer posts those for every file, so a track without
// title, artist or album (or a WMA, whose container and codec tags come
// apart) is still announced, with whatever texts are known by then.
constexpr uint32_t kTagMessagesRead = 3;
constexpr uint32_t kTrackInfoMessage = 2;

// Copies one text tag into `field` when the list has it.
void ReadTextTag(const GstTagList* tags, const char* tag, const char* logText, std::string& field)
{
    gchar* raw = nullptr;
    if (!gst_tag_list_get_string(tags, tag, &raw)) {
        return;
    }
    const GCharPtr value(raw);
    LOG(LOG_INFO, "%s", logText);
    if (field != value.get()) {
        field = value.get();
    }
}

bool IsWavFileName(const std::string& name)
{
    const std::string lastFour = name.size() > 4 ? name.substr(name.size() - 4) : name;
    return lastFour == ".wav";
}

// The cover image: the preview image when there is one, else the image.
GstSamplePtr CoverImage(const GstTagList* tags)
{
    GstSample* sample = nullptr;
    if (gst_tag_list_get_sample(tags, GST_TAG_PREVIEW_IMAGE, &sample) ||
        gst_tag_list_get_sample(tags, GST_TAG_IMAGE, &sample)) {
        return GstSamplePtr(sample);
    }
    return GstSamplePtr();
}
}  // namespace

void CUsbMediaPlayer::HandleBusTagLocked(GstMessage* message)
{
    if (m_tagMessageCount >= kTagMessagesRead) {
        return;
    }
    GstTagList* raw = nullptr;
    gst_message_parse_tag(message, &raw);
    const GstTagListPtr tags(raw);
    if (!tags) {
        return;
    }
    ++m_tagMessageCount;
    ReadTextTag(tags.get(), GST_TAG_ARTIST, "Got Artist data from gst\n", m_currentTrack.m_artist);
    ReadTextTag(tags.get(), GST_TAG_TITLE, "Got title data from gst\n", m_currentTrack.m_title);
    ReadTextTag(tags.get(), GST_TAG_ALBUM, "Got Album data from gst\n", m_currentTrack.m_album);

    if (m_tagMessageCount == kTrackInfoMessage || IsWavFileName(m_currentTrack.m_name)) {
        LOG(LOG_INFO, "Sending Out TrackInfo Notification since some info was updated\n");
        QueryTrackDurationLocked();
        if (!SendTrackInfoNotificationLocked()) {
            return;  // nobody listens: the track has stopped and its image is of no use
        }
    }

    GstSamplePtr image = CoverImage(tags.get());
    if (!image) {
        return;  // the image already held stays
    }
    m_albumArt.Hold(std::move(image));
}
