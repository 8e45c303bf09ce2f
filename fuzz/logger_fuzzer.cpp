// The logger: texts of any length and with any bytes, into lines and prefixes of any size.

#include "byte_script.h"
#include "expect.h"

#include <framewell/base/logger.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using fuzz::ByteScript;
using fuzz::expect;

constexpr std::size_t kLongestLine = 510;

void check_prefix(ByteScript& script, const std::string& tag, const std::string& file) {
    const int size = script.byte();
    const auto level = static_cast<mox::MoxLogLevel>(script.below(9) - 1);
    const int line = script.small_number();
    std::vector<char> buffer(static_cast<std::size_t>(size));
    const int length = mox::Logger::make_prefix(size == 0 ? nullptr : buffer.data(), size,
                                                tag.c_str(), level, file.c_str(), line);
    expect(length >= 0 && (length < size || length == 0), "a prefix has room for its end");
    expect(size == 0 || static_cast<int>(std::strlen(buffer.data())) == length,
           "the length of a prefix is that of its text");
}

/// Returns what a logger of its own has put into its stream.
std::string line_of(const std::string& tag, int level, const std::string& file, int line,
                    const std::string& message) {
    char bytes[2048] = "";
    std::FILE* const stream = ::fmemopen(bytes, sizeof bytes, "w");
    mox::Logger logger;
    logger.setStream(stream);
    logger.setLevel(mox::MoxLogVerbose);
    logger.write(tag.c_str(), level, file.c_str(), line, "%s", message.c_str());
    (void)std::fclose(stream);  // what was written stands in `bytes`
    return bytes;
}

void check_callback(const std::string& tag, int level, const std::string& message) {
    mox::Logger logger;
    std::string told;
    logger.setCallback([&told](const char* /*tag*/, int shown, const char* /*file*/, int /*line*/,
                               const char* text) {
        expect(shown >= mox::MoxLogNone && shown <= mox::MoxLogVerbose, "a level is one of seven");
        told = text;
    });
    logger.write(tag.c_str(), level, nullptr, 1, "%s", message.c_str());
    expect(told == message.substr(0, told.size()), "a callback gets the message from its start");
    expect(told == message || told.size() > kLongestLine / 2, "only long messages are cut");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteScript script(data, size);
    const std::string tag = fuzz::up_to_nul(script.text(script.byte()));
    const std::string file = fuzz::up_to_nul(script.text(script.byte()));
    const int level = script.small_number();
    const int line = script.small_number();
    check_prefix(script, tag, file);
    (void)mox::Logger::now(script.text(script.below(40)).c_str());
    const std::string message = fuzz::up_to_nul(script.rest());
    expect(line_of(tag, level, file, line, message).size() <= kLongestLine,
           "a line has at most 510 characters");
    check_callback(tag, level, message);
    return 0;
}
