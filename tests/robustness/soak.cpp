// Uses the library the way that hosts do, for as long as is wanted.
//
//     soak load  [OPTION...] [FILE...]    64 decoders on 8 files in 16 threads
//     soak scrub [OPTION...] [FILE...]    whatever comes to the mind of two threads, round by
//     round;
//                                         between rounds, when but two decoders are open that last
//                                         for the whole time, memory is measured
//
// --seconds=N     how long
// --actions=N     instead: as many actions, of each thread of `load` or of each round of `scrub`
// --rounds=N      of `scrub` (default 100)
// --seed=N        what is done depends on it, as far as threads let it
// --hang=SECONDS  the longest that an action may take (default 60)
//
// The last line is "passed" or "failed"; what is wrong stands above it.

#include "tests/robustness/process_state.h"
#include "tests/robustness/soak_actor.h"
#include "tests/robustness/soak_memory.h"
#include "tests/support/media.h"
#include "tests/support/sanitized.h"

#include <framewell/base/logger.h>
#include <framewell/utils/mempool.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <thread>

namespace {

using fw_test::HangWatch;
using fw_test::KnownStream;
using fw_test::mixed_seed;
using fw_test::process_state;
using fw_test::ProcessState;
using fw_test::Seat;
using fw_test::SoakActor;
using fw_test::SoakMemory;
using fw_test::SoakRecord;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kLoadDecoders = 64;
constexpr std::size_t kLoadThreads = 16;
constexpr std::size_t kLoadFiles = 8;
constexpr std::size_t kScrubThreads = 2;

struct Options {
    bool is_load = false;
    double seconds = 300;
    std::uint64_t actions = 0;  // 0: time counts
    std::size_t rounds = 100;
    std::uint64_t seed = 1;
    int hang_seconds = 60;
    std::vector<std::string> files;
};

[[noreturn]] void show_usage() {
    (void)std::fprintf(stderr,
                       "usage: soak load|scrub [--seconds=N | --actions=N] [--rounds=N] "
                       "[--seed=N] [--hang=SECONDS] [FILE...]\n");
    std::exit(2);
}

Options options_of(int argc, char** argv) {
    Options options;
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode != "load" && mode != "scrub") {
        show_usage();
    }
    options.is_load = mode == "load";
    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const std::string value = equals != std::string::npos ? word.substr(equals + 1) : "";
        if (name == "--seconds") {
            options.seconds = std::stod(value);
        } else if (name == "--actions") {
            options.actions = std::stoull(value);
        } else if (name == "--rounds") {
            options.rounds = std::max<std::size_t>(1, std::stoul(value));
        } else if (name == "--seed") {
            options.seed = std::stoull(value);
        } else if (name == "--hang") {
            options.hang_seconds = std::stoi(value);
        } else if (word[0] != '-') {
            options.files.push_back(word);
        } else {
            show_usage();
        }
    }
    return options;
}

std::vector<std::string> default_files(bool is_load) {
    using namespace fw_test;
    std::vector<std::string> files{clip_h264(),        clip_h264_long_gop(), clip_hevc(),
                                   clip_vp9(),         clip_mpeg2_ts(),      clip_mpeg4_avi(),
                                   clip_video_audio(), clip_opus()};
    if (!is_load) {
        for (const auto& clip : {clip_variable_rate(), clip_two_video_two_audio(), clip_aac(),
                                 clip_mp3(), clip_flac(), clip_pcm()}) {
            files.push_back(clip);
        }
    }
    return files;
}

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class Soak {
public:
    explicit Soak(const Options& options)
        : m_options(options),
          m_streams(fw_test::learn_streams(options.files)),
          m_watch(std::chrono::seconds(options.hang_seconds), kLoadThreads + 1),
          m_at_start(process_state()),
          m_started(Clock::now()) {}

    bool run() {
        say("%zu streams of %zu files, %d threads, %d open files, %.1f MB", m_streams.size(),
            m_options.files.size(), m_at_start.threads, m_at_start.files, m_at_start.resident_mb);
        if (m_options.is_load) {
            run_load();
        } else {
            run_scrub();
        }
        expect_nothing_left("the end");
        verify();
        expect_nothing_left("the verification");
        if (!m_options.is_load) {
            judge_memory();
        }
        return report();
    }

private:
    void say(const char* format, ...) const FRAMEWELL_PRINTF(2, 3) {
        std::printf("%7.1f s  ", seconds_since(m_started));
        std::va_list values;
        va_start(values, format);
        (void)std::vprintf(format, values);
        va_end(values);
        std::printf("\n");
        (void)std::fflush(stdout);
    }

    /// Those of thread number `number`.
    SoakActor::Surroundings surroundings(std::size_t number) {
        return {&m_streams, &m_record, &m_watch, number};
    }

    /// Says once a minute that there is progress.
    void tell_progress(const std::function<bool()>& is_done) {
        Clock::time_point told = Clock::now();
        while (!is_done()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            note_busy_memory();
            if (seconds_since(told) >= 60) {
                told = Clock::now();
                const ProcessState now = process_state();
                say("%llu actions, %d threads, %.1f MB%s", actions(), now.threads, now.resident_mb,
                    m_record.has_failed() ? ", FAILURES" : "");
            }
        }
    }

    unsigned long long actions() const { return m_actions.load(); }

    void note_busy_memory() { m_memory.add_busy(process_state().resident_mb); }

    /// Lets actors act, each on a thread of its own, until each has done its number of actions or
    /// the time is over.
    void let_act(std::deque<SoakActor>* actors, double seconds) {
        const Clock::time_point start = Clock::now();
        std::atomic<std::size_t> running{actors->size()};
        std::vector<std::thread> threads;
        for (SoakActor& actor : *actors) {
            threads.emplace_back([&] {
                const std::uint64_t limit = m_options.actions;
                for (std::uint64_t i = 0; limit != 0 ? i < limit : seconds_since(start) < seconds;
                     ++i) {
                    actor.act();
                    ++m_actions;
                }
                actor.come_to_rest();
                --running;
            });
        }
        tell_progress([&] { return running == 0; });
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void open(Seat* seat) {
        if (!seat->decoder->open(seat->stream->record)) {
            m_record.fail(std::string("cannot be opened: ") + seat->stream->record->movie->path);
        }
    }

    // Load

    /// The streams that decoder number `at` may be opened on, file by file: the decoders are spread
    /// over the files, and over the streams of each.
    const KnownStream* stream_for(std::size_t at) const {
        const std::string& path = m_options.files[at % m_options.files.size()];
        std::vector<const KnownStream*> streams;
        for (const KnownStream& stream : m_streams) {
            if (stream.record->movie->path == path) {
                streams.push_back(&stream);
            }
        }
        return streams[(at / m_options.files.size()) % streams.size()];
    }

    void run_load() {
        std::vector<Seat> seats(kLoadDecoders);
        std::vector<Seat*> all;
        for (std::size_t at = 0; at < seats.size(); ++at) {
            seats[at].stream = stream_for(at);
            // One decoder of each thread.
            seats[at].has_effects = at / kLoadThreads == 3;
            open(&seats[at]);
            all.push_back(&seats[at]);
        }
        std::deque<SoakActor> actors;
        for (std::size_t number = 0; number < kLoadThreads; ++number) {
            std::vector<Seat*> own;
            std::vector<Seat*> lent;
            for (std::size_t at = 0; at < all.size(); ++at) {
                (at % kLoadThreads == number ? own : lent).push_back(all[at]);
            }
            actors.emplace_back(surroundings(number), mixed_seed(m_options.seed, number), own,
                                lent);
        }
        let_act(&actors, m_options.seconds);
    }

    // Scrubbing

    void run_scrub() {
        // What grows with every request of a decoder that is never closed is to show, too.
        std::vector<Seat> lasting(kScrubThreads);
        for (std::size_t i = 0; i < lasting.size(); ++i) {
            lasting[i].stream = &m_streams[i];
            lasting[i].is_lasting = true;
            open(&lasting[i]);
            SoakActor(surroundings(i), 0, {&lasting[i]}, {}).come_to_rest();
        }
        m_expected = process_state();
        const double seconds = m_options.seconds / static_cast<double>(m_options.rounds);
        for (std::size_t round = 0; round < m_options.rounds; ++round) {
            scrub_once(round, seconds, &lasting);
            expect_nothing_left("round " + std::to_string(round));
            (void)ff::mem_collection(0);
            fw_test::trim_memory();
            const ProcessState now = process_state();
            m_memory.end_round(now.resident_mb, now.allocated_mb);
            if (seconds_since(m_told) >= 60) {
                m_told = Clock::now();
                say("round %zu of %zu, %llu actions, %s%s", round + 1, m_options.rounds, actions(),
                    m_memory.now().c_str(), m_record.has_failed() ? ", FAILURES" : "");
            }
        }
        m_expected = m_at_start;
    }

    /// Each thread has one of the lasting seats, one more on pictures and one on sound.
    void scrub_once(std::size_t round, double seconds, std::vector<Seat>* lasting) {
        std::deque<std::vector<Seat>> seats;
        std::deque<SoakActor> actors;
        for (std::size_t number = 0; number < kScrubThreads; ++number) {
            const std::uint64_t seed = mixed_seed(mixed_seed(m_options.seed, round), number);
            fw_test::Random random(seed);
            seats.emplace_back(2);
            std::vector<Seat*> own{&(*lasting)[number]};
            for (Seat& seat : seats.back()) {
                seat.stream = any_stream(own.size() < 2, &random);
                open(&seat);
                own.push_back(&seat);
            }
            actors.emplace_back(surroundings(number), seed, own, std::vector<Seat*>{});
        }
        let_act(&actors, seconds);
    }

    const KnownStream* any_stream(bool video, fw_test::Random* random) const {
        for (;;) {
            const KnownStream& stream = m_streams[random->below(m_streams.size())];
            if (stream.is_video() == video) {
                return &stream;
            }
        }
    }

    // Afterwards

    /// Threads and open files are as they were. A thread that has been joined may stay in the
    /// system's list for a moment.
    void expect_nothing_left(const std::string& when) {
        ProcessState now = process_state();
        for (int i = 0;
             i < 200 && (now.threads != m_expected.threads || now.files != m_expected.files); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            now = process_state();
        }
        if (now.threads != m_expected.threads) {
            m_record.fail(std::to_string(now.threads - m_expected.threads) +
                          " threads left behind at " + when);
        }
        if (now.files != m_expected.files) {
            m_record.fail(std::to_string(now.files - m_expected.files) +
                          " open files left behind at " + when);
        }
    }

    void verify() {
        // A sample where a sanitizer makes it slow.
        const std::size_t step = fw_test::kSanitized ? 8 : 1;
        std::size_t pictures = 0;
        std::size_t tenths = 0;
        for (const KnownStream& stream : m_streams) {
            const HangWatch::Step watched(&m_watch, kLoadThreads, "verification");
            for (const std::string& difference : fw_test::differences_in_order(stream, step)) {
                m_record.fail("afterwards: " + difference);
            }
            pictures += (stream.pictures.size() + step - 1) / step;
            tenths += stream.tenths.size();
        }
        say("verified afterwards: %zu pictures, %zu tenths of a second of sound", pictures, tenths);
    }

    void judge_memory() {
        for (const std::string& line : m_memory.table()) {
            say("%s", line.c_str());
        }
        if (fw_test::kSanitized) {
            say("memory is not judged: a sanitizer keeps what is freed");
            return;
        }
        const std::string complaint = m_memory.complaint();
        if (!complaint.empty()) {
            m_record.fail(complaint);
        }
    }

    bool report() {
        for (const std::string& line : m_record.counts()) {
            std::printf("    %s\n", line.c_str());
        }
        const ProcessState now = process_state();
        say("%llu actions, %d threads, %d open files, %.1f MB", actions(), now.threads, now.files,
            now.resident_mb);
        if (m_record.count_of("= pictures compared") == 0) {
            m_record.fail("no picture was ever compared");
        }
        for (const std::string& line : m_record.failures()) {
            std::printf("FAILED: %s\n", line.c_str());
        }
        std::printf("%s\n", m_record.has_failed() ? "failed" : "passed");
        return !m_record.has_failed();
    }

    const Options& m_options;
    const std::vector<KnownStream> m_streams;
    SoakRecord m_record;
    SoakMemory m_memory;
    HangWatch m_watch;
    const ProcessState m_at_start;
    ProcessState m_expected = m_at_start;  // while what lasts is open, with that
    const Clock::time_point m_started;
    Clock::time_point m_told = Clock::now();
    std::atomic<std::uint64_t> m_actions{0};
};

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options = options_of(argc, argv);
        if (options.files.empty()) {
            options.files = default_files(options.is_load);
        }
        if (options.is_load && options.files.size() != kLoadFiles) {
            throw std::runtime_error("the load is 64 decoders on 8 files");
        }
        mox::Logger::instance()->setLevel(mox::MoxLogNone);  // cancelled requests say so, and more
        return Soak(options).run() ? 0 : 1;
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "soak: %s\n", failure.what());
        return 2;
    }
}
