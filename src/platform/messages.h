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

// ---------------------------------------------------------------------------------------------
// Reading warnings and exit statuses

// The exit statuses of the process, the same for a single run, a script and every later kind of run.
enum ExitStatus : int {
    EXIT_RAN = 0,     // everything ran as asked
    EXIT_FAILED = 1,  // a calculation failed or a curve was cut; what was calculated is saved
    EXIT_REFUSED = 2, // the input was refused; nothing was calculated
    EXIT_WARNED = 3,  // it ran, but an input file needed a warning
};

// Of two statuses the one that tells more is wrong: refused, then failed, then warned, then ran.
int WorseExitStatus(int a, int b);

// Set by --strict: a reader that had to warn refuses its file instead, for runs that no one watches.
extern bool StrictReading;

// A warning about an input file that was still read: a value that could not be read or lay outside
// its range (the field keeps what it held), an unknown keyword.  It is reported like any message and
// kept, so that the result files of the run carry it in their header.
void TERVOReadingWarning(const std::string& title, const std::string& text);
// The texts of the reading warnings of the process, in order; the count only grows until cleared.
const std::vector<std::string>& ReadingWarnings();
void ClearReadingWarnings();

// For tests: every message of the process also lands here, title and text.
struct ReportedMessage {
    std::string title;
    std::string text;
};
const std::vector<ReportedMessage>& ReportedMessages();
void ClearReportedMessages();

} // namespace tervo
