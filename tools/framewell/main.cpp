#include "commands.h"
#include "tool_log.h"

#include <framewell/base/config.h>

#include <CLI/CLI.hpp>

#include <charconv>
#include <csignal>
#include <exception>
#include <limits>
#include <map>
#include <new>
#include <string>

namespace {

using tool::Exit;

// What every verb understands, before or after its name.
struct CommonOptions {
    bool verbose = false;
    bool quiet = false;
};

void add_common(CLI::App& app, CommonOptions& options) {
    CLI::Option* const verbose =
        app.add_flag("-v,--verbose", options.verbose, "show the library's log on standard error");
    app.add_flag("--quiet", options.quiet, "show nothing of the library's log")->excludes(verbose);
}

void add_hardware(CLI::App& verb, std::string& hw) {
    verb.add_option("--hw", hw,
                    "decode on a hardware device: a type that `framewell devices` lists, or auto")
        ->type_name("NAME");
}

// CLI11's own checks of numbers print the range as doubles with 300 digits.
CLI::Validator whole_number_from(int least) {
    const auto check = [least](const std::string& text) -> std::string {
        int value = 0;
        const char* const end = text.data() + text.size();
        const std::from_chars_result result = std::from_chars(text.data(), end, value);
        if (result.ec == std::errc() && result.ptr == end && value >= least) {
            return {};
        }
        return "\"" + text + "\" is no whole number from " + std::to_string(least) + " to " +
               std::to_string(std::numeric_limits<int>::max());
    };
    return {check, ""};
}

CLI::App* add_probe(CLI::App& app, tool::ProbeOptions& options) {
    CLI::App* const verb = app.add_subcommand("probe", "Show what is in files");
    verb->add_option("FILE", options.files, "media files")->required()->type_name("");
    verb->add_flag("--json", options.json, "one JSON object per file, each on one line");
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_frame(CLI::App& app, tool::FrameOptions& options) {
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
    add_hardware(*verb, options.hw);
    return verb;
}

CLI::App* add_devices(CLI::App& app, tool::DevicesOptions& options) {
    CLI::App* const verb = app.add_subcommand(
        "devices", "List the hardware device types and whether each can be opened here");
    verb->add_flag("--json", options.json, "one JSON object per type, each on one line");
    return verb;
}

Exit report_usage(const CLI::ParseError& error, const CLI::App& app) {
    std::string text = error.what();
    const std::vector<CLI::App*> verbs = app.get_subcommands();
    const std::string verb = verbs.empty() ? "" : " " + verbs.front()->get_name();
    const std::vector<std::string> left_over = app.remaining(true);
    if (!left_over.empty()) {  // CLI11 would name them backwards
        const std::string first = "\"" + left_over.front() + "\"";
        text =
            verbs.empty() ? "there is no command or option " + first : first + " is not expected";
    }
    tool::print_error(text + "; see `framewell" + verb + " --help`");
    return Exit::Usage;
}

Exit run(int argc, char** argv) {
    CLI::App app("framewell: exact pictures by time out of media files", "framewell");
    CommonOptions common;
    tool::ProbeOptions probe;
    tool::FrameOptions frame;
    tool::DevicesOptions devices;
    CLI::App* const probe_verb = add_probe(app, probe);
    CLI::App* const frame_verb = add_frame(app, frame);
    CLI::App* const devices_verb = add_devices(app, devices);
    app.set_version_flag("--version", std::string("framewell ") + ff::framewell_version() + "\n" +
                                          ff::framewell_ffmpeg_report());
    add_common(app, common);
    for (CLI::App* const verb : {probe_verb, frame_verb, devices_verb}) {
        add_common(*verb, common);
    }
    app.require_subcommand(0, 1);
    app.footer(
        "Exit status: 0 done, 1 some request had no answer or a file could not be used,\n"
        "2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        tool::write_out(app.help());
        return Exit::Done;
    } catch (const CLI::CallForVersion& version) {
        tool::print_line(version.what());
        return Exit::Done;
    } catch (const CLI::ParseError& error) {
        return report_usage(error, app);
    }

    tool::set_up_log(common.verbose ? tool::LogMode::Verbose
                     : common.quiet ? tool::LogMode::Quiet
                                    : tool::LogMode::Reasons);
    probe.quiet = frame.quiet = common.quiet;
    if (probe_verb->parsed()) {
        return tool::run_probe(probe);
    }
    if (frame_verb->parsed()) {
        return tool::run_frame(frame);
    }
    if (devices_verb->parsed()) {
        return tool::run_devices(devices);
    }
    throw tool::Failure("say what to do: probe, frame or devices; see `framewell --help`",
                        Exit::Usage);
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away shows as a failed write, which is reported like a full disk.
    (void)std::signal(SIGPIPE, SIG_IGN);  // cannot fail for a valid signal
    try {
        return static_cast<int>(run(argc, argv));
    } catch (const tool::Failure& failure) {
        tool::print_error(failure.what());
        return static_cast<int>(failure.status());
    } catch (const std::bad_alloc&) {
        tool::print_error("out of memory; ask for smaller pictures with --divider");
    } catch (const std::exception& error) {
        tool::print_error(error.what());
    }
    return static_cast<int>(Exit::Failed);
}
