// A plain main for a fuzz target: runs it on inputs that are kept, each once. So every compiler and
// every sanitizer can try what fuzzing has found.
//   NAME_replay FOLDER-OR-FILE...      every folder must exist and have a file in it

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

/// The files to run, in an order that does not depend on the file system.
std::vector<std::string> inputs_of(const std::string& path) {
    std::vector<std::string> files;
    if (!std::filesystem::is_directory(path)) {
        files.push_back(path);
        return files;
    }
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path().string());
        }
    }
    if (files.empty()) {
        throw std::runtime_error("there is no input in " + path);
    }
    std::sort(files.begin(), files.end());
    return files;
}

void run(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    const std::vector<char> read((std::istreambuf_iterator<char>(file)),
                                 std::istreambuf_iterator<char>());
    // A block of its own of just this size: a read beyond the end is seen.
    const std::vector<std::uint8_t> input(read.begin(), read.end());
    (void)std::fprintf(stderr, "%s\n", path.c_str());          // the last line names what failed
    (void)LLVMFuzzerTestOneInput(input.data(), input.size());  // always 0
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 2) {
            throw std::runtime_error("usage: NAME_replay FOLDER-OR-FILE...");
        }
        (void)LLVMFuzzerInitialize(&argc, &argv);
        std::size_t count = 0;
        for (int i = 1; i < argc; ++i) {
            for (const std::string& path : inputs_of(argv[i])) {
                run(path);
                ++count;
            }
        }
        (void)std::printf("%zu inputs\n", count);
        return 0;
    } catch (const std::exception& e) {
        (void)std::fprintf(stderr, "error: %s\n", e.what());
        return 1;
    }
}
