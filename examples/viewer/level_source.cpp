#include "level_source.h"

#include "answer.h"

#include <memory>
#include <utility>

namespace {

constexpr qint64 kSpan = 50000;      // microseconds that are measured as one
constexpr int kPeakScale = 1000000;  // steps in which a peak is measured

}  // namespace

LevelSource::LevelSource(QObject* receiver, Handler handler)
    : m_receiver(receiver), m_handler(std::move(handler)) {}

LevelSource::~LevelSource() {
    m_decoder.close();  // waits until no callback runs: after it nobody posts to the receiver
}

void LevelSource::open(const ff::StreamCtx* stream) {
    // A movie can be watched without its sound; the log says what is wrong with it.
    m_stream = stream != nullptr && m_decoder.open(stream) ? stream : nullptr;
}

void LevelSource::ask(qint64 time) {
    // Whole spans: while playing they follow each other, and are cut out of one run without a seek.
    const qint64 span = time / kSpan;
    if (m_stream == nullptr || span == m_span) {
        return;
    }
    m_span = span;
    m_waiting++;
    ff::RequireAudioFrame request;
    request.range = {{span * kSpan, 1000000}, {(span + 1) * kSpan, 1000000}};
    request.format = ff::SampleFormat::S32;  // measured by its absolute values
    request.sample_rate = m_stream->sample_rate;
    request.channels = m_stream->channels;
    m_decoder.getAudioFrameAsync(
        request, posted<ff::AFrameCtx>(m_receiver, [this, span](const auto& sound) {
            m_waiting--;
            if (sound != nullptr || span == m_span) {
                m_handler(static_cast<double>(ff::getAudioPeak(sound, kPeakScale)) / kPeakScale);
            }
        }));
}
