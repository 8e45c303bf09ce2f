// Mixing and measuring: what comes out of a block must not depend on its length or on where it
// begins, so sample by sample, which takes the plain way, gives the same as all at once.

#include "byte_script.h"
#include "expect.h"

#include <framewell/media/sample_mix.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using fuzz::ByteScript;
using fuzz::expect;

constexpr std::uint32_t kSampleSizes[] = {1, 1, 2, 2, 2, 2, 4, 4, 4, 4};

/// Bytes that begin `offset` behind an address that suits every processor, and end with the block.
class Block {
public:
    Block(const std::string& bytes, std::size_t offset) : m_bytes(offset + bytes.size()) {
        std::copy(bytes.begin(), bytes.end(),
                  m_bytes.begin() + static_cast<std::ptrdiff_t>(offset));
        m_begin = m_bytes.data() + offset;
    }

    ~Block() = default;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    std::uint8_t* begin() const { return m_begin; }

    bool operator==(const Block& other) const { return content() == other.content(); }

private:
    std::vector<std::uint8_t> content() const {
        return {static_cast<const std::uint8_t*>(m_begin), m_bytes.data() + m_bytes.size()};
    }

    std::vector<std::uint8_t> m_bytes;
    std::uint8_t* m_begin;
};

int take_volume(ByteScript& script) {
    const std::uint8_t kind = script.byte();
    return kind <= 128 ? kind : script.small_number();
}

/// As many bytes for the second block as the first has; what the input lacks are copies.
std::string second_half(const std::string& first, std::string rest) {
    while (!first.empty() && rest.size() < first.size()) {
        rest += rest.empty() ? first : rest;
    }
    rest.resize(first.size());
    return rest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteScript script(data, size);
    const SDL_AudioFormat format = script.below(12);
    const int volume = take_volume(script);
    const std::size_t offset = script.below(33);
    const std::size_t other_offset = script.below(33);
    const int scale = script.small_number();
    const std::string first = script.text((size - std::min<std::size_t>(size, 5)) / 2);
    const std::string second = second_half(first, script.rest());
    const auto length = static_cast<std::uint32_t>(first.size());
    const std::uint32_t sample_size = format < 10 ? kSampleSizes[format] : 1;

    const Block dst(first, offset);
    const Block src(second, other_offset);
    const Block plain(first, other_offset);
    SDL_MixAudioFormat(dst.begin(), src.begin(), format, length, volume);
    for (std::uint32_t at = 0; at + sample_size <= length; at += sample_size) {
        SDL_MixAudioFormat(plain.begin() + at, src.begin() + at, format, sample_size, volume);
    }
    expect(dst == plain, "samples are mixed as each on its own");
    expect(format < 10 || dst == Block(first, offset), "an unknown format changes nothing");

    const std::uint32_t peak = Audio_Volume_Peak(format, dst.begin(), length, scale);
    std::uint32_t highest = 0;
    for (std::uint32_t at = 0; at + sample_size <= length; at += sample_size) {
        highest =
            std::max(highest, Audio_Volume_Peak(format, dst.begin() + at, sample_size, scale));
    }
    expect(peak == highest, "the peak is that of the loudest sample");

    SDL_MixAudioFormat(dst.begin(), dst.begin(), format, length, volume);
    SDL_MixAudioFormat(nullptr, src.begin(), format, length, volume);
    SDL_MixAudioFormat(dst.begin(), nullptr, format, length, volume);
    return 0;
}
