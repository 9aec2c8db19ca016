// A fresh home folder for a script test, with the shipped spectrum and the session's settings at
// their defaults, and helpers to write and run scripts and to look for messages.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "run/control/work_point.h"
#include "run/results/result_list.h"
#include "script/script_runner.h"
#include "support/temp_folder.h"

namespace tervo::testing {

namespace fs = std::filesystem;
using test::FileLines;
using test::ReadFile;
using test::WriteFile;

class ScriptHome : public ::testing::Test {
protected:
    test::TempFolder tmp;
    fs::path home = tmp.path / "home";

    void SetUp() override {
        ASSERT_GE(SetTERVOHome(home.string()), 0);
        fs::copy_file(fs::path(TERVO_SOURCE_DIR) / "home/spectrum/AM1_5G 1 sun.spe",
                      home / "spectrum/AM1_5G 1 sun.spe");
        ErrorMessageMode = 2;
        ClearReportedMessages();
        InitialiseScriptVariables(theScript);
        ClearScriptGraph(theScript);
        InitialiseActionPanel(actionPanel);
        InitialiseWorkPoint(wp);
        InitialiseWorkPoint(secondwp);
        AllFilesFound = 1;
    }

    std::string In(const std::string& folder, const std::string& name) const {
        return (home / folder / name).string();
    }

    // Writes `text` as a script into the script folder and runs it by its bare name; 0 when it ran.
    int Run(const std::string& text, const std::string& name = "test.script") const {
        WriteFile(In("script", name), text);
        return RunScriptFile(name, 1);
    }

    // The number of messages with exactly this title and text.
    static int Count(const std::string& title, const std::string& text) {
        int n = 0;
        for (const ReportedMessage& m : ReportedMessages()) n += m.title == title && m.text == text;
        return n;
    }
    static std::string AllMessages() {
        std::string all;
        for (const ReportedMessage& m : ReportedMessages()) all += "[" + m.title + "] " + m.text + "\n";
        return all;
    }
};

} // namespace tervo::testing
