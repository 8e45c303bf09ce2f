#include "clips.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace bench {

namespace {

// Sharp moving shapes and a little noise: prediction has work to do, and so has the decoder.
std::string moving_pictures(const std::string& size, int noise) {
    return "testsrc2=size=" + size + ":rate=" + std::to_string(kPicturesPerSecond) +
           ",noise=alls=" + std::to_string(noise) + ":allf=t";
}

std::string x264(int gop) {
    const std::string length = std::to_string(gop);
    return "-c:v libx264 -preset veryfast -bf 2 -sc_threshold 0 -g " + length + " -keyint_min " +
           length;
}

[[noreturn]] void give_up(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(1);
}

}  // namespace

const std::vector<Clip>& all_clips() {
    static const std::vector<Clip> clips{
        {"h264_gop30", "1080p H.264, GOP 30", 40, moving_pictures("1920x1080", 4), x264(30)},
        {"h264_gop250", "1080p H.264, GOP 250, B", 40, moving_pictures("1920x1080", 2), x264(250)},
        {"hevc", "1080p HEVC, GOP 60", 20, moving_pictures("1920x1080", 4),
         "-c:v libx265 -preset ultrafast -x265-params "
         "log-level=none:keyint=60:min-keyint=60:scenecut=0:open-gop=0:bframes=2"},
        {"uhd", "4K H.264, GOP 60", 12, moving_pictures("3840x2160", 4), x264(60)},
    };
    return clips;
}

const Clip& small_clip() {
    static const Clip clip{"small", "160x90 H.264, GOP 12", 20, moving_pictures("160x90", 4),
                           x264(12)};
    return clip;
}

const Clip& clip_named(const std::string& name) {
    for (const Clip& clip : all_clips()) {
        if (clip.name == name) {
            return clip;
        }
    }
    give_up("no such clip: " + name);
}

std::string cache_folder() {
    const char* const chosen = std::getenv("FRAMEWELL_BENCH_CACHE");
    const std::filesystem::path folder =
        chosen != nullptr && chosen[0] != '\0'
            ? std::filesystem::path(chosen)
            : std::filesystem::temp_directory_path() / "framewell-bench";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        give_up("cannot make the folder " + folder.string() + ": " + error.message());
    }
    return folder.string();
}

std::string path_of(const Clip& clip) {
    // The name tells clips that are made in another way apart, so none is out of date.
    const std::string seconds = std::to_string(clip.seconds);
    const std::size_t recipe = std::hash<std::string>()(clip.source + clip.encoder);
    const std::string path = cache_folder() + "/" + clip.name + "-" + seconds + "s-" +
                             std::to_string(recipe % 1000000) + ".mp4";
    if (std::filesystem::exists(path)) {
        return path;
    }
    std::fprintf(stderr, "making the clip %s ...\n", path.c_str());
    // Under a name of its own until it is complete: programs may run side by side.
    const std::string part = path + "." + std::to_string(getpid()) + ".mp4";
    const std::string input = " -f lavfi -t " + seconds + " -i ";
    const std::string command = "ffmpeg -hide_banner -loglevel error -nostdin -y" + input + "'" +
                                clip.source + "'" + input + "sine=frequency=440 " + clip.encoder +
                                " -pix_fmt yuv420p -c:a aac '" + part + "'";
    if (std::system(command.c_str()) != 0) {
        std::remove(part.c_str());
        give_up("the program ffmpeg cannot make the clip; it needs libx264 and libx265: " +
                command);
    }
    std::filesystem::rename(part, path);
    return path;
}

}  // namespace bench
