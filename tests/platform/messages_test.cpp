// The complaint routine and its log, run in a scratch working folder of its own.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/messages.h"

namespace tervo {
namespace {

namespace fs = std::filesystem;

const char* const kSetUpClass[] = {
    "TERVO error message whilst reading set-up files ",
    "(def, action, spectrum, generation, filter, abs, batch, recorder, script)"};

class ErrorLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        previous_ = fs::current_path();
        folder_ = fs::temp_directory_path() / ("tervo_log_" + std::to_string(std::random_device{}()));
        fs::create_directories(folder_);
        fs::current_path(folder_);
        StartProcess();
        ClearReportedMessages();
    }
    void TearDown() override {
        StartProcess();
        ErrorMessageMode = 0;
        fs::current_path(previous_);
        fs::remove_all(folder_);
    }

    // What a new process begins with: no log open, nothing counted.
    static void StartProcess() {
        CloseErrorLog();
        ErrorMessageNumber = 0;
    }

    static std::vector<std::string> LogLines() {
        std::ifstream in(TERVO_ERROR_LOG_NAME, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    fs::path previous_, folder_;
};

TEST_F(ErrorLogTest, ModeZeroWritesToStandardErrorAndMakesNoLog) {
    ErrorMessageMode = 0;
    testing::internal::CaptureStderr();
    TERVOErrorMessage("Calculating I(V)...", "No convergence");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Calculating I(V)...\nNo convergence\n\n");
    EXPECT_FALSE(fs::exists(TERVO_ERROR_LOG_NAME));
    EXPECT_EQ(ErrorMessageNumber, 0);
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].text, "No convergence");
}

TEST_F(ErrorLogTest, ModeTwoEmptiesTheLogOnceAndKeepsBothMessages) {
    std::ofstream(TERVO_ERROR_LOG_NAME) << "text of an earlier session\n";
    ErrorMessageMode = 2;
    testing::internal::CaptureStderr();
    TERVOErrorMessage("Error whilst reading the def file (in ReadNonEmptyNonCommentLine()", "Line 12");
    TERVOErrorMessage("While calculating I(V) ...", "Point 3 failed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), ""); // the log alone
    EXPECT_EQ(ErrorMessageNumber, 2);

    const std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 11u);
    const std::regex header(
        "TERVO error message #1 written on\t\\d\\d-\\d\\d-\\d{4} at \\d\\d:\\d\\d:\\d\\d");
    EXPECT_TRUE(std::regex_match(lines[0], header)) << lines[0];
    EXPECT_EQ(lines[1], kSetUpClass[0]);
    EXPECT_EQ(lines[2], kSetUpClass[1]);
    EXPECT_EQ(lines[3], "Error whilst reading the def file (in ReadNonEmptyNonCommentLine()");
    EXPECT_EQ(lines[4], "Line 12");
    EXPECT_EQ(lines[5], "");
    EXPECT_EQ(lines[6].rfind("TERVO error message #2 written on\t", 0), 0u);
    EXPECT_EQ(lines[7], "Unsepcified TERVO error message");
    EXPECT_EQ(lines[8], "While calculating I(V) ...");
    EXPECT_EQ(lines[9], "Point 3 failed");
    EXPECT_EQ(lines[10], "");
}

TEST_F(ErrorLogTest, ModeOneAppendsAndNumbersAnewAfterARestart) {
    ErrorMessageMode = 1;
    TERVOErrorMessage("Calculating the working point", "first session");
    StartProcess();
    TERVOErrorMessage("ERROR DURING OPENING a file", "second session");

    const std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(lines[0].rfind("TERVO error message #1 ", 0), 0u);
    EXPECT_EQ(lines[1], "Calculating the working point"); // a calculation message: no class line
    EXPECT_EQ(lines[2], "first session");
    EXPECT_EQ(lines[4].rfind("TERVO error message #1 ", 0), 0u);
    EXPECT_EQ(lines[5], kSetUpClass[0]); // the class words are found in any case
    EXPECT_EQ(lines[8], "second session");
}

TEST_F(ErrorLogTest, ClosedLogIsReopenedForAppendingAndModeZeroLeavesIt) {
    ErrorMessageMode = 2;
    TERVOErrorMessage("Short circuit", "one");
    CloseErrorLog();
    TERVOErrorMessage("Short circuit", "two"); // same session: the first entry stays
    ErrorMessageMode = 0;
    testing::internal::CaptureStderr();
    TERVOErrorMessage("Short circuit", "three");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Short circuit\nthree\n\n");
    EXPECT_TRUE(TERVOErrorLogFileHandle.IsOpen());

    const std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[2], "one");
    EXPECT_EQ(lines[4].rfind("TERVO error message #2 ", 0), 0u);
    EXPECT_EQ(lines[6], "two");
    EXPECT_EQ(ReportedMessages().size(), 3u);
}

TEST_F(ErrorLogTest, ALogThatCannotBeOpenedSendsTheMessageToStandardError) {
    fs::create_directory(TERVO_ERROR_LOG_NAME); // a folder in the way of the log
    ErrorMessageMode = 1;
    testing::internal::CaptureStderr();
    TERVOErrorMessage("Saving", "kept");
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("could not be opened"), std::string::npos);
    EXPECT_NE(err.find("Saving\nkept\n\n"), std::string::npos);
    EXPECT_EQ(ErrorMessageNumber, 0);
}

} // namespace
} // namespace tervo
