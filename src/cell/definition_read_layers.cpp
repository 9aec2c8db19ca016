// The layer sections of a definition file: name, thickness, composition and its grading file, the
// material properties as profiles, tunnelling in the layer, and the absorption model of both pure
// materials.
#include "cell/definition_reader.h"
#include "cell/grading.h"
#include "platform/format.h"
#include "platform/text_util.h"

namespace tervo::defread {

namespace {

void SetCoefficientsModel(MaterialParameters& m, bool pureA, bool pureB, int fromFile) {
    if (pureA) {
        m.absorptionA = fromFile;
        if (fromFile)
            m.A_pureA = m.B_pureA = 0;
        else
            m.absorptionFileA.clear();
    }
    if (pureB) {
        m.absorptionB = fromFile;
        if (fromFile)
            m.A_pureB = m.B_pureB = 0;
        else
            m.absorptionFileB.clear();
    }
}

int ModelFromLine(const DefReader& r) {
    const std::string value = ToLower(AfterColon(r.line));
    if (value.find("coefficient") != std::string::npos) return 0;
    if (value.find("file") != std::string::npos) return 1;
    return -1;
}

struct LayerTarget {
    LayerParameters& L;
    bool afterComposition; // the line before was the composition line
    bool& lastWasComposition;
};

using Entry = KeyEntry<LayerTarget>;
constexpr KeyMatch NoCase = KeyMatch::NoCase;
constexpr KeyMatch Exact = KeyMatch::Exact;

void ReadCompositionLine(DefReader& r, LayerTarget& t) {
    LayerParameters& L = t.L;
    if (!r.ProfileLine(L.composition, Range::Any)) return;
    L.composition.dependence = DEP_POSITION;
    switch (L.composition.law) {
    case LAW_UNIFORM_PURE_B:
        L.compositionType = 20;
        break;
    case LAW_UNIFORM_Y:
        L.compositionType = 21;
        break;
    case LAW_UNIFORM:
        L.compositionType = 0;
        break;
    default:
        L.compositionType = 1;
        break;
    }
    t.lastWasComposition = true;
}

// The keys of a layer section, in the order in which they are tried.
constexpr auto kLayerKeys = std::to_array<Entry>({
    {"name", NoCase,
     [](DefReader& r, LayerTarget& t) {
         std::string name = AfterColon(r.line);
         if (name.size() > MAX_LAYER_NAME) name.resize(MAX_LAYER_NAME);
         t.L.name = name;
         t.L.material.name = name;
         r.where = LastLayerPlace(r.cell());
     }},
    {"d", Exact,
     [](DefReader& r, LayerTarget& t) {
         double d = 0;
         if (!r.Number(d, false, Range::Positive)) return;
         if (d > MAX_LAYER_THICKNESS_M) {
             r.Warn(FmtStr("%s[q]<the thickness %f[e3p3] m in \"%s\" is beyond the %f[e3p0] m that a "
                           "layer's mesh can span; the value is left as it was.",
                           d, TrimRight(r.line), MAX_LAYER_THICKNESS_M));
             return;
         }
         t.L.material.d = d;
     }},
    // A grading file belongs to the composition line just before it.
    {"Grading file", NoCase,
     [](DefReader& r, LayerTarget& t) {
         if (!t.afterComposition) return;
         const std::string name = AfterColon(r.line);
         if (name.empty()) return;
         t.L.composition.gradingFile = InHomeFolder("grading", name);
         t.L.composition.fileState = 0;
     }},
    {"composition", NoCase, ReadCompositionLine},
    {"v_th_n", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.v_th_n, Range::Positive); }},
    {"v_th_p", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.v_th_p, Range::Positive); }},
    // One thermal velocity for both carriers.
    {"v_th :", NoCase,
     [](DefReader& r, LayerTarget& t) {
         MaterialParameters& m = t.L.material;
         if (!r.ProfileLine(m.v_th_n, Range::Positive)) return;
         const int id = m.v_th_p.variableId;
         m.v_th_p = m.v_th_n;
         m.v_th_p.variableId = id;
     }},
    {"eps", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.eps, Range::Positive); }},
    {"chi", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.chi, Range::Any); }},
    // The absorption edge follows the band gap of both pure materials.
    {"Eg", Exact,
     [](DefReader& r, LayerTarget& t) {
         MaterialParameters& m = t.L.material;
         if (!r.ProfileLine(m.Eg, Range::Positive)) return;
         if (m.Eg.pureA > 0) m.absorption.pureA = 1239.977 / m.Eg.pureA;
         if (m.Eg.pureB > 0) m.absorption.pureB = 1239.977 / m.Eg.pureB;
     }},
    {"Nc", Exact, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.Nc, Range::Positive); }},
    {"Nv", Exact, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.Nv, Range::Positive); }},
    {"mu_n", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.mu_n, Range::Positive); }},
    {"mu_p", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.mu_p, Range::Positive); }},
    {"Tunneling in layer", NoCase,
     [](DefReader& r, LayerTarget& t) {
         MaterialParameters& m = t.L.material;
         if (r.Integer(m.tunnelling, false, 0, 1))
             NoteTunnelFlagFromElement(r, m.tunnelling, r.P.convergence.Tunnelintraband_allowed);
     }},
    {"Relative electron mass", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.relElectronMass, Range::Positive); }},
    {"Relative hole mass", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.relHoleMass, Range::Positive); }},
    {"K_rad", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.K_rad, Range::NonNegative); }},
    {"c_n_auger", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.c_n_auger, Range::NonNegative); }},
    {"c_p_auger", NoCase, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.c_p_auger, Range::NonNegative); }},
    {"Na", Exact, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.Na, Range::NonNegative); }},
    {"Nd", Exact, [](DefReader& r, LayerTarget& t) { r.ProfileLine(t.L.material.Nd, Range::NonNegative); }},
    {"absorption grading", Exact,
     [](DefReader& r, LayerTarget& t) {
         if (!r.ProfileLine(t.L.material.absorption, Range::Any)) return;
         t.L.material.absorption.dependence = DEP_COMPOSITION;
     }},
    {"absorptionmodel :", NoCase,
     [](DefReader& r, LayerTarget& t) {
         const int model = ModelFromLine(r);
         if (model >= 0) SetCoefficientsModel(t.L.material, true, true, model);
     }},
    {"absorptionmodel pure A material (y=0)", NoCase,
     [](DefReader& r, LayerTarget& t) {
         const int model = ModelFromLine(r);
         if (model >= 0) SetCoefficientsModel(t.L.material, true, false, model);
     }},
    {"absorption pure B material (y=1), model", NoCase,
     [](DefReader& r, LayerTarget& t) {
         const int model = ModelFromLine(r);
         if (model >= 0) SetCoefficientsModel(t.L.material, false, true, model);
     }},
    {"A :", Exact,
     [](DefReader& r, LayerTarget& t) {
         double v = 0;
         if (r.Number(v, true)) t.L.material.A_pureA = t.L.material.A_pureB = v;
     }},
    {"pure B material (y=1), A :", Exact, [](DefReader& r, LayerTarget& t) { r.Number(t.L.material.A_pureB, true); }},
    {"B :", Exact,
     [](DefReader& r, LayerTarget& t) {
         double v = 0;
         if (r.Number(v, true)) t.L.material.B_pureA = t.L.material.B_pureB = v;
     }},
    {"pure B material (y=1), B :", Exact, [](DefReader& r, LayerTarget& t) { r.Number(t.L.material.B_pureB, true); }},
    {"absorptionfile :", Exact,
     [](DefReader& r, LayerTarget& t) {
         t.L.material.absorptionFileA = t.L.material.absorptionFileB = AfterColon(r.line);
     }},
    {"absorptionfile pure A material (y=0) :", Exact,
     [](DefReader& r, LayerTarget& t) { t.L.material.absorptionFileA = AfterColon(r.line); }},
    {"absorption pure B material (y=1), file :", Exact,
     [](DefReader& r, LayerTarget& t) { t.L.material.absorptionFileB = AfterColon(r.line); }},
});

// The line that ends a section of layer-bound data.
bool EndsLayerData(const DefReader& r) {
    return StartsLayer(r) || r.Holds("srhrecombination") || r.Holds("interface properties") ||
           r.Holds("interface recombination") || r.Holds("front contact") || r.Holds("right contact") ||
           r.Holds("spectrumfile") || r.Holds("working point") || r.Holds("Metastable properties");
}

} // namespace

std::string LastLayerPlace(const CellDefinition& cell) {
    const int n = cell.numberOfLayers;
    const std::string& name = n > 0 ? cell.layer[static_cast<size_t>(n - 1)].name : std::string();
    return name.empty() ? FmtStr("%s<layer %i", n) : FmtStr("%s<layer %i (%s)", n, name);
}

bool StartsLayer(const DefReader& r) {
    return StartsWithNoCase(r.line, "layer");
}

bool ReadLayerSection(DefReader& r) {
    CellDefinition& cell = r.cell();
    r.where = FmtStr("%s<layer %i", cell.numberOfLayers + 1);
    if (cell.numberOfLayers >= MAX_LAYERS) {
        r.Fail(FmtStr("the file declares more than %i layers", MAX_LAYERS));
        return false;
    }
    LayerParameters& L = cell.layer[static_cast<size_t>(cell.numberOfLayers)];
    ++cell.numberOfLayers;
    L.isNew = 0;
    bool lastWasComposition = false;
    while (r.Next()) {
        if (EndsLayerData(r)) return true;
        LayerTarget target{L, lastWasComposition, lastWasComposition};
        lastWasComposition = false;
        if (!ReadKeyedLine(r, kLayerKeys, target)) r.WarnUnknownKey();
        if (r.failed) return false;
    }
    return false;
}

void FinishLayers(DefReader& r) {
    CellDefinition& cell = r.cell();
    for (int i = 0; i < cell.numberOfLayers; ++i) {
        LayerParameters& L = cell.layer[static_cast<size_t>(i)];
        if (L.composition.law == LAW_UNIFORM) {
            if (L.composition.pureA == 0) {
                L.composition.law = LAW_UNIFORM;
                L.compositionType = 0;
            } else if (L.composition.pureA == 1) {
                L.composition.law = LAW_UNIFORM_PURE_B;
                L.compositionType = 20;
            } else {
                L.composition.law = LAW_UNIFORM_Y;
                L.compositionType = 21;
            }
        }
        L.material.compositionType = L.compositionType;
        // The composition is a function of the position in the layer.
        L.composition.dependence = DEP_POSITION;
        L.layernumber = i;
        if (L.material.name.empty()) L.material.name = L.name;
        UpdateThicknessInProfiles_Layer(L);
    }
    if (r.referenceLinesRead) SetSignsFromConventions(cell);
}

} // namespace tervo::defread
