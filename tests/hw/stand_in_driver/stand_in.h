#pragma once

/// @file
/// What the tests with the driver that stands in for a real one share.

#include "media/ff_compat.h"
#include "tests/support/log_capture.h"

#include <framewell/hw/hw_decoder.h>

#include <gtest/gtest.h>

#include <stdlib.h>

#include <atomic>
#include <cstring>

namespace fw_test {

/// While it is set, no picture can be copied from the device.
extern std::atomic<bool> g_fail_transfer;

/// What every sample of a picture of the driver is.
constexpr int kStandInLuma = 81;
constexpr int kStandInChroma = 90;

/// Chooses the device of the driver, and turns hardware decoding off at the end.
class StandInFixture : public testing::Test {
protected:
    void SetUp() override {
        // A real driver would answer as well, but not with flat pictures.
        const char* const libraries = getenv("LD_LIBRARY_PATH");
        if (libraries == nullptr || std::strstr(libraries, FRAMEWELL_STAND_IN_FOLDER) == nullptr) {
            GTEST_SKIP() << "LD_LIBRARY_PATH lacks the stand-in driver: " FRAMEWELL_STAND_IN_FOLDER;
        }
        if (!is_cuda_listed()) {
            GTEST_SKIP() << "this FFmpeg is built without the device type cuda";
        }
        const LogCapture quiet;
        ASSERT_TRUE(ff::hw_enable_device("cuda"));
    }

    void TearDown() override {
        fail_at("");
        g_fail_transfer = false;
        const LogCapture quiet;
        ff::hw_disable();
    }

    static void fail_at(const char* step) {
        ASSERT_EQ(setenv("FRAMEWELL_STAND_IN_FAIL", step, 1), 0);
    }

private:
    static bool is_cuda_listed() {
        AVHWDeviceType type = AV_HWDEVICE_TYPE_NONE;
        while ((type = av_hwdevice_iterate_types(type)) != AV_HWDEVICE_TYPE_NONE) {
            if (type == AV_HWDEVICE_TYPE_CUDA) {
                return true;
            }
        }
        return false;
    }
};

}  // namespace fw_test
