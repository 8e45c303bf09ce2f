#pragma once

/// @file
/// Runs an example program and keeps what it printed, and reads the pictures that programs write.
/// Throws std::runtime_error when it cannot.

#include "tests/support/media.h"
#include "tests/support/processor.h"
#include "tests/support/temp_folder.h"

#include <framewell/frame.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fw_test {

struct ProgramResult {
    int status = -1;       ///< exit status; 128 + the signal if one ended the program
    std::string out;       ///< standard output
    std::string errors;    ///< standard error
    long peak_memory = 0;  ///< KiB in RAM at most
};

/// Returns what a program printed, without the remark that the address sanitizer makes, once in a
/// process, on a format it does not know all of: that of fs::file_unique_id(). Reports stay.
inline std::string without_remark(const std::string& errors) {
    const std::size_t remark =
        errors.find("AddressSanitizer: WARNING: unexpected format specifier");
    if (remark == std::string::npos) {
        return errors;
    }
    const std::size_t begin = errors.rfind('\n', remark) + 1;  // 0 in the first line
    const std::size_t end = errors.find('\n', remark);
    return errors.substr(0, begin) + (end == std::string::npos ? "" : errors.substr(end + 1));
}

/// Runs `name` of the build's examples ("scrub", "getting_started/scrub") in the folder `folder`,
/// with `input` as its standard input, and waits for its end.
inline ProgramResult run_program(const std::string& name, const std::vector<std::string>& arguments,
                                 const TemporaryFolder& folder, const std::string& input = "") {
    const TemporaryFolder streams;
    std::ofstream(streams.path("in"), std::ios::binary) << input;
    std::vector<std::string> words =
        command_of(std::string(FRAMEWELL_EXAMPLES_FOLDER) + "/" + name);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    const std::string home = folder.path("");
    const int in = ::open(streams.path("in").c_str(), O_RDONLY | O_CLOEXEC);
    const int out = ::open(streams.path("out").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    const int errors = ::open(streams.path("errors").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::chdir(home.c_str()) == 0 && ::dup2(in, 0) == 0 && ::dup2(out, 1) == 1 &&
            ::dup2(errors, 2) == 2) {
            ::execv(argv[0], argv.data());
        }
        ::_exit(127);
    }
    ::close(in);
    ::close(out);
    ::close(errors);
    int status = 0;

    struct rusage usage {};

    if (child < 0 || ::wait4(child, &status, 0, &usage) != child) {
        throw std::runtime_error("cannot run " + words[0]);
    }
    ProgramResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = read_file(streams.path("out"));
    result.errors = without_remark(read_file(streams.path("errors")));
    result.peak_memory = usage.ru_maxrss;
    return result;
}

inline std::vector<std::string> lines_in(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// A picture of RGBA pixels, or of RGB ones where a program writes no more.
struct Image {
    int width = 0;
    int height = 0;
    std::string pixels;

    bool operator==(const Image& other) const {
        return width == other.width && height == other.height && pixels == other.pixels;
    }
};

/// Returns the pictures of a stream of PAM images with four bytes per pixel.
inline std::vector<Image> pam_images(const std::string& bytes) {
    std::vector<Image> images;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::string end_mark = "ENDHDR\n";
        const std::size_t end = bytes.find(end_mark, at);
        std::istringstream header(bytes.substr(at, end == std::string::npos ? end : end - at));
        std::string magic, width_name, height_name, depth_name;
        Image image;
        int depth = 0;
        if (end == std::string::npos ||
            !(header >> magic >> width_name >> image.width >> height_name >> image.height >>
              depth_name >> depth) ||
            magic != "P7" || width_name != "WIDTH" || height_name != "HEIGHT" || depth != 4) {
            throw std::runtime_error("no PAM header at byte " + std::to_string(at));
        }
        at = end + end_mark.size();
        const std::size_t size = std::size_t{4} * static_cast<std::size_t>(image.width) *
                                 static_cast<std::size_t>(image.height);
        image.pixels = bytes.substr(at, size);
        if (image.pixels.size() != size) {
            throw std::runtime_error("a PAM image is cut off");
        }
        at += size;
        images.push_back(image);
    }
    return images;
}

/// Returns the visible pixels of an RGBA result.
inline Image image_of(const ff::VFrameCtx& picture) {
    Image image{picture.width, picture.height, ""};
    for (int y = 0; y < picture.height; ++y) {
        image.pixels.append(reinterpret_cast<const char*>(picture.data[0]) +
                                static_cast<std::ptrdiff_t>(y) * picture.linesize[0],
                            std::size_t{4} * static_cast<std::size_t>(picture.width));
    }
    return image;
}

/// Returns the sample data of a WAV file.
inline std::string wave_data(const std::string& bytes) {
    const std::size_t mark = bytes.find("data");
    if (bytes.compare(0, 4, "RIFF") != 0 || mark == std::string::npos) {
        throw std::runtime_error("not a WAV file");
    }
    return bytes.substr(mark + 8);
}

/// Returns 16-bit samples that are stored as this machine does.
inline std::vector<std::int16_t> samples_of(const std::string& bytes) {
    std::vector<std::int16_t> samples(bytes.size() / 2);
    bytes.copy(reinterpret_cast<char*>(samples.data()), samples.size() * 2);
    return samples;
}

}  // namespace fw_test
