// The list of simulations: elements appended with copies of their request, freed by wis_alles, and
// the short names of their curves.
#include "run/results/result_list.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "run/control/driver.h"

using namespace tervo;

TEST(ResultList, ElementsAreAppendedWithCopiesOfTheirRequestAndFreedAndCleared) {
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
    int expected = 1;
    for (const DataListElement& e : resultList) EXPECT_EQ(e.number, expected++);
    // A fresh element: nothing plotted, no curves, a time stamp.
    for (int h : second->plotHandles) EXPECT_EQ(h, NO_PLOT);
    EXPECT_TRUE(second->iv_as.empty() && second->cvcap.empty() && second->qe.empty());
    EXPECT_TRUE(
        std::regex_match(second->started, std::regex(R"(\d{1,2}-\d{1,2}-\d{4} at \d{1,2}:\d\d:\d\d)")))
        << second->started;

    // Freeing the curves gives the memory back and leaves the element in the list.
    first.cvcap.assign(100, 1.0);
    first.AS_Et.assign(10, 0.3);
    FreeDataListElement(first);
    EXPECT_EQ(first.cvcap.capacity(), 0u);
    EXPECT_TRUE(first.AS_Et.empty() && first.iv_as.empty());
    EXPECT_EQ(resultList.size(), 50u);

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

TEST(ResultList, ShortCurveNames) {
    DataListElement e;
    InitialiseDataListElement(e, 3, Actie{}, WorkPoint{});
    std::string name = "old";
    MakeShortcurvename(e, name);
    EXPECT_EQ(name, "Singleshot 3");
    e.fitParameterCount = 2;
    e.fitStep = 0; // fit steps count from 0 and are shown from 1
    e.fitSteps = 12;
    MakeShortcurvename(e, name);
    EXPECT_EQ(name, "CurveFit 3: step 1/12");
    e.batchDefinitionVaried = 1; // a batch over definition files alone is a batch, and wins
    e.batchStep = 4;
    e.batchSteps = 9;
    MakeShortcurvename(e, name);
    EXPECT_EQ(name, "Batch 3: step 4/9");
    e.batchDefinitionVaried = 0;
    e.batchParameterCount = 1;
    MakeShortcurvename(e, name);
    EXPECT_EQ(name, "Batch 3: step 4/9");
}
