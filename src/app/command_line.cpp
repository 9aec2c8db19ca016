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
#include "script/load_save_commands.h"
#include "script/script_runner.h"
#include "setup/parameter_sets.h"
#include "setup/spectrum.h"

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

// The file type of each slot: the folder of the home tree that completes a bare name.
struct SlotType {
    std::string CommandLineFiles::*slot;
    int filetype;
};
constexpr SlotType kSlotTypes[] = {
    {&CommandLineFiles::def, FILETYPE_DEF},
    {&CommandLineFiles::act, FILETYPE_ACTION},
    {&CommandLineFiles::wp2, FILETYPE_WP2},
    {&CommandLineFiles::all, FILETYPE_ALL_SETTINGS},
    {&CommandLineFiles::spectrum, FILETYPE_SPECTRUM},
    {&CommandLineFiles::gen, FILETYPE_GENERATION},
    {&CommandLineFiles::batch, FILETYPE_BATCH_SETTINGS},
    {&CommandLineFiles::record, FILETYPE_RECORD_SETTINGS},
    {&CommandLineFiles::script, FILETYPE_SCRIPT},
};

std::string BaseNameOf(const std::string& path) {
    std::string drive, folder, file;
    SplitPath(path, drive, folder, file);
    return file;
}

std::string AbsolutePath(const std::string& path) {
    std::error_code ec;
    const auto absolute = std::filesystem::absolute(path, ec);
    return ec ? path : absolute.lexically_normal().string();
}

} // namespace

int ResolveCommandLineFile(const std::string& name, int filetype, std::string& path, std::ostream& notes) {
    namespace fs = std::filesystem;
    const std::string given = TrimRight(name);
    std::error_code ec;
    const bool asGiven = !given.empty() && fs::is_regular_file(given, ec);
    std::string drive, folder, file;
    SplitPath(given, drive, folder, file);
    std::string completed;
    bool inTree = false;
    if (drive.empty() && folder.empty() && !given.empty()) {
        CheckTERVOPaths(&completed, nullptr, given, filetype);
        inTree = fs::is_regular_file(completed, ec);
    }
    if (asGiven) {
        path = AbsolutePath(given);
        if (inTree && !fs::equivalent(path, completed, ec))
            notes << "\"" << given << "\": took " << path << " from the working folder, not " << completed
                  << "\n";
        return 1;
    }
    if (inTree) {
        path = completed;
        return 1;
    }
    const std::string here = fs::current_path(ec).string();
    std::string where = "was not found";
    if (!completed.empty())
        where = "was found neither in the working folder (" + here + ") nor as " + completed;
    else if (fs::path(given).is_relative())
        where += " in the working folder (" + here + ")";
    TERVOErrorMessage("Error whilst opening a file of the command line",
                      "The file \"" + given + "\" " + where + "; nothing was run.");
    return 0;
}

bool ResolveCommandLineFiles(const CommandLineFiles& named, CommandLineFiles& resolved, std::ostream& notes) {
    resolved = named;
    bool all = true;
    for (const SlotType& s : kSlotTypes) {
        const std::string& name = named.*(s.slot);
        if (!name.empty() && !ResolveCommandLineFile(name, s.filetype, resolved.*(s.slot), notes))
            all = false;
    }
    return all;
}

int ApplyCommandLineFiles(const CommandLineFiles& files) {
    int definition = 1;
    if (!files.def.empty()) definition = Laad_data_uit_file(files.def) == 0 ? 0 : -1;
    // A script of the same command line must not calculate another cell in its place.
    if (definition == -1) {
        scriptCellRefused = true;
        scriptCellRefusedName = files.def;
    }
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
           "may hold blanks and dots, and the scan ends at the first word without a dot.  Of each\n"
           "kind the last file named counts.  They are applied in this order:\n"
           "  .def  .definition   cell definition                 (read)\n"
           "  .act  .action       action list                     (read)\n"
           "  .wp2                initial working point           (read)\n"
           "  .ter  .tervo        all settings                    (not in this build: passed over)\n"
           "  .spe                spectrum                        (read)\n"
           "  .gen  .generation   generation profile G(x)         (read)\n"
           "  .sbf  .batch        batch settings                  (not in this build: passed over)\n"
           "  .srf  .record       recorder settings               (not in this build: passed over)\n"
           "  .scr  .script       script, run last\n"
           "A name that exists as given, relative to the working folder, is taken as given; otherwise\n"
           "a bare name is looked for in the folder of its kind under the home folder (def, spectrum,\n"
           "generation, script, bdf).  Where both exist, one line says which was taken.  A file that\n"
           "exists nowhere refuses the run.\n"
           "\n"
           "With a definition file and no script, the cell is simulated once with the action list\n"
           "(the default one when none is named); every curve calculated and the band diagram of the\n"
           "working point are saved as <name>.iv, .cv, .cf, .qe and .eb in the results folder, and a\n"
           "summary line is printed.  A script runs after every other file of the command line.\n"
           "\n"
           "Options:\n"
           "  --home DIR          home folder (default: the folder of the executable); a new one is\n"
           "                      made with its folders and the standard spectrum\n"
           "  --strict            refuse every input file that needs a reading warning\n"
           "  --save-def OUT.def  load the definition file of the command line and write its cell to\n"
           "                      OUT.def (a bare name is written into the def folder); no calculation\n"
           "  --no-recovery       cut a curve at its first point that does not converge, without\n"
           "                      retrying it in smaller steps and with the coupled iteration,\n"
           "                      and solve with the chosen scheme alone (no coupled finish)\n"
           "  --scheme N          the coupling of the steady-state iteration instead of the\n"
           "                      definition's: 11 separate Gummel blocks (default), 12 the carriers\n"
           "                      lumped, 13 fully coupled Newton, 14 Gummel passes, then coupled\n"
           "  --version           print the version and exit\n"
           "  --help              print this text and exit\n"
           "  --                  the words behind it are file names, also when they begin with --\n"
           "\n"
           "Exit status:\n"
           "  0  everything ran as asked\n"
           "  1  a calculation failed or a curve was cut (what was calculated is saved), or a file\n"
           "     could not be written\n"
           "  2  the input was refused: a wrong option, a file found nowhere or unreadable, a\n"
           "     warning under --strict; nothing was calculated\n"
           "  3  it ran, but an input file needed a warning (the warnings head every result file)\n"
           "\n"
           "Messages go to the standard error stream, or to TERVOErrorLogFile.log in the working\n"
           "folder when the error handling is set to a log.\n"
           "\n"
           "Home folder: "
        << home
        << "\n"
           "  sub-folders: def spectrum absorption filter generation optcapt bdf script results\n"
           "               grading measurements scaling materials\n";
}

// The options of the command line; the file names stay behind in `files`.
struct Options {
    std::vector<const char*> files;
    std::string home;
    std::string saveDefinition;
    bool saveDefinitionWanted = false;
    bool help = false;
    bool version = false;
    bool strict = false;
};

// False (reported) for a wrong option.
bool ReadOptions(int argc, char** argv, const std::string& argv0, Options& o) {
    o.files = {argv0.c_str()};
    bool optionsEnded = false;
    sweepRecovery = 1;
    couplingSchemeChoice = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i] ? argv[i] : "";
        if (optionsEnded || argument.rfind("--", 0) != 0) {
            o.files.push_back(argv[i]);
            continue;
        }
        if (argument == "--") {
            optionsEnded = true;
        } else if (argument == "--help") {
            o.help = true;
        } else if (argument == "--version") {
            o.version = true;
        } else if (argument == "--strict") {
            o.strict = true;
        } else if (argument == "--no-recovery") {
            // A point that does not converge cuts its curve at once, without the retries.
            sweepRecovery = 0;
        } else if (argument == "--scheme") {
            // The coupling of the steady-state iteration: 11 separate Gummel blocks, 12 the carriers
            // lumped, 13 fully coupled Newton, 14 Gummel passes first and coupled from then on.
            const std::string value = i + 1 < argc && argv[i + 1] ? argv[i + 1] : "";
            if (value != "11" && value != "12" && value != "13" && value != "14") {
                TERVOErrorMessage(COMMAND_LINE_TITLE,
                                  "The option --scheme needs one of 11, 12, 13 or 14 behind it, not \"" +
                                      value + "\".");
                return false;
            }
            couplingSchemeChoice = std::stoi(value);
            ++i;
        } else if (argument == "--home" || argument == "--save-def") {
            if (i + 1 >= argc || !argv[i + 1]) {
                TERVOErrorMessage(COMMAND_LINE_TITLE, "The option " + argument + " needs a value behind it.");
                return false;
            }
            (argument == "--home" ? o.home : o.saveDefinition) = argv[++i];
            if (argument == "--save-def") o.saveDefinitionWanted = true;
        } else {
            TERVOErrorMessage(
                COMMAND_LINE_TITLE,
                "Unknown option \"" + argument +
                    "\"; the options are --home DIR, --strict, --save-def OUT.def, --no-recovery, "
                    "--scheme N, --version and --help.");
            return false;
        }
    }
    return true;
}

// The home folder of the run, made with its tree and standard files when it is new.  Empty
// (reported) when it cannot be made.
std::string PrepareHome(const Options& o, const std::string& argv0) {
    const std::string programHome = DefaultHomeFolder(argv0);
    if (o.home.empty()) return programHome;
    std::error_code ec;
    if (!std::filesystem::is_directory(o.home, ec) && !MakeDirectories(o.home)) {
        TERVOErrorMessage(COMMAND_LINE_TITLE,
                          "The home folder \"" + o.home + "\" does not exist and cannot be made.");
        return {};
    }
    return AbsolutePath(o.home);
}

// A spectrum of the command line is read once before anything is applied: one that cannot be used
// refuses the run, instead of failing every light calculation or leaving the standard spectrum in
// its place.
bool SpectrumReadable(const std::string& path) {
    SpectrumSettings light;
    light.dark = 0;
    light.spectrumFile = path;
    std::vector<double> lambda, watt;
    return bepaal_spectrum(light, lambda, watt) > 0;
}

// What the run did, once the command line is applied: the main job, --save-def, or the script.
int RunCommandLineJob(const Options& o, int definition) {
    const int warnings = static_cast<int>(ReadingWarnings().size());
    const std::string readWith = FmtStr("read with %i warnings", warnings);
    if (!commandLineFiles.script.empty()) {
        if (scriptResult != 0) return EXIT_REFUSED; // the script could not be read (reported)
        if (warnings > 0) std::cout << BaseNameOf(commandLineFiles.script) << ": " << readWith << std::endl;
        // A definition of the command line that could not be loaded refuses that part of the input.
        return definition == -1 ? WorseExitStatus(ScriptExitStatus, EXIT_REFUSED) : ScriptExitStatus;
    }
    if (o.saveDefinitionWanted) {
        if (definition == 1) {
            TERVOErrorMessage("Error whilst saving the def file",
                              "--save-def needs a definition file (.def) on the command line.");
            return EXIT_REFUSED;
        }
        if (definition != 0) return EXIT_REFUSED; // the reader has said why
        return SaveDefinitionFileToPath(o.saveDefinition) != 0 ? EXIT_FAILED : EXIT_RAN;
    }
    std::cout << LoadedCellSummary(commandLineFiles.def, definition == 0);
    if (definition == -1) return EXIT_REFUSED; // the cell could not be loaded (reported)
    if (definition != 0) return EXIT_RAN;
    if (StrictReading && warnings > 0) {
        TERVOErrorMessage(
            COMMAND_LINE_TITLE,
            FmtStr("%s<The input was %s and --strict refuses it; nothing was calculated.", readWith));
        return EXIT_REFUSED;
    }
    std::string summary;
    const int status = RunMainJob(commandLineFiles.def, summary);
    if (warnings > 0) summary += " (" + readWith + ")";
    std::cout << summary << std::endl;
    return status;
}

} // namespace

int RunTervo(int argc, char** argv) {
    const std::string argv0 = argc > 0 && argv[0] ? argv[0] : "tervo";
    SetVersion(argv0, ProgramFile(argv0));

    // Options come off the command line before the file names are parsed.
    Options o;
    if (!ReadOptions(argc, argv, argv0, o)) return EXIT_REFUSED;
    if (o.version) {
        std::cout << VERSION << '\n';
        return EXIT_RAN;
    }
    const std::string home = PrepareHome(o, argv0);
    if (home.empty()) return EXIT_REFUSED;
    if (o.help) {
        PrintUsage(std::cout, home);
        return EXIT_RAN;
    }
    SetTERVOHome(home);
    ProvideStandardFiles(home, DefaultHomeFolder(argv0));

    InitialiseProgram();
    ClearReadingWarnings();
    StrictReading = o.strict;
    ScriptExitStatus = EXIT_RAN;
    scriptCellRefused = false;
    commandLineFiles = ParseCommandLine(JoinCommandLine(static_cast<int>(o.files.size()), o.files.data()));
    // Every file named must exist before anything is read or written.
    CommandLineFiles resolved;
    if (!ResolveCommandLineFiles(commandLineFiles, resolved, std::cout)) {
        Terminate();
        return EXIT_REFUSED;
    }
    if (!resolved.spectrum.empty() && !SpectrumReadable(resolved.spectrum)) {
        Terminate();
        return EXIT_REFUSED; // the reader has said why
    }
    const int definition = ApplyCommandLineFiles(resolved);
    int status = RunCommandLineJob(o, definition);
    // A run that went as asked, on input that needed warnings, says so in its status.
    if (status == EXIT_RAN && !ReadingWarnings().empty()) status = EXIT_WARNED;
    StrictReading = false;
    Terminate();
    return status;
}

} // namespace tervo
