#include "export_size.h"
#include "ffmpeg_guard.h"
#include "media/ff_handles.h"

#include <framewell/frame.h>
#include <framewell/utils/mempool.h>

#include <cstddef>
#include <cstring>

namespace ff {

namespace {

constexpr int kUhdArea = 3840 * 2160;
constexpr int kFullHdArea = 1920 * 1080;
constexpr unsigned kBufferAlignment = 16;
constexpr int kPackedBytes = 1;  // FFmpeg's word for "no padding between planes"
constexpr Rational kMicrosecond{1, 1000000};
constexpr int kMaxPlanes = static_cast<int>(sizeof AFrameCtx::data / sizeof AFrameCtx::data[0]);

int divider_by_resolution(int area) {
    if (area >= kUhdArea) {
        return 4;
    }
    return area >= kFullHdArea ? 2 : 1;  // Deliberate: never 3
}

int divider_by_export_size(int area) {
    const int export_area = g_w_h_multi.load(std::memory_order_relaxed);
    if (export_area < 1 || area <= export_area) {
        return 1;
    }
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): the ratio is above 1, where this rounds right
    return static_cast<int>(static_cast<double>(area) / export_area + 0.5);
}

// Gives the record its samples; leaves it without any if they have no size or find no memory.
void take_silence(AFrameCtx* ctx, int nb_samples) {
    const auto format = static_cast<AVSampleFormat>(ctx->format);
    if (ctx->planar != 0 && ctx->channels > kMaxPlanes) {
        return;
    }
    const int size =
        av_samples_get_buffer_size(nullptr, ctx->channels, nb_samples, format, kPackedBytes);
    if (size <= 0) {
        return;
    }
    ctx->buffer = static_cast<std::uint8_t*>(mem_malloc(size, kBufferAlignment));
    if (ctx->buffer == nullptr) {
        return;
    }
    ctx->size = size;
    ctx->nb_samples = nb_samples;
    std::memset(ctx->buffer, 0, static_cast<std::size_t>(size));
    (void)av_samples_fill_arrays(ctx->data, ctx->linesize, ctx->buffer, ctx->channels, nb_samples,
                                 format, kPackedBytes);  // the size was computed from the same
}

}  // namespace

VFrameCtx::~VFrameCtx() {
    if (buffer != nullptr) {
        mem_free(buffer);
    }
}

AFrameCtx::~AFrameCtx() {
    if (buffer != nullptr) {
        mem_free(buffer);
    }
}

int getImageDivider(MemoryMode mode, int width, int height) {
    // Wraps on purpose, so the product is made in unsigned arithmetic.
    const int area = static_cast<int>(static_cast<unsigned>(width) * static_cast<unsigned>(height));
    switch (mode) {
        case MemoryMode::ByResolution:
            return divider_by_resolution(area);
        case MemoryMode::ByExportSize:
            return divider_by_export_size(area);
        case MemoryMode::Full:
            break;
    }
    return 1;
}

std::shared_ptr<AVFrame> create_avframe_with(int channels, int sample_rate, int format,
                                             int nb_samples) {
    if (!is_ffmpeg_usable()) {
        return nullptr;
    }
    std::shared_ptr<AVFrame> frame = create_avframe_ptr(av_frame_alloc());
    if (frame == nullptr) {
        return frame;
    }
    compat::set_channels(frame.get(), compat::default_channel_mask(channels), channels);
    frame->sample_rate = sample_rate;
    frame->format = format;
    frame->nb_samples = nb_samples;
    if (nb_samples < 1) {
        return frame;
    }
    if (channels < 1 || av_frame_get_buffer(frame.get(), kPackedBytes) < 0) {
        frame->nb_samples = 0;
        return frame;
    }
    (void)av_samples_set_silence(frame->extended_data, 0, nb_samples, channels,
                                 static_cast<AVSampleFormat>(format));  // fails for no planes only
    return frame;
}

std::shared_ptr<AFrameCtx> create_audioframe_ctx(const RequireAudioFrame& req, int nb_samples) {
    auto ctx = std::make_shared<AFrameCtx>();
    ctx->channels = req.channels;
    ctx->sample_rate = req.sample_rate;
    ctx->format = samplefmt_to_avsamplefmt(req.format);
    ctx->planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(ctx->format)) != 0 ? 1 : 0;
    ctx->pts = time_to_timestamp(req.range.start, kMicrosecond);
    take_silence(ctx.get(), nb_samples);
    return ctx;
}

}  // namespace ff
