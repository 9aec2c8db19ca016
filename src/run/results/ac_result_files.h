// Result files of the small-signal calculations: the C-V and C-f curves of the result list, and the
// small-signal profiles of one state.  Modes and results as for the other result files
// (run/results/result_files): mode 0 writes to the standard output, mode 3 to an open file; 0 when written,
// -1 when nothing was written (no data, reported; an unknown mode; a write error).
#pragma once

#include <string>

#include "platform/text_file.h"
#include "setup/parameter_sets.h"

namespace tervo {

// All C-V curves of the result list, one block per simulation that asked for one: header, the
// permittivity line of the Mott-Schottky analysis when it ran, column line, rows of voltage,
// capacitance, conductance, (width and apparent doping,) and the currents of the same points.
int cv_naar_file(int mode, TextFile* file);

// All C-f curves of the result list, one block per simulation that asked for one: header, column
// line, rows of frequency, capacitance, conductance and the impedance in both forms.
int cf_naar_file(int mode, TextFile* file);

// The small-signal profiles left by the last bereken_klein_signaal on the state `cv`: per mesh point
// the electron, hole, displacement and total current (real and imaginary) and the deviations of the
// potential and the two quasi-Fermi levels.
int ac_naar_file(int mode, TextFile* file, const CalculationVariables& cv);

// The three files written to a path: a bare name goes into the results folder, a name without
// extension gets "cv", "cf" or "ac".  0, or -1 (reported) when the file could not be opened or
// nothing was written.
enum AcResultFileKind : int { RESULT_CV = 0, RESULT_CF = 1, RESULT_AC = 2 };
int SaveAcResultFile(AcResultFileKind kind, const std::string& path);

} // namespace tervo
