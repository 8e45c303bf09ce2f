#pragma once

/// @file
/// Media files for tests: clips that the `ffmpeg` program makes on the spot, files of the shared
/// collection, and what each of them decodes to. Times are ticks of the stream unless a name says
/// otherwise. Everything here throws std::runtime_error with a sentence that says what is wrong
/// (GoogleTest shows it as the failure), and is safe to call from several threads and processes.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fw_test {

/// Returns the path of a clip, made by `ffmpeg ARGUMENTS OUTPUT` the first time that it is asked
/// for and kept for later runs: a clip with other arguments is another clip. The clips lie in the
/// build folder, or in the folder named by the environment variable FRAMEWELL_CLIP_DIR.
/// @param name       file name; its extension picks the container ("gop30.mp4").
/// @param arguments  words as a shell would read them, without the output file.
std::string make_clip(const std::string& name, const std::string& arguments);

/// Returns the path of a file with these bytes, made like a clip.
std::string make_file(const std::string& name, const std::string& bytes);

/// Returns the bytes of the file at `path`.
std::string read_file(const std::string& path);

// Clips by name. Video is 320x240 yuv420p at 30 pictures per second unless stated otherwise, every
// picture different from its neighbours; sound is 44100 Hz stereo, a sweep that never repeats.

std::string clip_h264();                 ///< MP4, 4 s, key picture every 30, B pictures
std::string clip_h264_long_gop();        ///< MP4, 20 s, key picture every 250, B pictures
std::string clip_hevc();                 ///< MP4, 4 s, key picture every 30
std::string clip_vp9();                  ///< WebM, 4 s, key picture every 30
std::string clip_mpeg2_ts();             ///< MPEG-TS, 4 s, B pictures, starts at 1.4 s
std::string clip_mpeg4_avi();            ///< AVI, 4 s, 25 pictures per second: tick = picture
std::string clip_raw_h264();             ///< elementary H.264 with B pictures, no timestamps
std::string clip_variable_rate();        ///< Matroska H.264, irregular gaps of 1 to 5 thirtieths
std::string clip_two_video_two_audio();  ///< MP4: 320x240, 160x120, stereo, mono; 3 s
std::string clip_subrip();               ///< Matroska H.264 and SubRip with three events; 3 s
std::string clip_video_audio();          ///< MP4 H.264 and AAC, 4 s

std::string clip_aac();   ///< M4A, 3 s
std::string clip_mp3();   ///< MP3, 3 s
std::string clip_flac();  ///< FLAC, 3 s
std::string clip_opus();  ///< Ogg Opus, 48000 Hz, 3 s
std::string clip_pcm();   ///< WAV, signed 16 bits, 3 s

std::string clip_png();   ///< PNG, one picture, rgb24
std::string clip_jpeg();  ///< JPEG, one picture

/// Returns the path of the file `name` of the shared collection, whose folder is named by the
/// environment variable FRAMEWELL_SHARED_MEDIA. Empty when the variable or the file is missing:
/// the test then skips with the name of what it lacks.
std::string shared_media(const std::string& name);

/// Returns the names of all media files of the shared collection, sorted; none without it.
std::vector<std::string> shared_media_names();

/// One decoded picture of a reference decode, in presentation order.
struct ReferenceFrame {
    std::int64_t pts = 0;
    std::string md5;  ///< of the picture's planes, rows without padding, in its own format
};

/// Returns all pictures of the file's stream number `stream` as the `ffmpeg` program decodes them
/// with one thread: not rotated, not scaled, none dropped or doubled. For our own clips; the shared
/// files have their ground truth.
std::vector<ReferenceFrame> reference_frames(const std::string& path, int stream);

/// One picture of the ground truth.
struct TruthFrame {
    std::int64_t number = 0;                ///< position in presentation order, from 0
    std::optional<std::int64_t> timestamp;  ///< best-effort timestamp
    std::optional<std::int64_t> pts;
    std::optional<std::int64_t> pkt_dts;
    std::optional<std::int64_t> duration;
    bool key = false;
    std::string type;  ///< "I", "P", "B", ...
    std::string md5;   ///< as in ReferenceFrame; empty if unknown
};

/// One stream of the ground truth. Only the fields of its `type` are filled.
struct TruthStream {
    int index = -1;    ///< number in the file
    std::string type;  ///< "video", "audio" or "subtitle"
    std::string codec;
    std::int64_t tb_num = 0;  ///< time base, seconds per tick
    std::int64_t tb_den = 1;

    int width = 0;
    int height = 0;
    std::string pix_fmt;
    bool attached_pic = false;
    std::optional<double> rotation_by_rule;
    std::int64_t frames_total = 0;
    std::vector<TruthFrame> frames;   ///< the first 600
    std::vector<TruthFrame> sampled;  ///< of longer streams, every 50th after them and the last 10
    bool several_formats = false;     ///< size or pixel format changes within the stream
    bool thread_sensitive = false;    ///< do not compare md5s: threads change the pictures
    bool timestamps_thread_sensitive = false;
    bool count_differs = false;  ///< timestamps and md5s of `frames` may not belong together
    std::int64_t pts_mismatch = 0;
    std::int64_t frames_without_pts = 0;
    std::int64_t frames_without_any_timestamp = 0;
    std::int64_t timestamps_not_increasing = 0;

    int rate = 0;
    int channels = 0;
    std::string sample_fmt;
    std::int64_t samples = 0;  ///< per channel
    std::optional<std::int64_t> first_pts;
    std::string md5;  ///< of all samples as interleaved s16
    std::int64_t block_samples = 0;
    std::vector<std::string> blocks;  ///< first 12 digits of the md5 of each block
    bool params_change = false;

    struct Packet {
        std::int64_t pts = 0;
        std::int64_t duration = 0;
        std::string text;
    };

    std::vector<Packet> packets;  ///< SubRip only
};

struct Truth {
    bool openable = false;
    std::vector<TruthStream> streams;
};

/// Returns the ground truth of the shared file `name`; empty when the collection is absent or has
/// none for it.
std::optional<Truth> shared_truth(const std::string& name);

/// Returns the MD5 of `size` bytes as 32 lower-case digits.
std::string md5_hex(const void* data, std::size_t size);

}  // namespace fw_test
