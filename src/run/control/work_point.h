// The working point: the conditions under which the cell stands (temperature, voltage, light,
// external resistances), and the record of the four sweeps that a simulation runs.
#pragma once

#include <string>

namespace tervo {

// One operating condition of the cell.  `wp` is the working point of the next calculation,
// `secondwp` the condition under which metastable defects are set before the measuring pass, and
// `wp_vorig` the working point of the last calculation.  Fields with a space in their usual name
// carry it in camel case: `idealLightCurrent` ("ideal light current"), `RsPresent`, `RshPresent`,
// `conventionsShown`, `voltageReference`, `currentReference`.
struct WorkPoint {
    double temperature = 300; // K
    double voltage = 0;       // V, internal convention (the user's value times the voltage sign)
    int numberofpoints = 0;   // points of the walk from 0 V to the voltage; set from the action settings
    double frequency = 1e6;   // Hz
    double ND = 0;            // neutral density of the light; transmission 10^-ND
    int dark = 1;             // 1 dark, 0 illuminated
    int side = 1;             // 0 light from the left, 1 from the right
    int cutoff = 0;           // 1: the spectrum is cut off at the two wavelengths
    double lambda_short = 0;  // nm
    double lambda_long = 2000;
    std::string definitionFile = "new problem"; // path, at most 259 characters
    std::string spectrumFile;                   // path of the spectrum
    std::string spectrumName;                   // its name without folder
    double power_spectrum = 0;                  // W/m2 of the whole spectrum
    double power_cutoff = 0;                    // W/m2 within the cut-off
    double power_incident = 0;                  // W/m2 after the neutral density
    int generationFromFile = 0;                 // 1: G(x) is read from generationFile
    std::string generationFile;
    std::string generationName;
    double attenuation = 100;     // %, transmission applied to a G(x) file
    double idealLightCurrent = 0; // mA/cm2, of the G(x) file
    int RsPresent = 0;            // a series resistance is in the circuit
    double Rs = 0;                // ohm m2 (user's ohm cm2 times 1e-4)
    int RshPresent = 0;           // a shunt is in the circuit
    double Gsh = 0;               // S/m2 (user's S/cm2 times 1e4)
    int conventionsShown = 0;     // 1 if the cell offers the voltage and current conventions
    int voltageReference = -1;    // 1 voltage referred to the left contact, -1 to the right contact
    int currentReference = 1;     // 1 current positive when entering, -1 when leaving

    bool operator==(const WorkPoint&) const = default;
};

// One sweep of the action record.
struct SweepAction {
    int calculate = 0; // switch
    double start = 0;
    double stop = 0;
    int points = 0; // at most MAX_NUM_CALCULATION_STEPS
    int done = 0;   // points achieved

    bool operator==(const SweepAction&) const = default;
};

// The action record: QE (nm), I-V (V, internal convention), C-V (V, internal), C-f (Hz).
struct Actie {
    SweepAction QE;
    SweepAction IV;
    SweepAction CV;
    SweepAction Cf;

    bool operator==(const Actie&) const = default;
};

extern WorkPoint wp;
extern WorkPoint secondwp;
extern WorkPoint wp_vorig;
extern Actie actie;

// The defaults: 300 K, 0 V, 1 MHz, dark, light from the right, no cut-off (0 .. 2000 nm), the
// standard spectrum "AM1_5G 1 sun.spe" of the spectrum folder, "*.gen" of the generation folder,
// no external resistances, the conventions of a cell measured at its left contact as a consumer.
// A definition, spectrum or generation file that `w` names and that can be found is kept; one
// that can't be found is replaced by its default.  `numberofpoints` is left as it is: it belongs
// to the action settings.
void InitialiseWorkPoint(WorkPoint& w);

// The standard spectrum into `w`: name "AM1_5G 1 sun.spe", path in the spectrum folder.
void SetStandardSpectrum(WorkPoint& w);

} // namespace tervo

namespace tervo {

// Makes a spectrum file (filetype 1) or a generation file (filetype 4) that of `wp`; a bare name is
// looked for in its folder.  A generation file switches the working point to generation from that
// file and gives its ideal light current.  0, or -1 when the file cannot be found or read (reported).
int SetGenerationPath(int filetype, const std::string& path);

} // namespace tervo
