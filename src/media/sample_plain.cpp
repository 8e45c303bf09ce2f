// The rule of every format, one sample at a time: the reference for the vector paths, and their way
// out for the samples at the end of a block and for volumes that their shortcuts do not hold for.

#include "media/sample_lanes.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace ff::lanes {

namespace {

constexpr bool kLittle = true;
constexpr bool kBig = false;

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr bool kHostIsLittle = false;
#else
constexpr bool kHostIsLittle = true;
#endif

std::uint8_t swapped(std::uint8_t bits) {
    return bits;
}

std::uint16_t swapped(std::uint16_t bits) {
    return static_cast<std::uint16_t>(bits >> 8 | bits << 8);
}

std::uint32_t swapped(std::uint32_t bits) {
    return bits >> 24 | (bits >> 8 & 0xFF00) | (bits << 8 & 0xFF0000) | bits << 24;
}

template <class T>
T to_value(std::uint32_t bits) {
    T value{};
    static_assert(sizeof value == sizeof bits);
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::uint32_t to_bits(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// The bits of sample `index`. Samples may lie at any address, hence the copy.
template <class Bits, bool Little>
Bits load(const std::uint8_t* data, std::size_t index) {
    Bits bits{};
    std::memcpy(&bits, data + index * sizeof bits, sizeof bits);
    return Little == kHostIsLittle ? bits : swapped(bits);
}

template <class Bits, bool Little>
void store(std::uint8_t* data, std::size_t index, Bits bits) {
    bits = Little == kHostIsLittle ? bits : swapped(bits);
    std::memcpy(data + index * sizeof bits, &bits, sizeof bits);
}

// `Wide` holds a sample times any volume that may come: of 0 to 128, which is what hosts use, or of
// any at all.
template <class Wide>
Wide quieter(Wide sample, int volume) {
    return sample * volume / kFullVolume;
}

struct Unsigned8 {
    using Bits = std::uint8_t;
    using Narrow = std::int32_t;

    template <class Wide>
    static Bits mixed(Bits d, Bits s, int volume) {
        const auto scaled = static_cast<Bits>(quieter<Wide>(Wide{s} - 128, volume) + 128);
        // Deliberate: clipped sound ends at 254, which hosts compare with.
        return static_cast<Bits>(std::clamp(d + scaled - 128, 0, 254));
    }
};

struct Signed8 {
    using Bits = std::uint8_t;
    using Narrow = std::int32_t;

    template <class Wide>
    static Bits mixed(Bits d, Bits s, int volume) {
        const Wide sum =
            static_cast<std::int8_t>(d) + quieter<Wide>(static_cast<std::int8_t>(s), volume);
        return static_cast<Bits>(std::clamp<Wide>(sum, INT8_MIN, INT8_MAX));
    }
};

struct Signed16 {
    using Bits = std::uint16_t;
    using Narrow = std::int32_t;

    template <class Wide>
    static Bits mixed(Bits d, Bits s, int volume) {
        const Wide sum =
            static_cast<std::int16_t>(d) + quieter<Wide>(static_cast<std::int16_t>(s), volume);
        return static_cast<Bits>(std::clamp<Wide>(sum, INT16_MIN, INT16_MAX));
    }
};

struct Unsigned16 {
    using Bits = std::uint16_t;
    using Narrow = std::int32_t;

    // 32768 less, and 32768 more: in 16 bits both are a change of the top bit.
    template <class Wide>
    static Bits mixed(Bits d, Bits s, int volume) {
        constexpr Bits middle = 0x8000;
        return Signed16::mixed<Wide>(d ^ middle, s ^ middle, volume) ^ middle;
    }
};

struct Signed32 {
    using Bits = std::uint32_t;
    using Narrow = std::int64_t;

    template <class Wide>
    static Bits mixed(Bits d, Bits s, int volume) {
        const Wide sum =
            static_cast<std::int32_t>(d) + quieter<Wide>(static_cast<std::int32_t>(s), volume);
        return static_cast<Bits>(std::clamp<Wide>(sum, INT32_MIN, INT32_MAX));
    }
};

struct Float32 {
    using Bits = std::uint32_t;
    using Narrow = std::int32_t;

    template <class Wide>
    static Bits mixed(Bits d, Bits s, int volume) {
        // The order counts: a large sample times the volume overflows before it gets smaller again.
        const float louder = to_value<float>(s) * static_cast<float>(volume);
        const float scaled = louder * kVolumeStep;
        const double sum = static_cast<double>(to_value<float>(d)) + static_cast<double>(scaled);
        if (std::isnan(sum)) {
            return kQuietNan;  // processors differ in which NaN comes out of an addition
        }
        constexpr double limit = kLargestFloat;
        return to_bits(static_cast<float>(std::clamp(sum, -limit, limit)));
    }
};

template <class Rule, class Wide, bool Little>
void mix_with(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, int volume) {
    using Bits = typename Rule::Bits;
    for (std::size_t i = 0; i < count; ++i) {
        const auto d = load<Bits, Little>(dst, i);
        const auto s = load<Bits, Little>(src, i);
        store<Bits, Little>(dst, i, Rule::template mixed<Wide>(d, s, volume));
    }
}

template <class Rule, bool Little>
void mix(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, int volume) {
    if (volume >= 0 && volume <= kFullVolume) {
        mix_with<Rule, typename Rule::Narrow, Little>(dst, src, count, volume);
    } else {
        mix_with<Rule, std::int64_t, Little>(dst, src, count, volume);
    }
}

template <class Bits>
Bits as_it_is(Bits bits) {
    return bits;
}

std::uint8_t magnitude(std::uint8_t bits) {
    return static_cast<std::uint8_t>(bits > 0x7F ? 0x100 - bits : bits);
}

std::uint32_t magnitude(std::uint32_t bits) {
    return bits > 0x7FFFFFFF ? 0U - bits : bits;  // 2147483648 for the lowest, which is exact
}

template <class Bits, bool Little, Bits (*Level)(Bits)>
double integer_peak(const std::uint8_t* data, std::size_t count) {
    Bits peak = 0;
    for (std::size_t i = 0; i < count; ++i) {
        peak = std::max(peak, Level(load<Bits, Little>(data, i)));
    }
    return peak;
}

template <bool Little>
double float_peak(const std::uint8_t* data, std::size_t count) {
    float peak = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const float level = std::fabs(to_value<float>(load<std::uint32_t, Little>(data, i)));
        peak = level > peak ? level : peak;  // false for a NaN, which therefore does not count
    }
    return static_cast<double>(peak);
}

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;

constexpr Path kPlain = {
    "plain",
    {mix<Unsigned8, kLittle>, mix<Signed8, kLittle>, mix<Signed16, kLittle>, mix<Signed16, kBig>,
     mix<Unsigned16, kLittle>, mix<Unsigned16, kBig>, mix<Signed32, kLittle>, mix<Signed32, kBig>,
     mix<Float32, kLittle>, mix<Float32, kBig>},
    {integer_peak<U8, kLittle, as_it_is>, integer_peak<U8, kLittle, magnitude>,
     integer_peak<U16, kLittle, as_it_is>, integer_peak<U16, kBig, as_it_is>, nullptr, nullptr,
     integer_peak<U32, kLittle, magnitude>, integer_peak<U32, kBig, magnitude>, float_peak<kLittle>,
     float_peak<kBig>},
};

}  // namespace

const Path& plain_path() {
    return kPlain;
}

}  // namespace ff::lanes
