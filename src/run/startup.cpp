// Start-up of the process: version banner, options and command line, the home folder and its tree,
// file types and the completion of bare file names, status line and illumination labels.
#include "run/startup.h"

#include <cctype>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <vector>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"
#include "run/action_list.h"
#include "run/driver.h"
#include "run/main_job.h"
#include "run/problem.h"
#include "run/result_files.h"
#include "run/work_point.h"
#include "script/script_runner.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo {

// ---------------------------------------------------------------------------------------------
// Process state owned by this file

std::string VERSION;
int QuitScriptMode = 0;
int ErrorHandlingSetting = 0;
CommandLineFiles commandLineFiles;
StatusLine statusLine;
std::array<IlluminationText, 5> illuminationTexts;

namespace {

constexpr const char* COMMAND_LINE_TITLE = "Error whilst reading the command line";

bool IsBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool IsLetterOrDigit(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

// A file that exists, is a file and holds at least one byte.
bool IsNonEmptyFile(const std::string& path) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) return false;
    long long size = 0;
    return GetFileSize(path, size) == 0 && size > 0;
}

// The program file of the running process; `argv0` when the system does not tell.
std::string ProgramFile(const std::string& argv0) {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec && !exe.empty()) return exe.string();
    return argv0;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Command line

std::string JoinCommandLine(int argc, const char* const* argv) {
    std::string buffer;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i] ? argv[i] : "";
        // Each argument is followed by one blank; an argument that does not fit whole is not cut in
        // two, since a cut name could name another file ("x.definition" would become "x.def").
        if (buffer.size() + argument.size() + 1 > static_cast<size_t>(COMMAND_LINE_BUFFER_LENGTH)) {
            TERVOErrorMessage(COMMAND_LINE_TITLE, "The command line is longer than " +
                                                      std::to_string(COMMAND_LINE_BUFFER_LENGTH) +
                                                      " characters; the arguments from \"" + argument +
                                                      "\" on were dropped.");
            break;
        }
        buffer += argument;
        buffer += ' ';
    }
    return buffer;
}

int ExtractFilename(std::string& text, std::string& name) {
    name.clear();
    size_t start = 0;
    for (;;) {
        const size_t dot = text.find('.', start);
        if (dot == std::string::npos) {
            name.append(text, start, std::string::npos);
            text.clear();
            return -1;
        }
        name.append(text, start, dot - start);
        // A dot followed by another dot before the next white space belongs to the name.
        size_t ahead = dot + 1;
        while (ahead < text.size() && text[ahead] != '.' && !IsBlank(text[ahead])) ++ahead;
        if (ahead < text.size() && text[ahead] == '.') {
            name += '.';
            start = dot + 1;
            continue;
        }
        // This is the dot of the extension (also when it ends the text).
        bool onlyBlanks = true;
        for (char c : name) {
            if (!IsBlank(c)) {
                onlyBlanks = false;
                break;
            }
        }
        if (onlyBlanks) {
            name.clear();
            text.erase(0, 1);
            return 0;
        }
        text.erase(0, dot + 1);
        return 1;
    }
}

int ExtractExtensionname(std::string& text, std::string& ext) {
    ext.clear();
    if (text.empty()) return -1;
    size_t end = 0;
    int result = 0;
    if (!IsBlank(text[0])) {
        while (end < text.size() && IsLetterOrDigit(text[end])) ++end;
        // A word with other characters than letters and digits is no extension of ours: take it
        // whole, so that it is passed over and does not leak into the next name.
        if (end < text.size() && !IsBlank(text[end])) {
            while (end < text.size() && !IsBlank(text[end])) ++end;
        }
        ext = text.substr(0, end);
        result = 1;
    }
    while (end < text.size() && IsBlank(text[end])) ++end;
    text.erase(0, end);
    return result;
}

void AttributeFile(const std::string& name, const std::string& ext, CommandLineFiles& files) {
    const std::string kind = ToLower(ext);
    std::string* slot = nullptr;
    if (kind == "def" || kind == "definition")
        slot = &files.def;
    else if (kind == "act" || kind == "action")
        slot = &files.act;
    else if (kind == "ter" || kind == "tervo")
        slot = &files.all;
    else if (kind == "spe")
        slot = &files.spectrum;
    else if (kind == "sbf" || kind == "batch")
        slot = &files.batch;
    else if (kind == "gen" || kind == "generation")
        slot = &files.gen;
    else if (kind == "scr" || kind == "script")
        slot = &files.script;
    else if (kind == "srf" || kind == "record")
        slot = &files.record;
    else if (kind == "wp2")
        slot = &files.wp2;
    if (!slot) return;

    const std::string file = name + "." + ext;
    if (file.size() > static_cast<size_t>(COMMAND_LINE_SLOT_LENGTH)) {
        TERVOErrorMessage(COMMAND_LINE_TITLE, "The file name \"" + file + "\" is longer than " +
                                                  std::to_string(COMMAND_LINE_SLOT_LENGTH) +
                                                  " characters; it was passed over.");
        return;
    }
    *slot = file;
}

CommandLineFiles ParseCommandLine(std::string_view buffer) {
    CommandLineFiles files;
    std::string text(buffer);
    std::string name;
    std::string ext;
    for (;;) {
        const int found = ExtractFilename(text, name);
        if (found == -1) break;
        if (found == 1 && ExtractExtensionname(text, ext) == 1) AttributeFile(name, ext, files);
    }
    return files;
}

namespace {
int scriptResult = 0; // of the script of the command line: 0 ran, -1 could not be read
} // namespace

int ApplyCommandLineFiles(const CommandLineFiles& files) {
    int definition = 1;
    if (!files.def.empty()) definition = Laad_data_uit_file(files.def) == 0 ? 0 : -1;
    // The readers of action and working-point files pass a missing file over in silence; named on the
    // command line it is a mistake of the user, who is told.
    const auto applySettings = [](const std::string& name, int filetype, int (*reader)(const std::string&)) {
        if (name.empty()) return;
        std::string path = name;
        if (!IsFileFound(path, filetype)) {
            TERVOErrorMessage("Error whilst opening a file of the command line",
                              "The file \"" + name + "\" was not found; its settings were not applied.");
            return;
        }
        reader(path);
    };
    applySettings(files.act, FILETYPE_ACTION, SetActionPanelFromFile);
    applySettings(files.wp2, FILETYPE_WP2, SetWP2FromFile);
    if (!files.spectrum.empty()) SetGenerationPath(FILETYPE_SPECTRUM, files.spectrum);
    if (!files.gen.empty()) SetGenerationPath(FILETYPE_GENERATION, files.gen);

    // The readers of the other kinds are not part of this build: say so for each file named.
    const std::array<std::pair<const std::string*, const char*>, 3> pending = {{
        {&files.all, "all-settings file"},
        {&files.batch, "batch-settings file"},
        {&files.record, "recorder-settings file"},
    }};
    for (const auto& [file, kind] : pending) {
        if (file->empty()) continue;
        TERVOErrorMessage("Error whilst opening a file of the command line",
                          std::string("The ") + kind + " \"" + *file +
                              "\" cannot be applied yet in this build; it was passed over.");
    }
    // The script runs last, with everything else of the command line in place.  Without a screen
    // the process ends when the script ends.
    scriptResult = files.script.empty() ? 0 : RunScriptFile(files.script, 1);
    SetProblem(1); // the silent form: brings what depends on the definition file up to date
    return definition;
}

void ProcessCommandLine(int argc, const char* const* argv) {
    commandLineFiles = ParseCommandLine(JoinCommandLine(argc, argv));
    ApplyCommandLineFiles(commandLineFiles);
}

// ---------------------------------------------------------------------------------------------
// File types and folders

const char* TERVOFileTypeFolder(int filetype) {
    switch (filetype) {
    case FILETYPE_DEF:
    case FILETYPE_ACTION:
    case FILETYPE_ALL_SETTINGS:
    case FILETYPE_WP2:
        return "def";
    case FILETYPE_SPECTRUM:
        return "spectrum";
    case FILETYPE_ABSORPTION:
        return "absorption";
    case FILETYPE_FILTER:
        return "filter";
    case FILETYPE_GENERATION:
        return "generation";
    case FILETYPE_OPTCAPT:
        return "optcapt";
    case FILETYPE_BATCH_PARAMETERS:
    case FILETYPE_BATCH_FILENAMES:
    case FILETYPE_BATCH_SETTINGS:
    case FILETYPE_RECORD_SETTINGS:
    case FILETYPE_BATCH_FILE:
    case FILETYPE_CURVEFIT_SETTINGS:
        return "bdf";
    case FILETYPE_SCRIPT:
        return "script";
    case FILETYPE_GRADING:
        return "grading";
    case FILETYPE_MEASUREMENT:
        return "measurements";
    case FILETYPE_SCALING:
        return "scaling";
    case FILETYPE_MATERIAL:
        return "materials";
    default: // results of every kind, and unknown files
        return "results";
    }
}

int DetermineTERVOFiletype(const std::string& path) {
    std::string drive, folder, file;
    SplitPath(path, drive, folder, file);
    // The last extension of the file part decides.
    std::string text = file;
    std::string name, ext, last;
    for (;;) {
        const int found = ExtractFilename(text, name);
        if (found == -1) break;
        if (found == 1 && ExtractExtensionname(text, ext) == 1) last = ext;
    }
    const std::string kind = ToLower(last);
    struct Entry {
        const char* ext;
        int type;
    };
    static constexpr std::array<Entry, 22> table = {{
        {"def", FILETYPE_DEF},
        {"spe", FILETYPE_SPECTRUM},
        {"abs", FILETYPE_ABSORPTION},
        {"ftr", FILETYPE_FILTER},
        {"gen", FILETYPE_GENERATION},
        {"opt", FILETYPE_OPTCAPT},
        {"bdf", FILETYPE_BATCH_PARAMETERS},
        {"act", FILETYPE_ACTION},
        {"sbf", FILETYPE_BATCH_SETTINGS},
        {"srf", FILETYPE_RECORD_SETTINGS},
        {"script", FILETYPE_SCRIPT},
        {"tervo", FILETYPE_ALL_SETTINGS},
        {"ter", FILETYPE_ALL_SETTINGS},
        {"eb", FILETYPE_EB},
        {"ac", FILETYPE_AC},
        {"iv", FILETYPE_IV},
        {"cv", FILETYPE_CV},
        {"cf", FILETYPE_CF},
        {"qe", FILETYPE_QE},
        {"grad", FILETYPE_GRADING},
        {"wp2", FILETYPE_WP2},
        {"material", FILETYPE_MATERIAL},
    }};
    for (const Entry& entry : table) {
        if (kind == entry.ext) return entry.type;
    }
    return FILETYPE_UNKNOWN;
}

void CheckTERVOPaths(std::string* fullpath, std::string* name, const std::string& input, int filetype) {
    const std::string source = input; // the outputs may be `input` itself
    std::string drive, folder, file;
    SplitPath(source, drive, folder, file);
    const std::string filePart = TrimRight(file);
    if (fullpath) {
        if (drive.empty() && folder.empty()) {
            const std::string home = GetProjectDir();
            const std::string typeFolder = TERVOFileTypeFolder(filetype);
            const std::string defaultFolder = home.empty() ? typeFolder : MakePathname(home, typeFolder);
            *fullpath = filePart.empty() ? defaultFolder : MakePathname(defaultFolder, filePart);
        } else {
            *fullpath = TrimRight(source);
        }
    }
    if (name) *name = filePart;
}

int IsFileFound(std::string& path, int filetype) {
    if (path.empty()) return 0;
    if (IsNonEmptyFile(path)) return 1;
    CheckTERVOPaths(&path, nullptr, path, filetype);
    return IsNonEmptyFile(path) ? 1 : 0;
}

namespace {

// The date and time of a file, or the present moment for the fresh problem.
int FileStamp(const std::string& path, DateTime& stamp) {
    if (ToLower(Trim(path)) == "new problem") {
        stamp = GetSystemDateTime();
        return 0;
    }
    if (GetFileDateTime(path, stamp) != 0) {
        stamp = DateTime{};
        return -1;
    }
    return 0;
}

} // namespace

int GetTERVOFileDate(const std::string& path, int& day, int& month, int& year) {
    DateTime stamp;
    const int result = FileStamp(path, stamp);
    day = stamp.day;
    month = stamp.month;
    year = stamp.year;
    return result;
}

int GetTERVOFileTime(const std::string& path, int& hours, int& minutes, int& seconds) {
    DateTime stamp;
    const int result = FileStamp(path, stamp);
    hours = stamp.hours;
    minutes = stamp.minutes;
    seconds = stamp.seconds;
    return result;
}

// ---------------------------------------------------------------------------------------------
// Home folder

std::string DefaultHomeFolder(const std::string& argv0) {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec && exe.has_parent_path()) return exe.parent_path().string();
    if (!argv0.empty()) {
        const auto program = std::filesystem::absolute(argv0, ec);
        if (!ec && program.has_parent_path()) return program.parent_path().string();
    }
    const auto here = std::filesystem::current_path(ec);
    return ec ? std::string(".") : here.string();
}

int SetTERVOHome(const std::string& folder) {
    SetProjectDir(folder);
    int created = 0;
    bool failed = false;
    for (const char* sub : TERVO_FOLDERS) {
        const std::string path = MakePathname(folder, sub);
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) continue;
        if (MakeDirectories(path) && std::filesystem::is_directory(path, ec)) {
            ++created;
        } else {
            TERVOErrorMessage("Error whilst setting the home folder",
                              "The folder \"" + path + "\" is missing and could not be made.");
            failed = true;
        }
    }
    return failed ? -1 : created;
}

// ---------------------------------------------------------------------------------------------
// Version banner

std::string ComposeVersion(const std::string& argv0, int day, int month, int year, int hours, int minutes,
                           int seconds) {
    std::string banner;
    Fmt(banner,
        "%s[q]<%s ORVALD-LAB: Version %s[q], dated %i[w2p0]-%i[w2p0]-%i[w4], "
        "%i[w2p0]:%i[w2p0]:%i[w2p0]",
        std::string(TERVO_PRODUCT), argv0, day, month, year, hours, minutes, seconds);
    return banner;
}

void SetVersion(const std::string& argv0, const std::string& programFile) {
    DateTime stamp;
    if (GetFileDateTime(programFile, stamp) != 0) stamp = DateTime{};
    VERSION =
        ComposeVersion(argv0, stamp.day, stamp.month, stamp.year, stamp.hours, stamp.minutes, stamp.seconds);
}

// ---------------------------------------------------------------------------------------------
// Messages, status line and illumination label

void ErrorHandling() {
    if (ErrorHandlingSetting < 0 || ErrorHandlingSetting > 2) {
        TERVOErrorMessage("Error whilst setting the handling of error messages",
                          "The setting " + std::to_string(ErrorHandlingSetting) +
                              " is none of 0 (to screen), 1 (append to log file) and 2 (overwrite log "
                              "file); the handling stays " +
                              std::to_string(ErrorMessageMode) + ".");
        return;
    }
    ErrorMessageMode = ErrorHandlingSetting;
}

void StatusMessage(int code) {
    statusLine.red = false;
    statusLine.active = false;
    switch (code) {
    case 0:
        statusLine.text = "OK";
        break;
    case 1:
        statusLine.text = "...calculating...";
        break;
    case 2:
        statusLine.text = "PAUSE";
        break;
    case 3:
        statusLine.text = "Set Problem";
        break;
    case 4:
        statusLine.text = "Unfound files in problem\nDouble click to check / correct";
        statusLine.red = true;
        statusLine.active = true;
        break;
    default:
        statusLine.text = "Status unknown";
        statusLine.red = true;
        break;
    }
}

IlluminationText IlluminationMessage(GraphPanel panel, int dark, int side, double frequency, double voltage) {
    IlluminationText out;
    out.label = dark == 1 ? "dark" : (side > 0 ? "<-light" : "light->");
    switch (panel) {
    case GraphPanel::CV:
        out.label += FmtStr(", %f[w9p2e2] Hz", frequency);
        break;
    case GraphPanel::Cf:
        out.label += FmtStr(", %f[p3] Vdc", voltage);
        break;
    case GraphPanel::QE:
        out.label += FmtStr(", %f[p3] V", voltage);
        break;
    default:
        break;
    }
    out.legend = "last curve, " + out.label;
    illuminationTexts[static_cast<size_t>(panel)] = out;
    return out;
}

// ---------------------------------------------------------------------------------------------
// Start and end of the process

void Initialise() {
    // The script defaults are set with messages held in the log, so that nothing of this step
    // reaches a screen.
    ErrorMessageMode = 2;
    QuitScriptMode = 0;
    InitialiseScriptVariables(theScript);
    // Messages go to the screen (standard error) from here on; a log of an earlier session of
    // this process is closed, so that the next logged message opens it afresh.
    CloseErrorLog();
    ErrorMessageMode = 0;
    ErrorMessageNumber = 0;
    ErrorHandlingSetting = 0;
    ActionListMode = 0;
    InitialiseDiagnostics();
    InitialiseActionPanel(actionPanel);
    commandLineFiles = CommandLineFiles{};
    for (auto& text : illuminationTexts) text = IlluminationText{};

    // Working points, light, the problem in file form and the (empty) working states; later steps
    // read what the earlier ones set.
    InitialiseWorkPoint(wp);
    InitialiseWorkPoint(secondwp);
    InitialiseGenerationParameters(generatieparameters);
    InitialiseGenerationParameters(secondgeneratieparameters);
    InitialiseInputParameters(parameterset1);
    for (CalculationVariables* cv : {&currentCalcVars, &evenwichtcv, &kortsluitcv, &werkpuntcv}) {
        InitialiseCalculationVariables(*cv);
    }
    InitialiseParameterset2(zonnecel); // the default cell, in user form

    SingleShotSimulationNumber = 0;
    BatchSimulationNumber = 0;
    CurveFitSimulationNumber = 0;
    StatusMessage(3);
    META_Mode = 0;
    AllFilesFound = 1;
    MIS_mode = 0;
}

void Terminate() {
    CloseErrorLog();
    FreeGenerationParameters(generatieparameters);
    FreeGenerationParameters(secondgeneratieparameters);
    if (currentCalcVars.parameters) FreeCalculationParameters(*currentCalcVars.parameters);
}

namespace {

// The value of a profile across a layer: one number when it is the same at both edges.
std::string EdgeValues(const Profile& p, std::string_view format) {
    if (p.leftValue == p.rightValue) return FmtStr(format, p.leftValue);
    return FmtStr(format, p.leftValue) + " .. " + FmtStr(format, p.rightValue);
}

} // namespace

std::string LoadedCellSummary(const std::string& definitionFile, bool loaded) {
    if (definitionFile.empty()) return "No definition file named; no cell loaded.\n";
    if (!loaded) return "Definition file \"" + definitionFile + "\" was not loaded.\n";
    std::string out = "Definition file: " + definitionFile + "\n";
    const int layers = zonnecel.numberOfLayers;
    out += FmtStr("Layers: %i\n", layers);
    for (int i = 0; i < layers && i < MAX_LAYERS; ++i) {
        const LayerParameters& layer = zonnecel.layer[static_cast<size_t>(i)];
        const std::string name = layer.name.empty() ? layer.material.name : layer.name;
        out += FmtStr("  %i  %s\n", i + 1, name);
        out += "     d = " + FmtStr("%f[p4]", layer.material.d) + " µm";
        out += ", Eg = " + EdgeValues(layer.material.Eg, "%f[p3]") + " eV";
        out += ", Nd = " + EdgeValues(layer.material.Nd, "%f[p3e2]") + " cm-3";
        out += ", Na = " + EdgeValues(layer.material.Na, "%f[p3e2]") + " cm-3\n";
    }
    return out;
}

namespace {

void PrintUsage(std::ostream& out, const std::string& home) {
    out << "Usage: tervo [options] [files]\n"
           "\n"
           "TERVO, a one-dimensional numerical simulator of thin-film solar cells.\n"
           "\n"
           "Files are told apart by their extension (any case) and may stand in any order; a name\n"
           "may hold blanks and dots.  They are applied in this order:\n"
           "  .def  .definition   cell definition\n"
           "  .act  .action       action list\n"
           "  .wp2                initial working point\n"
           "  .ter  .tervo        all settings\n"
           "  .spe                spectrum\n"
           "  .gen  .generation   generation profile G(x)\n"
           "  .sbf  .batch        batch settings\n"
           "  .srf  .record       recorder settings\n"
           "  .scr  .script       script\n"
           "In this build only the cell definition is applied; files of the other kinds are reported\n"
           "and passed over.  A bare file name is looked for in the working folder and then in the\n"
           "default folder of its kind under the home folder.\n"
           "\n"
           "Options:\n"
           "  --home DIR          home folder (default: the folder of the executable)\n"
           "  --save-def OUT.def  save the cell of the definition file on the command line to OUT.def\n"
           "                      (a bare name is written into the def folder)\n"
           "  --version           print the version and exit\n"
           "  --help              print this text and exit\n"
           "\n"
           "Home folder: "
        << home
        << "\n"
           "  sub-folders: def spectrum absorption filter generation optcapt bdf script results\n"
           "               grading measurements scaling materials\n";
}

} // namespace

int RunTervo(int argc, char** argv) {
    const std::string argv0 = argc > 0 && argv[0] ? argv[0] : "tervo";
    SetVersion(argv0, ProgramFile(argv0));

    // Options come off the command line before the file names are parsed.
    std::vector<const char*> files{argv0.c_str()};
    std::string home;
    std::string saveDefinition;
    bool saveDefinitionWanted = false;
    bool help = false;
    bool version = false;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i] ? argv[i] : "";
        if (optionsEnded || argument.rfind("--", 0) != 0) {
            files.push_back(argv[i]);
            continue;
        }
        if (argument == "--") {
            optionsEnded = true;
        } else if (argument == "--help") {
            help = true;
        } else if (argument == "--version") {
            version = true;
        } else if (argument == "--home" || argument == "--save-def") {
            if (i + 1 >= argc || !argv[i + 1]) {
                TERVOErrorMessage(COMMAND_LINE_TITLE, "The option " + argument + " needs a value behind it.");
                return 2;
            }
            (argument == "--home" ? home : saveDefinition) = argv[++i];
            if (argument == "--save-def") saveDefinitionWanted = true;
        } else {
            TERVOErrorMessage(
                COMMAND_LINE_TITLE,
                "Unknown option \"" + argument +
                    "\"; the options are --home DIR, --save-def OUT.def, --version and --help.");
            return 2;
        }
    }

    if (version) {
        std::cout << VERSION << '\n';
        return 0;
    }
    if (home.empty()) {
        home = DefaultHomeFolder(argv0);
    } else {
        std::error_code ec;
        // A home folder that does not exist yet is made, with its tree below.
        if (!std::filesystem::is_directory(home, ec) && !MakeDirectories(home)) {
            TERVOErrorMessage(COMMAND_LINE_TITLE,
                              "The home folder \"" + home + "\" does not exist and cannot be made.");
            return 2;
        }
        const auto absolute = std::filesystem::absolute(home, ec);
        if (!ec) home = absolute.lexically_normal().string();
    }
    if (help) {
        PrintUsage(std::cout, home);
        return 0;
    }
    SetTERVOHome(home);

    Initialise();
    commandLineFiles = ParseCommandLine(JoinCommandLine(static_cast<int>(files.size()), files.data()));
    const int definition = ApplyCommandLineFiles(commandLineFiles);

    int status = 0;
    if (saveDefinitionWanted) {
        if (definition == 1) {
            TERVOErrorMessage("Error whilst saving the def file",
                              "--save-def needs a definition file (.def) on the command line.");
            status = 1;
        } else if (definition != 0) {
            status = 1; // the reader has said why
        } else if (SaveDefinitionFileToPath(saveDefinition) != 0) {
            status = 1;
        }
    }
    // No event loop in this build.  Where a screen would wait for its user, a run that names a
    // definition and no script simulates the cell once and saves what it calculated.
    if (commandLineFiles.script.empty()) {
        std::cout << LoadedCellSummary(commandLineFiles.def, definition == 0);
        if (!saveDefinitionWanted && definition == 0) {
            std::string summary;
            status = RunMainJob(commandLineFiles.def, summary);
            std::cout << summary << std::endl;
        } else if (!saveDefinitionWanted && definition == -1) {
            status = 1; // the cell could not be loaded (reported)
        }
    } else if (scriptResult != 0) {
        status = 1; // the script could not be read (reported)
    }
    Terminate();
    return status;
}

} // namespace tervo
