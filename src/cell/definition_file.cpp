#include "cell/definition_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "cell/grading.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"

namespace tervo {

std::vector<std::string> problemRemarks;
std::string problemRemarksName = "new problem";

void ResetRemarks(const std::string& problemName) {
    problemRemarks.clear();
    problemRemarksName = problemName;
}

namespace {

constexpr const char* kReadTitle = "Error whilst reading the def file (in ReadNonEmptyNonCommentLine()";
constexpr const char* kWarnTitle = "Warning whilst reading the def file";

bool IsCommentCharacter(char c) {
    return c == '>' || c == '<' || c == '*' || c == '!' || c == '/' || c == '\\';
}

bool IsBlankLine(const std::string& s) {
    return std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isspace(c) != 0; });
}

} // namespace

int ReadNonCommentLine(TextFile& file, std::string& buffer, int maximum, int noRemarks, int* lineNumber) {
    for (;;) {
        const int n = ReadLine(file, buffer, maximum);
        if (n < 0) return n;
        if (lineNumber) ++*lineNumber;
        if (!buffer.empty() && IsCommentCharacter(buffer[0])) {
            if (!noRemarks) problemRemarks.push_back(buffer.substr(1));
            continue;
        }
        return n;
    }
}

int ReadNonEmptyNonCommentLine(TextFile& file, std::string& buffer, int maximum, int noRemarks,
                               int reportIOErrors, int reportEnd, int* lineNumber) {
    for (;;) {
        const int n = ReadNonCommentLine(file, buffer, maximum, noRemarks, lineNumber);
        if (n == -1) {
            if (reportIOErrors)
                TERVOErrorMessage(kReadTitle, "An error ocurred while reading the def-file: " +
                                                  IoErrorText(file.lastError));
            return -1;
        }
        if (n == -2) {
            if (reportEnd) TERVOErrorMessage(kReadTitle, "The def-file is empty or incomplete.");
            return -2;
        }
        if (!IsBlankLine(buffer)) return n;
    }
}

namespace {

// Position of the first character that starts a number at or after `from`, or npos.
size_t NumberStart(std::string_view s, size_t from) {
    for (size_t i = from; i < s.size(); ++i)
        if (NumberStartsAt(s, i)) return i;
    return std::string_view::npos;
}

// Reads one number at `pos`; advances pos.  False when there is none or it lies beyond the range
// of a double (a physical value of the file cannot be infinite).
bool ParseNumberAt(std::string_view s, size_t& pos, double& value) {
    double v = 0;
    const size_t used = ReadReal(s.substr(pos), v);
    if (used == 0 || !std::isfinite(v)) return false;
    value = v;
    pos += used;
    return true;
}

// Skips to the first number, then reads numbers separated by white space, up to maxCount; stops at
// the first token that is not a number.  `end` receives the position behind the last number.
int ReadNumberRun(std::string_view s, double* values, int maxCount, size_t* end = nullptr) {
    size_t pos = NumberStart(s, 0);
    int count = 0;
    if (end) *end = s.size();
    if (pos == std::string_view::npos) return 0;
    while (count < maxCount) {
        double v = 0;
        if (!ParseNumberAt(s, pos, v)) break;
        values[count++] = v;
        if (end) *end = pos;
        size_t next = pos;
        while (next < s.size() && (s[next] == ' ' || s[next] == '\t')) ++next;
        if (next == s.size() || NumberStart(s, next) != next) break;
        pos = next;
    }
    return count;
}

// The text behind the first ':' of a line, trimmed; "" when there is none.
std::string AfterColon(std::string_view s) {
    return TextBehindColon(s);
}

// Resolves a base name of a side file into the given folder of the home tree.
std::string InHomeFolder(const std::string& folder, const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos || name.find('\\') != std::string::npos)
        return name;
    return MakePathname(MakePathname(GetProjectDir(), folder), name);
}

std::string BaseName(const std::string& path) {
    std::string drive, folder, file;
    SplitPath(path, drive, folder, file);
    return file;
}

} // namespace

void InputLineToProfile(const std::string& line, Profile& p) {
    std::array<double, 9> v;
    v.fill(-2.0);
    size_t end = 0;
    ReadNumberRun(line, v.data(), 9, &end);
    // Unread places keep the sentinel -2; a -2 in one of the last three places reads as absent.
    int count = 1;
    if (v[8] != -2.0)
        count = 9;
    else if (v[7] != -2.0)
        count = 8;
    else if (v[6] != -2.0)
        count = 7;
    if (count == 1) {
        const double a = v[0] == -2.0 ? p.pureA : v[0];
        p.pureA = p.pureB = p.lawPar1 = p.leftValue = p.rightValue = a;
        p.lawPar2 = p.lawPar3 = 1;
        p.law = LAW_UNIFORM;
        p.dependence = DEP_UNIFORM;
    } else if (count == 7) {
        p.pureA = v[0];
        p.pureB = v[1];
        p.lawPar1 = v[2];
        p.lawPar2 = p.lawPar3 = v[3];
        p.leftValue = v[4];
        p.rightValue = v[5];
        p.law = static_cast<int>(v[6]);
        p.dependence = DEP_COMPOSITION;
    } else {
        p.pureA = v[0];
        p.pureB = v[1];
        p.lawPar1 = v[2];
        p.lawPar2 = v[3];
        p.lawPar3 = v[4];
        p.leftValue = v[5];
        p.rightValue = v[6];
        p.law = static_cast<int>(v[7]);
        p.dependence = count == 9 ? static_cast<int>(v[8]) : DEP_COMPOSITION;
    }
    if (p.law < 0 || p.law >= NUMBER_OF_LAWS) p.law = LAW_UNIFORM;
    if (p.dependence < 0 || p.dependence > 2) p.dependence = DEP_COMPOSITION;
    SetProfileScaleParameters(p);
    if (count == 9 && p.law == LAW_FROM_FILE) {
        // The grading file stands behind the numbers, up to the next tab or "[".
        size_t a = end;
        while (a < line.size() && (line[a] == ' ' || line[a] == '\t')) ++a;
        size_t b = a;
        while (b < line.size() && line[b] != '\t' && line[b] != '[') ++b;
        const std::string name = TrimRight(std::string_view(line).substr(a, b - a));
        if (!name.empty()) {
            p.gradingFile = InHomeFolder("grading", name);
            p.fileState = 0;
        }
    }
}

void InputLineToShortProfile(const std::string& line, ShortProfile& sp) {
    Profile p;
    InputLineToProfile(line, p);
    sp.law = p.law;
    sp.dependence = p.dependence;
}

namespace {

std::string NumberFormat(int exponent, int width, int precision) {
    return exponent ? FmtStr("%%f[w%ip%ie2]", width, precision) : FmtStr("%%f[w%ip%i]", width, precision);
}

} // namespace

int ProfileToOutputLine(TextFile& file, const Profile& p, const std::string& name, const std::string& unit,
                        int exponent, int width, int precision) {
    const std::string num = NumberFormat(exponent, width, precision);
    std::string text = FmtStr("%s<%s :\t", name);
    for (double v : {p.pureA, p.pureB, p.lawPar1, p.lawPar2, p.lawPar3, p.leftValue, p.rightValue})
        text += FmtStr(num, v) + "\t";
    text += FmtStr("%i[w2]\t", p.law);
    text += FmtStr("%i[w2]\t", p.dependence);
    if (p.law == LAW_FROM_FILE) text += BaseName(p.gradingFile) + "\t";
    text += unit + "\n";
    return WriteText(file, text);
}

// ---------------------------------------------------------------------------------------------
// Reading
// ---------------------------------------------------------------------------------------------

namespace {

enum class ReadEnd { Ok, Failed };

struct DefReader {
    TextFile file;
    std::string path;
    InputParameters& P;
    DefinitionWorkingSettings& S;
    int noRemarks = 0;
    std::string line;
    int lineNumber = 0;
    bool eof = false;
    bool failed = false;
    bool tunnelFlagLineSeen = false;
    bool workingPointLineRead = false;
    bool referenceLinesRead = false;

    DefReader(InputParameters& p, DefinitionWorkingSettings& s) : P(p), S(s) {}

    CellDefinition& cell() { return P.cellParas; }

    // The next non-empty line; a missing line is the failure of an incomplete file unless
    // endAllowed.  False at the end or on failure.
    bool Next(bool endAllowed = false) {
        const int n = ReadNonEmptyNonCommentLine(file, line, DEF_LINE_LIMIT, noRemarks, 1, endAllowed ? 0 : 1,
                                                 &lineNumber);
        if (n == -2) {
            eof = true;
            if (!endAllowed) failed = true;
            return false;
        }
        if (n < 0) {
            failed = true;
            return false;
        }
        return true;
    }

    void Fail(const std::string& what) {
        TERVOErrorMessage(kReadTitle, FmtStr("%s[q]<%s, line %i: %s", path, lineNumber, what));
        failed = true;
    }

    void WarnNoNumber() {
        TERVOErrorMessage(kWarnTitle, FmtStr("%s[q]<%s, line %i: no number could be read in \"%s\"; the "
                                             "value is left as it was.",
                                             path, lineNumber, line));
    }

    // The first number of the line (or behind the colon); warns and keeps the field when none.
    bool Number(double& target, bool behindColon = false) {
        double v = 0;
        const bool ok = behindColon ? NumberBehindColon(line, v) : FirstNumberChecked(v);
        if (!ok || !std::isfinite(v)) {
            WarnNoNumber();
            return false;
        }
        target = v;
        return true;
    }
    bool Integer(int& target, bool behindColon = false) {
        double v = 0;
        if (!Number(v, behindColon)) return false;
        target = static_cast<int>(std::lround(v));
        return true;
    }
    bool FirstNumberChecked(double& v) {
        double tmp[1];
        if (ReadNumberRun(line, tmp, 1) != 1) return false;
        v = tmp[0];
        return true;
    }

    bool Key(std::string_view key) const { return StartsWithNoCase(TrimLeft(), key); }
    bool KeyExact(std::string_view key) const { return StartsWith(TrimLeft(), key); }
    bool Holds(std::string_view phrase) const { return ContainsNoCase(line, phrase); }
    std::string_view TrimLeft() const {
        std::string_view s(line);
        while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
        return s;
    }
};

void NoteTunnelFlagFromElement(DefReader& r, int value, int& flag) {
    if (!r.tunnelFlagLineSeen && value == 1) flag = 1;
}

// ---- convergence ---------------------------------------------------------------------------

void ReadConvergenceLine(DefReader& r) {
    ConvergenceParameters& c = r.P.convergence;
    DefinitionWorkingSettings& s = r.S;
    if (r.Key("clamp_psi"))
        r.Number(c.clamp_psi);
    else if (r.Key("clamp_n"))
        r.Number(c.clamp_n);
    else if (r.Key("clamp_p"))
        r.Number(c.clamp_p);
    else if (r.Key("clamp_meta"))
        r.Number(c.clamp_meta);
    else if (r.Key("termination_psi"))
        r.Number(c.termination_psi);
    else if (r.Key("termination_Fn"))
        r.Number(c.termination_Fn);
    else if (r.Key("termination_Fp"))
        r.Number(c.termination_Fp);
    else if (r.Key("termination_Meta_full"))
        r.Number(c.termination_Meta_full);
    else if (r.Key("maxmetaiter_full"))
        r.Integer(c.maxmetaiter_full);
    else if (r.Key("usemetaclamping"))
        r.Integer(c.usemetaclamping);
    else if (r.Key("maxiter")) {
        if (r.Integer(c.maxiter)) c.maxiter_psi_start = c.maxiter_psi = c.maxiter_u = c.maxiter_v = c.maxiter;
    } else if (r.Key("defectdiscretisations"))
        r.Integer(c.defectdiscretisations);
    else if (r.Key("widthtail"))
        r.Number(c.widthtail);
    else if (r.Key("widthgauss"))
        r.Number(c.widthgauss);
    else if (r.Key("TunnelMassChoice"))
        r.Integer(c.TunnelMassChoice);
    else if (r.Key("TunnelBtoB_allowed")) {
        r.Integer(c.TunnelBtoB_allowed);
        r.tunnelFlagLineSeen = true;
    } else if (r.Key("Tunnelcontact_allowed")) {
        r.Integer(c.Tunnelcontact_allowed);
        r.tunnelFlagLineSeen = true;
    } else if (r.Key("Tunneliface_allowed")) {
        r.Integer(c.Tunneliface_allowed);
        r.tunnelFlagLineSeen = true;
    } else if (r.Key("Tunnelintraband_allowed")) {
        r.Integer(c.Tunnelintraband_allowed);
        r.tunnelFlagLineSeen = true;
    } else if (r.Key("QE calculation mode"))
        r.Integer(s.qeMode, true);
    else if (r.Key("number of photons"))
        r.Number(s.numberOfPhotons);
    else if (r.Key("incident power"))
        r.Number(s.incidentPower);
    else if (r.Key("recalculate mesh"))
        r.Integer(s.mesh.recalculateMesh);
    else if (r.Key("maximum ratio between neighbouring points"))
        r.Number(s.mesh.maximumRatio);
    else if (r.Key("minimum ratio between neighbouring points"))
        r.Number(s.mesh.minimumRatio);
    else if (r.Key("generation limit"))
        r.Number(s.mesh.generationLimit);
    else if (r.Key("recombination limit"))
        r.Number(s.mesh.recombinationLimit);
    else if (r.Key("Mott-Schottky") || r.Key("Mott Schottky")) {
        int v = 0;
        if (r.Holds("#")) {
            if (r.Integer(v, true)) s.ms.layer = v - 1;
        } else if (r.Holds("side")) {
            if (r.Integer(v, true)) s.ms.side = v;
        } else if (r.Holds("analysis number of points")) {
            r.Integer(s.ms.fitPoints, true);
        } else if (r.Holds("analysis polynomial order middle")) {
            r.Integer(s.ms.orderMiddle, true);
        } else if (r.Holds("analysis polynomial order edges")) {
            r.Integer(s.ms.orderEdges, true);
        }
    } else if (r.Key("Include charge in defects"))
        r.Integer(c.includeChargeInDefects, true);
}

// ---- contacts ------------------------------------------------------------------------------

struct ContactReadState {
    bool flatbandSeen = false;
    bool fiSeen = false;
};

void ReadContactLine(DefReader& r, ContactParameters& c, ContactReadState& st) {
    ConvergenceParameters& conv = r.P.convergence;
    if (r.Key("flatband")) {
        if (r.Integer(c.flatband)) st.flatbandSeen = true;
    } else if (r.Key("recalculate"))
        r.Integer(c.recalculate);
    else if (r.Key("Fi_m")) {
        if (r.Number(c.Fi_m)) {
            c.flatband = 0;
            st.fiSeen = true;
        }
    } else if (r.Key("Sn"))
        r.Number(c.Sn);
    else if (r.Key("Sp"))
        r.Number(c.Sp);
    else if (r.Key("optical filter")) {
        c.opticalFilter = 1;
        if (r.Holds("transmission"))
            c.transmission = 1;
        else if (r.Holds("reflection"))
            c.transmission = 0;
    } else if (r.Key("filterfile"))
        c.filterFile = AfterColon(r.line);
    else if (r.Key("wavelength independent"))
        r.Integer(c.wavelengthIndependent);
    else if (r.Key("filter value"))
        r.Number(c.filterValue);
    else if (r.Key("Tunneling to contact")) {
        if (r.Integer(c.tunnelling)) NoteTunnelFlagFromElement(r, c.tunnelling, conv.Tunnelcontact_allowed);
    } else if (r.Key("Relative electron mass"))
        r.Number(c.relElectronMass);
    else if (r.Key("Relative hole mass"))
        r.Number(c.relHoleMass);
}

void FinishContact(ContactParameters& c, const ContactReadState& st) {
    if (!st.flatbandSeen) c.flatband = st.fiSeen ? 0 : 1;
}

// ---- layers --------------------------------------------------------------------------------

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

// One line of a layer section.  lastWasComposition: the previous line was the composition line.
void ReadLayerLine(DefReader& r, LayerParameters& L, bool& lastWasComposition) {
    MaterialParameters& m = L.material;
    ConvergenceParameters& conv = r.P.convergence;
    const bool afterComposition = lastWasComposition;
    lastWasComposition = false;
    std::string_view t = r.TrimLeft();
    if (r.Key("name")) {
        std::string name = AfterColon(r.line);
        if (name.size() > MAX_LAYER_NAME) name.resize(MAX_LAYER_NAME);
        L.name = name;
        m.name = name;
    } else if (!t.empty() && t.front() == 'd') {
        r.Number(m.d);
    } else if (r.Key("Grading file")) {
        if (afterComposition) {
            const std::string name = AfterColon(r.line);
            if (!name.empty()) {
                L.composition.gradingFile = InHomeFolder("grading", name);
                L.composition.fileState = 0;
            }
        }
    } else if (r.Key("composition")) {
        InputLineToProfile(r.line, L.composition);
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
        lastWasComposition = true;
    } else if (r.Key("v_th_n"))
        InputLineToProfile(r.line, m.v_th_n);
    else if (r.Key("v_th_p"))
        InputLineToProfile(r.line, m.v_th_p);
    else if (r.Key("v_th :")) {
        InputLineToProfile(r.line, m.v_th_n);
        const int id = m.v_th_p.variableId;
        m.v_th_p = m.v_th_n;
        m.v_th_p.variableId = id;
    } else if (r.Key("eps"))
        InputLineToProfile(r.line, m.eps);
    else if (r.Key("chi"))
        InputLineToProfile(r.line, m.chi);
    else if (r.KeyExact("Eg")) {
        InputLineToProfile(r.line, m.Eg);
        // The absorption edge follows the band gap of both pure materials.
        if (m.Eg.pureA > 0) m.absorption.pureA = 1239.977 / m.Eg.pureA;
        if (m.Eg.pureB > 0) m.absorption.pureB = 1239.977 / m.Eg.pureB;
    } else if (r.KeyExact("Nc"))
        InputLineToProfile(r.line, m.Nc);
    else if (r.KeyExact("Nv"))
        InputLineToProfile(r.line, m.Nv);
    else if (r.Key("mu_n"))
        InputLineToProfile(r.line, m.mu_n);
    else if (r.Key("mu_p"))
        InputLineToProfile(r.line, m.mu_p);
    else if (r.Key("Tunneling in layer")) {
        if (r.Integer(m.tunnelling)) NoteTunnelFlagFromElement(r, m.tunnelling, conv.Tunnelintraband_allowed);
    } else if (r.Key("Relative electron mass"))
        InputLineToProfile(r.line, m.relElectronMass);
    else if (r.Key("Relative hole mass"))
        InputLineToProfile(r.line, m.relHoleMass);
    else if (r.Key("K_rad"))
        InputLineToProfile(r.line, m.K_rad);
    else if (r.Key("c_n_auger"))
        InputLineToProfile(r.line, m.c_n_auger);
    else if (r.Key("c_p_auger"))
        InputLineToProfile(r.line, m.c_p_auger);
    else if (r.KeyExact("Na"))
        InputLineToProfile(r.line, m.Na);
    else if (r.KeyExact("Nd"))
        InputLineToProfile(r.line, m.Nd);
    else if (r.KeyExact("absorption grading")) {
        InputLineToProfile(r.line, m.absorption);
        m.absorption.dependence = DEP_COMPOSITION;
    } else if (r.Key("absorptionmodel :")) {
        const int model = ModelFromLine(r);
        if (model >= 0) SetCoefficientsModel(m, true, true, model);
    } else if (r.Key("absorptionmodel pure A material (y=0)")) {
        const int model = ModelFromLine(r);
        if (model >= 0) SetCoefficientsModel(m, true, false, model);
    } else if (r.Key("absorption pure B material (y=1), model")) {
        const int model = ModelFromLine(r);
        if (model >= 0) SetCoefficientsModel(m, false, true, model);
    } else if (r.KeyExact("A :")) {
        double v = 0;
        if (r.Number(v, true)) m.A_pureA = m.A_pureB = v;
    } else if (r.KeyExact("pure B material (y=1), A :")) {
        r.Number(m.A_pureB, true);
    } else if (r.KeyExact("B :")) {
        double v = 0;
        if (r.Number(v, true)) m.B_pureA = m.B_pureB = v;
    } else if (r.KeyExact("pure B material (y=1), B :")) {
        r.Number(m.B_pureB, true);
    } else if (r.KeyExact("absorptionfile :")) {
        m.absorptionFileA = m.absorptionFileB = AfterColon(r.line);
    } else if (r.KeyExact("absorptionfile pure A material (y=0) :")) {
        m.absorptionFileA = AfterColon(r.line);
    } else if (r.KeyExact("absorption pure B material (y=1), file :")) {
        m.absorptionFileB = AfterColon(r.line);
    }
}

// ---- bulk defects --------------------------------------------------------------------------

struct DefectReadState {
    bool ntSeen = false;
    bool oldSeen = false; // profile, Lkar, Nleft or Nright of the old description
    bool levelsRead = false;
};

int LevelCount(const DefectLevels& d) {
    return std::clamp(d[0].numberOfLevels, 1, MAX_LEVELS);
}

template <typename F>
void ForAllLevels(DefectLevels& d, F f) {
    for (auto& level : d) f(level);
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
        const int level = static_cast<int>(levelNumber) - 1;
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
                o.fromModel = static_cast<int>(values[l]);
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

void ReadDefectLine(DefReader& r, DefectLevels& d, DefectReadState& st) {
    bool firstGroup = true;
    if (r.Key("type")) {
        const int type = TypeFromLine(r.line);
        double levels = 1;
        const size_t paren = r.line.find('(');
        int n = 1;
        if (paren != std::string::npos && FirstNumber(std::string_view(r.line).substr(paren), levels))
            n = static_cast<int>(levels);
        if (n < 1 || n > MAX_LEVELS) {
            r.Fail(FmtStr("a defect with %i levels; at most %i are possible", n, MAX_LEVELS));
            return;
        }
        ForAllLevels(d, [&](BulkRecombinationParameters& lv) {
            if (type >= 0) lv.type = type;
            lv.numberOfLevels = n;
        });
    } else if (r.Key("sigma_n_opt")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.sigma_n_opt = v; });
    } else if (r.Key("sigma_p_opt")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.sigma_p_opt = v; });
    } else if (r.Key("sigma_n_plus")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.sigma_n_plus = v; });
    } else if (r.Key("sigma_n_zero")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.sigma_n_zero = v; });
    } else if (r.Key("sigma_p_zero")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.sigma_p_zero = v; });
    } else if (r.Key("sigma_p_min")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.sigma_p_min = v; });
    } else if (r.Key("energy distribution")) {
        const int type = EnergyTypeFromLine(AfterColon(r.line));
        if (type >= 0) ForAllLevels(d, [&](auto& lv) { lv.energy.type = type; });
    } else if (r.KeyExact("Reference for defect energy")) {
        int v = 0;
        if (r.Integer(v, true)) ForAllLevels(d, [&](auto& lv) { lv.energy.reference = v; });
    } else if (r.KeyExact("Ekar")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.energy.Ekar = v; });
    } else if (r.KeyExact("Ecor")) {
        double v = 0;
        if (r.Number(v)) ForAllLevels(d, [&](auto& lv) { lv.energy.correlationEnergy = v; });
    } else if (r.Key("Correlation energy")) {
        double v = 0;
        if (r.Number(v))
            ForAllLevels(d, [&](auto& lv) {
                lv.energy.correlationEnergy = v;
                lv.energy.correlated = 1;
            });
    } else if (r.Key("degeneracy factors equal one")) {
        ForAllLevels(d, [&](auto& lv) { lv.energy.degeneracyOne = 1; });
    } else if (r.Holds("tailtype")) {
        if (r.Holds("valenceband"))
            ForAllLevels(d, [&](auto& lv) { lv.energy.type = EDIST_VBTAIL; });
        else if (r.Holds("conductionband"))
            ForAllLevels(d, [&](auto& lv) { lv.energy.type = EDIST_CBTAIL; });
    } else if (r.Key("Nt(x)") || r.Key("Nt(y)") || r.Key("Nt(uniform)")) {
        Profile p = d[0].Nt;
        InputLineToProfile(r.line, p);
        p.variableId = VAR_NT;
        ForAllLevels(d, [&](auto& lv) { lv.Nt = p; });
        st.ntSeen = true;
    } else if (r.Key("profile")) {
        if (!st.ntSeen) {
            const std::string v = AfterColon(r.line);
            int prof = -1;
            for (int i = 0; i < 3; ++i)
                if (ContainsNoCase(v, spatialDistrTypeStringsSaveAndLoad[static_cast<size_t>(i)]) ||
                    ContainsNoCase(v, spatialDistrTypeStrings[static_cast<size_t>(i)]))
                    prof = i;
            if (prof >= 0) {
                ForAllLevels(d, [&](auto& lv) { lv.profile = prof; });
                st.oldSeen = true;
            }
        }
    } else if (r.Key("Lkar")) {
        double v = 0;
        if (!st.ntSeen && r.Number(v)) {
            ForAllLevels(d, [&](auto& lv) { lv.Lkar = v; });
            st.oldSeen = true;
        }
    } else if (r.Key("Nleft")) {
        double v = 0;
        if (!st.ntSeen && r.Number(v)) {
            ForAllLevels(d, [&](auto& lv) { lv.Nleft = v; });
            st.oldSeen = true;
        }
    } else if (r.Key("Nright")) {
        double v = 0;
        if (!st.ntSeen && r.Number(v)) {
            ForAllLevels(d, [&](auto& lv) { lv.Nright = v; });
            st.oldSeen = true;
        }
    } else {
        firstGroup = false;
    }
    if (firstGroup) {
        const int type = d[0].type;
        if (type == DEFECT_ACCEPTOR)
            d[0].aard = 3;
        else if (type == DEFECT_DONOR)
            d[0].aard = 4;
        else if (type == DEFECT_NEUTRAL)
            d[0].aard = 0;
        return;
    }

    // Values of the levels one by one.
    const int n = LevelCount(d);
    if (r.Key("leveltype")) {
        const std::string behind = AfterColon(r.line);
        const size_t end = behind.find_first_of(" \t");
        const int first = LevelTypeFromToken(behind.substr(0, end));
        for (int l = 0; l < MAX_LEVELS; ++l) {
            int aard = first == DEFLEVTYPE_NEUTRAL ? 0 : first - l;
            if (aard < 0) aard = 0;
            d[static_cast<size_t>(l)].aard = aard;
        }
        if (first != DEFLEVTYPE_NEUTRAL && first - (n - 1) < 1)
            TERVOErrorMessage(kWarnTitle,
                              FmtStr("%s[q]<%s, line %i: %i levels below the type \"%s\" go beyond the "
                                     "lowest charge state; they are set to neutral.",
                                     r.path, r.lineNumber, n, deflevTypeStrings[static_cast<size_t>(first)]));
    } else if (r.Key("sigma_n") || r.Key("sigma_p") || r.Key("Et")) {
        const int which = r.Key("sigma_n") ? 0 : r.Key("sigma_p") ? 1 : 2;
        double values[MAX_LEVELS];
        const int got = LevelValues(r, values, n);
        if (got < n) r.WarnNoNumber();
        for (int l = 0; l < got; ++l) {
            BulkRecombinationParameters& lv = d[static_cast<size_t>(l)];
            if (which == 0)
                lv.sigma_n = values[l];
            else if (which == 1)
                lv.sigma_p = values[l];
            else
                lv.energy.Et = values[l];
        }
    } else if (r.Key("optical capture data (electrons)") || r.Key("optical capture data [electrons]")) {
        ReadOpticalCaptureData(r, d, true);
    } else if (r.Key("optical capture data (holes)") || r.Key("optical capture data [holes]")) {
        ReadOpticalCaptureData(r, d, false);
    } else {
        ReadOpticalCaptureModel(r, d);
    }
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

// ---- metastable defects --------------------------------------------------------------------

void ReadMetaLine(DefReader& r, MetaStableDefectParameters& m) {
    if (r.Key("Nt(x)") || r.Key("Nt(y)")) {
        InputLineToProfile(r.line, m.Nt);
        m.Nt.variableId = VAR_NT;
    } else if (r.Key("DonorDefect"))
        r.Integer(m.DonorDefect);
    else if (r.Key("AcceptorDefect"))
        r.Integer(m.AcceptorDefect);
    else if (r.Key("Donor charge state"))
        r.Integer(m.donorChargeState);
    else if (r.Key("Phonon frequency"))
        r.Number(m.phononFrequency);
    else if (r.Key("Metastability type"))
        r.Integer(m.metastabilityType);
    else if (r.Key("Electron process"))
        r.Integer(m.electronProcess);
    else if (r.Key("Hole process"))
        r.Integer(m.holeProcess);
    else if (r.Key("UserDefined Activation Energies")) {
        double v[5];
        const int got = ReadNumberRun(AfterColon(r.line), v, 5);
        if (got < 5) r.WarnNoNumber();
        for (int i = 0; i < got; ++i) m.userDefined[static_cast<size_t>(i)] = static_cast<int>(v[i]);
    } else if (r.Key("sigma_acc_n"))
        r.Number(m.sigma_acc_n);
    else if (r.Key("sigma_acc_p"))
        r.Number(m.sigma_acc_p);
    else if (r.Key("sigma_don_n"))
        r.Number(m.sigma_don_n);
    else if (r.Key("sigma_don_p"))
        r.Number(m.sigma_don_p);
    else if (r.Key("Eact_EE"))
        r.Number(m.Eact_EE);
    else if (r.Key("Eact_HC"))
        r.Number(m.Eact_HC);
    else if (r.Key("Eact_EC"))
        r.Number(m.Eact_EC);
    else if (r.Key("Eact_HE"))
        r.Number(m.Eact_HE);
    else if (r.Key("Eact_TR"))
        r.Number(m.Eact_TR);
    else if (r.Key("Reference for transition energy"))
        r.Integer(m.reference, true);
    else if (r.Key("initialacceptorconfiguration"))
        r.Number(m.initialacceptorconfiguration);
}

// ---- interfaces ----------------------------------------------------------------------------

void ReadInterfaceLine(DefReader& r, InterfaceParameters& f) {
    ConvergenceParameters& conv = r.P.convergence;
    if (r.Key("Intraband tunneling")) {
        if (r.Integer(f.intrabandTunnelling))
            NoteTunnelFlagFromElement(r, f.intrabandTunnelling, conv.Tunnelintraband_allowed);
    } else if (r.Key("Relative electron mass"))
        r.Number(f.relElectronMass);
    else if (r.Key("Relative hole mass"))
        r.Number(f.relHoleMass);
    else if (r.Key("interfacename")) {
        std::string name = AfterColon(r.line);
        if (name.size() > MAX_INTERFACE_NAME) name.resize(MAX_INTERFACE_NAME);
        f.name = name;
    }
}

void ReadInterfaceDefectLine(DefReader& r, InterfaceParameters& f, InterfaceRecombinationParameters& d,
                             bool& referenceSeen) {
    ConvergenceParameters& conv = r.P.convergence;
    if (r.Key("interfacename")) {
        std::string name = AfterColon(r.line);
        if (name.size() > MAX_INTERFACE_NAME) name.resize(MAX_INTERFACE_NAME);
        f.name = name;
    } else if (r.Key("type")) {
        const int type = TypeFromLine(r.line);
        if (type >= 0) d.type = type;
    } else if (r.Key("sigma_nleft"))
        r.Number(d.sigma_nleft);
    else if (r.Key("sigma_nright"))
        r.Number(d.sigma_nright);
    else if (r.Key("sigma_pleft"))
        r.Number(d.sigma_pleft);
    else if (r.Key("sigma_pright"))
        r.Number(d.sigma_pright);
    else if (r.Key("Tunneling to trap")) {
        if (r.Integer(d.tunnelling)) NoteTunnelFlagFromElement(r, d.tunnelling, conv.Tunneliface_allowed);
    } else if (r.Key("Relative electron mass"))
        r.Number(d.relElectronMass);
    else if (r.Key("Relative hole mass"))
        r.Number(d.relHoleMass);
    else if (r.Key("energy distribution")) {
        const int type = EnergyTypeFromLine(AfterColon(r.line));
        if (type >= 0) d.energy.type = type;
    } else if (r.KeyExact("Reference for defect energy")) {
        if (r.Integer(d.energy.reference, true)) referenceSeen = true;
    } else if (r.KeyExact("Et"))
        r.Number(d.energy.Et);
    else if (r.KeyExact("Ekar"))
        r.Number(d.energy.Ekar);
    else if (r.Holds("tailtype")) {
        if (r.Holds("valenceband"))
            d.energy.type = EDIST_VBTAIL;
        else if (r.Holds("conductionband"))
            d.energy.type = EDIST_CBTAIL;
    } else if (r.Key("N"))
        r.Number(d.N);
}

// ---- working point -------------------------------------------------------------------------

void ReadWorkingPointLine(DefReader& r) {
    DefinitionWorkingSettings& s = r.S;
    CellDefinition& cell = r.cell();
    bool known = true;
    if (r.Key("illuminated"))
        s.side = r.Holds("left") ? 0 : 1;
    else if (r.Key("internal Rfront")) {
        if (r.Number(s.Rfront)) s.Tfront = 1 - s.Rfront;
    } else if (r.Key("internal Tfront")) {
        if (r.Number(s.Tfront)) s.Rfront = 1 - s.Tfront;
    } else if (r.Key("Series resistance :"))
        r.Integer(s.RsPresent, true);
    else if (r.Key("Rs [Ohm.m2]"))
        r.Number(s.Rs, true);
    else if (r.Key("Shunt conductance :"))
        r.Integer(s.GshPresent, true);
    else if (r.Key("Gsh [S/m2]"))
        r.Number(s.Gsh, true);
    else if (r.Key("voltage V applied to")) {
        if (r.Integer(cell.voltageAppliedTo, true)) {
            s.conventionsShown = 1;
            r.P.convergence.changeOfReferences = 1;
            r.referenceLinesRead = true;
        }
    } else if (r.Key("cell reference system")) {
        if (r.Integer(cell.referenceSystem, true)) {
            s.conventionsShown = 1;
            r.P.convergence.changeOfReferences = 1;
            r.referenceLinesRead = true;
        }
    } else {
        known = false;
    }
    if (known) r.workingPointLineRead = true;
}

// ---- the whole file ------------------------------------------------------------------------

bool StartsLayer(const DefReader& r) {
    return StartsWithNoCase(r.line, "layer");
}

// The line that ends a section of layer-bound data.
bool EndsLayerData(const DefReader& r) {
    return StartsLayer(r) || r.Holds("srhrecombination") || r.Holds("interface properties") ||
           r.Holds("interface recombination") || r.Holds("front contact") || r.Holds("right contact") ||
           r.Holds("spectrumfile") || r.Holds("working point") || r.Holds("Metastable properties");
}

bool ReadLayerSection(DefReader& r) {
    CellDefinition& cell = r.cell();
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
        ReadLayerLine(r, L, lastWasComposition);
        if (r.failed) return false;
    }
    return false;
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
        ReadMetaLine(r, m);
    }
    return false;
}

bool ReadInterfacePropertiesSection(DefReader& r) {
    CellDefinition& cell = r.cell();
    const int index = cell.numberOfLayers - 1;
    if (index >= MAX_INTERFACES) {
        r.Fail("interface properties behind the last possible layer");
        return false;
    }
    InterfaceParameters& f = cell.interface[static_cast<size_t>(index)];
    while (r.Next()) {
        if (StartsLayer(r) || r.Holds("interface recombination") || r.Holds("front contact") ||
            r.Holds("right contact") || r.Holds("spectrumfile") || r.Holds("working point"))
            return true;
        ReadInterfaceLine(r, f);
    }
    return false;
}

bool ReadInterfaceDefectSection(DefReader& r) {
    CellDefinition& cell = r.cell();
    const int index = cell.numberOfLayers - 1;
    if (index >= MAX_INTERFACES) {
        r.Fail("interface recombination behind the last possible layer");
        return false;
    }
    InterfaceParameters& f = cell.interface[static_cast<size_t>(index)];
    for (;;) {
        if (f.numberOfDefects >= MAX_IFDEFECTS) {
            r.Fail(FmtStr("interface %i holds more than %i defects", index + 1, MAX_IFDEFECTS));
            return false;
        }
        InterfaceRecombinationParameters& d = f.defect[static_cast<size_t>(f.numberOfDefects)];
        bool referenceSeen = false;
        bool more = false;
        while (r.Next()) {
            if (StartsLayer(r) || r.Holds("front contact") || r.Holds("right contact") ||
                r.Holds("spectrumfile") || r.Holds("working point"))
                break;
            if (StartsWithNoCase(r.TrimLeft(), "next")) {
                more = true;
                break;
            }
            ReadInterfaceDefectLine(r, f, d, referenceSeen);
        }
        if (r.failed) return false;
        if (!referenceSeen) d.energy.reference = 7;
        DeterminePeakToTotal(d.energy);
        d.Ntotal = d.N / d.energy.peakToTotal;
        d.interfaceNumber = index;
        d.defectnumber = f.numberOfDefects;
        ++f.numberOfDefects;
        if (!more) return true;
    }
}

void FinishReading(DefReader& r) {
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

} // namespace

int lees_structuurfile(const std::string& path, InputParameters& p, DefinitionWorkingSettings& settings,
                       int noRemarks) {
    FreeCellDefinition(p.cellParas);
    if (noRemarks) {
        // Keep the session's remarks: initialise without touching them.
        const auto keep = problemRemarks;
        const auto keepName = problemRemarksName;
        InitialiseInputParameters(p);
        problemRemarks = keep;
        problemRemarksName = keepName;
    } else {
        InitialiseInputParameters(p);
    }
    InitialiseCellDefinition(p.cellParas);
    const MeshSettings meshDefaults = settings.mesh;
    settings = DefinitionWorkingSettings{};
    settings.mesh = meshDefaults;
    InitialiseMeshSettings(settings.mesh);

    DefReader r(p, settings);
    r.path = path;
    r.noRemarks = noRemarks;
    r.file = OpenFile(path, FileMode::Read);
    if (!r.file.IsOpen()) {
        TERVOErrorMessage("Function lees_structuurfile(): Error occured during opening the def-file !",
                          path + ": " + IoErrorText(r.file.lastError));
        return -1;
    }
    if (!noRemarks) ResetRemarks(BaseName(path));

    if (!r.Next()) return -1;
    // Numerical settings.
    if (r.Holds("convergence")) {
        while (r.Next()) {
            if (r.Holds("back contact") || r.Holds("left contact") || StartsLayer(r) || r.Holds("name"))
                break;
            ReadConvergenceLine(r);
        }
        if (r.failed) return -1;
    }
    // The left contact.
    if (StartsWithNoCase(r.line, "back contact") || StartsWithNoCase(r.line, "left contact")) {
        ContactReadState st;
        while (r.Next()) {
            // A file without layers goes on with the right contact; it is refused below.
            if (StartsLayer(r) || r.Holds("front contact") || r.Holds("right contact") ||
                r.Holds("working point") || r.Holds("spectrumfile"))
                break;
            ReadContactLine(r, p.cellParas.leftContact, st);
        }
        if (r.failed) return -1;
        FinishContact(p.cellParas.leftContact, st);
    }
    // Layers, defects, metastable defects and interfaces, up to the right contact.
    for (;;) {
        if (r.Holds("front contact") || r.Holds("right contact") || r.Holds("spectrumfile") ||
            r.Holds("working point"))
            break;
        bool ok = true;
        const bool haveLayer = p.cellParas.numberOfLayers > 0;
        if (StartsLayer(r))
            ok = ReadLayerSection(r);
        else if (haveLayer && r.Holds("srhrecombination"))
            ok = ReadDefectSection(r);
        else if (haveLayer && r.Holds("Metastable properties"))
            ok = ReadMetaSection(r);
        else if (haveLayer && StartsWithNoCase(r.TrimLeft(), "interface properties"))
            ok = ReadInterfacePropertiesSection(r);
        else if (haveLayer && r.Holds("interface recombination"))
            ok = ReadInterfaceDefectSection(r);
        else if (!haveLayer)
            return -1; // not a definition: no layer before other data
        else
            ok = r.Next(); // a line that belongs to no section
        if (!ok || r.failed) return -1;
    }
    if (p.cellParas.numberOfLayers == 0) return -1;
    // The right contact and the working point.
    if (r.Holds("front contact") || r.Holds("right contact")) {
        ContactReadState st;
        bool ended = false;
        while (r.Next()) {
            if (r.Holds("spectrumfile") || r.Holds("working point")) {
                ended = true;
                break;
            }
            ReadContactLine(r, p.cellParas.rightContact, st);
        }
        if (!ended || r.failed) return -1;
        FinishContact(p.cellParas.rightContact, st);
    }
    if (StartsWithNoCase(r.TrimLeft(), "working point")) {
        while (r.Next(r.workingPointLineRead)) {
            if (r.Holds("spectrumfile")) break;
            ReadWorkingPointLine(r);
        }
        if (r.failed) return -1; // the end came before any working point line
    }
    FinishReading(r);
    return 1;
}

// ---------------------------------------------------------------------------------------------
// Writing
// ---------------------------------------------------------------------------------------------

namespace {

struct DefWriter {
    TextFile& file;
    bool compact;
    int status = 0;
    template <typename... Args>
    void F(std::string_view format, const Args&... args) {
        if (FmtFile(file, format, args...) < 0) status = -1;
    }
    void Line(std::string_view text) {
        if (WriteText(file, text) < 0) status = -1;
    }
    void ProfileLine(const Profile& p, const std::string& name, const std::string& unit, int exponent,
                     int width, int precision) {
        if (ProfileToOutputLine(file, p, name, unit, exponent, width, precision) < 0) status = -1;
    }
};

const char* DependenceName(const char* base, int dependence, char* buffer, size_t size) {
    const char* suffix = dependence == DEP_POSITION      ? "(x)"
                         : dependence == DEP_COMPOSITION ? "(y)"
                                                         : "(uniform)";
    std::snprintf(buffer, size, "%s%s", base, suffix);
    return buffer;
}

std::string DepName(const char* base, int dependence) {
    char buf[32];
    return DependenceName(base, dependence, buf, sizeof buf);
}

void WriteHead(DefWriter& w, const std::string& version) {
    w.Line(FmtStr("%s<%> %s%s", version, " Problem definition file") + "\n");
    const DateTime now = GetSystemDateTime();
    w.Line(FmtStr("%s<%> last saved by TERVO: \t%i[w2p0]-%i[w2p0]-%i[w4] at %i[w2p0]:%i[w2p0]:%i[w2p0]",
                  now.day, now.month, now.year, now.hours, now.minutes, now.seconds) +
           "\n");
    w.Line("> \n");
    // The remarks, without the two head lines of an earlier save; the empty head line counts as the
    // first of a run of empty remark lines.
    bool previousEmpty = true;
    for (size_t i = 0; i < problemRemarks.size(); ++i) {
        const std::string& remark = problemRemarks[i];
        if (i == 0 && Contains(remark, "TERVO") && Contains(remark, "Problem definition file")) continue;
        if (i <= 1 && Contains(remark, "last saved by TERVO")) continue;
        const bool empty = IsBlankLine(remark);
        if (empty && previousEmpty) continue;
        previousEmpty = empty;
        if (empty)
            w.Line("> \n");
        else if (remark[0] == ' ')
            w.Line(FmtStr("%s<%>%s\n", remark));
        else
            w.Line(FmtStr("%s<%> %s\n", remark));
    }
}

void WriteConvergence(DefWriter& w, const ConvergenceParameters& c, const DefinitionWorkingSettings& s) {
    w.Line("convergence\n\n");
    w.F("clamp_psi : %f[w9p2e2] units kT\n", c.clamp_psi);
    w.F("clamp_n : %f[w9p2e2] units kT\n", c.clamp_n);
    w.F("clamp_p : %f[w9p2e2] units kT\n", c.clamp_p);
    w.F("termination_psi : %f[w9p2e2] units kT\n", c.termination_psi);
    w.F("termination_Fn : %f[w9p2e2] units kT\n", c.termination_Fn);
    w.F("termination_Fp : %f[w9p2e2] units kT\n", c.termination_Fp);
    w.F("termination_Meta_full : %f[w9p2e2] (rel.)\n", c.termination_Meta_full);
    w.F("maxmetaiter_full : %i[w5]\n", c.maxmetaiter_full);
    w.F("clamp_meta : %f[w9p2e2] (rel.)\n", c.clamp_meta);
    w.F("usemetaclamping : %i\n", c.usemetaclamping);
    w.F("maxiter : %i[w5]\n", c.maxiter);
    w.F("defectdiscretisations : %i[w5]\n", c.defectdiscretisations);
    w.F("widthtail : %f[w9p2e2]\n", c.widthtail);
    w.F("widthgauss : %f[w9p2e2]\n", c.widthgauss);
    if (!w.compact) {
        w.F("TunnelMassChoice : %i[w5]\n", c.TunnelMassChoice);
        w.F("TunnelBtoB_allowed : %i[w5]\n", c.TunnelBtoB_allowed);
        w.F("Tunnelcontact_allowed : %i[w5]\n", c.Tunnelcontact_allowed);
        w.F("Tunneliface_allowed : %i[w5]\n", c.Tunneliface_allowed);
        w.F("Tunnelintraband_allowed : %i[w5]\n", c.Tunnelintraband_allowed);
    }
    w.F("QE calculation mode: %i[w2] (0: cst. # of photons, 1: cst. incident power)\n", s.qeMode);
    w.F("number of photons : %f[w9p2e2]\n", s.numberOfPhotons);
    w.F("incident power : %f[w9p2e2]\n", s.incidentPower);
    w.F("recalculate mesh : %i[w2] (0: fixed mesh, 1: adaptive mesh)\n", s.mesh.recalculateMesh);
    w.F("maximum ratio between neighbouring points : %f[w9p2e2]\n", s.mesh.maximumRatio);
    w.F("minimum ratio between neighbouring points : %f[w9p2e2]\n", s.mesh.minimumRatio);
    w.F("generation limit : %f[w9p2e2] microA/cm2\n", s.mesh.generationLimit);
    w.F("recombination limit : %f[w9p2e2] microA/cm2\n", s.mesh.recombinationLimit);
    w.F("Mott-Schottky analysis epsilon of sheet # : %i[w2]\n", s.ms.layer + 1);
    w.F("Mott-Schottky analysis epsilon of sheet side : %i[w2]\t%s\n", s.ms.side,
        "(left side = -1; right side = +1)");
    w.F("Mott-Schottky analysis number of points : %i[w2]\t%s\n", s.ms.fitPoints,
        "(3 or 5 as of december 2008)");
    w.F("Mott-Schottky analysis polynomial order middle : %i[w2]\t%s\n", s.ms.orderMiddle,
        "(1 or 2 as of december 2008)");
    w.F("Mott-Schottky analysis polynomial order edges: %i[w2]\t%s\n", s.ms.orderEdges,
        "(1 or 2 as of december 2008)");
    w.F("Include charge in defects in the calculation of the flatband condition : %i[w2]\t%s\n",
        c.includeChargeInDefects, "(1=yes, 0=no)");
    w.Line("\n\n");
}

void WriteContact(DefWriter& w, const ContactParameters& c, bool back) {
    w.Line(back ? "back contact\n\n" : "front contact\n\n");
    w.F("flatband : %i[w1] (1: flatband contact imposed; 0: fixed Phi_m value)\n", c.flatband);
    w.F("recalculate : %i[w1] (1 = do or 0 = do not recalculate phi_m to set flatband in each batch step)\n",
        c.recalculate);
    if (c.flatband == 0) w.F(back ? "Fi_m : %f[w8p4] [eV]\n" : "Fi_m : %f[w5p2] [eV]\n", c.Fi_m);
    w.F(back ? "Sn : %f[w10p3e2] [m/s]\n" : "Sn : %f[w9p3e2] [m/s]\n", c.Sn);
    w.F(back ? "Sp : %f[w10p3e2] [m/s]\n" : "Sp : %f[w9p3e2] [m/s]\n", c.Sp);
    if (w.compact) {
        w.F("Tunneling to contact: %i\n", c.tunnelling);
        w.F("Relative electron mass : %f[w12p4e2]\n", c.relElectronMass);
        w.F("Relative hole mass : %f[w12p4e2]\n", c.relHoleMass);
    } else {
        w.F("Tunneling to contact: %i (0: no tunneling, 1: with tunneling)\n", c.tunnelling);
        w.F("Relative electron mass : %f[w9p2e2]\n", c.relElectronMass);
        w.F("Relative hole mass : %f[w9p2e2]\n\n", c.relHoleMass);
    }
    if (c.opticalFilter) {
        w.Line(c.transmission ? "optical filter : transmission\n" : "optical filter : reflection\n");
        w.F("wavelength independent: %i\n", c.wavelengthIndependent);
        if (c.wavelengthIndependent)
            w.F("filter value: %f[w14p8e2]\n", c.filterValue);
        else
            w.F("filterfile : %s\n", BaseName(c.filterFile));
    }
    if (back) w.Line("\n");
}

void WritePrintNumbers(DefWriter& w, const char* head, const double* values, int count, const char* format,
                       const char* tail) {
    std::string text = head;
    for (int i = 0; i < count; ++i) text += FmtStr(format, values[i]) + "\t";
    text += tail;
    w.Line(text);
}

void WriteOpticalCaptureGroup(DefWriter& w, const DefectLevels& d, int n, bool electrons) {
    const char* carrier = electrons ? "electrons" : "holes";
    auto props = [&](int l) -> const OpticalCaptureProperties& {
        return electrons ? d[static_cast<size_t>(l)].optCaptElectrons
                         : d[static_cast<size_t>(l)].optCaptHoles;
    };
    bool any = false;
    for (int l = 0; l < n; ++l) any = any || props(l).fromFile;
    if (!any) return;
    for (int l = 0; l < n; ++l) {
        const OpticalCaptureProperties& o = props(l);
        const bool withFile = o.fromFile && !o.fileName.empty();
        if (l == 0) {
            if (withFile)
                w.F("optical capture data (%s): %s\n", carrier, BaseName(o.fileName));
            else
                w.F("optical capture data [%s]: level 1, none\n", carrier);
        } else {
            if (withFile)
                w.F("optical capture data [%s]: level %i, %s\n", carrier, l + 1, BaseName(o.fileName));
            else
                w.F("optical capture data [%s]: level %i, none\n", carrier, l + 1);
        }
    }
    std::string flags = FmtStr("%s<optical capture of %s, data from model: ", carrier);
    for (int l = 0; l < n; ++l) flags += FmtStr("%s<%i\t", props(l).fromModel);
    w.Line(flags + "\n");
    double values[MAX_LEVELS];
    const std::pair<const char*, double OpticalCaptureProperties::*> fields[] = {
        {"n", &OpticalCaptureProperties::n},
        {"m*/m0", &OpticalCaptureProperties::mStar},
        {"Eeff/E0", &OpticalCaptureProperties::EeffE0},
        {"Emax (eV)", &OpticalCaptureProperties::Emax}};
    for (const auto& [name, member] : fields) {
        for (int l = 0; l < n; ++l) values[l] = props(l).*member;
        WritePrintNumbers(w, FmtStr("%s<optical capture of %s, %s: ", carrier, name).c_str(), values, n, "%f",
                          "\n");
    }
}

void WriteDefect(DefWriter& w, const DefectLevels& levels, bool first) {
    w.Line(first ? "srhrecombination\n" : "next\n");
    w.Line("\n");
    const int n = LevelCount(levels);
    BulkRecombinationParameters lv0 = levels[0];
    CopyNtProfile_to_TERVO27Data(lv0);
    const EDistribution& e = lv0.energy;
    const int type = std::clamp(lv0.type, 0, NUMBER_OF_DEFECT_TYPES - 1);
    const int etype = std::clamp(e.type, 0, 4);
    w.F("type : %s (%i[w2] level(s) )\n", defectTypeStringsSaveAndLoad[static_cast<size_t>(type)], n);
    w.F("energy distribution : %s\n", energyDistrTypeStringsSaveAndLoad[static_cast<size_t>(etype)]);
    w.F("Reference for defect energy : %i[w2] ; 0 = above EV (TERVO%<2.7); 1 = above Ei; 2 = below EC\n",
        e.reference);
    w.F("Ekar : %f[w7p4] [eV]\n", e.Ekar);
    if (e.correlated) w.F("Correlation energy : %f[w7p3] [eV]\n", e.correlationEnergy);
    if (e.degeneracyOne) w.Line("degeneracy factors equal one\n");
    w.ProfileLine(lv0.Nt, DepName("Nt", lv0.Nt.dependence), "[/m^3]", 1, 13, 6);
    const int prof = std::clamp(lv0.profile, 0, 2);
    w.F("profile : %s\n", spatialDistrTypeStringsSaveAndLoad[static_cast<size_t>(prof)]);
    w.F("Lkar : %f[w9p3e2] [m]\n", lv0.Lkar);
    if (etype == EDIST_SINGLE) {
        w.F("Nleft : %f[w9p3e2] [/m^3]\n", lv0.Nleft);
        w.F("Nright : %f[w9p3e2] [/m^3]\n", lv0.Nright);
    } else {
        w.F("Nleft : %f[w9p3e2] [/m^3 eV]\n", lv0.Nleft);
        w.F("Nright : %f[w9p3e2] [/m^3 eV]\n", lv0.Nright);
    }
    std::string types = "leveltype : ";
    for (int l = 0; l < n; ++l) {
        const int aard = std::clamp(levels[static_cast<size_t>(l)].aard, 0, NDEFLEVTYPE - 1);
        types += FmtStr("%s[]\t", deflevTypeStringsSaveAndLoad[static_cast<size_t>(aard)]);
    }
    w.Line(types + "\n");
    double values[MAX_LEVELS];
    for (int l = 0; l < n; ++l) values[l] = levels[static_cast<size_t>(l)].sigma_n;
    WritePrintNumbers(w, "sigma_n : ", values, n, "%f[w9p3e2]", "[m^2]\n");
    for (int l = 0; l < n; ++l) values[l] = levels[static_cast<size_t>(l)].sigma_p;
    WritePrintNumbers(w, "sigma_p : ", values, n, "%f[w9p3e2]", "[m^2]\n");
    for (int l = 0; l < n; ++l) values[l] = levels[static_cast<size_t>(l)].energy.Et;
    WritePrintNumbers(w, "Et : ", values, n, "%f[w7p3]", "[eV]\n");
    WriteOpticalCaptureGroup(w, levels, n, true);
    WriteOpticalCaptureGroup(w, levels, n, false);
    w.Line("\n");
}

void WriteMeta(DefWriter& w, const MetaStableDefectParameters& m, int index) {
    w.F("Metastable properties: transition %i\n\n", index);
    w.ProfileLine(m.Nt, m.Nt.dependence == DEP_POSITION ? "Nt(x)" : "Nt(y)", "[1/m3]", 1, 10, 3);
    w.F("DonorDefect : %i[w2]\n", m.DonorDefect);
    w.F("AcceptorDefect : %i[w2]\n", m.AcceptorDefect);
    w.F("Donor charge state : %i[w2]\n", m.donorChargeState);
    w.F("Phonon frequency : %f[w9p3e2] [Hz]\n", m.phononFrequency);
    w.F("Metastability type : %i[w2]\n", m.metastabilityType);
    w.F("Electron process : %i[w2]\n", m.electronProcess);
    w.F("Hole process : %i[w2]\n", m.holeProcess);
    std::string flags = "UserDefined Activation Energies : ";
    for (int f : m.userDefined) flags += FmtStr("%s<%i\t", f);
    w.Line(flags + "\n");
    w.F("sigma_acc_n : %f[w9p3e2] [m^2]\n", m.sigma_acc_n);
    w.F("sigma_acc_p : %f[w9p3e2] [m^2]\n", m.sigma_acc_p);
    w.F("sigma_don_n : %f[w9p3e2] [m^2]\n", m.sigma_don_n);
    w.F("sigma_don_p : %f[w9p3e2] [m^2]\n", m.sigma_don_p);
    w.F("Eact_EE : %f[w7p3] [eV]\n", m.Eact_EE);
    w.F("Eact_HC : %f[w7p3] [eV]\n", m.Eact_HC);
    w.F("Eact_EC : %f[w7p3] [eV]\n", m.Eact_EC);
    w.F("Eact_HE : %f[w7p3] [eV]\n", m.Eact_HE);
    w.F("Eact_TR : %f[w7p3] [eV]\n", m.Eact_TR);
    w.F("Reference for transition energy : %i[w2] ; 0 = above EV (TERVO%<2.7); 1 = above Ei; 2 = below EC\n",
        m.reference);
    w.F("initialacceptorconfiguration :  %f[w9p2e2]\n", m.initialacceptorconfiguration);
    w.Line("\n");
}

void WriteLayer(DefWriter& w, const LayerParameters& L) {
    const MaterialParameters& m = L.material;
    w.Line("layer\n\n");
    w.F("name : %s\n", L.name);
    w.F("d : %f[w9p3e2] [m]\n", m.d);
    if (w.compact) {
        w.F("Tunneling in layer: %i\n", m.tunnelling);
        w.ProfileLine(m.relElectronMass, "Relative electron mass", "[-]", 1, 13, 6);
        w.ProfileLine(m.relHoleMass, "Relative hole mass", "[-]", 1, 13, 6);
    }
    w.ProfileLine(L.composition, "composition grading", "[-]", 0, 9, 5);
    if (L.composition.law == LAW_FROM_FILE) w.F("Grading file: %s\n", BaseName(L.composition.gradingFile));
    w.ProfileLine(m.v_th_n, "v_th_n", "[m/s]", 1, 10, 3);
    w.ProfileLine(m.v_th_p, "v_th_p", "[m/s]", 1, 10, 3);
    w.ProfileLine(m.eps, "eps", "[-]", 0, 13, 6);
    w.ProfileLine(m.chi, "chi", "[eV]", 0, 10, 6);
    w.ProfileLine(m.Eg, "Eg", "[eV]", 0, 10, 6);
    w.ProfileLine(m.Nc, "Nc", "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.Nv, "Nv", "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.mu_n, "mu_n", "[m^2/Vs]", 1, 13, 6);
    w.ProfileLine(m.mu_p, "mu_p", "[m^2/Vs]", 1, 13, 6);
    if (!w.compact) {
        w.F("Tunneling in layer: %i (0: no tunneling, 1: with tunneling)\n", m.tunnelling);
        w.ProfileLine(m.relElectronMass, "Relative electron mass", "[-]", 1, 13, 6);
        w.ProfileLine(m.relHoleMass, "Relative hole mass", "[-]", 1, 13, 6);
    }
    w.ProfileLine(m.K_rad, "K_rad", "[m^3/s]", 1, 13, 6);
    w.ProfileLine(m.c_n_auger, "c_n_auger", "[m^6/s]", 1, 13, 6);
    w.ProfileLine(m.c_p_auger, "c_p_auger", "[m^6/s]", 1, 13, 6);
    w.ProfileLine(m.Na, DepName("Na", m.Na.dependence), "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.Nd, DepName("Nd", m.Nd.dependence), "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.absorption, "absorption grading", "[nm]", 0, 8, 2);
    if (m.absorptionA == 0) {
        w.Line("absorptionmodel pure A material (y=0) : coefficients A and B\n");
        w.F("A : %f[w9p3e2] [/(m*sqrt(eV))]\n", m.A_pureA);
        w.F("B : %f[w9p3e2] [sqrt(eV)/m]\n", m.B_pureA);
    } else {
        w.Line("absorptionmodel pure A material (y=0) : from file\n");
        w.F("absorptionfile pure A material (y=0) : %s\n", BaseName(m.absorptionFileA));
    }
    if (m.absorptionB == 0) {
        w.Line("absorption pure B material (y=1), model : coefficients A and B\n");
        w.F("pure B material (y=1), A : %f[w9p3e2] [/(m*sqrt(eV))]\n", m.A_pureB);
        w.F("pure B material (y=1), B : %f[w9p3e2] [sqrt(eV)/m]\n", m.B_pureB);
    } else {
        w.Line("absorption pure B material (y=1), model : from file\n");
        w.F("absorption pure B material (y=1), file : %s\n", BaseName(m.absorptionFileB));
    }
    w.Line("\n");
    for (int d = 0; d < L.srhteller && d < MAX_DEFECTS; ++d)
        WriteDefect(w, L.srh[static_cast<size_t>(d)], d == 0);
    for (int k = 0; k < MAX_META; ++k)
        if (L.meta[static_cast<size_t>(k)].allowmeta) WriteMeta(w, L.meta[static_cast<size_t>(k)], k);
}

void WriteInterface(DefWriter& w, const InterfaceParameters& f) {
    w.Line("interface properties\n\n");
    w.F("interfacename : %s\n", f.name);
    w.F("Intraband tunneling : %i (0: no tunneling, 1: with tunneling)\n", f.intrabandTunnelling);
    if (w.compact) {
        w.F("Relative electron mass : %f[w5p2]\n", f.relElectronMass);
        w.F("Relative hole mass : %f[w5p2]\n\n", f.relHoleMass);
    } else {
        w.F("Relative electron mass : %f[w9p2e2]\n", f.relElectronMass);
        w.F("Relative hole mass : %f[w9p2e2]\n\n", f.relHoleMass);
    }
    for (int i = 0; i < f.numberOfDefects && i < MAX_IFDEFECTS; ++i) {
        const InterfaceRecombinationParameters& d = f.defect[static_cast<size_t>(i)];
        w.Line(i == 0 ? "interface recombination\n" : "next\n");
        w.Line("\n");
        w.F("type : %s\n", defectTypeStringsSaveAndLoad[static_cast<size_t>(std::clamp(d.type, 0, 6))]);
        w.F("sigma_nleft : %f[w9p3e2] [m^2]\n", d.sigma_nleft);
        w.F("sigma_nright : %f[w9p3e2] [m^2]\n", d.sigma_nright);
        w.F("sigma_pleft : %f[w9p3e2] [m^2]\n", d.sigma_pleft);
        w.F("sigma_pright : %f[w9p3e2] [m^2]\n", d.sigma_pright);
        w.F("Tunneling to trap: %i (0: no tunneling, 1: with tunneling)\n", d.tunnelling);
        if (w.compact) {
            w.F("Relative electron mass : %f[w5p2]\n", d.relElectronMass);
            w.F("Relative hole mass : %f[w5p2]\n", d.relHoleMass);
        } else {
            w.F("Relative electron mass : %f[w9p2e2]\n", d.relElectronMass);
            w.F("Relative hole mass : %f[w9p2e2]\n", d.relHoleMass);
        }
        const int etype = std::clamp(d.energy.type, 0, 4);
        w.F("energy distribution : %s\n", energyDistrTypeStringsSaveAndLoad[static_cast<size_t>(etype)]);
        w.F("Reference for defect energy : %i[w2] ; %s\n", d.energy.reference,
            "3 = above highest EV; 4 = below lowest EC; 5 = above Ei left; 6 = above Ei right; 7 = above EV "
            "right "
            "(= TERVO%<2.7 reference)");
        w.F("Et : %f[w5p2] [eV]\n", d.energy.Et);
        w.F("Ekar : %f[w5p2] [eV]\n", d.energy.Ekar);
        w.F(etype == EDIST_SINGLE ? "N : %f[w9p3e2] [/m^2]\n" : "N : %f[w9p3e2] [/m^2.eV]\n", d.N);
        w.Line("\n");
    }
    if (f.numberOfDefects > 0) w.Line("\n");
}

void WriteWorkingPoint(DefWriter& w, const ConvergenceParameters& c, const CellDefinition& cell,
                       const DefinitionWorkingSettings& s) {
    w.Line("\nworking point\n\n");
    w.Line(s.side == 0 ? "illuminated from : left" : "illuminated from : right");
    w.Line(FmtStr("%s<\ninternal Rfront : %f[w12p8]", s.Rfront));
    w.Line(FmtStr("%s<\ninternal Tfront : %f[w11e2p4]", s.Tfront));
    if (s.RsPresent) {
        w.Line(FmtStr("%s<\nSeries resistance : %i[w2] (1: Rs enabled; 0: Rs disabled)", s.RsPresent));
        w.Line(FmtStr("%s<\nRs [Ohm.m2] : %f[w14p6e2]", s.Rs));
    }
    if (s.GshPresent) {
        w.Line(FmtStr("%s<\nShunt conductance : %i[w2] (1: Gsh enabled; 0: Gsh disabled)", s.GshPresent));
        w.Line(FmtStr("%s<\nGsh [S/m2] : %f[w14p6e2]", s.Gsh));
    }
    if (c.changeOfReferences || s.conventionsShown) {
        w.Line(FmtStr("%s<\nvoltage V applied to : %i[w2] (+1: right contact; -1: left contact)",
                      cell.voltageAppliedTo));
        w.Line(FmtStr("%s<\ncell reference system : %i[w2] (1: as a consumer (consumed power = +VJ; 0: as a "
                      "generator (generated power = +VJ) )",
                      cell.referenceSystem));
    }
}

} // namespace

int WriteDefinitionFile(TextFile& file, const InputParameters& p, const DefinitionWorkingSettings& settings,
                        const std::string& version, DefinitionWriter writer) {
    if (!file.IsOpen()) return -1;
    DefWriter w{file, writer == DefinitionWriter::Compact};
    const CellDefinition& cell = p.cellParas;
    WriteHead(w, version);
    WriteConvergence(w, p.convergence, settings);
    WriteContact(w, cell.leftContact, true);
    const int n = std::clamp(cell.numberOfLayers, 0, MAX_LAYERS);
    for (int i = 0; i < n; ++i) {
        WriteLayer(w, cell.layer[static_cast<size_t>(i)]);
        if (i < n - 1) WriteInterface(w, cell.interface[static_cast<size_t>(i)]);
    }
    WriteContact(w, cell.rightContact, false);
    WriteWorkingPoint(w, p.convergence, cell, settings);
    if (std::fflush(file.fp.get()) != 0) w.status = -1;
    return w.status;
}

int ReadCeldefVariableFromDefFile(const std::string& path, CellDefinition& cell) {
    InputParameters p;
    DefinitionWorkingSettings s;
    const int r = lees_structuurfile(path, p, s, 1);
    if (r == 1) cell = p.cellParas;
    return r;
}

int ReadShortCeldefVariableFromDefFile(const std::string& path, ShortCellDefinition& shortCell) {
    CellDefinition cell;
    const int r = ReadCeldefVariableFromDefFile(path, cell);
    if (r == 1) LongToShortCellDefinition(cell, shortCell);
    return r;
}

} // namespace tervo
