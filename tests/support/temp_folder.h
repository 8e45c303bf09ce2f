#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace fw_test {

/// A folder that goes away, with all that is in it, at the end of the scope.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "framewell-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a folder like " + name);
        }
        m_path = name;
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    ~TemporaryFolder() {
        std::error_code ignored;  // a folder that stays behind does not change a result
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string path(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

}  // namespace fw_test
