#include "run/control/action_list.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "cell/definition_file.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "setup/generation.h"

namespace tervo {

ActionPanelSettings actionPanel;

namespace {

constexpr const char* ACTION_KIND = "Action List file";
constexpr const char* WP2_KIND = "Second work point settings file";
constexpr const char* SECOND_PREFIX = "Secondworkpoint ";
constexpr const char* CHECK_TITLE = "Error whilst checking files for existence";

WorkPointSettings& SettingsOf(int primary) {
    return primary ? actionPanel.first : actionPanel.second;
}

WorkPoint& StoredOf(int primary) {
    return primary ? wp : secondwp;
}

// The file being read and its present line, for the warnings of the values behind the keys.
struct ReadingPlace {
    std::string path; // empty outside the reading of a file
    int line = 0;
};
ReadingPlace readingPlace;

constexpr const char* ACTION_WARNING_TITLE = "Warning whilst reading a settings file";

// A warning about a value of the file being read, naming the file and the line; outside the
// reading of a file (a panel, a script line) a plain message.
void WarnAboutValue(const std::string& text) {
    if (readingPlace.path.empty()) {
        TERVOErrorMessage("Warning !", text);
        return;
    }
    TERVOReadingWarning(ACTION_WARNING_TITLE,
                        FmtStr("%s[q]<\"%s\", line %i: %s", readingPlace.path, readingPlace.line, text));
}

// The number of points of a sweep, held within 2 .. MAX_NUM_CALCULATION_STEPS.  Works on a double so
// that a step far below the range cannot overflow the integer.
int LimitPoints(double n) {
    if (!(n >= 2)) return 2; // also a NaN
    if (n > MAX_NUM_CALCULATION_STEPS) {
        WarnAboutValue(
            FmtStr("%s[w255q]<Number of calculation points is limited to %i!", MAX_NUM_CALCULATION_STEPS));
        return MAX_NUM_CALCULATION_STEPS;
    }
    return static_cast<int>(n);
}

// ---------------------------------------------------------------------------------------------
// Values behind a key: the first number of the line.  A line without one, or with one outside the
// range of its field, is warned about and leaves the field as it was.

double NumberOf(const std::string& line, double current) {
    double v = 0;
    if (Scan(line, "%s>%s[dt#]%f", &v) < 2 || !std::isfinite(v)) {
        WarnAboutValue(
            FmtStr("%s[q]<no number could be read in \"%s\"; the value is left as it was.", TrimRight(line)));
        return current;
    }
    return v;
}

// A temperature in kelvin: above 0.
double TemperatureOf(const std::string& line, double current) {
    const double v = NumberOf(line, current);
    if (v > 0) return v;
    WarnAboutValue(FmtStr("%s[q]<the temperature in \"%s\" must be above 0 K; the value is left as it was.",
                          TrimRight(line)));
    return current;
}

int IntegerOf(const std::string& line, int current) {
    const double v = NumberOf(line, current);
    if (v >= -1e9 && v <= 1e9) return static_cast<int>(std::lround(v));
    WarnAboutValue(FmtStr("%s[q]<the value in \"%s\" is no whole number of a sensible size; the value is "
                          "left as it was.",
                          TrimRight(line)));
    return current;
}

std::string FileNameOf(const std::string& line) {
    std::string name;
    Scan(line, "%s>%s[xdt58]%s[t0]", &name);
    return TrimRight(name);
}

// One key of a settings file and what a line that starts with it does.
struct KeyAction {
    std::string key;
    std::function<void(const std::string&)> apply;
};

void AddWorkPointKeys(std::vector<KeyAction>& keys, int primary) {
    const std::string prefix = primary ? "" : SECOND_PREFIX;
    auto add = [&](const char* key, std::function<void(const std::string&)> apply) {
        keys.push_back({prefix + key, std::move(apply)});
    };
    auto s = [primary]() -> WorkPointSettings& { return SettingsOf(primary); };
    auto w = [primary]() -> WorkPoint& { return StoredOf(primary); };

    add("Temperature :", [=](const std::string& l) { s().temperature = TemperatureOf(l, s().temperature); });
    add("Voltage :", [=](const std::string& l) { s().voltage = NumberOf(l, s().voltage); });
    if (primary) {
        add("Frequency :", [=](const std::string& l) {
            s().frequency = NumberOf(l, s().frequency);
            ChangeNumberOfPointsLog(actionPanel.Cf, SweepEdit::Range);
        });
        add("Number of points :", [=](const std::string& l) {
            s().numberofpoints = LimitPoints(IntegerOf(l, s().numberofpoints));
        });
    } else {
        // Written with the second working point but not read: that setting does not travel through
        // the file.  A known line, so no warning.
        add("Number of points :", [](const std::string&) {});
    }
    add("dark :", [=](const std::string& l) { s().dark = IntegerOf(l, s().dark); });
    add("generation from file :", [=](const std::string& l) {
        s().generationFromFile = IntegerOf(l, s().generationFromFile);
        w().generationFromFile = s().generationFromFile;
    });
    add("spectrum file :", [=](const std::string& l) {
        CheckTERVOPaths(&w().spectrumFile, &w().spectrumName, FileNameOf(l), FILETYPE_SPECTRUM);
        kortberekend = 0;
    });
    add("spectrum cut off :", [=](const std::string& l) { s().cutoff = IntegerOf(l, s().cutoff); });
    add("short wavelength cut off :",
        [=](const std::string& l) { s().lambda_short = NumberOf(l, s().lambda_short); });
    add("long wavelength cut off :",
        [=](const std::string& l) { s().lambda_long = NumberOf(l, s().lambda_long); });
    add("neutral density :", [=](const std::string& l) {
        s().ND = NumberOf(l, s().ND);
        UpdateIllumination(primary, IntensityView::NeutralDensity);
    });
    add("transmission :", [=](const std::string& l) {
        s().transmission = NumberOf(l, s().transmission);
        UpdateIllumination(primary, IntensityView::Transmission);
    });
    add("generation file :", [=](const std::string& l) {
        if (s().generationFromFile)
            CheckTERVOPaths(&w().generationFile, &w().generationName, FileNameOf(l), FILETYPE_GENERATION);
    });
    add("attenuation :", [=](const std::string& l) {
        s().attenuation = NumberOf(l, s().attenuation);
        w().attenuation = s().attenuation;
    });
}

void AddLinearSweepKeys(std::vector<KeyAction>& keys, const std::string& prefix, const char* startKey,
                        const char* stopKey, SweepSettings& sweep) {
    SweepSettings* p = &sweep;
    keys.push_back({prefix + startKey, [p](const std::string& l) {
                        p->start = NumberOf(l, p->start);
                        ChangeNumberOfPointsLin(*p, SweepEdit::Range);
                    }});
    keys.push_back({prefix + stopKey, [p](const std::string& l) {
                        p->stop = NumberOf(l, p->stop);
                        ChangeNumberOfPointsLin(*p, SweepEdit::Range);
                    }});
    keys.push_back({prefix + "points :", [p](const std::string& l) {
                        p->points = LimitPoints(IntegerOf(l, p->points));
                        ChangeNumberOfPointsLin(*p, SweepEdit::Points);
                    }});
    keys.push_back({prefix + "increment :", [p](const std::string& l) {
                        p->increment = NumberOf(l, p->increment);
                        ChangeNumberOfPointsLin(*p, SweepEdit::Increment);
                    }});
    keys.push_back(
        {prefix + "calculate :", [p](const std::string& l) { p->calculate = IntegerOf(l, p->calculate); }});
}

std::vector<KeyAction> ActionFileKeys() {
    std::vector<KeyAction> keys;
    AddWorkPointKeys(keys, 1);
    AddWorkPointKeys(keys, 0);
    ActionPanelSettings& a = actionPanel;
    // The resistances travel with the definition; older action lists carried them too.
    keys.push_back({"Rs present :", [&a](const std::string& l) { a.RsPresent = IntegerOf(l, a.RsPresent); }});
    keys.push_back({"Rs :", [&a](const std::string& l) { a.Rs = NumberOf(l, a.Rs); }});
    keys.push_back(
        {"Rsh present :", [&a](const std::string& l) { a.RshPresent = IntegerOf(l, a.RshPresent); }});
    keys.push_back({"Rsh :", [&a](const std::string& l) {
                        a.Rsh = NumberOf(l, a.Rsh);
                        Rsh_Gsh(a, 1);
                    }});
    keys.push_back({"Gsh :", [&a](const std::string& l) {
                        a.Gsh = NumberOf(l, a.Gsh);
                        Rsh_Gsh(a, 0);
                    }});
    keys.push_back({"pause :", [&a](const std::string& l) { a.pause = IntegerOf(l, a.pause); }});
    AddLinearSweepKeys(keys, "IV_", "startV :", "stopV :", a.IV);
    keys.push_back(
        {"stop after Voc :", [&a](const std::string& l) { a.stopAfterVoc = IntegerOf(l, a.stopAfterVoc); }});
    AddLinearSweepKeys(keys, "CV_", "startV :", "stopV :", a.CV);
    keys.push_back({"MIS CV_calculate :",
                    [&a](const std::string& l) { a.MIS_CV_calculate = IntegerOf(l, a.MIS_CV_calculate); }});
    keys.push_back({"Cf_startf :", [&a](const std::string& l) {
                        a.Cf.start = NumberOf(l, a.Cf.start);
                        ChangeNumberOfPointsLog(a.Cf, SweepEdit::Range);
                    }});
    keys.push_back({"Cf_stopf :", [&a](const std::string& l) {
                        a.Cf.stop = NumberOf(l, a.Cf.stop);
                        ChangeNumberOfPointsLog(a.Cf, SweepEdit::Range);
                    }});
    keys.push_back({"Cf_total points :", [&a](const std::string& l) {
                        a.Cf.points = LimitPoints(IntegerOf(l, a.Cf.points));
                        ChangeNumberOfPointsLog(a.Cf, SweepEdit::Points);
                    }});
    keys.push_back({"Cf_points per decade :", [&a](const std::string& l) {
                        a.Cf.increment = NumberOf(l, a.Cf.increment);
                        ChangeNumberOfPointsLog(a.Cf, SweepEdit::Increment);
                    }});
    keys.push_back(
        {"Cf_calculate :", [&a](const std::string& l) { a.Cf.calculate = IntegerOf(l, a.Cf.calculate); }});
    AddLinearSweepKeys(keys, "QE_", "startlambda :", "stoplambda :", a.QE);
    return keys;
}

// Reads a settings file line by line: the first key that starts a line (in any case) takes it, a
// line that no key starts is passed over.  -1 when the file can't be found or opened.
int ReadKeyedFile(const std::string& path, int filetype, const std::vector<KeyAction>& keys) {
    std::string fullPath;
    CheckTERVOPaths(&fullPath, nullptr, path, filetype);
    long long size = 0;
    if (path.empty() || GetFileSize(fullPath, size) != 0) return -1;
    TextFile file = OpenFile(fullPath, FileMode::Read);
    if (!file.IsOpen()) return -1;
    const size_t warningsBefore = ReadingWarnings().size();
    readingPlace = {fullPath, 0};
    std::string line;
    while (ReadNonEmptyNonCommentLine(file, line, ACTION_LINE_LIMIT, 1, 0, 0, &readingPlace.line) >= 0) {
        bool known = false;
        for (const KeyAction& k : keys) {
            if (StartsWithNoCase(line, k.key)) {
                k.apply(line);
                known = true;
                break;
            }
        }
        if (!known)
            WarnAboutValue(
                FmtStr("%s[q]<unknown keyword in \"%s\"; the line is passed over.", TrimRight(line)));
    }
    readingPlace = {};
    const size_t warnings = ReadingWarnings().size() - warningsBefore;
    if (StrictReading && warnings > 0) {
        TERVOErrorMessage("Error whilst reading a settings file",
                          FmtStr("%s[q]<\"%s\" was refused: it needed %i warning(s), and --strict refuses "
                                 "every file that needs one.",
                                 fullPath, static_cast<int>(warnings)));
        return -1;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Writers

struct LineWriter {
    TextFile& file;
    int result = 0;
    void operator()(const std::string& text) {
        if (WriteLine(file, text) != 0) result = -1;
    }
};

std::string BareName(const std::string& path, int filetype) {
    std::string name;
    CheckTERVOPaths(nullptr, &name, path, filetype);
    return name;
}

void WriteWorkPointLines(LineWriter& out, int primary) {
    const std::string prefix = primary ? "" : SECOND_PREFIX;
    const WorkPointSettings& s = SettingsOf(primary);
    const WorkPoint& w = StoredOf(primary);
    auto line = [&](const std::string& text) { out(prefix + text); };
    line(FmtStr("%s<Temperature : %f[w8p2] K", s.temperature));
    line(FmtStr("%s<Voltage : %f[w10p4] V", s.voltage));
    if (primary) line(FmtStr("%s<Frequency : %f[w12p4e2] Hz", s.frequency));
    line(FmtStr("%s<Number of points : %i[w3]", s.numberofpoints));
    line(FmtStr("%s<dark : %i[w2]", s.dark));
    line(FmtStr("%s<generation from file : %i[w2]", s.generationFromFile));
    line(FmtStr("%s<spectrum file :%s[q]", BareName(w.spectrumFile, FILETYPE_SPECTRUM)));
    line(FmtStr("%s<spectrum cut off : %i[w2]", s.cutoff));
    line(FmtStr("%s<short wavelength cut off : %f[w8p2] nm", s.lambda_short));
    line(FmtStr("%s<long wavelength cut off : %f[w8p2] nm", s.lambda_long));
    line(FmtStr("%s<neutral density : %f[w10p4]", s.ND));
    line(FmtStr("%s<transmission : %f[w10p4] %%", s.transmission));
    line(FmtStr("%s<generation file :%s[q]", BareName(w.generationFile, FILETYPE_GENERATION)));
    line(FmtStr("%s<attenuation : %f[w10p4] %%", s.attenuation));
}

int SaveToPath(const std::string& path, int filetype, int (*writer)(TextFile&, int), const char* title) {
    std::string fullPath;
    CheckTERVOPaths(&fullPath, nullptr, path, filetype);
    return WriteWholeFile(fullPath, title, [&](TextFile& file) {
        if (writer(file, 1) == 0) return 0;
        if (file.lastError == 0)
            TERVOErrorMessage(title, FmtStr("%s<Error whilst writing the file %s[q].", fullPath));
        return -1;
    });
}

} // namespace

void InitialiseActionPanel(ActionPanelSettings& panel) {
    panel = ActionPanelSettings{};
}

// ---------------------------------------------------------------------------------------------
// Working point and action record

void ReadWorkPoint(WorkPoint& target, int primary) {
    WorkPointSettings& s = SettingsOf(primary);
    const WorkPoint& stored = StoredOf(primary);
    if (&target != &stored) target = stored;
    CheckCutoffWavelengths(s);

    if (primary) {
        // The conventions are those of the cell; without them voltages and currents are reported
        // as the calculation has them: applied to the left contact, positive when entering.
        target.voltageReference = zonnecel.voltageAppliedTo;
        target.currentReference = zonnecel.referenceSystem == 1 ? 1 : -1;
        if (target.conventionsShown) {
            SetSignsFromConventions(zonnecel);
        } else {
            zonnecel.signV = 1;
            zonnecel.signJ = 1;
        }
    }

    target.temperature = s.temperature;
    target.voltage = s.voltage * zonnecel.signV;
    target.numberofpoints = s.numberofpoints;
    target.frequency = s.frequency;
    target.ND = s.ND;
    target.dark = s.dark;
    target.cutoff = s.cutoff;
    target.lambda_short = s.lambda_short;
    target.lambda_long = s.lambda_long;
    target.generationFromFile = s.generationFromFile;
    target.attenuation = s.attenuation;
    target.power_incident = target.power_cutoff * std::pow(10.0, -target.ND);

    const ActionPanelSettings& a = actionPanel;
    target.side = a.side;
    target.RsPresent = a.RsPresent;
    target.Rs = a.Rs * 1e-4;
    target.RshPresent = a.RshPresent;
    target.Gsh = a.Gsh * 1e4;
    pausestatus = a.pause;
}

void WriteWorkPoint(const WorkPoint& record, int primary) {
    WorkPointSettings& s = SettingsOf(primary);
    s.temperature = record.temperature;
    s.voltage = record.voltage * zonnecel.signV; // the sign is its own inverse
    s.numberofpoints = record.numberofpoints;
    s.frequency = record.frequency;
    s.ND = record.ND;
    s.transmission = TransmissionOfNeutralDensity(record.ND);
    s.dark = record.dark;
    s.cutoff = record.cutoff;
    s.lambda_short = record.lambda_short;
    s.lambda_long = record.lambda_long;
    s.generationFromFile = record.generationFromFile;
    s.attenuation = record.attenuation;

    ActionPanelSettings& a = actionPanel;
    a.side = record.side;
    a.RsPresent = record.RsPresent;
    a.Rs = record.Rs * 1e4;
    a.RshPresent = record.RshPresent;
    a.Gsh = record.Gsh * 1e-4;
    Rsh_Gsh(a, 0);
    a.pause = pausestatus;

    WorkPoint& stored = StoredOf(primary);
    if (&record != &stored) stored = record;
}

void ReadActie(Actie& target) {
    auto take = [](const SweepSettings& s) { return SweepAction{s.calculate, s.start, s.stop, s.points, 0}; };
    target.QE = take(actionPanel.QE);
    target.IV = take(actionPanel.IV);
    target.CV = take(actionPanel.CV);
    target.Cf = take(actionPanel.Cf);
}

void WriteActie(const Actie& record) {
    auto put = [](SweepSettings& s, const SweepAction& a) {
        s.calculate = a.calculate;
        s.start = a.start;
        s.stop = a.stop;
        s.points = a.points;
    };
    put(actionPanel.QE, record.QE);
    put(actionPanel.IV, record.IV);
    put(actionPanel.CV, record.CV);
    put(actionPanel.Cf, record.Cf);
    ChangeNumberOfPointsLin(actionPanel.QE, SweepEdit::Points);
    ChangeNumberOfPointsLin(actionPanel.IV, SweepEdit::Points);
    ChangeNumberOfPointsLin(actionPanel.CV, SweepEdit::Points);
    ChangeNumberOfPointsLog(actionPanel.Cf, SweepEdit::Points);
}

// ---------------------------------------------------------------------------------------------
// Consistency rules

void CheckCutoffWavelengths(WorkPointSettings& s) {
    if (s.lambda_short < 0) s.lambda_short = 1.0;
    if (s.lambda_long < 0) s.lambda_long = 1.0;
    if (s.lambda_short > s.lambda_long) std::swap(s.lambda_short, s.lambda_long);
    if (std::fabs(s.lambda_long - s.lambda_short) <= 0.0001) s.lambda_long = s.lambda_short + 1.0;
}

void Rsh_Gsh(ActionPanelSettings& a, int fromRsh) {
    if (fromRsh) {
        if (a.Rsh >= 1e-6) {
            a.Gsh = 1.0 / a.Rsh;
        } else {
            a.Rsh = 1e-6;
            a.Gsh = 1e6;
        }
    } else {
        a.Rsh = a.Gsh >= 1e-30 ? 1.0 / a.Gsh : 1e30;
    }
}

void ChangeNumberOfPointsLin(SweepSettings& w, SweepEdit edit) {
    const double range = std::fabs(w.stop - w.start);
    double n = w.points;
    if (edit != SweepEdit::Points && w.increment > 0) n = std::round(range / w.increment) + 1;
    if (range < 1e-15 * (std::fabs(w.stop) + std::fabs(w.start))) n = 2;
    w.points = LimitPoints(n);
    w.increment = range / (w.points - 1);
}

void ChangeNumberOfPointsLog(SweepSettings& w, SweepEdit edit) {
    const double range = std::fabs(w.stop - w.start);
    const double tolerance = 1e-15 * (std::fabs(w.stop) + std::fabs(w.start));
    if (!(w.start > 0 && w.stop > 0)) {
        TERVOErrorMessage("Warning !", FmtStr("%s<The frequencies of a C-f sweep must be above 0 Hz "
                                              "(start %f[e2p3] Hz, stop %f[e2p3] Hz).",
                                              w.start, w.stop));
        w.points = LimitPoints(w.points);
        return;
    }
    const double decades = std::log10(w.stop) - std::log10(w.start);
    double n = w.points;
    if (edit != SweepEdit::Points && range > tolerance) n = std::round(std::fabs(w.increment * decades)) + 1;
    if (range >= tolerance && decades != 0) {
        w.points = LimitPoints(n);
        w.increment = std::fabs((w.points - 1) / decades);
    } else {
        w.points = 2;
    }
}

double NeutralDensityOfTransmission(double T) {
    // A transmission of (next to) nothing is a neutral density of 30: the light is darkened by 1e30,
    // never brightened.
    return T <= 1e-30 ? 30.0 : -std::log10(T / 100.0);
}

double TransmissionOfNeutralDensity(double ND) {
    return 100.0 * std::pow(10.0, -ND);
}

void UpdateIllumination(int primary, IntensityView changed) {
    WorkPointSettings& s = SettingsOf(primary);
    if (changed == IntensityView::NeutralDensity)
        s.transmission = TransmissionOfNeutralDensity(s.ND);
    else
        s.ND = NeutralDensityOfTransmission(s.transmission);
    WorkPoint& w = StoredOf(primary);
    w.ND = s.ND;
    w.power_incident = w.power_cutoff * std::pow(10.0, -s.ND);
}

void SideIllumination(int side) {
    if (side != 0 && side != 1) {
        TERVOErrorMessage(
            "Error whilst setting the illumination side",
            FmtStr("%s<Illumination side %i unknown: 0 is light from the left, 1 from the right.", side));
        return;
    }
    actionPanel.side = side;
    wp.side = side;
    secondwp.side = side;
    generatieparameters.side = side == 1 ? 1 : -1;
    secondgeneratieparameters.side = generatieparameters.side;
    kortberekend = 0;
}

// ---------------------------------------------------------------------------------------------
// Files

std::string CommentLinesText(const std::string& kind) {
    std::string text;
    Fmt(text, "%s<%s", VERSION);
    const DateTime now = GetSystemDateTime();
    Fmt(text, "%s[a]<\nTERVO %s[q], saved on \t%i[w2p0]-%i[w2p0]-%i[w4] at %i[w2p0]:%i[w2p0]:%i[w2p0]", kind,
        now.day, now.month, now.year, now.hours, now.minutes, now.seconds);
    const std::string definition = Trim(wp.definitionFile);
    if (definition.empty() || ToLower(definition) == "new problem") {
        text += "\nno problem definition file loaded ";
    } else {
        Fmt(text, "%s[a]<\nproblem definition file loaded :\n%s[q]", wp.definitionFile);
        int day = 0, month = 0, year = 0, hours = 0, minutes = 0, seconds = 0;
        GetTERVOFileDate(wp.definitionFile, day, month, year);
        GetTERVOFileTime(wp.definitionFile, hours, minutes, seconds);
        Fmt(text, "%s[a]<\nlast saved: \t%i[w2p0]-%i[w2p0]-%i[w4] at %i[w2p0]:%i[w2p0]:%i[w2p0]", day, month,
            year, hours, minutes, seconds);
    }
    text += "\n";
    return text;
}

int WriteCommentLinesInFile(TextFile& file, const std::string& kind) {
    if (!file.IsOpen()) return -1;
    const std::string text = CommentLinesText(kind);
    int result = 0;
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) end = text.size();
        std::string line;
        Fmt(line, "%s[a]<%> %s[q]\n", text.substr(begin, end - begin));
        if (WriteText(file, line) != 0) result = -1;
        begin = end + 1;
    }
    return result;
}

int SaveActionPanelInFile(TextFile& file, int withComment) {
    if (!file.IsOpen()) return -1;
    LineWriter out{file};
    if (withComment && WriteCommentLinesInFile(file, ACTION_KIND) != 0) out.result = -1;
    WriteWorkPointLines(out, 1);
    WriteWorkPointLines(out, 0);
    const ActionPanelSettings& a = actionPanel;
    out(FmtStr("%s<pause : %i[w2]", a.pause));
    out(FmtStr("%s<IV_startV : %f[w10p4] V", a.IV.start));
    out(FmtStr("%s<IV_stopV : %f[w10p4] V", a.IV.stop));
    out(FmtStr("%s<IV_points : %i[w3]", a.IV.points));
    out(FmtStr("%s<IV_increment : %f[w12p6] V", a.IV.increment));
    out(FmtStr("%s<IV_calculate : %i[w2]", a.IV.calculate));
    out(FmtStr("%s<stop after Voc : %i[w2]", a.stopAfterVoc));
    out(FmtStr("%s<CV_startV : %f[w10p4] V", a.CV.start));
    out(FmtStr("%s<CV_stopV : %f[w10p4] V", a.CV.stop));
    out(FmtStr("%s<CV_points : %i[w3]", a.CV.points));
    out(FmtStr("%s<CV_increment : %f[w12p6] V", a.CV.increment));
    out(FmtStr("%s<CV_calculate : %i[w2]", a.CV.calculate));
    out(FmtStr("%s<MIS CV_calculate : %i[w2]", a.MIS_CV_calculate));
    out(FmtStr("%s<Cf_startf : %f[w12e2p3] Hz", a.Cf.start));
    out(FmtStr("%s<Cf_stopf : %f[w12e2p3] Hz", a.Cf.stop));
    out(FmtStr("%s<Cf_total points : %i[w3]", a.Cf.points));
    out(FmtStr("%s<Cf_points per decade : %f[w3p0]", a.Cf.increment));
    out(FmtStr("%s<Cf_calculate : %i[w2]", a.Cf.calculate));
    out(FmtStr("%s<QE_startlambda : %f[w8p2] nm", a.QE.start));
    out(FmtStr("%s<QE_stoplambda : %f[w8p2] nm", a.QE.stop));
    out(FmtStr("%s<QE_points : %i[w3]", a.QE.points));
    out(FmtStr("%s<QE_increment : %f[w8p2] nm", a.QE.increment));
    out(FmtStr("%s<QE_calculate : %i[w2]", a.QE.calculate));
    return out.result;
}

int SetActionPanelFromFile(const std::string& path) {
    if (ReadKeyedFile(path, FILETYPE_ACTION, ActionFileKeys()) != 0) return -1;
    AllFilesFound = CanAllFilesBeFound(1);
    Generation_Mode = wp.generationFromFile;
    secondGeneration_Mode = secondwp.generationFromFile;
    return 0;
}

int SaveWP2InFile(TextFile& file, int withComment) {
    if (!file.IsOpen()) return -1;
    LineWriter out{file};
    if (withComment && WriteCommentLinesInFile(file, WP2_KIND) != 0) out.result = -1;
    WriteWorkPointLines(out, 0);
    return out.result;
}

int SetWP2FromFile(const std::string& path) {
    std::vector<KeyAction> keys;
    AddWorkPointKeys(keys, 0);
    if (ReadKeyedFile(path, FILETYPE_WP2, keys) != 0) return -1;
    kortberekend = 0;
    AllFilesFound = CanAllFilesBeFound(1);
    secondGeneration_Mode = secondwp.generationFromFile;
    return 0;
}

int LoadActionList(const std::string& path) {
    return SetActionPanelFromFile(path);
}

int SaveActionList(const std::string& path) {
    return SaveToPath(path, FILETYPE_ACTION, SaveActionPanelInFile, "Error whilst saving the action list");
}

int LoadWP2Settings(const std::string& path) {
    return SetWP2FromFile(path);
}

int SaveWP2Settings(const std::string& path) {
    return SaveToPath(path, FILETYPE_WP2, SaveWP2InFile,
                      "Error whilst saving the second work point settings");
}

// ---------------------------------------------------------------------------------------------
// Check of the named files

namespace {

// The properties of a layer that may be graded from a file, in the order they are checked.
constexpr const char* GRADED_LABELS[] = {
    "Composition grading file", "Eg grading file",        "Chi grading file",      "Epsilon grading file",
    "NC grading file",          "NV grading file",        "mu_n grading file",     "mu_p grading file",
    "m_e grading file",         "m_h grading file",       "v_thn grading file",    "v_thp grading file",
    "R_b_to_b grading file",    "Auger C_n grading file", "Auger C_p grading file"};

Profile& GradedProfile(LayerParameters& l, int index) {
    switch (index) {
    case 0:
        return l.composition;
    case 1:
        return l.material.Eg;
    case 2:
        return l.material.chi;
    case 3:
        return l.material.eps;
    case 4:
        return l.material.Nc;
    case 5:
        return l.material.Nv;
    case 6:
        return l.material.mu_n;
    case 7:
        return l.material.mu_p;
    case 8:
        return l.material.relElectronMass;
    case 9:
        return l.material.relHoleMass;
    case 10:
        return l.material.v_th_n;
    case 11:
        return l.material.v_th_p;
    case 12:
        return l.material.K_rad;
    case 13:
        return l.material.c_n_auger;
    default:
        return l.material.c_p_auger;
    }
}

// One file that the cell names: when it is in use, where its name is, and what stands in for it
// when it is missing.  The check works on `current_cell`; `zonnecel` gets the same change where it
// names the same file in the same place.
struct CellFile {
    std::function<bool(CellDefinition&)> inUse;
    std::function<std::string(CellDefinition&)> name;
    std::function<void(CellDefinition&, const std::string&)> setName;
    std::function<void(CellDefinition&)> replace;
    int filetype = 0;
    std::function<std::string(const std::string&)> message; // from the name as looked for
};

struct FileCheck {
    int mode = 2;
    int missing = 0;

    // A missing file: in mode 2 it is reported and replaced, in mode 3 counted.
    void Missing(const std::string& text, const std::function<void()>& replace) {
        if (mode == 2) {
            TERVOErrorMessage(CHECK_TITLE, text);
            replace();
        } else {
            ++missing;
        }
    }

    void Cell(const CellFile& f) {
        CellDefinition& cell = current_cell;
        if (!f.inUse(cell)) return;
        const std::string before = f.name(cell);
        const bool mirrored = f.inUse(zonnecel) && f.name(zonnecel) == before;
        std::string path = before;
        if (IsFileFound(path, f.filetype)) {
            f.setName(cell, path);
            if (mirrored) f.setName(zonnecel, path);
            return;
        }
        Missing(f.message(path), [&] {
            f.replace(cell);
            if (mirrored) f.replace(zonnecel);
        });
    }

    // The spectrum or the generation file of one working point.
    void Illumination(int primary) {
        WorkPoint& w = StoredOf(primary);
        const char* which = primary ? "" : " (initial wp)";
        if (w.generationFromFile) {
            if (IsFileFound(w.generationFile, FILETYPE_GENERATION)) return;
            if (mode != 2) {
                ++missing;
                return;
            }
            TERVOErrorMessage(CHECK_TITLE,
                              FmtStr("%s[q]<Generation file%s[q] %s[q] not found; illumination mode set to "
                                     "internal TERVO model",
                                     which, w.generationFile));
            w.generationFromFile = 0;
            SettingsOf(primary).generationFromFile = 0;
            (primary ? Generation_Mode : secondGeneration_Mode) = 0;
        }
        if (IsFileFound(w.spectrumFile, FILETYPE_SPECTRUM)) return;
        Missing(FmtStr("%s[q]<Spectrum file%s[q] %s[q] not found; standard TERVO AM1.5G 1 sun spectrum set",
                       which, w.spectrumFile),
                [&] { SetStandardSpectrum(w); });
    }

    void Filter(bool left) {
        auto contact = [left](CellDefinition& c) -> ContactParameters& {
            return left ? c.leftContact : c.rightContact;
        };
        const std::string side = left ? "left" : "right";
        Cell({[=](CellDefinition& c) {
                  return contact(c).opticalFilter == 1 && contact(c).wavelengthIndependent == 0;
              },
              [=](CellDefinition& c) { return contact(c).filterFile; },
              [=](CellDefinition& c, const std::string& n) { contact(c).filterFile = n; },
              [=](CellDefinition& c) { contact(c).wavelengthIndependent = 1; }, FILETYPE_FILTER,
              [=](const std::string& n) {
                  return FmtStr(
                      "%s[q]<Filter file (%s[q] contact) %s[q] not found; switched to Filter from value",
                      side, n);
              }});
    }

    void Layer(int j) {
        auto layer = [j](CellDefinition& c) -> LayerParameters& { return c.layer[static_cast<size_t>(j)]; };
        const std::string layerName = layer(current_cell).name;

        // Graded properties read from a file.
        for (int g = 0; g < static_cast<int>(std::size(GRADED_LABELS)); ++g) {
            auto profile = [=](CellDefinition& c) -> Profile& { return GradedProfile(layer(c), g); };
            const std::string label = GRADED_LABELS[g];
            Cell({[=](CellDefinition& c) { return profile(c).law == LAW_FROM_FILE; },
                  [=](CellDefinition& c) { return profile(c).gradingFile; },
                  [=](CellDefinition& c, const std::string& n) { profile(c).gradingFile = n; },
                  [=](CellDefinition& c) {
                      profile(c).law = LAW_LINEAR;
                      SetProfileScaleParameters(profile(c));
                  },
                  FILETYPE_GRADING, [=](const std::string&) { return label; }});
        }

        // Absorption of the pure materials read from files: A is in use unless the layer is pure B,
        // B unless it is pure A.
        for (const bool pureA : {true, false}) {
            auto fromFile = [=](CellDefinition& c) -> int& {
                return pureA ? layer(c).material.absorptionA : layer(c).material.absorptionB;
            };
            auto file = [=](CellDefinition& c) -> std::string& {
                return pureA ? layer(c).material.absorptionFileA : layer(c).material.absorptionFileB;
            };
            Cell({[=](CellDefinition& c) {
                      return layer(c).compositionType != (pureA ? 20 : 0) && fromFile(c) == 1;
                  },
                  [=](CellDefinition& c) { return file(c); },
                  [=](CellDefinition& c, const std::string& n) { file(c) = n; },
                  [=](CellDefinition& c) { fromFile(c) = 0; }, FILETYPE_ABSORPTION,
                  [=](const std::string& n) {
                      return FmtStr(
                          "%s[q]<Layer %s[q]: absorption file (pure %s[q]) %s[q] not found; absorption set "
                          "to internal TERVO model",
                          layerName, pureA ? "A" : "B", n);
                  }});
        }

        // The defects: density grading (held equal in all levels of a defect) and optical capture
        // read from files.
        const int defects = std::clamp(layer(current_cell).srhteller, 0, MAX_DEFECTS);
        for (int d = 0; d < defects; ++d) {
            auto levels = [=](CellDefinition& c) -> DefectLevels& {
                return layer(c).srh[static_cast<size_t>(d)];
            };
            Cell({[=](CellDefinition& c) { return levels(c)[0].Nt.law == LAW_FROM_FILE; },
                  [=](CellDefinition& c) { return levels(c)[0].Nt.gradingFile; },
                  [=](CellDefinition& c, const std::string& n) {
                      for (BulkRecombinationParameters& level : levels(c)) level.Nt.gradingFile = n;
                  },
                  [=](CellDefinition& c) {
                      for (BulkRecombinationParameters& level : levels(c)) {
                          level.Nt.law = LAW_LINEAR;
                          SetProfileScaleParameters(level.Nt);
                      }
                  },
                  FILETYPE_GRADING,
                  [=](const std::string& n) {
                      return FmtStr(
                          "%s[q]<Layer %s[q] defect %i: Defect density grading file %s[q] not found; Nt "
                          "grading set to Linear",
                          layerName, d, n);
                  }});
            if (IPV_Mode != 1) continue;
            const int nLevels = std::clamp(levels(current_cell)[0].numberOfLevels, 1, MAX_LEVELS);
            for (const bool electrons : {true, false}) {
                for (int lv = 0; lv < nLevels; ++lv) {
                    auto capture = [=](CellDefinition& c) -> OpticalCaptureProperties& {
                        BulkRecombinationParameters& p = levels(c)[static_cast<size_t>(lv)];
                        return electrons ? p.optCaptElectrons : p.optCaptHoles;
                    };
                    Cell({[=](CellDefinition& c) { return capture(c).fromFile == 1; },
                          [=](CellDefinition& c) { return capture(c).fileName; },
                          [=](CellDefinition& c, const std::string& n) { capture(c).fileName = n; },
                          [=](CellDefinition& c) {
                              capture(c).fromFile = 0;
                              capture(c).fromModel = 1;
                          },
                          FILETYPE_OPTCAPT,
                          [=](const std::string& n) {
                              return FmtStr(
                                  "%s[q]<Layer %s[q] defect %i: Optical capture cross section file for "
                                  "%s[q] %s[q] not found; IPV optcapt set to internal TERVO model",
                                  layerName, d, electrons ? "electrons" : "holes", n);
                          }});
                }
            }
        }
    }
};

} // namespace

int CanAllFilesBeFound(int mode) {
    if (mode == 1) mode = 2; // no screen to show the list on: replace and log
    if (mode != 2 && mode != 3) return 0;
    FileCheck check;
    check.mode = mode;
    check.Illumination(1);
    check.Illumination(0);
    check.Filter(true);
    const int layers = std::clamp(current_cell.numberOfLayers, 0, MAX_LAYERS);
    for (int j = 0; j < layers; ++j) check.Layer(j);
    check.Filter(false);
    AllFilesFound = check.missing == 0 ? 1 : 0;
    return AllFilesFound;
}

} // namespace tervo
