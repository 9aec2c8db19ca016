// The discrete equations: Bernoulli functions against a long-double reference at every branch
// threshold, residuals that vanish for states that solve the discrete equations exactly (a charge
// profile with its exact piecewise-quadratic potential, constant-field currents), and Jacobians and
// recombination derivatives against finite differences.
#include "solver/discrete_equations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "setup/generation.h"
#include "setup/mesh.h"
#include "solver/bulk_recombination.h"
#include "solver/gummel.h"
#include "solver/interface_recombination.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

using namespace defect_test;

// ---------------------------------------------------------------------------------------------------
// Bernoulli functions.

long double RefBern(long double x) {
    return x == 0 ? 1.0L : x / std::expm1(x);
}

long double RefBernDeriv(long double x) {
    if (std::fabs(x) < 1e-2L) return -0.5L + x / 6 - x * x * x / 180 + x * x * x * x * x / 5040;
    const long double em1 = std::expm1(x);
    return (em1 - x * std::exp(x)) / (em1 * em1);
}

// Points at and on both sides of a threshold, from the neighbouring doubles to a relative 1e-6.
std::vector<double> Around(double t) {
    std::vector<double> xs{t, std::nextafter(t, -1e300), std::nextafter(t, 1e300)};
    for (double r : {1e-12, 1e-9, 1e-6}) {
        xs.push_back(t * (1 + r));
        xs.push_back(t * (1 - r));
    }
    return xs;
}

// Agreement with the reference: relative where the value is of order one, absolute (1e-18) where
// a branch cuts the function off at a value below that.
void ExpectClose(double got, long double ref, double relative, double x, const char* what) {
    const double tolerance = std::max(relative * std::fabs(static_cast<double>(ref)), 1e-18);
    EXPECT_NEAR(got, static_cast<double>(ref), tolerance) << what << " at x = " << x;
}

TEST(Bernoulli, AgreesWithTheReferenceAtAndAroundEveryBranchThreshold) {
    // The series branch of B near 0 is exact to x^2/12 < 6e-13 of its value; all other branches
    // are exact to rounding.
    for (double t : {-37.4295, -6.67569999502574e-10, 2.5999200004478915e-06, 37.4295, 46.7449})
        for (double x : Around(t)) ExpectClose(Bern(x), RefBern(x), 1e-12, x, "Bern");
    // The series branch of the derivative is exact to |x|^3/180 < 3e-12; the cancellation in the
    // branch next to it costs at most a few 1e-12.
    for (double t : {-41.1467, -37.4295, -0.00080011, 9e-05, 37.4295, 52.2919})
        for (double x : Around(t)) ExpectClose(Bern_deriv(x), RefBernDeriv(x), 1e-11, x, "Bern_deriv");
    EXPECT_EQ(Bern(0.0), 1.0);
    EXPECT_EQ(Bern_deriv(0.0), -0.5);
    EXPECT_EQ(Bern(46.7449), 0.0);
    EXPECT_EQ(Bern_deriv(52.2919), 0.0);
    EXPECT_EQ(Bern(-50.0), 50.0);
    EXPECT_EQ(Bern_deriv(-50.0), -1.0);
}

TEST(Bernoulli, FourFactorsOfALinkHoldFullPrecisionOnBothSides) {
    // The small one of B(x), B(-x) (down to 1e-13 at |x| = 30) must not come out of a cancellation
    // with the large one; the series of the derivatives below |x| = 0.01 meets the exponential form.
    for (double a : {0.0, 1e-9, 0.00999, 0.01, 0.0101, 0.5, 0.6931, 0.6932, 3.0, 17.0, 29.9, 30.0})
        for (double x : {a, -a}) {
            double bp = 0, bm = 0, dbp = 0, dbm = 0;
            BernoulliOfLink(x, bp, bm, dbp, dbm);
            ExpectClose(bp, RefBern(x), 1e-14, x, "B(x)");
            ExpectClose(bm, RefBern(-static_cast<long double>(x)), 1e-14, x, "B(-x)");
            ExpectClose(dbp, RefBernDeriv(x), 1e-12, x, "B'(x)");
            ExpectClose(dbm, RefBernDeriv(-static_cast<long double>(x)), 1e-12, x, "B'(-x)");
        }
}

TEST(Bernoulli, DifferenceOfMirrorArgumentsIsMinusTheArgument) {
    // B(x) - B(-x) = -x: the Scharfetter-Gummel flux vanishes in equilibrium only if it holds.  Up to
    // 2.6e-6 the positive side is the series 1 - x/2, which leaves out x^2/12.
    for (double x = 1e-12; x < 60; x *= 1.37) {
        const double tolerance = 2e-15 * std::max(1.0, x) + (x <= 2.6e-6 ? x * x / 12 : 0.0);
        EXPECT_NEAR(Bern(x) - Bern(-x), -x, tolerance) << "x = " << x;
        EXPECT_NEAR(Bern(-x) - Bern(x), x, tolerance) << "x = " << -x;
    }
}

// ---------------------------------------------------------------------------------------------------
// A two-layer heterojunction on its first mesh.

// p-type absorber with radiative and Auger recombination, n-type window with radiative only.
const Slab kAbsorber{
    {1.15, 4.3, 13.6, 2e24, 1.5e25, 0.01, 0.0025, 1e5, 1e-16, 1e-41, 2e-41}, 1.5e-6, 0, 2e22};
const Slab kWindow{{2.4, 4.2, 9.0, 2.2e24, 1.8e25, 0.0015, 0.0005, 1e5, 2e-16}, 0.3e-6, 1e23, 0};

// The state on a coarse mesh of 25 equal steps per layer instead of the first mesh, whose steps of
// 0.1 nm at the layer edges would hide every term of the half cells at contacts and interfaces.
std::unique_ptr<Device> Make(const InputParameters& in) {
    auto s = Build(in);
    MeshBlock& m = s->cv->mesh;
    const int perLayer = 26;
    double x0 = 0;
    for (int j = 0; j < m.number_of_layers; ++j) {
        const double d = s->P->normalisedThickness[At(j)];
        m.first_point[At(j)] = j * perLayer;
        m.last_point[At(j)] = j * perLayer + perLayer - 1;
        m.points_in_layer[At(j)] = perLayer;
        for (int k = 0; k < perLayer; ++k) m.x[At(j * perLayer + k)] = x0 + d * k / (perLayer - 1);
        x0 += d;
    }
    m.n_points = m.number_of_layers * perLayer;
    CompleteMeshBlock(m, s->P->scale.length);
    Full_x_Dependence(*s->cv);
    return s;
}

// A state away from any solution: psi bent, quasi-Fermi levels split by 0.3 V across the cell.
void GenericState(CalculationVariables& cv) {
    const double V = 0.3 / cv.parameters->kT;
    cv.V_norm = V;
    cv.exp_V = std::exp(V);
    Set_an_And_ap(cv, cv.a_n, cv.a_p);
    const int n = cv.mesh.n_points;
    for (int i = 0; i < n; ++i) {
        const double x = cv.mesh.x[At(i)];
        cv.psi[At(i)] = 30 * x - 12 * x * x + 0.3 * std::sin(9 * x);
        cv.EFn[At(i)] = V * x * x;
        cv.EFp[At(i)] = V * std::sqrt(x);
        cv.u[At(i)] = std::exp(cv.EFn[At(i)]) - cv.a_n;
        cv.v[At(i)] = std::exp(-cv.EFp[At(i)]) - cv.a_p;
    }
    for (int j = 1; j < cv.mesh.number_of_layers; ++j) // one potential at an interface
        cv.psi[At(cv.mesh.first_point[At(j)])] = cv.psi[At(cv.mesh.last_point[At(j - 1)])];
    update_psivar(cv);
    totale_rdcbijdrage_multilevel(cv);
    totale_ifrdcbijdrage(cv);
}

TEST(Residuals, PoissonVanishesForTheExactPiecewiseQuadraticPotentialOfFixedCharges) {
    // No free carriers (a + u = a + v = 0): the space charge is the doping alone, -Na on the left,
    // +Nd on the right, each in its own layer's scale.  The box integration is exact for quadratic
    // psi, and Gauss's law over the interface with its half-cell charges is exact for it too.  Light
    // doping keeps the potential within a few hundred kT.
    Slab left = kAbsorber, right = kWindow;
    left.Na = 1e19;
    right.Nd = 1e20;
    auto s = Make(Stack({left, right}));
    CalculationVariables& cv = *s->cv;
    const CalculationParameters& P = *s->P;
    const MeshBlock& m = cv.mesh;
    const double lambda0 = P.scale.lambda2[0], lambda1 = P.scale.lambda2[1];
    const double rho0 = P.doping[0], rho1 = P.doping[At(m.first_point[1])];
    const double eps0 = left.m.eps, eps1 = right.m.eps;
    const double xI = m.x[At(m.last_point[0])];
    const double B0 = 40.0, C0 = -rho0 / (2 * lambda0), C1 = -rho1 / (2 * lambda1);
    const double psiI = B0 * xI + C0 * xI * xI;
    const double B1 = eps0 * (B0 + 2 * C0 * xI) / eps1; // continuous displacement
    for (int i = 0; i < s->points(); ++i) {
        const double x = m.x[At(i)];
        cv.psi[At(i)] =
            i <= m.last_point[0] ? B0 * x + C0 * x * x : psiI + B1 * (x - xI) + C1 * (x - xI) * (x - xI);
        cv.u[At(i)] = -cv.a_n;
        cv.v[At(i)] = -cv.a_p;
    }
    update_psivar(cv);
    totale_rdcbijdrage_multilevel(cv);
    totale_ifrdcbijdrage(cv);
    std::vector<double> F(At(s->points()));
    bereken_stelsel_psi_Gummel(cv, F);
    // Scale of the terms of a row: the potential differences over one step.
    for (int i = 1; i + 1 < s->points(); ++i) {
        const double scale = std::fabs(cv.psi[At(i + 1)] - cv.psi[At(i - 1)]) + 1e-12;
        EXPECT_NEAR(F[At(i)], 0.0, 1e-9 * scale)
            << "row " << i << " (interface rows " << m.last_point[0] << ", " << m.first_point[1] << ")";
    }
}

TEST(Residuals, ContinuityInnerRowsVanishForTheExactConstantFieldCurrent) {
    // In a constant field psi = E x a constant current needs w' proportional to exp(-psi) for
    // electrons and to exp(psi) for holes; the Scharfetter-Gummel flux is exact for it.
    Slab layer = kAbsorber;
    layer.m.Krad = layer.m.Cn = layer.m.Cp = 0; // no recombination: the current is the same in every link
    auto s = Make(Stack({layer}));
    CalculationVariables& cv = *s->cv;
    const double E = 7.0;
    cv.exp_V = 2.0;
    cv.a_n = cv.a_p = 0.5;
    for (int i = 0; i < s->points(); ++i) {
        const size_t I = At(i);
        const double x = cv.mesh.x[I];
        cv.psi[I] = E * x;
        const double wn = 1 + 3 * (1 - std::exp(-E * x)) / E;
        const double wp = 1 + 2e-3 * (std::exp(E * x) - 1) / E;
        cv.u[I] = wn - cv.a_n;
        cv.v[I] = wp - cv.a_p;
        cv.EFn[I] = std::log(wn);
        cv.EFp[I] = -std::log(wp);
    }
    update_psivar(cv);
    totale_rdcbijdrage_multilevel(cv);
    std::vector<double> Fu(At(s->points())), Fv(At(s->points()));
    bereken_stelsel_u_Gummel(cv, Fu);
    bereken_stelsel_v_Gummel(cv, Fv);
    // Rounding: the differences of w lose what the size of w itself carries.
    for (int i = 1; i + 1 < s->points(); ++i) {
        const size_t I = At(i);
        const double sizeU = (cv.Bn_plus[I] + cv.Bn_min[I + 1]) * (cv.a_n + cv.u[I]);
        const double sizeV = (cv.Bp_min[I] + cv.Bp_plus[I + 1]) * (cv.a_p + cv.v[I]);
        EXPECT_NEAR(Fu[I], 0.0, 1e-12 * sizeU) << "electron row " << i;
        EXPECT_NEAR(Fv[I], 0.0, 1e-12 * sizeV) << "hole row " << i;
    }
}

// ---------------------------------------------------------------------------------------------------
// Jacobians against central differences of the residuals.

using Residual = std::function<void(CalculationVariables&, std::vector<double>&)>;
using Perturb = std::function<void(CalculationVariables&, int, double)>; // adds to variable k
using Step = std::function<double(const CalculationVariables&, int)>;    // step of variable k

// Compares the band of J (and the interface elements, if given) with -dF/dx by central differences.
// The residuals are at most quadratic in u and v (radiative and Auger rates), so central differences
// are exact there and the step may be large against the rounding of u = (a_n + u) - a_n.
void CheckJacobian(CalculationVariables& cv, const trimatrix& J, const InterfaceExtra* extra,
                   const Residual& F, const Perturb& perturb, const Step& step, const char* what) {
    const int n = cv.mesh.n_points;
    std::vector<double> Fp(At(n)), Fm(At(n));
    // Column k touches rows k-1, k, k+1 and, as the interface element, row k-2.
    for (int k = 0; k < n; ++k) {
        const double d = step(cv, k);
        if (d == 0) continue; // a fixed variable
        perturb(cv, k, d);
        F(cv, Fp);
        perturb(cv, k, -2 * d);
        F(cv, Fm);
        perturb(cv, k, d);
        for (int i = std::max(0, k - 2); i <= std::min(n - 1, k + 1); ++i) {
            const double numeric = -(Fp[At(i)] - Fm[At(i)]) / (2 * d);
            double analytic = 0;
            if (k - i >= -1 && k - i <= 1) analytic = J[i][At(k - i + 1)];
            for (int j = 0; extra != nullptr && j + 1 < cv.mesh.number_of_layers; ++j)
                if (i == cv.mesh.last_point[At(j)] && k == i + 2) analytic = (*extra)[At(j)];
            // The size of the row, by the largest derivative in it.
            const double scale = std::max({std::fabs(J[i][0]), std::fabs(J[i][1]), std::fabs(J[i][2])});
            ASSERT_NEAR(analytic, numeric, 1e-6 * scale) << what << ": row " << i << ", column " << k;
        }
    }
}

// The rates follow the carriers, so they are formed anew for every perturbed state.
Residual WithRates(void (*f)(CalculationVariables&, std::span<double>)) {
    return [f](CalculationVariables& c, std::vector<double>& F) {
        totale_rdcbijdrage_multilevel(c);
        f(c, F);
    };
}

TEST(Jacobians, PoissonContinuityAndBandToBandRatesMatchFiniteDifferences) {
    auto s = Make(Stack({kAbsorber, kWindow}));
    CalculationVariables& cv = *s->cv;
    GenericState(cv);
    trimatrix J(s->points());
    InterfaceExtra extra{};

    bereken_jac_psi_Gummel(cv, J, extra);
    CheckJacobian(
        cv, J, &extra,
        [](CalculationVariables& c, std::vector<double>& F) { bereken_stelsel_psi_Gummel(c, F); },
        [](CalculationVariables& c, int k, double d) {
            c.psi[At(k)] += d;
            update_psivar(c);
        },
        [](const CalculationVariables& c, int k) { return k == 0 || k == c.mesh.n_points - 1 ? 0.0 : 1e-6; },
        "psi");

    totale_rdcbijdrage_multilevel(cv);
    bereken_jac_u_Gummel(cv, J);
    CheckJacobian(
        cv, J, nullptr, WithRates(bereken_stelsel_u_Gummel),
        [](CalculationVariables& c, int k, double d) {
            c.u[At(k)] += d;
            c.EFn[At(k)] = std::log(c.a_n + c.u[At(k)]);
        },
        [](const CalculationVariables& c, int k) { return 1e-3 * (c.a_n + c.u[At(k)]); }, "u");

    totale_rdcbijdrage_multilevel(cv);
    bereken_jac_v_Gummel(cv, J);
    CheckJacobian(
        cv, J, nullptr, WithRates(bereken_stelsel_v_Gummel),
        [](CalculationVariables& c, int k, double d) {
            c.v[At(k)] += d;
            c.EFp[At(k)] = -std::log(c.a_p + c.v[At(k)]);
        },
        [](const CalculationVariables& c, int k) { return 1e-3 * (c.a_p + c.v[At(k)]); }, "v");

    // The radiative and Auger rates, point by point, against their own derivatives.
    GenericState(cv);
    auto base = std::make_unique<RecDcTerms>(), plus = std::make_unique<RecDcTerms>(),
         minus = std::make_unique<RecDcTerms>();
    using Terms = void (*)(CalculationVariables&, RecDcTerms&);
    for (Terms terms : {static_cast<Terms>(rdcbijdrage_radiative), static_cast<Terms>(rdcbijdrage_auger)}) {
        terms(cv, *base);
        for (int i = 1; i + 1 < s->points(); ++i) {
            const size_t I = At(i);
            if (i == cv.mesh.last_point[0] || i == cv.mesh.first_point[1]) {
                EXPECT_EQ(base->R[I], 0.0) << "edge points of a layer carry no band-to-band rate";
                continue;
            }
            struct Variable {
                double* x;
                double d;
                double analytic;
                const char* name;
            };
            const double du = 1e-3 * (cv.a_n + cv.u[I]), dv = 1e-3 * (cv.a_p + cv.v[I]);
            for (Variable var :
                 {Variable{&cv.psi[I], 1e-6, base->dR_dpsi[I], "psi"},
                  Variable{&cv.u[I], du, base->dR_du[I], "u"}, Variable{&cv.v[I], dv, base->dR_dv[I], "v"}}) {
                *var.x += var.d;
                update_psivar(cv);
                terms(cv, *plus);
                *var.x -= 2 * var.d;
                update_psivar(cv);
                terms(cv, *minus);
                *var.x += var.d;
                update_psivar(cv);
                const double numeric = (plus->R[I] - minus->R[I]) / (2 * var.d);
                ASSERT_NEAR(var.analytic, numeric, 1e-6 * std::fabs(numeric) + 1e-300)
                    << "dR/d" << var.name << " at point " << i;
            }
            EXPECT_EQ(base->rho[I], 0.0);
        }
    }
}

} // namespace
} // namespace tervo
