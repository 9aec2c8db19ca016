// The command line of the program and its nine file slots, and the whole process: options, the
// files applied in their fixed order, and what a run without a screen does with them (the script of
// the command line, or the main job).
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace tervo {

// ---------------------------------------------------------------------------------------------
// Command line

inline constexpr int COMMAND_LINE_BUFFER_LENGTH = 1300; // characters of joined arguments
inline constexpr int COMMAND_LINE_SLOT_LENGTH = 259;    // characters of one file name

// The files named on the command line, one slot for each kind that the command line accepts,
// in the order in which they are applied.  An empty slot names no file.
struct CommandLineFiles {
    std::string def;      // definition file
    std::string act;      // action file
    std::string wp2;      // initial (second) working-point file
    std::string all;      // all-settings file
    std::string spectrum; // spectrum file
    std::string gen;      // generation file
    std::string batch;    // batch-settings file
    std::string record;   // recorder-settings file
    std::string script;   // script file
};

// The slots of the last ProcessCommandLine.
extern CommandLineFiles commandLineFiles;

// Joins the arguments behind the program's name, each followed by one blank, into the command-line
// buffer.  Arguments that no longer fit whole into its 1300 characters are dropped, with one message.
std::string JoinCommandLine(int argc, const char* const* argv);

// Writes name + "." + ext into the slot that the extension (any case) belongs to.  An unknown
// extension changes nothing; a name longer than a slot holds is reported and passed over.
void AttributeFile(const std::string& name, const std::string& ext, CommandLineFiles& files);

// Splits a joined command line into the slots.  A later file of one kind replaces an earlier one;
// the scan ends at the first word that holds no dot.
CommandLineFiles ParseCommandLine(std::string_view buffer);

// Finds a file named on the command line.  A name that exists as given (relative to the working
// folder) is taken as given; otherwise a bare name is completed into the folder of its kind under
// the home folder.  Where both exist, one line on `notes` says which was taken.  1 with the full path
// in `path`; 0 (reported) when it exists nowhere.
int ResolveCommandLineFile(const std::string& name, int filetype, std::string& path, std::ostream& notes);

// Every filled slot of `named` resolved into `resolved`; false when a file exists nowhere (each
// such file reported).
bool ResolveCommandLineFiles(const CommandLineFiles& named, CommandLineFiles& resolved, std::ostream& notes);

// Applies the slots in their fixed order.  Result of the definition file: 0 loaded, -1 not loaded
// (reported by its reader), 1 no definition file named.
int ApplyCommandLineFiles(const CommandLineFiles& files);

// Joins, parses and applies the command line; the slots are kept in `commandLineFiles`.
void ProcessCommandLine(int argc, const char* const* argv);

// ---------------------------------------------------------------------------------------------
// The whole process

// Start-up defaults of the whole program: the script variables, then the run-time state
// (`Initialise`), and empty file slots.
void InitialiseProgram();

// A short readable account of the cell in `zonnecel` (user units) and the file it came from.
std::string LoadedCellSummary(const std::string& definitionFile, bool loaded);

// The whole process: version banner, options, Initialise, command line, Terminate.  Options:
// --home DIR, --strict, --save-def OUT.def, --help, --version.  Returns the exit status (ExitStatus):
// 0 all ran as asked; 1 a calculation failed, a curve was cut or a file could not be written; 2 the
// input was refused (a wrong option, a file found nowhere or unreadable, a warning under --strict);
// 3 it ran, but an input file needed a warning.
int RunTervo(int argc, char** argv);

} // namespace tervo
