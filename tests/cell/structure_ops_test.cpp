// Contacts that follow the layer behind them.
#include <gtest/gtest.h>

#include <cmath>

#include "cell/structure_ops.h"

using namespace tervo;

namespace {

// A user-form layer with uniform properties.
LayerParameters Layer(double chi, double Eg, double Nd, double Na) {
    LayerParameters L;
    InitialiseLayerParameters(L, 0, 0);
    auto set = [](Profile& p, double v) { p.pureA = p.pureB = p.leftValue = p.rightValue = v; };
    set(L.material.chi, chi);
    set(L.material.Eg, Eg);
    set(L.material.Nc, 2.2e18);
    set(L.material.Nv, 1.8e19);
    set(L.material.Nd, Nd);
    set(L.material.Na, Na);
    return L;
}

} // namespace

TEST(FlatbandContact, WorkFunctionPutsTheFermiLevelOfTheNeutralLayerAtTheContact) {
    ConvergenceParameters conv;
    const double kT = 0.0259;
    ContactParameters c;
    const LayerParameters n = Layer(4.4, 3.3, 1e18, 0);
    CheckContactsWithActualLayerParameters(1, c, n, CONTACT_FIELD_FI_M, 300, conv);
    EXPECT_EQ(c.contactType, -1);
    EXPECT_NEAR(c.Fi_m, 4.4 + kT * std::log(2.2e18 / 1e18), 1e-6);
    EXPECT_NEAR(c.contactBarrier, kT * std::log(2.2e18 / 1e18), 1e-6);
    EXPECT_EQ(c.majorityBarrier, 0);

    const LayerParameters p = Layer(4.5, 1.15, 0, 2e16);
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_FI_M, 300, conv);
    EXPECT_EQ(c.contactType, 1);
    EXPECT_NEAR(c.Fi_m, 4.5 + 1.15 - kT * std::log(1.8e19 / 2e16), 1e-6);

    // At 350 K the densities of states grow with T^1.5 and kT with T.
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_FI_M, 350, conv);
    const double kT350 = 0.0259 * 350 / 300;
    EXPECT_NEAR(c.Fi_m, 4.5 + 1.15 - kT350 * std::log(1.8e19 * std::pow(350.0 / 300, 1.5) / 2e16), 1e-6);
}

TEST(FlatbandContact, FixedWorkFunctionGivesTheBarriers) {
    ConvergenceParameters conv;
    ContactParameters c;
    c.flatband = 0;
    c.Fi_m = 5.2;
    const LayerParameters p = Layer(4.5, 1.15, 0, 2e16);
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_FI_M, 300, conv);
    const double dist = 0.0259 * std::log(1.8e19 / 2e16);
    EXPECT_NEAR(c.contactBarrier, 4.5 + 1.15 - 5.2, 1e-12);
    EXPECT_NEAR(c.majorityBarrier, 4.5 + 1.15 - 5.2 - dist, 1e-6);
    // Editing the majority barrier moves the work function.
    c.majorityBarrier = 0.2;
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_MAJORITY_BARRIER, 300, conv);
    EXPECT_NEAR(c.Fi_m, 4.5 + 1.15 - (dist + 0.2), 1e-6);
    // An intrinsic layer without charge changes nothing.
    ContactParameters untouched = c;
    conv.includeChargeInDefects = 0;
    CheckContactsWithActualLayerParameters(-1, c, Layer(4.5, 1.15, 1e15, 1e15), CONTACT_FIELD_FI_M, 300,
                                           conv);
    EXPECT_EQ(c.Fi_m, untouched.Fi_m);
}

TEST(FlatbandContact, ChargedDefectsMoveTheNeutralFermiLevel) {
    // A p layer compensated by a shallow donor defect of half the acceptor density: the donor level
    // near the conduction band is empty (positive), so the neutral hole density is Na - Nt.
    NeutralLayerData d;
    d.Nc = 2.2e18;
    d.Nv = 1.8e19;
    d.Na = 2e16;
    d.Eg = 1.15;
    NeutralLayerDefect donor;
    donor.type = DEFECT_DONOR;
    donor.Nt = 1e16;
    donor.energy.Et = 1.1; // 0.05 eV below EC
    d.defects.push_back(donor);
    const NeutralFermiLevel f = CalculateNeutralBulkEquilibriumFermiLevel(d);
    EXPECT_EQ(f.type, 1);
    EXPECT_NEAR(f.toEV, 0.0259 * std::log(1.8e19 / 1e16), 1e-4);
    EXPECT_NEAR(f.N, 1e16, 1e12);
    // Without the defect the Fermi level sits kT ln(Nv/Na) above EV.
    d.defects.clear();
    EXPECT_NEAR(CalculateNeutralBulkEquilibriumFermiLevel(d).toEV, 0.0259 * std::log(1.8e19 / 2e16), 1e-6);
}

TEST(FlatbandContact, RecalculationTouchesOnlyFlatbandContactsToBeRecalculated) {
    CellDefinition cell;
    InitialiseCellDefinition(cell);
    cell.numberOfLayers = 2;
    cell.layer[0] = Layer(4.5, 1.15, 0, 2e16);
    cell.layer[1] = Layer(4.4, 3.3, 1e18, 0);
    cell.rightContact.recalculate = 0;
    ConvergenceParameters conv;
    Recalculate_Workfunctions(cell, 300, conv);
    EXPECT_NEAR(cell.leftContact.Fi_m, 4.5 + 1.15 - 0.0259 * std::log(1.8e19 / 2e16), 1e-6);
    EXPECT_EQ(cell.rightContact.Fi_m, 5.0);
}
