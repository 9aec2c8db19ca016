// Normalisation of a cell: scales, Debye lengths, intrinsic densities and interface velocities are
// checked against the formulas written out here, independently of the code.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "cell/working_settings.h"
#include "setup/parameter_sets.h"

namespace tervo {
namespace {

void Uniform(Profile& p, double value) {
    p.law = LAW_UNIFORM;
    p.pureA = p.pureB = p.leftValue = p.rightValue = value;
}

struct LayerData {
    double d, Eg, chi, eps, Nc, Nv, Nd, Na, mu_n, mu_p, vth_n, vth_p;
};

void SetLayer(LayerParameters& layer, const LayerData& v) {
    MaterialParameters& m = layer.material;
    m.d = v.d;
    Uniform(m.Eg, v.Eg);
    Uniform(m.chi, v.chi);
    Uniform(m.eps, v.eps);
    Uniform(m.Nc, v.Nc);
    Uniform(m.Nv, v.Nv);
    Uniform(m.Nd, v.Nd);
    Uniform(m.Na, v.Na);
    Uniform(m.mu_n, v.mu_n);
    Uniform(m.mu_p, v.mu_p);
    Uniform(m.v_th_n, v.vth_n);
    Uniform(m.v_th_p, v.vth_p);
    UpdateThicknessInProfiles_Layer(layer);
}

// n-type layer on a p-type layer, file form.
constexpr LayerData kLayer0{1e-6, 1.1, 4.2, 9, 2e24, 1.5e25, 1e22, 0, 0.01, 0.002, 1e5, 2e5};
constexpr LayerData kLayer1{2e-6, 1.5, 4.0, 12, 5e24, 1e25, 0, 1e21, 0.005, 0.0008, 1.2e5, 0.9e5};

InputParameters TwoLayerCell(const LayerData& a, const LayerData& b) {
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    in.cellParas.numberOfLayers = 2;
    SetLayer(in.cellParas.layer[0], a);
    SetLayer(in.cellParas.layer[1], b);
    in.cellParas.leftContact.Sn = 1e3;
    in.cellParas.leftContact.Sp = 1e5;
    in.cellParas.rightContact.Sn = 1e5;
    in.cellParas.rightContact.Sp = 1e3;
    return in;
}

// The same quantities, by hand.
struct Side {
    double ni, scale, debye;
};
Side HandSide(const LayerData& v, double T) {
    const double tr = T / 300, kT = 0.0259 * tr;
    const double NcT = v.Nc * std::pow(tr, 1.5), NvT = v.Nv * std::pow(tr, 1.5);
    Side s;
    s.ni = std::sqrt(NcT * NvT * std::exp(-v.Eg / kT));
    s.scale = std::fmax(s.ni, std::fabs(v.Nd - v.Na));
    s.debye = std::sqrt(kT * v.eps * 8.854e-12 / (s.scale * 1.602e-19));
    return s;
}

void ExpectRel(double expected, double actual, const char* what) {
    EXPECT_NEAR(actual / expected, 1.0, 1e-12) << what << ": expected " << expected << ", got " << actual;
}

class NormalisationAtTemperature : public ::testing::TestWithParam<double> {};

TEST_P(NormalisationAtTemperature, ScalesDebyeLengthsNiAndInterfaceVelocitiesMatchTheFormulas) {
    const double T = GetParam();
    const double tr = T / 300, kT = 0.0259 * tr;
    const InputParameters in = TwoLayerCell(kLayer0, kLayer1);
    auto P = std::make_unique<CalculationParameters>();
    parameterset1_to_3(in, *P, T, nullptr, 0);

    const double L = 3e-6;
    const double D = std::sqrt(tr) * kT * 0.01; // the largest mobility is mu_n of layer 0
    const Side s0 = HandSide(kLayer0, T), s1 = HandSide(kLayer1, T);
    const double N0 = s0.scale, N1 = s1.scale;

    ExpectRel(kT, P->kT, "kT");
    ExpectRel(L, schaal.length, "L");
    ExpectRel(D, schaal.diffusion, "D");
    ExpectRel(D / L, schaal.velocity, "velocity");
    ExpectRel(L * L / D, schaal.time, "time");
    ExpectRel(N0, schaal.density[0], "N0");
    ExpectRel(N1, schaal.density[1], "N1");
    ExpectRel(1 / (L * N0), schaal.rate[0], "rate0");
    ExpectRel(kT * 9 * 8.854e-12 / (1.602e-19 * L * L * N0), schaal.lambda2[0], "lambda2 0");
    ExpectRel(kT * 12 * 8.854e-12 / (1.602e-19 * L * L * N1), schaal.lambda2[1], "lambda2 1");
    ExpectRel(1.0 / 3, P->normalisedThickness[0], "d0/L");

    ExpectRel(s0.debye / L, P->debyeLeft[0], "Debye 0");
    ExpectRel(s1.debye / L, P->debyeRight[1], "Debye 1");
    ExpectRel(s0.ni / N0, P->niLeft[0], "ni 0");
    ExpectRel(s1.ni / N1, P->niRight[1], "ni 1");

    // Electrons: the left side has the smaller Nc v_th product, so the thermal velocity of the left
    // passes whole; holes: the right side limits, the left velocity gets a factor 0.3.
    const double chiStep = 4.0 - 4.2;
    const double valenceStep = 1.1 - chiStep - 1.5;
    const double vn = 1e5 * std::sqrt(tr) * std::exp(chiStep / kT) / (D / L);
    const double vp =
        (1e25 * 0.9e5) / (1.5e25 * 2e5) * 2e5 * std::sqrt(tr) * std::exp(valenceStep / kT) / (D / L);
    ExpectRel(vn, P->v_thermionic_n[0], "v_thermionic_n");
    ExpectRel(vp, P->v_thermionic_p[0], "v_thermionic_p");
    ExpectRel(1e3 / (D / L), P->S_n_left, "Sn left");
    ExpectRel(1e3 / (D / L), P->S_p_right, "Sp right");

    EXPECT_EQ(P->dopingSignRight[0], -1); // n-type
    EXPECT_EQ(P->dopingSignLeft[1], +1);  // p-type
}

INSTANTIATE_TEST_SUITE_P(At300And350K, NormalisationAtTemperature, ::testing::Values(300.0, 350.0));

TEST(Normalisation, CompensatedLayerTakesNiAsDopingScale) {
    LayerData compensated = kLayer1;
    compensated.Nd = compensated.Na = 1e22;
    const InputParameters in = TwoLayerCell(kLayer0, compensated);
    auto P = std::make_unique<CalculationParameters>();
    parameterset1_to_3(in, *P, 300, nullptr, 0);
    const Side s = HandSide(compensated, 300);
    ExpectRel(s.ni, schaal.density[1], "N1 = ni");
    EXPECT_TRUE(std::isfinite(P->debyeLeft[1]));
    ExpectRel(std::sqrt(0.0259 * 12 * 8.854e-12 / (s.ni * 1.602e-19)) / 3e-6, P->debyeLeft[1], "Debye");
    EXPECT_DOUBLE_EQ(P->niLeft[1], 1.0);
    EXPECT_EQ(P->dopingSignLeft[1], 0);
}

TEST(Normalisation, DefectCrossSectionsAndDensitiesGoByTheLayerScales) {
    InputParameters in = TwoLayerCell(kLayer0, kLayer1);
    LayerParameters& layer = in.cellParas.layer[1];
    layer.srhteller = 1;
    BulkRecombinationParameters& level = layer.srh[0][0];
    level.sigma_n = 2e-19;
    level.sigma_p = 3e-20;
    Uniform(level.Nt, 4e20);
    in.cellParas.interface[0].numberOfDefects = 1;
    in.cellParas.interface[0].defect[0].sigma_nleft = 1e-19;
    in.cellParas.interface[0].defect[0].sigma_nright = 5e-19;
    auto P = std::make_unique<CalculationParameters>();
    parameterset1_to_3(in, *P, 300, nullptr, 0);
    const double L = 3e-6, N0 = schaal.density[0], N1 = schaal.density[1];
    const BulkRecombinationParameters& t = P->srh[1][0][0];
    ExpectRel(2e-19 * L * N1, t.sigma_n, "sigma_n");
    ExpectRel(3e-20 * L * N1, t.sigma_p, "sigma_p");
    ExpectRel(4e20 / N1, t.Nt.leftValue, "Nt");
    ExpectRel(4e20 / N1, t.Nt.pureA, "Nt pureA");
    ExpectRel(2e-6 * 1e6, t.Nt.thickness, "Nt thickness in um");
    ExpectRel(1e-19 * L * N0, P->interfaceDefect[0][0].sigma_nleft, "interface sigma left");
    ExpectRel(5e-19 * L * N1, P->interfaceDefect[0][0].sigma_nright, "interface sigma right");
    EXPECT_EQ(P->defectsPerLayer[1], 1);
    EXPECT_EQ(P->defectsPerInterface[0], 1);
}

TEST(MottSchottkyEpsilon, LightlyDopedSideOfTheJunctionIsChosen) {
    InputParameters in = TwoLayerCell(kLayer0, kLayer1); // n+ (1e22) on p (1e21)
    MottSchottkySettings nw;
    SelectEpsilonForMottSchottky(in.cellParas, nw);
    EXPECT_EQ(nw.layer, 1);
    EXPECT_EQ(nw.side, -1);
    EXPECT_DOUBLE_EQ(nw.epsilon, 12);
    EXPECT_EQ(nw.majorityN, 0);

    // p+ on n: the n side on the left is the lighter one.
    LayerData a = kLayer0, b = kLayer1;
    a.Nd = 1e21;
    b.Na = 1e23;
    in = TwoLayerCell(a, b);
    SelectEpsilonForMottSchottky(in.cellParas, nw);
    EXPECT_EQ(nw.layer, 0);
    EXPECT_EQ(nw.side, +1);
    EXPECT_DOUBLE_EQ(nw.epsilon, 9);
    EXPECT_EQ(nw.majorityN, 1);

    // No junction: the right side of the first layer.
    b = kLayer1;
    b.Na = 0;
    b.Nd = 1e20;
    b.eps = 7;
    in = TwoLayerCell(kLayer0, b);
    SelectEpsilonForMottSchottky(in.cellParas, nw);
    EXPECT_EQ(nw.layer, 0);
    EXPECT_EQ(nw.side, +1);
    EXPECT_DOUBLE_EQ(nw.epsilon, 9);
}

TEST(MottSchottkyEpsilon, ChosenLayerRefreshesEpsilonAtConversion) {
    const MottSchottkySettings saved = NW;
    InputParameters in = TwoLayerCell(kLayer0, kLayer1);
    CellDefinition user;
    parameterset1_to_2(user, in);
    user.layer[1].material.eps.rightValue = 13;
    NW.layer = 1;
    NW.side = +1;
    NW.epsilon = 1;
    parameterset2_to_1(user);
    EXPECT_DOUBLE_EQ(NW.epsilon, 13);
    NW.layer = -1; // none chosen: the junction decides
    parameterset2_to_1(user);
    EXPECT_EQ(NW.layer, 1);
    EXPECT_EQ(NW.side, -1);
    EXPECT_DOUBLE_EQ(NW.epsilon, 12);
    NW = saved;
}

} // namespace
} // namespace tervo
