#include "tests/examples/program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using fw_test::run_program;

/// An example, and arguments that are right but for the file, which does not exist.
struct Call {
    std::string program;
    std::vector<std::string> arguments;
    std::string input;
};

class ExampleUsageTest : public ::testing::TestWithParam<Call> {
protected:
    std::string name() const {
        return GetParam().program.substr(GetParam().program.rfind('/') + 1);
    }

    fw_test::TemporaryFolder folder;
};

std::string row_name(const ::testing::TestParamInfo<Call>& row) {
    std::string name;
    for (const char c : row.param.program) {
        name += c == '/' ? '_' : c;
    }
    return name;
}

}  // namespace

TEST_P(ExampleUsageTest, TellsHowItIsCalledWhenArgumentsAreMissing) {
    const auto result = run_program(GetParam().program, {}, folder);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.errors.substr(0, 7 + name().size() + 1), "usage: " + name() + " ");
    EXPECT_EQ(fw_test::lines_in(result.errors).size(), 1U);
}

TEST_P(ExampleUsageTest, FailsAndGivesAReasonAndWritesNothingWithoutTheFile) {
    const auto result =
        run_program(GetParam().program, GetParam().arguments, folder, GetParam().input);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("\"can't open input file: missing.mp4\""), std::string::npos)
        << result.errors;
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("")));
}

INSTANTIATE_TEST_SUITE_P(
    Examples, ExampleUsageTest,
    ::testing::Values(
        Call{"cover", {"missing.mp4"}, ""}, Call{"effects", {"missing.mp4"}, ""},
        Call{"export_loop", {"missing.mp4", "out.raw"}, ""},
        Call{"filmstrip", {"missing.mp4", "3"}, ""}, Call{"frame_at", {"missing.mp4", "0"}, ""},
        Call{"gallery", {".", "2"}, "missing.mp4\n"}, Call{"level_meter", {"missing.mp4"}, ""},
        Call{"mixdown", {"out.raw", "missing.mp4"}, ""}, Call{"probe", {"missing.mp4"}, ""},
        Call{"scrub", {"missing.mp4"}, ""}, Call{"thumbnails", {"missing.mp4", "3"}, ""},
        Call{"waveform_cache", {"missing.mp4", ".", "10"}, ""},
        Call{"getting_started/probe", {"missing.mp4"}, ""},
        Call{"getting_started/picture", {"missing.mp4"}, ""},
        Call{"getting_started/sound", {"missing.mp4"}, ""},
        Call{"getting_started/scrub", {"missing.mp4"}, ""},
        Call{"getting_started/reverse", {"missing.mp4"}, ""},
        Call{"getting_started/mix", {"missing.mp4", "missing.mp4"}, ""}),
    row_name);

// Numbers that make no sense are wrong usage, too.

TEST(ExampleUsageTest, RefusesNumbersThatMakeNoSense) {
    const fw_test::TemporaryFolder folder;
    const std::vector<std::pair<std::string, std::vector<std::string>>> calls{
        {"filmstrip", {"clip.mp4", "0"}},   {"filmstrip", {"clip.mp4", "1001"}},
        {"gallery", {".", "none"}},         {"gallery", {".", "65"}},
        {"thumbnails", {"clip.mp4", "-1"}}, {"waveform_cache", {"clip.mp4", ".", "0"}},
    };
    for (const auto& [program, arguments] : calls) {
        EXPECT_EQ(run_program(program, arguments, folder).status, 2) << program;
    }
}
