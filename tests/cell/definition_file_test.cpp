// The definition file: reading of the present and the old forms, the writers, and the reader's
// behaviour on bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cell/definition_file.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace fs = std::filesystem;
using namespace tervo;

namespace {

const fs::path kSource = TERVO_SOURCE_DIR;

struct TempDir {
    fs::path path;
    TempDir() {
        path = fs::temp_directory_path() / ("tervo_def_" + std::to_string(::getpid()) + "_" +
                                            std::to_string(reinterpret_cast<std::uintptr_t>(this)));
        fs::create_directories(path);
    }
    ~TempDir() { fs::remove_all(path); }
    std::string Write(const std::string& name, const std::string& text) const {
        const fs::path p = path / name;
        std::ofstream(p, std::ios::binary) << text;
        return p.string();
    }
};

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Messages reported while running f.
template <typename F>
std::vector<ReportedMessage> Reported(F f) {
    ErrorMessageMode = 2; // to the log, never to the screen
    const size_t before = ReportedMessages().size();
    f();
    std::vector<ReportedMessage> out(ReportedMessages().begin() + static_cast<long>(before),
                                     ReportedMessages().end());
    return out;
}

int Read(const std::string& path, InputParameters& p, DefinitionWorkingSettings& s) {
    return lees_structuurfile(path, p, s);
}

std::string WriteToString(const InputParameters& p, const DefinitionWorkingSettings& s, DefinitionWriter w,
                          const TempDir& dir, const std::string& name) {
    const std::string path = (dir.path / name).string();
    TextFile f = OpenFile(path, FileMode::Write);
    EXPECT_TRUE(f.IsOpen());
    EXPECT_EQ(WriteDefinitionFile(f, p, s, "TERVO 3.2.01 test banner", w), 0);
    CloseFile(f);
    return path;
}

// Relative comparison that treats two zeros as equal.
bool Near(double a, double b, double rel) {
    if (a == b) return true;
    return std::fabs(a - b) <= rel * std::max(std::fabs(a), std::fabs(b));
}

#define EXPECT_NEAR_REL(a, b, rel, what)                                                                     \
    EXPECT_TRUE(Near((a), (b), (rel))) << what << ": " << (a) << " vs " << (b)

void ExpectSameProfile(const Profile& a, const Profile& b, double rel, const std::string& what) {
    EXPECT_EQ(a.law, b.law) << what;
    EXPECT_EQ(a.dependence, b.dependence) << what;
    EXPECT_NEAR_REL(a.pureA, b.pureA, rel, what + " pureA");
    EXPECT_NEAR_REL(a.pureB, b.pureB, rel, what + " pureB");
    EXPECT_NEAR_REL(a.lawPar1, b.lawPar1, rel, what + " lawPar1");
    EXPECT_NEAR_REL(a.lawPar2, b.lawPar2, rel, what + " lawPar2");
    EXPECT_NEAR_REL(a.lawPar3, b.lawPar3, rel, what + " lawPar3");
    EXPECT_NEAR_REL(a.leftValue, b.leftValue, rel, what + " leftValue");
    EXPECT_NEAR_REL(a.rightValue, b.rightValue, rel, what + " rightValue");
    EXPECT_EQ(a.unitPar1, b.unitPar1) << what;
    EXPECT_EQ(a.unitPar2, b.unitPar2) << what;
    EXPECT_EQ(a.gradingFile, b.gradingFile) << what;
}

void ExpectSameContact(const ContactParameters& a, const ContactParameters& b, double rel,
                       const std::string& w) {
    EXPECT_EQ(a.flatband, b.flatband) << w;
    EXPECT_EQ(a.recalculate, b.recalculate) << w;
    if (a.flatband == 0) {
        EXPECT_NEAR_REL(a.Fi_m, b.Fi_m, 5e-3, w + " Fi_m");
    }
    EXPECT_NEAR_REL(a.Sn, b.Sn, rel, w + " Sn");
    EXPECT_NEAR_REL(a.Sp, b.Sp, rel, w + " Sp");
    EXPECT_EQ(a.opticalFilter, b.opticalFilter) << w;
    EXPECT_EQ(a.wavelengthIndependent, b.wavelengthIndependent) << w;
    EXPECT_EQ(a.transmission, b.transmission) << w;
    EXPECT_NEAR_REL(a.filterValue, b.filterValue, rel, w + " filter value");
    EXPECT_EQ(a.filterFile, b.filterFile) << w;
    EXPECT_EQ(a.tunnelling, b.tunnelling) << w;
    EXPECT_NEAR_REL(a.relHoleMass, b.relHoleMass, rel, w + " hole mass");
    EXPECT_NEAR_REL(a.relElectronMass, b.relElectronMass, rel, w + " electron mass");
}

// Every field that the file holds, compared at the given relative precision.
void ExpectSameProblem(const InputParameters& a, const InputParameters& b, double rel) {
    const CellDefinition& ca = a.cellParas;
    const CellDefinition& cb = b.cellParas;
    const ConvergenceParameters& va = a.convergence;
    const ConvergenceParameters& vb = b.convergence;
    EXPECT_NEAR_REL(va.clamp_psi, vb.clamp_psi, rel, "clamp_psi");
    EXPECT_NEAR_REL(va.clamp_n, vb.clamp_n, rel, "clamp_n");
    EXPECT_NEAR_REL(va.clamp_p, vb.clamp_p, rel, "clamp_p");
    EXPECT_NEAR_REL(va.termination_psi, vb.termination_psi, rel, "termination_psi");
    EXPECT_NEAR_REL(va.termination_Fn, vb.termination_Fn, rel, "termination_Fn");
    EXPECT_NEAR_REL(va.termination_Fp, vb.termination_Fp, rel, "termination_Fp");
    EXPECT_EQ(va.maxiter, vb.maxiter);
    EXPECT_EQ(va.maxiter_psi, vb.maxiter_psi);
    EXPECT_EQ(va.defectdiscretisations, vb.defectdiscretisations);
    EXPECT_NEAR_REL(va.widthtail, vb.widthtail, rel, "widthtail");
    EXPECT_NEAR_REL(va.widthgauss, vb.widthgauss, rel, "widthgauss");
    EXPECT_EQ(va.includeChargeInDefects, vb.includeChargeInDefects);
    EXPECT_EQ(va.Tunnelintraband_allowed, vb.Tunnelintraband_allowed);
    EXPECT_EQ(va.Tunnelcontact_allowed, vb.Tunnelcontact_allowed);
    EXPECT_EQ(va.Tunneliface_allowed, vb.Tunneliface_allowed);

    ASSERT_EQ(ca.numberOfLayers, cb.numberOfLayers);
    ExpectSameContact(ca.leftContact, cb.leftContact, rel, "left contact");
    ExpectSameContact(ca.rightContact, cb.rightContact, rel, "right contact");
    EXPECT_EQ(ca.voltageAppliedTo, cb.voltageAppliedTo);
    EXPECT_EQ(ca.referenceSystem, cb.referenceSystem);
    EXPECT_EQ(ca.signV, cb.signV);
    EXPECT_EQ(ca.signJ, cb.signJ);
    for (int i = 0; i < ca.numberOfLayers; ++i) {
        const LayerParameters& la = ca.layer[static_cast<size_t>(i)];
        const LayerParameters& lb = cb.layer[static_cast<size_t>(i)];
        const std::string w = "layer " + std::to_string(i) + " ";
        EXPECT_EQ(la.name, lb.name) << w;
        EXPECT_EQ(la.compositionType, lb.compositionType) << w;
        EXPECT_NEAR_REL(la.material.d, lb.material.d, rel, w + "d");
        ExpectSameProfile(la.composition, lb.composition, rel, w + "composition");
        const auto pa = MaterialProfiles(la.material);
        const auto pb = MaterialProfiles(lb.material);
        for (size_t k = 0; k < pa.size(); ++k)
            ExpectSameProfile(*pa[k], *pb[k], rel, w + "profile id " + std::to_string(pa[k]->variableId));
        EXPECT_EQ(la.material.tunnelling, lb.material.tunnelling) << w;
        EXPECT_NEAR_REL(la.material.A_pureA, lb.material.A_pureA, rel, w + "A");
        EXPECT_NEAR_REL(la.material.B_pureA, lb.material.B_pureA, rel, w + "B");
        EXPECT_NEAR_REL(la.material.A_pureB, lb.material.A_pureB, rel, w + "A pure B");
        EXPECT_NEAR_REL(la.material.B_pureB, lb.material.B_pureB, rel, w + "B pure B");
        EXPECT_EQ(la.material.absorptionA, lb.material.absorptionA) << w;
        EXPECT_EQ(la.material.absorptionB, lb.material.absorptionB) << w;
        EXPECT_EQ(la.material.absorptionFileA, lb.material.absorptionFileA) << w;
        EXPECT_EQ(la.material.absorptionFileB, lb.material.absorptionFileB) << w;
        ASSERT_EQ(la.srhteller, lb.srhteller) << w;
        for (int d = 0; d < la.srhteller; ++d) {
            const int n = la.srh[static_cast<size_t>(d)][0].numberOfLevels;
            ASSERT_EQ(n, lb.srh[static_cast<size_t>(d)][0].numberOfLevels);
            for (int l = 0; l < n; ++l) {
                const BulkRecombinationParameters& x = la.srh[static_cast<size_t>(d)][static_cast<size_t>(l)];
                const BulkRecombinationParameters& y = lb.srh[static_cast<size_t>(d)][static_cast<size_t>(l)];
                const std::string lw =
                    w + "defect " + std::to_string(d) + " level " + std::to_string(l) + " ";
                EXPECT_EQ(x.type, y.type) << lw;
                EXPECT_EQ(x.aard, y.aard) << lw;
                EXPECT_NEAR_REL(x.sigma_n, y.sigma_n, rel, lw + "sigma_n");
                EXPECT_NEAR_REL(x.sigma_p, y.sigma_p, rel, lw + "sigma_p");
                EXPECT_NEAR(x.energy.Et, y.energy.Et, 5e-4) << lw;
                EXPECT_EQ(x.energy.type, y.energy.type) << lw;
                EXPECT_EQ(x.energy.reference, y.energy.reference) << lw;
                EXPECT_NEAR(x.energy.Ekar, y.energy.Ekar, 5e-5) << lw;
                EXPECT_EQ(x.energy.correlated, y.energy.correlated) << lw;
                EXPECT_EQ(x.energy.degeneracyOne, y.energy.degeneracyOne) << lw;
                EXPECT_NEAR_REL(x.energy.peakToTotal, y.energy.peakToTotal, 1e-3, lw + "peak-to-total");
                ExpectSameProfile(x.Nt, y.Nt, rel, lw + "Nt");
                for (int e = 0; e < 2; ++e) {
                    const OpticalCaptureProperties& oa = e ? x.optCaptElectrons : x.optCaptHoles;
                    const OpticalCaptureProperties& ob = e ? y.optCaptElectrons : y.optCaptHoles;
                    EXPECT_EQ(oa.fromFile, ob.fromFile) << lw;
                    EXPECT_EQ(oa.fileName, ob.fileName) << lw;
                    EXPECT_EQ(oa.fromModel, ob.fromModel) << lw;
                    EXPECT_NEAR_REL(oa.n, ob.n, 1e-6, lw + "n");
                    EXPECT_NEAR_REL(oa.Emax, ob.Emax, 1e-6, lw + "Emax");
                }
            }
        }
        for (int k = 0; k < MAX_META; ++k) {
            const MetaStableDefectParameters& ma = la.meta[static_cast<size_t>(k)];
            const MetaStableDefectParameters& mb = lb.meta[static_cast<size_t>(k)];
            EXPECT_EQ(ma.allowmeta, mb.allowmeta) << w;
            if (!ma.allowmeta) continue;
            ExpectSameProfile(ma.Nt, mb.Nt, 2e-3, w + "meta Nt");
            EXPECT_EQ(ma.DonorDefect, mb.DonorDefect);
            EXPECT_EQ(ma.AcceptorDefect, mb.AcceptorDefect);
            EXPECT_EQ(ma.userDefined, mb.userDefined);
            EXPECT_NEAR_REL(ma.sigma_don_p, mb.sigma_don_p, rel, w + "sigma_don_p");
            EXPECT_NEAR(ma.Eact_TR, mb.Eact_TR, 5e-4);
        }
    }
    for (int i = 0; i + 1 < ca.numberOfLayers; ++i) {
        const InterfaceParameters& fa = ca.interface[static_cast<size_t>(i)];
        const InterfaceParameters& fb = cb.interface[static_cast<size_t>(i)];
        const std::string w = "interface " + std::to_string(i) + " ";
        EXPECT_EQ(fa.name, fb.name) << w;
        EXPECT_EQ(fa.intrabandTunnelling, fb.intrabandTunnelling) << w;
        EXPECT_NEAR(fa.relElectronMass, fb.relElectronMass, 5e-3) << w;
        ASSERT_EQ(fa.numberOfDefects, fb.numberOfDefects) << w;
        for (int d = 0; d < fa.numberOfDefects; ++d) {
            const InterfaceRecombinationParameters& x = fa.defect[static_cast<size_t>(d)];
            const InterfaceRecombinationParameters& y = fb.defect[static_cast<size_t>(d)];
            EXPECT_EQ(x.type, y.type) << w;
            EXPECT_NEAR_REL(x.sigma_nleft, y.sigma_nleft, rel, w + "sigma_nleft");
            EXPECT_NEAR_REL(x.sigma_pright, y.sigma_pright, rel, w + "sigma_pright");
            EXPECT_NEAR_REL(x.N, y.N, rel, w + "N");
            EXPECT_NEAR_REL(x.Ntotal, y.Ntotal, 1e-2, w + "N total");
            EXPECT_EQ(x.energy.type, y.energy.type) << w;
            EXPECT_EQ(x.energy.reference, y.energy.reference) << w;
            EXPECT_NEAR(x.energy.Et, y.energy.Et, 5e-3) << w;
            EXPECT_EQ(x.tunnelling, y.tunnelling) << w;
        }
    }
}

// The part of a written file behind its "last saved" line.
std::string WithoutSavedLine(const std::string& text) {
    std::string out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        if (line.find("last saved by TERVO") == std::string::npos) out += line + "\n";
    return out;
}

std::vector<std::string> DefinitionFilesToCheck() {
    std::vector<std::string> files;
    for (const fs::path& dir :
         {kSource / "home" / "def", kSource / "tests" / "cell" / "data", kSource / "examples"})
        if (fs::exists(dir))
            for (const auto& e : fs::recursive_directory_iterator(dir))
                if (e.path().extension() == ".def") files.push_back(e.path().string());
    return files;
}

} // namespace

// Every shipped and test definition: read, write, read again gives the same records to the digits of
// the formats; a second write gives the same bytes but for the date line; both writers agree.
TEST(DefinitionFile, RoundTripOfEveryShippedFile) {
    const auto files = DefinitionFilesToCheck();
    ASSERT_GE(files.size(), 2u);
    for (const std::string& path : files) {
        SCOPED_TRACE(path);
        TempDir dir;
        InputParameters first, second, third;
        DefinitionWorkingSettings s1, s2, s3;
        ASSERT_EQ(Read(path, first, s1), 1);
        for (DefinitionWriter writer : {DefinitionWriter::Compact, DefinitionWriter::Interactive}) {
            const std::string a = WriteToString(first, s1, writer, dir, "a.def");
            ASSERT_EQ(Read(a, second, s2), 1);
            ExpectSameProblem(first, second, 2e-3);
            const std::string b = WriteToString(second, s2, writer, dir, "b.def");
            ASSERT_EQ(Read(b, third, s3), 1);
            ExpectSameProblem(second, third, 0);
            EXPECT_EQ(WithoutSavedLine(Slurp(a)), WithoutSavedLine(Slurp(b)));
            EXPECT_EQ(s2.side, s3.side);
            EXPECT_EQ(s2.Rfront, s3.Rfront);
            EXPECT_EQ(s2.mesh.recalculateMesh, s3.mesh.recalculateMesh);
            EXPECT_EQ(s2.ms.layer, s3.ms.layer);
        }
    }
}

TEST(DefinitionFile, OldFormsReadIntoTheExpectedRecords) {
    InputParameters p;
    DefinitionWorkingSettings s;
    const auto msgs =
        Reported([&] { ASSERT_EQ(Read((kSource / "tests/cell/data/old_forms.def").string(), p, s), 1); });
    EXPECT_TRUE(msgs.empty());
    const CellDefinition& c = p.cellParas;
    ASSERT_EQ(c.numberOfLayers, 2);
    // No convergence section: the defaults stay.
    EXPECT_EQ(p.convergence.maxiter, 250);
    EXPECT_DOUBLE_EQ(p.convergence.clamp_psi, 0.5);
    // "left contact" with a Fi_m line and no flatband line: a fixed work function.
    EXPECT_EQ(c.leftContact.flatband, 0);
    EXPECT_DOUBLE_EQ(c.leftContact.Fi_m, 4.80);
    EXPECT_DOUBLE_EQ(c.leftContact.Sn, 1e5);
    EXPECT_DOUBLE_EQ(c.leftContact.Sp, 1e3);
    // "right contact" without Fi_m: flatband.
    EXPECT_EQ(c.rightContact.flatband, 1);
    EXPECT_DOUBLE_EQ(c.rightContact.Sp, 1e5);

    const LayerParameters& a = c.layer[0];
    EXPECT_EQ(a.name, "absorber");
    EXPECT_DOUBLE_EQ(a.material.d, 2e-6);
    // "v_th :" sets both velocities; one-number lines are uniform profiles.
    EXPECT_DOUBLE_EQ(a.material.v_th_n.leftValue, 2e5);
    EXPECT_DOUBLE_EQ(a.material.v_th_p.rightValue, 2e5);
    EXPECT_EQ(a.material.v_th_p.variableId, VAR_VTHP);
    EXPECT_EQ(a.material.Eg.law, LAW_UNIFORM);
    EXPECT_EQ(a.material.Eg.dependence, DEP_UNIFORM);
    EXPECT_DOUBLE_EQ(a.material.Eg.pureB, 1.15);
    EXPECT_DOUBLE_EQ(a.material.Na.leftValue, 2e22);
    EXPECT_DOUBLE_EQ(a.material.Eg.lawPar2, 1.0);
    // The cut-off wavelength of the absorption follows Eg.
    EXPECT_NEAR(a.material.absorption.pureA, 1239.977 / 1.15, 1e-9);
    // "absorptionmodel :" gives one model for both pure materials.
    EXPECT_EQ(a.material.absorptionA, 0);
    EXPECT_EQ(a.material.absorptionB, 0);
    EXPECT_DOUBLE_EQ(a.material.A_pureA, 2e7);
    EXPECT_DOUBLE_EQ(a.material.A_pureB, 2e7);
    EXPECT_EQ(a.compositionType, 0);

    ASSERT_EQ(a.srhteller, 2);
    // First defect: acceptor, homogenous old description with a single density; "Ecor" without the
    // correlated flag; no reference line means above EV.
    const BulkRecombinationParameters& d0 = a.srh[0][0];
    EXPECT_EQ(d0.type, DEFECT_ACCEPTOR);
    EXPECT_EQ(d0.aard, 3);
    EXPECT_EQ(d0.energy.reference, 0);
    EXPECT_DOUBLE_EQ(d0.energy.correlationEnergy, 0.05);
    EXPECT_EQ(d0.energy.correlated, 0);
    EXPECT_DOUBLE_EQ(d0.sigma_n, 1e-19);
    EXPECT_DOUBLE_EQ(d0.sigma_p, 2e-19);
    EXPECT_DOUBLE_EQ(d0.energy.Et, 0.60);
    EXPECT_EQ(d0.Nt.law, LAW_UNIFORM);
    EXPECT_EQ(d0.Nt.dependence, DEP_UNIFORM);
    EXPECT_DOUBLE_EQ(d0.Nt.leftValue, 1e20);
    EXPECT_DOUBLE_EQ(d0.Nt.rightValue, 1e20);
    // Second defect: a valence-band tail with an exponential profile from 1e21 to 1e19 (peak
    // densities per eV): the Nt profile holds totals, the peak divided by 1/Ekar.
    const BulkRecombinationParameters& d1 = a.srh[1][0];
    EXPECT_EQ(d1.type, DEFECT_DONOR);
    EXPECT_EQ(d1.aard, 4);
    EXPECT_EQ(d1.energy.type, EDIST_VBTAIL);
    EXPECT_NEAR(d1.energy.peakToTotal, 1 / 0.05, 1e-9);
    EXPECT_EQ(d1.Nt.law, LAW_EXPONENTIAL);
    EXPECT_EQ(d1.Nt.dependence, DEP_POSITION);
    EXPECT_NEAR(d1.Nt.leftValue, 1e21 * 0.05, 1e21 * 0.05 * 1e-12);
    EXPECT_NEAR(d1.Nt.rightValue, 1e19 * 0.05, 1e19 * 0.05 * 1e-12);
    EXPECT_DOUBLE_EQ(d1.sigma_n, 3e-20);

    // Interface defect without a reference line: above EV left (7).
    ASSERT_EQ(c.interface[0].numberOfDefects, 1);
    const InterfaceRecombinationParameters& f = c.interface[0].defect[0];
    EXPECT_EQ(f.energy.reference, 7);
    EXPECT_DOUBLE_EQ(f.N, 1e15);
    EXPECT_DOUBLE_EQ(f.Ntotal, 1e15);

    const LayerParameters& b = c.layer[1];
    EXPECT_EQ(b.name, "buffer");
    EXPECT_EQ(b.material.absorptionA, 1);
    EXPECT_EQ(b.material.absorptionB, 1);
    EXPECT_EQ(b.material.absorptionFileA, "cds.abs");
    EXPECT_EQ(b.material.absorptionFileB, "cds.abs");
    EXPECT_EQ(b.material.A_pureA, 0); // a file model clears the coefficients
    EXPECT_DOUBLE_EQ(b.material.Nd.leftValue, 1e23);
}

TEST(DefinitionFile, ProfileLinesByTheirCountOfNumbers) {
    Profile p;
    p.variableId = VAR_NC;
    InputLineToProfile("Nc : 2.5e24 [/m^3]", p);
    EXPECT_EQ(p.law, LAW_UNIFORM);
    EXPECT_EQ(p.dependence, DEP_UNIFORM);
    EXPECT_DOUBLE_EQ(p.pureB, 2.5e24);
    EXPECT_DOUBLE_EQ(p.rightValue, 2.5e24);
    EXPECT_EQ(p.variableId, VAR_NC);

    InputLineToProfile("chi :\t4.1\t4.3\t0.2\t0.7\t4.1\t4.3\t2\t[eV]", p); // seven: lawPar3 = lawPar2
    EXPECT_EQ(p.law, LAW_PARABOLIC);
    EXPECT_EQ(p.dependence, DEP_COMPOSITION);
    EXPECT_DOUBLE_EQ(p.lawPar2, 0.7);
    EXPECT_DOUBLE_EQ(p.lawPar3, 0.7);
    EXPECT_DOUBLE_EQ(p.rightValue, 4.3);
    EXPECT_EQ(p.unitPar1, 1); // parabolic: both parameters carry the unit
    EXPECT_EQ(p.unitPar2, 1);

    InputLineToProfile("chi :\t4.1\t4.3\t0.2\t0.7\t0.9\t4.1\t4.3\t4\t[eV]", p); // eight
    EXPECT_EQ(p.law, LAW_EXPONENTIAL);
    EXPECT_DOUBLE_EQ(p.lawPar3, 0.9);
    EXPECT_EQ(p.unitPar1, 1);
    EXPECT_EQ(p.unitPar2, 0);

    InputLineToProfile("Nd(x) :\t1e22\t1e23\t1\t2\t3\t1e22\t1e23\t 1\t 1\t[/m^3]", p); // nine
    EXPECT_EQ(p.law, LAW_LINEAR);
    EXPECT_EQ(p.dependence, DEP_POSITION);

    // A -2 in one of the last three places reads as absent: eight numbers.
    InputLineToProfile("Nd(x) :\t1e22\t1e23\t1\t2\t3\t1e22\t1e23\t 1\t -2\t[/m^3]", p);
    EXPECT_EQ(p.dependence, DEP_COMPOSITION);

    // Law 12 with nine numbers: the grading file stands behind them.
    SetProjectDir("/home/h");
    InputLineToProfile("composition grading :\t0\t1\t0\t0\t0\t0\t1\t12\t 1\tgrad y.grd\t[-]", p);
    EXPECT_EQ(p.law, LAW_FROM_FILE);
    EXPECT_EQ(p.gradingFile, "/home/h/grading/grad y.grd");
}

TEST(DefinitionFile, DefectTypesAndLevelTypes) {
    TempDir dir;
    const std::string head = "layer\n\nname : x\nd : 1e-6\n\nsrhrecombination\n\n";
    const std::string tail = "\nfront contact\n\nSn : 1e5\n\nworking point\n\nilluminated from : left\n";
    InputParameters p;
    DefinitionWorkingSettings s;
    ASSERT_EQ(
        Read(dir.Write("a.def", head + "type : doubledonor ( 1 level(s) )\nsigma_n : 1e-19\n" + tail), p, s),
        1);
    EXPECT_EQ(p.cellParas.layer[0].srh[0][0].type, DEFECT_DOUBLEDONOR);
    EXPECT_EQ(s.side, 0);

    ASSERT_EQ(
        Read(dir.Write("b.def", head +
                                    "type : custom multilevel ( 3 level(s) )\nleveltype : +/0\t0/-\t-/2-\n"
                                    "sigma_n : 1e-19\t2e-19\t3e-19\t[m^2]\nEt : 0.1\t0.2\t0.3\t[eV]\n" +
                                    tail),
             p, s),
        1);
    const DefectLevels& d = p.cellParas.layer[0].srh[0];
    EXPECT_EQ(d[0].numberOfLevels, 3);
    EXPECT_EQ(d[0].aard, 4);
    EXPECT_EQ(d[1].aard, 3);
    EXPECT_EQ(d[2].aard, 2);
    EXPECT_DOUBLE_EQ(d[2].sigma_n, 3e-19);
    EXPECT_DOUBLE_EQ(d[1].energy.Et, 0.2);

    // Any line of a layer that begins with a lower case d is its thickness.
    ASSERT_EQ(Read(dir.Write("c.def", "layer\n\nname : x\ndikte 3.5e-7\n" + tail), p, s), 1);
    EXPECT_DOUBLE_EQ(p.cellParas.layer[0].material.d, 3.5e-7);
}

TEST(DefinitionFile, WriterFormats) {
    TempDir dir;
    InputParameters p;
    DefinitionWorkingSettings s;
    ASSERT_EQ(Read((kSource / "tests/cell/data/old_forms.def").string(), p, s), 1);
    const std::string text = Slurp(WriteToString(p, s, DefinitionWriter::Interactive, dir, "w.def"));
    EXPECT_EQ(text.rfind("> TERVO 3.2.01 test banner Problem definition file\n> last saved by TERVO: \t", 0),
              0u);
    EXPECT_NE(text.find("\nclamp_psi :  5.00e-01 units kT\n"), std::string::npos);
    EXPECT_NE(text.find("\nmaxiter :   250\n"), std::string::npos);
    EXPECT_NE(
        text.find("\nback contact\n\nflatband : 0 (1: flatband contact imposed; 0: fixed Phi_m value)\n"),
        std::string::npos);
    EXPECT_NE(text.find("\nFi_m :   4.8000 [eV]\n"), std::string::npos);
    EXPECT_NE(text.find("\nSn :  1.000e+05 [m/s]\n"), std::string::npos);
    EXPECT_NE(text.find("\nd : 2.000e-06 [m]\n"), std::string::npos);
    EXPECT_NE(text.find("\nEg :\t  1.150000\t  1.150000\t  1.150000\t  1.000000\t  1.000000\t  1.150000\t"
                        "  1.150000\t 0\t 2\t[eV]\n"),
              std::string::npos);
    EXPECT_NE(text.find("\ntype : acceptor ( 1 level(s) )\n"), std::string::npos);
    EXPECT_NE(text.find("\nsigma_p : 2.000e-19\t[m^2]\n"), std::string::npos);
    EXPECT_NE(text.find("\nEt :   0.600\t[eV]\n"), std::string::npos);
    EXPECT_NE(text.find("Reference for defect energy :  7 ; 3 = above highest EV"), std::string::npos);
    // The compact writer puts the tunnelling line and the masses behind the thickness.
    const std::string compact = Slurp(WriteToString(p, s, DefinitionWriter::Compact, dir, "c.def"));
    EXPECT_NE(compact.find("\nd : 2.000e-06 [m]\nTunneling in layer: 0\nRelative electron mass :"),
              std::string::npos);
    EXPECT_EQ(compact.find("TunnelBtoB_allowed"), std::string::npos);
    // The last line has no line end.
    EXPECT_EQ(text.back() != '\n', true);
    EXPECT_NE(text.find("\nworking point\n\nilluminated from : right\ninternal Rfront :   0.00000000\n"
                        "internal Tfront :  1.0000e+00"),
              std::string::npos);
}

TEST(DefinitionFile, RemarksSurviveAndDoNotGrow) {
    TempDir dir;
    InputParameters p, q;
    DefinitionWorkingSettings s;
    ASSERT_EQ(Read((kSource / "tests/cell/data/old_forms.def").string(), p, s), 1);
    ASSERT_EQ(problemRemarks.size(), 2u);
    EXPECT_EQ(problemRemarks[0],
              " An old definition: no convergence section, contacts named left and right,");
    const std::string a = Slurp(WriteToString(p, s, DefinitionWriter::Compact, dir, "a.def"));
    EXPECT_NE(a.find("\n> \n> An old definition: no convergence section"), std::string::npos);
    ASSERT_EQ(Read((dir.path / "a.def").string(), q, s), 1);
    const std::string b = Slurp(WriteToString(q, s, DefinitionWriter::Compact, dir, "b.def"));
    EXPECT_EQ(WithoutSavedLine(a), WithoutSavedLine(b));
}

// ---- bad input -----------------------------------------------------------------------------

TEST(DefinitionFileBadInput, MissingEmptyTruncatedAndIncompleteFiles) {
    TempDir dir;
    InputParameters p;
    DefinitionWorkingSettings s;
    auto msgs = Reported([&] { EXPECT_EQ(Read((dir.path / "none.def").string(), p, s), -1); });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].title, "Function lees_structuurfile(): Error occured during opening the def-file !");

    msgs = Reported([&] { EXPECT_EQ(Read(dir.Write("empty.def", ""), p, s), -1); });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].text, "The def-file is empty or incomplete.");

    // A shipped cell cut in the middle of a layer.
    const std::string whole = Slurp((kSource / "tests/cell/data/old_forms.def").string());
    msgs =
        Reported([&] { EXPECT_EQ(Read(dir.Write("cut.def", whole.substr(0, whole.size() / 2)), p, s), -1); });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].title, "Error whilst reading the def file (in ReadNonEmptyNonCommentLine()");
    EXPECT_EQ(msgs[0].text, "The def-file is empty or incomplete.");

    // A file that ends directly behind the head of the working point is incomplete ...
    const std::string body = "layer\n\nname : x\nd : 1e-6\n\nfront contact\n\nSn : 1e5\n\nworking point\n";
    msgs = Reported([&] { EXPECT_EQ(Read(dir.Write("wp0.def", body), p, s), -1); });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].text, "The def-file is empty or incomplete.");
    // ... one working point line completes it.
    msgs = Reported([&] { EXPECT_EQ(Read(dir.Write("wp1.def", body + "internal Rfront : 0.1"), p, s), 1); });
    EXPECT_TRUE(msgs.empty());
    EXPECT_DOUBLE_EQ(s.Rfront, 0.1);
    EXPECT_DOUBLE_EQ(s.Tfront, 0.9);
}

TEST(DefinitionFileBadInput, NoLayerBinaryAndCapacities) {
    TempDir dir;
    InputParameters p;
    DefinitionWorkingSettings s;
    // No layer at all: -1 without a message from the reader.
    auto msgs = Reported([&] {
        EXPECT_EQ(
            Read(dir.Write("nolayer.def", "back contact\n\nSn : 1\n\nfront contact\n\nSn : 2\nworking point\n"
                                          "illuminated from : left\n"),
                 p, s),
            -1);
    });
    EXPECT_TRUE(msgs.empty());

    // Binary garbage: refused, no crash.
    std::string binary;
    for (int i = 0; i < 4000; ++i) binary += static_cast<char>((i * 37 + 11) % 256);
    Reported([&] { EXPECT_EQ(Read(dir.Write("bin.def", binary), p, s), -1); });

    // Eight layers.
    std::string eight;
    for (int i = 0; i < 8; ++i) eight += "layer\n\nname : L" + std::to_string(i) + "\nd : 1e-7\n\n";
    eight += "front contact\n\nSn : 1\nworking point\nilluminated from : left\n";
    msgs = Reported([&] { EXPECT_EQ(Read(dir.Write("eight.def", eight), p, s), -1); });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_NE(msgs[0].text.find("eight.def, line 36: the file declares more than 7 layers"),
              std::string::npos)
        << msgs[0].text;

    // Eight defects in one layer.
    std::string defects = "layer\n\nname : x\nd : 1e-6\n\nsrhrecombination\n\ntype : neutral\n";
    for (int i = 0; i < 7; ++i) defects += "next\n\ntype : acceptor\n";
    defects += "\nfront contact\n\nSn : 1\nworking point\nilluminated from : left\n";
    msgs = Reported([&] { EXPECT_EQ(Read(dir.Write("defects.def", defects), p, s), -1); });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_NE(msgs[0].text.find("more than 7 defects"), std::string::npos) << msgs[0].text;
}

TEST(DefinitionFileBadInput, UnreadableNumbersAreReportedAndKeepTheValue) {
    TempDir dir;
    InputParameters p;
    DefinitionWorkingSettings s;
    const std::string text = "convergence\n\nclamp_psi : lots\nmaxiter : 99\n\nback contact\n\nSn : 1e999\n\n"
                             "layer\n\nname : x\nd : thick\n\nfront contact\n\nSn : 1e5\n\nworking point\n\n"
                             "illuminated from : left\n";
    const auto msgs = Reported([&] { EXPECT_EQ(Read(dir.Write("n.def", text), p, s), 1); });
    ASSERT_EQ(msgs.size(), 3u);
    EXPECT_NE(msgs[0].text.find("n.def, line 3: no number could be read in \"clamp_psi : lots\""),
              std::string::npos)
        << msgs[0].text;
    EXPECT_NE(msgs[1].text.find("line 8"), std::string::npos) << msgs[1].text;
    EXPECT_NE(msgs[2].text.find("line 13"), std::string::npos) << msgs[2].text;
    EXPECT_DOUBLE_EQ(p.convergence.clamp_psi, 0.5);
    EXPECT_EQ(p.convergence.maxiter, 99);
    EXPECT_EQ(p.convergence.maxiter_v, 99);
    EXPECT_DOUBLE_EQ(p.cellParas.leftContact.Sn, 1000);
    EXPECT_DOUBLE_EQ(p.cellParas.layer[0].material.d, 2e-6);
}

// The readers for batch use give the same cell and leave the session's remarks alone.
TEST(DefinitionFile, BatchReadersLeaveTheRemarksAlone) {
    ResetRemarks("session");
    problemRemarks.push_back(" kept");
    CellDefinition cell;
    ASSERT_EQ(ReadCeldefVariableFromDefFile((kSource / "examples/cells/graded_cigs.def").string(), cell), 1);
    ASSERT_EQ(problemRemarks.size(), 1u);
    EXPECT_EQ(problemRemarks[0], " kept");
    EXPECT_EQ(problemRemarksName, "session");
    EXPECT_EQ(cell.numberOfLayers, 2);
    EXPECT_EQ(cell.layer[0].composition.law, LAW_LINEAR);
    ShortCellDefinition s;
    ASSERT_EQ(ReadShortCeldefVariableFromDefFile((kSource / "examples/cells/graded_cigs.def").string(), s), 1);
    EXPECT_EQ(s.numberOfLayers, 2);
    EXPECT_EQ(s.layer[0].compositionLaw, LAW_LINEAR);
    EXPECT_EQ(s.layer[0].material[1].law, LAW_PARABOLIC); // Eg
    EXPECT_EQ(s.layer[0].srh[1][0].energyType, EDIST_CBTAIL);
    EXPECT_EQ(s.interface[0].defect[0].energyType, EDIST_UNIFORM);
    EXPECT_EQ(ReadShortCeldefVariableFromDefFile((kSource / "no such file.def").string(), s), -1);
}
