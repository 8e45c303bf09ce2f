#include "canvas.h"
#include "clock_text.h"
#include "commands.h"
#include "interrupt.h"
#include "media_file.h"
#include "output.h"
#include "progress.h"
#include "tool_log.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tool {

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();
constexpr int kSmallestTile = 32;
constexpr int kLargestSide = 30000;  // of a sheet; JPEG ends at 65535
constexpr Colour kPaper{24, 26, 31};
constexpr Colour kBehindPictures{12, 13, 16};
constexpr Colour kInk{205, 209, 217};

/// One picture of the sheet.
struct Tile {
    Image picture;
    std::string time;
};

/// How wide a picture is beside its height as it is to be looked at: turned, and with its pixels
/// in their true shape.
double shape_of(const ff::StreamCtx& stream) {
    const ff::Rational pixel = stream.sample_aspect_ratio;
    const bool has_pixel = pixel.num > 0 && pixel.den > 0;
    const double pixel_shape =
        has_pixel ? static_cast<double>(pixel.num) / static_cast<double>(pixel.den) : 1;
    const double shape = pixel_shape * std::max(1, stream.width) / std::max(1, stream.height);
    return quarter_turns(stream.rotation) % 2 == 0 ? shape : 1 / shape;
}

/// Where everything on the sheet goes, in pixels.
class Layout {
public:
    /// @param columns, rows  0: as they suit the shape.
    Layout(const SheetOptions& options, double shape)
        : m_columns(options.columns.value_or(shape < 1 ? 6 : 4)),
          m_rows(options.rows.value_or(shape < 1 ? 3 : 4)),
          m_gap(std::max(4, options.width / 100)) {
        m_tile_width = (options.width - m_gap * (m_columns + 1)) / m_columns;
        if (m_columns > options.width || m_tile_width < kSmallestTile) {
            throw Failure(std::to_string(m_columns) + " columns do not fit a sheet of " +
                              std::to_string(options.width) +
                              " pixels; give a larger --width or fewer --columns",
                          Exit::Usage);
        }
        const double height = std::min<double>(kLargestSide, std::round(m_tile_width / shape));
        m_tile_height = std::max(1, static_cast<int>(height));
        m_text_height = std::clamp(m_tile_width / 18.0, 7.0, 18.0);
        const int line = line_height();
        if (m_rows > (kLargestSide - m_gap) / (m_tile_height + line)) {
            throw Failure("the sheet would be higher than " + std::to_string(kLargestSide) +
                              " pixels; give fewer --rows or a smaller --width",
                          Exit::Usage);
        }
    }

    int count() const { return m_columns * m_rows; }

    int tile_width() const { return m_tile_width; }

    int tile_height() const { return m_tile_height; }

    /// The sheet with its first pictures; there may be fewer than it has room for.
    Canvas draw(const std::vector<Tile>& tiles) const {
        const int count = static_cast<int>(tiles.size());
        const int columns = std::min(m_columns, count);
        const int rows = (count + columns - 1) / columns;
        Canvas sheet(m_gap + columns * (m_tile_width + m_gap),
                     m_gap + rows * (m_tile_height + line_height()), kPaper);
        for (int i = 0; i < count; ++i) {
            const Tile& tile = tiles[static_cast<std::size_t>(i)];
            const int x = m_gap + i % columns * (m_tile_width + m_gap);
            const int y = m_gap + i / columns * (m_tile_height + line_height());
            sheet.fill(x, y, x + m_tile_width, y + m_tile_height, kBehindPictures);
            sheet.draw(tile.picture, x, y);
            const double text_width = Canvas::width_of(tile.time, m_text_height);
            sheet.write(tile.time, x + (m_tile_width - text_width) / 2,
                        y + m_tile_height + m_text_height * 0.7, m_text_height, kInk);
        }
        return sheet;
    }

private:
    int line_height() const { return static_cast<int>(m_text_height * 2.4) + m_gap / 2; }

    int m_columns;
    int m_rows;
    int m_gap;
    int m_tile_width = 0;
    int m_tile_height = 0;
    double m_text_height = 0;
};

/// Takes pictures out of a stream and lays them out.
class SheetCommand {
public:
    explicit SheetCommand(const SheetOptions& options)
        : m_options(options), m_progress(options.progress, options.quiet) {}

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        watch_interrupts();
        const ff::MovieCtx& movie = need_file(m_options.file);
        const ff::StreamCtx& stream = pick_stream(movie, ff::StreamType::Video, std::nullopt);
        const Layout layout(m_options, shape_of(stream));
        open_stream(stream, m_decoder);
        const int missing = take_pictures(stream, layout);
        m_progress.clear();
        if (is_interrupted()) {
            return Exit::Interrupted;
        }
        if (m_tiles.empty()) {
            throw Failure(stream_name(stream) + ": no picture" + m_reason.text() +
                          "; see the log with -v");
        }
        const Canvas sheet = layout.draw(m_tiles);
        write_image(m_options.out, sheet.image());
        print_line(printable(m_options.file + ": " + std::to_string(m_tiles.size()) +
                             (m_tiles.size() == 1 ? " picture, " : " pictures, ") +
                             std::to_string(sheet.width()) + "x" + std::to_string(sheet.height()) +
                             " -> " + m_options.out));
        if (missing > 0) {
            print_error(stream_name(stream) + ": " + std::to_string(missing) + " of " +
                        std::to_string(layout.count()) + " times have no picture" +
                        m_reason.text() + "; see the log with -v");
        }
        return missing > 0 ? Exit::Failed : Exit::Done;
    }

private:
    /// Fills m_tiles; a picture that is shown at several of the times comes once. Returns how many
    /// times had none.
    int take_pictures(const ff::StreamCtx& stream, const Layout& layout) {
        const std::int64_t start = movie_start_us(*stream.movie);
        const int count = stream.single_frame ? 1 : layout.count();
        std::optional<std::int64_t> last;
        int missing = 0;
        for (int i = 0; i < count && !is_interrupted(); ++i) {
            const std::shared_ptr<ff::VFrameCtx> picture =
                m_decoder.getVideoFrame(request_for(stream, layout, time_of(stream, i, count)));
            missing += picture == nullptr ? 1 : 0;
            if (picture != nullptr && last != picture->pts) {
                last = picture->pts;
                // Through unsigned: a damaged file may claim any start.
                const auto time = static_cast<std::int64_t>(
                    static_cast<std::uint64_t>(picture->pts) - static_cast<std::uint64_t>(start));
                m_tiles.push_back(
                    {scaled(turned(image_of(*picture), quarter_turns(stream.rotation)),
                            layout.tile_width(), layout.tile_height()),
                     clock_text(time, 3)});
            }
            m_progress.show(static_cast<double>(i + 1) / count, m_options.file);
        }
        return missing;
    }

    /// The middle of the part number `i` of `count` equal parts of the stream.
    static ff::Rational time_of(const ff::StreamCtx& stream, int i, int count) {
        const ff::Rational movie_start =
            ff::timestamp_to_time(movie_start_us(*stream.movie), {1, 1000000});
        double start = 0;
        double length = stream.movie->duration == kUnknown
                            ? 0
                            : static_cast<double>(stream.movie->duration) / 1e6;
        if (stream.duration != kUnknown && stream.duration > 0 && stream.time_base.den > 0) {
            const double tick = static_cast<double>(stream.time_base.num) /
                                static_cast<double>(stream.time_base.den);
            length = static_cast<double>(stream.duration) * tick;
            if (stream.start_time != kUnknown) {
                start = static_cast<double>(stream.start_time) * tick -
                        static_cast<double>(movie_start.num) / static_cast<double>(movie_start.den);
            }
        }
        constexpr double longest = 1e12;  // seconds, of the durations that damaged files claim
        const double time = std::clamp(start + length * (i + 0.5) / count, -longest, longest);
        return {std::llround(time * 1e6), 1000000};
    }

    static ff::RequireVideoFrame request_for(const ff::StreamCtx& stream, const Layout& layout,
                                             const ff::Rational& time) {
        const bool lies = quarter_turns(stream.rotation) % 2 != 0;
        const int width = lies ? layout.tile_height() : layout.tile_width();
        const int height = lies ? layout.tile_width() : layout.tile_height();
        ff::RequireVideoFrame request;
        request.time = time;
        // Twice the size that is needed: the decoder's scaler is fast, the tool's is good.
        request.divider =
            std::max(1, std::min(stream.width / (2 * width), stream.height / (2 * height)));
        request.abort_flag = &interrupt_flag();
        return request;
    }

    const SheetOptions& m_options;
    Progress m_progress;
    ff::FFDecoder m_decoder;
    Reason m_reason;
    std::vector<Tile> m_tiles;
};

}  // namespace

Exit run_sheet(const SheetOptions& options) {
    check_image_path(options.out);
    return SheetCommand(options).run();
}

}  // namespace tool
