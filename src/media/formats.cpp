#include "media/ff_compat.h"

#include <framewell/media/formats.h>

namespace ff {

namespace {

struct PixelFormatPair {
    PixelFormat own;
    AVPixelFormat ffmpeg;
};

// By FFmpeg's names: the numbers of the 64-bit formats differ between its releases (108 and 109
// until 4.4, 106 and 107 in 5.1).
constexpr PixelFormatPair kPixelFormats[] = {
    {PixelFormat::Rgba, AV_PIX_FMT_RGBA},         {PixelFormat::Yuv420p, AV_PIX_FMT_YUV420P},
    {PixelFormat::Nv12, AV_PIX_FMT_NV12},         {PixelFormat::Bgra64be, AV_PIX_FMT_BGRA64BE},
    {PixelFormat::Bgra64le, AV_PIX_FMT_BGRA64LE},
};

struct SampleFormatPair {
    SampleFormat own;
    AVSampleFormat ffmpeg;
};

constexpr SampleFormatPair kSampleFormats[] = {
    {SampleFormat::U8, AV_SAMPLE_FMT_U8},
    {SampleFormat::S16, AV_SAMPLE_FMT_S16},
    {SampleFormat::S32, AV_SAMPLE_FMT_S32},
    {SampleFormat::Flt, AV_SAMPLE_FMT_FLT},
};

}  // namespace

int pixfmt_to_avpixfmt(PixelFormat format) {
    for (const PixelFormatPair& pair : kPixelFormats) {
        if (pair.own == format) {
            return pair.ffmpeg;
        }
    }
    return AV_PIX_FMT_NONE;
}

PixelFormat avpixfmt_to_pixfmt(int format) {
    for (const PixelFormatPair& pair : kPixelFormats) {
        if (pair.ffmpeg == format) {
            return pair.own;
        }
    }
    return PixelFormat::None;
}

int samplefmt_to_avsamplefmt(SampleFormat format) {
    for (const SampleFormatPair& pair : kSampleFormats) {
        if (pair.own == format) {
            return pair.ffmpeg;
        }
    }
    return AV_SAMPLE_FMT_NONE;
}

SampleFormat avsamplefmt_to_samplefmt(int format) {
    for (const SampleFormatPair& pair : kSampleFormats) {
        if (pair.ffmpeg == format) {
            return pair.own;
        }
    }
    return SampleFormat::None;
}

}  // namespace ff
