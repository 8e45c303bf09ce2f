#include "verify_pictures.h"

#include "interrupt.h"
#include "media_file.h"
#include "on_threads.h"
#include "picture_walk.h"
#include "tool_log.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <random>

namespace tool {

namespace {

constexpr int kThreads = 4;
constexpr int kBackwardsInARow = 25;

/// Asks for remembered pictures and compares.
class PictureQuestions {
public:
    PictureQuestions(const ff::StreamCtx& stream, const std::vector<WalkedPicture>& pictures,
                     SharedVerdict* verdict, Progress* progress)
        : m_stream(stream), m_pictures(pictures), m_verdict(*verdict), m_progress(*progress) {}

    void at_random(unsigned int seed, int requests);
    void backwards(unsigned int seed, int requests);
    void from_threads(unsigned int seed, int requests);

    /// Decides about answers with the right time and other pixels. To be called while no decoder is
    /// open on the stream: what the others remember would answer.
    void settle_doubts();

private:
    struct Doubt {
        Way way;
        std::size_t number;
        std::int64_t place;
    };

    void ask(PictureAsker& asker, Way way, std::size_t number, std::int64_t place);
    bool starts_with_others(const WalkedPicture& picture) const;
    void ask_somewhere(PictureAsker& asker, Way way, std::mt19937& random);

    std::size_t any_number(std::mt19937& random) const { return random() % m_pictures.size(); }

    const ff::StreamCtx& m_stream;
    const std::vector<WalkedPicture>& m_pictures;
    SharedVerdict& m_verdict;
    Progress& m_progress;
    std::mutex m_mutex;
    std::vector<Doubt> m_doubtful;  // guarded by m_mutex while threads ask
};

void PictureQuestions::ask(PictureAsker& asker, Way way, std::size_t number, std::int64_t place) {
    const WalkedPicture& expected = m_pictures[number];
    const std::optional<SeenPicture> seen = asker.ask(place);
    if (is_interrupted()) {
        return;
    }
    std::string wrong;
    if (!seen) {
        wrong = "no picture";
    } else if (seen->pts_us != expected.pts_us) {
        wrong = "the picture of " + std::to_string(seen->pts_us) + " us in place of that of " +
                std::to_string(expected.pts_us) + " us";
    } else if (seen->print != expected.print) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_doubtful.push_back({way, number, place});
        return;
    }
    m_verdict.count(way, asker.scale().seconds(place), wrong);
}

void PictureQuestions::settle_doubts() {
    const PictureScale scale(m_stream);
    for (const Doubt& doubt : m_doubtful) {
        const WalkedPicture& picture = m_pictures[doubt.number];
        const bool is_shared = starts_with_others(picture);
        if (is_interrupted()) {
            return;
        }
        m_verdict.change([&](Verdict& verdict) { verdict.shared += is_shared ? 1 : 0; });
        m_verdict.count(
            doubt.way, scale.seconds(doubt.place),
            is_shared ? ""
                      : "other pixels in the picture of " + std::to_string(picture.pts_us) + " us");
    }
}

/// Whether several pictures start when this one does. Any of them may answer: decoding up to their
/// time ends at the first of them, and once more was decoded, the last of them covers it.
bool PictureQuestions::starts_with_others(const WalkedPicture& picture) const {
    PictureAsker asker(m_stream);
    const std::optional<SeenPicture> first = asker.open() ? asker.ask(picture.place) : std::nullopt;
    (void)asker.ask(picture.until);  // only makes the decoder go on
    const std::optional<SeenPicture> last = asker.ask(picture.place);
    return first && last && first->pts_us == last->pts_us && first->print != last->print;
}

/// Asks for any moment of any picture, every second time for its start.
void PictureQuestions::ask_somewhere(PictureAsker& asker, Way way, std::mt19937& random) {
    const std::size_t number = any_number(random);
    const WalkedPicture& picture = m_pictures[number];
    const auto length = static_cast<std::uint64_t>(std::max<std::int64_t>(
        1, picture.until - picture.place - 1));  // the last place may round up to the next one
    const bool at_start = random() % 2 == 0;
    const auto later = static_cast<std::int64_t>(random() % length);
    ask(asker, way, number, picture.place + (at_start ? 0 : later));
}

void PictureQuestions::at_random(unsigned int seed, int requests) {
    std::mt19937 random(seed);
    PictureAsker asker(m_stream);
    (void)asker.open();  // if not, every answer is missing
    for (int i = 0; i < requests && !is_interrupted(); ++i) {
        ask_somewhere(asker, Way::Random, random);
        m_progress.show(1.0 * i / requests, stream_name(m_stream) + ", at random");
    }
}

void PictureQuestions::backwards(unsigned int seed, int requests) {
    std::mt19937 random(seed);
    PictureAsker asker(m_stream);
    (void)asker.open();  // if not, every answer is missing
    std::size_t number = m_pictures.size();
    for (int i = 0; i < requests && !is_interrupted(); ++i) {
        if (number == 0 || (i > 0 && i % kBackwardsInARow == 0)) {
            number = any_number(random) + 1;
        }
        --number;
        ask(asker, Way::Backwards, number, m_pictures[number].place);
        m_progress.show(1.0 * i / requests, stream_name(m_stream) + ", backwards");
    }
}

/// The first two threads share a decoder, the others have one each; all share the stream.
void PictureQuestions::from_threads(unsigned int seed, int requests) {
    PictureAsker shared(m_stream);
    (void)shared.open();  // if not, every answer is missing
    std::atomic<int> left{requests};
    run_on_threads(kThreads, [&](unsigned int number) {
        std::mt19937 random(seed + number);
        PictureAsker own(m_stream);
        const bool has_own = number >= 2 && own.open();
        while (left.fetch_sub(1) > 0 && !is_interrupted()) {
            ask_somewhere(has_own ? own : shared, Way::Threads, random);
        }
    });
}

}  // namespace

Verdict verify_pictures(const ff::StreamCtx& stream, unsigned int seed, int requests,
                        Progress* progress) {
    SharedVerdict verdict;
    (void)take_complaints();
    std::vector<WalkedPicture> pictures;
    {
        PictureWalk walk(stream, &verdict, progress);
        walk.run();
        pictures = walk.pictures();
    }
    if (pictures.empty()) {
        verdict.change([&](Verdict& v) { v.error = "it has no picture" + Reason().text(); });
    } else {
        PictureQuestions questions(stream, pictures, &verdict, progress);
        questions.at_random(seed, requests);
        questions.backwards(seed + 1, requests);
        questions.from_threads(seed + 2, requests);
        questions.settle_doubts();
    }
    verdict.change([](Verdict& v) { v.is_complete = !is_interrupted(); });
    return verdict.get();
}

}  // namespace tool
