// From a solved state to results: the current of a point and its profiles.
#pragma once

#include "setup/parameter_sets.h"

namespace tervo {

// Current profiles of the last extracted point, mA/cm2, on its mesh.
extern MeshArray j_n;
extern MeshArray j_p;
extern MeshArray jn_tunnel;
extern MeshArray jp_tunnel;
extern MeshArray j_tot;

// The currents of the state at every mesh point into the profiles above (by the rule
// calculation_of_current), and J_median, J_spread, J_converged of the state.  `show` asks for the
// graphs of the screens, which this build has not.
void extraheer_stroom(CalculationVariables& cv, int show);

} // namespace tervo
