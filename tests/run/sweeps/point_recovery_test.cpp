// The retries of a failed voltage step and the test that a returned state is a solution, on a p-n
// junction whose outer iteration is held short so that a large step fails where small ones do not.
#include "run/sweeps/point_recovery.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "run/control/driver.h"
#include "run/results/extraction.h"
#include "run/run_cells.h"

namespace tervo {
namespace {

using namespace run_test;

std::unique_ptr<Device> Junction() {
    const Material m;
    auto d = Build(PN(m, 1e-6, 1e23, 1e-6, 1e23));
    equilibrium(*d->cv);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    return d;
}

TEST(PointRecovery, AStepTooLargeForTheIterationIsReachedInHalvedStepsOrCutWithoutRetries) {
    Keep<int> recovery(sweepRecovery);
    // The reference: the same voltage reached in steps of 50 mV on the default settings.
    auto reference = Junction();
    WalkTo(*reference->cv, 0.6);
    extraheer_stroom(*reference->cv, 0);

    auto d = Junction();
    CalculationVariables& cv = *d->cv;
    // A step of 0.6 V asks the potential to move by far more than 12 clamped Newton steps of 0.5 kT.
    d->P->convergence.maxiter_psi = 12;
    SolvedState start;
    KeepSolvedState(start, cv);

    sweepRecovery = 0;
    SolvedState last = start;
    EXPECT_EQ(SolveStep(cv, last, 0.6, "I(V)"), PointStatus::Cut);
    EXPECT_EQ(std::tuple(CONVERGENTIEFALING, cv.iteration_count, last.V_applied), std::tuple(1, -1, 0.0));
    EXPECT_EQ(RetriesText(last), "");

    // The failed iterate is put back to the kept state exactly.
    RestoreSolvedState(cv, start);
    for (int i = 0; i < d->points(); ++i) ASSERT_EQ(cv.psi[At(i)], start.psi[At(i)]);
    EXPECT_EQ(std::tuple(CONVERGENTIEFALING, cv.V_applied), std::tuple(0, 0.0));

    sweepRecovery = 1;
    last = start;
    EXPECT_EQ(SolveStep(cv, last, 0.6, "I(V)"), PointStatus::RecoveredByHalving);
    EXPECT_EQ(std::tuple(CONVERGENTIEFALING, cv.V_applied, last.V_applied), std::tuple(0, 0.6, 0.6));
    extraheer_stroom(cv, 0);
    EXPECT_NEAR(cv.J_median / reference->cv->J_median, 1.0, 1e-4);
}

TEST(PointRecovery, AStateWhoseCurrentIsNotTheSameThroughTheStackIsNoSolution) {
    auto d = Junction();
    CalculationVariables& cv = *d->cv;
    WalkTo(cv, 0.5);
    ASSERT_TRUE(StateIsSolution(cv));
    // The electron variable of one point in the base moved by a third: the current through its two
    // links no longer matches the rest, although nothing else changed.
    const size_t mid = At(cv.mesh.first_point[1] + (cv.mesh.points_in_layer[1] / 2));
    const double u = cv.u[mid];
    cv.u[mid] = u * 1.3;
    EXPECT_FALSE(StateIsSolution(cv));
    cv.u[mid] = u;
    EXPECT_TRUE(StateIsSolution(cv));
    cv.psi[mid] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(StateIsSolution(cv));
}

} // namespace
} // namespace tervo
