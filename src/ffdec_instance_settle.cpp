#include "ffdec_instance_settle.h"

#include <algorithm>
#include <iterator>

namespace ff {

namespace {

struct CodecSettling {
    AVCodecID codec;
    int samples;
    bool has_noise;  // from a generator that runs on from the first frame of the stream
};

// Measured with fresh decoders from many packets on: how many samples pass until all that follow
// are the same, bit by bit. Generous: a frame too many costs little, one too few costs exactness.
constexpr CodecSettling kCodecs[] = {
    {AV_CODEC_ID_AAC, 4 * 2048, true},       // overlap of one frame; with SBR of 2048 samples
    {AV_CODEC_ID_AAC_LATM, 4 * 2048, true},  //
    {AV_CODEC_ID_AC3, 4 * 1536, true},       // overlap
    {AV_CODEC_ID_EAC3, 4 * 1536, true},      //
    {AV_CODEC_ID_MP3, 12 * 1152, false},     // bit reservoir: 511 bytes are 10 frames at 8 kbit/s
    {AV_CODEC_ID_MP2, 2 * 1152, true},       // the filter bank; what rounding left is carried on
    {AV_CODEC_ID_VORBIS, 2 * 8192, false},   // overlap of blocks of up to 8192
    {AV_CODEC_ID_OPUS, 96000, false},      // 36000 seen: band energies are predicted from the last
    {AV_CODEC_ID_WMAV1, 8 * 2048, false},  // the bit reservoir of superframes
    {AV_CODEC_ID_WMAV2, 8 * 2048, false},  //
    {AV_CODEC_ID_AMR_NB, 250 * 160, false},  // 71 frames seen: predictors forget slowly
    {AV_CODEC_ID_AMR_WB, 250 * 320, false},  //
};

// For codecs that are not in the table but do not keep every sample either.
constexpr int kUnknownLossy = 4 * 2048;

// Noise never settles: it is the same only after all that came before it. That much is decoded
// again for it, which is also as far as a worker decodes forward rather than seek; farther out the
// noise is another, equally good one.
constexpr int kSecondsForNoise = 8;

bool forgets_at_once(AVCodecID codec) {
    const AVCodecDescriptor* const descriptor = avcodec_descriptor_get(codec);
    return descriptor != nullptr && (descriptor->props & AV_CODEC_PROP_LOSSY) == 0;
}

}  // namespace

Settling settling_of(const AVCodecParameters& parameters) {
    const std::int64_t told = std::max(0, parameters.seek_preroll);
    const auto* const known = std::find_if(
        std::begin(kCodecs), std::end(kCodecs),
        [&](const CodecSettling& settling) { return settling.codec == parameters.codec_id; });
    if (known != std::end(kCodecs)) {
        const std::int64_t samples = std::max<std::int64_t>(told, known->samples);
        const std::int64_t for_noise = std::int64_t{kSecondsForNoise} * parameters.sample_rate;
        return {samples, known->has_noise ? for_noise : samples};
    }
    const std::int64_t samples =
        forgets_at_once(parameters.codec_id) ? told : std::max<std::int64_t>(told, kUnknownLossy);
    return {samples, samples};
}

}  // namespace ff
