// The records of one complete problem: the stack of layers between two contacts, the interfaces,
// every defect, every gradable property and the numerical settings.  All records are plain values of
// fixed capacity, so that a whole cell is copied by assignment.
//
// The same records exist in two unit forms, told apart only by the variable that holds them: the
// file form (`parameterset1`: SI units, m, /m^3, m^2/Vs, ...) and the user form (`zonnecel`,
// `current_cell`: µm, cm/s, /cm^3, cm^2/Vs, ...).  Defaults are given in the file form.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace tervo {

// Capacities.  Every array that runs over one of them uses the same constant.
inline constexpr int MAX_LAYERS = 7;
inline constexpr int MAX_INTERFACES = 6;
inline constexpr int MAX_DEFECTS = 7;   // bulk defects in a layer
inline constexpr int MAX_LEVELS = 4;    // levels of a bulk defect
inline constexpr int MAX_IFDEFECTS = 3; // defects at an interface
inline constexpr int MAX_META = 2;      // metastable defect pairs in a layer
inline constexpr int NDEFLEVTYPE = 7;   // level types
inline constexpr int MAX_MESH_POINTS = 1000;
inline constexpr int MAX_SPECTRUM_LINES = 2500;
inline constexpr int MAX_GENERATION_POINTS = 1000;
inline constexpr int MAX_LAYER_NAME = 39; // characters read from a file
inline constexpr int MAX_INTERFACE_NAME = 19;
inline constexpr int MAX_PATHNAME = 259;
inline constexpr int MAX_NUM_CALCULATION_STEPS = 2001;

inline constexpr int DEFLEVTYPE_NEUTRAL = 0;

// Codes of the quantity a profile holds (`variableId`).
enum VariableId : int {
    VAR_NONE = -1,
    VAR_COMPOSITION = 0,
    VAR_EG = 10,
    VAR_CHI = 11,
    VAR_EPS = 12,
    VAR_NC = 13,
    VAR_NV = 14,
    VAR_VTHN = 15,
    VAR_VTHP = 16,
    VAR_MUN = 17,
    VAR_MUP = 18,
    VAR_ND = 19,
    VAR_NA = 20,
    VAR_NT = 21,
    VAR_KRAD = 22,
    VAR_CN_AUGER = 23,
    VAR_CP_AUGER = 24,
    VAR_MASS_ELECTRON = 25,
    VAR_MASS_HOLE = 26,
    VAR_ABSORPTION = 30,
};

// Interpolation laws of a profile.
enum ProfileLaw : int {
    LAW_UNIFORM = 0,
    LAW_LINEAR = 1,
    LAW_PARABOLIC = 2,
    LAW_LOGARITHMIC = 3,
    LAW_EXPONENTIAL = 4,
    LAW_BETA = 5,
    LAW_EFFECTIVE_MEDIUM = 6,
    LAW_ALPHA = 7,
    LAW_POWER = 8,
    LAW_PARABOLIC2 = 9,
    LAW_UNIFORM_PURE_B = 10,
    LAW_UNIFORM_Y = 11,
    LAW_FROM_FILE = 12,
    LAW_TABLE = 13,
};
inline constexpr int NUMBER_OF_LAWS = 14;

// What a profile depends on.
enum Dependence : int { DEP_COMPOSITION = 0, DEP_POSITION = 1, DEP_UNIFORM = 2 };

// A gradable property: a law with two end values and up to three parameters.
struct Profile {
    int law = 0;
    int dependence = 0;
    double pureA = 0; // value at y=0 (dependence 0), the first value otherwise
    double pureB = 0; // value at y=1 (dependence 0), the second value otherwise
    double lawPar1 = 0;
    double lawPar2 = 0;
    double lawPar3 = 0;
    double leftValue = 0;  // value at x=0 of the layer
    double rightValue = 0; // value at x=d of the layer
    int unitPar1 = 0;      // 1: lawPar1 carries the unit of the property
    int unitPar2 = 0;
    std::string gradingFile;   // law 12
    std::vector<double> xlist; // law 13
    std::vector<double> ylist;
    int npoints = 0;
    int fileState = 0; // 0 header of the grading file not yet read, 2 read
    int logInterpolation = 0;
    int relativePosition = 0;
    int variableId = -1;
    double thickness = 1e-6;
};

// Energy distribution of a defect level.
enum EnergyDistribution : int {
    EDIST_SINGLE = 0,
    EDIST_UNIFORM = 1,
    EDIST_GAUSS = 2,
    EDIST_CBTAIL = 3,
    EDIST_VBTAIL = 4
};

struct EDistribution {
    int type = 0;
    double Ekar = 0.1;            // characteristic energy, eV
    double correlationEnergy = 0; // eV
    double Et = 0.6;              // level or peak energy, eV
    int reference = 0;            // reference of Et
    double peakToTotal = 1;       // peak density per eV for a total of one
    int correlated = 0;
    int degeneracyOne = 0; // "degeneracy factors equal one"
};

struct OpticalCaptureProperties {
    std::string fileName;
    std::vector<double> sigmas;
    std::vector<double> wavelengths; // nm
    int fromFile = 0;
    double n = 3.0;      // refractive index of the model
    double mStar = 1.0;  // m*/m0
    double EeffE0 = 1.0; // Eeff/E0
    double Emax = 10.0;  // eV
    int fromModel = 0;
    int firstWavelength = 0;
    int count = 0;
};

// Defect types (`defectTypeStrings`).
enum DefectType : int {
    DEFECT_NEUTRAL = 0,
    DEFECT_ACCEPTOR = 1,
    DEFECT_DONOR = 2,
    DEFECT_DOUBLEACCEPTOR = 3,
    DEFECT_DOUBLEDONOR = 4,
    DEFECT_AMPHOTERIC = 5,
    DEFECT_MULTILEVEL = 6,
};
inline constexpr int NUMBER_OF_DEFECT_TYPES = 7;

// Spatial distributions of the description before version 2.7.
enum SpatialDistribution : int { SPATIAL_HOMOGENOUS = 0, SPATIAL_LINEAR = 1, SPATIAL_EXPONENTIAL = 2 };

// One level of a bulk defect.  Properties of the defect as a whole are held equal in all its levels.
struct BulkRecombinationParameters {
    int layernumber = 0;
    int defectnumber = 0;
    int aard = 0; // level type, index in deflevTypeStrings
    int type = 0; // defect type, index in defectTypeStrings
    int numberOfLevels = 1;
    int levelnumber = 0;
    double sigma_n = 1e-19;
    double sigma_p = 1e-19;
    double sigma_n_plus = 1e-25;
    double sigma_n_zero = 1e-25;
    double sigma_p_zero = 1e-25;
    double sigma_p_min = 1e-25;
    double sigma_n_opt = 0;
    double sigma_p_opt = 0;
    OpticalCaptureProperties optCaptHoles;
    OpticalCaptureProperties optCaptElectrons;
    EDistribution energy;
    int profile = 0; // spatial distribution of the old description
    double Lkar = 0;
    double Nleft = 0;
    double Nright = 0;
    Profile Nt; // total density
};

// A metastable defect pair of a layer.
struct MetaStableDefectParameters {
    int layer = 0;
    int allowmeta = 0; // transition present and active
    double initialacceptorconfiguration = 0.5;
    std::array<int, 5> userDefined{0, 0, 1, 0, 1}; // for E_TR, E_EC, E_EE, E_HC, E_HE
    int metastabilityType = 0;
    int electronProcess = 0;
    int holeProcess = 0;
    double sigma_acc_n = 1e-19;
    double sigma_acc_p = 1e-19;
    double sigma_don_n = 1e-19;
    double sigma_don_p = 1e-19;
    double Eact_EE = 0;
    double Eact_HC = 0;
    double Eact_EC = 0;
    double Eact_HE = 0;
    double Eact_TR = 0;
    int reference = 0;
    Profile Nt; // total density of the pair
    double phononFrequency = 5e12;
    int donorChargeState = 3;
    int DonorDefect = -1;
    int AcceptorDefect = -1;
};

// Material properties of a layer; every property is a Profile.
struct MaterialParameters {
    std::string name;
    int compositionType = 0; // copy of the layer's
    double d = 2e-6;
    Profile chi;
    Profile Eg;
    Profile eps;
    Profile Nc;
    Profile Nv;
    Profile Nd;
    Profile Na;
    Profile mu_n;
    Profile mu_p;
    Profile relElectronMass;
    Profile relHoleMass;
    Profile v_th_n;
    Profile v_th_p;
    Profile K_rad;
    int tunnelling = 0; // "Tunneling in layer"
    Profile c_n_auger;
    Profile c_p_auger;
    // The absorption block: the profile, the six numbers and the two files are copied together.
    Profile absorption;
    double A_pureA = 1e7;
    double B_pureA = 0;
    double A_pureB = 1e7;
    double B_pureB = 0;
    int absorptionA = 0; // 0 coefficients A and B, 1 from file
    int absorptionB = 0;
    std::string absorptionFileA;
    std::string absorptionFileB;
};

inline constexpr int NUMBER_OF_MATERIAL_PROFILES = 17;

enum FunctionalKind : int {
    KIND_PHYSICAL = 0,
    KIND_INTER_OPTICAL = 1,
    KIND_INTER_ELECTRICAL = 2,
    KIND_INTER_ELECTROOPTICAL = 3,
    KIND_CONTACT_OPTICAL = 11,
    KIND_CONTACT_ELECTRICAL = 12,
    KIND_CONTACT_ELECTROOPTICAL = 13,
};

using DefectLevels = std::array<BulkRecombinationParameters, MAX_LEVELS>;

struct LayerParameters {
    std::string name;
    int insulator = 0;
    int layernumber = 0;
    MaterialParameters material;
    std::array<DefectLevels, MAX_DEFECTS> srh; // srh[defect][level]
    int srhteller = 0;                         // bulk defects in use
    int compositionType = 0;                   // 0 pure A, 20 pure B, 21 uniform 0<y<1, 1 graded
    std::array<int, 2> gradingEditorState{0, 0};
    Profile composition;
    int isNew = 1;
    std::array<MetaStableDefectParameters, MAX_META> meta;
    int functionalKind = 0;
};

struct ContactParameters {
    double Fi_m = 5.0;
    double contactBarrier = 0.2;
    double majorityBarrier = 0;
    double Sn = 0;
    double Sp = 0;
    int flatband = 1;
    int recalculate = 1;
    int opticalFilter = 0;
    int wavelengthIndependent = 0;
    int transmission = 1;
    double filterValue = 0;
    std::string filterFile;
    int tunnelling = 0;
    double relHoleMass = 1;
    double relElectronMass = 1;
    int contactType = 0;
};

struct InterfaceRecombinationParameters {
    int interfaceNumber = 0;
    int defectnumber = 0;
    int type = 0;
    double sigma_nleft = 1e-19;
    double sigma_nright = 1e-19;
    double sigma_pleft = 1e-19;
    double sigma_pright = 1e-19;
    double N = 1e10;      // as entered: /m^2 for a single level, else peak per eV
    double Ntotal = 1e10; // N divided by the peak-to-total factor
    int tunnelling = 0;   // tunnelling to the trap
    double relHoleMass = 1;
    double relElectronMass = 1;
    EDistribution energy;
};

struct InterfaceParameters {
    int interfaceNumber = 0;
    std::array<InterfaceRecombinationParameters, MAX_IFDEFECTS> defect;
    std::string name;
    int intrabandTunnelling = 0;
    double relHoleMass = 1;
    double relElectronMass = 1;
    int numberOfDefects = 0;
};

struct CellDefinition {
    std::array<LayerParameters, MAX_LAYERS> layer;             // index 0: next to the back (left) contact
    std::array<InterfaceParameters, MAX_INTERFACES> interface; // i between layers i and i+1
    int numberOfLayers = 0;
    ContactParameters leftContact;  // the "back contact" of the file
    ContactParameters rightContact; // the "front contact" of the file
    int voltageAppliedTo = -1;      // -1 left contact, +1 right contact
    int referenceSystem = 1;        // 1 as a consumer, 0 as a generator
    int signV = 1;
    int signJ = 1;
};

struct ConvergenceParameters {
    double clamp_psi = 0.5;
    double clamp_p = 0.5;
    double clamp_n = 0.5;
    int maxiter = 250;
    double termination_psi = 0.001;
    double termination_Fn = 0.001;
    double termination_Fp = 0.001;
    double termination_Ft = 1e-9;
    double currentToleranceAbs = 1e-6;
    double currentToleranceRel = 1e-5;
    double currentZeroAbs = 1e-15;
    double currentZeroRel = 1e-6;
    int interfaceBoxTerms = 1;
    double termination_Meta_full = 0.001;
    int maxmetaiter_full = 250;
    int usemetaclamping = 0;
    double clamp_meta = 0.01;
    int defectdiscretisations = 7;
    int TunnelMassChoice = 0;
    double widthtail = 7.0;
    double widthgauss = 6.0;
    int TunnelBtoB_allowed = 0;
    int Tunneliface_allowed = 0;
    int Tunnelintraband_allowed = 0;
    int Tunnelcontact_allowed = 0;
    int gummelPassesFirst = 10; // passes of separate Gummel blocks before scheme 14 couples them
    int maxiter_psi_start = 250;
    int maxiter_psi = 250;
    int maxiter_u = 250;
    int maxiter_v = 250;
    int maxiter_Ft = 50;
    int coupling_scheme = 11; // 11 psi, u, v separately; 12 psi, then (u, v); 13 all coupled; 14 11, then 13
    int active_scheme = 11;   // the scheme of the present outer pass
    int failAction_psi = 2;
    int failAction_u = 2;
    int failAction_v = 2;
    int solverChoice_psi = 2;
    int solverChoice_u = 1;
    int solverChoice_v = 1;
    double damping_psi = 1;
    double damping_n = 1;
    double damping_p = 1;
    double contactExponent = 1;
    double contactShare = 1;
    double contactPrefactor = 1;
    int contactExponential = 1;
    int changeOfReferences = 0;
    int includeChargeInDefects = 1; // in the calculation of the flatband condition
};

// The record of `parameterset1`: the problem in file form.
struct InputParameters {
    std::string name; // file name of the definition without folder
    std::string path; // full path of the definition
    ConvergenceParameters convergence;
    CellDefinition cellParas;
};

// A small mirror of a cell that says which variables exist in it (for judging batch parameters).
struct ShortProfile {
    int law = 0;
    int dependence = 2;
};
struct ShortLevel {
    int numberOfLevels = 1;
    int energyType = 0;
    int fromFileElectrons = 0;
    int fromFileHoles = 0;
    int fromModelElectrons = 1;
    int fromModelHoles = 1;
    ShortProfile Nt;
};
struct ShortMeta {
    int present = 0;
    std::array<int, 5> userDefined{0, 0, 0, 0, 0};
    ShortProfile Nt;
};
struct ShortLayer {
    int compositionLaw = 0;
    int srhteller = 0;
    // chi, Eg, eps, Nc, Nv, Nd, Na, mu_n, mu_p, v_th_n, v_th_p, K_rad, c_n_auger, c_p_auger
    std::array<ShortProfile, 14> material;
    int absorptionLaw = 0;
    int absorptionA = 0;
    int absorptionB = 0;
    int tunnelling = 0;
    std::array<std::array<ShortLevel, MAX_LEVELS>, MAX_DEFECTS> srh;
    std::array<ShortMeta, MAX_META> meta;
};
struct ShortInterfaceDefect {
    int energyType = 0;
    int tunnelling = 0;
};
struct ShortInterface {
    int numberOfDefects = 0;
    int namePresent = 0;
    int intrabandTunnelling = 0;
    std::array<ShortInterfaceDefect, MAX_IFDEFECTS> defect;
};
struct ShortContact {
    int flatband = 0;
    int opticalFilter = 0;
    int wavelengthIndependent = 0;
    int transmission = 0;
};
struct ShortCellDefinition {
    int numberOfLayers = 0;
    ShortContact leftContact;
    int leftTunnelling = 0;
    ShortContact rightContact;
    int rightTunnelling = 0;
    std::array<ShortLayer, MAX_LAYERS> layer;
    std::array<ShortInterface, MAX_INTERFACES> interface;
};

// Vocabulary: the words of the definition file, also what a user sees.
inline constexpr std::array<const char*, NUMBER_OF_DEFECT_TYPES> defectTypeStrings = {
    "neutral", "acceptor", "donor", "doubleacceptor", "doubledonor", "amphoteric", "custom multilevel"};
inline constexpr auto defectTypeStringsSaveAndLoad = defectTypeStrings;
inline constexpr std::array<const char*, 5> energyDistrTypeStrings = {"single", "uniform", "gauss", "CB tail",
                                                                      "VB tail"};
inline constexpr auto energyDistrTypeStringsSaveAndLoad = energyDistrTypeStrings;
inline constexpr std::array<const char*, 3> spatialDistrTypeStrings = {"constant", "linear", "exponential"};
inline constexpr std::array<const char*, 3> spatialDistrTypeStringsSaveAndLoad = {"homogenous", "linear",
                                                                                  "exponential"};
inline constexpr std::array<const char*, NDEFLEVTYPE> deflevTypeStrings = {"neutral", "2-/3-", "-/2-", "0/-",
                                                                           "+/0",     "2+/+",  "3+/2+"};
inline constexpr auto deflevTypeStringsSaveAndLoad = deflevTypeStrings;
inline constexpr std::array<const char*, NDEFLEVTYPE> chargeTypeStrings = {"3-", "2-", "-", "0",
                                                                           "+",  "2+", "3+"};

// Text of a functional kind ("physical layer", ...), "" for an unknown code.
const char* FunctionalKindText(int kind);
// Name of a law in the grading list.
const char* LawName(int law);

// The session's cell in user form, and the copies the editors change.
extern CellDefinition zonnecel;
extern CellDefinition current_cell;
extern std::array<LayerParameters, MAX_LAYERS> current_layers;
extern std::array<InterfaceParameters, MAX_INTERFACES> current_interfaces;

// Defaults (file form).
void InitialiseProfile(Profile& p);
void InitialiseOpticalCaptureProperties(OpticalCaptureProperties& p);
void AllocateOpticalCaptureProperties(OpticalCaptureProperties& p, int n);
void CopyOpticalCaptureProperties(OpticalCaptureProperties& to, const OpticalCaptureProperties& from);
void InitialiseBulkRecombinationParameters(BulkRecombinationParameters& p, int layer, int defect);
void InitialiseInterfaceRecombinationParameters(InterfaceRecombinationParameters& p, int interface,
                                                int defect);
void InitialiseInterfaceParameters(InterfaceParameters& p, int interface);
void InitialiseMaterialParameters(MaterialParameters& p);
void InitialiseMetaStableDefectParameters(MetaStableDefectParameters& p);
void InitialiseContactParameters(ContactParameters& p, int side); // side -1 left, +1 right
void InitialiseLayerParameters(LayerParameters& p, int layer, int isNew);
void InitialiseConvergenceParameters(ConvergenceParameters& p);

// Samples of the energy axis of a distributed defect: at most 100.
inline constexpr int MAX_DEFECT_DISCRETISATIONS = 100;

// The setting `defectdiscretisations` as it is entered: above 100 samples it becomes 100, below 2 it
// becomes 1, each with a warning.
int LimitDefectDiscretisations(int value);
void InitialiseCellDefinition(CellDefinition& p);
void InitialiseInputParameters(InputParameters& p); // also resets the remarks to "new problem"

// Sets unitPar1 and unitPar2 from the law (called whenever the law changes).
void SetProfileScaleParameters(Profile& p);

// The material profiles of a layer, in the order chi, Eg, eps, Nc, Nv, Nd, Na, mu_n, mu_p, electron
// mass, hole mass, v_th_n, v_th_p, K_rad, c_n_auger, c_p_auger, absorption.
std::array<Profile*, NUMBER_OF_MATERIAL_PROFILES> MaterialProfiles(MaterialParameters& m);
std::array<const Profile*, NUMBER_OF_MATERIAL_PROFILES> MaterialProfiles(const MaterialParameters& m);
// The material profile (or the composition, id 0) of a layer by its variableId; null if none.
Profile* ProfileOfLayer(LayerParameters& layer, int variableId);

void UpdateThicknessInProfiles_Layer(LayerParameters& layer);
void UpdateThicknessInProfiles_Cell(CellDefinition& cell);

void FreeCellDefinition(CellDefinition& cell);
void CopyBulkRecombinationParameters(BulkRecombinationParameters& to,
                                     const BulkRecombinationParameters& from);
void CopyCellParameters(CellDefinition& to, const CellDefinition& from);

// which 0: end values to pureA; 1: to pureB; 2: unchanged.
void MakeUniform(Profile& p, int which);
// The peak density per eV of a distribution with a total of one.
void DeterminePeakToTotal(EDistribution& energy);

// The two signs of results from the conventions of the cell.
void SetSignsFromConventions(CellDefinition& cell);

void InitialiseShortCellDefinition(ShortCellDefinition& s);
void LongToShortCellDefinition(const CellDefinition& cell, ShortCellDefinition& s);

} // namespace tervo
