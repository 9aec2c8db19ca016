// The I-V characteristic: the cell parameters of hand-made curves outside the common case (points
// beyond the sweep, degenerate fits, equal powers, two points, the user's signs), and whole sweeps of an
// illuminated p-n junction: the order of a two-branch sweep, the fill factor of an ideal diode, the balance
// of generation and losses, the series resistance, the stop after Voc and the limits of a sweep.
#include "run/sweeps/iv_sweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <tuple>
#include <vector>

#include "run/control/action_list.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/results/result_list.h"
#include "run/run_cells.h"
#include "setup/absorption.h"
#include "support/temp_folder.h"

namespace tervo {
namespace {

using namespace run_test;
using test::TempFolder;
using test::WriteFile;

// `n` voltages from `start` in steps of `step`.
void ExpectGrid(const std::vector<double>& v, double start, double step, size_t n) {
    ASSERT_EQ(v.size(), n);
    for (size_t i = 0; i < n; ++i) EXPECT_NEAR(v[i], start + step * static_cast<double>(i), 1e-12) << i;
}

// ---------------------------------------------------------------------------------------------
// Hand-made curves, analysed as measurements (internal convention, light of 1000 W/m2).

SolarCellParameters Analyse(const std::vector<double>& V, const std::vector<double>& J, double Pin = 1000) {
    SolarCellParameters p;
    const MeasuredIllumination light{Pin, 0};
    EXPECT_EQ(IVParameters(V.data(), J.data(), static_cast<int>(V.size()), IV_MEASUREMENT, &p, &light), 1);
    return p;
}

TEST(IVParameters, ExtrapolationsDegenerateFitsEqualPowersTwoPointsAndTheUsersSigns) {
    // Whole curve below zero current and above 0 V: Voc from the last two points, Jsc from the first
    // two.
    SolarCellParameters p = Analyse({0.1, 0.2, 0.3, 0.4}, {-20, -19.9, -19, -10});
    EXPECT_NEAR(p.Voc, 0.4 + 10 * 0.1 / 9, 1e-12);
    EXPECT_NEAR(p.Jsc, 20 + 0.1 * 0.1 / 0.1, 1e-12);
    // An FF on an extrapolated Voc is extrapolated.
    EXPECT_EQ(std::tuple(p.VocExtrapolated, p.JscExtrapolated, p.FFExtrapolated, p.FFValid),
              std::tuple(1, 1, 1, 1));

    // A sweep wholly in reverse bias: Jsc from the last two points.
    p = Analyse({-0.4, -0.3, -0.2, -0.1}, {-21, -20.8, -20.6, -20.5});
    EXPECT_NEAR(p.Jsc, 20.5 - 0.1 * (0.1 / 0.1), 1e-12);

    // A neighbour of the same current is passed over once; a second one leaves no Voc, and no FF.
    p = Analyse({0.1, 0.2, 0.3, 0.4}, {-20, -19.9, -10, -10});
    EXPECT_NEAR(p.Voc, 0.4 + 10 * 0.2 / 9.9, 1e-12);
    EXPECT_EQ(p.VocValid, 1);
    p = Analyse({0.1, 0.2, 0.3, 0.4}, {-20, -10, -10, -10});
    EXPECT_EQ(p.VocValid + p.FFValid, 0);
    EXPECT_EQ(p.Voc + p.FF, 0);

    // A nearly flat curve extrapolates beyond 10 V: no result.
    p = Analyse({0.1, 0.2, 0.3}, {-20, -19.99, -19.98});
    EXPECT_EQ(std::tuple(p.VocValid, p.Voc), std::tuple(0, 0.0));

    // J = 100 (V - 0.2)^2 touches zero at 0.2 V: the parabola through the first three points has a
    // double root, its discriminant is not positive, and the chord of 0 V and 0.5 V gives 0.4 V.
    p = Analyse({0, 0.2, 0.5, 0.8}, {4, 0, 9, -1});
    EXPECT_EQ(p.VocValid, 1);
    EXPECT_NEAR(p.Voc, 0.4, 1e-12);
    // Two equal currents among the three: no Voc and so no FF; Jsc and eta stand.
    p = Analyse({0, 0.2, 0.4, 0.6}, {-20, -5, -5, 10});
    EXPECT_EQ(std::tuple(p.VocValid, p.FFValid, p.Voc, p.etaValid), std::tuple(0, 0, 0.0, 1));
    EXPECT_NEAR(p.Jsc, 20, 1e-12);
    // One point, or one voltage: nothing, and the target keeps what it had.
    const std::vector<double> rising{-1, 0, 1}, same{0.5, 0.5, 0.5};
    const MeasuredIllumination light{1000, 0};
    EXPECT_EQ(IVParameters(same.data(), rising.data(), 1, IV_MEASUREMENT, &p, &light), 0);
    EXPECT_EQ(IVParameters(same.data(), rising.data(), 3, IV_MEASUREMENT, &p, &light), 0);
    EXPECT_EQ(p.Jsc, 20);

    // J = -20 + 25 V: P = 20 V - 25 V^2 peaks at 0.4 V with 4 mW/cm2 between the grid points.
    // Voc extrapolated from the last two points (0.8 V), Jsc the first point (20 mA/cm2).
    p = Analyse({0, 0.25, 0.5, 0.75}, {-20, -13.75, -7.5, -1.25}, 500);
    EXPECT_NEAR(p.V_MPP, 0.4, 1e-12);
    EXPECT_NEAR(p.J_MPP, 10, 1e-10);
    EXPECT_NEAR(p.Voc, 0.8, 1e-12);
    EXPECT_NEAR(p.Jsc, 20, 1e-12);
    // The power turned inside the curve: eta is not extrapolated.
    EXPECT_EQ(std::tuple(p.FFExtrapolated, p.etaExtrapolated), std::tuple(1, 0));
    // Two points of equal power: the mean of the two.
    p = Analyse({0, 0.5, 1.0, 1.5}, {-4, -4, -2, 1});
    EXPECT_EQ(std::tuple(p.V_MPP, p.J_MPP), std::tuple(0.75, 3.0));
    // A current that does not rise around the best point: the point as scanned.
    p = Analyse({0, 0.2, 0.4, 0.6}, {-10, -9, -9.5, 5});
    EXPECT_EQ(std::tuple(p.V_MPP, p.J_MPP), std::tuple(0.4, 9.5));
    // Two points: lines through both, and the better of the two for the power.
    p = Analyse({0, 0.5}, {-10, -2});
    EXPECT_NEAR(p.Jsc, 10, 1e-12);
    EXPECT_NEAR(p.Voc, 0.625, 1e-12);
    EXPECT_EQ(std::tuple(p.V_MPP, p.FFExtrapolated), std::tuple(0.5, 1));

    // A simulated curve in the user's convention is turned back by the cell's signs, and the light
    // comes from the working point.
    const Keep<WorkPoint> keepWp(wp);
    const Keep<CellDefinition> keepCell(zonnecel);
    wis_alles();
    // Internal curve, and the same curve as a user with the voltage at the right contact and a
    // generator's current sees it.
    const std::vector<double> V{0, 0.2, 0.4, 0.6, 0.7}, J{-20, -19.9, -19, -8, 12};
    zonnecel.signV = zonnecel.signJ = -1;
    const std::vector<double> userV{-0.0, -0.2, -0.4, -0.6, -0.7}, userJ{20, 19.9, 19, 8, -12};
    wp.dark = wp.generationFromFile = 0;
    wp.power_incident = 800;
    DataListElement& element = AppendDataListElement(1, Actie{}, wp);
    ASSERT_EQ(IVParameters(userV.data(), userJ.data(), 5, IV_SIMULATION, nullptr), 1);
    const SolarCellParameters expected = Analyse(V, J, 800);
    EXPECT_EQ(element.parameters, expected);
    EXPECT_TRUE(expected.FFValid && expected.VocValid && expected.etaValid);
    wis_alles();
}

// ---------------------------------------------------------------------------------------------
// Sweeps of an illuminated p-n junction.
//
// Silicon-like, 1 µm p-type (left, 1e17 cm-3) on 1 µm n-type (2e17 cm-3), radiative and Auger
// recombination, majority carriers free at the contacts and minority carriers taken at 1 m/s.  A
// uniform generation of 6e26 /m3s over the 2 µm (19.2 mA/cm2) comes from a generation file.
constexpr double Jgen = q * 6e26 * 2e-6 * 0.1; // mA/cm2

class IlluminatedJunction : public ::testing::Test {
protected:
    void SetUp() override {
        InputParameters in = PN({.Krad = 1e-18, .Cn = 1e-42, .Cp = 1e-42}, 1e-6, 1e23, 1e-6, 2e23, 1);
        WriteFile(generationFile, "x (um)\tG (/m3s)\n0\t6e26\n5\t6e26\n");
        Generation_Mode = 1;
        wp.voltage = wp.dark = wp.RsPresent = wp.RshPresent = 0;
        wp.generationFromFile = 1;
        wp.generationFile = generationFile;
        wp.attenuation = 100;
        wp.idealLightCurrent = Jgen;
        wp.numberofpoints = 5;
        zonnecel.signV = zonnecel.signJ = 1;
        pausestatus = actionPanel.stopAfterVoc = 0;
        // Equilibrium, then the short circuit under the whole light; the working point is the short
        // circuit.
        d = Build(in);
        CalculationVariables& cv = *d->cv;
        equilibrium(cv);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        ASSERT_EQ(bereken_generatie_uit_file(cv, *d->light, 0, wp.generationFile, 100), 1);
        onder_belichting(cv);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        for (CalculationVariables* state : {&currentCalcVars, &kortsluitcv, &werkpuntcv})
            CopyCalculationVariables(*state, cv);
        wis_alles();
    }
    void TearDown() override {
        Generation_Mode = actionPanel.stopAfterVoc = 0;
        wis_alles();
    }

    // One I-V request as the driver runs it: a new list element, the starting point, the sweep.
    DataListElement& Sweep(double start, double stop, int points, int* modeOut = nullptr) {
        Actie a;
        a.IV = {1, start, stop, points, 0};
        DataListElement& element = AppendDataListElement(1, a, wp);
        const int mode = CalculateStartingPoint(a.IV.start, a.IV.stop, currentCalcVars, kortsluitcv,
                                                werkpuntcv, "I(V)", 3);
        if (modeOut) *modeOut = mode;
        EXPECT_EQ(calciv(currentCalcVars, a, mode), 1);
        return element;
    }

    Keep<WorkPoint> keepWp{wp};
    TempFolder folder;
    const std::string generationFile = folder / "uniform.gen";
    std::unique_ptr<Device> d;
};
TEST_F(IlluminatedJunction,
       ASweepAcrossZeroIsStoredAscendingASeriesResistanceCostsFillFactorAndASweepCanStopAtVoc) {
    int mode = 0;
    const DataListElement& e = Sweep(-0.2, 0.9, 45, &mode);
    EXPECT_EQ(std::tuple(mode, e.actie.IV.done, e.actie.IV.points), std::tuple(SWEEP_AROUND_ZERO, 45, 45));
    ExpectGrid(e.iv_as, -0.2, 0.025, 45);

    const SolarCellParameters& p = e.parameters;
    ASSERT_EQ(std::tuple(p.VocValid, p.JscValid, p.FFValid, p.etaValid), std::tuple(1, 1, 1, 1));
    EXPECT_EQ(std::tuple(p.VocExtrapolated, p.JscExtrapolated, p.FFExtrapolated), std::tuple(0, 0, 0));
    // An ideal diode (both losses, radiative and at the contacts, go as exp(V/kT)): the fill factor
    // of the exponential curve at this Voc, voc = Voc/kT, by the empirical formula that holds to a
    // few hundredths of a percent for voc above 10.
    const double voc = p.Voc / kT;
    EXPECT_NEAR(p.FF, 100 * (voc - std::log(voc + 0.72)) / (voc + 1), 0.1);
    // Generation from a file: eta is the collected part of the generated current.
    EXPECT_NEAR(p.eta, p.Jsc / Jgen * 100, 1e-9);
    EXPECT_TRUE(p.eta > 95 && p.eta < 100) << p.eta;

    // A series resistance stretches the external axis and costs fill factor but not Voc: the parameters
    // are those of the external curve; at open circuit no current flows through Rs, at the maximum
    // power point it drops Rs J_MPP of the voltage.
    wp.RsPresent = 1;
    wp.Rs = 1e-4; // 1 ohm cm2
    const DataListElement& r = Sweep(0.0, 0.8, 33);
    wp.RsPresent = 0;
    ASSERT_EQ(r.actie.IV.done, 33);
    ExpectGrid(r.rec_v_as, 0, 0.025, 33);
    for (size_t I = 0; I < 33; ++I)
        EXPECT_NEAR(r.iv_as[I], r.rec_v_as[I] + 1e-4 * r.ivcurrent[I] * 10, 1e-12);
    EXPECT_NEAR(r.parameters.Voc, p.Voc, 1e-4);
    EXPECT_NEAR(r.parameters.Jsc, p.Jsc, 0.01 * p.Jsc);
    EXPECT_LT(r.parameters.FF, p.FF - 1.0);

    // Stop after Voc: the branch up from 0 V ends at the first point beyond the sign change, the
    // branch down to -0.2 V still runs.  (The short circuit is made the present state again, so that
    // the sweep starts from it.)
    size_t upToVoc = 1;
    while (-0.2 + 0.025 * static_cast<double>(upToVoc - 1) < p.Voc) ++upToVoc;
    actionPanel.stopAfterVoc = 1;
    CopyCalculationVariables(currentCalcVars, kortsluitcv);
    const DataListElement& stopped = Sweep(-0.2, 0.9, 45, &mode);
    ASSERT_EQ(mode, SWEEP_AROUND_ZERO);
    EXPECT_EQ(std::pair(stopped.actie.IV.points, stopped.actie.IV.done),
              std::pair(static_cast<int>(upToVoc), static_cast<int>(upToVoc)));
    ExpectGrid(stopped.iv_as, -0.2, 0.025, upToVoc);
    EXPECT_NEAR(stopped.parameters.Voc, p.Voc, 1e-12) << "the same three points around the sign change";
    // One branch from 0 V: the curve ends there too.
    const DataListElement& f = Sweep(0.0, 0.9, 37);
    const int n = f.actie.IV.done;
    ASSERT_EQ(n, static_cast<int>(upToVoc) - 8);
    EXPECT_EQ(f.ivcurrent.size(), At(n));
    EXPECT_TRUE(f.ivcurrent[At(n - 2)] < 0 && f.ivcurrent[At(n - 1)] > 0);
}

// The same junction with a neutral mid-gap defect in both layers and at the interface between them.
// The minority currents at the two contacts count as losses, positive whatever the carrier and the
// side: electrons leaving to the left and holes leaving to the right carry a positive conventional
// current, the other two a negative one, so at an n-type left contact the holes' current and at a
// p-type right contact the electrons' current enter with a minus.  With these signs the losses add
// up to the current in all four cases: a junction with its p side on the left and one turned round,
// each in the dark and under uniform light.  The bulk loss is the sum of its three mechanisms.
TEST(ContactMinorityCurrents, WithTheGenerationTheLossesAddUpToTheCurrentForEitherSideOfEitherType) {
    const Material m{.Krad = 1e-18, .Cn = 1e-42, .Cp = 1e-42};
    const double G = 6e26, d = 1e-6, Jlight = q * G * 2 * d * 0.1; // mA/cm2
    for (const bool pLeft : {true, false}) {
        const Slab p{m, d, 0, 1e23}, n{m, d, 1e23, 0};
        InputParameters in = Stack({pLeft ? p : n, pLeft ? n : p}, 1e7);
        // Minority carriers are taken at 100 m/s: enough to make their contact losses count.
        CellDefinition& c = in.cellParas;
        (pLeft ? c.leftContact.Sn : c.leftContact.Sp) = 100;
        (pLeft ? c.rightContact.Sp : c.rightContact.Sn) = 100;
        c.leftContact.contactType = pLeft ? 1 : -1; // the majority carriers: +1 holes, -1 electrons
        c.rightContact.contactType = -c.leftContact.contactType;
        for (LayerParameters* layer : {&c.layer[0], &c.layer[1]})
            AddDefect(*layer, DEFECT_NEUTRAL, 1, 1e20, 1e-19, 1e-19, {0.56, 0, 0, 0});
        AddInterfaceDefect(in, DEFECT_NEUTRAL, 1e14, 0.56);
        const double s = pLeft ? 1 : -1; // forward bias and the direction of the diode current
        for (const double g : {0.0, G}) {
            SCOPED_TRACE(::testing::Message() << (pLeft ? "p" : "n") << " on the left, G = " << g);
            const auto dev = Build(in);
            CalculationVariables& cv = *dev->cv;
            equilibrium(cv);
            dev->Illuminate(g);
            ASSERT_EQ(onder_belichting(cv), 0);
            WalkTo(cv, s * 0.45);
            extraheer_stroom(cv, 0);
            const LossChannelValues loss = LossChannelsOfState(cv);
            EXPECT_GT(loss.leftMinority * loss.rightMinority, 0.0) << "both contacts lose carriers";
            EXPECT_NEAR(loss.bulk, loss.srh + loss.radiative + loss.auger, 1e-12 * loss.bulk);
            const double losses =
                (loss.bulk + loss.interfaces) * 0.1 + loss.leftMinority + loss.rightMinority;
            EXPECT_NEAR(s * cv.J_median, losses - (g > 0 ? Jlight : 0.0), 1e-3 * std::max(losses, Jlight));
        }
    }
}

// A sweep across the working point walks away from its stored state; at most 2001 points are
// calculated; a failed point cuts the curve.
TEST_F(IlluminatedJunction, AcrossTheWorkingPointAtTheLimitOfPointsAndCutAtAFailedPoint) {
    wp.voltage = 0.6;
    CopyCalculationVariables(werkpuntcv, kortsluitcv);
    volgende_iv_punt(werkpuntcv, 0, 0.6, 13);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    update_eb_panel(werkpuntcv, 0);
    const double atWorkingPoint = werkpuntcv.J_median;
    int mode = 0;
    const DataListElement& e = Sweep(0.5, 0.8, 7, &mode);
    EXPECT_EQ(std::tuple(mode, e.actie.IV.done), std::tuple(SWEEP_AROUND_WORKING, 7));
    ExpectGrid(e.iv_as, 0.5, 0.05, 7);
    EXPECT_NEAR(e.ivcurrent[2], atWorkingPoint, 1e-6 * Jgen);

    // 2001 points at one voltage run (the start is reached once, every further step is no step) and
    // give no cell parameters, since the first two voltages are equal.  One more is refused before
    // anything is calculated.
    const DataListElement& many = Sweep(0.5, 0.5, MAX_NUM_CALCULATION_STEPS);
    EXPECT_EQ(many.actie.IV.done, 2001);
    ExpectGrid(many.iv_as, 0.5, 0, 2001);
    EXPECT_EQ(std::tuple(many.parameters.VocValid, many.parameters.JscValid), std::tuple(0, 0));

    Actie a;
    a.IV = {1, 0.0, 0.2, MAX_NUM_CALCULATION_STEPS + 1, 0};
    DataListElement& refused = AppendDataListElement(2, a, wp);
    ClearReportedMessages();
    EXPECT_EQ(calciv(currentCalcVars, a, SWEEP_FROM_START), 0);
    EXPECT_EQ(std::tuple(ReportedMessages().size(), refused.iv_as.size()), std::tuple(1u, 0u));

    // A point that fails cuts the curve at the last good one.
    a.IV = {1, 0.0, 0.4, 5, 0};
    DataListElement& cut = AppendDataListElement(1, a, wp);
    ASSERT_EQ(
        CalculateStartingPoint(a.IV.start, a.IV.stop, currentCalcVars, kortsluitcv, werkpuntcv, "I(V)", 3),
        SWEEP_FROM_START);
    currentCalcVars.iteration_count = -1; // the state fails from the next step on
    ClearReportedMessages();
    EXPECT_EQ(calciv(currentCalcVars, a, SWEEP_FROM_START), 1);
    EXPECT_EQ(std::tuple(IVConvergenceFailure, a.IV.done, cut.actie.IV.points, cut.iv_as.size()),
              std::tuple(1, 1, 5, 5u));
    EXPECT_TRUE(cut.ivcurrent[0] < 0 && cut.ivcurrent[1] == 0) << cut.ivcurrent[0] << " " << cut.ivcurrent[1];
    ExpectOneMessage("While calculating I(V) ...",
                     "Convergence failure at V = 0.100000 Volt.\nI(V) calculation cut at V = 0.000000 Volt.");
}

} // namespace
} // namespace tervo
