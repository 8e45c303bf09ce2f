#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>

namespace fuzz {

/// Returns what a function that takes a C string sees of `text`.
inline std::string up_to_nul(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

/// Reads the bytes of an input as a script, from the front. A script that has ended goes on with
/// zeros, so that every input has a meaning and every cut of an input is one too.
class ByteScript {
public:
    ByteScript(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}

    bool at_end() const { return m_left == 0; }

    std::uint8_t byte() {
        if (at_end()) {
            return 0;
        }
        --m_left;
        return *m_data++;
    }

    /// Returns a number from 0 to `end` - 1, which is at most 255.
    std::uint8_t below(std::size_t end) { return static_cast<std::uint8_t>(byte() % end); }

    /// Returns one of the entries of a table.
    template <class T, std::size_t Count>
    const T& one_of(const T (&table)[Count]) {
        return table[below(Count)];
    }

    /// Returns `bytes` bytes as an unsigned number, lowest first.
    std::uint64_t bits(int bytes) {
        std::uint64_t value = 0;
        for (int i = 0; i < bytes; ++i) {
            value |= std::uint64_t{byte()} << (8 * i);
        }
        return value;
    }

    /// Returns any 64-bit number: mostly a small one, which is what leads somewhere, at times one
    /// of the corners or one of any size.
    std::int64_t number() {
        constexpr int small_kinds = 224;
        constexpr std::int64_t corners[] = {std::numeric_limits<std::int64_t>::min(),
                                            std::numeric_limits<std::int64_t>::max(),
                                            std::numeric_limits<std::int64_t>::min() + 1,
                                            std::numeric_limits<std::int32_t>::min(),
                                            std::numeric_limits<std::int32_t>::max(),
                                            std::int64_t{1} << 53,
                                            90000,
                                            1000000};
        const std::uint8_t kind = byte();
        if (kind < small_kinds) {
            return kind - 32;
        }
        switch (kind % 4) {
            case 0:
                return corners[byte() % std::size(corners)];
            case 1:
                return static_cast<std::int16_t>(bits(2));
            case 2:
                return static_cast<std::int32_t>(bits(4));
            default:
                return static_cast<std::int64_t>(bits(8));
        }
    }

    int small_number() { return static_cast<int>(static_cast<std::int32_t>(number())); }

    /// Returns the next `size` bytes, or as many as there are.
    std::string text(std::size_t size) {
        const std::size_t count = size < m_left ? size : m_left;
        std::string taken(reinterpret_cast<const char*>(m_data), count);
        m_data += count;
        m_left -= count;
        return taken;
    }

    std::string rest() { return text(m_left); }

private:
    const std::uint8_t* m_data;
    std::size_t m_left;
};

}  // namespace fuzz
