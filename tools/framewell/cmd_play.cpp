#include "commands.h"
#include "interrupt.h"
#include "media_file.h"
#include "process_memory.h"
#include "progress.h"
#include "time_text.h"
#include "tool_log.h"

#include <framewell/ffdecoder2.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

/// What a player got while it walked the time line.
struct Score {
    std::int64_t pictures_asked = 0;
    std::int64_t pictures_delivered = 0;
    std::int64_t pictures_different = 0;  ///< times that another picture came than before
    std::int64_t samples_asked = 0;
    std::int64_t samples_delivered = 0;
    double wall_s = 0;
    double slowest_picture_ms = 0;

    double pictures_per_second() const {
        return wall_s > 0 ? static_cast<double>(pictures_delivered) / wall_s : 0;
    }
};

double milliseconds_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double in_seconds(const ff::Rational& time) {
    return time.den == 0 ? 0 : static_cast<double>(time.num) / static_cast<double>(time.den);
}

/// The pictures of one stream, in the order of the time line.
class PicturePlayer {
public:
    PicturePlayer(const ff::StreamCtx& stream, const Effects& effects) {
        open_stream(stream, m_decoder);
        apply_effects(effects, stream_name(stream), m_decoder);
    }

    void play(const ff::Rational& time, Score* score) {
        ff::RequireVideoFrame request;
        request.time = time;
        request.format = ff::PixelFormat::Yuv420p;
        request.abort_flag = &interrupt_flag();
        const Clock::time_point start = Clock::now();
        const std::shared_ptr<ff::VFrameCtx> picture = m_decoder.getVideoFrame(request);
        if (is_interrupted()) {
            return;
        }
        score->slowest_picture_ms = std::max(score->slowest_picture_ms, milliseconds_since(start));
        ++score->pictures_asked;
        if (picture == nullptr) {
            return;
        }
        ++score->pictures_delivered;
        if (m_last_pts != picture->pts) {
            m_news = true;
            ++score->pictures_different;
            m_last_pts = picture->pts;
        }
    }

    /// Whether another picture came since the last call.
    bool take_news() { return std::exchange(m_news, false); }

    /// Whether the picture of `time` is the one that is shown already.
    bool still_shows(const ff::Rational& time) {
        ff::RequireVideoFrame request;
        request.time = time;
        request.format = ff::PixelFormat::Yuv420p;
        request.abort_flag = &interrupt_flag();
        const std::shared_ptr<ff::VFrameCtx> picture = m_decoder.getVideoFrame(request);
        return picture == nullptr || picture->pts == m_last_pts;
    }

private:
    ff::FFDecoder2 m_decoder;
    std::optional<std::int64_t> m_last_pts;
    bool m_news = false;
};

/// The sound of one stream, span after span.
class SoundPlayer {
public:
    SoundPlayer(const ff::StreamCtx& stream, Effects effects, const ff::Rational& from)
        : m_stream(stream), m_from(from) {
        open_stream(stream, m_decoder);
        effects.filter.clear();
        apply_effects(effects, stream_name(stream), m_decoder);
    }

    void play(const ff::Range& span, Score* score) {
        ff::RequireAudioFrame request;
        request.range = span;
        request.sample_rate = m_stream.sample_rate;
        request.channels = m_stream.channels;
        request.abort_flag = &interrupt_flag();
        const std::shared_ptr<ff::AFrameCtx> sound = m_decoder.getAudioFrame(request);
        if (is_interrupted()) {
            return;
        }
        // Counted from where playing began, so that the rounding of spans does not add up.
        score->samples_asked = ff::time_to_timestamp(span.end - m_from, {1, m_stream.sample_rate});
        score->samples_delivered += sound == nullptr ? 0 : sound->nb_samples;
        m_news = m_news || (sound != nullptr && sound->nb_samples > 0);
    }

    /// Whether sound came since the last call.
    bool take_news() { return std::exchange(m_news, false); }

private:
    const ff::StreamCtx& m_stream;
    const ff::Rational m_from;
    ff::FFDecoder2 m_decoder;
    bool m_news = false;
};

/// Walks the time line of one file.
class PlayCommand {
public:
    explicit PlayCommand(const PlayOptions& options)
        : m_options(options), m_progress(options.progress, options.quiet) {}

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        watch_interrupts();
        const ff::MovieCtx& movie = need_file(m_options.file);
        const ff::StreamCtx* const video = ff::first_stream(&movie, ff::StreamType::Video);
        const ff::StreamCtx* audio = ff::first_stream(&movie, ff::StreamType::Audio);
        if (m_options.effects.reverse) {
            audio = nullptr;  // sound is not played backwards
        }
        if (video == nullptr && audio == nullptr) {
            throw Failure(m_options.file + ": it has nothing to play" +
                          (m_options.effects.reverse ? " backwards" : "") +
                          "; see `framewell probe`");
        }
        m_from = m_options.from.empty() ? ff::Rational{0, 1} : parse_time(m_options.from).time;
        m_to = m_options.to.empty() ? end_of(movie, video) : parse_time(m_options.to).time;
        m_length = picture_length(video);
        if (video != nullptr) {
            m_pictures = std::make_unique<PicturePlayer>(*video, m_options.effects);
        }
        if (audio != nullptr) {
            m_sound = std::make_unique<SoundPlayer>(*audio, m_options.effects, m_from);
        }
        walk();
        return report();
    }

private:
    /// The end of the time line, in the time of the output. A still picture is shown once.
    ff::Rational end_of(const ff::MovieCtx& movie, const ff::StreamCtx* video) const {
        ff::Rational end{0, 1};
        if (m_options.effects.reverse && video != nullptr) {
            end = ff::timestamp_to_time(video->duration, video->time_base);
        } else if (movie.duration != kUnknown) {
            end = ff::timestamp_to_time(movie.duration, {1, 1000000});
        } else if (video == nullptr || !video->single_frame) {
            throw Failure(m_options.file + ": nobody knows how long it is; say --to B");
        }
        // As the library maps times: the speed is cut to two decimals.
        const auto percent = static_cast<std::int64_t>(m_options.effects.speed * 100);
        return percent == 100 ? end : end * ff::Rational{100, percent};
    }

    ff::Rational picture_length(const ff::StreamCtx* video) const {
        if (!m_options.rate.empty()) {
            const ff::Rational rate = parse_time(m_options.rate).time;
            return {rate.den, rate.num};
        }
        constexpr ff::Rational usual{1, 25};
        constexpr int fastest = 300;  // cover pictures and the like have a tick for a picture
        if (video == nullptr || video->single_frame) {
            return usual;
        }
        const ff::Rational rate = video->frame_rate;
        const bool is_usable = rate.num > 0 && rate.den > 0 && rate.num / rate.den <= fastest;
        return is_usable ? ff::Rational{rate.den, rate.num} : usual;
    }

    void walk() {
        const Clock::time_point start = Clock::now();
        ff::Rational time = m_from;
        for (std::int64_t k = 1; !is_interrupted(); ++k) {
            if (m_pictures != nullptr) {
                m_pictures->play(time, &m_score);
            }
            ff::Rational next = m_from + ff::Rational{m_length.num * k, m_length.den};
            next = next < m_to ? next : m_to;
            if (m_sound != nullptr && time < next) {
                m_sound->play({time, next}, &m_score);
            }
            if (next >= m_to || has_run_dry(next)) {
                break;
            }
            time = next;
            show_progress(time);
        }
        m_score.wall_s = milliseconds_since(start) / 1000;
        m_progress.clear();
    }

    /// Whether nothing comes any more, long before the end that the file claims: some claim days.
    bool has_run_dry(const ff::Rational& time) {
        constexpr ff::Rational patience{10, 1};
        const bool has_new_picture = m_pictures != nullptr && m_pictures->take_news();
        const bool has_new_sound = m_sound != nullptr && m_sound->take_news();
        if (has_new_picture || has_new_sound) {
            m_last_news = time;
            m_may_run_dry = m_options.to.empty() && !m_options.effects.reverse;
        }
        if (!m_may_run_dry || time < m_last_news + patience) {
            return false;
        }
        m_may_run_dry = false;  // the answer stays the same until something comes
        if (m_pictures != nullptr && !m_pictures->still_shows(m_to)) {
            return false;
        }
        if (!m_options.quiet) {
            m_progress.clear();
            char text[96];
            (void)std::snprintf(text, sizeof text,
                                ": nothing comes after %.3f s, though it claims to last %.3f s",
                                in_seconds(m_last_news), in_seconds(m_to));
            print_error(m_options.file + text + "; say --to B to go on");
        }
        return true;
    }

    void show_progress(const ff::Rational& time) {
        const double length = in_seconds(m_to) - in_seconds(m_from);
        char text[64];
        (void)std::snprintf(text, sizeof text, "%.1f s of %.1f s", in_seconds(time),
                            in_seconds(m_to));
        m_progress.show((in_seconds(time) - in_seconds(m_from)) / std::max(length, 1e-9), text);
    }

    Exit report() {
        if (m_options.json) {
            print_json(score_json());
        } else {
            print_line(score_text());
        }
        if (is_interrupted()) {
            return Exit::Interrupted;
        }
        const bool lacks_pictures = m_score.pictures_delivered < m_score.pictures_asked;
        const bool lacks_sound = m_score.samples_asked > 0 && m_score.samples_delivered == 0;
        if (lacks_pictures || lacks_sound) {
            const std::string what = lacks_pictures ? "some pictures" : "the sound";
            print_error(m_options.file + ": " + what + " did not come" + m_reason.text() +
                        "; see the log with -v");
        }
        return lacks_pictures || lacks_sound ? Exit::Failed : Exit::Done;
    }

    Json score_json() const {
        Json object;
        object["path"] = m_options.file;
        object["interrupted"] = is_interrupted();
        object["pictures_asked"] = m_score.pictures_asked;
        object["pictures_delivered"] = m_score.pictures_delivered;
        object["pictures_different"] = m_score.pictures_different;
        object["samples_asked"] = m_score.samples_asked;
        object["samples_delivered"] = m_score.samples_delivered;
        object["wall_s"] = m_score.wall_s;
        object["pictures_per_second"] = m_score.pictures_per_second();
        object["slowest_picture_ms"] = m_score.slowest_picture_ms;
        const std::optional<std::int64_t> memory = resident_bytes();
        object["memory_bytes"] = memory ? Json(*memory) : Json(nullptr);
        return object;
    }

    std::string score_text() const {
        char speed[128];
        (void)std::snprintf(speed, sizeof speed,
                            "; %.3f s, %.1f pictures per second, slowest %.1f ms", m_score.wall_s,
                            m_score.pictures_per_second(), m_score.slowest_picture_ms);
        std::string line = m_options.file + ": pictures " +
                           std::to_string(m_score.pictures_delivered) + " of " +
                           std::to_string(m_score.pictures_asked) + ", " +
                           std::to_string(m_score.pictures_different) + " different; samples " +
                           std::to_string(m_score.samples_delivered) + " of " +
                           std::to_string(m_score.samples_asked) + speed;
        if (const std::optional<std::int64_t> memory = resident_bytes()) {
            line += ", memory " + std::to_string(*memory >> 20) + " MiB";
        }
        return printable(line + (is_interrupted() ? " (interrupted)" : ""));
    }

    const PlayOptions& m_options;
    Progress m_progress;
    ff::Rational m_from{0, 1};
    ff::Rational m_to{0, 1};
    ff::Rational m_length{1, 25};  // of a picture, in the time of the output
    std::unique_ptr<PicturePlayer> m_pictures;
    std::unique_ptr<SoundPlayer> m_sound;
    ff::Rational m_last_news{0, 1};  // when a new picture or sound came last
    bool m_may_run_dry = false;
    Score m_score;
    Reason m_reason;
};

void check_time(const char* option, const std::string& text) {
    if (text.empty()) {
        return;
    }
    const ParsedTime parsed = parse_time(text);
    if (!parsed.ok) {
        throw Failure(std::string(option) + " " + text + ": this is no time; " + parsed.error,
                      Exit::Usage);
    }
}

void check_usage(const PlayOptions& options) {
    check_time("--from", options.from);
    check_time("--to", options.to);
    const ParsedTime rate = parse_time(options.rate);
    if (!options.rate.empty() && (!rate.ok || rate.time.num <= 0)) {
        throw Failure("--rate " + options.rate +
                          ": this is no number of pictures per second; write 25 or 30000/1001",
                      Exit::Usage);
    }
    if (!options.from.empty() && !options.to.empty() &&
        parse_time(options.to).time < parse_time(options.from).time) {
        throw Failure("--to " + options.to + " lies before --from " + options.from, Exit::Usage);
    }
}

}  // namespace

Exit run_play(const PlayOptions& options) {
    check_usage(options);
    return PlayCommand(options).run();
}

}  // namespace tool
