// The small-signal system of whole junctions against the physics it must reproduce: the depletion
// capacitance equals the quasi-static dQ/dV of the steady state, the conductance at a low frequency
// equals the slope of the steady I-V curve, a deep level adds its charge at low frequency and stops
// following above its emission rate, and the solution meets its boundary values.
#include "solver/ac_system.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "run/control/driver.h"
#include "run/results/extraction.h"
#include "run/sweeps/operating_points.h"
#include "run/sweeps/small_signal_current.h"
#include "solver/ac_recombination.h"
#include "solver/bulk_recombination.h"
#include "solver/interface_recombination.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

using namespace defect_test;
constexpr double eps0 = 8.854e-12;

// Admittance (S/m2) of the solved state at frequency f (Hz).
Admittance Solve(CalculationVariables& cv, double f) {
    amplitude = 1.0;
    omega_us = 2 * M_PI * f;
    omega = omega_us * cv.parameters->scale.time;
    EXPECT_EQ(bereken_klein_signaal(cv), 1);
    extraheer_kleinsignaalstroom(cv);
    return SmallSignalAdmittance(cv);
}

// Current from the left to the right contact, A/m2.
double Current(CalculationVariables& cv) {
    extraheer_stroom(cv, 0);
    return cv.J_median * 10;
}

// Charge of the p side of the dipole, C/m2: holes and ionised acceptors of layer j.  The electrons
// that spill from the n+ side into the edge of the p layer (over a few Debye lengths of the n+ side)
// belong to the other plate: the left contact exchanges holes only, so its charge is this one.
double HoleSideCharge(const Device& d, int j) {
    const CalculationVariables& cv = *d.cv;
    const int a = cv.mesh.first_point[At(j)], b = cv.mesh.last_point[At(j)];
    auto rho = [&](int i) { return d.p(i, j) + d.P->doping[At(i)] * d.N(j); };
    double Q = 0;
    for (int i = a; i < b; ++i)
        Q += 0.5 * (rho(i) + rho(i + 1)) * (cv.mesh.x_m[At(i + 1)] - cv.mesh.x_m[At(i)]);
    return q * Q;
}

// A p/n+ junction: the lightly doped p side on the left, the n+ side on the right, ohmic contacts.
InputParameters OneSidedJunction(const Material& m, double Na, double Nd) {
    InputParameters in = Stack({{m, 1.0e-6, 0, Na}, {m, 0.2e-6, Nd, 0}});
    // Tight steady solutions: a charge difference over 10 mV is a small difference of large numbers.
    in.convergence.termination_psi = in.convergence.termination_Fn = in.convergence.termination_Fp = 1e-10;
    return in;
}

TEST(SmallSignal, DepletionCapacitanceIsTheChargeDerivativeAndTheSignalSitsAtTheRightContact) {
    const Material m;
    const double Na = 1e22, Nd = 1e24;
    const auto d = Build(OneSidedJunction(m, Na, Nd));
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(onder_belichting(cv), 0);
    for (const double V : {-1.0, -0.5, 0.0}) {
        WalkTo(cv, V - 0.005);
        const double Q1 = HoleSideCharge(*d, 0);
        WalkTo(cv, V + 0.005);
        const double Q2 = HoleSideCharge(*d, 0);
        WalkTo(cv, V);
        const double dQdV = std::fabs(Q2 - Q1) / 0.01;
        const Admittance y = Solve(cv, 1e4);
        const double C = y.im / omega_us;
        EXPECT_NEAR(C / dQdV, 1.0, 0.01) << "V = " << V << ": C = " << C << " F/m2, dQ/dV = " << dQdV;
        // The depletion approximation lies close by: eps / W with W from Vbi - V - 2kT.
        const double Vbi = kT * std::log(Na * Nd / m.ni2());
        const double W = std::sqrt(2 * m.eps * eps0 * (Vbi - V - 2 * kT) / (q * Na));
        EXPECT_NEAR(C / (m.eps * eps0 / W), 1.0, 0.05) << "V = " << V;
    }
    // Under forward bias the signal sits at the right contact, and the left contact stays put.
    WalkTo(cv, 0.3);
    amplitude = 0.5; // the response is linear in the amplitude
    omega_us = 2 * M_PI * 1e5;
    omega = omega_us * cv.parameters->scale.time;
    ASSERT_EQ(bereken_klein_signaal(cv), 1);
    extraheer_kleinsignaalstroom(cv);
    const Admittance half = SmallSignalAdmittance(cv);
    const size_t e = At(cv.mesh.n_points - 1);
    EXPECT_DOUBLE_EQ(del_Psi_re[e], -0.5);
    EXPECT_EQ(del_Psi_im[e], 0.0);
    EXPECT_EQ(del_Psi_re[0], 0.0);
    EXPECT_EQ(del_Psi_im[0], 0.0);
    // The majority quasi-Fermi levels follow their contacts: electrons the n+ contact on the right,
    // holes the p contact on the left, which stays at rest.
    EXPECT_NEAR(amplitude + del_u_re[e], 0.5, 1e-6);
    EXPECT_NEAR(del_v_re[0], 0.0, 1e-6);
    const Admittance unit = Solve(cv, 1e5);
    EXPECT_NEAR(half.re / unit.re, 1.0, 1e-9);
    EXPECT_NEAR(half.im / unit.im, 1.0, 1e-9);
    // At omega = 0 nothing is imaginary.
    const Admittance dc = Solve(cv, 0.0);
    for (int i = 0; i < cv.mesh.n_points; ++i) ASSERT_EQ(del_Psi_im[At(i)], 0.0);
    EXPECT_EQ(dc.im, 0.0);
}

// Conductance at 1 Hz against the slope of the steady I-V curve at the same bias.
void ExpectConductanceIsSlope(CalculationVariables& cv, double V) {
    WalkTo(cv, V - 0.002);
    const double J1 = Current(cv);
    WalkTo(cv, V + 0.002);
    const double J2 = Current(cv);
    WalkTo(cv, V);
    const double slope = (J2 - J1) / 0.004;
    const Admittance y = Solve(cv, 1.0);
    EXPECT_NEAR(y.re / slope, 1.0, 0.01) << "V = " << V << ": G = " << y.re << " S/m2, dJ/dV = " << slope;
    // The total current is the same at every point of the mesh.
    for (int i = 0; i < cv.mesh.n_points; ++i)
        ASSERT_NEAR(del_j_tot_re[At(i)] / (y.re * amplitude * kT), 1.0, 0.02) << "point " << i;
}

TEST(SmallSignal, LowFrequencyConductanceIsTheSlopeOfTheIVCurveInTheDarkAndUnderLight) {
    const Material m;
    const double Na = 1e22, Nd = 1e24, Nt = 1e20, sigma = 1e-19;
    InputParameters in = OneSidedJunction(m, Na, Nd);
    AddDefect(in.cellParas.layer[0], DEFECT_NEUTRAL, 1, Nt, sigma, sigma, {m.Eg / 2, 0, 0, 0});
    AddInterfaceDefect(in, DEFECT_ACCEPTOR, 1e15, 0.6);
    const auto d = Build(in);
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(onder_belichting(cv), 0);
    ExpectConductanceIsSlope(cv, 0.45);

    const double G = 1e27; // /m^3 s, uniform
    d->Illuminate(G, 0);
    ASSERT_EQ(onder_belichting(cv), 0);
    ExpectConductanceIsSlope(cv, 0.45);
}

// A p+/n junction with a deep acceptor level in the n side, Ec - 0.35 eV.
struct DeepLevelCell {
    Material m;
    double Na = 1e24, Nd = 1e22, Nt = 3e21, sigma = 1e-19, depth = 0.35;
    double emission() const { return sigma * m.vth * m.Nc * std::exp(-depth / kT); } // /s
    InputParameters make() const {
        InputParameters in = Stack({{m, 0.2e-6, 0, Na}, {m, 1.0e-6, Nd, 0}});
        AddDefect(in.cellParas.layer[1], DEFECT_ACCEPTOR, 1, Nt, sigma, sigma, {m.Eg - depth, 0, 0, 0});
        return in;
    }
};

TEST(SmallSignal, ADeepLevelAddsCapacitanceAtLowFrequencyAndStopsFollowingAboveItsEmissionRate) {
    const DeepLevelCell cell;
    const auto d = Build(cell.make());
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(onder_belichting(cv), 0);
    WalkTo(cv, -0.5);
    const double e_n = cell.emission();
    // C(f) over seven decades around the emission rate, five points a decade, below the dielectric
    // relaxation of the n side (about 1e11 Hz).
    std::vector<double> f, C;
    for (int k = 0; k <= 35; ++k) {
        f.push_back(e_n * std::pow(10.0, -4.0 + k / 5.0));
        const Admittance y = Solve(cv, f.back());
        C.push_back(y.im / omega_us);
        if (k > 0) {
            ASSERT_LE(C[At(k)], C[At(k - 1)] * (1 + 1e-9)) << "C(f) does not rise with frequency";
        }
    }
    const double Clow = C.front(), Chigh = C.back();
    EXPECT_GT(Clow / Chigh, 1.05) << "the defect's charge adds to the low-frequency capacitance";
    // Both ends are plateaus: a decade further changes little.
    EXPECT_NEAR(Solve(cv, f.back() / 10).im / omega_us / Chigh, 1.0, 2e-3);
    EXPECT_NEAR(Solve(cv, f.front() * 10).im / omega_us / Clow, 1.0, 2e-3);
    // The step lies where omega is about twice the emission rate of the level (the level responds
    // where it crosses the Fermi level, where capture and emission are equal).
    const double half = (Clow + Chigh) / 2;
    double fHalf = 0;
    for (size_t k = 1; k < C.size(); ++k)
        if (C[k - 1] >= half && C[k] < half) {
            const double t = (C[k - 1] - half) / (C[k - 1] - C[k]);
            fHalf = std::exp(std::log(f[k - 1]) + t * (std::log(f[k]) - std::log(f[k - 1])));
        }
    ASSERT_GT(fHalf, 0.0);
    const double ratio = 2 * M_PI * fHalf / (2 * e_n);
    EXPECT_GT(ratio, 0.5) << "omega at the step " << 2 * M_PI * fHalf << " /s, e_n " << e_n << " /s";
    EXPECT_LT(ratio, 2.0) << "omega at the step " << 2 * M_PI * fHalf << " /s, e_n " << e_n << " /s";
}

TEST(SmallSignal, BulkAndInterfaceTrapResponsesAreTheSteadyDerivativesAtZeroFrequencyAndVanishWhenFast) {
    // An amphoteric defect (two levels, three charge states) in the n side and a donor at the
    // junction, under forward bias and light, so that capture and emission are all at work.
    DeepLevelCell cell;
    InputParameters in = cell.make();
    AddDefect(in.cellParas.layer[1], DEFECT_AMPHOTERIC, 2, 1e21, 1e-19, 3e-20, {0.5, 0.8, 0, 0});
    AddInterfaceDefect(in, DEFECT_DONOR, 1e15, 0.7);
    const auto d = Build(in);
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    d->Illuminate(1e27, 1);
    ASSERT_EQ(onder_belichting(cv), 0);
    WalkTo(cv, 0.3);
    ASSERT_GT(totale_rdcbijdrage_multilevel(cv), 0);
    const RecDcTerms& dc = cv.recombination.dc_defects;
    AcTerms slow, fast;
    ASSERT_EQ(totale_acr_bijdrage_multilevel(cv, 0.0, slow), 1);
    ASSERT_EQ(totale_acr_bijdrage_multilevel(cv, 1e20 * cv.parameters->scale.time, fast), 1);
    int checked = 0;
    for (int i = cv.mesh.first_point[1] + 1; i < cv.mesh.last_point[1]; i += 7, ++checked) {
        const size_t I = At(i);
        const double hs = cv.mesh.h[I - 1] + cv.mesh.h[I];
        const double wn = cv.a_n + cv.u[I], wp = cv.a_p + cv.v[I];
        const double rho[3] = {dc.drho_dpsi[I], dc.drho_du[I] * wn, -dc.drho_dv[I] * wp};
        const double R[3] = {dc.dR_dpsi[I], dc.dR_du[I] * wn, -dc.dR_dv[I] * wp};
        for (int c = 0; c < 3; ++c) {
            const double scaleRho = std::fabs(rho[0]) + std::fabs(rho[1]) + std::fabs(rho[2]) + 1e-300;
            const double scaleR = (std::fabs(R[0]) + std::fabs(R[1]) + std::fabs(R[2])) * hs / 2 + 1e-300;
            EXPECT_NEAR(slow[I][0][c].re, rho[c], 1e-6 * scaleRho) << "point " << i << " column " << c;
            EXPECT_NEAR(slow[I][1][c].re, -hs / 2 * R[c], 1e-6 * scaleR) << "point " << i << " column " << c;
            EXPECT_NEAR(slow[I][2][c].re, -hs / 2 * R[c], 1e-6 * scaleR) << "point " << i << " column " << c;
            EXPECT_EQ(slow[I][0][c].im, 0.0);
            // Far above every rate the occupations stand still: no charge follows the signal.
            EXPECT_LT(std::hypot(fast[I][0][c].re, fast[I][0][c].im), 1e-6 * scaleRho);
        }
    }
    EXPECT_GT(checked, 5);

    totale_ifrdcbijdrage(cv);
    const IfrDcTerms& t = cv.recombination.ifr;
    IfrAcTerms slowIf, fastIf;
    totale_ifracbijdrage(cv, 0.0, slowIf);
    totale_ifracbijdrage(cv, 1e20 * cv.parameters->scale.time, fastIf);
    const size_t iL = At(cv.mesh.last_point[0]), iR = At(cv.mesh.first_point[1]);
    const double wnL = cv.a_n + cv.u[iL], wnR = cv.a_n + cv.u[iR];
    const double wpL = cv.a_p + cv.v[iL], wpR = cv.a_p + cv.v[iR];
    const IfrAcBlock& b = slowIf[0];
    auto near = [](double a, double e) {
        EXPECT_NEAR(a, e, 1e-9 * std::fabs(e) + 1e-300) << a << " against " << e;
    };
    near(b.left_left[1][1].re, -t.dRn_left_du_left[0] * wnL);
    near(b.left_right[1][1].re, -t.dRn_left_du_right[0] * wnR);
    near(b.left_left[1][2].re, t.dRn_left_dv_left[0] * wpL);
    near(b.left_right[1][2].re, t.dRn_left_dv_right[0] * wpR);
    near(b.right_right[1][1].re, -t.dRn_right_du_right[0] * wnR);
    near(b.right_left[1][1].re, -t.dRn_right_du_left[0] * wnL);
    near(b.left_left[2][2].re, t.dRp_left_dv_left[0] * wpL);
    near(b.left_right[2][2].re, t.dRp_left_dv_right[0] * wpR);
    near(b.right_right[2][1].re, -t.dRp_right_du_right[0] * wnR);
    near(b.left_left[0][0].re + b.left_right[0][0].re, t.dsigma_dpsi[0]);
    // A fast signal leaves the occupation and so the sheet charge where they were.
    EXPECT_LT(std::abs(std::complex<double>(fastIf[0].left_left[0][1].re, fastIf[0].left_left[0][1].im)),
              1e-9 * std::fabs(b.left_left[0][1].re));
}

} // namespace
} // namespace tervo
