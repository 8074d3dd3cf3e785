#pragma once

#include <gst/gst.h>

// How much audio a decoder hands on per buffer.
//
// A compressed MP3 frame holds 26 ms of audio; decoded one buffer per frame,
// the sink waits on the clock and the streaming thread wakes up 38 times a
// second. Batched to 100 ms, the same samples take a quarter of the buffers
// and about a third of the CPU of playback (bench/run). GStreamer's decoder
// base class batches only behind an element that answers latency queries
// (MP3's parser does, WMA's demuxer does not), and never for live sources.
constexpr gint64 kDecoderOutputNs = 100 * GST_MSECOND;

// Makes every audio decoder `decodebin` adds hand on buffers of at least
// kDecoderOutputNs (the last one of a stream may be shorter).
void BatchDecoderOutput(GstElement* decodebin);
