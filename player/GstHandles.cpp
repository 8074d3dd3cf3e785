#include "player/GstHandles.h"

void GstPipelineRelease::operator()(GstElement* pipeline) const
{
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
}

void GstSampleUnref::operator()(GstSample* sample) const
{
    gst_sample_unref(sample);
}
