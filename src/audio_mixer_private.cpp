#include "audio_mixer_private.h"

#include "base/log.h"
#include "media/ff_handles.h"

#include <framewell/utils/mempool.h>

#include <climits>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace ff {

namespace {

constexpr const char* kLogSource = "src/audio_mixer_private";
constexpr unsigned kBufferAlignment = 16;
constexpr int kPackedBytes = 1;  // FFmpeg's word for "no padding between planes"

struct PoolFree {
    void operator()(std::uint8_t* p) const { mem_free(p); }
};

using PoolPtr = std::unique_ptr<std::uint8_t, PoolFree>;

PoolPtr take_from_pool(int size) {
    return PoolPtr(static_cast<std::uint8_t*>(mem_malloc(size, kBufferAlignment)));
}

// The lines of these two messages are part of what is logged.
constexpr int kUnknownFormatLine = 143;
constexpr int kNeedSamplesLine = 155;

}  // namespace

SDL_AudioFormat get_sdl_audio_fmt(SampleFormat format) {
    constexpr SDL_AudioFormat codes[] = {0, 2, 6, 8};
    if (format < SampleFormat::U8 || format > SampleFormat::Flt) {
        FW_LOG_AT(kUnknownFormatLine, 2, "bg", "unknow audio format: %d\n",
                  static_cast<int>(format));
        return 0;
    }
    return codes[static_cast<int>(format) - static_cast<int>(SampleFormat::U8)];
}

AudioMixerPrivate::AudioMixerPrivate(int rate, int channel_count, SampleFormat sample_format)
    : sample_rate(rate), channels(channel_count), format(sample_format) {
    writers.max_load_factor(1.0F);
}

AudioMixerPrivate::~AudioMixerPrivate() {
    for (const auto& [key, writer] : writers) {
        static_cast<PcmWriter&>(*writer).mixer = nullptr;  // hosts may hold writers for longer
    }
}

int AudioMixerPrivate::bytes_per_sample() const {
    return channels * av_get_bytes_per_sample(static_cast<AVSampleFormat>(av_format()));
}

// The bytes of a block, or a negative FFmpeg code if there can be no such block.
int AudioMixerPrivate::block_size(std::int64_t samples) const {
    if (samples > INT_MAX) {
        return AVERROR(EINVAL);
    }
    return av_samples_get_buffer_size(nullptr, channels, static_cast<int>(samples),
                                      static_cast<AVSampleFormat>(av_format()), kPackedBytes);
}

// Makes `buffer` a block of `size` zero bytes, the one that is there if it is large enough.
bool AudioMixerPrivate::make_block(int size) {
    if (buffer == nullptr || buffer->capacity < size) {
        buffer = std::make_shared<PcmBuffer>();
        buffer->data = take_from_pool(size).release();  // owned by the block
        if (buffer->data == nullptr) {
            return false;
        }
        buffer->capacity = size;
    }
    buffer->size = size;
    std::memset(buffer->data, 0, static_cast<std::size_t>(size));
    return true;
}

void AudioMixerPrivate::begin(const Range& next) {
    if (next.start != range.end) {
        clear();
        consumed_samples = 0;
        origin = next.start;
    }
    range = next;
    // Counted from the start of the run: ranges that end between samples still sum to the run.
    const std::int64_t total =
        sample_rate > 0 ? time_to_timestamp(range.end - origin, Rational{1, sample_rate}) : 0;
    // Both lie in 64 bits, and so may their difference not.
    std::int64_t need = 0;
    const bool too_far = __builtin_sub_overflow(total, consumed_samples, &need);
    consumed_samples = total;
    need_samples = 0;
    const int size = too_far || need <= 0 ? 0 : block_size(need);
    if (size > 0 && make_block(size)) {
        need_samples = static_cast<int>(need);
        return;
    }
    if (need != 0 || too_far || sample_rate <= 0) {
        FW_LOG(2, "bg", "[mixer] no block for %lld samples (rate %d, channels %d, format %d)",
               static_cast<long long>(need), sample_rate, channels, static_cast<int>(format));
    }
    if (buffer == nullptr) {
        buffer = std::make_shared<PcmBuffer>();
    }
    buffer->size = 0;
}

std::shared_ptr<PcmBuffer> AudioMixerPrivate::end() {
    need_samples = 0;
    return buffer;
}

std::shared_ptr<PcmWriterBase> AudioMixerPrivate::getBuffer(void* key) {
    std::shared_ptr<PcmWriterBase>& writer = writers[key];
    if (writer == nullptr) {
        writer = std::make_shared<PcmWriter>(this);
    }
    return writer;
}

void AudioMixerPrivate::clear() {
    for (const auto& [key, writer] : writers) {
        static_cast<PcmWriter&>(*writer).reset();  // getBuffer() makes no other kind
    }
}

bool AudioMixerPrivate::merge(AVAudioFifo* fifo, int volume) {
    if (fifo == nullptr || av_audio_fifo_size(fifo) <= 0) {
        return false;
    }
    if (need_samples < 1) {
        FW_LOG_AT(kNeedSamplesLine, 2, "bg", "***ERROR***  need_samples <= 0, must call 'begin()'");
        return false;
    }
    return merge_queued(fifo, std::min(av_audio_fifo_size(fifo), need_samples), volume);
}

bool AudioMixerPrivate::merge_queued(AVAudioFifo* fifo, int count, int volume) {
    // As large as the block, though fewer may be read: the pool keeps buffers by size.
    const PoolPtr scratch = take_from_pool(buffer->size);
    if (scratch == nullptr) {
        FW_LOG(2, "bg", "[mixer] no memory for %d bytes", buffer->size);
        return false;
    }
    void* samples[] = {scratch.get()};
    const int read = av_audio_fifo_read(fifo, samples, count);
    if (read < 0) {
        FW_LOG(2, "bg", "[mixer] can't read %d samples: %d", count, read);
        return false;
    }
    merge_samples(scratch.get(), 0, read, volume);
    return true;
}

void AudioMixerPrivate::merge_samples(const std::uint8_t* samples, int first, int count,
                                      int volume) {
    const int sample_size = bytes_per_sample();
    std::uint8_t* const to = buffer->data + std::ptrdiff_t{first} * sample_size;
    SDL_MixAudioFormat(to, samples, get_sdl_audio_fmt(format),
                       static_cast<std::uint32_t>(count * sample_size), volume);
}

}  // namespace ff
