#include "canvas.h"
#include "clock_text.h"
#include "commands.h"
#include "interrupt.h"
#include "media_file.h"
#include "output.h"
#include "output_sound.h"
#include "progress.h"
#include "sound_levels.h"
#include "tool_log.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();
constexpr std::size_t kBucketsPerColumn = 16;
constexpr int kLowestLane = 16;  // pixels; of more channels than fit, the mix is shown
constexpr int kMostLanes = 8;

constexpr Colour kPaper{16, 18, 22};
constexpr Colour kLane{24, 27, 33};
constexpr Colour kGrid{42, 47, 56};
constexpr Colour kMiddle{62, 70, 84};
constexpr Colour kPeak{46, 124, 196};
constexpr Colour kRms{156, 207, 250};
constexpr Colour kInk{150, 157, 170};

/// The picture of the sound of one stream.
class WavePicture {
public:
    WavePicture(int width, int height) : m_canvas(width, height, kPaper) {
        constexpr int low = 120;  // a picture that has no room for times below it
        m_text_height = height < low ? 0 : std::clamp(height / 30.0, 8.0, 14.0);
        m_waves_height = height - static_cast<int>(m_text_height * 2.2);
    }

    int waves_height() const { return m_waves_height; }

    /// @param start, length  of the sound, seconds from the movie's start.
    void draw(const SoundLevels& levels, int lanes, double start, double length) {
        constexpr int gap = 2;
        const double lane_height = static_cast<double>(m_waves_height - gap * (lanes - 1)) / lanes;
        for (int lane = 0; lane < lanes; ++lane) {
            const double top = lane * (lane_height + gap);
            m_canvas.fill(0, top, m_canvas.width(), top + lane_height, kLane);
        }
        draw_times(start, length);
        for (int lane = 0; lane < lanes; ++lane) {
            const double top = lane * (lane_height + gap);
            draw_lane(levels.columns(lane, m_canvas.width()), top, lane_height);
        }
    }

    const Image& image() const { return m_canvas.image(); }

private:
    void draw_lane(const std::vector<Level>& columns, double top, double height) {
        const double middle = top + height / 2;
        const double reach = height / 2 - 1;  // of a sample at full scale
        m_canvas.fill(0, middle - 0.5, m_canvas.width(), middle + 0.5, kMiddle);
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const auto x = static_cast<double>(i);
            const Level& level = columns[i];
            const double high = std::clamp(static_cast<double>(level.high), -1.0, 1.0);
            const double low = std::clamp(static_cast<double>(level.low), -1.0, 1.0);
            const double rms = std::min(static_cast<double>(level.rms), 1.0);
            if (high > low || high != 0) {  // a line at least, also where it is very soft
                m_canvas.fill(x, middle - high * reach - 0.5, x + 1, middle - low * reach + 0.5,
                              kPeak);
            }
            // Inside the band of the peaks, which it may leave where the sound lies to one side.
            m_canvas.fill(x, middle - std::min(rms, std::max(high, 0.0)) * reach, x + 1,
                          middle + std::min(rms, std::max(-low, 0.0)) * reach, kRms);
        }
    }

    void draw_times(double start, double length) {
        constexpr std::array<double, 18> steps{0.001, 0.01, 0.1, 0.2, 0.5, 1,   2,    5,    10,
                                               15,    30,   60,  120, 300, 600, 1800, 3600, 36000};
        constexpr double apart = 90;  // pixels, at least
        const auto* const fitting = std::find_if(steps.begin(), steps.end() - 1, [&](double step) {
            return step * m_canvas.width() >= apart * length;
        });
        if (m_text_height <= 0 || length <= 0 || *fitting * m_canvas.width() < 2 * length) {
            return;
        }
        const int digits = *fitting >= 1 ? 0 : *fitting >= 0.1 ? 1 : 3;
        for (double k = std::ceil(start / *fitting);; ++k) {
            const double time = k * *fitting;
            const double x = std::floor((time - start) / length * m_canvas.width());
            if (x >= m_canvas.width()) {
                break;
            }
            const std::string text = clock_text(std::llround(time * 1000) * 1000, digits);
            m_canvas.fill(x, 0, x + 1, m_waves_height + m_text_height * 0.7, kGrid);
            if (x + 5 + Canvas::width_of(text, m_text_height) < m_canvas.width()) {
                m_canvas.write(text, x + 5, m_waves_height + m_text_height * 0.7, m_text_height,
                               kInk);
            }
        }
    }

    Canvas m_canvas;
    double m_text_height = 0;
    int m_waves_height = 0;
};

/// Walks the sound of a file from its start to its end.
class WaveCommand {
public:
    explicit WaveCommand(const WaveOptions& options)
        : m_options(options), m_progress(options.progress, options.quiet) {}

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        watch_interrupts();
        const ff::MovieCtx& movie = need_file(m_options.file);
        const ff::StreamCtx& stream = pick_stream(movie, ff::StreamType::Audio, std::nullopt);
        open_stream(stream, m_decoder);
        if (stream.sample_rate <= 0 || stream.channels <= 0) {
            throw Failure(stream_name(stream) + " says no rate; see `framewell probe`");
        }
        WavePicture picture(m_options.width, m_options.height);
        const int fitting = std::clamp(picture.waves_height() / kLowestLane, 1, kMostLanes);
        const int lanes = stream.channels > fitting ? 1 : stream.channels;
        SoundLevels levels(lanes, kBucketsPerColumn * static_cast<std::size_t>(m_options.width));
        walk(stream, lanes, &levels);
        m_progress.clear();
        if (is_interrupted()) {
            return Exit::Interrupted;
        }
        if (levels.samples() == 0) {
            throw Failure(stream_name(stream) + ": no sound" + m_reason.text() +
                          "; see the log with -v");
        }
        const double length = static_cast<double>(levels.samples()) / stream.sample_rate;
        picture.draw(levels, lanes, in_seconds(start_of(stream)), length);
        write_image(m_options.out, picture.image());
        print_line(printable(m_options.file + ": " + seconds_text(std::llround(length * 1e6), 6) +
                             ", channels: " + std::to_string(stream.channels) + " -> " +
                             m_options.out));
        return Exit::Done;
    }

private:
    static double in_seconds(const ff::Rational& time) {
        return time.den == 0 ? 0 : static_cast<double>(time.num) / static_cast<double>(time.den);
    }

    /// When the stream begins, from the movie's start.
    static ff::Rational start_of(const ff::StreamCtx& stream) {
        if (stream.start_time == kUnknown) {
            return {0, 1};
        }
        return ff::timestamp_to_time(stream.start_time, stream.time_base) -
               ff::timestamp_to_time(movie_start_us(*stream.movie), {1, 1000000});
    }

    // In spans of a second, so that no more than that is held however long the file is.
    void walk(const ff::StreamCtx& stream, int lanes, SoundLevels* levels) {
        const ff::Rational start = start_of(stream);
        const ff::Rational end = stream.duration == kUnknown
                                     ? ff::Rational{0, 1}
                                     : ff::timestamp_to_time(stream.duration, stream.time_base);
        std::vector<float> samples;
        for (std::int64_t second = 0; !is_interrupted(); ++second) {
            ff::RequireAudioFrame request;
            request.range = {start + ff::Rational{second, 1}, start + ff::Rational{second + 1, 1}};
            request.format = ff::SampleFormat::Flt;
            request.sample_rate = stream.sample_rate;
            request.channels = lanes;
            request.abort_flag = &interrupt_flag();
            const std::shared_ptr<ff::AFrameCtx> sound = m_decoder.getAudioFrame(request);
            if (sound == nullptr || sound->nb_samples <= 0) {
                break;
            }
            const std::string_view bytes = sample_bytes(*sound);
            samples.resize(bytes.size() / sizeof(float));
            std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
            levels->add(samples.data(), static_cast<std::size_t>(sound->nb_samples));
            if (sound->nb_samples < stream.sample_rate) {
                break;  // the end
            }
            m_progress.show(end.num > 0 ? static_cast<double>(second + 1) / in_seconds(end) : -1,
                            m_options.file);
        }
    }

    const WaveOptions& m_options;
    Progress m_progress;
    ff::FFDecoder m_decoder;
    Reason m_reason;
};

}  // namespace

Exit run_wave(const WaveOptions& options) {
    check_image_path(options.out);
    return WaveCommand(options).run();
}

}  // namespace tool
