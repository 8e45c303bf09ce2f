#pragma once

#include "commands.h"
#include "parser.h"

#include <array>
#include <string>

namespace tool {

/// What an exit status tells, for `--help` and the man page.
struct ExitMeaning {
    Exit status;
    const char* text;
};

inline constexpr std::array<ExitMeaning, 5> kExitMeanings{{
    {Exit::Done, "done"},
    {Exit::Failed, "some request had no answer or a file could not be used"},
    {Exit::Usage, "wrong usage"},
    {Exit::Differs, "verify found a difference"},
    {Exit::Interrupted, "interrupted"},
}};

/// All of them as the foot of `--help`.
std::string exit_status_text();

/// What every verb understands, before or after its name.
struct CommonOptions {
    bool verbose = false;
    bool quiet = false;
};

void add_common(CLI::App& app, CommonOptions& options);

/// A value named FILE, INPUT or OUT is the path of a file: shells complete it.
/// Each adds a verb whose parsed options go into `options`, which has to live as long as `app`.
CLI::App* add_probe(CLI::App& app, ProbeOptions& options);
CLI::App* add_frame(CLI::App& app, FrameOptions& options);
CLI::App* add_audio(CLI::App& app, AudioOptions& options);
CLI::App* add_mix(CLI::App& app, MixOptions& options);
CLI::App* add_play(CLI::App& app, PlayOptions& options);
CLI::App* add_verify(CLI::App& app, VerifyOptions& options);
CLI::App* add_cover(CLI::App& app, CoverOptions& options);
CLI::App* add_sheet(CLI::App& app, SheetOptions& options);
CLI::App* add_wave(CLI::App& app, WaveOptions& options);
CLI::App* add_devices(CLI::App& app, DevicesOptions& options);

}  // namespace tool
