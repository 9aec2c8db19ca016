// Start-up of the run-time state: the version banner, the home folder with its tree of default
// folders, file types by extension, the completion of a bare file name into a path, the status line
// and the illumination label of the graphs.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace tervo {

// ---------------------------------------------------------------------------------------------
// Process state owned by this file

// Product string; the first word of the version banner and of quit questions.
inline constexpr const char* TERVO_PRODUCT = "TERVO 3.2.01";

// The version banner, composed once at start-up; first line of every result file.
extern std::string VERSION;

// 1: a script asked the process to end once the command line has been processed.
extern int QuitScriptMode;

// The numerical setting of the error handling (0 to screen, 1 append to log, 2 overwrite log), as
// a settings panel or the all-settings file holds it; `ErrorHandling` makes it the active mode.
extern int ErrorHandlingSetting;

// ---------------------------------------------------------------------------------------------
// File names

// Takes the next file name off the front of `text`, without its last extension, into `name`.
// 1: a name was found and `text` now begins with its extension; 0: only white space (or nothing)
// stood before the dot, `name` is empty and one character was taken off `text`; -1: no dot is left,
// `text` is emptied.  A name may hold blanks and dots: the dot of the extension is the first dot
// that is followed by no other dot before the next white space or the end.
int ExtractFilename(std::string& text, std::string& name);

// Takes the extension off the front of `text` into `ext` and strips the white space behind it.
// 1: an extension was found; 0: `text` begins with white space; -1: `text` is empty.  The extension
// is the run of letters and digits; a word that holds other characters is taken whole, so that it
// matches no known extension and its file is passed over.
int ExtractExtensionname(std::string& text, std::string& ext);

// ---------------------------------------------------------------------------------------------
// File types and folders

// File types: the integer codes of the kinds of files, each with its default folder.
enum TERVOFileType : int {
    FILETYPE_UNKNOWN = -1,
    FILETYPE_DEF = 0,
    FILETYPE_SPECTRUM = 1,
    FILETYPE_ABSORPTION = 2,
    FILETYPE_FILTER = 3,
    FILETYPE_GENERATION = 4,
    FILETYPE_OPTCAPT = 5,
    FILETYPE_BATCH_PARAMETERS = 6,
    FILETYPE_BATCH_FILENAMES = 7,
    FILETYPE_ACTION = 8,
    FILETYPE_BATCH_SETTINGS = 9,
    FILETYPE_RECORD_SETTINGS = 10,
    FILETYPE_SCRIPT = 11,
    FILETYPE_BATCH_FILE = 12,
    FILETYPE_ALL_SETTINGS = 13,
    FILETYPE_EB = 14,
    FILETYPE_GENERATION_RESULT = 15,
    FILETYPE_AC = 16,
    FILETYPE_IV = 17,
    FILETYPE_CV = 18,
    FILETYPE_CF = 19,
    FILETYPE_QE = 20,
    FILETYPE_PICTURE = 23,
    FILETYPE_RECORD_RESULTS = 24,
    FILETYPE_SCRIPT_VARIABLES = 25,
    FILETYPE_GRADING = 26,
    FILETYPE_MEASUREMENT = 27,
    FILETYPE_CURVEFIT_SETTINGS = 28,
    FILETYPE_SCALING = 29,
    FILETYPE_WP2 = 30,
    FILETYPE_MATERIAL = 31,
};

// The thirteen default folders under the home folder.
inline constexpr std::array<const char*, 13> TERVO_FOLDERS = {
    "def",    "spectrum", "absorption", "filter",       "generation", "optcapt",  "bdf",
    "script", "results",  "grading",    "measurements", "scaling",    "materials"};

// The default folder (a name under the home folder) of a file type; "results" for any unknown type.
const char* TERVOFileTypeFolder(int filetype);

// The file type of a path from its extension, any case; -1 for an extension that has no type.
int DetermineTERVOFiletype(const std::string& path);

// Completes a file name.  `name`, if wanted, receives the file part without trailing blanks;
// `fullpath`, if wanted, receives the default folder of `filetype` joined with the file part when
// `input` holds no folder, and `input` itself otherwise, in both cases without trailing blanks.
// Either output may be null and either may be `input` itself.
void CheckTERVOPaths(std::string* fullpath, std::string* name, const std::string& input, int filetype);

// 1 if `path` names a file larger than 0 bytes.  If not, `path` is completed in place by
// CheckTERVOPaths and tested once more.  0 for an empty path or a file not found.
int IsFileFound(std::string& path, int filetype);

// Date (day, month, year) and time of a file, local time.  The name "new problem" (any case) is
// the fresh problem, which has no file: it gives the present date and time.  0, or -1 (zeros) when
// the file does not exist.
int GetTERVOFileDate(const std::string& path, int& day, int& month, int& year);
int GetTERVOFileTime(const std::string& path, int& hours, int& minutes, int& seconds);

// ---------------------------------------------------------------------------------------------
// Home folder

// The default home folder: the folder of the running executable (from /proc/self/exe), or, when that
// cannot be read, the folder of `argv0`.
std::string DefaultHomeFolder(const std::string& argv0);

// Makes `folder` the home folder and creates whatever of its thirteen sub-folders is missing.
// The number of folders created, or -1 (reported) when a folder could not be made.
int SetTERVOHome(const std::string& folder);

// The files that a home folder needs beside its folders, as paths below it: the standard spectrum.
inline constexpr std::array<const char*, 1> TERVO_STANDARD_FILES = {"spectrum/AM1_5G 1 sun.spe"};

// Gives the home folder `home` every standard file that it lacks, copied from the program's own tree
// `programHome` (the folder of the executable, where the build puts the shipped tree).  A file that
// neither has, or that cannot be copied, is reported by name.  The number of standard files still
// missing.
int ProvideStandardFiles(const std::string& home, const std::string& programHome);

// ---------------------------------------------------------------------------------------------
// Version banner

// The banner for a program called `argv0` whose file carries the given date and time.
std::string ComposeVersion(const std::string& argv0, int day, int month, int year, int hours, int minutes,
                           int seconds);

// Composes VERSION from `argv0` and the date and time of the file `programFile`.
void SetVersion(const std::string& argv0, const std::string& programFile);

// ---------------------------------------------------------------------------------------------
// Messages, status line and illumination label

// Makes ErrorHandlingSetting the active ErrorMessageMode; a setting outside 0..2 is reported and
// leaves the mode unchanged.
void ErrorHandling();

// The status line of the program.
struct StatusLine {
    std::string text;
    bool red = false;    // shown as an alarm
    bool active = false; // a double click opens the check of unfound files
};
extern StatusLine statusLine;

// Sets the status line: 0 "OK", 1 calculating, 2 pause, 3 "Set Problem", 4 unfound files.
void StatusMessage(int code);

// The graphs that carry an illumination label.
enum class GraphPanel : int { BandDiagram = 0, IV = 1, CV = 2, Cf = 3, QE = 4 };

struct IlluminationText {
    std::string label;  // the label of the graph
    std::string legend; // the legend of its last curve
};
extern std::array<IlluminationText, 5> illuminationTexts;

// The illumination label of a graph: "dark", or the direction of the light ("light->" for light
// from the left, `side` -1 or 0; "<-light" from the right, `side` +1).  The C-V label adds the
// working-point frequency in Hz, the C-f and QE labels the working-point voltage in the user's
// convention.  The text is kept in illuminationTexts and returned.
IlluminationText IlluminationMessage(GraphPanel panel, int dark, int side, double frequency, double voltage);

// ---------------------------------------------------------------------------------------------
// Start and end of the process

// Start-up defaults of the run-time state.
void Initialise();

// Releases what the process holds: closes the error log.
void Terminate();

} // namespace tervo
