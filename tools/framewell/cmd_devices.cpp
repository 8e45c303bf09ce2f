#include "commands.h"
#include "ffmpeg_facts.h"

#include <framewell/hw/hw_decoder.h>

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tool {

namespace {

// "auto" means the first type that works here: the library's own default is the first type that
// FFmpeg was built with, which on most machines has no device behind it.
std::string first_working_device() {
    for (const char* const name : ff::hw_enum_devices()) {
        if (why_device_fails(name).empty()) {
            return name;
        }
    }
    return {};
}

void note(const std::string& text, bool quiet) {
    if (!quiet) {
        print_error(text);
    }
}

}  // namespace

void choose_device(const std::string& hw, bool quiet) {
    if (hw.empty()) {
        return;
    }
    if (hw == "auto") {
        const std::string name = first_working_device();
        if (name.empty()) {
            note(
                "no hardware device can be opened here, decoding in software; see `framewell "
                "devices`",
                quiet);
            return;
        }
        (void)ff::hw_enable_device(name.c_str());  // known, since it has just been opened
        return;
    }
    if (!ff::hw_enable_device(hw.c_str())) {
        throw Failure("--hw " + hw +
                          ": there is no such device type; `framewell devices` lists "
                          "them, and auto picks one",
                      Exit::Usage);
    }
    const std::string reason = why_device_fails(hw);
    if (!reason.empty()) {
        note("--hw " + hw + ": the device cannot be opened (" + reason +
                 "), decoding in software; see `framewell devices`",
             quiet);
    }
}

Exit run_devices(const DevicesOptions& options) {
    const std::vector<const char*> names = ff::hw_enum_devices();
    std::size_t width = 0;
    for (const std::string name : names) {
        width = std::max(width, name.size());
    }
    for (const std::string name : names) {
        const std::string reason = why_device_fails(name);
        if (options.json) {
            Json object;
            object["name"] = name;
            object["available"] = reason.empty();
            if (!reason.empty()) {
                object["error"] = reason;
            }
            print_json(object);
        } else {
            print_line(name + std::string(width - name.size(), ' ') +
                       (reason.empty() ? "  can be opened" : "  cannot be opened: " + reason));
        }
    }
    if (names.empty() && !options.json) {
        print_line("this FFmpeg was built without hardware devices");
    }
    return Exit::Done;
}

}  // namespace tool
