#pragma once

// The GStreamer types the player's header names, declared without
// GStreamer's own headers, and the two owning handles it holds as members:
// the control layer includes the player header and need not compile
// GStreamer. The deleters are defined in GstHandles.cpp.

#include <memory>

typedef struct _GstBus GstBus;
typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;
typedef struct _GstSample GstSample;

// The top-level pipeline: brought to the NULL state (which stops its
// streaming threads) before the last reference goes.
struct GstPipelineRelease {
    void operator()(GstElement* pipeline) const;
};
using GstPipelinePtr = std::unique_ptr<GstElement, GstPipelineRelease>;

struct GstSampleUnref {
    void operator()(GstSample* sample) const;
};
using GstSamplePtr = std::unique_ptr<GstSample, GstSampleUnref>;
