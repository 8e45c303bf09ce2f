#include "media/input_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace ff {

namespace {

/// False also for what is no file: addresses on the network, other protocols, names of nothing.
bool is_read_once(const char* path) {
    constexpr char scheme[] = "file:";
    const bool has_scheme = std::strncmp(path, scheme, sizeof scheme - 1) == 0;

    struct stat st {};

    return ::stat(has_scheme ? path + sizeof scheme - 1 : path, &st) == 0 &&
           (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode) || S_ISSOCK(st.st_mode));
}

}  // namespace

int open_input_file(AVFormatContext** format, const char* path) {
    if (path == nullptr) {
        return AVERROR(EINVAL);
    }
    if (is_read_once(path)) {
        return AVERROR(ESPIPE);
    }
    return avformat_open_input(format, path, nullptr, nullptr);
}

}  // namespace ff
