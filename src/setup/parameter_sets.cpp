#include "setup/parameter_sets.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "cell/grading.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "setup/absorption.h"
#include "setup/defect_levels.h"

namespace tervo {

int couplingSchemeChoice = 0;

InputParameters parameterset1;
CalculationParameters parameterset3;
ScaleParameters schaal;

CalculationVariables currentCalcVars;
CalculationVariables evenwichtcv;
CalculationVariables kortsluitcv;
CalculationVariables werkpuntcv;

namespace {

// Factors from user form to file form; file form to user form divides by the same factor, so that a
// round trip multiplies and divides by one number.
constexpr double TO_FILE_LENGTH = 1e-6;    // µm -> m
constexpr double TO_FILE_VELOCITY = 0.01;  // cm/s -> m/s
constexpr double TO_FILE_DENSITY = 1e6;    // /cm^3 -> /m^3
constexpr double TO_FILE_MOBILITY = 1e-4;  // cm^2/Vs -> m^2/Vs
constexpr double TO_FILE_KRAD = 1e-6;      // cm^3/s -> m^3/s
constexpr double TO_FILE_AUGER = 1e-12;    // cm^6/s -> m^6/s
constexpr double TO_FILE_ABSORPTION = 100; // /cm -> /m
constexpr double TO_FILE_AREA = 1e-4;      // cm^2 -> m^2
constexpr double TO_FILE_SHEET = 1e4;      // /cm^2 -> /m^2

// A change of unit: multiply by the factor towards the file form, divide by it towards the user form.
struct UnitChange {
    bool toFile = true;
    double operator()(double value, double factor) const { return toFile ? value * factor : value / factor; }
};

// The values of a profile that carry its unit: both pure values, both end values, the law parameters
// that say so, and the table of law 13 when `withTable` is set.
void ChangeProfileUnit(Profile& p, double factor, const UnitChange& change, bool withTable) {
    p.pureA = change(p.pureA, factor);
    p.pureB = change(p.pureB, factor);
    p.leftValue = change(p.leftValue, factor);
    p.rightValue = change(p.rightValue, factor);
    if (p.unitPar1 == 1) p.lawPar1 = change(p.lawPar1, factor);
    if (p.unitPar2 == 1) p.lawPar2 = change(p.lawPar2, factor);
    if (withTable && p.law == LAW_TABLE)
        for (double& y : p.ylist) y = change(y, factor);
}

// Dividing a profile by a density or rate scale: the same values as a change of unit.
void DivideProfile(Profile& p, double divisor) {
    ChangeProfileUnit(p, divisor, UnitChange{false}, true);
}

int LevelsInUse(const DefectLevels& levels) {
    return std::clamp(levels[0].numberOfLevels, 1, MAX_LEVELS);
}

int LayersInUse(const CellDefinition& cell) {
    return std::clamp(cell.numberOfLayers, 0, MAX_LAYERS);
}

void ChangeLevelUnits(BulkRecombinationParameters& level, const UnitChange& change) {
    level.sigma_n = change(level.sigma_n, TO_FILE_AREA);
    level.sigma_p = change(level.sigma_p, TO_FILE_AREA);
    for (double& s : level.optCaptElectrons.sigmas) s = change(s, TO_FILE_AREA);
    for (double& s : level.optCaptHoles.sigmas) s = change(s, TO_FILE_AREA);
    level.Lkar = change(level.Lkar, TO_FILE_LENGTH);
    level.Nleft = change(level.Nleft, TO_FILE_DENSITY);
    level.Nright = change(level.Nright, TO_FILE_DENSITY);
    ChangeProfileUnit(level.Nt, TO_FILE_DENSITY, change, true);
    if (change.toFile && level.profile == SPATIAL_HOMOGENOUS) level.Nright = level.Nleft;
}

void ChangeMetaUnits(MetaStableDefectParameters& meta, const UnitChange& change) {
    meta.sigma_acc_n = change(meta.sigma_acc_n, TO_FILE_AREA);
    meta.sigma_acc_p = change(meta.sigma_acc_p, TO_FILE_AREA);
    meta.sigma_don_n = change(meta.sigma_don_n, TO_FILE_AREA);
    meta.sigma_don_p = change(meta.sigma_don_p, TO_FILE_AREA);
    ChangeProfileUnit(meta.Nt, TO_FILE_DENSITY, change, true);
}

void ChangeLayerUnits(LayerParameters& layer, const UnitChange& change) {
    MaterialParameters& m = layer.material;
    m.d = change(m.d, TO_FILE_LENGTH);
    UpdateThicknessInProfiles_Layer(layer);

    ChangeProfileUnit(m.v_th_n, TO_FILE_VELOCITY, change, false);
    ChangeProfileUnit(m.v_th_p, TO_FILE_VELOCITY, change, false);
    ChangeProfileUnit(m.Nc, TO_FILE_DENSITY, change, false);
    ChangeProfileUnit(m.Nv, TO_FILE_DENSITY, change, false);
    ChangeProfileUnit(m.Na, TO_FILE_DENSITY, change, false);
    ChangeProfileUnit(m.Nd, TO_FILE_DENSITY, change, false);
    ChangeProfileUnit(m.mu_n, TO_FILE_MOBILITY, change, false);
    ChangeProfileUnit(m.mu_p, TO_FILE_MOBILITY, change, false);
    ChangeProfileUnit(m.K_rad, TO_FILE_KRAD, change, false);
    ChangeProfileUnit(m.c_n_auger, TO_FILE_AUGER, change, false);
    ChangeProfileUnit(m.c_p_auger, TO_FILE_AUGER, change, false);

    m.A_pureA = change(m.A_pureA, TO_FILE_ABSORPTION);
    m.B_pureA = change(m.B_pureA, TO_FILE_ABSORPTION);
    m.A_pureB = change(m.A_pureB, TO_FILE_ABSORPTION);
    m.B_pureB = change(m.B_pureB, TO_FILE_ABSORPTION);

    for (int d = 0; d < std::clamp(layer.srhteller, 0, MAX_DEFECTS); ++d) {
        DefectLevels& levels = layer.srh[At(d)];
        for (int l = 0; l < LevelsInUse(levels); ++l) ChangeLevelUnits(levels[At(l)], change);
    }
    for (MetaStableDefectParameters& meta : layer.meta) ChangeMetaUnits(meta, change);
}

void ChangeInterfaceDefectUnits(InterfaceRecombinationParameters& defect, const UnitChange& change) {
    defect.sigma_nleft = change(defect.sigma_nleft, TO_FILE_AREA);
    defect.sigma_nright = change(defect.sigma_nright, TO_FILE_AREA);
    defect.sigma_pleft = change(defect.sigma_pleft, TO_FILE_AREA);
    defect.sigma_pright = change(defect.sigma_pright, TO_FILE_AREA);
    defect.N = change(defect.N, TO_FILE_SHEET);
    defect.Ntotal = change(defect.Ntotal, TO_FILE_SHEET);
}

void ChangeInterfaceUnits(InterfaceParameters& interface, const UnitChange& change) {
    for (int d = 0; d < std::clamp(interface.numberOfDefects, 0, MAX_IFDEFECTS); ++d)
        ChangeInterfaceDefectUnits(interface.defect[At(d)], change);
}

void ChangeContactUnits(ContactParameters& contact, const UnitChange& change) {
    contact.Sn = change(contact.Sn, TO_FILE_VELOCITY);
    contact.Sp = change(contact.Sp, TO_FILE_VELOCITY);
}

// A layer of uniform composition (pure A, pure B or a fixed y) has uniform properties: the end values
// of its profiles are set from the pure value of that composition.  Densities that the user made
// depend on position keep their grading.
void MakeLayerUniform(LayerParameters& layer) {
    int which = -1;
    if (layer.compositionType == 0) which = 0;
    if (layer.compositionType == 20) which = 1;
    if (layer.compositionType == 21) which = 2;
    if (which < 0) return;
    MaterialParameters& m = layer.material;
    for (Profile* p : {&m.v_th_n, &m.v_th_p, &m.Nc, &m.Nv, &m.mu_n, &m.mu_p, &m.relElectronMass,
                       &m.relHoleMass, &m.Eg, &m.K_rad, &m.c_n_auger, &m.c_p_auger, &m.chi})
        MakeUniform(*p, which);
    if (m.Na.dependence != DEP_POSITION) MakeUniform(m.Na, which);
    if (m.Nd.dependence != DEP_POSITION) MakeUniform(m.Nd, which);
    for (int d = 0; d < std::clamp(layer.srhteller, 0, MAX_DEFECTS); ++d) {
        DefectLevels& levels = layer.srh[At(d)];
        for (int l = 0; l < LevelsInUse(levels); ++l)
            if (levels[At(l)].Nt.dependence != DEP_POSITION) MakeUniform(levels[At(l)].Nt, which);
    }
}

// Net doping Nd - Na at one side of a layer (-1 left, +1 right).
double NetDoping(const LayerParameters& layer, int side) {
    const MaterialParameters& m = layer.material;
    return side < 0 ? m.Nd.leftValue - m.Na.leftValue : m.Nd.rightValue - m.Na.rightValue;
}

double Permittivity(const LayerParameters& layer, int side) {
    return side < 0 ? layer.material.eps.leftValue : layer.material.eps.rightValue;
}

} // namespace

// ---------------------------------------------------------------------------------------------------
// Between user form and file form.

void BulkRecombinationParameters1_to_2(BulkRecombinationParameters& level) {
    ChangeLevelUnits(level, {false});
}
void LayerParameters1_to_2(LayerParameters& layer) {
    ChangeLayerUnits(layer, {false});
}
void InterfaceRecombinationParameters1_to_2(InterfaceRecombinationParameters& defect) {
    ChangeInterfaceDefectUnits(defect, {false});
}
void InterfaceParameters1_to_2(InterfaceParameters& interface) {
    ChangeInterfaceUnits(interface, {false});
}
void ContactParameters1_to_2(ContactParameters& contact) {
    ChangeContactUnits(contact, {false});
}

void BulkRecombinationParameters2_to_1(BulkRecombinationParameters& level) {
    ChangeLevelUnits(level, {true});
}
void LayerParameters2_to_1(LayerParameters& layer) {
    ChangeLayerUnits(layer, {true});
}
void InterfaceRecombinationParameters2_to_1(InterfaceRecombinationParameters& defect) {
    ChangeInterfaceDefectUnits(defect, {true});
}
void InterfaceParameters2_to_1(InterfaceParameters& interface) {
    ChangeInterfaceUnits(interface, {true});
}
void ContactParameters2_to_1(ContactParameters& contact) {
    ChangeContactUnits(contact, {true});
}

void SelectEpsilonForMottSchottky(const CellDefinition& cell, MottSchottkySettings& nw) {
    const int n = LayersInUse(cell);
    double best = 1e99;
    int layer = -1;
    int side = 0;
    bool junction = false;
    for (int j = 0; j + 1 < n; ++j) {
        const double d1 = NetDoping(cell.layer[At(j)], +1);
        const double d2 = NetDoping(cell.layer[At(j + 1)], -1);
        if (d1 * d2 < 0) junction = true;
        if (!junction) continue;
        const double a = std::fabs(d1 * Permittivity(cell.layer[At(j)], +1));
        const double b = std::fabs(d2 * Permittivity(cell.layer[At(j + 1)], -1));
        if (a < best || b < best) {
            if (b <= a) {
                layer = j + 1;
                side = -1;
                best = b;
            } else {
                layer = j;
                side = +1;
                best = a;
            }
        }
    }
    if (layer < 0) {
        layer = 0;
        side = +1;
    }
    nw.layer = layer;
    nw.side = side;
    const LayerParameters& chosen = cell.layer[At(layer)];
    nw.epsilon = Permittivity(chosen, side);
    const MaterialParameters& m = chosen.material;
    const double nd = side < 0 ? m.Nd.leftValue : m.Nd.rightValue;
    const double na = side < 0 ? m.Na.leftValue : m.Na.rightValue;
    nw.majorityN = nd > na ? 1 : 0;
}

void parameterset2_to_1(const CellDefinition& cell) {
    CellDefinition& target = parameterset1.cellParas;
    CopyCellParameters(target, cell);
    const UnitChange toFile{true};
    ChangeContactUnits(target.leftContact, toFile);
    ChangeContactUnits(target.rightContact, toFile);
    const int n = LayersInUse(target);
    for (int i = 0; i < n; ++i) {
        LayerParameters& layer = target.layer[At(i)];
        MakeLayerUniform(layer);
        ChangeLayerUnits(layer, toFile);
    }
    for (int i = 0; i + 1 < n; ++i) ChangeInterfaceUnits(target.interface[At(i)], toFile);

    // The permittivity of the Mott-Schottky analysis follows the chosen layer and side.
    if (NW.layer >= 0 && NW.layer < n) {
        NW.epsilon = Permittivity(target.layer[At(NW.layer)], NW.side == -1 ? -1 : +1);
    } else {
        SelectEpsilonForMottSchottky(target, NW);
    }
}

void parameterset1_to_2(CellDefinition& target, const InputParameters& source) {
    CopyCellParameters(target, source.cellParas);
    const UnitChange toUser{false};
    ChangeContactUnits(target.leftContact, toUser);
    ChangeContactUnits(target.rightContact, toUser);
    const int n = LayersInUse(target);
    for (int i = 0; i < n; ++i) ChangeLayerUnits(target.layer[At(i)], toUser);
    for (int i = 0; i + 1 < n; ++i) ChangeInterfaceUnits(target.interface[At(i)], toUser);
}

void InitialiseParameterset2(CellDefinition& cell) {
    // The record is some 150 kB: on the heap, not on the stack, whose pages stay resident.
    const auto defaults = std::make_unique<InputParameters>();
    InitialiseConvergenceParameters(defaults->convergence);
    InitialiseCellDefinition(defaults->cellParas);
    parameterset1_to_2(cell, *defaults);
    // A new cell has no layers in use, but every layer and interface that the user adds later starts
    // from these records, so all of them are given in user form.
    const UnitChange toUser{false};
    for (int i = LayersInUse(cell); i < MAX_LAYERS; ++i) ChangeLayerUnits(cell.layer[At(i)], toUser);
    for (int i = std::max(LayersInUse(cell) - 1, 0); i < MAX_INTERFACES; ++i)
        ChangeInterfaceUnits(cell.interface[At(i)], toUser);
}

// ---------------------------------------------------------------------------------------------------
// Normalisation.

double ThermionicFunction(double x) {
    return x < 0 ? std::exp(x) : 1.0;
}

void parameterset1_to_3(const InputParameters& source, CalculationParameters& target, double temperature,
                        const double* wavelengths, int nWavelengths) {
    const CellDefinition& cell = source.cellParas;
    const int n = LayersInUse(cell);
    const double tr = temperature / 300.0;
    const double sqrtTr = std::sqrt(tr);
    const double kT = KT_300 * tr;

    target.convergence = source.convergence;
    if (couplingSchemeChoice != 0) target.convergence.coupling_scheme = couplingSchemeChoice;
    target.temperature = temperature;
    target.kT = kT;
    target.numberOfLayers = n;
    target.defectdiscretisations = source.convergence.defectdiscretisations;
    target.widthtail = source.convergence.widthtail;
    target.widthgauss = source.convergence.widthgauss;
    target.Fi_m_left = cell.leftContact.Fi_m;
    target.Fi_m_right = cell.rightContact.Fi_m;

    if (n == 0) {
        TERVOErrorMessage("Error in parameterset1_to_3()", "The cell has no layers");
        return;
    }

    // Copies of the graded properties; their thickness is that of the layer in µm, the unit of
    // positions on the mesh.
    for (int i = 0; i < n; ++i) {
        const LayerParameters& layer = cell.layer[At(i)];
        MaterialParameters& m = target.material[At(i)];
        m = layer.material;
        const auto from = MaterialProfiles(layer.material);
        const auto to = MaterialProfiles(m);
        for (size_t k = 0; k < to.size(); ++k) {
            CopyProfile(*to[k], *from[k], 1.0);
            to[k]->thickness = layer.material.d * 1e6;
        }
        CopyProfile(target.composition[At(i)], layer.composition, 1.0);
        target.composition[At(i)].thickness = layer.material.d * 1e6;
        target.thickness[At(i)] = layer.material.d;
        target.insulator[At(i)] = layer.insulator;
        target.functionalKind[At(i)] = layer.functionalKind;
    }

    // Intrinsic density, doping scale, Debye length and diffusion constants at both edges of each layer.
    std::array<std::array<double, 2>, MAX_LAYERS> NcT{}, NvT{}, ni{}, dopingScale{}, debye{};
    double largestD = 0;
    for (int i = 0; i < n; ++i) {
        const MaterialParameters& m = cell.layer[At(i)].material;
        for (int s = 0; s < 2; ++s) {
            auto value = [s](const Profile& p) { return s == 0 ? p.leftValue : p.rightValue; };
            const size_t I = At(i), S = At(s);
            NcT[I][S] = sqrtTr * tr * value(m.Nc);
            NvT[I][S] = sqrtTr * tr * value(m.Nv);
            ni[I][S] = std::sqrt(NcT[I][S] * NvT[I][S] * std::exp(-value(m.Eg) / kT));
            const double net = value(m.Nd) - value(m.Na);
            dopingScale[I][S] = std::max(ni[I][S], std::fabs(net));
            debye[I][S] = std::sqrt(kT * value(m.eps) * EPS0 / (dopingScale[I][S] * Q_ELEM));
            largestD = std::max({largestD, sqrtTr * kT * value(m.mu_n), sqrtTr * kT * value(m.mu_p)});
            const int sign = net == 0 ? 0 : (net > 0 ? -1 : +1);
            (s == 0 ? target.dopingSignLeft : target.dopingSignRight)[I] = sign;
        }
    }
    target.dopingSignLeft[0] = cell.leftContact.contactType;
    target.dopingSignRight[At(n - 1)] = cell.rightContact.contactType;

    // Scales.
    ScaleParameters sc;
    sc.length = 0;
    for (int i = 0; i < n; ++i) sc.length += target.thickness[At(i)];
    sc.diffusion = largestD;
    sc.time = sc.length * sc.length / sc.diffusion;
    sc.velocity = sc.diffusion / sc.length;
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        sc.density[I] = std::max(dopingScale[I][0], dopingScale[I][1]);
        sc.rate[I] = 1.0 / (sc.length * sc.density[I]);
        sc.lambda2[I] = kT * cell.layer[I].material.eps.leftValue * EPS0 /
                        (Q_ELEM * sc.length * sc.length * sc.density[I]);
    }
    target.scale = sc;
    schaal = sc;

    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        target.normalisedThickness[I] = target.thickness[I] / sc.length;
        target.debyeLeft[I] = debye[I][0] / sc.length;
        target.debyeRight[I] = debye[I][1] / sc.length;
        target.niLeft[I] = ni[I][0] / sc.density[I];
        target.niRight[I] = ni[I][1] / sc.density[I];
    }

    // Band offsets and thermionic emission over each interface.  The flux over an interface is
    // limited by the side with the smaller product of density of states and thermal velocity; the
    // velocity is referred to the density on the left of the interface, and a barrier in the way of
    // the carriers reduces it by its Boltzmann factor.
    for (int i = 0; i + 1 < n; ++i) {
        const size_t I = At(i);
        const MaterialParameters& left = cell.layer[I].material;
        const MaterialParameters& right = cell.layer[I + 1].material;
        target.chiStep[I] = right.chi.leftValue - left.chi.rightValue;
        target.valenceStep[I] = left.Eg.rightValue - target.chiStep[I] - right.Eg.leftValue;
        const double An = NcT[I][1] * left.v_th_n.rightValue * sqrtTr;
        const double Bn = NcT[I + 1][0] * right.v_th_n.leftValue * sqrtTr;
        const double Ap = NvT[I][1] * left.v_th_p.rightValue * sqrtTr;
        const double Bp = NvT[I + 1][0] * right.v_th_p.leftValue * sqrtTr;
        const double vn = NcT[I][1] > 0 ? std::min(An, Bn) / NcT[I][1] : 0.0;
        const double vp = NvT[I][1] > 0 ? std::min(Ap, Bp) / NvT[I][1] : 0.0;
        target.v_thermionic_n[I] = vn * ThermionicFunction(target.chiStep[I] / kT) / sc.velocity;
        target.v_thermionic_p[I] = vp * ThermionicFunction(target.valenceStep[I] / kT) / sc.velocity;
    }
    for (int i = std::max(n - 1, 0); i < MAX_INTERFACES; ++i) {
        target.v_thermionic_n[At(i)] = 0;
        target.v_thermionic_p[At(i)] = 0;
    }
    target.S_n_left = cell.leftContact.Sn / sc.velocity;
    target.S_p_left = cell.leftContact.Sp / sc.velocity;
    target.S_n_right = cell.rightContact.Sn / sc.velocity;
    target.S_p_right = cell.rightContact.Sp / sc.velocity;

    // Defects: capture cross sections become rates by the layer's rate scale, densities go by N_i.
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        const LayerParameters& layer = cell.layer[I];
        const double rate = sc.rate[I];
        target.defectsPerLayer[I] = std::clamp(layer.srhteller, 0, MAX_DEFECTS);
        for (int d = 0; d < target.defectsPerLayer[I]; ++d) {
            for (int l = 0; l < MAX_LEVELS; ++l) {
                BulkRecombinationParameters& t = target.srh[I][At(d)][At(l)];
                const BulkRecombinationParameters& s = layer.srh[At(d)][At(l)];
                CopyBulkRecombinationParameters(t, s);
                for (double* sigma : {&t.sigma_n, &t.sigma_p, &t.sigma_n_plus, &t.sigma_n_zero,
                                      &t.sigma_p_zero, &t.sigma_p_min, &t.sigma_n_opt, &t.sigma_p_opt})
                    *sigma /= rate;
                for (double& sigma : t.optCaptElectrons.sigmas) sigma /= rate;
                for (double& sigma : t.optCaptHoles.sigmas) sigma /= rate;
                // The optical cross sections on the wavelengths of the spectrum in use.
                InterpolateOpticalCaptureProperties(t.optCaptElectrons, wavelengths, nWavelengths);
                InterpolateOpticalCaptureProperties(t.optCaptHoles, wavelengths, nWavelengths);
                t.Lkar /= sc.length;
                t.Nleft /= sc.density[I];
                t.Nright /= sc.density[I];
                CopyProfile(t.Nt, s.Nt, 1.0);
                t.Nt.thickness = layer.material.d * 1e6;
                DivideProfile(t.Nt, sc.density[I]);
            }
        }
        for (int k = 0; k < MAX_META; ++k) {
            MetaStableDefectParameters& t = target.meta[I][At(k)];
            t = layer.meta[At(k)];
            t.sigma_acc_n /= rate;
            t.sigma_acc_p /= rate;
            t.sigma_don_n /= rate;
            t.sigma_don_p /= rate;
            CopyProfile(t.Nt, layer.meta[At(k)].Nt, 1.0);
            t.Nt.thickness = layer.material.d * 1e6;
            DivideProfile(t.Nt, sc.density[I]);
        }
    }
    for (int i = 0; i < MAX_INTERFACES; ++i) target.defectsPerInterface[At(i)] = 0;
    for (int i = 0; i + 1 < n; ++i) {
        const size_t I = At(i);
        const InterfaceParameters& interface = cell.interface[I];
        target.defectsPerInterface[I] = std::clamp(interface.numberOfDefects, 0, MAX_IFDEFECTS);
        for (int d = 0; d < target.defectsPerInterface[I]; ++d) {
            InterfaceRecombinationParameters& t = target.interfaceDefect[I][At(d)];
            t = interface.defect[At(d)];
            t.sigma_nleft /= sc.rate[I];
            t.sigma_pleft /= sc.rate[I];
            t.sigma_nright /= sc.rate[I + 1];
            t.sigma_pright /= sc.rate[I + 1];
        }
    }
}

void InitialiseCalculationParameters(CalculationParameters& target, const InputParameters& source,
                                     double temperature) {
    for (auto& layer : target.srh)
        for (auto& defect : layer)
            for (auto& level : defect) {
                InitialiseOpticalCaptureProperties(level.optCaptElectrons);
                InitialiseOpticalCaptureProperties(level.optCaptHoles);
            }
    parameterset1_to_3(source, target, temperature, nullptr, 0);
}

void FreeCalculationParameters(CalculationParameters& target) {
    (void)target; // the record owns no storage beyond its own values
}

// ---------------------------------------------------------------------------------------------------
// Graded properties on the mesh.

namespace {

// Positions of the points of a layer from the start of the layer, in µm, and their composition.
struct LayerAbscissae {
    int first = 0;
    int count = 0;
    MeshArray x{}; // µm from the start of the layer
    MeshArray y{}; // composition
};

LayerAbscissae AbscissaeOfLayer(const CalculationVariables& cv, int layer) {
    LayerAbscissae a;
    const MeshBlock& mesh = cv.mesh;
    a.first = mesh.first_point[At(layer)];
    a.count = mesh.last_point[At(layer)] - a.first + 1;
    for (int k = 0; k < a.count; ++k) {
        a.x[At(k)] = mesh.x_um[At(a.first + k)] - mesh.x_um[At(a.first)];
        a.y[At(k)] = mesh.y[At(a.first + k)];
    }
    return a;
}

bool LayerOnMesh(const CalculationVariables& cv, int layer) {
    return cv.parameters != nullptr && layer >= 0 && layer < cv.parameters->numberOfLayers &&
           layer < cv.mesh.number_of_layers &&
           cv.mesh.last_point[At(layer)] >= cv.mesh.first_point[At(layer)];
}

// Nt of a profile on the points of its layer, in units of N_i: a grading file holds densities that
// are not yet divided by the scale, the other laws already are.
void NtOnLayer(CalculationVariables& cv, Profile& Nt, int layer, double factor, double* target) {
    if (!LayerOnMesh(cv, layer)) return;
    LayerAbscissae a = AbscissaeOfLayer(cv, layer);
    MeshArray values{};
    const MeshArray& abscissae = Nt.dependence == DEP_COMPOSITION ? a.y : a.x;
    interpolation(Nt, abscissae.data(), values.data(), 1, a.count);
    const double divisor = Nt.law == LAW_FROM_FILE ? cv.parameters->scale.density[At(layer)] : 1.0;
    for (int k = 0; k < a.count; ++k) target[a.first + k] = factor * values[At(k)] / divisor;
}

} // namespace

void Full_x_Dependence(CalculationVariables& cv) {
    if (cv.parameters == nullptr) return;
    CalculationParameters& P = *cv.parameters;
    const ScaleParameters& sc = P.scale;
    const double tr = P.temperature / 300.0;
    const double sqrtTr = std::sqrt(tr);
    const double kT = P.kT;
    const double L2 = sc.length * sc.length;
    for (int i = 0; i < P.numberOfLayers && i < cv.mesh.number_of_layers; ++i) {
        if (!LayerOnMesh(cv, i)) continue;
        const size_t I = At(i);
        LayerAbscissae a = AbscissaeOfLayer(cv, i);
        const int first = a.first;
        const size_t count = At(a.count);

        // The composition on the mesh; its effective end values stay as they are.
        Profile& composition = P.composition[I];
        const double keepLeft = composition.leftValue, keepRight = composition.rightValue;
        interpolation(composition, a.x.data(), a.y.data(), 0, a.count);
        composition.leftValue = keepLeft;
        composition.rightValue = keepRight;
        for (size_t k = 0; k < count; ++k) cv.mesh.y[At(first) + k] = a.y[k];

        MeshArray values{};
        // Evaluates a profile at the points of the layer and stores value * factor in `out`.
        auto expand = [&](Profile& p, MeshArray& out, double factor) {
            const MeshArray& abscissae = p.dependence == DEP_POSITION ? a.x : a.y;
            interpolation(p, abscissae.data(), values.data(), 1, a.count);
            for (size_t k = 0; k < count; ++k) out[At(first) + k] = values[k] * factor;
        };
        MaterialParameters& m = P.material[I];
        const double N = sc.density[I];
        expand(m.chi, P.chi, 1.0);
        expand(m.Eg, P.Eg, 1.0);
        expand(m.eps, P.eps, 1.0);
        expand(m.Nc, P.Nc_norm, sqrtTr * tr / N);
        expand(m.Nv, P.Nv_norm, sqrtTr * tr / N);
        expand(m.v_th_n, P.vth_n, sqrtTr / sc.velocity);
        expand(m.v_th_p, P.vth_p, sqrtTr / sc.velocity);
        expand(m.mu_n, P.mu_n, 1.0);
        expand(m.mu_p, P.mu_p, 1.0);
        expand(m.relElectronMass, P.m_tunnel_n, 1.0);
        expand(m.relHoleMass, P.m_tunnel_p, 1.0);
        expand(m.K_rad, P.K_rad, N * L2 / sc.diffusion);
        expand(m.c_n_auger, P.C_n, N * N * L2 / sc.diffusion);
        expand(m.c_p_auger, P.C_p, N * N * L2 / sc.diffusion);
        expand(m.Nd, P.Nd_norm, 1.0 / N);
        expand(m.Na, P.Na_norm, 1.0 / N);

        double chiMax = -1e300, chiEgMax = -1e300, NcMax = 0, NvMax = 0;
        for (size_t k = 0; k < count; ++k) {
            const size_t j = At(first) + k;
            P.D_n[j] = P.mu_n[j] * sqrtTr * kT / sc.diffusion;
            P.D_p[j] = P.mu_p[j] * sqrtTr * kT / sc.diffusion;
            P.doping[j] = P.Nd_norm[j] - P.Na_norm[j];
            chiMax = std::max(chiMax, P.chi[j]);
            chiEgMax = std::max(chiEgMax, P.chi[j] + P.Eg[j]);
            NcMax = std::max(NcMax, P.Nc_norm[j]);
            NvMax = std::max(NvMax, P.Nv_norm[j]);
        }
        const double W = P.Fi_m_left;
        for (size_t k = 0; k < count; ++k) {
            const size_t j = At(first) + k;
            P.band_n[j] = (P.chi[j] - chiMax) / kT + std::log(P.Nc_norm[j] / NcMax);
            P.band_p[j] = (P.chi[j] + P.Eg[j] - chiEgMax) / kT - std::log(P.Nv_norm[j] / NvMax);
            P.Nc_eff[j] = P.Nc_norm[j] * std::exp(-(W - P.chi[j]) / kT);
            P.Nv_eff[j] = P.Nv_norm[j] * std::exp((W - P.chi[j] - P.Eg[j]) / kT);
        }
    }
}

void Full_Nt_x_Dependence(CalculationVariables& cv, BulkRecombinationParameters& level, double* target,
                          double factor) {
    NtOnLayer(cv, level.Nt, level.layernumber, level.energy.peakToTotal * factor, target);
}

void Full_MetaNt_x_Dependence(CalculationVariables& cv, MetaStableDefectParameters& meta, double* target) {
    NtOnLayer(cv, meta.Nt, meta.layer, 1.0, target);
}

// ---------------------------------------------------------------------------------------------------
// States.

namespace {

// The recombination data emptied where they stand: the record is large, and a fresh one assigned to
// it would be built beside it first and then copied over.
void ResetRecombinationData(RecombinationData& r) {
    std::destroy_at(&r);
    std::construct_at(&r);
}

} // namespace

void InitialiseCalculationVariables(CalculationVariables& cv) {
    cv.parameters = nullptr;
    cv.generation = nullptr;
    cv.illumination = nullptr;
    cv.monochromatic = nullptr;
    cv.psi_iterations = 0;
    cv.u_iterations = 0;
    cv.v_iterations = 0;
    cv.coupled_iterations = 0;
    cv.ft_iterations = 0;
    cv.iteration_count = 0;
    cv.max_dpsi = cv.max_dEFn = cv.max_dEFp = 1e30;
    ResetRecombinationData(cv.recombination);
}

int CreateCalculationVariables(CalculationVariables& cv, GenerationParameters* generation,
                               CalculationParameters& parameters, int newMesh, int keepMeta) {
    (void)keepMeta; // no metastable occupations are held yet
    cv.psi_iterations = 0;
    cv.u_iterations = 0;
    cv.v_iterations = 0;
    cv.coupled_iterations = 0;
    cv.ft_iterations = 0;
    cv.iteration_count = 0;
    cv.max_dpsi = cv.max_dEFn = cv.max_dEFp = 1e30;
    cv.parameters = &parameters;
    cv.generation = generation;
    cv.illumination = nullptr;
    cv.monochromatic = nullptr;
    cv.numberOfLayers = parameters.numberOfLayers;
    int result = 0;
    if (newMesh) result = bepaal_intervallen(cv);
    // The recombination data belong to the mesh and are built anew for it; on a kept mesh the
    // occupations and optical rates of the levels carry over.
    const bool keep = !newMesh && RecdataMatchesMesh(cv);
    std::unique_ptr<RecombinationData> old;
    if (keep) old = std::make_unique<RecombinationData>(std::move(cv.recombination));
    ResetRecombinationData(cv.recombination);
    if (result == 0 && cv.mesh.n_points > 0) {
        CreateRecdataStructures(cv, keep ? old.get() : nullptr);
        CreateIFRecdataStructures(cv, keep ? old.get() : nullptr);
    }
    return result;
}

void CopyCalculationVariables(CalculationVariables& to, const CalculationVariables& from) {
    if (&to == &from) return;
    // Every member is a value or a non-owning pointer, and the level records of the recombination data
    // are held in vectors: one assignment copies the solution, the mesh, the counters and the
    // generation pointers and gives `to` its own deep copy of the recombination data.
    to = from;
}

} // namespace tervo
