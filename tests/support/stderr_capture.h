#pragma once

#include <gtest/gtest.h>

#include <string>

namespace fw_test {

/// Keeps what is printed to standard error while it lives.
class StderrCapture {
public:
    StderrCapture() { testing::internal::CaptureStderr(); }

    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    ~StderrCapture() { (void)text(); }

    /// Ends the capture and returns what it has.
    const std::string& text() {
        if (!m_taken) {
            m_taken = true;
            m_text = testing::internal::GetCapturedStderr();
        }
        return m_text;
    }

private:
    bool m_taken = false;
    std::string m_text;
};

}  // namespace fw_test
