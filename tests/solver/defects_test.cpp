// Bulk defects: occupation statistics, charge and Shockley-Read-Hall rate with their derivatives, the
// sampling of energy distributions, and cells that follow textbook defect physics (minority lifetime,
// long-base diode, compensation).  Expected values come from the physics in SI units.
#include "solver/defects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/results/extraction.h"
#include "run/sweeps/operating_points.h"
#include "solver/interface_recombination.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

using namespace defect_test;

// One p-type layer with one defect whose state is set by hand at the middle point i.
struct Probe {
    std::unique_ptr<Device> d;
    int i = 0;
    explicit Probe(int type, int levels, const std::array<double, MAX_LEVELS>& Et,
                   const std::function<void(DefectLevels&)>& adjust = {}) {
        InputParameters in = Stack({{Material{}, 1e-6, 0, 1e22}});
        AddDefect(in.cellParas.layer[0], type, levels, 1e21, 1e-19, 3e-19, Et);
        if (adjust) adjust(in.cellParas.layer[0].srh[0]);
        d = Build(in);
        i = d->points() / 2;
    }
    // Fermi level (eV above the valence band) in equilibrium at potential psi.
    double FermiLevel(double psi) const {
        return d->P->Eg[At(i)] + d->P->chi[At(i)] - d->P->Fi_m_left + psi * kT;
    }
    RecDcTerms Terms(double psi, double wn, double wp) { // wn = a_n + u, wp = a_p + v
        CalculationVariables& c = *d->cv;
        c.a_n = c.a_p = 0;
        c.psi[At(i)] = psi;
        c.exp_psi[At(i)] = std::exp(psi);
        c.exp_min_psi[At(i)] = std::exp(-psi);
        c.u[At(i)] = wn;
        c.v[At(i)] = wp;
        RecDcTerms t;
        EXPECT_EQ(rdcbijdrage_een_niveau_multilevel(c, 0, 0, 0, t), 1);
        return t;
    }
    const RecLevelData& Level(int k) const { return d->cv->recombination.rec_levels[0][0][At(k)][0]; }
    double f(int state) const { // occupation of a state
        const size_t q = At(i - Level(0).first);
        return state == 0 ? Level(0).een_min_f_t[q] : Level(state - 1).f_t[q];
    }
};

TEST(DefectStatistics, OccupationChargeAndRateFollowShockleyReadHallStatistics) {
    for (const int type : {DEFECT_ACCEPTOR, DEFECT_DONOR, DEFECT_NEUTRAL}) {
        Probe p(type, 1, {0.7, 0, 0, 0});
        const RecDcTerms t = p.Terms(3.0, 2.0, 5e3); // np = 1e4 ni^2
        const RecLevelData& L = p.Level(0);
        const size_t q = At(p.i - L.first), i = At(p.i);
        const double n = p.d->n(p.i, 0) / p.d->N(0), pp = p.d->p(p.i, 0) / p.d->N(0);
        const double f = (L.c_n[q] * n + L.e_p[q]) / (L.c_n[q] * n + L.e_p[q] + L.c_p[q] * pp + L.e_n[q]);
        const double charge = type == DEFECT_ACCEPTOR ? -f : type == DEFECT_DONOR ? 1 - f : 0.0;
        EXPECT_NEAR(t.rho[i], L.Nt[q] * charge, 1e-12 * L.Nt[q]) << defectTypeStrings[At(type)];
        // (np - ni^2) / (tau_p (n + n1) + tau_n (p + p1)), whatever the charge type.
        const double ni2 = p.d->P->Nc_eff[i] * p.d->P->Nv_eff[i];
        const double n1 = L.e_n[q] / L.c_n[q], p1 = L.e_p[q] / L.c_p[q];
        EXPECT_NEAR(t.R[i] / (L.Nt[q] * (n * pp - ni2) / ((n + n1) / L.c_p[q] + (pp + p1) / L.c_n[q])), 1.0,
                    1e-12);
    }
    // An amphoteric defect in equilibrium: no net rate, and f(k+1)/f(k) = g_k exp((EF - E_k)/kT) with
    // degeneracies g_k = (K - k)/(1 + k), 2 and 1/2.
    Probe a(DEFECT_AMPHOTERIC, 2, {0.5, 0.7, 0, 0});
    for (const double psi : {-2.0, 8.0, 14.0}) {
        const RecDcTerms t = a.Terms(psi, 1.0, 1.0);
        const double EF = a.FermiLevel(psi);
        EXPECT_EQ(t.R[At(a.i)], 0.0);
        EXPECT_NEAR(a.f(1) / a.f(0) / (2.0 * std::exp((EF - 0.5) / kT)), 1.0, 1e-10);
        EXPECT_NEAR(a.f(2) / a.f(1) / (0.5 * std::exp((EF - 0.7) / kT)), 1.0, 1e-10);
        EXPECT_NEAR(t.rho[At(a.i)], a.Level(0).Nt[0] * (a.f(0) - a.f(2)), 1e-12 * a.Level(0).Nt[0]);
    }
    // Degeneracy factors of one, and a correlation energy that puts the second level 0.3 eV above the
    // first whatever its own energy says.
    Probe c(DEFECT_AMPHOTERIC, 2, {0.5, 0.9, 0, 0}, [](DefectLevels& levels) {
        for (auto& level : levels) {
            level.energy.degeneracyOne = level.energy.correlated = 1;
            level.energy.correlationEnergy = 0.3;
        }
    });
    c.Terms(10.0, 1.0, 1.0);
    EXPECT_NEAR(c.f(1) / c.f(0) / std::exp((c.FermiLevel(10.0) - 0.5) / kT), 1.0, 1e-10);
    EXPECT_NEAR(c.f(2) / c.f(1) / std::exp((c.FermiLevel(10.0) - 0.8) / kT), 1.0, 1e-10);
}

TEST(DefectStatistics, ANearlyFullDefectKeepsItsChargeDerivativeFreeOfCancellation) {
    // The Fermi level 1.03 eV above the valence band: all but ~1e-12 of the defects hold two electrons.
    Probe p(DEFECT_DOUBLEACCEPTOR, 2, {0.2, 0.3, 0, 0});
    const RecDcTerms t = p.Terms(33.0, 1.0, 1.0);
    ASSERT_LT(p.f(1), 1e-10);
    // In equilibrium each ratio of neighbouring states grows as exp(psi): drho/dpsi = -Nt var(k), k the
    // electrons on the defect; with s = 2 - mean(k) the variance has no cancellation.
    const double s = 2 * p.f(0) + p.f(1);
    const double variance =
        p.f(0) * (2 - s) * (2 - s) + p.f(1) * (1 - s) * (1 - s) + (1 - p.f(0) - p.f(1)) * s * s;
    EXPECT_NEAR(t.drho_dpsi[At(p.i)] / (-p.Level(0).Nt[0] * variance), 1.0, 1e-6);
}

TEST(DefectStatistics, DerivativesOfChargeAndRateAgreeWithFiniteDifferences) {
    auto check = [](Probe& p, double psi, double wn, double wp) {
        const size_t i = At(p.i);
        const RecDcTerms t = p.Terms(psi, wn, wp);
        const std::array<double, 3> x{psi, wn, wp};
        const std::array<std::array<double, 2>, 3> analytic{
            {{t.dR_dpsi[i], t.drho_dpsi[i]}, {t.dR_du[i], t.drho_du[i]}, {t.dR_dv[i], t.drho_dv[i]}}};
        double sR = 0, sQ = 0; // scales: the largest change over a relative step of a variable
        for (size_t v = 0; v < 3; ++v) {
            sR = std::max(sR, std::fabs(analytic[v][0] * (v ? x[v] : 1)));
            sQ = std::max(sQ, std::fabs(analytic[v][1] * (v ? x[v] : 1)));
        }
        for (size_t v = 0; v < 3; ++v) {
            std::array<double, 3> up = x, down = x;
            const double h = 1e-6 * (v ? x[v] : 1);
            up[v] += h;
            down[v] -= h;
            const RecDcTerms a = p.Terms(up[0], up[1], up[2]), b = p.Terms(down[0], down[1], down[2]);
            const double w = v ? x[v] : 1;
            EXPECT_NEAR(analytic[v][0] * w, (a.R[i] - b.R[i]) / (2 * h) * w, 1e-6 * sR)
                << "dR, variable " << v;
            EXPECT_NEAR(analytic[v][1] * w, (a.rho[i] - b.rho[i]) / (2 * h) * w, 1e-6 * sQ)
                << "drho, variable " << v;
        }
    };
    Probe single(DEFECT_DONOR, 1, {0.45, 0, 0, 0}); // the closed form of one level
    check(single, 10.0, 3.0, 40.0);
    Probe amphoteric(DEFECT_AMPHOTERIC, 2, {0.45, 0.6, 0, 0});
    check(amphoteric, 10.0, 3.0, 40.0);
    check(amphoteric, 12.0, 0.02, 1.0);
    for (auto& level : amphoteric.d->cv->recombination.rec_levels[0][0]) // optical emission of both carriers
        for (RecLevelData& L : level) {
            std::fill(L.g_n_max.begin(), L.g_n_max.end(), 3e-3);
            std::fill(L.g_p_max.begin(), L.g_p_max.end(), 7e-4);
        }
    check(amphoteric, 11.0, 5.0, 2.0);
    Probe custom(DEFECT_MULTILEVEL, 3, {0.4, 0.5, 0.65, 0}, [](DefectLevels& levels) {
        for (int k = 0; k < 3; ++k) levels[At(k)].aard = 5 - k; // 2+/+, +/0, 0/-
    });
    check(custom, 11.0, 10.0, 0.3);
}

TEST(DefectStatistics, AStepGetsTheTermsItReadsAsAFullEvaluationFormsThem) {
    // Every mechanism at once, away from equilibrium: two-level and one-level, charged and neutral,
    // distributed and single defects, radiative and Auger recombination, an interface trap.
    Material m;
    m.Krad = 1e-16;
    m.Cn = m.Cp = 1e-41;
    InputParameters in = Stack({{m, 1e-6, 0, 1e22}, {Material{}, 0.2e-6, 1e23, 0}});
    in.convergence.defectdiscretisations = 5;
    LayerParameters& layer = in.cellParas.layer[0];
    AddDefect(layer, DEFECT_AMPHOTERIC, 2, 1e21, 1e-19, 3e-19, {0.45, 0.6, 0, 0}, 0, EDIST_GAUSS);
    AddDefect(layer, DEFECT_ACCEPTOR, 1, 1e20, 1e-19, 1e-19, {0.7, 0, 0, 0});
    AddDefect(layer, DEFECT_NEUTRAL, 1, 1e20, 1e-19, 1e-19, {0.5, 0, 0, 0});
    AddInterfaceDefect(in, DEFECT_DONOR, 1e15, 0.6, 0, EDIST_UNIFORM);
    const auto d = Build(in);
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    for (int i = 0; i < d->points(); ++i) { // quasi-Fermi levels split, the levels partly occupied
        cv.u[At(i)] = 2e5 * (1 + i % 7) - cv.a_n;
        cv.v[At(i)] = 1 + 0.5 * (i % 5) - cv.a_p;
    }
    totale_rdcbijdrage_multilevel(cv);
    totale_ifrdcbijdrage(cv);
    const auto full = std::make_unique<RecombinationData>(cv.recombination);
    using Array = MeshArray RecDcTerms::*;
    using Field = IfrDcTerms::PerInterface IfrDcTerms::*;
    const struct {
        RecombinationTerms terms;
        std::vector<Array> bulk;
        std::vector<Field> interface;
    } steps[] = {{POISSON_TERMS,
                  {&RecDcTerms::rho, &RecDcTerms::drho_dpsi},
                  {&IfrDcTerms::sigma, &IfrDcTerms::dsigma_dpsi}},
                 {ELECTRON_TERMS,
                  {&RecDcTerms::R, &RecDcTerms::dR_du},
                  {&IfrDcTerms::Rn_left, &IfrDcTerms::dRn_right_du_left}},
                 {HOLE_TERMS,
                  {&RecDcTerms::R, &RecDcTerms::dR_dv},
                  {&IfrDcTerms::Rp_right, &IfrDcTerms::dRp_left_dv_right}},
                 {CARRIER_TERMS,
                  {&RecDcTerms::dR_du, &RecDcTerms::dR_dv},
                  {&IfrDcTerms::dRn_left_dv_right, &IfrDcTerms::dRp_right_du_left}}};
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& step : steps) {
        RecombinationData& r = cv.recombination;
        for (RecDcTerms* t : {&r.dc, &r.dc_defects, &r.dc_radiative, &r.dc_auger})
            for (const Array a : step.bulk) (t->*a).fill(nan);
        for (const Field f : step.interface) (r.ifr.*f).fill(nan);
        ASSERT_EQ(totale_rdcbijdrage_multilevel(cv, step.terms), 1);
        totale_ifrdcbijdrage(cv, step.terms);
        for (const Array a : step.bulk)
            for (int i = 0; i < d->points(); ++i)
                for (const auto share : {&RecombinationData::dc, &RecombinationData::dc_defects,
                                         &RecombinationData::dc_radiative, &RecombinationData::dc_auger}) {
                    const double want = (full.get()->*share.*a)[At(i)];
                    ASSERT_NEAR((r.*share.*a)[At(i)], want, 1e-14 * std::fabs(want)) << "point " << i;
                }
        for (const Field f : step.interface)
            EXPECT_NEAR((r.ifr.*f)[0], (full->ifr.*f)[0], 1e-14 * std::fabs((full->ifr.*f)[0]));
    }
}

// What n samples of a distribution of total density one hold when summed by the trapezoid rule: the
// density at each sample, steps over the sampled span (six widths of a Gaussian, seven of a tail from
// its edge, the whole of a uniform band), half steps at the ends.  One sample spans no interval.
double SampledShare(int distribution, int n) {
    if (n < 2) return 0;
    const double span = distribution == EDIST_GAUSS ? 6 : distribution == EDIST_UNIFORM ? 1 : 7;
    const double h = span / (n - 1);
    double sum = 0;
    for (int k = 0; k < n; ++k) {
        const double x = k * h; // widths from the start of the span
        const double density = distribution == EDIST_GAUSS ? std::exp(-(x - 3) * (x - 3)) / std::sqrt(M_PI)
                               : distribution == EDIST_UNIFORM ? 1.0
                                                               : std::exp(-x);
        sum += density * (k == 0 || k == n - 1 ? h / 2 : h);
    }
    return sum;
}

TEST(DefectDistributions, TheSamplesHoldTheDensityOfTheDistributionAtTheirEnergies) {
    // An n-type layer with a deep acceptor distribution far below the Fermi level: every level is
    // full, so the trapped charge is what the samples hold.  Each sample holds the density of the
    // distribution at its energy, so the sum is the total only as far as the samples resolve the
    // distribution: 7 samples over the seven widths of a tail (the default) hold 11 % more than the
    // total, 50 samples 0.2 %.  A conduction-band tail given below the conduction band (reference 2)
    // runs down into the gap: its first sample, nearest the band, is the densest and emits fastest.
    struct Row {
        int distribution;
        double Et, Ekar;
        int samples, reference;
    };
    const Row rows[] = {{EDIST_GAUSS, 0.35, 0.05, 7, 0},  {EDIST_UNIFORM, 0.35, 0.2, 5, 0},
                        {EDIST_UNIFORM, 0.35, 0.2, 7, 0}, {EDIST_VBTAIL, 0.0, 0.03, 3, 0},
                        {EDIST_VBTAIL, 0.0, 0.03, 7, 0},  {EDIST_VBTAIL, 0.0, 0.03, 50, 0},
                        {EDIST_CBTAIL, 0.9, 0.03, 7, 2},  {EDIST_CBTAIL, 0.9, 0.03, 12, 2},
                        {EDIST_CBTAIL, 0.9, 0.03, 50, 2}, {EDIST_GAUSS, 0.35, 0.05, 1, 0}};
    const Material m;
    const double Nd = 1e23, Nt = 1e21;
    for (const Row& r : rows) {
        SCOPED_TRACE(::testing::Message()
                     << "distribution " << r.distribution << ", " << r.samples << " samples");
        InputParameters in = Stack({{m, 1e-6, Nd, 0}});
        in.convergence.defectdiscretisations = r.samples;
        AddDefect(in.cellParas.layer[0], DEFECT_ACCEPTOR, 1, Nt, 1e-19, 1e-19, {r.Et, 0, 0, 0}, r.reference,
                  r.distribution, r.Ekar);
        const double expected = SampledShare(r.distribution, r.samples);
        in.cellParas.leftContact.Fi_m = in.cellParas.rightContact.Fi_m =
            WorkFunctionForElectrons(m, Nd - expected * Nt);
        const auto d = Build(in);
        equilibrium(*d->cv);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        const int i = d->points() / 2;
        const double share = -d->cv->recombination.dc_defects.rho[At(i)] * d->N(0) / Nt;
        EXPECT_NEAR(share, expected, 0.005 * std::max(expected, 1e-3));
        // Neutral to the precision of the potential (termination_psi = 1e-3 kT).
        EXPECT_NEAR((d->n(i, 0) + share * Nt) / Nd, 1.0, 1e-3);
        if (r.distribution == EDIST_CBTAIL) {
            const auto& samples = d->cv->recombination.rec_levels[0][0][0];
            const size_t q = At(i - samples[0].first), last = samples.size() - 1;
            EXPECT_GT(samples[0].Nt[q], samples[last].Nt[q]);
            EXPECT_GT(samples[0].e_n[q], samples[last].e_n[q]);
        }
    }
}

TEST(DefectDistributions, TheNumberOfSamplesIsLimitedWithAWarning) {
    ClearReportedMessages();
    EXPECT_EQ(LimitDefectDiscretisations(250), 100);
    EXPECT_EQ(LimitDefectDiscretisations(0), 1);
    EXPECT_EQ(LimitDefectDiscretisations(7), 7);
    ASSERT_EQ(ReportedMessages().size(), 2u);
    EXPECT_EQ(ReportedMessages()[0].text,
              "The maximum number of discretisationlevels for distributed defects is limited to 100 levels.");
}

TEST(DefectCells, ACompensatingDonorShiftsTheBulkBandsByTheChargeItHolds) {
    const Material m;
    const double Na = 1e22, Nt = 5e21, Et = 0.2;    // donor level near the Fermi level of the p layer
    InputParameters in = Stack({{m, 3e-6, 0, Na}}); // contacts at the flat band without the donor
    AddDefect(in.cellParas.layer[0], DEFECT_DONOR, 1, Nt, 1e-19, 1e-19, {Et, 0, 0, 0});
    const auto d = Build(in);
    equilibrium(*d->cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    // Bulk neutrality p + Nt (1 - f) = Na + n, f = 1 / (1 + exp((Et - EF)/kT)), EF above EV.
    auto f = [&](double EF) { return 1 / (1 + std::exp((Et - EF) / kT)); };
    auto charge = [&](double EF) {
        return m.Nv * std::exp(-EF / kT) + Nt * (1 - f(EF)) - Na - m.Nc * std::exp(-(m.Eg - EF) / kT);
    };
    double lo = 0, hi = m.Eg;
    for (int k = 0; k < 200; ++k) ((charge((lo + hi) / 2) > 0) ? lo : hi) = (lo + hi) / 2;
    const double EF = lo;
    const int mid = d->points() / 2;
    // The bulk bands lie lower than at the contacts by the shift of the Fermi level.
    EXPECT_NEAR(d->cv->psi[At(mid)] * kT, EF - kT * std::log(m.Nv / Na), 2e-5);
    EXPECT_NEAR(d->cv->recombination.dc_defects.rho[At(mid)] * d->N(0) / (Nt * (1 - f(EF))), 1.0, 1e-3);
}

TEST(DefectCells, AMidGapAcceptorGivesTheMinorityLifetimeOneOverSigmaVthNt) {
    const Material m;
    const double Na = 1e22, Nt = 1e20, sigma = 1e-19, tau = 1 / (sigma * m.vth * Nt); // 1 µs
    InputParameters in = Stack({{m, 2e-6, 0, Na}});
    AddDefect(in.cellParas.layer[0], DEFECT_ACCEPTOR, 1, Nt, sigma, sigma, {m.Eg / 2, 0, 0, 0});
    // Contacts that take holes freely and no electrons: the injected electrons can only recombine.
    in.cellParas.leftContact.Sn = in.cellParas.rightContact.Sn = 0;
    const auto d = Build(in);
    equilibrium(*d->cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    const double G = 1e-3 * Na / tau; // uniform generation for an excess of 1e-3 Na
    d->Illuminate(G);
    ASSERT_EQ(onder_belichting(*d->cv), 0);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    EXPECT_LE(d->cv->iteration_count, 10) << "consistent Jacobians converge in few passes";
    const double n0 = m.ni2() / Majority(Na, m.ni2());
    for (const int i : {d->points() / 4, d->points() / 2}) {
        const double R = d->rate(d->cv->recombination.dc_defects.R[At(i)], 0);
        EXPECT_NEAR(R / G, 1.0, 1e-3) << "what is generated recombines where it is generated";
        EXPECT_NEAR((d->n(i, 0) - n0) / R / tau, 1.0, 0.02);
    }
}

TEST(DefectCells, ALongBaseDiodeFollowsTheDiffusionCurrentOfItsDiffusionLength) {
    const Material m;
    const double Na = 1e22, Nd = 1e24, Nt = 1e21, sigma = 1e-19, tau = 1 / (sigma * m.vth * Nt); // 0.1 µs
    const double Dn = m.mu_n * kT, Ln = std::sqrt(Dn * tau), ni2 = m.ni2();
    // A p base of five diffusion lengths, an n+ emitter without defects.
    InputParameters in = Stack({{m, 5 * Ln, 0, Na}, {m, 0.3e-6, Nd, 0}});
    AddDefect(in.cellParas.layer[0], DEFECT_ACCEPTOR, 1, Nt, sigma, sigma, {m.Eg / 2, 0, 0, 0});
    in.cellParas.rightContact.Sp = 0; // no holes leave through the emitter: it adds no current
    // The potential of a thick base settles from the linear first guess in steps of at most clamp_psi
    // kT: more than the default limit of the start.
    in.convergence.maxiter_psi_start = 2000;
    const auto d = Build(in);
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    const int junction = cv.mesh.last_point[0];
    for (const double V : {0.5, 0.55, 0.6}) {
        WalkTo(cv, V);
        EXPECT_LE(cv.iteration_count, 10);
        extraheer_stroom(cv, 0);
        const double J = std::fabs(cv.J_median) * 10; // A/m2
        // Recombination in the depletion region (ideality near 2), taken from the solution's own
        // profile and removed: from where the holes fall below Na/2 to the junction.
        int edge = junction;
        while (edge > 0 && d->p(edge - 1, 0) < 0.5 * Na) --edge;
        double depletion = 0;
        for (int i = edge; i < junction; ++i)
            depletion +=
                0.5 *
                (d->rate(cv.recombination.dc.R[At(i)], 0) + d->rate(cv.recombination.dc.R[At(i + 1)], 0)) *
                (cv.mesh.x_m[At(i + 1)] - cv.mesh.x_m[At(i)]);
        // The diode law holds for the voltage over the junction (the 57 µm base drops a few mV): the
        // split of the quasi-Fermi levels at the edge of the depletion region.
        const double split = std::log((cv.a_n + cv.u[At(edge)]) * (cv.a_p + cv.v[At(edge)]));
        EXPECT_NEAR(split * kT, V, 0.005);
        const double expected = q * ni2 * Dn / (Na * Ln) * std::expm1(split);
        EXPECT_NEAR((J - q * depletion) / expected, 1.0, 0.05)
            << V << " V, depletion share " << q * depletion / J;
    }
}

} // namespace
} // namespace tervo
