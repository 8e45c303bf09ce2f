#pragma once

#include "async_helper.h"
#include "decoder_mgr.h"
#include "media/av_filter_mgr.h"
#include "media/ff_handles.h"
#include "sample_frames.h"

#include <framewell/frame.h>
#include <framewell/media/stream.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace ff {

/// Where a run of consecutive spans of sound stands. Spans are counted in samples from one base, so
/// that rounding never adds up over many of them.
struct AudioRun {
    std::int32_t discontinuities = 0;  ///< runs begun so far
    std::int64_t delivered = 0;        ///< samples of the stream asked for since `base`
    Rational base{0, 0};               ///< start of the run, seconds
    Range last{{0, 0}, {0, 0}};        ///< the span served last; its end is where the run goes on
    bool has_last = false;             ///< `last` was set: without it every span begins a run
    bool must_seek = false;            ///< the stream does not stand where the run goes on
};

/// The state behind one decoder: its place in the stream's pool of workers, and what turns decoded
/// frames into what was asked for.
///
/// Thread-safety: m_mutex guards everything that is not atomic or constant. open(), the get_,
/// take_ and convert_ operations are called with it held; the other operations take what they need.
class FFDecoderPrivate {
public:
    FFDecoderPrivate();
    FFDecoderPrivate(const FFDecoderPrivate&) = delete;
    FFDecoderPrivate& operator=(const FFDecoderPrivate&) = delete;
    ~FFDecoderPrivate();

    /// Adds a worker to the stream's pool. On another stream than before, what belongs to the old
    /// one goes, its worker too. False if the stream cannot be decoded; `m_stream` is set even so.
    bool open(const StreamCtx* stream);

    /// Ends running requests and makes waiting ones stale, frees everything, drops one worker and
    /// ends the background thread. Waits for that thread, also if another close is ending it. On a
    /// background thread of this decoder it waits for none: they could wait for each other.
    void close();

    /// Close for good: afterwards no background thread can be made any more, and none but the one
    /// that this may be called on uses the decoder.
    void shut_down();

    /// Runs `task` on the background thread, which is made if there is none, in place of the task
    /// that still waits there.
    void run_async(const std::function<void()>& task);

    /// The frame at `ts` (ticks) through the pool; empty if the decoder is not open.
    std::shared_ptr<AVFrame> get_frame(long long ts, std::atomic<bool>* cancel);

    /// The frame after the last one that was got. At the end of the stream the last one again if
    /// `allow_same`, else empty.
    std::shared_ptr<AVFrame> get_next_frame(std::atomic<bool>* cancel, bool allow_same);

    /// Scales and converts a picture into a new record. Empty if what is asked for is not possible
    /// (logged); a failure of the scaler itself is logged and gives a black or partial picture.
    std::shared_ptr<VFrameCtx> convert_to_dst_frame(AVFrame* frame, const RequireVideoFrame& req);

    /// Resamples sound into a new record. Empty if the resampler cannot do it.
    std::shared_ptr<AFrameCtx> convert_to_dst_aframe(AVFrame* frame, const RequireAudioFrame& req);

    /// The samples of `req.range` (media time) of an audio stream, converted as `req` asks.
    std::shared_ptr<AFrameCtx> take_span(const RequireAudioFrame& req, const StreamCtx& stream);

    void reset_resampler_fifo();

    /// Replaces the filter graph by one for the stream's frames. False if it cannot be built; the
    /// old one is gone even so.
    bool open_filter(const char* filters);

    void close_filter();

    const StreamCtx* stream() const { return m_stream.load(); }

    // Constant after construction

    const std::int32_t m_id;            ///< from 1; what the pool knows the decoder by
    char m_name[10] = {};               ///< "dec_%d", the tag of the decoder's log lines
    std::atomic<bool>* const m_cancel;  ///< the flag of requests that bring none

    // Atomic

    std::atomic<std::int32_t> m_serial{0};  ///< grows with every close
    std::atomic<const StreamCtx*> m_stream{nullptr};

    std::mutex m_mutex;

    // Guarded by m_mutex

    bool m_opened = false;
    std::int64_t m_last_ts = 0;                 ///< pts of the frame got last, ticks
    std::shared_ptr<VFrameCtx> m_last_picture;  ///< of a stream that has only one
    std::unique_ptr<AVFilterMgr> m_filter;
    AudioFifoPtr m_fifo;  ///< samples in the stream's own format, channels and rate
    AudioRun m_run;
    FrameRefitter m_refitter;  ///< before m_fifo
    ReusedFrame m_span_frame;  ///< behind m_fifo

private:
    /// What a scaler was made for: width, height and format of both ends.
    using ScalerShape = std::array<int, 6>;

    /// Channels, rate and format of both ends: first as requested, then as decoded.
    using ResamplerShape = std::array<std::int32_t, 6>;

    bool prepare_scaler(const ScalerShape& shape);
    std::shared_ptr<VFrameCtx> make_picture(int width, int height, int format);
    bool prepare_resampler(const AVFrame& frame, const RequireAudioFrame& req);
    std::shared_ptr<AFrameCtx> resample(const AVFrame& frame, const RequireAudioFrame& req);
    bool describe_source(CodecContext* source) const;
    void forget_stream_state();
    std::shared_ptr<AsyncHelper> start_async() const;
    void stop_async();
    void end_async();

    const StreamCtx* m_worker_stream = nullptr;  // whose pool got this decoder's worker last
    // One entry for each worker that opening an open decoder has added beside the first.
    // Deliberate: they outlive close(), since they serve all decoders on the stream, but not this
    // object.
    std::vector<const StreamCtx*> m_further_workers;
    SwsPtr m_sws;
    ScalerShape m_sws_shape{};
    SwrPtr m_swr;
    ResamplerShape m_swr_params{};
    std::uint64_t m_swr_layout = 0;  // as decoded: a filter may change it and nothing else

    // Apart from m_mutex, so that an asynchronous request never waits for a running decode. Taken
    // alone or with m_mutex held.
    std::mutex m_async_mutex;
    std::shared_ptr<AsyncHelper> m_async;                // guarded by m_async_mutex
    std::vector<std::shared_ptr<AsyncHelper>> m_ending;  // guarded by m_async_mutex: not joined yet
    bool m_shut_down = false;                            // guarded by m_async_mutex
};

}  // namespace ff
