// Start-up of the run-time state: version banner, the home folder and its tree, file types and the
// completion of bare file names, status line and illumination labels.
#include "run/control/startup.h"

#include <cctype>
#include <filesystem>
#include <system_error>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/results/result_files.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo {

// ---------------------------------------------------------------------------------------------
// Process state owned by this file

std::string VERSION;
int QuitScriptMode = 0;
int ErrorHandlingSetting = 0;
StatusLine statusLine;
std::array<IlluminationText, 5> illuminationTexts;

namespace {

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

} // namespace

// ---------------------------------------------------------------------------------------------
// File names

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
        // A dot of a relative folder ("./", "../") or one followed by another dot before the next
        // white space belongs to the name: an extension is letters and digits.
        if (dot + 1 < text.size() &&
            (text[dot + 1] == '/' || text[dot + 1] == '\\' || text[dot + 1] == '.')) {
            name += '.';
            start = dot + 1;
            continue;
        }
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

int ProvideStandardFiles(const std::string& home, const std::string& programHome) {
    namespace fs = std::filesystem;
    int missing = 0;
    for (const char* file : TERVO_STANDARD_FILES) {
        const fs::path target = fs::path(home) / file;
        std::error_code ec;
        if (fs::is_regular_file(target, ec)) continue;
        const fs::path source = fs::path(programHome) / file;
        if (fs::is_regular_file(source, ec) && fs::copy_file(source, target, ec) && !ec) continue;
        TERVOErrorMessage("Error whilst setting the home folder",
                          "The standard file \"" + target.string() +
                              "\" is missing and could not be copied from \"" + source.string() + "\"" +
                              (ec ? " (" + ec.message() + ")" : std::string()) +
                              "; runs that need it will fail.");
        ++missing;
    }
    return missing;
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
    QuitScriptMode = 0;
    // Messages go to the screen (standard error) from here on; a log of an earlier session of
    // this process is closed, so that the next logged message opens it afresh.
    CloseErrorLog();
    ErrorMessageMode = 0;
    ErrorMessageNumber = 0;
    ErrorHandlingSetting = 0;
    ActionListMode = 0;
    InitialiseDiagnostics();
    InitialiseActionPanel(actionPanel);
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

} // namespace tervo
