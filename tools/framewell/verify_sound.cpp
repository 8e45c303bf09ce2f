#include "verify_sound.h"

#include "ffmpeg_facts.h"
#include "interrupt.h"
#include "media_file.h"
#include "on_threads.h"
#include "output_sound.h"
#include "sound_compare.h"
#include "tool_log.h"

#include <framewell/ffdecoder.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string_view>
#include <vector>

namespace tool {

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

// Of longer sound every second window is forgotten, again and again.
constexpr std::size_t kMostBytes = std::size_t{96} << 20;
constexpr int kWindowSeconds = 4;
constexpr int kThreads = 4;

/// Decoders whose output depends on what they decoded before, for ever: the noise that they add
/// runs on, or they predict from everything that came before.
bool remembers_everything(const std::string& codec) {
    constexpr std::array<std::string_view, 8> names{"aac",  "aac_latm", "ac3",    "eac3",
                                                    "opus", "amr_nb",   "amr_wb", "dts"};
    return std::find(names.begin(), names.end(), codec) != names.end();
}

/// The sound of one stream as a decoder gave it in order, or windows of it.
class SoundRecord {
public:
    explicit SoundRecord(const ff::StreamCtx& stream);

    /// Plays the stream to its end.
    void play(SharedVerdict* verdict, Progress* progress);

    const std::vector<SoundWindow>& windows() const { return m_windows; }

    const SoundShape& shape() const { return m_shape; }

    std::int64_t samples() const { return m_samples; }

    const ff::StreamCtx& stream() const { return m_stream; }

    /// The time of a sample from the movie's start.
    ff::Rational time_of(std::int64_t sample) const {
        return m_start + ff::timestamp_to_time(sample, {1, m_stream.sample_rate});
    }

    double seconds_of(std::int64_t sample) const {
        const ff::Rational time = time_of(sample);
        return time.num == 0 ? 0 : static_cast<double>(time.num) / static_cast<double>(time.den);
    }

    /// Asks for [first, first + count) samples.
    std::shared_ptr<ff::AFrameCtx> ask(ff::FFDecoder& decoder, std::int64_t first,
                                       std::int64_t count) const;

    /// How many samples a span may be off because times are counted in ticks longer than a sample:
    /// the span's begin, the frame's and the run's are rounded, each by half a tick.
    std::int64_t tolerance() const;

private:
    void remember(SoundWindow window);

    const ff::StreamCtx& m_stream;
    ff::SampleFormat m_format;
    ff::Rational m_start{0, 1};
    SoundShape m_shape;
    std::vector<SoundWindow> m_windows;
    std::size_t m_bytes = 0;
    std::int64_t m_samples = 0;
    std::int64_t m_number = 0;  // of the next window
    std::int64_t m_stride = 1;  // every so many are remembered
};

SoundRecord::SoundRecord(const ff::StreamCtx& stream)
    : m_stream(stream), m_format(richest_sample_format(stream.sample_fmt)) {
    if (stream.start_time != kUnknown) {
        m_start = ff::timestamp_to_time(stream.start_time, stream.time_base) -
                  ff::timestamp_to_time(movie_start_us(*stream.movie), {1, 1000000});
    }
}

std::shared_ptr<ff::AFrameCtx> SoundRecord::ask(ff::FFDecoder& decoder, std::int64_t first,
                                                std::int64_t count) const {
    ff::RequireAudioFrame request;
    request.range = {time_of(first), time_of(first + count)};
    request.format = m_format;
    request.sample_rate = m_stream.sample_rate;
    request.channels = m_stream.channels;
    request.abort_flag = &interrupt_flag();
    std::shared_ptr<ff::AFrameCtx> sound = decoder.getAudioFrame(request);
    return is_interrupted() ? nullptr : sound;
}

std::int64_t SoundRecord::tolerance() const {
    const ff::Rational tick = m_stream.time_base;
    if (tick.num <= 0 || tick.den <= 0 || tick.den % (tick.num * m_stream.sample_rate) == 0) {
        return 0;
    }
    return tick.num * m_stream.sample_rate * 3 / 2 / tick.den + 1;
}

void SoundRecord::play(SharedVerdict* verdict, Progress* progress) {
    ff::FFDecoder decoder;
    bool goes_on = m_stream.sample_rate > 0 && m_stream.channels > 0 && decoder.open(&m_stream);
    const std::int64_t second = m_stream.sample_rate;
    while (goes_on) {
        SoundWindow window{m_samples, {}};
        for (int i = 0; i < kWindowSeconds && goes_on; ++i) {
            const std::shared_ptr<ff::AFrameCtx> sound = ask(decoder, m_samples, second);
            goes_on = sound != nullptr && sound->nb_samples == second;
            if (sound != nullptr && sound->nb_samples > 0) {
                const std::string_view bytes = sample_bytes(*sound);
                window.bytes.append(bytes);
                m_samples += sound->nb_samples;
                const auto values = static_cast<std::size_t>(sound->nb_samples) *
                                    static_cast<std::size_t>(sound->channels);
                m_shape = {sound->format, sound->channels, bytes.size() / values};
            }
        }
        remember(std::move(window));
        const double length = m_stream.duration == kUnknown
                                  ? 0
                                  : static_cast<double>(m_stream.duration) *
                                        static_cast<double>(m_stream.time_base.num) /
                                        static_cast<double>(m_stream.time_base.den);
        const double done = static_cast<double>(m_samples) / m_stream.sample_rate;
        progress->show(length > 0 ? done / length : -1, stream_name(m_stream) + ", in order");
    }
    verdict->change([&](Verdict& v) {
        v.seen = m_samples;
        v.is_usable = m_samples > 0 || is_interrupted();
    });
}

void SoundRecord::remember(SoundWindow window) {
    if (m_number++ % m_stride != 0 || window.bytes.empty()) {
        return;
    }
    m_bytes += window.bytes.size();
    m_windows.push_back(std::move(window));
    if (m_bytes <= kMostBytes || m_windows.size() < 2) {
        return;
    }
    std::vector<SoundWindow> kept;
    m_bytes = 0;
    for (std::size_t i = 0; i < m_windows.size(); i += 2) {
        m_bytes += m_windows[i].bytes.size();
        kept.push_back(std::move(m_windows[i]));
    }
    m_windows = std::move(kept);
    m_stride *= 2;
}

/// Whether the span sounds like the window around `at`. Where ticks are longer than a sample the
/// two may be off by one or two.
bool is_close_near(const SoundShape& shape, const SoundWindow& window, std::string_view span,
                   std::int64_t at) {
    for (std::int64_t i = std::max<std::int64_t>(0, at - 2); i <= at + 2; ++i) {
        const std::size_t end = static_cast<std::size_t>(i) * shape.frame_bytes() + span.size();
        if (end <= window.bytes.size() && measure(shape, window, span, i).is_close()) {
            return true;
        }
    }
    return false;
}

/// Asks for spans of recorded sound and compares.
class SoundQuestions {
public:
    SoundQuestions(const SoundRecord& record, SharedVerdict* verdict, Progress* progress)
        : m_record(record),
          m_verdict(*verdict),
          m_progress(*progress),
          m_tolerance(record.tolerance()),
          m_may_be_close(remembers_everything(
              codec_name(record.stream().movie->path, record.stream().index))) {}

    void at_random(unsigned int seed, int requests);
    void backwards(unsigned int seed, int requests);
    void from_threads(unsigned int seed, int requests);

private:
    void ask_somewhere(ff::FFDecoder& decoder, Way way, std::mt19937& random);
    void ask(ff::FFDecoder& decoder, Way way, const SoundWindow& window, std::int64_t at,
             std::int64_t count);
    std::string judge(const ff::AFrameCtx& sound, const SoundWindow& window, std::int64_t at,
                      std::int64_t count);
    bool is_right_by_time(std::string_view span, std::int64_t first) const;

    std::int64_t samples_in(const SoundWindow& window) const {
        return static_cast<std::int64_t>(window.bytes.size() / m_record.shape().frame_bytes());
    }

    const SoundRecord& m_record;
    SharedVerdict& m_verdict;
    Progress& m_progress;
    const std::int64_t m_tolerance;
    const bool m_may_be_close;
};

void SoundQuestions::ask_somewhere(ff::FFDecoder& decoder, Way way, std::mt19937& random) {
    const SoundWindow& window = m_record.windows()[random() % m_record.windows().size()];
    const std::int64_t rate = m_record.stream().sample_rate;
    const std::int64_t shortest = rate / 100 + 1;
    const auto below = [&](std::int64_t end) {
        return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(end));
    };
    const std::int64_t count = std::min(shortest + below(rate), samples_in(window));
    ask(decoder, way, window, below(samples_in(window) - count + 1), count);
}

void SoundQuestions::ask(ff::FFDecoder& decoder, Way way, const SoundWindow& window,
                         std::int64_t at, std::int64_t count) {
    const std::shared_ptr<ff::AFrameCtx> sound = m_record.ask(decoder, window.first + at, count);
    if (is_interrupted()) {
        return;
    }
    const std::string wrong =
        sound == nullptr || sound->nb_samples == 0 ? "no sound" : judge(*sound, window, at, count);
    if (!is_interrupted()) {
        m_verdict.count(way, m_record.seconds_of(window.first + at), wrong);
    }
}

/// What is wrong with the sound of `count` samples from `at` on; empty if it is what it must be.
std::string SoundQuestions::judge(const ff::AFrameCtx& sound, const SoundWindow& window,
                                  std::int64_t at, std::int64_t count) {
    const std::int64_t end = window.first + at + count;
    const bool may_be_short = end + m_tolerance > m_record.samples();
    if (sound.nb_samples != count && !may_be_short &&
        !is_right_by_time(sample_bytes(sound), window.first + at)) {
        return std::to_string(sound.nb_samples) + " samples in place of " + std::to_string(count);
    }
    // Next to the window's edges a shifted span has samples that were not recorded.
    const std::int64_t skip = std::clamp<std::int64_t>(m_tolerance - at, 0, sound.nb_samples);
    const std::int64_t room = std::max<std::int64_t>(0, samples_in(window) - m_tolerance - at);
    const std::int64_t length = std::min<std::int64_t>(sound.nb_samples, room) - skip;
    if (length <= 0) {
        return {};
    }
    const std::size_t frame = m_record.shape().frame_bytes();
    const std::string_view span = sample_bytes(sound).substr(
        static_cast<std::size_t>(skip) * frame, static_cast<std::size_t>(length) * frame);
    const auto shift = find_span(m_record.shape(), window, span, at + skip, samples_in(window));
    if (shift && std::abs(*shift) <= m_tolerance) {
        m_verdict.change([&](Verdict& v) {
            v.shifted += *shift != 0 ? 1 : 0;
            v.max_shift = std::max(v.max_shift, std::abs(*shift));
        });
        return {};
    }
    const Deviation deviation = measure(m_record.shape(), window, span, at + skip);
    if (m_may_be_close && deviation.is_close()) {
        m_verdict.change([&](Verdict& v) {
            ++v.close;
            v.max_deviation = std::max(v.max_deviation, deviation.largest);
        });
        return {};
    }
    if (is_right_by_time(sample_bytes(sound), window.first + at)) {
        m_verdict.change([&](Verdict& v) {
            ++v.moved;
            v.max_move = std::max(v.max_move, shift ? std::abs(*shift) : 0);
        });
        return {};
    }
    if (shift) {
        return "the sound of " + std::to_string(std::abs(*shift)) + " samples " +
               (*shift < 0 ? "earlier" : "later");
    }
    return "other samples, off by up to " + std::to_string(deviation.largest) + " of full scale";
}

/// Where the times in a file do not keep pace with its samples, what is played from the start on
/// lies elsewhere than a seek by time finds it. Then the span is compared with what another decoder
/// gives that is sent a little before or behind its beginning: one of the two lies in the same
/// frame, and within a frame time and samples agree.
bool SoundQuestions::is_right_by_time(std::string_view span, std::int64_t first) const {
    const std::size_t frame = m_record.shape().frame_bytes();
    const auto count = static_cast<std::int64_t>(span.size() / frame);
    const std::int64_t lead = m_record.stream().sample_rate / 200;
    ff::FFDecoder decoder;
    if (count <= 2 * lead || !decoder.open(&m_record.stream())) {
        return false;
    }
    for (const std::int64_t begin : {first - lead, first + lead}) {
        const std::int64_t end = first + count;
        const std::shared_ptr<ff::AFrameCtx> nearby =
            begin < 0 ? nullptr : m_record.ask(decoder, begin, end - begin);
        if (nearby == nullptr || nearby->nb_samples <= 2 * lead) {
            continue;
        }
        // What both have: from `lead` behind the beginning on.
        const SoundWindow window{begin, std::string(sample_bytes(*nearby))};
        const std::int64_t common =
            std::min<std::int64_t>(count - lead, nearby->nb_samples - (first + lead - begin)) -
            m_tolerance;
        if (common <= 0) {
            continue;
        }
        const std::string_view part = span.substr(static_cast<std::size_t>(lead) * frame,
                                                  static_cast<std::size_t>(common) * frame);
        const std::int64_t at = first + lead - begin;
        // Nothing is said of how close: the other decoder's noise is in it, too.
        if (find_span(m_record.shape(), window, part, at, m_tolerance) ||
            (m_may_be_close && is_close_near(m_record.shape(), window, part, at))) {
            return true;
        }
    }
    return false;
}

void SoundQuestions::at_random(unsigned int seed, int requests) {
    std::mt19937 random(seed);
    ff::FFDecoder decoder;
    (void)decoder.open(&m_record.stream());  // if not, every answer is missing
    for (int i = 0; i < requests && !is_interrupted(); ++i) {
        ask_somewhere(decoder, Way::Random, random);
        m_progress.show(1.0 * i / requests, stream_name(m_record.stream()) + ", at random");
    }
}

void SoundQuestions::backwards(unsigned int seed, int requests) {
    std::mt19937 random(seed);
    ff::FFDecoder decoder;
    (void)decoder.open(&m_record.stream());  // if not, every answer is missing
    const std::int64_t step = m_record.stream().sample_rate / 10 + 1;
    std::size_t number = m_record.windows().size() - 1;
    std::int64_t end = samples_in(m_record.windows()[number]);
    for (int i = 0; i < requests && !is_interrupted(); ++i) {
        const SoundWindow& window = m_record.windows()[number];
        const std::int64_t count = std::min(step, end);
        end -= count;
        ask(decoder, Way::Backwards, window, end, count);
        if (end == 0) {
            number = random() % m_record.windows().size();
            end = samples_in(m_record.windows()[number]);
        }
        m_progress.show(1.0 * i / requests, stream_name(m_record.stream()) + ", backwards");
    }
}

/// The first two threads share a decoder, the others have one each; all share the stream.
void SoundQuestions::from_threads(unsigned int seed, int requests) {
    ff::FFDecoder shared;
    (void)shared.open(&m_record.stream());  // if not, every answer is missing
    std::atomic<int> left{requests};
    run_on_threads(kThreads, [&](unsigned int number) {
        std::mt19937 random(seed + number);
        ff::FFDecoder own;
        const bool has_own = number >= 2 && own.open(&m_record.stream());
        while (left.fetch_sub(1) > 0 && !is_interrupted()) {
            ask_somewhere(has_own ? own : shared, Way::Threads, random);
        }
    });
}

}  // namespace

Verdict verify_sound(const ff::StreamCtx& stream, unsigned int seed, int requests,
                     Progress* progress) {
    SharedVerdict verdict;
    (void)take_complaints();
    SoundRecord record(stream);
    record.play(&verdict, progress);
    if (record.windows().empty()) {
        verdict.change([&](Verdict& v) { v.error = "it has no sound" + Reason().text(); });
    } else {
        SoundQuestions questions(record, &verdict, progress);
        questions.at_random(seed, requests);
        questions.backwards(seed + 1, requests);
        questions.from_threads(seed + 2, requests);
    }
    verdict.change([](Verdict& v) { v.is_complete = !is_interrupted(); });
    return verdict.get();
}

}  // namespace tool
