// The three forms of one problem and the roads between them.
//
// User form (`zonnecel`, `current_cell`): µm, cm/s, /cm^3, cm^2/Vs.  File form (`parameterset1`): SI
// units, as the definition file holds them.  Normalised form (`parameterset3`): what the solver reads,
// every quantity made dimensionless at one temperature with the reference scales of `schaal`:
// potentials in kT/q, lengths by the total thickness L, densities by one scale N_i per layer, velocities
// by D/L with D the largest diffusion constant, time by L^2/D.
//
// `CalculationVariables` is the state of one solved point on one mesh.
#pragma once

#include <algorithm>

#include <array>

#include "cell/cell_records.h"
#include "cell/working_settings.h"
#include "setup/mesh.h"

namespace tervo {

struct GenerationParameters; // spectrum, fluxes and the generation profile G(x)

// Physical constants of the normalisation.  They are the rounded values the whole program uses.
inline constexpr double KT_300 = 0.0259;    // kT/q at 300 K, V
inline constexpr double EPS0 = 8.854e-12;   // F/m
inline constexpr double Q_ELEM = 1.602e-19; // C

// Reference scales of the normalisation (`schaal`).
struct ScaleParameters {
    double length = 1;                        // L, total thickness of the cell, m
    double time = 1;                          // L^2 / D, s
    double diffusion = 1;                     // D, the largest diffusion constant, m^2/s
    double velocity = 1;                      // D / L, m/s
    std::array<double, MAX_LAYERS> rate{};    // 1 / (L N_i)
    std::array<double, MAX_LAYERS> density{}; // N_i, /m^3
    std::array<double, MAX_LAYERS>
        lambda2{}; // kT eps eps0 / (q L^2 N_i), the squared normalised Debye length
};

using MeshArray = std::array<double, MAX_MESH_POINTS>;

// The normalised problem (`parameterset3`).  Arrays without a mesh index run over layers or
// interfaces; the arrays on the mesh are filled by `Full_x_Dependence` once a mesh exists.
struct CalculationParameters {
    double temperature = 300; // K
    double kT = KT_300;       // thermal voltage at `temperature`, V (numerically eV)
    int numberOfLayers = 0;
    int defectdiscretisations = 7;
    double widthtail = 7.0;
    double widthgauss = 6.0;
    double Fi_m_right = 5.0; // work functions of the contacts, eV
    double Fi_m_left = 5.0;
    std::array<double, MAX_LAYERS> thickness{};           // m
    std::array<double, MAX_LAYERS> normalisedThickness{}; // d_i / L
    // Interface i lies between layers i and i+1.
    std::array<double, MAX_INTERFACES> chiStep{};     // chi left of layer i+1 minus chi right of layer i, eV
    std::array<double, MAX_INTERFACES> valenceStep{}; // Eg right of i minus chiStep minus Eg left of i+1, eV
    std::array<int, MAX_LAYERS> insulator{};
    std::array<int, MAX_LAYERS> functionalKind{};
    // At the two edges of each layer: Debye length by L, intrinsic density by N_i.
    std::array<double, MAX_LAYERS> debyeLeft{};
    std::array<double, MAX_LAYERS> niLeft{};
    std::array<double, MAX_LAYERS> debyeRight{};
    std::array<double, MAX_LAYERS> niRight{};
    // 0 for Nd equal to Na, -1 for Nd above Na (n-type), +1 otherwise; entry 0 of the left signs
    // carries the contact type of the left contact, entry n-1 of the right signs that of the right one.
    std::array<int, MAX_LAYERS> dopingSignLeft{};
    std::array<int, MAX_LAYERS> dopingSignRight{};

    // Copies of the graded properties in file form, with the thickness of each profile in µm since
    // positions on the mesh are handled in µm.  Nc, Nv, v_th and mu are taken at 300 K here; the
    // temperature laws act in `Full_x_Dependence`.
    std::array<Profile, MAX_LAYERS> composition;
    std::array<MaterialParameters, MAX_LAYERS> material;

    // On the mesh (index over the whole stack).
    MeshArray Eg{};   // eV
    MeshArray chi{};  // eV
    MeshArray eps{};  // relative permittivity
    MeshArray mu_n{}; // mobility of the profile, m^2/Vs
    MeshArray mu_p{};
    MeshArray D_n{}; // diffusion constants by D
    MeshArray D_p{};
    MeshArray Nc_norm{}; // Nc(T) / N_i
    MeshArray Nv_norm{};
    MeshArray vth_n{}; // thermal velocities by D/L
    MeshArray vth_p{};
    MeshArray K_rad{}; // radiative coefficient by D / (N_i L^2)
    MeshArray C_n{};   // Auger coefficients by D / (N_i^2 L^2)
    MeshArray C_p{};
    MeshArray m_tunnel_n{}; // relative electron mass
    MeshArray m_tunnel_p{}; // relative hole mass
    MeshArray Nd_norm{};    // Nd / N_i
    MeshArray Na_norm{};    // Na / N_i
    MeshArray doping{};     // (Nd - Na) / N_i
    // Densities of states referred to the work function of the left contact, so that
    // n = Nc_eff exp(psi) (a_n + u) and p = Nv_eff exp(-psi) (a_p + v).
    MeshArray Nc_eff{};
    MeshArray Nv_eff{};
    // Grading of the band edges and densities of states inside a layer, as it enters the arguments
    // of the Bernoulli functions: (chi - max chi)/kT + ln(Nc/max Nc) and
    // (chi + Eg - max(chi + Eg))/kT - ln(Nv/max Nv), maxima over the layer.
    MeshArray band_n{};
    MeshArray band_p{};

    // Defects in normalised form.
    std::array<std::array<DefectLevels, MAX_DEFECTS>, MAX_LAYERS> srh;
    std::array<std::array<MetaStableDefectParameters, MAX_META>, MAX_LAYERS> meta;
    std::array<int, MAX_LAYERS> defectsPerLayer{};
    std::array<int, MAX_INTERFACES> defectsPerInterface{};
    std::array<std::array<InterfaceRecombinationParameters, MAX_IFDEFECTS>, MAX_INTERFACES> interfaceDefect;

    // Thermionic emission velocities over each interface and surface recombination velocities of the
    // contacts, all by D/L.
    std::array<double, MAX_INTERFACES> v_thermionic_n{};
    std::array<double, MAX_INTERFACES> v_thermionic_p{};
    double S_n_left = 0;
    double S_p_left = 0;
    double S_n_right = 0;
    double S_p_right = 0;

    ConvergenceParameters convergence;

    ScaleParameters scale; // the scales this record was normalised with (also in `schaal`)
};

// The contribution of one recombination mechanism at every mesh point: the charge it holds (units
// of N_i) and its net recombination rate (normalised), each with its derivatives with respect to psi,
// u and v at the same point.
struct RecDcTerms {
    MeshArray rho{};
    MeshArray drho_dpsi{};
    MeshArray drho_du{};
    MeshArray drho_dv{};
    MeshArray R{};
    MeshArray dR_dpsi{};
    MeshArray dR_du{};
    MeshArray dR_dv{};
};

// What the defects at the interfaces contribute: per interface the charge (C/m^2) and the net rates
// of the four carrier streams (electrons and holes, from the layer on the left and on the right) with
// their derivatives; per link of the mesh the tunnel currents that the capture by tunnelling carries.
struct IfrDcTerms {
    using PerInterface = std::array<double, MAX_INTERFACES>;
    PerInterface sigma{};
    PerInterface dsigma_dpsi{};
    PerInterface Rn_left{};
    PerInterface Rn_left_tunnel{};
    PerInterface dRn_left_du_left{};
    PerInterface dRn_left_du_right{};
    PerInterface Rn_right{};
    PerInterface Rn_right_tunnel{};
    PerInterface dRn_right_du_left{};
    PerInterface dRn_right_du_right{};
    PerInterface Rp_left{};
    PerInterface Rp_left_tunnel{};
    PerInterface dRp_left_dv_left{};
    PerInterface dRp_left_dv_right{};
    PerInterface Rp_right{};
    PerInterface Rp_right_tunnel{};
    PerInterface dRp_right_dv_left{};
    PerInterface dRp_right_dv_right{};
    MeshArray jn_tun{};
    MeshArray jp_tun{};
    PerInterface dRn_left_dv_left{};
    PerInterface dRn_left_dv_right{};
    PerInterface dRn_right_dv_left{};
    PerInterface dRn_right_dv_right{};
    PerInterface dRp_left_du_left{};
    PerInterface dRp_left_du_right{};
    PerInterface dRp_right_du_left{};
    PerInterface dRp_right_du_right{};
};

// Points of the energy axis of one distributed level.
inline constexpr int MAX_ENERGY_POINTS = MAX_DEFECT_DISCRETISATIONS;

// The sampling of a level's energy distribution: energies E[k] (eV, in the reference of the level)
// and the steps dE[k] = |E[k+1] - E[k]| of the trapezoid rule.  A single level has one point and no
// step.
struct EnergyAxis {
    std::array<double, MAX_ENERGY_POINTS> E{};
    std::array<double, MAX_ENERGY_POINTS> dE{};
};

// One level of a bulk defect at one energy point of its distribution, on the points of its layer.
// Every array has one entry per point of the layer: entry k belongs to mesh point `first` + k.
// Densities are in units of N_j of the layer, rates and coefficients normalised as in the equations.
struct RecLevelData {
    int layer = 0;
    int defect = 0;
    int level = 0;           // index k of the level in the defect
    int aard = 0;            // level type (`deflevTypeStrings`)
    int n_levels = 1;        // number of levels K of the defect
    int first = 0;           // mesh index of the first point of the layer
    double E = 0;            // energy of this sample, eV, in the reference of the level
    std::vector<double> Nt;  // density at this energy (per eV for a distribution)
    std::vector<double> c_n; // capture coefficients vth sigma
    std::vector<double> c_p;
    std::vector<double> e_n; // thermal emission coefficients
    std::vector<double> e_p;
    // Occupation of the upper (one more electron) and the lower state of this level; 0.5 at creation.
    std::vector<double> f_t;
    std::vector<double> een_min_f_t;
    // Optical emission rates of electrons to the conduction band and of holes to the valence band
    // (impurity photovoltaic mode); 0 at creation.
    std::vector<double> g_n_max;
    std::vector<double> g_p_max;
    // Values of the previous pass of the optical self-consistency loop.
    std::vector<double> f_tOld;
    std::vector<double> een_min_f_tOld;
    std::vector<double> g_n_maxOld;
    std::vector<double> g_p_maxOld;
};

// One interface defect at one energy point.  Densities of the trap-level equivalents are in units of
// N_j of the side they belong to; `Nt` is a sheet density, /m^2 (per eV for a distribution).
struct IfrLevelData {
    int aard = 0; // 0 neutral, 1 acceptor, 2 donor
    int interface = 0;
    int defect = 0;
    double Nt = 0;
    double c_n_right = 0; // capture coefficients vth sigma of the two sides, normalised
    double c_n_left = 0;
    double c_p_right = 0;
    double c_p_left = 0;
    double n1_right = 0;
    double n1_left = 0;
    double p1_right = 0;
    double p1_left = 0;
    int tunnel_flag = 0;
    double tunnel_mass_n = 1;
    double tunnel_mass_p = 1;
    // Enhancement of the capture rates by tunnelling from deeper in the layers; 0 without it.
    double gamma_n_right = 0;
    double gamma_n_left = 0;
    double gamma_p_right = 0;
    double gamma_p_left = 0;
    double E_trap = 0; // eV above the valence band edge of the left side
    double f_t = 0.5;  // share of occupied traps
    double een_min_f_t = 0.5;
};

// Recombination data of bulk defects, interface defects and metastable pairs on the mesh of one
// state: level records, occupations, and the per-point sums the equations read.  Everything of that
// kind lives here, so that a state is copied, rebuilt or cleared as one piece; all members are
// values, so a copy of the record is a deep copy.
struct RecombinationData {
    RecDcTerms dc;           // the total that the equations read
    RecDcTerms dc_defects;   // the share of the bulk defects (charge and SRH rate)
    RecDcTerms dc_radiative; // band-to-band radiative recombination
    RecDcTerms dc_auger;     // Auger recombination
    IfrDcTerms ifr;          // interface defects

    // Bulk defects: rec_levels[layer][defect][level] holds one record per energy point; the number
    // of points (1 for a single level, `defectdiscretisations` otherwise) is the same for all levels
    // of a defect.  `axis` is the energy axis of the first level of each defect.
    std::array<std::array<std::array<std::vector<RecLevelData>, MAX_LEVELS>, MAX_DEFECTS>, MAX_LAYERS>
        rec_levels;
    std::array<std::array<int, MAX_DEFECTS>, MAX_LAYERS> n_energy_points{};
    std::array<std::array<EnergyAxis, MAX_DEFECTS>, MAX_LAYERS> axis{};
    // Interface defects: ifr_levels[interface][defect], one record per energy point.
    std::array<std::array<std::vector<IfrLevelData>, MAX_IFDEFECTS>, MAX_INTERFACES> ifr_levels;
    std::array<std::array<int, MAX_IFDEFECTS>, MAX_INTERFACES> n_ifr_points{};
    std::array<std::array<EnergyAxis, MAX_IFDEFECTS>, MAX_INTERFACES> ifr_axis{};

    // The mesh and the parameters the level records were built for: after an adaptation of the mesh
    // they are rebuilt before the next use.
    int builtPoints = 0;
    MeshArray builtX{};
    const CalculationParameters* builtFor = nullptr;
};

// One solved state on one mesh.
struct CalculationVariables {
    MeshBlock mesh;      // the present mesh
    MeshBlock firstMesh; // the first mesh of the problem; its points are never removed by adaptation

    // Potential and carriers, normalised (kT/q and the Slotboom variables u, v with their offsets).
    MeshArray psi{};
    MeshArray exp_psi{};
    MeshArray exp_min_psi{};
    MeshArray u{};
    double a_n = 0;
    MeshArray v{};
    double a_p = 0;
    MeshArray EFn{}; // ln(a_n + u)
    MeshArray EFp{}; // -ln(a_p + v)
    // Bernoulli factors of the link between points i-1 and i (entry 0 unused), and their derivatives.
    MeshArray Bn_plus{};
    MeshArray Bn_min{};
    MeshArray Bp_plus{};
    MeshArray Bp_min{};
    MeshArray dBn_plus{};
    MeshArray dBn_min{};
    MeshArray dBp_plus{};
    MeshArray dBp_min{};
    double V_applied = 0; // V
    double V_norm = 0;    // in kT/q
    double exp_V = 1;

    // Tunnelling terms of the present iterate, read by the continuity equations as known values: the
    // tunnel current through the link i to i+1, the band-to-band sources and sinks and their running
    // sums, and the offsets added to the thermionic differences at the edges of each layer and to the
    // differences at the contacts.  All zero while no tunnelling acts.
    MeshArray jn_tun{};
    MeshArray jp_tun{};
    MeshArray btb_n_in{};
    MeshArray btb_n_out{};
    MeshArray btb_p_in{};
    MeshArray btb_p_out{};
    MeshArray btb_current_n{};
    MeshArray btb_current_p{};
    std::array<double, MAX_LAYERS> tun_n_left{}; // at the last point of layer j
    std::array<double, MAX_LAYERS> tun_p_left{};
    std::array<double, MAX_LAYERS> tun_n_right{}; // at the first point of layer j
    std::array<double, MAX_LAYERS> tun_p_right{};
    double tun_n_contact_left = 0;
    double tun_n_contact_right = 0;
    double tun_p_contact_left = 0;
    double tun_p_contact_right = 0;

    // The current of the solved point: the median over the mesh of the total current (mA/cm2), the
    // largest deviation from it, and 1 when that deviation is within the tolerance.
    double J_median = 0;
    double J_spread = 0;
    int J_converged = 0;

    // Iteration counters; iteration_count is -1 after a failed solve.
    int psi_iterations = 0;
    int u_iterations = 0;
    int v_iterations = 0;
    int coupled_iterations = 0;
    int ft_iterations = 0;
    int iteration_count = 0;
    int inner_iterations = 0; // inner Newton iterations of all passes of the last solve
    // Signed largest change of the last inner steps.
    double max_dpsi = 1e30;
    double max_dEFn = 1e30;
    double max_dEFp = 1e30;

    int numberOfLayers = 0;

    // Absorption coefficient of each layer at 300 nm, /m, as the first mesh is made: it limits the
    // finest step near the layer edges to the absorption length.  0 in the dark or with a generation
    // profile from a file.  The caller that knows the working point sets it.
    std::array<double, MAX_LAYERS> meshAlpha{};

    // Not owned.
    CalculationParameters* parameters = nullptr;
    GenerationParameters* generation = nullptr;    // the generation the equations read (total)
    GenerationParameters* illumination = nullptr;  // bias light while a probe light is added
    GenerationParameters* monochromatic = nullptr; // probe light

    RecombinationData recombination; // owned
};

// The points of the mesh of a state, within the capacity of the arrays.
inline int MeshPoints(const CalculationVariables& cv) {
    return std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
}

// The coupling scheme chosen for this run from outside the definition file (11, 12, 13 or 14), 0 for
// the scheme of the definition.
extern int couplingSchemeChoice;

// The file form of the session's problem, its normalised form, and the scales.
extern InputParameters parameterset1;
extern CalculationParameters parameterset3;
extern ScaleParameters schaal;

// The working state and the stored states of equilibrium, short circuit and working point.
extern CalculationVariables currentCalcVars;
extern CalculationVariables evenwichtcv;
extern CalculationVariables kortsluitcv;
extern CalculationVariables werkpuntcv;

// User form to file form, into `parameterset1.cellParas`; layers of uniform composition get uniform
// properties, and the permittivity of the Mott-Schottky analysis is refreshed.
void parameterset2_to_1(const CellDefinition& cell);
// File form to user form.
void parameterset1_to_2(CellDefinition& target, const InputParameters& source);

// In place, file form to user form.
void BulkRecombinationParameters1_to_2(BulkRecombinationParameters& level);
void LayerParameters1_to_2(LayerParameters& layer);
void InterfaceRecombinationParameters1_to_2(InterfaceRecombinationParameters& defect);
void InterfaceParameters1_to_2(InterfaceParameters& interface);
void ContactParameters1_to_2(ContactParameters& contact);
// In place, user form to file form (the inverse of the above).
void BulkRecombinationParameters2_to_1(BulkRecombinationParameters& level);
void LayerParameters2_to_1(LayerParameters& layer);
void InterfaceRecombinationParameters2_to_1(InterfaceRecombinationParameters& defect);
void InterfaceParameters2_to_1(InterfaceParameters& interface);
void ContactParameters2_to_1(ContactParameters& contact);

// A fresh default cell in user form.
void InitialiseParameterset2(CellDefinition& cell);

// Chooses the layer and side whose permittivity the Mott-Schottky analysis uses: the more lightly
// doped side of the junction.  Fills epsilon, side, layer and majorityN.
void SelectEpsilonForMottSchottky(const CellDefinition& cell, MottSchottkySettings& nw);

// exp(x) for x below 0, else 1: the share of carriers that passes a barrier of -x kT.
double ThermionicFunction(double x);

// Normalisation of `source` at `temperature` (K) into `target`; also fills `schaal`.  The wavelengths
// are those of the spectrum in use (nm), for the optical capture data of defects.
void parameterset1_to_3(const InputParameters& source, CalculationParameters& target, double temperature,
                        const double* wavelengths, int nWavelengths);
// Clears the optical capture records of all levels and normalises without wavelengths.
void InitialiseCalculationParameters(CalculationParameters& target, const InputParameters& source,
                                     double temperature);
void FreeCalculationParameters(CalculationParameters& target);

// The graded properties of the parameters on the mesh of `cv`, and the composition y on the mesh.
void Full_x_Dependence(CalculationVariables& cv);
// Nt(x) of one defect level on the points of its layer, times the peak-to-total factor and `factor`,
// in units of N_i.  Points outside the layer are left alone.
void Full_Nt_x_Dependence(CalculationVariables& cv, BulkRecombinationParameters& level, double* target,
                          double factor);
// Nt(x) of a metastable defect pair on the points of its layer, in units of N_i.
void Full_MetaNt_x_Dependence(CalculationVariables& cv, MetaStableDefectParameters& meta, double* target);

// Zero pointers and counters, no recombination data.
void InitialiseCalculationVariables(CalculationVariables& cv);
// Binds `cv` to the parameters and the generation record; with `newMesh` makes the first mesh.
// `keepMeta` keeps the occupations of metastable defects.  0, or -1 when no mesh could be made.
int CreateCalculationVariables(CalculationVariables& cv, GenerationParameters* generation,
                               CalculationParameters& parameters, int newMesh, int keepMeta);
// Copies a whole state: solution, mesh, counters, generation pointers and recombination data.
void CopyCalculationVariables(CalculationVariables& to, const CalculationVariables& from);

} // namespace tervo
