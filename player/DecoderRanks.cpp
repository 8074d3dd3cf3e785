#include "player/DecoderRanks.h"

#include "core/Logger.h"
#include "player/GstHandles.h"

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
    const GstObjectPtr<GstPluginFeature> preferred(gst_registry_lookup_feature(registry, kPreferred));
    const GstObjectPtr<GstPluginFeature> costlier(gst_registry_lookup_feature(registry, kCostlier));
    if (!preferred || !costlier) {
        return false;
    }
    const guint above = gst_plugin_feature_get_rank(costlier.get()) + 1;
    if (gst_plugin_feature_get_rank(preferred.get()) >= above) {
        return false;
    }
    gst_plugin_feature_set_rank(preferred.get(), above);
    return true;
}
