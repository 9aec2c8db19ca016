// The list of simulations: elements appended without moving the earlier ones, and cleared with the
// counters that number them.
#include "run/results/result_list.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "run/control/driver.h"

using namespace tervo;

TEST(ResultList, ElementsStayWhereTheyAreAsOthersAreAppendedAndAreClearedWithTheCounters) {
    wis_alles();
    WorkPoint w;
    w.temperature = 320;
    Actie a;
    a.IV = {1, 0, 0.8, 17, 0};
    DataListElement& first = AppendDataListElement(1, a, w);
    first.iv_as.assign(17, 0.1); // a sweep fills its curve
    for (int i = 2; i <= 50; ++i) AppendDataListElement(i, a, w);
    // A sweep keeps its element while later ones are appended.
    ASSERT_EQ(resultList.size(), 50u);
    EXPECT_EQ(pointer_naar_eerste(), &first) << "appending never moves an element";
    EXPECT_EQ(pointer_naar_huidige()->number, 50);
    EXPECT_EQ(std::pair(first.wp.temperature, first.actie.IV.points), std::pair(320.0, 17));
    EXPECT_EQ(first.iv_as.size(), 17u);
    EXPECT_TRUE(pointer_naar_huidige()->iv_as.empty());

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
