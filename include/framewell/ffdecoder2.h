#pragma once

#include <framewell/base/config.h>
#include <framewell/ffdecoder.h>

#include <memory>
#include <string>

/// @file
/// Playing faster, slower, backwards and through filters.

namespace ff {

/// A decoder for playing with effects: faster or slower, pictures backwards, and through the host's
/// filters.
///
///     ff::FFDecoder2 decoder;
///     if (decoder.open(stream)) {
///         decoder.setSpeed(2.0);  // from now on times are those of the output
///         auto sound = decoder.getAudioFrame({{{1, 1}, {2, 1}}});  // of [2 s, 4 s) of the file
///     }
///
/// Speed, reverse and filters belong to the object and survive close() and open(); the filters
/// themselves end with close() and run again from the next setSpeed() or setFilters() on.
///
/// Thread-safety: safe, as FFDecoder. A request takes speed and reverse of the moment when it
/// begins, and the filters of the moment when it gets its turn. Of two threads that set a speed or
/// filters one comes first, so that what is stored and what runs belong together.
class FRAMEWELL_API FFDecoder2 : public FFDecoder {
public:
    /// Makes a closed decoder at speed 1, forwards, without filters.
    FFDecoder2();
    FFDecoder2(const FFDecoder2&) = delete;
    FFDecoder2& operator=(const FFDecoder2&) = delete;

    /// Closes the decoder.
    ~FFDecoder2() override;

    /// Sets the speed of playing: from now on a request for time t means t x speed in the file,
    /// with the speed cut to two decimals. Sound keeps its pitch; the first spans after a change
    /// may come short or empty, because the filter that stretches it looks ahead.
    /// @param speed  0.5 to 3.0.
    /// @return       false for any other speed (logged at level 2, nothing changes), or if the
    ///               filters cannot be set up for it (the speed is kept even so).
    bool setSpeed(double speed);

    /// Returns the speed that was set last; 1 at first.
    double speed() const;

    /// Turns playing backwards on or off: a request for time t then means the stream's duration
    /// minus t. Only for an open video stream; else a line on standard error, and nothing changes.
    /// The duration is taken at the moment of switching on.
    void setRevert(bool on);

    /// Sets the filters that every frame runs through, in libavfilter's syntax ("hflip",
    /// "volume=0.5"). Null, "", "null" and "anull": none. Sound at another speed than 1 runs
    /// through atempo first.
    /// @return  false if libavfilter refuses the description, and for sound of more than 3.1 MHz,
    ///          which only damaged files tell of (av_log says why): then no filter runs, and the
    ///          description is kept for the next setSpeed().
    /// A line on standard error tells what is opened or closed.
    bool setFilters(const char* filters);

    /// setSpeed() and setFilters() for a description that is already combined.
    bool pri_setFilters(const char* desc);

    std::shared_ptr<VFrameCtx> pri_getVideoFrame(const RequireVideoFrame& req, int serial) override;
    std::shared_ptr<AFrameCtx> pri_getAudioFrame(const RequireAudioFrame& req, int serial) override;

private:
    struct Settings;

    std::unique_ptr<Settings> m_settings;
};

/// Returns the filter description for a stream of kind `type`: for sound "atempo" if `speed` is not
/// exactly 1.0, then `user` unless it is empty, "null" or "anull", separated by ", "; 1023
/// characters at most. Prints a line on standard error. Thread-safety: safe.
FRAMEWELL_API std::string combineFilters(StreamType type, const std::string& user, double speed);

}  // namespace ff
