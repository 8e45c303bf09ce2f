#pragma once

/// @file
/// Media files for fuzz targets. What cannot be made is a mistake in the setup: it throws
/// std::runtime_error, which ends the run.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

/// A file with a name of its own, in the folder for temporary files: the library keeps what it
/// probed by path, for the life of the process. Removed with the object.
class OneFile {
public:
    explicit OneFile(const std::string& bytes);
    OneFile(const OneFile&) = delete;
    OneFile& operator=(const OneFile&) = delete;
    ~OneFile();

    const char* path() const { return m_path.c_str(); }

    /// Replaces the content, while somebody may be reading it.
    void write(const std::string& bytes) const;

    /// Cuts the file behind its first `size` bytes, likewise.
    void cut(std::size_t size) const;

private:
    std::string m_path;
};

/// Returns the contents of the small files that fuzz/make-seeds has made, in the order of their
/// names.
const std::vector<std::string>& media_seeds();

/// Returns a file of uncompressed pictures, 32x16 at 25 per second, all different.
std::string plain_video(int pictures);

/// Returns a file of uncompressed stereo sound, 16 bits at 8000 Hz.
std::string plain_sound(int samples);

}  // namespace fuzz
