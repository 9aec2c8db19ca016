#include "script/load_save_commands.h"

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <vector>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_file.h"
#include "platform/text_util.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/control/problem.h"
#include "run/control/startup.h"
#include "run/control/work_point.h"
#include "run/results/ac_result_files.h"
#include "run/results/result_files.h"
#include "run/results/result_list.h"
#include "script/script_runner.h"
#include "script/script_values.h"
#include "setup/absorption.h"
#include "setup/parameter_sets.h"
#include "setup/spectrum.h"

namespace tervo {

namespace {

constexpr const char* LOAD_TITLE = "Error whilst processing load command in script";
constexpr const char* SAVE_TITLE = "Error whilst processing save command in script";
constexpr const char* ACTION_TITLE = "Error whilst processing action command in script";
constexpr const char* CALCULATE_TITLE = "Error whilst processing calculate command in script";
constexpr const char* RUNDLL_TITLE = "Error whilst processing rundll command in script";

// kT/q at 300 K: `kT` keywords give the temperature through T = kT * 300 / 0.0259.
constexpr double KT_AT_300K = 0.0259;

bool Is(const std::string& word, const char* keyword) {
    return MatchesKeyword(word, keyword);
}

int Truncate(double value) {
    if (std::isnan(value)) return 0;
    const double t = std::trunc(value);
    if (t >= static_cast<double>(std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
    if (t <= static_cast<double>(std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
    return static_cast<int>(t);
}

// A line whose kind of file or run has no implementation in this build.
void NotAvailable(const char* title, const std::string& command, const std::string& argument,
                  const std::string& value, const std::string& what) {
    TERVOErrorMessage(title, FmtStr("%s<Script command: %s %s %s\n%s", command, argument, value, what));
}

} // namespace

// ---------------------------------------------------------------------------------------------
// load

bool scriptCellRefused = false;
std::string scriptCellRefusedName;

void ProcessLoadCommand(const std::string& argument, const std::string& value) {
    if (Is(argument, "definition")) {
        // A cell that could not be loaded is not calculated: the session's cell would be another one.
        scriptCellRefused = Laad_data_uit_file(value) != 0;
        if (scriptCellRefused) {
            scriptCellRefusedName = value;
            RaiseScriptStatus(EXIT_REFUSED);
        }
    } else if (Is(argument, "action")) {
        if (SetActionPanelFromFile(value) != 0) RaiseScriptStatus(EXIT_REFUSED);
    } else if (Is(argument, "initialw")) {
        if (SetWP2FromFile(value) != 0) RaiseScriptStatus(EXIT_REFUSED);
    } else if (Is(argument, "batch")) {
        NotAvailable(LOAD_TITLE, "load", argument, value,
                     "Batch settings files can not be loaded in this build yet");
    } else if (Is(argument, "singleshotbatch")) {
        NotAvailable(LOAD_TITLE, "load", argument, value, "Batch runs are not available in this build yet");
    } else if (Is(argument, "record")) {
        NotAvailable(LOAD_TITLE, "load", argument, value,
                     "Recorder settings files can not be loaded in this build yet");
    } else if (Is(argument, "alltervo") || Is(argument, "tervo")) {
        NotAvailable(LOAD_TITLE, "load", argument, value,
                     "All-settings files can not be loaded in this build yet");
    } else if (Is(argument, "spectrum")) {
        SetGenerationPath(FILETYPE_SPECTRUM, value);
    } else if (Is(argument, "generation")) {
        SetGenerationPath(FILETYPE_GENERATION, value);
    } else if (Is(argument, "measurement")) {
        std::string part1, part2, part3, part4;
        InterpretScriptVariable(argument, part1, part2, part3, part4);
        // Without a known kind of measurement the line does nothing.
        if (Is(part2, "iv") || Is(part2, "cv") || Is(part2, "cf") || Is(part2, "qe"))
            NotAvailable(LOAD_TITLE, "load", argument, value,
                         "Measurement files can not be loaded in this build yet");
    } else {
        TERVOErrorMessage(LOAD_TITLE,
                          FmtStr("%s<Script command: load %s %s\nCommand not recognised", argument, value));
    }
}

// ---------------------------------------------------------------------------------------------
// save

namespace {

// The result tables a script can save, by the second part of its argument.  "genrec" and "gr" ask
// the generation-recombination table; a third part "occupation" or "ftraps" asks the occupation of
// the defect levels instead (without a user nobody is asked).
enum class ResultTable { None, Bands, GenRec, Occupation, AC, IV, CV, Cf, QE, Later };

ResultTable WhichTable(const std::string& part2, const std::string& part3) {
    if (Is(part2, "eb")) return ResultTable::Bands;
    if (Is(part2, "genrec") || Is(part2, "gr"))
        return Is(part3, "occupation") || Is(part3, "ftraps") ? ResultTable::Occupation : ResultTable::GenRec;
    if (Is(part2, "ac")) return ResultTable::AC;
    if (Is(part2, "iv")) return ResultTable::IV;
    if (Is(part2, "cv")) return ResultTable::CV;
    if (Is(part2, "cf")) return ResultTable::Cf;
    if (Is(part2, "qe")) return ResultTable::QE;
    if (Is(part2, "record")) return ResultTable::Later;
    return ResultTable::None;
}

void SaveResult(const std::string& part2, const std::string& part3, const std::string& argument,
                const std::string& value, const std::string& outputHeader) {
    const ResultTable table = WhichTable(part2, part3);
    if (table == ResultTable::None) return; // any other kind of result: nothing
    if (table == ResultTable::Later) {
        NotAvailable(SAVE_TITLE, "save", argument, value,
                     "This kind of result file is not available in this build yet");
        return;
    }
    int filetype = FILETYPE_IV;
    switch (table) {
    case ResultTable::Bands:
        filetype = FILETYPE_EB;
        break;
    case ResultTable::GenRec:
    case ResultTable::Occupation:
        filetype = FILETYPE_GENERATION_RESULT;
        break;
    case ResultTable::AC:
        filetype = FILETYPE_AC;
        break;
    case ResultTable::CV:
        filetype = FILETYPE_CV;
        break;
    case ResultTable::Cf:
        filetype = FILETYPE_CF;
        break;
    case ResultTable::QE:
        filetype = FILETYPE_QE;
        break;
    default:
        break;
    }
    std::string path;
    CheckTERVOPaths(&path, nullptr, value, filetype);
    // A writer that finds nothing to write has said so; the file then holds the script's header.
    WriteWholeFile(path, SAVE_TITLE, [&](TextFile& file) {
        WriteLine(file, outputHeader);
        switch (table) {
        case ResultTable::Bands:
            eb_naar_file(OUTPUT_TO_OPEN_FILE, &file, currentCalcVars);
            break;
        case ResultTable::GenRec:
            gen_naar_file(OUTPUT_TO_OPEN_FILE, &file, currentCalcVars, GENFILE_GENERATION);
            break;
        case ResultTable::Occupation:
            gen_naar_file(OUTPUT_TO_OPEN_FILE, &file, currentCalcVars, GENFILE_OCCUPATION);
            break;
        case ResultTable::AC:
            ac_naar_file(OUTPUT_TO_OPEN_FILE, &file, currentCalcVars);
            break;
        case ResultTable::CV:
            cv_naar_file(OUTPUT_TO_OPEN_FILE, &file);
            break;
        case ResultTable::Cf:
            cf_naar_file(OUTPUT_TO_OPEN_FILE, &file);
            break;
        case ResultTable::QE:
            qe_naar_file(OUTPUT_TO_OPEN_FILE, &file);
            break;
        default:
            iv_naar_file(OUTPUT_TO_OPEN_FILE, &file);
            break;
        }
        return file.lastError == 0 ? 0 : -1;
    });
}

} // namespace

void ProcessSaveCommand(const std::string& argument, const std::string& value,
                        const std::string& outputHeader, ScriptVariables&) {
    std::string part1, part2, part3, part4;
    InterpretScriptVariable(argument, part1, part2, part3, part4);
    if (Is(part1, "setting")) {
        if (Is(part2, "definition")) {
            SaveDefinitionFileToPath(value);
        } else if (Is(part2, "action")) {
            SaveActionList(value);
        } else if (Is(part2, "batch") || Is(part2, "record") || Is(part2, "alltervo") || Is(part2, "tervo")) {
            NotAvailable(SAVE_TITLE, "save", argument, value,
                         "This kind of settings file can not be saved in this build yet");
        }
    } else if (Is(part1, "result")) {
        SaveResult(part2, part3, argument, value, outputHeader);
    } else if (Is(part1, "graph")) {
        NotAvailable(SAVE_TITLE, "save", argument, value,
                     "Pictures of graphs are not available in this build: it has no screens");
    } else if (Is(part1, "scriptvar")) {
        NotAvailable(SAVE_TITLE, "save", argument, value,
                     "The dump of the script variables is not available in this build yet");
    } else {
        TERVOErrorMessage(SAVE_TITLE,
                          FmtStr("%s<Script command: save %s %s\nCommand not recognised", argument, value));
    }
}

// ---------------------------------------------------------------------------------------------
// action

namespace {

WorkPointSettings& SettingsOf(int primary) {
    return primary ? actionPanel.first : actionPanel.second;
}

WorkPoint& StoredOf(int primary) {
    return primary ? wp : secondwp;
}

// The generation modes follow the two working points.
void SetGenerationModes() {
    Generation_Mode = wp.generationFromFile;
    secondGeneration_Mode = secondwp.generationFromFile;
}

// The derived values of a working point after a change of its light: dark, cut-off and wavelengths
// go into the stored record, and with light from a spectrum (and every named file found) the three
// powers of the spectrum are computed anew.
void RefreshIllumination(int primary) {
    WorkPointSettings& s = SettingsOf(primary);
    WorkPoint& w = StoredOf(primary);
    CheckCutoffWavelengths(s);
    w.dark = s.dark;
    w.cutoff = s.cutoff;
    w.lambda_short = s.lambda_short;
    w.lambda_long = s.lambda_long;
    w.generationFromFile = s.generationFromFile;
    w.attenuation = s.attenuation;
    w.ND = s.ND;
    if (!w.generationFromFile && AllFilesFound && FileExists(w.spectrumFile)) {
        SpectrumSettings light;
        light.dark = w.dark;
        light.spectrumFile = w.spectrumFile;
        light.cutoff = w.cutoff;
        light.lambda_short = w.lambda_short;
        light.lambda_long = w.lambda_long;
        light.ND = w.ND;
        std::vector<double> lambda, watt;
        if (bepaal_spectrum(light, lambda, watt) > 0) {
            w.power_spectrum = light.power_spectrum;
            w.power_cutoff = light.power_cutoff;
        }
    }
    w.power_incident = w.power_cutoff * std::pow(10.0, -w.ND);
    SetGenerationModes();
}

// What the value of an action line is read as.
enum class ActionValue {
    None,     // no value
    Number,   // a script value
    Positive, // a script value, not below 0
    Integer,  // a plain decimal integer
    Flag,     // a plain integer, 1 when the value holds none
    FileName, // the value as it stands
};

struct ActionLine {
    const std::string& argument;
    const std::string& value;
    double number = 0;
    int integer = 0;
};

struct ActionKeyword {
    std::string keyword;
    ActionValue kind;
    std::function<void(const ActionLine&)> apply;
};

// The number of points of the walk from 0 V to the working-point voltage: 2 .. 2001.
int LimitWalkPoints(int n) {
    if (n < 2) return 2;
    if (n > MAX_NUM_CALCULATION_STEPS) {
        TERVOErrorMessage("Warning !", FmtStr("%s[w255q]<Number of calculation points is limited to %i!",
                                              MAX_NUM_CALCULATION_STEPS));
        return MAX_NUM_CALCULATION_STEPS;
    }
    return n;
}

void GenerationFileMissing(int primary, const ActionLine& l, const std::string& path) {
    TERVOErrorMessage(ACTION_TITLE, FmtStr("%s<Script command: action %s %s\nGeneration file not found: "
                                           "%s\nSwitched to: generation from internal calculation",
                                           l.argument, l.value, path));
    WorkPoint& w = StoredOf(primary);
    w.generationFile.clear();
    w.generationName.clear();
    w.generationFromFile = 0;
    SettingsOf(primary).generationFromFile = 0;
}

// A generation file that exists becomes that of the working point, which takes its generation from
// it; the ideal light current of the profile follows.
void UseGenerationFile(int primary, const std::string& path) {
    WorkPoint& w = StoredOf(primary);
    w.generationFile = path;
    CheckTERVOPaths(nullptr, &w.generationName, path, FILETYPE_GENERATION);
    w.generationFromFile = 1;
    SettingsOf(primary).generationFromFile = 1;
    std::vector<double> x, G;
    if (GetGenerationFromFile(path, 100.0, x, G) > 0) w.idealLightCurrent = GenerationFileCurrent(x, G);
    kortberekend = 0;
}

void SetSpectrumFile(int primary, const ActionLine& l) {
    WorkPoint& w = StoredOf(primary);
    std::string path = l.value;
    if (IsFileFound(path, FILETYPE_SPECTRUM)) {
        w.spectrumFile = path;
        CheckTERVOPaths(nullptr, &w.spectrumName, path, FILETYPE_SPECTRUM);
    } else {
        std::string wanted;
        CheckTERVOPaths(&wanted, nullptr, l.value, FILETYPE_SPECTRUM);
        TERVOErrorMessage(ACTION_TITLE, FmtStr("%s<Action commant: action %s %s[q]\nSpectrumfile not found: "
                                               "%s\nReplaced with a standard spectrum: AM1_5G 1 sun.spe",
                                               l.argument, l.value, wanted));
        SetStandardSpectrum(w);
    }
    kortberekend = 0;
}

void SwitchToGenerationFile(int primary, const ActionLine& l) {
    std::string path = StoredOf(primary).generationFile;
    if (IsFileFound(path, FILETYPE_GENERATION))
        UseGenerationFile(primary, path);
    else
        GenerationFileMissing(primary, l, path);
}

void SetGenerationFile(int primary, const ActionLine& l) {
    WorkPoint& w = StoredOf(primary);
    std::string path = l.value;
    const bool found = IsFileFound(path, FILETYPE_GENERATION) == 1;
    if (!found) CheckTERVOPaths(&path, nullptr, l.value, FILETYPE_GENERATION);
    w.generationFile = path;
    CheckTERVOPaths(nullptr, &w.generationName, path, FILETYPE_GENERATION);
    if (SettingsOf(primary).generationFromFile == 1) {
        if (found)
            UseGenerationFile(primary, path);
        else
            GenerationFileMissing(primary, l, path);
    }
}

void AddWorkPointKeywords(std::vector<ActionKeyword>& keys, int primary) {
    const std::string point = primary ? "workingpoint." : "initialwp.";
    const std::string light = primary ? "" : "initialwp.";
    auto s = [primary]() -> WorkPointSettings& { return SettingsOf(primary); };
    // A change of the light: the derived values of the working point follow.
    auto lit = [primary](std::function<void(const ActionLine&)> change) {
        return [primary, change](const ActionLine& l) {
            change(l);
            RefreshIllumination(primary);
        };
    };
    using V = ActionValue;

    keys.push_back(
        {point + "temperature", V::Positive, [=](const ActionLine& l) { s().temperature = l.number; }});
    keys.push_back({point + "kT", V::Positive,
                    [=](const ActionLine& l) { s().temperature = l.number * 300.0 / KT_AT_300K; }});
    keys.push_back({point + "voltage", V::Number, [=](const ActionLine& l) { s().voltage = l.number; }});
    if (primary)
        keys.push_back(
            {point + "frequency", V::Positive, [=](const ActionLine& l) { s().frequency = l.number; }});
    keys.push_back({point + "numberofpoints", V::Integer,
                    [=](const ActionLine& l) { s().numberofpoints = LimitWalkPoints(l.integer); }});
    keys.push_back({light + "dark", V::None, lit([=](const ActionLine&) { s().dark = 1; })});
    keys.push_back({light + "light", V::None, lit([=](const ActionLine&) { s().dark = 0; })});
    keys.push_back({light + "generationfrominternalmodel", V::None,
                    lit([=](const ActionLine&) { s().generationFromFile = 0; })});
    keys.push_back({light + "spectrumfile", V::FileName,
                    lit([primary](const ActionLine& l) { SetSpectrumFile(primary, l); })});
    keys.push_back({light + "spectrumcutoff.on", V::None, lit([=](const ActionLine&) { s().cutoff = 1; })});
    keys.push_back({light + "spectrumcutoff.off", V::None, lit([=](const ActionLine&) { s().cutoff = 0; })});
    keys.push_back({light + "spectrumcutoff.shortlambda", V::Positive,
                    lit([=](const ActionLine& l) { s().lambda_short = l.number; })});
    keys.push_back({light + "spectrumcutoff.longlambda", V::Positive,
                    lit([=](const ActionLine& l) { s().lambda_long = l.number; })});
    keys.push_back({light + "intensity.ND", V::Number, lit([=](const ActionLine& l) {
                        s().ND = l.number;
                        UpdateIllumination(primary, IntensityView::NeutralDensity);
                    })});
    keys.push_back({light + "intensity.T", V::Positive, lit([=](const ActionLine& l) {
                        s().transmission = l.number;
                        UpdateIllumination(primary, IntensityView::Transmission);
                    })});
    keys.push_back({light + "generationfromfile.attenuation", V::Positive,
                    lit([=](const ActionLine& l) { s().attenuation = l.number; })});
    keys.push_back({light + "generationfromfile", V::None,
                    lit([primary](const ActionLine& l) { SwitchToGenerationFile(primary, l); })});
    keys.push_back({light + "generationfile", V::FileName,
                    lit([primary](const ActionLine& l) { SetGenerationFile(primary, l); })});
}

// Start and stop change neither the points nor the step; a change of either of those two brings the
// other in line with the range.
void AddLinearSweepKeywords(std::vector<ActionKeyword>& keys, const std::string& prefix, const char* start,
                            const char* stop, ActionValue rangeKind, SweepSettings& sweep,
                            std::initializer_list<const char*> switches) {
    SweepSettings* p = &sweep;
    using V = ActionValue;
    keys.push_back({prefix + start, rangeKind, [p](const ActionLine& l) { p->start = l.number; }});
    keys.push_back({prefix + stop, rangeKind, [p](const ActionLine& l) { p->stop = l.number; }});
    keys.push_back({prefix + "points", V::Integer, [p](const ActionLine& l) {
                        p->points = l.integer;
                        ChangeNumberOfPointsLin(*p, SweepEdit::Points);
                    }});
    keys.push_back({prefix + "increment", V::Number, [p](const ActionLine& l) {
                        p->increment = l.number;
                        ChangeNumberOfPointsLin(*p, SweepEdit::Increment);
                    }});
    for (const char* word : switches)
        keys.push_back({prefix + word, V::Flag, [p](const ActionLine& l) { p->calculate = l.integer; }});
}

// The keywords in their binding order.
const std::vector<ActionKeyword>& ActionKeywords() {
    static const std::vector<ActionKeyword> keys = [] {
        using V = ActionValue;
        std::vector<ActionKeyword> k;
        AddWorkPointKeywords(k, 1);
        AddWorkPointKeywords(k, 0);
        ActionPanelSettings& a = actionPanel;
        AddLinearSweepKeywords(k, "iv.", "startV", "stopV", V::Number, a.IV, {"checkaction", "doiv", "iv"});
        k.push_back({"iv.stopafterVoc", V::None, [&a](const ActionLine&) { a.stopAfterVoc = 1; }});
        k.push_back({"iv.continueafterVoc", V::None, [&a](const ActionLine&) { a.stopAfterVoc = 0; }});
        AddLinearSweepKeywords(k, "cv.", "startV", "stopV", V::Number, a.CV, {"checkaction", "docv", "cv"});
        k.push_back({"cf.startf", V::Positive, [&a](const ActionLine& l) { a.Cf.start = l.number; }});
        k.push_back({"cf.stopf", V::Positive, [&a](const ActionLine& l) { a.Cf.stop = l.number; }});
        // "Cf_total points" and "Cf_points per decade": the two C-f settings whose file keys hold a
        // blank.  On the logarithmic frequency axis either one fixes the other.
        k.push_back({"cf.total", V::Integer, [&a](const ActionLine& l) {
                         a.Cf.points = l.integer;
                         ChangeNumberOfPointsLog(a.Cf, SweepEdit::Points);
                     }});
        k.push_back({"cf.pointsperdecade", V::Positive, [&a](const ActionLine& l) {
                         a.Cf.increment = l.number;
                         ChangeNumberOfPointsLog(a.Cf, SweepEdit::Increment);
                     }});
        for (const char* word : {"cf.checkaction", "cf.docf", "cf.cf"})
            k.push_back({word, V::Flag, [&a](const ActionLine& l) { a.Cf.calculate = l.integer; }});
        AddLinearSweepKeywords(k, "qe.", "startlambda", "stoplambda", V::Positive, a.QE,
                               {"checkaction", "doqe", "qe"});
        return k;
    }();
    return keys;
}

} // namespace

int ActionKeywordCode(const std::string& argument) {
    const std::vector<ActionKeyword>& keys = ActionKeywords();
    for (size_t i = 0; i < keys.size(); ++i)
        if (Is(argument, keys[i].keyword.c_str())) return static_cast<int>(i);
    return -1;
}

std::string ActionKeywordWord(int code) {
    const std::vector<ActionKeyword>& keys = ActionKeywords();
    return code >= 0 && static_cast<size_t>(code) < keys.size() ? keys[static_cast<size_t>(code)].keyword
                                                                : "";
}

void ProcessActionCommand(const std::string& argument, const std::string& value, ScriptVariables& script,
                          const std::string& commandLine) {
    const int code = ActionKeywordCode(argument);
    if (code >= 0) {
        const ActionKeyword& key = ActionKeywords()[static_cast<size_t>(code)];
        ActionLine line{argument, value};
        long long integer = 0;
        switch (key.kind) {
        case ActionValue::None:
        case ActionValue::FileName:
            break;
        case ActionValue::Number:
            line.number = ScriptValueToNumerical(value, script, commandLine);
            break;
        case ActionValue::Positive:
            line.number = ScriptValueToNumerical(value, script, commandLine);
            if (line.number < 0) {
                TERVOErrorMessage(ACTION_TITLE, FmtStr("%s<Script command: %s\nValue not recognised as a "
                                                       "positive number",
                                                       commandLine));
                return;
            }
            break;
        case ActionValue::Integer:
            if (ReadInteger(Trim(value), integer) == 0) {
                TERVOErrorMessage(
                    ACTION_TITLE,
                    FmtStr("%s<Script command: %s\nValue not recognised as an integer", commandLine));
                return;
            }
            line.integer = static_cast<int>(std::clamp<long long>(integer, std::numeric_limits<int>::min(),
                                                                  std::numeric_limits<int>::max()));
            break;
        case ActionValue::Flag:
            line.integer = ReadInteger(Trim(value), integer) > 0 ? (integer != 0 ? 1 : 0) : 1;
            break;
        }
        key.apply(line);
        return;
    }
    TERVOErrorMessage(ACTION_TITLE,
                      FmtStr("%s<Script command: action %s %s\nCommand not recognised", argument, value));
}

// ---------------------------------------------------------------------------------------------
// calculate

void ProcessCalculateCommand(const std::string& argument) {
    if (Is(argument, "batch") || Is(argument, "record")) {
        NotAvailable(CALCULATE_TITLE, "calculate", argument, "",
                     "Batch runs and recordings are not available in this build yet");
        return;
    }
    if (scriptCellRefused) {
        TERVOErrorMessage(CALCULATE_TITLE,
                          FmtStr("%s<Script command: calculate %s\nThe cell of %s[q] could not "
                                 "be loaded; the calculation is refused.",
                                 argument, scriptCellRefusedName));
        RaiseScriptStatus(EXIT_REFUSED);
        return;
    }
    if (StrictReading && !ReadingWarnings().empty()) {
        TERVOErrorMessage(CALCULATE_TITLE,
                          FmtStr("%s<Script command: calculate %s\nAn input file needed a "
                                 "warning and --strict refuses it; the calculation is refused.",
                                 argument));
        RaiseScriptStatus(EXIT_REFUSED);
        return;
    }
    Simulate(SINGLE_SHOT);
    RaiseScriptStatus(LastCalculationStatus());
}

// ---------------------------------------------------------------------------------------------
// loop

void ProcessLoopCommand(const std::string& argument, const std::string& value, long& filePosition,
                        long& loopStart, ScriptVariables& script, const std::string& commandLine,
                        int& repetitions) {
    if (Is(argument, "start")) {
        repetitions = 0;
        script.loopcounter = 0;
        loopStart = filePosition;
    } else if (Is(argument, "stop")) {
        if (loopStart < 0) {
            // Nothing to go back to: the line is passed over.
            TERVOErrorMessage(
                "Error in Set loop command",
                FmtStr("%s<loop stop without a loop start before it in the file\nCommand line = %s",
                       commandLine));
            return;
        }
        if (repetitions < script.maxiteration - 1 && std::fabs(script.looperror) > script.maxerror) {
            ++repetitions;
            script.loopcounter = repetitions;
            filePosition = loopStart;
        }
    } else if (Is(argument, "maxiteration")) {
        script.maxiteration = Truncate(ScriptValueToNumerical(value, script, commandLine));
    } else if (Is(argument, "maxerror")) {
        script.maxerror = ScriptValueToNumerical(value, script, commandLine);
    } else {
        TERVOErrorMessage(
            "Error in Set loop command",
            FmtStr("%s<Argument of loop command not recognised\nCommand line = %s", commandLine));
    }
}

// ---------------------------------------------------------------------------------------------
// clear

namespace {

// Every vector keeps its first (or last) `keep` elements; a shorter vector stays as it is.
void KeepElements(ScriptVariables& script, size_t keep, bool first) {
    for (int slot = 0; slot < NUMBER_OF_SCRIPT_SLOTS; ++slot) {
        std::vector<double>& v = script.svector[static_cast<size_t>(slot)];
        if (v.size() <= keep) continue;
        if (first)
            v.resize(keep);
        else
            v.erase(v.begin(), v.end() - static_cast<std::ptrdiff_t>(keep));
        script.nvector[static_cast<size_t>(slot)] = static_cast<int>(v.size());
    }
}

} // namespace

void ProcessClearScriptCommand(const std::string& argument, ScriptVariables& script) {
    std::string part1, part2, part3, part4;
    InterpretScriptVariable(argument, part1, part2, part3, part4);
    if (Is(part1, "scriptvariables")) {
        if (Is(part2, "allbutfirst3"))
            KeepElements(script, 3, true);
        else if (Is(part2, "allbutfirst2"))
            KeepElements(script, 2, true);
        else if (Is(part2, "allbutlast3"))
            KeepElements(script, 3, false);
        else if (Is(part2, "allbutlast2"))
            KeepElements(script, 2, false);
        else if (Is(part2, "all") && !Is(part2, "allbut"))
            InitialiseScriptVariables(script);
        return; // any other second part: nothing
    }
    if (Is(argument, "simulations")) {
        wis_alles();
        InitialiseScriptVariables(script);
        ClearScriptGraph(script);
    } else if (Is(argument, "plot") || Is(argument, "scriptgraph")) {
        ClearScriptGraph(script);
    } else if (Is(argument, "action")) {
        actionPanel.IV.calculate = 0;
        actionPanel.CV.calculate = 0;
        actionPanel.Cf.calculate = 0;
        actionPanel.QE.calculate = 0;
        actionPanel.first.temperature = 300;
        actionPanel.first.voltage = 0;
        actionPanel.first.frequency = 1e6;
        actionPanel.first.numberofpoints = 5;
    } else if (Is(argument, "all")) {
        ClearScriptGraph(script);
        InitialiseScriptVariables(script);
        wis_alles();
    } else {
        TERVOErrorMessage("Error in script clear statement",
                          FmtStr("%s<Argument of clear not recognised\nargument = %s", argument));
    }
}

// ---------------------------------------------------------------------------------------------
// rundll, runsystem, runscript, run

namespace {

using UserFunction = int (*)(int mode, double* xvalue, double* yvalue, double** vectors, int* lengths,
                             double* looperror, char* filename);

struct LibraryHandle {
    void* handle = nullptr;
    explicit LibraryHandle(const std::string& path) : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    ~LibraryHandle() {
        if (handle) dlclose(handle);
    }
    LibraryHandle(const LibraryHandle&) = delete;
    LibraryHandle& operator=(const LibraryHandle&) = delete;
};

} // namespace

int ProcessRunDLLCommand(ScriptVariables& script) {
    const std::string path = MakePathname(GetProjectDir(), USER_LIBRARY_NAME);
    if (!FileExists(path)) {
        TERVOErrorMessage(
            RUNDLL_TITLE,
            FmtStr("%s<Script command: rundll\nNo user library %s[q] was found: the line is refused", path));
        return script.status;
    }
    LibraryHandle library(path);
    if (!library.handle) {
        const char* why = dlerror();
        TERVOErrorMessage(RUNDLL_TITLE,
                          FmtStr("%s<Script command: rundll\nThe user library %s[q] could not be "
                                 "loaded: %s",
                                 path, why ? why : ""));
        return script.status;
    }
    void* symbol = dlsym(library.handle, USER_FUNCTION_NAME);
    if (!symbol) {
        TERVOErrorMessage(RUNDLL_TITLE,
                          FmtStr("%s<Script command: rundll\nThe user library %s[q] has no function %s", path,
                                 USER_FUNCTION_NAME));
        return script.status;
    }
    const auto function = reinterpret_cast<UserFunction>(symbol);

    std::array<double*, NUMBER_OF_SCRIPT_SLOTS> vectors{};
    std::array<int, NUMBER_OF_SCRIPT_SLOTS> lengths{};
    for (size_t i = 0; i < vectors.size(); ++i) {
        vectors[i] = script.svector[i].data();
        lengths[i] = static_cast<int>(script.svector[i].size());
    }
    std::array<char, SCRIPT_NAME_LIMIT + 1> filename{};
    script.filename.copy(filename.data(), SCRIPT_NAME_LIMIT);

    const int result = function(script.mode, &script.svalue[0], &script.svalue[1], vectors.data(),
                                lengths.data(), &script.looperror, filename.data());

    filename[SCRIPT_NAME_LIMIT] = '\0';
    script.filename = filename.data();
    // The arrays did not grow: only a shorter length can be taken over.
    for (size_t i = 0; i < lengths.size(); ++i)
        if (lengths[i] >= 0 && lengths[i] < static_cast<int>(script.svector[i].size()))
            ResizeScriptVector(script, static_cast<int>(i), lengths[i]);
    script.status = result;
    return result;
}

int ProcessRunSystemCommand(const std::string& argument, const std::string& value) {
    const std::string command = Trim(argument + " " + value);
    if (command.empty()) return -1;
    std::fflush(nullptr);
    return std::system(command.c_str());
}

void ProcessRunScriptCommand(const std::string& argument, const std::string& value, int* keepRunning) {
    std::string name = Trim(argument + " " + value);
    RunScriptFile(name, keepRunning);
}

int ProcessRunCommand(const std::string& argument, const std::string& value, ScriptVariables& script,
                      int* keepRunning) {
    if (Is(argument, "script")) {
        std::string name = value;
        RunScriptFile(name, keepRunning);
        return 1;
    }
    if (Is(argument, "system")) {
        ProcessRunSystemCommand("", value);
    } else if (Is(argument, "dll")) {
        ProcessRunDLLCommand(script);
    }
    return 0;
}

} // namespace tervo
