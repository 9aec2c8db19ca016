#include "solver/interface_recombination.h"

#include <algorithm>

#include "solver/discrete_equations.h"

namespace tervo {

namespace {

size_t At(int i) {
    return static_cast<size_t>(i);
}

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
    return sc.density[At(layer)] * sc.diffusion * Q_ELEM / sc.length * 0.1; // A/m2 -> mA/cm2
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

void totale_ifrdcbijdrage(CalculationVariables& cv) {
    const int layers = cv.mesh.number_of_layers;
    const int n = cv.mesh.n_points;
    IfrDcTerms& ifr = cv.recombination.ifr;
    ifr_dc_initialisatie(ifr, layers, n);
    // Interface defects add their charge, rates and tunnel currents to ifr here, defect by defect,
    // each summed over its energy axis.  No interface defect levels are built yet: an interface
    // without defects leaves every field 0, and the rows of its two points carry the thermionic
    // exchange alone.
    for (size_t i = 0; i + 1 < Points(n); ++i) {
        cv.jn_tun[i] += ifr.jn_tun[i];
        cv.jp_tun[i] += ifr.jp_tun[i];
    }
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
