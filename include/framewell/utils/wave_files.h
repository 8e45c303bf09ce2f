#pragma once

#include <framewell/base/config.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

/// @file
/// Bare sound on disk, one file per channel.

namespace ff {

/// Keeps one stream of raw PCM in a set of plain files, one per plane (for planar formats, one per
/// channel), which are written, read and sought in step. The files hold bare samples, without any
/// header: format, rate and channel count are the host's to remember. Positions, counts and sizes
/// are bytes within one plane.
///
///     ff::WaveFiles store;
///     if (store.open({"left.pcm", "right.pcm"}, "wb")) {
///         const std::uint8_t* planes[] = {left, right};
///         (void)store.write(planes, 4096);            // 4096 when both files took it
///     }
///     store.open({"left.pcm", "right.pcm"}, "rb");    // closes what was open
///     std::uint8_t* buffers[] = {left, right};
///     const int bytes = store.read(buffers, 0, 8192); // 4096: the end
///
/// All files are expected to be of one length: a transfer that falls short on one of them goes on
/// with the others and shows only if it is the last one. So whoever gets less than was asked for is
/// at the end of the data, or the disk is full.
///
/// Thread-safety: one thread at a time.
class FRAMEWELL_API WaveFiles {
public:
    /// Makes a store with nothing open.
    WaveFiles() = default;
    WaveFiles(const WaveFiles&) = delete;
    WaveFiles& operator=(const WaveFiles&) = delete;

    /// Calls close().
    ~WaveFiles();

    /// Opens one file per path, all or none; what was open is closed first.
    /// @param paths  file i holds plane i. Double quotes at both ends of a path are ignored.
    /// @param mode   as for fopen(), for example "wb" or "rb". With an "r" and no "+" the store is
    ///               read-only: size() is then the length of the first file.
    /// @return       false: no paths, or one that cannot be opened (a folder, too), which is logged
    ///               with level 2.
    bool open(const std::vector<std::string>& paths, const char* mode);

    /// Closes all files. What the system refuses to write then is lost without notice.
    void close();

    /// Returns whether open() succeeded and close() has not been called since.
    bool is_opened() const;

    /// Writes `bytes` bytes of `planes[i]` to file i, for every file, at its position (behind its
    /// end, with a mode of "a").
    /// @return  the number of bytes that the last file took; -1 when nothing is open, and, logged
    ///          with level 2, for a negative count or a missing plane.
    int write(const std::uint8_t** planes, int bytes);

    /// Reads up to `bytes` bytes of file i to `planes[i] + offset`, for every file.
    /// @param offset  0 or more: bytes of the buffers that earlier reads have filled
    /// @return        the number of bytes that the last file gave; -1 when nothing is open, and,
    ///                logged with level 2, for a negative count or offset or a missing plane.
    int read(std::uint8_t** planes, int offset, int bytes);

    /// Returns the length that the last read-only open() found, which also stays when something
    /// else is opened or all is closed; without one, the position in the first file, which after
    /// writing is the number of bytes per plane; 0 when nothing is open or there is no position.
    long long size();

    /// Moves every file as fseek() does: `whence` is SEEK_SET, SEEK_CUR or SEEK_END. A move that is
    /// not possible, such as one before the start, leaves the position.
    void seek(long long offset, int whence);

private:
    enum class Transfer { kNone, kRead, kWrite };

    template <class Plane>
    bool can_transfer(Plane* const* planes, int offset, int bytes) const;
    void turn_to(Transfer transfer);

    std::vector<std::FILE*> files;
    bool read_only = false;
    long long total_size = -1;                 // below 0: unknown
    Transfer last_transfer = Transfer::kNone;  // since the last open() or seek()
};

}  // namespace ff
