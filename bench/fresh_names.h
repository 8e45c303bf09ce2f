#pragma once

#include "clips.h"

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): POSIX declares mkdtemp() there

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace bench {

/// A folder in which every name is a new file for the library, which remembers files by path. It
/// goes away with the object.
class FreshNames {
public:
    FreshNames() {
        m_folder = cache_folder() + "/names-XXXXXX";
        if (mkdtemp(m_folder.data()) == nullptr) {
            std::perror("mkdtemp");
            std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread ends the program
        }
    }

    FreshNames(const FreshNames&) = delete;
    FreshNames& operator=(const FreshNames&) = delete;

    ~FreshNames() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    /// A new name of the file at `target`.
    std::string next(const std::string& target) {
        std::string name = m_folder + "/" + std::to_string(++m_count) + ".mp4";
        std::filesystem::create_symlink(std::filesystem::absolute(target), name);
        return name;
    }

private:
    std::string m_folder;
    int m_count = 0;
};

}  // namespace bench
