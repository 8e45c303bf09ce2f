// The description of the filters that a decoder with effects opens: the speed of sound and what the
// host adds.

#include "tests/support/comma_locale.h"
#include "tests/support/stderr_capture.h"

#include <framewell/ffdecoder2.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using fw_test::StderrCapture;

struct CombineRow {
    const char* name;
    ff::StreamType type;
    const char* user;
    double speed;
    const char* desc;
};

const CombineRow kCombineRows[] = {
    {"SoundFaster", ff::StreamType::Audio, "", 2.0, "atempo=2.000000"},
    {"SoundWithFilter", ff::StreamType::Audio, "volume=0.5", 1.0, "volume=0.5"},
    {"SoundFasterWithFilter", ff::StreamType::Audio, "volume=0.5", 1.5,
     "atempo=1.500000, volume=0.5"},
    {"SoundPlain", ff::StreamType::Audio, "", 1.0, ""},
    {"SoundWithNull", ff::StreamType::Audio, "null", 1.0, ""},
    {"SoundSlowerWithAnull", ff::StreamType::Audio, "anull", 0.5, "atempo=0.500000"},
    {"SoundWithTheWholeSpeed", ff::StreamType::Audio, "", 1.2555555, "atempo=1.255556"},
    {"SoundWithAFilterThatBeginsWithNull", ff::StreamType::Audio, "nullsink", 1.0, "nullsink"},
    {"PicturesFaster", ff::StreamType::Video, "", 2.0, ""},
    {"PicturesFasterWithAnull", ff::StreamType::Video, "anull", 2.0, ""},
    {"PicturesFasterWithNull", ff::StreamType::Video, "null", 2.0, ""},
    {"PicturesFasterWithFilter", ff::StreamType::Video, "hflip", 2.0, "hflip"},
    {"SubtitlesFasterWithFilter", ff::StreamType::Subtitle, "hflip", 2.0, "hflip"},
    {"NoStreamFaster", ff::StreamType::None, "", 2.0, ""},
    {"NoStreamWithFilter", ff::StreamType::None, "volume=2", 2.0, "volume=2"},
};

class CombineFiltersTest : public ::testing::TestWithParam<CombineRow> {};

TEST_P(CombineFiltersTest, PutsTheSpeedOfSoundBeforeTheHostsFilters) {
    const CombineRow& row = GetParam();
    StderrCapture error;
    EXPECT_EQ(ff::combineFilters(row.type, row.user, row.speed), row.desc);
    EXPECT_EQ(error.text(), "[filter] type=" + std::to_string(static_cast<int>(row.type)) +
                                ", *****-> " + row.desc + "\n");
}

INSTANTIATE_TEST_SUITE_P(Rows, CombineFiltersTest, ::testing::ValuesIn(kCombineRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(CombineFiltersLimitTest, CutsTheDescriptionAt1023Characters) {
    const StderrCapture quiet;
    const std::string fits(1023, 'x');
    EXPECT_EQ(ff::combineFilters(ff::StreamType::Video, fits, 1.0), fits);
    EXPECT_EQ(ff::combineFilters(ff::StreamType::Video, fits + "y", 1.0), fits);
    const std::string cut = ff::combineFilters(ff::StreamType::Audio, fits, 2.0);
    EXPECT_EQ(cut.size(), 1023U);
    EXPECT_EQ(cut.substr(0, 18), "atempo=2.000000, x");
}

TEST(CombineFiltersLocaleTest, WritesADecimalPointWhereTheHostsLanguageHasAComma) {
    std::string text;
    {
        const fw_test::CommaLocale commas;
        if (!commas.known()) {
            GTEST_SKIP() << "no locale with a decimal comma is installed or can be made";
        }
        const StderrCapture quiet;
        text = ff::combineFilters(ff::StreamType::Audio, "", 1.5);
    }
    EXPECT_EQ(text, "atempo=1.500000");
}

TEST(CombineFiltersLocaleTest, WritesADecimalPointWhereTheGlobalLocaleOfTheHostHasAComma) {
    std::string text;
    {
        const fw_test::CommaLocale commas;  // in the streams of C++ on every machine
        const StderrCapture quiet;
        text = ff::combineFilters(ff::StreamType::Audio, "", 1.5);
    }
    EXPECT_EQ(text, "atempo=1.500000");
}

}  // namespace
