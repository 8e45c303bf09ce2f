#include <framewell/utils/files.h>
#include <framewell/utils/text.h>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace fs {

std::string to_native_filepath(const std::string& path) {
    try {
        std::string native;
        native.reserve(path.size());
        for (const char c : path) {
            const bool is_slash = c == '/' || c == '\\';
            if (!is_slash) {
                native += c;
            } else if (native.empty() || native.back() != '/') {
                native += '/';
            }
        }
        return native;
    } catch (const std::exception&) {
        return {};
    }
}

std::FILE* ut_fopen(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        std::string copy(path);
        return std::fopen(ut::trim_begin2(ut::trim_end2(copy.data(), "\""), "\""), mode);
    } catch (const std::exception&) {
        errno = ENOMEM;
        return nullptr;
    }
}

bool ut_file_stat(const char* path, struct stat& st) {
    return path != nullptr && ::stat(path, &st) == 0;
}

int ut_rename(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return std::rename(from, to);
}

bool make_dir(const char* path, int mode) {
    if (path == nullptr) {
        return false;
    }
    if (is_dir_exist(path) || ::mkdir(path, static_cast<mode_t>(mode)) == 0) {
        return true;
    }
    // Somebody else may have made it between the two calls.
    return errno == EEXIST && is_dir_exist(path);
}

bool is_dir_exist(const char* path) {
    if (path == nullptr) {
        return false;
    }
    DIR* const folder = ::opendir(path);
    if (folder == nullptr) {
        return false;
    }
    (void)::closedir(folder);  // fails only for what is no open folder
    return true;
}

std::string tmp_dir() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the header says who must not write meanwhile
    const char* const folder = std::getenv("TMPDIR");
    if (folder == nullptr || *folder == '\0') {
        return "/tmp";
    }
    try {
        return to_native_filepath(folder);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace fs
