// The problem of the session: loading a definition file into the cell records, a fresh problem, and
// saving the present cell.
#pragma once

#include <string>

#include "platform/text_file.h"

namespace tervo {

// Loads a definition file, given by a path or a bare name (completed with the `def` folder), into
// `parameterset1`, `zonnecel`, `current_cell`, `current_layers` and `current_interfaces`, and brings
// the working settings held in the file (illumination side, reflection, resistances, mesh, QE and
// Mott-Schottky settings) into the session.  0 when loaded; -1 when not (reported through
// TERVOErrorMessage, "File not loaded" for a file that cannot be found).  The session's cell is left
// as it was on failure.
int Laad_data_uit_file(const std::string& path);

// A fresh default problem named "new problem".
void CreateNewProblem();

// Writes the session's cell `zonnecel` and its working settings, in file form, to an open file.
// 0, or -1 on a write error.
int SaveDefinitionFile(TextFile& file);

// Writes the session's cell to a path (opened for writing).  0, or -1 (reported).
int SaveDefinitionFileToPath(const std::string& path);

// The save of the edited cell `current_cell` under a chosen name (a bare name goes into the `def`
// folder): written by the full writer, the names kept in `parameterset1`, nothing counted as
// calculated.  Filter and absorption files that are not in their folders are warned about; the file
// is written all the same.  0, or -1 when the file cannot be opened (reported).
int data_naar_file(const std::string& path);

} // namespace tervo
