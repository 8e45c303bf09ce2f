#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>

namespace fw_test {

/// Numbers that are the same on every machine for a seed, which those of the standard library's
/// distributions are not.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_engine(seed) {}

    /// Any 64 bits.
    std::uint64_t bits() { return m_engine(); }

    /// A number of [0, count); 0 for a count of 0.
    std::size_t below(std::size_t count) { return count == 0 ? 0 : m_engine() % count; }

    /// A number of [low, high].
    std::int64_t between(std::int64_t low, std::int64_t high) {
        return low + static_cast<std::int64_t>(below(static_cast<std::size_t>(high - low) + 1));
    }

    /// A number of [1, max]; each doubling is as likely as the next, so small ones are frequent.
    std::size_t by_doublings(std::size_t max) {
        std::size_t doublings = 0;
        while ((max >> doublings) > 1) {
            ++doublings;
        }
        const std::size_t reach = std::size_t{1} << below(doublings + 1);
        return std::min(std::max<std::size_t>(max, 1), reach + below(reach));
    }

    /// True once in `times`.
    bool once_in(std::size_t times) { return below(times) == 0; }

private:
    std::mt19937_64 m_engine;
};

/// Mixes `value` into `seed`, so that neighbouring numbers give unrelated seeds (the finalizer of
/// SplitMix64).
inline std::uint64_t mixed_seed(std::uint64_t seed, std::uint64_t value) {
    std::uint64_t z = seed + 0x9e3779b97f4a7c15U * (value + 1);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
    return z ^ (z >> 31);
}

}  // namespace fw_test
