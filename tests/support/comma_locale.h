#pragma once

#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <locale>
#include <string>
#include <system_error>

namespace fw_test {

/// While it lives, the process prints numbers with a comma: the C functions as in Germany, if this
/// machine has that locale or can make it, and the streams of C++ in any case.
class CommaLocale {
public:
    CommaLocale() : m_c_before(std::setlocale(LC_ALL, nullptr)) {
        m_cpp_before = std::locale::global(std::locale(std::locale::classic(), new Comma));
        m_known = set() || (make() && set());
    }

    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    ~CommaLocale() {
        std::locale::global(m_cpp_before);
        (void)std::setlocale(LC_ALL, m_c_before.c_str());
        if (!m_folder.empty()) {
            (void)unsetenv("LOCPATH");
            std::error_code ignored;
            std::filesystem::remove_all(m_folder, ignored);
        }
    }

    /// Whether the C functions print commas.
    bool known() const { return m_known; }

private:
    class Comma : public std::numpunct<char> {
        char do_decimal_point() const override { return ','; }

        char do_thousands_sep() const override { return '.'; }

        std::string do_grouping() const override { return "\3"; }
    };

    static bool set() {
        return std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr &&
               std::string(std::localeconv()->decimal_point) == ",";
    }

    bool make() {
        const auto temp = std::filesystem::temp_directory_path();
        m_folder = (temp / ("framewell-locale-" + std::to_string(::getpid()))).string();
        std::error_code error;
        std::filesystem::create_directories(m_folder, error);
        const std::string command =
            "localedef -i de_DE -f UTF-8 '" + m_folder + "/de_DE.UTF-8' >/dev/null 2>&1";
        return !error && std::system(command.c_str()) == 0 &&
               setenv("LOCPATH", m_folder.c_str(), 1) == 0;
    }

    const std::string m_c_before;
    std::locale m_cpp_before;
    std::string m_folder;
    bool m_known = false;
};

}  // namespace fw_test
