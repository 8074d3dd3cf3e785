#include "player/DecoderOutput.h"

namespace {
// Runs on a streaming thread when decodebin adds an element, before the
// element starts. The base class is looked up by name: it is registered by
// the time a decoder exists, and the service needs no link to libgstaudio.
void OnElementAdded(GstBin*, GstBin*, GstElement* element, gpointer)
{
    const GType audioDecoder = g_type_from_name("GstAudioDecoder");
    if (audioDecoder != 0 && g_type_is_a(G_OBJECT_TYPE(element), audioDecoder)) {
        g_object_set(element, "min-latency", kDecoderOutputNs, nullptr);
    }
}
}  // namespace

void BatchDecoderOutput(GstElement* decodebin)
{
    g_signal_connect(decodebin, "deep-element-added", G_CALLBACK(OnElementAdded), nullptr);
}
