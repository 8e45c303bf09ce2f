#pragma once

// The loops over a block, for whatever vector instructions the including source file has defined
// the operations of: sample_sse2.cpp, sample_avx2.cpp and sample_neon.cpp, which differ in nothing
// else. Before such a file includes this one, it defines in the unnamed namespace of ff::lanes:
//
//     FW_LANE                   macro: what makes a function use these instructions
//     kPathName                 for people
//     Ints, kVectorBytes        a vector and its size; floats travel in it as their bits
//     load, store               from and to any address
//     fill8, fill16             one value in all lanes
//     flip                      exclusive or
//     swap16, swap32            the other byte order
//     factor8, factor16, factor32, factor_float      a volume as the next four want it
//     scaled8, scaled16, scaled32, scaled_float      sample * volume / 128, towards zero; volumes
//                                                    of 1 to 127 (scaled_float: any)
//     add8, add16, add32, add_float                  signed sums that clip
//     min8                                           the lower of unsigned bytes
//     louder_unsigned8, louder_signed8, louder_unsigned16, louder_signed32, louder_float
//                               (peak so far, samples): a vector whose own peak, by the plain rule,
//                               is that of both
//
// The shortcuts, and why they are exact. An integer sample times 1 to 128, divided by 128, never
// leaves the sample's own range, so the clipped sum of the plain rule is a saturating addition, and
// at 128 there is nothing to multiply. The sum of two floats in double precision, rounded to float,
// is their sum in single precision, since 53 bits are at least twice 24 and two more; what rounds
// to infinity is clipped to where the larger sum in double would have been.

#include "media/sample_lanes.h"

#include <cstddef>
#include <cstdint>

namespace ff::lanes {

namespace {

// How the bits of each format become signed numbers in the processor's byte order, and back.

/// Formats that are such numbers already: 1, 2, 6 and 8.
struct AsStored {
    static FW_LANE Ints decode(Ints bits) { return bits; }

    static FW_LANE Ints encode(Ints value) { return value; }
};

struct Unsigned8 {
    static FW_LANE Ints decode(Ints bits) { return flip(bits, fill8(0x80)); }

    // Addition clips at 255, and 255 is cut to 254.
    static FW_LANE Ints encode(Ints value) { return min8(flip(value, fill8(0x80)), fill8(254)); }
};

struct Swapped16 {
    static FW_LANE Ints decode(Ints bits) { return swap16(bits); }

    static FW_LANE Ints encode(Ints value) { return swap16(value); }
};

struct Unsigned16 {
    static FW_LANE Ints decode(Ints bits) { return flip(bits, fill16(0x8000)); }

    static FW_LANE Ints encode(Ints value) { return flip(value, fill16(0x8000)); }
};

struct SwappedUnsigned16 {
    static FW_LANE Ints decode(Ints bits) { return Unsigned16::decode(swap16(bits)); }

    static FW_LANE Ints encode(Ints value) { return swap16(Unsigned16::encode(value)); }
};

struct Swapped32 {
    static FW_LANE Ints decode(Ints bits) { return swap32(bits); }

    static FW_LANE Ints encode(Ints value) { return swap32(value); }
};

// The arithmetic of each size.

struct Math8 {
    static FW_LANE Ints factor(int volume) { return factor8(volume); }

    static FW_LANE Ints scaled(Ints sample, Ints by) { return scaled8(sample, by); }

    static FW_LANE Ints sum(Ints a, Ints b) { return add8(a, b); }
};

struct Math16 {
    static FW_LANE Ints factor(int volume) { return factor16(volume); }

    static FW_LANE Ints scaled(Ints sample, Ints by) { return scaled16(sample, by); }

    static FW_LANE Ints sum(Ints a, Ints b) { return add16(a, b); }
};

struct Math32 {
    static FW_LANE Ints factor(int volume) { return factor32(volume); }

    static FW_LANE Ints scaled(Ints sample, Ints by) { return scaled32(sample, by); }

    static FW_LANE Ints sum(Ints a, Ints b) { return add32(a, b); }
};

struct MathFloat {
    static FW_LANE Ints factor(int volume) { return factor_float(volume); }

    static FW_LANE Ints scaled(Ints sample, Ints by) { return scaled_float(sample, by); }

    static FW_LANE Ints sum(Ints a, Ints b) { return add_float(a, b); }
};

template <class Code, class Math, bool Scales>
FW_LANE void mix_vector(std::uint8_t* dst, const std::uint8_t* src, Ints factor) {
    Ints sample = Code::decode(load(src));
    if (Scales) {
        sample = Math::scaled(sample, factor);
    }
    store(dst, Code::encode(Math::sum(Code::decode(load(dst)), sample)));
}

/// Mixes whole vectors only; returns how many bytes those were.
template <class Code, class Math, bool Scales>
FW_LANE std::size_t mix_vectors(std::uint8_t* dst, const std::uint8_t* src, std::size_t bytes,
                                int volume) {
    const Ints factor = Math::factor(volume);
    std::size_t at = 0;
    for (; at + 2 * kVectorBytes <= bytes; at += 2 * kVectorBytes) {
        mix_vector<Code, Math, Scales>(dst + at, src + at, factor);
        mix_vector<Code, Math, Scales>(dst + at + kVectorBytes, src + at + kVectorBytes, factor);
    }
    if (at + kVectorBytes <= bytes) {
        mix_vector<Code, Math, Scales>(dst + at, src + at, factor);
        at += kVectorBytes;
    }
    return at;
}

template <std::uint32_t Format, class Code, class Math>
FW_LANE void mix(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, int volume) {
    const std::size_t bytes = count * sample_bytes(Format);
    std::size_t done = 0;
    if (volume == kFullVolume) {
        done = mix_vectors<Code, Math, false>(dst, src, bytes, volume);
    } else if (volume >= 0 && volume < kFullVolume) {
        done = mix_vectors<Code, Math, true>(dst, src, bytes, volume);
    }
    plain_path().mix[Format](dst + done, src + done, count - done / sample_bytes(Format), volume);
}

/// Floats are multiplied at volume 128 too: a large one overflows on the way.
template <std::uint32_t Format, class Code>
FW_LANE void mix_float(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, int volume) {
    const std::size_t bytes = count * sample_bytes(Format);
    const std::size_t done = mix_vectors<Code, MathFloat, true>(dst, src, bytes, volume);
    plain_path().mix[Format](dst + done, src + done, count - done / sample_bytes(Format), volume);
}

struct LevelUnsigned8 {
    static FW_LANE Ints louder(Ints peak, Ints samples) { return louder_unsigned8(peak, samples); }
};

struct LevelSigned8 {
    static FW_LANE Ints louder(Ints peak, Ints samples) { return louder_signed8(peak, samples); }
};

struct LevelUnsigned16 {
    static FW_LANE Ints louder(Ints peak, Ints samples) { return louder_unsigned16(peak, samples); }
};

struct LevelSigned32 {
    static FW_LANE Ints louder(Ints peak, Ints samples) { return louder_signed32(peak, samples); }
};

struct LevelFloat {
    static FW_LANE Ints louder(Ints peak, Ints samples) { return louder_float(peak, samples); }
};

/// `Ordered` is the format with the same samples in the processor's byte order.
template <std::uint32_t Format, std::uint32_t Ordered, class Code, class Level>
FW_LANE double peak(const std::uint8_t* data, std::size_t count) {
    constexpr std::size_t size = sample_bytes(Format);
    const std::size_t bytes = count * size;
    if (bytes < kVectorBytes) {
        return plain_path().peak[Format](data, count);
    }
    // No sample is louder for being looked at twice. So the first and the last vector may overlap
    // others, which gets the loop to addresses that do not cross the cache's lines, and leaves no
    // rest.
    Ints a = Level::louder(fill8(0), Code::decode(load(data)));
    Ints b = Level::louder(fill8(0), Code::decode(load(data + bytes - kVectorBytes)));
    Ints c = a;
    Ints d = b;
    const std::size_t to_border = (0 - reinterpret_cast<std::uintptr_t>(data)) % kVectorBytes;
    std::size_t at = to_border % size == 0 ? to_border : 0;
    // Four peaks at a time: each waits for its own last one only.
    for (; at + 4 * kVectorBytes <= bytes; at += 4 * kVectorBytes) {
        a = Level::louder(a, Code::decode(load(data + at)));
        b = Level::louder(b, Code::decode(load(data + at + kVectorBytes)));
        c = Level::louder(c, Code::decode(load(data + at + 2 * kVectorBytes)));
        d = Level::louder(d, Code::decode(load(data + at + 3 * kVectorBytes)));
    }
    for (; at + kVectorBytes <= bytes; at += kVectorBytes) {
        a = Level::louder(a, Code::decode(load(data + at)));
    }
    std::uint8_t lanes[kVectorBytes];
    store(lanes, Level::louder(Level::louder(a, b), Level::louder(c, d)));
    return plain_path().peak[Ordered](lanes, kVectorBytes / size);
}

// NOLINTNEXTLINE(misc-definitions-in-headers): each source file has its own, of its own functions
constexpr Path kPath = {
    kPathName,
    {mix<0, Unsigned8, Math8>, mix<1, AsStored, Math8>, mix<2, AsStored, Math16>,
     mix<3, Swapped16, Math16>, mix<4, Unsigned16, Math16>, mix<5, SwappedUnsigned16, Math16>,
     mix<6, AsStored, Math32>, mix<7, Swapped32, Math32>, mix_float<8, AsStored>,
     mix_float<9, Swapped32>},
    {peak<0, 0, AsStored, LevelUnsigned8>, peak<1, 1, AsStored, LevelSigned8>,
     peak<2, 2, AsStored, LevelUnsigned16>, peak<3, 2, Swapped16, LevelUnsigned16>, nullptr,
     nullptr, peak<6, 6, AsStored, LevelSigned32>, peak<7, 6, Swapped32, LevelSigned32>,
     peak<8, 8, AsStored, LevelFloat>, peak<9, 8, Swapped32, LevelFloat>},
};

}  // namespace

}  // namespace ff::lanes
