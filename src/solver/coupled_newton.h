// Newton's method on Poisson's equation and both continuity equations at once: at every mesh point a
// 3x3 block couples psi, u and v, so that the potential and the carriers move together in one step
// instead of one after the other as in the Gummel blocks.  Near the solution this converges
// quadratically where the Gummel passes only converge linearly; far from it the Gummel passes are the
// more robust approach, which is why the mixed scheme starts with them.
//
// Rows and columns of every block are in the order psi, u, v.  The Jacobian is minus the derivative
// of the residuals, as in the separate systems, so the step solves J delta = F.
#pragma once

#include <array>

#include "platform/index.h"
#include "setup/parameter_sets.h"
#include "solver/discrete_equations.h"
#include "solver/small_linalg.h"

namespace tervo {

// One 3-vector (psi, u, v) per mesh point.
struct Phiuv_row {
    std::array<vector_3x1, MAX_MESH_POINTS> x{};
    vector_3x1& operator[](int i) { return x[At(i)]; }
    const vector_3x1& operator[](int i) const { return x[At(i)]; }
};

// Block tridiagonal matrix: per mesh point i the diagonal block main[i], the block sub[i] that
// couples to point i-1 and super[i] that couples to point i+1.
struct Phiuv_trimatrix {
    std::array<matrix_3x3, MAX_MESH_POINTS> main{};
    std::array<matrix_3x3, MAX_MESH_POINTS> sub{};
    std::array<matrix_3x3, MAX_MESH_POINTS> super{};
};

// Per layer j below the last: the block that couples the row of last_point[j] to the point
// first_point[j+1] + 1, outside the block band.  Gauss's law over the interface takes a one-sided
// second-order gradient on the right, so only its (psi, psi) element is ever non-zero.
using Phiuv_coupling_row = std::array<matrix_3x3, MAX_LAYERS>;

// The storage of one coupled Newton step for any mesh up to MAX_MESH_POINTS points.  It is large
// (some 400 kB): make it once and reuse it.
struct CoupledSystem {
    Phiuv_trimatrix J;
    Phiuv_coupling_row coupling{};
    Phiuv_row rhs;
    Phiuv_row delta;
    trimatrix Jpsi{MAX_MESH_POINTS};
    trimatrix Ju{MAX_MESH_POINTS};
    trimatrix Jv{MAX_MESH_POINTS};
    InterfaceExtra extra{};
    MeshArray F{};     // one residual at a time
    MeshArray step{};  // one variable's Newton step at a time
    MeshBlock oldMesh; // the mesh before an adaptive step
};

// Newton iteration on psi, u and v together, with the mesh adaptation and the defect occupation
// update of a pass after every step.  Limit maxiter_psi, policy failAction_psi.  0, or -1 at a
// failure (singular block, failed recombination routine, the limit under policy 1 or 2);
// psi_iterations, u_iterations, v_iterations and coupled_iterations take the count, -1 at failure.
int fully_coupled_iteration(CalculationVariables& cv);

// The coupled Jacobian (s.J, s.coupling) and the three residuals (s.rhs) of the present iterate.  The
// recombination terms must have been formed at it.
void bereken_stelsel_phiuv(CalculationVariables& cv, CoupledSystem& s);

// The derivatives that the separate Jacobians leave out, into blocks that hold those on their
// diagonal: of each residual by the other two variables.  Left out here too: the dependence of the
// Poisson rows at interfaces and contacts on u and v, of the interface rates on psi, of the
// half-cell terms on the other variables, and of tunnelling on psi.
void AddCrossDerivativesToJacobian3x3(CalculationVariables& cv, Phiuv_trimatrix& blocks);
// The u-v couplings of the recombination in the 2x2 blocks of the lumped carrier system: the same
// elements as the carrier rows of the 3x3 blocks.
void AddCrossDerivativesToJacobian2x2(CalculationVariables& cv, uv_trimatrix& blocks);

// The Newton step of the coupled system on the mesh of `cv`.  0, or -1 at a singular pivot block.
int bereken_delta_phiuv(CalculationVariables& cv, const Phiuv_trimatrix& J,
                        const Phiuv_coupling_row& coupling, const Phiuv_row& rhs, Phiuv_row& delta);

// Block Thomas elimination with 3x3 blocks over the points of `mesh`, with the interface couplings
// outside the band.  No pivoting between blocks; each pivot block is inverted by cofactors.  0, or -1
// when a pivot block is exactly singular.
int tridiagonal_3x3(const Phiuv_trimatrix& A, const Phiuv_coupling_row& coupling, const Phiuv_row& rhs,
                    Phiuv_row& x, const MeshBlock& mesh);

} // namespace tervo
