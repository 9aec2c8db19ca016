// Defaults and operations of the cell records.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "cell/cell_records.h"

using namespace tervo;

TEST(CellRecords, FreshCellHasNoLayersAndTheDocumentedContacts) {
    CellDefinition c;
    InitialiseCellDefinition(c);
    EXPECT_EQ(c.numberOfLayers, 0);
    EXPECT_EQ(c.leftContact.Sn, 1000);
    EXPECT_EQ(c.leftContact.Sp, 100000);
    EXPECT_EQ(c.rightContact.Sn, 100000);
    EXPECT_EQ(c.rightContact.Sp, 1000);
    EXPECT_EQ(c.voltageAppliedTo, -1);
    EXPECT_EQ(c.referenceSystem, 1);
    // Every level of every layer keeps its defaults, numbered by its place.
    const BulkRecombinationParameters& lv = c.layer[3].srh[5][2];
    EXPECT_EQ(lv.layernumber, 3);
    EXPECT_EQ(lv.defectnumber, 5);
    EXPECT_EQ(lv.levelnumber, 2);
    EXPECT_EQ(lv.Nt.variableId, VAR_NT);
    EXPECT_EQ(lv.Nt.leftValue, 1e20);
    EXPECT_EQ(lv.Nt.lawPar2, 1);
    EXPECT_EQ(c.interface[4].defect[2].energy.reference, 3);
    EXPECT_EQ(c.interface[4].defect[2].interfaceNumber, 4);
}

TEST(CellRecords, MaterialDefaultsCarryTheirCodes) {
    MaterialParameters m;
    InitialiseMaterialParameters(m);
    const int ids[] = {VAR_CHI,       VAR_EG,        VAR_EPS,  VAR_NC,   VAR_NV,
                       VAR_ND,        VAR_NA,        VAR_MUN,  VAR_MUP,  VAR_MASS_ELECTRON,
                       VAR_MASS_HOLE, VAR_VTHN,      VAR_VTHP, VAR_KRAD, VAR_CN_AUGER,
                       VAR_CP_AUGER,  VAR_ABSORPTION};
    const auto profiles = MaterialProfiles(m);
    for (size_t i = 0; i < profiles.size(); ++i) EXPECT_EQ(profiles[i]->variableId, ids[i]) << i;
    EXPECT_EQ(m.Nd.dependence, DEP_UNIFORM);
    EXPECT_EQ(m.Na.dependence, DEP_UNIFORM);
    EXPECT_EQ(m.chi.dependence, DEP_COMPOSITION);
    EXPECT_EQ(m.Eg.lawPar1, 0.5);
    EXPECT_EQ(m.K_rad.pureA, 0);
    EXPECT_EQ(m.K_rad.leftValue, 1e25);
    EXPECT_EQ(m.absorption.pureA, 1200);
    EXPECT_EQ(m.absorption.lawPar3, 0);
    EXPECT_EQ(m.d, 2e-6);
    LayerParameters L;
    InitialiseLayerParameters(L, 2, 1);
    EXPECT_EQ(ProfileOfLayer(L, VAR_MUP), &L.material.mu_p);
    EXPECT_EQ(ProfileOfLayer(L, VAR_COMPOSITION), &L.composition);
    EXPECT_EQ(ProfileOfLayer(L, 99), nullptr);
    EXPECT_EQ(L.composition.pureB, 1);
    EXPECT_EQ(L.composition.relativePosition, 1);
    EXPECT_EQ(L.meta[1].userDefined, (std::array<int, 5>{0, 0, 1, 0, 1}));
    EXPECT_EQ(L.meta[1].DonorDefect, -1);
}

TEST(CellRecords, PeakToTotalOfEachDistribution) {
    EDistribution e;
    e.Ekar = 0.05;
    e.type = EDIST_SINGLE;
    DeterminePeakToTotal(e);
    EXPECT_EQ(e.peakToTotal, 1);
    for (int t : {EDIST_UNIFORM, EDIST_CBTAIL, EDIST_VBTAIL}) {
        e.type = t;
        DeterminePeakToTotal(e);
        EXPECT_DOUBLE_EQ(e.peakToTotal, 20);
    }
    // A Gaussian exp(-(E/Ekar)^2) integrates to sqrt(pi) Ekar.
    e.type = EDIST_GAUSS;
    DeterminePeakToTotal(e);
    EXPECT_DOUBLE_EQ(e.peakToTotal, 1 / (std::sqrt(std::numbers::pi) * 0.05));
}

TEST(CellRecords, UniformProfilesAndScaleFlags) {
    Profile p;
    p.pureA = 1;
    p.pureB = 2;
    p.leftValue = 7;
    p.rightValue = 8;
    MakeUniform(p, 2);
    EXPECT_EQ(p.leftValue, 7);
    MakeUniform(p, 1);
    EXPECT_EQ(p.leftValue, 2);
    EXPECT_EQ(p.rightValue, 2);
    MakeUniform(p, 0);
    EXPECT_EQ(p.rightValue, 1);
    const int expected[NUMBER_OF_LAWS][2] = {{0, 0}, {0, 0}, {1, 1}, {0, 0}, {1, 0}, {0, 0}, {0, 0},
                                             {0, 0}, {0, 0}, {0, 1}, {7, 7}, {7, 7}, {0, 0}, {7, 7}};
    for (int law = 0; law < NUMBER_OF_LAWS; ++law) {
        p.unitPar1 = p.unitPar2 = 7; // laws that keep the flags leave this
        p.law = law;
        SetProfileScaleParameters(p);
        EXPECT_EQ(p.unitPar1, expected[law][0]) << "law " << law;
        EXPECT_EQ(p.unitPar2, expected[law][1]) << "law " << law;
    }
}

TEST(CellRecords, ThicknessReachesEveryProfileInUse) {
    LayerParameters L;
    InitialiseLayerParameters(L, 0, 1);
    L.material.d = 3e-7;
    L.srhteller = 1;
    L.srh[0][0].numberOfLevels = 2;
    UpdateThicknessInProfiles_Layer(L);
    EXPECT_EQ(L.composition.thickness, 3e-7);
    for (const Profile* p : MaterialProfiles(L.material)) EXPECT_EQ(p->thickness, 3e-7);
    EXPECT_EQ(L.srh[0][1].Nt.thickness, 3e-7);
    EXPECT_EQ(L.srh[0][2].Nt.thickness, 1e-6); // not in use
    EXPECT_EQ(L.meta[0].Nt.thickness, 3e-7);
}

TEST(CellRecords, CopiesOwnTheirArraysAndSignsFollowTheConventions) {
    CellDefinition a;
    InitialiseCellDefinition(a);
    AllocateOpticalCaptureProperties(a.layer[0].srh[0][0].optCaptHoles, 3);
    a.layer[0].srh[0][0].optCaptHoles.sigmas[1] = 5;
    CellDefinition b;
    CopyCellParameters(b, a);
    b.layer[0].srh[0][0].optCaptHoles.sigmas[1] = 9;
    EXPECT_EQ(a.layer[0].srh[0][0].optCaptHoles.sigmas[1], 5);
    FreeCellDefinition(a);
    EXPECT_TRUE(a.layer[0].srh[0][0].optCaptHoles.sigmas.empty());
    AllocateOpticalCaptureProperties(a.layer[0].srh[0][0].optCaptHoles, 0);
    EXPECT_EQ(a.layer[0].srh[0][0].optCaptHoles.count, 0);

    const int cases[4][4] = {{-1, 1, 1, 1}, {-1, 0, 1, -1}, {1, 1, -1, -1}, {1, 0, -1, 1}};
    for (const auto& k : cases) {
        a.voltageAppliedTo = k[0];
        a.referenceSystem = k[1];
        SetSignsFromConventions(a);
        EXPECT_EQ(a.signV, k[2]);
        EXPECT_EQ(a.signJ, k[3]);
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
    EXPECT_EQ(s.numberOfLayers, 2);
    EXPECT_EQ(s.layer[1].material[5].law, LAW_EXPONENTIAL); // Nd is the sixth pair
    EXPECT_EQ(s.layer[1].material[5].dependence, DEP_POSITION);
    EXPECT_EQ(s.layer[1].srhteller, 1);
    EXPECT_EQ(s.layer[1].srh[0][0].fromFileElectrons, 1);
    EXPECT_EQ(s.interface[0].numberOfDefects, 2);
    EXPECT_EQ(s.interface[0].namePresent, 1);
    InitialiseShortCellDefinition(s);
    EXPECT_EQ(s.layer[0].srh[0][0].numberOfLevels, 1);
    EXPECT_EQ(s.layer[0].srh[0][0].fromModelHoles, 1);
    EXPECT_EQ(s.layer[0].srh[0][0].fromFileHoles, 0);
    EXPECT_EQ(s.layer[0].material[0].dependence, DEP_UNIFORM);
}
