#include "solver/interface_recombination.h"

#include <algorithm>

#include "platform/index.h"
#include "solver/defects.h"
#include "solver/discrete_equations.h"

namespace tervo {

namespace {

using PerInterface = IfrDcTerms::PerInterface;

// The per-interface fields of a record, in the order of the record.
template <typename Record>
auto InterfaceFields(Record& t) {
    return std::array{&t.sigma,
                      &t.dsigma_dpsi,
                      &t.Rn_left,
                      &t.Rn_left_tunnel,
                      &t.dRn_left_du_left,
                      &t.dRn_left_du_right,
                      &t.Rn_right,
                      &t.Rn_right_tunnel,
                      &t.dRn_right_du_left,
                      &t.dRn_right_du_right,
                      &t.Rp_left,
                      &t.Rp_left_tunnel,
                      &t.dRp_left_dv_left,
                      &t.dRp_left_dv_right,
                      &t.Rp_right,
                      &t.Rp_right_tunnel,
                      &t.dRp_right_dv_left,
                      &t.dRp_right_dv_right,
                      &t.dRn_left_dv_left,
                      &t.dRn_left_dv_right,
                      &t.dRn_right_dv_left,
                      &t.dRn_right_dv_right,
                      &t.dRp_left_du_left,
                      &t.dRp_left_du_right,
                      &t.dRp_right_du_left,
                      &t.dRp_right_du_right};
}

template <typename Record>
auto MeshFields(Record& t) {
    return std::array{&t.jn_tun, &t.jp_tun};
}

size_t Interfaces(int n_layers) {
    return At(std::clamp(n_layers - 1, 0, MAX_INTERFACES));
}

size_t Points(int n_points) {
    return At(std::clamp(n_points, 0, MAX_MESH_POINTS));
}

// Combines the fields of a and b into out by f, over the interfaces and points in use.
template <typename F>
void Combine(const IfrDcTerms& a, const IfrDcTerms& b, IfrDcTerms& out, int n_layers, int n_points, F f) {
    const auto A = InterfaceFields(a), B = InterfaceFields(b);
    const auto O = InterfaceFields(out);
    for (size_t k = 0; k < O.size(); ++k)
        for (size_t j = 0; j < Interfaces(n_layers); ++j) (*O[k])[j] = f((*A[k])[j], (*B[k])[j]);
    const auto MA = MeshFields(a), MB = MeshFields(b);
    const auto MO = MeshFields(out);
    for (size_t k = 0; k < MO.size(); ++k)
        for (size_t i = 0; i < Points(n_points); ++i) (*MO[k])[i] = f((*MA[k])[i], (*MB[k])[i]);
}

double CurrentFactor(const CalculationVariables& cv, int layer) {
    const ScaleParameters& sc = cv.parameters->scale;
    // The normalised exchange counts particles in +x for electrons and holes alike; the link currents
    // are the conventional current density from the left contact to the right one, in mA/cm2.
    return sc.density[At(layer)] * sc.diffusion * Q_ELEM / sc.length * -0.1;
}

} // namespace

void ifr_dc_initialisatie(IfrDcTerms& terms, int n_layers, int n_points) {
    for (PerInterface* f : InterfaceFields(terms))
        std::fill(f->begin(), f->begin() + static_cast<long>(Interfaces(n_layers)), 0.0);
    for (MeshArray* f : MeshFields(terms))
        std::fill(f->begin(), f->begin() + static_cast<long>(Points(n_points)), 0.0);
}

void tel_ifrdcbijdragen_op(const IfrDcTerms& a, const IfrDcTerms& b, IfrDcTerms& sum, int n_layers,
                           int n_points) {
    Combine(a, b, sum, n_layers, n_points, [](double x, double y) { return x + y; });
}

void maal_ifrdcbijdrage(double factor, const IfrDcTerms& in, IfrDcTerms& out, int n_layers, int n_points) {
    Combine(in, in, out, n_layers, n_points, [factor](double x, double) { return factor * x; });
}

namespace {

// Adds `weight` times the terms that `need` names of one interface defect sample to the fields of its
// interface in `out`, and stores its occupation in `data`.
void AddInterfaceSample(CalculationVariables& cv, IfrLevelData& data, double weight,
                        const RecombinationTerms& need, IfrDcTerms& out) {
    const CalculationParameters& P = *cv.parameters;
    const int j = data.interface;
    const size_t J = At(j);
    const size_t iL = At(cv.mesh.last_point[J]);
    const size_t iR = At(cv.mesh.first_point[J + 1]);
    // Capture by tunnelling from deeper in the layers would set the four enhancement factors here;
    // without a tunnelling model they stay 0 and the rates are the plain two-sided ones.
    const double EL = cv.exp_psi[iL] * P.Nc_eff[iL], ER = cv.exp_psi[iR] * P.Nc_eff[iR];
    const double FL = cv.exp_min_psi[iL] * P.Nv_eff[iL], FR = cv.exp_min_psi[iR] * P.Nv_eff[iR];
    const double nL = (cv.a_n + cv.u[iL]) * EL, nR = (cv.a_n + cv.u[iR]) * ER;
    const double pL = (cv.a_p + cv.v[iL]) * FL, pR = (cv.a_p + cv.v[iR]) * FR;
    const double cnL = (1 + data.gamma_n_left) * data.c_n_left,
                 cnR = (1 + data.gamma_n_right) * data.c_n_right;
    const double cpL = (1 + data.gamma_p_left) * data.c_p_left,
                 cpR = (1 + data.gamma_p_right) * data.c_p_right;
    const double n1L = data.n1_left, n1R = data.n1_right, p1L = data.p1_left, p1R = data.p1_right;

    // The trap exchanges electrons and holes with both sides: A is the rate at which an empty trap
    // is filled, B that at which a full one is emptied, f = A / (A + B).
    const double D = (p1R + pR) * cpR + (p1L + pL) * cpL + (n1R + nR) * cnR + (n1L + nL) * cnL;
    const double A = p1R * cpR + nR * cnR + p1L * cpL + nL * cnL;
    const double B = pR * cpR + n1R * cnR + pL * cpL + n1L * cnL;
    const double f = A / D, g = B / D; // occupied, empty
    data.f_t = f;
    data.een_min_f_t = g;
    const double Nt = data.Nt * weight;

    if (need.charge && (data.aard == 1 || data.aard == 2)) {
        const double q = Q_ELEM;
        out.sigma[J] += data.aard == 1 ? -q * Nt * f : q * Nt * g;
        out.dsigma_dpsi[J] += ((pR * cpR + pL * cpL) * A + (nR * cnR + nL * cnL) * B) * Nt * (-q) / (D * D);
    }

    // Net capture rates of each carrier from each side, normalised as rates per volume times the
    // length of a box: by N L of the side.
    const double kL = 1.0 / (P.scale.density[J] * P.scale.length);
    const double kR = 1.0 / (P.scale.density[J + 1] * P.scale.length);
    if (need.rate) {
        const double RnL =
            ((pR * nL - p1R * n1L) * cpR + (pL * nL - p1L * n1L) * cpL + (n1R * nL - nR * n1L) * cnR) * Nt *
            data.c_n_left * kL / D;
        const double RnR =
            ((pR * nR - p1R * n1R) * cpR + (pL * nR - p1L * n1R) * cpL + (n1L * nR - nL * n1R) * cnL) * Nt *
            data.c_n_right * kR / D;
        const double RpL =
            ((nR * pL - n1R * p1L) * cnR + (nL * pL - n1L * p1L) * cnL + (p1R * pL - pR * p1L) * cpR) * Nt *
            data.c_p_left * kL / D;
        const double RpR =
            ((nR * pR - n1R * p1R) * cnR + (nL * pR - n1L * p1R) * cnL + (p1L * pR - pL * p1R) * cpL) * Nt *
            data.c_p_right * kR / D;
        out.Rn_left[J] += RnL;
        out.Rn_right[J] += RnR;
        out.Rp_left[J] += RpL;
        out.Rp_right[J] += RpR;
        out.Rn_left_tunnel[J] += (1 + data.gamma_n_left) * RnL;
        out.Rn_right_tunnel[J] += (1 + data.gamma_n_right) * RnR;
        out.Rp_left_tunnel[J] += (1 + data.gamma_p_left) * RpL;
        out.Rp_right_tunnel[J] += (1 + data.gamma_p_right) * RpR;
    }

    const double tnL = n1L + nL, tnR = n1R + nR, tpL = p1L + pL, tpR = p1R + pR;
    if (need.rateByU) {
        out.dRn_left_du_left[J] += EL * (1 - tnL * cnL / D) * g * Nt * cnL * kL;
        out.dRn_left_du_right[J] += -ER * (cnR / D) * tnL * g * Nt * cnL * kL;
        out.dRn_right_du_right[J] += (1 + data.gamma_n_right) * ER * (1 - tnR * cnR / D) * g * Nt * cnR * kR;
        out.dRn_right_du_left[J] += -(1 + data.gamma_n_right) * EL * (cnL / D) * tnR * g * Nt * cnR * kR;
        // More electrons fill the trap and so raise its hole capture: these cross derivatives are
        // positive, like those of the electron rates by v.  They are the derivatives of Rp_left and
        // Rp_right as written above; with a minus sign the Jacobian would disagree with its own
        // residual and the Newton steps at a trapped interface would go astray.
        out.dRp_left_du_left[J] += EL * tpL * g * Nt * cnL * cpL * kL / D;
        out.dRp_left_du_right[J] += ER * tpL * g * Nt * cnR * cpL * kL / D;
        out.dRp_right_du_left[J] += EL * tpR * g * Nt * cnL * cpR * kR / D;
        out.dRp_right_du_right[J] += ER * tpR * g * Nt * cnR * cpR * kR / D;
    }
    if (need.rateByV) {
        out.dRn_left_dv_left[J] += FL * tnL * f * Nt * cpL * cnL * kL / D;
        out.dRn_left_dv_right[J] += FR * tnL * f * Nt * cpR * cnL * kL / D;
        out.dRn_right_dv_left[J] += FL * tnR * f * Nt * cpL * cnR * kR / D;
        out.dRn_right_dv_right[J] += FR * tnR * f * Nt * cpR * cnR * kR / D;
        out.dRp_left_dv_left[J] += FL * (1 - tpL * cpL / D) * f * Nt * cpL * kL;
        out.dRp_left_dv_right[J] += -FR * (cpR / D) * tpL * f * Nt * cpL * kL;
        out.dRp_right_dv_right[J] += FR * (1 - tpR * cpR / D) * f * Nt * cpR * kR;
        out.dRp_right_dv_left[J] += -FL * (cpL / D) * tpR * f * Nt * cpR * kR;
    }
}

// The terms that `need` names of one interface defect summed over its energy axis (the trapezoid
// weight of each sample), added to the fields of its interface in `out`.
void AddInterfaceDefect(CalculationVariables& cv, int interface, int defect, const RecombinationTerms& need,
                        IfrDcTerms& out) {
    RecombinationData& r = cv.recombination;
    std::vector<IfrLevelData>& samples = r.ifr_levels[At(interface)][At(defect)];
    const int n = std::min(r.n_ifr_points[At(interface)][At(defect)], static_cast<int>(samples.size()));
    if (n <= 0) return;
    const int type = cv.parameters->interfaceDefect[At(interface)][At(defect)].energy.type;
    if (type == EDIST_SINGLE) {
        AddInterfaceSample(cv, samples[0], 1.0, need, out);
        return;
    }
    const EnergyAxis& axis = r.ifr_axis[At(interface)][At(defect)];
    for (int m = 0; m < n; ++m)
        AddInterfaceSample(cv, samples[At(m)], TrapezoidWeight(axis, n, m, type), need, out);
}

// Zeroes the fields that `need` names at interface J.
void ClearInterface(IfrDcTerms& t, size_t J, const RecombinationTerms& need) {
    if (need.charge) t.sigma[J] = t.dsigma_dpsi[J] = 0;
    if (need.rate)
        for (PerInterface* a : {&t.Rn_left, &t.Rn_right, &t.Rp_left, &t.Rp_right, &t.Rn_left_tunnel,
                                &t.Rn_right_tunnel, &t.Rp_left_tunnel, &t.Rp_right_tunnel})
            (*a)[J] = 0;
    if (need.rateByU)
        for (PerInterface* a :
             {&t.dRn_left_du_left, &t.dRn_left_du_right, &t.dRn_right_du_left, &t.dRn_right_du_right,
              &t.dRp_left_du_left, &t.dRp_left_du_right, &t.dRp_right_du_left, &t.dRp_right_du_right})
            (*a)[J] = 0;
    if (need.rateByV)
        for (PerInterface* a :
             {&t.dRn_left_dv_left, &t.dRn_left_dv_right, &t.dRn_right_dv_left, &t.dRn_right_dv_right,
              &t.dRp_left_dv_left, &t.dRp_left_dv_right, &t.dRp_right_dv_left, &t.dRp_right_dv_right})
            (*a)[J] = 0;
}

} // namespace

void ifrdcbijdrage_een_niveau_tunnel(CalculationVariables& cv, IfrLevelData& data, IfrDcTerms& out,
                                     int defect, int energy_index) {
    (void)defect;
    (void)energy_index;
    ClearInterface(out, At(data.interface), ALL_TERMS);
    AddInterfaceSample(cv, data, 1.0, ALL_TERMS, out);
}

void ifrdcbijdrage_distributie(CalculationVariables& cv, int interface, int defect, IfrDcTerms& out) {
    ifr_dc_initialisatie(out, cv.mesh.number_of_layers, cv.mesh.n_points);
    AddInterfaceDefect(cv, interface, defect, ALL_TERMS, out);
}

void totale_ifrdcbijdrage(CalculationVariables& cv, const RecombinationTerms& need) {
    RefreshRecdataForMesh(cv);
    RecombinationData& r = cv.recombination;
    for (size_t j = 0; j < Interfaces(cv.mesh.number_of_layers); ++j) {
        ClearInterface(r.ifr, j, need);
        for (int d = 0; d < MAX_IFDEFECTS; ++d)
            if (!r.ifr_levels[j][At(d)].empty()) AddInterfaceDefect(cv, static_cast<int>(j), d, need, r.ifr);
    }
    // Capture by tunnelling would carry tunnel currents over the links it passes, added to those of
    // the state here; without a tunnelling model there are none.
}

double thermionic_current_n(const CalculationVariables& cv, int interface) {
    if (interface < 0 || interface + 1 >= cv.mesh.number_of_layers) return 0.0;
    const CalculationParameters& P = *cv.parameters;
    const int i = cv.mesh.last_point[At(interface)];
    const int k = cv.mesh.first_point[At(interface + 1)];
    // Electrons emitted from the left side minus those from the right, referred to the density of
    // states on the left: v (n_left - n_right Nc_left / Nc_right).
    return CurrentFactor(cv, interface) * P.v_thermionic_n[At(interface)] * P.Nc_eff[At(i)] *
           cv.exp_psi[At(i)] * u_difference(cv, i, k);
}

double thermionic_current_p(const CalculationVariables& cv, int interface) {
    if (interface < 0 || interface + 1 >= cv.mesh.number_of_layers) return 0.0;
    const CalculationParameters& P = *cv.parameters;
    const int i = cv.mesh.last_point[At(interface)];
    const int k = cv.mesh.first_point[At(interface + 1)];
    return CurrentFactor(cv, interface) * P.v_thermionic_p[At(interface)] * P.Nv_eff[At(i)] *
           cv.exp_min_psi[At(i)] * v_difference(cv, k, i);
}

} // namespace tervo
