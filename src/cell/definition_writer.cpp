// The writers of a definition file: the full form of an interactive save and the compact form of
// scripts and the all-settings file, section by section in the order in which the reader takes them.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "cell/definition_reader.h"
#include "cell/grading.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"

namespace tervo {

using defread::BaseName;
using defread::IsBlankLine;
using defread::LevelCount;

namespace {

struct DefWriter {
    TextFile& file;
    bool compact;
    int status = 0;
    template <typename... Args>
    void F(std::string_view format, const Args&... args) {
        if (FmtFile(file, format, args...) < 0) status = -1;
    }
    void Line(std::string_view text) {
        if (WriteText(file, text) < 0) status = -1;
    }
    void ProfileLine(const Profile& p, const std::string& name, const std::string& unit, int exponent,
                     int width, int precision) {
        if (ProfileToOutputLine(file, p, name, unit, exponent, width, precision) < 0) status = -1;
    }
};

const char* DependenceName(const char* base, int dependence, char* buffer, size_t size) {
    const char* suffix = dependence == DEP_POSITION      ? "(x)"
                         : dependence == DEP_COMPOSITION ? "(y)"
                                                         : "(uniform)";
    std::snprintf(buffer, size, "%s%s", base, suffix);
    return buffer;
}

std::string DepName(const char* base, int dependence) {
    char buf[32];
    return DependenceName(base, dependence, buf, sizeof buf);
}

void WriteHead(DefWriter& w, const std::string& version) {
    w.Line(FmtStr("%s<%> %s%s", version, " Problem definition file") + "\n");
    const DateTime now = GetSystemDateTime();
    w.Line(FmtStr("%s<%> last saved by TERVO: \t%i[w2p0]-%i[w2p0]-%i[w4] at %i[w2p0]:%i[w2p0]:%i[w2p0]",
                  now.day, now.month, now.year, now.hours, now.minutes, now.seconds) +
           "\n");
    w.Line("> \n");
    // The remarks, without the two head lines of an earlier save; the empty head line counts as the
    // first of a run of empty remark lines.
    bool previousEmpty = true;
    for (size_t i = 0; i < problemRemarks.size(); ++i) {
        const std::string& remark = problemRemarks[i];
        if (i == 0 && Contains(remark, "TERVO") && Contains(remark, "Problem definition file")) continue;
        if (i <= 1 && Contains(remark, "last saved by TERVO")) continue;
        const bool empty = IsBlankLine(remark);
        if (empty && previousEmpty) continue;
        previousEmpty = empty;
        if (empty)
            w.Line("> \n");
        else if (remark[0] == ' ')
            w.Line(FmtStr("%s<%>%s\n", remark));
        else
            w.Line(FmtStr("%s<%> %s\n", remark));
    }
}

void WriteConvergence(DefWriter& w, const ConvergenceParameters& c, const DefinitionWorkingSettings& s) {
    w.Line("convergence\n\n");
    w.F("clamp_psi : %f[w9p2e2] units kT\n", c.clamp_psi);
    w.F("clamp_n : %f[w9p2e2] units kT\n", c.clamp_n);
    w.F("clamp_p : %f[w9p2e2] units kT\n", c.clamp_p);
    w.F("termination_psi : %f[w9p2e2] units kT\n", c.termination_psi);
    w.F("termination_Fn : %f[w9p2e2] units kT\n", c.termination_Fn);
    w.F("termination_Fp : %f[w9p2e2] units kT\n", c.termination_Fp);
    w.F("termination_Meta_full : %f[w9p2e2] (rel.)\n", c.termination_Meta_full);
    w.F("maxmetaiter_full : %i[w5]\n", c.maxmetaiter_full);
    w.F("clamp_meta : %f[w9p2e2] (rel.)\n", c.clamp_meta);
    w.F("usemetaclamping : %i\n", c.usemetaclamping);
    w.F("maxiter : %i[w5]\n", c.maxiter);
    w.F("defectdiscretisations : %i[w5]\n", c.defectdiscretisations);
    w.F("widthtail : %f[w9p2e2]\n", c.widthtail);
    w.F("widthgauss : %f[w9p2e2]\n", c.widthgauss);
    if (!w.compact) {
        w.F("TunnelMassChoice : %i[w5]\n", c.TunnelMassChoice);
        w.F("TunnelBtoB_allowed : %i[w5]\n", c.TunnelBtoB_allowed);
        w.F("Tunnelcontact_allowed : %i[w5]\n", c.Tunnelcontact_allowed);
        w.F("Tunneliface_allowed : %i[w5]\n", c.Tunneliface_allowed);
        w.F("Tunnelintraband_allowed : %i[w5]\n", c.Tunnelintraband_allowed);
    }
    w.F("QE calculation mode: %i[w2] (0: cst. # of photons, 1: cst. incident power)\n", s.qeMode);
    w.F("number of photons : %f[w9p2e2]\n", s.numberOfPhotons);
    w.F("incident power : %f[w9p2e2]\n", s.incidentPower);
    w.F("recalculate mesh : %i[w2] (0: fixed mesh, 1: adaptive mesh)\n", s.mesh.recalculateMesh);
    w.F("maximum ratio between neighbouring points : %f[w9p2e2]\n", s.mesh.maximumRatio);
    w.F("minimum ratio between neighbouring points : %f[w9p2e2]\n", s.mesh.minimumRatio);
    w.F("generation limit : %f[w9p2e2] microA/cm2\n", s.mesh.generationLimit);
    w.F("recombination limit : %f[w9p2e2] microA/cm2\n", s.mesh.recombinationLimit);
    w.F("Mott-Schottky analysis epsilon of sheet # : %i[w2]\n", s.ms.layer + 1);
    w.F("Mott-Schottky analysis epsilon of sheet side : %i[w2]\t%s\n", s.ms.side,
        "(left side = -1; right side = +1)");
    w.F("Mott-Schottky analysis number of points : %i[w2]\t%s\n", s.ms.fitPoints,
        "(3 or 5 as of december 2008)");
    w.F("Mott-Schottky analysis polynomial order middle : %i[w2]\t%s\n", s.ms.orderMiddle,
        "(1 or 2 as of december 2008)");
    w.F("Mott-Schottky analysis polynomial order edges: %i[w2]\t%s\n", s.ms.orderEdges,
        "(1 or 2 as of december 2008)");
    w.F("Include charge in defects in the calculation of the flatband condition : %i[w2]\t%s\n",
        c.includeChargeInDefects, "(1=yes, 0=no)");
    w.Line("\n\n");
}

void WriteContact(DefWriter& w, const ContactParameters& c, bool back) {
    w.Line(back ? "back contact\n\n" : "front contact\n\n");
    w.F("flatband : %i[w1] (1: flatband contact imposed; 0: fixed Phi_m value)\n", c.flatband);
    w.F("recalculate : %i[w1] (1 = do or 0 = do not recalculate phi_m to set flatband in each batch step)\n",
        c.recalculate);
    if (c.flatband == 0) w.F(back ? "Fi_m : %f[w8p4] [eV]\n" : "Fi_m : %f[w5p2] [eV]\n", c.Fi_m);
    w.F(back ? "Sn : %f[w10p3e2] [m/s]\n" : "Sn : %f[w9p3e2] [m/s]\n", c.Sn);
    w.F(back ? "Sp : %f[w10p3e2] [m/s]\n" : "Sp : %f[w9p3e2] [m/s]\n", c.Sp);
    if (w.compact) {
        w.F("Tunneling to contact: %i\n", c.tunnelling);
        w.F("Relative electron mass : %f[w12p4e2]\n", c.relElectronMass);
        w.F("Relative hole mass : %f[w12p4e2]\n", c.relHoleMass);
    } else {
        w.F("Tunneling to contact: %i (0: no tunneling, 1: with tunneling)\n", c.tunnelling);
        w.F("Relative electron mass : %f[w9p2e2]\n", c.relElectronMass);
        w.F("Relative hole mass : %f[w9p2e2]\n\n", c.relHoleMass);
    }
    if (c.opticalFilter) {
        w.Line(c.transmission ? "optical filter : transmission\n" : "optical filter : reflection\n");
        w.F("wavelength independent: %i\n", c.wavelengthIndependent);
        if (c.wavelengthIndependent)
            w.F("filter value: %f[w14p8e2]\n", c.filterValue);
        else
            w.F("filterfile : %s\n", BaseName(c.filterFile));
    }
    if (back) w.Line("\n");
}

void WritePrintNumbers(DefWriter& w, const char* head, const double* values, int count, const char* format,
                       const char* tail) {
    std::string text = head;
    for (int i = 0; i < count; ++i) text += FmtStr(format, values[i]) + "\t";
    text += tail;
    w.Line(text);
}

void WriteOpticalCaptureGroup(DefWriter& w, const DefectLevels& d, int n, bool electrons) {
    const char* carrier = electrons ? "electrons" : "holes";
    auto props = [&](int l) -> const OpticalCaptureProperties& {
        return electrons ? d[static_cast<size_t>(l)].optCaptElectrons
                         : d[static_cast<size_t>(l)].optCaptHoles;
    };
    bool any = false;
    for (int l = 0; l < n; ++l) any = any || props(l).fromFile;
    if (!any) return;
    for (int l = 0; l < n; ++l) {
        const OpticalCaptureProperties& o = props(l);
        const bool withFile = o.fromFile && !o.fileName.empty();
        if (l == 0) {
            if (withFile)
                w.F("optical capture data (%s): %s\n", carrier, BaseName(o.fileName));
            else
                w.F("optical capture data [%s]: level 1, none\n", carrier);
        } else {
            if (withFile)
                w.F("optical capture data [%s]: level %i, %s\n", carrier, l + 1, BaseName(o.fileName));
            else
                w.F("optical capture data [%s]: level %i, none\n", carrier, l + 1);
        }
    }
    std::string flags = FmtStr("%s<optical capture of %s, data from model: ", carrier);
    for (int l = 0; l < n; ++l) flags += FmtStr("%s<%i\t", props(l).fromModel);
    w.Line(flags + "\n");
    double values[MAX_LEVELS];
    const std::pair<const char*, double OpticalCaptureProperties::*> fields[] = {
        {"n", &OpticalCaptureProperties::n},
        {"m*/m0", &OpticalCaptureProperties::mStar},
        {"Eeff/E0", &OpticalCaptureProperties::EeffE0},
        {"Emax (eV)", &OpticalCaptureProperties::Emax}};
    for (const auto& [name, member] : fields) {
        for (int l = 0; l < n; ++l) values[l] = props(l).*member;
        WritePrintNumbers(w, FmtStr("%s<optical capture of %s, %s: ", carrier, name).c_str(), values, n, "%f",
                          "\n");
    }
}

void WriteDefect(DefWriter& w, const DefectLevels& levels, bool first) {
    w.Line(first ? "srhrecombination\n" : "next\n");
    w.Line("\n");
    const int n = LevelCount(levels);
    BulkRecombinationParameters lv0 = levels[0];
    CopyNtProfile_to_TERVO27Data(lv0);
    const EDistribution& e = lv0.energy;
    const int type = std::clamp(lv0.type, 0, NUMBER_OF_DEFECT_TYPES - 1);
    const int etype = std::clamp(e.type, 0, 4);
    w.F("type : %s (%i[w2] level(s) )\n", defectTypeStringsSaveAndLoad[static_cast<size_t>(type)], n);
    w.F("energy distribution : %s\n", energyDistrTypeStringsSaveAndLoad[static_cast<size_t>(etype)]);
    w.F("Reference for defect energy : %i[w2] ; 0 = above EV (TERVO%<2.7); 1 = above Ei; 2 = below EC\n",
        e.reference);
    w.F("Ekar : %f[w7p4] [eV]\n", e.Ekar);
    if (e.correlated) w.F("Correlation energy : %f[w7p3] [eV]\n", e.correlationEnergy);
    if (e.degeneracyOne) w.Line("degeneracy factors equal one\n");
    w.ProfileLine(lv0.Nt, DepName("Nt", lv0.Nt.dependence), "[/m^3]", 1, 13, 6);
    const int prof = std::clamp(lv0.profile, 0, 2);
    w.F("profile : %s\n", spatialDistrTypeStringsSaveAndLoad[static_cast<size_t>(prof)]);
    w.F("Lkar : %f[w9p3e2] [m]\n", lv0.Lkar);
    if (etype == EDIST_SINGLE) {
        w.F("Nleft : %f[w9p3e2] [/m^3]\n", lv0.Nleft);
        w.F("Nright : %f[w9p3e2] [/m^3]\n", lv0.Nright);
    } else {
        w.F("Nleft : %f[w9p3e2] [/m^3 eV]\n", lv0.Nleft);
        w.F("Nright : %f[w9p3e2] [/m^3 eV]\n", lv0.Nright);
    }
    std::string types = "leveltype : ";
    for (int l = 0; l < n; ++l) {
        const int aard = std::clamp(levels[static_cast<size_t>(l)].aard, 0, NDEFLEVTYPE - 1);
        types += FmtStr("%s[]\t", deflevTypeStringsSaveAndLoad[static_cast<size_t>(aard)]);
    }
    w.Line(types + "\n");
    double values[MAX_LEVELS] = {};
    for (int l = 0; l < n; ++l) values[l] = levels[static_cast<size_t>(l)].sigma_n;
    WritePrintNumbers(w, "sigma_n : ", values, n, "%f[w9p3e2]", "[m^2]\n");
    for (int l = 0; l < n; ++l) values[l] = levels[static_cast<size_t>(l)].sigma_p;
    WritePrintNumbers(w, "sigma_p : ", values, n, "%f[w9p3e2]", "[m^2]\n");
    for (int l = 0; l < n; ++l) values[l] = levels[static_cast<size_t>(l)].energy.Et;
    WritePrintNumbers(w, "Et : ", values, n, "%f[w7p3]", "[eV]\n");
    WriteOpticalCaptureGroup(w, levels, n, true);
    WriteOpticalCaptureGroup(w, levels, n, false);
    w.Line("\n");
}

void WriteMeta(DefWriter& w, const MetaStableDefectParameters& m, int index) {
    w.F("Metastable properties: transition %i\n\n", index);
    w.ProfileLine(m.Nt, m.Nt.dependence == DEP_POSITION ? "Nt(x)" : "Nt(y)", "[1/m3]", 1, 10, 3);
    w.F("DonorDefect : %i[w2]\n", m.DonorDefect);
    w.F("AcceptorDefect : %i[w2]\n", m.AcceptorDefect);
    w.F("Donor charge state : %i[w2]\n", m.donorChargeState);
    w.F("Phonon frequency : %f[w9p3e2] [Hz]\n", m.phononFrequency);
    w.F("Metastability type : %i[w2]\n", m.metastabilityType);
    w.F("Electron process : %i[w2]\n", m.electronProcess);
    w.F("Hole process : %i[w2]\n", m.holeProcess);
    std::string flags = "UserDefined Activation Energies : ";
    for (int f : m.userDefined) flags += FmtStr("%s<%i\t", f);
    w.Line(flags + "\n");
    w.F("sigma_acc_n : %f[w9p3e2] [m^2]\n", m.sigma_acc_n);
    w.F("sigma_acc_p : %f[w9p3e2] [m^2]\n", m.sigma_acc_p);
    w.F("sigma_don_n : %f[w9p3e2] [m^2]\n", m.sigma_don_n);
    w.F("sigma_don_p : %f[w9p3e2] [m^2]\n", m.sigma_don_p);
    w.F("Eact_EE : %f[w7p3] [eV]\n", m.Eact_EE);
    w.F("Eact_HC : %f[w7p3] [eV]\n", m.Eact_HC);
    w.F("Eact_EC : %f[w7p3] [eV]\n", m.Eact_EC);
    w.F("Eact_HE : %f[w7p3] [eV]\n", m.Eact_HE);
    w.F("Eact_TR : %f[w7p3] [eV]\n", m.Eact_TR);
    w.F("Reference for transition energy : %i[w2] ; 0 = above EV (TERVO%<2.7); 1 = above Ei; 2 = below EC\n",
        m.reference);
    w.F("initialacceptorconfiguration :  %f[w9p2e2]\n", m.initialacceptorconfiguration);
    w.Line("\n");
}

void WriteLayer(DefWriter& w, const LayerParameters& L) {
    const MaterialParameters& m = L.material;
    w.Line("layer\n\n");
    w.F("name : %s\n", L.name);
    w.F("d : %f[w9p3e2] [m]\n", m.d);
    if (w.compact) {
        w.F("Tunneling in layer: %i\n", m.tunnelling);
        w.ProfileLine(m.relElectronMass, "Relative electron mass", "[-]", 1, 13, 6);
        w.ProfileLine(m.relHoleMass, "Relative hole mass", "[-]", 1, 13, 6);
    }
    w.ProfileLine(L.composition, "composition grading", "[-]", 0, 9, 5);
    if (L.composition.law == LAW_FROM_FILE) w.F("Grading file: %s\n", BaseName(L.composition.gradingFile));
    w.ProfileLine(m.v_th_n, "v_th_n", "[m/s]", 1, 10, 3);
    w.ProfileLine(m.v_th_p, "v_th_p", "[m/s]", 1, 10, 3);
    w.ProfileLine(m.eps, "eps", "[-]", 0, 13, 6);
    w.ProfileLine(m.chi, "chi", "[eV]", 0, 10, 6);
    w.ProfileLine(m.Eg, "Eg", "[eV]", 0, 10, 6);
    w.ProfileLine(m.Nc, "Nc", "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.Nv, "Nv", "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.mu_n, "mu_n", "[m^2/Vs]", 1, 13, 6);
    w.ProfileLine(m.mu_p, "mu_p", "[m^2/Vs]", 1, 13, 6);
    if (!w.compact) {
        w.F("Tunneling in layer: %i (0: no tunneling, 1: with tunneling)\n", m.tunnelling);
        w.ProfileLine(m.relElectronMass, "Relative electron mass", "[-]", 1, 13, 6);
        w.ProfileLine(m.relHoleMass, "Relative hole mass", "[-]", 1, 13, 6);
    }
    w.ProfileLine(m.K_rad, "K_rad", "[m^3/s]", 1, 13, 6);
    w.ProfileLine(m.c_n_auger, "c_n_auger", "[m^6/s]", 1, 13, 6);
    w.ProfileLine(m.c_p_auger, "c_p_auger", "[m^6/s]", 1, 13, 6);
    w.ProfileLine(m.Na, DepName("Na", m.Na.dependence), "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.Nd, DepName("Nd", m.Nd.dependence), "[/m^3]", 1, 13, 6);
    w.ProfileLine(m.absorption, "absorption grading", "[nm]", 0, 8, 2);
    if (m.absorptionA == 0) {
        w.Line("absorptionmodel pure A material (y=0) : coefficients A and B\n");
        w.F("A : %f[w9p3e2] [/(m*sqrt(eV))]\n", m.A_pureA);
        w.F("B : %f[w9p3e2] [sqrt(eV)/m]\n", m.B_pureA);
    } else {
        w.Line("absorptionmodel pure A material (y=0) : from file\n");
        w.F("absorptionfile pure A material (y=0) : %s\n", BaseName(m.absorptionFileA));
    }
    if (m.absorptionB == 0) {
        w.Line("absorption pure B material (y=1), model : coefficients A and B\n");
        w.F("pure B material (y=1), A : %f[w9p3e2] [/(m*sqrt(eV))]\n", m.A_pureB);
        w.F("pure B material (y=1), B : %f[w9p3e2] [sqrt(eV)/m]\n", m.B_pureB);
    } else {
        w.Line("absorption pure B material (y=1), model : from file\n");
        w.F("absorption pure B material (y=1), file : %s\n", BaseName(m.absorptionFileB));
    }
    w.Line("\n");
    for (int d = 0; d < L.srhteller && d < MAX_DEFECTS; ++d)
        WriteDefect(w, L.srh[static_cast<size_t>(d)], d == 0);
    for (int k = 0; k < MAX_META; ++k)
        if (L.meta[static_cast<size_t>(k)].allowmeta) WriteMeta(w, L.meta[static_cast<size_t>(k)], k);
}

void WriteInterface(DefWriter& w, const InterfaceParameters& f) {
    w.Line("interface properties\n\n");
    w.F("interfacename : %s\n", f.name);
    w.F("Intraband tunneling : %i (0: no tunneling, 1: with tunneling)\n", f.intrabandTunnelling);
    if (w.compact) {
        w.F("Relative electron mass : %f[w5p2]\n", f.relElectronMass);
        w.F("Relative hole mass : %f[w5p2]\n\n", f.relHoleMass);
    } else {
        w.F("Relative electron mass : %f[w9p2e2]\n", f.relElectronMass);
        w.F("Relative hole mass : %f[w9p2e2]\n\n", f.relHoleMass);
    }
    for (int i = 0; i < f.numberOfDefects && i < MAX_IFDEFECTS; ++i) {
        const InterfaceRecombinationParameters& d = f.defect[static_cast<size_t>(i)];
        w.Line(i == 0 ? "interface recombination\n" : "next\n");
        w.Line("\n");
        w.F("type : %s\n", defectTypeStringsSaveAndLoad[static_cast<size_t>(std::clamp(d.type, 0, 6))]);
        w.F("sigma_nleft : %f[w9p3e2] [m^2]\n", d.sigma_nleft);
        w.F("sigma_nright : %f[w9p3e2] [m^2]\n", d.sigma_nright);
        w.F("sigma_pleft : %f[w9p3e2] [m^2]\n", d.sigma_pleft);
        w.F("sigma_pright : %f[w9p3e2] [m^2]\n", d.sigma_pright);
        w.F("Tunneling to trap: %i (0: no tunneling, 1: with tunneling)\n", d.tunnelling);
        if (w.compact) {
            w.F("Relative electron mass : %f[w5p2]\n", d.relElectronMass);
            w.F("Relative hole mass : %f[w5p2]\n", d.relHoleMass);
        } else {
            w.F("Relative electron mass : %f[w9p2e2]\n", d.relElectronMass);
            w.F("Relative hole mass : %f[w9p2e2]\n", d.relHoleMass);
        }
        const int etype = std::clamp(d.energy.type, 0, 4);
        w.F("energy distribution : %s\n", energyDistrTypeStringsSaveAndLoad[static_cast<size_t>(etype)]);
        w.F("Reference for defect energy : %i[w2] ; %s\n", d.energy.reference,
            "3 = above highest EV; 4 = below lowest EC; 5 = above Ei left; 6 = above Ei right; 7 = above EV "
            "right "
            "(= TERVO%<2.7 reference)");
        w.F("Et : %f[w5p2] [eV]\n", d.energy.Et);
        w.F("Ekar : %f[w5p2] [eV]\n", d.energy.Ekar);
        w.F(etype == EDIST_SINGLE ? "N : %f[w9p3e2] [/m^2]\n" : "N : %f[w9p3e2] [/m^2.eV]\n", d.N);
        w.Line("\n");
    }
    if (f.numberOfDefects > 0) w.Line("\n");
}

void WriteWorkingPoint(DefWriter& w, const ConvergenceParameters& c, const CellDefinition& cell,
                       const DefinitionWorkingSettings& s) {
    w.Line("\nworking point\n\n");
    w.Line(s.side == 0 ? "illuminated from : left" : "illuminated from : right");
    w.Line(FmtStr("%s<\ninternal Rfront : %f[w12p8]", s.Rfront));
    w.Line(FmtStr("%s<\ninternal Tfront : %f[w11e2p4]", s.Tfront));
    if (s.RsPresent) {
        w.Line(FmtStr("%s<\nSeries resistance : %i[w2] (1: Rs enabled; 0: Rs disabled)", s.RsPresent));
        w.Line(FmtStr("%s<\nRs [Ohm.m2] : %f[w14p6e2]", s.Rs));
    }
    if (s.GshPresent) {
        w.Line(FmtStr("%s<\nShunt conductance : %i[w2] (1: Gsh enabled; 0: Gsh disabled)", s.GshPresent));
        w.Line(FmtStr("%s<\nGsh [S/m2] : %f[w14p6e2]", s.Gsh));
    }
    if (c.changeOfReferences || s.conventionsShown) {
        w.Line(FmtStr("%s<\nvoltage V applied to : %i[w2] (+1: right contact; -1: left contact)",
                      cell.voltageAppliedTo));
        w.Line(FmtStr("%s<\ncell reference system : %i[w2] (1: as a consumer (consumed power = +VJ; 0: as a "
                      "generator (generated power = +VJ) )",
                      cell.referenceSystem));
    }
}

} // namespace

int WriteDefinitionFile(TextFile& file, const InputParameters& p, const DefinitionWorkingSettings& settings,
                        const std::string& version, DefinitionWriter writer) {
    if (!file.IsOpen()) return -1;
    DefWriter w{file, writer == DefinitionWriter::Compact};
    const CellDefinition& cell = p.cellParas;
    WriteHead(w, version);
    WriteConvergence(w, p.convergence, settings);
    WriteContact(w, cell.leftContact, true);
    const int n = std::clamp(cell.numberOfLayers, 0, MAX_LAYERS);
    for (int i = 0; i < n; ++i) {
        WriteLayer(w, cell.layer[static_cast<size_t>(i)]);
        if (i < n - 1) WriteInterface(w, cell.interface[static_cast<size_t>(i)]);
    }
    WriteContact(w, cell.rightContact, false);
    WriteWorkingPoint(w, p.convergence, cell, settings);
    if (std::fflush(file.fp.get()) != 0) w.status = -1;
    return w.status;
}

} // namespace tervo
