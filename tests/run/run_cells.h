// Builders shared by the sweep and control tests: a p-n junction in file form, the lines of a file,
// the one message that a failure reports, and a session record put back at the end of a test.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/messages.h"
#include "support/temp_folder.h"
#include "support/test_cells.h"

namespace tervo::run_test {

using namespace defect_test;

// Puts a global record back as it was when the test made this.
template <class T>
struct Keep {
    T& ref;
    T saved;
    explicit Keep(T& r) : ref(r), saved(r) {}
    ~Keep() { ref = saved; }
    Keep(const Keep&) = delete;
    Keep& operator=(const Keep&) = delete;
};

// A p-n homojunction, p side on the left, contacts at flat band that pass the majority carriers at
// 1e7 m/s and the minority carriers at Smin.
inline InputParameters PN(const Material& m, double dp, double Na, double dn, double Nd, double Smin = 1e7) {
    InputParameters in = Stack({{m, dp, 0, Na}, {m, dn, Nd, 0}}, 1e7);
    in.cellParas.leftContact.Sn = in.cellParas.rightContact.Sp = Smin;
    return in;
}

using test::Cells;
using test::FileLines;

// Exactly one message reported since the last clear, with this title and text.
inline void ExpectOneMessage(const std::string& title, const std::string& text) {
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].title, title);
    EXPECT_EQ(ReportedMessages()[0].text, text);
}

} // namespace tervo::run_test
