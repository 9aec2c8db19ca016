#include "solver/discrete_equations.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "platform/analysis.h"
#include "platform/index.h"
#include "setup/generation.h"

namespace tervo {

int Generation_Mode = 0;
int IPV_Mode = 0;
int MIS_mode = 0;
int calculation_of_current = 1;

namespace {

// The layer structure of the present mesh and the quantities of the normalisation that the rows
// share.
struct Stack {
    const CalculationParameters& P;
    const MeshBlock& mesh;
    const IfrDcTerms& ifr;
    int n;
    int layers;
    double L;
    double kT;

    explicit Stack(const CalculationVariables& cv)
        : P(*cv.parameters), mesh(cv.mesh), ifr(cv.recombination.ifr),
          n(std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS)),
          layers(std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS)), L(cv.parameters->scale.length),
          kT(cv.parameters->kT) {}

    int first(int j) const { return mesh.first_point[At(j)]; }
    int last(int j) const { return mesh.last_point[At(j)]; }
    double h(int i) const { return mesh.h[At(i)]; }
    double N(int j) const { return P.scale.density[At(j)]; }
    // q L^2 / (kT eps0): turns a charge density (/m^3) times a normalised length into the units of
    // eps dpsi/dx in the interface rows.
    double chargeFactor() const { return L * L * Q_ELEM / (kT * EPS0); }
    // L / (kT eps0): the same for a sheet charge in C/m^2.
    double sheetFactor() const { return L / (kT * EPS0); }
};

double Generation(const CalculationVariables& cv, int i) {
    return cv.generation != nullptr ? cv.generation->G[At(i)] : 0.0;
}

// Net rate (recombination minus generation) at point i.
double NetRate(const CalculationVariables& cv, int i) {
    return cv.recombination.dc.R[At(i)] - Generation(cv, i);
}

// Total space charge in units of N_j: ionised doping, free carriers and the charge in defects.
void SpaceCharge(const CalculationVariables& cv, int n, MeshArray& rho) {
    const CalculationParameters& P = *cv.parameters;
    const RecDcTerms& dc = cv.recombination.dc;
    for (size_t i = 0; i < At(n); ++i)
        rho[i] = dc.rho[i] + P.doping[i] + cv.exp_min_psi[i] * (cv.a_p + cv.v[i]) * P.Nv_eff[i] -
                 cv.exp_psi[i] * (cv.a_n + cv.u[i]) * P.Nc_eff[i];
}

// d(space charge)/d(psi) at fixed u and v.
void SpaceChargeDerivative(const CalculationVariables& cv, int n, MeshArray& drho) {
    const CalculationParameters& P = *cv.parameters;
    const RecDcTerms& dc = cv.recombination.dc;
    for (size_t i = 0; i < At(n); ++i)
        drho[i] = dc.drho_dpsi[i] - cv.exp_min_psi[i] * (cv.a_p + cv.v[i]) * P.Nv_eff[i] -
                  cv.exp_psi[i] * (cv.a_n + cv.u[i]) * P.Nc_eff[i];
}

// What distinguishes the electron equation from the hole equation.  The hole equation is the
// electron equation with the density of states, the sign of the potential, the contact targets,
// the velocities and the direction of the Bernoulli factors exchanged.
struct Carrier {
    bool electron;
    const double* D;      // diffusion constant
    const double* Neff;   // Nc_eff or Nv_eff
    const double* expm;   // exp(-psi) for electrons, exp(psi) for holes
    const double* Bleft;  // factor of the link (i-1, i) in row i
    const double* Bright; // factor of the link (i, i+1) in row i, at index i+1
    const double* dR;     // derivative of the bulk rate by the carrier's own variable
    const double* w;      // u or v
    double offset;        // a_n or a_p
    double S_left, S_right;
    double target_left, target_right; // contact values of offset + w
    const double* v_thermionic;
    const double* jtun;
    const double* btb_in;
    const double* btb_out;
    const double* tun_left;  // at the last point of layer j
    const double* tun_right; // at the first point of layer j
    double tun_contact_left, tun_contact_right;
    const double* R_left;             // interface rate at the last point of layer j (interface j)
    const double* R_right;            // interface rate at the first point of layer j+1 (interface j)
    const double* dR_left_own_left;   // d R_left / d(own variable at the left point)
    const double* dR_left_own_right;  // d R_left / d(own variable at the right point)
    const double* dR_right_own_left;  // d R_right / d(own variable at the left point)
    const double* dR_right_own_right; // d R_right / d(own variable at the right point)
};

// w[i] - w[i+1] over every link i = 0 .. n-2 of the mesh, in the precise form of u_difference and
// v_difference: each link once, its reverse taken as the negative.  The two points of an interface
// are neighbours, so the thermionic exchange across it is a link too.
void LinkDifferences(const CalculationVariables& cv, const Carrier& c, int n, MeshArray& d) {
    for (int i = 0; i + 1 < n; ++i)
        d[At(i)] = c.electron ? u_difference(cv, i, i + 1) : v_difference(cv, i, i + 1);
}

Carrier Electrons(const CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    const IfrDcTerms& ifr = cv.recombination.ifr;
    return Carrier{true,
                   P.D_n.data(),
                   P.Nc_eff.data(),
                   cv.exp_min_psi.data(),
                   cv.Bn_plus.data(),
                   cv.Bn_min.data(),
                   cv.recombination.dc.dR_du.data(),
                   cv.u.data(),
                   cv.a_n,
                   P.S_n_left,
                   P.S_n_right,
                   1.0,
                   cv.exp_V,
                   P.v_thermionic_n.data(),
                   cv.jn_tun.data(),
                   cv.btb_n_in.data(),
                   cv.btb_n_out.data(),
                   cv.tun_n_left.data(),
                   cv.tun_n_right.data(),
                   cv.tun_n_contact_left,
                   cv.tun_n_contact_right,
                   ifr.Rn_left.data(),
                   ifr.Rn_right.data(),
                   ifr.dRn_left_du_left.data(),
                   ifr.dRn_left_du_right.data(),
                   ifr.dRn_right_du_left.data(),
                   ifr.dRn_right_du_right.data()};
}

Carrier Holes(const CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    const IfrDcTerms& ifr = cv.recombination.ifr;
    return Carrier{false,
                   P.D_p.data(),
                   P.Nv_eff.data(),
                   cv.exp_psi.data(),
                   cv.Bp_min.data(),
                   cv.Bp_plus.data(),
                   cv.recombination.dc.dR_dv.data(),
                   cv.v.data(),
                   cv.a_p,
                   P.S_p_left,
                   P.S_p_right,
                   1.0,
                   1.0 / cv.exp_V,
                   P.v_thermionic_p.data(),
                   cv.jp_tun.data(),
                   cv.btb_p_in.data(),
                   cv.btb_p_out.data(),
                   cv.tun_p_left.data(),
                   cv.tun_p_right.data(),
                   cv.tun_p_contact_left,
                   cv.tun_p_contact_right,
                   ifr.Rp_left.data(),
                   ifr.Rp_right.data(),
                   ifr.dRp_left_dv_left.data(),
                   ifr.dRp_left_dv_right.data(),
                   ifr.dRp_right_dv_left.data(),
                   ifr.dRp_right_dv_right.data()};
}

// The rate of the half cell between a contact or interface point i and its neighbour b inside the
// layer, as it enters row i: the box of point i reaches only to the middle of that cell.
double HalfCellRate(const CalculationVariables& cv, const Carrier& c, int i, int b, double hb) {
    return (c.expm[i] / c.Neff[i]) * (2 * hb * hb / (c.D[i] + c.D[b])) *
           (NetRate(cv, i) * 0.375 + NetRate(cv, b) * 0.125);
}

// Residual of one continuity equation (Scharfetter-Gummel fluxes in the variable w).
void ContinuityResidual(CalculationVariables& cv, const Carrier& c, std::span<double> F) {
    const Stack s(cv);
    const int n = s.n;
    const int e = n - 1;
    const bool halfCells = s.P.convergence.interfaceBoxTerms != 0;
    MeshArray d; // d[i] = w[i] - w[i+1]
    LinkDifferences(cv, c, n, d);
    for (int j = 0; j < s.layers; ++j) {
        const int first = s.first(j);
        const int last = s.last(j);
        const double Db = (c.D[last] + c.D[first]) / 2;
        for (int i = first; i <= last; ++i) {
            double f;
            if (i == 0) {
                const double w = 2 * s.h(0) / (c.D[1] + c.D[0]);
                f = -c.S_left * w * (c.tun_contact_left + c.offset + c.w[0] - c.target_left) -
                    c.Bright[1] * d[0];
                if (halfCells) f -= HalfCellRate(cv, c, 0, 1, s.h(0));
            } else if (i == e) {
                const double w = 2 * s.h(e - 1) / (c.D[e] + c.D[e - 1]);
                f = c.Bleft[e] * d[At(e - 1)] -
                    c.S_right * w * (c.tun_contact_right + c.offset + c.w[e] - c.target_right);
                if (halfCells) f -= HalfCellRate(cv, c, e, e - 1, s.h(e - 1));
            } else if (i == first) {
                // First point of layer j > 0: thermionic exchange with the last point m of layer j-1.
                const int m = s.last(j - 1);
                assert(m == i - 1);
                const double w = 2 * s.h(i) / (c.D[i + 1] + c.D[i]);
                f = -w * (c.expm[i] / c.Neff[i]) * c.R_right[j - 1] +
                    (s.N(j - 1) / s.N(j)) * (c.Neff[m] / c.Neff[i]) * w * c.v_thermionic[j - 1] *
                        (c.tun_right[j] + d[At(m)]) -
                    c.Bright[i + 1] * d[At(i)];
                if (halfCells) f -= HalfCellRate(cv, c, i, i + 1, s.h(i));
            } else if (i == last) {
                // Last point of layer j below the last layer: thermionic exchange with point k.
                assert(s.first(j + 1) == i + 1);
                const double w = 2 * s.h(i - 1) / (c.D[i - 1] + c.D[i]);
                f = -w * (c.expm[i] / c.Neff[i]) * c.R_left[j] -
                    w * c.v_thermionic[j] * (c.tun_left[j] + d[At(i)]) + c.Bleft[i] * d[At(i - 1)];
                if (halfCells) f -= HalfCellRate(cv, c, i, i - 1, s.h(i - 1));
            } else {
                const double hl = s.h(i - 1);
                const double hr = s.h(i);
                const double hs = hl + hr;
                const double X =
                    c.btb_in[i] - hs * NetRate(cv, i) / 2 - (c.jtun[i] - c.jtun[i - 1]) - c.btb_out[i];
                f = X * c.expm[i] * (hs / 2) / (c.Neff[i] * Db) +
                    0.25 * c.Bleft[i] * (hs / hl) * ((c.D[i - 1] + c.D[i]) / Db) * d[At(i - 1)] +
                    0.25 * c.Bright[i + 1] * (hs / hr) * ((c.D[i + 1] + c.D[i]) / Db) * -d[At(i)];
            }
            F[At(i)] = f;
        }
    }
}

// Jacobian of one continuity equation, each difference taken as linear.
void ContinuityJacobian(CalculationVariables& cv, const Carrier& c, trimatrix& J) {
    const Stack s(cv);
    const int n = s.n;
    const int e = n - 1;
    const bool halfCells = s.P.convergence.interfaceBoxTerms != 0;
    // Derivative of the half-cell rate of row i: on the main diagonal and on neighbour b.
    auto halfCell = [&](int i, int b, double hb, int slotOfB) {
        if (!halfCells) return;
        const double k = (c.expm[i] / c.Neff[i]) * (2 * hb * hb / (c.D[i] + c.D[b]));
        J[i][1] += k * c.dR[i] * 0.375;
        J[i][At(slotOfB)] += k * c.dR[b] * 0.125;
    };
    for (int j = 0; j < s.layers; ++j) {
        const int first = s.first(j);
        const int last = s.last(j);
        const double Db = (c.D[last] + c.D[first]) / 2;
        for (int i = first; i <= last; ++i) {
            std::array<double, 3>& row = J[i];
            if (i == 0) {
                const double w = 2 * s.h(0) / (c.D[1] + c.D[0]);
                row = {0.0, c.S_left * w + c.Bright[1], -c.Bright[1]};
                halfCell(0, 1, s.h(0), 2);
            } else if (i == e) {
                const double w = 2 * s.h(e - 1) / (c.D[e] + c.D[e - 1]);
                row = {-c.Bleft[e], c.S_right * w + c.Bleft[e], 0.0};
                halfCell(e, e - 1, s.h(e - 1), 0);
            } else if (i == first) {
                const int m = s.last(j - 1);
                const double w = 2 * s.h(i) / (c.D[i + 1] + c.D[i]);
                const double d2 = (s.N(j - 1) / s.N(j)) * (c.Neff[m] / c.Neff[i]) * w * c.v_thermionic[j - 1];
                const double d3 = c.expm[i] * w / c.Neff[i];
                row = {d3 * c.dR_right_own_left[j - 1] - d2,
                       d3 * c.dR_right_own_right[j - 1] + d2 + c.Bright[i + 1], -c.Bright[i + 1]};
                halfCell(i, i + 1, s.h(i), 2);
            } else if (i == last) {
                const double w = 2 * s.h(i - 1) / (c.D[i - 1] + c.D[i]);
                const double d2 = w * c.v_thermionic[j];
                const double d3 = c.expm[i] * w / c.Neff[i];
                row = {-c.Bleft[i], d3 * c.dR_left_own_left[j] + d2 + c.Bleft[i],
                       d3 * c.dR_left_own_right[j] - d2};
                halfCell(i, i - 1, s.h(i - 1), 0);
            } else {
                const double hl = s.h(i - 1);
                const double hr = s.h(i);
                const double hs = hl + hr;
                const double sub = -0.25 * c.Bleft[i] * (hs / hl) * ((c.D[i] + c.D[i - 1]) / Db);
                const double sup = -0.25 * c.Bright[i + 1] * (hs / hr) * ((c.D[i + 1] + c.D[i]) / Db);
                const double main = c.expm[i] * hs * hs * c.dR[i] * 0.25 / (c.Neff[i] * Db) - sub - sup;
                row = {sub, main, sup};
            }
        }
    }
}

// The carrier equations of the MIS mode: no transport is solved, the quasi-Fermi level of each
// carrier is flat and tied to one contact.  The layers between the two outer ones follow the
// contact on the side away from the insulator.
void MisResidual(const CalculationVariables& cv, const double* w, double offset, double rightTarget,
                 std::span<double> F) {
    const Stack s(cv);
    const int e = s.n - 1;
    const int lastLayer = s.layers - 1;
    const bool tieRight = s.P.insulator[0] != 0;
    F[0] = 1 - w[0] - offset;
    for (int i = 1; i < e; ++i) {
        bool right = false;
        if (i <= s.last(0))
            right = false;
        else if (i >= s.first(lastLayer))
            right = true;
        else
            right = tieRight;
        F[At(i)] = right ? w[i + 1] - w[i] : w[i - 1] - w[i];
    }
    if (e > 0) F[At(e)] = rightTarget - w[e] - offset;
}

void MisJacobian(const CalculationVariables& cv, trimatrix& J) {
    const Stack s(cv);
    const int e = s.n - 1;
    const int lastLayer = s.layers - 1;
    const bool tieRight = s.P.insulator[0] != 0;
    J[0] = {0.0, 1.0, 0.0};
    for (int i = 1; i < e; ++i) {
        bool right = false;
        if (i <= s.last(0))
            right = false;
        else if (i >= s.first(lastLayer))
            right = true;
        else
            right = tieRight;
        J[i] = right ? std::array<double, 3>{0.0, 1.0, -1.0} : std::array<double, 3>{-1.0, 1.0, 0.0};
    }
    if (e > 0) J[e] = {0.0, 1.0, 0.0};
}

} // namespace

// ---------------------------------------------------------------------------------------------------
// Bernoulli functions.  The branches keep B(x) = x / (exp(x) - 1) and its derivative at full
// precision: the limits for large |x|, a series around 0, and in between forms in exp(-|x|) that never
// overflow.  exp(x) - 1 is taken as expm1(x), which keeps its precision for small x.

double Bern(double x) {
    if (x <= -37.4295) return -x;
    if (x < -6.67569999502574e-10) return x / std::expm1(x);
    if (x <= 2.5999200004478915e-06) return 1 - x / 2;
    if (x < 37.4295) {
        const double y = std::exp(-x);
        return y * x / -std::expm1(-x);
    }
    if (x < 46.7449) return x * std::exp(-x);
    return 0.0;
}

double Bern_deriv(double x) {
    if (x <= -41.1467) return -1.0;
    if (x <= -37.4295) {
        const double e = std::exp(x);
        return e - 1 - x * e;
    }
    if (x < -0.00080011) {
        const double e = std::exp(x);
        const double em1 = std::expm1(x); // e - 1
        return (em1 - x * e) / (em1 * em1);
    }
    if (x <= 9e-05) return -0.5 + x / 6;
    if (x < 37.4295) {
        const double y = std::exp(-x);
        const double one_min_y = -std::expm1(-x); // 1 - y
        return y * (one_min_y - x) / (one_min_y * one_min_y);
    }
    if (x < 52.2919) {
        const double y = std::exp(-x);
        return y - x * y - y * y;
    }
    return 0.0;
}

void BernoulliOfLink(double x, double& Bplus, double& Bmin, double& dBplus, double& dBmin) {
    // With a = |x|, B(a) is the small one of the pair and B(-a) = B(a) + a, B'(-a) = -1 - B'(a) follow
    // from it without cancellation.  B(a) and B'(a) come from one exponential, y = exp(-a) or 1 - y,
    // in forms that never divide by a small difference: B(a) = a y / (1 - y), B'(a) = y (1 - y - a) /
    // (1 - y)^2.
    // Below a = 0.01, where 1 - y - a loses digits, the Taylor series (to a^6 and a^5, the terms
    // left out below 1e-19).  Beyond a = 30 the piecewise forms of Bern and Bern_deriv take over,
    // with their limits for large |x|.
    const double a = std::fabs(x);
    if (a > 30) {
        Bplus = Bern(x);
        Bmin = Bern(-x);
        dBplus = Bern_deriv(x);
        dBmin = Bern_deriv(-x);
        return;
    }
    double small = 0, dsmall = 0;
    if (a < 0.01) {
        const double a2 = a * a;
        small = 1 + a * (-0.5 + a * (1.0 / 12 + a2 * (-1.0 / 720 + a2 * (1.0 / 30240))));
        dsmall = -0.5 + a * (1.0 / 6 + a2 * (-1.0 / 180 + a2 * (1.0 / 5040)));
    } else {
        // Of y and 1 - y the one below 1/2 is formed directly, the other as its complement, which
        // then loses nothing.
        double y = 0, one_min_y = 0;
        if (a < 0.6931471805599453) {
            one_min_y = -std::expm1(-a);
            y = 1 - one_min_y;
        } else {
            y = std::exp(-a);
            one_min_y = 1 - y;
        }
        const double r = 1 / one_min_y;
        small = a * y * r;
        dsmall = y * (one_min_y - a) * r * r;
    }
    const double large = small + a;
    const double dlarge = -1 - dsmall;
    if (x >= 0) {
        Bplus = small;
        Bmin = large;
        dBplus = dsmall;
        dBmin = dlarge;
    } else {
        Bplus = large;
        Bmin = small;
        dBplus = dlarge;
        dBmin = dsmall;
    }
}

void update_psivar(CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    for (size_t i = 0; i < At(n); ++i) {
        cv.exp_psi[i] = std::exp(cv.psi[i]);
        cv.exp_min_psi[i] = 1.0 / cv.exp_psi[i];
    }
    cv.Bn_plus[0] = cv.Bn_min[0] = cv.Bp_plus[0] = cv.Bp_min[0] = 0.0;
    cv.dBn_plus[0] = cv.dBn_min[0] = cv.dBp_plus[0] = cv.dBp_min[0] = 0.0;
    for (size_t i = 1; i < At(n); ++i) {
        // The argument of a link: the step of psi plus the step of the band edge.  Where the two band
        // edges step alike (everywhere but in a graded layer and across an interface) the electrons and
        // the holes share one argument and its factors are formed once.
        const double dpsi = cv.psi[i] - cv.psi[i - 1];
        const double bn = P.band_n[i] - P.band_n[i - 1];
        const double bp = P.band_p[i] - P.band_p[i - 1];
        BernoulliOfLink(dpsi + bn, cv.Bn_plus[i], cv.Bn_min[i], cv.dBn_plus[i], cv.dBn_min[i]);
        if (bp == bn) {
            cv.Bp_plus[i] = cv.Bn_plus[i];
            cv.Bp_min[i] = cv.Bn_min[i];
            cv.dBp_plus[i] = cv.dBn_plus[i];
            cv.dBp_min[i] = cv.dBn_min[i];
        } else {
            BernoulliOfLink(dpsi + bp, cv.Bp_plus[i], cv.Bp_min[i], cv.dBp_plus[i], cv.dBp_min[i]);
        }
    }
}

namespace {

// x_a - x_b for two positive values x = exp(F) of which the levels F_a, F_b are known as well, g =
// F_a - F_b; w_a - w_b when a value is not positive.  When x is a small difference of large numbers
// (a large offset in x = offset + w), the levels keep the relative precision that w has lost: from
// 1e-4 kT on the difference is x_b expm1(g), which holds it, and from 1 kT on simply x_a - x_b,
// where the subtraction loses less than a factor 1.6.  Up to 1e-4 kT, w_a - w_b.
double LevelDifference(double wa, double wb, double xa, double xb, double g) {
    const double ag = std::fabs(g);
    if (xa * xb > 0 && ag > 0.0001) return ag < 1 ? xb * std::expm1(g) : xa - xb;
    return wa - wb;
}

} // namespace

// Each link in one direction (the lower index first), the other direction its negative, so that the
// difference over a link is the same number wherever it is used.
double u_difference(const CalculationVariables& cv, int a, int b) {
    if (a > b) return -u_difference(cv, b, a);
    const size_t A = At(a), B = At(b);
    return LevelDifference(cv.u[A], cv.u[B], cv.a_n + cv.u[A], cv.a_n + cv.u[B], cv.EFn[A] - cv.EFn[B]);
}

double v_difference(const CalculationVariables& cv, int a, int b) {
    if (a > b) return -v_difference(cv, b, a);
    const size_t A = At(a), B = At(b);
    return LevelDifference(cv.v[A], cv.v[B], cv.a_p + cv.v[A], cv.a_p + cv.v[B], cv.EFp[B] - cv.EFp[A]);
}

// ---------------------------------------------------------------------------------------------------
// Poisson's equation.

void bereken_stelsel_psi_Gummel(CalculationVariables& cv, std::span<double> F) {
    const Stack s(cv);
    const int n = s.n;
    assert(F.size() >= At(n));
    const double* eps = s.P.eps.data();
    const double* psi = cv.psi.data();
    MeshArray rho;
    SpaceCharge(cv, n, rho);
    const bool halfCells = s.P.convergence.interfaceBoxTerms != 0;
    const double c = s.chargeFactor();

    for (int j = 0; j < s.layers; ++j) {
        const int first = s.first(j);
        const int last = s.last(j);
        const double eb = (eps[last] + eps[first]) / 2;
        const double lambda = s.P.scale.lambda2[At(j)];
        for (int i = first; i <= last; ++i) {
            double f = 0;
            if (i == 0 || i == n - 1) {
                f = 0; // Dirichlet values of the contacts
            } else if (i == first) {
                f = psi[i - 1] - psi[i]; // the two points of an interface carry one potential
            } else if (i == last) {
                // Gauss's law over the interface, with a second-order one-sided gradient on each side.
                const int k = s.first(j + 1);
                const double hl = s.h(i - 1);
                const double hr = s.h(k);
                double f0 = s.ifr.sigma[At(j)] * s.sheetFactor() +
                            ((eps[k] + 3 * eps[k + 1]) / (3 * eps[k] + eps[k + 1])) * (psi[k + 1] - psi[i]) *
                                (eps[k] / hr) +
                            ((eps[i] + 3 * eps[i - 1]) / (3 * eps[i] + eps[i - 1])) * (psi[i - 1] - psi[i]) *
                                (eps[i] / hl);
                if (halfCells) {
                    f0 += c * (((rho[At(k + 1)] * 0.125) / eps[k + 1] + (rho[At(k)] * 0.375) / eps[k]) *
                                   s.N(j + 1) * eps[k] * hr +
                               ((rho[At(i - 1)] * 0.125) / eps[i - 1] + (rho[At(i)] * 0.375) / eps[i]) *
                                   s.N(j) * eps[i] * hl);
                }
                f = f0 * (hr + hl) / (eps[k] + eps[i]);
            } else {
                const double hl = s.h(i - 1);
                const double hr = s.h(i);
                const double hs = hl + hr;
                f = hs * hs * rho[At(i)] / (4 * lambda) +
                    0.25 * (psi[i - 1] - psi[i]) * (hs / hl) * ((eps[i - 1] + eps[i]) / eb) +
                    0.25 * (psi[i + 1] - psi[i]) * (hs / hr) * ((eps[i + 1] + eps[i]) / eb);
            }
            F[At(i)] = f;
        }
    }
}

void bereken_jac_psi_Gummel(CalculationVariables& cv, trimatrix& J, InterfaceExtra& extra) {
    const Stack s(cv);
    const int n = s.n;
    assert(J.size() >= n);
    const double* eps = s.P.eps.data();
    MeshArray drho;
    SpaceChargeDerivative(cv, n, drho);
    const bool halfCells = s.P.convergence.interfaceBoxTerms != 0;
    const double c = s.chargeFactor();
    extra.fill(0.0);

    for (int j = 0; j < s.layers; ++j) {
        const int first = s.first(j);
        const int last = s.last(j);
        const double eb = (eps[last] + eps[first]) / 2;
        const double lambda = s.P.scale.lambda2[At(j)];
        for (int i = first; i <= last; ++i) {
            std::array<double, 3>& row = J[i];
            if (i == 0 || i == n - 1) {
                row = {0.0, 1.0, 0.0};
            } else if (i == first) {
                row = {-1.0, 1.0, 0.0};
            } else if (i == last) {
                const int k = s.first(j + 1);
                const double hl = s.h(i - 1);
                const double hr = s.h(k);
                const double g1 = (eps[i] + 3 * eps[i - 1]) / (3 * eps[i] + eps[i - 1]);
                const double g2 = (eps[k] + 3 * eps[k + 1]) / (3 * eps[k] + eps[k + 1]);
                double sub = -g1 * eps[i] / hl;
                double main =
                    g2 * eps[k] / hr + g1 * eps[i] / hl - s.ifr.dsigma_dpsi[At(j)] * s.sheetFactor();
                double sup = 0.0;
                double x = -g2 * eps[k] / hr;
                if (halfCells) {
                    sub -= c * (eps[i] / eps[i - 1]) * drho[At(i - 1)] * s.N(j) * hl * 0.125;
                    main -= c * drho[At(i)] * s.N(j) * hl * 0.375;
                    sup -= c * drho[At(k)] * s.N(j + 1) * hr * 0.375;
                    x -= c * (eps[k] / eps[k + 1]) * drho[At(k + 1)] * s.N(j + 1) * hr * 0.125;
                }
                const double scale = (hr + hl) / (eps[k] + eps[i]);
                row = {sub * scale, main * scale, sup * scale};
                extra[At(j)] = x * scale;
            } else {
                const double hl = s.h(i - 1);
                const double hr = s.h(i);
                const double hs = hl + hr;
                const double sub = -0.25 * (hs / hl) * ((eps[i - 1] + eps[i]) / eb);
                const double sup = -0.25 * (hs / hr) * ((eps[i + 1] + eps[i]) / eb);
                const double main = -drho[At(i)] * hs * hs * 0.25 / lambda - sub - sup;
                row = {sub, main, sup};
            }
        }
    }
}

// ---------------------------------------------------------------------------------------------------
// Continuity equations.

void bereken_stelsel_u_Gummel(CalculationVariables& cv, std::span<double> F) {
    assert(F.size() >= At(cv.mesh.n_points));
    if (MIS_mode == 1) {
        MisResidual(cv, cv.u.data(), cv.a_n, cv.exp_V, F);
        return;
    }
    ContinuityResidual(cv, Electrons(cv), F);
}

void bereken_stelsel_v_Gummel(CalculationVariables& cv, std::span<double> F) {
    assert(F.size() >= At(cv.mesh.n_points));
    if (MIS_mode == 1) {
        MisResidual(cv, cv.v.data(), cv.a_p, 1.0 / cv.exp_V, F);
        return;
    }
    ContinuityResidual(cv, Holes(cv), F);
}

void bereken_jac_u_Gummel(CalculationVariables& cv, trimatrix& J) {
    assert(J.size() >= cv.mesh.n_points);
    if (MIS_mode == 1) {
        MisJacobian(cv, J);
        return;
    }
    ContinuityJacobian(cv, Electrons(cv), J);
}

void bereken_jac_v_Gummel(CalculationVariables& cv, trimatrix& J) {
    assert(J.size() >= cv.mesh.n_points);
    if (MIS_mode == 1) {
        MisJacobian(cv, J);
        return;
    }
    ContinuityJacobian(cv, Holes(cv), J);
}

// ---------------------------------------------------------------------------------------------------
// Currents.

void CalculateCurrentProfiles(CalculationVariables& cv, int mode, CurrentProfiles& out) {
    const Stack s(cv);
    const int n = s.n;
    const CalculationParameters& P = s.P;
    const double D0 = P.scale.diffusion;
    for (MeshArray* a : {&out.j_n, &out.j_p, &out.jn_tunnel, &out.jp_tunnel, &out.j_tot})
        std::fill(a->begin(), a->begin() + n, 0.0);
    if (n < 2) {
        cv.J_median = cv.J_spread = 0;
        cv.J_converged = 1;
        return;
    }

    // The link currents in A/m2, stored under the index of the left point of the link.
    for (int j = 0; j < s.layers; ++j) {
        const double f = s.N(j) * D0 * Q_ELEM / s.L;
        for (int i = s.first(j); i < s.last(j); ++i) {
            const size_t I = At(i);
            out.j_n[I] = f * 0.5 * (P.D_n[I + 1] + P.D_n[I]) * P.Nc_eff[I] * cv.Bn_min[I + 1] *
                         cv.exp_psi[I] * u_difference(cv, i, i + 1) / s.h(i);
            out.j_p[I] = f * 0.5 * (P.D_p[I + 1] + P.D_p[I]) * P.Nv_eff[I] * cv.Bp_plus[I + 1] *
                         cv.exp_min_psi[I] * v_difference(cv, i + 1, i) / s.h(i);
        }
        for (int i = s.first(j); i <= s.last(j); ++i) {
            const size_t I = At(i);
            out.jn_tunnel[I] = -f * (cv.jn_tun[I] + cv.btb_current_n[I]);
            out.jp_tunnel[I] = f * (cv.jp_tun[I] + cv.btb_current_p[I]);
        }
    }

    if (mode != 0) {
        // Point values: the last point of a layer takes its one link, an inner point the mean of its
        // two links.  The walk goes downwards so that each mean uses link values.
        for (MeshArray* a : {&out.j_n, &out.j_p, &out.jn_tunnel, &out.jp_tunnel}) {
            MeshArray& q = *a;
            for (int j = s.layers - 1; j >= 0; --j) {
                const int first = s.first(j);
                const int last = s.last(j);
                if (last <= first) continue;
                q[At(last)] = q[At(last - 1)];
                for (int i = last - 1; i > first; --i) q[At(i)] = 0.5 * (q[At(i - 1)] + q[At(i)]);
            }
        }
    }

    if (mode == 2) {
        // A link value is the current in the middle of its link, a point value the mean of two of
        // them; the current at the point itself differs by the net recombination g = R - G in the
        // half links on each side.  Uplus and Umin are those integrals (second order in g) towards
        // the right and the left neighbour, as currents.  The electron current of this convention
        // falls by q g over a length where g acts, the hole current rises: the point value of the
        // electrons is the link value plus Uplus on the right of a point, minus Umin on its left.
        for (int j = 0; j < s.layers; ++j) {
            const int first = s.first(j);
            const int last = s.last(j);
            const double f = s.N(j) * D0 * Q_ELEM / s.L;
            for (int i = first; i <= last; ++i) {
                const double g = NetRate(cv, i);
                const double Uplus = i < last ? f * (NetRate(cv, i + 1) + 3 * g) * s.h(i) / 8 : 0.0;
                const double Umin = i > first ? f * (NetRate(cv, i - 1) + 3 * g) * s.h(i - 1) / 8 : 0.0;
                double c;
                if (i == first)
                    c = Uplus;
                else if (i == last)
                    c = -Umin;
                else
                    c = (Uplus - Umin) / 2;
                out.j_n[At(i)] += c;
                out.j_p[At(i)] -= c;
            }
        }
    }

    // The link formulas count the current positive from right to left (the sign of the electron
    // particle flux in +x).  Results are the conventional current density in +x, from the left
    // contact, where the voltage is applied, to the right one: positive in forward bias of a cell
    // with its p side on the left, negative under light at short circuit.  Also A/m2 to mA/cm2.
    constexpr double kToConventionalMilliAmpPerCm2 = -0.1;
    for (size_t i = 0; i < At(n); ++i) {
        out.j_n[i] *= kToConventionalMilliAmpPerCm2;
        out.j_p[i] *= kToConventionalMilliAmpPerCm2;
        out.jn_tunnel[i] *= kToConventionalMilliAmpPerCm2;
        out.jp_tunnel[i] *= kToConventionalMilliAmpPerCm2;
        out.j_tot[i] = out.j_n[i] + out.j_p[i] + out.jn_tunnel[i] + out.jp_tunnel[i];
    }

    cv.J_median = Median(out.j_tot.data(), n);
    double spread = 0;
    for (size_t i = 0; i < At(n); ++i) spread = std::max(spread, std::fabs(out.j_tot[i] - cv.J_median));
    cv.J_spread = spread;
    const double tolerance =
        std::max(P.convergence.currentZeroAbs, P.convergence.currentZeroRel * std::fabs(cv.J_median));
    cv.J_converged = spread <= tolerance ? 1 : 0;
}

} // namespace tervo
