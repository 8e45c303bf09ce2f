#include "tests/robustness/limited_children.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace fw_test {

namespace {

constexpr double kStuckSeconds = 60;   // without any use of the processor
constexpr double kGraceSeconds = 20;   // from SIGABRT to SIGKILL, for the report
constexpr long kPauseNs = 50'000'000;  // between two looks at the children

double seconds_of(clockid_t clock) {
    timespec now{};
    return ::clock_gettime(clock, &now) == 0
               ? static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9
               : 0;
}

double cpu_seconds_of(pid_t pid) {
    clockid_t clock{};
    return ::clock_getcpuclockid(pid, &clock) == 0 ? seconds_of(clock) : 0;
}

double megabytes_of(pid_t pid) {
    std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
    double all = 0;
    double resident = 0;
    statm >> all >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e6;
}

sigset_t watched_signals() {
    sigset_t signals;
    (void)::sigemptyset(&signals);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM}) {
        (void)::sigaddset(&signals, signal);
    }
    return signals;
}

void redirect_to(const std::string& output) {
    const int fd = ::open(output.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0666);
    if (fd < 0 || ::dup2(fd, STDOUT_FILENO) < 0 || ::dup2(fd, STDERR_FILENO) < 0) {
        ::_exit(99);
    }
}

[[noreturn]] void be_child(const std::string& output, const std::function<int()>& body) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);  // nobody would watch it any more
    const sigset_t signals = watched_signals();
    (void)::sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    const rlimit no_core{0, 0};
    (void)::setrlimit(RLIMIT_CORE, &no_core);
    if (!output.empty()) {
        redirect_to(output);
    }
    const int status = body();
    (void)std::fflush(nullptr);
    // Not exit(): what the parent has at its end is none of the child's business.
    ::_exit(status);
}

double seconds_of(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

const char* name_of(Ending ending) {
    static constexpr const char* kNames[] = {"clean", "complaint", "signal", "too long",
                                             "stuck", "too large", "stopped"};
    return kNames[static_cast<int>(ending)];
}

LimitedChildren::LimitedChildren(std::size_t slots) : m_children(slots) {
    const sigset_t signals = watched_signals();
    (void)::sigprocmask(SIG_BLOCK, &signals, nullptr);
}

LimitedChildren::~LimitedChildren() {
    for (const Child& child : m_children) {
        if (child.pid != 0) {
            (void)::kill(child.pid, SIGKILL);
            (void)::waitpid(child.pid, nullptr, 0);
        }
    }
}

std::size_t LimitedChildren::free_slot(const std::function<void(const ChildEnd&)>& on_end) {
    for (;;) {
        const auto free = std::find_if(m_children.begin(), m_children.end(),
                                       [](const Child& child) { return child.pid == 0; });
        if (free != m_children.end()) {
            return static_cast<std::size_t>(free - m_children.begin());
        }
        wait_for_news(on_end);
    }
}

void LimitedChildren::start(std::size_t slot, const ChildLimits& limits, const std::string& output,
                            const std::function<int()>& body, const std::function<int()>& steps) {
    (void)std::fflush(nullptr);  // or the child has it in its buffers, too
    const pid_t pid = ::fork();
    if (pid < 0) {
        throw std::runtime_error("cannot fork");
    }
    if (pid == 0) {
        be_child(output, body);
    }
    Child& child = m_children[slot];
    child = Child{};
    child.pid = pid;
    child.limits = limits;
    child.steps = steps;
    child.moved_at = seconds_of(CLOCK_MONOTONIC);
}

void LimitedChildren::wait_for_all(const std::function<void(const ChildEnd&)>& on_end) {
    while (std::any_of(m_children.begin(), m_children.end(),
                       [](const Child& child) { return child.pid != 0; })) {
        wait_for_news(on_end);
    }
}

void LimitedChildren::wait_for_news(const std::function<void(const ChildEnd&)>& on_end) {
    const sigset_t signals = watched_signals();
    const timespec pause{0, kPauseNs};
    const int signal = ::sigtimedwait(&signals, nullptr, &pause);
    if (signal == SIGINT || signal == SIGTERM) {
        stop_all();
    }
    collect(on_end);
    for (Child& child : m_children) {
        if (child.pid != 0) {
            watch(&child);
        }
    }
}

void LimitedChildren::collect(const std::function<void(const ChildEnd&)>& on_end) {
    for (std::size_t slot = 0; slot < m_children.size(); ++slot) {
        Child& child = m_children[slot];
        int status = 0;
        rusage usage{};
        if (child.pid == 0 || ::wait4(child.pid, &status, WNOHANG, &usage) != child.pid) {
            continue;
        }
        ChildEnd end;
        end.slot = slot;
        end.status = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
        end.cpu_seconds = seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
        end.memory_mb = static_cast<double>(usage.ru_maxrss) / 1e3;
        if (child.ending != Ending::Clean) {
            end.ending = child.ending;
        } else if (!WIFEXITED(status)) {
            end.ending = Ending::Signal;
        } else if (end.status != 0) {
            end.ending = Ending::Complaint;
        }
        child = Child{};
        on_end(end);
    }
}

/// Ends a child that has gone beyond a limit.
void LimitedChildren::watch(Child* child) {
    const double now = seconds_of(CLOCK_MONOTONIC);
    if (child->killed_at > 0) {
        if (now - child->killed_at > kGraceSeconds) {
            (void)::kill(child->pid, SIGKILL);
        }
        return;
    }
    const double cpu = cpu_seconds_of(child->pid);
    if (cpu > child->cpu_seconds + 1e-3) {
        child->cpu_seconds = cpu;
        child->moved_at = now;
    }
    const int step = child->steps ? child->steps() : 0;
    if (step != child->last_step) {
        child->last_step = step;
        child->step_began = cpu;
    }
    if (cpu - child->step_began > child->limits.step_seconds) {
        child->ending = Ending::TooLong;
    } else if (now - child->moved_at > kStuckSeconds) {
        child->ending = Ending::Stuck;
    } else if (megabytes_of(child->pid) > child->limits.memory_mb) {
        child->ending = Ending::TooLarge;
    }
    if (child->ending != Ending::Clean) {
        child->killed_at = now;
        (void)::kill(child->pid, SIGABRT);
    }
}

void LimitedChildren::stop_all() {
    m_stopped = true;
    for (Child& child : m_children) {
        if (child.pid != 0) {
            child.ending = Ending::Stopped;
            child.killed_at = seconds_of(CLOCK_MONOTONIC);
            (void)::kill(child.pid, SIGKILL);
        }
    }
}

}  // namespace fw_test
