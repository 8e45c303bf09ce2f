#include "ffmpeg_facts.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/hwcontext.h>
#include <libavutil/log.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
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
    std::string line(text);
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) {
        line.pop_back();
    }
    if (!line.empty()) {
        listener_slot()(line);
    }
}

// Finds out by itself whether FFmpeg takes the length as an int (up to 4.4) or a size_t; both hold
// a piece.
template <class Length>
void update_md5(void (*update)(AVMD5*, const std::uint8_t*, Length), AVMD5* md5,
                const std::uint8_t* data, std::size_t length) {
    update(md5, data, static_cast<Length>(length));
}

}  // namespace

const char* pixel_format_name(int format) {
    return av_get_pix_fmt_name(static_cast<AVPixelFormat>(format));
}

const char* sample_format_name(int format) {
    return av_get_sample_fmt_name(static_cast<AVSampleFormat>(format));
}

std::string md5_hex(const std::vector<std::uint8_t>& bytes) {
    const std::unique_ptr<AVMD5, void (*)(void*)> md5(av_md5_alloc(), av_free);
    if (md5 == nullptr) {
        throw std::bad_alloc();
    }
    constexpr std::size_t piece = std::size_t{1} << 24;
    av_md5_init(md5.get());
    for (std::size_t done = 0; done < bytes.size(); done += piece) {
        const std::size_t length = std::min(piece, bytes.size() - done);
        update_md5(av_md5_update, md5.get(), bytes.data() + done, length);
    }
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
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    (void)av_strerror(result, text, sizeof text);  // it writes a text for unknown codes, too
    return text;
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
