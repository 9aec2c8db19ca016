#include "script/script_runner.h"

#include <cctype>
#include <cstdio>
#include <filesystem>

#include "cell/definition_file.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_file.h"
#include "platform/text_util.h"
#include "run/control/startup.h"
#include "run/sweeps/point_recovery.h"
#include "script/load_save_commands.h"

namespace tervo {

ScriptVariables theScript = [] {
    ScriptVariables script;
    InitialiseScriptVariables(script);
    return script;
}();

std::string scriptStatusText;

void InitialiseScriptVariables(ScriptVariables& s) {
    static const std::array<const char*, NUMBER_OF_SCRIPT_SLOTS> names = {"xvector", "yvector", "zvector",
                                                                          "uvector", "vvector", "wvector"};
    s.status = 0;
    s.mode = 0;
    s.loopcounter = 0;
    s.maxiteration = 25;
    for (int i = 0; i < NUMBER_OF_SCRIPT_SLOTS; ++i) {
        const size_t k = static_cast<size_t>(i);
        s.svector[k].assign(3, 0.0);
        s.nvector[k] = 3;
        s.sindex[k] = 0;
        s.svalue[k] = 0.0;
        s.sname[k] = names[k];
    }
    s.looperror = 1e30;
    s.maxerror = 0.001;
    s.filename = "defaultfilename";
}

void ClearScriptGraph(ScriptVariables& script) {
    script.plotlist.clear();
}

void ResizeScriptVector(ScriptVariables& script, int slot, int n) {
    if (slot < 0 || slot >= NUMBER_OF_SCRIPT_SLOTS) return;
    const size_t k = static_cast<size_t>(slot);
    const int length = n < 0 ? 0 : n;
    script.svector[k].resize(static_cast<size_t>(length), 0.0);
    script.nvector[k] = length;
}

int GetSCRmode(char letter) {
    switch (std::tolower(static_cast<unsigned char>(letter))) {
    case 'x':
        return 0;
    case 'y':
        return 1;
    case 'z':
        return 2;
    case 'u':
        return 3;
    case 'v':
        return 4;
    case 'w':
        return 5;
    default:
        return -1;
    }
}

int checkMathValue(const std::string& value, int count, std::vector<int>& slots) {
    slots.clear();
    if (count < 0 || value.size() < static_cast<size_t>(count)) return 0;
    for (int i = 0; i < count; ++i) {
        const int slot = GetSCRmode(value[static_cast<size_t>(i)]);
        if (slot < 0) return 0;
        slots.push_back(slot);
    }
    return 1;
}

// ---------------------------------------------------------------------------------------------
// Tokenising

namespace {

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

} // namespace

void ReadFirstWord(std::string& line, std::string* word) {
    size_t begin = 0;
    while (begin < line.size() && IsSpace(line[begin])) ++begin;
    size_t end = begin;
    while (end < line.size() && !IsSpace(line[end])) ++end;
    if (word) *word = line.substr(begin, end - begin);
    size_t rest = end;
    while (rest < line.size() && IsSpace(line[rest])) ++rest;
    line.erase(0, rest);
}

void InterpretScriptLine(std::string& line, std::string* command, std::string* argument, std::string* value) {
    std::string first, second;
    ReadFirstWord(line, &first);
    ReadFirstWord(line, &second);
    if (first.size() > static_cast<size_t>(SCRIPT_WORD_LIMIT)) first.resize(SCRIPT_WORD_LIMIT);
    if (line.size() > static_cast<size_t>(SCRIPT_VALUE_LIMIT)) line.resize(SCRIPT_VALUE_LIMIT);
    if (command) *command = first;
    if (argument) *argument = second;
    if (value) *value = line;
    line.clear();
}

void RemoveCommentsFromValue(std::string& value) {
    for (size_t i = 1; i < value.size(); ++i) {
        const char c = value[i];
        if (c == value[i - 1] && c != ']' && std::ispunct(static_cast<unsigned char>(c))) {
            value.erase(i - 1);
            break;
        }
    }
    value = TrimRight(value);
}

void InterpretScriptVariable(const std::string& argument, std::string& part1, std::string& part2,
                             std::string& part3, std::string& part4) {
    std::array<std::string*, 4> parts = {&part1, &part2, &part3, &part4};
    for (std::string* p : parts) p->clear();
    size_t begin = 0;
    for (std::string* p : parts) {
        if (begin > argument.size()) break;
        size_t end = argument.find('.', begin);
        if (end == std::string::npos) end = argument.size();
        *p = argument.substr(begin, end - begin);
        if (p->size() > static_cast<size_t>(SCRIPT_WORD_LIMIT)) p->resize(SCRIPT_WORD_LIMIT);
        begin = end + 1;
    }
}

bool MatchesKeyword(const std::string& word, const char* keyword) {
    return StartsWithNoCase(word, keyword);
}

// ---------------------------------------------------------------------------------------------
// Dispatch

namespace {

// What a handler may read and change of the line and of the run of its file.
struct ScriptLine {
    const std::string& argument;
    const std::string& value;
    const std::string& commandLine;
    const std::string& scriptPath;
    int* keepRunning;
    long& filePosition;      // behind this line; a loop may move it
    bool& filePositionMoved; // set when the file is to be set to filePosition
    long& loopStart;
    int& repetitions;
    bool& nestedScriptRun; // a script was run from this line
};

using ScriptHandler = void (*)(ScriptLine&);

void LoadLine(ScriptLine& l) {
    ProcessLoadCommand(l.argument, l.value);
}

void SaveLine(ScriptLine& l) {
    ProcessSaveCommand(l.argument, l.value, ScriptOutputHeader(l.scriptPath, l.commandLine), theScript);
}

void ActionLine(ScriptLine& l) {
    ProcessActionCommand(l.argument, l.value, theScript, l.commandLine);
}

void CalculateLine(ScriptLine& l) {
    ProcessCalculateCommand(l.argument);
}

void LoopLine(ScriptLine& l) {
    ProcessLoopCommand(l.argument, l.value, l.filePosition, l.loopStart, theScript, l.commandLine,
                       l.repetitions);
    l.filePositionMoved = true;
}

void ClearLine(ScriptLine& l) {
    ProcessClearScriptCommand(l.argument, theScript);
}

void RunDllLine(ScriptLine&) {
    ProcessRunDLLCommand(theScript);
}

void RunSystemLine(ScriptLine& l) {
    ProcessRunSystemCommand(l.argument, l.value);
}

void RunScriptLine(ScriptLine& l) {
    ProcessRunScriptCommand(l.argument, l.value, l.keepRunning);
    l.nestedScriptRun = true;
}

void RunLine(ScriptLine& l) {
    l.nestedScriptRun = ProcessRunCommand(l.argument, l.value, theScript, l.keepRunning) == 1;
}

// The commands whose handlers are not part of this build: the line is refused with a message in the
// words of the command's own complaints, and the script goes on.
void SetLine(ScriptLine& l) {
    std::string part1, part2, part3, part4;
    InterpretScriptVariable(l.argument, part1, part2, part3, part4);
    // `set recovery.off` makes a point that does not converge cut its curve at once; `set recovery.on`
    // gives the retries back (smaller steps, then the coupled iteration).
    if (MatchesKeyword(part1, "recovery") && (MatchesKeyword(part2, "on") || MatchesKeyword(part2, "off"))) {
        sweepRecovery = MatchesKeyword(part2, "on") ? 1 : 0;
        return;
    }
    TERVOErrorMessage("Error whilst processing set command in script",
                      FmtStr("%s<Script command: set %s %s\nThe set command is not available in this build",
                             l.argument, l.value));
}

void GetLine(ScriptLine& l) {
    TERVOErrorMessage("Script get command",
                      FmtStr("%s<Get-command: get %s[q] %s[q]\nThe get command is not available in this "
                             "build; nothing returned",
                             l.argument, l.value));
}

void MathLine(ScriptLine& l) {
    TERVOErrorMessage(
        "Error whilst processing math command in script:",
        FmtStr("%s<math %s %s\nThe math command is not available in this build", l.argument, l.value));
}

void PlotLine(ScriptLine& l) {
    TERVOErrorMessage(
        "Error whilst processing plot command in script: ",
        FmtStr("%s<plot %s %s\nThe plot command is not available in this build", l.argument, l.value));
}

void ShowLine(ScriptLine& l) {
    TERVOErrorMessage("Error whilst processing show command in script",
                      FmtStr("%s<Script command: show %s %s\nThe dump of the script variables is not "
                             "available in this build",
                             l.argument, l.value));
}

struct ScriptCommand {
    const char* word;
    ScriptHandler handler;
};

// The order is binding: "runsystem" and "runscript" must be tested before "run", and a word such as
// "settle" is "set".
constexpr ScriptCommand COMMANDS[] = {
    {"load", LoadLine},           {"save", SaveLine},   {"set", SetLine},       {"get", GetLine},
    {"action", ActionLine},       {"math", MathLine},   {"plot", PlotLine},     {"calculate", CalculateLine},
    {"loop", LoopLine},           {"clear", ClearLine}, {"rundll", RunDllLine}, {"runsystem", RunSystemLine},
    {"runscript", RunScriptLine}, {"run", RunLine},     {"show", ShowLine},
};
constexpr int NUMBER_OF_COMMANDS = static_cast<int>(sizeof(COMMANDS) / sizeof(COMMANDS[0]));

} // namespace

int ScriptExitStatus = EXIT_RAN;

void RaiseScriptStatus(int status) {
    ScriptExitStatus = WorseExitStatus(ScriptExitStatus, status);
}

int ScriptCommandCode(const std::string& word) {
    for (int i = 0; i < NUMBER_OF_COMMANDS; ++i)
        if (MatchesKeyword(word, COMMANDS[i].word)) return i;
    return -1;
}

const char* ScriptCommandWord(int code) {
    return code >= 0 && code < NUMBER_OF_COMMANDS ? COMMANDS[code].word : "";
}

// ---------------------------------------------------------------------------------------------
// Running a script

std::string ScriptOutputHeader(const std::string& scriptPath, const std::string& commandLine) {
    DateTime stamp;
    GetFileDateTime(scriptPath, stamp);
    return FmtStr("%s<TERVO output generated by a script\nfilename\t%s[q]\nscript file date\t%i-%i-%i, "
                  "%i:%i:%i\nscript command\t%s[q]",
                  scriptPath, stamp.day, stamp.month, stamp.year, stamp.hours, stamp.minutes, stamp.seconds,
                  commandLine);
}

void TurnOnScriptMessage(const std::string& path) {
    std::string drive, folder, file;
    SplitPath(path, drive, folder, file);
    scriptStatusText = FmtStr("%s<Executing a script\nfile: %s", file);
}

void TurnOffScriptMessage() {
    scriptStatusText.clear();
}

namespace {

int nestingDepth = 0; // scripts running inside one another at this moment

struct NestingGuard {
    NestingGuard() { ++nestingDepth; }
    ~NestingGuard() { --nestingDepth; }
    NestingGuard(const NestingGuard&) = delete;
    NestingGuard& operator=(const NestingGuard&) = delete;
};

// Completes `path` (working folder first, then the script folder) into a full path.  True when it
// names a file whose size can be read.
bool FindScriptFile(std::string& path) {
    std::string found = path;
    if (!IsFileFound(found, FILETYPE_SCRIPT)) CheckTERVOPaths(&found, nullptr, path, FILETYPE_SCRIPT);
    long long size = 0;
    if (found.empty() || GetFileSize(found, size) != 0) {
        path = found;
        return false;
    }
    // The full path: result files name the script that wrote them.
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(found, error);
    path = error ? found : absolute.lexically_normal().string();
    return true;
}

// The run loop.  0 when the file was run, -1 when it could not be found or opened.
int RunScript(std::string& path, int* keepRunning) {
    const int savedErrorMessageMode = ErrorMessageMode;
    if (!FindScriptFile(path)) return -1;
    if (nestingDepth >= MAX_SCRIPT_NESTING) {
        // A script that runs itself, directly or through others, would never end.
        TERVOErrorMessage("Error whilst reading the script file, in RunScriptFile()",
                          FmtStr("%s<Scripts are nested deeper than %i levels: the script %s[q] is not run",
                                 MAX_SCRIPT_NESTING, path));
        return -1;
    }
    TextFile file = OpenFile(path, FileMode::Read);
    if (!file.IsOpen()) return -1;
    NestingGuard nesting;

    TurnOnScriptMessage(path);
    // Each run of a file has its own loop: its start and its count of repetitions.
    long loopStart = -1;
    int repetitions = 0;
    ScriptVariables& script = theScript;

    while (keepRunning && *keepRunning == 1) {
        std::string line;
        const int read = ReadNonEmptyNonCommentLine(file, line, SCRIPT_LINE_LIMIT, 1, 1, 0);
        if (read < 0) break;
        if (read == 0) continue;
        const std::string commandLine = line;
        std::string command, argument, value;
        InterpretScriptLine(line, &command, &argument, &value);
        RemoveCommentsFromValue(value);
        const int code = ScriptCommandCode(command);
        if (code < 0) {
            TERVOErrorMessage("Error whilst reading the script file, in RunScriptFile()",
                              FmtStr("%s<Command line not recoognised\n%s\nin the script %s[q]", commandLine, path));
            RaiseScriptStatus(EXIT_REFUSED);
            continue;
        }

        // A nested script must not disturb the loop of this file.
        const int maxiteration = script.maxiteration;
        const double looperror = script.looperror;
        const double maxerror = script.maxerror;

        long position = std::ftell(file.fp.get());
        bool positionMoved = false;
        bool nestedScriptRun = false;
        ScriptLine context{argument, value,         commandLine, path,        keepRunning,
                           position, positionMoved, loopStart,   repetitions, nestedScriptRun};
        COMMANDS[code].handler(context);

        if (positionMoved && position >= 0) std::fseek(file.fp.get(), position, SEEK_SET);
        if (nestedScriptRun) {
            script.maxiteration = maxiteration;
            script.looperror = looperror;
            script.maxerror = maxerror;
            script.loopcounter = repetitions;
            TurnOnScriptMessage(path);
        }
    }

    ErrorMessageMode = savedErrorMessageMode;
    CloseFile(file);
    TurnOffScriptMessage();
    return 0;
}

} // namespace

void RunScriptFile(std::string& path, int* keepRunning) {
    RunScript(path, keepRunning);
}

int RunScriptFile(const std::string& path, int run) {
    std::string completed = path;
    int keepRunning = run;
    return RunScript(completed, &keepRunning);
}

void ExecuteScript() {
    std::string path = MakePathname(MakePathname(GetProjectDir(), "script"), "internalTERVO.script");
    if (!FileExists(path)) {
        TERVOErrorMessage("Invalid Script File", "No valid script file is loaded");
        return;
    }
    int keepRunning = 1;
    RunScriptFile(path, &keepRunning);
}

} // namespace tervo
