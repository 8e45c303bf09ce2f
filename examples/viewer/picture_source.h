#pragma once

#include <framewell/framewell.h>

#include <QObject>
#include <functional>
#include <memory>

/// Gives pictures by time in the background, from its decoder's thread to the window's. Times are
/// microseconds from the start of the movie, whichever way the decoder plays.
class PictureSource {
public:
    /// Takes a picture, or null where there is none, and whether nothing newer has been asked for.
    using Handler = std::function<void(const std::shared_ptr<ff::VFrameCtx>&, bool is_newest)>;

    /// `handler` runs on the thread of `receiver`, which outlives this.
    PictureSource(QObject* receiver, Handler handler);
    PictureSource(const PictureSource&) = delete;
    PictureSource& operator=(const PictureSource&) = delete;
    ~PictureSource();

    bool open(const ff::StreamCtx* stream);

    /// Asks for the picture at `time`, in place of the request that still waits.
    void ask(qint64 time);

    /// Turns the decoder round; pictures of the old direction do not come any more.
    void set_reverse(bool reverse);

    bool is_reverse() const { return m_reverse; }

    bool can_reverse() const { return m_end.num > 0; }

    /// Whether every request has been answered.
    bool is_settled() const { return m_waiting == 0; }

private:
    void take(int request, const std::shared_ptr<ff::VFrameCtx>& picture);

    QObject* const m_receiver;
    const Handler m_handler;
    ff::FFDecoder2 m_decoder;
    ff::Rational m_end{0, 1};  // what the decoder counts back from, seconds; 0: not known
    bool m_reverse = false;
    int m_request = 0;      // number of the newest request
    int m_first_valid = 0;  // answers to older ones are of the other direction
    int m_waiting = 0;      // requests without an answer
};
