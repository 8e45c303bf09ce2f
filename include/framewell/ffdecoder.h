#pragma once

#include <framewell/base/config.h>
#include <framewell/frame.h>
#include <framewell/media/rational.h>
#include <framewell/media/stream.h>

#include <atomic>
#include <functional>
#include <memory>

/// @file
/// The picture and the sound of a file by time: where a host begins.

namespace ff {

class FFDecoderPrivate;

/// Random access by time to one stream of one file: the picture at time t, or the samples of a span
/// [a, b). Each also asynchronously, for hosts that scrub: then only the newest request counts.
///
///     const ff::MovieCtx* movie = ff::FFDecoder::probe("clip.mp4", nullptr);
///     ff::FFDecoder decoder;
///     if (decoder.open(ff::first_stream(movie, ff::StreamType::Video))) {
///         ff::RequireVideoFrame req;
///         req.time = {25, 2};  // 12.5 seconds from the movie's start
///         if (auto picture = decoder.getVideoFrame(req)) {
///             show(picture->data[0], picture->linesize[0], picture->width, picture->height);
///         }
///     }
///
/// The picture at time t is the last one whose own time is not after t. A time is first rounded to
/// the nearest tick of the stream (halves up): where a tick is as long as a picture, as in AVI, a
/// time in the second half of a picture already means the next one, so ask at the pictures' starts.
///
/// Decoders that are open on one stream share its decoding workers and their caches, so a second
/// decoder on a stream makes both faster. The stream record must be one that a probe returned.
///
/// Sound is counted in samples: spans that follow each other without a gap are cut out of one run,
/// so that together they hold exactly the samples of the whole time, whatever the spans' length. A
/// span that does not begin where the last one ended begins a new run and costs a seek.
///
/// Subclasses that override one of the pri_ operations call close() in their own destructor: a
/// background request may be inside such an operation until then.
///
/// Thread-safety: safe; any thread may call any method. The calls of one decoder run one after
/// another, and so does the decoding of one stream. The host's logger callback must not call
/// decoders: it may run while they are locked.
class FRAMEWELL_API FFDecoder {
public:
    /// Makes a closed decoder.
    FFDecoder();
    FFDecoder(const FFDecoder&) = delete;
    FFDecoder& operator=(const FFDecoder&) = delete;

    /// Closes the decoder, and takes back the workers that opening it again had added. Waits for a
    /// request that is running, as close() does.
    virtual ~FFDecoder();

    /// Returns what is in the file at `path`, from a cache if it has been asked before.
    /// @param cancel  may be null; when set to true, counting the frames of a file that does not
    ///                know its duration ends early, and the record keeps the wrong duration.
    /// @return        a record that lives as long as the process; null if the file cannot be
    ///                opened, with a line in the log (level 2).
    /// Thread-safety: safe. May decode a whole stream when the file does not know its duration.
    static MovieCtx* probe(const char* path, std::atomic<bool>* cancel = nullptr);

    /// Gives buffers that have been idle in the memory pool for more than `max_idle_ms`
    /// milliseconds (0: all) back to the system. Returns their number.
    static unsigned int memCollection(unsigned int max_idle_ms);

    /// Opens the decoder on a stream. False if the stream is null or cannot be decoded; the reason
    /// is logged. Opening a decoder that is open on the same stream adds one more worker to the
    /// stream, which stays until this decoder is destroyed; on another stream it moves the decoder
    /// there.
    bool open(const StreamCtx* stream);

    /// Opens again on the stream that was last given to open(). False if there is none.
    bool reopen();

    /// Closes the decoder; requests that are running or waiting end without a result. Waits for a
    /// running one to end, which takes one decode call, or, if it has an abort flag of the host's
    /// own that is not set, until it is done. Called by a callback of the decoder it waits for no
    /// callback. Closing a closed decoder does nothing.
    void close();

    /// Returns whether the last open() or reopen() succeeded and close() has not been called since.
    /// Blocking: waits for a request that is running.
    bool isOpened() const;

    /// Returns the stream that was last given to open(), even if it failed; null before.
    const StreamCtx* streamContex() const;

    /// Returns the divider of getImageDivider() for the stream's pictures; 1 without a video
    /// stream.
    int getImageDivider(MemoryMode mode) const;

    /// Returns the picture at `req.time`, converted as `req` asks.
    /// @return  shared record; empty: no picture (not open, cancelled, closed meanwhile, a
    ///          seek-only request, a conversion that is not possible); the reason is logged under
    ///          the decoder's tag "dec_N". A still picture that is asked for again with the same
    ///          divider is the very same record, whatever the time and the format.
    /// Blocking: decodes on the calling thread, after requests on the same stream that came first.
    std::shared_ptr<VFrameCtx> getVideoFrame(const RequireVideoFrame& req);

    /// Returns the samples of `req.range`, resampled as `req` asks: those of [start, end) counted
    /// at the stream's own rate from where the run began.
    /// @return  shared record. Fewer samples than asked at the end of the stream; silence where the
    ///          stream has a gap right after a seek. Empty: nothing there, or as getVideoFrame().
    std::shared_ptr<AFrameCtx> getAudioFrame(const RequireAudioFrame& req);

    /// Take the result of a background request, which is never an empty pointer.
    using VideoCallback = std::function<void(std::shared_ptr<VFrameCtx>)>;
    using AudioCallback = std::function<void(std::shared_ptr<AFrameCtx>)>;

    /// getVideoFrame() on the decoder's background thread, which the first such request starts.
    /// A request that still waits is replaced by a newer one, of pictures and sound alike, and one
    /// that was made before a close() is dropped: the callbacks of such requests are never called.
    /// @param callback  called on the background thread with the picture, only if there is one. It
    ///                  holds no lock and may use this decoder, close it and even destroy it. What
    ///                  it throws is logged (level 2). May be empty: then the decoder only moves.
    /// Blocking: never waits for a decode.
    void getVideoFrameAsync(const RequireVideoFrame& req, VideoCallback callback);

    /// The same for getAudioFrame().
    void getAudioFrameAsync(const RequireAudioFrame& req, AudioCallback callback);

    // The bodies of the operations above, for subclasses and for hosts that need to know exactly
    // which closing makes a request stale.

    /// Moves the decoder to `time` (seconds from the movie's start) without giving a result, on the
    /// background thread if `async`. Does nothing for a stream that is neither video nor audio.
    virtual void pri_seek(const Rational& time, bool async);

    /// getVideoFrame() for a request that was made when the decoder's serial was `serial`: empty
    /// (with a line of level 5) if the decoder has been closed since. The serial starts at 0 and
    /// grows by one with every close().
    virtual std::shared_ptr<VFrameCtx> pri_getVideoFrame(const RequireVideoFrame& req, int serial);

    /// getAudioFrame(), likewise.
    virtual std::shared_ptr<AFrameCtx> pri_getAudioFrame(const RequireAudioFrame& req, int serial);

protected:
    /// For the library's own subclasses.
    FFDecoderPrivate* d() const { return m_private.get(); }

private:
    std::unique_ptr<FFDecoderPrivate> m_private;
};

}  // namespace ff
