// Graded properties: the interpolation laws of a Profile, grading files, end values, unit factors,
// and the description of bulk-defect densities used before version 2.7 of the definition file.
#include "cell/grading.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_file.h"
#include "platform/text_util.h"

namespace tervo {

namespace {

constexpr const char* kGradingErrorTitle = "Error whilst reading gradingfile";
constexpr double kHcOverQ = 1239.977; // nm eV
constexpr int kMaxGradingPoints = MAX_SPECTRUM_LINES;
constexpr int kOptionLineLength = 120;
constexpr int kDataLineLength = 1024;

// ---------------------------------------------------------------------------------------------
// Where a profile lives in a layer.

Profile* LayerProfile(LayerParameters& layer, int variableId) {
    MaterialParameters& m = layer.material;
    switch (variableId) {
    case VAR_COMPOSITION:
        return &layer.composition;
    case VAR_EG:
        return &m.Eg;
    case VAR_CHI:
        return &m.chi;
    case VAR_EPS:
        return &m.eps;
    case VAR_NC:
        return &m.Nc;
    case VAR_NV:
        return &m.Nv;
    case VAR_VTHN:
        return &m.v_th_n;
    case VAR_VTHP:
        return &m.v_th_p;
    case VAR_MUN:
        return &m.mu_n;
    case VAR_MUP:
        return &m.mu_p;
    case VAR_ND:
        return &m.Nd;
    case VAR_NA:
        return &m.Na;
    case VAR_KRAD:
        return &m.K_rad;
    case VAR_CN_AUGER:
        return &m.c_n_auger;
    case VAR_CP_AUGER:
        return &m.c_p_auger;
    case VAR_MASS_ELECTRON:
        return &m.relElectronMass;
    case VAR_MASS_HOLE:
        return &m.relHoleMass;
    case VAR_ABSORPTION:
        return &m.absorption;
    default:
        return nullptr;
    }
}

const Profile* LayerProfile(const LayerParameters& layer, int variableId) {
    return LayerProfile(const_cast<LayerParameters&>(layer), variableId);
}

// The material properties whose end values follow from their law (the composition is handled
// before them, since properties that depend on y need its end values).
constexpr int kMaterialIds[] = {VAR_EG,        VAR_CHI,       VAR_EPS,      VAR_NC,       VAR_NV,
                                VAR_VTHN,      VAR_VTHP,      VAR_MUN,      VAR_MUP,      VAR_ND,
                                VAR_NA,        VAR_KRAD,      VAR_CN_AUGER, VAR_CP_AUGER, VAR_MASS_ELECTRON,
                                VAR_MASS_HOLE, VAR_ABSORPTION};

// ---------------------------------------------------------------------------------------------
// Grading files.

// Reads a number at the start of `s` (after blanks).  Only plain decimal notation counts, so that
// words such as "inf" or "nan" in a header are not taken for data.
bool ParseLeadingNumber(const char*& s, double& value) {
    while (*s == ' ' || *s == '\t') ++s;
    const char c = *s;
    const bool startsNumber = (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    if (!startsNumber) return false;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(s, &end);
    if (end == s || errno == ERANGE || !std::isfinite(v)) return false;
    s = end;
    value = v;
    return true;
}

// A data line starts with two numbers; anything behind them is ignored.
bool ParseDataLine(const std::string& line, double& x, double& y) {
    const char* s = line.c_str();
    if (!ParseLeadingNumber(s, x)) return false;
    if (*s != ' ' && *s != '\t') return false; // the two numbers stand apart
    return ParseLeadingNumber(s, y);
}

struct GradingFileContents {
    bool opened = false;
    std::vector<double> x;
    std::vector<double> y;
    int logInterpolation = -1; // -1: no option line of this kind
    int relativePosition = -1;
};

GradingFileContents ReadGradingFile(const std::string& path) {
    GradingFileContents out;
    TextFile file = OpenFile(path, FileMode::Read);
    if (!file.IsOpen()) return out;
    out.opened = true;
    std::string line;
    while (ReadLine(file, line, kDataLineLength) >= 0) {
        const std::string head = line.substr(0, kOptionLineLength);
        if (out.logInterpolation < 0) {
            if (StartsWithNoCase(head, "interpolation: log"))
                out.logInterpolation = 1;
            else if (StartsWithNoCase(head, "interpolation: lin"))
                out.logInterpolation = 0;
        }
        if (out.relativePosition < 0) {
            if (StartsWithNoCase(head, "thickness: abs") || StartsWithNoCase(head, "position: abs"))
                out.relativePosition = 0;
            else if (StartsWithNoCase(head, "thickness: rel") || StartsWithNoCase(head, "position: rel"))
                out.relativePosition = 1;
        }
        double x = 0, y = 0;
        if (static_cast<int>(out.x.size()) < kMaxGradingPoints && ParseDataLine(line, x, y)) {
            out.x.push_back(x);
            out.y.push_back(y);
        }
    }
    return out;
}

bool HasFolder(const std::string& name) {
    std::string drive, folder, file;
    SplitPath(name, drive, folder, file);
    return !drive.empty() || !folder.empty();
}

// Law 12: the profile read from its grading file.  File values are in file form; the caller
// converts them where it needs user units.
void InterpolateFromFile(Profile& p, const double* abscissae, double* results, int n) {
    if (p.fileState == 0 && !p.gradingFile.empty() && !HasFolder(p.gradingFile))
        p.gradingFile = MakePathname(MakePathname(GetProjectDir(), "grading"), p.gradingFile);

    const GradingFileContents contents = ReadGradingFile(p.gradingFile);
    if (contents.x.empty()) {
        TERVOErrorMessage(kGradingErrorTitle, FmtStr("No useful data available in %s", p.gradingFile));
        return;
    }
    if (p.fileState == 0) {
        p.logInterpolation = contents.logInterpolation >= 0 ? contents.logInterpolation
                                                            : DefaultLogInterpolation(p.variableId);
        p.relativePosition = contents.relativePosition >= 0 ? contents.relativePosition : 0;
        p.fileState = 2;
    }

    std::vector<double> x = contents.x;
    const std::vector<double>& y = contents.y;
    const int count = static_cast<int>(x.size());
    for (int i = 1; i < count; ++i) {
        if (x[i] <= x[i - 1]) {
            const char* what = p.dependence == DEP_COMPOSITION ? "composition" : "position";
            TERVOErrorMessage(kGradingErrorTitle,
                              FmtStr("Unsorted data in %s!\n%s values should be given in an increasing "
                                     "order.\nvalue[%i]=%f should be larger than value[%i]=%f!",
                                     p.gradingFile, what, i, x[i], i - 1, x[i - 1]));
            std::fill(results, results + n, 0.0);
            return;
        }
    }
    if (p.relativePosition == 1 && p.dependence == DEP_POSITION)
        for (double& xi : x) xi *= p.thickness;

    for (int i = 0; i < n; ++i) {
        double value = 0;
        if (p.logInterpolation == 1)
            LogInterp(x.data(), y.data(), count, abscissae[i], value);
        else
            LinInterp(x.data(), y.data(), count, abscissae[i], value);
        results[i] = value;
    }
}

// Law 13: piecewise linear in the table, held constant beyond its ends.
void InterpolateTable(const Profile& p, const double* abscissae, double* results, int n) {
    const int count =
        std::min({p.npoints, static_cast<int>(p.xlist.size()), static_cast<int>(p.ylist.size())});
    for (int i = 0; i < n; ++i) {
        const double x = abscissae[i];
        if (count <= 0) {
            results[i] = 0;
        } else if (x <= p.xlist[0]) {
            results[i] = p.ylist[0];
        } else if (x >= p.xlist[count - 1]) {
            results[i] = p.ylist[count - 1];
        } else {
            const auto it = std::upper_bound(p.xlist.begin(), p.xlist.begin() + count, x);
            const int k = static_cast<int>(it - p.xlist.begin()); // xlist[k-1] <= x < xlist[k]
            const double x0 = p.xlist[k - 1], x1 = p.xlist[k];
            const double t = (x - x0) / (x1 - x0);
            results[i] = p.ylist[k - 1] + t * (p.ylist[k] - p.ylist[k - 1]);
        }
    }
}

// ---------------------------------------------------------------------------------------------
// The analytic laws.

struct LawRange {
    double x0, x1, W, a, b;
};

double Linear(const LawRange& r, double x) {
    return ((x - r.x0) * r.b + (r.x1 - x) * r.a) / r.W;
}

double Clip(double v, double lo, double hi) {
    return std::min(std::max(v, lo), hi);
}

// Geometric interpolation; both ends are kept away from zero and from each other by ten decades.
double Logarithmic(const LawRange& r, double x) {
    double a = std::max(r.a, 1e-10);
    double b = std::max(r.b, 1e-10);
    a = std::max(a, 1e-10 * b);
    b = std::max(b, 1e-10 * a);
    if (x == r.x0) return a;
    if (x == r.x1) return b;
    return std::pow(a, (r.x1 - x) / r.W) * std::pow(b, (x - r.x0) / r.W);
}

// Weight of one exponential flank: sinh(dist/L)/sinh(W/L), replaced by exp(-(W-dist)/L) once W/L is
// so large that the sinh would lose everything to overflow.
double ExponentialFlank(double dist, double W, double L) {
    if (W / L >= 80) {
        const double e = (W - dist) / L;
        return e > 80 ? 0.0 : std::exp(-e);
    }
    return std::sinh(dist / L) / std::sinh(W / L);
}

double Exponential(const LawRange& r, double x, const Profile& p) {
    if (x == r.x0) return r.a;
    if (x == r.x1) return r.b;
    const double background = p.lawPar1;
    const double Lleft = std::max(p.lawPar2, 0.001);
    const double Lright = std::max(p.lawPar3, 0.001);
    const double c1 = ExponentialFlank(r.x1 - x, r.W, Lleft);
    const double c2 = ExponentialFlank(x - r.x0, r.W, Lright);
    return background + (r.a - background) * c1 + (r.b - background) * c2;
}

double BetaLaw(const LawRange& r, double x, const Profile& p) {
    if (x == r.x0) return r.a;
    if (x == r.x1) return r.b;
    const double alpha = Clip(p.lawPar1, 0.001, 1000);
    const double beta = Clip(p.lawPar2, 0.001, 1000);
    return r.a + (r.b - r.a) * IncompleteBeta(alpha, beta, (x - r.x0) / r.W);
}

double EffectiveMedium(const LawRange& r, double x) {
    const double w = (2 * r.a - r.b) * (r.x1 - x) + (2 * r.b - r.a) * (x - r.x0);
    const double radicand = std::max(8 * r.a * r.b + w * w, 0.0);
    return (w + std::sqrt(radicand)) / 4;
}

// ((1-t) a^(1/m) + t b^(1/m))^m.  For non-negative ends the larger one is taken out first, so
// that a small m (large 1/m) cannot overflow the powers.
double PowerLaw(const LawRange& r, double x, const Profile& p) {
    if (x == r.x0) return r.a;
    if (x == r.x1) return r.b;
    const double m = Clip(p.lawPar1, 0.001, 1000);
    const double wa = (r.x1 - x) / r.W;
    const double wb = (x - r.x0) / r.W;
    if (r.a >= 0 && r.b >= 0) {
        const double top = std::max(r.a, r.b);
        if (top == 0) return 0;
        const double s = wa * std::pow(r.a / top, 1 / m) + wb * std::pow(r.b / top, 1 / m);
        return top * std::pow(s, m);
    }
    return std::pow(wa * std::pow(r.a, 1 / m) + wb * std::pow(r.b, 1 / m), m);
}

// Parabola with its extremum (p1, p2).  With p1 inside the range each side has its own curvature;
// with p1 outside, a quartic in (x - p1) passes through both ends.
double Parabolic2(const LawRange& r, double x, const Profile& p) {
    const double xm = p.lawPar1;
    const double ym = p.lawPar2;
    const double u = (x - xm) * (x - xm);
    const double d0 = (r.x0 - xm) * (r.x0 - xm);
    const double d1 = (r.x1 - xm) * (r.x1 - xm);
    if (xm >= std::min(r.x0, r.x1) && xm <= std::max(r.x0, r.x1)) {
        if (x < xm) return d0 == 0 ? ym : u * (r.a - ym) / d0 + ym;
        return d1 == 0 ? ym : u * (r.b - ym) / d1 + ym;
    }
    const double Q = r.W * (r.x1 + r.x0 - 2 * xm) * d1 * d0;
    if (Q == 0) return ym;
    const double C = (d0 * (r.b - ym) - d1 * (r.a - ym)) / Q;
    const double E = (d1 * d1 * (r.a - ym) - d0 * d0 * (r.b - ym)) / Q;
    return (u * C + E) * u + ym;
}

double AnalyticLaw(int law, const LawRange& r, double x, const Profile& p) {
    switch (law) {
    case LAW_LINEAR:
    case LAW_ALPHA:
        return Linear(r, x);
    case LAW_PARABOLIC: {
        const double v = Linear(r, x) - (r.x1 - x) * (x - r.x0) * p.lawPar1 / (r.W * r.W);
        return std::max(v, p.lawPar2);
    }
    case LAW_LOGARITHMIC:
        return Logarithmic(r, x);
    case LAW_EXPONENTIAL:
        return Exponential(r, x, p);
    case LAW_BETA:
        return BetaLaw(r, x, p);
    case LAW_EFFECTIVE_MEDIUM:
        return EffectiveMedium(r, x);
    case LAW_POWER:
        return PowerLaw(r, x, p);
    case LAW_PARABOLIC2:
        return Parabolic2(r, x, p);
    default:
        return r.a; // 0, 10, 11: uniform
    }
}

bool IsUniformLaw(int law) {
    return law == LAW_UNIFORM || law == LAW_UNIFORM_PURE_B || law == LAW_UNIFORM_Y;
}

bool WritesBackOnRequest(int law) {
    return (law >= LAW_LINEAR && law <= LAW_BETA) || law == LAW_POWER || law == LAW_PARABOLIC2;
}

// Profile values at three positions 0, d/2, d (dependence on x) or at 0, y left, y right, 1
// (dependence on y), with file values brought into user units.
void EvaluateInUserUnits(Profile& p, const double* abscissae, double* results, int n) {
    interpolation(p, abscissae, results, 0, n);
    if (p.law == LAW_FROM_FILE) Convert_m_To_cm_Units(p, results, n);
}

// The end values are kept on the user form of the cell, whose d is in µm like the positions of a
// grading file: 0, d/2 and d are the front, middle and back of the layer in the file's own unit, and
// relative positions are scaled by the same µm.
void UpdateEndValues(Profile& p, const LayerParameters& layer) {
    const double d = layer.material.d;
    p.thickness = d;
    if (p.dependence == DEP_POSITION) {
        const double x[3] = {0, d / 2, d};
        double v[3] = {0, 0, 0};
        EvaluateInUserUnits(p, x, v, 3);
        p.leftValue = v[0];
        p.rightValue = v[2];
    } else if (p.dependence == DEP_COMPOSITION) {
        const double y[4] = {0, layer.composition.leftValue, layer.composition.rightValue, 1};
        double v[4] = {0, 0, 0, 0};
        EvaluateInUserUnits(p, y, v, 4);
        p.pureA = v[0];
        p.leftValue = v[1];
        p.rightValue = v[2];
        p.pureB = v[3];
    }
}

// Multiplies every value of a profile by factor: the end values, the law parameters that carry
// the unit of the property, and the ordinates of a table.
void ScaleProfileValues(Profile& p, double factor) {
    p.pureA *= factor;
    p.pureB *= factor;
    p.leftValue *= factor;
    p.rightValue *= factor;
    if (p.unitPar1) p.lawPar1 *= factor;
    if (p.unitPar2) p.lawPar2 *= factor;
    if (p.law == LAW_TABLE)
        for (double& y : p.ylist) y *= factor;
}

} // namespace

// ---------------------------------------------------------------------------------------------

void interpolation(Profile& p, const double* abscissae, double* results, int writeBack, int n) {
    if (n <= 0 || abscissae == nullptr || results == nullptr) return;
    if (p.law == LAW_FROM_FILE) {
        InterpolateFromFile(p, abscissae, results, n);
        return;
    }
    if (p.law == LAW_TABLE) {
        InterpolateTable(p, abscissae, results, n);
        return;
    }

    int law = p.law;
    if (law < 0 || law >= NUMBER_OF_LAWS) law = LAW_UNIFORM; // an unknown code reads as uniform
    LawRange r{};
    const bool byPosition = p.dependence == DEP_POSITION;
    if (byPosition) {
        r.x0 = abscissae[0];
        r.x1 = abscissae[n - 1];
    } else {
        r.x0 = 0;
        r.x1 = 1;
    }
    r.W = r.x1 - r.x0;
    if (r.W == 0 && !IsUniformLaw(law)) law = LAW_UNIFORM; // a range of zero width holds one value

    if (byPosition) {
        r.a = p.leftValue;
        r.b = p.rightValue;
        if (law == LAW_UNIFORM)
            r.b = r.a;
        else if (law == LAW_UNIFORM_PURE_B)
            r.a = r.b;
        else if (law == LAW_UNIFORM_Y)
            r.a = r.b = (p.leftValue + p.rightValue) / 2;
    } else {
        r.a = p.pureA;
        r.b = law == LAW_UNIFORM ? p.pureA : p.pureB;
    }

    for (int i = 0; i < n; ++i) results[i] = AnalyticLaw(law, r, abscissae[i], p);

    if (IsUniformLaw(law) || (writeBack == 1 && WritesBackOnRequest(law))) {
        p.leftValue = results[0];
        p.rightValue = results[n - 1];
    }
}

void RecalculateLeftRightValues(LayerParameters& layer, int variableId) {
    Profile& composition = layer.composition;
    if (composition.law == LAW_FROM_FILE && (composition.fileState == 0 || composition.fileState == 2)) {
        const double d = layer.material.d;
        composition.thickness = d;
        const double x[3] = {0, d / 2, d};
        double v[3] = {0, 0, 0};
        interpolation(composition, x, v, 0, 3);
        composition.leftValue = v[0];
        composition.rightValue = v[2];
        composition.pureA = 0;
        composition.pureB = 1;
    }
    for (const int id : kMaterialIds) {
        if (variableId >= 0 && id != variableId) continue;
        UpdateEndValues(*LayerProfile(layer, id), layer);
    }
}

void RecalculateLeftRightNtValue(Profile& Nt, LayerParameters& layer) {
    UpdateEndValues(Nt, layer);
}

void CopyProfile(Profile& to, const Profile& from, double factor) {
    Profile copy = from;
    if (copy.law != LAW_TABLE) {
        copy.xlist.clear();
        copy.ylist.clear();
        copy.npoints = 0;
    }
    ScaleProfileValues(copy, factor);
    to = std::move(copy);
}

void ConvertTotalProfile_to_PeakProfile(Profile& p, double factor) {
    ScaleProfileValues(p, factor);
}

void ConvertPeakProfile_to_TotalProfile(Profile& p, double factor) {
    ScaleProfileValues(p, 1 / factor);
}

void CopyNtProfile_to_TERVO27Data(BulkRecombinationParameters& level) {
    const Profile& Nt = level.Nt;
    const double peak = level.energy.peakToTotal;
    level.Lkar = 1;
    if (Nt.dependence != DEP_POSITION) {
        level.profile = SPATIAL_HOMOGENOUS;
        level.Nleft = level.Nright = Nt.leftValue * peak;
        return;
    }
    level.profile = Nt.law == LAW_LINEAR        ? SPATIAL_LINEAR
                    : Nt.law == LAW_EXPONENTIAL ? SPATIAL_EXPONENTIAL
                                                : SPATIAL_HOMOGENOUS;
    level.Nleft = Nt.leftValue * peak;
    level.Nright = Nt.rightValue * peak;
    if (level.profile == SPATIAL_HOMOGENOUS) level.Nright = level.Nleft;
    if (level.profile == SPATIAL_EXPONENTIAL)
        level.Lkar = level.Nleft <= level.Nright ? Nt.lawPar3 : Nt.lawPar2;
}

void CopyTERVO27Data_to_NtProfile(BulkRecombinationParameters& level) {
    Profile& Nt = level.Nt;
    // The old densities were peak densities; the profile holds totals.
    const double peak = level.energy.peakToTotal != 0 ? level.energy.peakToTotal : 1.0;
    const double left = level.Nleft / peak;
    const double right = level.Nright / peak;
    Nt.dependence = DEP_POSITION;
    Nt.leftValue = Nt.pureA = Nt.lawPar1 = left;
    Nt.rightValue = Nt.pureB = right;
    Nt.lawPar2 = Nt.lawPar3 = 1;
    switch (level.profile) {
    case SPATIAL_LINEAR:
        Nt.law = LAW_LINEAR;
        break;
    case SPATIAL_EXPONENTIAL:
        // The background is the lower end; the flank on that side is made so long that it is flat.
        Nt.law = LAW_EXPONENTIAL;
        if (level.Nleft <= level.Nright) {
            Nt.lawPar1 = left;
            Nt.lawPar3 = level.Lkar;
            Nt.lawPar2 = 1000 * level.Lkar;
        } else {
            Nt.lawPar1 = right;
            Nt.lawPar2 = level.Lkar;
            Nt.lawPar3 = 1000 * level.Lkar;
        }
        break;
    default:
        Nt.law = LAW_UNIFORM;
        Nt.dependence = DEP_UNIFORM;
        break;
    }
    SetProfileScaleParameters(Nt);
}

double FileToUserFactor(int variableId) {
    switch (variableId) {
    case VAR_NC:
    case VAR_NV:
    case VAR_ND:
    case VAR_NA:
    case VAR_NT:
        return 1e-6;
    case VAR_VTHN:
    case VAR_VTHP:
        return 100;
    case VAR_MUN:
    case VAR_MUP:
        return 1e4;
    case VAR_KRAD:
        return 1e6;
    case VAR_CN_AUGER:
    case VAR_CP_AUGER:
        return 1e12;
    case VAR_ABSORPTION:
        return 0.01;
    default:
        return 1; // composition, energies, eps, masses
    }
}

int DefaultLogInterpolation(int variableId) {
    switch (variableId) {
    case VAR_NC:
    case VAR_NV:
    case VAR_VTHN:
    case VAR_VTHP:
    case VAR_ND:
    case VAR_NA:
    case VAR_NT:
    case VAR_KRAD:
    case VAR_CN_AUGER:
    case VAR_CP_AUGER:
        return 1;
    default:
        return 0;
    }
}

void Convert_m_To_cm_Units(const Profile& p, double* values, int n) {
    if (values == nullptr) return;
    const double factor = FileToUserFactor(p.variableId);
    for (int i = 0; i < n; ++i) values[i] *= factor;
}

int GetProfileFromLayer(const LayerParameters& layer, int variableId, Profile& out) {
    const Profile* p = LayerProfile(layer, variableId);
    if (p == nullptr) return -1;
    CopyProfile(out, *p, 1);
    return 0;
}

int WriteGradingInfoToMaterial(LayerParameters& layer, int variableId, const Profile& in) {
    Profile* p = LayerProfile(layer, variableId);
    if (p == nullptr) return -1;
    CopyProfile(*p, in, 1);
    p->variableId = variableId;
    if (variableId == VAR_EG) {
        // The cut-off wavelengths of the two pure materials follow their band gaps.
        Profile& absorption = layer.material.absorption;
        if (p->pureA > 0) absorption.pureA = kHcOverQ / p->pureA;
        if (p->pureB > 0) absorption.pureB = kHcOverQ / p->pureB;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Table interpolation.

namespace {

// Index k with x[k] <= position < x[k+1], for x[0] <= position <= x[n-1].
int Bracket(const double* x, int n, double position) {
    const double* it = std::upper_bound(x, x + n, position);
    int k = static_cast<int>(it - x) - 1;
    return std::clamp(k, 0, n - 2);
}

bool RisesStrictly(const double* x, int n) {
    for (int i = 1; i < n; ++i)
        if (!(x[i] > x[i - 1])) return false;
    return true;
}

double LineThrough(double xa, double ya, double xb, double yb, double x) {
    return ya + (x - xa) * (yb - ya) / (xb - xa);
}

} // namespace

int LinInterp(const double* x, const double* y, int n, double position, double& result) {
    result = 0;
    if (n < 1 || x == nullptr || y == nullptr) return -1;
    if (n == 1) {
        result = y[0];
        return 1;
    }
    if (!RisesStrictly(x, n)) return -3;
    if (position < x[0]) {
        result = LineThrough(x[0], y[0], x[1], y[1], position);
        return -2;
    }
    if (position > x[n - 1]) {
        result = LineThrough(x[n - 2], y[n - 2], x[n - 1], y[n - 1], position);
        return -2;
    }
    const int k = Bracket(x, n, position);
    result = LineThrough(x[k], y[k], x[k + 1], y[k + 1], position);
    return 1;
}

int LogInterp(const double* x, const double* y, int n, double position, double& result) {
    result = 0;
    if (n < 1 || x == nullptr || y == nullptr) return -1;
    if (n == 1) {
        result = y[0];
        return y[0] > 0 ? 1 : -4;
    }
    if (!RisesStrictly(x, n)) return -3;

    // Beyond an end: the end value, unless the table grows towards that end, in which case its
    // last decade-per-length slope is continued.  A non-positive end gives 0.
    const auto outside = [&](int end, int inner) {
        if (!(y[end] > 0)) return 0.0;
        if (y[end] > y[inner] && y[inner] > 0)
            return std::exp(LineThrough(x[inner], std::log(y[inner]), x[end], std::log(y[end]), position));
        return y[end];
    };
    if (position < x[0]) {
        result = outside(0, 1);
        return -2;
    }
    if (position > x[n - 1]) {
        result = outside(n - 1, n - 2);
        return -2;
    }
    const int k = Bracket(x, n, position);
    if (!(y[k] > 0) || !(y[k + 1] > 0)) {
        result = LineThrough(x[k], y[k], x[k + 1], y[k + 1], position);
        return -4;
    }
    result = std::exp(LineThrough(x[k], std::log(y[k]), x[k + 1], std::log(y[k + 1]), position));
    return 1;
}

const char* LinInterpMessage(int code) {
    switch (code) {
    case 1:
        return "LinInterp executed successfully";
    case -1:
        return "Error in LinInterp: number of points is smaller than 1";
    case -2:
        return "Error in LinInterp: extrapolation needed";
    case -3:
        return "Error in LinInterp: x array does not rise monotonically";
    default:
        return "Error in LinInterp: unknown error";
    }
}

const char* LogInterpMessage(int code) {
    switch (code) {
    case 1:
        return "LogInterp executed successfully";
    case -1:
        return "Error in LogInterp: number of points is smaller than 1";
    case -2:
        return "Error in LogInterp: extrapolation needed";
    case -3:
        return "Error in LogInterp: x array does not rise monotonically";
    case -4:
        return "Error in LogInterp: y values should be larger than 0";
    default:
        return "Error in LogInterp: unknown error";
    }
}

// ---------------------------------------------------------------------------------------------
// Regularised incomplete beta function.

double gammaln(double x) {
    static const double cof[6] = {76.18009172947146,  -86.50532032941677,    24.01409824083091,
                                  -1.231739572450155, 0.1208650973866179e-2, -0.5395239384953e-5};
    double y = x;
    double tmp = x + 5.5;
    tmp -= (x + 0.5) * std::log(tmp);
    double ser = 1.000000000190015;
    for (const double c : cof) ser += c / ++y;
    return -tmp + std::log(2.5066282746310005 * ser / x);
}

double betacf(double a, double b, double x) {
    constexpr int maxIterations = 100;
    constexpr double eps = 3.0e-7;
    constexpr double floor = 1.0e-30;
    const double qab = a + b;
    const double qap = a + 1.0;
    const double qam = a - 1.0;
    double c = 1.0;
    double d = 1.0 - qab * x / qap;
    if (std::fabs(d) < floor) d = floor;
    d = 1.0 / d;
    double h = d;
    for (int m = 1; m <= maxIterations; ++m) {
        const int m2 = 2 * m;
        double aa = m * (b - m) * x / ((qam + m2) * (a + m2));
        d = 1.0 + aa * d;
        if (std::fabs(d) < floor) d = floor;
        c = 1.0 + aa / c;
        if (std::fabs(c) < floor) c = floor;
        d = 1.0 / d;
        h *= d * c;
        aa = -(a + m) * (qab + m) * x / ((a + m2) * (qap + m2));
        d = 1.0 + aa * d;
        if (std::fabs(d) < floor) d = floor;
        c = 1.0 + aa / c;
        if (std::fabs(c) < floor) c = floor;
        d = 1.0 / d;
        const double del = d * c;
        h *= del;
        if (std::fabs(del - 1.0) < eps) break;
    }
    return h;
}

double IncompleteBeta(double a, double b, double x) {
    if (x <= 0) return 0;
    if (x >= 1) return 1;
    const double bt =
        std::exp(gammaln(a + b) - gammaln(a) - gammaln(b) + a * std::log(x) + b * std::log(1.0 - x));
    if (x < (a + 1.0) / (a + b + 2.0)) return bt * betacf(a, b, x) / a;
    return 1.0 - bt * betacf(b, a, 1.0 - x) / b;
}

} // namespace tervo
