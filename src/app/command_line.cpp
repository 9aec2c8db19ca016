// The command line of the program and the whole process: options, the file slots and their
// application, and what a run without a screen does with them (a script, or the main job).
#include "app/command_line.h"

#include <filesystem>
#include <iostream>
#include <system_error>
#include <vector>

#include "app/main_job.h"
#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/control/problem.h"
#include "run/control/startup.h"
#include "run/control/work_point.h"
#include "run/sweeps/point_recovery.h"
#include "script/script_runner.h"

namespace tervo {

CommandLineFiles commandLineFiles;

namespace {

constexpr const char* COMMAND_LINE_TITLE = "Error whilst reading the command line";

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
// The whole process

void InitialiseProgram() {
    // The script defaults are set with messages held in the log, so that nothing of this step
    // reaches a screen.
    ErrorMessageMode = 2;
    InitialiseScriptVariables(theScript);
    Initialise();
    commandLineFiles = CommandLineFiles{};
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
           "  --no-recovery       cut a curve at its first point that does not converge, without\n"
           "                      retrying it in smaller steps and with the coupled iteration\n"
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
    sweepRecovery = 1;
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
        } else if (argument == "--no-recovery") {
            // A point that does not converge cuts its curve at once, without the retries.
            sweepRecovery = 0;
        } else if (argument == "--home" || argument == "--save-def") {
            if (i + 1 >= argc || !argv[i + 1]) {
                TERVOErrorMessage(COMMAND_LINE_TITLE, "The option " + argument + " needs a value behind it.");
                return 2;
            }
            (argument == "--home" ? home : saveDefinition) = argv[++i];
            if (argument == "--save-def") saveDefinitionWanted = true;
        } else {
            TERVOErrorMessage(COMMAND_LINE_TITLE, "Unknown option \"" + argument +
                                                      "\"; the options are --home DIR, --save-def OUT.def, "
                                                      "--no-recovery, --version and --help.");
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

    InitialiseProgram();
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
