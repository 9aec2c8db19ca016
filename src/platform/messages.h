// The one complaint routine of the program and its log.
#pragma once

#include <string>
#include <vector>

#include "platform/text_file.h"

namespace tervo {

// 0 to the screen (standard error in this build); 1 append to the log; 2 overwrite the log at the
// first message of the session.
extern int ErrorMessageMode;
extern int ErrorMessageNumber;           // messages written to the log since start
extern TextFile TERVOErrorLogFileHandle; // open while the log is in use

inline constexpr const char* TERVO_ERROR_LOG_NAME = "TERVOErrorLogFile.log";

// Reports: the title says what was being done, the text what went wrong.
void TERVOErrorMessage(const std::string& title, const std::string& text);

// Closes the log if it is open.
void CloseErrorLog();

// For tests: every message of the process also lands here, title and text.
struct ReportedMessage {
    std::string title;
    std::string text;
};
const std::vector<ReportedMessage>& ReportedMessages();
void ClearReportedMessages();

} // namespace tervo
