#include "setup/absorption.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>

#include "cell/grading.h"
#include "platform/files.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "setup/defect_levels.h"
#include "setup/spectrum.h"

namespace tervo {

namespace {

constexpr double kGridPlaceholder = 2e30;  // wavelength of an unused place of a grid
constexpr double kAnchorMargin = 10.0;     // nm that an anchor stays below its cut-off wavelength
constexpr double kSameWavelength = 0.0001; // nm
constexpr double kTinyShare = 1e-10;       // what an alpha of 0 counts as beside a non-zero one

bool FromFile(const MaterialParameters& m, int which) {
    return (which == 0 ? m.absorptionA : m.absorptionB) == 1;
}

const std::string& FileOf(const MaterialParameters& m, int which) {
    return which == 0 ? m.absorptionFileA : m.absorptionFileB;
}

// The cut-off wavelengths of the pure materials follow their band gaps.
void RefreshCutoffWavelengths(MaterialParameters& m) {
    if (m.Eg.pureA > 0) m.absorption.pureA = HC_OVER_Q_NM / m.Eg.pureA;
    if (m.Eg.pureB > 0) m.absorption.pureB = HC_OVER_Q_NM / m.Eg.pureB;
}

// (A + B/hv) sqrt(hv - Eg) with hv = 1239.977/l and Eg = 1239.977/lc, written in wavelengths; 0 at and
// beyond the cut-off wavelength lc.
double CoefficientAlpha(double A, double B, double lc, double l) {
    if (!(lc > 0) || !(l > 0) || l >= lc) return 0.0;
    const double Eg = HC_OVER_Q_NM / lc;
    return (A + B * l / HC_OVER_Q_NM) * std::sqrt(Eg) * std::sqrt(lc / l - 1.0);
}

// The wavelength grid of the coefficient model: dense just below the cut-off, where alpha rises as a
// square root, then evenly through the visible and near infrared, sparse beyond.
void BuildAlphaGrid(double lc, std::vector<double>& l, int n) {
    l.assign(At(n), 0.0);
    const int limit1 = n < 40 ? n : n - 10;
    const int limit2 = n < 45 ? n : n - 5;
    for (int i = 0; i < n; ++i) {
        double v = 0;
        if (i < 10)
            v = lc - 0.4 * i;
        else if (i < 20)
            v = lc + 6 - i;
        else if (i < 30)
            v = lc + 86 - 5.0 * i;
        else if (i < limit1)
            v = 200 + (i - 30) * 1200.0 / (limit1 - 30);
        else if (i < limit2)
            v = 1400 + (i - limit1) * 500.0 / (limit2 - limit1);
        else
            v = 1900 + (i - limit2) * 1000.0 / (n - limit2);
        l[At(i)] = v;
    }
    std::sort(l.begin(), l.end());
    for (int i = 1; i < n; ++i) {
        if (l[At(i)] - l[At(i - 1)] >= kSameWavelength) continue;
        l[At(i)] = i + 1 < n ? 0.5 * (l[At(i)] + l[At(i + 1)]) : l[At(i - 1)] + 1.0;
    }
}

void SortTable(std::vector<double>& x, std::vector<double>& y) {
    std::vector<std::pair<double, double>> pairs(x.size());
    for (size_t i = 0; i < x.size(); ++i) pairs[i] = {x[i], y[i]};
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const auto& p, const auto& q) { return p.first < q.first; });
    for (size_t i = 0; i < x.size(); ++i) {
        x[i] = pairs[i].first;
        y[i] = pairs[i].second;
    }
}

// The absorption table of one pure material on its own grid: the file's lines, or the grid of the
// coefficient model.
bool MakeAlphaTable(const MaterialParameters& m, int which, AlphaTable& table) {
    const int count =
        FromFile(m, which) ? tel_lijnen_in_file(FileOf(m, which), DATAFILE_ABSORPTION) : ALPHA_GRID_POINTS;
    if (count <= 0) return false;
    table.lambda.assign(At(count), kGridPlaceholder);
    if (!DetermineLayerAlpha(m, table.lambda, table.alpha, count, which, 0)) return false;
    size_t used = 0;
    while (used < table.lambda.size() && !(table.lambda[used] > ALPHA_GRID_REQUEST)) ++used;
    table.lambda.resize(used);
    table.alpha.resize(used);
    table.lnAlpha.resize(used);
    for (size_t i = 0; i < used; ++i) table.lnAlpha[i] = table.alpha[i] > 0 ? std::log(table.alpha[i]) : 0.0;
    return used > 0;
}

// Band gap of the layer at composition y, the Eg profile read as a function of y.
double BandGapAtComposition(const MaterialParameters& m, double y) {
    Profile Eg = m.Eg;
    Eg.dependence = DEP_COMPOSITION;
    double value = 0;
    interpolation(Eg, &y, &value, 0, 1);
    return value;
}

// The logarithms of a table's entries are formed once (a graded layer interpolates two tables at
// every wavelength for each of some hundreds of compositions).
double TableValue(double position, const AlphaTable& t) {
    const int n = static_cast<int>(std::min(t.lambda.size(), t.alpha.size()));
    return LogInterpolateFromTable(position, t.lambda.data(), t.alpha.data(), n,
                                   t.lnAlpha.size() == At(n) ? t.lnAlpha.data() : nullptr);
}

// InterpolateAlpha with the band gap at y already known.
void InterpolateAlphaAtGap(const MaterialParameters& m, int law, double EgY,
                           const std::vector<double>& wavelengths, std::vector<double>& result, int n,
                           const AlphaTable& tableA, const AlphaTable& tableB, double y) {
    result.assign(At(n), 0.0);
    const double EgA = law == LAW_UNIFORM_PURE_B ? m.Eg.pureB : m.Eg.pureA;
    const bool onlyA = law == LAW_UNIFORM || m.Eg.law == LAW_UNIFORM;
    const double EgB = onlyA ? EgA : m.Eg.pureB;
    if (!(EgA > 0) || !(EgB > 0) || !(EgY > 0)) return;
    const double lA = HC_OVER_Q_NM / EgA, lB = HC_OVER_Q_NM / EgB, ly = HC_OVER_Q_NM / EgY;
    // Short-wavelength anchors: the absorption spectrum of each pure material is stretched between its
    // anchor and its cut-off onto the range from the mixed anchor to the cut-off of the mixture.
    const double sA = std::min(m.absorption.lawPar1, lA - kAnchorMargin);
    const double sB = std::min(onlyA ? m.absorption.lawPar1 : m.absorption.lawPar2, lB - kAnchorMargin);
    const double sy = sB * y + sA * (1 - y);
    const double span = ly - sy;
    for (int k = 0; k < n && At(k) < wavelengths.size(); ++k) {
        const double l = wavelengths[At(k)];
        const double lAm = span != 0 ? ((ly - l) * sA + (l - sy) * lA) / span : l;
        const double lBm = span != 0 ? ((ly - l) * sB + (l - sy) * lB) / span : l;
        double aA = TableValue(lAm, tableA);
        double aB = TableValue(lBm, tableB);
        if (!(aA > 0) && !(aB > 0)) continue;
        if (!(aA > 0)) aA = kTinyShare * aB;
        if (!(aB > 0)) aB = kTinyShare * aA;
        result[At(k)] = std::pow(aA, 1 - y) * std::pow(aB, y);
    }
}

bool SameProfile(const Profile& a, const Profile& b) {
    const auto fields = [](const Profile& p) {
        return std::tie(p.law, p.dependence, p.pureA, p.pureB, p.lawPar1, p.lawPar2, p.lawPar3, p.leftValue,
                        p.rightValue, p.unitPar1, p.unitPar2, p.gradingFile, p.xlist, p.ylist, p.npoints,
                        p.logInterpolation, p.relativePosition, p.thickness);
    };
    return fields(a) == fields(b);
}

// Whether two materials absorb alike: the same band gap law and absorption block.
bool SameAbsorptionInputs(const MaterialParameters& a, const MaterialParameters& b) {
    return a.compositionType == b.compositionType && SameProfile(a.Eg, b.Eg) &&
           SameProfile(a.absorption, b.absorption) && a.A_pureA == b.A_pureA && a.B_pureA == b.B_pureA &&
           a.A_pureB == b.A_pureB && a.B_pureB == b.B_pureB && a.absorptionA == b.absorptionA &&
           a.absorptionB == b.absorptionB && a.absorptionFileA == b.absorptionFileA &&
           a.absorptionFileB == b.absorptionFileB;
}

// The tables of the two pure materials of a layer, with no rows yet.  False when a table cannot be
// made (the readers report why).
bool MakeLayerRows(const MaterialParameters& m, int law, LayerAlphaRows& rows) {
    rows = LayerAlphaRows{};
    // A layer of pure B takes material B's data as its own material A.
    const int materialA = m.compositionType == 20 ? 1 : 0;
    if (!MakeAlphaTable(m, materialA, rows.tableA)) return false;
    if (m.Eg.law == LAW_UNIFORM || m.compositionType == 0)
        rows.tableB = rows.tableA;
    else if (!MakeAlphaTable(m, 1, rows.tableB))
        return false;
    rows.material = m;
    rows.law = law;
    rows.valid = true;
    return true;
}

// Alpha of layer `layer` at every wavelength on the present mesh.  Each composition of the layer's
// points has one row, made by InterpolateAlpha the first time the composition occurs and taken as it
// is afterwards: alpha at a point is the row of exactly its own composition (the same bits of y),
// never one interpolated between compositions, so that a row from an earlier mesh gives the very
// numbers that a new interpolation would.  Rows of compositions that the mesh no longer holds are
// dropped once the rows outnumber the layer's points twice, which bounds what a long run of meshes
// leaves behind.
void FillLayerAlpha(const CalculationVariables& cv, GenerationParameters& gp, int layer, LayerAlphaRows& rows,
                    int nl, double L) {
    const MeshBlock& mesh = cv.mesh;
    const MaterialParameters& m = cv.parameters->material[At(layer)];
    const int n = std::clamp(mesh.n_points, 0, MAX_MESH_POINTS);
    const int first = std::max(mesh.first_point[At(layer)], 0);
    const int last = std::min(mesh.last_point[At(layer)], n - 1);
    rows.length = L;
    const auto key = [&](int j) { return std::bit_cast<std::uint64_t>(mesh.y[At(j)]); };
    const auto find = [&](std::uint64_t k) {
        return static_cast<size_t>(std::lower_bound(rows.keys.begin(), rows.keys.end(), k) -
                                   rows.keys.begin());
    };
    for (int j = first; j <= last; ++j) {
        const std::uint64_t k = key(j);
        const size_t index = find(k);
        if (index < rows.keys.size() && rows.keys[index] == k) continue;
        std::vector<double> row;
        InterpolateAlpha(m, rows.law, gp.lambda, row, nl, rows.tableA, rows.tableB, mesh.y[At(j)]);
        int extent = std::min(nl, static_cast<int>(row.size()));
        while (extent > 0 && row[At(extent - 1)] == 0) --extent;
        row.resize(At(extent));
        row.shrink_to_fit();
        const auto at = static_cast<std::ptrdiff_t>(index);
        rows.keys.insert(rows.keys.begin() + at, k);
        rows.rows.insert(rows.rows.begin() + at, std::move(row));
        rows.extent.insert(rows.extent.begin() + at, extent);
    }
    if (rows.keys.size() > 2 * At(last - first + 1)) {
        std::vector<char> used(rows.keys.size(), 0);
        for (int j = first; j <= last; ++j) used[find(key(j))] = 1;
        size_t kept = 0;
        for (size_t r = 0; r < rows.keys.size(); ++r) {
            if (!used[r]) continue;
            // A row that stays where it is is not moved onto itself: a vector moved onto itself is
            // left empty, and its points would absorb nothing.
            if (kept != r) {
                rows.keys[kept] = rows.keys[r];
                rows.rows[kept] = std::move(rows.rows[r]);
                rows.extent[kept] = rows.extent[r];
            }
            ++kept;
        }
        rows.keys.resize(kept);
        rows.rows.resize(kept);
        rows.extent.resize(kept);
    }
    for (int j = first; j <= last; ++j) {
        gp.alphaLayerOfPoint[At(j)] = layer;
        gp.alphaRowOfPoint[At(j)] = static_cast<int>(find(key(j)));
    }
}

// exp(-depth), with the last depth and its exponential remembered: along a run of points of equal
// depth the exponential is taken once.
struct Attenuation {
    double depth = std::numeric_limits<double>::quiet_NaN();
    double value = 0;
    double operator()(double d) {
        if (!(d == depth)) {
            depth = d;
            value = std::exp(-d);
        }
        return value;
    }
};

int LayerOfPoint(const MeshBlock& mesh, int j) {
    for (int i = 0; i < mesh.number_of_layers; ++i)
        if (j >= mesh.first_point[At(i)] && j <= mesh.last_point[At(i)]) return i;
    return std::max(mesh.number_of_layers - 1, 0);
}

// Sub-gap absorption of the defect levels that hold optical capture data, at wavelength index k of
// the spectrum, added to alpha L: an occupied level absorbs with its electron cross section (the
// electron goes to the conduction band), an empty one with its hole cross section (an electron comes
// from the valence band).  The samples of a distributed level count with their share of the energy
// axis.  The last point of each layer adds none: the optical depth from the left takes each step's
// absorption from its left point, so nothing is lost there; from the right the last step of each
// layer carries the band absorption alone.
void AddDefectAbsorption(const CalculationVariables& cv, int k, std::array<double, MAX_MESH_POINTS>& alpha) {
    const CalculationParameters& P = *cv.parameters;
    const RecombinationData& r = cv.recombination;
    // Level records of an earlier mesh are refreshed by the next pass of the optical loop; until
    // then the light sees the band absorption alone.
    if (!RecdataMatchesMesh(cv)) return;
    auto inRange = [k](const OpticalCaptureProperties& o) {
        return o.count > 0 && k >= o.firstWavelength && k < o.firstWavelength + o.count &&
               static_cast<int>(o.sigmas.size()) >= o.count;
    };
    for (size_t j = 0; j < At(MAX_LAYERS); ++j)
        for (size_t d = 0; d < At(MAX_DEFECTS); ++d) {
            const int n = r.n_energy_points[j][d];
            for (size_t l = 0; l < At(MAX_LEVELS); ++l) {
                const std::vector<RecLevelData>& samples = r.rec_levels[j][d][l];
                if (samples.empty()) continue;
                const BulkRecombinationParameters& level = P.srh[j][d][l];
                const OpticalCaptureProperties& e = level.optCaptElectrons;
                const OpticalCaptureProperties& h = level.optCaptHoles;
                const bool withE = inRange(e), withH = inRange(h);
                if (!withE && !withH) continue;
                const double se = withE ? e.sigmas[At(k - e.firstWavelength)] : 0.0;
                const double sh = withH ? h.sigmas[At(k - h.firstWavelength)] : 0.0;
                const int type = P.srh[j][d][0].energy.type;
                for (int m = 0; m < static_cast<int>(samples.size()); ++m) {
                    const RecLevelData& s = samples[At(m)];
                    const double w = TrapezoidWeight(r.axis[j][d], n, m, type);
                    const size_t points = s.Nt.size();
                    for (size_t q = 0; q + 1 < points; ++q)
                        alpha[At(s.first) + q] += w * s.Nt[q] * (se * s.f_t[q] + sh * s.een_min_f_t[q]);
                }
            }
        }
}

// The optical cross sections of the model for a level E0 (eV) from its band: 50 wavelengths from that
// of the largest photon energy Emax to that of the threshold E0, cross section in m^2.
void OpticalCaptureModel(OpticalCaptureProperties& o, double E0) {
    if (!(E0 > 0) || !(o.Emax > 0)) {
        AllocateOpticalCaptureProperties(o, 0);
        return;
    }
    const double first = HC_OVER_Q_NM / o.Emax, last = HC_OVER_Q_NM / E0;
    if (first > last) {
        AllocateOpticalCaptureProperties(o, 0);
        return;
    }
    constexpr int n = 50;
    AllocateOpticalCaptureProperties(o, n);
    // The cross section scales with 1/(m* n): a level without a positive effective mass and
    // refractive index has no model cross section (the reader refuses such values).
    if (!(o.mStar > 0) || !(o.n > 0)) {
        AllocateOpticalCaptureProperties(o, 0);
        return;
    }
    const double prefactor = 9.3e-21 * o.EeffE0 * o.EeffE0 / (E0 * o.mStar * o.n);
    for (int i = 0; i < n; ++i) {
        const double l = first + (last - first) * i / (n - 1);
        const double x = std::max((HC_OVER_Q_NM / l) / E0, 1.0);
        o.wavelengths[At(i)] = l;
        o.sigmas[At(i)] = prefactor * std::sqrt((x - 1) * (x - 1) * (x - 1)) / (x * x * x);
    }
}

} // namespace

// ---------------------------------------------------------------------------------------------------
// Alpha.

double LogInterpolateFromTable(double position, const double* x, const double* y, int n, const double* lnY) {
    if (n <= 0 || x == nullptr || y == nullptr) return 0.0;
    const auto ln = [&](int i) { return lnY != nullptr ? lnY[i] : std::log(y[i]); };
    const auto outside = [&](int end, int inner) {
        const double yEnd = y[end];
        if (!(yEnd > 0)) return 0.0;
        if (inner >= 0 && inner < n && y[inner] > 0 && yEnd > y[inner] && x[end] != x[inner]) {
            const double slope = (ln(end) - ln(inner)) / (x[end] - x[inner]);
            return std::exp(ln(end) + slope * (position - x[end]));
        }
        return yEnd;
    };
    if (n == 1 || position < x[0]) return outside(0, 1);
    if (position > x[n - 1]) return outside(n - 1, n - 2);

    const int k = std::clamp(static_cast<int>(std::upper_bound(x, x + n, position) - x) - 1, 0, n - 2);
    const double x0 = x[k], x1 = x[k + 1];
    const double y0 = y[k], y1 = y[k + 1];
    if (y0 == y1) return y0;
    if (x0 == x1) return (y0 > 0 && y1 > 0) ? std::sqrt(y0 * y1) : 0.5 * (y0 + y1);
    const double t = (position - x0) / (x1 - x0);
    if (!(y0 > 0) && !(y1 > 0)) return y0 + t * (y1 - y0);
    // A value not above 0 counts as a tiny share of the other.
    const double l0 = y0 > 0 ? ln(k) : std::log(kTinyShare * y1);
    const double l1 = y1 > 0 ? ln(k + 1) : std::log(kTinyShare * y0);
    return std::exp(l0 + t * (l1 - l0));
}

int DetermineLayerAlpha(const MaterialParameters& m, std::vector<double>& wavelengths,
                        std::vector<double>& alpha, int n, int whichMaterial, int display) {
    n = std::max(n, 0);
    if (wavelengths.size() < At(n)) wavelengths.resize(At(n), 0.0);
    alpha.assign(At(n), 0.0);
    if (n == 0) return 1;
    const bool grid = wavelengths[0] > ALPHA_GRID_REQUEST;
    const double lc = whichMaterial == 0 ? m.absorption.pureA : m.absorption.pureB;

    if (!FromFile(m, whichMaterial)) {
        const double A = whichMaterial == 0 ? m.A_pureA : m.A_pureB;
        const double B = whichMaterial == 0 ? m.B_pureA : m.B_pureB;
        if (grid) BuildAlphaGrid(lc, wavelengths, n);
        for (int k = 0; k < n; ++k) alpha[At(k)] = CoefficientAlpha(A, B, lc, wavelengths[At(k)]);
    } else {
        std::vector<double> x, y;
        const int count = lees_file(FileOf(m, whichMaterial), x, y, DATAFILE_ABSORPTION);
        if (count <= 0) return 0;
        SortTable(x, y);
        if (grid) {
            for (int k = 0; k < n; ++k) {
                wavelengths[At(k)] = k < count ? x[At(k)] : kGridPlaceholder;
                alpha[At(k)] = k < count ? y[At(k)] : 0.0;
            }
        } else {
            for (int k = 0; k < n; ++k)
                alpha[At(k)] = LogInterpolateFromTable(wavelengths[At(k)], x.data(), y.data(), count);
        }
    }
    if (display)
        for (double& a : alpha) a *= 0.01; // /m to /cm
    return 1;
}

void InterpolateAlpha(const MaterialParameters& material, int law, const std::vector<double>& wavelengths,
                      std::vector<double>& result, int n, const AlphaTable& tableA, const AlphaTable& tableB,
                      double y) {
    InterpolateAlphaAtGap(material, law, BandGapAtComposition(material, y), wavelengths, result, n, tableA,
                          tableB, y);
}

int bepaal_alfa(CalculationVariables& cv, GenerationParameters& gp) {
    if (cv.parameters == nullptr) {
        TERVOErrorMessage("Error in bepaal_alfa()", "No normalised parameters to take the absorption from");
        return 0;
    }
    CalculationParameters& P = *cv.parameters;
    const MeshBlock& mesh = cv.mesh;
    const int n = std::clamp(mesh.n_points, 0, MAX_MESH_POINTS);
    const int nl = std::clamp(gp.numberOfWavelengths, 0, static_cast<int>(gp.lambda.size()));
    const double L = P.scale.length;
    // Every point's row is set by its layer; a layer without usable data leaves alpha 0.
    gp.alphaPoints = n;
    std::fill(gp.alphaRowOfPoint.begin(), gp.alphaRowOfPoint.begin() + n, -1);
    std::fill(gp.alphaLayerOfPoint.begin(), gp.alphaLayerOfPoint.begin() + n, 0);
    // Rows made for other wavelengths are of no use.
    if (gp.alphaRowsLambda.size() != At(nl) ||
        !std::equal(gp.alphaRowsLambda.begin(), gp.alphaRowsLambda.end(), gp.lambda.begin()))
        ForgetAlphaRows(gp);
    gp.alphaRowsLambda.assign(gp.lambda.begin(), gp.lambda.begin() + nl);

    int result = 1;
    const int layers = std::min({P.numberOfLayers, mesh.number_of_layers, MAX_LAYERS});
    for (int i = 0; i < layers; ++i) {
        MaterialParameters& m = P.material[At(i)];
        RefreshCutoffWavelengths(m);
        const int first = std::max(mesh.first_point[At(i)], 0);
        const int last = std::min(mesh.last_point[At(i)], n - 1);
        for (int j = first; j <= last; ++j)
            gp.cutoffWavelength[At(j)] = P.Eg[At(j)] > 0 ? HC_OVER_Q_NM / P.Eg[At(j)] : 0.0;

        LayerAlphaRows& rows = gp.alphaRows[At(i)];
        const int law = P.composition[At(i)].law;
        if (!rows.valid || rows.law != law || !SameAbsorptionInputs(rows.material, m)) {
            if (!MakeLayerRows(m, law, rows)) {
                TERVOErrorMessage("Error whilst reading the absorption data of layer " +
                                      std::to_string(i + 1),
                                  "The absorption of layer " + std::to_string(i + 1) +
                                      " cannot be determined; it is taken as 0.");
                result = 0;
                continue;
            }
        }
        FillLayerAlpha(cv, gp, i, rows, nl, L);
    }
    return result;
}

void ForgetAlphaRows(GenerationParameters& gp) {
    for (LayerAlphaRows& rows : gp.alphaRows) rows = LayerAlphaRows{};
    gp.alphaRowsLambda.clear();
}

double ExtractAlpha(const CalculationParameters& parameters, double wavelength, int layer) {
    if (layer < 0 || layer >= std::min(parameters.numberOfLayers, MAX_LAYERS)) return 0.0;
    MaterialParameters m = parameters.material[At(layer)];
    RefreshCutoffWavelengths(m);
    const int type = m.compositionType;
    std::vector<double> l{wavelength}, a;
    double largest = 0;
    // Material B only matters in a layer that holds some of it; a layer of pure B reads B as its A.
    const int materialA = type == 20 ? 1 : 0;
    if (DetermineLayerAlpha(m, l, a, 1, materialA, 0)) largest = a[0];
    if (type != 0 && type != 20 && DetermineLayerAlpha(m, l, a, 1, 1, 0)) largest = std::max(largest, a[0]);
    return largest;
}

double ExtractAlpha(const CalculationVariables& cv, double wavelength, int layer) {
    return cv.parameters ? ExtractAlpha(*cv.parameters, wavelength, layer) : 0.0;
}

// ---------------------------------------------------------------------------------------------------
// Flux and generation.

namespace {

// Alpha L of every mesh point at one wavelength.
using AlphaColumn = std::array<double, MAX_MESH_POINTS>;

// The photon flux of wavelength k at the n mesh points into `flux`, for the band absorption `band`
// (alpha L of each point) and the absorption of the defects.  False, with the flux 0
// everywhere, when no light of this wavelength enters or the generation comes from a file.
bool BeerLambert(const CalculationVariables& cv, const GenerationParameters& gp, int k, int fromFile,
                 double frontReflection, const double* band, double* flux) {
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    // Source strength: the photon flux entering the cell, normalised with the scales of layer 0.
    const ScaleParameters& sc = cv.parameters->scale;
    const double N0 = sc.density[0];
    const double incoming = At(k) < gp.incomingFlux_us.size() ? gp.incomingFlux_us[At(k)] : 0.0;
    const double s = sc.length * incoming / (N0 * sc.diffusion);
    if (s == 0 || fromFile || !std::isfinite(s)) {
        std::fill(flux, flux + n, 0.0);
        return false;
    }
    AlphaColumn alpha;
    std::copy(band, band + n, alpha.begin());
    AddDefectAbsorption(cv, k, alpha);

    const bool fromLeft = gp.side != +1;
    const std::vector<double>& far = fromLeft ? gp.rightFilter : gp.leftFilter;
    const double R = At(k) < far.size() ? far[At(k)] : 0.0;

    // Optical depth from the left and from the right, alpha L times the normalised steps; without a
    // reflection at the far contact only the depth along the first pass.  Only the first n places
    // are used: left unset beyond them, so that no call pays for clearing the whole capacity.
    std::array<double, MAX_MESH_POINTS> D, E;
    const MeshBlock& mesh = cv.mesh;
    if (fromLeft || R != 0) {
        D[0] = 0;
        for (int j = 1; j < n; ++j) D[At(j)] = D[At(j - 1)] + mesh.h[At(j - 1)] * alpha[At(j - 1)];
    }
    if (!fromLeft || R != 0) {
        E[At(n - 1)] = 0;
        for (int j = n - 2; j >= 0; --j) E[At(j)] = E[At(j + 1)] + mesh.h[At(j)] * alpha[At(j + 1)];
    }

    // The light passes once, is reflected with R at the far contact, and the share Rfront of what
    // returns to the front is sent back in: a geometric series of round trips.  A lossless cavity
    // (no absorption, both mirrors perfect) would hold an unbounded flux; it carries no generation,
    // so the flux is kept finite.
    const double Dt = R != 0 ? D[At(n - 1)] : 0.0, E0 = R != 0 ? E[0] : 0.0;
    const double roundTrips =
        R != 0 ? 1.0 / std::max(1.0 - frontReflection * R * std::exp(-(E0 + Dt)), 1e-12) : 1.0;
    // The source in the density scale of each layer.
    const int layers = std::clamp(mesh.number_of_layers, 1, MAX_LAYERS);
    std::array<double, MAX_LAYERS> source{};
    for (int i = 0; i < layers; ++i) source[At(i)] = s * N0 / sc.density[At(i)];
    // Where the light crosses a layer that does not absorb it (every layer, beyond the longest
    // cut-off), the depth stays the same from point to point: its exponential is taken once.
    const double* depth = fromLeft ? D.data() : E.data(); // along the first pass
    Attenuation toward, back;
    for (int i = 0, j = 0; i < layers; ++i) {
        const int end = i + 1 < layers ? std::min(mesh.last_point[At(i)] + 1, n) : n;
        const double sourceHere = source[At(i)];
        if (R == 0) {
            for (; j < end; ++j) flux[j] = sourceHere * toward(depth[j]);
            continue;
        }
        for (; j < end; ++j) {
            const double reflected = R * back(fromLeft ? E[At(j)] + Dt : D[At(j)] + E0);
            flux[j] = sourceHere * (toward(depth[j]) + reflected) * roundTrips;
        }
    }
    return true;
}

// The alpha row of each of the n mesh points (null for alpha 0) with its length, and the length L
// of alpha L, or false when the absorption is not on this mesh.
struct MeshAlphaRows {
    std::array<const double*, MAX_MESH_POINTS> row;
    std::array<int, MAX_MESH_POINTS> extent;
    double L = 0;
    // Alpha L of point j at wavelength k: 0 where the row holds nothing.
    double operator()(int j, int k) const {
        return row[At(j)] != nullptr && k < extent[At(j)] ? row[At(j)][k] * L : 0.0;
    }
};

const LayerAlphaRows* RowsOfPoint(const GenerationParameters& gp, int j, int& r) {
    if (j < 0 || j >= std::min(gp.alphaPoints, MAX_MESH_POINTS)) return nullptr;
    r = gp.alphaRowOfPoint[At(j)];
    const int layer = gp.alphaLayerOfPoint[At(j)];
    if (r < 0 || layer < 0 || layer >= MAX_LAYERS) return nullptr;
    const LayerAlphaRows& rows = gp.alphaRows[At(layer)];
    return At(r) < rows.rows.size() ? &rows : nullptr;
}

bool AlphaRowsOfMesh(const GenerationParameters& gp, int n, MeshAlphaRows& a) {
    if (gp.alphaPoints != n) return false;
    for (int j = 0; j < n; ++j) {
        int r = 0;
        const LayerAlphaRows* rows = RowsOfPoint(gp, j, r);
        a.row[At(j)] = rows != nullptr ? rows->rows[At(r)].data() : nullptr;
        a.extent[At(j)] = rows != nullptr ? rows->extent[At(r)] : 0;
        if (rows != nullptr) a.L = rows->length;
    }
    return true;
}

} // namespace

double AlphaOfPoint(const GenerationParameters& gp, int j, int k) {
    int r = 0;
    const LayerAlphaRows* rows = RowsOfPoint(gp, j, r);
    return rows != nullptr && k >= 0 && k < rows->extent[At(r)] ? rows->rows[At(r)][At(k)] : 0.0;
}

double AlphaLOfPoint(const GenerationParameters& gp, int j, int k) {
    int r = 0;
    const LayerAlphaRows* rows = RowsOfPoint(gp, j, r);
    return rows != nullptr && k >= 0 && k < rows->extent[At(r)] ? rows->rows[At(r)][At(k)] * rows->length
                                                                : 0.0;
}

void CalculateFluxesEverywhere(CalculationVariables& cv, GenerationParameters& gp, int k, int fromFile,
                               double frontReflection) {
    if (cv.parameters == nullptr) return;
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    const int nl = gp.numberOfWavelengths;
    if (n == 0 || k < 0 || k >= nl || gp.fluxPoints != n || gp.flux.size() < FluxIndex(gp, nl, 0)) return;
    AlphaColumn alpha;
    for (int j = 0; j < n; ++j) alpha[At(j)] = gp.alphaPoints == n ? AlphaLOfPoint(gp, j, k) : 0.0;
    BeerLambert(cv, gp, k, fromFile, frontReflection, alpha.data(), gp.flux.data() + FluxIndex(gp, k, 0));
}

void CalculateFluxes(CalculationVariables& cv, GenerationParameters& gp, int fromFile,
                     double frontReflection) {
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    const int nl = std::max(gp.numberOfWavelengths, 0);
    gp.fluxPoints = n;
    gp.flux.assign(At(nl) * At(n), 0.0);
    for (int k = 0; k < nl; ++k) CalculateFluxesEverywhere(cv, gp, k, fromFile, frontReflection);
}

void CalculateFluxes(CalculationVariables& cv, GenerationParameters& gp, int fromFile) {
    CalculateFluxes(cv, gp, fromFile, Rfront);
}

void CalculateGeneration(CalculationVariables& cv, GenerationParameters& gp) {
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    const int nl = std::max(gp.numberOfWavelengths, 0);
    gp.G.fill(0.0);
    MeshAlphaRows a;
    if (gp.fluxPoints != n || gp.flux.size() != At(nl) * At(n) || !AlphaRowsOfMesh(gp, n, a)) return;
    // Wavelength by wavelength along the rows of the flux; each G[j] adds its terms in the order of
    // the wavelengths.
    for (int k = 0; k < nl; ++k) {
        const double* flux = gp.flux.data() + FluxIndex(gp, k, 0);
        for (int j = 0; j < n; ++j)
            if (a.row[At(j)] != nullptr) gp.G[At(j)] += flux[j] * a(j, k);
    }
}

void CalculateOpticalGeneration(CalculationVariables& cv, GenerationParameters& gp, int fromFile,
                                bool keepFluxes) {
    if (keepFluxes) {
        CalculateFluxes(cv, gp, fromFile);
        CalculateGeneration(cv, gp);
        return;
    }
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    const int nl = std::max(gp.numberOfWavelengths, 0);
    gp.fluxPoints = n;
    gp.flux.clear();
    gp.flux.shrink_to_fit();
    gp.G.fill(0.0);
    MeshAlphaRows a;
    if (cv.parameters == nullptr || n == 0 || !AlphaRowsOfMesh(gp, n, a)) return;
    // The rows of alpha hold one point's wavelengths side by side; a block of wavelengths is taken out
    // of them at once, a stretch of each row in turn, so that each pass through the stack reads one
    // column in a row.
    // Beyond the last wavelength that some point absorbs, G gains nothing.
    int absorbedUpTo = 0;
    for (int j = 0; j < n; ++j) {
        const int r = gp.alphaRowOfPoint[At(j)];
        const LayerAlphaRows& rows = gp.alphaRows[At(gp.alphaLayerOfPoint[At(j)])];
        if (r >= 0 && At(r) < rows.extent.size()) absorbedUpTo = std::max(absorbedUpTo, rows.extent[At(r)]);
    }
    const int used = std::min(nl, absorbedUpTo);
    constexpr int kBlock = 64;
    std::vector<double> block(At(kBlock) * At(n));
    std::array<double, MAX_MESH_POINTS> flux;
    for (int k0 = 0; k0 < used; k0 += kBlock) {
        const int width = std::min(kBlock, used - k0);
        std::array<bool, kBlock> absorbed{};
        for (int j = 0; j < n; ++j) {
            const double* row = a.row[At(j)];
            const int end = row != nullptr ? std::clamp(a.extent[At(j)] - k0, 0, width) : 0;
            for (int b = 0; b < end; ++b) {
                const double value = row[k0 + b] * a.L;
                block[At(b) * At(n) + At(j)] = value;
                absorbed[At(b)] = absorbed[At(b)] || value != 0;
            }
            for (int b = end; b < width; ++b) block[At(b) * At(n) + At(j)] = 0.0;
        }
        for (int b = 0; b < width; ++b) {
            const int k = k0 + b;
            // Light that no layer absorbs generates nothing: G gains exactly 0 from it.
            if (!absorbed[At(b)]) continue;
            // G takes the band absorption alone.
            const double* band = block.data() + At(b) * At(n);
            if (!BeerLambert(cv, gp, k, fromFile, Rfront, band, flux.data())) continue;
            for (int j = 0; j < n; ++j)
                if (a.row[At(j)] != nullptr) gp.G[At(j)] += flux[At(j)] * band[j];
        }
    }
}

double GenerationAt(const GenerationParameters& gp, int k, int j) {
    if (j < 0 || j >= gp.fluxPoints || k < 0 || k >= gp.numberOfWavelengths ||
        gp.flux.size() <= FluxIndex(gp, k, j))
        return 0.0;
    const double a = AlphaLOfPoint(gp, j, k);
    return a != 0 ? gp.flux[FluxIndex(gp, k, j)] * a : 0.0;
}

void AddQEGeneration(const GenerationParameters& spectrum, const GenerationParameters& mono,
                     GenerationParameters& total) {
    for (size_t j = 0; j < total.G.size(); ++j) total.G[j] = spectrum.G[j] + mono.G[j];
}

void RemoveQEGeneration(const GenerationParameters& mono, GenerationParameters& total) {
    for (size_t j = 0; j < total.G.size(); ++j) total.G[j] -= mono.G[j];
}

// ---------------------------------------------------------------------------------------------------
// Generation from a file.

int GetGenerationFromFile(const std::string& file, double attenuation, std::vector<double>& x,
                          std::vector<double>& G) {
    x.clear();
    G.clear();
    std::string drive, folder, name;
    SplitPath(file, drive, folder, name);
    if (name.empty() || name.find('*') != std::string::npos) {
        TERVOErrorMessage(
            "Error whilst reading the generation file",
            "Path with the generation file not yet defined.\nFirst define an existing generation "
            "filename in the action panel");
        return -1;
    }
    const std::string path = MakeFullPath(file, DATAFILE_GENERATION);
    long long size = 0;
    if (const int status = GetFileSize(path, size); status != FILESIZE_OK) {
        static const std::pair<int, const char*> reasons[] = {
            {FILESIZE_NOT_FOUND, "File not found or directory in path not found"},
            {FILESIZE_IO_ERROR, "General I/O error occurred"},
            {FILESIZE_NO_MEMORY, "Insufficient memory to complete the operation"},
            {FILESIZE_INVALID_PATH, "Invalid path; for example, c:filename"},
            {FILESIZE_ACCESS_DENIED, "Access denied"}};
        std::string text =
            FmtStr("%s<Path of the generation file: %s\nReturn status from GetFileSize(): %i", path, status);
        for (const auto& [code, reason] : reasons)
            if (status == code) text = FmtStr("%s<Path of the generation file: %s\n%s", path, reason);
        TERVOErrorMessage("Error trying to get the filesize of the generation file G(x)", text);
        return -1;
    }
    const std::string title = "Error trying to read the generation file G(x)";
    const int count = tel_lijnen_in_file(path, DATAFILE_GENERATION);
    if (count <= 0) {
        TERVOErrorMessage(title, "The generation file '" + path + "' contains no points");
        return -1;
    }
    if (count > MAX_GENERATION_POINTS) {
        TERVOErrorMessage(title, "The generation file '" + path + "' contains too many " +
                                     std::to_string(count) + "(>" + std::to_string(MAX_GENERATION_POINTS) +
                                     ") points.");
        return -1;
    }
    const int read = lees_file(path, x, G, DATAFILE_GENERATION);
    if (read <= 0) return -1;
    for (double& g : G) g *= attenuation / 100.0;
    return read;
}

int bereken_generatie_uit_file(CalculationVariables& cv, GenerationParameters& gp, int dark,
                               const std::string& file, double attenuation) {
    gp.G.fill(0.0);
    if (dark) return 1;
    if (cv.parameters == nullptr) return 0;
    std::vector<double> x, g;
    const int count = GetGenerationFromFile(file, attenuation, x, g);
    if (count <= 0) return 0;
    SortTable(x, g);
    for (int i = 1; i < count; ++i) {
        if (x[At(i)] == x[At(i - 1)]) {
            TERVOErrorMessage("Error !", FmtStr("%s[q]<The generationfile %s[q] contains 2 equal x-positions "
                                                "(%f um)!",
                                                MakeFullPath(file, DATAFILE_GENERATION), x[At(i)] * 1e6));
            return 0;
        }
    }
    const ScaleParameters& sc = cv.parameters->scale;
    const MeshBlock& mesh = cv.mesh;
    const int n = std::clamp(mesh.n_points, 0, MAX_MESH_POINTS);
    for (int j = 0; j < n; ++j) {
        const double position = mesh.x_m[At(j)];
        double value = 0;
        if (position >= x.front() && position <= x.back()) {
            const int k =
                std::clamp(static_cast<int>(std::upper_bound(x.begin(), x.end(), position) - x.begin()) - 1,
                           0, std::max(count - 2, 0));
            value = count == 1 ? g[0]
                               : g[At(k)] + (position - x[At(k)]) * (g[At(k + 1)] - g[At(k)]) /
                                                (x[At(k + 1)] - x[At(k)]);
        }
        const double Ni = sc.density[At(LayerOfPoint(mesh, j))];
        gp.G[At(j)] = sc.length * sc.length * value / (Ni * sc.diffusion);
    }
    return 1;
}

double GenerationFileCurrent(const std::vector<double>& x, const std::vector<double>& G) {
    const int n = static_cast<int>(std::min(x.size(), G.size()));
    double sum = 0;
    for (int i = 0; i < n; ++i) {
        const double below = x[At(i > 0 ? i - 1 : 0)];
        const double above = x[At(i + 1 < n ? i + 1 : n - 1)];
        sum += G[At(i)] * 0.5 * (above - below);
    }
    return sum * Q_ELEM * 0.1; // A/m2 to mA/cm2
}

} // namespace tervo

namespace tervo {

// ---------------------------------------------------------------------------------------------------
// Optical capture of defects.

void ReadOpticalCaptureParameters(InputParameters& input, double temperature) {
    const double kT = KT_300 * temperature / 300;
    CellDefinition& cell = input.cellParas;
    const int layers = std::clamp(cell.numberOfLayers, 0, MAX_LAYERS);
    for (int j = 0; j < layers; ++j) {
        LayerParameters& layer = cell.layer[At(j)];
        const MaterialParameters& m = layer.material;
        for (int d = 0; d < std::clamp(layer.srhteller, 0, MAX_DEFECTS); ++d) {
            DefectLevels& levels = layer.srh[At(d)];
            const int K = std::clamp(levels[0].numberOfLevels, 1, MAX_LEVELS);
            for (int k = 0; k < K; ++k) {
                BulkRecombinationParameters& level = levels[At(k)];
                // Distance of the level to the valence band, at the left edge of the layer, from the
                // level's own energy reference; the intrinsic level at the working temperature.
                const double Eg = m.Eg.leftValue;
                double Et = level.energy.Et;
                if (level.energy.reference == 1)
                    Et += 0.5 * Eg + 0.5 * kT * std::log(m.Nv.leftValue / m.Nc.leftValue);
                else if (level.energy.reference == 2)
                    Et = Eg - Et;
                for (const bool electrons : {true, false}) {
                    OpticalCaptureProperties& o = electrons ? level.optCaptElectrons : level.optCaptHoles;
                    if (o.fromFile == 0) {
                        AllocateOpticalCaptureProperties(o, 0);
                        continue;
                    }
                    if (o.fromModel != 0) {
                        // Electrons leave the level for the conduction band, holes for the valence band.
                        OpticalCaptureModel(o, electrons ? Eg - Et : Et);
                        continue;
                    }
                    std::vector<double> x, y;
                    const int count = lees_file(o.fileName, x, y, DATAFILE_OPTCAPT);
                    if (count <= 0) {
                        AllocateOpticalCaptureProperties(o, 0);
                        continue;
                    }
                    SortTable(x, y);
                    AllocateOpticalCaptureProperties(o, count);
                    for (int i = 0; i < count; ++i) {
                        o.wavelengths[At(i)] = x[At(i)];
                        o.sigmas[At(i)] = y[At(i)];
                    }
                }
            }
        }
    }
}

void InterpolateOpticalCaptureProperties(OpticalCaptureProperties& o, const double* wavelengths, int n) {
    const int count =
        std::min({o.count, static_cast<int>(o.wavelengths.size()), static_cast<int>(o.sigmas.size())});
    if (count <= 0 || wavelengths == nullptr || n <= 0) {
        AllocateOpticalCaptureProperties(o, 0);
        o.firstWavelength = 0;
        return;
    }
    const double lo = o.wavelengths[0], hi = o.wavelengths[At(count - 1)];
    int first = -1, last = -2;
    for (int k = 0; k < n; ++k) {
        if (wavelengths[k] < lo || wavelengths[k] > hi) continue;
        if (first < 0) first = k;
        last = k;
    }
    if (first < 0) {
        AllocateOpticalCaptureProperties(o, 0);
        o.firstWavelength = 0;
        return;
    }
    // On the logarithm of sigma, but linear on an interval with an end at 0: a table that ends in 0
    // at the threshold falls to 0 there instead of to 1e-10 of its neighbour.
    std::vector<double> sigmas(At(last - first + 1)), grid(At(last - first + 1));
    for (int k = first; k <= last; ++k) {
        grid[At(k - first)] = wavelengths[k];
        LogInterp(o.wavelengths.data(), o.sigmas.data(), count, wavelengths[k], sigmas[At(k - first)]);
    }
    o.wavelengths = std::move(grid);
    o.sigmas = std::move(sigmas);
    o.count = last - first + 1;
    o.firstWavelength = first;
}

} // namespace tervo
