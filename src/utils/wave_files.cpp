#include "base/log.h"

#include <framewell/utils/files.h>
#include <framewell/utils/wave_files.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/utils/wave_files";
// Part of what is logged: hosts find the line by it.
constexpr int kOpenLogLine = 18;

static_assert(sizeof(off_t) == sizeof(long long), "files of more than 2 GiB need large offsets");

// A folder can be opened for reading, and then has a length that means nothing.
bool is_folder(std::FILE* file) {
    struct stat st {};

    return ::fstat(::fileno(file), &st) == 0 && S_ISDIR(st.st_mode);
}

/// Moves a file out of the place of a standard stream that the host has closed: what anybody prints
/// there would be written into the samples.
std::FILE* beside_standard_streams(std::FILE* file, const char* mode) {
    if (file == nullptr || ::fileno(file) > STDERR_FILENO) {
        return file;
    }
    // Not made again by its name, which would empty it a second time.
    const int moved = ::fcntl(::fileno(file), F_DUPFD, STDERR_FILENO + 1);
    (void)std::fclose(file);  // nothing was written
    std::FILE* const again = moved >= 0 ? ::fdopen(moved, mode) : nullptr;
    if (moved >= 0 && again == nullptr) {
        (void)::close(moved);
    }
    return again;
}

std::FILE* open_file(const char* path, const char* mode) {
    std::FILE* const file = beside_standard_streams(fs::ut_fopen(path, mode), mode);
    if (file != nullptr && is_folder(file)) {
        (void)std::fclose(file);  // nothing was written
        return nullptr;
    }
    return file;
}

}  // namespace

WaveFiles::~WaveFiles() {
    close();
}

bool WaveFiles::open(const std::vector<std::string>& paths, const char* mode) {
    close();
    const char* const known_mode = mode != nullptr ? mode : "";
    read_only = std::strchr(known_mode, 'r') != nullptr && std::strchr(known_mode, '+') == nullptr;
    files.reserve(paths.size());
    for (const std::string& path : paths) {
        std::FILE* const file = open_file(path.c_str(), known_mode);
        if (file == nullptr) {
            FW_LOG_AT(kOpenLogLine, 2, "bg", "[wave files] can't open (mode=%s): %s", known_mode,
                      path.c_str());
            close();
            return false;
        }
        files.push_back(file);
    }
    if (read_only && !files.empty()) {
        (void)::fseeko(files[0], 0, SEEK_END);  // where it fails, no length is found either
        total_size = ::ftello(files[0]);
        (void)::fseeko(files[0], 0, SEEK_SET);
    }
    return !files.empty();
}

void WaveFiles::close() {
    for (std::FILE* const file : files) {
        (void)std::fclose(file);  // hosts learn of a full disk by the counts of write()
    }
    files.clear();
    last_transfer = Transfer::kNone;
}

bool WaveFiles::is_opened() const {
    return !files.empty();
}

int WaveFiles::write(const std::uint8_t** planes, int bytes) {
    if (!can_transfer(planes, 0, bytes)) {
        return -1;
    }
    turn_to(Transfer::kWrite);
    std::size_t count = 0;
    for (std::size_t i = 0; bytes > 0 && i < files.size(); ++i) {
        count = std::fwrite(planes[i], 1, static_cast<std::size_t>(bytes), files[i]);
    }
    return static_cast<int>(count);
}

int WaveFiles::read(std::uint8_t** planes, int offset, int bytes) {
    if (!can_transfer(planes, offset, bytes)) {
        return -1;
    }
    turn_to(Transfer::kRead);
    std::size_t count = 0;
    for (std::size_t i = 0; bytes > 0 && i < files.size(); ++i) {
        count = std::fread(planes[i] + offset, 1, static_cast<std::size_t>(bytes), files[i]);
    }
    return static_cast<int>(count);
}

long long WaveFiles::size() {
    if (total_size >= 0) {
        return total_size;
    }
    return files.empty() ? 0 : std::max<long long>(0, ::ftello(files[0]));
}

void WaveFiles::seek(long long offset, int whence) {
    for (std::FILE* const file : files) {
        (void)::fseeko(file, offset, whence);  // the header says what a refused move means
    }
    last_transfer = Transfer::kNone;
}

template <class Plane>
bool WaveFiles::can_transfer(Plane* const* planes, int offset, int bytes) const {
    if (files.empty()) {
        return false;
    }
    if (offset < 0 || bytes < 0) {
        FW_LOG(2, "bg", "[wave files] bad range: offset=%d, bytes=%d", offset, bytes);
        return false;
    }
    const auto* const end = planes != nullptr ? planes + files.size() : nullptr;
    if (bytes > 0 && (planes == nullptr || std::find(planes, end, nullptr) != end)) {
        FW_LOG(2, "bg", "[wave files] missing plane: %d files", static_cast<int>(files.size()));
        return false;
    }
    return true;
}

// A file that is open for both must be told its position between reading and writing, or what
// happens is undefined.
void WaveFiles::turn_to(Transfer transfer) {
    if (last_transfer != Transfer::kNone && last_transfer != transfer) {
        seek(0, SEEK_CUR);
    }
    last_transfer = transfer;
}

}  // namespace ff
