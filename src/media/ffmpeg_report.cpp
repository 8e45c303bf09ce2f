#include "media/ffmpeg_report.h"

#include "media/ff_compat.h"

#include <framewell/base/config.h>

#include <array>
#include <string>

namespace ff {
namespace {

struct Library {
    const char* name;
    unsigned built;
    unsigned running;
};

std::array<Library, 6> libraries() {
    return {{
        {"libavcodec", LIBAVCODEC_VERSION_INT, avcodec_version()},
        {"libavformat", LIBAVFORMAT_VERSION_INT, avformat_version()},
        {"libavfilter", LIBAVFILTER_VERSION_INT, avfilter_version()},
        {"libswscale", LIBSWSCALE_VERSION_INT, swscale_version()},
        {"libswresample", LIBSWRESAMPLE_VERSION_INT, swresample_version()},
        {"libavutil", LIBAVUTIL_VERSION_INT, avutil_version()},
    }};
}

std::string version_text(unsigned version) {
    return std::to_string(AV_VERSION_MAJOR(version)) + '.' +
           std::to_string(AV_VERSION_MINOR(version)) + '.' +
           std::to_string(AV_VERSION_MICRO(version));
}

std::string make_report() {
    std::string report;
    for (const Library& library : libraries()) {
        if (!report.empty()) {
            report += ", ";
        }
        report += std::string(library.name) + ' ' + version_text(library.built) + " (running " +
                  version_text(library.running) + ')';
    }
    return report;
}

}  // namespace

const char* framewell_ffmpeg_report() {
    static const std::string* const s_report = new std::string(make_report());  // never destroyed
    return s_report->c_str();
}

std::string ffmpeg_refusal() {
    for (const Library& library : libraries()) {
        if (AV_VERSION_MAJOR(library.running) != AV_VERSION_MAJOR(library.built)) {
            return std::string(library.name) + ' ' + version_text(library.running) +
                   " is loaded, but framewell was built with " + version_text(library.built) +
                   ": another major version cannot be used";
        }
    }
    return {};
}

}  // namespace ff
