// Writes a small picture of every file that standard input names, one name a line, into FOLDER as
// 1.pam, 2.pam ...: gallery FOLDER THREADS < LIST
#include <framewell/framewell.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

bool write_picture(const ff::VFrameCtx& picture, const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    std::fprintf(file, "P7\nWIDTH %d\nHEIGHT %d\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                 picture.width, picture.height);
    for (int y = 0; y < picture.height; y++) {
        std::fwrite(picture.data[0] + std::ptrdiff_t{y} * picture.linesize[0], 4,
                    static_cast<std::size_t>(picture.width), file);
    }
    const bool is_complete = std::ferror(file) == 0;
    return std::fclose(file) == 0 && is_complete;
}

// [work]
/// Takes the next name until there is none. Several threads do this side by side: each holds one
/// open file, one decoder and one picture at a time, however long the list is.
void work(const std::vector<std::string>& names, const std::string& folder,
          std::atomic<std::size_t>* next, std::atomic<int>* missing) {
    ff::RequireMvImage request;
    request.ratio = 0.1;  // the very first pictures of a movie are often black
    request.max_width = 160;
    request.max_height = 120;
    for (std::size_t i = (*next)++; i < names.size(); i = (*next)++) {
        const auto cover = ff::getMovieImage(names[i].c_str(), request, nullptr);
        if (!cover || !write_picture(*cover, folder + "/" + std::to_string(i + 1) + ".pam")) {
            std::fprintf(stderr, "%s: no picture\n", names[i].c_str());
            (*missing)++;
        }
        if (i % 100 == 99) {
            ff::mem_collection(1000);  // pictures of other sizes may never come again
        }
    }
}

// [work]

}  // namespace

int main(int argc, char** argv) {
    const int thread_count = argc == 3 ? std::atoi(argv[2]) : 0;
    if (thread_count < 1 || thread_count > 64) {
        std::fprintf(stderr, "usage: gallery FOLDER THREADS < LIST\n");
        return 2;
    }
    std::vector<std::string> names;
    for (std::string name; std::getline(std::cin, name);) {
        names.push_back(name);
    }
    std::atomic<std::size_t> next{0};
    std::atomic<int> missing{0};
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(thread_count));
    for (int i = 0; i < thread_count; i++) {
        threads.emplace_back([&] { work(names, argv[1], &next, &missing); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::printf("%zu files, %d without a picture\n", names.size(), missing.load());
    return missing == 0 ? 0 : 1;
}
