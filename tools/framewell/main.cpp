#include "command_line.h"
#include "commands.h"
#include "documents.h"
#include "tool_log.h"

#include <framewell/base/config.h>

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

using tool::Exit;

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

constexpr const char* kNoVerb =
    "say what to do: probe, frame, audio, mix, play, verify, cover, sheet, wave or devices; "
    "see `framewell --help`";

tool::LogMode log_mode(const tool::CommonOptions& common) {
    return common.verbose ? tool::LogMode::Verbose
           : common.quiet ? tool::LogMode::Quiet
                          : tool::LogMode::Reasons;
}

Exit run_tool(int argc, char** argv) {
    CLI::App app("framewell: exact pictures and sound by time out of media files", "framewell");
    tool::CommonOptions common;
    tool::ProbeOptions probe;
    tool::FrameOptions frame;
    tool::AudioOptions audio;
    tool::MixOptions mix;
    tool::PlayOptions play;
    tool::VerifyOptions verify;
    tool::CoverOptions cover;
    tool::SheetOptions sheet;
    tool::WaveOptions wave;
    tool::DevicesOptions devices;
    using Run = std::function<Exit()>;
    const std::vector<std::pair<CLI::App*, Run>> verbs{
        {tool::add_probe(app, probe), [&] { return tool::run_probe(probe); }},
        {tool::add_frame(app, frame), [&] { return tool::run_frame(frame); }},
        {tool::add_audio(app, audio), [&] { return tool::run_audio(audio); }},
        {tool::add_mix(app, mix), [&] { return tool::run_mix(mix); }},
        {tool::add_play(app, play), [&] { return tool::run_play(play); }},
        {tool::add_verify(app, verify), [&] { return tool::run_verify(verify); }},
        {tool::add_cover(app, cover), [&] { return tool::run_cover(cover); }},
        {tool::add_sheet(app, sheet), [&] { return tool::run_sheet(sheet); }},
        {tool::add_wave(app, wave), [&] { return tool::run_wave(wave); }},
        {tool::add_devices(app, devices), [&] { return tool::run_devices(devices); }}};
    app.set_version_flag("--version", std::string("framewell ") + ff::framewell_version() + "\n" +
                                          ff::framewell_ffmpeg_report());
    tool::add_common(app, common);
    for (const auto& [verb, run] : verbs) {
        tool::add_common(*verb, common);
    }
    tool::DocumentOptions documents;
    tool::add_documents(app, documents);
    app.require_subcommand(0, 1);
    app.footer(tool::exit_status_text());
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

    if (tool::write_document(app, documents)) {
        return Exit::Done;
    }
    tool::set_up_log(log_mode(common));
    probe.quiet = frame.quiet = audio.quiet = mix.quiet = play.quiet = verify.quiet = common.quiet;
    cover.quiet = sheet.quiet = wave.quiet = common.quiet;
    for (const auto& [verb, run] : verbs) {
        if (verb->parsed()) {
            return run();
        }
    }
    throw tool::Failure(kNoVerb, Exit::Usage);
}

// Opens what the caller has closed of the standard streams: the next file would get the place of
// one, and what is printed there would be written into it.
void open_standard_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) < 0) {
            // The wrong way round, so that using it fails as it would on a closed stream.
            (void)::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    open_standard_streams();
    // A reader that goes away shows as a failed write, which is reported like a full disk.
    (void)std::signal(SIGPIPE, SIG_IGN);  // cannot fail for a valid signal
    try {
        return static_cast<int>(run_tool(argc, argv));
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
