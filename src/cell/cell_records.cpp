#include "cell/cell_records.h"

#include <cmath>
#include <memory>
#include <numbers>

#include "cell/definition_file.h"
#include "platform/messages.h"

namespace tervo {

CellDefinition zonnecel;
CellDefinition current_cell;
std::array<LayerParameters, MAX_LAYERS> current_layers;
std::array<InterfaceParameters, MAX_INTERFACES> current_interfaces;

const char* FunctionalKindText(int kind) {
    switch (kind) {
    case KIND_PHYSICAL:
        return "physical layer";
    case KIND_INTER_OPTICAL:
        return "interlayer: optical";
    case KIND_INTER_ELECTRICAL:
        return "interlayer: electrical";
    case KIND_INTER_ELECTROOPTICAL:
        return "interlayer: electro-optical";
    case KIND_CONTACT_OPTICAL:
        return "contact layer: optical";
    case KIND_CONTACT_ELECTRICAL:
        return "contact layer: electrical";
    case KIND_CONTACT_ELECTROOPTICAL:
        return "contact layer: electro-optical";
    default:
        return "";
    }
}

const char* LawName(int law) {
    static constexpr std::array<const char*, NUMBER_OF_LAWS> names = {
        "uniform",     "linear",        "parabolic",           "logarithmic",
        "exponential", "Beta function", "effective medium",    "alpha interpolation",
        "power law",   "parabolic 2",   "uniform pure B(y=1)", "uniform y, 0<y<1",
        "from file",   "table"};
    return (law >= 0 && law < NUMBER_OF_LAWS) ? names[static_cast<size_t>(law)] : "";
}

void InitialiseProfile(Profile& p) {
    p = Profile{};
}

void SetProfileScaleParameters(Profile& p) {
    switch (p.law) {
    case LAW_PARABOLIC:
        p.unitPar1 = 1;
        p.unitPar2 = 1;
        break;
    case LAW_EXPONENTIAL:
        p.unitPar1 = 1;
        p.unitPar2 = 0;
        break;
    case LAW_PARABOLIC2:
        p.unitPar1 = 0;
        p.unitPar2 = 1;
        break;
    case LAW_UNIFORM_PURE_B:
    case LAW_UNIFORM_Y:
    case LAW_TABLE:
        break; // these laws keep the flags they had
    default:
        p.unitPar1 = 0;
        p.unitPar2 = 0;
        break;
    }
}

namespace {

// A material profile with its code and the seven values pureA, pureB, lawPar1..3, left, right.
void SetMaterialProfile(Profile& p, int id, double pureA, double pureB, double par1, double par2, double par3,
                        double left, double right, int dependence = DEP_COMPOSITION) {
    InitialiseProfile(p);
    p.variableId = id;
    p.pureA = pureA;
    p.pureB = pureB;
    p.lawPar1 = par1;
    p.lawPar2 = par2;
    p.lawPar3 = par3;
    p.leftValue = left;
    p.rightValue = right;
    p.law = LAW_UNIFORM;
    p.dependence = dependence;
}

void SetAll(Profile& p, int id, double v) {
    SetMaterialProfile(p, id, v, v, v, v, v, v, v);
}

// The density profile of a defect: 1e20 everywhere, parameters 1.
void InitialiseNtProfile(Profile& p) {
    InitialiseProfile(p);
    p.variableId = VAR_NT;
    p.law = LAW_UNIFORM;
    p.dependence = DEP_COMPOSITION;
    p.pureA = p.pureB = p.lawPar1 = p.leftValue = p.rightValue = 1e20;
    p.lawPar2 = p.lawPar3 = 1;
}

} // namespace

void InitialiseOpticalCaptureProperties(OpticalCaptureProperties& p) {
    p = OpticalCaptureProperties{};
}

void AllocateOpticalCaptureProperties(OpticalCaptureProperties& p, int n) {
    if (n <= 0) {
        p.count = 0;
        p.sigmas.clear();
        p.sigmas.shrink_to_fit();
        p.wavelengths.clear();
        p.wavelengths.shrink_to_fit();
        return;
    }
    p.count = n;
    p.sigmas.assign(static_cast<size_t>(n), 0.0);
    p.wavelengths.assign(static_cast<size_t>(n), 0.0);
}

void CopyOpticalCaptureProperties(OpticalCaptureProperties& to, const OpticalCaptureProperties& from) {
    const int first = to.firstWavelength;
    to = from;
    to.firstWavelength = first;
}

void InitialiseBulkRecombinationParameters(BulkRecombinationParameters& p, int layer, int defect) {
    p = BulkRecombinationParameters{};
    p.layernumber = layer;
    p.defectnumber = defect;
    p.energy = EDistribution{};
    DeterminePeakToTotal(p.energy);
    InitialiseNtProfile(p.Nt);
}

void InitialiseInterfaceRecombinationParameters(InterfaceRecombinationParameters& p, int interface,
                                                int defect) {
    p = InterfaceRecombinationParameters{};
    p.interfaceNumber = interface;
    p.defectnumber = defect;
    p.energy = EDistribution{};
    p.energy.reference = 3;
    p.energy.Et = 0.6;
    p.energy.Ekar = 0.1;
    p.energy.peakToTotal = 1;
}

void InitialiseInterfaceParameters(InterfaceParameters& p, int interface) {
    p = InterfaceParameters{};
    p.interfaceNumber = interface;
    for (int d = 0; d < MAX_IFDEFECTS; ++d)
        InitialiseInterfaceRecombinationParameters(p.defect[static_cast<size_t>(d)], interface, d);
}

void InitialiseMaterialParameters(MaterialParameters& m) {
    m = MaterialParameters{};
    SetMaterialProfile(m.chi, VAR_CHI, 4.5, 4.5, 1, 1, 1, 4.5, 4.5);
    SetMaterialProfile(m.Eg, VAR_EG, 1.2, 1.2, 0.5, 1, 1, 1.2, 1.2);
    SetAll(m.eps, VAR_EPS, 10);
    SetMaterialProfile(m.Nc, VAR_NC, 1e25, 1e25, 10, 10, 10, 1e25, 1e25);
    SetMaterialProfile(m.Nv, VAR_NV, 1e25, 1e25, 10, 10, 10, 1e25, 1e25);
    SetMaterialProfile(m.Nd, VAR_ND, 1e21, 1e21, 10, 10, 10, 1e21, 1e21, DEP_UNIFORM);
    SetMaterialProfile(m.Na, VAR_NA, 1e21, 1e21, 10, 10, 10, 1e21, 1e21, DEP_UNIFORM);
    SetMaterialProfile(m.mu_n, VAR_MUN, 0.005, 0.005, 0.001, 1, 1, 0.005, 0.005);
    SetMaterialProfile(m.mu_p, VAR_MUP, 0.005, 0.005, 0.001, 1, 1, 0.005, 0.005);
    SetAll(m.relElectronMass, VAR_MASS_ELECTRON, 1);
    SetAll(m.relHoleMass, VAR_MASS_HOLE, 1);
    SetMaterialProfile(m.v_th_n, VAR_VTHN, 1e5, 1e5, 10, 10, 10, 1e5, 1e5);
    SetMaterialProfile(m.v_th_p, VAR_VTHP, 1e5, 1e5, 10, 10, 10, 1e5, 1e5);
    SetMaterialProfile(m.K_rad, VAR_KRAD, 0, 0, 10, 10, 10, 1e25, 1e25);
    SetMaterialProfile(m.c_n_auger, VAR_CN_AUGER, 0, 0, 10, 10, 10, 1e25, 1e25);
    SetMaterialProfile(m.c_p_auger, VAR_CP_AUGER, 0, 0, 10, 10, 10, 1e25, 1e25);
    SetMaterialProfile(m.absorption, VAR_ABSORPTION, 1200, 1200, 250, 250, 0, 1.2, 1.2);
    for (Profile* p : MaterialProfiles(m)) p->thickness = m.d;
}

void InitialiseMetaStableDefectParameters(MetaStableDefectParameters& p) {
    p = MetaStableDefectParameters{};
    InitialiseNtProfile(p.Nt);
}

void InitialiseContactParameters(ContactParameters& p, int side) {
    p = ContactParameters{};
    if (side < 0) {
        p.Sn = 1000;
        p.Sp = 100000;
    } else {
        p.Sn = 100000;
        p.Sp = 1000;
    }
}

void InitialiseLayerParameters(LayerParameters& p, int layer, int isNew) {
    p = LayerParameters{};
    p.layernumber = layer;
    p.isNew = isNew;
    InitialiseMaterialParameters(p.material);
    for (int d = 0; d < MAX_DEFECTS; ++d)
        for (int l = 0; l < MAX_LEVELS; ++l) {
            BulkRecombinationParameters& level = p.srh[static_cast<size_t>(d)][static_cast<size_t>(l)];
            InitialiseBulkRecombinationParameters(level, layer, d);
            level.levelnumber = l;
        }
    InitialiseProfile(p.composition);
    p.composition.variableId = VAR_COMPOSITION;
    p.composition.law = LAW_UNIFORM;
    p.composition.pureA = 0;
    p.composition.pureB = 1;
    p.composition.relativePosition = 1;
    p.composition.thickness = p.material.d;
    for (auto& meta : p.meta) {
        InitialiseMetaStableDefectParameters(meta);
        meta.layer = layer;
    }
}

int LimitDefectDiscretisations(int value) {
    if (value > MAX_DEFECT_DISCRETISATIONS) {
        TERVOErrorMessage(
            "Warning", "The maximum number of discretisationlevels for distributed defects is limited to " +
                           std::to_string(MAX_DEFECT_DISCRETISATIONS) + " levels.");
        return MAX_DEFECT_DISCRETISATIONS;
    }
    if (value < 2) {
        TERVOErrorMessage("Warning",
                          "The number of discretisationlevels for distributed defects should higher than 1.");
        return 1;
    }
    return value;
}

void InitialiseConvergenceParameters(ConvergenceParameters& p) {
    p = ConvergenceParameters{};
}

void InitialiseCellDefinition(CellDefinition& p) {
    // Made anew in place: an assignment from a fresh record would first build its 150 kB on the stack.
    std::destroy_at(&p);
    std::construct_at(&p);
    for (int i = 0; i < MAX_LAYERS; ++i) InitialiseLayerParameters(p.layer[static_cast<size_t>(i)], i, 1);
    for (int i = 0; i < MAX_INTERFACES; ++i)
        InitialiseInterfaceParameters(p.interface[static_cast<size_t>(i)], i);
    p.numberOfLayers = 0;
    InitialiseContactParameters(p.leftContact, -1);
    InitialiseContactParameters(p.rightContact, +1);
    p.voltageAppliedTo = -1;
    p.referenceSystem = 1;
    p.signV = 1;
    p.signJ = 1;
}

void InitialiseInputParameters(InputParameters& p) {
    p.name.clear();
    p.path.clear();
    InitialiseConvergenceParameters(p.convergence);
    InitialiseCellDefinition(p.cellParas);
    ResetRemarks("new problem");
}

std::array<Profile*, NUMBER_OF_MATERIAL_PROFILES> MaterialProfiles(MaterialParameters& m) {
    return {&m.chi,         &m.Eg,        &m.eps,    &m.Nc,    &m.Nv,
            &m.Nd,          &m.Na,        &m.mu_n,   &m.mu_p,  &m.relElectronMass,
            &m.relHoleMass, &m.v_th_n,    &m.v_th_p, &m.K_rad, &m.c_n_auger,
            &m.c_p_auger,   &m.absorption};
}

std::array<const Profile*, NUMBER_OF_MATERIAL_PROFILES> MaterialProfiles(const MaterialParameters& m) {
    return {&m.chi,         &m.Eg,        &m.eps,    &m.Nc,    &m.Nv,
            &m.Nd,          &m.Na,        &m.mu_n,   &m.mu_p,  &m.relElectronMass,
            &m.relHoleMass, &m.v_th_n,    &m.v_th_p, &m.K_rad, &m.c_n_auger,
            &m.c_p_auger,   &m.absorption};
}

Profile* ProfileOfLayer(LayerParameters& layer, int variableId) {
    if (variableId == VAR_COMPOSITION) return &layer.composition;
    for (Profile* p : MaterialProfiles(layer.material))
        if (p->variableId == variableId) return p;
    return nullptr;
}

void UpdateThicknessInProfiles_Layer(LayerParameters& layer) {
    const double d = layer.material.d;
    layer.composition.thickness = d;
    for (Profile* p : MaterialProfiles(layer.material)) p->thickness = d;
    for (int dft = 0; dft < layer.srhteller && dft < MAX_DEFECTS; ++dft) {
        DefectLevels& levels = layer.srh[static_cast<size_t>(dft)];
        const int n = std::min(std::max(levels[0].numberOfLevels, 1), MAX_LEVELS);
        for (int l = 0; l < n; ++l) levels[static_cast<size_t>(l)].Nt.thickness = d;
    }
    for (auto& meta : layer.meta) meta.Nt.thickness = d;
}

void UpdateThicknessInProfiles_Cell(CellDefinition& cell) {
    for (int i = 0; i < cell.numberOfLayers && i < MAX_LAYERS; ++i)
        UpdateThicknessInProfiles_Layer(cell.layer[static_cast<size_t>(i)]);
}

void FreeCellDefinition(CellDefinition& cell) {
    for (auto& layer : cell.layer)
        for (auto& defect : layer.srh)
            for (auto& level : defect) {
                AllocateOpticalCaptureProperties(level.optCaptElectrons, 0);
                AllocateOpticalCaptureProperties(level.optCaptHoles, 0);
                level.Nt.xlist.clear();
                level.Nt.ylist.clear();
                level.Nt.npoints = 0;
            }
}

void CopyBulkRecombinationParameters(BulkRecombinationParameters& to,
                                     const BulkRecombinationParameters& from) {
    to = from; // the records own their arrays, so assignment copies them
}

void CopyCellParameters(CellDefinition& to, const CellDefinition& from) {
    to = from;
}

void MakeUniform(Profile& p, int which) {
    if (which == 0) {
        p.leftValue = p.rightValue = p.pureA;
    } else if (which == 1) {
        p.leftValue = p.rightValue = p.pureB;
    }
}

void DeterminePeakToTotal(EDistribution& e) {
    switch (e.type) {
    case EDIST_SINGLE:
        e.peakToTotal = 1;
        break;
    case EDIST_UNIFORM:
    case EDIST_CBTAIL:
    case EDIST_VBTAIL:
        e.peakToTotal = 1 / e.Ekar;
        break;
    case EDIST_GAUSS:
        e.peakToTotal = 1 / (std::sqrt(std::numbers::pi) * e.Ekar);
        break;
    default:
        e.peakToTotal = 1;
        break;
    }
}

void SetSignsFromConventions(CellDefinition& cell) {
    cell.signV = (cell.voltageAppliedTo == -1) ? 1 : -1;
    if (cell.voltageAppliedTo == -1)
        cell.signJ = (cell.referenceSystem == 1) ? 1 : -1;
    else
        cell.signJ = (cell.referenceSystem == 1) ? -1 : 1;
}

void InitialiseShortCellDefinition(ShortCellDefinition& s) {
    s = ShortCellDefinition{};
}

namespace {
ShortProfile ToShort(const Profile& p) {
    return ShortProfile{p.law, p.dependence};
}
} // namespace

void LongToShortCellDefinition(const CellDefinition& cell, ShortCellDefinition& s) {
    InitialiseShortCellDefinition(s);
    s.numberOfLayers = cell.numberOfLayers;
    auto contact = [](const ContactParameters& c) {
        return ShortContact{c.flatband, c.opticalFilter, c.wavelengthIndependent, c.transmission};
    };
    s.leftContact = contact(cell.leftContact);
    s.leftTunnelling = cell.leftContact.tunnelling;
    s.rightContact = contact(cell.rightContact);
    s.rightTunnelling = cell.rightContact.tunnelling;
    for (size_t i = 0; i < MAX_LAYERS; ++i) {
        const LayerParameters& L = cell.layer[i];
        const MaterialParameters& m = L.material;
        ShortLayer& sl = s.layer[i];
        sl.compositionLaw = L.composition.law;
        sl.srhteller = L.srhteller;
        const std::array<const Profile*, 14> props = {
            &m.chi,  &m.Eg,   &m.eps,    &m.Nc,     &m.Nv,    &m.Nd,        &m.Na,
            &m.mu_n, &m.mu_p, &m.v_th_n, &m.v_th_p, &m.K_rad, &m.c_n_auger, &m.c_p_auger};
        for (size_t k = 0; k < props.size(); ++k) sl.material[k] = ToShort(*props[k]);
        sl.absorptionLaw = m.absorption.law;
        sl.absorptionA = m.absorptionA;
        sl.absorptionB = m.absorptionB;
        sl.tunnelling = m.tunnelling;
        for (size_t d = 0; d < MAX_DEFECTS; ++d)
            for (size_t l = 0; l < MAX_LEVELS; ++l) {
                const BulkRecombinationParameters& lv = L.srh[d][l];
                ShortLevel& sv = s.layer[i].srh[d][l];
                sv.numberOfLevels = lv.numberOfLevels;
                sv.energyType = lv.energy.type;
                sv.fromFileElectrons = lv.optCaptElectrons.fromFile;
                sv.fromFileHoles = lv.optCaptHoles.fromFile;
                sv.fromModelElectrons = lv.optCaptElectrons.fromModel;
                sv.fromModelHoles = lv.optCaptHoles.fromModel;
                sv.Nt = ToShort(lv.Nt);
            }
        for (size_t k = 0; k < MAX_META; ++k) {
            sl.meta[k].present = L.meta[k].allowmeta;
            sl.meta[k].userDefined = L.meta[k].userDefined;
            sl.meta[k].Nt = ToShort(L.meta[k].Nt);
        }
    }
    for (size_t i = 0; i < MAX_INTERFACES; ++i) {
        const InterfaceParameters& f = cell.interface[i];
        s.interface[i].numberOfDefects = f.numberOfDefects;
        s.interface[i].namePresent = f.name.empty() ? 0 : 1;
        s.interface[i].intrabandTunnelling = f.intrabandTunnelling;
        for (size_t d = 0; d < MAX_IFDEFECTS; ++d) {
            s.interface[i].defect[d].energyType = f.defect[d].energy.type;
            s.interface[i].defect[d].tunnelling = f.defect[d].tunnelling;
        }
    }
}

} // namespace tervo
