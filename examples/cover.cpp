// Writes one picture of each FILE as a PAM image beside it, and prints how long the file is:
// cover FILE...
#include <framewell/framewell.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

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
    const bool is_complete = std::ferror(file) == 0;  // of all that was written
    return std::fclose(file) == 0 && is_complete;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: cover FILE...\n");
        return 2;
    }
    ff::RequireMvImage request;
    request.ratio = 0.1;  // the very first pictures of a movie are often black
    request.max_width = 320;
    request.max_height = 240;

    int missing = 0;
    for (int i = 1; i < argc; i++) {
        const std::string path = argv[i];
        ff::Rational duration{kUnknown, 1000000};
        const auto cover = ff::getMovieImage(path.c_str(), request, &duration);
        if (duration.num != kUnknown) {
            std::printf("%s: %.3f s\n", path.c_str(), static_cast<double>(duration.num) / 1e6);
        }
        if (!cover || !write_picture(*cover, path + ".pam")) {
            std::fprintf(stderr, "%s: no cover\n", path.c_str());
            missing++;
        }
    }
    return missing == 0 ? 0 : 1;
}
