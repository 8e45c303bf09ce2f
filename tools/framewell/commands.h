#pragma once

#include "effects.h"
#include "report.h"

#include <framewell/frame.h>
#include <framewell/media/formats.h>

#include <optional>
#include <string>
#include <vector>

/// @file
/// The verbs of the tool. Each prints its results on standard output and says how it ended; what
/// keeps it from going on is thrown as a Failure.

namespace tool {

struct ProbeOptions {
    std::vector<std::string> files;
    bool json = false;
    bool quiet = false;
    std::string hw;  ///< device type, "auto", or empty: software
};

struct FrameOptions {
    std::string file;
    std::vector<std::string> at;  ///< times as given; "-" stands for the lines of standard input
    std::optional<int> stream;    ///< the file's number; none: the first video stream
    ff::PixelFormat format = ff::PixelFormat::Rgba;
    int divider = 1;
    std::optional<ff::MemoryMode> memory_mode;  ///< decides the divider if set
    Effects effects;                            ///< with them, times are those of the output
    std::string out;                            ///< empty: no picture is written
    bool json = false;
    bool quiet = false;
    std::string hw;
};

struct AudioOptions {
    std::string file;
    std::string from;
    std::string to;
    std::string step;             ///< length of each span; empty: one span
    std::vector<std::string> at;  ///< spans "A B" in place of `from` and `to`; "-" as in `frame`
    std::optional<int> stream;    ///< the file's number; none: the first audio stream
    std::optional<int> rate;      ///< Hz; none: the stream's
    std::optional<int> channels;  ///< none: the stream's
    ff::SampleFormat format = ff::SampleFormat::S16;
    Effects effects;
    std::string out;  ///< empty: nothing is written
    bool json = false;
    bool quiet = false;
    std::string hw;
};

struct MixOptions {
    std::vector<std::string> inputs;  ///< FILE[@OFFSET][:VOLUME]
    std::string from;                 ///< empty: 0
    std::string to;                   ///< empty: where the last source ends
    int rate = 48000;                 ///< Hz
    int channels = 2;
    ff::SampleFormat format = ff::SampleFormat::S16;
    std::string out;
    bool json = false;
    bool quiet = false;
    bool progress = false;  ///< also where standard error is no terminal
    std::string hw;
};

struct PlayOptions {
    std::string file;
    std::string from;  ///< empty: the movie's start
    std::string to;    ///< empty: its end
    Effects effects;
    std::string rate;  ///< pictures per second; empty: the stream's
    bool json = false;
    bool quiet = false;
    bool progress = false;  ///< also where standard error is no terminal
    std::string hw;
};

struct VerifyOptions {
    std::vector<std::string> files;
    unsigned int seed = 1;
    int requests = 50;  ///< of each kind and stream
    bool json = false;
    bool quiet = false;
    bool progress = false;  ///< also where standard error is no terminal
    std::string hw;
};

struct CoverOptions {
    std::vector<std::string> files;
    std::string box;     ///< "WxH"; empty: no limit
    std::string at;      ///< a time; empty: `ratio` counts
    double ratio = 0.1;  ///< of the duration
    std::string out;
    bool json = false;
    bool quiet = false;
    std::string hw;
};

struct SheetOptions {
    std::string file;
    std::string out;
    std::optional<int> columns;  ///< none: as the pictures' shape suggests
    std::optional<int> rows;
    int width = 1280;  ///< of the sheet, pixels
    bool quiet = false;
    bool progress = false;  ///< also where standard error is no terminal
    std::string hw;
};

struct WaveOptions {
    std::string file;
    std::string out;
    int width = 1200;  ///< pixels
    int height = 300;
    bool quiet = false;
    bool progress = false;  ///< also where standard error is no terminal
    std::string hw;
};

struct DevicesOptions {
    bool json = false;
};

Exit run_probe(const ProbeOptions& options);
Exit run_frame(const FrameOptions& options);
Exit run_audio(const AudioOptions& options);
Exit run_mix(const MixOptions& options);
Exit run_play(const PlayOptions& options);
Exit run_verify(const VerifyOptions& options);
Exit run_cover(const CoverOptions& options);
Exit run_sheet(const SheetOptions& options);
Exit run_wave(const WaveOptions& options);
Exit run_devices(const DevicesOptions& options);

/// Turns hardware decoding on as `--hw` asks; nothing for an empty text. A device that cannot be
/// opened is reported, and decoding goes on in software. Throws Failure (usage) for an unknown
/// name.
void choose_device(const std::string& hw, bool quiet);

}  // namespace tool
