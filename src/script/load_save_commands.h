// The script commands that tie a script to files, to the action settings, to the calculation and to
// the operating system: load, save, action, calculate, loop, clear, rundll, runsystem, runscript and
// run.  Each is called by the run loop with the argument word and the value of its line; a refused
// line is reported through TERVOErrorMessage and the script goes on with the next line.
//
// Every file name is completed by the folder rule: a bare name goes into the folder of its kind, a
// name with a folder stays as it is.
#pragma once

#include <string>

#include "script/script_runner.h"

namespace tervo {

// load definition|action|initialw|batch|singleshotbatch|record|alltervo|tervo|spectrum|generation|
// measurement.iv|.cv|.cf|.qe <file>.  Batch, recorder, all-settings and measurement files have no
// reader in this build: such a line is reported.
void ProcessLoadCommand(const std::string& argument, const std::string& value);
// True after a "load definition" whose cell could not be loaded, until one is: a "calculate" on
// the session's cell is then refused.  The name of the file that failed.
extern bool scriptCellRefused;
extern std::string scriptCellRefusedName;

// save setting.definition|action <file>, save result.eb|iv <file> (the output header, then the
// result table of the last calculation), save graph.* (no pictures without screens: reported).
void ProcessSaveCommand(const std::string& argument, const std::string& value,
                        const std::string& outputHeader, ScriptVariables& script);

// action <keyword> <value>: one setting of the working points or the sweeps, with the settings that
// follow from it.  For the two C-f keywords whose file names hold a blank the script forms are
// "cf.total" (an integer: "Cf_total points"; the points per decade follow) and "cf.pointsperdecade"
// (a positive number: "Cf_points per decade"; the total follows).
void ProcessActionCommand(const std::string& argument, const std::string& value, ScriptVariables& script,
                          const std::string& commandLine);

// The place of the first action keyword that `argument` begins with (any case), in the binding order
// of the table, or -1; and the keyword at a place ("" outside the table).
int ActionKeywordCode(const std::string& argument);
std::string ActionKeywordWord(int code);

// calculate: a single shot; "batch" and "record" runs are not available in this build (reported).
void ProcessCalculateCommand(const std::string& argument);

// loop start|stop|maxiteration|maxerror.  `filePosition` is the position behind the loop line and
// may be changed to the remembered loop start; `loopStart` (-1: no loop start seen) and
// `repetitions` belong to the calling run of the file.
void ProcessLoopCommand(const std::string& argument, const std::string& value, long& filePosition,
                        long& loopStart, ScriptVariables& script, const std::string& commandLine,
                        int& repetitions);

// clear scriptvariables.all|allbutfirst3|allbutfirst2|allbutlast3|allbutlast2, simulations, plot,
// scriptgraph, action, all.
void ProcessClearScriptCommand(const std::string& argument, ScriptVariables& script);

// The user library "Tervodll.so" in the home folder, its function TERVOUserFunction:
//   int TERVOUserFunction(int mode, double* xvalue, double* yvalue, double* vectors[6],
//                         int lengths[6], double* looperror, char* filename)
// `filename` has room for 260 characters.  The function may change the numbers it is given, also the
// vector elements within their lengths, and may shorten a vector by lowering its length.  Its result
// goes to `status` and is returned.  Without the library (or the function) the line is reported and
// `status` stays as it was.
int ProcessRunDLLCommand(ScriptVariables& script);
inline constexpr const char* USER_LIBRARY_NAME = "Tervodll.so";
inline constexpr const char* USER_FUNCTION_NAME = "TERVOUserFunction";

// runsystem: argument and value joined by one blank go to the system's command processor; the
// script waits for it.  The exit status is returned (-1 when nothing was run).
int ProcessRunSystemCommand(const std::string& argument, const std::string& value);

// runscript: argument and value joined by one blank name a script, run with the caller's flag.
void ProcessRunScriptCommand(const std::string& argument, const std::string& value, int* keepRunning);

// run script|system|dll: the value alone is what is run.  1 when a script was run (the caller then
// restores its loop state), else 0.  Any other argument does nothing and reports nothing.
int ProcessRunCommand(const std::string& argument, const std::string& value, ScriptVariables& script,
                      int* keepRunning);

} // namespace tervo
