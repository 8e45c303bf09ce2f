#pragma once

/// @file
/// What the tests of the engine share: small clips, a demuxer with its packet and frame, and the
/// reference that decoded pictures are compared with.

#include "ffdec_instance.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"

#include <framewell/movie_info.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fw_test {

/// The arguments that give ffmpeg a video source whose pictures all differ: 160x120, 25 per second.
inline std::string small_video(const std::string& seconds = "2", const std::string& rate = "25") {
    return "-f lavfi -i testsrc2=size=160x120:rate=" + rate + ":duration=" + seconds +
           ",noise=alls=8:allf=t:all_seed=7,format=yuv420p ";
}

inline std::string small_audio(const std::string& seconds = "2") {
    return "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=" + seconds + " ";
}

// One thread, so that every machine makes the same file.
inline const std::string kSmallH264 = "-c:v libx264 -preset veryfast -threads 1 -bf 2 -g 25 ";

inline std::string small_mp4() {
    return make_clip("small.mp4", small_video() + kSmallH264);
}

inline std::string small_raw_h264() {
    return make_clip("small.h264", small_video() + kSmallH264 + "-f h264");
}

/// A group of pictures may refer to the one before it: what follows its key picture in the file but
/// lies before it in time cannot be decoded after a seek to it.
inline std::string small_open_gop() {
    return make_clip("open_gop.mkv", small_video("4") +
                                         "-c:v libx264 -preset veryfast -threads 1 -bf 2 -g 25 "
                                         "-x264-params open-gop=1:scenecut=0");
}

inline std::string small_mpeg2(const std::string& name) {
    return make_clip(name, small_video("4") + "-c:v mpeg2video -threads 1 -bf 2 -g 12 -q:v 4");
}

/// One picture every two seconds, so that one tick of the stream is two seconds.
inline std::string slow_avi() {
    return make_clip("slow.avi", small_video("20", "1/2") + "-c:v mpeg4 -threads 1 -g 5 -q:v 4");
}

/// A small clip of a kind that has its own way of seeking, by a short name.
inline std::string small_clip_of(const std::string& kind) {
    static const std::map<std::string, std::function<std::string()>> s_clips{
        {"mp4", small_mp4},
        {"opengop", small_open_gop},
        {"opengopts",
         [] { return make_clip("open_gop.ts", "-i '" + small_open_gop() + "' -c copy"); }},
        {"h264ts", [] { return make_clip("h264.ts", small_video("4") + kSmallH264); }},
        {"editlist",
         [] { return make_clip("edit_list.mp4", "-ss 0.5 -i '" + small_mp4() + "' -c copy"); }},
        {"hevc", clip_hevc},
        {"vp9", clip_vp9},
        {"avi", clip_mpeg4_avi},
        {"slow", slow_avi},
        {"vfr", clip_variable_rate},
        {"raw", small_raw_h264},
        {"png", clip_png},
        {"flac", clip_flac}};
    const auto found = s_clips.find(kind);
    return found != s_clips.end() ? found->second() : small_mpeg2("m2." + kind);
}

/// MP3 with a picture attached to it, which is stream number 1.
inline std::string cover_mp3() {
    return make_clip("cover.mp3", small_audio() + "-i '" + clip_png() +
                                      "' -map 0:a -map 1:v -c:a libmp3lame -c:v copy "
                                      "-disposition:v attached_pic");
}

/// A path where there is no file.
inline std::string no_file() {
    return make_file("some.bin", "x") + ".is-not-there";
}

/// Returns the digest of the visible bytes of a picture, as ReferenceFrame has it.
inline std::string picture_md5(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const int size = av_image_get_buffer_size(format, frame.width, frame.height, 1);
    if (size <= 0) {
        return "no picture";
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    (void)av_image_copy_to_buffer(bytes.data(), size, frame.data, frame.linesize, format,
                                  frame.width, frame.height, 1);
    return md5_hex(bytes.data(), bytes.size());
}

/// The picture that covers `ts`: the last one not after it, or the first of all.
inline const ReferenceFrame& covering(const std::vector<ReferenceFrame>& frames, std::int64_t ts) {
    const ReferenceFrame* found = &frames.front();
    for (const ReferenceFrame& frame : frames) {
        if (frame.pts <= ts) {
            found = &frame;
        }
    }
    return *found;
}

/// One frame as the engine decoded it.
struct Decoded {
    std::int64_t pts = AV_NOPTS_VALUE;
    std::string md5;

    bool operator==(const Decoded& other) const { return pts == other.pts && md5 == other.md5; }

    bool operator!=(const Decoded& other) const { return !(*this == other); }
};

/// What GoogleTest shows of a frame.
inline void PrintTo(const Decoded& frame, std::ostream* out) {
    *out << "frame at " << frame.pts << ' ' << frame.md5;
}

inline std::vector<Decoded> as_decoded(const std::vector<ReferenceFrame>& frames) {
    std::vector<Decoded> result;
    for (const ReferenceFrame& frame : frames) {
        result.push_back({frame.pts, frame.md5});
    }
    return result;
}

/// An instance with the packet and the frame that its calls want.
struct Reader {
    Reader() = default;

    Reader(const std::string& path, int stream) {
        const LogCapture quiet;
        if (!instance.open(path.c_str(), stream)) {
            throw std::runtime_error("cannot open " + path);
        }
    }

    int next() { return instance.get_frame(packet.get(), frame.get()); }

    /// The next frame, or one without time and digest.
    Decoded decode() { return next() >= 0 ? Decoded{frame->pts, picture_md5(*frame)} : Decoded(); }

    /// All that is left.
    std::vector<Decoded> decode_all() {
        std::vector<Decoded> frames;
        while (next() >= 0) {
            frames.push_back({frame->pts, picture_md5(*frame)});
        }
        return frames;
    }

    ff::Instance instance;
    ff::PacketPtr packet{av_packet_alloc()};
    ff::FramePtr frame{av_frame_alloc()};
};

/// Probes without a word.
inline const ff::MovieCtx* probe(const std::string& path) {
    const LogCapture quiet;
    const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str(), nullptr);
    if (movie == nullptr) {
        throw std::runtime_error("cannot probe " + path);
    }
    return movie;
}

/// Keeps FFmpeg from printing what it finds wrong with a file.
class QuietFfmpeg {
public:
    QuietFfmpeg() { av_log_set_level(AV_LOG_QUIET); }

    QuietFfmpeg(const QuietFfmpeg&) = delete;
    QuietFfmpeg& operator=(const QuietFfmpeg&) = delete;

    ~QuietFfmpeg() { av_log_set_level(m_level); }

private:
    const int m_level = av_log_get_level();
};

/// Returns `bytes` with one bit flipped in every `step`th byte, from byte `from` on.
inline std::string with_flipped_bits(std::string bytes, std::size_t from, std::size_t step) {
    for (std::size_t i = from; i < bytes.size(); i += step) {
        bytes[i] = static_cast<char>(bytes[i] ^ (1 << (i / step % 8)));
    }
    return bytes;
}

/// Returns `bytes` with every `old_text` replaced by `new_text`, which is as long.
inline std::string with_replaced(std::string bytes, const std::string& old_text,
                                 const std::string& new_text) {
    for (std::size_t at = 0; (at = bytes.find(old_text, at)) != std::string::npos;) {
        bytes.replace(at, old_text.size(), new_text);
        at += old_text.size();
    }
    return bytes;
}

}  // namespace fw_test
