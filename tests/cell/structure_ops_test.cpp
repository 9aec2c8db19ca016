// Contacts that follow the layer behind them.
#include <gtest/gtest.h>

#include <cmath>

#include "cell/expect_values.h"
#include "cell/structure_ops.h"

// Records are built with designated initializers; the members not named keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace tervo;
using namespace tervo::test;

namespace {

const double kT = 0.0259, Nc = 2.2e18, Nv = 1.8e19; // V at 300 K; /cm^3

// A user-form layer with uniform properties.
LayerParameters Layer(double chi, double Eg, double Nd, double Na) {
    LayerParameters L;
    InitialiseLayerParameters(L, 0, 0);
    MaterialParameters& m = L.material;
    for (auto [p, v] :
         {std::pair{&m.chi, chi}, {&m.Eg, Eg}, {&m.Nc, Nc}, {&m.Nv, Nv}, {&m.Nd, Nd}, {&m.Na, Na}})
        p->pureA = p->pureB = p->leftValue = p->rightValue = v;
    return L;
}

} // namespace

TEST(FlatbandContact, WorkFunctionPutsTheFermiLevelOfTheNeutralLayerAtRecalculatedContacts) {
    ConvergenceParameters conv;
    ContactParameters c;
    CheckContactsWithActualLayerParameters(1, c, Layer(4.4, 3.3, 1e18, 0), CONTACT_FIELD_FI_M, 300, conv);
    ExpectExact(c.contactType, -1, c.majorityBarrier, 0);
    ExpectWithin(1e-6, c.Fi_m, 4.4 + kT * std::log(Nc / 1e18), c.contactBarrier, kT * std::log(Nc / 1e18));

    const LayerParameters p = Layer(4.5, 1.15, 0, 2e16);
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_FI_M, 300, conv);
    EXPECT_EQ(c.contactType, 1);
    EXPECT_NEAR(c.Fi_m, 4.5 + 1.15 - kT * std::log(Nv / 2e16), 1e-6);
    // At 350 K the densities of states grow with T^1.5 and kT with T.
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_FI_M, 350, conv);
    EXPECT_NEAR(c.Fi_m, 4.5 + 1.15 - kT * 350 / 300 * std::log(Nv * std::pow(350.0 / 300, 1.5) / 2e16), 1e-6);

    // A fixed work function gives the barriers.
    c.flatband = 0;
    c.Fi_m = 5.2;
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_FI_M, 300, conv);
    const double dist = kT * std::log(Nv / 2e16);
    EXPECT_NEAR(c.contactBarrier, 4.5 + 1.15 - 5.2, 1e-12);
    EXPECT_NEAR(c.majorityBarrier, 4.5 + 1.15 - 5.2 - dist, 1e-6);
    // Editing the majority barrier moves the work function.
    c.majorityBarrier = 0.2;
    CheckContactsWithActualLayerParameters(-1, c, p, CONTACT_FIELD_MAJORITY_BARRIER, 300, conv);
    EXPECT_NEAR(c.Fi_m, 4.5 + 1.15 - (dist + 0.2), 1e-6);
    // An intrinsic layer without charge changes nothing.
    const double before = c.Fi_m;
    conv.includeChargeInDefects = 0;
    CheckContactsWithActualLayerParameters(-1, c, Layer(4.5, 1.15, 1e15, 1e15), CONTACT_FIELD_FI_M, 300,
                                           conv);
    EXPECT_EQ(c.Fi_m, before);

    // Over a cell only the flatband contacts marked for recalculation follow their layers.
    CellDefinition cell;
    InitialiseCellDefinition(cell);
    cell.numberOfLayers = 2;
    cell.layer[0] = p;
    cell.layer[1] = Layer(4.4, 3.3, 1e18, 0);
    cell.rightContact.recalculate = 0;
    Recalculate_Workfunctions(cell, 300, conv);
    EXPECT_NEAR(cell.leftContact.Fi_m, 4.5 + 1.15 - dist, 1e-6);
    EXPECT_EQ(cell.rightContact.Fi_m, 5.0);
}

TEST(FlatbandContact, ChargedDefectsMoveTheNeutralFermiLevel) {
    // A p layer compensated by a shallow donor defect of half the acceptor density: the donor level
    // near the conduction band is empty (positive), so the neutral hole density is Na - Nt.
    NeutralLayerData d{.Nc = Nc, .Nv = Nv, .Na = 2e16, .Eg = 1.15};
    NeutralLayerDefect donor{.type = DEFECT_DONOR, .Nt = 1e16};
    donor.energy.Et = 1.1; // 0.05 eV below EC
    d.defects.push_back(donor);
    const NeutralFermiLevel f = CalculateNeutralBulkEquilibriumFermiLevel(d);
    EXPECT_EQ(f.type, 1);
    ExpectWithin(1e-4, f.toEV, kT * std::log(Nv / 1e16));
    ExpectRelative(1e-4, f.N, 1e16);
}
