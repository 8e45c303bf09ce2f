#pragma once

#include <framewell/framewell.h>

#include <QObject>
#include <functional>

/// Measures in the background how loud the sound is around a time, microseconds from the start of
/// the movie. Has a decoder of its own: in one, requests for pictures would replace those for
/// sound.
class LevelSource {
public:
    /// Takes the loudest sample, 1 being full scale; 0 where there is no sound.
    using Handler = std::function<void(double peak)>;

    /// `handler` runs on the thread of `receiver`, which outlives this.
    LevelSource(QObject* receiver, Handler handler);
    LevelSource(const LevelSource&) = delete;
    LevelSource& operator=(const LevelSource&) = delete;
    ~LevelSource();

    /// Opens the stream; null or one that cannot be decoded is silent.
    void open(const ff::StreamCtx* stream);

    /// Measures around `time`, if that is not what has been measured last.
    void ask(qint64 time);

    /// Whether every request has been answered.
    bool is_settled() const { return m_waiting == 0; }

private:
    QObject* const m_receiver;
    const Handler m_handler;
    ff::FFDecoder m_decoder;
    const ff::StreamCtx* m_stream = nullptr;
    qint64 m_span = -1;  // number of the span that was asked for last
    int m_waiting = 0;   // requests without an answer
};
