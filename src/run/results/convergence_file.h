// The convergence record of a simulation beside its result files: one row for each point of each
// curve, so that a user sees at once which points were hard and how they were reached.
#pragma once

#include <string>

#include "run/results/result_list.h"

namespace tervo {

// The rows of `element` as a tab-separated table with one header line.
std::string ConvergenceTable(const DataListElement& element);

// Writes that table to `path` (a bare name goes into the results folder).  0, or -1 (reported).
int SaveConvergenceFile(const DataListElement& element, const std::string& path);

} // namespace tervo
