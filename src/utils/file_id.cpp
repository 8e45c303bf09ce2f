#include "utils/thread_locale.h"

#include <framewell/utils/digest.h>
#include <framewell/utils/file_id.h>
#include <framewell/utils/files.h>

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

namespace fs {

namespace {

// One more than the digested text may have.
constexpr int kTextSize = 511;

struct CFree {
    void operator()(char* p) const { std::free(p); }
};

// Deliberate: hosts keep these keys, so the text stays as it has always been. "I64" is the mark of
// a 64-bit number in one C library; in the others "I" asks for the digits of the locale and 64 is a
// width, so that an int is printed there, right-aligned in 64 characters.
#ifdef _WIN32
using Printed = long long;
#else
using Printed = int;
#endif

Printed to_printed(long long value) {
    return static_cast<Printed>(static_cast<unsigned long long>(value));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wpedantic"

void print_state(char (&text)[kTextSize], const char* path, const struct stat& st) {
    const ut::ThreadLocale plain_digits("C");
    (void)std::snprintf(text, sizeof text, "%s_%I64d_%I64d", path, to_printed(st.st_size),
                        to_printed(st.st_mtime));  // cut where it is too long
}

#pragma GCC diagnostic pop

}  // namespace

std::string file_unique_id(const char* path) {
    if (path == nullptr) {
        return {};
    }
    try {
        const std::string native = to_native_filepath(path);
        char text[kTextSize] = "";

        struct stat st {};

        if (ut_file_stat(native.c_str(), st)) {
            print_state(text, native.c_str(), st);
        } else {
            // Cut where it is too long, too.
            (void)std::snprintf(text, sizeof text, "%s_%d_%d", native.c_str(), 0, 0);
        }
        const std::unique_ptr<char, CFree> digest(ut::MD5String(text));
        return digest != nullptr ? std::string(digest.get()) : std::string();
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace fs
