#include "tests/tool/tool_run.h"

#include "tests/support/processor.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fw_test {

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<nlohmann::json> ToolResult::json() const {
    std::vector<nlohmann::json> objects;
    for (const std::string& line : lines_of(out)) {
        objects.push_back(nlohmann::json::parse(line));
    }
    return objects;
}

bool ToolResult::has_one_error_line() const {
    return errors.rfind("framewell: ", 0) == 0 && lines_of(errors).size() == 1;
}

ToolProcess::ToolProcess(const std::vector<std::string>& arguments, const std::string& output)
    : m_error_file(m_folder.path("errors")) {
    // A tool that has ended already must not take the test with it.
    (void)std::signal(SIGPIPE, SIG_IGN);
    int input[2];
    int results[2];
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(results, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    std::vector<std::string> words = command_of(FRAMEWELL_TOOL_PATH);
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

ToolProcess::~ToolProcess() {
    (void)wait_for_end();
}

void ToolProcess::write(const std::string& bytes) {
    (void)std::fwrite(bytes.data(), 1, bytes.size(), m_input.get());  // it may have ended
    (void)std::fflush(m_input.get());
}

std::string ToolProcess::read_line() {
    std::string line;
    for (int c = 0; (c = std::fgetc(m_output.get())) != EOF && c != '\n';) {
        line += static_cast<char>(c);
    }
    return line;
}

void ToolProcess::wait_for_errors() const {
    while (std::filesystem::file_size(m_error_file) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void ToolProcess::interrupt() const {
    (void)::kill(m_pid, SIGINT);
}

void ToolProcess::stop_reading() {
    m_output.reset();
}

ToolResult ToolProcess::finish(const std::string& input) {
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

int ToolProcess::wait_for_end() {
    m_input.reset();
    m_output.reset();
    int status = 0;
    if (m_pid <= 0 || ::waitpid(m_pid, &status, 0) != m_pid) {
        return -1;
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string tool_command() {
    std::string command;
    for (const std::string& word : command_of(FRAMEWELL_TOOL_PATH)) {
        command += (command.empty() ? "'" : " '") + word + "'";
    }
    return command;
}

ToolResult run_tool(const std::vector<std::string>& arguments, const std::string& input) {
    return ToolProcess(arguments).finish(input);
}

}  // namespace fw_test
