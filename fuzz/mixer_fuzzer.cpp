// The mixer: the input is a script of ranges and of the sound that sources write into them.

#include "byte_script.h"
#include "expect.h"

#include <framewell/audio_mixer.h>
#include <framewell/utils/mempool.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace {

using ff::Range;
using ff::Rational;
using ff::SampleFormat;
using fuzz::ByteScript;
using fuzz::expect;

constexpr int kMaxSteps = 64;
constexpr int kSources = 3;

struct Form {
    int sample_rate;
    int channels;
    SampleFormat format;
};

int bytes_per_sample(const Form& form) {
    switch (form.format) {
        case SampleFormat::U8:
            return form.channels;
        case SampleFormat::S16:
            return 2 * form.channels;
        default:
            return 4 * form.channels;
    }
}

Form take_form(ByteScript& script, const Form& usual) {
    constexpr int rates[] = {44100, 8000, 48000, 1, 0, -1, 11025};
    constexpr int channels[] = {2, 1, 6, 8, 0, -1, 3};
    constexpr SampleFormat formats[] = {SampleFormat::S16,  SampleFormat::U8,
                                        SampleFormat::S32,  SampleFormat::Flt,
                                        SampleFormat::None, SampleFormat::SeekOnly};
    if (script.below(4) != 0) {
        return usual;
    }
    return {script.one_of(rates), script.one_of(channels), script.one_of(formats)};
}

bool is_mixable(const Form& form) {
    return form.sample_rate > 0 && form.channels > 0 && form.format >= SampleFormat::U8 &&
           form.format <= SampleFormat::Flt;
}

/// Whether the first byte is 0 and each equals the next; by memcmp, since blocks may be large.
bool is_zero(const ff::PcmBuffer& block) {
    return block.data[0] == 0 &&
           std::memcmp(block.data, block.data + 1, static_cast<std::size_t>(block.size) - 1) == 0;
}

/// A mixer and its ranges.
class Scene {
public:
    explicit Scene(const Form& form)
        : m_form(form), m_mixer(form.sample_rate, form.channels, form.format) {}

    void begin(const Range& range) {
        m_mixer.begin(range);
        m_range = range;
        const std::shared_ptr<ff::PcmBuffer> block = m_mixer.end();
        expect(block != nullptr && block->size >= 0 && block->size <= block->capacity,
               "a block has room for what it holds");
        expect(block->size == 0 || is_mixable(m_form), "nothing is mixed in a form without a size");
        expect(block->size == 0 || is_zero(*block), "a block begins with zeros");
        m_mixer.begin(range);  // counts anew unless it is empty
    }

    /// A range of `length` right behind the last one.
    void go_on(const Rational& length) {
        const Rational start = m_range.end;
        m_range = {start, start + length};
        m_mixer.begin(m_range);
        (void)m_mixer.range();
    }

    void write(ByteScript& script) {
        const auto writer = m_mixer.getBuffer(&m_keys[script.below(kSources)]);
        const int samples = static_cast<int>(script.bits(2) % 4096);
        const std::uint8_t fill = script.byte();
        const std::uint8_t volume_kind = script.byte();
        const Form form = take_form(script, m_form);
        ff::RequireAudioFrame req;
        req.sample_rate = form.sample_rate;
        req.channels = form.channels;
        req.format = form.format;
        const std::shared_ptr<ff::AFrameCtx> frame = ff::create_audioframe_ctx(req, samples);
        if (frame != nullptr && frame->buffer != nullptr) {
            std::memset(frame->buffer, fill, static_cast<std::size_t>(frame->size));
        }
        if (frame != nullptr && fill == 255) {
            frame->nb_samples = script.small_number();  // a host's mistake
            frame->nb_samples = std::min(frame->nb_samples, samples);
        }
        const int volume = volume_kind <= 128 ? volume_kind : script.small_number();
        (void)writer->write(frame, volume);
        (void)ff::getAudioPeak(frame, volume);
        m_last = writer;
    }

    void end() {
        const std::shared_ptr<ff::PcmBuffer> block = m_mixer.end();
        if (block == nullptr) {
            return;
        }
        expect(block->size % std::max(1, bytes_per_sample(m_form)) == 0,
               "a block ends with a whole sample");
        fuzz::touch(block->data, block->size);
    }

    std::shared_ptr<ff::PcmWriterBase> last_writer() const { return m_last; }

private:
    const Form m_form;
    ff::AudioMixer m_mixer;
    Range m_range{{0, 0}, {0, 0}};
    char m_keys[kSources] = {};
    std::shared_ptr<ff::PcmWriterBase> m_last;
};

/// Mostly a part of a second; a block of a second at the most, so that a script comes to its end.
Rational take_length(ByteScript& script) {
    constexpr std::int64_t denominators[] = {30, 25, 1000, 44100, 1001, 90000, 7, 1};
    const std::int64_t den = script.one_of(denominators);
    return {static_cast<std::int64_t>(script.bits(2)) % (den + 1), den};
}

/// Ranges that follow each other hold together what one range over all of them holds.
void check_run(ByteScript& script, const Form& form) {
    if (!is_mixable(form)) {
        return;
    }
    ff::AudioMixer mixer(form.sample_rate, form.channels, form.format);
    const Rational start = take_length(script);
    Rational end = start;
    std::int64_t bytes = 0;
    for (int count = script.below(8) + 1; count > 0; --count) {
        const Rational next = end + take_length(script);
        mixer.begin({end, next});
        bytes += mixer.end()->size;
        end = next;
    }
    const std::int64_t samples = ff::time_to_timestamp(end - start, {1, form.sample_rate});
    expect(bytes == samples * bytes_per_sample(form), "a run holds the samples of the whole run");
}

void run_step(ByteScript& script, Scene& scene) {
    switch (script.below(8)) {
        case 0: {
            const Rational start{script.number(), script.number()};
            scene.begin({start, start + take_length(script)});
            break;
        }
        case 1: {
            // Any numbers: blocks that can never be, too.
            const Rational start{script.number(), script.number()};
            const Rational end{script.number(), script.number()};
            const Rational length = end - start;
            if (length < Rational{4, 1} || length > Rational{1 << 20, 1}) {
                scene.begin({start, end});
            }
            break;
        }
        case 2:
        case 3:
            scene.go_on(take_length(script));
            break;
        case 4:
            scene.end();
            break;
        default:
            scene.write(script);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteScript script(data, size);
    const Form form = take_form(script, {8000, 2, SampleFormat::S16});
    check_run(script, form);
    std::shared_ptr<ff::PcmWriterBase> left_over;
    {
        Scene scene(form);
        for (int i = 0; i < kMaxSteps && !script.at_end(); ++i) {
            run_step(script, scene);
        }
        scene.end();
        left_over = scene.last_writer();
    }
    if (left_over != nullptr) {
        expect(!left_over->write(nullptr, 128), "a writer without a mixer mixes nothing");
    }
    (void)ff::mem_collection(0);  // idle buffers, each input of other sizes, would add up
    return 0;
}
