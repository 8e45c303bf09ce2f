#pragma once

#include <framewell/base/config.h>

/// @file
/// Where the bytes of pictures and sound live: one pool per process that uses large buffers again
/// instead of asking the system for each frame.

/// Aligned memory straight from the system.
/// Thread-safety: all safe.
namespace bg::mem {

/// Returns `size` bytes that begin at a multiple of `align`, to be freed with aligned_free(). Null
/// when there is no memory, and for an alignment that is not a power of two of at least the size of
/// a pointer.
FRAMEWELL_API void* aligned_malloc(unsigned size, unsigned align);

/// Frees what aligned_malloc() returned. Null is allowed.
FRAMEWELL_API void aligned_free(void* p);

/// Returns whether `p` is a multiple of `align`, which is a power of two.
FRAMEWELL_API bool is_aligned(const void* p, unsigned align);

}  // namespace bg::mem

namespace bg {

/// The pool of the process. A buffer that is given back stays allocated and is handed out again for
/// the next request of its size, the one that has waited longest first; collection() returns
/// buffers that nobody asked for to the system. The pool exists from the first call, whenever that
/// is, until the process has ended.
///
///     void* const pixels = bg::mempool::malloc(1920 * 1080 * 4, 16);
///     bg::mempool::free(pixels);           // kept for the next picture of this size
///     bg::mempool::collection(5000);       // gives back what has been idle for over 5 seconds
///
/// Thread-safety: safe.
class mempool {
public:
    mempool() = delete;

    /// Returns a buffer of at least `size` bytes; its content is whatever its last user left.
    /// @param size   bytes, rounded up to a multiple of 32: buffers are kept by rounded size.
    /// @param align  as for bg::mem::aligned_malloc(); it counts only for a new buffer, so all
    ///               requests of one size should ask for one alignment.
    /// @return       give it back with free(). Null when there is no memory, for an alignment that
    ///               is not possible, and for the last 31 sizes, which cannot be rounded.
    FRAMEWELL_API static void* malloc(unsigned size, unsigned align);

    /// Gives `p` back to the pool. A pointer that the pool has not handed out, or that has been
    /// given back already, and null as well, is left alone, with a warning on standard error.
    FRAMEWELL_API static void free(void* p);

    /// bg::mem::is_aligned().
    FRAMEWELL_API static bool is_alignment(const void* p, unsigned align);

    /// Returns buffers to the system that have been idle for more than `max_idle_ms` milliseconds,
    /// or all idle ones for 0, and returns their number. Buffers in use are not touched.
    /// Blocking: other calls to the pool wait for it.
    FRAMEWELL_API static unsigned collection(unsigned max_idle_ms);

private:
    struct BufferList;
    class FramePoolPrivate;

    static FramePoolPrivate& g_instance();
};

}  // namespace bg

namespace ff {

/// bg::mempool::malloc() for the sizes that FFmpeg computes: a negative one, which is an error
/// code, gives null.
FRAMEWELL_API void* mem_malloc(int size, unsigned align);

/// bg::mempool::free().
FRAMEWELL_API void mem_free(void* p);

/// bg::mempool::collection().
FRAMEWELL_API unsigned mem_collection(unsigned max_idle_ms);

}  // namespace ff
