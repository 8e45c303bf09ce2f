#include "commands.h"
#include "ffmpeg_facts.h"
#include "interrupt.h"
#include "media_file.h"
#include "output.h"
#include "time_text.h"
#include "tool_log.h"

#include <framewell/ff_tools.h>

#include <nlohmann/json.hpp>

#include <charconv>
#include <limits>
#include <memory>

namespace tool {

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

/// Reads "320x240" into the request. False if the text is no box.
bool read_box(const std::string& text, ff::RequireMvImage* request) {
    const char* const end = text.data() + text.size();
    const std::from_chars_result width = std::from_chars(text.data(), end, request->max_width);
    if (width.ec != std::errc() || width.ptr == end || *width.ptr != 'x') {
        return false;
    }
    const std::from_chars_result height = std::from_chars(width.ptr + 1, end, request->max_height);
    return height.ec == std::errc() && height.ptr == end && request->max_width >= 0 &&
           request->max_height >= 0;
}

/// Gives one picture of each file.
class CoverCommand {
public:
    explicit CoverCommand(const CoverOptions& options)
        : m_options(options), m_target(options.out, options.files.size() > 1) {
        m_request.ratio = options.ratio;
        if (!options.at.empty()) {
            m_request.time = parse_time(options.at).time;
        }
        if (!options.box.empty()) {
            (void)read_box(options.box, &m_request);  // checked before
        }
        m_request.abort_flag = &interrupt_flag();
    }

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        watch_interrupts();
        for (const std::string& file : m_options.files) {
            ++m_number;
            answer(file);
            if (is_interrupted()) {
                return Exit::Interrupted;
            }
        }
        return m_all_found ? Exit::Done : Exit::Failed;
    }

private:
    // One file, one answer, whatever becomes of it.
    void answer(const std::string& file) {
        Reason reason;
        const ProbedFile probed = probe_file(file);
        if (probed.movie == nullptr) {
            report_missing(file, probed.error, {kUnknown, 1});
            return;
        }
        ff::Rational duration{kUnknown, 1};
        const std::shared_ptr<ff::VFrameCtx> picture =
            ff::getMovieImage(file.c_str(), m_request, &duration);
        if (is_interrupted()) {
            return;
        }
        if (picture == nullptr) {
            report_missing(file,
                           probed.movie->nb_video == 0
                               ? "it has no video stream; see `framewell probe`"
                               : "no picture" + reason.text() +
                                     "; try another time, or `framewell frame` with --stream",
                           duration);
            return;
        }
        report_found(file, *probed.movie, *picture, duration);
    }

    void report_missing(const std::string& file, const std::string& why,
                        const ff::Rational& duration) {
        m_all_found = false;
        print_error(file + ": " + why);
        if (m_options.json) {
            Json object = file_json(file, duration, false);
            object["error"] = why;
            print_json(object);
        }
    }

    void report_found(const std::string& file, const ff::MovieCtx& movie,
                      const ff::VFrameCtx& picture, const ff::Rational& duration) {
        // The picture is that of the last video stream, by the file's number of it.
        const ff::StreamCtx* const stream = movie.streams[movie.video_index[movie.nb_video - 1]];
        std::string path;
        try {
            path = m_target.write(picture, m_number, stream->rotation);
        } catch (const Failure& failure) {
            if (m_target.is_standard_output()) {
                throw;
            }
            report_missing(file, failure.what(), duration);
            return;
        }
        const int degrees = m_target.turned_by(stream->rotation);
        if (m_options.json) {
            Json object = file_json(file, duration, true);
            object["pts_us"] = picture.pts;
            object["width"] = picture.width;
            object["height"] = picture.height;
            object["divider"] = picture.divider;
            object["src_width"] = picture.src_width;
            object["src_height"] = picture.src_height;
            object["md5"] = md5_hex(visible_bytes(picture));
            object["file"] = path;
            object["turned_by"] = degrees;
            print_json(object);
        } else if (!m_target.is_standard_output()) {
            print_line(printable(
                file + ": " +
                (duration.num == kUnknown ? "unknown duration" : seconds_text(duration.num, 6)) +
                ", picture of " + std::to_string(picture.width) + "x" +
                std::to_string(picture.height) + " -> " + path +
                (degrees == 0 ? "" : ", turned by " + std::to_string(degrees) + " degrees")));
        }
    }

    static Json file_json(const std::string& file, const ff::Rational& duration, bool found) {
        Json object;
        object["path"] = file;
        object["duration_us"] = duration.num == kUnknown ? Json(nullptr) : Json(duration.num);
        object["found"] = found;
        return object;
    }

    const CoverOptions& m_options;
    const PictureTarget m_target;
    ff::RequireMvImage m_request;
    int m_number = 0;  // of the file, from 1 on
    bool m_all_found = true;
};

// Everything that is wrong with the command line shows before a file is touched.
void check_usage(const CoverOptions& options) {
    ff::RequireMvImage request;
    if (!options.box.empty() && !read_box(options.box, &request)) {
        throw Failure("--box " + options.box +
                          ": this is no size; write WxH, as in 320x240, and 0 for no limit",
                      Exit::Usage);
    }
    const ParsedTime at = parse_time(options.at);
    if (!options.at.empty() && !at.ok) {
        throw Failure("--at " + options.at + ": this is no time; " + at.error, Exit::Usage);
    }
    if (options.out == "-" && options.json) {
        throw Failure("-o - and --json both want standard output; give -o a file name",
                      Exit::Usage);
    }
    if (options.out == "-" && options.files.size() > 1) {
        throw Failure("-o - takes the picture of one file; give -o a name with %d", Exit::Usage);
    }
}

}  // namespace

Exit run_cover(const CoverOptions& options) {
    check_usage(options);
    return CoverCommand(options).run();
}

}  // namespace tool
