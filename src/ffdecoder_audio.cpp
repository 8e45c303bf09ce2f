#include "ffdecoder_audio.h"

#include "base/log.h"
#include "cancel_flag.h"
#include "ffdecoder_filter.h"
#include "ffdecoder_private.h"
#include "movie_start.h"

#include <framewell/ffdecoder.h>
#include <framewell/media/ffmpeg_error.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdecoder";

constexpr int kFirstFifoSize = 1024;

// A broken timestamp must not fill the memory with silence.
constexpr int kMaxSilence = 0x100000;

// How often the times of one span's frames may go back. Where they are damaged, one worker's last
// frame can lie before another's, and "the next frame" would lead from one to the other for ever.
constexpr int kMaxStepsBack = 16;

// Distances in samples are cut to this, so that sums of them cannot overflow.
constexpr long long kMaxDistance = 1LL << 62;

/// From one time to the other, cut to kMaxDistance.
std::int64_t distance(std::int64_t from, std::int64_t to) {
    std::int64_t result = 0;
    if (__builtin_sub_overflow(to, from, &result)) {
        return to > from ? kMaxDistance : -kMaxDistance;
    }
    return std::clamp<std::int64_t>(result, -kMaxDistance, kMaxDistance);
}

/// Fills the FIFO of a decoder with what one span needs. Used with the decoder locked.
class SpanFiller {
public:
    SpanFiller(FFDecoderPrivate* decoder, const StreamCtx& stream, std::atomic<bool>* cancel)
        : m_decoder(*decoder), m_stream(stream), m_cancel(cancel) {}

    /// Decodes until `wanted` samples are there or nothing more comes. With `seek`, decoding begins
    /// at `target` (ticks), and what lies before it is dropped.
    void fill(std::int64_t wanted, bool seek, long long target);

private:
    bool begin_at(long long target);
    bool write(const std::shared_ptr<AVFrame>& frame);
    bool write_fitting(const std::shared_ptr<AVFrame>& frame);
    bool write_silence(std::int64_t count);
    void drop_early_samples();

    std::int64_t buffered() const { return av_audio_fifo_size(m_decoder.m_fifo.get()); }

    FFDecoderPrivate& m_decoder;
    const StreamCtx& m_stream;
    std::atomic<bool>* const m_cancel;
    std::int64_t m_drain = 0;  // samples in the FIFO that lie before the target
};

void SpanFiller::fill(std::int64_t wanted, bool seek, long long target) {
    bool first = seek;
    int steps_back = 0;
    while (m_drain + wanted > buffered()) {
        if (std::exchange(first, false)) {
            if (!begin_at(target)) {
                break;
            }
            continue;
        }
        const long long last = m_decoder.m_last_ts;
        const std::shared_ptr<AVFrame> frame = m_decoder.get_next_frame(m_cancel, false);
        if (frame && frame->pts < last && ++steps_back > kMaxStepsBack) {
            FW_LOG(2, m_decoder.m_name, "the times of the frames go back again and again");
            break;
        }
        if (!frame) {
            (void)write_fitting(m_decoder.m_refitter.take_rest(m_stream));  // it ends here anyway
            break;
        }
        if (!write(frame)) {
            break;
        }
        drop_early_samples();  // now and not at the end: they may be hours
    }
    drop_early_samples();
}

void SpanFiller::drop_early_samples() {
    const std::int64_t drain = std::min(m_drain, buffered());
    if (drain > 0) {
        (void)av_audio_fifo_drain(m_decoder.m_fifo.get(), static_cast<int>(drain));
        m_drain -= drain;
    }
}

/// Brings in the frame at `target`, with silence in front if it begins later. False if there is
/// none.
bool SpanFiller::begin_at(long long target) {
    const std::shared_ptr<AVFrame> frame = m_decoder.get_frame(target, m_cancel);
    if (!frame) {
        return false;
    }
    m_decoder.m_run.must_seek = false;
    const long long pts = frame->pts;
    const AVRational sample{1, m_stream.sample_rate};
    const long long ahead = std::clamp<long long>(
        av_rescale_q(distance(pts, target), rational_convert(m_stream.time_base), sample),
        -kMaxDistance, kMaxDistance);
    if (ahead < 0) {
        // One literal, since the log shows the quote characters of each.
        // clang-format off
        FW_LOG(2, m_decoder.m_name, "***Warnning***: first packet lost, fill silence; target=%lld, f->pts=%lld, nb_silence=%lld",
               target, pts, ahead);
        // clang-format on
        if (!write_silence(-ahead)) {
            return false;
        }
    } else if (ahead > 0) {
        FW_LOG(5, m_decoder.m_name, "seek: target=%lld, f->pts=%lld, nb_drain=%lld", target, pts,
               ahead);
        m_drain = ahead;
    }
    return write(frame);
}

bool SpanFiller::write_silence(std::int64_t count) {
    if (count > kMaxSilence) {
        FW_LOG(2, m_decoder.m_name, "***Warnning***: nb_drain=%d is too bigger, limit to %d",
               static_cast<int>(std::min<std::int64_t>(count, std::numeric_limits<int>::max())),
               kMaxSilence);
        count = kMaxSilence;
    }
    return write_fitting(create_avframe_with(m_stream.channels, m_stream.sample_rate,
                                             m_stream.sample_fmt, static_cast<int>(count)));
}

/// Puts a frame into the FIFO, in the form that the FIFO has. False if there is no memory for it.
bool SpanFiller::write(const std::shared_ptr<AVFrame>& frame) {
    for (const auto& fitting : m_decoder.m_refitter.fit(m_stream, frame, m_decoder.m_name)) {
        if (!write_fitting(fitting)) {
            return false;
        }
    }
    return true;
}

bool SpanFiller::write_fitting(const std::shared_ptr<AVFrame>& frame) {
    if (!frame || frame->nb_samples <= 0) {
        return true;  // nothing to keep, and the next frame may be better
    }
    const int written =
        av_audio_fifo_write(m_decoder.m_fifo.get(), compat::fifo_planes(*frame), frame->nb_samples);
    if (written < 0) {
        FW_LOG(2, m_decoder.m_name, "audio io write failed: %s", ffmpeg_error(written));
    }
    return written >= 0;
}

bool is_resamplable(const StreamCtx* stream) {
    return stream != nullptr && stream->type == StreamType::Audio && stream->channels > 0 &&
           stream->sample_rate > 0 && stream->sample_fmt >= 0;
}

bool make_fifo(FFDecoderPrivate* decoder, const StreamCtx& stream) {
    if (!decoder->m_fifo) {
        decoder->m_fifo.reset(av_audio_fifo_alloc(static_cast<AVSampleFormat>(stream.sample_fmt),
                                                  stream.channels, kFirstFifoSize));
    }
    return decoder->m_fifo != nullptr;
}

/// Counts the samples of a span, before anything is decoded: also a span that fails has passed.
std::int64_t count_wanted(AudioRun* run, const Rational& end, int sample_rate) {
    const long long position = time_to_timestamp(end - run->base, {1, sample_rate});
    const auto wanted = static_cast<std::int64_t>(static_cast<std::uint64_t>(position) -
                                                  static_cast<std::uint64_t>(run->delivered));
    run->delivered = position;
    return wanted;
}

/// Takes up to `wanted` samples out of the FIFO. Empty if there are none.
std::shared_ptr<AVFrame> read_samples(FFDecoderPrivate* decoder, const StreamCtx& stream,
                                      std::int64_t wanted) {
    // No more room than there are samples: a span may be years long. Or as long backwards, which no
    // FIFO reads.
    const int buffered = av_audio_fifo_size(decoder->m_fifo.get());
    const int room = static_cast<int>(std::clamp<std::int64_t>(wanted, -1, buffered));
    std::shared_ptr<AVFrame> frame = decoder->m_span_frame.take(stream, room);
    if (!frame) {
        return nullptr;
    }
    const int read = av_audio_fifo_read(decoder->m_fifo.get(), compat::fifo_planes(*frame), room);
    if (read < 0) {
        FW_LOG(2, decoder->m_name, "audio io read failed: %s", ffmpeg_error(read));
        return nullptr;
    }
    frame->nb_samples = read;
    return read > 0 ? frame : nullptr;
}

/// Runs samples through the decoder's filters. False if nothing comes out.
bool filter_span(FFDecoderPrivate* decoder, std::shared_ptr<AVFrame>* frame) {
    const int filtered = excute_filting(decoder->m_filter.get(), *frame);
    if (filtered < 0) {
        FW_LOG(2, decoder->m_name, "excute filter failed: %s", ffmpeg_error(filtered));
    }
    return filtered >= 0;
}

}  // namespace

bool is_audio_ts_discontinuous(FFDecoderPrivate* priv, const Range& range) {
    AudioRun& run = priv->m_run;
    if (run.has_last && range.start == run.last.end) {
        return false;
    }
    ++run.discontinuities;
    run.delivered = 0;
    run.base = range.start;
    if (priv->m_fifo) {
        av_audio_fifo_reset(priv->m_fifo.get());
    }
    priv->m_refitter.reset();
    return true;
}

std::shared_ptr<AFrameCtx> FFDecoder::pri_getAudioFrame(const RequireAudioFrame& req, int serial) {
    FFDecoderPrivate& p = *d();
    RequireAudioFrame copy{req.range, req.format, req.sample_rate, req.channels,
                           claim_abort_flag(req.abort_flag, p.m_cancel)};
    const std::lock_guard<std::mutex> lock(p.m_mutex);
    if (p.m_serial > serial) {
        FW_LOG(5, p.m_name, "> 异步取音频，已过时： %lld (serials=%d)",
               static_cast<long long>(copy.range.start.num), serial);
        return nullptr;
    }
    const StreamCtx* const stream = p.stream();
    if (!is_resamplable(stream)) {
        FW_LOG(2, p.m_name, "no audio stream to take samples from");
        return nullptr;
    }
    if (has_movie_start(*stream)) {
        copy.range += movie_start(*stream);
    }
    return p.take_span(copy, *stream);
}

std::shared_ptr<AFrameCtx> FFDecoderPrivate::take_span(const RequireAudioFrame& req,
                                                       const StreamCtx& stream) {
    const bool discontinuous = is_audio_ts_discontinuous(this, req.range);
    m_run.must_seek = m_run.must_seek || discontinuous;
    if (!make_fifo(this, stream)) {
        return nullptr;
    }
    // Where the span begins, counted in samples like everything that was delivered before it.
    const Rational begin = m_run.base + timestamp_to_time(m_run.delivered, {1, stream.sample_rate});
    const long long target = time_to_timestamp(begin, stream.time_base);

    if (req.format == SampleFormat::SeekOnly) {
        if (discontinuous) {
            (void)get_frame(target, req.abort_flag);
            // The run that was interrupted cannot go on from here.
            m_run.has_last = false;
        }
        FW_LOG(5, m_name, "Audio: seek... pos=%lld", discontinuous ? target : -1LL);
        return nullptr;
    }
    // Not for a seek: the samples of its span are still to be asked for.
    const std::int64_t wanted = count_wanted(&m_run, req.range.end, stream.sample_rate);
    if (wanted > std::numeric_limits<int>::max()) {
        FW_LOG(2, m_name, "a span of %lld samples is too long", static_cast<long long>(wanted));
        m_run.has_last = false;  // its samples are counted but will never be there
        return nullptr;
    }
    SpanFiller(this, stream, req.abort_flag).fill(wanted, m_run.must_seek, target);
    m_run.last = req.range;
    m_run.has_last = true;
    if (req.abort_flag->load()) {
        m_run.must_seek = true;  // what was not decoded any more is missing in the FIFO
        av_audio_fifo_reset(m_fifo.get());
        m_refitter.reset();
    }
    std::shared_ptr<AVFrame> frame = read_samples(this, stream, wanted);
    if (!frame || (m_filter && !filter_span(this, &frame))) {
        return nullptr;
    }
    return convert_to_dst_aframe(frame.get(), req);
}

}  // namespace ff
