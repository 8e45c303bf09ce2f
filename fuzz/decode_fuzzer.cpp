// Two decoders on one file, driven by a script. The input:
//
//     which file     1 byte: 255: one that follows the script; else one of the small clips
//     where it ends  1 byte, only if the file follows: bytes of what comes next until the file
//     damage         1 byte: how many (modulo 8); each 2 bytes of place (in 1/65536 of the file's
//                    size) and 1 byte to put there
//     steps          of the script, to the end
//
// Damage and script are short, so the fuzzer changes them rather than the thousands of bytes of
// compressed pictures, of which it learns nothing: the libraries that decode do not report to it.

#include "byte_script.h"
#include "expect.h"
#include "media_input.h"

#include <framewell/ff_tools.h>
#include <framewell/ffdecoder2.h>
#include <framewell/movie_info.h>
#include <framewell/utils/mempool.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace {

using ff::Rational;
using fuzz::ByteScript;
using fuzz::expect;

constexpr int kMaxSteps = 24;
constexpr int kDecoders = 2;

void check(const std::shared_ptr<ff::VFrameCtx>& picture) {
    if (picture == nullptr) {
        return;
    }
    expect(picture->width > 0 && picture->height > 0, "a picture has a size");
    expect(picture->data[0] >= picture->buffer &&
               picture->data[0] + std::ptrdiff_t{picture->linesize[0]} * picture->height <=
                   picture->buffer + picture->size,
           "a picture lies in its buffer");
    fuzz::touch(picture->buffer, picture->size);
}

void check(const std::shared_ptr<ff::AFrameCtx>& sound) {
    if (sound == nullptr) {
        return;
    }
    expect(sound->nb_samples >= 0 && sound->size >= 0, "sound has no negative length");
    expect((sound->buffer == nullptr) == (sound->nb_samples == 0), "samples have a buffer");
    expect(sound->nb_samples == 0 || sound->linesize[0] <= sound->size, "sound lies in its buffer");
    fuzz::touch(sound->buffer, sound->size);
}

Rational take_time(ByteScript& script) {
    constexpr std::int64_t denominators[] = {25, 30, 1, 1000, 12800, 44100, 90000, 1001};
    const std::uint8_t kind = script.byte();
    if (kind < 240) {
        return {kind % 64 - 4, denominators[kind / 64]};
    }
    const std::int64_t num = script.number();
    return {num, kind < 248 ? denominators[kind % 8] : script.number()};
}

/// A damaged header may announce large pictures: a host that shows them small asks for them small.
std::int32_t take_divider(ByteScript& script, const ff::StreamCtx* stream) {
    constexpr std::int32_t dividers[] = {1, 1, 2, 3, 16, 64, 0, -1, 1 << 30};
    const std::int32_t divider = script.one_of(dividers);
    constexpr std::int64_t large = 1 << 20;
    const bool is_large = stream != nullptr && std::int64_t{stream->width} * stream->height > large;
    return is_large && divider >= 0 ? std::max(divider, 64) : divider;
}

ff::RequireVideoFrame take_picture_request(ByteScript& script, const ff::StreamCtx* stream) {
    constexpr ff::PixelFormat formats[] = {ff::PixelFormat::Rgba,     ff::PixelFormat::Yuv420p,
                                           ff::PixelFormat::Nv12,     ff::PixelFormat::Bgra64be,
                                           ff::PixelFormat::SeekOnly, ff::PixelFormat::None};
    ff::RequireVideoFrame req;
    req.time = take_time(script);
    req.format = script.one_of(formats);
    req.divider = take_divider(script, stream);
    return req;
}

ff::RequireAudioFrame take_sound_request(ByteScript& script, Rational& last_end) {
    constexpr ff::SampleFormat formats[] = {ff::SampleFormat::S16,      ff::SampleFormat::Flt,
                                            ff::SampleFormat::U8,       ff::SampleFormat::S32,
                                            ff::SampleFormat::SeekOnly, ff::SampleFormat::None};
    constexpr std::int32_t rates[] = {44100, 48000, 8000, 1, 0, -1, 1 << 30};
    constexpr std::int32_t channels[] = {2, 1, 6, 8, 0, -1, 64, 1 << 30};
    const std::uint8_t kind = script.byte();
    ff::RequireAudioFrame req;
    req.range.start = kind % 2 == 0 ? last_end : take_time(script);
    req.range.end = kind % 8 < 6 ? req.range.start + take_time(script) : take_time(script);
    last_end = req.range.end;
    if (kind >= 128) {
        req.format = script.one_of(formats);
        req.sample_rate = script.one_of(rates);
        req.channels = script.one_of(channels);
    }
    return req;
}

/// The file, what was found in it, and the two decoders.
class Scene {
public:
    Scene(const std::string& bytes, ByteScript& script)
        : m_bytes(bytes),
          m_file(bytes),
          m_movie(ff::getMovieInfo(m_file.path())),
          m_script(script) {}

    void run() {
        for (int i = 0; i < kMaxSteps && !m_script.at_end(); ++i) {
            const std::uint8_t step = m_script.byte();
            ff::FFDecoder2& decoder = m_decoders[step / 128];
            if (step % 4 == 3) {
                change(decoder);
            } else {
                request(decoder);
            }
        }
    }

private:
    const ff::StreamCtx* take_stream() {
        const int count = m_movie != nullptr ? m_movie->nb_streams : 0;
        const int position = m_script.below(static_cast<std::size_t>(count) + 1);
        return position < count ? m_movie->streams[position] : nullptr;
    }

    void request(ff::FFDecoder2& decoder) {
        if (!decoder.isOpened()) {
            (void)decoder.open(take_stream());
        }
        const ff::StreamCtx* const stream = decoder.streamContex();
        switch (m_script.below(8)) {
            case 0:
            case 1:
                check(decoder.getVideoFrame(take_picture_request(m_script, stream)));
                break;
            case 2:
            case 3:
                check(decoder.getAudioFrame(take_sound_request(m_script, m_last_end)));
                break;
            case 4:
                decoder.getVideoFrameAsync(
                    take_picture_request(m_script, stream),
                    [](const std::shared_ptr<ff::VFrameCtx>& picture) { check(picture); });
                break;
            case 5:
                decoder.getAudioFrameAsync(
                    take_sound_request(m_script, m_last_end),
                    [](const std::shared_ptr<ff::AFrameCtx>& sound) { check(sound); });
                break;
            case 6: {
                const Rational time = take_time(m_script);
                decoder.pri_seek(time, m_script.below(2) != 0);
                break;
            }
            default:
                cancelled_request(decoder, stream);
        }
    }

    void cancelled_request(ff::FFDecoder2& decoder, const ff::StreamCtx* stream) {
        ff::RequireVideoFrame req = take_picture_request(m_script, stream);
        const int serial = m_script.below(3);
        m_cancelled = m_script.below(2) != 0;
        req.abort_flag = &m_cancelled;
        check(decoder.pri_getVideoFrame(req, serial));
    }

    void change(ff::FFDecoder2& decoder) {
        constexpr double speeds[] = {
            1.0, 2.0, 0.5, 3.0, 1.37, 0.0, std::numeric_limits<double>::quiet_NaN()};
        constexpr const char* filters[] = {nullptr,      "hflip",       "scale=20:10", "volume=0.5",
                                           "trim=end=0", "select=0",    "reverse",     "fps=7",
                                           "atempo=0.7", "aresample=7", "no such",     "split",
                                           "areverse",   "anullsink"};
        switch (m_script.below(8)) {
            case 0:
                (void)decoder.open(take_stream());
                break;
            case 1:
                decoder.close();
                break;
            case 2:
                (void)decoder.reopen();
                break;
            case 3:
                (void)decoder.setSpeed(m_script.one_of(speeds));
                break;
            case 4:
                decoder.setRevert(m_script.below(2) != 0);
                break;
            case 5:
                (void)decoder.setFilters(m_script.one_of(filters));
                break;
            case 6:
                change_file();
                break;
            default:
                ask_beside(decoder);
        }
    }

    /// What happens to files while somebody reads them.
    void change_file() {
        switch (m_script.below(3)) {
            case 0:
                m_file.cut(m_bytes.size() * m_script.byte() / 256);
                break;
            case 1:
                m_file.write(std::string(m_script.byte(), '\0') + m_bytes);
                break;
            default:
                m_file.write(m_bytes);
        }
    }

    void ask_beside(const ff::FFDecoder2& decoder) {
        ff::RequireMvImage req;
        req.ratio = m_script.byte() / 200.0;
        req.max_width = m_script.byte();
        req.max_height = m_script.byte();
        Rational duration{0, 1};
        check(ff::getMovieImage(m_file.path(), req, &duration));
        (void)decoder.getImageDivider(static_cast<ff::MemoryMode>(m_script.below(4)));
        (void)ff::mem_collection(m_script.below(2) == 0 ? 0 : 1000);
    }

    const std::string m_bytes;
    const fuzz::OneFile m_file;
    const ff::MovieCtx* const m_movie;
    ByteScript& m_script;
    Rational m_last_end{0, 1};
    std::atomic<bool> m_cancelled{false};  // outlives the decoders
    ff::FFDecoder2 m_decoders[kDecoders];
};

void damage(std::string& bytes, ByteScript& script) {
    for (int count = script.below(8); count > 0; --count) {
        const std::size_t place = script.bits(2) * bytes.size() >> 16;
        const auto byte = static_cast<char>(script.byte());
        if (place < bytes.size()) {
            bytes[place] = byte;
        }
    }
}

void run(std::string file, ByteScript script) {
    damage(file, script);
    Scene(file, script).run();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::uint8_t own_file = 255;
    ByteScript input(data, size);
    const std::uint8_t choice = input.byte();
    if (choice == own_file) {
        const std::string steps = input.text(input.byte());
        run(input.rest(),
            ByteScript(reinterpret_cast<const std::uint8_t*>(steps.data()), steps.size()));
    } else {
        run(fuzz::media_seeds()[choice % fuzz::media_seeds().size()], input);
    }
    (void)ff::mem_collection(0);  // idle buffers, each input of other sizes, would add up
    return 0;
}
