#include "tests/robustness/soak_actor.h"

#include <framewell/framewell.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <numeric>
#include <thread>
#include <utility>

namespace fw_test {

namespace {

constexpr std::size_t kShownFailures = 20;
constexpr std::size_t kKept = 6;

std::string place_of(const KnownStream& stream) {
    const std::string path = stream.record->movie->path;
    return path.substr(path.rfind('/') + 1) + ", stream " + std::to_string(stream.record->index);
}

/// Tells when a request in the background is over, be it answered, replaced or dropped: nobody has
/// its callback any more.
class Over {
public:
    /// What the callback is to carry.
    std::shared_ptr<void> token() {
        return {this, [](void* over) { static_cast<Over*>(over)->set(); }};
    }

    void wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_is_over; });
    }

private:
    void set() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_is_over = true;
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_is_over = false;  // guarded by m_mutex
};

}  // namespace

// The record

void SoakRecord::fail(const std::string& what) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (++m_failed <= kShownFailures) {
        m_failures.push_back(what);
    }
}

void SoakRecord::count(const char* what, std::uint64_t times) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto at =
        std::lower_bound(m_counts.begin(), m_counts.end(), what,
                         [](const Entry& entry, const char* name) { return entry.name < name; });
    if (at != m_counts.end() && at->name == what) {
        at->times += times;
    } else {
        m_counts.insert(at, {what, times});
    }
}

bool SoakRecord::has_failed() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_failed > 0;
}

std::vector<std::string> SoakRecord::failures() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> lines = m_failures;
    if (m_failed > lines.size()) {
        lines.push_back("and " + std::to_string(m_failed - lines.size()) + " more");
    }
    return lines;
}

std::vector<std::string> SoakRecord::counts() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> lines;
    for (const Entry& entry : m_counts) {
        lines.push_back(entry.name + " " + std::to_string(entry.times));
    }
    return lines;
}

std::uint64_t SoakRecord::count_of(const std::string& what) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const Entry& entry : m_counts) {
        if (entry.name == what) {
            return entry.times;
        }
    }
    return 0;
}

// Choosing

struct SoakActor::Action {
    const char* name;
    std::size_t weight;
    void (SoakActor::*run)();
};

const std::vector<SoakActor::Action>& SoakActor::actions() {
    static const std::vector<Action> s_actions{
        {"picture", 8, &SoakActor::ask_for_a_picture},
        {"small picture", 8, &SoakActor::ask_for_a_small_picture},
        {"steps forwards", 3, &SoakActor::step_forwards},
        {"drag", 4, &SoakActor::drag},
        {"ask and close", 2, &SoakActor::ask_and_close},
        {"sound", 6, &SoakActor::ask_for_sound},
        {"sound in order", 3, &SoakActor::play_sound},
        {"sound in the background", 2, &SoakActor::ask_for_sound_in_the_background},
        {"seek", 2, &SoakActor::seek},
        {"reopen", 2, &SoakActor::reopen},
        {"move", 2, &SoakActor::move},
        {"begin anew", 1, &SoakActor::begin_anew},
        {"second decoder", 2, &SoakActor::use_a_second_decoder},
        {"effects", 2, &SoakActor::use_effects},
        {"change effects", 1, &SoakActor::change_effects},
        {"cancel", 2, &SoakActor::cancel},
        {"cover", 1, &SoakActor::ask_for_a_cover},
        {"probe", 1, &SoakActor::probe},
        {"mix", 1, &SoakActor::mix},
        {"tidy", 1, &SoakActor::tidy}};
    return s_actions;
}

SoakActor::SoakActor(const Surroundings& surroundings, std::uint64_t seed, std::vector<Seat*> own,
                     std::vector<Seat*> lent)
    : m_around(surroundings), m_random(seed), m_own(std::move(own)), m_lent(std::move(lent)) {}

void SoakActor::act() {
    static const std::size_t s_weights =
        std::accumulate(actions().begin(), actions().end(), std::size_t{0},
                        [](std::size_t sum, const Action& action) { return sum + action.weight; });
    std::size_t choice = m_random.below(s_weights);
    const Action* chosen = actions().data();
    while (choice >= chosen->weight) {
        choice -= chosen->weight;
        ++chosen;
    }
    const HangWatch::Step step(m_around.watch, m_around.slot, chosen->name);
    (this->*chosen->run)();
    m_around.record->count(chosen->name);
}

void SoakActor::come_to_rest() {
    const HangWatch::Step step(m_around.watch, m_around.slot, "coming to rest");
    m_kept.clear();
    for (const Seat* const seat : m_own) {
        if (!seat->is_lasting) {
            continue;
        }
        // When the newest request in the background is over, none is left.
        Over over;
        if (seat->stream->is_video()) {
            seat->decoder->getVideoFrameAsync(
                known_picture_at(*seat->stream, seat->stream->pictures[0].from),
                [token = over.token()](const auto&) {});
        } else {
            seat->decoder->getAudioFrameAsync(known_tenth(*seat->stream, 0),
                                              [token = over.token()](const auto&) {});
        }
        over.wait();
    }
}

Seat* SoakActor::any_seat(bool video) {
    if (!m_lent.empty() && m_random.once_in(3)) {
        Seat* const seat = m_lent[m_random.below(m_lent.size())];
        if (seat->stream->is_video() == video) {
            return seat;
        }
    }
    return own_seat(video);
}

/// Null if the actor has none of that kind.
Seat* SoakActor::own_seat(bool video) {
    const std::size_t first = m_random.below(m_own.size());
    for (std::size_t i = 0; i < m_own.size(); ++i) {
        Seat* const seat = m_own[(first + i) % m_own.size()];
        if (seat->stream->is_video() == video) {
            if (!seat->decoder->isOpened() && !seat->decoder->open(seat->stream->record)) {
                complain(*seat->stream, "cannot be opened");
            }
            return seat;
        }
    }
    return nullptr;
}

/// One of the actor's own that may be closed.
Seat* SoakActor::passing_seat() {
    Seat* const seat = m_own[m_random.below(m_own.size())];
    return seat->is_lasting ? nullptr : seat;
}

bool SoakActor::is_own(const Seat& seat) const {
    return std::find(m_own.begin(), m_own.end(), &seat) != m_own.end();
}

const KnownStream& SoakActor::any_stream(bool video) {
    const std::vector<KnownStream>& streams = *m_around.streams;
    for (;;) {
        const KnownStream& stream = streams[m_random.below(streams.size())];
        if (stream.is_video() == video) {
            return stream;
        }
    }
}

std::size_t SoakActor::any_picture(const KnownStream& stream) {
    return m_random.below(stream.pictures.size());
}

std::int64_t SoakActor::any_tick(const KnownPicture& picture) {
    return picture.from + m_random.between(0, picture.until - picture.from - 1);
}

// Comparing

void SoakActor::complain(const KnownStream& stream, const std::string& what) {
    m_around.record->fail(place_of(stream) + ": " + what);
}

void SoakActor::compare(const Seat& seat, std::size_t number, const ff::VFrameCtx* got,
                        bool whole) {
    const KnownPicture& known = seat.stream->pictures[number];
    if (got == nullptr) {
        if (is_known_to_answer(seat)) {
            complain(*seat.stream, "no picture " + std::to_string(number));
        }
        return;
    }
    m_around.record->count("= pictures");
    if (seat.has_effects) {
        return;
    }
    if (got->pts != known.pts_us) {
        complain(*seat.stream, "picture " + std::to_string(number) + " has the time " +
                                   std::to_string(got->pts) + " us instead of " +
                                   std::to_string(known.pts_us));
    } else if (whole) {
        m_around.record->count("= pictures compared");
        if (md5_of_picture(got) != known.md5) {
            complain(*seat.stream, "picture " + std::to_string(number) + " differs");
        }
    }
}

void SoakActor::compare(const Seat& seat, std::size_t tenth, const ff::AFrameCtx* got) {
    if (got == nullptr) {
        if (is_known_to_answer(seat)) {
            complain(*seat.stream, "no sound in tenth " + std::to_string(tenth));
        }
        return;
    }
    m_around.record->count("= spans");
    // Who else asks a lent decoder may change its run between two requests, but not one answer.
    if (!seat.has_effects && md5_of_sound(got) != seat.stream->tenths[tenth]) {
        complain(*seat.stream, "tenth " + std::to_string(tenth) + " differs");
    }
}

void SoakActor::keep(std::shared_ptr<ff::VFrameCtx> picture) {
    if (m_kept.size() >= kKept) {
        m_kept.erase(m_kept.begin() + static_cast<std::ptrdiff_t>(m_random.below(m_kept.size())));
    }
    m_kept.push_back(std::move(picture));
}

// Pictures

void SoakActor::ask_for_a_picture() {
    Seat* const seat = any_seat(true);
    if (seat == nullptr) {
        return;
    }
    const std::size_t number = any_picture(*seat->stream);
    const auto got = seat->decoder->getVideoFrame(
        known_picture_at(*seat->stream, any_tick(seat->stream->pictures[number])));
    compare(*seat, number, got.get(), true);
    keep(got);
}

void SoakActor::ask_for_a_small_picture() {
    Seat* const seat = any_seat(true);
    if (seat == nullptr) {
        return;
    }
    const std::size_t number = any_picture(*seat->stream);
    ff::RequireVideoFrame request =
        known_picture_at(*seat->stream, any_tick(seat->stream->pictures[number]));
    request.format = m_random.once_in(2) ? ff::PixelFormat::Rgba : ff::PixelFormat::Nv12;
    request.divider = static_cast<std::int32_t>(m_random.between(2, 8));
    compare(*seat, number, seat->decoder->getVideoFrame(request).get(), false);
}

void SoakActor::step_forwards() {
    Seat* const seat = any_seat(true);
    if (seat == nullptr) {
        return;
    }
    const std::size_t first = any_picture(*seat->stream);
    const std::size_t end = std::min(first + 12, seat->stream->pictures.size());
    for (std::size_t number = first; number < end; ++number) {
        const auto got = seat->decoder->getVideoFrame(
            known_picture_at(*seat->stream, seat->stream->pictures[number].from));
        compare(*seat, number, got.get(), number % 4 == 0);
    }
}

/// A host's mouse: the first and the newest request are answered.
void SoakActor::drag() {
    Seat* const seat = own_seat(true);
    if (seat == nullptr) {
        return;
    }
    const KnownStream& stream = *seat->stream;
    std::size_t number = any_picture(stream);
    Over over;
    for (int i = 0; i < 8; ++i) {
        number = std::min(number + m_random.below(10), stream.pictures.size() - 1);
        ff::RequireVideoFrame request = known_picture_at(stream, stream.pictures[number].from);
        request.divider = i < 7 ? 4 : 1;
        // The last one tells when it is over; the seat is this actor's, so it stays what it is.
        seat->decoder->getVideoFrameAsync(
            request, [this, seat, number, i, token = i == 7 ? over.token() : nullptr](
                         const std::shared_ptr<ff::VFrameCtx>& got) {
                compare(*seat, number, got.get(), i == 7);
                m_around.record->count("= answers in the background");
            });
    }
    over.wait();
}

void SoakActor::ask_and_close() {
    Seat* const seat = own_seat(true);
    if (seat == nullptr || seat->is_lasting) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        const std::size_t number = any_picture(*seat->stream);
        seat->decoder->getVideoFrameAsync(
            known_picture_at(*seat->stream, seat->stream->pictures[number].from),
            [this, seat, number](const std::shared_ptr<ff::VFrameCtx>& got) {
                compare(*seat, number, got.get(), false);
                m_around.record->count("= answers in the background");
            });
    }
    std::this_thread::sleep_for(std::chrono::microseconds(m_random.below(3000)));
    seat->decoder->close();
}

// Sound

void SoakActor::ask_for_sound() {
    Seat* const seat = any_seat(false);
    if (seat == nullptr) {
        return;
    }
    const std::size_t tenth = m_random.below(seat->stream->tenths.size());
    compare(*seat, tenth, seat->decoder->getAudioFrame(known_tenth(*seat->stream, tenth)).get());
}

void SoakActor::play_sound() {
    Seat* const seat = any_seat(false);
    if (seat == nullptr) {
        return;
    }
    const std::size_t first = m_random.below(seat->stream->tenths.size());
    const std::size_t end = std::min(first + 8, seat->stream->tenths.size());
    for (std::size_t tenth = first; tenth < end; ++tenth) {
        compare(*seat, tenth,
                seat->decoder->getAudioFrame(known_tenth(*seat->stream, tenth)).get());
    }
}

void SoakActor::ask_for_sound_in_the_background() {
    Seat* const seat = own_seat(false);
    if (seat == nullptr) {
        return;
    }
    const std::size_t tenth = m_random.below(seat->stream->tenths.size());
    Over over;
    seat->decoder->getAudioFrameAsync(
        known_tenth(*seat->stream, tenth),
        [this, seat, tenth, token = over.token()](const std::shared_ptr<ff::AFrameCtx>& got) {
            compare(*seat, tenth, got.get());
            m_around.record->count("= answers in the background");
        });
    over.wait();
}

// Decoders

void SoakActor::seek() {
    Seat* const seat = any_seat(!m_random.once_in(3));
    if (seat != nullptr) {
        seat->decoder->pri_seek({m_random.between(0, 60), 20}, m_random.once_in(2));
    }
}

void SoakActor::reopen() {
    Seat* const seat = passing_seat();
    if (seat == nullptr) {
        return;
    }
    seat->decoder->close();
    const bool was_open = seat->decoder->streamContex() != nullptr;  // not since it began anew
    if (was_open ? !seat->decoder->reopen() : !seat->decoder->open(seat->stream->record)) {
        complain(*seat->stream, "cannot be reopened");
    }
}

/// To another stream of the same kind, without a close.
void SoakActor::move() {
    Seat* const seat = passing_seat();
    if (seat == nullptr || !is_alone()) {
        return;  // whoever asks it meanwhile must know what it answers from
    }
    const KnownStream& stream = any_stream(seat->stream->is_video());
    if (&stream != seat->stream && !seat->decoder->open(stream.record)) {
        complain(stream, "cannot be moved to");
    }
    seat->stream = &stream;
}

void SoakActor::begin_anew() {
    Seat* const seat = passing_seat();
    if (seat == nullptr || !is_alone()) {
        return;  // others may be using it
    }
    seat->decoder = std::make_unique<ff::FFDecoder2>();
}

void SoakActor::use_a_second_decoder() {
    Seat second;
    second.stream = &any_stream(!m_random.once_in(4));
    if (!second.decoder->open(second.stream->record)) {
        complain(*second.stream, "cannot be opened twice");
        return;
    }
    for (int i = 0; i < 3; ++i) {
        if (!second.stream->is_video()) {
            const std::size_t tenth = m_random.below(second.stream->tenths.size());
            const auto got = second.decoder->getAudioFrame(known_tenth(*second.stream, tenth));
            m_around.record->count("= spans");
            if (md5_of_sound(got.get()) != second.stream->tenths[tenth]) {
                complain(*second.stream, "a second decoder's sound differs");
            }
            continue;
        }
        const std::size_t number = any_picture(*second.stream);
        const KnownPicture& known = second.stream->pictures[number];
        const auto got =
            second.decoder->getVideoFrame(known_picture_at(*second.stream, known.from));
        m_around.record->count("= pictures");
        if (md5_of_picture(got.get()) != known.md5) {
            complain(*second.stream, "a second decoder's picture differs");
        }
    }
}

void SoakActor::use_effects() {
    const bool video = m_random.once_in(2);
    const KnownStream& stream = any_stream(video);
    ff::FFDecoder2 decoder;
    if (!decoder.open(stream.record)) {
        complain(stream, "cannot be opened for effects");
        return;
    }
    (void)decoder.setSpeed(static_cast<double>(m_random.between(50, 300)) / 100);
    if (video) {
        decoder.setRevert(m_random.once_in(2));
    }
    static constexpr const char* kFilters[] = {"", "hflip", "volume=0.5", "nosuchfilter"};
    (void)decoder.setFilters(kFilters[m_random.below(std::size(kFilters))]);
    for (int i = 0; i < 4; ++i) {
        const std::int64_t tenth = m_random.between(0, 20);
        if (video) {
            ff::RequireVideoFrame request;
            request.time = {tenth, 10};
            request.divider = 2;
            keep(decoder.getVideoFrame(request));
        } else {
            ff::RequireAudioFrame request;
            request.range = {{tenth, 10}, {tenth + 1, 10}};
            (void)decoder.getAudioFrame(request);  // a filter that looks ahead gives none at first
        }
    }
}

void SoakActor::change_effects() {
    const auto with_effects = std::find_if(m_own.begin(), m_own.end(),
                                           [](const Seat* seat) { return seat->has_effects; });
    if (with_effects == m_own.end()) {
        return;
    }
    ff::FFDecoder2& decoder = *(*with_effects)->decoder;
    (void)decoder.setSpeed(static_cast<double>(m_random.between(50, 300)) / 100);
    decoder.setRevert(m_random.once_in(2));
    (void)decoder.setFilters(m_random.once_in(2)                   ? nullptr
                             : (*with_effects)->stream->is_video() ? "hflip"
                                                                   : "volume=0.5");
}

/// From another thread, while the request waits, decodes or is already done.
void SoakActor::cancel() {
    Seat* const seat = any_seat(true);
    if (seat == nullptr) {
        return;
    }
    const std::size_t number = any_picture(*seat->stream);
    std::atomic<bool> flag{false};
    std::thread canceller([&flag, pause = m_random.below(4000)] {
        std::this_thread::sleep_for(std::chrono::microseconds(pause));
        flag = true;
    });
    ff::RequireVideoFrame request =
        known_picture_at(*seat->stream, seat->stream->pictures[number].from);
    request.abort_flag = &flag;
    const auto got = seat->decoder->getVideoFrame(request);
    canceller.join();
    if (got != nullptr) {
        compare(*seat, number, got.get(), true);
    } else {
        m_around.record->count("= cancelled");
    }
}

// The rest of the library

void SoakActor::ask_for_a_cover() {
    const KnownStream& stream = any_stream(true);
    if (stream.record->movie->nb_video > 1) {
        return;  // of these decoders stay open, with their threads and files
    }
    ff::RequireMvImage request;
    request.ratio = static_cast<double>(m_random.below(100)) / 100;
    request.max_width = 160;
    request.max_height = 120;
    ff::Rational duration{0, 1};
    const auto cover = ff::getMovieImage(stream.record->movie->path, request, &duration);
    if (cover == nullptr || duration.num <= 0) {
        complain(stream, "no cover");
    }
}

void SoakActor::probe() {
    const KnownStream& stream = any_stream(m_random.once_in(2));
    if (ff::FFDecoder::probe(stream.record->movie->path, nullptr) != stream.record->movie) {
        complain(stream, "probed anew");
    }
}

void SoakActor::mix() {
    const KnownStream& first = any_stream(false);
    const KnownStream& second = any_stream(false);
    ff::FFDecoder decoders[2];
    (void)decoders[0].open(first.record);  // a source that is not open is silent
    (void)decoders[1].open(second.record);
    ff::AudioMixer mixer(48000, 2, ff::SampleFormat::S16);
    const std::int64_t start = m_random.between(0, 20);
    for (std::int64_t i = start; i < start + 3; ++i) {
        ff::RequireAudioFrame request;
        request.range = {{i, 10}, {i + 1, 10}};
        request.sample_rate = 48000;
        mixer.begin(request.range);
        for (ff::FFDecoder& decoder : decoders) {
            mixer.getBuffer(&decoder)->write(decoder.getAudioFrame(request), 96);
        }
        const std::shared_ptr<ff::PcmBuffer> block = mixer.end();
        if (block == nullptr || block->size != 4800 * 4) {
            complain(first, "a block of the mixer has not the samples of its range");
        }
    }
}

void SoakActor::tidy() {
    (void)ff::mem_collection(static_cast<unsigned>(m_random.below(2000)));
    if (m_random.once_in(2)) {
        m_kept.clear();
    }
}

}  // namespace fw_test
