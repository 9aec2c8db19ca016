// The complaint routine.  In mode 0 a message goes to the screen, which in this build is the standard
// error stream; in modes 1 and 2 it goes to the log in the working folder, so that no message can
// stop a batch run or a script.  A message is never lost: if the log cannot be written, the message
// goes to the standard error stream instead.
#include "platform/messages.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/files.h"
#include "platform/format.h"
#include "platform/text_util.h"

namespace tervo {

int ErrorMessageMode = 0;
int ErrorMessageNumber = 0;
TextFile TERVOErrorLogFileHandle;

namespace {

std::vector<ReportedMessage>& Reported() {
    static std::vector<ReportedMessage> messages;
    return messages;
}

void ToStandardError(const std::string& title, const std::string& text) {
    std::fprintf(stderr, "%s\n%s\n\n", title.c_str(), text.c_str());
    std::fflush(stderr);
}

// Messages about a calculation carry no class line; those about reading or writing the set-up files
// carry one that names the files; all others are unspecified.
const char* ClassLine(const std::string& title) {
    static const char* const calculation[] = {"short circuit", "working point"};
    static const char* const setUp[] = {"whilst reading", "whilst setting", "whilst opening",
                                        "during reading", "during setting", "whilst saving",
                                        "during saving",  "during opening"};
    for (const char* phrase : calculation) {
        if (ContainsNoCase(title, phrase)) return nullptr;
    }
    for (const char* phrase : setUp) {
        if (ContainsNoCase(title, phrase)) {
            return "TERVO error message whilst reading set-up files \n(def, action, spectrum, generation, "
                   "filter, abs, batch, recorder, script)";
        }
    }
    return "Unsepcified TERVO error message";
}

// Opens the log when a message is to be logged and it is not open.  The first message of the process
// (ErrorMessageNumber 0) empties an overwriting log; a log reopened after
// CloseErrorLog is appended to.
bool EnsureLogOpen(int mode) {
    const bool firstOfSession = ErrorMessageNumber == 0;
    if (!firstOfSession && TERVOErrorLogFileHandle.IsOpen()) return true;
    CloseFile(TERVOErrorLogFileHandle);
    TERVOErrorLogFileHandle = OpenFile(TERVO_ERROR_LOG_NAME, FileMode::Append);
    if (!TERVOErrorLogFileHandle.IsOpen()) return false;
    // Emptied in one step: the earlier session's log stays whole until then.
    if (firstOfSession && mode != 1 && ftruncate(fileno(TERVOErrorLogFileHandle.fp.get()), 0) != 0) {
        TERVOErrorLogFileHandle.lastError = errno;
        return false;
    }
    return true;
}

// Each entry goes to the log in one piece, so that a run killed while it reports leaves whole
// entries only.
bool WriteEntry(const std::string& title, const std::string& text) {
    const DateTime now = GetSystemDateTime();
    std::string entry;
    Fmt(entry,
        "%s<TERVO error message #%i written on\t%i[w2p0]-%i[w2p0]-%i[w4] at %i[w2p0]:%i[w2p0]:%i[w2p0]",
        ErrorMessageNumber, now.day, now.month, now.year, now.hours, now.minutes, now.seconds);
    entry += '\n';
    if (const char* classLine = ClassLine(title)) entry += std::string(classLine) + '\n';
    entry += title + '\n' + text + "\n\n";
    return AppendWhole(TERVOErrorLogFileHandle, entry) == 0;
}

} // namespace

void TERVOErrorMessage(const std::string& title, const std::string& text) {
    Reported().push_back({title, text});
    const int mode = ErrorMessageMode;
    const bool logOnly = mode == 1 || mode == 2;
    if (!logOnly) ToStandardError(title, text);
    if (mode == 0) return;

    if (!EnsureLogOpen(mode)) {
        std::fprintf(stderr, "The log %s could not be opened (%s); the message follows.\n",
                     TERVO_ERROR_LOG_NAME, IoErrorText(TERVOErrorLogFileHandle.lastError).c_str());
        if (logOnly) ToStandardError(title, text);
        return;
    }
    ++ErrorMessageNumber;
    if (!WriteEntry(title, text)) {
        std::fprintf(stderr, "The log %s could not be written (%s); the message follows.\n",
                     TERVO_ERROR_LOG_NAME, IoErrorText(TERVOErrorLogFileHandle.lastError).c_str());
        if (logOnly) ToStandardError(title, text);
    }
}

void CloseErrorLog() {
    CloseFile(TERVOErrorLogFileHandle);
}

int WorseExitStatus(int a, int b) {
    auto rank = [](int status) {
        switch (status) {
        case EXIT_RAN:
            return 0;
        case EXIT_WARNED:
            return 1;
        case EXIT_FAILED:
            return 2;
        default:
            return 3;
        }
    };
    return rank(a) >= rank(b) ? a : b;
}

bool StrictReading = false;

namespace {
std::vector<std::string>& Warnings() {
    static std::vector<std::string> warnings;
    return warnings;
}
} // namespace

void TERVOReadingWarning(const std::string& title, const std::string& text) {
    Warnings().push_back(text);
    TERVOErrorMessage(title, text);
}

const std::vector<std::string>& ReadingWarnings() {
    return Warnings();
}

void ClearReadingWarnings() {
    Warnings().clear();
}

const std::vector<ReportedMessage>& ReportedMessages() {
    return Reported();
}

void ClearReportedMessages() {
    Reported().clear();
}

} // namespace tervo
