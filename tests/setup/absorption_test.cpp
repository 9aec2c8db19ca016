// Absorption of the pure materials and of mixtures, the photon flux through the stack and the
// generation profile, checked against Beer-Lambert's law written out here; generation from a file.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/messages.h"
#include "setup/absorption.h"
#include "setup/data_file_fixture.h"
#include "setup/spectrum.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

constexpr double kHc = 1239.977; // eV nm

using defect_test::Uniform;

// A cell in file form and, once built, its normalised form, mesh and light record.
struct Cell {
    InputParameters in;
    std::unique_ptr<defect_test::Device> d;
    CalculationParameters* P = nullptr;
    CalculationVariables* cv = nullptr;
    GenerationParameters* gp = nullptr;
    explicit Cell(int layers) : in(defect_test::EmptyCell(layers)) {}
    MaterialParameters& Layer(int i) { return in.cellParas.layer[At(i)].material; }
    void Build() {
        for (int i = 0; i < in.cellParas.numberOfLayers; ++i)
            UpdateThicknessInProfiles_Layer(in.cellParas.layer[At(i)]);
        d = defect_test::Build(in);
        P = d->P.get();
        cv = d->cv.get();
        gp = d->light.get();
    }
    // Steps that grow by `ratio` from both surfaces of a single layer towards its middle, so that every
    // absorption length is resolved and trapezoid sums of G are accurate to far below 0.1 %.
    void GeometricMesh(double ratio) {
        MeshBlock& m = cv->mesh;
        const int n = 999;
        m.x[0] = 0;
        for (int k = 0; k + 1 < n; ++k) m.x[At(k + 1)] = m.x[At(k)] + std::pow(ratio, std::min(k, n - 2 - k));
        const double total = m.x[At(n - 1)];
        for (int k = 1; k < n; ++k) m.x[At(k)] /= total;
        m.n_points = m.points_in_layer[0] = n;
        m.number_of_layers = 1;
        m.first_point[0] = 0;
        m.last_point[0] = n - 1;
        CompleteMeshBlock(m, P->scale.length);
        Full_x_Dependence(*cv);
    }
    void Spectrum(std::vector<double> l, std::vector<double> P) {
        gp->lambda = std::move(l);
        gp->watt_lambda = std::move(P);
        gp->numberOfWavelengths = static_cast<int>(gp->lambda.size());
    }
    void Illuminate(double frontReflection) {
        ASSERT_EQ(BerekenFilterSpectra(*gp, in), 1);
        ASSERT_EQ(bepaal_alfa(*cv, *gp), 1);
        CalculateIncomingFluxes(*gp, PHOTON_FLUX_CONSTANT, 0);
        CalculateFluxes(*cv, *gp, 0, frontReflection);
        CalculateGeneration(*cv, *gp);
    }
    int LayerOf(int j) const {
        int i = 0;
        while (j > cv->mesh.last_point[At(i)]) ++i;
        return i;
    }
    // Undo the normalisations: photons per m2 s at wavelength k, and pairs per m3 s, at point j.
    double Flux(int k, int j) const {
        return gp->flux[FluxIndex(*gp, k, j)] * d->rate(1.0, LayerOf(j)) * P->scale.length;
    }
    double G(int j) const { return d->rate(gp->G[At(j)], LayerOf(j)); }
    // Pairs per m2 s generated in the whole cell (trapezoid rule).
    double AbsorbedPhotons() const {
        double sum = 0;
        for (int j = 0; j + 1 < cv->mesh.n_points; ++j)
            sum += 0.5 * (G(j) + G(j + 1)) * (cv->mesh.x_m[At(j + 1)] - cv->mesh.x_m[At(j)]);
        return sum;
    }
};

using AbsorptionTest = test::DataFileTest;

// ---------------------------------------------------------------------------------------------------
// Alpha.

TEST_F(AbsorptionTest, CoefficientModelFollowsTheSquareRootLawAboveTheGap) {
    MaterialParameters m;
    InitialiseMaterialParameters(m);
    m.absorption.pureA = kHc / 1.5; // cut-off of pure A
    m.A_pureA = 2e7;
    m.B_pureA = 3e6;
    std::vector<double> l = {300, 600, 800, kHc / 1.5, 900, 1500}, alpha, perCm;
    ASSERT_EQ(DetermineLayerAlpha(m, l, alpha, 6, 0, 0), 1);
    for (size_t k = 0; k < l.size(); ++k) {
        const double hv = kHc / l[k];
        const double expected = hv > 1.5 ? (2e7 + 3e6 / hv) * std::sqrt(hv - 1.5) : 0.0;
        EXPECT_NEAR(alpha[k], expected, 1e-9 * expected + 1e-9) << l[k] << " nm";
    }
    EXPECT_EQ(alpha[3], 0.0);
    ASSERT_EQ(DetermineLayerAlpha(m, l, perCm, 6, 0, 1), 1); // in /cm
    EXPECT_NEAR(perCm[0], 0.01 * alpha[0], 1e-9 * alpha[0]);

    // On the mesh of a pure-A layer: the same law, read from the grid by log interpolation.
    Cell cell(1);
    cell.Layer(0).A_pureA = 2e7;
    cell.Layer(0).B_pureA = 3e6;
    Uniform(cell.Layer(0).Eg, 1.5);
    cell.Build();
    cell.Spectrum({300, 500, 700, 820, 830, 1000}, std::vector<double>(6, 1.0));
    ASSERT_EQ(bepaal_alfa(*cell.cv, *cell.gp), 1);
    const int mid = cell.cv->mesh.n_points / 2;
    for (size_t k = 0; k < 6; ++k) {
        const double hv = kHc / cell.gp->lambda[k];
        const double expected = hv > 1.5 ? (2e7 + 3e6 / hv) * std::sqrt(hv - 1.5) : 0.0;
        // Between grid points 20 nm apart ln(alpha) is not straight; its bow stays below 1 %.
        EXPECT_NEAR(AlphaOfPoint(*cell.gp, mid, static_cast<int>(k)), expected, 0.01 * expected)
            << cell.gp->lambda[k] << " nm";
    }
    EXPECT_NEAR(cell.gp->cutoffWavelength[mid], kHc / 1.5, 1e-9);
}

TEST_F(AbsorptionTest, AbsorptionFileIsInterpolatedOnTheLogarithm) {
    MaterialParameters m;
    InitialiseMaterialParameters(m);
    m.absorptionA = 1;
    m.absorptionFileA = Write("a.abs", "wavelength alpha\n600 1e6\n400 1e7\n# tail\n800 1e4\n");
    std::vector<double> l = {300, 400, 500, 700, 900}, alpha;
    ASSERT_EQ(DetermineLayerAlpha(m, l, alpha, 5, 0, 0), 1);
    EXPECT_NEAR(alpha[0], 1e7 * std::sqrt(10.0), 1e-6 * 3e7); // rising outward: the logarithmic slope goes on
    EXPECT_DOUBLE_EQ(alpha[1], 1e7);                          // a point of the table
    EXPECT_NEAR(alpha[2], std::sqrt(1e13), 1e-6 * 3e6);       // half-way on the logarithm
    EXPECT_NEAR(alpha[3], 1e5, 1e-6 * 1e5);
    EXPECT_DOUBLE_EQ(alpha[4], 1e4); // falling outward: the end value

    const double x[] = {400, 500, 600}, y[] = {0, 5, 0};
    EXPECT_EQ(LogInterpolateFromTable(300, x, y, 3), 0.0);                           // an end value of 0
    EXPECT_NEAR(LogInterpolateFromTable(450, x, y, 3), 5 * std::sqrt(1e-10), 1e-12); // 0 as 1e-10 of 5
    const double same[] = {500, 500}, vals[] = {4, 9};
    EXPECT_DOUBLE_EQ(LogInterpolateFromTable(500, same, vals, 2), 6.0); // geometric mean
}

TEST_F(AbsorptionTest, GradedCompositionMixesThePureMaterials) {
    // Pure A has its gap at 1000 nm, pure B at 500 nm; Eg is linear in y, both anchors at 250 nm.
    Cell cell(1);
    MaterialParameters& m = cell.Layer(0);
    m.d = 1e-6;
    m.Eg.law = LAW_LINEAR;
    m.Eg.dependence = DEP_COMPOSITION;
    m.Eg.pureA = m.Eg.leftValue = kHc / 1000;
    m.Eg.pureB = m.Eg.rightValue = kHc / 500;
    m.absorption.lawPar1 = m.absorption.lawPar2 = 250;
    m.absorptionA = m.absorptionB = 1;
    m.absorptionFileA = Write("pureA.abs", "250 4e7\n1000 1e5\n");
    m.absorptionFileB = Write("pureB.abs", "250 9e7\n500 4e5\n");
    m.compositionType = 1;
    LayerParameters& layer = cell.in.cellParas.layer[0];
    layer.compositionType = 1;
    layer.composition.law = LAW_LINEAR;
    layer.composition.dependence = DEP_POSITION;
    layer.composition.leftValue = 0;
    layer.composition.rightValue = 1;
    cell.Build();
    const MeshBlock& mesh = cell.cv->mesh;
    ASSERT_NEAR(mesh.y[0], 0.0, 1e-12);
    ASSERT_NEAR(mesh.y[mesh.n_points - 1], 1.0, 1e-12);

    // At the two ends of the layer the tables of the pure materials come back.
    cell.Spectrum({250, 300, 400, 450, 500}, std::vector<double>(5, 1.0));
    ASSERT_EQ(bepaal_alfa(*cell.cv, *cell.gp), 1);
    const double* x = cell.gp->lambda.data();
    const double xa[] = {250, 1000}, ya[] = {4e7, 1e5}, xb[] = {250, 500}, yb[] = {9e7, 4e5};
    for (int k = 0; k < 5; ++k) {
        EXPECT_NEAR(AlphaOfPoint(*cell.gp, 0, k), LogInterpolateFromTable(x[k], xa, ya, 2), 1e-9 * 4e7);
        EXPECT_NEAR(AlphaOfPoint(*cell.gp, mesh.n_points - 1, k), LogInterpolateFromTable(x[k], xb, yb, 2),
                    1e-9 * 9e7);
    }
    EXPECT_NEAR(cell.gp->cutoffWavelength[mesh.n_points - 1], 500, 1e-9);

    // Half-way the gap is 1.5 times that of A: cut-off 666.7 nm.  Both spectra are stretched from
    // the anchor to the cut-off and combined as a geometric mean.
    AlphaTable A{{250, 1000}, {4e7, 1e5}, {}}, B{{250, 500}, {9e7, 4e5}, {}};
    std::vector<double> l = {250, 1000.0 / 1.5, 400}, alpha;
    InterpolateAlpha(cell.P->material[0], LAW_LINEAR, l, alpha, 3, A, B, 0.5);
    EXPECT_NEAR(alpha[0], std::sqrt(4e7 * 9e7), 1e-6 * 6e7);
    EXPECT_NEAR(alpha[1], std::sqrt(1e5 * 4e5), 1e-6 * 2e5);
    // 400 nm lies 150/416.7 of the way: at 520 nm in A and 340 nm in B.
    const double aA = 4e7 * std::pow(1e5 / 4e7, 270.0 / 750), aB = 9e7 * std::pow(4e5 / 9e7, 90.0 / 250);
    EXPECT_NEAR(alpha[2], std::sqrt(aA * aB), 1e-6 * std::sqrt(aA * aB));

    // The larger of the two pure materials limits the mesh.
    const double a400 = LogInterpolateFromTable(400, xa, ya, 2),
                 b400 = LogInterpolateFromTable(400, xb, yb, 2);
    ASSERT_GT(a400, b400);
    EXPECT_NEAR(ExtractAlpha(*cell.P, 400, 0), a400, 1e-6 * a400);
    EXPECT_NEAR(ExtractAlpha(*cell.P, 260, 0), LogInterpolateFromTable(260, xb, yb, 2), 1e-6 * 9e7);

    // New meshes, every other point moved each time: each point's alpha is still a fresh
    // interpolation at its own composition, to the bit, whether its row was kept from an old mesh or
    // made anew, also once the rows of compositions no longer on the mesh have been dropped.
    MeshBlock& moved = cell.cv->mesh;
    for (const double share : {0.3, 0.6, 0.45}) {
        for (int j = 1; j + 1 < moved.n_points; j += 2)
            moved.x[At(j)] = share * moved.x[At(j - 1)] + (1 - share) * moved.x[At(j + 1)];
        CompleteMeshBlock(moved, cell.P->scale.length);
        Full_x_Dependence(*cell.cv);
        ASSERT_EQ(bepaal_alfa(*cell.cv, *cell.gp), 1);
        for (int j = 0; j < moved.n_points; ++j) {
            InterpolateAlpha(cell.P->material[0], LAW_LINEAR, cell.gp->lambda, alpha, 5, A, B,
                             moved.y[At(j)]);
            for (int k = 0; k < 5; ++k)
                ASSERT_EQ(AlphaOfPoint(*cell.gp, j, k), alpha[At(k)]) << share << ", " << j << ", " << k;
        }
    }
    // Other data for material B are not served from the rows of the old.
    cell.P->material[0].absorptionFileB = Write("pureB2.abs", "250 5e7\n500 2e5\n");
    ASSERT_EQ(bepaal_alfa(*cell.cv, *cell.gp), 1);
    EXPECT_NEAR(AlphaOfPoint(*cell.gp, moved.n_points - 1, 0), 5e7, 1e-9 * 5e7);
}

TEST_F(AbsorptionTest, EmptyAbsorptionFileIsReportedAndAbsorbsNothing) {
    Cell cell(1);
    cell.Layer(0).absorptionA = 1;
    cell.Layer(0).absorptionFileA = Write("empty.abs", "no data\n");
    cell.Build();
    cell.Spectrum({500}, {1});
    EXPECT_EQ(bepaal_alfa(*cell.cv, *cell.gp), 0);
    EXPECT_TRUE(Reported("End of file occured during reading file: " + cell.Layer(0).absorptionFileA));
    EXPECT_EQ(AlphaOfPoint(*cell.gp, 0, 0), 0.0) << "no absorption: alpha 0";
    ClearReportedMessages();
    EXPECT_EQ(ExtractAlpha(*cell.P, 300, 0), 0.0);
    EXPECT_TRUE(Reported("File contains no useful information."));
}

// ---------------------------------------------------------------------------------------------------
// Flux and generation.

TEST_F(AbsorptionTest, ThickAbsorberTakesEveryPhotonAboveTheGapThatEnters) {
    // 20 µm with alpha of 3e6 /m only 1 meV above a 1.5 eV gap; 30 % reflected at the front contact.
    Cell cell(1);
    cell.Layer(0).d = 20e-6;
    Uniform(cell.Layer(0).Eg, 1.5);
    cell.Layer(0).A_pureA = 1e8;
    ContactParameters& front = cell.in.cellParas.leftContact;
    front.opticalFilter = front.wavelengthIndependent = 1;
    front.transmission = 0;
    front.filterValue = 0.3;
    cell.Build();
    cell.GeometricMesh(1.015);
    SpectrumSettings light;
    light.dark = 0;
    light.spectrumFile = std::string(TERVO_SOURCE_DIR) + "/home/spectrum/AM1_5G 1 sun.spe";
    cell.gp->numberOfWavelengths = bepaal_spectrum(light, cell.gp->lambda, cell.gp->watt_lambda);
    cell.Illuminate(0.5);
    double above = 0;
    for (size_t k = 0; k < cell.gp->lambda.size(); ++k)
        if (cell.gp->lambda[k] < kHc / 1.5)
            above += cell.gp->lambda[k] * cell.gp->watt_lambda[k] * PHOTON_FLUX_CONSTANT;
    EXPECT_NEAR(cell.AbsorbedPhotons(), 0.7 * above, 0.005 * 0.7 * above);
    EXPECT_GT(cell.G(0), 1e4 * cell.G(cell.cv->mesh.n_points - 1));
    // Without keeping the fluxes, G is the same to the bit, and no flux is held.
    const double savedRfront = std::exchange(Rfront, 0.5);
    const std::array<double, MAX_MESH_POINTS> kept = cell.gp->G;
    CalculateOpticalGeneration(*cell.cv, *cell.gp, 0, false);
    Rfront = savedRfront;
    EXPECT_TRUE(cell.gp->flux.empty());
    for (int j = 0; j < cell.cv->mesh.n_points; ++j) ASSERT_EQ(cell.gp->G[At(j)], kept[At(j)]) << j;
}

class DoublePass : public AbsorptionTest, public ::testing::WithParamInterface<std::pair<double, double>> {};

TEST_P(DoublePass, MonochromaticFluxFollowsBeerLambertWithBothMirrors) {
    const auto [R, Rf] = GetParam();
    Cell cell(1);
    const double d = 0.5e-6;
    cell.Layer(0).d = d;
    Uniform(cell.Layer(0).Eg, 1.5);
    ContactParameters& back = cell.in.cellParas.rightContact;
    back.opticalFilter = back.wavelengthIndependent = 1;
    back.transmission = 0;
    back.filterValue = R;
    cell.Build();
    cell.GeometricMesh(1.01);
    cell.Spectrum({600}, {10});
    cell.Illuminate(Rf);

    const double F = 600 * 10 * PHOTON_FLUX_CONSTANT;
    const double alpha = AlphaOfPoint(*cell.gp, 0, 0);
    ASSERT_GT(alpha * d, 1.0);
    const double trips = 1 - Rf * R * std::exp(-2 * alpha * d);
    for (int j = 0; j < cell.cv->mesh.n_points; j += 37) {
        const double x = cell.cv->mesh.x_m[j];
        const double expected = F * (std::exp(-alpha * x) + R * std::exp(-alpha * (2 * d - x))) / trips;
        EXPECT_NEAR(cell.Flux(0, j), expected, 1e-9 * F) << "x = " << x;
        EXPECT_NEAR(cell.G(j), alpha * cell.Flux(0, j), 1e-9 * alpha * F);
    }
    const double absorbed = (1 - std::exp(-alpha * d)) * (1 + R * std::exp(-alpha * d)) / trips;
    EXPECT_NEAR(cell.AbsorbedPhotons() / F, absorbed, 1e-4);
}

INSTANTIATE_TEST_SUITE_P(Mirrors, DoublePass,
                         ::testing::Values(std::pair{0.0, 0.0}, std::pair{0.8, 0.0}, std::pair{0.8, 0.4}));

TEST_F(AbsorptionTest, LightFromTheRightMirrorsTheProfileAndFluxIsContinuousOverInterfaces) {
    Cell cell(1);
    cell.Layer(0).d = 1e-6;
    cell.Build();
    cell.Spectrum({500}, {10});
    cell.Illuminate(0.0);
    const std::array<double, MAX_MESH_POINTS> fromLeft = cell.gp->G;
    cell.gp->side = +1;
    cell.Illuminate(0.0);
    const int n = cell.cv->mesh.n_points;
    for (int j = 0; j < n; ++j) EXPECT_NEAR(cell.gp->G[j], fromLeft[n - 1 - j], 1e-9 * fromLeft[0]);

    // Two layers of different doping, so different density scales: the photon flux itself does not
    // jump at the interface, and what is not absorbed leaves at the back.
    Cell two(2);
    for (int i = 0; i < 2; ++i) {
        two.Layer(i).d = 0.3e-6;
        Uniform(two.Layer(i).Eg, 1.2 + 0.4 * i);
        Uniform(two.Layer(i).Nd, i == 0 ? 1e22 : 1e20);
    }
    two.Build();
    ASSERT_NE(two.P->scale.density[0], two.P->scale.density[1]);
    two.Spectrum({700}, {10});
    two.Illuminate(0.0);
    const int last0 = two.cv->mesh.last_point[0];
    EXPECT_NEAR(two.Flux(0, last0 + 1), two.Flux(0, last0), 1e-9 * two.Flux(0, 0));
    // The wider gap of layer 1 (775 nm) still absorbs at 700 nm.
    EXPECT_GT(AlphaOfPoint(*two.gp, last0 + 1, 0), 0.0);
    EXPECT_LT(two.Flux(0, two.cv->mesh.n_points - 1), two.Flux(0, last0));
}

// ---------------------------------------------------------------------------------------------------
// Generation from a file.

TEST_F(AbsorptionTest, GenerationFileIsPutOnTheMesh) {
    Cell cell(1);
    cell.Layer(0).d = 2e-6;
    cell.Build();
    const std::string file = Write("ramp.gen", "x (um)  G (/m3s)\n0.5 1e27\n1.5 3e27\n");
    ASSERT_EQ(bereken_generatie_uit_file(*cell.cv, *cell.gp, 0, file, 50), 1);
    const double toNormal =
        cell.P->scale.length * cell.P->scale.length / (cell.P->scale.density[0] * cell.P->scale.diffusion);
    const MeshBlock& mesh = cell.cv->mesh;
    for (int j = 0; j < mesh.n_points; ++j) {
        const double x = mesh.x_um[j];
        const double expected = (x < 0.5 || x > 1.5) ? 0.0 : 0.5 * (1e27 + 2e27 * (x - 0.5));
        ASSERT_NEAR(cell.gp->G[j], expected * toNormal, 1e-9 * 1.5e27 * toNormal) << "x = " << x << " µm";
    }
    ASSERT_EQ(bereken_generatie_uit_file(*cell.cv, *cell.gp, 1, file, 100), 1);
    EXPECT_EQ(cell.gp->G[mesh.n_points / 2], 0.0); // dark

    // 1e27 pairs per m3 s over 2 µm, all collected: 1e27 2e-6 q = 320 A/m2 = 32 mA/cm2.
    EXPECT_NEAR(GenerationFileCurrent({0, 1e-6, 2e-6}, {1e27, 1e27, 1e27}), 32.04, 1e-9);

    const std::string twice = Write("twice.gen", "0.5 1e27\n0.5 2e27\n1.0 1e27\n");
    EXPECT_EQ(bereken_generatie_uit_file(*cell.cv, *cell.gp, 0, twice, 100), 0);
    EXPECT_TRUE(Reported("twice.gen contains 2 equal x-positions (0.500000 um)!"));
    EXPECT_EQ(bereken_generatie_uit_file(*cell.cv, *cell.gp, 0, dir / "*.gen", 100), 0);
    EXPECT_TRUE(Reported("Path with the generation file not yet defined."));
    std::string many;
    for (int i = 0; i <= MAX_GENERATION_POINTS; ++i) many += std::to_string(0.001 * i) + " 1e27\n";
    const std::string big = Write("big.gen", many);
    EXPECT_EQ(bereken_generatie_uit_file(*cell.cv, *cell.gp, 0, big, 100), 0);
    EXPECT_TRUE(Reported("The generation file '" + big + "' contains too many 1001(>1000) points."));
    // A file that cannot be sized says why: one that is not there, and a folder in its place.
    std::filesystem::create_directories(dir / "folder.gen");
    for (const auto& [name, reason] : {std::pair{"gone.gen", "File not found or directory in path not found"},
                                       std::pair{"folder.gen", "Invalid path; for example, c:filename"}}) {
        ClearReportedMessages();
        EXPECT_EQ(bereken_generatie_uit_file(*cell.cv, *cell.gp, 0, dir / name, 100), 0);
        EXPECT_TRUE(Reported("Error trying to get the filesize of the generation file G(x)\nPath of the "
                             "generation file: " +
                             (dir / name) + "\n" + reason))
            << name;
    }
}

} // namespace
} // namespace tervo
