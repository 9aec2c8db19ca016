// Optical capture by defects (impurity photovoltaic mode): cross-section tables from files and from
// the model, the sub-gap absorption of the levels in the photon flux, and IterateFt, checked by the
// balance of absorbed photons against the optical transitions they drive.
#include "solver/bulk_recombination.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "run/control/driver.h"
#include "run/sweeps/operating_points.h"
#include "setup/absorption.h"
#include "solver/discrete_equations.h"
#include "support/temp_folder.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

using namespace defect_test;
constexpr double kHc = 1239.977; // eV nm

// A p-type layer with an acceptor 0.8 eV above the valence band: empty, it takes electrons from the
// valence band under sub-gap light (its hole cross section), and its hole capture returns them.
InputParameters IpvCell(double Nt) {
    InputParameters in = Stack({{Material{}, 2e-6, 0, 1e22}});
    AddDefect(in.cellParas.layer[0], DEFECT_ACCEPTOR, 1, Nt, 1e-19, 1e-19, {0.8, 0, 0, 0});
    return in;
}

TEST(OpticalCapture, ATableFromAFileIsSortedAndSwitchingOpticalCaptureOffDropsIt) {
    const test::TempFolder dir;
    test::WriteFile(dir / "holes.opt", "2000 3e-21\n1000 1e-21\n");
    InputParameters in = IpvCell(1e21);
    OpticalCaptureProperties& h = in.cellParas.layer[0].srh[0][0].optCaptHoles;
    h.fromFile = 1;
    h.fileName = dir / "holes.opt";
    ReadOpticalCaptureParameters(in, 300);
    EXPECT_EQ(h.wavelengths, (std::vector<double>{1000, 2000})) << "sorted";
    EXPECT_EQ(h.sigmas, (std::vector<double>{1e-21, 3e-21}));
    h.fromFile = 0;
    ReadOpticalCaptureParameters(in, 300);
    EXPECT_EQ(h.count, 0);
}

TEST(OpticalCapture, EachLevelIsPlacedByItsOwnReferenceAndTheIntrinsicLevelByTheTemperature) {
    // Two levels of one defect: the first 0.8 eV above the valence band, the second 0.3 eV below the
    // conduction band, so its holes need 1.12 - 0.3 eV.  A level 0.1 eV above the intrinsic level has
    // its hole threshold at Eg/2 + kT/2 ln(Nv/Nc) + 0.1, with kT of the temperature asked for.
    InputParameters in = Stack({{Material{}, 2e-6, 0, 1e22}});
    AddDefect(in.cellParas.layer[0], DEFECT_DOUBLEACCEPTOR, 2, 1e21, 1e-19, 1e-19, {0.8, 0.3, 0, 0});
    DefectLevels& levels = in.cellParas.layer[0].srh[0];
    levels[1].energy.reference = 2;
    for (BulkRecombinationParameters& level : levels) {
        level.optCaptHoles.fromFile = level.optCaptHoles.fromModel = 1;
        level.optCaptHoles.Emax = 2;
    }
    ReadOpticalCaptureParameters(in, 300);
    EXPECT_NEAR(levels[0].optCaptHoles.wavelengths.back(), kHc / 0.8, 1e-9);
    EXPECT_NEAR(levels[1].optCaptHoles.wavelengths.back(), kHc / (1.12 - 0.3), 1e-9);
    const Material m;
    for (const double T : {300.0, 350.0}) {
        levels[0].energy.reference = levels[1].energy.reference = 1;
        levels[0].energy.Et = 0.1;
        ReadOpticalCaptureParameters(in, T);
        const double kT_T = 0.0259 * T / 300, E0 = m.Eg / 2 + kT_T / 2 * std::log(m.Nv / m.Nc) + 0.1;
        EXPECT_NEAR(levels[0].optCaptHoles.wavelengths.back(), kHc / E0, 1e-9) << T << " K";
    }
}

TEST(OpticalCapture, ATableThatEndsInZeroFallsLinearlyToItOnTheSpectrumGrid) {
    // On the logarithm the last interval of a table that ends in 0 at its threshold would give
    // 1e-10 of its neighbour half-way; linear there it gives half of it.
    OpticalCaptureProperties o;
    AllocateOpticalCaptureProperties(o, 3);
    o.wavelengths = {1000, 1500, 2000};
    o.sigmas = {4e-21, 1e-21, 0};
    const double grid[] = {900, 1250, 1750, 2100};
    InterpolateOpticalCaptureProperties(o, grid, 4);
    ASSERT_EQ(o.count, 2);
    EXPECT_EQ(o.firstWavelength, 1);
    EXPECT_NEAR(o.sigmas[0], 2e-21, 1e-30) << "the logarithmic mean of 4e-21 and 1e-21";
    EXPECT_NEAR(o.sigmas[1], 0.5e-21, 1e-30);
}

// The cell under light of 1500 nm (below the gap, above the 1550 nm threshold of the hole transition)
// with hole cross section sigma, in equilibrium; the table is reduced to the spectrum on normalising.
struct Ipv {
    std::unique_ptr<Device> d;
    std::vector<double> lambda{900, 1500};
    double sigma = 1e-17, Nt = 1e22;
    explicit Ipv(double photons) {
        InputParameters in = IpvCell(Nt);
        OpticalCaptureProperties& h = in.cellParas.layer[0].srh[0][0].optCaptHoles;
        AllocateOpticalCaptureProperties(h, 2);
        h.fromFile = 1;
        h.wavelengths = {1000, 2000};
        h.sigmas = {sigma, sigma};
        d = Build(in, lambda.data(), 2);
        GenerationParameters& gp = *d->light;
        gp.numberOfWavelengths = 2;
        gp.lambda = lambda;
        gp.incomingFlux_us = {0, photons};
        gp.leftFilter = gp.rightFilter = {0, 0};
        EXPECT_EQ(bepaal_alfa(*d->cv, gp), 1);
        equilibrium(*d->cv);
        EXPECT_EQ(CONVERGENTIEFALING, 0);
        CalculateFluxes(*d->cv, gp, 0, 0.0);
    }
    double Flux(int i) const { // photons per m^2 s at 1500 nm
        return d->light->flux[FluxIndex(*d->light, 1, i)] * d->N(0) * d->P->scale.diffusion /
               d->P->scale.length;
    }
    const RecLevelData& Level() const { return d->cv->recombination.rec_levels[0][0][0][0]; }
};

TEST(OpticalCapture, EmptyLevelsAttenuateSubGapLightByTheirHoleCrossSection) {
    const Ipv s(1e21);
    ASSERT_EQ(s.d->P->srh[0][0][0].optCaptHoles.firstWavelength, 1) << "900 nm lies outside the table";
    ASSERT_LT(s.Level().f_t[0], 1e-6) << "the level lies far above the Fermi level";
    EXPECT_EQ(AlphaLOfPoint(*s.d->light, 0, 1), 0.0) << "no band-to-band absorption below the gap";
    const double alpha = s.sigma * s.Nt * s.Level().een_min_f_t[0];
    for (const int i : {s.d->points() / 3, s.d->points() - 1})
        EXPECT_NEAR(s.Flux(i) / s.Flux(0), std::exp(-alpha * s.d->cv->mesh.x_m[At(i)]), 1e-6);
}

TEST(OpticalCapture, EachCarrierIsEmittedOnlyByPhotonsAboveItsOwnThreshold) {
    // The level 0.8 eV above the valence band: an electron leaves it for the conduction band with
    // 0.32 eV (3875 nm), a hole for the valence band with 0.8 eV (1550 nm).  At 2500 nm only the
    // electron emission runs, at 1500 nm both; with the cross sections paired the other way round the
    // holes would be emitted at 2500 nm.
    InputParameters in = IpvCell(1e21);
    BulkRecombinationParameters& level = in.cellParas.layer[0].srh[0][0];
    for (OpticalCaptureProperties* o : {&level.optCaptElectrons, &level.optCaptHoles}) {
        o->fromFile = o->fromModel = 1;
        o->Emax = 2;
    }
    ReadOpticalCaptureParameters(in, 300);
    // The electron table: nothing at or beyond the threshold, the most at twice the threshold energy,
    // 9.3e-21 / (E0 m* n) / 8 m^2 there.
    const OpticalCaptureProperties& e = level.optCaptElectrons;
    ASSERT_EQ(e.count, 50);
    EXPECT_NEAR(e.wavelengths.front(), kHc / 2.0, 1e-9);
    EXPECT_NEAR(e.wavelengths.back(), kHc / 0.32, 1e-9);
    EXPECT_EQ(e.sigmas.back(), 0.0);
    const size_t peak =
        At(static_cast<int>(std::max_element(e.sigmas.begin(), e.sigmas.end()) - e.sigmas.begin()));
    EXPECT_NEAR(kHc / e.wavelengths[peak] / 0.32, 2.0, 0.1);
    EXPECT_NEAR(e.sigmas[peak] / (9.3e-21 / (0.32 * e.mStar * e.n) / 8), 1.0, 0.01);
    std::vector<double> lambda{1500, 2500};
    const auto d = Build(in, lambda.data(), 2);
    GenerationParameters& gp = *d->light;
    gp.numberOfWavelengths = 2;
    gp.lambda = lambda;
    gp.incomingFlux_us = {1e3, 1e3};
    gp.leftFilter = gp.rightFilter = {0, 0};
    ASSERT_EQ(bepaal_alfa(*d->cv, gp), 1);
    equilibrium(*d->cv);
    CalculateFluxes(*d->cv, gp, 0, 0.0);
    RecLevelData& data = d->cv->recombination.rec_levels[0][0][0][0];
    const size_t mid = data.g_n_max.size() / 2;
    CalculateGnpMax(*d->cv, 1, 1, data); // 2500 nm alone
    EXPECT_GT(data.g_n_max[mid], 0.0);
    EXPECT_EQ(data.g_p_max[mid], 0.0);
    CalculateGnpMax(*d->cv, 1, 0, data); // 1500 nm alone
    EXPECT_GT(data.g_n_max[mid], 0.0);
    EXPECT_GT(data.g_p_max[mid], 0.0);
}

// The impurity photovoltaic mode with the internal optical model, for the life of a test.
struct IpvMode {
    const int savedIpv = IPV_Mode, savedGeneration = Generation_Mode;
    IpvMode() { IPV_Mode = 1, Generation_Mode = 0; }
    ~IpvMode() { IPV_Mode = savedIpv, Generation_Mode = savedGeneration; }
};

TEST(OpticalCapture, AnOccupationLoopReportsItsPassLimitAndOnceSettledAbsorbsWhatItTransfers) {
    // Light strong enough that filling the level by light competes with its hole capture: the
    // occupation, and with it the absorption, depends on the light, and needs at least three passes.
    // Stopped after two, the loop says so: a caller that took the occupations as self-consistent
    // would carry a wrong sub-gap generation into the solve.
    const IpvMode mode;
    Ipv stopped(3e25);
    stopped.d->P->convergence.maxiter_Ft = 2;
    EXPECT_EQ(IterateFt(*stopped.d->cv), 0);
    EXPECT_EQ(stopped.d->cv->ft_iterations, 2);
    EXPECT_TRUE(stopped.Level().f_tOld.empty()) << "the scratch of the loop is released all the same";
    Ipv s(3e25);
    CalculationVariables& cv = *s.d->cv;
    EXPECT_EQ(IterateFt(cv), 1);
    EXPECT_GE(cv.ft_iterations, 3) << "occupation and light had to settle together";
    const RecLevelData& L = s.Level();
    const int last = s.d->points() - 1;
    EXPECT_GT(L.f_t[0], 0.5) << "the light fills most of the level";
    EXPECT_GT(L.f_t[0], L.f_t[At(last - 1)]) << "more at the front, in stronger light";
    const double toRate = s.d->rate(1.0, 0) / s.d->N(0); // normalised rate per trap -> /s
    EXPECT_NEAR(L.g_p_max[0] * toRate / (s.Flux(0) * s.sigma), 1.0, 1e-9);
    EXPECT_EQ(L.g_n_max[0], 0.0) << "no electron cross section";
    // Photons lost over the layer against the transitions g_p Nt (1 - f) they drive.
    auto local = [&](int i) { return L.g_p_max[At(i)] * toRate * s.Nt * L.een_min_f_t[At(i)]; };
    double transitions = local(last - 1) * (cv.mesh.x_m[At(last)] - cv.mesh.x_m[At(last - 1)]);
    for (int i = 0; i + 1 < last; ++i)
        transitions += 0.5 * (local(i) + local(i + 1)) * (cv.mesh.x_m[At(i + 1)] - cv.mesh.x_m[At(i)]);
    EXPECT_NEAR(transitions / (s.Flux(0) - s.Flux(last)), 1.0, 2e-3);
}

} // namespace
} // namespace tervo
