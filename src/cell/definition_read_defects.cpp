// The defect sections of a layer in a definition file: bulk defects with their levels, their energy
// distribution and spatial profile (also in the old description by profile, Lkar, Nleft and Nright),
// their optical capture data, and the metastable defect pairs.
#include <algorithm>

#include "cell/definition_reader.h"
#include "cell/grading.h"
#include "platform/analysis.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"

namespace tervo::defread {

namespace {

struct DefectReadState {
    bool ntSeen = false;
    bool oldSeen = false; // profile, Lkar, Nleft or Nright of the old description
    bool levelsRead = false;
};

template <typename F>
void ForAllLevels(DefectLevels& d, F f) {
    for (auto& level : d) f(level);
}

int LevelTypeFromToken(const std::string& token) {
    if (token.empty()) return 0;
    switch (token[0]) {
    case '+':
        return 4;
    case '-':
        return 2;
    case '0':
        return 3;
    case '2':
        return (token.size() > 1 && token[1] == '-') ? 1 : 5;
    case '3':
        return 6;
    default:
        return 0;
    }
}

// The levels' values of a line "key : v1 v2 ... [unit]" behind the colon.
int LevelValues(const DefReader& r, double* values, int count) {
    const std::string behind = AfterColon(r.line);
    return ReadNumberRun(behind, values, count);
}

void ReadOpticalCaptureData(DefReader& r, DefectLevels& d, bool electrons) {
    const char* carrier = electrons ? "electrons" : "holes";
    auto props = [&](int level) -> OpticalCaptureProperties& {
        BulkRecombinationParameters& lv = d[static_cast<size_t>(level)];
        return electrons ? lv.optCaptElectrons : lv.optCaptHoles;
    };
    const std::string round = FmtStr("%s<optical capture data (%s)", carrier);
    const std::string square = FmtStr("%s<optical capture data [%s]", carrier);
    if (r.Key(round)) {
        if (r.Key(round + ": level 1, none")) return;
        const std::string file = AfterColon(r.line);
        if (file.empty()) return;
        props(0).fileName = file;
        props(0).fromFile = 1;
        r.S.ipvMode = 1;
    } else if (r.Key(square)) {
        const std::string behind = AfterColon(r.line);
        double levelNumber = 0;
        if (!FirstNumber(behind, levelNumber)) {
            r.WarnNoNumber();
            return;
        }
        const int level = TruncateToInt(levelNumber - 1);
        if (level < 0 || level >= LevelCount(d)) {
            r.Fail(FmtStr("optical capture data for level %i of a defect with %i level(s)", level + 1,
                          LevelCount(d)));
            return;
        }
        if (ContainsNoCase(behind, ", none")) return;
        const size_t comma = behind.find(',');
        if (comma == std::string::npos) return;
        const std::string file = Trim(std::string_view(behind).substr(comma + 1));
        if (file.empty()) return;
        props(level).fileName = file;
        props(level).fromFile = 1;
        r.S.ipvMode = 1;
    }
}

bool ReadOpticalCaptureModel(DefReader& r, DefectLevels& d) {
    struct Item {
        const char* key;
        bool electrons;
        int field; // 0 model flag, 1 n, 2 m*/m0, 3 Eeff/E0, 4 Emax
    };
    static constexpr Item items[] = {
        {"optical capture of electrons, data from model", true, 0},
        {"optical capture of holes, data from model", false, 0},
        {"optical capture of electrons, n", true, 1},
        {"optical capture of holes, n", false, 1},
        {"optical capture of electrons, m*/m0", true, 2},
        {"optical capture of holes, m*/m0", false, 2},
        {"optical capture of electrons, Eeff/E0", true, 3},
        {"optical capture of holes, Eeff/E0", false, 3},
        {"optical capture of electrons, Emax (eV)", true, 4},
        {"optical capture of holes, Emax (eV)", false, 4},
    };
    for (const Item& it : items) {
        if (!r.KeyExact(it.key)) continue;
        const int n = LevelCount(d);
        double values[MAX_LEVELS];
        const int got = LevelValues(r, values, n);
        if (got < n) r.WarnNoNumber();
        for (int l = 0; l < got; ++l) {
            OpticalCaptureProperties& o = it.electrons ? d[static_cast<size_t>(l)].optCaptElectrons
                                                       : d[static_cast<size_t>(l)].optCaptHoles;
            switch (it.field) {
            case 0:
                o.fromModel = TruncateToInt(values[l]);
                break;
            case 1:
                o.n = values[l];
                break;
            case 2:
                o.mStar = values[l];
                break;
            case 3:
                o.EeffE0 = values[l];
                break;
            default:
                o.Emax = values[l];
                break;
            }
        }
        return true;
    }
    return false;
}

struct DefectTarget {
    DefectLevels& d;
    DefectReadState& st;
};

using Entry = KeyEntry<DefectTarget>;
constexpr KeyMatch NoCase = KeyMatch::NoCase;
constexpr KeyMatch Exact = KeyMatch::Exact;
constexpr KeyMatch Anywhere = KeyMatch::Anywhere;

// A value of the line that every level of the defect takes.
template <double BulkRecombinationParameters::*field>
void ForEveryLevel(DefReader& r, DefectTarget& t) {
    double v = 0;
    if (r.Number(v)) ForAllLevels(t.d, [&](BulkRecombinationParameters& lv) { lv.*field = v; });
}

// A value of the old description of the spatial profile; an Nt line of the same defect overrides it.
template <double BulkRecombinationParameters::*field>
void OldDescription(DefReader& r, DefectTarget& t) {
    double v = 0;
    if (!t.st.ntSeen && r.Number(v)) {
        ForAllLevels(t.d, [&](BulkRecombinationParameters& lv) { lv.*field = v; });
        t.st.oldSeen = true;
    }
}

void ReadDefectType(DefReader& r, DefectTarget& t) {
    const int type = TypeFromLine(r.line);
    double levels = 1;
    const size_t paren = r.line.find('(');
    int n = 1;
    if (paren != std::string::npos && FirstNumber(std::string_view(r.line).substr(paren), levels))
        n = TruncateToInt(levels);
    if (n < 1 || n > MAX_LEVELS) {
        r.Fail(FmtStr("a defect with %i levels; at most %i are possible", n, MAX_LEVELS));
        return;
    }
    ForAllLevels(t.d, [&](BulkRecombinationParameters& lv) {
        if (type >= 0) lv.type = type;
        lv.numberOfLevels = n;
    });
}

void ReadNtProfile(DefReader& r, DefectTarget& t) {
    Profile p = t.d[0].Nt;
    InputLineToProfile(r.line, p);
    p.variableId = VAR_NT;
    ForAllLevels(t.d, [&](BulkRecombinationParameters& lv) { lv.Nt = p; });
    t.st.ntSeen = true;
}

void ReadOldProfileType(DefReader& r, DefectTarget& t) {
    if (t.st.ntSeen) return;
    const std::string v = AfterColon(r.line);
    int prof = -1;
    for (int i = 0; i < 3; ++i)
        if (ContainsNoCase(v, spatialDistrTypeStringsSaveAndLoad[static_cast<size_t>(i)]) ||
            ContainsNoCase(v, spatialDistrTypeStrings[static_cast<size_t>(i)]))
            prof = i;
    if (prof >= 0) {
        ForAllLevels(t.d, [&](BulkRecombinationParameters& lv) { lv.profile = prof; });
        t.st.oldSeen = true;
    }
}

// The keys of the values that hold for the whole defect, in the order in which they are tried.
constexpr auto kDefectKeys = std::to_array<Entry>({
    {"type", NoCase, ReadDefectType},
    {"sigma_n_opt", NoCase, ForEveryLevel<&BulkRecombinationParameters::sigma_n_opt>},
    {"sigma_p_opt", NoCase, ForEveryLevel<&BulkRecombinationParameters::sigma_p_opt>},
    {"sigma_n_plus", NoCase, ForEveryLevel<&BulkRecombinationParameters::sigma_n_plus>},
    {"sigma_n_zero", NoCase, ForEveryLevel<&BulkRecombinationParameters::sigma_n_zero>},
    {"sigma_p_zero", NoCase, ForEveryLevel<&BulkRecombinationParameters::sigma_p_zero>},
    {"sigma_p_min", NoCase, ForEveryLevel<&BulkRecombinationParameters::sigma_p_min>},
    {"energy distribution", NoCase,
     [](DefReader& r, DefectTarget& t) {
         const int type = EnergyTypeFromLine(AfterColon(r.line));
         if (type >= 0) ForAllLevels(t.d, [&](auto& lv) { lv.energy.type = type; });
     }},
    {"Reference for defect energy", Exact,
     [](DefReader& r, DefectTarget& t) {
         int v = 0;
         if (r.Integer(v, true)) ForAllLevels(t.d, [&](auto& lv) { lv.energy.reference = v; });
     }},
    {"Ekar", Exact,
     [](DefReader& r, DefectTarget& t) {
         double v = 0;
         if (r.Number(v)) ForAllLevels(t.d, [&](auto& lv) { lv.energy.Ekar = v; });
     }},
    {"Ecor", Exact,
     [](DefReader& r, DefectTarget& t) {
         double v = 0;
         if (r.Number(v)) ForAllLevels(t.d, [&](auto& lv) { lv.energy.correlationEnergy = v; });
     }},
    // A correlation energy places the levels above the first one at steps of it.
    {"Correlation energy", NoCase,
     [](DefReader& r, DefectTarget& t) {
         double v = 0;
         if (r.Number(v))
             ForAllLevels(t.d, [&](auto& lv) {
                 lv.energy.correlationEnergy = v;
                 lv.energy.correlated = 1;
             });
     }},
    {"degeneracy factors equal one", NoCase,
     [](DefReader&, DefectTarget& t) { ForAllLevels(t.d, [&](auto& lv) { lv.energy.degeneracyOne = 1; }); }},
    {"tailtype", Anywhere,
     [](DefReader& r, DefectTarget& t) {
         if (r.Holds("valenceband"))
             ForAllLevels(t.d, [&](auto& lv) { lv.energy.type = EDIST_VBTAIL; });
         else if (r.Holds("conductionband"))
             ForAllLevels(t.d, [&](auto& lv) { lv.energy.type = EDIST_CBTAIL; });
     }},
    {"Nt(x)", NoCase, ReadNtProfile},
    {"Nt(y)", NoCase, ReadNtProfile},
    {"Nt(uniform)", NoCase, ReadNtProfile},
    {"profile", NoCase, ReadOldProfileType},
    {"Lkar", NoCase, OldDescription<&BulkRecombinationParameters::Lkar>},
    {"Nleft", NoCase, OldDescription<&BulkRecombinationParameters::Nleft>},
    {"Nright", NoCase, OldDescription<&BulkRecombinationParameters::Nright>},
});

void ReadLevelTypes(DefReader& r, DefectTarget& t) {
    const int n = LevelCount(t.d);
    const std::string behind = AfterColon(r.line);
    const size_t end = behind.find_first_of(" \t");
    const int first = LevelTypeFromToken(behind.substr(0, end));
    for (int l = 0; l < MAX_LEVELS; ++l) {
        int aard = first == DEFLEVTYPE_NEUTRAL ? 0 : first - l;
        if (aard < 0) aard = 0;
        t.d[static_cast<size_t>(l)].aard = aard;
    }
    if (first != DEFLEVTYPE_NEUTRAL && first - (n - 1) < 1)
        TERVOErrorMessage(kWarnTitle,
                          FmtStr("%s[q]<%s, line %i: %i levels below the type \"%s\" go beyond the "
                                 "lowest charge state; they are set to neutral.",
                                 r.path, r.lineNumber, n, deflevTypeStrings[static_cast<size_t>(first)]));
}

// The values of the levels one by one, as many as the defect has.
template <int which>
void ReadLevelValues(DefReader& r, DefectTarget& t) {
    const int n = LevelCount(t.d);
    double values[MAX_LEVELS];
    const int got = LevelValues(r, values, n);
    if (got < n) r.WarnNoNumber();
    for (int l = 0; l < got; ++l) {
        BulkRecombinationParameters& lv = t.d[static_cast<size_t>(l)];
        if (which == 0)
            lv.sigma_n = values[l];
        else if (which == 1)
            lv.sigma_p = values[l];
        else
            lv.energy.Et = values[l];
    }
}

// The keys of the values given level by level, in the order in which they are tried.
constexpr auto kLevelKeys = std::to_array<Entry>({
    {"leveltype", NoCase, ReadLevelTypes},
    {"sigma_n", NoCase, ReadLevelValues<0>},
    {"sigma_p", NoCase, ReadLevelValues<1>},
    {"Et", NoCase, ReadLevelValues<2>},
    {"optical capture data (electrons)", NoCase,
     [](DefReader& r, DefectTarget& t) { ReadOpticalCaptureData(r, t.d, true); }},
    {"optical capture data [electrons]", NoCase,
     [](DefReader& r, DefectTarget& t) { ReadOpticalCaptureData(r, t.d, true); }},
    {"optical capture data (holes)", NoCase,
     [](DefReader& r, DefectTarget& t) { ReadOpticalCaptureData(r, t.d, false); }},
    {"optical capture data [holes]", NoCase,
     [](DefReader& r, DefectTarget& t) { ReadOpticalCaptureData(r, t.d, false); }},
});

void ReadDefectLine(DefReader& r, DefectLevels& d, DefectReadState& st) {
    DefectTarget target{d, st};
    if (ReadKeyedLine(r, kDefectKeys, target)) {
        // The charge of the first level follows the type of the defect.
        const int type = d[0].type;
        if (type == DEFECT_ACCEPTOR)
            d[0].aard = 3;
        else if (type == DEFECT_DONOR)
            d[0].aard = 4;
        else if (type == DEFECT_NEUTRAL)
            d[0].aard = 0;
        return;
    }
    if (!ReadKeyedLine(r, kLevelKeys, target)) ReadOpticalCaptureModel(r, d);
}

// The end of a defect: the old description becomes the Nt profile, the distribution its
// peak-to-total factor.
void FinishDefect(DefectLevels& d, const DefectReadState& st) {
    for (int l = 0; l < MAX_LEVELS; ++l) {
        BulkRecombinationParameters& lv = d[static_cast<size_t>(l)];
        if (!st.ntSeen && st.oldSeen) {
            if (lv.profile == SPATIAL_HOMOGENOUS) {
                // A single given density serves both sides.
                if (lv.Nright == 0) lv.Nright = lv.Nleft;
                if (lv.Nleft == 0) lv.Nleft = lv.Nright;
            }
        }
        DeterminePeakToTotal(lv.energy);
        if (!st.ntSeen && st.oldSeen) CopyTERVO27Data_to_NtProfile(lv);
        lv.levelnumber = l;
    }
}

struct MetaTarget {
    MetaStableDefectParameters& m;
};

template <double MetaStableDefectParameters::*field>
void MetaNumber(DefReader& r, MetaTarget& t) {
    r.Number(t.m.*field);
}
template <int MetaStableDefectParameters::*field>
void MetaInteger(DefReader& r, MetaTarget& t) {
    r.Integer(t.m.*field);
}

void ReadMetaNt(DefReader& r, MetaTarget& t) {
    InputLineToProfile(r.line, t.m.Nt);
    t.m.Nt.variableId = VAR_NT;
}

// The keys of a metastable defect pair, in the order in which they are tried.
constexpr auto kMetaKeys = std::to_array<KeyEntry<MetaTarget>>({
    {"Nt(x)", NoCase, ReadMetaNt},
    {"Nt(y)", NoCase, ReadMetaNt},
    {"DonorDefect", NoCase, MetaInteger<&MetaStableDefectParameters::DonorDefect>},
    {"AcceptorDefect", NoCase, MetaInteger<&MetaStableDefectParameters::AcceptorDefect>},
    {"Donor charge state", NoCase, MetaInteger<&MetaStableDefectParameters::donorChargeState>},
    {"Phonon frequency", NoCase, MetaNumber<&MetaStableDefectParameters::phononFrequency>},
    {"Metastability type", NoCase, MetaInteger<&MetaStableDefectParameters::metastabilityType>},
    {"Electron process", NoCase, MetaInteger<&MetaStableDefectParameters::electronProcess>},
    {"Hole process", NoCase, MetaInteger<&MetaStableDefectParameters::holeProcess>},
    {"UserDefined Activation Energies", NoCase,
     [](DefReader& r, MetaTarget& t) {
         double v[5];
         const int got = ReadNumberRun(AfterColon(r.line), v, 5);
         if (got < 5) r.WarnNoNumber();
         for (int i = 0; i < got; ++i) t.m.userDefined[static_cast<size_t>(i)] = TruncateToInt(v[i]);
     }},
    {"sigma_acc_n", NoCase, MetaNumber<&MetaStableDefectParameters::sigma_acc_n>},
    {"sigma_acc_p", NoCase, MetaNumber<&MetaStableDefectParameters::sigma_acc_p>},
    {"sigma_don_n", NoCase, MetaNumber<&MetaStableDefectParameters::sigma_don_n>},
    {"sigma_don_p", NoCase, MetaNumber<&MetaStableDefectParameters::sigma_don_p>},
    {"Eact_EE", NoCase, MetaNumber<&MetaStableDefectParameters::Eact_EE>},
    {"Eact_HC", NoCase, MetaNumber<&MetaStableDefectParameters::Eact_HC>},
    {"Eact_EC", NoCase, MetaNumber<&MetaStableDefectParameters::Eact_EC>},
    {"Eact_HE", NoCase, MetaNumber<&MetaStableDefectParameters::Eact_HE>},
    {"Eact_TR", NoCase, MetaNumber<&MetaStableDefectParameters::Eact_TR>},
    {"Reference for transition energy", NoCase,
     [](DefReader& r, MetaTarget& t) { r.Integer(t.m.reference, true); }},
    {"initialacceptorconfiguration", NoCase,
     MetaNumber<&MetaStableDefectParameters::initialacceptorconfiguration>},
});

} // namespace

int LevelCount(const DefectLevels& d) {
    return std::clamp(d[0].numberOfLevels, 1, MAX_LEVELS);
}

int TypeFromLine(const std::string& value) {
    int type = -1;
    for (int i = 0; i < NUMBER_OF_DEFECT_TYPES; ++i)
        if (ContainsNoCase(value, defectTypeStrings[static_cast<size_t>(i)])) type = i;
    return type;
}

int EnergyTypeFromLine(const std::string& value) {
    for (int i = 0; i < static_cast<int>(energyDistrTypeStrings.size()); ++i)
        if (ContainsNoCase(value, energyDistrTypeStrings[static_cast<size_t>(i)])) return i;
    return -1;
}

bool ReadDefectSection(DefReader& r) {
    CellDefinition& cell = r.cell();
    LayerParameters& L = cell.layer[static_cast<size_t>(cell.numberOfLayers - 1)];
    for (;;) {
        // The present line opened a defect ("srhrecombination" or "next").
        if (L.srhteller >= MAX_DEFECTS) {
            r.Fail(FmtStr("layer %i holds more than %i defects", cell.numberOfLayers, MAX_DEFECTS));
            return false;
        }
        DefectLevels& d = L.srh[static_cast<size_t>(L.srhteller)];
        DefectReadState st;
        bool more = false;
        while (r.Next()) {
            if (StartsLayer(r) || r.Holds("Metastable properties") || r.Holds("interface recombination") ||
                r.Holds("interface properties") || r.Holds("front contact") || r.Holds("right contact") ||
                r.Holds("spectrumfile") || r.Holds("working point"))
                break;
            if (StartsWithNoCase(r.TrimLeft(), "next")) {
                more = true;
                break;
            }
            ReadDefectLine(r, d, st);
            if (r.failed) return false;
        }
        if (r.failed) return false;
        FinishDefect(d, st);
        ++L.srhteller;
        if (!more) return true;
    }
}

bool ReadMetaSection(DefReader& r) {
    CellDefinition& cell = r.cell();
    LayerParameters& L = cell.layer[static_cast<size_t>(cell.numberOfLayers - 1)];
    double which = 0;
    const size_t at = FindPattern(r.line, 0, -1, "Metastable properties", false, false);
    int index = 0;
    if (FirstNumber(std::string_view(r.line).substr(static_cast<size_t>(at) + 21), which) && which == 1)
        index = 1;
    MetaStableDefectParameters& m = L.meta[static_cast<size_t>(index)];
    m.allowmeta = 1;
    m.layer = cell.numberOfLayers - 1;
    m.initialacceptorconfiguration = 0.5;
    while (r.Next()) {
        if (StartsLayer(r) || r.Holds("interface properties") || r.Holds("interface recombination") ||
            r.Holds("front contact") || r.Holds("right contact") || r.Holds("spectrumfile") ||
            r.Holds("working point") || r.Holds("Metastable properties") || r.Holds("srhrecombination"))
            return true;
        MetaTarget target{m};
        ReadKeyedLine(r, kMetaKeys, target);
    }
    return false;
}

} // namespace tervo::defread
