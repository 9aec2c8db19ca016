#include "solver/ac_system.h"

#include <algorithm>
#include <complex>
#include <string>
#include <vector>

#include "platform/index.h"
#include "platform/messages.h"
#include "solver/ac_recombination.h"
#include "solver/discrete_equations.h"

namespace tervo {

SmallSignalSystem kleinsignaal;
double omega_us = 0;
double omega = 0;
double amplitude = 1.0;
MeshArray del_Psi_re{}, del_Psi_im{}, del_u_re{}, del_u_im{}, del_v_re{}, del_v_im{};

namespace {

using cd = std::complex<double>;

void Add(complex3x3& block, int r, int col, cd value) {
    block[r][col].re += value.real();
    block[r][col].im += value.imag();
}

cd ToStd(complex z) {
    return {z.re, z.im};
}

// The quantities of one carrier that its rows need.  sgn is +1 for electrons and -1 for holes:
// n = G (a_n + u) with G = Nc_eff exp(psi), p = G (a_p + v) with G = Nv_eff exp(-psi), so dG/dpsi =
// sgn G, and a deviation dF of the quasi-Fermi level changes the carrier variable by sgn (a + w) dF.
struct AcCarrier {
    bool electron;
    double sgn;
    const CalculationVariables& cv;
    const double* D;
    const double* Neff;
    const double* expo; // exp(psi) for electrons, exp(-psi) for holes
    const double* Bleft;
    const double* Bright;
    const double* dBleft;
    const double* dBright;
    const double* w;
    double offset;
    double S_left, S_right;
    double target_right; // contact value of offset + w at the right
    const double* v_thermionic;
    int col; // column and row of the carrier in a block

    double G(int i) const { return Neff[At(i)] * expo[At(i)]; }
    double W(int i) const { return offset + w[At(i)]; }
    double density(int i) const { return G(i) * W(i); }
    double diff(int a, int b) const { return electron ? u_difference(cv, a, b) : v_difference(cv, a, b); }
};

AcCarrier Electrons(const CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    return AcCarrier{true,
                     1.0,
                     cv,
                     P.D_n.data(),
                     P.Nc_eff.data(),
                     cv.exp_psi.data(),
                     cv.Bn_plus.data(),
                     cv.Bn_min.data(),
                     cv.dBn_plus.data(),
                     cv.dBn_min.data(),
                     cv.u.data(),
                     cv.a_n,
                     P.S_n_left,
                     P.S_n_right,
                     cv.exp_V,
                     P.v_thermionic_n.data(),
                     1};
}

AcCarrier Holes(const CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    return AcCarrier{false,
                     -1.0,
                     cv,
                     P.D_p.data(),
                     P.Nv_eff.data(),
                     cv.exp_min_psi.data(),
                     cv.Bp_min.data(),
                     cv.Bp_plus.data(),
                     cv.dBp_min.data(),
                     cv.dBp_plus.data(),
                     cv.v.data(),
                     cv.a_p,
                     P.S_p_left,
                     P.S_p_right,
                     1.0 / cv.exp_V,
                     P.v_thermionic_p.data(),
                     2};
}

// The linearised flux into point i over the link to its neighbour k = i - 1 or i + 1:
// G_i B (D/h) (w_k - w_i), as coefficients on (dpsi_i, dpsi_k, dF_i, dF_k).
struct LinkCoefficients {
    double psi_i = 0, psi_k = 0, F_i = 0, F_k = 0;
};

LinkCoefficients LinkFlux(const AcCarrier& c, int i, int k) {
    const double* h = c.cv.mesh.h.data();
    LinkCoefficients out;
    const bool left = k < i;
    const int link = left ? i : k; // index of the link's Bernoulli factor
    const double Dk = (c.D[At(i)] + c.D[At(k)]) / 2 / h[At(left ? k : i)];
    const double B = left ? c.Bleft[At(link)] : c.Bright[At(link)];
    const double dB = left ? c.dBleft[At(link)] : c.dBright[At(link)];
    const double Gi = c.G(i);
    const double Wd = c.diff(k, i);
    // The Bernoulli factor of the left link rises with psi_i - psi_(i-1) by sgn dB, that of the
    // right link with psi_i - psi_(i+1).
    out.psi_i = Dk * (c.sgn * Gi * B * Wd + Gi * c.sgn * dB * Wd);
    out.psi_k = -Dk * Gi * c.sgn * dB * Wd;
    out.F_i = -Dk * Gi * B * c.sgn * c.W(i);
    out.F_k = Dk * Gi * B * c.sgn * c.W(k);
    return out;
}

// Adds the flux over the link from i to k into the row of point i.
void AddLink(const AcCarrier& c, int i, int k, complex3x3& main, complex3x3& other) {
    const LinkCoefficients l = LinkFlux(c, i, k);
    Add(main, c.col, 0, l.psi_i);
    Add(main, c.col, c.col, l.F_i);
    Add(other, c.col, 0, l.psi_k);
    Add(other, c.col, c.col, l.F_k);
}

// Net rate of the half cell between a contact or interface point i and its neighbour b in the layer
// (steady derivatives), with the storage of the free carriers in it: the box of i reaches to the
// middle of the link.
void AddHalfCell(const AcCarrier& c, int i, int b, complex3x3& main, complex3x3& other) {
    const CalculationVariables& cv = c.cv;
    const RecDcTerms& dc = cv.recombination.dc;
    const double hb = cv.mesh.h[At(std::min(i, b))];
    auto add = [&](int point, double share, complex3x3& block) {
        const size_t I = At(point);
        const double k = -hb * share;
        Add(block, c.col, 0, k * dc.dR_dpsi[I]);
        Add(block, c.col, 1, k * (cv.a_n + cv.u[I]) * dc.dR_du[I]);
        Add(block, c.col, 2, -k * (cv.a_p + cv.v[I]) * dc.dR_dv[I]);
        const cd store = cd(0, -omega) * hb * share * c.sgn * c.density(point);
        Add(block, c.col, 0, store);
        Add(block, c.col, c.col, store);
    };
    add(i, 0.375, main);
    add(b, 0.125, other);
}

// d rho / d(dpsi, dFn, dFp) at a point, units of N_j: free carriers and the defects' response.
std::array<cd, 3> ChargeResponse(const CalculationVariables& cv, const std::vector<complex3x3>& acr, int i) {
    const size_t I = At(i);
    const CalculationParameters& P = *cv.parameters;
    const double n = cv.exp_psi[I] * (cv.a_n + cv.u[I]) * P.Nc_eff[I];
    const double p = cv.exp_min_psi[I] * (cv.a_p + cv.v[I]) * P.Nv_eff[I];
    return {-p - n + ToStd(acr[I][0][0]), -n + ToStd(acr[I][0][1]), -p + ToStd(acr[I][0][2])};
}

} // namespace

void clear_ac() {
    kleinsignaal = SmallSignalSystem{};
}

void bereken_jacobiaan(const CalculationVariables& cv, const std::vector<complex3x3>& acr,
                       const IfrAcTerms& ifrac) {
    SmallSignalSystem& s = kleinsignaal;
    const CalculationParameters& P = *cv.parameters;
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    const int e = n - 1;
    const int layers = std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
    const double* eps = P.eps.data();
    const double* h = cv.mesh.h.data();
    const bool halfCells = P.convergence.interfaceBoxTerms != 0;
    const double L = P.scale.length;
    const double chargeFactor = L * L * Q_ELEM / (P.kT * EPS0);
    const double sheetFactor = L / (P.kT * EPS0);
    const AcCarrier carriers[2] = {Electrons(cv), Holes(cv)};

    for (int j = 0; j < layers; ++j) {
        const int first = cv.mesh.first_point[At(j)];
        const int last = cv.mesh.last_point[At(j)];
        const double eb = (eps[last] + eps[first]) / 2;
        const double lam = P.scale.lambda2[At(j)] / eb;
        for (int i = first; i <= last; ++i) {
            const size_t I = At(i);
            complex3x3& A = s.a[I];
            complex3x3& Bm = s.b[I];
            complex3x3& C = s.c[I];

            // Poisson's equation.
            if (i == 0 || i == e) {
                A[0][0].re = 1;
            } else if (i == first) {
                Bm[0][0].re = -1;
                A[0][0].re = 1;
            } else if (i == last) {
                // Gauss's law over the interface with one-sided gradients; the second point of the next
                // layer enters through d.
                const int k = cv.mesh.first_point[At(j + 1)];
                Bm[0][0].re += eps[I] / h[I - 1];
                A[0][0].re += -eps[I] / h[I - 1] - eps[At(k)] / h[At(k)];
                s.d[At(j)][0][0].re += eps[At(k)] / h[At(k)];
                // The sheet charge of the interface defects.
                for (int col = 0; col < 3; ++col) {
                    Add(A, 0, col, sheetFactor * ToStd(ifrac[At(j)].left_left[0][col]));
                    Add(C, 0, col, sheetFactor * ToStd(ifrac[At(j)].left_right[0][col]));
                }
                if (halfCells) {
                    // Charge of the half cells on both sides, as in the steady equation.
                    const double Nl = P.scale.density[At(j)], Nr = P.scale.density[At(j + 1)];
                    const auto add = [&](int point, double weight, complex3x3& block) {
                        const std::array<cd, 3> r = ChargeResponse(cv, acr, point);
                        for (int col = 0; col < 3; ++col)
                            Add(block, 0, col, chargeFactor * weight * r[At(col)]);
                    };
                    add(k + 1, 0.125 / eps[At(k + 1)] * Nr * eps[At(k)] * h[At(k)], s.d[At(j)]);
                    add(k, 0.375 / eps[At(k)] * Nr * eps[At(k)] * h[At(k)], C);
                    add(i - 1, 0.125 / eps[I - 1] * Nl * eps[I] * h[I - 1], Bm);
                    add(i, 0.375 / eps[I] * Nl * eps[I] * h[I - 1], A);
                }
            } else {
                const double hs = h[I - 1] + h[I];
                const double sub = (eps[I] + eps[I - 1]) / h[I - 1] * lam / hs;
                const double sup = (eps[I + 1] + eps[I]) / h[I] * lam / hs;
                Bm[0][0].re += sub;
                C[0][0].re += sup;
                A[0][0].re += -sub - sup;
                const std::array<cd, 3> r = ChargeResponse(cv, acr, i);
                for (int col = 0; col < 3; ++col) Add(A, 0, col, r[At(col)]);
            }

            // The two continuity equations.
            for (const AcCarrier& c : carriers) {
                if (i == 0) {
                    AddLink(c, 0, 1, A, C);
                    // Surface recombination S G (W - 1) leaves the box.
                    Add(A, c.col, 0, -c.S_left * c.sgn * c.G(0) * (c.W(0) - 1.0));
                    Add(A, c.col, c.col, -c.S_left * c.G(0) * c.sgn * c.W(0));
                    if (halfCells) AddHalfCell(c, 0, 1, A, C);
                } else if (i == e) {
                    AddLink(c, e, e - 1, A, Bm);
                    Add(A, c.col, 0, -c.S_right * c.sgn * c.G(e) * (c.W(e) - c.target_right));
                    Add(A, c.col, c.col, -c.S_right * c.G(e) * c.sgn * c.W(e));
                    // The contact's equilibrium value moves with its Fermi level: a known term.
                    s.R[I][c.col].re += -c.S_right * c.G(e) * c.sgn * c.target_right * amplitude;
                    if (halfCells) AddHalfCell(c, e, e - 1, A, Bm);
                } else if (i == first) {
                    // Thermionic exchange with the last point m of the layer before.
                    const int m = cv.mesh.last_point[At(j - 1)];
                    AddLink(c, i, i + 1, A, C);
                    const double Th = (P.scale.density[At(j - 1)] / P.scale.density[At(j)]) * c.Neff[At(m)] *
                                      c.expo[I] * c.v_thermionic[At(j - 1)];
                    Add(A, c.col, 0, c.sgn * Th * c.diff(m, i));
                    Add(A, c.col, c.col, -Th * c.sgn * c.W(i));
                    Add(Bm, c.col, c.col, Th * c.sgn * c.W(m));
                    // Capture by the interface defects from this side.
                    for (int col = 0; col < 3; ++col) {
                        Add(Bm, c.col, col, ToStd(ifrac[At(j - 1)].right_left[c.col][col]));
                        Add(A, c.col, col, ToStd(ifrac[At(j - 1)].right_right[c.col][col]));
                    }
                    if (halfCells) AddHalfCell(c, i, i + 1, A, C);
                } else if (i == last) {
                    const int k = cv.mesh.first_point[At(j + 1)];
                    AddLink(c, i, i - 1, A, Bm);
                    const double Th = c.G(i) * c.v_thermionic[At(j)];
                    Add(A, c.col, 0, c.sgn * Th * c.diff(k, i));
                    Add(A, c.col, c.col, -Th * c.sgn * c.W(i));
                    Add(C, c.col, c.col, Th * c.sgn * c.W(k));
                    for (int col = 0; col < 3; ++col) {
                        Add(A, c.col, col, ToStd(ifrac[At(j)].left_left[c.col][col]));
                        Add(C, c.col, col, ToStd(ifrac[At(j)].left_right[c.col][col]));
                    }
                    if (halfCells) AddHalfCell(c, i, i - 1, A, Bm);
                } else {
                    AddLink(c, i, i - 1, A, Bm);
                    AddLink(c, i, i + 1, A, C);
                    // Storage of free carriers in the box: d(carrier)/dt.
                    const double hs = h[I - 1] + h[I];
                    const cd store = cd(0, -omega) * (hs / 2) * c.sgn * c.density(i);
                    Add(A, c.col, 0, store);
                    Add(A, c.col, c.col, store);
                    // Recombination and trapping.
                    for (int col = 0; col < 3; ++col) Add(A, c.col, col, ToStd(acr[I][c.col][col]));
                }
            }
        }
    }
    // The signal: the potential of the right contact moves by -amplitude.
    s.R[At(e)][0] = complex{-amplitude, 0};
}

void los_stelsel_op(const CalculationVariables& cv) {
    SmallSignalSystem& s = kleinsignaal;
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    const int layers = std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
    if (n < 2) return;
    auto lastOf = [&](int j) { return cv.mesh.last_point[At(j)]; };
    auto firstOf = [&](int j) { return cv.mesh.first_point[At(j)]; };

    // Each row times the inverse of its main block: the diagonal becomes the identity.
    for (int j = 0; j < layers; ++j) {
        for (int i = firstOf(j); i <= lastOf(j); ++i) {
            const size_t I = At(i);
            s.S[I] = comkering3x3(s.a[I]);
            s.b[I] = cproduct3x3(s.S[I], s.b[I]);
            s.c[I] = cproduct3x3(s.S[I], s.c[I]);
            s.R[I] = cproduct3x1(s.S[I], s.R[I]);
            if (i == lastOf(j) && j < layers - 1) s.d[At(j)] = cproduct3x3(s.S[I], s.d[At(j)]);
        }
    }

    const complex3x3 I3 = cidentity3x3();
    s.ALFA_1[0] = I3;
    s.GAMMA[0] = s.c[0];
    for (int j = 0; j < layers; ++j) {
        const int f = firstOf(j);
        const int end = j == layers - 1 ? n - 2 : lastOf(j);
        for (int i = f; i <= end; ++i) {
            if (i == 0) continue;
            const size_t I = At(i);
            s.ALFA_1[I] = comkering3x3(cmin3x3(I3, cproduct3x3(s.b[I], s.GAMMA[I - 1])));
            if (i == f && j > 0)
                s.GAMMA[I] =
                    cproduct3x3(s.ALFA_1[I], cmin3x3(s.c[I], cproduct3x3(s.b[I], s.DELTA[At(j - 1)])));
            else
                s.GAMMA[I] = cproduct3x3(s.ALFA_1[I], s.c[I]);
            if (i == lastOf(j) && j < layers - 1) s.DELTA[At(j)] = cproduct3x3(s.ALFA_1[I], s.d[At(j)]);
        }
    }
    const size_t E = At(n - 1);
    s.ALFA_1[E] = comkering3x3(cmin3x3(I3, cproduct3x3(s.b[E], s.GAMMA[E - 1])));

    s.TUSSEN[0] = cproduct3x1(s.ALFA_1[0], s.R[0]);
    for (size_t i = 1; i < At(n); ++i)
        s.TUSSEN[i] = cproduct3x1(s.ALFA_1[i], cmin3x1(s.R[i], cproduct3x1(s.b[i], s.TUSSEN[i - 1])));

    s.KLEIN_X[E] = s.TUSSEN[E];
    for (int i = n - 2; i >= 0; --i) {
        const size_t I = At(i);
        s.KLEIN_X[I] = cmin3x1(s.TUSSEN[I], cproduct3x1(s.GAMMA[I], s.KLEIN_X[I + 1]));
        for (int j = 0; j < layers - 1; ++j)
            if (lastOf(j) == i)
                s.KLEIN_X[I] = cmin3x1(s.KLEIN_X[I], cproduct3x1(s.DELTA[At(j)], s.KLEIN_X[I + 2]));
    }
}

int bereken_klein_signaal(CalculationVariables& cv) {
    const int n = cv.mesh.n_points;
    if (cv.parameters == nullptr || n < 3 || n > MAX_MESH_POINTS) {
        TERVOErrorMessage("Error in function bereken_klein_signaal()",
                          "There is no solved state with a mesh to linearise.");
        return -1;
    }
    clear_ac();
    std::vector<complex3x3> acr;
    const int result = totale_acr_bijdrage_multilevel(cv, omega, acr);
    if (result < 0) {
        TERVOErrorMessage("Error in function bereken_klein_signaal()",
                          "The small-signal terms of a bulk defect could not be formed.");
        return -1;
    }
    IfrAcTerms ifrac;
    totale_ifracbijdrage(cv, omega, ifrac);
    bereken_jacobiaan(cv, acr, ifrac);
    los_stelsel_op(cv);
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        const complex3& x = kleinsignaal.KLEIN_X[I];
        del_Psi_re[I] = x[0].re;
        del_Psi_im[I] = x[0].im;
        del_u_re[I] = x[1].re - amplitude;
        del_u_im[I] = x[1].im;
        del_v_re[I] = x[2].re;
        del_v_im[I] = x[2].im;
    }
    return 1;
}

} // namespace tervo
