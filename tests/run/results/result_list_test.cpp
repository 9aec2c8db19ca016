// The list of simulations: elements appended with copies of their request, and cleared with the
// counters that number them.
#include "run/results/result_list.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "run/control/driver.h"

using namespace tervo;

TEST(ResultList, ElementsAreAppendedWithCopiesOfTheirRequestAndCleared) {
    wis_alles();
    EXPECT_EQ(pointer_naar_eerste(), nullptr);
    EXPECT_EQ(pointer_naar_huidige(), nullptr);
    WorkPoint w;
    w.temperature = 320;
    Actie a;
    a.IV = {1, 0, 0.8, 17, 0};
    DataListElement& first = AppendDataListElement(1, a, w);
    first.iv_as.assign(17, 0.1); // a sweep fills its curve
    w.temperature = 250;         // later changes of the request do not reach the stored copies
    a.IV.points = 5;
    DataListElement* second = &AppendDataListElement(2, a, w);
    for (int i = 3; i <= 50; ++i) AppendDataListElement(i, a, w);

    ASSERT_EQ(resultList.size(), 50u);
    EXPECT_EQ(pointer_naar_eerste(), &first) << "appending never moves an element";
    EXPECT_EQ(pointer_naar_huidige()->number, 50);
    EXPECT_EQ(std::pair(first.wp.temperature, first.actie.IV.points), std::pair(320.0, 17));
    EXPECT_EQ(first.iv_as.size(), 17u);
    EXPECT_EQ(std::pair(second->wp.temperature, second->actie.IV.points), std::pair(250.0, 5));
    EXPECT_TRUE(second->iv_as.empty() && second->cvcap.empty() && second->qe.empty());

    kleurindex = 7;
    SingleShotSimulationNumber = 4;
    BatchSimulationNumber = 2;
    CurveFitSimulationNumber = 3;
    wis_alles();
    EXPECT_TRUE(resultList.empty());
    EXPECT_EQ(pointer_naar_eerste(), nullptr);
    EXPECT_EQ(pointer_naar_huidige(), nullptr);
    EXPECT_EQ((std::vector{kleurindex, SingleShotSimulationNumber, BatchSimulationNumber,
                           CurveFitSimulationNumber}),
              std::vector(4, 0));
    SingleShotSimulationNumber = 1;
    wis_alles(); // an empty list: only the counters
    EXPECT_EQ(SingleShotSimulationNumber, 0);
}
