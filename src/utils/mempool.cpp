#include <framewell/utils/clock.h>
#include <framewell/utils/mempool.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

// Idle buffers are closed to AddressSanitizer, which would otherwise not see that somebody still
// uses a buffer after giving it back.
#if defined(__SANITIZE_ADDRESS__)
#define FW_POOL_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FW_POOL_POISONS 1
#endif
#endif
#ifdef FW_POOL_POISONS
#include <sanitizer/asan_interface.h>
#endif

namespace bg {

namespace {

void close_to_sanitizer([[maybe_unused]] void* p, [[maybe_unused]] unsigned size) {
#ifdef FW_POOL_POISONS
    ASAN_POISON_MEMORY_REGION(p, size);
#endif
}

void open_to_sanitizer([[maybe_unused]] void* p, [[maybe_unused]] unsigned size) {
#ifdef FW_POOL_POISONS
    ASAN_UNPOISON_MEMORY_REGION(p, size);
#endif
}

struct AlignedFree {
    void operator()(void* p) const { mem::aligned_free(p); }
};

using BufferPtr = std::unique_ptr<void, AlignedFree>;

}  // namespace

void* mem::aligned_malloc(unsigned size, unsigned align) {
    // posix_memalign refuses these as well, but under a sanitizer it ends the process for them.
    if (align < sizeof(void*) || (align & (align - 1)) != 0) {
        return nullptr;
    }
    void* p = nullptr;
    return posix_memalign(&p, align, size) == 0 ? p : nullptr;
}

void mem::aligned_free(void* p) {
    ::free(p);
}

bool mem::is_aligned(const void* p, unsigned align) {
    const auto low_bits = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p));
    return (low_bits & (align - 1)) == 0;
}

/// The idle buffers of one size, oldest first. What the pool notes about a buffer moves with it
/// from idle to handed out and back, so that a buffer that is used again costs no memory from the
/// system.
struct mempool::BufferList {
    using HandedOut = std::unordered_map<void*, unsigned>;  // buffer to size

    struct Idle {
        long long freed_ms = 0;  // when it was given back, by bg::time::cpu_msec_pts()
        BufferPtr buffer;
        HandedOut::node_type entry;  // the buffer's in the map of those handed out
    };

    std::mutex mutex;
    std::list<Idle> idle;   // guarded by mutex
    std::list<Idle> spare;  // guarded by mutex; empty records for the buffers that come back
};

/// The pool itself. Lock order: the pool's mutex, then a list's. Taking and giving back hold the
/// two one after the other, so that a buffer that is being allocated does not hold up other sizes.
class mempool::FramePoolPrivate {
public:
    FramePoolPrivate() {
        m_lists.max_load_factor(1.0F);
        m_handed_out.max_load_factor(1.0F);
    }

    /// `size` is a multiple of 32 already.
    void* malloc_from_pool(unsigned size, unsigned align);

    /// Takes `p` back. False if it is not a buffer that is handed out.
    bool free_to_pool(void* p);

    unsigned garbage_collection(unsigned max_idle_ms);

private:
    std::shared_ptr<BufferList> list_of(unsigned size);

    std::mutex m_mutex;
    // guarded by m_mutex; a list that exists stays, also when it is empty
    std::unordered_map<unsigned, std::shared_ptr<BufferList>> m_lists;
    BufferList::HandedOut m_handed_out;  // guarded by m_mutex
};

std::shared_ptr<mempool::BufferList> mempool::FramePoolPrivate::list_of(unsigned size) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto entry = m_lists.find(size);
    if (entry != m_lists.end()) {
        return entry->second;
    }
    auto list = std::make_shared<BufferList>();
    m_lists.emplace(size, list);
    return list;
}

void* mempool::FramePoolPrivate::malloc_from_pool(unsigned size, unsigned align) {
    const std::shared_ptr<BufferList> list = list_of(size);
    BufferPtr buffer;
    BufferList::HandedOut::node_type entry;
    {
        const std::lock_guard<std::mutex> lock(list->mutex);
        if (list->idle.empty()) {
            buffer.reset(mem::aligned_malloc(size, align));
        } else {
            buffer = std::move(list->idle.front().buffer);
            entry = std::move(list->idle.front().entry);
            list->spare.splice(list->spare.end(), list->idle, list->idle.begin());
        }
    }
    if (buffer == nullptr) {
        return nullptr;
    }
    open_to_sanitizer(buffer.get(), size);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!entry.empty()) {
            m_handed_out.erase(buffer.get());
            m_handed_out.insert(std::move(entry));
        } else {
            m_handed_out.insert_or_assign(buffer.get(), size);
        }
    }
    return buffer.release();  // now owned by whoever asked, until free_to_pool()
}

bool mempool::FramePoolPrivate::free_to_pool(void* p) {
    std::shared_ptr<BufferList> list;
    unsigned size = 0;
    BufferList::HandedOut::node_type entry;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_handed_out.find(p);
        if (found == m_handed_out.end()) {
            return false;
        }
        size = found->second;
        list = m_lists.at(size);
        entry = m_handed_out.extract(found);
    }
    BufferPtr buffer(p);
    const std::lock_guard<std::mutex> lock(list->mutex);
    if (list->spare.empty()) {
        list->spare.emplace_back();
    }
    // The time is read under the lock, which keeps the list ordered by age.
    list->spare.front().freed_ms = time::cpu_msec_pts();
    list->spare.front().buffer = std::move(buffer);
    list->spare.front().entry = std::move(entry);
    list->idle.splice(list->idle.end(), list->spare, list->spare.begin());
    close_to_sanitizer(p, size);
    return true;
}

unsigned mempool::FramePoolPrivate::garbage_collection(unsigned max_idle_ms) {
    const std::lock_guard<std::mutex> pool_lock(m_mutex);
    const long long oldest_kept_ms = time::cpu_msec_pts() - static_cast<long long>(max_idle_ms);
    unsigned count = 0;
    for (const auto& [size, list] : m_lists) {
        const std::lock_guard<std::mutex> lock(list->mutex);
        while (!list->idle.empty() &&
               (max_idle_ms == 0 || list->idle.front().freed_ms < oldest_kept_ms)) {
            open_to_sanitizer(list->idle.front().buffer.get(), size);
            list->idle.pop_front();
            ++count;
        }
    }
    return count;
}

mempool::FramePoolPrivate& mempool::g_instance() {
    // Never destroyed: records that hosts keep in static objects give their buffers back to it
    // after everything else is gone.
    static auto* const s_instance = new FramePoolPrivate;
    return *s_instance;
}

void* mempool::malloc(unsigned size, unsigned align) {
    const unsigned rounded = (size + 31U) & ~31U;
    if (rounded < size) {
        return nullptr;
    }
    try {
        return g_instance().malloc_from_pool(rounded, align);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void mempool::free(void* p) {
    bool known = true;
    try {
        known = g_instance().free_to_pool(p);
    } catch (const std::bad_alloc&) {
        // No memory to remember one idle buffer more: it went back to the system instead.
    }
    if (!known) {
        constexpr char warning[] = "\"[mempool] *warnning* free to pool: bufflist not exist.\"\n";
        (void)fwrite(warning, 1, sizeof warning - 1, stderr);  // nowhere left to report a failure
        (void)fflush(stderr);
    }
}

bool mempool::is_alignment(const void* p, unsigned align) {
    return mem::is_aligned(p, align);
}

unsigned mempool::collection(unsigned max_idle_ms) {
    return g_instance().garbage_collection(max_idle_ms);
}

}  // namespace bg

namespace ff {

void* mem_malloc(int size, unsigned align) {
    return size < 0 ? nullptr : bg::mempool::malloc(static_cast<unsigned>(size), align);
}

void mem_free(void* p) {
    bg::mempool::free(p);
}

unsigned mem_collection(unsigned max_idle_ms) {
    return bg::mempool::collection(max_idle_ms);
}

}  // namespace ff
