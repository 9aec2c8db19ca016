// A folder of small data files written by the test, and the messages the code reported meanwhile.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/messages.h"
#include "support/temp_folder.h"

namespace tervo::test {

class DataFileTest : public ::testing::Test {
protected:
    void SetUp() override { ClearReportedMessages(); }
    std::string Write(const std::string& name, const std::string& text) {
        WriteFile(dir / name, text);
        return dir / name;
    }
    // Whether a reported title or text contains `phrase`.
    static bool Reported(const std::string& phrase) {
        for (const ReportedMessage& m : ReportedMessages())
            if ((m.title + "\n" + m.text).find(phrase) != std::string::npos) return true;
        return false;
    }
    TempFolder dir;
};

} // namespace tervo::test
