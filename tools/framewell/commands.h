#pragma once

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
    std::string out;                            ///< empty: no picture is written
    bool json = false;
    bool quiet = false;
    std::string hw;
};

struct DevicesOptions {
    bool json = false;
};

Exit run_probe(const ProbeOptions& options);
Exit run_frame(const FrameOptions& options);
Exit run_devices(const DevicesOptions& options);

/// Turns hardware decoding on as `--hw` asks; nothing for an empty text. A device that cannot be
/// opened is reported, and decoding goes on in software. Throws Failure (usage) for an unknown
/// name.
void choose_device(const std::string& hw, bool quiet);

}  // namespace tool
