#include "cancel_flag.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace ff {

namespace {

/// Flags in blocks, so that a pointer is known by its block without looking at every flag.
class FlagStore {
public:
    std::atomic<bool>* take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_free.empty()) {
            add_block();
        }
        std::atomic<bool>* const flag = m_free.back();
        m_free.pop_back();
        flag->store(false);
        return flag;
    }

    void give_back(std::atomic<bool>* flag) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_free.push_back(flag);
    }

    bool owns(const std::atomic<bool>* flag) {
        const std::less<> before;  // defined for any two pointers
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::any_of(m_blocks.begin(), m_blocks.end(), [&](const auto& block) {
            return !before(flag, block->data()) && before(flag, block->data() + block->size());
        });
    }

private:
    using Block = std::array<std::atomic<bool>, 256>;

    void add_block() {
        m_blocks.push_back(std::make_unique<Block>());
        for (std::atomic<bool>& flag : *m_blocks.back()) {
            m_free.push_back(&flag);
        }
    }

    std::mutex m_mutex;
    std::vector<std::unique_ptr<Block>> m_blocks;  // guarded by m_mutex; only grows
    std::vector<std::atomic<bool>*> m_free;        // guarded by m_mutex
};

FlagStore& flag_store() {
    static auto* const store = new FlagStore;  // never destroyed: hosts keep the pointers
    return *store;
}

}  // namespace

std::atomic<bool>* take_cancel_flag() {
    return flag_store().take();
}

void give_back_cancel_flag(std::atomic<bool>* flag) {
    flag_store().give_back(flag);
}

bool is_cancel_flag(const std::atomic<bool>* flag) {
    return flag_store().owns(flag);
}

std::atomic<bool>* claim_abort_flag(std::atomic<bool>*& slot, std::atomic<bool>* own) {
    // The slot is a plain pointer in a record that hosts fill as an aggregate, hence the builtins.
    std::atomic<bool>* const given = __atomic_load_n(&slot, __ATOMIC_RELAXED);
    if (given == own || (given != nullptr && !is_cancel_flag(given))) {
        return given;
    }
    __atomic_store_n(&slot, own, __ATOMIC_RELAXED);
    return own;
}

}  // namespace ff
