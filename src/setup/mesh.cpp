#include "setup/mesh.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "cell/working_settings.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo {

bool SameMesh(const MeshBlock& a, const MeshBlock& b) {
    const int n = std::clamp(a.n_points, 0, MAX_MESH_POINTS);
    return a.n_points == b.n_points && std::equal(a.x.begin(), a.x.begin() + n, b.x.begin());
}

namespace {

constexpr int MIN_POINTS_PER_LAYER = 40;
constexpr int MAX_POINTS_PER_LAYER = 100;
constexpr double FINEST_STEP_M = 1e-10; // no mesh step at a layer edge needs to be finer than 0.1 nm
constexpr int MAX_REMOVED_IN_A_ROW = 4;
constexpr int MAX_INSERTED_PER_INTERVAL = 5;

// A length that limits the finest step; anything that is not a positive number sets no limit.
double LimitingLength(double length) {
    return (std::isfinite(length) && length > 0) ? length : std::numeric_limits<double>::infinity();
}

// Ratio of a quantity over one interval: how many times larger one end is than the other.  Over a
// sign change or a zero the ratio says nothing, and it counts as the removal threshold, so that the
// quantity neither refines nor protects the interval.
double IntervalRatio(double previous, double next, double minimumRatio) {
    if (previous * next <= 0) return minimumRatio;
    return std::max(std::fabs(previous / next), std::fabs(next / previous));
}

} // namespace

double coerce(double value, double lower, double upper) {
    return std::min(std::max(value, lower), upper);
}

void GovernMaxMinMesh(MeshSettings& settings) {
    const double larger = std::max(settings.maximumRatio, settings.minimumRatio);
    const double smaller = std::min(settings.maximumRatio, settings.minimumRatio);
    settings.maximumRatio = coerce(larger, 1.1, 3.0);
    settings.minimumRatio = coerce(smaller, 1.0, 1.3);
}

int PointExists(const MeshBlock& mesh, int layer, double position) {
    if (layer < 0 || layer >= mesh.number_of_layers) return 0;
    // Points of a mesh are copied, never recomputed, so a point that exists matches to the last bit;
    // the tolerance only guards against a position that went through arithmetic.
    constexpr double tolerance = 1e-13;
    for (int j = mesh.first_point[At(layer)]; j <= mesh.last_point[At(layer)]; ++j)
        if (std::fabs(mesh.x[At(j)] - position) <= tolerance) return 1;
    return 0;
}

void CompleteMeshBlock(MeshBlock& mesh, double length) {
    const int n = std::clamp(mesh.n_points, 0, MAX_MESH_POINTS);
    for (int j = 0; j < n; ++j) {
        mesh.x_m[At(j)] = mesh.x[At(j)] * length;
        mesh.x_um[At(j)] = mesh.x[At(j)] * length * 1e6;
        mesh.h[At(j)] = (j + 1 < n) ? mesh.x[At(j + 1)] - mesh.x[At(j)] : 0.0;
    }
}

int bepaal_intervallen(CalculationVariables& cv) {
    if (cv.parameters == nullptr) {
        TERVOErrorMessage("Error in bepaal_intervallen()", "No normalised parameters to make a mesh from");
        return -1;
    }
    const CalculationParameters& P = *cv.parameters;
    const int layers = std::clamp(P.numberOfLayers, 0, MAX_LAYERS);
    const double L = P.scale.length;
    const double kT = P.kT;
    MeshBlock& mesh = cv.mesh;
    mesh.number_of_layers = layers;

    // The physical thickness of each layer is checked first: a layer of negative thickness makes the
    // total, and with it the normalised thickness of every other layer, meaningless.
    for (int i = 0; i < layers; ++i) {
        if (!(P.thickness[At(i)] > 0)) {
            TERVOErrorMessage("Error in bepaal_intervallen()",
                              "Layer " + std::to_string(i + 1) + " has no thickness: no mesh can be made");
            return -1;
        }
    }
    int lastIndex = -1;
    std::array<double, MAX_POINTS_PER_LAYER> X{};
    for (int i = 0; i < layers; ++i) {
        const size_t I = At(i);
        const double d = P.normalisedThickness[I];
        // The finest step at each edge resolves the Debye length, shortened by sqrt(Eg/kT) since the
        // bands bend by up to Eg over a depletion region, and the absorption length under light.
        double leftLength = LimitingLength(P.debyeLeft[I] / std::sqrt(P.material[I].Eg.leftValue / kT));
        double rightLength = LimitingLength(P.debyeRight[I] / std::sqrt(P.material[I].Eg.rightValue / kT));
        const double alphaL = std::fabs(cv.meshAlpha[I] * L);
        if (alphaL > 1e-10) {
            leftLength = std::min(leftLength, 1.0 / alphaL);
            rightLength = std::min(rightLength, 1.0 / alphaL);
        }
        const double hmin = std::min({leftLength, rightLength, FINEST_STEP_M / L});

        const double wanted = std::floor(d / hmin);
        int N = wanted < MIN_POINTS_PER_LAYER   ? MIN_POINTS_PER_LAYER
                : wanted > MAX_POINTS_PER_LAYER ? MAX_POINTS_PER_LAYER
                                                : static_cast<int>(wanted);
        const int pointsLeft = (i == 0) ? MAX_MESH_POINTS : MAX_MESH_POINTS - lastIndex;
        N = std::min(N, pointsLeft / (layers - i));
        if (N < 3) {
            TERVOErrorMessage("Error in bepaal_intervallen()",
                              "No room left for the mesh of layer " + std::to_string(i + 1));
            return -1;
        }

        // Steps of hmin at both edges growing to hmin exp(A/4) in the middle of the layer, with A
        // chosen so that the middle step is about the mean step of the layer.
        const double A = 4.167 * std::log((d / (0.5 * N)) / hmin);
        const double m = N - 2;
        const double m4 = m * m * m * m;
        X.fill(0.0);
        for (int k = 0; k <= N - 2; ++k) {
            const double kk = k;
            X[At(k + 1)] = X[At(k)] + hmin * std::exp(4 * A * kk * kk * (m - kk) * (m - kk) / m4);
        }
        const double stretch = d / X[At(N - 1)];
        for (int k = 0; k < N; ++k) X[At(k)] *= stretch;
        X[At(N - 1)] = d;

        const int first = (i == 0) ? 0 : lastIndex + 1;
        const double x0 = (i == 0) ? 0.0 : mesh.x[At(lastIndex)];
        if (first + N > MAX_MESH_POINTS) {
            TERVOErrorMessage("Error in bepaal_intervallen()", "The mesh would have more than 1000 points");
            return -1;
        }
        for (int k = 0; k < N; ++k) mesh.x[At(first + k)] = x0 + X[At(k)];
        mesh.first_point[I] = first;
        mesh.last_point[I] = first + N - 1;
        mesh.points_in_layer[I] = N;
        lastIndex = first + N - 1;
    }
    mesh.n_points = lastIndex + 1;
    CompleteMeshBlock(mesh, L);
    cv.firstMesh = mesh;
    Full_x_Dependence(cv);
    return 0;
}

void InterpolateAndCopy(double* newValues, const double* oldValues, const MeshBlock& newMesh,
                        const MeshBlock& oldMesh, int numberOfLayers) {
    const int layers =
        std::min({numberOfLayers, newMesh.number_of_layers, oldMesh.number_of_layers, MAX_LAYERS});
    for (int i = 0; i < layers; ++i) {
        const size_t I = At(i);
        const int oldFirst = oldMesh.first_point[I];
        const int oldLast = oldMesh.last_point[I];
        const int newFirst = newMesh.first_point[I];
        const int newLast = newMesh.last_point[I];
        int k = oldFirst;
        for (int j = newFirst; j < newLast; ++j) {
            const double x = newMesh.x[At(j)];
            // The old interval [x[k], x[k+1]) that holds x; the walk goes forward since both meshes rise.
            while (k + 1 < oldLast && oldMesh.x[At(k + 1)] <= x) ++k;
            const double x0 = oldMesh.x[At(k)];
            const double x1 = (k + 1 <= oldLast) ? oldMesh.x[At(k + 1)] : x0;
            const double h = x1 - x0;
            if (h > 0)
                newValues[j] = ((x - x0) * oldValues[k + 1] + (x1 - x) * oldValues[k]) / h;
            else
                newValues[j] = oldValues[k];
        }
        newValues[newLast] = oldValues[oldLast];
    }
}

int RecalculateIntervals(CalculationVariables& cv, const MeshRefinementSources& sources,
                         MeshBlock* previous) {
    return RecalculateIntervals(cv, meshSettings, sources, previous);
}

int RecalculateIntervals(CalculationVariables& cv, const MeshSettings& given,
                         const MeshRefinementSources& sources, MeshBlock* previous) {
    if (cv.parameters == nullptr) return 0;
    MeshSettings settings = given;
    GovernMaxMinMesh(settings);
    const CalculationParameters& P = *cv.parameters;
    const ScaleParameters& sc = P.scale;
    const MeshBlock& mesh = cv.mesh;
    const int layers = std::min(mesh.number_of_layers, MAX_LAYERS);
    // The limits are given in µA/cm2; S below turns a normalised rate into A/m2.
    const double generationLimit = settings.generationLimit * 0.01;
    const double recombinationLimit = settings.recombinationLimit * 0.01;
    const double minimumRatio = settings.minimumRatio;
    // The generation the equations read, unless the caller gives another profile.
    const double* generation = sources.generation;
    if (generation == nullptr && cv.generation != nullptr) generation = cv.generation->G.data();
    const double maximumRatio = settings.maximumRatio;

    // r[j]: the largest ratio of the watched quantities over the interval (j-1, j).
    std::array<double, MAX_MESH_POINTS + 1> r;
    r.fill(1.0);
    for (int i = 0; i < layers; ++i) {
        const size_t I = At(i);
        const double S = sc.density[I] * sc.diffusion * Q_ELEM / sc.length;
        for (int j = mesh.first_point[I] + 1; j <= mesh.last_point[I]; ++j) {
            const size_t J = At(j);
            // exp(psi[j-1]) / exp(psi[j]) without forming either exponential.
            double ratio = std::exp(std::fabs(cv.psi[J] - cv.psi[J - 1]));
            if (generation != nullptr) {
                const double g0 = generation[j - 1], g1 = generation[j];
                if (S * g1 > generationLimit || S * g0 > generationLimit)
                    ratio = std::max(ratio, IntervalRatio(g0, g1, minimumRatio));
            }
            ratio = std::max(ratio, IntervalRatio(cv.a_n + cv.u[J - 1], cv.a_n + cv.u[J], minimumRatio));
            ratio = std::max(ratio, IntervalRatio(cv.a_p + cv.v[J - 1], cv.a_p + cv.v[J], minimumRatio));
            if (sources.recombination != nullptr) {
                const double r0 = sources.recombination[j - 1], r1 = sources.recombination[j];
                if (S * std::fabs(r1) > recombinationLimit || S * std::fabs(r0) > recombinationLimit)
                    ratio = std::max(ratio, IntervalRatio(r0, r1, minimumRatio));
            }
            r[J] = std::max(r[J], ratio);
        }
    }

    // The new point list, layer by layer; it becomes a mesh only when it differs from the present one.
    std::array<double, MAX_MESH_POINTS> x;
    std::array<int, MAX_LAYERS> firstOf{}, lastOf{};
    int count = 0;
    bool changed = false;
    auto add = [&](double position) {
        if (count >= MAX_MESH_POINTS) return false;
        x[At(count++)] = position;
        return true;
    };
    const MeshBlock& kept = cv.firstMesh;
    for (int i = 0; i < layers; ++i) {
        const size_t I = At(i);
        const int first = mesh.first_point[I];
        const int last = mesh.last_point[I];
        firstOf[I] = count;
        if (!add(mesh.x[At(first)])) return -1;
        int removedInARow = 0;
        // Whether a point of the first mesh lies at mesh.x[j]: both meshes rise, so one walk through
        // the first mesh's points of the layer answers for every j in turn.
        int keptAt = i < kept.number_of_layers ? kept.first_point[I] : 0;
        const int keptLast = i < kept.number_of_layers ? kept.last_point[I] : -1;
        auto isKept = [&](double position) {
            constexpr double tolerance = 1e-13; // as PointExists
            while (keptAt <= keptLast && kept.x[At(keptAt)] < position - tolerance) ++keptAt;
            return keptAt <= keptLast && std::fabs(kept.x[At(keptAt)] - position) <= tolerance;
        };
        for (int j = first + 1; j < last; ++j) {
            const size_t J = At(j);
            if (r[J] < maximumRatio) {
                if (r[J] * r[J + 1] <= minimumRatio && removedInARow < MAX_REMOVED_IN_A_ROW &&
                    !isKept(mesh.x[J])) {
                    // The quantities hardly change over the two intervals around j: merge them.
                    r[J + 1] *= r[J];
                    ++removedInARow;
                    changed = true;
                } else {
                    if (!add(mesh.x[J])) return -1;
                    removedInARow = 0;
                }
            } else {
                removedInARow = 0;
                // No new step below the finest one a drift-diffusion mesh needs: a quantity that jumps
                // over an interval (a contact that pins the carriers, a change of composition) keeps
                // its ratio however often the interval is split, and the splitting would go on to steps
                // of 1e-21 m, where the link currents are differences of rounding errors.
                const double finest = FINEST_STEP_M / sc.length;
                const double room = std::floor((mesh.x[J] - mesh.x[J - 1]) / finest) - 1;
                const int m = static_cast<int>(
                    std::lround(std::min({std::log(r[J]) / std::log(maximumRatio) - 0.5,
                                          double(MAX_INSERTED_PER_INTERVAL), std::max(room, 0.0)})));
                for (int k = 0; k < m; ++k)
                    if (!add((mesh.x[J - 1] * (m - k) + mesh.x[J] * (k + 1)) / (m + 1))) return -1;
                if (m > 0) changed = true;
                if (!add(mesh.x[J])) return -1;
            }
        }
        if (!add(mesh.x[At(last)])) return -1;
        lastOf[I] = count - 1;
    }
    if (!changed) return 0;

    static MeshBlock scratch; // the old mesh when the caller keeps none (the program is single-threaded)
    MeshBlock& old = previous != nullptr ? *previous : scratch;
    old = cv.mesh;
    MeshBlock& fresh = cv.mesh;
    fresh = MeshBlock{};
    fresh.number_of_layers = layers;
    for (size_t I = 0; I < At(layers); ++I) {
        fresh.first_point[I] = firstOf[I];
        fresh.last_point[I] = lastOf[I];
        fresh.points_in_layer[I] = lastOf[I] - firstOf[I] + 1;
    }
    std::copy(x.begin(), x.begin() + count, fresh.x.begin());
    fresh.n_points = count;
    CompleteMeshBlock(fresh, sc.length);
    Full_x_Dependence(cv);

    // The solution follows the new mesh.  The caller refreshes what derives from psi.
    for (MeshArray* quantity : {&cv.psi, &cv.u, &cv.v, &cv.EFn, &cv.EFp}) {
        const MeshArray previous = *quantity;
        InterpolateAndCopy(quantity->data(), previous.data(), cv.mesh, old, layers);
    }
    return 1;
}

} // namespace tervo
