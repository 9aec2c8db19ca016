// The one-dimensional mesh through the stack.
//
// Each layer has its own run of points, dense at both edges and coarse in the middle, so that every
// interface is represented by two coincident points, the last of one layer and the first of the
// next, with h = 0 between them.  During a calculation the mesh can adapt to the solution; the whole
// cell never has more than MAX_MESH_POINTS points.
#pragma once

#include <array>

#include "cell/cell_records.h"

namespace tervo {

// The mesh of one state, copied as one block.
struct MeshBlock {
    int n_points = 0;
    std::array<int, MAX_LAYERS> points_in_layer{}; // last - first + 1
    std::array<int, MAX_LAYERS> first_point{};
    std::array<int, MAX_LAYERS> last_point{};
    int number_of_layers = 0;
    std::array<double, MAX_MESH_POINTS> x{};    // position by the total thickness L
    std::array<double, MAX_MESH_POINTS> x_m{};  // x L, m
    std::array<double, MAX_MESH_POINTS> x_um{}; // x L 1e6, µm
    std::array<double, MAX_MESH_POINTS> h{};    // x[j+1] - x[j]; 0 at the double point of an interface
    std::array<double, MAX_MESH_POINTS> y{};    // composition y(x)
};

struct CalculationVariables;
struct MeshSettings;

// Quantities that only the caller can supply to the adaptive step, on the present mesh, normalised;
// null when not available.  Without a generation profile here the one of `cv.generation` is used.
struct MeshRefinementSources {
    const double* generation = nullptr;    // G
    const double* recombination = nullptr; // total net recombination rate
};

// The first mesh of the problem from the normalised parameters `cv` points to; it is also kept as
// the first-mesh block, and the graded properties are expanded on it.  0, or -1 for a layer without
// thickness (reported).
int bepaal_intervallen(CalculationVariables& cv);

// The same points at the same places: what was formed on one mesh holds on the other.
bool SameMesh(const MeshBlock& a, const MeshBlock& b);

// One adaptive step: intervals over which exp(psi), the carrier variables, the generation or the
// recombination change by a ratio at or above the maximum ratio are refined, runs of points with
// a product of ratios at or below the minimum ratio are thinned out.  Points of the first mesh stay.
// 1 if the mesh changed (psi, u, v, EFn, EFp interpolated onto it and the graded properties expanded
// on it), 0 if not, -1 if it would pass MAX_MESH_POINTS points, in which case mesh and solution are
// left as they were.  After a change the caller brings what derives from the mesh up to date: the
// exponentials and Bernoulli factors of psi, the occupations of defects, the generation profile.
// `previous`, when given, receives the mesh before a change; it is not touched when nothing changed,
// so that a step that keeps the mesh copies nothing.
int RecalculateIntervals(CalculationVariables& cv, const MeshRefinementSources& sources = {},
                         MeshBlock* previous = nullptr);
// The same with explicit settings.
int RecalculateIntervals(CalculationVariables& cv, const MeshSettings& settings,
                         const MeshRefinementSources& sources, MeshBlock* previous = nullptr);

// Linear interpolation of one quantity from the old mesh onto the new one, layer by layer; the last
// point of each layer takes the last old value of that layer.
void InterpolateAndCopy(double* newValues, const double* oldValues, const MeshBlock& newMesh,
                        const MeshBlock& oldMesh, int numberOfLayers);

// 1 if `position` (normalised) is a point of `layer` in `mesh`, else 0.
int PointExists(const MeshBlock& mesh, int layer, double position);

double coerce(double value, double lower, double upper);

// Keeps the two ratios of the adaptive mesh sane: sorted, the larger in 1.1 .. 3.0, the smaller in
// 1.0 .. 1.3.
void GovernMaxMinMesh(MeshSettings& settings);

// Positions in m and µm and the steps h from the normalised positions, for `length` L in m.
void CompleteMeshBlock(MeshBlock& mesh, double length);

} // namespace tervo
