// Solved states of hand-made cells and the reading of the tab-separated tables that the result
// files make of them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/results/result_files.h"
#include "run/results/result_list.h"
#include "support/temp_folder.h"
#include "support/test_cells.h"

namespace tervo::results_test {

using namespace defect_test;
namespace fs = std::filesystem;

using test::Cells;

inline size_t Find(const std::vector<std::string>& lines, const std::string& line) {
    return static_cast<size_t>(std::find(lines.begin(), lines.end(), line) - lines.begin());
}

// A table of numbers from `firstRow` (by default right below the title row) up to the first blank
// line: the titles, and per row the cells as text (empty for a cell without data) and as numbers (NaN
// there).
struct Table {
    std::vector<std::string> titles;
    std::vector<std::vector<std::string>> text;
    std::vector<std::vector<double>> value;
    size_t end = 0; // the blank line behind the rows
};

inline Table ReadTable(const std::vector<std::string>& lines, size_t titleRow, size_t firstRow = 0) {
    Table t;
    t.titles = Cells(lines.at(titleRow));
    for (t.end = firstRow ? firstRow : titleRow + 1; t.end < lines.size() && !lines[t.end].empty(); ++t.end) {
        std::vector<std::string> cells = Cells(lines[t.end]);
        std::vector<double> numbers;
        for (std::string& c : cells) numbers.push_back(c.empty() ? std::nan("") : std::stod(c));
        t.text.push_back(std::move(cells));
        t.value.push_back(std::move(numbers));
    }
    return t;
}

// Solved in equilibrium, then walked to V in steps of 0.05 V; the output terms of the final state.
inline std::unique_ptr<Device> Solve(const InputParameters& in, double V) {
    auto d = Build(in);
    equilibrium(*d->cv);
    if (V != 0) WalkTo(*d->cv, V);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    update_eb_panel(*d->cv, 1);
    return d;
}

// Columns of the bulk block of the band file.
constexpr size_t X = 1, EC = 2, FN = 3, FP = 4, EV = 5, N_ = 6, P_ = 7, E = 11, JN = 12, JP = 13, JNT = 14,
                 JPT = 15, JTOT = 16, G = 17, R = 18, GC = 19, RLR = 20, RRL = 21;

// The rows of numbers of a band-diagram file and the lines of its interface block, from the title
// "interface" to the end.
struct EbFile {
    std::vector<std::vector<double>> rows;
    std::vector<std::string> interfaceLines;
};

// The session's settings saved and restored around each test, an empty result list, no messages, and
// a folder for the files.
class ResultsTest : public ::testing::Test {
protected:
    test::TempFolder dir;
    Actie savedActie = actie;
    CellDefinition savedCell = zonnecel;
    WorkPoint savedWp = wp;
    void SetUp() override {
        actie = Actie{}; // no sweep: the band file's header is the working point's
        zonnecel.signV = zonnecel.signJ = 1;
        wis_alles();
        ClearReportedMessages();
    }
    void TearDown() override {
        wis_alles();
        ActionListMode = ACTIONLIST_TRUNCATE; // the fill mode that a test of the result files changes
        actie = savedActie;
        zonnecel = savedCell;
        wp = savedWp;
    }

    // The band file of a state: "bulk", a blank, the column line, a blank, the rows, two blank lines
    // and the interface block.
    EbFile WriteBandFile(CalculationVariables& cv) {
        TextFile f = OpenFile(dir / "state.eb", FileMode::Write);
        EXPECT_EQ(eb_naar_file(OUTPUT_TO_OPEN_FILE, &f, cv), 0);
        CloseFile(f);
        const std::vector<std::string> lines = test::FileLines(dir / "state.eb");
        EbFile eb;
        const size_t k = Find(lines, "bulk");
        if (k + 4 >= lines.size()) return eb;
        const Table t = ReadTable(lines, k + 2, k + 4);
        eb.rows = t.value;
        eb.interfaceLines.assign(lines.begin() + static_cast<long>(t.end + 3), lines.end());
        return eb;
    }
};

} // namespace tervo::results_test
