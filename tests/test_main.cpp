// The main function of the test programs. What it does more than GoogleTest's own: it tells ctest
// which entries the program makes, and tells a run of which every test was skipped, or that chose
// none, from one that passed.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

// What ctest takes for "skipped".
constexpr int kSkipped = 77;

// A process takes longer to load FFmpeg's libraries than most tests run, so some share one.
enum class Sharing {
    None,
    Rows,    // of a table
    Suites,  // whose tests leave nothing behind in the process
};

struct Entries {
    Sharing sharing = Sharing::None;
    std::vector<std::string> apart;  // parts of names of suites that share nothing
};

Entries entries_of(const std::vector<std::string>& words) {
    Entries entries;
    entries.sharing = words.front() == "suites" ? Sharing::Suites
                      : words.front() == "rows" ? Sharing::Rows
                                                : Sharing::None;
    entries.apart.assign(words.begin() + 1, words.end());
    return entries;
}

bool is_table(const testing::TestSuite& suite) {
    return suite.total_test_count() > 0 && suite.GetTestInfo(0)->value_param() != nullptr;
}

bool is_one_entry(const testing::TestSuite& suite, const Entries& entries) {
    const std::string name = suite.name();
    for (const std::string& part : entries.apart) {
        if (name.find(part) != std::string::npos) {
            return false;
        }
    }
    return entries.sharing == Sharing::Suites ||
           (entries.sharing == Sharing::Rows && is_table(suite));
}

/// One line for each entry: what its tests are chosen by, which is its name, too.
void print_entries(const Entries& entries) {
    const testing::UnitTest& program = *testing::UnitTest::GetInstance();
    for (int i = 0; i < program.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *program.GetTestSuite(i);
        if (is_one_entry(suite, entries)) {
            (void)std::printf("%s.*\n", suite.name());
            continue;
        }
        for (int k = 0; k < suite.total_test_count(); ++k) {
            (void)std::printf("%s.%s\n", suite.name(), suite.GetTestInfo(k)->name());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() >= 2 && words.front() == "--entries") {
        print_entries(entries_of({words.begin() + 1, words.end()}));
        return 0;
    }
    const int status = RUN_ALL_TESTS();
    const testing::UnitTest& program = *testing::UnitTest::GetInstance();
    if (program.test_to_run_count() == 0) {
        (void)std::fprintf(stderr, "no test has such a name\n");
        return 1;
    }
    const bool is_skipped =
        program.skipped_test_count() > 0 && program.successful_test_count() == 0;
    return status == 0 && is_skipped ? kSkipped : status;
}
