// Operations of the cell records: peak-to-total factors, uniform end values, thickness and sign
// conventions.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "cell/cell_records.h"
#include "cell/expect_values.h"

// Profiles are built with designated initializers; the members not named keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace tervo;
using tervo::test::ExpectExact;

TEST(CellRecords, PeakToTotalOfEachDistribution) {
    EDistribution e;
    e.Ekar = 0.05;
    // A Gaussian exp(-(E/Ekar)^2) integrates to sqrt(pi) Ekar, the flat and tail forms to Ekar.
    const std::pair<int, double> cases[] = {{EDIST_SINGLE, 1},
                                            {EDIST_UNIFORM, 20},
                                            {EDIST_CBTAIL, 20},
                                            {EDIST_VBTAIL, 20},
                                            {EDIST_GAUSS, 1 / (std::sqrt(std::numbers::pi) * 0.05)}};
    for (const auto& [type, expected] : cases) {
        e.type = type;
        DeterminePeakToTotal(e);
        EXPECT_DOUBLE_EQ(e.peakToTotal, expected) << "distribution " << type;
    }
}

TEST(CellRecords, ThicknessReachesEveryProfileInUse) {
    LayerParameters L;
    InitialiseLayerParameters(L, 0, 1);
    L.material.d = 3e-7;
    L.srhteller = 1;
    L.srh[0][0].numberOfLevels = 2;
    UpdateThicknessInProfiles_Layer(L);
    for (const Profile* p : MaterialProfiles(L.material)) EXPECT_EQ(p->thickness, 3e-7);
    // The third level is not in use: it keeps the default thickness.
    ExpectExact(L.composition.thickness, 3e-7, L.srh[0][1].Nt.thickness, 3e-7, L.srh[0][2].Nt.thickness, 1e-6,
                L.meta[0].Nt.thickness, 3e-7);
}

TEST(CellRecords, SignsFollowTheConventions) {
    CellDefinition a;
    InitialiseCellDefinition(a);
    // Side the voltage is applied to, reference system: signs of V and J.
    const int cases[4][4] = {{-1, 1, 1, 1}, {-1, 0, 1, -1}, {1, 1, -1, -1}, {1, 0, -1, 1}};
    for (const auto& k : cases) {
        a.voltageAppliedTo = k[0];
        a.referenceSystem = k[1];
        SetSignsFromConventions(a);
        ExpectExact(a.signV, k[2], a.signJ, k[3]);
    }
}
