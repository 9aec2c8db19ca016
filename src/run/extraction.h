// From a solved state to results: the current of a point and its profiles in the units of the result
// files (eV, /cm3, V/m, mA/cm2, /m3/s).
#pragma once

#include <string>
#include <vector>

#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo {

// Current profiles of the last extracted point, mA/cm2, on its mesh.
extern MeshArray j_n;
extern MeshArray j_p;
extern MeshArray jn_tunnel;
extern MeshArray jp_tunnel;
extern MeshArray j_tot;

// Energy bands of a state, eV, with the Fermi level of the left contact at 0.
struct BandDiagram {
    int n_points = 0;
    MeshArray Ec{};
    MeshArray Ev{};
    MeshArray Fn{}; // quasi-Fermi level of the electrons
    MeshArray Fp{}; // of the holes
};

// Carrier densities of a state, /cm3, and the magnitude of the net space charge as the graphs show
// it (/cm3): at the first and last point of a layer the value of the neighbour inside the layer.
struct ConcentrationProfiles {
    int n_points = 0;
    MeshArray n{};
    MeshArray p{};
    MeshArray netCharge{};
};

// Electric field of a state, V/m.
struct FieldProfile {
    int n_points = 0;
    MeshArray E{};
};

// The profiles of the last state that was shown (update_eb_panel with `show`).
extern BandDiagram bandenschema;
extern ConcentrationProfiles concentraties;
extern FieldProfile veld;

// "day-month-year at h:m:s" of the last update_eb_panel, for the header of working-point files.
extern std::string LastWorkPointSimulationDate;

// Everything the output of a solved state needs, in the order the terms depend on each other: the
// tunnelling terms cleared, the defect occupations made self-consistent with the light, the bulk
// and interface recombination of the final state, the tunnel currents; with `show` the band diagram,
// the densities and the field; then the currents of every point.  Stamps
// LastWorkPointSimulationDate.
void update_eb_panel(CalculationVariables& cv, int show);

// Bands of the state: Ec[0] = W_left - chi[0], Ec[i] = Ec[0] - (chi[i] - chi[0]) - psi[i] kT,
// Ev = Ec - Eg, Fn = kT EFn, Fp = kT EFp.  The one-argument forms fill the globals above.
void extraheer_bandenschema(const CalculationVariables& cv, BandDiagram& out);
void extraheer_bandenschema(CalculationVariables& cv);

// Densities n = N_j (a_n + u) exp(psi) Nc_eff and p = N_j (a_p + v) exp(-psi) Nv_eff in /cm3, and the
// magnitude of the net charge N_j (doping + rho) + p - n.
void extraheer_concentraties(const CalculationVariables& cv, ConcentrationProfiles& out);
void extraheer_concentraties(CalculationVariables& cv);

// The field of the state for the graphs (see FieldStrength).
void extraheer_veld(const CalculationVariables& cv, FieldProfile& out);
void extraheer_veld(CalculationVariables& cv);

// E = -d(psi kT)/dx in V/m at every mesh point, layer by layer: three-point differences for unequal
// steps inside a layer, the one-sided three-point form at its first and last point (two points: the
// plain difference; one point: 0).  No difference crosses an interface, where the field jumps with
// the permittivity and any interface charge.
void FieldStrength(const CalculationVariables& cv, MeshArray& E);

// The currents of the state at every mesh point into the profiles above (by the rule
// calculation_of_current), and J_median, J_spread, J_converged of the state.  `show` asks for the
// graphs of the screens, which this build has not.
void extraheer_stroom(CalculationVariables& cv, int show);

// The generation of `gp` on the mesh of `cv` in /m3/s times `factor` (1e-6 gives /cm3/s); `target`
// takes the size of the mesh.
void ExtractGeneration(const CalculationVariables& cv, const GenerationParameters& gp, double factor,
                       std::vector<double>& target);

} // namespace tervo
