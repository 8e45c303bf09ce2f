#pragma once

/// @file
/// An X server of the test's own, whose screen is memory.

#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace fw_test {

/// Runs Xvfb while it lives and makes it the display of this process. Where Xvfb is not installed
/// there is no screen, and is_there() is false.
class VirtualScreen {
public:
    VirtualScreen() {
        int numbers[2];
        if (::pipe(numbers) != 0) {
            return;
        }
        m_pid = ::fork();
        if (m_pid == 0) {
            (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes takes it along
            const std::string to = std::to_string(numbers[1]);
            (void)::execlp("Xvfb", "Xvfb", "-displayfd", to.c_str(), "-screen", "0", "1280x800x24",
                           "-nolisten", "tcp", static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(numbers[1]);
        // It chooses a display that is free and tells its number as soon as clients can come.
        std::string number;
        for (char c = 0; ::read(numbers[0], &c, 1) == 1 && c != '\n';) {
            number += c;
        }
        ::close(numbers[0]);
        m_is_there = !number.empty();
        if (m_is_there) {
            (void)::setenv("DISPLAY", (":" + number).c_str(), 1);
            (void)::setenv("QT_QPA_PLATFORM", "xcb", 1);
        }
    }

    VirtualScreen(const VirtualScreen&) = delete;
    VirtualScreen& operator=(const VirtualScreen&) = delete;

    ~VirtualScreen() {
        if (m_pid > 0) {
            (void)::kill(m_pid, SIGTERM);
            (void)::waitpid(m_pid, nullptr, 0);
        }
    }

    bool is_there() const { return m_is_there; }

private:
    pid_t m_pid = -1;
    bool m_is_there = false;
};

}  // namespace fw_test
