// The first mesh through a stack, its adaptation to a solution, and the graded properties on it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "cell/working_settings.h"
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
    const double d[3] = {1e-6, 3e-9, 2e-6};
    const double Nd[3] = {1e22, 1e20, 0};
    const double Na[3] = {0, 0, 1e21};
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

struct Problem {
    std::unique_ptr<CalculationParameters> P = std::make_unique<CalculationParameters>();
    std::unique_ptr<CalculationVariables> cv = std::make_unique<CalculationVariables>();
};

Problem MakeProblem(const InputParameters& in, double T = 300) {
    Problem p;
    parameterset1_to_3(in, *p.P, T, nullptr, 0);
    InitialiseCalculationVariables(*p.cv);
    EXPECT_EQ(CreateCalculationVariables(*p.cv, nullptr, *p.P, 1, 0), 0);
    return p;
}

// A flat state: no field, carriers at equilibrium.
void FlatState(CalculationVariables& cv) {
    cv.a_n = cv.a_p = 0;
    std::fill(cv.psi.begin(), cv.psi.end(), 0.0);
    std::fill(cv.u.begin(), cv.u.end(), 1.0);
    std::fill(cv.v.begin(), cv.v.end(), 1.0);
}

TEST(FirstMesh, ThreeLayerStackHasDoublePointsAtInterfacesAndDenseEdges) {
    Problem p = MakeProblem(ThreeLayerCell());
    const MeshBlock& m = p.cv->mesh;
    ASSERT_EQ(m.number_of_layers, 3);
    // A layer of 1 µm resolves down to 0.1 nm and is capped at 100 points; 3 nm gets the minimum of 40.
    EXPECT_EQ(m.points_in_layer[0], 100);
    EXPECT_EQ(m.points_in_layer[1], 40);
    EXPECT_EQ(m.points_in_layer[2], 100);
    EXPECT_EQ(m.n_points, 240);
    EXPECT_LE(m.n_points, MAX_MESH_POINTS);
    EXPECT_EQ(m.first_point[0], 0);
    EXPECT_DOUBLE_EQ(m.x[0], 0.0);
    EXPECT_EQ(m.last_point[2], m.n_points - 1);
    EXPECT_NEAR(m.x[static_cast<size_t>(m.n_points - 1)], 1.0, 1e-12);
    EXPECT_NEAR(m.x_um[static_cast<size_t>(m.n_points - 1)], 3.003, 1e-9);

    for (int i = 0; i < 3; ++i) {
        const auto I = static_cast<size_t>(i);
        const int first = m.first_point[I], last = m.last_point[I];
        EXPECT_EQ(m.points_in_layer[I], last - first + 1);
        if (i > 0) {
            EXPECT_EQ(first, m.last_point[I - 1] + 1);
            EXPECT_EQ(m.x[static_cast<size_t>(first)], m.x[static_cast<size_t>(first - 1)]);
            EXPECT_EQ(m.h[static_cast<size_t>(first - 1)], 0.0);
        }
        EXPECT_NEAR(m.x[static_cast<size_t>(last)] - m.x[static_cast<size_t>(first)],
                    p.P->normalisedThickness[I], 1e-14);
        for (int j = first; j < last; ++j) {
            EXPECT_GT(m.h[static_cast<size_t>(j)], 0.0) << "layer " << i << " point " << j;
            EXPECT_DOUBLE_EQ(m.h[static_cast<size_t>(j)],
                             m.x[static_cast<size_t>(j + 1)] - m.x[static_cast<size_t>(j)]);
        }
        // Steps grow from each edge to the middle.
        const int mid = (first + last) / 2;
        EXPECT_LT(m.h[static_cast<size_t>(first)], m.h[static_cast<size_t>(first + 5)]);
        EXPECT_LT(m.h[static_cast<size_t>(first + 5)], m.h[static_cast<size_t>(mid)]);
        EXPECT_LT(m.h[static_cast<size_t>(last - 1)], m.h[static_cast<size_t>(last - 6)]);
        EXPECT_LT(m.h[static_cast<size_t>(last - 6)], m.h[static_cast<size_t>(mid)]);
        EXPECT_NEAR(m.h[static_cast<size_t>(first)], m.h[static_cast<size_t>(last - 1)],
                    1e-9 * m.h[static_cast<size_t>(first)]);
    }
    for (int j = 0; j < m.n_points; ++j) {
        const auto J = static_cast<size_t>(j);
        EXPECT_DOUBLE_EQ(m.x_m[J], m.x[J] * 3.003e-6);
        if (j > 0) {
            EXPECT_GE(m.x[J], m.x[J - 1]);
        }
    }
    // The first mesh is kept.
    EXPECT_EQ(p.cv->firstMesh.n_points, m.n_points);
    EXPECT_TRUE(std::equal(m.x.begin(), m.x.end(), p.cv->firstMesh.x.begin()));
}

TEST(FirstMesh, SevenLayersStayWithinTheLimitAndAbsorptionShortensTheEdgeStep) {
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    in.cellParas.numberOfLayers = 7;
    Problem p = MakeProblem(in);
    EXPECT_EQ(p.cv->mesh.n_points, 700);

    // The finest step is at most 0.1 nm; an absorption length below that shortens it further.
    InputParameters one = in;
    one.cellParas.numberOfLayers = 1;
    Problem dark = MakeProblem(one);
    Problem lit;
    parameterset1_to_3(one, *lit.P, 300, nullptr, 0);
    lit.cv->meshAlpha[0] = 1e11; // 0.01 nm absorption length
    ASSERT_EQ(CreateCalculationVariables(*lit.cv, nullptr, *lit.P, 1, 0), 0);
    EXPECT_LT(lit.cv->mesh.h[0], dark.cv->mesh.h[0]);
}

TEST(FirstMesh, GradedPropertiesAreExpandedWithTheirScales) {
    InputParameters in = ThreeLayerCell();
    LayerParameters& layer = in.cellParas.layer[2];
    layer.material.Nc.law = LAW_LINEAR;
    layer.material.Nc.dependence = DEP_POSITION;
    layer.material.Nc.leftValue = 1e25;
    layer.material.Nc.rightValue = 3e25;
    for (double T : {300.0, 350.0}) {
        Problem p = MakeProblem(in, T);
        const CalculationParameters& P = *p.P;
        const MeshBlock& m = p.cv->mesh;
        const double tr = T / 300, N2 = schaal.density[2];
        const int first = m.first_point[2], last = m.last_point[2];
        EXPECT_NEAR(P.Nc_norm[static_cast<size_t>(first)] * N2, 1e25 * std::pow(tr, 1.5), 1e13);
        EXPECT_NEAR(P.Nc_norm[static_cast<size_t>(last)] * N2, 3e25 * std::pow(tr, 1.5), 3e13);
        const double xm = m.x_um[static_cast<size_t>(first + 30)] - m.x_um[static_cast<size_t>(first)];
        EXPECT_NEAR(P.Nc_norm[static_cast<size_t>(first + 30)] * N2,
                    (1e25 + 2e25 * xm / 2.0) * std::pow(tr, 1.5), 1e14);
        // Diffusion constant of the default mobility 0.005 m^2/Vs relative to the largest.
        EXPECT_NEAR(P.D_n[static_cast<size_t>(first)], 1.0, 1e-12);
        EXPECT_NEAR(P.doping[static_cast<size_t>(first)], -1e21 / N2, 1e-12);
        // The band term follows ln(Nc/max Nc) in a layer of one affinity.
        EXPECT_NEAR(P.band_n[static_cast<size_t>(first)], std::log(1.0 / 3.0), 1e-9);
        EXPECT_NEAR(P.band_n[static_cast<size_t>(last)], 0.0, 1e-12);
        // Electrons referred to the work function of the left contact.
        EXPECT_NEAR(P.Nc_eff[static_cast<size_t>(first)] / P.Nc_norm[static_cast<size_t>(first)],
                    std::exp(-(5.0 - 4.5) / (0.0259 * tr)), 1e-12);
    }
}

TEST(NtOnTheMesh, DensityOfALevelTimesPeakFactorOnItsLayerOnly) {
    InputParameters in = ThreeLayerCell();
    in.cellParas.layer[0].srhteller = 1;
    BulkRecombinationParameters& level = in.cellParas.layer[0].srh[0][0];
    level.Nt.law = LAW_LINEAR;
    level.Nt.dependence = DEP_POSITION;
    level.Nt.leftValue = 1e20;
    level.Nt.rightValue = 3e20;
    Problem p = MakeProblem(in);
    BulkRecombinationParameters& normalised = p.P->srh[0][0][0];
    normalised.energy.peakToTotal = 3;
    std::vector<double> target(MAX_MESH_POINTS, -1.0);
    Full_Nt_x_Dependence(*p.cv, normalised, target.data(), 2.0);
    const MeshBlock& m = p.cv->mesh;
    const double N0 = schaal.density[0];
    EXPECT_NEAR(target[0], 6 * 1e20 / N0, 1e-12 * 6e20 / N0);
    EXPECT_NEAR(target[static_cast<size_t>(m.last_point[0])], 6 * 3e20 / N0, 1e-12 * 18e20 / N0);
    EXPECT_EQ(target[static_cast<size_t>(m.first_point[1])], -1.0);

    MetaStableDefectParameters& meta = p.P->meta[0][1];
    std::fill(target.begin(), target.end(), -1.0);
    Full_MetaNt_x_Dependence(*p.cv, meta, target.data());
    EXPECT_NEAR(target[5], 1e20 / N0, 1e-12 * 1e20 / N0); // default pair density, no peak factor
}

TEST(AdaptiveMesh, RatioAtTheMaximumRefinesAndJustBelowDoesNot) {
    Problem p = MakeProblem(ThreeLayerCell());
    CalculationVariables& cv = *p.cv;
    MeshSettings s;
    s.maximumRatio = 1.5;
    s.minimumRatio = 1.05;
    FlatState(cv);
    const int n = cv.mesh.n_points;
    const int j = 50; // inside layer 0
    for (int k = j; k < n; ++k) cv.u[static_cast<size_t>(k)] = 1.4999;
    EXPECT_EQ(RecalculateIntervals(cv, s, {}), 0);
    for (int k = j; k < n; ++k) cv.u[static_cast<size_t>(k)] = 1.5;
    EXPECT_EQ(RecalculateIntervals(cv, s, {}), 1);
    ASSERT_EQ(cv.mesh.n_points, n + 1); // round(0.5) = 1 point
    EXPECT_DOUBLE_EQ(cv.mesh.x[static_cast<size_t>(j)], 0.5 * (cv.firstMesh.x[static_cast<size_t>(j - 1)] +
                                                               cv.firstMesh.x[static_cast<size_t>(j)]));
    EXPECT_EQ(cv.mesh.points_in_layer[0], 101);
    EXPECT_EQ(cv.mesh.first_point[1], 101);
    EXPECT_EQ(cv.mesh.h[100], 0.0);
    // u follows the new mesh: the new point lies half way in the jump.
    EXPECT_DOUBLE_EQ(cv.u[static_cast<size_t>(j)], 1.25);
    EXPECT_DOUBLE_EQ(cv.u[static_cast<size_t>(j + 1)], 1.5);
}

TEST(AdaptiveMesh, SteepPotentialRefinesAndFlatSolutionThinsButKeepsTheFirstMesh) {
    Problem p = MakeProblem(ThreeLayerCell());
    CalculationVariables& cv = *p.cv;
    MeshSettings s;
    s.maximumRatio = 1.5;
    s.minimumRatio = 1.05;
    FlatState(cv);
    // A potential that rises linearly by 20 kT over the 3 µm layer: the coarse middle intervals of
    // layer 2 see a ratio exp(dpsi) above 1.5.
    const MeshBlock first = cv.mesh;
    for (int j = first.first_point[2]; j <= first.last_point[2]; ++j)
        cv.psi[static_cast<size_t>(j)] =
            20 *
            (first.x_um[static_cast<size_t>(j)] - first.x_um[static_cast<size_t>(first.first_point[2])]) /
            2.0;
    const double psiRight = cv.psi[static_cast<size_t>(first.last_point[2])];
    for (int j = first.last_point[2] + 1; j < MAX_MESH_POINTS; ++j) cv.psi[static_cast<size_t>(j)] = psiRight;
    ASSERT_EQ(RecalculateIntervals(cv, s, {}), 1);
    const MeshBlock& refined = cv.mesh;
    EXPECT_GT(refined.n_points, first.n_points);
    EXPECT_EQ(refined.points_in_layer[0], first.points_in_layer[0]);
    // Every point of the first mesh is still there, the mesh still rises, psi is still the same line.
    for (int i = 0; i < 3; ++i)
        for (int j = first.first_point[static_cast<size_t>(i)]; j <= first.last_point[static_cast<size_t>(i)];
             ++j)
            EXPECT_EQ(PointExists(refined, i, first.x[static_cast<size_t>(j)]), 1);
    for (int j = refined.first_point[2]; j <= refined.last_point[2]; ++j) {
        const auto J = static_cast<size_t>(j);
        if (j > refined.first_point[2]) {
            EXPECT_GT(refined.x[J], refined.x[J - 1]);
        }
        EXPECT_NEAR(cv.psi[J],
                    20 * (refined.x_um[J] - refined.x_um[static_cast<size_t>(refined.first_point[2])]) / 2.0,
                    1e-9);
    }

    // With a flat solution the added points go again, but none of the first mesh.
    FlatState(cv);
    const int before = cv.mesh.n_points;
    ASSERT_EQ(RecalculateIntervals(cv, s, {}), 1);
    EXPECT_LT(cv.mesh.n_points, before);
    EXPECT_GE(cv.mesh.n_points, first.n_points);
    for (int i = 0; i < 3; ++i)
        for (int j = first.first_point[static_cast<size_t>(i)]; j <= first.last_point[static_cast<size_t>(i)];
             ++j)
            EXPECT_EQ(PointExists(cv.mesh, i, first.x[static_cast<size_t>(j)]), 1);
    // Until only the first mesh is left.
    while (RecalculateIntervals(cv, s, {}) == 1) {
    }
    EXPECT_EQ(cv.mesh.n_points, first.n_points);
}

TEST(AdaptiveMesh, RefusesToPassTheLimitAndLeavesMeshAndSolutionAlone) {
    Problem p = MakeProblem(ThreeLayerCell());
    CalculationVariables& cv = *p.cv;
    FlatState(cv);
    // A potential that jumps by 10 kT between neighbours asks for 5 new points in every interval.
    for (int j = 0; j < cv.mesh.n_points; ++j) cv.psi[static_cast<size_t>(j)] = (j % 2) * 10.0;
    const MeshBlock before = cv.mesh;
    const MeshArray psiBefore = cv.psi;
    MeshSettings s;
    EXPECT_EQ(RecalculateIntervals(cv, s, {}), -1);
    EXPECT_EQ(cv.mesh.n_points, before.n_points);
    EXPECT_TRUE(std::equal(before.x.begin(), before.x.end(), cv.mesh.x.begin()));
    EXPECT_TRUE(std::equal(psiBefore.begin(), psiBefore.end(), cv.psi.begin()));
}

TEST(AdaptiveMesh, GenerationCountsOnlyAboveItsLimitAndNotOverASignChange) {
    Problem p = MakeProblem(ThreeLayerCell());
    CalculationVariables& cv = *p.cv;
    FlatState(cv);
    MeshSettings s;
    s.generationLimit = 1.0; // µA/cm2
    std::vector<double> G(MAX_MESH_POINTS, 0.0);
    const int j = 40;
    // S G in A/m2 with S = N D q / L; choose G just below and above the limit of 0.01 A/m2.
    const double S = schaal.density[0] * schaal.diffusion * 1.602e-19 / schaal.length;
    for (int k = 0; k < MAX_MESH_POINTS; ++k) G[static_cast<size_t>(k)] = k < j ? 0.5e-2 / S : 0.9e-2 / S;
    MeshRefinementSources sources;
    sources.generation = G.data();
    EXPECT_EQ(RecalculateIntervals(cv, s, sources), 0);
    for (int k = j; k < MAX_MESH_POINTS; ++k) G[static_cast<size_t>(k)] = 2e-2 / S;
    EXPECT_EQ(RecalculateIntervals(cv, s, sources), 1);
    EXPECT_EQ(cv.mesh.n_points, p.cv->firstMesh.n_points + 3); // ratio 4: round(ln4/ln1.5 - 0.5) = 3

    // A sign change of u says nothing about refinement.
    Problem q = MakeProblem(ThreeLayerCell());
    FlatState(*q.cv);
    for (int k = j; k < MAX_MESH_POINTS; ++k) q.cv->u[static_cast<size_t>(k)] = -1000.0;
    EXPECT_EQ(RecalculateIntervals(*q.cv, s, {}), 0);
}

TEST(MeshHelpers, InterpolationIsLinearPerLayerAndEndsOnTheLastOldValue) {
    MeshBlock oldMesh, newMesh;
    oldMesh.number_of_layers = newMesh.number_of_layers = 2;
    const double xo[] = {0, 0.2, 0.5, 0.5, 0.7, 1.0};
    const double xn[] = {0, 0.1, 0.2, 0.45, 0.5, 0.5, 0.6, 0.9, 1.0};
    for (size_t k = 0; k < 6; ++k) oldMesh.x[k] = xo[k];
    for (size_t k = 0; k < 9; ++k) newMesh.x[k] = xn[k];
    oldMesh.first_point = {0, 3};
    oldMesh.last_point = {2, 5};
    newMesh.first_point = {0, 5};
    newMesh.last_point = {4, 8};
    // A quantity with a jump at the interface: 2x in layer 0, 10 - x in layer 1.
    const double fo[] = {0, 0.4, 1.0, 9.5, 9.3, 9.0};
    double fn[9] = {};
    InterpolateAndCopy(fn, fo, newMesh, oldMesh, 2);
    const double expected[] = {0, 0.2, 0.4, 0.9, 1.0, 9.5, 9.4, 9.1, 9.0};
    for (size_t k = 0; k < 9; ++k) EXPECT_NEAR(fn[k], expected[k], 1e-14) << k;
}

TEST(MeshHelpers, RatioSettingsAreSortedAndClipped) {
    MeshSettings s;
    s.maximumRatio = 1.05;
    s.minimumRatio = 2.0;
    GovernMaxMinMesh(s);
    EXPECT_DOUBLE_EQ(s.maximumRatio, 2.0);
    EXPECT_DOUBLE_EQ(s.minimumRatio, 1.05);
    s.maximumRatio = 5;
    s.minimumRatio = 0.5;
    GovernMaxMinMesh(s);
    EXPECT_DOUBLE_EQ(s.maximumRatio, 3.0);
    EXPECT_DOUBLE_EQ(s.minimumRatio, 1.0);
}

} // namespace
} // namespace tervo
