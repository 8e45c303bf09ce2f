#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace fw_test {

/// A file with a name that no other test and no other run has, for tests that change or remove it
/// or that must be the first to use a path. Removed with the object.
class TempFile {
public:
    explicit TempFile(const std::string& name, const std::string& bytes = "")
        : m_path(unique_path(name)) {
        write(bytes);
    }

    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    ~TempFile() { remove(); }

    const std::string& path() const { return m_path; }

    void write(const std::string& bytes) const {
        std::ofstream file(m_path, std::ios::binary | std::ios::trunc);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!file.flush()) {
            throw std::runtime_error("cannot write " + m_path);
        }
    }

    void remove() const { (void)std::remove(m_path.c_str()); }

private:
    static std::string unique_path(const std::string& name) {
        static std::atomic<int> s_count{0};
        const std::string file = "framewell-" + std::to_string(::getpid()) + "-" +
                                 std::to_string(++s_count) + "-" + name;
        return (std::filesystem::temp_directory_path() / file).string();
    }

    const std::string m_path;
};

}  // namespace fw_test
