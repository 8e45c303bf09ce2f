#include "ffdecoder_private.h"

#include "base/log.h"
#include "base/trace.h"
#include "cancel_flag.h"
#include "ffdec_task.h"
#include "ffmpeg_guard.h"
#include "media/resampler.h"

#include <framewell/media/ffmpeg_error.h>
#include <framewell/utils/mempool.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdecoder_private";

constexpr AVRational kMicroseconds{1, 1000000};
constexpr int kRowAlignment = 32;
constexpr int kPackedBytes = 1;  // FFmpeg's word for "no padding between planes"
constexpr unsigned kBufferAlignment = 16;

// swscale's vector code writes up to 32 bytes behind the last row of a packed picture (measured
// with 5.1, yuv420p to rgba).
constexpr int kScalerOverrun = 64;

std::int32_t next_id() {
    static std::atomic<std::int32_t> s_count{0};
    return ++s_count;
}

int round_up(int value, int multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

/// Keeps a filter manager that nobody will use again.
void park(std::unique_ptr<AVFilterMgr> filter) {
    static std::mutex mutex;
    static auto* const parked = new std::vector<std::unique_ptr<AVFilterMgr>>;
    const std::lock_guard<std::mutex> lock(mutex);
    parked->push_back(std::move(filter));
}

/// Says that only the first `nb_samples` of the record's packed samples are there.
void cut_to(AFrameCtx* sound, int nb_samples) {
    sound->nb_samples = nb_samples;
    sound->size =
        av_samples_get_buffer_size(sound->linesize, sound->channels, nb_samples,
                                   static_cast<AVSampleFormat>(sound->format), kPackedBytes);
}

AVRational to_time_base(const StreamCtx& stream) {
    return rational_convert(stream.time_base);
}

}  // namespace

FFDecoderPrivate::FFDecoderPrivate() : m_id(next_id()), m_cancel(take_cancel_flag()) {
    // Deliberate: one character less than fits, so the tag of decoder 12345 is "dec_1234".
    (void)std::snprintf(m_name, sizeof m_name - 1, "dec_%d", m_id);
}

FFDecoderPrivate::~FFDecoderPrivate() {
    shut_down();
    for (const StreamCtx* const stream : m_further_workers) {
        g_decoder_mgr().scheduler_of(stream).drop_idle_worker();
    }
    give_back_cancel_flag(m_cancel);
}

bool FFDecoderPrivate::open(const StreamCtx* stream) {
    if (!is_ffmpeg_usable()) {
        return false;
    }
    if (m_stream.exchange(stream) != stream) {
        // Sound and pictures of the old stream must not run into those of the new one, even if the
        // new one cannot be opened: other decoders' workers may serve it.
        forget_stream_state();
    }
    auto task = std::make_unique<FFDec_Task>();
    if (!task->open(stream)) {
        return false;
    }
    if (m_opened && m_worker_stream != stream) {
        g_decoder_mgr().scheduler_of(m_worker_stream).drop_idle_worker();
    }
    if (m_opened && m_worker_stream == stream) {
        m_further_workers.push_back(stream);
    }
    m_cancel->store(false);
    g_decoder_mgr().scheduler_of(stream).add_worker(task.release());  // the pool owns it now
    m_worker_stream = stream;
    m_opened = true;
    return true;
}

void FFDecoderPrivate::close() {
    m_cancel->store(true);  // before the lock, so that a running request ends soon
    const StreamCtx* pool_to_shrink = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_serial;
        m_cancel->store(true);  // again: an open may have come in between
        stop_async();
        forget_stream_state();
        m_sws.reset();
        if (std::exchange(m_opened, false)) {
            pool_to_shrink = m_worker_stream;
        }
    }
    if (pool_to_shrink != nullptr) {
        g_decoder_mgr().scheduler_of(pool_to_shrink).drop_idle_worker();
    }
    // Only now: the running task may need the decoder once more before it ends.
    end_async();
}

void FFDecoderPrivate::shut_down() {
    {
        const std::lock_guard<std::mutex> lock(m_async_mutex);
        m_shut_down = true;
    }
    close();
}

void FFDecoderPrivate::run_async(const std::function<void()>& task) {
    std::shared_ptr<AsyncHelper> helper;
    {
        const std::lock_guard<std::mutex> lock(m_async_mutex);
        if (m_shut_down) {
            return;
        }
        if (!m_async) {
            m_async = start_async();
        }
        helper = m_async;
    }
    if (helper) {
        helper->submit(task);
    }
}

/// Null if there can be no more threads: the request is then dropped like one without a result.
std::shared_ptr<AsyncHelper> FFDecoderPrivate::start_async() const {
    try {
        return AsyncHelper::start();
    } catch (const std::system_error& error) {
        FW_LOG(2, m_name, "no thread for requests in the background: %s", error.what());
        return nullptr;
    }
}

/// Tells the background thread to end after the task that it runs; the next request makes another.
void FFDecoderPrivate::stop_async() {
    const std::lock_guard<std::mutex> lock(m_async_mutex);
    if (m_async) {
        m_async->stop();
        m_ending.push_back(std::move(m_async));
    }
}

/// Waits for background threads to end. They stay in the list until they have, so that every close
/// waits for them and a callback that closes is known as one, whichever thread it runs on. Two
/// callbacks that waited for each other would never end; so a callback waits only when it destroys
/// the decoder, which the others must not use any more, and else joins what has ended by itself.
void FFDecoderPrivate::end_async() {
    std::vector<std::shared_ptr<AsyncHelper>> ending;
    bool may_wait = true;
    {
        const std::lock_guard<std::mutex> lock(m_async_mutex);
        ending = m_ending;
        may_wait =
            m_shut_down || std::none_of(ending.begin(), ending.end(),
                                        [](const auto& helper) { return helper->is_own_thread(); });
    }
    for (const std::shared_ptr<AsyncHelper>& helper : ending) {
        helper->discard_waiting();
    }
    const auto first_left =
        std::partition(ending.begin(), ending.end(), [may_wait](const auto& helper) {
            return !helper->is_own_thread() && (may_wait || helper->has_ended());
        });
    ending.erase(first_left, ending.end());
    for (const std::shared_ptr<AsyncHelper>& helper : ending) {
        helper->join();
    }
    const std::lock_guard<std::mutex> lock(m_async_mutex);
    m_ending.erase(std::remove_if(m_ending.begin(), m_ending.end(),
                                  [&ending](const auto& helper) {
                                      return std::find(ending.begin(), ending.end(), helper) !=
                                             ending.end();
                                  }),
                   m_ending.end());
}

/// Frees whatever belongs to the stream that was read so far.
void FFDecoderPrivate::forget_stream_state() {
    reset_resampler_fifo();
    m_filter.reset();
    m_last_picture.reset();
    m_last_ts = 0;
    m_run = AudioRun{};
}

void FFDecoderPrivate::reset_resampler_fifo() {
    m_fifo.reset();
    m_swr.reset();
    m_refitter.reset();
    m_span_frame.reset();
}

std::shared_ptr<AVFrame> FFDecoderPrivate::get_frame(long long ts, std::atomic<bool>* cancel) {
    if (!m_opened) {
        // The workers of other decoders must not serve it.
        FW_LOG(5, m_name, "worker-list empty");
        return nullptr;
    }
    std::shared_ptr<AVFrame> frame =
        g_decoder_mgr().scheduler_of(m_stream).do_working(ts, cancel, false, m_id, m_name);
    if (frame) {
        m_last_ts = frame->pts;
    }
    return frame;
}

std::shared_ptr<AVFrame> FFDecoderPrivate::get_next_frame(std::atomic<bool>* cancel,
                                                          bool allow_same) {
    if (!m_opened) {
        FW_LOG(5, m_name, "worker-list empty");
        return nullptr;
    }
    std::shared_ptr<AVFrame> frame =
        g_decoder_mgr().scheduler_of(m_stream).do_working(m_last_ts, cancel, true, m_id, m_name);
    if (!frame || (frame->pts == m_last_ts && !allow_same)) {
        return nullptr;
    }
    m_last_ts = frame->pts;
    return frame;
}

// Pictures

std::shared_ptr<VFrameCtx> FFDecoderPrivate::convert_to_dst_frame(AVFrame* frame,
                                                                  const RequireVideoFrame& req) {
    const StreamCtx* const stream = m_stream;
    int width = stream->width;
    int height = stream->height;
    if (req.divider >= 2) {
        width = round_up(width / req.divider, 16);
        height = round_up(height / req.divider, 2);
    }
    const int format = pixfmt_to_avpixfmt(req.format);
    if (width <= 0 || height <= 0) {
        FW_LOG(2, m_name, "divider %d leaves nothing of %dx%d", req.divider, stream->width,
               stream->height);
        return nullptr;
    }
    const bool can_scale =
        prepare_scaler({frame->width, frame->height, frame->format, width, height, format});
    std::shared_ptr<VFrameCtx> picture = make_picture(width, height, format);
    if (!picture) {
        FW_LOG(2, m_name, "no memory or no such format for a picture of %dx%d, pixel format %d",
               width, height, static_cast<int>(req.format));
        return nullptr;
    }
    picture->src_width = stream->width;
    picture->src_height = stream->height;
    picture->divider = req.divider;
    picture->pts = av_rescale_q(frame->best_effort_timestamp, to_time_base(*stream), kMicroseconds);

    const int scaled = can_scale ? sws_scale(m_sws.get(), frame->data, frame->linesize, 0,
                                             frame->height, picture->data, picture->linesize)
                                 : AVERROR(EINVAL);
    if (scaled < 0) {
        FW_LOG(2, m_name, "sws error: %s", ffmpeg_error(scaled));
        // The buffer has held another picture before, which must not be shown.
        std::memset(picture->buffer, 0, static_cast<std::size_t>(picture->size));
    }
    return picture;
}

/// Makes m_sws fit. The key is our own because swscale rewrites the formats that it was given
/// (yuvj420p becomes yuv420p), so sws_getCachedContext would make a new scaler for every picture.
bool FFDecoderPrivate::prepare_scaler(const ScalerShape& shape) {
    if (m_sws && m_sws_shape == shape) {
        return true;
    }
    const auto [in_width, in_height, in_format, width, height, format] = shape;
    const auto from = static_cast<AVPixelFormat>(in_format);
    const auto to = static_cast<AVPixelFormat>(format);
    // swscale stops the process for a format that does not exist.
    if (in_width <= 0 || in_height <= 0 || width <= 0 || height <= 0 ||
        av_pix_fmt_desc_get(from) == nullptr || av_pix_fmt_desc_get(to) == nullptr ||
        sws_isSupportedInput(from) == 0 || sws_isSupportedOutput(to) == 0) {
        return false;
    }
    m_sws.reset(sws_getCachedContext(m_sws.release(), in_width, in_height, from, width, height, to,
                                     SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
    m_sws_shape = shape;
    return m_sws != nullptr;
}

std::shared_ptr<VFrameCtx> FFDecoderPrivate::make_picture(int width, int height, int format) {
    const auto pix_fmt = static_cast<AVPixelFormat>(format);
    if (width <= 0 || height <= 0 || av_pix_fmt_desc_get(pix_fmt) == nullptr) {
        return nullptr;
    }
    const int size = av_image_get_buffer_size(pix_fmt, width, height, kRowAlignment);
    if (size <= 0) {
        return nullptr;
    }
    if (size > std::numeric_limits<int>::max() - kScalerOverrun) {
        return nullptr;
    }
    auto picture = std::make_shared<VFrameCtx>();
    picture->buffer =
        static_cast<std::uint8_t*>(mem_malloc(size + kScalerOverrun, kBufferAlignment));
    if (picture->buffer == nullptr) {
        return nullptr;
    }
    picture->size = size;
    picture->width = width;
    picture->height = height;
    picture->format = format;
    (void)av_image_fill_arrays(picture->data, picture->linesize, picture->buffer, pix_fmt, width,
                               height, kRowAlignment);  // the size was computed from the same
    return picture;
}

// Sound

std::shared_ptr<AFrameCtx> FFDecoderPrivate::convert_to_dst_aframe(AVFrame* frame,
                                                                   const RequireAudioFrame& req) {
    return prepare_resampler(*frame, req) ? resample(*frame, req) : nullptr;
}

/// Straight into the record, which gets as much room as can be needed: a frame in between would
/// cost a buffer and a copy for every span.
std::shared_ptr<AFrameCtx> FFDecoderPrivate::resample(const AVFrame& frame,
                                                      const RequireAudioFrame& req) {
    const int room = swr_get_out_samples(m_swr.get(), frame.nb_samples);
    std::shared_ptr<AFrameCtx> sound = create_audioframe_ctx(req, std::max(room, 0));
    const int converted =
        room >= 0 && sound->nb_samples == room
            ? swr_convert(m_swr.get(), sound->data, room,
                          const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples)
            : AVERROR(ENOMEM);
    if (converted < 0) {
        FW_LOG(2, m_name, "--> swr convert failed: %s", ffmpeg_error(converted));
        return nullptr;
    }
    if (converted == 0) {
        return create_audioframe_ctx(req, 0);
    }
    cut_to(sound.get(), converted);
    return sound;
}

bool FFDecoderPrivate::prepare_resampler(const AVFrame& frame, const RequireAudioFrame& req) {
    const ResamplerShape shape{req.channels,
                               req.sample_rate,
                               static_cast<std::int32_t>(req.format),
                               compat::channel_count(frame),
                               frame.sample_rate,
                               frame.format};
    const std::uint64_t layout = compat::channel_mask(frame);
    if (m_swr && m_swr_params == shape && m_swr_layout == layout) {
        return true;
    }
    const compat::AudioShape out{compat::default_channel_mask(req.channels), req.channels,
                                 static_cast<AVSampleFormat>(samplefmt_to_avsamplefmt(req.format)),
                                 req.sample_rate};
    const compat::AudioShape in{layout, compat::channel_count(frame),
                                static_cast<AVSampleFormat>(frame.format), frame.sample_rate};
    m_swr = open_resampler(std::move(m_swr), out, in);
    if (!m_swr) {
        return false;
    }
    m_swr_params = shape;
    m_swr_layout = layout;
    return true;
}

// Filters

bool FFDecoderPrivate::open_filter(const char* filters) {
    FW_TRACE("open_filter", nullptr);
    if (!is_ffmpeg_usable()) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::unique_ptr<AVFilterMgr> filter = std::move(m_filter);
    if (!filter) {
        filter = std::make_unique<AVFilterMgr>();
    }
    CodecContext source{};
    if (!describe_source(&source)) {
        park(std::move(filter));
        return false;
    }
    if (filter->init_filters(&source, filters) != 0) {
        return false;
    }
    m_filter = std::move(filter);
    m_last_picture.reset();
    return true;
}

/// Describes the stream's frames for a filter graph. False if they are neither pictures nor sound.
bool FFDecoderPrivate::describe_source(CodecContext* source) const {
    const StreamCtx* const stream = m_stream;
    const StreamType type = stream != nullptr ? stream->type : StreamType::None;
    if (type != StreamType::Video && type != StreamType::Audio) {
        FW_LOG(2, "bg", "no support for stream->type='%d'", static_cast<int>(type));
        return false;
    }
    const AVRational time_base = to_time_base(*stream);
    source->type = static_cast<std::int32_t>(type);
    source->time_base_num = time_base.num;
    source->time_base_den = time_base.den;
    if (type == StreamType::Audio) {
        source->sample_fmt = stream->sample_fmt;
        source->channel_layout = stream->channel_layout;
        source->sample_rate = stream->sample_rate;
        source->channels = stream->channels;
    } else {
        const AVRational aspect = rational_convert(stream->sample_aspect_ratio);
        source->pix_fmt = stream->pix_fmt;
        source->width = stream->width;
        source->height = stream->height;
        source->sar_num = aspect.num;
        source->sar_den = aspect.den;
    }
    return true;
}

void FFDecoderPrivate::close_filter() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_filter) {
        m_filter.reset();
        m_last_picture.reset();
    }
}

}  // namespace ff
