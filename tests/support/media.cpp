#include "tests/support/media.h"

#include "media/ff_compat.h"

extern "C" {
#include <libavutil/md5.h>
}

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace fw_test {

namespace {

/// Holds the lock file of one clip, across threads and processes.
class FileLock {
public:
    explicit FileLock(const std::string& path)
        : m_fd(::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666)) {
        if (m_fd < 0 || ::flock(m_fd, LOCK_EX) != 0) {
            throw std::runtime_error("cannot lock " + path);
        }
    }

    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    ~FileLock() { ::close(m_fd); }

private:
    int m_fd;
};

std::string quoted(const std::string& word) {
    std::string result = "'";
    for (const char c : word) {
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return result + "'";
}

/// Runs a shell command; throws with what it printed if it fails.
std::string output_of(const std::string& command) {
    FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot start: " + command);
    }
    std::string output;
    char part[65536];
    for (std::size_t n = 0; (n = std::fread(part, 1, sizeof part, pipe)) > 0;) {
        output.append(part, n);
    }
    const int status = ::pclose(pipe);
    if (status == 0) {
        return output;
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) {
        throw std::runtime_error("a program is missing, run scripts/install-deps: " + output);
    }
    throw std::runtime_error("failed: " + command + "\n" + output);
}

std::string clip_folder() {
    const char* const chosen = std::getenv("FRAMEWELL_CLIP_DIR");
    if (chosen != nullptr && *chosen != '\0') {
        return chosen;
    }
#ifdef FRAMEWELL_CLIP_FOLDER
    return FRAMEWELL_CLIP_FOLDER;
#else
    return std::filesystem::temp_directory_path() / "framewell-clips";
#endif
}

/// Returns the path of the file `name` that `make(path)` writes. `key` is all that the content
/// depends on: another key is another file. A file is made under another name and then renamed, so
/// that one that exists is whole.
std::string make_once(const std::string& name, const std::string& key,
                      const std::function<void(const std::string&)>& make) {
    const std::string folder = clip_folder() + "/" + md5_hex(key.data(), key.size()).substr(0, 12);
    const std::string path = folder + "/" + name;
    std::filesystem::create_directories(folder);
    const FileLock lock(folder + "/.lock");
    if (!std::filesystem::exists(path)) {
        const std::string unfinished = folder + "/unfinished-" + name;
        make(unfinished);
        std::filesystem::rename(unfinished, path);
    }
    return path;
}

void write_file(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

// Inputs of the clips. The noise makes neighbouring pictures differ everywhere, not only where the
// test pattern moves.
std::string video_input(const std::string& size, const std::string& rate,
                        const std::string& seconds) {
    return "-f lavfi -i testsrc2=size=" + size + ":rate=" + rate + ":duration=" + seconds +
           ",noise=alls=8:allf=t:all_seed=7,format=yuv420p ";
}

std::string audio_input(const std::string& seconds, const std::string& rate = "44100") {
    return "-f lavfi -i \"aevalsrc=0.4*sin(2*PI*(200+150*t)*t)|0.4*sin(2*PI*(900-100*t)*t):s=" +
           rate + ":d=" + seconds + "\" ";
}

// One thread, so that every machine makes the same file.
const std::string kX264 = "-c:v libx264 -preset veryfast -threads 1 -bf 2 ";

}  // namespace

std::string make_clip(const std::string& name, const std::string& arguments) {
    return make_once(name, arguments, [&](const std::string& path) {
        (void)output_of("ffmpeg -hide_banner -loglevel error -nostdin -y " + arguments + " " +
                        quoted(path));
    });
}

std::string make_file(const std::string& name, const std::string& bytes) {
    return make_once(name, bytes, [&](const std::string& path) { write_file(path, bytes); });
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string clip_h264() {
    return make_clip("h264.mp4", video_input("320x240", "30", "4") + kX264 + "-g 30");
}

std::string clip_h264_long_gop() {
    return make_clip("h264_long_gop.mp4",
                     video_input("320x240", "30", "20") + kX264 + "-g 250 -sc_threshold 0");
}

std::string clip_hevc() {
    return make_clip("hevc.mp4",
                     video_input("320x240", "30", "4") +
                         "-c:v libx265 -preset ultrafast -g 30 "
                         "-x265-params log-level=error:pools=1:frame-threads=1 -tag:v hvc1");
}

std::string clip_vp9() {
    return make_clip("vp9.webm", video_input("320x240", "30", "4") +
                                     "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 "
                                     "-threads 1 -g 30 -b:v 500k");
}

std::string clip_mpeg2_ts() {
    return make_clip("mpeg2.ts", video_input("320x240", "30", "4") +
                                     "-c:v mpeg2video -threads 1 -g 15 -bf 2 -q:v 4");
}

std::string clip_mpeg4_avi() {
    return make_clip("mpeg4.avi",
                     video_input("320x240", "25", "4") + "-c:v mpeg4 -threads 1 -g 25 -q:v 4");
}

std::string clip_raw_h264() {
    return make_clip("raw.h264", video_input("320x240", "30", "4") + kX264 + "-g 30 -f h264");
}

std::string clip_variable_rate() {
    // Keeps the pictures whose number modulo 11 is one of these: gaps of 1 to 5 pictures.
    const std::string kept =
        "select='not(mod(n\\,11))+eq(mod(n\\,11)\\,1)+eq(mod(n\\,11)\\,6)"
        "+eq(mod(n\\,11)\\,8)'";
    return make_clip("variable_rate.mkv", video_input("320x240", "30", "6") + "-vf \"" + kept +
                                              "\" -vsync vfr " + kX264 + "-g 10");
}

std::string clip_two_video_two_audio() {
    return make_clip("two_video_two_audio.mp4",
                     video_input("320x240", "30", "3") + video_input("160x120", "25", "3") +
                         audio_input("3") +
                         "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=3 "
                         "-map 0:v -map 1:v -map 2:a -map 3:a " +
                         kX264 + "-g 30 -c:a aac");
}

std::string clip_subrip() {
    const std::string events = make_file("events.srt",
                                         "1\n00:00:00,500 --> 00:00:01,000\nFirst line\n\n"
                                         "2\n00:00:01,250 --> 00:00:02,000\nSecond\nin two\n\n"
                                         "3\n00:00:02,000 --> 00:00:02,900\n<i>Third</i>\n\n");
    return make_clip("subrip.mkv", video_input("320x240", "30", "3") + "-i " + quoted(events) +
                                       " -map 0:v -map 1:s -c:s srt " + kX264 + "-g 30");
}

std::string clip_video_audio() {
    return make_clip("video_audio.mp4", video_input("320x240", "30", "4") + audio_input("4") +
                                            "-map 0:v -map 1:a " + kX264 + "-g 30 -c:a aac");
}

std::string clip_aac() {
    return make_clip("sound.m4a", audio_input("3") + "-c:a aac");
}

std::string clip_mp3() {
    return make_clip("sound.mp3", audio_input("3") + "-c:a libmp3lame");
}

std::string clip_flac() {
    return make_clip("sound.flac", audio_input("3") + "-c:a flac");
}

std::string clip_opus() {
    return make_clip("sound.opus", audio_input("3", "48000") + "-c:a libopus");
}

std::string clip_pcm() {
    return make_clip("sound.wav", audio_input("3") + "-c:a pcm_s16le");
}

std::string clip_png() {
    return make_clip("still.png", video_input("320x240", "1", "1") + "-frames:v 1 -pix_fmt rgb24");
}

std::string clip_jpeg() {
    return make_clip("still.jpg",
                     video_input("320x240", "1", "1") + "-frames:v 1 -pix_fmt yuvj420p -q:v 3");
}

std::vector<ReferenceFrame> reference_frames(const std::string& path, int stream) {
    // -vsync is understood from 4.2 to 7.1, unlike the name that replaced it.
    const std::string command =
        "ffmpeg -hide_banner -loglevel quiet -nostdin -threads 1 -noautorotate -copyts -i " +
        quoted(path) + " -map 0:" + std::to_string(stream) +
        " -vsync passthrough -enc_time_base -1 -f framemd5 -";
    const auto changed = std::filesystem::last_write_time(path).time_since_epoch().count();
    const std::string key =
        command + std::to_string(std::filesystem::file_size(path)) + " " + std::to_string(changed);
    const std::string list = make_once("frames.md5", key, [&](const std::string& unfinished) {
        write_file(unfinished, output_of(command));
    });

    // Lines: stream, dts, pts, duration, size, md5. Comments begin with '#'.
    std::vector<ReferenceFrame> frames;
    std::istringstream lines(read_file(list));
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream words(line);
        std::string number, dts, duration, size;
        ReferenceFrame frame;
        if (!(words >> number >> dts >> frame.pts >> duration >> size >> frame.md5)) {
            throw std::runtime_error("not a line of framemd5: " + line);
        }
        frames.push_back(frame);
    }
    if (frames.empty()) {
        throw std::runtime_error("no pictures came from: " + command);
    }
    return frames;
}

std::string md5_hex(const void* data, std::size_t size) {
    AVMD5* const md5 = av_md5_alloc();
    if (md5 == nullptr) {
        throw std::bad_alloc();
    }
    // In parts of a 16-bit length, because the parameter was an int before 5.0 and is a size_t
    // since.
    av_md5_init(md5);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    while (size > 0) {
        const auto part = static_cast<std::uint16_t>(std::min<std::size_t>(size, 65535));
        av_md5_update(md5, bytes, part);
        bytes += part;
        size -= part;
    }
    std::uint8_t digest[16];
    av_md5_final(md5, digest);
    av_free(md5);

    std::string text;
    for (const std::uint8_t byte : digest) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

}  // namespace fw_test
