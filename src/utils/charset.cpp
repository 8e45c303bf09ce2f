#include "utils/thread_locale.h"

#include <framewell/utils/charset.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

namespace ut {

namespace {

constexpr char kBadLocale[] = "Bad Parameter";
constexpr char kBadText[] = "Can not Transfer!!!";
constexpr char kNoMemory[] = "calloc failed..";

struct CFree {
    void operator()(void* p) const { std::free(p); }
};

// What the two directions differ in; a count is that of the characters without the NUL, or -1.
std::size_t transfer(wchar_t* dst, const char* src, std::size_t size) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): both encodings are stateless and the locale is our own
    return std::mbstowcs(dst, src, size);
}

std::size_t transfer(char* dst, const wchar_t* src, std::size_t size) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): as above
    return std::wcstombs(dst, src, size);
}

// Converts `from` into `to`; returns null, or what went wrong.
template <class To, class From>
const char* convert(const From& from, bool utf8, To& to) {
    using Character = typename To::value_type;
    const ThreadLocale locale(utf8 ? "zh_CN.utf8" : "zh_CN.gbk");
    if (!locale.is_set()) {
        return kBadLocale;
    }
    constexpr auto failed = static_cast<std::size_t>(-1);
    const std::size_t count = transfer(static_cast<Character*>(nullptr), from.c_str(), 0);
    if (count == failed || count < 1) {
        return kBadText;
    }
    const std::unique_ptr<Character, CFree> buffer(
        static_cast<Character*>(std::calloc(count + 1, sizeof(Character))));
    if (buffer == nullptr) {
        return kNoMemory;
    }
    if (transfer(buffer.get(), from.c_str(), count + 1) != count) {
        return kBadText;
    }
    try {
        to.assign(buffer.get(), count);
    } catch (const std::exception&) {
        return kNoMemory;
    }
    return nullptr;
}

template <class To, class From>
To convert_or_tell(const From& from, bool utf8, bool& ok) {
    To to;
    if (from.empty()) {
        return to;
    }
    const char* const message = convert(from, utf8, to);
    if (message != nullptr) {
        (void)std::puts(message);  // nowhere left to report a failure
    }
    ok = message == nullptr;
    return to;
}

}  // namespace

std::wstring multiByte2WideChar(const std::string& s, bool utf8, bool& ok) {
    return convert_or_tell<std::wstring>(s, utf8, ok);
}

std::string wideChar2MultiByte(const std::wstring& w, bool utf8, bool& ok) {
    return convert_or_tell<std::string>(w, utf8, ok);
}

// A step that fails gives an empty text, which the next one returns as it is.
std::string GBKToUTF8(const std::string& s) {
    bool ok = false;
    return wideChar2MultiByte(multiByte2WideChar(s, false, ok), true, ok);
}

std::string UTF8ToGBK(const std::string& s) {
    bool ok = false;
    return wideChar2MultiByte(multiByte2WideChar(s, true, ok), false, ok);
}

std::string Unicode2ACSII(const wchar_t* w, bool utf8) {
    try {
        bool ok = false;
        return w == nullptr ? std::string() : wideChar2MultiByte(w, utf8, ok);
    } catch (const std::exception&) {
        return {};
    }
}

std::wstring ASCII2Unicode(const char* s, bool utf8) {
    try {
        bool ok = false;
        return s == nullptr ? std::wstring() : multiByte2WideChar(s, utf8, ok);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace ut
