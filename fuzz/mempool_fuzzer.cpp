// The memory pool: the input is a script of allocations and frees, right ones and wrong ones, that
// a model of the pool follows.

#include "byte_script.h"
#include "expect.h"

#include <framewell/utils/mempool.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <vector>

namespace {

using fuzz::ByteScript;
using fuzz::expect;

constexpr unsigned kLargest = 1 << 16;
constexpr std::size_t kMaxHeld = 64;

class Model {
public:
    Model() { (void)bg::mempool::collection(0); }

    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    ~Model() {
        while (!m_held.empty()) {
            give_back(0);
        }
        expect(bg::mempool::collection(0) == m_idle_count, "all idle buffers go to the system");
    }

    void take(unsigned size, unsigned align) {
        if (m_held.size() == kMaxHeld) {
            give_back(0);
        }
        auto* const bytes = static_cast<std::uint8_t*>(bg::mempool::malloc(size, align));
        const unsigned rounded = (size + 31U) & ~31U;
        std::deque<std::uint8_t*>& idle = m_idle[rounded];
        if (rounded < size) {
            expect(bytes == nullptr, "sizes that cannot be rounded are refused");
        } else if (!idle.empty()) {
            expect(bytes == idle.front(), "the buffer that has waited longest is used first");
            idle.pop_front();
            --m_idle_count;
        } else if (align < sizeof(void*) || (align & (align - 1)) != 0) {
            expect(bytes == nullptr, "an alignment that is not possible is refused");
        } else {
            expect(bytes != nullptr && bg::mempool::is_alignment(bytes, align),
                   "a new buffer begins where it was asked to");
        }
        if (bytes != nullptr) {
            std::memset(bytes, ++m_mark, rounded);
            m_held.push_back({bytes, rounded, m_mark});
        }
    }

    void give_back(std::size_t position) {
        if (m_held.empty()) {
            return;
        }
        const auto held = m_held.begin() + static_cast<std::ptrdiff_t>(position % m_held.size());
        const std::uint8_t mark = held->mark;
        expect(std::all_of(held->bytes, held->bytes + held->size,
                           [mark](std::uint8_t byte) { return byte == mark; }),
               "no other buffer lies in a buffer");
        bg::mempool::free(held->bytes);
        m_idle[held->size].push_back(held->bytes);
        ++m_idle_count;
        m_held.erase(held);
    }

    /// Frees what is not handed out: the pool must leave it alone.
    void give_back_wrongly(ByteScript& script) {
        int on_the_stack = 0;
        std::deque<std::uint8_t*>& idle = m_idle[(1U + script.byte()) * 32U];
        switch (script.below(4)) {
            case 0:
                bg::mempool::free(nullptr);
                break;
            case 1:
                bg::mempool::free(&on_the_stack);
                break;
            case 2:
                bg::mempool::free(m_held.empty() ? nullptr : m_held.front().bytes + 1);
                break;
            default:
                bg::mempool::free(idle.empty() ? nullptr : idle.back());
        }
    }

    void collect(unsigned max_idle_ms) {
        const unsigned count = bg::mempool::collection(max_idle_ms);
        if (max_idle_ms == 0) {
            expect(count == m_idle_count, "all idle buffers go to the system");
            m_idle.clear();
            m_idle_count = 0;
        } else {
            expect(count == 0, "a buffer that has just been used stays");
        }
    }

private:
    struct Held {
        std::uint8_t* bytes;
        unsigned size;
        std::uint8_t mark;
    };

    std::vector<Held> m_held;
    std::map<unsigned, std::deque<std::uint8_t*>> m_idle;  // by rounded size, oldest first
    unsigned m_idle_count = 0;
    std::uint8_t m_mark = 0;
};

unsigned take_size(ByteScript& script) {
    const std::uint8_t kind = script.byte();
    if (kind < 128) {
        return kind;  // few sizes, so that buffers are used again
    }
    const auto size = static_cast<unsigned>(script.bits(2));
    return kind == 255 ? ~(size % 31) : size % kLargest;
}

unsigned take_alignment(ByteScript& script) {
    constexpr unsigned alignments[] = {16, 8, 32, 64, 4096, 0, 1, 3, 4, 24, 1U << 20};
    return script.one_of(alignments);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteScript script(data, size);
    Model model;
    while (!script.at_end()) {
        switch (script.below(8)) {
            case 0:
            case 1:
            case 2: {
                const unsigned bytes = take_size(script);
                model.take(bytes, take_alignment(script));
                break;
            }
            case 3:
            case 4:
            case 5:
                model.give_back(script.byte());
                break;
            case 6:
                model.give_back_wrongly(script);
                break;
            default:
                model.collect(script.below(2) == 0 ? 0 : 60000);
        }
    }
    return 0;
}
