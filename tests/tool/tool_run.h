#pragma once

/// @file
/// Runs the built tool and keeps what it printed. Throws std::runtime_error when it cannot.

#include "tests/support/temp_folder.h"

#include <nlohmann/json.hpp>

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace fw_test {

std::vector<std::string> lines_of(const std::string& text);

struct ToolResult {
    int status = -1;     ///< exit status; 128 + the signal if one ended the tool
    std::string out;     ///< standard output
    std::string errors;  ///< standard error

    /// The lines of standard output, each parsed as JSON. Throws if one is none.
    std::vector<nlohmann::json> json() const;

    /// Whether standard error is exactly one line, in the form that all errors have.
    bool has_one_error_line() const;
};

/// The tool while it runs: a test writes to its standard input and reads its standard output.
class ToolProcess {
public:
    /// @param output  where standard output goes; empty: the test reads it.
    explicit ToolProcess(const std::vector<std::string>& arguments, const std::string& output = {});

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    ~ToolProcess();

    /// Writes the bytes to its standard input at once.
    void write(const std::string& bytes);

    /// Waits for the next line of its standard output; empty at the end.
    std::string read_line();

    /// Waits until it has written something on standard error.
    void wait_for_errors() const;

    /// Does what Ctrl-C does.
    void interrupt() const;

    /// Closes its standard output here, as a reader does that has seen enough.
    void stop_reading();

    /// Writes the rest of its standard input and closes it, reads the rest of its output and waits
    /// for its end.
    ToolResult finish(const std::string& input = {});

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { (void)std::fclose(file); }
    };

    int wait_for_end();

    TemporaryFolder m_folder;
    std::string m_error_file;
    pid_t m_pid = -1;
    std::unique_ptr<std::FILE, CloseFile> m_input;
    std::unique_ptr<std::FILE, CloseFile> m_output;
};

/// What starts the tool, for a shell.
std::string tool_command();

/// Runs the tool to its end with `input` on its standard input.
ToolResult run_tool(const std::vector<std::string>& arguments, const std::string& input = {});

}  // namespace fw_test
