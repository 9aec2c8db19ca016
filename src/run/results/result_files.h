// Result files: tab-separated text for the eye and for a spreadsheet, each block behind a header
// that tells the program, the simulation, the definition file with its date, the illumination and
// the working point, so that a file can be understood alone.
//
// Every writer takes a mode: 0 writes to the standard output, 3 to an open file that the caller
// gives.  Choosing a path and opening the file is SaveResultFile's part.  Writers return 0 when they
// wrote, -1 when they wrote nothing (no data, reported; a mode they do not know; a write error).
#pragma once

#include <string>

#include "platform/text_file.h"
#include "run/results/result_list.h"
#include "setup/parameter_sets.h"

namespace tervo {

// What happens to the rows of a curve that a convergence failure cut short: left out, written as
// zeros, or written as blanks, so that a series of curves stays rectangular in a spreadsheet.
enum ActionListModes : int { ACTIONLIST_TRUNCATE = 0, ACTIONLIST_FILLZEROS = 1, ACTIONLIST_FILLWHITE = 2 };
extern int ActionListMode;

// Writer modes.
inline constexpr int OUTPUT_TO_SCREEN = 0;
inline constexpr int OUTPUT_TO_OPEN_FILE = 3;

// The kinds of header (the line that names what the file holds).
enum OutputHeaderKind : int {
    HEADER_ENERGY_BANDS = 0,
    HEADER_GENERATION_RECOMBINATION = 1,
    HEADER_AC_BANDS = 2,
    HEADER_IV = 3,
    HEADER_CV = 4,
    HEADER_CF = 5,
    HEADER_QE = 6,
    HEADER_OCCUPATION = 7,
    HEADER_BATCH_GENERAL = 8,
    HEADER_BATCH_INTERFACE = 9,
    HEADER_ADMITTANCE = 10,
    HEADER_GRADING = 11,
    HEADER_CURVE_FITTING = 12,
};

// The header of a result file into `text` (appended, each line ended by "\n").  With
// `fromWorkpoint` 0 the simulation, working point, definition, spectrum and generation come from
// `element`; a null element is reported ("No simulation list was found!") and nothing is written.
// With `fromWorkpoint` 1 they come from the global working point `wp`.  Batch information follows
// with `withBatchInfo` and `fromWorkpoint` 0.  0, or -1 when nothing was written.
int ComposeOutputHeader(std::string& text, const DataListElement* element, int kind, int withBatchInfo,
                        int fromWorkpoint);
// The same, written to an open file.
int WriteOutputHeader(TextFile& file, const DataListElement* element, int kind, int withBatchInfo,
                      int fromWorkpoint);

// What a batch or a curve fit varied in this simulation; nothing for a single shot.
void ComposeBatchInfo(std::string& text, const DataListElement& element);
int WriteBatchInfo(TextFile& file, const DataListElement& element);

// All I-V curves of the result list, one block per simulation that has one (an element with a C-V
// curve counts: its points carry currents), in list order: header, column line, rows, and the solar
// cell parameters that could be found.
int iv_naar_file(int mode, TextFile* file);

// All QE curves of the result list, one block per simulation that asked for one, in list order:
// header, column line, rows of wavelength, QE and photon energy.
int qe_naar_file(int mode, TextFile* file);

// The band diagram, densities, field, currents, generation and recombination of the state `cv` at
// every mesh point, and the currents and charge at each interface.
int eb_naar_file(int mode, TextFile* file, CalculationVariables& cv);

// The result files that can be saved to a path.
enum ResultFileKind : int { RESULT_IV = 0, RESULT_EB = 1, RESULT_QE = 2, RESULT_GEN = 3, RESULT_OCC = 4 };

// Generation-recombination and defect occupation profiles.
//
// A cell of the tables that has no data, a point outside the layer of a defect's column, is left
// empty: nothing between its two tabs, which a spreadsheet reads as a missing value.
inline constexpr const char* MISSING_CELL = "";

// What gen_naar_file writes.
enum GenerationFileContent : int { GENFILE_GENERATION = 0, GENFILE_OCCUPATION = 1 };

// The generation-recombination profiles (`content` GENFILE_GENERATION) or the occupations of the
// defect levels (GENFILE_OCCUPATION) of the state `cv`, behind the header of the present simulation
// of the result list and a legend: per mesh point the position, the band-to-band generation, the
// recombination by mechanism, and per layer, defect and level the optical and thermal emission and
// the capture of electrons and holes; or the occupation table of ft_naar_file.  Layers, defects,
// levels and energy samples are numbered from 1 in the column titles.  An empty result list is
// reported and nothing is written.
int gen_naar_file(int mode, TextFile* file, CalculationVariables& cv, int content);

// The occupation table of the state: a note naming the defects with an energy distribution, a title
// row, and per mesh point the index, the position and, per layer, defect, level and energy sample,
// the electron and the hole form of the occupation.  Appended to `text`; the second form writes to
// an open file (0, or -1 on a write error).
void ComposeOccupationTable(const CalculationVariables& cv, std::string& text);
int ft_naar_file(const CalculationVariables& cv, TextFile& file);

// Opens `path` for writing (a bare name goes into the results folder; a name without extension
// gets the kind's extension "iv", "eb", "qe", "gen" or "occ"), writes the kind's file in mode 3 (the
// band diagram, the generation-recombination or the occupation profiles of `currentCalcVars`) and
// closes it.  0, or -1 (reported) when the file could not be opened or
// nothing was written.
int SaveResultFile(ResultFileKind kind, const std::string& path);

} // namespace tervo
