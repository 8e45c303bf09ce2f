// The shared collection of media files and its ground truth.

#include "tests/support/media.h"

#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace fw_test {

namespace {

using nlohmann::json;

std::string shared_folder() {
    const char* const folder = std::getenv("FRAMEWELL_SHARED_MEDIA");
    return folder != nullptr ? folder : "";
}

/// Returns what `gzip -dc` makes of the file.
std::string unpacked(const std::string& path) {
    FILE* const pipe = ::popen(("gzip -dc '" + path + "'").c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot start gzip");
    }
    std::string text;
    char part[65536];
    for (std::size_t n = 0; (n = std::fread(part, 1, sizeof part, pipe)) > 0;) {
        text.append(part, n);
    }
    if (::pclose(pipe) != 0) {
        throw std::runtime_error("gzip cannot unpack " + path);
    }
    return text;
}

std::optional<std::int64_t> number_or_none(const json& value) {
    return value.is_number() ? std::optional<std::int64_t>(value.get<std::int64_t>())
                             : std::nullopt;
}

std::int64_t count(const json& stream, const char* name) {
    const auto found = stream.find(name);
    return found != stream.end() && found->is_number() ? found->get<std::int64_t>() : 0;
}

bool flag(const json& stream, const char* name) {
    const auto found = stream.find(name);
    return found != stream.end() && found->is_boolean() && found->get<bool>();
}

std::string text(const json& stream, const char* name) {
    const auto found = stream.find(name);
    return found != stream.end() && found->is_string() ? found->get<std::string>() : "";
}

std::vector<TruthFrame> frames(const json& stream, const char* name) {
    std::vector<TruthFrame> result;
    const auto found = stream.find(name);
    if (found == stream.end()) {
        return result;
    }
    for (const json& row : *found) {
        TruthFrame frame;
        frame.number = row.at(0).get<std::int64_t>();
        frame.timestamp = number_or_none(row.at(1));
        frame.pts = number_or_none(row.at(2));
        frame.pkt_dts = number_or_none(row.at(3));
        frame.duration = number_or_none(row.at(4));
        frame.key = number_or_none(row.at(5)).value_or(0) != 0;
        frame.type = row.at(6).is_string() ? row.at(6).get<std::string>() : "";
        frame.md5 = row.at(7).is_string() ? row.at(7).get<std::string>() : "";
        result.push_back(frame);
    }
    return result;
}

void read_video(const json& from, TruthStream* to) {
    to->width = static_cast<int>(count(from, "width"));
    to->height = static_cast<int>(count(from, "height"));
    to->pix_fmt = text(from, "pix_fmt");
    to->attached_pic = flag(from, "attached_pic");
    if (from.contains("rotation_by_rule")) {
        to->rotation_by_rule = from["rotation_by_rule"].get<double>();
    }
    to->frames_total = count(from, "frames_total");
    to->frames = frames(from, "frames");
    to->sampled = frames(from, "sampled");
    to->several_formats = from.contains("formats");
    to->thread_sensitive = flag(from, "thread_sensitive");
    to->timestamps_thread_sensitive = flag(from, "timestamps_thread_sensitive");
    to->count_differs = from.contains("count_ffprobe");
    to->pts_mismatch = count(from, "pts_mismatch");
    to->frames_without_pts = count(from, "frames_without_pts");
    to->frames_without_any_timestamp = count(from, "frames_without_any_timestamp");
    to->timestamps_not_increasing = count(from, "timestamps_not_increasing");
}

void read_audio(const json& from, TruthStream* to) {
    to->rate = static_cast<int>(count(from, "rate"));
    to->channels = static_cast<int>(count(from, "channels"));
    to->sample_fmt = text(from, "sample_fmt");
    to->frames_total = count(from, "frames_total");
    to->frames_without_pts = count(from, "frames_without_pts");
    to->samples = count(from, "samples");
    if (from.contains("first_pts")) {
        to->first_pts = number_or_none(from["first_pts"]);
    }
    to->md5 = text(from, "md5");
    to->block_samples = count(from, "block_samples");
    if (from.contains("blocks")) {
        to->blocks = from["blocks"].get<std::vector<std::string>>();
    }
    to->params_change = from.contains("params_change");
}

TruthStream read_stream(const json& from) {
    TruthStream stream;
    stream.index = from.at("index").get<int>();
    stream.type = text(from, "type");
    stream.codec = text(from, "codec");
    const std::string base = text(from, "time_base");
    long long num = 0, den = 1;
    if (std::sscanf(base.c_str(), "%lld/%lld", &num, &den) == 2) {
        stream.tb_num = num;
        stream.tb_den = den;
    }
    if (stream.type == "video") {
        read_video(from, &stream);
    } else if (stream.type == "audio") {
        read_audio(from, &stream);
    } else if (from.contains("packets")) {
        for (const json& row : from["packets"]) {
            stream.packets.push_back({row.at(0).get<std::int64_t>(),
                                      number_or_none(row.at(1)).value_or(0),
                                      row.at(2).get<std::string>()});
        }
    }
    return stream;
}

}  // namespace

std::string shared_media(const std::string& name) {
    const std::string folder = shared_folder();
    if (folder.empty() || name.empty()) {
        return "";
    }
    const std::string path = folder + "/" + name;
    return std::filesystem::exists(path) ? path : "";
}

std::vector<std::string> shared_media_names() {
    std::vector<std::string> names;
    const std::string folder = shared_folder();
    if (folder.empty() || !std::filesystem::is_directory(folder)) {
        return names;
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().extension() != ".md") {
            names.push_back(entry.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<Truth> shared_truth(const std::string& name) {
    const std::string plain = shared_media("truth/" + name + ".truth.json");
    const std::string packed = shared_media("truth/" + name + ".truth.json.gz");
    if (plain.empty() && packed.empty()) {
        return std::nullopt;
    }
    const json content = json::parse(plain.empty() ? unpacked(packed) : read_file(plain));
    Truth truth;
    truth.openable = flag(content, "openable");
    if (content.contains("streams")) {
        for (const json& stream : content["streams"]) {
            truth.streams.push_back(read_stream(stream));
        }
    }
    return truth;
}

}  // namespace fw_test
