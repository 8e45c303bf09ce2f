// Prints how loud FILE is, ten times per second and for each channel, in decibels below full scale:
// level_meter FILE
#include <framewell/framewell.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

namespace {

constexpr int kReadingsPerSecond = 10;
constexpr double kFloor = -90.0;  // what counts as silence, dB

double decibels(double level) {
    return level > 0 ? std::max(kFloor, 20 * std::log10(level)) : kFloor;
}

// [measure]
struct Level {
    double peak = 0;  // of full scale
    double rms = 0;   // root of the mean square
};

Level measure(const ff::AFrameCtx& span, int channel) {
    const auto* const samples = reinterpret_cast<const float*>(span.data[0]);
    Level level;
    double sum = 0;
    for (int i = 0; i < span.nb_samples; i++) {
        const double sample = samples[i * span.channels + channel];
        level.peak = std::max(level.peak, std::abs(sample));
        sum += sample * sample;
    }
    level.rms = span.nb_samples > 0 ? std::sqrt(sum / span.nb_samples) : 0;
    return level;
}

// [measure]

void show(double seconds, int channel, const Level& level) {
    const double peak = decibels(level.peak);
    const int bars = static_cast<int>((peak - kFloor) / 2);
    std::printf("%6.1f s  channel %d  peak %5.1f dB  rms %5.1f dB  %.*s\n", seconds, channel, peak,
                decibels(level.rms), bars, "=============================================");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: level_meter FILE\n");
        return 2;
    }
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[1]);
    const ff::StreamCtx* const stream = ff::first_stream(movie, ff::StreamType::Audio);
    ff::FFDecoder decoder;
    if (!decoder.open(stream)) {
        return 1;
    }
    // [readings]
    ff::RequireAudioFrame request;
    request.format = ff::SampleFormat::Flt;  // full scale is 1
    request.sample_rate = stream->sample_rate;
    request.channels = stream->channels;
    const ff::Rational end{movie->duration, 1000000};
    for (int i = 0; ff::Rational{i, kReadingsPerSecond} < end; i++) {
        request.range = {{i, kReadingsPerSecond}, {i + 1, kReadingsPerSecond}};
        const auto span = decoder.getAudioFrame(request);
        for (int channel = 0; span && channel < span->channels; channel++) {
            show(static_cast<double>(i) / kReadingsPerSecond, channel, measure(*span, channel));
        }
    }
    // [readings]
}
