#include "media_input.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fuzz {

namespace {

std::string unique_path() {
    static std::atomic<unsigned long> s_count{0};
    return std::filesystem::temp_directory_path() /
           ("framewell-fuzz-" + std::to_string(::getpid()) + "-" + std::to_string(++s_count));
}

std::vector<std::string> read_media_seeds() {
    std::vector<std::filesystem::path> paths;
    std::error_code ignored;  // no folder is as good as an empty one
    for (const auto& entry : std::filesystem::directory_iterator(FRAMEWELL_FUZZ_MEDIA, ignored)) {
        paths.push_back(entry.path());
    }
    if (paths.empty()) {
        throw std::runtime_error("fuzz/make-seeds has not run: nothing in " FRAMEWELL_FUZZ_MEDIA);
    }
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> contents;
    for (const std::filesystem::path& path : paths) {
        std::ifstream file(path, std::ios::binary);
        contents.emplace_back(std::istreambuf_iterator<char>(file),
                              std::istreambuf_iterator<char>());
    }
    return contents;
}

void append_number(std::string& bytes, std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i) {
        bytes += static_cast<char>(value >> (8 * i));
    }
}

}  // namespace

OneFile::OneFile(const std::string& bytes) : m_path(unique_path()) {
    write(bytes);
}

OneFile::~OneFile() {
    (void)std::remove(m_path.c_str());
}

void OneFile::write(const std::string& bytes) const {
    std::ofstream file(m_path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + m_path);
    }
}

void OneFile::cut(std::size_t size) const {
    if (::truncate(m_path.c_str(), static_cast<off_t>(size)) != 0) {
        throw std::runtime_error("cannot cut " + m_path);
    }
}

const std::vector<std::string>& media_seeds() {
    static const std::vector<std::string> s_seeds = read_media_seeds();
    return s_seeds;
}

std::string plain_video(int pictures) {
    constexpr int luma_size = 32 * 16;
    std::string bytes = "YUV4MPEG2 W32 H16 F25:1 Ip A1:1 C420jpeg\n";
    for (int number = 0; number < pictures; ++number) {
        bytes += "FRAME\n";
        bytes += std::string(luma_size, static_cast<char>(16 + 9 * number));
        bytes += std::string(luma_size / 4, static_cast<char>(100 + number));
        bytes += std::string(luma_size / 4, static_cast<char>(150 - number));
    }
    return bytes;
}

std::string plain_sound(int samples) {
    constexpr std::uint32_t rate = 8000;
    constexpr std::uint32_t sample_size = 4;
    const std::uint32_t size = static_cast<std::uint32_t>(samples) * sample_size;
    std::string bytes = "RIFF";
    append_number(bytes, 36 + size, 4);
    bytes += "WAVEfmt ";
    append_number(bytes, 16, 4);
    append_number(bytes, 1, 2);  // integers
    append_number(bytes, 2, 2);  // channels
    append_number(bytes, rate, 4);
    append_number(bytes, rate * sample_size, 4);
    append_number(bytes, sample_size, 2);
    append_number(bytes, 16, 2);  // bits
    bytes += "data";
    append_number(bytes, size, 4);
    for (int i = 0; i < samples; ++i) {
        append_number(bytes, static_cast<std::uint32_t>(i * 37), 2);
        append_number(bytes, static_cast<std::uint32_t>(i * -11), 2);
    }
    return bytes;
}

}  // namespace fuzz
