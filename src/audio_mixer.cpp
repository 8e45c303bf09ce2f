#include "audio_mixer_private.h"
#include "base/log.h"
#include "media/ff_handles.h"

#include <framewell/audio_mixer.h>
#include <framewell/utils/mempool.h>

#include <climits>

#include <algorithm>
#include <cstddef>

namespace ff {

namespace {

constexpr const char* kLogSource = "src/audio_mixer";
constexpr int kFirstFifoSamples = 1024;  // it grows by itself

}  // namespace

PcmBuffer::~PcmBuffer() {
    if (data != nullptr) {
        mem_free(data);
    }
}

PcmWriterBase::~PcmWriterBase() = default;

PcmWriter::PcmWriter(AudioMixerPrivate* owner) : mixer(owner) {}

PcmWriter::~PcmWriter() {
    if (fifo != nullptr) {
        av_audio_fifo_free(fifo);
    }
    mixer = nullptr;
}

void PcmWriter::reset() {
    if (fifo != nullptr) {
        av_audio_fifo_reset(fifo);
    }
}

// Whether the frame's samples are what the mixer's blocks are made of, and are there. Others would
// be read, queued and mixed beyond the end of somebody's memory.
bool PcmWriter::accepts(const AFrameCtx& frame) const {
    const int format = mixer->av_format();
    if (format < 0) {
        (void)get_sdl_audio_fmt(mixer->format);  // logs the format that has no code
        return false;
    }
    if (frame.format != format || frame.channels != mixer->channels || frame.channels < 1) {
        FW_LOG(2, "bg", "[mixer] frame refused: format %d, channels %d; the mixer has %d, %d",
               frame.format, frame.channels, format, mixer->channels);
        return false;
    }
    const std::int64_t bytes = std::int64_t{frame.nb_samples} * mixer->bytes_per_sample();
    const bool has_data = frame.data[0] != nullptr || frame.nb_samples == 0;
    const bool too_short = frame.data[0] == frame.buffer && bytes > frame.size;
    if (frame.nb_samples < 0 || !has_data || too_short) {
        FW_LOG(2, "bg", "[mixer] frame refused: %d samples in %d bytes", frame.nb_samples,
               has_data ? frame.size : 0);
        return false;
    }
    return true;
}

// Queues the samples of the frame from `first_sample` on.
bool PcmWriter::queue(const AFrameCtx& frame, int first_sample) {
    const int count = frame.nb_samples - first_sample;
    if (count == 0) {
        return true;
    }
    const std::ptrdiff_t skipped = std::ptrdiff_t{first_sample} * mixer->bytes_per_sample();
    void* samples[] = {frame.data[0] + skipped};
    const int written = av_audio_fifo_write(fifo, samples, count);
    if (written < count) {
        FW_LOG(2, "bg", "[mixer] can't queue %d samples: %d", count, written);
        return false;
    }
    return true;
}

bool PcmWriter::write(std::shared_ptr<AFrameCtx> frame, int volume) {
    if (frame == nullptr) {
        return false;
    }
    if (mixer == nullptr) {
        FW_LOG(2, "bg", "[mixer] write after the mixer is gone");
        return false;
    }
    if (!accepts(*frame)) {
        return false;
    }
    if (fifo == nullptr) {
        fifo = av_audio_fifo_alloc(static_cast<AVSampleFormat>(frame->format), frame->channels,
                                   kFirstFifoSamples);
        if (fifo == nullptr) {
            FW_LOG(2, "bg", "[mixer] no memory for a queue");
            return false;
        }
    }
    const int queued = av_audio_fifo_size(fifo);
    if (queued >= mixer->need_samples) {
        return queue(*frame, 0) && mixer->merge(fifo, volume);
    }
    // What the range needs beyond the queue is mixed from where it is. The way through the queue
    // would copy it twice and come to the same.
    const int direct = std::min(frame->nb_samples, mixer->need_samples - queued);
    if (!queue(*frame, direct) || (queued > 0 && !mixer->merge_queued(fifo, queued, volume))) {
        return false;
    }
    mixer->merge_samples(frame->data[0], queued, direct, volume);
    return queued + direct > 0;
}

AudioMixer::AudioMixer(int sample_rate, int channels, SampleFormat format)
    : m_private(std::make_unique<AudioMixerPrivate>(sample_rate, channels, format)) {}

AudioMixer::~AudioMixer() = default;

void AudioMixer::begin(const Range& range) {
    m_private->begin(range);
}

std::shared_ptr<PcmBuffer> AudioMixer::end() {
    return m_private->end();
}

std::shared_ptr<PcmWriterBase> AudioMixer::getBuffer(void* key) {
    return m_private->getBuffer(key);
}

const Range& AudioMixer::range() const {
    return m_private->range;
}

void AudioMixer::getFormat(int* sample_rate, int* channels, SampleFormat* format) const {
    if (sample_rate != nullptr) {
        *sample_rate = m_private->sample_rate;
    }
    if (channels != nullptr) {
        *channels = m_private->channels;
    }
    if (format != nullptr) {
        *format = m_private->format;
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is the hosts'
int getAudioPeak(std::shared_ptr<AFrameCtx> frame, int scale) {
    if (frame == nullptr) {
        return 0;
    }
    const SDL_AudioFormat code = get_sdl_audio_fmt(avsamplefmt_to_samplefmt(frame->format));
    const bool planar = frame->planar != 0;
    const std::uint8_t* const bytes = planar ? frame->data[0] : frame->buffer;
    const int length = std::max(0, planar ? frame->linesize[0] : frame->size);
    const std::uint32_t peak =
        Audio_Volume_Peak(code, bytes, static_cast<std::uint32_t>(length), scale);
    return static_cast<int>(std::min<std::uint32_t>(peak, INT_MAX));
}

}  // namespace ff
