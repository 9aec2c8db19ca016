// The working point: the conditions under which the cell stands (temperature, voltage, light,
// external resistances), and the settings of the four sweeps.
#pragma once

#include <string>

namespace tervo {

struct WorkPoint {
    double temperature = 300;  // K
    double voltage = 0;        // V, internal convention (user value times the voltage sign)
    int numberofpoints = 0;    // points of the walk from 0 V to the voltage
    double frequency = 1e6;    // Hz
    double ND = 0;             // neutral density; transmission 10^-ND
    int dark = 1;              // 1 dark, 0 illuminated
    int side = 1;              // 0 light from the left, 1 from the right
    int cutoff = 0;            // 1 the spectrum is cut off at the two wavelengths
    double lambda_short = 0;   // nm
    double lambda_long = 2000; // nm
    std::string definitionFile = "new problem";
    std::string spectrumFile;
    std::string spectrumName;
    double power_spectrum = 0; // W/m2
    double power_cutoff = 0;
    double power_incident = 0;
    int generationFromFile = 0;
    std::string generationFile;
    std::string generationName;
    double attenuation = 100;     // %
    double idealLightCurrent = 0; // mA/cm2, of a G(x) file
    int RsPresent = 0;
    double Rs = 0; // ohm m2
    int RshPresent = 0;
    double Gsh = 0; // S/m2
    int conventionsShown = 0;
    int voltageReference = -1; // 1 referred to the left contact, -1 to the right contact
    int currentReference = 1;  // 1 positive when entering, -1 when leaving
};

// One sweep of the action list.
struct SweepAction {
    int calculate = 0;
    double start = 0;
    double stop = 0;
    int points = 0;
    int done = 0;
};

// The action list: QE (nm), I-V (V), C-V (V), C-f (Hz).
struct Actie {
    SweepAction QE;
    SweepAction IV;
    SweepAction CV;
    SweepAction Cf;
};

extern WorkPoint wp;
extern WorkPoint secondwp;
extern WorkPoint wp_vorig;
extern Actie actie;

// The defaults; the standard spectrum "AM1_5G 1 sun.spe" in the spectrum folder of the home tree.
void InitialiseWorkPoint(WorkPoint& w);

} // namespace tervo
