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

// The energy of one level of a bulk defect across its layer, eV on the scale of the bands: the level
// itself, or the centre of a uniform band or a Gaussian, or the band-side edge of a tail.
struct DefectLevelLine {
    int layer = 0;
    int defect = 0;
    int level = 0;
    int first = 0;         // mesh index of the first point of the layer
    std::vector<double> E; // one entry per point of the layer
};

// Energy bands of a state, eV, with the Fermi level of the left contact at 0.
struct BandDiagram {
    int n_points = 0;
    MeshArray Ec{};
    MeshArray Ev{};
    MeshArray Fn{}; // quasi-Fermi level of the electrons
    MeshArray Fp{}; // of the holes
    std::vector<DefectLevelLine> defectLevels;
};

// The occupation of one energy sample of one level of a bulk defect across its layer.  Level k of a
// defect is the transition between its states k and k + 1; `electrons` is the share of defects in the
// upper state (one electron more), `holes` the share in the lower one.  For a one-level defect the two
// add up to 1.
struct OccupationColumn {
    int layer = 0; // indices counted from 0
    int defect = 0;
    int level = 0;
    int sublevel = 0; // energy sample of a distribution, 0 for a single level
    int aard = 0;     // type of the level (`deflevTypeStrings`): the charge states it joins
    int first = 0;    // mesh index of the first point of the layer
    std::vector<double> electrons;
    std::vector<double> holes;
};

// A defect whose levels are spread over an energy distribution (`energyDistrTypeStrings`).
struct DistributedDefect {
    int layer = 0;
    int defect = 0;
    int type = 0;
};

// The occupations of all levels of all bulk defects of a state, layer by layer, defect by defect,
// level by level and energy sample by energy sample.
struct DefectOccupations {
    int n_points = 0;
    std::vector<OccupationColumn> columns;
    std::vector<DistributedDefect> distributions;
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
extern DefectOccupations bezettingen;

// "day-month-year at h:m:s" of the last update_eb_panel, for the header of working-point files.
extern std::string LastWorkPointSimulationDate;

// Everything the output of a solved state needs, in the order the terms depend on each other: the
// tunnelling terms cleared, the defect occupations made self-consistent with the light, the bulk
// and interface recombination of the final state, the tunnel currents; with `show` the band diagram,
// the densities and the field; then the currents of every point.  Stamps
// LastWorkPointSimulationDate.
void update_eb_panel(CalculationVariables& cv, int show);

// Bands of the state: Ec[0] = W_left - chi[0], Ec[i] = Ec[0] - (chi[i] - chi[0]) - psi[i] kT,
// Ev = Ec - Eg, Fn = kT EFn, Fp = kT EFp; and every level of the bulk defects across its layer, from
// the band edge or the intrinsic level that its energy is given against: Ev + E, Ev + Eg/2 +
// (kT/2) ln(Nv/Nc) + E, or Ec - E.  The one-argument forms fill the globals above.
void extraheer_bandenschema(const CalculationVariables& cv, BandDiagram& out);
void extraheer_bandenschema(CalculationVariables& cv);

// Densities n = N_j (a_n + u) exp(psi) Nc_eff and p = N_j (a_p + v) exp(-psi) Nv_eff in /cm3, and the
// magnitude of the net charge N_j (doping + rho) + p - n.
void extraheer_concentraties(const CalculationVariables& cv, ConcentrationProfiles& out);
void extraheer_concentraties(CalculationVariables& cv);

// The field of the state for the graphs (see FieldStrength).  The one-argument form also gathers
// the occupations of the defect levels into `bezettingen`.
void extraheer_veld(const CalculationVariables& cv, FieldProfile& out);
void extraheer_veld(CalculationVariables& cv);

// The occupation of every level and energy sample of the bulk defects of the state, as the last
// evaluation of the defect terms left it in the level records.
void ExtractOccupations(const CalculationVariables& cv, DefectOccupations& out);

// Generation and recombination of one level of a bulk defect across its layer, /cm3/s, summed over
// the energy samples of its distribution.  Electrons: optical (IPV) and thermal emission from the
// upper state to the conduction band, capture from it into the lower state; holes: optical and
// thermal emission from the lower state to the valence band, capture into the upper state.  The net
// electron recombination through the level, Rnth - Gnth - IPV_Gn, equals the net hole recombination
// Rpth - Gpth - IPV_Gp in steady state and is the level's Shockley-Read-Hall rate.
struct LevelGenerationRecombination {
    int layer = 0;
    int defect = 0;
    int level = 0;
    int first = 0; // mesh index of the first point of the layer
    std::vector<double> IPV_Gn, Gnth, Rnth, IPV_Gp, Gpth, Rpth;
};

// Generation and recombination profiles of a state at every mesh point, /cm3/s.
struct GenerationRecombinationProfiles {
    int n_points = 0;
    std::vector<double> x_um;
    std::vector<double> Geh;       // band-to-band optical generation
    std::vector<double> total;     // all recombination
    std::vector<double> SRH;       // through the bulk defects
    std::vector<double> radiative; // band to band
    std::vector<double> auger;
    std::vector<LevelGenerationRecombination> levels;
};

// The generation-recombination profiles of the state, from its recombination sums and the
// occupations and rates in the level records.
void Calc_Generation(const CalculationVariables& cv, GenerationRecombinationProfiles& out);

// Recombination current of a state gathered from either contact, mA/cm2 of conventional current.
//
// Every carrier that a cell loses is lost once: through a bulk defect or band to band, at an
// interface defect, or as a minority carrier that reaches a contact.  `fromLeft[i]` holds the loss
// from the left contact up to point i: the minority current lost through the left contact, the bulk
// recombination of each point over its box of the mesh (the box integration of the continuity
// equations, with the edge half-cells of each layer as the equations count them), the recombination
// at each interface when the walk enters the layer behind it, and at the last point the minority
// current lost through the right contact.  `fromRight[i]` gathers the same terms from the right
// contact down to point i.  Both reach `total` at the far end, each term counted once.
//
// A minority current counts as a loss when it flows out of the cell: electrons at a p-type contact,
// holes at an n-type one (electrons at the left contact and holes at the right one when a contact
// has no type).  It is taken at the contact itself: the current of the link next to the contact
// less the net recombination in the contact's half-cell.
//
// In the dark the total loss is the terminal current; with a p-type left contact it flows from the
// left contact to the right one (`sign` +1), with an n-type left contact the other way (`sign` -1),
// so that the conventional current density is `sign` (total - generation current).  Interface
// recombination counts with its tunnelling enhancement, since carriers that tunnel to an interface
// defect recombine there.
struct RecombinationBalance {
    int n_points = 0;
    MeshArray fromLeft{};
    MeshArray fromRight{};
    double minorityLeft = 0;  // lost through the left contact
    double minorityRight = 0; // lost through the right contact
    double total = 0;
    int sign = 1;
};
void CumulativeRecombination(CalculationVariables& cv, RecombinationBalance& out);

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
