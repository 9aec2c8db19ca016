// The main job of a run without a screen: where a screen would wait for its user, the loaded cell is
// simulated once with the loaded action list and its results are saved.
#pragma once

#include <string>

namespace tervo {

// One single shot of the session's cell; every curve that was calculated and the band diagram of
// the working point are saved into the `results` folder of the home folder, named after the
// definition file (`<name>.iv`, `<name>.eb`), and a one-line summary with Voc, Jsc, FF and eta is
// returned in `summary`.  0 when the run reached its end; 1 when a stage failed.
int RunMainJob(const std::string& definitionPath, std::string& summary);

struct DataListElement;

// The summary line of a run: the cell parameters of its element of the result list, the working
// point when it made no sweep, or that it failed.
std::string MainJobSummary(const std::string& definitionName, const DataListElement* element);

} // namespace tervo
