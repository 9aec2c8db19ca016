// The light that falls on the cell: the spectrum of the working point, its cut-off and neutral
// density, the optical filters of the two contacts, and the photon flux of each wavelength at the cell
// surface.  Also the small readers of two-column data files (spectrum, filter, absorption, generation)
// that the optical set-up shares.
//
// A spectrum file holds one line per wavelength: the wavelength in nm and the power of its wavelength
// interval in W/m2 (not a spectral density).  The interval of a wavelength reaches half-way to its
// neighbours, so that the spectral density at a point is P[i] 2 / (l[i+1] - l[i-1]).
#pragma once

#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "setup/generation.h"

namespace tervo {

inline constexpr double HC_OVER_Q_NM = 1239.977;         // photon energy in eV times wavelength in nm
inline constexpr double PHOTON_FLUX_CONSTANT = 5.035e15; // photons per second in one watt at 1 nm
inline constexpr int MAX_FILE_LINE = 1000;               // characters of a data line that are read

// File types of the data readers; a bare file name is looked for in the folder of its type.
enum DataFileType : int {
    DATAFILE_SPECTRUM = 1,   // "spectrum"
    DATAFILE_ABSORPTION = 2, // "absorption"
    DATAFILE_FILTER = 3,     // "filter"
    DATAFILE_GENERATION = 4, // "generation"; positions in µm are read as m
    DATAFILE_OPTCAPT = 5,    // "optcapt"
    DATAFILE_BATCHLIST = 6,  // "bdf"; one number a line
    DATAFILE_FILELIST = 7,   // "bdf"; lines "file: name"
    DATAFILE_GRADING = 26,   // "grading"
    DATAFILE_MATERIAL = 31,  // "materials"
};

// A name with a folder in it, and "", stay as they are; a bare name goes behind the home folder and
// the folder of its type.  Unknown types leave the name alone.
std::string MakeFullPath(const std::string& name, int type);

// Counts the useful lines of a data file: lines that start with two numbers (one number for type 6,
// "file:" for type 7).  -1, with a message, when the file cannot be opened or read or holds no
// useful line.  No upper limit is applied here.
int tel_lijnen_in_file(const std::string& file, int type);

// Reads the useful lines of a data file into x and y (resized to the count): at most 2500 points, 2000
// for type 4, whose positions are turned from µm into m.  Type 6 reads one number a line into x.  The
// number of points, or -1 with a message.
int lees_file(const std::string& file, std::vector<double>& x, std::vector<double>& y, int type);

// For type 7: the texts behind the ':' of the lines that start with "file:", at most 2500.  Their
// number, or -1 with a message.
int lees_char_file(const std::string& file, std::vector<std::string>& names, int type);

// What the working point says about its light, and the three powers that the spectrum gives back.
struct SpectrumSettings {
    int dark = 1;
    std::string spectrumFile; // full path, or a bare name in the spectrum folder
    int cutoff = 0;           // 1: only the light between the two cut-off wavelengths is used
    double lambda_short = 0;  // nm
    double lambda_long = 2000;
    double ND = 0; // neutral density; transmission 10^-ND
    // Results, W/m2.
    double power_spectrum = 0; // the whole spectrum
    double power_cutoff = 0;   // between the cut-off wavelengths
    double power_incident = 0; // that power after the neutral density
};

// Reads the spectrum of `light` into `lambda` (nm) and `watt` (W/m2 of each interval), inserting the
// cut-off wavelengths when the cut-off is on, and fills the three powers.  Dark gives the two
// wavelengths 200 and 5000 nm with no power.  The number of wavelengths, or 0 on error.
int bepaal_spectrum(SpectrumSettings& light, std::vector<double>& lambda, std::vector<double>& watt);

// The first n entries of lambda and watt are a spectrum, the three after them extra wavelengths (short
// cut-off, their mean, long cut-off).  Sorts the spectrum and puts each extra that falls inside the
// table and not within 0.0001 nm of a point of it in its place, with the power that keeps the integral
// of the spectral density (trapezoid rule) unchanged.  The vectors are cut to the new count, which is
// returned.
int SpectrumInterpolation(std::vector<double>& lambda, std::vector<double>& watt, int n);

// Fills leftFilter and rightFilter of `gp` for its wavelengths from the contacts of `input`: the
// contact on the illuminated side gives its transmission (1 without a filter), the far contact its
// reflection (0 without a filter).  1, or 0 on error.
int BerekenFilterSpectra(GenerationParameters& gp, const InputParameters& input);

// Interpolates a filter file (wavelength in nm, value in %) at the n wavelengths into `target`.
// `sideText` names the contact in messages.  1, or 0 when the file is unusable.
int ReadFilterValues(const std::string& file, std::vector<double>& target, int n,
                     const std::vector<double>& wavelengths, const std::string& sideText);

// Turns n filter values in % into the fraction that is wanted (a transmission, or a reflection when
// `wantReflection` is 1): value/100 for a filter of the wanted kind, 1 - value/100 for the other kind.
// Without a filter every value becomes `defaultValue`.
void CalculateFilterValues(int filterOn, int isTransmission, int wantReflection, double defaultValue,
                           std::vector<double>& values, int n);

// incomingFlux_us[k] = T[k] l[k] P[k] c f[k]: the photons per m2 and second that enter the cell in the
// interval of wavelength k.  T is the transmission filter of the illuminated side, c the flux
// constant (photons per second per W at 1 nm).  In mode 0 the record's neutral-density transmission
// and the share f of the interval that lies within the cut-off act; in mode 1 (a probe light) neither
// does; any other mode gives no flux.
void CalculateIncomingFluxes(GenerationParameters& gp, double fluxConstant, int mode);

} // namespace tervo
