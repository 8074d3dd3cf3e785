#include "player/DecoderRanks.h"

#include "core/Logger.h"

#include <gst/gst.h>

#include <cstdlib>
#include <cstring>

namespace {
constexpr const char* kLogSource = "DecoderRanks";
constexpr const char* kPreferred = "mpg123audiodec";
constexpr const char* kCostlier = "avdec_mp3";

// True when the environment already ranks one of the two decoders.
bool RankedByEnvironment()
{
    const char* ranks = std::getenv("GST_PLUGIN_FEATURE_RANK");
    return ranks != nullptr && (std::strstr(ranks, kPreferred) != nullptr || std::strstr(ranks, kCostlier) != nullptr);
}
}  // namespace

bool PreferCheaperDecoders()
{
    if (RankedByEnvironment()) {
        LOG(LOG_INFO, "MP3 decoder ranks left to GST_PLUGIN_FEATURE_RANK\n");
        return false;
    }
    GstRegistry* registry = gst_registry_get();
    GstPluginFeature* preferred = gst_registry_lookup_feature(registry, kPreferred);
    GstPluginFeature* costlier = gst_registry_lookup_feature(registry, kCostlier);
    bool changed = false;
    if (preferred != nullptr && costlier != nullptr) {
        const guint above = gst_plugin_feature_get_rank(costlier) + 1;
        if (gst_plugin_feature_get_rank(preferred) < above) {
            gst_plugin_feature_set_rank(preferred, above);
            changed = true;
        }
    }
    if (preferred != nullptr) {
        gst_object_unref(preferred);
    }
    if (costlier != nullptr) {
        gst_object_unref(costlier);
    }
    return changed;
}
