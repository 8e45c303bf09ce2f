#include "commands.h"
#include "interrupt.h"
#include "media_file.h"
#include "progress.h"
#include "tool_log.h"
#include "verify_pictures.h"
#include "verify_sound.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace tool {

namespace {

Json verdict_json(const ff::StreamCtx& stream, const Verdict& verdict) {
    const bool is_video = stream.type == ff::StreamType::Video;
    Json object;
    object["path"] = stream.movie->path;
    object["stream"] = stream.index;
    object["type"] = kind_name(stream.type);
    if (!verdict.error.empty()) {
        object["error"] = verdict.error;
        return object;
    }
    object[is_video ? "pictures" : "samples"] = verdict.seen;
    object["complete"] = verdict.is_complete;
    object["compared"] = verdict.asked;
    object["differ"] = verdict.differ;
    object["first"] = verdict.first.empty() ? Json(nullptr) : Json(verdict.first);
    if (is_video) {
        object["shared"] = verdict.shared;
        return object;
    }
    object["shifted"] = verdict.shifted;
    object["max_shift"] = verdict.max_shift;
    object["moved"] = verdict.moved;
    object["max_move"] = verdict.max_move;
    object["close"] = verdict.close;
    object["max_deviation"] = verdict.max_deviation;
    return object;
}

// What is no difference, but no plain equality either.
std::string remarks(const Verdict& verdict) {
    std::string text;
    if (verdict.shared > 0) {
        text += "; " + std::to_string(verdict.shared) +
                " were another of several pictures that start at one time";
    }
    if (verdict.shifted > 0) {
        text += "; " + std::to_string(verdict.shifted) + " shifted by up to " +
                std::to_string(verdict.max_shift) + " samples, since the file's ticks are coarse";
    }
    if (verdict.moved > 0) {
        text += "; " + std::to_string(verdict.moved) +
                " lie elsewhere by the file's times than by its samples";
    }
    if (verdict.close > 0) {
        char deviation[64];
        (void)std::snprintf(deviation, sizeof deviation, "; %lld close, off by up to %.6f",
                            static_cast<long long>(verdict.close), verdict.max_deviation);
        text += deviation;
        text += " of full scale: this decoder does not repeat itself after a seek";
    }
    return text;
}

std::string verdict_text(const ff::StreamCtx& stream, const Verdict& verdict) {
    const bool is_video = stream.type == ff::StreamType::Video;
    std::string text = stream_name(stream) + ", " + kind_name(stream.type) + ": " +
                       std::to_string(verdict.seen) + (is_video ? " pictures" : " samples") +
                       ", compared " + std::to_string(verdict.asked) + ", differ " +
                       std::to_string(verdict.differ);
    if (!verdict.first.empty()) {
        text += ", first " + verdict.first;
    }
    return printable(text + remarks(verdict) + (verdict.is_complete ? "" : " (interrupted)"));
}

class VerifyCommand {
public:
    explicit VerifyCommand(const VerifyOptions& options)
        : m_options(options), m_progress(options.progress, options.quiet) {}

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        watch_interrupts();
        for (const std::string& path : m_options.files) {
            if (!is_interrupted()) {
                check(path);
            }
        }
        if (is_interrupted()) {
            print_error("interrupted: what was not compared yet may differ; run it to its end");
            return Exit::Interrupted;
        }
        return m_differs ? Exit::Differs : m_all_usable ? Exit::Done : Exit::Failed;
    }

private:
    void check(const std::string& path) {
        const ProbedFile file = probe_file(path);
        if (file.movie == nullptr) {
            fail(path, file.error);
            return;
        }
        bool has_streams = false;
        for (int i = 0; i < file.movie->nb_streams && !is_interrupted(); ++i) {
            const ff::StreamCtx& stream = *file.movie->streams[i];
            if (stream.type == ff::StreamType::Video || stream.type == ff::StreamType::Audio) {
                has_streams = true;
                check(stream);
            }
        }
        if (!has_streams && !is_interrupted()) {
            fail(path,
                 "it has no video and no audio stream that can be decoded; see `framewell "
                 "probe`");
        }
    }

    void check(const ff::StreamCtx& stream) {
        const auto verify = stream.type == ff::StreamType::Video ? verify_pictures : verify_sound;
        const Verdict verdict = verify(stream, m_options.seed, m_options.requests, &m_progress);
        m_progress.clear();
        if (!verdict.is_usable) {
            m_all_usable = false;
            print_error(stream_name(stream) + ": " + verdict.error +
                        "; nothing can be compared, see `framewell probe`");
        } else if (!m_options.json) {
            print_line(verdict_text(stream, verdict));
        }
        if (m_options.json) {
            print_json(verdict_json(stream, verdict));
        }
        m_differs = m_differs || verdict.differ > 0;
    }

    void fail(const std::string& path, const std::string& error) {
        m_all_usable = false;
        print_error(path + ": " + error);
        if (m_options.json) {
            Json object;
            object["path"] = path;
            object["error"] = error;
            print_json(object);
        }
    }

    const VerifyOptions& m_options;
    Progress m_progress;
    bool m_differs = false;
    bool m_all_usable = true;
};

}  // namespace

Exit run_verify(const VerifyOptions& options) {
    return VerifyCommand(options).run();
}

}  // namespace tool
