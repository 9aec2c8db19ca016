// Operations of the cell records: numbering, profile look-up, peak-to-total factors, thickness,
// freeing, sign conventions and the short definition.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "cell/cell_records.h"
#include "cell/expect_values.h"

// Profiles are built with designated initializers; the members not named keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace tervo;
using tervo::test::ExpectExact;

TEST(CellRecords, LevelsAndInterfacesAreNumberedByTheirPlace) {
    CellDefinition c;
    InitialiseCellDefinition(c);
    const BulkRecombinationParameters& lv = c.layer[3].srh[5][2];
    ExpectExact(lv.layernumber, 3, lv.defectnumber, 5, lv.levelnumber, 2,
                c.interface[4].defect[2].interfaceNumber, 4);
    LayerParameters& L = c.layer[2];
    EXPECT_EQ(ProfileOfLayer(L, VAR_MUP), &L.material.mu_p);
    EXPECT_EQ(ProfileOfLayer(L, VAR_COMPOSITION), &L.composition);
    EXPECT_EQ(ProfileOfLayer(L, 99), nullptr);
}

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

TEST(CellRecords, MakeUniformTakesTheChosenEnd) {
    Profile p{.pureA = 1, .pureB = 2, .leftValue = 7, .rightValue = 8};
    MakeUniform(p, 2);
    EXPECT_EQ(p.leftValue, 7);
    MakeUniform(p, 1);
    ExpectExact(p.leftValue, 2, p.rightValue, 2);
    MakeUniform(p, 0);
    EXPECT_EQ(p.rightValue, 1);
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

TEST(CellRecords, FreeingEmptiesTheArraysAndSignsFollowTheConventions) {
    CellDefinition a;
    InitialiseCellDefinition(a);
    OpticalCaptureProperties& holes = a.layer[0].srh[0][0].optCaptHoles;
    AllocateOpticalCaptureProperties(holes, 3);
    FreeCellDefinition(a);
    ExpectExact(holes.sigmas.size(), 0, holes.count, 0);

    // Side the voltage is applied to, reference system: signs of V and J.
    const int cases[4][4] = {{-1, 1, 1, 1}, {-1, 0, 1, -1}, {1, 1, -1, -1}, {1, 0, -1, 1}};
    for (const auto& k : cases) {
        a.voltageAppliedTo = k[0];
        a.referenceSystem = k[1];
        SetSignsFromConventions(a);
        ExpectExact(a.signV, k[2], a.signJ, k[3]);
    }
}

TEST(CellRecords, ShortDefinitionMirrorsWhatExists) {
    CellDefinition c;
    InitialiseCellDefinition(c);
    c.numberOfLayers = 2;
    c.layer[1].material.Nd.law = LAW_EXPONENTIAL;
    c.layer[1].material.Nd.dependence = DEP_POSITION;
    c.layer[1].srhteller = 1;
    c.layer[1].srh[0][0].optCaptElectrons.fromFile = 1;
    c.interface[0].numberOfDefects = 2;
    c.interface[0].name = "a/b";
    ShortCellDefinition s;
    LongToShortCellDefinition(c, s);
    // Nd is the sixth material pair.
    ExpectExact(s.numberOfLayers, 2, s.layer[1].material[5].law, LAW_EXPONENTIAL,
                s.layer[1].material[5].dependence, DEP_POSITION, s.layer[1].srhteller, 1,
                s.layer[1].srh[0][0].fromFileElectrons, 1, s.interface[0].numberOfDefects, 2,
                s.interface[0].namePresent, 1);
}
