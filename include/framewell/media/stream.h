#pragma once

#include <framewell/base/config.h>
#include <framewell/media/formats.h>
#include <framewell/media/rational.h>

#include <cstdint>
#include <string>
#include <vector>

/// @file
/// What a probe finds in a file: one MovieCtx per file and one StreamCtx per usable stream.

namespace ff {

struct MovieCtx;

/// One event of a SubRip subtitle stream. A part of its stream's record, and read-only like that.
struct Subtitle {
    std::int64_t start = 0;  ///< microseconds
    std::int64_t end = 0;    ///< microseconds; equal to `start`, the probe does not know the end
    std::string text;        ///< the packet's bytes as they are in the file
};

/// One stream of a file, as the probe measured it. The address of a record is the key by which
/// decoders are opened and decoding workers are shared, so a record is never copied or moved.
/// Only the fields of the stream's own `type` are filled; those of the other types keep their
/// defaults. Made by the probe, never freed, valid for the life of the process.
/// Thread-safety: read-only after the probe returned it; any thread may read.
struct StreamCtx {
    int index = -1;                      ///< the stream's number in the file
    StreamType type = StreamType::None;  ///< which of the fields below are filled
    Rational time_base{0, 1};            ///< length of one tick, seconds
    std::int64_t duration = 0;           ///< ticks; INT64_MIN (AV_NOPTS_VALUE) when unknown
    std::int64_t start_time = 0;         ///< ticks; INT64_MIN (AV_NOPTS_VALUE) when unknown
    MovieCtx* movie = nullptr;           ///< the file that this stream belongs to

    // Video
    int width = 0;              ///< pixels, as the file codes them (before rotation)
    int height = 0;             ///< likewise
    int codec_pix_fmt = -1;     ///< AVPixelFormat that the file announces; -1: not decodable
    int hw_pix_fmt = -1;        ///< AVPixelFormat of decoded pictures if another, else -1
    int pix_fmt = -1;           ///< AVPixelFormat that decoded pictures really have
    double rotation = 0;        ///< degrees clockwise that the picture is to be turned by
    bool single_frame = false;  ///< a still: the stream ends after its first picture
    Rational sample_aspect_ratio{0, 1};  ///< width to height of one pixel; 0/1 when unknown
    Rational frame_rate{0, 0};           ///< pictures per second; 0/0 if nothing could be decoded

    // Audio
    std::uint64_t channel_layout = 0;  ///< FFmpeg's mask of channels; 0: no layout for this count
    int channels = 0;                  ///< of one sample
    int sample_rate = 0;               ///< Hz
    int sample_fmt = -1;               ///< AVSampleFormat that the file announces

    // Subtitle
    std::vector<Subtitle> subtitles;  ///< in file order
};

/// One probed file. Made by the probe and kept, by path, for the life of the process.
/// `streams` holds records of usable streams only, so its positions are not the file's stream
/// numbers, while the three index arrays hold the file's numbers: use first_stream() to get from a
/// kind of stream to its record.
/// Thread-safety: read-only after the probe returned it; any thread may read.
struct MovieCtx {
    static constexpr int kMaxStreams = 32;  ///< records kept; streams beyond them are left out
    static constexpr int kMaxPerKind = 8;   ///< numbers kept in each index array

    char* path = nullptr;                           ///< as given to the probe
    StreamCtx* streams[kMaxStreams] = {};           ///< usable streams in file order
    int nb_streams = 0;                             ///< entries used in `streams`
    std::int64_t start_time = 0;                    ///< microseconds; INT64_MIN when unknown
    std::int64_t duration = 0;                      ///< microseconds; INT64_MIN when unknown
    std::int64_t bit_rate = 0;                      ///< bits per second; 0 when unknown
    std::uint8_t audio_index[kMaxPerKind] = {};     ///< file numbers of the audio streams
    std::uint8_t video_index[kMaxPerKind] = {};     ///< file numbers of the video streams
    std::uint8_t subtitle_index[kMaxPerKind] = {};  ///< file numbers of the subtitle streams, also
                                                    ///< of those without a record
    int nb_audio = 0;                               ///< entries used in `audio_index`
    int nb_video = 0;                               ///< entries used in `video_index`
    int nb_subtitle = 0;                            ///< entries used in `subtitle_index`
};

/// Returns the first record of `movie` that is of kind `type`, or null if there is none.
/// A null movie has none.
/// Thread-safety: safe.
FRAMEWELL_API const StreamCtx* first_stream(const MovieCtx* movie, StreamType type);

/// Returns the record of the file's stream number `index`, or null if `movie` (which may be null)
/// has no record of it.
/// Thread-safety: safe.
FRAMEWELL_API const StreamCtx* stream_by_index(const MovieCtx* movie, int index);

}  // namespace ff
