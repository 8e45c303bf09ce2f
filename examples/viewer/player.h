#pragma once

#include "level_source.h"
#include "picture_source.h"

#include <framewell/framewell.h>

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>

/// Walks through one file: knows where the playhead is, asks for the picture and the loudness
/// there, and plays by a clock. Lives on the window's thread, which it never blocks after open().
/// Times are microseconds from the start of the movie.
class Player : public QObject {
public:
    /// What the player tells, on its own thread.
    class Listener {
    public:
        Listener() = default;
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;
        virtual ~Listener() = default;

        /// The picture under the playhead; null: there is none.
        virtual void show_picture(const std::shared_ptr<ff::VFrameCtx>& picture) = 0;

        /// The loudest sample around the playhead, 1 being full scale.
        virtual void show_level(double peak) = 0;

        /// The playhead has moved, or playing has begun, turned or ended.
        virtual void show_state() = 0;
    };

    /// The listener outlives the player.
    explicit Player(Listener* listener);

    /// Opens the file and goes to its start. Returns what is wrong with it, or an empty text.
    QString open(const QString& path);

    void seek(qint64 position);      ///< from outside of the movie: to its nearest end
    void step(int direction);        ///< by one picture: 1 on, -1 back; ends playing
    void set_playing(bool playing);  ///< from an end of the movie: from the other one
    void set_reverse(bool reverse);  ///< which way to play; only if can_reverse()

    bool is_playing() const { return m_timer.isActive(); }

    bool is_reverse() const { return m_pictures.is_reverse(); }

    bool can_reverse() const { return m_pictures.can_reverse(); }

    qint64 position() const { return m_position; }

    qint64 duration() const { return m_duration; }

    const ff::StreamCtx* stream() const { return m_stream; }  ///< of the pictures

    /// Whether everything that was asked for has been answered.
    bool is_settled() const { return m_pictures.is_settled() && m_levels.is_settled(); }

private:
    void go_to(qint64 position);
    void take_picture(const std::shared_ptr<ff::VFrameCtx>& picture, bool is_newest);
    void start_clock();
    void tick();

    qint64 last_position() const { return is_reverse() ? 0 : m_duration; }

    Listener* const m_listener;
    PictureSource m_pictures;
    LevelSource m_levels;
    const ff::StreamCtx* m_stream = nullptr;
    qint64 m_start = 0;  // of the movie in its file
    qint64 m_duration = 0;
    qint64 m_position = 0;
    qint64 m_picture_time = 0;  // when the shown picture begins
    bool m_stepping = false;    // the playhead goes to the beginning of the awaited picture
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_clock_from = 0;  // where the playhead was when the clock started
};
