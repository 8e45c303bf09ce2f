#include "tests/support/media.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using fw_test::clip_flac;
using fw_test::clip_pcm;
using fw_test::lines_of;
using fw_test::read_file;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolProcess;
using fw_test::ToolResult;
using nlohmann::json;

constexpr int kRate = 44100;        // of the clips
constexpr std::size_t kSample = 4;  // bytes: two channels of 16 bits

std::string md5_of(const std::string& bytes) {
    return fw_test::md5_hex(bytes.data(), bytes.size());
}

// All samples of the file as the ffmpeg program decodes them.
std::string reference_sound(const std::string& path, const std::string& format) {
    const TemporaryFolder folder;
    const std::string raw = folder.path("reference");
    const std::string command = "ffmpeg -loglevel error -nostdin -i '" + path + "' -map 0:a:0 -f " +
                                format + " '" + raw + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return read_file(raw);
}

std::string stretch(const std::string& sound, std::size_t first, std::size_t count) {
    return sound.substr(first * kSample, count * kSample);
}

TEST(CmdAudioTest, GivesTheSamplesThatTheReferenceDecodes) {
    for (const std::string& clip : {clip_pcm(), clip_flac()}) {
        const std::string reference = reference_sound(clip, "s16le");
        const ToolResult result =
            run_tool({"audio", clip, "--from", "0.5", "--to", "1001/1000", "--json"});
        ASSERT_EQ(result.status, 0) << result.errors;
        ASSERT_EQ(result.json().size(), 1U);
        const json answer = result.json().front();
        EXPECT_EQ(answer.at("from"), "0.5");
        EXPECT_EQ(answer.at("to"), "1001/1000");
        EXPECT_EQ(answer.at("found"), true);
        EXPECT_EQ(answer.at("nb_samples"), 22094);
        EXPECT_EQ(answer.at("pts_us"), 500000);
        EXPECT_EQ(answer.at("rate"), kRate);
        EXPECT_EQ(answer.at("channels"), 2);
        EXPECT_EQ(answer.at("format"), "s16");
        EXPECT_EQ(answer.at("md5"), md5_of(stretch(reference, 22050, 22094))) << clip;
    }
}

TEST(CmdAudioTest, JoinsStepsToTheWholeSound) {
    const std::string reference = reference_sound(clip_flac(), "s16le");
    const TemporaryFolder folder;
    for (const char* const step : {"1/30", "1001/30000", "1/7", "10"}) {
        const ToolResult result = run_tool({"audio", clip_flac(), "--from", "0", "--to", "3",
                                            "--step", step, "-o", folder.path("a.raw"), "--json"});
        ASSERT_EQ(result.status, 0) << result.errors;
        EXPECT_TRUE(read_file(folder.path("a.raw")) == reference) << step;
        std::int64_t samples = 0;
        for (const json& answer : result.json()) {
            samples += answer.at("nb_samples").get<std::int64_t>();
        }
        EXPECT_EQ(samples, 3 * kRate) << step;
        EXPECT_EQ(result.json().back().at("to"), "3");
    }
}

TEST(CmdAudioTest, WritesWavFilesThatOthersRead) {
    struct Kind {
        const char* format;
        const char* codec;
    };

    for (const Kind& kind : {Kind{"u8", "pcm_u8"}, Kind{"s16", "pcm_s16le"},
                             Kind{"s32", "pcm_s32le"}, Kind{"flt", "pcm_f32le"}}) {
        const TemporaryFolder folder;
        const std::string wav = folder.path("a:b.wav");
        const ToolResult result = run_tool({"audio", clip_pcm(), "--from", "0", "--to", "1.5",
                                            "--step", "0.25", "--format", kind.format, "-o", wav});
        ASSERT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(lines_of(result.out).size(), 6U);
        const std::string command =
            "ffprobe -v error -show_entries stream=codec_name,sample_rate,channels,duration_ts "
            "-of csv=p=0 'file:" +
            wav + "' > '" + folder.path("probe") + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
        EXPECT_EQ(read_file(folder.path("probe")), std::string(kind.codec) + ",44100,2,66150\n");
    }
}

TEST(CmdAudioTest, GivesTheSameBytesInAFileAndOnStandardOutput) {
    const std::string reference = reference_sound(clip_pcm(), "s16le");
    const std::vector<std::string> span{"audio", clip_pcm(), "--from", "1", "--to", "2"};
    std::vector<std::string> arguments = span;
    arguments.insert(arguments.end(), {"-o", "-"});
    const ToolResult result = run_tool(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out == stretch(reference, kRate, kRate));
}

TEST(CmdAudioTest, ConvertsRateChannelsAndFormat) {
    const json answer = run_tool({"audio", clip_pcm(), "--from", "0", "--to", "1", "--rate",
                                  "22050", "--channels", "1", "--format", "flt", "--json"})
                            .json()
                            .front();
    EXPECT_EQ(answer.at("rate"), 22050);
    EXPECT_EQ(answer.at("channels"), 1);
    EXPECT_EQ(answer.at("format"), "flt");
    // The resampler keeps back what it needs to go on.
    EXPECT_NEAR(answer.at("nb_samples").get<int>(), 22050, 64);
}

TEST(CmdAudioTest, AnswersEachLineBeforeTheNextIsWritten) {
    const std::string reference = reference_sound(clip_flac(), "s16le");
    ToolProcess tool({"audio", clip_flac(), "--at", "-", "--json"});
    for (const int second : {2, 0, 1}) {
        const std::string from = std::to_string(second);
        const std::string to = std::to_string(second + 1);
        tool.write(from + " " + to + "\n");
        const json answer = json::parse(tool.read_line());
        EXPECT_EQ(answer.at("from"), from);
        EXPECT_EQ(answer.at("to"), to);
        EXPECT_EQ(answer.at("md5"),
                  md5_of(stretch(reference, static_cast<std::size_t>(second) * kRate, kRate)));
    }
    EXPECT_EQ(tool.finish().status, 0);
}

TEST(CmdAudioTest, AnswersEveryLineOnceWhateverItHolds) {
    const ToolResult result = run_tool({"audio", clip_pcm(), "--at", "0 1", "--at", "-", "--json"},
                                       "1\t2\r\n\n1\n1 2 3\nx 1\n2 1\n1 1\n 2.5  9 \n50 51\n");
    EXPECT_EQ(result.status, 1);
    std::vector<std::string> found;
    for (const json& answer : result.json()) {
        found.push_back(answer.at("from").get<std::string>() + "-" +
                        answer.at("to").get<std::string>() +
                        (answer.at("found").get<bool>() ? " yes" : " no"));
    }
    EXPECT_EQ(found,
              (std::vector<std::string>{"0-1 yes", "1-2 yes", "- no", "1- no", "1-2 3 no", "x-1 no",
                                        "2-1 no", "1-1 no", "2.5-9 yes", "50-51 no"}));
    EXPECT_EQ(lines_of(result.errors).size(), 7U) << result.errors;
    EXPECT_EQ(result.json()[8].at("nb_samples"), kRate / 2) << "the sound ends there";
}

TEST(CmdAudioTest, PlaysFasterWithTimesOfTheOutput) {
    const ToolResult result = run_tool({"audio", clip_pcm(), "--from", "0", "--to", "1.5", "--step",
                                        "0.05", "--speed", "2", "--json"});
    std::int64_t samples = 0;
    for (const json& answer : result.json()) {
        samples += answer.value("nb_samples", 0);
    }
    // Half of three seconds; the filter that changes the tempo keeps some of it back.
    EXPECT_GT(samples, kRate);
    EXPECT_LE(samples, kRate * 3 / 2);
}

TEST(CmdAudioTest, RunsTheFilterOfTheUser) {
    const TemporaryFolder folder;
    const ToolResult result = run_tool({"audio", clip_pcm(), "--from", "0", "--to", "1", "--filter",
                                        "volume=0", "-o", folder.path("a.raw")});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    const std::string sound = read_file(folder.path("a.raw"));
    EXPECT_EQ(sound, std::string(sound.size(), '\0'));
    EXPECT_FALSE(sound.empty());

    const ToolResult refused =
        run_tool({"audio", clip_pcm(), "--from", "0", "--to", "1", "--filter", "volume=loud"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.has_one_error_line()) << refused.errors;
}

TEST(CmdAudioTest, TakesTheStreamByItsNumberInTheFile) {
    const std::string clip = fw_test::clip_two_video_two_audio();
    const auto channels_of = [&](const char* number) {
        return run_tool({"audio", clip, "--from", "0", "--to", "1", "--stream", number, "--json"})
            .json()
            .front()
            .at("channels");
    };
    EXPECT_EQ(channels_of("2"), 2);
    EXPECT_EQ(channels_of("3"), 1);
    const ToolResult video = run_tool({"audio", clip, "--from", "0", "--to", "1", "--stream", "0"});
    EXPECT_EQ(video.status, 1);
    EXPECT_NE(video.errors.find("audio streams: 2, 3"), std::string::npos) << video.errors;
}

TEST(CmdAudioTest, LeavesNoFileWhereThereIsNoSound) {
    const TemporaryFolder folder;
    const ToolResult result =
        run_tool({"audio", clip_pcm(), "--from", "100", "--to", "101", "-o", folder.path("a.wav")});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    EXPECT_FALSE(std::filesystem::exists(folder.path("a.wav")));
}

TEST(CmdAudioTest, ReportsAFullDiskAndAFolderThatDoesNotExist) {
    const TemporaryFolder folder;
    for (const char* const name : {"full.wav", "full.raw"}) {
        std::filesystem::create_symlink("/dev/full", folder.path(name));
        const ToolResult result =
            run_tool({"audio", clip_pcm(), "--from", "0", "--to", "3", "-o", folder.path(name)});
        EXPECT_EQ(result.status, 1) << name;
        EXPECT_NE(result.errors.find("cannot be written"), std::string::npos) << result.errors;
        EXPECT_TRUE(std::filesystem::is_symlink(folder.path(name)));
    }
    for (const char* const name : {"no/a.wav", "no/a.raw"}) {
        const ToolResult result =
            run_tool({"audio", clip_pcm(), "--from", "0", "--to", "1", "-o", folder.path(name)});
        EXPECT_EQ(result.status, 1) << name;
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    }
}

}  // namespace
