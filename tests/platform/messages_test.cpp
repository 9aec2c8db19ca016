// The complaint routine and its log, run in a scratch working folder of its own.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "platform/messages.h"
#include "support/temp_folder.h"

using namespace tervo;

namespace {

namespace fs = std::filesystem;

const std::string kSetUpClass = "TERVO error message whilst reading set-up files \n"
                                "(def, action, spectrum, generation, filter, abs, batch, recorder, script)\n";

class ErrorLog : public ::testing::Test {
protected:
    void SetUp() override {
        fs::current_path(folder.path);
        StartProcess();
        ClearReportedMessages();
    }
    void TearDown() override {
        StartProcess();
        ErrorMessageMode = 0;
        fs::current_path(previous);
    }
    // What a new process begins with: no log open, nothing counted.
    static void StartProcess() {
        CloseErrorLog();
        ErrorMessageNumber = 0;
    }
    // The log with each date and time written as "D T".
    static std::string Log() {
        return std::regex_replace(test::ReadFile(TERVO_ERROR_LOG_NAME),
                                  std::regex("\\d\\d-\\d\\d-\\d{4} at \\d\\d:\\d\\d:\\d\\d"), "D T");
    }
    static std::string Entry(int number, const std::string& classLine, const std::string& title,
                             const std::string& text) {
        return "TERVO error message #" + std::to_string(number) + " written on\tD T\n" + classLine + title +
               "\n" + text + "\n\n";
    }
    fs::path previous = fs::current_path();
    test::TempFolder folder;
};

// Mode 2 empties the log at the first message of a session and writes to it alone; mode 1 appends,
// and a new process numbers anew.  A calculation message has no class line; the class words are
// found in any case.
TEST_F(ErrorLog, ModeTwoEmptiesTheLogOnceAndModeOneAppendsNumberingAnewAfterARestart) {
    test::WriteFile(TERVO_ERROR_LOG_NAME, "text of an earlier session\n");
    ErrorMessageMode = 2;
    testing::internal::CaptureStderr();
    TERVOErrorMessage("Error whilst reading the def file (in ReadNonEmptyNonCommentLine()", "Line 12");
    TERVOErrorMessage("While calculating I(V) ...", "Point 3 failed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(ErrorMessageNumber, 2);
    StartProcess();
    ErrorMessageMode = 1;
    TERVOErrorMessage("Calculating the working point", "next session");
    TERVOErrorMessage("ERROR DURING OPENING a file", "again");
    EXPECT_EQ(Log(), Entry(1, kSetUpClass,
                           "Error whilst reading the def file (in ReadNonEmptyNonCommentLine()", "Line 12") +
                         Entry(2, "Unsepcified TERVO error message\n", "While calculating I(V) ...",
                               "Point 3 failed") +
                         Entry(1, "", "Calculating the working point", "next session") +
                         Entry(2, kSetUpClass, "ERROR DURING OPENING a file", "again"));
}

// Mode 0 writes to standard error alone, counts nothing and leaves the log as it is: none at first,
// open later; a closed log is reopened for appending.
TEST_F(ErrorLog, ModeZeroWritesToStandardErrorAndAClosedLogIsReopenedForAppending) {
    auto modeZero = [](const char* text) {
        ErrorMessageMode = 0;
        testing::internal::CaptureStderr();
        TERVOErrorMessage("Short circuit", text);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("Short circuit\n") + text + "\n\n");
    };
    modeZero("zero");
    EXPECT_FALSE(fs::exists(TERVO_ERROR_LOG_NAME));
    EXPECT_EQ(ErrorMessageNumber, 0);
    ErrorMessageMode = 2;
    TERVOErrorMessage("Short circuit", "one");
    CloseErrorLog();
    TERVOErrorMessage("Short circuit", "two"); // same session: the first entry stays
    modeZero("three");
    EXPECT_TRUE(TERVOErrorLogFileHandle.IsOpen());
    EXPECT_EQ(Log(), Entry(1, "", "Short circuit", "one") + Entry(2, "", "Short circuit", "two"));
    ASSERT_EQ(ReportedMessages().size(), 4u);
    EXPECT_EQ(ReportedMessages()[0].text, "zero");
}

TEST_F(ErrorLog, ALogThatCannotBeOpenedSendsTheMessageToStandardError) {
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
