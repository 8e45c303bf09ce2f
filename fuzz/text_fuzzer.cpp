// Byte strings, character sets and digests. The first byte picks the group, the rest is its texts,
// separated by the byte 0xFF where a group takes several.

#include "byte_script.h"
#include "expect.h"

extern "C" {
#include <libavutil/md5.h>
}

#include <framewell/utils/charset.h>
#include <framewell/utils/digest.h>
#include <framewell/utils/file_id.h>
#include <framewell/utils/files.h>
#include <framewell/utils/text.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using fuzz::ByteScript;
using fuzz::expect;

struct CFree {
    void operator()(void* p) const { std::free(p); }
};

using CText = std::unique_ptr<char, CFree>;

constexpr char kBlanks[] = " \t\n\r";

/// A text in a block of just its size, to be changed in place.
class Buffer {
public:
    explicit Buffer(const std::string& text)
        : m_bytes(text.c_str(), text.c_str() + std::strlen(text.c_str()) + 1) {}

    char* data() { return m_bytes.data(); }

private:
    std::vector<char> m_bytes;
};

/// Takes the text up to the next separator.
std::string take_text(ByteScript& script) {
    constexpr std::uint8_t separator = 0xFF;
    std::string text;
    while (!script.at_end()) {
        const std::uint8_t byte = script.byte();
        if (byte == separator) {
            break;
        }
        text += static_cast<char>(byte);
    }
    return text;
}

// Where the part of `text` that is not in `set` begins and ends.
std::string without(const std::string& text, const std::string& set) {
    const std::size_t begin = text.find_first_not_of(set);
    return begin == std::string::npos ? ""
                                      : text.substr(begin, text.find_last_not_of(set) + 1 - begin);
}

void check_trimming(ByteScript& script) {
    const std::string text = fuzz::up_to_nul(take_text(script));
    const std::string set = fuzz::up_to_nul(take_text(script));
    Buffer both(text);
    expect(ut::trim(both.data()) == without(text, kBlanks),
           "trimming leaves no blanks at the ends");
    Buffer begin(text);
    expect(ut::trim_begin(begin.data()) == ut::trim_begin(text.c_str()) + std::string(),
           "both ways of trimming the begin agree");
    Buffer end(text);
    expect(std::strlen(ut::trim_end(end.data())) >= (text.empty() ? 0U : 1U),
           "trimming the end keeps the first character");
    Buffer of_set(text);
    const std::string cut = ut::trim_begin2(ut::trim_end2(of_set.data(), set.c_str()), set.c_str());
    expect(cut == (set.empty() ? text : without(text, set)), "trimming leaves none of the set");
}

void check_comparing(ByteScript& script) {
    const std::string text = fuzz::up_to_nul(take_text(script));
    const std::string part = fuzz::up_to_nul(take_text(script));
    const bool fits = part.size() <= text.size();
    const bool begins = fits && text.compare(0, part.size(), part) == 0;
    const bool ends = fits && text.compare(text.size() - part.size(), part.size(), part) == 0;
    expect(ut::begin_width(text.c_str(), part.c_str(), true) == begins, "begins are compared");
    expect(ut::end_width(text.c_str(), part.c_str(), true) == ends, "ends are compared");
    Buffer lower(text);
    Buffer upper(text);
    (void)ut::str_to_lower(lower.data());
    (void)ut::str_to_upper(upper.data());
    expect(ut::begin_width(lower.data(), upper.data(), false), "case is not looked at in begins");
    expect(ut::end_width(upper.data(), lower.data(), false), "case is not looked at in ends");
    Buffer again(lower.data());
    expect(std::strcmp(ut::str_to_lower(again.data()), lower.data()) == 0,
           "lower case has no letters left to change");
}

std::string replaced_once(const std::string& text, const std::string& from, const std::string& to) {
    std::string result;
    std::size_t done = 0;
    for (std::size_t at = from.empty() ? std::string::npos : text.find(from);
         at != std::string::npos; at = text.find(from, done)) {
        result += text.substr(done, at - done) + to;
        done = at + from.size();
    }
    return result + text.substr(done);
}

/// Replaces the first occurrence until there is none; nothing if that takes long.
std::optional<std::string> replaced_until_gone(std::string text, const std::string& from,
                                               const std::string& to) {
    constexpr int most_steps = 2000;
    for (int step = 0; step < most_steps; ++step) {
        const std::size_t at = text.find(from);
        if (at == std::string::npos) {
            return text;
        }
        text.replace(at, from.size(), to);
    }
    return std::nullopt;
}

void check_replacing(ByteScript& script) {
    const std::string from = fuzz::up_to_nul(take_text(script));
    const std::string to = fuzz::up_to_nul(take_text(script));
    const std::string text = fuzz::up_to_nul(take_text(script));
    const std::string once = replaced_once(text, from, to);
    expect(ut::str_replace_all_distinct(text.c_str(), from.c_str(), to.c_str()) == once,
           "each occurrence is replaced once");
    if (from.empty() || to.find(from) != std::string::npos) {
        expect(ut::str_replace_all(text.c_str(), from.c_str(), to.c_str()) == once,
               "what can never end is not begun");
    } else if (const auto all = replaced_until_gone(text, from, to)) {
        expect(ut::str_replace_all(text.c_str(), from.c_str(), to.c_str()) == *all,
               "each occurrence is replaced until none is left");
    }
}

void check_formatting(ByteScript& script) {
    const int number = script.small_number();
    const int length = script.byte() - 16;
    const std::string text = fuzz::up_to_nul(take_text(script));
    expect(ut::str_format("%s", text.c_str()) == text, "a text is formatted as it is");
    expect(
        ut::str_format("%s=%d;", text.c_str(), number) == text + "=" + std::to_string(number) + ";",
        "a text and a number are formatted");
    expect(static_cast<int>(ut::rand_str(length).size()) == (length < 0 ? 0 : length),
           "random texts have the length that was asked for");
}

void check_paths(ByteScript& script) {
    const std::string path = take_text(script);
    const std::string native = fs::to_native_filepath(path);
    expect(native.find('\\') == std::string::npos && native.find("//") == std::string::npos,
           "a path has single slashes only");
    expect(fs::to_native_filepath(native) == native, "a clean path stays as it is");
    expect(fs::file_unique_id(path.c_str()).size() == 32, "every path has a key");
}

void check_charsets(ByteScript& script) {
    const bool utf8 = script.below(2) != 0;
    const std::string text = script.rest();
    bool ok = false;
    const std::wstring wide = ut::multiByte2WideChar(text, utf8, ok);
    expect(ok == !wide.empty(), "a conversion gives all or nothing");
    expect(ut::ASCII2Unicode(text.c_str(), utf8) == wide, "both names convert to wide characters");
    if (ok) {
        bool back_ok = false;
        const std::string back = ut::wideChar2MultiByte(wide, utf8, back_ok);
        expect(back_ok && ut::Unicode2ACSII(wide.c_str(), utf8) == back,
               "what was converted has a way back");
        expect(ut::multiByte2WideChar(back, utf8, ok) == wide, "the way back leads to the same");
        expect(!utf8 || back == fuzz::up_to_nul(text), "UTF-8 comes back byte by byte");
    }
    const std::string other = utf8 ? ut::UTF8ToGBK(text) : ut::GBKToUTF8(text);
    expect(other.empty() || ok, "only valid text is converted");
    if (!other.empty()) {
        const std::string back = utf8 ? ut::GBKToUTF8(other) : ut::UTF8ToGBK(other);
        expect(!back.empty(), "text that has been converted can be converted back");
    }
}

void check_digests(ByteScript& script) {
    const std::string sizes = take_text(script);
    const std::string message = script.rest();
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(message.data());
    std::uint8_t expected[16];
    // The length was an int before 5.0 and is a size_t since; this fits both.
    av_md5_sum(expected, bytes, static_cast<std::uint16_t>(message.size()));

    ut::md5 digest;
    std::size_t done = 0;
    for (const char size : sizes) {
        const std::size_t part =
            std::min<std::size_t>(static_cast<unsigned char>(size), message.size() - done);
        digest.Update(bytes + done, static_cast<unsigned>(part));
        done += part;
    }
    digest.Update(bytes + done, static_cast<unsigned>(message.size() - done));
    digest.Finalize();
    expect(std::memcmp(digest.Digest(), expected, sizeof expected) == 0,
           "a digest does not depend on how its message was cut");
    const CText text(ut::MD5BinData(bytes, message.size()));
    const CText printed(ut::PrintMD5(expected));
    expect(std::strcmp(text.get(), printed.get()) == 0, "both ways give the same text");
    const CText middle(ut::MD5String(message.c_str()));
    expect(std::strlen(ut::MD5_32_to_16(middle.get())) == 16, "the middle has 16 digits");
    const CText other(ut::MD5String_Vokt(message.c_str()));
    expect(std::strlen(other.get()) == 32, "the other text has 32 digits");
    Buffer any(message);
    (void)ut::MD5_32_to_16(any.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr void (*checks[])(ByteScript&) = {check_trimming,   check_comparing, check_replacing,
                                               check_formatting, check_paths,     check_charsets,
                                               check_digests};
    ByteScript script(data, size);
    script.one_of(checks)(script);
    return 0;
}
