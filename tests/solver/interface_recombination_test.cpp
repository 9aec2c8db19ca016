// Defects at an interface: a trap that exchanges carriers with both sides, against the two-sided
// Shockley-Read-Hall statistics written here in SI units; the energy references; the derivatives; and
// a junction whose only loss is the interface trap.
#include "solver/interface_recombination.h"

#include <gtest/gtest.h>

#include <numbers>

#include "run/control/driver.h"
#include "run/results/extraction.h"
#include "run/sweeps/operating_points.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

using namespace defect_test;

// p-type absorber on the left; n-type window of wider gap, smaller affinity and other band
// densities on the right (its conduction band 0.1 eV higher, its valence band 0.28 eV lower).
struct Hetero {
    Material left, right{1.5, 3.95, 11.9, 2e24, 1.5e25, 0.05, 0.02, 2e5};
    double Na = 1e22, Nd = 1e23;
};

struct Probe {
    Hetero h;
    InterfaceRecombinationParameters defect;
    std::unique_ptr<Device> d;
    int iL = 0, iR = 0;
    Probe(const Hetero& hetero, int type, double N, double Et, int reference, int distribution = EDIST_SINGLE)
        : h(hetero) {
        InputParameters in = Stack({{h.left, 1e-6, 0, h.Na}, {h.right, 0.5e-6, h.Nd, 0}});
        in.cellParas.leftContact.Sn = in.cellParas.rightContact.Sp = 0; // only majority carriers leave
        defect = AddInterfaceDefect(in, type, N, Et, reference, distribution);
        d = Build(in);
        iL = d->cv->mesh.last_point[0];
        iR = d->cv->mesh.first_point[1];
    }
    IfrDcTerms Terms(const std::array<double, 5>& x) { // psi, u and v left, u and v right
        CalculationVariables& c = *d->cv;
        c.a_n = c.a_p = 0;
        for (const int i : {iL, iR}) {
            c.psi[At(i)] = x[0];
            c.exp_psi[At(i)] = std::exp(x[0]);
            c.exp_min_psi[At(i)] = std::exp(-x[0]);
        }
        c.u[At(iL)] = x[1];
        c.v[At(iL)] = x[2];
        c.u[At(iR)] = x[3];
        c.v[At(iR)] = x[4];
        IfrDcTerms t;
        ifrdcbijdrage_distributie(c, 0, 0, t);
        return t;
    }
    // Net rates of electrons and of holes lost from both sides, /m^2 s.
    std::pair<double, double> Rates(const IfrDcTerms& t) const {
        const double k = d->P->scale.diffusion / d->P->scale.length;
        return {(t.Rn_left[0] * d->N(0) + t.Rn_right[0] * d->N(1)) * k,
                (t.Rp_left[0] * d->N(0) + t.Rp_right[0] * d->N(1)) * k};
    }
    // Two-sided statistics of a trap E eV above the left valence band, SI: occupation and the net
    // capture of electrons and of holes for the densities at the two interface points.
    std::array<double, 3> Physics(double E) const {
        const Material &a = h.left, &b = h.right;
        const double dchi = b.chi - a.chi, dEv = a.Eg - dchi - b.Eg;
        const double nL = d->n(iL, 0), pL = d->p(iL, 0), nR = d->n(iR, 1), pR = d->p(iR, 1);
        const double n1L = a.Nc * std::exp(-(a.Eg - E) / kT), p1L = a.Nv * std::exp(-E / kT);
        const double n1R = b.Nc * std::exp(-(a.Eg - dchi - E) / kT), p1R = b.Nv * std::exp(-(E - dEv) / kT);
        const double cnL = defect.sigma_nleft * a.vth, cnR = defect.sigma_nright * b.vth;
        const double cpL = defect.sigma_pleft * a.vth, cpR = defect.sigma_pright * b.vth;
        const double f = (cnL * nL + cnR * nR + cpL * p1L + cpR * p1R) /
                         (cnL * (nL + n1L) + cnR * (nR + n1R) + cpL * (pL + p1L) + cpR * (pR + p1R));
        return {f, defect.N * (cnL * (nL * (1 - f) - n1L * f) + cnR * (nR * (1 - f) - n1R * f)),
                defect.N * (cpL * (pL * f - p1L * (1 - f)) + cpR * (pR * f - p1R * (1 - f)))};
    }
};

TEST(InterfaceDefects, RatesChargeAndTheirDerivativesFollowTwoSidedStatistics) {
    using F = IfrDcTerms::PerInterface IfrDcTerms::*;
    enum { PSI, UL, VL, UR, VR };
    const std::tuple<F, F, int> checks[] = {{&IfrDcTerms::sigma, &IfrDcTerms::dsigma_dpsi, PSI},
                                            {&IfrDcTerms::Rn_left, &IfrDcTerms::dRn_left_du_left, UL},
                                            {&IfrDcTerms::Rn_left, &IfrDcTerms::dRn_left_du_right, UR},
                                            {&IfrDcTerms::Rn_left, &IfrDcTerms::dRn_left_dv_left, VL},
                                            {&IfrDcTerms::Rn_left, &IfrDcTerms::dRn_left_dv_right, VR},
                                            {&IfrDcTerms::Rn_right, &IfrDcTerms::dRn_right_du_left, UL},
                                            {&IfrDcTerms::Rn_right, &IfrDcTerms::dRn_right_du_right, UR},
                                            {&IfrDcTerms::Rn_right, &IfrDcTerms::dRn_right_dv_left, VL},
                                            {&IfrDcTerms::Rn_right, &IfrDcTerms::dRn_right_dv_right, VR},
                                            {&IfrDcTerms::Rp_left, &IfrDcTerms::dRp_left_dv_left, VL},
                                            {&IfrDcTerms::Rp_left, &IfrDcTerms::dRp_left_dv_right, VR},
                                            {&IfrDcTerms::Rp_left, &IfrDcTerms::dRp_left_du_left, UL},
                                            {&IfrDcTerms::Rp_left, &IfrDcTerms::dRp_left_du_right, UR},
                                            {&IfrDcTerms::Rp_right, &IfrDcTerms::dRp_right_dv_left, VL},
                                            {&IfrDcTerms::Rp_right, &IfrDcTerms::dRp_right_dv_right, VR},
                                            {&IfrDcTerms::Rp_right, &IfrDcTerms::dRp_right_du_left, UL},
                                            {&IfrDcTerms::Rp_right, &IfrDcTerms::dRp_right_du_right, UR}};
    for (const int type : {DEFECT_ACCEPTOR, DEFECT_DONOR, DEFECT_NEUTRAL}) {
        Probe p(Hetero{}, type, 3e15, 0.7, 7);
        const std::array<double, 5> x{20.0, 30.0, 2.0, 45.0, 0.5};
        const IfrDcTerms t = p.Terms(x);
        const auto [f, Un, Up] = p.Physics(0.7);
        const auto [n, h] = p.Rates(t);
        EXPECT_NEAR(Up / Un, 1.0, 1e-9) << "a steady trap passes as many holes as electrons";
        EXPECT_NEAR(n / Un, 1.0, 1e-9) << defectTypeStrings[At(type)];
        EXPECT_NEAR(h / Up, 1.0, 1e-9);
        const double sigma = type == DEFECT_ACCEPTOR ? -f : type == DEFECT_DONOR ? 1 - f : 0.0;
        EXPECT_NEAR(t.sigma[0], q * p.defect.N * sigma, 1e-9 * q * p.defect.N);
        EXPECT_EQ(t.Rn_left_tunnel[0], t.Rn_left[0]) << "no tunnelling, no enhancement";
        // The derivatives against central differences.
        for (size_t c = 0; c < std::size(checks); ++c) {
            const auto& [value, derivative, v] = checks[c];
            std::array<double, 5> up = x, down = x;
            const double step = 1e-6 * x[At(v)];
            up[At(v)] += step;
            down[At(v)] -= step;
            const double numeric = ((p.Terms(up).*value)[0] - (p.Terms(down).*value)[0]) / (2 * step);
            // As the change of the field over a relative change of its variable.
            EXPECT_NEAR((t.*derivative)[0] * x[At(v)], numeric * x[At(v)], 1e-6 * std::fabs((t.*value)[0]))
                << "check " << c;
        }
    }
    // In equilibrium no side gains or loses carriers: the terms cancel to rounding.
    Probe p(Hetero{}, DEFECT_ACCEPTOR, 3e15, 0.5, 7);
    for (const double psi : {5.0, 20.0, 35.0}) {
        const IfrDcTerms t = p.Terms({psi, 1.0, 1.0, 1.0, 1.0});
        const double scale = std::fabs(t.dRn_left_du_left[0]) + std::fabs(t.dRp_right_dv_right[0]);
        for (const double R : {t.Rn_left[0], t.Rn_right[0], t.Rp_left[0], t.Rp_right[0]})
            EXPECT_LT(std::fabs(R), 1e-12 * scale);
    }
    // A Gaussian acceptor band deep below the Fermi level holds its total density as charge.
    Probe g(Hetero{}, DEFECT_ACCEPTOR, 2e15 / (std::sqrt(std::numbers::pi) * 0.04), 0.3, 7, EDIST_GAUSS);
    EXPECT_NEAR(g.Terms({30.0, 1.0, 1.0, 1.0, 1.0}).sigma[0] / (-q * 2e15), 1.0, 0.005);
}

TEST(InterfaceDefects, EveryEnergyReferencePlacesTheSameLevelAtTheSameEnergy) {
    const Hetero h;
    const double E = 0.8; // above the left valence band
    const double dchi = h.right.chi - h.left.chi, dEv = h.left.Eg - dchi - h.right.Eg;
    const double EiL = h.left.Eg / 2 + kT / 2 * std::log(h.left.Nv / h.left.Nc);
    const double EiR = h.right.Eg / 2 + kT / 2 * std::log(h.right.Nv / h.right.Nc);
    const std::pair<int, double> given[] = {{3, E - std::max(dEv, 0.0)},
                                            {4, h.left.Eg - std::max(dchi, 0.0) - E},
                                            {5, E - EiL},
                                            {6, E - dEv - EiR},
                                            {7, E},
                                            {8, E - dEv}};
    for (const auto& [reference, value] : given) {
        const Probe p(h, DEFECT_ACCEPTOR, 1e15, value, reference);
        const IfrLevelData& L = p.d->cv->recombination.ifr_levels[0][0][0];
        EXPECT_NEAR(L.E_trap, E, 1e-12) << "reference " << reference;
        EXPECT_NEAR(L.n1_right * p.d->N(1) / (h.right.Nc * std::exp(-(h.left.Eg - dchi - E) / kT)), 1.0,
                    1e-10);
        EXPECT_NEAR(L.p1_right * p.d->N(1) / (h.right.Nv * std::exp(-(E - dEv) / kT)), 1.0, 1e-10);
    }
}

TEST(InterfaceDefects, AJunctionWhoseOnlyLossIsTheInterfaceTrapCarriesItsRecombinationCurrent) {
    // A homojunction, the trap at the metallurgical junction; contacts take majority carriers only and
    // the bulk does not recombine, so all current flows through the trap.
    Hetero h;
    h.right = h.left;
    h.Nd = 1e22;
    Probe p(h, DEFECT_ACCEPTOR, 1e14, h.left.Eg / 2, 7);
    CalculationVariables& cv = *p.d->cv;
    equilibrium(cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    double previous = 0;
    for (const double V : {0.3, 0.4, 0.5}) {
        WalkTo(cv, V);
        EXPECT_LE(cv.iteration_count, 10) << "consistent Jacobians converge in few passes";
        extraheer_stroom(cv, 0);
        const double J = std::fabs(cv.J_median) * 10; // A/m2
        const double Un = p.Physics(h.left.Eg / 2)[1];
        EXPECT_NEAR(p.Rates(cv.recombination.ifr).first / Un, 1.0, 1e-9) << "the state's interface rate";
        EXPECT_NEAR(J / (q * Un), 1.0, 1e-4) << V << " V"; // every carrier that flows recombines there
        // Flat quasi-Fermi levels, np = ni^2 exp(V/kT), n = p at the trap: ideality 2.
        if (previous > 0) {
            EXPECT_NEAR(0.1 / (kT * std::log(J / previous)), 2.0, 0.1) << V << " V";
        }
        previous = J;
    }
}

} // namespace
} // namespace tervo
