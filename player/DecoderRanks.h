#pragma once

// Decoder choices made at start-up, after gst_init().
//
// MP3: with gstreamer1.0-libav installed, decodebin picks avdec_mp3 over
// mpg123audiodec (equal rank, and the names sort that way), though mpg123
// decodes the same audio (same duration, same samples) for about a third of
// the CPU on the head unit. The service ranks mpg123audiodec just above
// avdec_mp3, unless GST_PLUGIN_FEATURE_RANK names either of them: GStreamer
// applies that variable inside gst_init(), and it keeps the last word.
//
// Returns true when it changed a rank. Safe to call more than once.
bool PreferCheaperDecoders();
