// The main job without a user: a cell and an action list on the command line give the cell's I-V
// characteristic under the shipped AM1.5G spectrum and an exit status.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/command_line.h"
#include "platform/messages.h"
#include "run/control/startup.h"
#include "run/results/result_list.h"
#include "support/program_run.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::ProgramHome;
using tervo::test::RunProgram;
using tervo::test::WriteFile;

namespace {

const fs::path kSource = TERVO_SOURCE_DIR;

// A thick p-n homojunction (1 µm emitter on the light side, 5 µm base) that absorbs every photon
// above its 1.5 eV gap, with no recombination but at the contacts, whose minority velocities are
// small: every photon above the gap becomes one electron in the outer circuit.
std::string CollectingCell(const std::string& convergenceLines, const std::string& base = "5e-6") {
    auto layer = [](const char* name, const std::string& d, const char* Nd, const char* Na) {
        return std::string("layer\n\nname : ") + name + "\nd : " + d +
               "\nv_th_n : 1e5\nv_th_p : 1e5\neps : 13\nchi : 4.0\nEg : 1.5\nNc : 1e24\nNv : 1e25\n"
               "mu_n : 0.01\nmu_p : 0.004\nK_rad : 0\nc_n_auger : 0\nc_p_auger : 0\nNd(uniform) : " +
               Nd + "\nNa(uniform) : " + Na +
               "\nabsorptionmodel pure A material (y=0) : coefficients A and B\nA : 1e9\nB : 0\n"
               "absorption pure B material (y=1), model : coefficients A and B\n"
               "pure B material (y=1), A : 1e9\npure B material (y=1), B : 0\n\n";
    };
    return "convergence\n\n" + convergenceLines + "\nback contact\n\nflatband : 1\nSn : 1e-3\nSp : 1e5\n\n" +
           layer("base", base, "0", "1e22") + layer("emitter", "1e-6", "1e24", "0") +
           "front contact\n\nflatband : 1\nSn : 1e5\nSp : 1e-3\n\nworking point\n\nilluminated from : right\n"
           "internal Rfront : 0\n";
}

const char* kAction = "Temperature : 300\nVoltage : 0\nNumber of points : 5\ndark : 0\n"
                      "spectrum file :AM1_5G 1 sun.spe\nIV_startV : -0.1\nIV_stopV : 1.3\nIV_points : 29\n"
                      "IV_calculate : 1\n";

// q times the photon flux above the gap, from the shipped spectrum: the power of each interval
// times its wavelength times the photons per second in one watt at 1 nm.
double PhotonCurrentAboveGap(double Eg) {
    std::ifstream in(kSource / "home/spectrum/AM1_5G 1 sun.spe");
    std::string line;
    double flux = 0;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        double lambda = 0, power = 0;
        if (!(words >> lambda >> power)) continue;
        if (lambda <= 1239.977 / Eg) flux += power * lambda * 5.035e15;
    }
    return flux * 1.602e-19 * 0.1; // A/m2 to mA/cm2
}

} // namespace

// The cell of `definition` run with the action list in a fresh home: its exit status, with what it
// printed in `out`.
int RunCell(const ProgramHome& home, const std::string& definition, std::string& out) {
    WriteFile(home / "cell.def", definition);
    WriteFile(home / "light.act", kAction);
    return RunProgram({"--home", home.path.string(), home / "cell.def", home / "light.act"}, &out);
}

TEST(MainJob, EveryPhotonAboveTheGapOfACollectingCellIsTheShortCircuitCurrentAndAFailedStageIsReported) {
    const double expected = PhotonCurrentAboveGap(1.5);
    EXPECT_NEAR(expected, 28.97, 0.2); // the public table's integral above 1.50 eV
    std::string out;
    // A wafer-thick base (200 µm) reaches equilibrium on the default numerical settings too.
    for (const char* base : {"5e-6", "200e-6"}) {
        SCOPED_TRACE(base);
        ProgramHome home;
        ErrorMessageMode = 0;
        ASSERT_EQ(RunCell(home, CollectingCell("", base), out), 0) << out;
        const DataListElement* e = pointer_naar_huidige();
        ASSERT_NE(e, nullptr);
        ASSERT_TRUE(e->parameters.JscValid);
        EXPECT_NEAR(e->parameters.Jsc / expected, 1.0, 0.01);
    }

    // One outer pass cannot reach equilibrium: a non-zero exit status, the reason, and no result.
    ProgramHome home;
    ErrorMessageMode = 2;
    ClearReportedMessages();
    EXPECT_NE(RunCell(home, CollectingCell("maxiter : 1\n"), out), 0);
    std::string all;
    bool reported = false;
    for (const auto& m : ReportedMessages()) {
        reported = reported || m.title == "Calculating equilibrium...";
        all += m.title + " | " + m.text + "\n";
    }
    EXPECT_TRUE(reported) << all;
    EXPECT_FALSE(fs::exists(home.path / "results/cell.iv"));
}
