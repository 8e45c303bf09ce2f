#pragma once

#include <framewell/base/config.h>
#include <framewell/frame.h>
#include <framewell/media/formats.h>
#include <framewell/media/range.h>

#include <cstdint>
#include <memory>

/// @file
/// The sound of several sources in one: what a timeline with many clips sounds like, range by
/// range.

struct AVAudioFifo;

namespace ff {

class AudioMixerPrivate;

/// One mixed block of interleaved samples. The record owns `data`, which comes from the memory pool
/// and goes back to it when the last holder lets go.
/// Thread-safety: the mixer writes into the block between its begin() and its end().
struct FRAMEWELL_API PcmBuffer {
    /// Makes a record without a block.
    PcmBuffer() = default;
    PcmBuffer(const PcmBuffer&) = delete;
    PcmBuffer& operator=(const PcmBuffer&) = delete;

    /// Gives `data` back to the memory pool.
    ~PcmBuffer();

    std::uint8_t* data = nullptr;  ///< owned; 16-byte aligned; may be null while `size` is 0
    std::int32_t size = 0;         ///< bytes that the current range has
    std::int32_t capacity = 0;     ///< bytes in `data`
};

/// Takes the sound of one source; AudioMixer::getBuffer() hands it out.
/// Thread-safety: one thread at a time, the one that uses the mixer.
class FRAMEWELL_API PcmWriterBase {
public:
    PcmWriterBase() = default;
    PcmWriterBase(const PcmWriterBase&) = delete;
    PcmWriterBase& operator=(const PcmWriterBase&) = delete;
    virtual ~PcmWriterBase();

    /// Queues the samples of `frame` behind what this source has left from ranges before, and adds
    /// as many of the queue as the current range needs onto the block, from its first sample on.
    /// What is more than that stays for the next range; a queue that is too short leaves the rest
    /// of the block as it is. So write once per source and range, a frame that covers the range: a
    /// second frame for the same range would land on its first samples again.
    /// @param frame   in the format and channel count of the mixer; its sample rate is not looked
    ///                at. It is not kept.
    /// @param volume  0, silent, to 128, unchanged; see SDL_MixAudioFormat(). Silent samples are
    ///                taken from the queue like others.
    /// @return        whether something was mixed. False: an empty pointer, nothing in the queue,
    ///                or, and these are logged, no range is open or it is empty (the samples stay
    ///                queued), the mixer's format cannot be mixed, the frame has another format or
    ///                channel count or no valid samples (it is not queued), the mixer is gone, or
    ///                there is no memory.
    virtual bool write(std::shared_ptr<AFrameCtx> frame, int volume) = 0;
};

/// The mixer's own kind of writer: a queue of the samples that are left over. It stays valid when
/// its mixer is gone, and then refuses what is written to it.
/// Thread-safety: as PcmWriterBase.
class FRAMEWELL_API PcmWriter final : public PcmWriterBase {
public:
    /// Makes a writer with an empty queue. Hosts get theirs from AudioMixer::getBuffer().
    /// @param owner  outlives the writer or clears the pointer to itself.
    explicit PcmWriter(AudioMixerPrivate* owner);
    PcmWriter(const PcmWriter&) = delete;
    PcmWriter& operator=(const PcmWriter&) = delete;

    /// Forgets the samples that are left over.
    ~PcmWriter() override;

    bool write(std::shared_ptr<AFrameCtx> frame, int volume) override;

    /// Forgets the samples that are left over.
    void reset();

private:
    friend class AudioMixerPrivate;

    bool accepts(const AFrameCtx& frame) const;
    bool queue(const AFrameCtx& frame, int first_sample);

    AVAudioFifo* fifo = nullptr;  // owned; made by the first write
    AudioMixerPrivate* mixer;     // not owned; null when the mixer is gone
};

/// Sums the sound of several sources into one block per range of the output time.
///
///     ff::AudioMixer mixer(48000, 2, ff::SampleFormat::S16);
///     mixer.begin({{0, 1}, {1, 30}});                                 // 1600 samples per channel
///     mixer.getBuffer(&music)->write(music.getAudioFrame(request), 128);
///     mixer.getBuffer(&voice)->write(voice.getAudioFrame(request), 96);
///     const std::shared_ptr<ff::PcmBuffer> block = mixer.end();       // 6400 bytes
///
/// Ranges that follow each other are counted in samples from the first one's start, so the blocks
/// of a run hold exactly the samples of the whole run, however its ranges fall between samples.
/// Thread-safety: one thread at a time, writers included.
class FRAMEWELL_API AudioMixer {
public:
    /// Makes a mixer of blocks in this form. Nothing can be mixed in a form without a size: a
    /// format other than the four interleaved ones, no channels, no rate.
    AudioMixer(int sample_rate, int channels, SampleFormat format);
    AudioMixer(const AudioMixer&) = delete;
    AudioMixer& operator=(const AudioMixer&) = delete;

    /// Writers that a host still holds refuse what is written to them from now on.
    ~AudioMixer();

    /// Opens the next range and clears the block for it: with zero bytes, which are silence except
    /// for unsigned 8-bit samples, where zero is the lowest value.
    ///
    /// A range that starts where the last one ended goes on with what sources have left over. Any
    /// other is a jump: leftovers are forgotten and counting begins anew.
    ///
    /// A range of no samples, one that ends before it starts, and one whose block would be larger
    /// than 2 GiB or than memory gives an empty block, and writers refuse to mix until the next
    /// begin(); all but the first are logged.
    void begin(const Range& range);

    /// Closes the range and returns its block, which holds `size` bytes. The next begin() uses the
    /// same memory if it is large enough, so be done with the block by then, or copy it. A null
    /// pointer if begin() was never called.
    std::shared_ptr<PcmBuffer> end();

    /// Returns the writer of the source that `key` stands for: any pointer, never looked into. It
    /// is made on the first call and lives as long as the mixer.
    std::shared_ptr<PcmWriterBase> getBuffer(void* key);

    /// Returns the range of the last begin(); 0/0 at both ends before it.
    const Range& range() const;

    /// Stores the form of the blocks through each pointer that is not null.
    void getFormat(int* sample_rate, int* channels, SampleFormat* format) const;

private:
    const std::unique_ptr<AudioMixerPrivate> m_private;
};

/// Returns the loudness of `frame` for a meter with `scale` steps, as Audio_Volume_Peak() measures
/// it. Of a planar frame only the first channel is measured, as unsigned 8-bit samples, and since
/// no planar format can be measured, that is logged.
/// @return  0 for an empty pointer and for a frame without samples; at most INT_MAX.
/// Thread-safety: safe.
FRAMEWELL_API int getAudioPeak(std::shared_ptr<AFrameCtx> frame, int scale);

}  // namespace ff
