// Makes damaged copies of media files and does with each what a host does, in a process of its own.
// What must not happen is a crash, a hang, a leak, memory without measure, or a result that is
// none.
//
//     damage [OPTION...] [FILE|FOLDER...]
//     damage --replay COPY...
//
// scripts/damage explains the options.

#include "tests/robustness/damage_kinds.h"
#include "tests/robustness/damaged_use.h"
#include "tests/robustness/limited_children.h"
#include "tests/robustness/sanitizer_hooks.h"
#include "tests/robustness/sanitizer_report.h"
#include "tests/support/media.h"
#include "tests/support/temp_folder.h"

#include <framewell/base/logger.h>

extern "C" {
#include <libavutil/log.h>
}

#include <fnmatch.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using fw_test::ChildEnd;
using fw_test::ChildLimits;
using fw_test::DamageKind;
using fw_test::Ending;
using fw_test::LimitedChildren;
using fw_test::mixed_seed;
using fw_test::Random;
using fw_test::Yield;

namespace disk = std::filesystem;

// What ctest takes for "this machine cannot tell": the shared collection is not there.
constexpr int kSkipped = 77;

// What a child returns.
constexpr int kWrongResult = 3;
constexpr int kLeak = 23;

struct Options {
    int copies = 200;
    std::uint64_t seed = 1;
    std::string files = "*";               // glob for file names
    std::uintmax_t largest = UINTMAX_MAX;  // bytes
    std::size_t jobs = 1;
    ChildLimits limits;
    std::string results = "damage-results";
    bool clips = false;
    bool shared = false;
    bool replay = false;
    std::vector<std::string> paths;
};

/// One file to make copies of.
struct Original {
    std::string path;
    std::string bytes;
    std::uint64_t seed = 0;  // by its content, so that copies do not depend on where it lies
};

/// What has come of the copies of one file, or of all.
struct Tally {
    int tried = 0;
    int opened = 0;
    long long requests = 0;
    long long pictures = 0;
    long long spans = 0;
    int failed = 0;
    double cpu_seconds = 0;
    double longest = 0;
    double memory_mb = 0;

    void add(const Yield& yield, const ChildEnd& end) {
        ++tried;
        opened += yield.is_opened ? 1 : 0;
        requests += yield.requests;
        pictures += yield.pictures;
        spans += yield.spans;
        cpu_seconds += end.cpu_seconds;
        longest = std::max(longest, end.cpu_seconds);
        memory_mb = std::max(memory_mb, end.memory_mb);
    }

    void add(const Tally& other) {
        tried += other.tried;
        opened += other.opened;
        requests += other.requests;
        pictures += other.pictures;
        spans += other.spans;
        failed += other.failed;
        cpu_seconds += other.cpu_seconds;
        longest = std::max(longest, other.longest);
        memory_mb = std::max(memory_mb, other.memory_mb);
    }

    void print(const char* name) const {
        std::printf(
            "%s: %d tried, %d opened, %lld requests, %lld pictures, %lld spans, %d failed; "
            "%.1f s, longest %.1f s, at most %.0f MB\n",
            name, tried, opened, requests, pictures, spans, failed, cpu_seconds, longest,
            memory_mb);
        (void)std::fflush(stdout);
    }
};

// FNV-1a
std::uint64_t hash_of(const std::string& bytes) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3U;
    }
    return hash;
}

/// Memory that this process shares with its children: where they write down what they did.
class SharedYields {
public:
    explicit SharedYields(std::size_t count)
        : m_bytes(count * sizeof(Yield)),
          m_memory(
              ::mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (m_memory == MAP_FAILED) {
            throw std::runtime_error("no memory to share");
        }
    }

    SharedYields(const SharedYields&) = delete;
    SharedYields& operator=(const SharedYields&) = delete;

    ~SharedYields() { (void)::munmap(m_memory, m_bytes); }

    Yield& operator[](std::size_t at) { return static_cast<Yield*>(m_memory)[at]; }

private:
    const std::size_t m_bytes;
    void* const m_memory;
};

void write_file(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

/// What a child does with the damaged file at `path`.
int use_file(const std::string& path, std::uint64_t seed, Yield* yield) {
    Random random(seed);
    fw_test::use_damaged_file(path, &random, yield);
    if (fw_test::has_leaks()) {
        return kLeak;
    }
    return yield->wrong != nullptr ? kWrongResult : 0;
}

/// The requests of a copy depend on nothing but these two, which are in the name of one that is
/// kept.
std::uint64_t seed_of_requests(std::uint64_t seed, int copy) {
    return mixed_seed(mixed_seed(seed, 1), static_cast<std::uint64_t>(copy));
}

std::string kept_name(const Original& original, const Options& options, int copy) {
    const disk::path path(original.path);
    return path.stem().string() + ".s" + std::to_string(options.seed) + ".c" +
           std::to_string(copy) + path.extension().string();
}

class DamageRun {
public:
    explicit DamageRun(const Options& options)
        : m_options(options),
          m_yields(options.jobs),
          m_copies(options.jobs),
          m_children(options.jobs) {}

    /// Makes all copies of one file. False if the run is to end.
    bool run(const Original& original) {
        m_original = &original;
        m_tally = Tally{};
        const auto on_end = [this](const ChildEnd& end) { take(end); };
        for (int copy = 0; copy < m_options.copies && !m_children.is_stopped(); ++copy) {
            const std::size_t slot = m_children.free_slot(on_end);
            if (m_children.is_stopped()) {
                break;
            }
            start(slot, copy);
        }
        m_children.wait_for_all(on_end);
        m_tally.print(disk::path(original.path).filename().c_str());
        m_all.add(m_tally);
        return !m_children.is_stopped();
    }

    const Tally& all() const { return m_all; }

    const std::vector<std::string>& failures() const { return m_failures; }

private:
    std::string place(std::size_t slot, const std::string& extension) const {
        return m_folder.path("copy" + std::to_string(slot) + extension);
    }

    std::string extension() const { return disk::path(m_original->path).extension().string(); }

    void start(std::size_t slot, int copy) {
        m_copies[slot] = copy;
        m_yields[slot] = Yield{};
        ChildLimits limits = m_options.limits;
        // What a request may cost grows with what there is to read.
        limits.step_seconds *= std::max(1.0, static_cast<double>(m_original->bytes.size()) / 1e6);
        const auto body = [this, slot, copy] {
            const std::string path = place(slot, extension());
            Random random(mixed_seed(m_original->seed,
                                     mixed_seed(m_options.seed, static_cast<unsigned>(copy))));
            write_file(path, damaged_copy(m_original->bytes, kind_of(copy), &random));
            return use_file(path, seed_of_requests(m_options.seed, copy), &m_yields[slot]);
        };
        m_children.start(slot, limits, place(slot, ".txt"), body,
                         [this, slot] { return m_yields[slot].steps; });
    }

    /// One kind after the other, and not the same first one for every file.
    DamageKind kind_of(int copy) const {
        const std::uint64_t turn = m_original->seed + static_cast<unsigned>(copy);
        return static_cast<DamageKind>(turn % fw_test::kDamageKinds);
    }

    void take(const ChildEnd& end) {
        const Yield& yield = m_yields[end.slot];
        if (end.ending != Ending::Stopped) {
            m_tally.add(yield, end);
            if (end.ending != Ending::Clean) {
                keep(end, yield);
            }
        }
        std::error_code ignored;  // there is none if the child did not get that far
        disk::remove(place(end.slot, extension()), ignored);
    }

    static std::string reason(const ChildEnd& end, const Yield& yield) {
        if (end.ending == Ending::Complaint) {
            return end.status == kLeak          ? "leak"
                   : end.status == kWrongResult ? yield.wrong
                                                : "status " + std::to_string(end.status);
        }
        if (end.ending == Ending::Signal) {
            return "signal " + std::to_string(end.status);
        }
        return name_of(end.ending);
    }

    /// Notes a failure, and keeps the copy with what was printed.
    void keep(const ChildEnd& end, const Yield& yield) {
        ++m_tally.failed;
        const int copy = m_copies[end.slot];
        const std::string name = kept_name(*m_original, m_options, copy);
        std::error_code ignored;  // the report tells the seed, which makes the copy again
        disk::create_directories(m_options.results, ignored);
        disk::copy_file(place(end.slot, extension()), m_options.results + "/" + name,
                        disk::copy_options::overwrite_existing, ignored);
        const std::string printed = fw_test::read_file(place(end.slot, ".txt"));
        const std::string line = name + " (" + name_of(kind_of(copy)) + "): " + reason(end, yield) +
                                 " at: " + yield.step + ". " + fw_test::headline_of_report(printed);
        write_file(m_options.results + "/" + name + ".txt", line + "\n\n" + printed);
        std::printf("    %s\n", line.c_str());
        (void)std::fflush(stdout);
        m_failures.push_back(line);
    }

    const Options& m_options;
    const fw_test::TemporaryFolder m_folder;
    SharedYields m_yields;
    std::vector<int> m_copies;  // by slot: the number of the copy
    LimitedChildren m_children;
    const Original* m_original = nullptr;
    Tally m_tally;
    Tally m_all;
    std::vector<std::string> m_failures;
};

// Files

std::vector<std::string> generated_clips() {
    using namespace fw_test;
    return {clip_h264(),      clip_hevc(),        clip_vp9(),           clip_mpeg2_ts(),
            clip_mpeg4_avi(), clip_raw_h264(),    clip_variable_rate(), clip_two_video_two_audio(),
            clip_subrip(),    clip_video_audio(), clip_aac(),           clip_mp3(),
            clip_flac(),      clip_opus(),        clip_pcm(),           clip_png(),
            clip_jpeg()};
}

std::vector<std::string> files_below(const std::string& path) {
    if (!disk::is_directory(path)) {
        return {path};
    }
    std::vector<std::string> files;
    for (const auto& entry : disk::recursive_directory_iterator(path)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && name[0] != '.') {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::string> paths_of(const Options& options) {
    std::vector<std::string> paths;
    for (const std::string& path : options.paths) {
        const std::vector<std::string> files = files_below(path);
        paths.insert(paths.end(), files.begin(), files.end());
    }
    if (options.clips) {
        const std::vector<std::string> clips = generated_clips();
        paths.insert(paths.end(), clips.begin(), clips.end());
    }
    if (options.shared) {
        for (const std::string& name : fw_test::shared_media_names()) {
            paths.push_back(fw_test::shared_media(name));
        }
    }
    return paths;
}

std::vector<std::string> chosen_paths(const Options& options) {
    std::vector<std::string> paths = paths_of(options);
    const auto is_other = [&](const std::string& path) {
        const std::string name = disk::path(path).filename().string();
        return ::fnmatch(options.files.c_str(), name.c_str(), 0) != 0 ||
               disk::file_size(path) > options.largest;
    };
    paths.erase(std::remove_if(paths.begin(), paths.end(), is_other), paths.end());
    return paths;
}

// Command line

[[noreturn]] void show_usage() {
    (void)std::fprintf(stderr,
                       "usage: damage [--copies=N] [--seed=N] [--files=GLOB] [--largest=BYTES] "
                       "[--jobs=N] [--limit=SECONDS] [--memory=MB]\n"
                       "              [--results=FOLDER] [--clips] [--shared] [FILE|FOLDER...]\n"
                       "       damage --replay COPY...\n");
    std::exit(2);
}

Options options_of(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const std::string value = equals != std::string::npos ? word.substr(equals + 1) : "";
        if (name == "--copies") {
            options.copies = std::stoi(value);
        } else if (name == "--seed") {
            options.seed = std::stoull(value);
        } else if (name == "--files") {
            options.files = value;
        } else if (name == "--largest") {
            options.largest = std::stoull(value);
        } else if (name == "--jobs") {
            options.jobs = static_cast<std::size_t>(std::max(1, std::stoi(value)));
        } else if (name == "--limit") {
            options.limits.step_seconds = std::stod(value);
        } else if (name == "--memory") {
            options.limits.memory_mb = std::stod(value);
        } else if (name == "--results") {
            options.results = value;
        } else if (word == "--clips") {
            options.clips = true;
        } else if (word == "--shared") {
            options.shared = true;
        } else if (word == "--replay") {
            options.replay = true;
        } else if (word[0] != '-') {
            options.paths.push_back(word);
        } else {
            show_usage();
        }
    }
    return options;
}

// The two ways to run

int damage_all(const Options& options) {
    // What a damaged file makes FFmpeg say is as it should be, and would fill the disk.
    av_log_set_level(AV_LOG_QUIET);
    mox::Logger::instance()->setCallback([](const char*, int, const char*, int, const char*) {});
    const std::vector<std::string> paths = chosen_paths(options);
    if (paths.empty()) {
        (void)std::fprintf(stderr, "damage: no files\n");
        return options.shared ? kSkipped : 2;
    }
    DamageRun run(options);
    std::set<std::uint64_t> seen;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        Original original{paths[i], fw_test::read_file(paths[i]), 0};
        original.seed = hash_of(original.bytes);
        if (!seen.insert(original.seed).second) {
            continue;  // tests give several names to one clip
        }
        std::printf("[%zu/%zu] ", i + 1, paths.size());
        if (!run.run(original)) {
            break;
        }
    }
    const Tally& all = run.all();
    for (const std::string& failure : run.failures()) {
        std::printf("FAILED %s\n", failure.c_str());
    }
    all.print((std::to_string(seen.size()) + " files").c_str());
    std::printf("%d passed, %d failed\n", all.tried - all.failed, all.failed);
    return all.failed == 0 ? 0 : 1;
}

/// "name.s1.c17.mp4" -> the seed of the requests that were made of it.
std::uint64_t seed_in_name(const std::string& path) {
    const std::string name = disk::path(path).filename().string();
    const std::size_t copy = name.rfind(".c", name.rfind('.') - 1);
    const std::size_t seed = copy != std::string::npos ? name.rfind(".s", copy - 1) : copy;
    if (seed == std::string::npos) {
        return seed_of_requests(1, 0);
    }
    return seed_of_requests(std::stoull(name.substr(seed + 2)), std::stoi(name.substr(copy + 2)));
}

int replay_all(const Options& options) {
    mox::Logger::instance()->setLevel(mox::MoxLogDebug);
    SharedYields yields(1);
    LimitedChildren children(1);
    int failed = 0;
    for (const std::string& path : options.paths) {
        yields[0] = Yield{};
        children.start(
            0, options.limits, "", [&] { return use_file(path, seed_in_name(path), &yields[0]); },
            [&] { return yields[0].steps; });
        children.wait_for_all([&](const ChildEnd& end) {
            const Yield& yield = yields[0];
            failed += end.ending == Ending::Clean ? 0 : 1;
            std::printf(
                "%s: %s, status %d; last step: %s; %d requests, %d pictures, %d spans, "
                "%.1f s, %.0f MB %s\n",
                path.c_str(), name_of(end.ending), end.status, yield.step, yield.requests,
                yield.pictures, yield.spans, end.cpu_seconds, end.memory_mb,
                yield.wrong != nullptr ? yield.wrong : "");
        });
    }
    std::printf("%zu passed, %d failed\n", options.paths.size() - static_cast<std::size_t>(failed),
                failed);
    return failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = options_of(argc, argv);
        return options.replay ? replay_all(options) : damage_all(options);
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "damage: %s\n", failure.what());
        return 2;
    }
}
