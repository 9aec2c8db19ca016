// Normalisation of a cell: scales, Debye lengths, intrinsic densities and interface velocities are
// checked against the formulas written out here, independently of the code.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <tuple>

#include "cell/expect_values.h"
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
    const std::pair<Profile*, double> values[] = {
        {&m.Eg, v.Eg},     {&m.chi, v.chi},      {&m.eps, v.eps},     {&m.Nc, v.Nc},
        {&m.Nv, v.Nv},     {&m.Nd, v.Nd},        {&m.Na, v.Na},       {&m.mu_n, v.mu_n},
        {&m.mu_p, v.mu_p}, {&m.v_th_n, v.vth_n}, {&m.v_th_p, v.vth_p}};
    for (const auto& [profile, value] : values) Uniform(*profile, value);
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

    test::ExpectRelative(1e-12, P->kT, kT, schaal.length, L, schaal.diffusion, D, schaal.velocity, D / L,
                         schaal.time, L * L / D, schaal.density[0], N0, schaal.density[1], N1, schaal.rate[0],
                         1 / (L * N0), schaal.lambda2[0], kT * 9 * 8.854e-12 / (1.602e-19 * L * L * N0),
                         schaal.lambda2[1], kT * 12 * 8.854e-12 / (1.602e-19 * L * L * N1),
                         P->normalisedThickness[0], 1.0 / 3);

    test::ExpectRelative(1e-12, P->debyeLeft[0], s0.debye / L, P->debyeRight[1], s1.debye / L, P->niLeft[0],
                         s0.ni / N0, P->niRight[1], s1.ni / N1);

    // Electrons: the left side has the smaller Nc v_th product, so the thermal velocity of the left
    // passes whole; holes: the right side limits, the left velocity gets a factor 0.3.
    const double chiStep = 4.0 - 4.2;
    const double valenceStep = 1.1 - chiStep - 1.5;
    const double vn = 1e5 * std::sqrt(tr) * std::exp(chiStep / kT) / (D / L);
    const double vp =
        (1e25 * 0.9e5) / (1.5e25 * 2e5) * 2e5 * std::sqrt(tr) * std::exp(valenceStep / kT) / (D / L);
    test::ExpectRelative(1e-12, P->v_thermionic_n[0], vn, P->v_thermionic_p[0], vp, P->S_n_left,
                         1e3 / (D / L), P->S_p_right, 1e3 / (D / L));

    EXPECT_EQ(P->dopingSignRight[0], -1); // n-type
    EXPECT_EQ(P->dopingSignLeft[1], +1);  // p-type
}

INSTANTIATE_TEST_SUITE_P(At300And350K, NormalisationAtTemperature, ::testing::Values(300.0, 350.0));

TEST(Normalisation, CompensatedLayerTakesNiAsDopingScaleAndItsDefectsGoByIt) {
    LayerData compensated = kLayer1;
    compensated.Nd = compensated.Na = 1e22;
    InputParameters in = TwoLayerCell(kLayer0, compensated);
    // Cross sections and densities of a bulk defect go by the scales of their layer, those of an
    // interface defect by the scale of the side they face.
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
    const Side s = HandSide(compensated, 300);
    EXPECT_TRUE(std::isfinite(P->debyeLeft[1]));
    test::ExpectRelative(1e-12, schaal.density[1], s.ni, P->debyeLeft[1],
                         std::sqrt(0.0259 * 12 * 8.854e-12 / (s.ni * 1.602e-19)) / 3e-6);
    EXPECT_DOUBLE_EQ(P->niLeft[1], 1.0);
    EXPECT_EQ(P->dopingSignLeft[1], 0);
    const double L = 3e-6, N0 = schaal.density[0], N1 = schaal.density[1];
    const BulkRecombinationParameters& t = P->srh[1][0][0];
    test::ExpectRelative(1e-12, t.sigma_n, 2e-19 * L * N1, t.sigma_p, 3e-20 * L * N1, t.Nt.leftValue,
                         4e20 / N1, t.Nt.pureA, 4e20 / N1, t.Nt.thickness, 2e-6 * 1e6,
                         P->interfaceDefect[0][0].sigma_nleft, 1e-19 * L * N0,
                         P->interfaceDefect[0][0].sigma_nright, 5e-19 * L * N1);
    EXPECT_EQ(P->defectsPerLayer[1], 1);
    EXPECT_EQ(P->defectsPerInterface[0], 1);
}

TEST(MottSchottkyEpsilon, LightlyDopedSideOfTheJunctionIsChosenAndRefreshedAtConversion) {
    // n+ on p: the p side; p+ on n: the n side on the left; no junction: the right side of layer 0.
    LayerData lightN = kLayer0, heavyP = kLayer1, secondN = kLayer1;
    lightN.Nd = 1e21;
    heavyP.Na = 1e23;
    secondN.Na = 0;
    secondN.Nd = 1e20;
    secondN.eps = 7;
    const struct {
        LayerData a, b;
        int layer, side;
        double epsilon;
        int majorityN;
    } cases[] = {
        {kLayer0, kLayer1, 1, -1, 12, 0}, {lightN, heavyP, 0, +1, 9, 1}, {kLayer0, secondN, 0, +1, 9, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE("expected layer " + std::to_string(c.layer) + " with epsilon " +
                     std::to_string(c.epsilon));
        MottSchottkySettings nw;
        SelectEpsilonForMottSchottky(TwoLayerCell(c.a, c.b).cellParas, nw);
        EXPECT_EQ(std::tuple(nw.layer, nw.side, nw.epsilon, nw.majorityN),
                  std::tuple(c.layer, c.side, c.epsilon, c.majorityN));
    }
    // A chosen layer keeps its place and takes its new permittivity when the cell is converted; with
    // none chosen the junction decides.
    const MottSchottkySettings saved = NW;
    CellDefinition user;
    parameterset1_to_2(user, TwoLayerCell(kLayer0, kLayer1));
    user.layer[1].material.eps.rightValue = 13;
    NW.layer = 1;
    NW.side = +1;
    NW.epsilon = 1;
    parameterset2_to_1(user);
    EXPECT_DOUBLE_EQ(NW.epsilon, 13);
    NW.layer = -1;
    parameterset2_to_1(user);
    EXPECT_EQ(std::tuple(NW.layer, NW.side, NW.epsilon), std::tuple(1, -1, 12.0));
    NW = saved;
}

} // namespace
} // namespace tervo
