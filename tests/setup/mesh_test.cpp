// The first mesh through a stack, its adaptation to a solution, and the graded properties on it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "cell/working_settings.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "setup/mesh.h"
#include "setup/parameter_sets.h"

namespace tervo {
namespace {

void Uniform(Profile& p, double value) {
    p.law = LAW_UNIFORM;
    p.pureA = p.pureB = p.leftValue = p.rightValue = value;
}

// Three layers, file form: 1 µm n-type, 3 nm buffer, 2 µm p-type.
InputParameters ThreeLayerCell() {
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    in.cellParas.numberOfLayers = 3;
    const double d[3] = {1e-6, 3e-9, 2e-6}, Nd[3] = {1e22, 1e20, 0}, Na[3] = {0, 0, 1e21};
    for (size_t i = 0; i < 3; ++i) {
        MaterialParameters& m = in.cellParas.layer[i].material;
        m.d = d[i];
        Uniform(m.Nd, Nd[i]);
        Uniform(m.Na, Na[i]);
        Uniform(m.Eg, 1.2 + 0.1 * double(i));
        UpdateThicknessInProfiles_Layer(in.cellParas.layer[i]);
    }
    return in;
}

// The normalised cell on its first mesh, in a flat state: no field, carriers at equilibrium.
struct Problem {
    std::unique_ptr<CalculationParameters> P = std::make_unique<CalculationParameters>();
    std::unique_ptr<CalculationVariables> cv = std::make_unique<CalculationVariables>();
    explicit Problem(const InputParameters& in, double T = 300) {
        parameterset1_to_3(in, *P, T, nullptr, 0);
        InitialiseCalculationVariables(*cv);
        EXPECT_EQ(CreateCalculationVariables(*cv, nullptr, *P, 1, 0), 0);
        cv->a_n = cv->a_p = 0;
        std::fill(cv->psi.begin(), cv->psi.end(), 0.0);
        std::fill(cv->u.begin(), cv->u.end(), 1.0);
        std::fill(cv->v.begin(), cv->v.end(), 1.0);
    }
};

// Every point of the first mesh is still in `m`, which rises strictly within each layer.
void ExpectKeepsFirstMesh(const MeshBlock& m, const MeshBlock& first) {
    for (int i = 0; i < first.number_of_layers; ++i) {
        for (int j = first.first_point[At(i)]; j <= first.last_point[At(i)]; ++j)
            EXPECT_EQ(PointExists(m, i, first.x[At(j)]), 1) << "layer " << i << " point " << j;
        for (int j = m.first_point[At(i)] + 1; j <= m.last_point[At(i)]; ++j)
            ASSERT_GT(m.x[At(j)], m.x[At(j - 1)]);
    }
}

TEST(FirstMesh, ThreeLayerStackHasDoublePointsAtInterfacesAndDenseEdges) {
    Problem p(ThreeLayerCell());
    const MeshBlock& m = p.cv->mesh;
    // A layer of 1 µm resolves down to 0.1 nm and is capped at 100 points; 3 nm gets the minimum of 40.
    EXPECT_EQ(m.points_in_layer, (decltype(m.points_in_layer){100, 40, 100}));
    EXPECT_EQ(m.n_points, 240);
    EXPECT_EQ(m.last_point[2], m.n_points - 1);
    EXPECT_NEAR(m.x_um[At(m.n_points - 1)], 3.003, 1e-9);
    for (int i = 0; i < 3; ++i) {
        const int first = m.first_point[At(i)], last = m.last_point[At(i)], mid = (first + last) / 2;
        EXPECT_EQ(m.points_in_layer[At(i)], last - first + 1);
        if (i > 0) {
            EXPECT_EQ(first, m.last_point[At(i - 1)] + 1);
            EXPECT_EQ(m.x[At(first)], m.x[At(first - 1)]);
            EXPECT_EQ(m.h[At(first - 1)], 0.0);
        }
        EXPECT_NEAR(m.x[At(last)] - m.x[At(first)], p.P->normalisedThickness[At(i)], 1e-14);
        for (int j = first; j < last; ++j) ASSERT_DOUBLE_EQ(m.h[At(j)], m.x[At(j + 1)] - m.x[At(j)]);
        // Steps grow from each edge to the middle, symmetrically.
        EXPECT_LT(m.h[At(first)], m.h[At(first + 5)]);
        EXPECT_LT(m.h[At(first + 5)], m.h[At(mid)]);
        EXPECT_LT(m.h[At(last - 6)], m.h[At(mid)]);
        EXPECT_NEAR(m.h[At(first)], m.h[At(last - 1)], 1e-9 * m.h[At(first)]);
    }
    ExpectKeepsFirstMesh(m, m);
    for (int j = 0; j < m.n_points; ++j) ASSERT_DOUBLE_EQ(m.x_m[At(j)], m.x[At(j)] * 3.003e-6);
    EXPECT_TRUE(std::equal(m.x.begin(), m.x.end(), p.cv->firstMesh.x.begin())) << "the first mesh is kept";

    // Seven layers stay within the limit; an absorption length below 0.1 nm shortens the edge step.
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    in.cellParas.numberOfLayers = 7;
    EXPECT_EQ(Problem(in).cv->mesh.n_points, 700);
    in.cellParas.numberOfLayers = 1;
    Problem dark(in), lit(in);
    lit.cv->meshAlpha[0] = 1e11;
    ASSERT_EQ(CreateCalculationVariables(*lit.cv, nullptr, *lit.P, 1, 0), 0);
    EXPECT_LT(lit.cv->mesh.h[0], dark.cv->mesh.h[0]);
}

// A first layer of negative thickness makes the total negative and so the normalised thickness of
// the next layer: the complaint names the layer whose own thickness is wrong.
TEST(FirstMesh, ALayerWithoutThicknessIsTheOneNamed) {
    InputParameters in = ThreeLayerCell();
    in.cellParas.layer[0].material.d = -4e-6;
    UpdateThicknessInProfiles_Layer(in.cellParas.layer[0]);
    auto P = std::make_unique<CalculationParameters>();
    auto cv = std::make_unique<CalculationVariables>();
    parameterset1_to_3(in, *P, 300, nullptr, 0);
    InitialiseCalculationVariables(*cv);
    ErrorMessageMode = 2;
    ClearReportedMessages();
    EXPECT_NE(CreateCalculationVariables(*cv, nullptr, *P, 1, 0), 0);
    ASSERT_FALSE(ReportedMessages().empty());
    EXPECT_EQ(ReportedMessages().front().text, "Layer 1 has no thickness: no mesh can be made");
}

TEST(FirstMesh, GradedPropertiesAreExpandedWithTheirScales) {
    InputParameters in = ThreeLayerCell();
    Profile& Nc = in.cellParas.layer[2].material.Nc;
    Nc.law = LAW_LINEAR;
    Nc.dependence = DEP_POSITION;
    Nc.leftValue = 1e25;
    Nc.rightValue = 3e25;
    for (double T : {300.0, 350.0}) {
        Problem p(in, T);
        const CalculationParameters& P = *p.P;
        const MeshBlock& m = p.cv->mesh;
        const double tr = T / 300, N2 = schaal.density[2];
        const size_t first = At(m.first_point[2]), last = At(m.last_point[2]);
        EXPECT_NEAR(P.Nc_norm[first] * N2, 1e25 * std::pow(tr, 1.5), 1e13);
        EXPECT_NEAR(P.Nc_norm[last] * N2, 3e25 * std::pow(tr, 1.5), 3e13);
        const double xm = m.x_um[first + 30] - m.x_um[first];
        EXPECT_NEAR(P.Nc_norm[first + 30] * N2, (1e25 + 2e25 * xm / 2.0) * std::pow(tr, 1.5), 1e14);
        // Diffusion constant of the default mobility relative to the largest; doping in the layer's scale.
        EXPECT_NEAR(P.D_n[first], 1.0, 1e-12);
        EXPECT_NEAR(P.doping[first], -1e21 / N2, 1e-12);
        // The band term follows ln(Nc/max Nc) in a layer of one affinity.
        EXPECT_NEAR(P.band_n[first], std::log(1.0 / 3.0), 1e-9);
        EXPECT_NEAR(P.band_n[last], 0.0, 1e-12);
        // Electrons referred to the work function of the left contact.
        EXPECT_NEAR(P.Nc_eff[first] / P.Nc_norm[first], std::exp(-(5.0 - 4.5) / (0.0259 * tr)), 1e-12);
    }
}

TEST(NtOnTheMesh, DensityOfALevelTimesPeakFactorOnItsLayerOnly) {
    InputParameters in = ThreeLayerCell();
    in.cellParas.layer[0].srhteller = 1;
    Profile& Nt = in.cellParas.layer[0].srh[0][0].Nt;
    Nt.law = LAW_LINEAR;
    Nt.dependence = DEP_POSITION;
    Nt.leftValue = 1e20;
    Nt.rightValue = 3e20;
    Problem p(in);
    BulkRecombinationParameters& normalised = p.P->srh[0][0][0];
    normalised.energy.peakToTotal = 3;
    std::vector<double> target(MAX_MESH_POINTS, -1.0);
    Full_Nt_x_Dependence(*p.cv, normalised, target.data(), 2.0);
    const MeshBlock& m = p.cv->mesh;
    const double N0 = schaal.density[0];
    EXPECT_NEAR(target[0] * N0 / 6e20, 1.0, 1e-12);
    EXPECT_NEAR(target[At(m.last_point[0])] * N0 / 18e20, 1.0, 1e-12);
    EXPECT_EQ(target[At(m.first_point[1])], -1.0);
    std::fill(target.begin(), target.end(), -1.0);
    Full_MetaNt_x_Dependence(*p.cv, p.P->meta[0][1], target.data());
    EXPECT_NEAR(target[5] * N0 / 1e20, 1.0, 1e-12) << "default pair density, no peak factor";
}

TEST(AdaptiveMesh, RatioAtTheMaximumRefinesJustBelowDoesNotAndPastTheLimitNothingMoves) {
    Problem p(ThreeLayerCell());
    CalculationVariables& cv = *p.cv;
    MeshSettings s;
    s.maximumRatio = 1.5;
    s.minimumRatio = 1.05;
    const int n = cv.mesh.n_points, j = 50; // inside layer 0
    std::fill(cv.u.begin() + j, cv.u.begin() + n, 1.4999);
    EXPECT_EQ(RecalculateIntervals(cv, s, {}), 0);
    std::fill(cv.u.begin() + j, cv.u.begin() + n, 1.5);
    EXPECT_EQ(RecalculateIntervals(cv, s, {}), 1);
    ASSERT_EQ(cv.mesh.n_points, n + 1); // round(0.5) = 1 point
    EXPECT_DOUBLE_EQ(cv.mesh.x[At(j)], 0.5 * (cv.firstMesh.x[At(j - 1)] + cv.firstMesh.x[At(j)]));
    EXPECT_EQ(cv.mesh.points_in_layer[0], 101);
    EXPECT_EQ(cv.mesh.first_point[1], 101);
    EXPECT_EQ(cv.mesh.h[100], 0.0);
    // u follows the new mesh: the new point lies half way in the jump.
    EXPECT_DOUBLE_EQ(cv.u[At(j)], 1.25);
    EXPECT_DOUBLE_EQ(cv.u[At(j + 1)], 1.5);

    // A potential that jumps by 10 kT between neighbours asks for 5 new points in every interval.
    for (int i = 0; i < cv.mesh.n_points; ++i) cv.psi[At(i)] = (i % 2) * 10.0;
    const MeshBlock before = cv.mesh;
    const MeshArray psiBefore = cv.psi;
    EXPECT_EQ(RecalculateIntervals(cv, MeshSettings{}, {}), -1);
    EXPECT_EQ(cv.mesh.n_points, before.n_points);
    EXPECT_TRUE(std::equal(before.x.begin(), before.x.end(), cv.mesh.x.begin()));
    EXPECT_TRUE(std::equal(psiBefore.begin(), psiBefore.end(), cv.psi.begin()));
}

TEST(AdaptiveMesh, SteepPotentialRefinesAndFlatSolutionThinsButKeepsTheFirstMesh) {
    Problem p(ThreeLayerCell());
    CalculationVariables& cv = *p.cv;
    MeshSettings s;
    s.maximumRatio = 1.5;
    s.minimumRatio = 1.05;
    // A potential that rises linearly by 20 kT over the 2 µm layer: the coarse middle intervals of
    // layer 2 see a ratio exp(dpsi) above 1.5.
    const MeshBlock first = cv.mesh;
    auto line = [](const MeshBlock& m, int j) {
        const int k = std::clamp(j, m.first_point[2], m.last_point[2]);
        return 20 * (m.x_um[At(k)] - m.x_um[At(m.first_point[2])]) / 2.0;
    };
    for (int j = first.first_point[2]; j < MAX_MESH_POINTS; ++j) cv.psi[At(j)] = line(first, j);
    ASSERT_EQ(RecalculateIntervals(cv, s, {}), 1);
    EXPECT_GT(cv.mesh.n_points, first.n_points);
    EXPECT_EQ(cv.mesh.points_in_layer[0], first.points_in_layer[0]);
    ExpectKeepsFirstMesh(cv.mesh, first);
    for (int j = cv.mesh.first_point[2]; j <= cv.mesh.last_point[2]; ++j)
        EXPECT_NEAR(cv.psi[At(j)], line(cv.mesh, j), 1e-9) << "psi is still the same line";

    // With a flat solution the added points go again, but none of the first mesh, until only the
    // first mesh is left.
    std::fill(cv.psi.begin(), cv.psi.end(), 0.0);
    const int before = cv.mesh.n_points;
    ASSERT_EQ(RecalculateIntervals(cv, s, {}), 1);
    EXPECT_LT(cv.mesh.n_points, before);
    ExpectKeepsFirstMesh(cv.mesh, first);
    while (RecalculateIntervals(cv, s, {}) == 1) {
    }
    EXPECT_EQ(cv.mesh.n_points, first.n_points);
}

TEST(AdaptiveMesh, GenerationCountsOnlyAboveItsLimitAndNotOverASignChange) {
    Problem p(ThreeLayerCell());
    CalculationVariables& cv = *p.cv;
    MeshSettings s;
    s.generationLimit = 1.0; // µA/cm2
    const int j = 40;
    // S G in A/m2 with S = N D q / L; G just below and above the limit of 0.01 A/m2.
    const double S = schaal.density[0] * schaal.diffusion * 1.602e-19 / schaal.length;
    std::vector<double> G(MAX_MESH_POINTS, 0.5e-2 / S);
    std::fill(G.begin() + j, G.end(), 0.9e-2 / S);
    MeshRefinementSources sources;
    sources.generation = G.data();
    EXPECT_EQ(RecalculateIntervals(cv, s, sources), 0);
    std::fill(G.begin() + j, G.end(), 2e-2 / S);
    EXPECT_EQ(RecalculateIntervals(cv, s, sources), 1);
    EXPECT_EQ(cv.mesh.n_points, p.cv->firstMesh.n_points + 3); // ratio 4: round(ln4/ln1.5 - 0.5) = 3

    Problem q(ThreeLayerCell());
    std::fill(q.cv->u.begin() + j, q.cv->u.end(), -1000.0);
    EXPECT_EQ(RecalculateIntervals(*q.cv, s, {}), 0) << "a sign change of u says nothing about refinement";
}

TEST(MeshHelpers, InterpolationIsLinearPerLayerAndEndsOnTheLastOldValue) {
    MeshBlock oldMesh, newMesh;
    oldMesh.number_of_layers = newMesh.number_of_layers = 2;
    const double xo[] = {0, 0.2, 0.5, 0.5, 0.7, 1.0}, xn[] = {0, 0.1, 0.2, 0.45, 0.5, 0.5, 0.6, 0.9, 1.0};
    std::copy(std::begin(xo), std::end(xo), oldMesh.x.begin());
    std::copy(std::begin(xn), std::end(xn), newMesh.x.begin());
    oldMesh.first_point = {0, 3};
    oldMesh.last_point = {2, 5};
    newMesh.first_point = {0, 5};
    newMesh.last_point = {4, 8};
    // A quantity with a jump at the interface: 2x in layer 0, 10 - x in layer 1.
    const double fo[] = {0, 0.4, 1.0, 9.5, 9.3, 9.0},
                 expected[] = {0, 0.2, 0.4, 0.9, 1.0, 9.5, 9.4, 9.1, 9.0};
    double fn[9] = {};
    InterpolateAndCopy(fn, fo, newMesh, oldMesh, 2);
    for (size_t k = 0; k < 9; ++k) EXPECT_NEAR(fn[k], expected[k], 1e-14) << k;
}

} // namespace
} // namespace tervo
