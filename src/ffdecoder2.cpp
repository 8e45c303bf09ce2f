#include "base/log.h"
#include "ffdecoder_private.h"

#include <framewell/ffdecoder2.h>

#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <locale>
#include <mutex>
#include <sstream>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdecoder2";

constexpr double kMinSpeed = 0.5;
constexpr double kMaxSpeed = 3.0;
constexpr std::size_t kMaxDescription = 1023;

StreamType type_of(const StreamCtx* stream) {
    return stream != nullptr ? stream->type : StreamType::None;
}

/// The speed as times are multiplied with it. Deliberate: cut to two decimals, not rounded.
Rational time_factor(double speed) {
    return {static_cast<std::int64_t>(speed * 100), 100};
}

/// Writes a number as "%lf" does in the C locale: filters do not read a decimal comma.
std::string to_filter_number(double value) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(6) << value;
    return text.str();
}

}  // namespace

struct FFDecoder2::Settings {
    /// How times of the output become times of the file. A request copies it, so that it uses one
    /// state throughout.
    struct TimeMap {
        double speed = 1.0;
        bool revert = false;
        Rational end_time{0, 0};  // the stream's duration when reverse was switched on
    };

    TimeMap time_map() {
        const std::lock_guard<std::mutex> lock(mutex);
        return map;
    }

    // Held from storing a speed or a description until the filters run that belong to it: of two
    // threads that change them, one must win in both. Taken before the decoder's mutex.
    std::mutex change_mutex;
    std::string filters;  // guarded by change_mutex: as last given to setFilters()

    std::mutex mutex;
    TimeMap map;  // guarded by mutex
};

FFDecoder2::FFDecoder2() : m_settings(std::make_unique<Settings>()) {}

FFDecoder2::~FFDecoder2() {
    // A background request may be using the settings, and this class's operations.
    d()->shut_down();
}

bool FFDecoder2::setSpeed(double speed) {
    if (!(speed >= kMinSpeed && speed <= kMaxSpeed)) {  // also refuses what is not a number
        FW_LOG(2, "bg", "speed = %.3lf is invalid, limited: (0, 3.0]", speed);
        return false;
    }
    const std::lock_guard<std::mutex> change(m_settings->change_mutex);
    {
        const std::lock_guard<std::mutex> lock(m_settings->mutex);
        m_settings->map.speed = speed;
    }
    return pri_setFilters(
        combineFilters(type_of(d()->stream()), m_settings->filters, speed).c_str());
}

double FFDecoder2::speed() const {
    return m_settings->time_map().speed;
}

void FFDecoder2::setRevert(bool on) {
    const StreamCtx* const stream = d()->stream();
    if (type_of(stream) != StreamType::Video) {
        (void)std::fprintf(stderr, "(stream.type=%d) unsupport revert ...\n",
                           static_cast<int>(type_of(stream)));
        (void)std::fflush(stderr);
        return;
    }
    const std::lock_guard<std::mutex> lock(m_settings->mutex);
    m_settings->map.revert = on;
    if (on) {
        m_settings->map.end_time = timestamp_to_time(stream->duration, stream->time_base);
    }
}

bool FFDecoder2::setFilters(const char* filters) {
    const std::lock_guard<std::mutex> change(m_settings->change_mutex);
    m_settings->filters = filters != nullptr ? filters : "";
    return pri_setFilters(
        combineFilters(type_of(d()->stream()), m_settings->filters, speed()).c_str());
}

bool FFDecoder2::pri_setFilters(const char* desc) {
    const char* const text = desc != nullptr ? desc : "";
    const bool is_open = text[0] != '\0';
    (void)std::fprintf(stderr, is_open ? "open filter: %s\n" : "close filter: %s\n", text);
    (void)std::fflush(stderr);
    if (is_open) {
        return d()->open_filter(text);
    }
    d()->close_filter();
    return true;
}

std::shared_ptr<VFrameCtx> FFDecoder2::pri_getVideoFrame(const RequireVideoFrame& req, int serial) {
    const Settings::TimeMap map = m_settings->time_map();
    if (map.speed == 1.0 && !map.revert) {
        return FFDecoder::pri_getVideoFrame(req, serial);
    }
    RequireVideoFrame copy{req.time, req.format, req.divider,
                           __atomic_load_n(&req.abort_flag, __ATOMIC_RELAXED)};
    if (map.speed != 1.0) {
        copy.time *= time_factor(map.speed);
    }
    if (map.revert) {
        copy.time = map.end_time - copy.time;
    }
    return FFDecoder::pri_getVideoFrame(copy, serial);
}

std::shared_ptr<AFrameCtx> FFDecoder2::pri_getAudioFrame(const RequireAudioFrame& req, int serial) {
    const double speed = m_settings->time_map().speed;
    if (speed == 1.0) {
        return FFDecoder::pri_getAudioFrame(req, serial);
    }
    RequireAudioFrame copy{req.range, req.format, req.sample_rate, req.channels,
                           __atomic_load_n(&req.abort_flag, __ATOMIC_RELAXED)};
    copy.range *= time_factor(speed);
    return FFDecoder::pri_getAudioFrame(copy, serial);
}

std::string combineFilters(StreamType type, const std::string& user, double speed) {
    std::string desc;
    if (type == StreamType::Audio && speed != 1.0) {
        desc = "atempo=" + to_filter_number(speed);
    }
    if (!user.empty() && user != "null" && user != "anull") {
        desc += (desc.empty() ? "" : ", ") + user;
    }
    desc.resize(std::min(desc.size(), kMaxDescription));
    (void)std::fprintf(stderr, "[filter] type=%d, *****-> %s\n", static_cast<int>(type),
                       desc.c_str());
    (void)std::fflush(stderr);
    return desc;
}

}  // namespace ff
