#include "base/log.h"
#include "cancel_flag.h"
#include "ffdecoder_filter.h"
#include "ffdecoder_private.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>
#include <framewell/utils/mempool.h>

#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdecoder";

/// The host counts from the movie's start; the file may begin at any time.
Rational to_media_time(const Rational& time, const StreamCtx& stream) {
    if (stream.movie == nullptr || stream.movie->start_time == AV_NOPTS_VALUE) {
        return time;
    }
    return time + timestamp_to_time(stream.movie->start_time, {1, 1000000});
}

}  // namespace

FFDecoder::FFDecoder() : m_private(std::make_unique<FFDecoderPrivate>()) {}

FFDecoder::~FFDecoder() = default;

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

void FFDecoder::pri_seek(const Rational& time, bool async) {
    (void)async;
    const StreamCtx* const stream = m_private->stream();
    if (stream != nullptr && stream->type == StreamType::Video) {
        const RequireVideoFrame req{time, PixelFormat::SeekOnly, 1, m_private->m_cancel};
        (void)pri_getVideoFrame(req, m_private->m_serial);
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
