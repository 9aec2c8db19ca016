#include "run/extraction.h"

#include <memory>

#include "solver/discrete_equations.h"

namespace tervo {

MeshArray j_n{};
MeshArray j_p{};
MeshArray jn_tunnel{};
MeshArray jp_tunnel{};
MeshArray j_tot{};

void extraheer_stroom(CalculationVariables& cv, int show) {
    (void)show; // no screen to draw on
    if (cv.parameters == nullptr) return;
    const auto profiles = std::make_unique<CurrentProfiles>();
    CalculateCurrentProfiles(cv, calculation_of_current, *profiles);
    j_n = profiles->j_n;
    j_p = profiles->j_p;
    jn_tunnel = profiles->jn_tunnel;
    jp_tunnel = profiles->jp_tunnel;
    j_tot = profiles->j_tot;
}

} // namespace tervo
