#include "tests/robustness/sanitizer_report.h"

#include <gtest/gtest.h>

#include <string>

using fw_test::headline_of_report;

TEST(SanitizerReportTest, IsEmptyWithoutAReport) {
    EXPECT_EQ(headline_of_report(""), "");
    EXPECT_EQ(headline_of_report("[mov] moov atom not found\n    #0 0x1 in f()\n"), "");
}

TEST(SanitizerReportTest, NamesTheFirstFunctionsThatAreNotTheSanitizersOwn) {
    EXPECT_EQ(
        headline_of_report("something else\n"
                           "==7==ERROR: AddressSanitizer: heap-buffer-overflow on address 0x60\n"
                           "READ of size 4 at 0x60 thread T0\n"
                           "    #0 0x7f in __interceptor_memcpy ../memcpy.cpp:1\n"
                           "    #1 0x7f in memcpy (/lib/libasan.so.8+0x1)\n"
                           "    #2 0x55 in ff::Instance::read(int) /a/b.cpp:3\n"
                           "    #3 0x7f in av_read_frame (/lib/libavformat.so.59+0x1a)\n"),
        "==7==ERROR: AddressSanitizer: heap-buffer-overflow on address 0x60: ff::Instance::read < "
        "av_read_frame [libavformat.so.59]");
}

TEST(SanitizerReportTest, GoesOnFromTheSignalToWhatItWas) {
    EXPECT_EQ(headline_of_report("AddressSanitizer:DEADLYSIGNAL\n"
                                 "==7==ERROR: AddressSanitizer: SEGV on unknown address 0x0\n"
                                 "    #0 0x55 in f /a.cpp:1\n"),
              "==7==ERROR: AddressSanitizer: SEGV on unknown address 0x0: f");
}

TEST(SanitizerReportTest, KnowsTheOtherSanitizers) {
    EXPECT_EQ(
        headline_of_report("a.cpp:3:4: runtime error: shift exponent 99\n    #0 0x1 in f(int)"),
        "a.cpp:3:4: runtime error: shift exponent 99: f");
    EXPECT_EQ(headline_of_report("==7==ERROR: LeakSanitizer: detected memory leaks\n"),
              "==7==ERROR: LeakSanitizer: detected memory leaks");
}
