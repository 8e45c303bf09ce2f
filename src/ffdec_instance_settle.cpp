#include "ffdec_instance_settle.h"

#include <algorithm>
#include <iterator>

namespace ff {

namespace {

struct SettleTime {
    AVCodecID codec;
    int samples;
};

// Generous: a frame too many costs little, one too few costs exactness.
constexpr SettleTime kSettleTimes[] = {
    {AV_CODEC_ID_AAC, 4 * 2048},       // overlap of one frame; with SBR a frame has 2048 samples
    {AV_CODEC_ID_AAC_LATM, 4 * 2048},  //
    {AV_CODEC_ID_MP3, 12 * 1152},      // the bit reservoir: 511 bytes are 10 frames at 8 kbit/s
    {AV_CODEC_ID_MP2, 2 * 1152},       // the filter bank's memory
    {AV_CODEC_ID_AC3, 4 * 1536},       // overlap
    {AV_CODEC_ID_EAC3, 4 * 1536},      //
    {AV_CODEC_ID_VORBIS, 2 * 8192},    // overlap of blocks of up to 8192
    {AV_CODEC_ID_OPUS, 3840},          // 80 ms at 48 kHz, as its container format asks
    {AV_CODEC_ID_WMAV1, 8 * 2048},     // the bit reservoir of superframes
    {AV_CODEC_ID_WMAV2, 8 * 2048},     //
    {AV_CODEC_ID_AMR_NB, 100 * 160},   // predictors that forget slowly
    {AV_CODEC_ID_AMR_WB, 100 * 320},   //
};

// For codecs that are not in the table but do not keep every sample either.
constexpr int kUnknownLossy = 4 * 2048;

bool forgets_at_once(AVCodecID codec) {
    const AVCodecDescriptor* const descriptor = avcodec_descriptor_get(codec);
    return descriptor != nullptr && (descriptor->props & AV_CODEC_PROP_LOSSY) == 0;
}

}  // namespace

std::int64_t samples_to_settle(const AVCodecParameters& parameters) {
    const std::int64_t told = std::max(0, parameters.seek_preroll);
    const auto* const known =
        std::find_if(std::begin(kSettleTimes), std::end(kSettleTimes),
                     [&](const SettleTime& time) { return time.codec == parameters.codec_id; });
    if (known != std::end(kSettleTimes)) {
        return std::max<std::int64_t>(told, known->samples);
    }
    return forgets_at_once(parameters.codec_id) ? told
                                                : std::max<std::int64_t>(told, kUnknownLossy);
}

}  // namespace ff
