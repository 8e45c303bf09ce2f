#include "media/ff_compat.h"

#include <framewell/base/config.h>

#include <string>

namespace ff {
namespace {

std::string version_text(unsigned version) {
    return std::to_string(AV_VERSION_MAJOR(version)) + '.' +
           std::to_string(AV_VERSION_MINOR(version)) + '.' +
           std::to_string(AV_VERSION_MICRO(version));
}

std::string make_report() {
    struct Library {
        const char* name;
        unsigned built;
        unsigned running;
    };

    const Library libraries[] = {
        {"libavcodec", LIBAVCODEC_VERSION_INT, avcodec_version()},
        {"libavformat", LIBAVFORMAT_VERSION_INT, avformat_version()},
        {"libavfilter", LIBAVFILTER_VERSION_INT, avfilter_version()},
        {"libswscale", LIBSWSCALE_VERSION_INT, swscale_version()},
        {"libswresample", LIBSWRESAMPLE_VERSION_INT, swresample_version()},
        {"libavutil", LIBAVUTIL_VERSION_INT, avutil_version()},
    };
    std::string report;
    for (const Library& library : libraries) {
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

}  // namespace ff
