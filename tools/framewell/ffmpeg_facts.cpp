#include "ffmpeg_facts.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/hwcontext.h>
#include <libavutil/log.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <libavutil/murmur3.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <utility>

namespace tool {

namespace {

using Listener = std::function<void(const std::string&)>;

// Never destroyed: FFmpeg's threads may still report while the process ends.
Listener& listener_slot() {
    static auto* const s_listener = new Listener;
    return *s_listener;
}

// The attribute lets the compiler check FFmpeg's calls as it does printf's.
__attribute__((format(printf, 3, 0))) void pass_errors_on(void* /*object*/, int level,
                                                          const char* format, std::va_list args) {
    if (level > AV_LOG_ERROR) {
        return;
    }
    char text[512] = "";
    (void)std::vsnprintf(text, sizeof text, format, args);  // a long message is cut
    // A line may come in several pieces.
    thread_local std::string line;
    line += text;
    if (line.empty() || line.back() != '\n') {
        return;
    }
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) {
        line.pop_back();
    }
    if (!line.empty()) {
        listener_slot()(line);
    }
    line.clear();
}

// Finds out by itself whether FFmpeg takes the length as an int (up to 4.4) or a size_t; both hold
// a piece.
template <class State, class Length>
void update_digest(void (*update)(State*, const std::uint8_t*, Length), State* state,
                   const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t piece = std::size_t{1} << 24;
    for (std::size_t done = 0; done < size; done += piece) {
        update(state, data + done, static_cast<Length>(std::min(piece, size - done)));
    }
}

struct Free {
    void operator()(void* memory) const { av_free(memory); }
};

template <class T>
std::unique_ptr<T, Free> owned(T* object) {
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return std::unique_ptr<T, Free>(object);
}

struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

}  // namespace

const char* pixel_format_name(int format) {
    return av_get_pix_fmt_name(static_cast<AVPixelFormat>(format));
}

const char* sample_format_name(int format) {
    return av_get_sample_fmt_name(static_cast<AVSampleFormat>(format));
}

std::string ffmpeg_reason(int result) {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    (void)av_strerror(result, text, sizeof text);  // it writes a text for unknown codes, too
    return text;
}

std::string codec_name(const std::string& path, int stream) {
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) {
        return {};
    }
    const std::unique_ptr<AVFormatContext, CloseInput> context(opened);
    const auto knows = [&] {
        return stream >= 0 && stream < static_cast<int>(context->nb_streams);
    };
    if (!knows() || context->streams[stream]->codecpar->codec_id == AV_CODEC_ID_NONE) {
        (void)avformat_find_stream_info(context.get(), nullptr);  // what it found shows below
    }
    return knows() ? avcodec_get_name(context->streams[stream]->codecpar->codec_id) : "";
}

ff::PixelFormat richest_format(int format) {
    const AVPixFmtDescriptor* const pixels =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
    if (pixels == nullptr) {
        return ff::PixelFormat::Rgba;
    }
    if (pixels->comp[0].depth > 8) {
        return ff::PixelFormat::Bgra64le;
    }
    const bool is_plain = (pixels->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_ALPHA)) == 0;
    const bool is_420 = pixels->log2_chroma_w == 1 && pixels->log2_chroma_h == 1;
    return is_plain && is_420 ? ff::PixelFormat::Yuv420p : ff::PixelFormat::Rgba;
}

ff::SampleFormat richest_sample_format(int format) {
    switch (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(format))) {
        case AV_SAMPLE_FMT_U8:
            return ff::SampleFormat::U8;
        case AV_SAMPLE_FMT_S16:
            return ff::SampleFormat::S16;
        case AV_SAMPLE_FMT_S32:
        case AV_SAMPLE_FMT_S64:
            return ff::SampleFormat::S32;
        default:
            return ff::SampleFormat::Flt;
    }
}

std::string md5_hex(const std::uint8_t* bytes, std::size_t size) {
    const std::unique_ptr<AVMD5, Free> md5 = owned(av_md5_alloc());
    av_md5_init(md5.get());
    update_digest(av_md5_update, md5.get(), bytes, size);
    std::array<std::uint8_t, 16> digest{};
    av_md5_final(md5.get(), digest.data());

    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string md5_hex(const std::vector<std::uint8_t>& bytes) {
    return md5_hex(bytes.data(), bytes.size());
}

std::string md5_hex(std::string_view bytes) {
    return md5_hex(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

Fingerprint fingerprint(const std::vector<std::uint8_t>& bytes) {
    const std::unique_ptr<AVMurMur3, Free> state = owned(av_murmur3_alloc());
    av_murmur3_init(state.get());
    update_digest(av_murmur3_update, state.get(), bytes.data(), bytes.size());
    Fingerprint result{};
    av_murmur3_final(state.get(), result.data());
    return result;
}

std::string why_device_fails(const std::string& name) {
    const AVHWDeviceType type = av_hwdevice_find_type_by_name(name.c_str());
    if (type == AV_HWDEVICE_TYPE_NONE) {
        return "FFmpeg does not know this type";
    }
    AVBufferRef* device = nullptr;
    const int result = av_hwdevice_ctx_create(&device, type, nullptr, nullptr, 0);
    av_buffer_unref(&device);
    if (result >= 0) {
        return {};
    }
    return ffmpeg_reason(result);
}

void route_ffmpeg_messages(FFmpegMessages route, Listener listener) {
    switch (route) {
        case FFmpegMessages::Nowhere:
            av_log_set_level(AV_LOG_QUIET);
            break;
        case FFmpegMessages::ToStandardError:
            av_log_set_level(AV_LOG_INFO);
            break;
        case FFmpegMessages::ErrorsToListener:
            listener_slot() = std::move(listener);
            av_log_set_callback(pass_errors_on);
            break;
    }
}

}  // namespace tool
