#pragma once

#include "media/ff_handles.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace ff {

/// Gives a time to frames that a decoder hands out without one.
///
/// A frame with a timestamp goes straight through. A frame without is held until the next frame
/// with a timestamp arrives; the held ones then get evenly spaced times counted back from it. What
/// is still held when the stream ends is counted on from the last known time instead, and so is
/// what grows beyond kMaxHeldBytes, so that a stream without any timestamp costs bounded memory.
///
/// Frames come out in decoding order: either from put() or, on the following calls, from
/// take_ready().
///
/// Thread-safety: one thread at a time.
class FrameJitter {
public:
    /// A stream that never tells a time may hold this much before times are made up.
    static constexpr std::size_t kMaxHeldBytes = std::size_t{1} << 30;

    /// From this many held frames on, each further one is reported.
    static constexpr std::size_t kManyFrames = 10;

    /// Returns `frame` if the caller may use it now (perhaps with the contents of an older, held
    /// frame), or null if it was taken into the list or had no data; `frame` is empty then.
    AVFrame* put(AVFrame* frame);

    /// Counts times for `frames` back from `frame` and exchanges it with the oldest of them:
    /// `frame` then holds the oldest and the list ends with what `frame` held.
    static void caculate_pts_and_replace(AVFrame* frame,
                                         std::list<std::shared_ptr<AVFrame>>& frames);

    /// Moves the oldest held frame that has a time into `frame`. False if there is none.
    bool take_ready(AVFrame* frame);

    /// The stream has ended: gives the frames that still have no time one counted on from the last
    /// known time, and makes them ready. Drops them if no time is known to count from.
    void finish();

    /// Forgets held frames and the last known time. With `next_time`, the time at which the stream
    /// goes on is known (its beginning); AV_NOPTS_VALUE: it is not.
    void reset(std::int64_t next_time);

    /// How long one frame lasts, in ticks, where the frames themselves do not say.
    void set_frame_step(std::int64_t step) { m_frame_step = step; }

    void set_name(const char* name) { m_name = name; }

    std::size_t size() const { return m_frames.size(); }

    void swap(FrameJitter& other) noexcept;

private:
    void hold(AVFrame* frame);
    bool release_oldest(AVFrame* frame);
    void note_time(const AVFrame& frame);
    void stamp_from_last_known(AVFrame* frame);

    std::list<std::shared_ptr<AVFrame>> m_frames;  // oldest first
    std::string m_name;                            // the decoder's name, for the log
    std::size_t m_held_bytes = 0;                  // of frames in the list that have no time
    std::int64_t m_next_time = AV_NOPTS_VALUE;     // where the next frame is expected
    std::int64_t m_frame_step = 0;
};

}  // namespace ff
