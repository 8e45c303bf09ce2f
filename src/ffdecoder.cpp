#include "base/log.h"
#include "cancel_flag.h"
#include "ffdecoder_filter.h"
#include "ffdecoder_private.h"
#include "movie_start.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>
#include <framewell/utils/mempool.h>

#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdecoder";

/// The host counts from the movie's start; the file may begin at any time.
Rational to_media_time(const Rational& time, const StreamCtx& stream) {
    return has_movie_start(stream) ? time + movie_start(stream) : time;
}

}  // namespace

FFDecoder::FFDecoder() : m_private(std::make_unique<FFDecoderPrivate>()) {}

FFDecoder::~FFDecoder() {
    m_private->shut_down();
}

MovieCtx* FFDecoder::probe(const char* path, std::atomic<bool>* cancel) {
    return getMovieInfo(path, cancel);
}

unsigned int FFDecoder::memCollection(unsigned int max_idle_ms) {
    return mem_collection(max_idle_ms);
}

bool FFDecoder::open(const StreamCtx* stream) {
    const std::lock_guard<std::mutex> lock(m_private->m_mutex);
    return m_private->open(stream);
}

bool FFDecoder::reopen() {
    const std::lock_guard<std::mutex> lock(m_private->m_mutex);
    return m_private->open(m_private->stream());
}

void FFDecoder::close() {
    m_private->close();
}

bool FFDecoder::isOpened() const {
    const std::lock_guard<std::mutex> lock(m_private->m_mutex);
    return m_private->m_opened;
}

const StreamCtx* FFDecoder::streamContex() const {
    return m_private->stream();
}

int FFDecoder::getImageDivider(MemoryMode mode) const {
    const StreamCtx* const stream = m_private->stream();
    if (stream == nullptr || stream->type != StreamType::Video) {
        return 1;
    }
    return ff::getImageDivider(mode, stream->width, stream->height);
}

std::shared_ptr<VFrameCtx> FFDecoder::getVideoFrame(const RequireVideoFrame& req) {
    return pri_getVideoFrame(req, m_private->m_serial);
}

std::shared_ptr<AFrameCtx> FFDecoder::getAudioFrame(const RequireAudioFrame& req) {
    return pri_getAudioFrame(req, m_private->m_serial);
}

void FFDecoder::getVideoFrameAsync(const RequireVideoFrame& req, VideoCallback callback) {
    const RequireVideoFrame copy{req.time, req.format, req.divider,
                                 claim_abort_flag(req.abort_flag, m_private->m_cancel)};
    const int serial = m_private->m_serial;
    m_private->run_async([this, copy, serial, callback = std::move(callback)] {
        if (is_set(copy.abort_flag)) {  // while it waited
            return;
        }
        const std::shared_ptr<VFrameCtx> picture = pri_getVideoFrame(copy, serial);
        // The callback may destroy this decoder: nothing of it is touched from here on.
        if (picture && callback) {
            callback(picture);
        }
    });
}

void FFDecoder::getAudioFrameAsync(const RequireAudioFrame& req, AudioCallback callback) {
    const RequireAudioFrame copy{req.range, req.format, req.sample_rate, req.channels,
                                 claim_abort_flag(req.abort_flag, m_private->m_cancel)};
    const int serial = m_private->m_serial;
    m_private->run_async([this, copy, serial, callback = std::move(callback)] {
        if (is_set(copy.abort_flag)) {  // while it waited
            return;
        }
        const std::shared_ptr<AFrameCtx> sound = pri_getAudioFrame(copy, serial);
        if (sound && callback) {
            callback(sound);
        }
    });
}

void FFDecoder::pri_seek(const Rational& time, bool async) {
    const StreamCtx* const stream = m_private->stream();
    const StreamType type = stream != nullptr ? stream->type : StreamType::None;
    if (type == StreamType::Audio) {
        const RequireAudioFrame req{
            {time, time}, SampleFormat::SeekOnly, 44100, 2, m_private->m_cancel};
        if (async) {
            getAudioFrameAsync(req, nullptr);
        } else {
            (void)pri_getAudioFrame(req, m_private->m_serial);
        }
    } else if (type == StreamType::Video) {
        const RequireVideoFrame req{time, PixelFormat::SeekOnly, 1, m_private->m_cancel};
        if (async) {
            getVideoFrameAsync(req, nullptr);
        } else {
            (void)pri_getVideoFrame(req, m_private->m_serial);
        }
    }
}

std::shared_ptr<VFrameCtx> FFDecoder::pri_getVideoFrame(const RequireVideoFrame& req, int serial) {
    FFDecoderPrivate& p = *m_private;
    const RequireVideoFrame copy{req.time, req.format, req.divider,
                                 claim_abort_flag(req.abort_flag, p.m_cancel)};
    const std::lock_guard<std::mutex> lock(p.m_mutex);
    if (p.m_serial > serial) {
        FW_LOG(5, p.m_name, "> 异步取画面，已过时： %lld (serials=%d)",
               static_cast<long long>(copy.time.num), serial);
        return nullptr;
    }
    // Deliberate: a still has one picture, whatever the time and the format.
    if (p.m_last_picture && p.m_last_picture->divider == copy.divider) {
        return p.m_last_picture;
    }
    const StreamCtx* const stream = p.stream();
    if (stream == nullptr || stream->type != StreamType::Video) {
        FW_LOG(2, p.m_name, "no video stream to take a picture from");
        return nullptr;
    }
    const long long ts = time_to_timestamp(to_media_time(copy.time, *stream), stream->time_base);
    std::shared_ptr<AVFrame> frame = p.get_frame(ts, copy.abort_flag);
    if (!frame) {
        return nullptr;
    }
    if (copy.format == PixelFormat::SeekOnly) {
        FW_LOG(5, p.m_name, "Video: seek... pos=%lld", ts);
        return nullptr;
    }
    if (p.m_filter && excute_filting(p.m_filter.get(), frame) < 0) {
        return nullptr;
    }
    std::shared_ptr<VFrameCtx> picture = p.convert_to_dst_frame(frame.get(), copy);
    if (stream->single_frame) {
        p.m_last_picture = picture;
    }
    return picture;
}

}  // namespace ff
