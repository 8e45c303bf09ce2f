#pragma once

#include "tests/robustness/hang_watch.h"
#include "tests/robustness/known_media.h"
#include "tests/robustness/random.h"

#include <framewell/ffdecoder2.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace fw_test {

/// What a soak has found and done. Thread-safety: safe.
class SoakRecord {
public:
    /// Notes something that must not be.
    void fail(const std::string& what);

    /// Notes one more of something.
    void count(const char* what, std::uint64_t times = 1);

    bool has_failed() const;
    std::vector<std::string> failures() const;

    /// "name count" for everything that was counted, by name.
    std::vector<std::string> counts() const;
    std::uint64_t count_of(const std::string& what) const;

private:
    struct Entry {
        std::string name;
        std::uint64_t times;
    };

    mutable std::mutex m_mutex;
    std::uint64_t m_failed = 0;           // guarded by m_mutex
    std::vector<std::string> m_failures;  // guarded by m_mutex: the first of them
    std::vector<Entry> m_counts;          // guarded by m_mutex, by name
};

/// A decoder that is open on one stream.
struct Seat {
    std::unique_ptr<ff::FFDecoder2> decoder = std::make_unique<ff::FFDecoder2>();
    const KnownStream* stream = nullptr;
    bool has_effects = false;  ///< then nothing is known about what it answers
    bool is_lasting = false;   ///< never closed, moved or destroyed by an actor
};

/// One thread of a host that does what comes to its mind, and looks at every answer. What decoders
/// without effects answer is compared with what is known of the stream: the time of each picture,
/// and every byte of most.
///
/// An actor owns seats, which nobody else closes or moves, and may be lent seats of others, which
/// it only asks. Of a lent seat an answer may be missing, since its owner may be closing it.
///
/// Thread-safety: one thread at a time; actors on one set of streams may run at the same time.
class SoakActor {
public:
    struct Surroundings {
        const std::vector<KnownStream>* streams = nullptr;
        SoakRecord* record = nullptr;
        HangWatch* watch = nullptr;
        std::size_t slot = 0;  ///< of `watch`
    };

    /// @param own      the actor's seats; nobody else may use them, unless they are in `lent` of
    ///                 others: then the actor never destroys, moves or shares background requests.
    /// @param lent     may be empty.
    SoakActor(const Surroundings& surroundings, std::uint64_t seed, std::vector<Seat*> own,
              std::vector<Seat*> lent);

    /// Does one thing.
    void act();

    /// Lets go of all results, and brings the actor's lasting seats to the start of their streams,
    /// so that they hold the same every time.
    void come_to_rest();

private:
    struct Action;

    static const std::vector<Action>& actions();

    // What to ask of whom
    Seat* any_seat(bool video);
    Seat* own_seat(bool video);
    Seat* passing_seat();
    bool is_own(const Seat& seat) const;

    bool is_alone() const { return m_lent.empty(); }

    const KnownStream& any_stream(bool video);
    std::size_t any_picture(const KnownStream& stream);
    std::int64_t any_tick(const KnownPicture& picture);

    bool is_known_to_answer(const Seat& seat) const { return is_own(seat) && !seat.has_effects; }

    // Comparing
    void compare(const Seat& seat, std::size_t number, const ff::VFrameCtx* got, bool whole);
    void compare(const Seat& seat, std::size_t tenth, const ff::AFrameCtx* got);
    void complain(const KnownStream& stream, const std::string& what);

    // Actions
    void ask_for_a_picture();
    void ask_for_a_small_picture();
    void step_forwards();
    void drag();
    void ask_and_close();
    void ask_for_sound();
    void play_sound();
    void ask_for_sound_in_the_background();
    void seek();
    void reopen();
    void move();
    void begin_anew();
    void use_a_second_decoder();
    void use_effects();
    void change_effects();
    void cancel();
    void ask_for_a_cover();
    void probe();
    void mix();
    void tidy();

    void keep(std::shared_ptr<ff::VFrameCtx> picture);

    const Surroundings m_around;
    Random m_random;
    const std::vector<Seat*> m_own;
    const std::vector<Seat*> m_lent;
    std::vector<std::shared_ptr<ff::VFrameCtx>> m_kept;
};

}  // namespace fw_test
