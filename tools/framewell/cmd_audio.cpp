#include "commands.h"
#include "ffmpeg_facts.h"
#include "interrupt.h"
#include "media_file.h"
#include "output_sound.h"
#include "time_text.h"
#include "tool_log.h"

#include <framewell/ffdecoder2.h>

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace tool {

namespace {

/// A span as it was asked for, or the reason why the text is none.
struct ParsedSpan {
    std::string from;
    std::string to;
    ff::Range range{{0, 1}, {0, 1}};
    std::string error;  ///< empty: the range is right
};

ParsedSpan parse_span(const std::string& from, const std::string& to) {
    ParsedSpan span{from, to, {{0, 1}, {0, 1}}, {}};
    const ParsedTime begin = parse_time(from);
    const ParsedTime end = parse_time(to);
    if (!begin.ok || !end.ok) {
        span.error = begin.ok ? "the end is no time; " + end.error
                              : "the beginning is no time; " + begin.error;
        return span;
    }
    span.range = {begin.time, end.time};
    if (end.time < begin.time) {
        span.error = "it ends before it begins";
    }
    return span;
}

/// Reads "A B".
ParsedSpan parse_line(std::string_view line) {
    constexpr const char* blanks = " \t\r";
    const std::size_t begin = line.find_first_not_of(blanks);
    if (begin == std::string_view::npos) {
        return {"", "", {{0, 1}, {0, 1}}, "write two times: where it begins and where it ends"};
    }
    const std::string_view text = line.substr(begin, line.find_last_not_of(blanks) + 1 - begin);
    const std::size_t gap = text.find_first_of(blanks);
    const std::string from(text.substr(0, gap));
    const std::size_t rest = text.find_first_not_of(blanks, gap);
    const std::string to(rest == std::string_view::npos ? std::string_view{} : text.substr(rest));
    if (to.empty() || to.find_first_of(blanks) != std::string::npos) {
        return {from, to, {{0, 1}, {0, 1}}, "write two times: where it begins and where it ends"};
    }
    return parse_span(from, to);
}

std::string time_text(const ff::Rational& time) {
    return std::to_string(time.num) + (time.den == 1 ? "" : "/" + std::to_string(time.den));
}

/// Answers spans with the sound of one stream, one after another.
class AudioCommand {
public:
    explicit AudioCommand(const AudioOptions& options) : m_options(options) {
        if (!options.out.empty()) {
            m_target = std::make_unique<SoundTarget>(options.out);
        }
    }

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        watch_interrupts();
        open();
        if (m_options.at.empty()) {
            answer_steps();
        }
        for (const std::string& text : m_options.at) {
            if (text == "-") {
                answer_standard_input();
            } else {
                answer(parse_line(text));
            }
        }
        if (is_interrupted()) {
            return Exit::Interrupted;
        }
        if (m_target != nullptr) {
            m_target->finish();
        }
        return m_all_found ? Exit::Done : Exit::Failed;
    }

private:
    void open() {
        m_movie = &need_file(m_options.file);
        m_stream = &pick_stream(*m_movie, ff::StreamType::Audio, m_options.stream);
        open_stream(*m_stream, m_decoder);
        apply_effects(m_options.effects, stream_name(*m_stream), m_decoder);
    }

    void answer_steps() {
        const ParsedSpan whole = parse_span(m_options.from, m_options.to);
        if (m_options.step.empty()) {
            answer(whole);
            return;
        }
        const ff::Rational step = parse_time(m_options.step).time;
        ParsedSpan span = whole;
        while (span.range.start < whole.range.end && !is_interrupted()) {
            span.range.end = span.range.start + step;
            const bool is_last = span.range.end >= whole.range.end;
            if (is_last) {
                span.range.end = whole.range.end;
            }
            span.to = is_last ? whole.to : time_text(span.range.end);
            answer(span);
            span.range.start = span.range.end;
            span.from = span.to;
        }
    }

    void answer_standard_input() {
        std::string line;
        while (!is_interrupted() && std::getline(std::cin, line)) {
            answer(parse_line(line));
        }
        if (std::cin.bad()) {
            throw Failure("cannot read spans from standard input; check where it comes from");
        }
    }

    // One span, one answer, whatever becomes of it: a program that writes spans to us and reads
    // answers stays in step.
    void answer(const ParsedSpan& span) {
        if (!span.error.empty()) {
            report_missing(span, "this is no span; " + span.error);
            return;
        }
        (void)take_complaints();
        ff::RequireAudioFrame request;
        request.range = span.range;
        request.format = m_options.format;
        request.sample_rate = m_options.rate.value_or(m_stream->sample_rate);
        request.channels = m_options.channels.value_or(m_stream->channels);
        request.abort_flag = &interrupt_flag();
        const std::shared_ptr<ff::AFrameCtx> sound = m_decoder.getAudioFrame(request);
        if (is_interrupted()) {
            return;
        }
        if (sound == nullptr || sound->nb_samples == 0) {
            report_missing(span, "no sound" + m_reason.text() +
                                     "; try another span or stream, or see the log with -v");
            return;
        }
        report_found(span, *sound);
    }

    void report_missing(const ParsedSpan& span, const std::string& why) {
        m_all_found = false;
        print_error("from " + (span.from.empty() ? "\"\"" : span.from) + " to " +
                    (span.to.empty() ? "\"\"" : span.to) + ": " + why);
        if (m_options.json) {
            Json object = span_json(span, false);
            object["error"] = why;
            print_json(object);
        }
    }

    static Json span_json(const ParsedSpan& span, bool found) {
        Json object;
        object["from"] = span.from;
        object["to"] = span.to;
        object["found"] = found;
        return object;
    }

    void report_found(const ParsedSpan& span, const ff::AFrameCtx& sound) {
        if (m_target != nullptr) {
            m_target->write(sound);
        }
        const char* const format = sample_format_name(sound.format);
        if (m_options.json) {
            Json object = span_json(span, true);
            object["nb_samples"] = sound.nb_samples;
            object["pts_us"] = sound.pts;
            object["rate"] = sound.sample_rate;
            object["channels"] = sound.channels;
            object["format"] = format == nullptr ? Json(nullptr) : Json(format);
            object["md5"] = md5_hex(sample_bytes(sound));
            print_json(object);
        } else if (m_target == nullptr || !m_target->is_standard_output()) {
            print_line(printable("from " + span.from + " to " + span.to + ": " +
                                 std::to_string(sound.nb_samples) + " samples, " +
                                 std::to_string(sound.sample_rate) +
                                 " Hz, channels: " + std::to_string(sound.channels) + ", " +
                                 (format == nullptr ? "unknown format" : format) +
                                 (m_target == nullptr ? "" : " -> " + m_options.out)));
        }
    }

    const AudioOptions& m_options;
    std::unique_ptr<SoundTarget> m_target;  // null: nothing is written
    const ff::MovieCtx* m_movie = nullptr;
    const ff::StreamCtx* m_stream = nullptr;
    ff::FFDecoder2 m_decoder;
    Reason m_reason;
    bool m_all_found = true;
};

[[noreturn]] void refuse(const std::string& text) {
    throw Failure(text, Exit::Usage);
}

void check_spans(const AudioOptions& options) {
    int inputs = 0;
    for (const std::string& text : options.at) {
        const ParsedSpan span = text == "-" ? ParsedSpan{} : parse_line(text);
        inputs += text == "-" ? 1 : 0;
        if (!span.error.empty()) {
            refuse("--at " + text + ": this is no span; " + span.error);
        }
    }
    if (inputs > 1) {
        refuse("--at - can be given only once: standard input has one end");
    }
}

// Everything that is wrong with the command line shows before a file is touched.
void check_usage(const AudioOptions& options) {
    if (options.at.empty()) {
        if (options.from.empty() || options.to.empty()) {
            refuse("say which sound: --from A --to B, or --at -; see `framewell audio --help`");
        }
        const ParsedSpan span = parse_span(options.from, options.to);
        if (!span.error.empty()) {
            refuse("--from " + options.from + " --to " + options.to + ": this is no span; " +
                   span.error);
        }
    } else if (!options.from.empty() || !options.to.empty() || !options.step.empty()) {
        refuse("--at stands in place of --from, --to and --step; give one of the two");
    }
    check_spans(options);
    if (!options.step.empty()) {
        const ParsedTime step = parse_time(options.step);
        if (!step.ok || step.time.num <= 0) {
            refuse("--step " + options.step + ": this is no length of time above 0" +
                   (step.ok ? "" : "; " + step.error));
        }
    }
    if (options.out == "-" && options.json) {
        refuse("-o - and --json both want standard output; give -o a file name");
    }
}

}  // namespace

Exit run_audio(const AudioOptions& options) {
    check_usage(options);
    return AudioCommand(options).run();
}

}  // namespace tool
