// The script engine: a script is a plain text file, one command a line, that drives the simulator
// without a user.  This file holds the script state `theScript`, the tokenising of a line, the table
// of command words and the run loop over the lines of a file.
//
// A line is "command argument value": the first two words split by white space, the value is the
// rest.  Every word of the language is matched by one rule: the word matches a keyword when it
// begins with it, in any case, and the first keyword of a table that matches wins.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace tervo {

inline constexpr int SCRIPT_LINE_LIMIT = 119; // characters read from a line; the rest is dropped
inline constexpr int SCRIPT_WORD_LIMIT = 64;  // characters of the command word and of an argument part
inline constexpr int SCRIPT_VALUE_LIMIT = 259;
inline constexpr int SCRIPT_NAME_LIMIT = 259;    // `filename` and the vector names
inline constexpr int NUMBER_OF_SCRIPT_SLOTS = 6; // x, y, z, u, v, w
inline constexpr int MAX_SCRIPT_NESTING = 32;    // scripts that run scripts, deepest level run

// One plot of script vectors: copies of the data at the time of the command.
struct ScriptPlot {
    int number = 0; // place in the list, from 0
    int plot = 0;   // plot number in the graph
    int n = 0;      // number of points
    std::vector<double> x, y;
    std::string xName, yName; // the names of the vectors, or "index"
    std::string title;        // "y name vs. x name"
};

// The script state.  One global, `theScript`, lives for the whole process: nothing resets it when a
// script starts or ends, so one script can hand its variables to the next.
struct ScriptVariables {
    int status = 0;       // result of the last user-library call
    int mode = 0;         // free script integer, passed to the user library
    int loopcounter = 0;  // completed repetitions of the loop of the running file
    int maxiteration = 0; // upper bound of the loop counter
    // The six slots x, y, z, u, v, w.  `nvector[i]` is always the length of `svector[i]`.
    std::array<int, NUMBER_OF_SCRIPT_SLOTS> nvector{};
    std::array<int, NUMBER_OF_SCRIPT_SLOTS> sindex{};
    std::array<double, NUMBER_OF_SCRIPT_SLOTS> svalue{};
    std::array<std::vector<double>, NUMBER_OF_SCRIPT_SLOTS> svector;
    double looperror = 0; // convergence measure that `loop stop` compares with `maxerror`
    double maxerror = 0;
    std::string filename;
    std::array<std::string, NUMBER_OF_SCRIPT_SLOTS> sname; // display names of the vectors
    std::vector<ScriptPlot> plotlist;
};

extern ScriptVariables theScript;

// The start values: status, mode and loopcounter 0, maxiteration 25, six zeroed vectors of length 3,
// integers 0, scalars 0.0, looperror 1e30, maxerror 0.001, filename "defaultfilename", the names
// "xvector" ... "wvector".  The plot list is left alone (ClearScriptGraph clears it).
void InitialiseScriptVariables(ScriptVariables& script);

// Empties the plot list.  There is no graph in this build, so the list is all there is to clear.
void ClearScriptGraph(ScriptVariables& script);

// Resizes vector `slot` to `n` elements (new elements 0.0) and keeps `nvector` in step.
void ResizeScriptVector(ScriptVariables& script, int slot, int n);

// The slot of a letter: x y z u v w (either case) give 0 .. 5, any other character -1.
int GetSCRmode(char letter);

// Turns the first `count` characters of `value` into slots.  1, or 0 when the text is shorter than
// `count`, `count` is negative, or a letter is no slot letter.
int checkMathValue(const std::string& value, int count, std::vector<int>& slots);

// ---------------------------------------------------------------------------------------------
// Tokenising

// Moves the first word of `line` (leading white space skipped) into `word`, if given, and leaves
// the remainder without its leading white space in `line`.
void ReadFirstWord(std::string& line, std::string* word);

// Takes a line apart: the command word (at most 64 characters), the argument word, and the rest of
// the line, without its leading white space, as the value.  `line` is consumed.  Any output may be
// null.
void InterpretScriptLine(std::string& line, std::string* command, std::string* argument, std::string* value);

// Cuts a trailing comment and trailing blanks off a value: from the second character on, the first
// character that equals its predecessor and is punctuation other than ']' starts the comment, which
// begins at the predecessor.  So "//", "..", "--", "**" and "\\" cut, "]]" does not.
void RemoveCommentsFromValue(std::string& value);

// Splits an argument at '.' into four parts; text after the fourth part is dropped, missing parts are
// empty, each part holds at most 64 characters.
void InterpretScriptVariable(const std::string& argument, std::string& part1, std::string& part2,
                             std::string& part3, std::string& part4);

// The keyword test of the language: `word` begins with `keyword`, in any case.
bool MatchesKeyword(const std::string& word, const char* keyword);

// The command table, in its binding order: "load", "save", "set", "get", "action", "math", "plot",
// "calculate", "loop", "clear", "rundll", "runsystem", "runscript", "run", "show".  The code of a
// command word is its place in the table, or -1 when no keyword matches.
int ScriptCommandCode(const std::string& word);
const char* ScriptCommandWord(int code);

// ---------------------------------------------------------------------------------------------
// Running a script

// The four lines that head every result file that a script saves: the script's path, its date and
// time, and the script line as read.
std::string ScriptOutputHeader(const std::string& scriptPath, const std::string& commandLine);

// The exit status that the scripts of the process have earned so far: the worst of their lines
// (ExitStatus).  A line that is refused raises it to 2, a calculation that fails or is cut to 1.
extern int ScriptExitStatus;
void RaiseScriptStatus(int status);

// Runs one script file.  A bare name is looked for in the working folder and then in the `script`
// folder; `path` is completed in place.  The script goes on while `*keepRunning` is 1; nested scripts
// share the caller's integer.  A missing or unreadable file returns at once without a message.
// The error message mode is put back at the end, so `set errorhandling` holds for this script only.
void RunScriptFile(std::string& path, int* keepRunning);

// The entry of the command line and of other callers: runs `path` with a run flag of its own that
// starts at `run`.  0 when the file was run, -1 when it could not be found or opened.
int RunScriptFile(const std::string& path, int run);

// The editor's script, the file "internalTERVO.script" in the `script` folder, with a run flag of its
// own.  A missing file is reported ("Invalid Script File").
void ExecuteScript();

// What a screen would show while a script runs: "Executing a script\nfile: <name>"; empty when no
// script runs.
extern std::string scriptStatusText;
void TurnOnScriptMessage(const std::string& path);
void TurnOffScriptMessage();

} // namespace tervo
