#pragma once

// Owning handles for the GStreamer and GLib objects the player holds, so
// every reference taken is released on every path.

#include "player/GstOwners.h"

#include <gst/gst.h>

#include <memory>

struct GstObjectUnref {
    void operator()(gpointer object) const { gst_object_unref(object); }
};

// A GstObject reference. Wrap only references that are ours: results of
// gst_*_get_* calls, or floating objects after gst_object_ref_sink.
template <typename T>
using GstObjectPtr = std::unique_ptr<T, GstObjectUnref>;

using GstElementPtr = GstObjectPtr<GstElement>;
using GstBusPtr = GstObjectPtr<GstBus>;
using GstPadPtr = GstObjectPtr<GstPad>;

struct GstCapsUnref {
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
};
using GstCapsPtr = std::unique_ptr<GstCaps, GstCapsUnref>;

struct GstTagListUnref {
    void operator()(GstTagList* tags) const { gst_tag_list_unref(tags); }
};
using GstTagListPtr = std::unique_ptr<GstTagList, GstTagListUnref>;

struct GErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};
using GErrorPtr = std::unique_ptr<GError, GErrorFree>;

struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};
using GCharPtr = std::unique_ptr<gchar, GFree>;

// Takes ownership of a newly made, possibly floating, element.
inline GstElementPtr AdoptElement(GstElement* element)
{
    return GstElementPtr(element != nullptr ? GST_ELEMENT(gst_object_ref_sink(element)) : nullptr);
}
