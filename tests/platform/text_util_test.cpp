// The text helpers of the keyword readers.
#include <gtest/gtest.h>

#include <tuple>

#include "platform/text_util.h"

using namespace tervo;

TEST(TextUtil, FindPatternCaseTrimAndTheFirstNumber) {
    const std::string text = "Error whilst reading the def file; reading again";
    // Start index, end of the window (-1: the whole text), pattern, case sensitive, last match; place.
    const std::tuple<int, int, const char*, bool, bool, int> cases[] = {
        {0, -1, "reading", true, false, 13},  {0, -1, "reading", true, true, 35},
        {0, -1, "WHILST", true, false, -1},   {0, -1, "WHILST", false, false, 6},
        {14, -1, "reading", true, false, 35}, {0, 19, "reading", true, false, -1},
        {0, 20, "reading", true, false, 13},  {100, -1, "a", true, false, -1}};
    for (const auto& [from, to, pattern, exact, last, place] : cases)
        EXPECT_EQ(FindPattern(text, from, to, pattern, exact, last), place)
            << pattern << " " << from << " " << to;
    EXPECT_TRUE(StartsWithNoCase("IV_Points : 3", "iv_points"));
    EXPECT_FALSE(StartsWithNoCase("IV", "iv_points"));
    EXPECT_TRUE(ContainsNoCase("Calculating the Working Point", "working point"));
    EXPECT_EQ(Trim(" \t a b \r\n") + "|" + TrimRight("  a  ") + "|" + Trim("   ") + "|" + ToLower("AbC-1"),
              "a b|  a||abc-1");

    double v = 0.0;
    EXPECT_TRUE(FirstNumber("Nc : 1.0e25 [/m^3]", v));
    EXPECT_DOUBLE_EQ(v, 1e25);
    EXPECT_TRUE(FirstNumber("Et-level : -.25 eV", v));
    EXPECT_DOUBLE_EQ(v, -0.25);
    EXPECT_FALSE(FirstNumber("no number", v));
}
