#include "commands.h"
#include "effects.h"
#include "ffmpeg_facts.h"
#include "media_file.h"
#include "output.h"
#include "time_text.h"
#include "tool_log.h"

#include <framewell/ffdecoder2.h>

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace tool {

namespace {

/// Answers times with the pictures of one stream, one after another.
class FrameCommand {
public:
    explicit FrameCommand(const FrameOptions& options) : m_options(options) {
        if (!options.out.empty()) {
            const bool many = options.at.size() > 1 || options.at.front() == "-";
            m_target = std::make_unique<PictureTarget>(options.out, many);
        }
    }

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        open();
        for (const std::string& text : m_options.at) {
            if (text == "-") {
                answer_standard_input();
            } else {
                answer(text);
            }
        }
        return m_all_found ? Exit::Done : Exit::Failed;
    }

private:
    void open() {
        m_movie = &need_file(m_options.file);
        m_stream = &pick_stream(*m_movie, ff::StreamType::Video, m_options.stream);
        open_stream(*m_stream, m_decoder);
        apply_effects(m_options.effects, stream_name(*m_stream), m_decoder);
        m_divider = m_options.memory_mode.has_value()
                        ? m_decoder.getImageDivider(*m_options.memory_mode)
                        : m_options.divider;
    }

    void answer_standard_input() {
        std::string line;
        while (std::getline(std::cin, line)) {
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            answer(line);
        }
        if (std::cin.bad()) {
            throw Failure("cannot read times from standard input; check where it comes from");
        }
    }

    // One time, one answer, whatever becomes of it: a program that writes times to us and reads
    // answers stays in step.
    void answer(const std::string& text) {
        ++m_number;
        const ParsedTime parsed = parse_time(text);
        if (!parsed.ok) {
            report_missing(text, "this is no time; " + parsed.error);
            return;
        }
        (void)take_complaints();
        ff::RequireVideoFrame request;
        request.time = parsed.time;
        request.format = m_options.format;
        request.divider = m_divider;
        const std::shared_ptr<ff::VFrameCtx> picture = m_decoder.getVideoFrame(request);
        if (picture == nullptr) {
            report_missing(text, "no picture" + m_reason.text() +
                                     "; try another time or stream, or see the log with -v");
            return;
        }
        report_found(text, *picture);
    }

    void report_missing(const std::string& text, const std::string& why) {
        m_all_found = false;
        print_error("at " + (text.empty() ? "\"\"" : text) + ": " + why);
        if (m_options.json) {
            Json object;
            object["at"] = text;
            object["found"] = false;
            object["error"] = why;
            print_json(object);
        }
    }

    void report_found(const std::string& text, const ff::VFrameCtx& picture) {
        std::string path;
        if (m_target != nullptr) {
            path = m_target->write(picture, m_number, m_stream->rotation);
        }
        if (m_options.json) {
            print_json(picture_json(text, picture));
            return;
        }
        const bool to_standard_output = m_target != nullptr && m_target->is_standard_output();
        if (!to_standard_output) {
            print_line(picture_text(text, picture, path));
        }
    }

    Json picture_json(const std::string& text, const ff::VFrameCtx& picture) const {
        Json object;
        object["at"] = text;
        object["found"] = true;
        object["pts_us"] = picture.pts;
        object["width"] = picture.width;
        object["height"] = picture.height;
        // The record's own format: a still picture is converted only once, so later requests get
        // the first one's format.
        const char* const format = pixel_format_name(picture.format);
        object["format"] = format == nullptr ? Json(nullptr) : Json(format);
        object["divider"] = picture.divider;
        object["src_width"] = picture.src_width;
        object["src_height"] = picture.src_height;
        object["md5"] = md5_hex(visible_bytes(picture));
        return object;
    }

    // "at 12.5: picture at 12.480000 s, 1920x1080 rgba -> out.png". Times are counted from the
    // movie's start, as those that were asked for.
    std::string picture_text(const std::string& text, const ff::VFrameCtx& picture,
                             const std::string& path) const {
        const char* const format = pixel_format_name(picture.format);
        std::string line = "at " + text + ": picture at " +
                           seconds_text(since_start(picture.pts), 6) + ", " +
                           std::to_string(picture.width) + "x" + std::to_string(picture.height) +
                           " " + (format == nullptr ? "unknown format" : format);
        if (!path.empty()) {
            const int degrees = m_target->turned_by(m_stream->rotation);
            line += " -> " + path +
                    (degrees == 0 ? "" : ", turned by " + std::to_string(degrees) + " degrees");
        }
        return printable(line);
    }

    std::int64_t since_start(std::int64_t pts_us) const {
        // Through unsigned: a damaged file may claim any start.
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(pts_us) -
                                         static_cast<std::uint64_t>(movie_start_us(*m_movie)));
    }

    const FrameOptions& m_options;
    std::unique_ptr<PictureTarget> m_target;  // null: nothing is written
    const ff::MovieCtx* m_movie = nullptr;
    const ff::StreamCtx* m_stream = nullptr;
    ff::FFDecoder2 m_decoder;
    Reason m_reason;
    int m_divider = 1;
    int m_number = 0;  // of the time that is being answered, from 1 on
    bool m_all_found = true;
};

// Everything that is wrong with the command line shows before a file is touched.
void check_usage(const FrameOptions& options) {
    int inputs = 0;
    for (const std::string& text : options.at) {
        if (text == "-") {
            ++inputs;
            continue;
        }
        const ParsedTime parsed = parse_time(text);
        if (!parsed.ok) {
            throw Failure("--at " + text + ": this is no time; " + parsed.error, Exit::Usage);
        }
    }
    if (inputs > 1) {
        throw Failure("--at - can be given only once: standard input has one end", Exit::Usage);
    }
    if (options.out == "-" && options.json) {
        throw Failure("-o - and --json both want standard output; give -o a file name",
                      Exit::Usage);
    }
}

}  // namespace

Exit run_frame(const FrameOptions& options) {
    check_usage(options);
    return FrameCommand(options).run();
}

}  // namespace tool
