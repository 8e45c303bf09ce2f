#include "command_line.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdio>
#include <limits>
#include <locale>
#include <map>
#include <sstream>

namespace tool {

namespace {

void add_hardware(CLI::App& verb, std::string& hw) {
    verb.add_option("--hw", hw,
                    "decode on a hardware device: a type that `framewell devices` lists, or auto")
        ->type_name("NAME");
}

// CLI11's own checks of numbers print the range as doubles with 300 digits.
CLI::Validator whole_number_from(int least, int most = std::numeric_limits<int>::max()) {
    const auto check = [least, most](const std::string& text) -> std::string {
        int value = 0;
        const char* const end = text.data() + text.size();
        const std::from_chars_result result = std::from_chars(text.data(), end, value);
        if (result.ec == std::errc() && result.ptr == end && value >= least && value <= most) {
            return {};
        }
        return "\"" + text + "\" is no whole number from " + std::to_string(least) + " to " +
               std::to_string(most);
    };
    return {check, ""};
}

/// Reads the text as a number of the C locale whatever the user's is, unlike strtod; false if more
/// or something else is in it. The library of g++ 10 has no std::from_chars for doubles.
bool read_number(const std::string& text, double* value) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    stream >> std::noskipws >> *value;
    return !stream.fail() && stream.peek() == std::istringstream::traits_type::eof() &&
           text.front() != '+';
}

CLI::Validator number_between(double least, double most) {
    const auto check = [least, most](const std::string& text) -> std::string {
        double value = 0;
        if (read_number(text, &value) && value >= least && value <= most) {
            return {};
        }
        char range[64];
        (void)std::snprintf(range, sizeof range, "\" is no number from %.1f to %.1f", least, most);
        return "\"" + text + range;
    };
    return {check, ""};
}

void add_effects(CLI::App& verb, Effects& effects, bool has_pictures) {
    verb.add_option("--speed", effects.speed,
                    "play faster or slower, 0.5 to 3; times are then those of the output")
        ->check(number_between(0.5, 3.0))
        ->type_name("X");
    if (has_pictures) {
        verb.add_flag("--reverse", effects.reverse,
                      "play pictures backwards; times are then those of the output");
    }
}

void add_filter(CLI::App& verb, Effects& effects) {
    verb.add_option("--filter", effects.filter,
                    "filters for what was decoded, in libavfilter's syntax")
        ->type_name("TEXT");
}

void add_progress(CLI::App& verb, bool& progress) {
    verb.add_flag("--progress", progress,
                  "show the progress also where standard error is no terminal");
}

}  // namespace

std::string exit_status_text() {
    constexpr std::size_t width = 80;
    std::string text = "Exit status:";
    std::size_t line_start = 0;
    for (const ExitMeaning& meaning : kExitMeanings) {
        const std::string part =
            std::to_string(static_cast<int>(meaning.status)) + " " + meaning.text;
        const bool is_full = text.size() - line_start + part.size() + 2 > width;
        text += is_full ? "\n" : " ";
        line_start = is_full ? text.size() : line_start;
        text += part + (meaning.status == kExitMeanings.back().status ? "." : ",");
    }
    return text;
}

void add_common(CLI::App& app, CommonOptions& options) {
    CLI::Option* const verbose =
        app.add_flag("-v,--verbose", options.verbose, "show the library's log on standard error");
    app.add_flag("--quiet", options.quiet, "show nothing of the library's log")->excludes(verbose);
}

CLI::App* add_probe(CLI::App& app, ProbeOptions& options) {
    CLI::App* const verb = app.add_subcommand("probe", "Show what is in files");
    verb->add_option("FILE", options.files, "media files")->required()->type_name("");
    verb->add_flag("--json", options.json, "one JSON object per file, each on one line");
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_frame(CLI::App& app, FrameOptions& options) {
    static const std::map<std::string, ff::PixelFormat> s_formats{
        {"rgba", ff::PixelFormat::Rgba},
        {"yuv420p", ff::PixelFormat::Yuv420p},
        {"nv12", ff::PixelFormat::Nv12},
        {"bgra64be", ff::PixelFormat::Bgra64be},
        {"bgra64le", ff::PixelFormat::Bgra64le}};
    static const std::map<std::string, ff::MemoryMode> s_modes{
        {"full", ff::MemoryMode::Full}, {"resolution", ff::MemoryMode::ByResolution}};

    CLI::App* const verb = app.add_subcommand("frame", "Give the picture that is shown at a time");
    verb->add_option("FILE", options.file, "media file")->required()->type_name("");
    verb->add_option("--at", options.at,
                     "time from the movie's start: seconds (12.5), a fraction (1001/30000), "
                     "[hh:]mm:ss[.fff]; may be repeated. -: one per line of standard input")
        ->required()
        ->type_name("T")
        ->allow_extra_args(false);
    verb->add_option("--stream", options.stream,
                     "the stream's number in the file (default: the first video stream)")
        ->check(whole_number_from(0))
        ->type_name("N");
    verb->add_option_function<std::string>(
            "--format",
            [&options](const std::string& name) { options.format = s_formats.at(name); },
            "pixel format (default: rgba)")
        ->check(CLI::IsMember(&s_formats))
        ->type_name("FORMAT");
    CLI::Option* const divider =
        verb->add_option("--divider", options.divider, "divide width and height (default: 1)")
            ->check(whole_number_from(1))
            ->type_name("D");
    verb->add_option_function<std::string>(
            "--memory-mode",
            [&options](const std::string& name) { options.memory_mode = s_modes.at(name); },
            "full: never divide; resolution: divide large pictures by 2 or 4")
        ->check(CLI::IsMember(&s_modes))
        ->excludes(divider)
        ->type_name("MODE");
    verb->add_option("-o", options.out,
                     "write the picture to a .png, .jpg or .raw file; %d in the name stands for "
                     "the number of the time. -: raw bytes on standard output")
        ->type_name("OUT");
    verb->add_flag("--json", options.json, "one JSON object per time, each on one line");
    add_effects(*verb, options.effects, true);
    add_filter(*verb, options.effects);
    add_hardware(*verb, options.hw);
    return verb;
}

/// `formats` must live as long as the parser.
void add_sample_format(CLI::App& verb, const std::map<std::string, ff::SampleFormat>& formats,
                       ff::SampleFormat& format) {
    verb.add_option_function<std::string>(
            "--format", [&](const std::string& name) { format = formats.at(name); },
            "sample format (default: s16)")
        ->check(CLI::IsMember(&formats))
        ->type_name("FORMAT");
}

CLI::App* add_audio(CLI::App& app, AudioOptions& options) {
    static const std::map<std::string, ff::SampleFormat> s_formats{{"u8", ff::SampleFormat::U8},
                                                                   {"s16", ff::SampleFormat::S16},
                                                                   {"s32", ff::SampleFormat::S32},
                                                                   {"flt", ff::SampleFormat::Flt}};

    CLI::App* const verb = app.add_subcommand("audio", "Give the samples of a span of time");
    verb->add_option("FILE", options.file, "media file")->required()->type_name("");
    verb->add_option("--from", options.from, "where the span begins, from the movie's start")
        ->type_name("A");
    verb->add_option("--to", options.to, "where it ends; the sample at B is not in it")
        ->type_name("B");
    verb->add_option("--step", options.step,
                     "answer in spans of this length that follow each other")
        ->type_name("S");
    verb->add_option("--at", options.at,
                     "a span as two times, \"A B\"; may be repeated. -: one per line of standard "
                     "input")
        ->type_name("SPAN")
        ->allow_extra_args(false);
    verb->add_option("--stream", options.stream,
                     "the stream's number in the file (default: the first audio stream)")
        ->check(whole_number_from(0))
        ->type_name("N");
    verb->add_option("--rate", options.rate, "samples per second (default: the stream's)")
        ->check(whole_number_from(1))
        ->type_name("R");
    verb->add_option("--channels", options.channels, "channels (default: the stream's)")
        ->check(whole_number_from(1))
        ->type_name("C");
    add_sample_format(*verb, s_formats, options.format);
    add_effects(*verb, options.effects, false);
    add_filter(*verb, options.effects);
    verb->add_option("-o", options.out,
                     "write the sound to a .wav or .raw file, all spans joined. -: raw bytes on "
                     "standard output")
        ->type_name("OUT");
    verb->add_flag("--json", options.json, "one JSON object per span, each on one line");
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_mix(CLI::App& app, MixOptions& options) {
    // Without "u8": the mixer's blocks begin with zeros, which are no silence there.
    static const std::map<std::string, ff::SampleFormat> s_formats{{"s16", ff::SampleFormat::S16},
                                                                   {"s32", ff::SampleFormat::S32},
                                                                   {"flt", ff::SampleFormat::Flt}};

    CLI::App* const verb = app.add_subcommand("mix", "Mix the sound of several files");
    verb->add_option("INPUT", options.inputs,
                     "FILE[@OFFSET][:VOLUME]: a media file, the output time in seconds at which it "
                     "starts (default: 0), and its volume from 0 to 128 (default: 128)")
        ->required()
        ->type_name("");
    verb->add_option("--from", options.from, "output time to begin at (default: 0)")
        ->type_name("A");
    verb->add_option("--to", options.to,
                     "output time to end at (default: where the last file ends)")
        ->type_name("B");
    verb->add_option("--rate", options.rate, "samples per second (default: 48000)")
        ->check(whole_number_from(1))
        ->type_name("R");
    verb->add_option("--channels", options.channels, "channels (default: 2)")
        ->check(whole_number_from(1))
        ->type_name("C");
    add_sample_format(*verb, s_formats, options.format);
    verb->add_option("-o", options.out,
                     "write the mix to a .wav or .raw file. -: raw bytes on standard output")
        ->required()
        ->type_name("OUT");
    verb->add_flag("--json", options.json, "the numbers as one JSON object");
    verb->add_flag("--progress", options.progress,
                   "show the progress also if standard error is no terminal");
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_play(CLI::App& app, PlayOptions& options) {
    CLI::App* const verb = app.add_subcommand(
        "play", "Walk the time line as a player does, picture and sound by turns, and measure it");
    verb->add_option("FILE", options.file, "media file")->required()->type_name("");
    verb->add_option("--from", options.from, "where to begin (default: the movie's start)")
        ->type_name("A");
    verb->add_option("--to", options.to, "where to end (default: the movie's end)")->type_name("B");
    add_effects(*verb, options.effects, true);
    verb->add_option("--rate", options.rate,
                     "pictures per second, as 25 or 30000/1001 (default: the stream's)")
        ->type_name("FPS");
    verb->add_flag("--json", options.json, "the numbers as one JSON object on one line");
    add_progress(*verb, options.progress);
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_verify(CLI::App& app, VerifyOptions& options) {
    CLI::App* const verb = app.add_subcommand(
        "verify", "Check that every order of questions gets the same pictures and sound");
    verb->add_option("FILE", options.files, "media files")->required()->type_name("");
    verb->add_option("--seed", options.seed,
                     "picks what is asked: the same seed asks the same (default: 1)")
        ->check(whole_number_from(0))
        ->type_name("N");
    verb->add_option("--requests", options.requests,
                     "requests of each kind and stream (default: 50)")
        ->check(whole_number_from(1))
        ->type_name("N");
    verb->add_flag("--json", options.json, "one JSON object per stream, each on one line");
    add_progress(*verb, options.progress);
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_cover(CLI::App& app, CoverOptions& options) {
    CLI::App* const verb = app.add_subcommand("cover", "Give one picture of each file");
    verb->add_option("FILE", options.files, "media files")->required()->type_name("");
    verb->add_option("--box", options.box,
                     "shrink pictures to about this size; 0 for no limit (default: full size)")
        ->type_name("WxH");
    CLI::Option* const at =
        verb->add_option("--at", options.at, "the picture's time, from the movie's start")
            ->type_name("T");
    verb->add_option("--ratio", options.ratio, "its place in the movie, from 0 to 1 (default: 0.1)")
        ->check(number_between(0.0, 1.0))
        ->excludes(at)
        ->type_name("R");
    verb->add_option("-o", options.out,
                     "write the picture to a .png, .jpg or .raw file; %d in the name stands for "
                     "the number of the file. -: raw bytes on standard output")
        ->required()
        ->type_name("OUT");
    verb->add_flag("--json", options.json, "one JSON object per file, each on one line");
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_sheet(CLI::App& app, SheetOptions& options) {
    CLI::App* const verb = app.add_subcommand(
        "sheet", "Make a contact sheet: pictures of the whole file with their times");
    verb->add_option("FILE", options.file, "media file")->required()->type_name("");
    verb->add_option("-o", options.out, "the .png or .jpg file")->required()->type_name("OUT");
    verb->add_option("--columns", options.columns,
                     "pictures in a row (default: 4; 6 if they stand upright)")
        ->check(whole_number_from(1, 1000))
        ->type_name("C");
    verb->add_option("--rows", options.rows, "rows (default: 4; 3 if pictures stand upright)")
        ->check(whole_number_from(1, 1000))
        ->type_name("R");
    verb->add_option("--width", options.width, "of the sheet, pixels (default: 1280)")
        ->check(whole_number_from(40, 16000))
        ->type_name("W");
    add_progress(*verb, options.progress);
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_wave(CLI::App& app, WaveOptions& options) {
    CLI::App* const verb = app.add_subcommand("wave", "Draw the waveform of the sound");
    verb->add_option("FILE", options.file, "media file")->required()->type_name("");
    verb->add_option("-o", options.out, "the .png or .jpg file")->required()->type_name("OUT");
    verb->add_option("--width", options.width, "of the picture, pixels (default: 1200)")
        ->check(whole_number_from(16, 16000))
        ->type_name("W");
    verb->add_option("--height", options.height, "of the picture, pixels (default: 300)")
        ->check(whole_number_from(16, 8000))
        ->type_name("H");
    add_progress(*verb, options.progress);
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_devices(CLI::App& app, DevicesOptions& options) {
    CLI::App* const verb = app.add_subcommand(
        "devices", "List the hardware device types and whether each can be opened here");
    verb->add_flag("--json", options.json, "one JSON object per type, each on one line");
    return verb;
}

}  // namespace tool
