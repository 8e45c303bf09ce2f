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
    (void)std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread ends the program
}

/// Returns the path of a file that ffmpeg makes with `arguments`, if it is not there. Its name
/// carries the recipe's hash: files that are made in another way are others, so none is out of
/// date.
std::string make_once(const std::string& name, std::size_t recipe, const std::string& ending,
                      const std::string& arguments) {
    std::string path =
        cache_folder() + "/" + name + "-" + std::to_string(recipe % 1000000) + "." + ending;
    if (std::filesystem::exists(path)) {
        return path;
    }
    (void)std::fprintf(stderr, "making the clip %s ...\n", path.c_str());
    // Under a name of its own until it is complete: programs may run side by side.
    const std::string part = path + "." + std::to_string(getpid()) + "." + ending;
    const std::string command =
        "ffmpeg -hide_banner -loglevel error -nostdin -y" + arguments + " '" + part + "'";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): clips are made before other threads run
    if (std::system(command.c_str()) != 0) {
        (void)std::remove(part.c_str());
        give_up(
            "the program ffmpeg cannot make the clip; it needs libx264, libx265, libmp3lame and "
            "libopus: " +
            command);
    }
    std::filesystem::rename(part, path);
    return path;
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

const Clip& long_gop_clip() {
    static const Clip clip{"long_gop", "640x360 H.264, GOP 250, B", 40,
                           moving_pictures("640x360", 4), x264(250)};
    return clip;
}

const std::vector<SoundClip>& sound_clips() {
    // Without noise substitution: that noise depends on all that was decoded before, so what is
    // decoded from two places could not be compared.
    static const std::vector<SoundClip> clips{
        {"aac", "AAC", "m4a", 60, 44100, "-c:a aac -b:a 160k -aac_pns 0"},
        {"mp3", "MP3", "mp3", 60, 44100, "-c:a libmp3lame -b:a 160k"},
        {"opus", "Opus", "opus", 60, 48000, "-c:a libopus -b:a 128k"},
        {"flac", "FLAC", "flac", 60, 44100, "-c:a flac -sample_fmt s16"},
    };
    return clips;
}

const Clip& clip_named(std::string_view name) {
    for (const Clip& clip : all_clips()) {
        if (clip.name == name) {
            return clip;
        }
    }
    give_up("no such clip: " + std::string(name));
}

std::string cache_folder() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here writes the environment
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
    const std::string seconds = std::to_string(clip.seconds);
    const std::string input = " -f lavfi -t " + seconds + " -i ";
    return make_once(clip.name + "-" + seconds + "s",
                     std::hash<std::string>()(clip.source + clip.encoder), "mp4",
                     input + "'" + clip.source + "'" + input + "sine=frequency=440 " +
                         clip.encoder + " -pix_fmt yuv420p -c:a aac");
}

std::string path_of(const SoundClip& clip) {
    const std::string seconds = std::to_string(clip.seconds);
    const std::string rate = std::to_string(clip.sample_rate);
    const std::string source =
        "aevalsrc='0.3*sin(2*PI*t*(220+110*sin(t)))+0.1*(random(0)-0.5)|"
        "0.3*sin(2*PI*t*(330+90*cos(t)))+0.1*(random(1)-0.5)':s=" +
        rate;
    const std::string recipe = "-f lavfi -t " + seconds + " -i \"" + source + "\" " + clip.encoder;
    return make_once(clip.name + "-" + seconds + "s", std::hash<std::string>()(recipe), clip.ending,
                     " " + recipe);
}

}  // namespace bench
