// The band-diagram file of solved cells against the physics of the state: band gap, Boltzmann
// densities from the bands and quasi-Fermi levels, the law of mass action, the field as the slope of
// the bands, radiative recombination from the densities, and the integrals of generation and
// recombination against the terminal current.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <utility>

#include "run/control/driver.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/results/result_files.h"
#include "run/sweeps/operating_points.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

namespace fs = std::filesystem;

using namespace defect_test;
// Silicon-like layers (the shared `Material`), doped 1e23 /m^3.
constexpr double Eg = 1.12, Nc = 2.8e25, Nv = 1.04e25, N = 1e23;

double Ni2() {
    return Material{}.ni2(); // /m^6
}

// A p-n homojunction of 1 µm + 1 µm (p on the left), or with `layers` 1 a single n-type layer of
// 1 µm, between contacts at the flat-band work functions.
InputParameters MakeCell(int layers, double Krad = 0) {
    Material si;
    si.Krad = Krad;
    InputParameters in =
        layers == 2 ? Stack({{si, 1e-6, 0, N}, {si, 1e-6, N, 0}}, 1e7) : Stack({{si, 1e-6, N, 0}}, 1e7);
    in.cellParas.leftContact.contactType = layers == 2 ? 1 : -1;
    in.cellParas.rightContact.contactType = -1;
    return in;
}

// Solved in equilibrium, then walked to V in steps of 0.05 V.
std::unique_ptr<Device> Solve(const InputParameters& in, double V) {
    auto d = Build(in);
    equilibrium(*d->cv);
    if (V != 0) WalkTo(*d->cv, V);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    update_eb_panel(*d->cv, 1);
    return d;
}

// The rows of numbers of a band-diagram file, and the lines of its interface block from the title
// "interface" to the end.
struct EbFile {
    std::vector<std::vector<double>> rows;
    std::vector<std::string> interfaceLines;
    size_t columns = 0; // names in the column line
    double col(size_t row, int c) const { return rows[row][static_cast<size_t>(c)]; }
};

constexpr int X = 1, EC = 2, FN = 3, FP = 4, EV = 5, N_ = 6, P_ = 7, E = 11, JN = 12, JP = 13, JNT = 14,
              JPT = 15, JTOT = 16, G = 17, R = 18, GC = 19, RLR = 20;

class BandFile : public ::testing::Test {
protected:
    fs::path path = fs::temp_directory_path() / ("tervo_eb_" + std::to_string(::getpid()) + ".eb");
    Actie savedActie = actie;
    CellDefinition savedCell = zonnecel;
    void SetUp() override {
        actie = Actie{}; // no sweep: the header is the working point's
        zonnecel.signV = zonnecel.signJ = 1;
    }
    void TearDown() override {
        actie = savedActie;
        zonnecel = savedCell;
        fs::remove(path);
    }

    EbFile Write(CalculationVariables& cv) {
        TextFile f = OpenFile(path.string(), FileMode::Write);
        EXPECT_EQ(eb_naar_file(OUTPUT_TO_OPEN_FILE, &f, cv), 0);
        CloseFile(f);
        std::ifstream in(path);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        auto cells = [](const std::string& line) {
            std::vector<std::string> out;
            std::istringstream s(line);
            for (std::string cell; std::getline(s, cell, '\t');) out.push_back(cell);
            return out;
        };
        EbFile eb;
        size_t k = static_cast<size_t>(std::find(lines.begin(), lines.end(), "bulk") - lines.begin());
        if (k + 4 >= lines.size()) return eb;
        eb.columns = cells(lines[k + 2]).size();
        EXPECT_EQ(lines[k + 1] + lines[k + 3], "");
        for (k += 4; k < lines.size() && !lines[k].empty(); ++k) {
            std::vector<double> row;
            for (const std::string& c : cells(lines[k])) row.push_back(std::stod(c));
            EXPECT_EQ(row.size(), eb.columns) << lines[k];
            eb.rows.push_back(row);
        }
        // Two blank lines, and the title "interface" behind a line end of its own.
        EXPECT_EQ(lines.at(k + 1) + lines.at(k + 2), "");
        eb.interfaceLines.assign(lines.begin() + static_cast<long>(k + 3), lines.end());
        return eb;
    }
};

TEST_F(BandFile, EquilibriumJunctionHasTheGapFlatFermiLevelsMassActionAndAQuietInterface) {
    const auto d = Solve(MakeCell(2), 0);
    const EbFile eb = Write(*d->cv);
    EXPECT_EQ(eb.columns, 22u);
    ASSERT_EQ(eb.rows.size(), static_cast<size_t>(d->cv->mesh.n_points));
    const double ni2 = Ni2() * 1e-12; // /cm^6
    for (size_t i = 0; i < eb.rows.size(); ++i) {
        EXPECT_EQ(eb.col(i, 0), static_cast<double>(i));
        EXPECT_NEAR(eb.col(i, EC) - eb.col(i, EV), Eg, 2e-8) << "point " << i;
        EXPECT_EQ(eb.col(i, FN), 0.0) << "point " << i;
        EXPECT_EQ(eb.col(i, FP), 0.0) << "point " << i;
        EXPECT_NEAR(eb.col(i, N_) * eb.col(i, P_) / ni2, 1.0, 1e-6) << "point " << i;
        EXPECT_LT(std::fabs(eb.col(i, JTOT)), 1e-12);
    }
    EXPECT_NEAR(eb.col(eb.rows.size() - 1, X), 2.0, 1e-6); // µm
    // One interface, at the junction; without interface defects it carries nothing.
    ASSERT_EQ(eb.interfaceLines.size(), 5u);
    EXPECT_EQ(eb.interfaceLines[0], "interface");
    std::istringstream row(eb.interfaceLines[4]);
    std::vector<double> cells;
    for (std::string cell; std::getline(row, cell, '\t');) cells.push_back(std::stod(cell));
    ASSERT_EQ(cells.size(), 12u);
    EXPECT_NEAR(cells[1], 1.0, 1e-6);
    for (size_t c = 2; c < cells.size(); ++c) EXPECT_EQ(cells[c], 0.0);
}

TEST_F(BandFile, FieldColumnIsTheSlopeOfTheConductionBand) {
    const auto d = Solve(MakeCell(2), 0);
    const EbFile eb = Write(*d->cv);
    double peak = 0;
    for (const auto& r : eb.rows) peak = std::max(peak, std::fabs(r[E]));
    ASSERT_GT(peak, 1e4); // V/cm
    const MeshBlock& mesh = d->cv->mesh;
    for (int j = 0; j < 2; ++j) {
        const size_t first = static_cast<size_t>(mesh.first_point[static_cast<size_t>(j)]);
        const size_t last = static_cast<size_t>(mesh.last_point[static_cast<size_t>(j)]);
        // Ec in eV over x in cm is the field in V/cm (E = -dphi/dx, Ec = -q phi + const).
        for (size_t i = first + 1; i < last; ++i)
            EXPECT_NEAR(eb.col(i, E),
                        (eb.col(i + 1, EC) - eb.col(i - 1, EC)) /
                            ((eb.col(i + 1, X) - eb.col(i - 1, X)) * 1e-4),
                        0.01 * peak)
                << "point " << i;
        // The one-sided values at the ends of a layer join their neighbours inside it.
        EXPECT_NEAR(eb.col(first, E), eb.col(first + 1, E), 0.02 * peak);
        EXPECT_NEAR(eb.col(last, E), eb.col(last - 1, E), 0.02 * peak);
    }
    // The junction field points from the n side to the p side: towards the left contact.
    EXPECT_LT(eb.col(static_cast<size_t>(mesh.last_point[0]), E), -0.9 * peak);
}

TEST_F(BandFile, UnderForwardBiasDensitiesFollowTheQuasiFermiLevelsAndRecombinationCarriesTheCurrent) {
    const double V = 0.4, Krad = 1e-14; // m^3/s
    const auto d = Solve(MakeCell(2, Krad), V);
    const EbFile eb = Write(*d->cv);
    const size_t n = eb.rows.size();
    EXPECT_NEAR(std::fabs(eb.col(n - 1, FN) - eb.col(0, FP)), V, 1e-6);
    const double ni2 = Ni2() * 1e-12;
    double bulk = 0; // recombination current of the bulk, mA/cm2
    for (size_t i = 0; i < n; ++i) {
        EXPECT_NEAR(eb.col(i, N_) / (Nc * 1e-6 * std::exp((eb.col(i, FN) - eb.col(i, EC)) / kT)), 1.0, 1e-6);
        EXPECT_NEAR(eb.col(i, P_) / (Nv * 1e-6 * std::exp((eb.col(i, EV) - eb.col(i, FP)) / kT)), 1.0, 1e-6);
        // Radiative recombination B (np - ni^2), B in cm3/s, inside the layers.
        const double np = eb.col(i, N_) * eb.col(i, P_);
        if (i > 0 && i < n - 1 && std::fabs(eb.col(i, X) - 1.0) > 1e-9) {
            EXPECT_NEAR(eb.col(i, R), Krad * 1e6 * (np - ni2), 1e-6 * Krad * 1e6 * np) << "point " << i;
        }
        EXPECT_NEAR(eb.col(i, JN) + eb.col(i, JP) + eb.col(i, JNT) + eb.col(i, JPT), eb.col(i, JTOT),
                    1e-7 * std::fabs(eb.col(i, JTOT)));
        if (i > 0)
            bulk +=
                0.5 * (eb.col(i, R) + eb.col(i - 1, R)) * (eb.col(i, X) - eb.col(i - 1, X)) * 1e-4 * q * 1e3;
    }
    // In the dark the current is what recombines: in the bulk, and the minority carriers taken by the
    // contacts (electrons at the p-type left one, holes at the n-type right one).  Forward current
    // is positive.
    const double J = d->cv->J_median;
    ASSERT_GT(J, 0);
    ASSERT_GT(bulk, 0.1 * J); // both ways of losing carriers count
    EXPECT_NEAR((bulk + eb.col(0, JN) + eb.col(n - 1, JP)) / J, 1.0, 0.01);
    // The cumulative recombination gathers the same bulk recombination between the two contacts'
    // minority currents.
    EXPECT_NEAR((eb.col(n - 1, RLR) - eb.col(0, JN) - eb.col(n - 1, JP)) / bulk, 1.0, 0.01);
}

TEST_F(BandFile, CumulativeGenerationRunsFromTheIlluminatedSide) {
    const auto d = Solve(MakeCell(2), 0);
    const CalculationVariables& cv = *d->cv;
    // A uniform 1e21 /cm3/s set on the state: 2 µm of it make q G d = 32.04 mA/cm2.
    const double Gcm = 1e21, total = q * Gcm * 2e-4 * 1e3;
    const ScaleParameters& s = d->P->scale;
    for (size_t j = 0; j < 2; ++j)
        for (int k = cv.mesh.first_point[j]; k <= cv.mesh.last_point[j]; ++k)
            d->light->G[static_cast<size_t>(k)] =
                Gcm * 1e6 * s.length * s.length / (s.density[j] * s.diffusion);
    for (const int side : {-1, 1}) {
        d->light->side = side;
        const EbFile eb = Write(*d->cv);
        const size_t n = eb.rows.size(), middle = static_cast<size_t>(cv.mesh.last_point[0]);
        EXPECT_NEAR(eb.col(middle, G) / Gcm, 1.0, 1e-9);
        EXPECT_NEAR(eb.col(side == -1 ? n - 1 : 0, GC) / total, 1.0, 1e-6) << "side " << side;
        EXPECT_LT(eb.col(side == -1 ? 0 : n - 1, GC), 1e-3 * total);
        EXPECT_NEAR(eb.col(middle, GC) / total, 0.5, 0.01);
    }
}

TEST_F(BandFile, OneLayerHasAnInterfaceTitleAndNoRows) {
    const auto d = Solve(MakeCell(1), 0);
    const EbFile eb = Write(*d->cv);
    EXPECT_EQ(eb.rows.size(), static_cast<size_t>(d->cv->mesh.n_points));
    ASSERT_EQ(eb.interfaceLines.size(), 4u);
    EXPECT_EQ(eb.interfaceLines[0], "interface");
    EXPECT_EQ(eb.interfaceLines[2].substr(0, 4), "  IF");
    EXPECT_EQ(eb.interfaceLines[1] + eb.interfaceLines[3], "");
}

} // namespace
} // namespace tervo
