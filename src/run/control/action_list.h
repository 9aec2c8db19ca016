// The action settings: the two working points as the user sets them, the external circuit, and the
// four sweeps; their files (the action list ".act" and the second-working-point file ".wp2"); the
// rules that keep a sweep's start, stop, step and number of points consistent; and the check that
// every file the problem names can be found.
//
// There is no screen: `actionPanel` is the plain record of everything a user would set, in the
// user's units and convention.  The file readers fill it, `ReadWorkPoint` and `ReadActie` turn it
// into the records a calculation reads, `WriteWorkPoint` and `WriteActie` go the other way.  File
// names are not part of it: they live in `wp` and `secondwp`.
#pragma once

#include <string>

#include "cell/cell_records.h"
#include "platform/text_file.h"
#include "run/control/work_point.h"

namespace tervo {

// The settings of one working point, in user units and the user's voltage convention.
struct WorkPointSettings {
    double temperature = 300; // K
    double voltage = 0;       // V, user's convention
    double frequency = 1e6;   // Hz
    int numberofpoints = 5;   // points of the walk from 0 V to the voltage
    int dark = 1;
    int generationFromFile = 0;
    int cutoff = 0;
    double lambda_short = 0;   // nm
    double lambda_long = 2000; // nm
    double ND = 0;             // neutral density
    double transmission = 100; // %, the same intensity as ND in the other view
    double attenuation = 100;  // %, applied to a G(x) file

    bool operator==(const WorkPointSettings&) const = default;
};

// One sweep as set: its switch, its range, its number of points and its step.  For the C-f sweep
// `increment` is the number of points per decade.
struct SweepSettings {
    int calculate = 0;
    double start = 0;
    double stop = 0;
    int points = 2;
    double increment = 0;

    bool operator==(const SweepSettings&) const = default;
};

struct ActionPanelSettings {
    WorkPointSettings first;  // for `wp`
    WorkPointSettings second; // for `secondwp`
    // Shared by both working points.
    int side = 1;       // 0 light from the left, 1 from the right
    int RsPresent = 0;  // series resistance in the circuit
    double Rs = 0;      // ohm cm2
    int RshPresent = 0; // shunt in the circuit
    double Rsh = 1e30;  // ohm cm2, kept the inverse of Gsh
    double Gsh = 0;     // S/cm2
    int pause = 0;
    // The sweeps.
    SweepSettings IV{0, 0.0, 1.0, 41, 0.025};    // V
    int stopAfterVoc = 0;                        // "stop after Voc"
    SweepSettings CV{0, -1.0, 1.0, 41, 0.05};    // V
    int MIS_CV_calculate = 0;                    // "MIS CV_calculate"
    SweepSettings Cf{0, 100.0, 1e6, 21, 5.0};    // Hz; increment: points per decade
    SweepSettings QE{0, 300.0, 900.0, 61, 10.0}; // nm

    bool operator==(const ActionPanelSettings&) const = default;
};

extern ActionPanelSettings actionPanel;

inline constexpr int ACTION_LINE_LIMIT = 119; // characters of a line that the readers take

// The defaults of the action settings.
void InitialiseActionPanel(ActionPanelSettings& panel);

// ---------------------------------------------------------------------------------------------
// Working point and action record

// A fresh record of working point `primary` (1 `wp`, 0 `secondwp`) from the action settings.  File
// names, powers and conventions come from the stored record (`wp` or `secondwp`), the rest from the
// settings; side, resistances and pause are the shared ones.  The cut-off wavelengths are checked
// first.  The voltage is taken times the voltage sign of `zonnecel`; with `primary` 1 the
// conventions are first taken from `zonnecel` and both of its signs are set (+1 and +1 when the cell
// shows no conventions).  `pausestatus` takes the pause setting.
void ReadWorkPoint(WorkPoint& target, int primary);

// The reverse: the settings of working point `primary` from `record`, the shared settings and the
// pause, and the stored record (`wp` or `secondwp`) becomes `record`.
void WriteWorkPoint(const WorkPoint& record, int primary);

// The action record from the settings: switches, ranges and numbers of points, `done` 0.  Ranges
// stay in the user's convention, and the C-V switch is `CV_calculate`: the caller applies the
// voltage sign and the MIS choice.
void ReadActie(Actie& target);

// The reverse: switches, ranges and numbers of points into the settings, steps following.
void WriteActie(const Actie& record);

// ---------------------------------------------------------------------------------------------
// Consistency rules

// A negative wavelength becomes 1.0; short and long are swapped when short > long; when the two lie
// within 0.0001 nm, long becomes short + 1.
void CheckCutoffWavelengths(WorkPointSettings& settings);

// Keeps Rsh and Gsh of the shunt inverse.  From Rsh (`fromRsh` 1): an Rsh below 1e-6 ohm cm2 is
// raised to it and Gsh = 1/Rsh.  From Gsh: Rsh = 1/Gsh, or 1e30 for a Gsh below 1e-30.
void Rsh_Gsh(ActionPanelSettings& panel, int fromRsh);

// What was changed in a sweep before its consistency is restored.
enum class SweepEdit {
    Range,     // start or stop
    Increment, // the step (points per decade for the logarithmic form)
    Points,    // the number of points
};

// Linear sweep: after a change of range or step with a step above 0, n = round(|stop - start| /
// step) + 1.  Then n = 2 for a range of zero width, n at least 2 and at most 2001 (with a warning),
// and the step follows from range and n.
void ChangeNumberOfPointsLin(SweepSettings& sweep, SweepEdit edit);

// Logarithmic sweep (C-f) with `increment` points per decade: after a change of range or points
// per decade, n = round(|p decades|) + 1; n is held within 2 .. 2001 (with a warning) and the
// points per decade follow from n.  A range of zero width has 2 points.  Frequencies must be above
// 0; otherwise n is only held within its limits and the points per decade stay.
void ChangeNumberOfPointsLog(SweepSettings& sweep, SweepEdit edit);

// The two views of the light intensity: ND = -log10(T/100), and -30 for T <= 1e-30 %.
double NeutralDensityOfTransmission(double transmissionPercent);
double TransmissionOfNeutralDensity(double ND); // % = 100 * 10^-ND

// Which view of the intensity was set.
enum class IntensityView { NeutralDensity, Transmission };

// After a change of ND or transmission of working point `primary`: the other view follows, and
// the stored record's ND and power_incident = power_cutoff * 10^-ND.
void UpdateIllumination(int primary, IntensityView changed);

// The side of illumination (0 from the left, 1 from the right) of both working points and of both
// generation records (-1, +1); the short circuit must be calculated anew.  Another value is
// reported and changes nothing.
void SideIllumination(int side);

// ---------------------------------------------------------------------------------------------
// Files

// The comment block at the head of a saved settings file: version, what kind of file it is and
// when it was saved, and the definition file of the problem with its date.  Each line is written
// behind "> ".  0, or -1 on a write error.
std::string CommentLinesText(const std::string& kind);
int WriteCommentLinesInFile(TextFile& file, const std::string& kind);

// Writes the action list: the comment block if `withComment` is 1, then one setting a line.
// 0, or -1 on a write error.
int SaveActionPanelInFile(TextFile& file, int withComment);

// Reads an action list into the settings, `wp` and `secondwp`.  A bare name is looked for in the
// def folder; a file that can't be found or opened is passed over in silence (-1).  Afterwards the
// named files are checked (`AllFilesFound`) and the generation modes take the two working points'
// choices.  0 when read.
int SetActionPanelFromFile(const std::string& path);

// The second working point alone, file ".wp2".  The same rules as the action list.
int SaveWP2InFile(TextFile& file, int withComment);
int SetWP2FromFile(const std::string& path);

// The commands with a file name instead of a dialog.  Load: as the readers (0 or -1).  Save: the
// name is completed in the def folder; a file that can't be opened is reported; 0 or -1.
int LoadActionList(const std::string& path);
int SaveActionList(const std::string& path);
int LoadWP2Settings(const std::string& path);
int SaveWP2Settings(const std::string& path);

// ---------------------------------------------------------------------------------------------
// Check of the named files

// Checks the spectrum or generation files of both working points, the filter files of the
// contacts, the grading, absorption, defect-density and optical-capture files of every layer of
// `current_cell`.  A name is also looked for in the default folder of its kind and then rewritten
// to the full path.  Mode 2 replaces each missing file by the internal model or standard that
// stands in for it, reports that under "Error whilst checking files for existence", and counts it
// as found; the same change is made in `zonnecel` where it names the same file.  Mode 3 only
// counts.  Mode 1, which would show the list to a user, is taken as mode 2: there is no screen.
// Result 1 if nothing is missing, else 0; `AllFilesFound` takes it.  Any other mode gives 0 and
// checks nothing.
int CanAllFilesBeFound(int mode);

} // namespace tervo
