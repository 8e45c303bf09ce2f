// What a list of files costs: one picture of each, out of its middle, shrunk to a box.

#include "clips.h"
#include "comparison.h"
#include "fresh_names.h"
#include "plain_cover.h"

#include <framewell/ff_tools.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr double kTarget = 1.45;
constexpr int kBoxWidth = 320;
constexpr int kBoxHeight = 240;
constexpr int kFilesOfOneKind = 10;

/// A file and the divider that makes its pictures fit the box.
struct Target {
    std::string path;
    int divider;
};

std::shared_ptr<ff::VFrameCtx> cover_of(const std::string& path) {
    ff::RequireMvImage request;
    request.ratio = 0.5;
    request.max_width = kBoxWidth;
    request.max_height = kBoxHeight;
    return ff::getMovieImage(path.c_str(), request, nullptr);
}

/// Ends the program unless both sides make the same picture, byte by byte.
Target checked(const bench::Clip& clip) {
    std::string path = bench::path_of(clip);
    const std::shared_ptr<ff::VFrameCtx> ours = cover_of(path);
    const bench::PlainCover theirs = bench::plain_cover(path, ours == nullptr ? 1 : ours->divider);
    bool same = ours != nullptr && ours->width == theirs.width && ours->height == theirs.height;
    for (int y = 0; same && y < theirs.height; ++y) {
        same = std::memcmp(ours->data[0] + static_cast<std::ptrdiff_t>(y) * ours->linesize[0],
                           theirs.bytes.data() + static_cast<std::ptrdiff_t>(y) * theirs.stride,
                           static_cast<std::size_t>(theirs.width) * 4) == 0;
    }
    if (!same) {
        (void)std::fprintf(stderr, "%s: the two sides make different pictures\n", path.c_str());
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread ends the program
    }
    return {std::move(path), ours->divider};
}

/// One row: a cover of every target, each under a name that the process has not seen.
bench::Row covers_row(const std::string& name, const std::string& title,
                      const std::vector<Target>& targets) {
    const auto names = std::make_shared<bench::FreshNames>();
    const auto fresh = [names, targets] {
        std::vector<Target> result;
        result.reserve(targets.size());
        for (const Target& target : targets) {
            result.push_back({names->next(target.path), target.divider});
        }
        return result;
    };
    const auto ours = [fresh](benchmark::State& state) {
        const std::vector<Target> files = fresh();
        for ([[maybe_unused]] auto _ : state) {
            for (const Target& file : files) {
                if (cover_of(file.path) == nullptr) {
                    state.SkipWithError("no cover");
                    return;
                }
            }
        }
    };
    const auto theirs = [fresh](benchmark::State& state) {
        const std::vector<Target> files = fresh();
        for ([[maybe_unused]] auto _ : state) {
            for (const Target& file : files) {
                benchmark::DoNotOptimize(bench::plain_cover(file.path, file.divider).bytes.data());
            }
        }
    };
    return {"cover/" + name,
            title,
            bench::Judge::Ratio,
            kTarget,
            static_cast<double>(targets.size()),
            1,
            ours,
            theirs};
}

}  // namespace

int main(int argc, char** argv) {
    // The target is that of the list; the rows of one kind of file tell where the list spends its
    // time. How often each clip stands in the list of 50 files: most of what people keep is 1080p.
    std::vector<std::pair<bench::Clip, int>> list{{bench::clip_named("h264_gop30"), 13},
                                                  {bench::clip_named("h264_gop250"), 13},
                                                  {bench::clip_named("hevc"), 7},
                                                  {bench::clip_named("uhd"), 5},
                                                  {bench::small_clip(), 6},
                                                  {bench::long_gop_clip(), 6}};
    std::vector<bench::Row> rows;
    std::vector<Target> all;
    for (const auto& [clip, count] : list) {
        const Target target = checked(clip);
        all.insert(all.end(), static_cast<std::size_t>(count), target);
        rows.push_back(covers_row(clip.name, clip.title + ": cover",
                                  std::vector<Target>(kFilesOfOneKind, target)));
    }
    rows.insert(rows.begin(), covers_row("list", "covers of 50 files", all));
    return bench::compare(argc, argv, rows);
}
