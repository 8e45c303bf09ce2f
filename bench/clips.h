#pragma once

#include <string>
#include <string_view>
#include <vector>

/// @file
/// The clips that are measured, made on first use with the `ffmpeg` program.

namespace bench {

/// One clip and how it is encoded.
struct Clip {
    std::string name;     ///< letters and underscores, for names of files and rows
    std::string title;    ///< for people
    int seconds;          ///< at 30 pictures per second
    std::string source;   ///< lavfi's description of the pictures
    std::string encoder;  ///< ffmpeg's options for the video stream
};

/// The number of pictures in one second of every clip.
constexpr int kPicturesPerSecond = 30;

/// All clips. Each is an MP4 file with a video and an AAC stream, as cameras and recorders write.
const std::vector<Clip>& all_clips();

/// Pictures so small that decoding and scaling them is next to nothing.
const Clip& small_clip();

/// Small pictures with a key frame only every 250: what playing backwards has to keep is bounded.
const Clip& long_gop_clip();

/// One clip of sound: stereo tones and noise.
struct SoundClip {
    std::string name;    ///< letters and underscores, for names of files and rows
    std::string title;   ///< for people
    std::string ending;  ///< of the file, which chooses the container
    int seconds;
    int sample_rate;      ///< Hz
    std::string encoder;  ///< ffmpeg's options for the audio stream
};

/// AAC, MP3, Opus and FLAC, a minute each.
const std::vector<SoundClip>& sound_clips();

/// The clip of this name; ends the program with a message if there is none.
const Clip& clip_named(std::string_view name);

/// The folder for clips and other files of the benchmarks: the environment variable
/// FRAMEWELL_BENCH_CACHE, or framewell-bench in the system's folder for temporary files.
std::string cache_folder();

/// Returns the path of the clip's file, which is made if it is not there. Ends the program with a
/// message if that is not possible.
std::string path_of(const Clip& clip);
std::string path_of(const SoundClip& clip);

}  // namespace bench
