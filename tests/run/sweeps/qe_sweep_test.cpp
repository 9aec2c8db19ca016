// The quantum efficiency at the working point.  Cells without bulk recombination and with small
// minority velocities at the contacts collect every absorbed photon whatever the light, so their
// response is linear: the QE is the absorbed share of the probe, it does not depend on the bias
// light or on how the probe is measured out, and weighted with the photon flux of the spectrum it
// adds up to the short-circuit current.  Each cell runs through the main job (light I-V at the
// working point); the QE sweep then starts from the stored working point as the driver does.
#include "app/command_line.h"
#include "run/sweeps/qe_sweep.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "run/control/driver.h"
#include "run/control/startup.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/results/result_list.h"
#include "run/run_cells.h"
#include "run/sweeps/operating_points.h"
#include "script/curve_helpers.h"
#include "setup/absorption.h"
#include "setup/generation.h"
#include "setup/spectrum.h"
#include "support/program_run.h"

namespace tervo {
namespace {

using namespace run_test;
const std::string kSpectrum = std::string(TERVO_SOURCE_DIR) + "/home/spectrum/AM1_5G 1 sun.spe";
const double kGapWavelength = 1239.977 / 1.5; // nm, 826.65 nm for the gap of both cells

// A p-n homojunction lit from the n side (right): p base, n emitter, absorption
// alpha = A sqrt(hv - Eg) (/m), no recombination but at the contacts, where the minority carriers
// are held back (1e-3 m/s) and the majority carriers pass freely.
std::string Cell(const char* base, const char* emitter, const char* A) {
    auto layer = [A](const char* name, const char* d, const char* Nd, const char* Na) {
        return std::string("layer\n\nname : ") + name + "\nd : " + d +
               "\nv_th_n : 1e5\nv_th_p : 1e5\neps : 13\nchi : 4.0\nEg : 1.5\nNc : 1e24\nNv : 1e25\n"
               "mu_n : 0.01\nmu_p : 0.004\nK_rad : 0\nc_n_auger : 0\nc_p_auger : 0\nNd(uniform) : " +
               Nd + "\nNa(uniform) : " + Na +
               "\nabsorptionmodel pure A material (y=0) : coefficients A and B\nA : " + A +
               "\nB : 0\nabsorption pure B material (y=1), model : coefficients A and B\n"
               "pure B material (y=1), A : " +
               A + "\npure B material (y=1), B : 0\n\n";
    };
    return "back contact\n\nflatband : 1\nSn : 1e-3\nSp : 1e5\n\n" + layer("base", base, "0", "1e22") +
           layer("emitter", emitter, "1e24", "0") +
           "front contact\n\nflatband : 1\nSn : 1e5\nSp : 1e-3\n\nworking point\n\nilluminated from : right\n"
           "internal Rfront : 0\n";
}

// The same cell turned round: the emitter on the left, lit from the left.
std::string TurnedRound(std::string cell) {
    const size_t base = cell.find("layer\n\nname : base"), emitter = cell.find("layer\n\nname : emitter"),
                 front = cell.find("front contact");
    const std::string layers = cell.substr(emitter, front - emitter) + cell.substr(base, emitter - base);
    return "back contact\n\nflatband : 1\nSn : 1e5\nSp : 1e-3\n\n" + layers +
           "front contact\n\nflatband : 1\nSn : 1e-3\nSp : 1e5\n\nworking point\n\nilluminated from : left\n"
           "internal Rfront : 0\n";
}

// 2 µm that absorb part of the light: the QE falls from about 90 % in the blue to 0 at the gap.
const std::string kLinearCell = Cell("1.5e-6", "0.5e-6", "1e6");

// The light I-V at 0 V around the short circuit, under the shipped spectrum or a generation file.
std::string Action(bool dark, const std::string& generationFile = "") {
    return "Temperature : 300\nVoltage : 0\nNumber of points : 5\ndark : " + std::to_string(dark) +
           "\nspectrum file :AM1_5G 1 sun.spe\nIV_startV : -0.1\nIV_stopV : 0.1\nIV_points : 5\nIV_calculate "
           ": 1\n" +
           (generationFile.empty() ? "generation from file : 0\n"
                                   : "generation from file : 1\ngeneration file :" + generationFile + "\n");
}

class QESweep : public ::testing::Test {
protected:
    test::ProgramHome home;

    void SetUp() override {
        ClearReportedMessages();
        wis_alles();
    }
    void TearDown() override {
        wis_alles();
        Generation_Mode = 0;
        generatieparameters.QEmode = 1;
        generatieparameters.incidentPower = 10;
        generatieparameters.numberOfPhotons = 1e19;
    }

    // The cell simulated once from the command line (equilibrium, short circuit, working point and
    // the light I-V), with the state of the run kept for the QE request.
    void Run(const std::string& cell, const std::string& action) {
        const std::string def = home / "cell.def", act = home / "run.act";
        test::WriteFile(def, cell);
        test::WriteFile(act, action);
        const char* argv[] = {"tervo", def.c_str(), act.c_str()};
        ASSERT_GE(SetTERVOHome(home.path.string()), 0);
        Initialise();
        ErrorMessageMode = 0;
        ProcessCommandLine(3, argv);
        wis_alles();
        Simulate(SINGLE_SHOT);
        ASSERT_EQ(lastCalculationResult, 0);
        ASSERT_NE(pointer_naar_huidige(), nullptr);
    }

    // The stored working point on its mesh with the generation of its light, solved: where the
    // simulation driver hands over to the QE sweep.
    void PrepareWorkingPoint() {
        CalculationVariables& cv = currentCalcVars;
        CopyCalculationVariables(cv, werkpuntcv);
        Full_x_Dependence(cv);
        GenerationParameters& gp = generatieparameters;
        if (Generation_Mode == 0) {
            bepaal_alfa(cv, gp);
            CalculateIncomingFluxes(gp, PHOTON_FLUX_CONSTANT, 0);
            CalculateFluxes(cv, gp, 0);
            CalculateGeneration(cv, gp);
        } else {
            EXPECT_EQ(bereken_generatie_uit_file(cv, gp, wp.dark, wp.generationFile, wp.attenuation), 1);
        }
        onder_belichting(cv);
        EXPECT_EQ(CONVERGENTIEFALING, 0);
        update_eb_panel(cv, 0);
    }

    const DataListElement& Sweep(double start, double stop, int points) {
        actie.QE = {1, start, stop, points, 0};
        calcqe(currentCalcVars, actie);
        DataListElement& e = *pointer_naar_huidige();
        EXPECT_EQ(e.actie.QE.done, actie.QE.done);
        return e;
    }

    // QE in % at the given wavelengths, one sweep.
    std::vector<double> QEAt(double start, double stop, int points) {
        PrepareWorkingPoint();
        const DataListElement& e = Sweep(start, stop, points);
        EXPECT_EQ(e.actie.QE.done, points);
        EXPECT_EQ(QEConvergenceFailure, 0);
        return e.qe;
    }
};

// One run of a linear cell: its QE adds up to the short-circuit current, does not change with the bias
// light, the probe or a generation file, is cut where a wavelength does not converge, and keeps the
// sign of the current that the probe adds.
TEST_F(QESweep, ALinearCellsQEIsItsCurrentWhateverTheLightIsCutAtAFailedWavelengthAndKeepsItsSign) {
    Run(kLinearCell, Action(false));
    const double Jsc = pointer_naar_huidige()->parameters.Jsc;
    ASSERT_GT(Jsc, 5.0);

    // The QE up to just below the gap; above it nothing is absorbed.
    const double stop = 826.6;
    const int points = 30;
    PrepareWorkingPoint();
    const DataListElement& e = Sweep(280, stop, points);
    ASSERT_EQ(std::tuple(e.actie.QE.done, e.qe_as.size()), std::tuple(points, At(points)));
    EXPECT_EQ(std::tuple(e.qe_as.front(), e.qe_as.back()), std::tuple(280.0, stop));

    // q times the photons of every line of the shipped spectrum below the gap times the QE there.
    std::ifstream in(kSpectrum);
    double J = 0;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        double lambda = 0, power = 0;
        if (!(words >> lambda >> power) || lambda > stop) continue;
        const double photons = power * lambda * PHOTON_FLUX_CONSTANT;
        J += photons * MathInterpolate(e.qe.data(), lambda, e.qe_as.data(), points) / 100 * q * 0.1; // mA/cm2
    }
    // (Straight lines between wavelengths 19 nm apart miss a little of the square-root rise of the
    // absorption above the gap: some 0.4 % here.)
    EXPECT_NEAR(J / Jsc, 1.0, 0.01) << "J from QE " << J << ", Jsc " << Jsc;

    EXPECT_TRUE(ReportedMessages().empty());

    const std::vector<double> reference = QEAt(450, 750, 2);
    auto expectSame = [&](const std::vector<double>& qe) {
        for (size_t i = 0; i < 2; ++i) EXPECT_NEAR(qe[i] / reference[i], 1, 1e-3) << i;
    };
    // A constant probe power: at 10 W/m2 the photon flux grows with the wavelength
    // (2.3e19 and 3.8e19 per m2 and second here), and the QE per photon stays.
    generatieparameters.QEmode = 0;
    generatieparameters.incidentPower = 10;
    expectSame(QEAt(450, 750, 2));
    generatieparameters.QEmode = 1;
    // A probe of other strength gives the same.
    generatieparameters.numberOfPhotons = 5e19;
    expectSame(QEAt(450, 750, 2));
    generatieparameters.numberOfPhotons = 1e19;

    ConvergenceParameters& c = currentCalcVars.parameters->convergence;
    const int maxiter = c.maxiter;
    auto expectEmpty = [](const DataListElement& none) {
        const std::vector<double> zeros(3, 0.0);
        EXPECT_EQ(
            std::tuple(QEConvergenceFailure, none.actie.QE.done, none.actie.QE.points, none.qe_as, none.qe),
            std::tuple(1, 0, 3, zeros, zeros));
    };

    // No solve can end within one pass: the first wavelength fails and there is no curve.
    PrepareWorkingPoint();
    c.maxiter = 1;
    ClearReportedMessages();
    expectEmpty(Sweep(500, 600, 3));
    c.maxiter = maxiter;
    EXPECT_EQ(ReportedMessages().size(), 1u);

    // Two passes: light below the gap changes nothing and is solved at once, a wavelength that is
    // absorbed needs more; the curve keeps the first wavelength.
    PrepareWorkingPoint();
    c.maxiter = 2;
    ClearReportedMessages();
    const DataListElement& cut = Sweep(1000, 400, 3);
    c.maxiter = maxiter;
    EXPECT_EQ(QEConvergenceFailure, 1);
    ASSERT_EQ(cut.actie.QE.done, 1);
    EXPECT_EQ(std::tuple(cut.qe_as, cut.hv_as),
              std::tuple(std::vector<double>{1000, 0, 0}, std::vector<double>{1.239977, 0, 0}));
    EXPECT_NEAR(cut.qe[0], 0, 1e-3);
    ExpectOneMessage(
        "While calculating QE...",
        "Convergence failure at lambda = 700.00 nm.\nQE calculation cut at lambda = 1000.00 nm.");

    // A state that did not converge runs no wavelength.
    PrepareWorkingPoint();
    currentCalcVars.iteration_count = -1;
    ClearReportedMessages();
    expectEmpty(Sweep(500, 600, 3));
    EXPECT_TRUE(ReportedMessages().empty());

    // The same QE around the dark state, where the probe is the only light.
    wis_alles();
    Run(kLinearCell, Action(true));
    EXPECT_EQ(JWorkingPoint, 0);
    expectSame(QEAt(450, 750, 2));

    // Under a generation file the probe is added and taken away again.
    wis_alles();
    test::WriteFile(home / "generation/uniform.gen", "x (um)\tG (/m3s)\n0\t6e26\n5\t6e26\n");
    Run(kLinearCell, Action(false, "uniform.gen"));
    ASSERT_EQ(Generation_Mode, 1);
    expectSame(QEAt(450, 750, 2));
    // The bias record holds the file's profile on the final mesh, without any probe in it; the state
    // reads the bias light again.
    CalculationVariables& cv = currentCalcVars;
    EXPECT_EQ(std::tuple(cv.generation, cv.monochromatic, cv.illumination),
              std::tuple(&generatieparameters, nullptr, nullptr));
    auto fresh = std::make_unique<GenerationParameters>();
    ASSERT_EQ(bereken_generatie_uit_file(cv, *fresh, 0, wp.generationFile, wp.attenuation), 1);
    for (int j = 0; j < cv.mesh.n_points; ++j)
        EXPECT_NEAR(generatieparameters.G[At(j)], fresh->G[At(j)], 1e-12 * fresh->G[At(j)]) << j;

    // The QE is the probe's change of the current from the left to the right contact per photon, with
    // the minus that makes the collected photo-current of a cell with its p side on the left positive.
    // The sign is kept: the cell turned round collects the same share of the probe as a current of the
    // other direction, and its QE is the same number with the other sign.
    wis_alles();
    Run(TurnedRound(kLinearCell), Action(false));
    const std::vector<double> turned = QEAt(450, 750, 2);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_GT(reference[i], 10.0) << i;
        EXPECT_NEAR(turned[i] / reference[i], -1.0, 1e-3) << i;
    }
}

TEST_F(QESweep, AThickAbsorberCollectsEveryPhotonAboveTheGapAndNoneBelow) {
    Run(Cell("5e-6", "1e-6", "1e9"), Action(false));
    const std::vector<double> above = QEAt(400, kGapWavelength - 0.5, 8);
    for (size_t i = 0; i < above.size(); ++i) EXPECT_NEAR(above[i], 100, 1) << i;
    const std::vector<double> below = QEAt(kGapWavelength + 1, 1200, 2);
    for (const double qe : below) EXPECT_NEAR(qe, 0, 1e-3);
}

} // namespace
} // namespace tervo
