#pragma once

#include <framewell/audio_mixer.h>
#include <framewell/media/formats.h>
#include <framewell/media/range.h>
#include <framewell/media/sample_mix.h>

#include <cstdint>
#include <memory>
#include <unordered_map>

struct AVAudioFifo;

namespace ff {

/// Returns the code under which samples of `format` are mixed and measured. A format without one is
/// logged and gets 0.
SDL_AudioFormat get_sdl_audio_fmt(SampleFormat format);

/// What an AudioMixer does. Together with its writers, which reach back for the open range, it is
/// one module.
class AudioMixerPrivate {
public:
    AudioMixerPrivate(int rate, int channel_count, SampleFormat sample_format);
    AudioMixerPrivate(const AudioMixerPrivate&) = delete;
    AudioMixerPrivate& operator=(const AudioMixerPrivate&) = delete;
    ~AudioMixerPrivate();

    void begin(const Range& next);
    std::shared_ptr<PcmBuffer> end();
    std::shared_ptr<PcmWriterBase> getBuffer(void* key);

    /// Adds what the open range needs out of `fifo` onto the start of the block.
    bool merge(AVAudioFifo* fifo, int volume);

    /// Adds the first `count` samples out of `fifo`, no more than the range needs, onto the start
    /// of the block.
    bool merge_queued(AVAudioFifo* fifo, int count, int volume);

    /// Adds `count` samples per channel onto the block from its sample `first` on; they must fit.
    void merge_samples(const std::uint8_t* samples, int first, int count, int volume);

    /// Forgets what all sources have left over.
    void clear();

    /// FFmpeg's sample format of the blocks; -1 if they cannot be mixed.
    int av_format() const { return samplefmt_to_avsamplefmt(format); }

    /// Bytes of one sample of all channels.
    int bytes_per_sample() const;

    int sample_rate;  // Hz
    int channels;
    SampleFormat format;
    std::unordered_map<void*, std::shared_ptr<PcmWriterBase>> writers;
    std::int64_t consumed_samples = 0;  // per channel, from `origin` to the end of the range
    Rational origin{0, 0};              // where the run of ranges began
    // 0/0 equals no start of a range, so the first range is a jump.
    Range range{{0, 0}, {0, 0}};
    int need_samples = 0;  // per channel, that the open range has; 0 while none is open
    std::shared_ptr<PcmBuffer> buffer;

private:
    int block_size(std::int64_t samples) const;
    bool make_block(int size);
};

}  // namespace ff
