#include "verify_report.h"

#include <cstdio>

namespace tool {

const char* way_name(Way way) {
    switch (way) {
        case Way::InOrder:
            return "in order";
        case Way::Random:
            return "at random";
        case Way::Backwards:
            return "backwards";
        case Way::Threads:
            break;
    }
    return "from several threads";
}

void SharedVerdict::count(Way way, double seconds, const std::string& wrong) {
    change([&](Verdict& verdict) {
        ++verdict.asked;
        if (wrong.empty()) {
            return;
        }
        if (++verdict.differ == 1) {
            char when[48];
            (void)std::snprintf(when, sizeof when, "at %.6f s, asked ", seconds);
            verdict.first = std::string(when) + way_name(way) + ": " + wrong;
        }
    });
}

}  // namespace tool
