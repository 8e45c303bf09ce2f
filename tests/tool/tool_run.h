#pragma once

/// @file
/// Runs the built tool and keeps what it printed. Throws std::runtime_error when it cannot.

#include "tests/support/temp_folder.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace fw_test {

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// What starts the tool. A tool for another processor is run by what runs the test itself.
inline std::vector<std::string> tool_words() {
#ifdef FRAMEWELL_TOOL_EMULATOR
    return {FRAMEWELL_TOOL_EMULATOR, FRAMEWELL_TOOL_PATH};
#else
    return {FRAMEWELL_TOOL_PATH};
#endif
}

struct ToolResult {
    int status = -1;     ///< exit status; 128 + the signal if one ended the tool
    std::string out;     ///< standard output
    std::string errors;  ///< standard error

    /// The lines of standard output, each parsed as JSON. Throws if one is none.
    std::vector<nlohmann::json> json() const {
        std::vector<nlohmann::json> objects;
        for (const std::string& line : lines_of(out)) {
            objects.push_back(nlohmann::json::parse(line));
        }
        return objects;
    }

    /// Whether standard error is exactly one line, in the form that all errors have.
    bool has_one_error_line() const {
        return errors.rfind("framewell: ", 0) == 0 && lines_of(errors).size() == 1;
    }
};

/// The tool while it runs: a test writes to its standard input and reads its standard output.
class ToolProcess {
public:
    /// @param output  where standard output goes; empty: the test reads it.
    explicit ToolProcess(const std::vector<std::string>& arguments, const std::string& output = {})
        : m_error_file(m_folder.path("errors")) {
        // A tool that has ended already must not take the test with it.
        (void)std::signal(SIGPIPE, SIG_IGN);
        int input[2];
        int results[2];
        if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(results, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipes");
        }
        std::vector<std::string> words = tool_words();
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);

        const int errors = ::open(m_error_file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        const int sink = output.empty() ? results[1] : ::open(output.c_str(), O_WRONLY | O_CLOEXEC);
        m_pid = ::fork();
        if (m_pid == 0) {
            (void)::signal(SIGPIPE, SIG_DFL);  // an ignored signal would stay so after exec
            if (::dup2(input[0], 0) >= 0 && ::dup2(sink, 1) >= 0 && ::dup2(errors, 2) >= 0) {
                ::execv(argv[0], argv.data());
            }
            ::_exit(127);
        }
        ::close(errors);
        ::close(input[0]);
        ::close(results[1]);
        if (!output.empty()) {
            ::close(sink);
        }
        m_input.reset(::fdopen(input[1], "w"));
        m_output.reset(::fdopen(results[0], "r"));
    }

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    ~ToolProcess() { (void)wait_for_end(); }

    /// Writes the bytes to its standard input at once.
    void write(const std::string& bytes) {
        (void)std::fwrite(bytes.data(), 1, bytes.size(), m_input.get());  // it may have ended
        (void)std::fflush(m_input.get());
    }

    /// Waits for the next line of its standard output; empty at the end.
    std::string read_line() {
        std::string line;
        for (int c = 0; (c = std::fgetc(m_output.get())) != EOF && c != '\n';) {
            line += static_cast<char>(c);
        }
        return line;
    }

    /// Waits until it has written something on standard error.
    void wait_for_errors() const {
        while (std::filesystem::file_size(m_error_file) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    /// Does what Ctrl-C does.
    void interrupt() const { (void)::kill(m_pid, SIGINT); }

    /// Closes its standard output here, as a reader does that has seen enough.
    void stop_reading() { m_output.reset(); }

    /// Writes the rest of its standard input and closes it, reads the rest of its output and waits
    /// for its end.
    ToolResult finish(const std::string& input = {}) {
        // On a thread, since the tool answers while it is still being written to.
        std::thread writer([&] {
            write(input);
            m_input.reset();
        });
        ToolResult result;
        if (m_output != nullptr) {
            char part[65536];
            for (std::size_t n = 0; (n = std::fread(part, 1, sizeof part, m_output.get())) > 0;) {
                result.out.append(part, n);
            }
        }
        writer.join();
        result.status = wait_for_end();
        std::ifstream file(m_error_file);
        result.errors.assign(std::istreambuf_iterator<char>(file), {});
        return result;
    }

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { (void)std::fclose(file); }
    };

    int wait_for_end() {
        m_input.reset();
        m_output.reset();
        int status = 0;
        if (m_pid <= 0 || ::waitpid(m_pid, &status, 0) != m_pid) {
            return -1;
        }
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    TemporaryFolder m_folder;
    std::string m_error_file;
    pid_t m_pid = -1;
    std::unique_ptr<std::FILE, CloseFile> m_input;
    std::unique_ptr<std::FILE, CloseFile> m_output;
};

/// Runs the tool to its end with `input` on its standard input.
inline ToolResult run_tool(const std::vector<std::string>& arguments,
                           const std::string& input = {}) {
    return ToolProcess(arguments).finish(input);
}

}  // namespace fw_test
