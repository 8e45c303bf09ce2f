#include "ff_tools.h"

#include "base/log.h"
#include "export_size.h"
#include "ffmpeg_guard.h"
#include "media/ff_handles.h"

#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ff_tools";

constexpr std::size_t kMaxKept = 16;
constexpr std::int64_t kUnknownDuration = AV_NOPTS_VALUE;

/// Objects that outlive the call that made them: the newest kMaxKept, for ever. Older ones are
/// destroyed, so that a host that lists thousands of files runs out of neither memory nor file
/// handles.
template <class Pointer>
class Keepsakes {
public:
    void add(Pointer object) {
        Pointer oldest;  // destroyed without the lock, since that may wait for a decoder
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_objects.push_back(std::move(object));
        if (m_objects.size() > kMaxKept) {
            oldest = std::move(m_objects.front());
            m_objects.pop_front();
        }
    }

private:
    std::mutex m_mutex;
    std::deque<Pointer> m_objects;  // guarded by m_mutex; the oldest first
};

// Never destroyed: nothing of the library is torn down at exit.
template <class Pointer>
Keepsakes<Pointer>& keepsakes() {
    static auto* const s_kept = new Keepsakes<Pointer>();
    return *s_kept;
}

/// Continues from divider `k` until `side` fits into `limit`, and one step back if it is then less
/// than half of it. The smallest k with side / k <= limit is side / (limit + 1) + 1, cut; counting
/// up to it would take seconds for the sizes that damaged files claim.
int fit_side(int k, int side, int limit) {
    if (limit <= 0) {
        return k;
    }
    const std::int64_t least = side / (static_cast<std::int64_t>(limit) + 1) + 1;
    k = static_cast<int>(std::max<std::int64_t>(k, least));
    return side / k < limit / 2 && k >= 2 ? k - 1 : k;
}

/// Opens a decoder on the movie's last video stream; null if that fails.
std::unique_ptr<FFDecoder> open_for_cover(const MovieCtx& movie) {
    const int count = std::min(movie.nb_video, MovieCtx::kMaxPerKind);
    for (int i = 0; i < count; ++i) {
        auto decoder = std::make_unique<FFDecoder>();
        const bool is_open = decoder->open(cover_stream(movie, i));
        if (i == count - 1) {
            // Deliberate: no picture of an earlier stream in its place. A host that shows covers
            // would show another one as soon as the last stream can be decoded.
            return is_open ? std::move(decoder) : nullptr;
        }
        if (is_open) {
            // Deliberate: it is not destroyed. Its stream keeps the worker, so a host that goes on
            // to open that stream finds one more.
            keepsakes<std::unique_ptr<FFDecoder>>().add(std::move(decoder));
        }
    }
    return nullptr;
}

/// What swsNew() hands out. Allocated by malloc, as hosts know it.
struct ScalerHandle {
    SwsContext* scaler;  // null if FFmpeg refused
    int src_w;
    int src_h;
    int dst_w;
    int dst_h;
    int src_format;
    int dst_format;
};

/// Whether swscale can be asked at all: it stops the process for a format that does not exist, and
/// does not look out for sizes whose rows have more bytes than an int can count.
bool can_scale(const ScalerHandle& handle) {
    const auto is_picture = [](int format, int width, int height) {
        return av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format)) != nullptr && width > 0 &&
               height > 0 &&
               av_image_check_size(static_cast<unsigned>(width), static_cast<unsigned>(height), 0,
                                   nullptr) >= 0;
    };
    return is_picture(handle.src_format, handle.src_w, handle.src_h) &&
           is_picture(handle.dst_format, handle.dst_w, handle.dst_h);
}

bool has_rows(const ScalerHandle& handle, int y, int h) {
    return y >= 0 && h >= 0 && y <= handle.src_h && h <= handle.src_h - y;
}

}  // namespace

int cover_divider(int width, int height, int max_width, int max_height) {
    return fit_side(fit_side(1, width, max_width), height, max_height);
}

Rational cover_time(const RequireMvImage& req, std::int64_t duration_us) {
    if (req.time.den != 0) {
        return req.time;
    }
    if (duration_us == kUnknownDuration) {
        return {0, 1000000};
    }
    constexpr double end = 9223372036854775808.0;  // 2^63, the first value that does not fit
    const double time = static_cast<double>(duration_us) * req.ratio;
    if (std::isnan(time)) {
        return {0, 1000000};
    }
    if (time >= end) {
        return {std::numeric_limits<std::int64_t>::max(), 1000000};
    }
    if (time < -end) {
        return {std::numeric_limits<std::int64_t>::min(), 1000000};
    }
    return {static_cast<std::int64_t>(time), 1000000};
}

const StreamCtx* cover_stream(const MovieCtx& movie, int i) {
    if (i < 0 || i >= std::min(movie.nb_video, MovieCtx::kMaxPerKind)) {
        return nullptr;
    }
    const int position = movie.video_index[i];
    return position < std::min(movie.nb_streams, MovieCtx::kMaxStreams) ? movie.streams[position]
                                                                        : nullptr;
}

std::shared_ptr<VFrameCtx> getMovieImage(const char* path, const RequireMvImage& req,
                                         Rational* duration) {
    if (!is_ffmpeg_usable()) {
        return nullptr;  // before the line about the file, which is not to blame
    }
    const MovieCtx* const movie = FFDecoder::probe(path, req.abort_flag);
    if (movie == nullptr) {
        FW_LOG(2, "bg", "@@获取视频封面和信息失败：%s", path == nullptr ? "(null)" : path);
        return nullptr;
    }
    if (duration != nullptr) {
        *duration = {movie->duration, 1000000};
    }
    if (movie->nb_video <= 0) {
        return nullptr;
    }
    const std::unique_ptr<FFDecoder> decoder = open_for_cover(*movie);
    if (decoder == nullptr) {
        return nullptr;
    }
    const StreamCtx& stream = *decoder->streamContex();
    if (stream.type != StreamType::Video) {
        FW_LOG(2, "bg", "no cover: stream %d stands at the place of the last video stream",
               stream.index);
        return nullptr;
    }
    const int divider = cover_divider(stream.width, stream.height, req.max_width, req.max_height);
    return decoder->getVideoFrame(
        {cover_time(req, movie->duration), req.format, divider, req.abort_flag});
}

void setExportMVSize(int width, int height) {
    g_export_width = width;
    g_export_height = height;
    // Wraps on purpose, so the product is made in unsigned arithmetic.
    g_w_h_multi = static_cast<int>(static_cast<unsigned>(width) * static_cast<unsigned>(height));
}

void* swsNew(PixelFormat src, PixelFormat dst, int src_w, int src_h, int dst_w, int dst_h) {
    void* const memory = std::malloc(sizeof(ScalerHandle));  // NOLINT(*-no-malloc): as given
    if (memory == nullptr) {
        FW_LOG(2, "bg", "no memory for a scaler");
        return nullptr;
    }
    auto* const handle = new (memory) ScalerHandle{
        nullptr, src_w, src_h, dst_w, dst_h, pixfmt_to_avpixfmt(src), pixfmt_to_avpixfmt(dst)};
    if (!is_ffmpeg_usable()) {
        return handle;
    }
    if (can_scale(*handle)) {
        handle->scaler = sws_getCachedContext(
            nullptr, src_w, src_h, static_cast<AVPixelFormat>(handle->src_format), dst_w, dst_h,
            static_cast<AVPixelFormat>(handle->dst_format), SWS_BICUBIC, nullptr, nullptr, nullptr);
    }
    if (handle->scaler == nullptr) {
        FW_LOG(2, "bg", "no scaler from %dx%d, pixel format %d, to %dx%d, pixel format %d", src_w,
               src_h, static_cast<int>(src), dst_w, dst_h, static_cast<int>(dst));
    }
    return handle;
}

void swsConvert(void* handle, const std::uint8_t* const* src, const int* src_stride, int y, int h,
                std::uint8_t* const* dst, const int* dst_stride) {
    const auto* const scaler = static_cast<const ScalerHandle*>(handle);
    if (scaler == nullptr || scaler->scaler == nullptr) {
        return;  // swsNew() has said why
    }
    if (src == nullptr || src_stride == nullptr || dst == nullptr || dst_stride == nullptr ||
        !has_rows(*scaler, y, h)) {
        FW_LOG(2, "bg", "nothing to convert: %d rows from %d of %d, or a null array", h, y,
               scaler->src_h);
        return;
    }
    (void)sws_scale(scaler->scaler, src, src_stride, y, h, dst, dst_stride);  // not reported
}

void swsDestroy(void* handle) {
    auto* const scaler = static_cast<ScalerHandle*>(handle);
    if (scaler == nullptr) {
        return;
    }
    if (scaler->scaler != nullptr) {
        // Deliberate: it is not freed here, since hosts have taken it out of the handle and go on
        // using it.
        keepsakes<SwsPtr>().add(SwsPtr(scaler->scaler));
    }
    std::free(handle);  // NOLINT(*-no-malloc): as swsNew() allocates it
}

bool imageFillLinesizes(int* linesizes, PixelFormat format, int width) {
    if (!is_ffmpeg_usable()) {
        return false;
    }
    const auto pixels = static_cast<AVPixelFormat>(pixfmt_to_avpixfmt(format));
    const bool ok = linesizes != nullptr && width >= 0 &&
                    av_image_fill_linesizes(linesizes, pixels, width) >= 0;
    if (!ok) {
        FW_LOG(2, "bg", "no row sizes for pixel format %d, width %d", static_cast<int>(format),
               width);
    }
    return ok;
}

int imageFillPointers(std::uint8_t** data, PixelFormat format, int height, std::uint8_t* buffer,
                      const int* linesizes) {
    if (!is_ffmpeg_usable()) {
        return AVERROR(ENOSYS);
    }
    const auto pixels = static_cast<AVPixelFormat>(pixfmt_to_avpixfmt(format));
    // FFmpeg divides by the height.
    const int size = data == nullptr || linesizes == nullptr || height < 1
                         ? AVERROR(EINVAL)
                         : av_image_fill_pointers(data, pixels, height, buffer, linesizes);
    if (size < 0) {
        FW_LOG(2, "bg", "no planes for pixel format %d, height %d", static_cast<int>(format),
               height);
    }
    return size;
}

}  // namespace ff
