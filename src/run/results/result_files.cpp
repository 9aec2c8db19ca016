#include "run/results/result_files.h"

#include "run/results/result_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>

#include "cell/cell_records.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/startup.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "solver/discrete_equations.h"

namespace tervo {

int ActionListMode = ACTIONLIST_TRUNCATE;

namespace {

// The date and time of a file (the present moment for the fresh problem) in the two layouts of the
// header: padded, or with plain day, month, year and hour.
std::string FileStampText(const std::string& path, bool padded) {
    int day = 0, month = 0, year = 0, hours = 0, minutes = 0, seconds = 0;
    GetTERVOFileDate(path, day, month, year);
    GetTERVOFileTime(path, hours, minutes, seconds);
    if (padded)
        return FmtStr("%i[w2p0]-%i[w2p0]-%i[w4] at %i[w2p0]:%i[w2p0]:%i[w2p0]", day, month, year, hours,
                      minutes, seconds);
    return FmtStr("%i-%i-%i at %i:%i[w2p0]:%i[w2p0]", day, month, year, hours, minutes, seconds);
}

const char* HeaderKindText(int kind) {
    switch (kind) {
    case HEADER_ENERGY_BANDS:
        return "Simulation of energy band diagrammes";
    case HEADER_GENERATION_RECOMBINATION:
        return "Simulation of generation - recombination profiles";
    case HEADER_AC_BANDS:
        return "Simulation of ac-band diagrammes at the dc-working point";
    case HEADER_IV:
        return "Simulation of I-V curves";
    case HEADER_CV:
        return "Simulation of C-V curves";
    case HEADER_CF:
        return "Simulation of C-f curves";
    case HEADER_QE:
        return "Simulation of QE curves";
    case HEADER_OCCUPATION:
        return "Simulation of Occupation probability of deep defects";
    case HEADER_BATCH_GENERAL:
        return "Simulation of general properties in a batch";
    case HEADER_BATCH_INTERFACE:
        return "Simulation of interface properties in a batch";
    case HEADER_ADMITTANCE:
        return "Simulation of Admittance Spectroscopy";
    case HEADER_GRADING:
        return "Grading data during simulation";
    case HEADER_CURVE_FITTING:
        return "Curve fitting results";
    default:
        return nullptr;
    }
}

void IlluminationLines(std::string& text, const WorkPoint& w) {
    if (w.dark) {
        AppendLine(text, "Calculation in dark");
        return;
    }
    AppendLine(text, "Calculation under illumination");
    if (w.generationFromFile) {
        AppendLine(text, "Optical generation data G(x) read from file:");
        std::string line = FmtStr("%s<Input file with G(x) data :\t");
        line += w.generationFile;
        Fmt(line, "%s[a]<  last saved: \t%s", FileStampText(w.generationFile, false));
        AppendLine(text, line);
        AppendLine(text, FmtStr("%s<Transmission of attenuation filter:\t%f[w12p4e2]\t%%", w.attenuation));
        AppendLine(text, FmtStr("%s<Ideal light current from optical generation\t%f[w10p4]\tmA/cm2",
                                w.idealLightCurrent));
        AppendLine(text, FmtStr("%s<Ideal light current after attenuation\t%f[w10p4]\tmA/cm2",
                                w.idealLightCurrent * w.attenuation * 0.01));
        return;
    }
    AppendLine(text, "Optical generation from internal TERVO calculation");
    AppendLine(text, w.side == 0 ? "Illumination from the left" : "Illumination from the right");
    std::string line = FmtStr("%s<spectrum file :\t");
    line += w.spectrumFile;
    Fmt(line, "%s[a]<  last saved: \t%s", FileStampText(w.spectrumFile, true));
    AppendLine(text, line);
    if (w.cutoff) {
        AppendLine(text, FmtStr("%s<Spectrum cut-off applied\t"));
        AppendLine(text, FmtStr("%s<short wavelength cut-off\t%f[w8p2]\tnm", w.lambda_short));
        AppendLine(text, FmtStr("%s<long  wavelength cut-off\t%f[w8p2]\tnm", w.lambda_long));
    }
    AppendLine(text, FmtStr("%s<Neutral density filter: ND\t%f[w8p4]", w.ND));
    AppendLine(text, FmtStr("%s<Transmission of ND filter:\t%f[w12p4e2]", std::pow(10.0, -w.ND)));
    AppendLine(text, FmtStr("%s<Power from spectrum:\t%f[w10p4]\tmW/cm2", w.power_spectrum * 0.1));
    if (w.cutoff)
        AppendLine(text, FmtStr("%s<Power after cut-off filters\t%f[w10p4]\tmW/cm2", w.power_cutoff * 0.1));
    AppendLine(
        text, FmtStr("%s<Incident power on solar cell structure\t%f[w10p4]\tmW/cm2", w.power_incident * 0.1));
}

// The conventions of voltage and current: V is applied to the contact that the voltage is not
// referred to, and the current is counted at that same contact.
void ConventionLines(std::string& text, const WorkPoint& w) {
    const bool referredToLeft = w.voltageReference == 1;
    if (referredToLeft)
        AppendLine(
            text,
            FmtStr("%s<Voltage reference convention: voltage referred to left contact, voltage V applied "
                   "to right contact"));
    else
        AppendLine(
            text,
            FmtStr("%s<Voltage reference convention: voltage referred to right contact, voltage V applied "
                   "to left contact"));
    const char* contact = referredToLeft ? "right" : "left";
    if (w.currentReference == 1)
        AppendLine(
            text,
            FmtStr("%s<Current reference convention: current positive when entering the %s contact\nPower "
                   "generated by the cell: = -V*I; power consumed by the cell = +V*I",
                   contact));
    else
        AppendLine(
            text,
            FmtStr("%s<Current reference convention: current positive when leaving the %s contact\nPower "
                   "generated by the cell: = +V*I; power consumed by the cell = -V*I",
                   contact));
}

double Signed(double value, double sign) {
    return value * sign + 0.0;
}

std::string Marked(std::string line, int extrapolated) {
    if (extrapolated) Fmt(line, "%s[a]<\t%s", "extrapolated");
    return line;
}

void SolarCellParameterLines(std::string& text, const DataListElement& e) {
    const SolarCellParameters& s = e.parameters;
    if (!s.VocValid && !s.JscValid && !s.FFValid && !s.etaValid) return;
    AppendBlank(text);
    AppendLine(text, "solar cell parameters deduced from calculated IV-curve:");
    // A figure that rests on an extrapolation past the end of a cut curve is not given as a number.
    auto figure = [&](const std::string& name, const std::string& line, int extrapolated) {
        AppendLine(text, FigureCutOff(s, extrapolated, name == "Jsc") ? name + " =\t" + CutFigureText(s)
                                                                      : Marked(line, extrapolated));
    };
    if (s.VocValid) figure("Voc", FmtStr("%s<Voc =\t%f[w12p6]\tVolt", s.Voc), s.VocExtrapolated);
    if (s.JscValid) figure("Jsc", FmtStr("%s<Jsc =\t%f[w14p8]\tmA/cm2", s.Jsc), s.JscExtrapolated);
    if (s.FFValid) figure("FF", FmtStr("%s<FF =\t%f[w10p4]\t%%", s.FF), s.FFExtrapolated);
    if (s.etaValid) {
        const bool collection = e.wp.generationFromFile != 0;
        const std::string eta = collection ? FmtStr("%s<collection efficiency =\t%f[w10p4]\t%%", s.eta)
                                           : FmtStr("%s<eta =\t%f[w10p4]\t%%", s.eta);
        figure(collection ? "collection efficiency" : "eta", eta, s.etaExtrapolated);
        figure("V_MPP", FmtStr("%s<V_MPP =\t%f[w12p6]\tVolt", s.V_MPP), s.etaExtrapolated);
        figure("J_MPP", FmtStr("%s<J_MPP =\t%f[w14p8]\tmA/cm2", s.J_MPP), s.etaExtrapolated);
    }
}

constexpr int IV_COLUMNS = 9;

void IVBlock(std::string& text, const DataListElement& e) {
    ComposeOutputHeader(text, &e, HEADER_IV, 1, 0);
    AppendLine(
        text,
        FmtStr("%s<    v(V)\tjtot(mA/cm2)\t   jbulk(mA/cm2)\tjifr(mA/cm2)\tjminor_left(mA/cm2)\tjminor_right("
               "mA/cm2)\tj_SRH(mA/cm2)\tj_Radiative(mA/cm2)\tj_Auger(mA/cm2)"));
    AppendBlank(text);
    AppendCurveRows(text, e.actie.IV.points, e.actie.IV.done, e.iv_as.size(), IV_COLUMNS, [&](int i) {
        return FmtStr("%s< %f[w10p6]\t  %f[w16p8e2]\t      %f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  "
                      "%f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]",
                      CurveValue(e.iv_as, i), CurveValue(e.ivcurrent, i), CurveValue(e.ivbulk, i) * 0.1,
                      CurveValue(e.ivifr, i) * 0.1, CurveValue(e.ivleftcontact, i),
                      CurveValue(e.ivrightcontact, i), CurveValue(e.recSRH, i) * 0.1,
                      CurveValue(e.recRadiative, i) * 0.1, CurveValue(e.recAuger, i) * 0.1);
    });
    SolarCellParameterLines(text, e);
    AppendBlank(text);
    AppendBlank(text);
}

constexpr int QE_COLUMNS = 3;

void QEBlock(std::string& text, const DataListElement& e) {
    ComposeOutputHeader(text, &e, HEADER_QE, 1, 0);
    AppendLine(text, FmtStr("%s<  lambda(nm)\t      QE(%%)\tphoton energy (eV)"));
    AppendBlank(text);
    AppendCurveRows(text, e.actie.QE.points, e.actie.QE.done, e.qe_as.size(), QE_COLUMNS, [&](int i) {
        return FmtStr("%s< %f[w12p6]\t %f[w14p6e2]\t%f[w12p6]", CurveValue(e.qe_as, i), CurveValue(e.qe, i),
                      CurveValue(e.hv_as, i));
    });
    AppendBlank(text);
    AppendBlank(text);
    AppendBlank(text);
}

} // namespace

int ComposeOutputHeader(std::string& text, const DataListElement* element, int kind, int withBatchInfo,
                        int fromWorkpoint) {
    if (!fromWorkpoint && element == nullptr) {
        TERVOErrorMessage("Function WriteOutputHeader():", "No simulation list was found!");
        return -1;
    }
    const char* kindText = HeaderKindText(kind);
    if (kindText == nullptr) {
        TERVOErrorMessage("Function WriteOutputHeader():", FmtStr("%s<Unknown kind of output %i", kind));
        return -1;
    }
    const WorkPoint& w = fromWorkpoint ? wp : element->wp;

    AppendLine(text, VERSION);
    AppendLine(text, kindText);
    // The admittance analysis adds its attempt-to-escape frequency here once it exists.
    if (!fromWorkpoint) {
        const DataListElement& e = *element;
        if (e.recordingFlag)
            AppendLine(text, "Results of a batch recording");
        else if (e.batchParameterCount >= 1 || e.batchDefinitionVaried == 1)
            AppendLine(text, FmtStr("%s<Batch simulation #\t%i\tstep\t%i\tof\t%i", e.number, e.batchStep,
                                    e.batchSteps));
        else if (e.fitParameterCount >= 1)
            AppendLine(text, FmtStr("%s<Curve fitting simulation #\t%i\tstep\t%i\tof\t%i", e.number,
                                    e.fitStep + 1, e.fitSteps));
        else
            AppendLine(text, FmtStr("%s<Single shot simulation #\t%i", e.number));
        AppendLine(text, FmtStr("%s<Calculation started : \t%s", e.started));
    } else {
        AppendLine(text, FmtStr("%s<Workpoint calculation: \t%s", LastWorkPointSimulationDate));
    }
    AppendBlank(text);

    AppendLine(text, FmtStr("%s<problem definition file :\t%s", w.definitionFile));
    AppendLine(text, FmtStr("%s<last saved: \t%s", FileStampText(w.definitionFile, true)));
    // The doubts about the input travel with the numbers calculated from it.
    for (std::string warning : ReadingWarnings()) {
        std::replace(warning.begin(), warning.end(), '\n', ' ');
        AppendLine(text, "reading warning :\t" + warning);
    }
    AppendBlank(text);

    IlluminationLines(text, w);
    AppendBlank(text);

    AppendLine(text, FmtStr("%s<Working point conditions"));
    AppendLine(text, FmtStr("%s<Temperature\t%f[w8p2]\tK", w.temperature));
    AppendLine(text, FmtStr("%s<Workpoint bias voltage\t%f[w10p4]\tVolt", w.voltage * zonnecel.signV));
    AppendLine(text, FmtStr("%s<Frequency\t%f[w12p4e2]\tHz", w.frequency));
    AppendBlank(text);

    if (w.conventionsShown) ConventionLines(text, w);
    AppendBlank(text);

    if (withBatchInfo && !fromWorkpoint) ComposeBatchInfo(text, *element);
    return 0;
}

int WriteOutputHeader(TextFile& file, const DataListElement* element, int kind, int withBatchInfo,
                      int fromWorkpoint) {
    std::string text;
    if (ComposeOutputHeader(text, element, kind, withBatchInfo, fromWorkpoint) != 0) return -1;
    return EmitResultText(OUTPUT_TO_OPEN_FILE, &file, text);
}

void ComposeBatchInfo(std::string& text, const DataListElement& e) {
    (void)text;
    if (e.batchParameterCount >= 1 || e.batchDefinitionVaried == 1) {
        // The varied definition file and one line per batch parameter, once batch runs exist.
        return;
    }
    if (e.fitParameterCount >= 1) {
        // The fit parameters, the measurement and a fixed parameter, once curve fitting exists.
        return;
    }
    // A single shot varies nothing.
}

int WriteBatchInfo(TextFile& file, const DataListElement& element) {
    std::string text;
    ComposeBatchInfo(text, element);
    return EmitResultText(OUTPUT_TO_OPEN_FILE, &file, text);
}

int iv_naar_file(int mode, TextFile* file) {
    // C-V points carry currents too: an element with a C-V curve has an I-V curve.
    return WriteCurveBlocks(
        mode, file, [](const DataListElement& e) { return e.actie.IV.calculate || e.actie.CV.calculate; },
        IVBlock, "No IV-calculation is made yet: nothing to save or to show !");
}

int qe_naar_file(int mode, TextFile* file) {
    return WriteCurveBlocks(
        mode, file, [](const DataListElement& e) { return e.actie.QE.calculate != 0; }, QEBlock,
        "No QE calculation is made yet: nothing to save or to show !");
}

namespace {

// Interfaces: the net rates at both sides as currents in mA/cm2, each with the scale of its own side's
// layer, without and with the enhancement by tunnelling.
struct InterfaceRow {
    double x_um, jn1, jn2, jp1, jp2, jn1t, jn2t, jp1t, jp2t, js, pi;
};

std::vector<InterfaceRow> InterfaceRows(const CalculationVariables& cv, int layers) {
    const CalculationParameters& P = *cv.parameters;
    const double L = P.scale.length;
    const double D0 = P.scale.diffusion;
    const IfrDcTerms& ifr = cv.recombination.ifr;
    std::vector<InterfaceRow> interfaces;
    for (int j = 0; j + 1 < layers; ++j) {
        const size_t J = At(j);
        const double cLeft = P.scale.density[J] * D0 / L * Q_ELEM * 0.1;
        const double cRight = P.scale.density[J + 1] * D0 / L * Q_ELEM * 0.1;
        InterfaceRow r{};
        r.x_um = cv.mesh.x_um[At(cv.mesh.last_point[J])];
        r.jn1 = ifr.Rn_left[J] * cLeft;
        r.jn2 = ifr.Rn_right[J] * cRight;
        r.jp1 = ifr.Rp_left[J] * cLeft;
        r.jp2 = ifr.Rp_right[J] * cRight;
        r.jn1t = ifr.Rn_left_tunnel[J] * cLeft;
        r.jn2t = ifr.Rn_right_tunnel[J] * cRight;
        r.jp1t = ifr.Rp_left_tunnel[J] * cLeft;
        r.jp2t = ifr.Rp_right_tunnel[J] * cRight;
        r.js = r.jn1t + r.jn2t;
        r.pi = ifr.sigma[J] * 0.0001;
        interfaces.push_back(r);
    }

    return interfaces;
}

// Cumulative generation from the illuminated side, mA/cm2: each point adds G over half of its two
// neighbouring intervals.
std::vector<double> CumulativeGeneration(const CalculationVariables& cv, const std::vector<double>& G,
                                         int n) {
    const double L = cv.parameters->scale.length;
    const auto& x = cv.mesh.x;
    std::vector<double> Gc(At(n), 0.0);
    constexpr double GENERATION_TO_CURRENT = 8.01e-15; // 1.602e-19 * 0.5 * 1e5: /cm3/s times m to mA/cm2
    if (n >= 2) {
        const bool fromLeft = cv.generation == nullptr || cv.generation->side == -1;
        auto share = [&](int i) {
            const int lo = std::max(i - 1, 0);
            const int hi = std::min(i + 1, n - 1);
            return G[At(i)] * L * (x[At(hi)] - x[At(lo)]) * GENERATION_TO_CURRENT;
        };
        if (fromLeft) {
            Gc[0] = share(0);
            for (int i = 1; i < n; ++i) Gc[At(i)] = Gc[At(i - 1)] + share(i);
        } else {
            Gc[At(n - 1)] = share(n - 1);
            for (int i = n - 2; i >= 0; --i) Gc[At(i)] = Gc[At(i + 1)] + share(i);
        }
    }

    return Gc;
}

} // namespace

int eb_naar_file(int mode, TextFile* file, CalculationVariables& cv) {
    if (cv.parameters == nullptr || cv.mesh.n_points < 1) {
        TERVOErrorMessage("Function Save or Show Energy Bands",
                          "No calculation is made yet: nothing to save or to show !");
        return -1;
    }
    if (!IsResultOutputMode(mode)) return -1;
    const CalculationParameters& P = *cv.parameters;
    const int n = std::min(cv.mesh.n_points, MAX_MESH_POINTS);
    const int layers = std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
    const double L = P.scale.length;
    const double D0 = P.scale.diffusion;
    const RecDcTerms& dc = cv.recombination.dc;

    std::string text;
    // The header tells the simulation when a sweep made one; a state without a sweep is told by the
    // working point.
    const bool anySweep =
        actie.IV.calculate || actie.CV.calculate || actie.Cf.calculate || actie.QE.calculate;
    const bool fromWorkpoint = !anySweep || pointer_naar_huidige() == nullptr;
    if (ComposeOutputHeader(text, pointer_naar_huidige(), HEADER_ENERGY_BANDS, fromWorkpoint,
                            fromWorkpoint) != 0)
        return -1;

    const auto bands = std::make_unique<BandDiagram>();
    const auto densities = std::make_unique<ConcentrationProfiles>();
    const auto field = std::make_unique<MeshArray>();
    const auto currents = std::make_unique<CurrentProfiles>();
    extraheer_bandenschema(cv, *bands);
    extraheer_concentraties(cv, *densities);
    FieldStrength(cv, *field);
    CalculateCurrentProfiles(cv, calculation_of_current, *currents);
    std::vector<double> G;
    if (cv.generation != nullptr)
        ExtractGeneration(cv, *cv.generation, 1e-6, G);
    else
        G.assign(At(n), 0.0);

    // Per point: the layer's density scale.
    std::vector<double> N(At(n), 0.0);
    for (int j = 0; j < layers; ++j) {
        const double Nj = P.scale.density[At(j)];
        for (int k = cv.mesh.first_point[At(j)]; k <= std::min(cv.mesh.last_point[At(j)], n - 1); ++k)
            N[At(k)] = Nj;
    }

    const std::vector<InterfaceRow> interfaces = InterfaceRows(cv, layers);
    const std::vector<double> Gc = CumulativeGeneration(cv, G, n);

    // Cumulative recombination, written with the sign of the terminal current: in the dark the value
    // from the left at the last point and the value from the right at the first point are both the
    // jtot of the state (see CumulativeRecombination for the terms and the rule of signs).
    const auto balance = std::make_unique<RecombinationBalance>();
    CumulativeRecombination(cv, *balance);
    std::vector<double> RecLR(At(n), 0.0), RecRL(At(n), 0.0);
    for (int i = 0; i < n; ++i) {
        RecLR[At(i)] = Signed(balance->fromLeft[At(i)], balance->sign * zonnecel.signJ);
        RecRL[At(i)] = Signed(balance->fromRight[At(i)], balance->sign * zonnecel.signJ);
    }

    const double signJ = zonnecel.signJ;
    AppendLine(text, FmtStr("%s<Band diagramme at actual bias voltage\t%f[w10p4]\tVolt",
                            cv.V_applied * zonnecel.signV));
    AppendBlank(text);
    AppendLine(text, FmtStr("%s<bulk"));
    AppendBlank(text);
    AppendLine(
        text,
        FmtStr("%s<   i\t       x(um)\t      Ec(eV)\t      Fn(eV)\t      Fp(eV)\t      Ev(eV)\t     "
               "n(/cm3)\t     "
               "p(/cm3)\trho(defect) (/cm3)\tnet doping (/cm3)\t   rho(/cm3)\t     E(V/cm)\t  jn(mA/cm2)\t  "
               "jp(mA/cm2)\t  jn_tunnel(mA/cm2)\t  jp_tunnel(mA/cm2)\tjtot(mA/cm2)\t generation(#/cm3.s)\t  "
               "recombination(#/cm3.s)\tcumulative generation (mA/cm2)\tcumulative recombination L to R "
               "(mA/cm2)\tcumulative recombination R to L (mA/cm2)"));
    AppendBlank(text);
    for (int k = 0; k < n; ++k) {
        const size_t i = At(k);
        const double rhoDefect = N[i] * dc.rho[i] * 1e-6;
        const double doping = N[i] * P.doping[i] * 1e-6;
        const double rho = rhoDefect + doping + densities->p[i] - densities->n[i];
        const double recombination = dc.R[i] * N[i] * D0 * 1e-6 / (L * L);
        AppendLine(
            text,
            FmtStr("%s< %i[w3]\t %f[w14p6]\t %f[w14p8]\t %f[w14p8]\t %f[w14p8]\t %f[w14p8]\t %f[w16p8e2]\t "
                   "%f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t "
                   "%f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t  %f[w16p8e2]\t "
                   "%f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]",
                   k, cv.mesh.x_um[i], bands->Ec[i], bands->Fn[i], bands->Fp[i], bands->Ev[i],
                   densities->n[i], densities->p[i], rhoDefect, doping, rho, (*field)[i] * 0.01,
                   Signed(currents->j_n[i], signJ), Signed(currents->j_p[i], signJ),
                   Signed(currents->jn_tunnel[i], signJ), Signed(currents->jp_tunnel[i], signJ),
                   Signed(currents->j_tot[i], signJ), G[i], recombination, Gc[i], RecLR[i], RecRL[i]));
    }

    AppendBlank(text);
    AppendBlank(text);
    AppendLine(text, FmtStr("%s<\ninterface"));
    AppendBlank(text);
    AppendLine(
        text,
        FmtStr("%s<  IF\t       x(um)\t jn1(mA/cm2)\t jn2(mA/cm2)\t jp1(mA/cm2)\t jp2(mA/cm2)\t jn1[with "
               "tunnel](mA/cm2)\t jn2[with tunnel](mA/cm2)\t jp1[with tunnel](mA/cm2)\t jp2[with "
               "tunnel](mA/cm2)\t  js(mA/cm2)\t   pi(C/cm2)"));
    AppendBlank(text);
    for (size_t j = 0; j < interfaces.size(); ++j) {
        const InterfaceRow& r = interfaces[j];
        AppendLine(
            text,
            FmtStr("%s<   %i[w1]\t  %f[w14p6]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  "
                   "%f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]\t  %f[w16p8e2]",
                   static_cast<int>(j), r.x_um, r.jn1, r.jn2, r.jp1, r.jp2, r.jn1t, r.jn2t, r.jp1t, r.jp2t,
                   r.js, r.pi));
    }
    return EmitResultText(mode, file, text);
}

int SaveResultFile(ResultFileKind kind, const std::string& path) {
    const bool generation = kind == RESULT_GEN || kind == RESULT_OCC;
    const int filetype = generation          ? FILETYPE_GENERATION_RESULT
                         : kind == RESULT_IV ? FILETYPE_IV
                         : kind == RESULT_QE ? FILETYPE_QE
                                             : FILETYPE_EB;
    const char* extension = kind == RESULT_GEN   ? "gen"
                            : kind == RESULT_OCC ? "occ"
                            : kind == RESULT_IV  ? "iv"
                            : kind == RESULT_QE  ? "qe"
                                                 : "eb";
    return WriteResultToPath(path, filetype, extension, [&](TextFile& file) {
        if (generation)
            return gen_naar_file(OUTPUT_TO_OPEN_FILE, &file, currentCalcVars,
                                 kind == RESULT_OCC ? GENFILE_OCCUPATION : GENFILE_GENERATION);
        if (kind == RESULT_IV) return iv_naar_file(OUTPUT_TO_OPEN_FILE, &file);
        if (kind == RESULT_QE) return qe_naar_file(OUTPUT_TO_OPEN_FILE, &file);
        return eb_naar_file(OUTPUT_TO_OPEN_FILE, &file, currentCalcVars);
    });
}

// ---------------------------------------------------------------------------------------------------
// Generation-recombination and occupation files.

namespace {

const char* const GENERATION_TITLE = "Function Save or Show Genreration/Recombination";

// A row of a table for the sheet: every cell followed by a tab.
void TitleRow(std::string& text, const std::vector<std::string>& titles) {
    std::string row;
    for (const std::string& title : titles) {
        row += title;
        row += '\t';
    }
    AppendLine(text, row);
}

void Cell(std::string& row, double value) {
    Fmt(row, "%s[a]<%f[w16p8e2]\t", value + 0.0);
}

void MissingCell(std::string& row) {
    row += MISSING_CELL;
    row += '\t';
}

// Whether mesh point i lies in the part of the mesh that a column of `count` values from `first`
// covers.
bool Covers(int first, size_t count, int i) {
    return i >= first && At(i - first) < count;
}

void GenerationLegend(std::string& text) {
    AppendLine(
        text,
        "Geh\tDirect band-to-band excitation of electron-hole pairs by light (this equals zero in dark)");
    AppendLine(
        text,
        "All following properties are split up per layer, per defect in this layer and per charge state in "
        "this defect");
    AppendLine(text,
               "(first index = layer, second index = mechanism, third index = defectlevel (0 is the most "
               "positively charged and hence the closest to the valence band))");
    AppendLine(text, "(IPV = Impurity Photovoltaic Effect)\n");
    AppendLine(text,
               "IPV Gn\tGros IPV electron effect: direct optical excitation from defect to conduction band");
    AppendLine(text, "net Gn\tnet electron generation: IPV Gn + thermal generation - thermal recombination");
    AppendLine(
        text,
        "Gnth\tthermal electron generation (thermal emission of electron from defect to conduction band)");
    AppendLine(text, "Rnth\thermal electron recombination (capture by defect of conduction band electron)");
    AppendLine(text, "IPV Gp\tGros IPV hole effect: direct optical excitation from defect to valence band");
    AppendLine(text, "net Gp\tnet hole generation: IPV Gp + thermal generation - thermal recombination");
    AppendLine(text, "Gpth\tthermal hole generation (thermal emission of hole from defect to valence band)");
    AppendLine(text, "Rpth\thermal hole recombination (capture by defect of valence band hole)");
}

void OccupationLegend(std::string& text) {
    AppendLine(
        text,
        "All following properties are split up per layer and per defect in this layer, per charge state in "
        "this defect and per energy if there is an energydistribution");
    AppendLine(
        text,
        "(first index = layer, second index = mechanism, third index = defectlevel (0 is the most "
        "positively charged and hence the closest to the valence band)), fourth index = energy sub-level");
    AppendLine(text, "The charge state of the energylevel is given as well\n\n\n");
}

// The table of Calc_Generation: position, band-to-band generation, recombination by mechanism, and
// per defect level the eight electron and hole terms (net, optical, thermal emission, capture).
void GenerationTable(const CalculationVariables& cv, std::string& text) {
    const auto g = std::make_unique<GenerationRecombinationProfiles>();
    Calc_Generation(cv, *g);
    std::vector<std::string> titles{"x (µm)",
                                    "Geh (#/cm3.s)",
                                    "Total recombination (#/cm3.s)",
                                    "SRH recombination (#/cm3.s)",
                                    "Radiative recombination (#/cm3.s)",
                                    "Auger recombination (#/cm3.s)"};
    static constexpr const char* LEVEL_TITLES[] = {"net Gn", "IPV Gn", "Gnth", "Rnth",
                                                   "net Gp", "IPV Gp", "Gpth", "Rpth"};
    for (const LevelGenerationRecombination& l : g->levels)
        for (const char* title : LEVEL_TITLES)
            titles.push_back(
                FmtStr("%s<%s%i,%i,%i (#/cm3.s)", title, l.layer + 1, l.defect + 1, l.level + 1));
    TitleRow(text, titles);
    for (int i = 0; i < g->n_points; ++i) {
        const size_t I = At(i);
        std::string row;
        for (const std::vector<double>* column :
             {&g->x_um, &g->Geh, &g->total, &g->SRH, &g->radiative, &g->auger})
            Cell(row, (*column)[I]);
        for (const LevelGenerationRecombination& l : g->levels) {
            if (!Covers(l.first, l.Rnth.size(), i)) {
                for (int c = 0; c < 8; ++c) MissingCell(row);
                continue;
            }
            const size_t q = At(i - l.first);
            Cell(row, l.IPV_Gn[q] + l.Gnth[q] - l.Rnth[q]);
            Cell(row, l.IPV_Gn[q]);
            Cell(row, l.Gnth[q]);
            Cell(row, l.Rnth[q]);
            Cell(row, l.IPV_Gp[q] + l.Gpth[q] - l.Rpth[q]);
            Cell(row, l.IPV_Gp[q]);
            Cell(row, l.Gpth[q]);
            Cell(row, l.Rpth[q]);
        }
        AppendLine(text, row);
    }
}

} // namespace

void ComposeOccupationTable(const CalculationVariables& cv, std::string& text) {
    const auto occupations = std::make_unique<DefectOccupations>();
    ExtractOccupations(cv, *occupations);
    AppendLine(text, "The energydistribution of the defects which are not single level are:");
    for (const DistributedDefect& d : occupations->distributions)
        AppendLine(text, FmtStr("%s[q]<layer %i, defect %i: %s\n", d.layer + 1, d.defect + 1,
                                energyDistrTypeStrings[At(std::clamp(d.type, 0, 4))]));
    std::vector<std::string> titles{"i", "x (µm)"};
    for (const OccupationColumn& c : occupations->columns) {
        const char* state = deflevTypeStrings[At(std::clamp(c.aard, 0, NDEFLEVTYPE - 1))];
        titles.push_back(FmtStr("%s<f_t(electrons)%i,%i,%i,%i {%s}", c.layer + 1, c.defect + 1, c.level + 1,
                                c.sublevel + 1, state));
        titles.push_back(FmtStr("%s<f_t(holes)%i,%i,%i,%i {%s}", c.layer + 1, c.defect + 1, c.level + 1,
                                c.sublevel + 1, state));
    }
    TitleRow(text, titles);
    for (int i = 0; i < occupations->n_points; ++i) {
        std::string row;
        Cell(row, i);
        Cell(row, cv.mesh.x_um[At(i)]);
        for (const OccupationColumn& c : occupations->columns) {
            if (!Covers(c.first, c.electrons.size(), i) || !Covers(c.first, c.holes.size(), i)) {
                MissingCell(row);
                MissingCell(row);
                continue;
            }
            Cell(row, c.electrons[At(i - c.first)]);
            Cell(row, c.holes[At(i - c.first)]);
        }
        AppendLine(text, row);
    }
}

int ft_naar_file(const CalculationVariables& cv, TextFile& file) {
    std::string text;
    ComposeOccupationTable(cv, text);
    return EmitResultText(OUTPUT_TO_OPEN_FILE, &file, text);
}

int gen_naar_file(int mode, TextFile* file, CalculationVariables& cv, int content) {
    const DataListElement* element = pointer_naar_huidige();
    if (element == nullptr || cv.parameters == nullptr || cv.mesh.n_points < 1) {
        TERVOErrorMessage(GENERATION_TITLE, "No calculation is made yet: nothing to save or to show !");
        return -1;
    }
    if (!IsResultOutputMode(mode)) return -1;
    if (content != GENFILE_GENERATION && content != GENFILE_OCCUPATION) {
        TERVOErrorMessage(GENERATION_TITLE,
                          FmtStr("%s<Content %i is neither generation (0) nor occupation (1)", content));
        return -1;
    }
    std::string text;
    if (ComposeOutputHeader(text, element, HEADER_GENERATION_RECOMBINATION, 0, 0) != 0) return -1;
    AppendLine(text, FmtStr("%s<Generation-recombination at actual bias voltage\t%f[w10p4]\tVolt",
                            cv.V_applied * zonnecel.signV));
    ComposeBatchInfo(text, *element);
    AppendLine(text, "Legend:");
    AppendLine(text, "=======");
    if (content == GENFILE_GENERATION) {
        GenerationLegend(text);
        GenerationTable(cv, text);
    } else {
        OccupationLegend(text);
        ComposeOccupationTable(cv, text);
    }
    return EmitResultText(mode, file, text);
}

// ---------------------------------------------------------------------------------------------
// Pieces shared by the writers

void AppendLine(std::string& text, const std::string& line) {
    text += line;
    text += '\n';
}

void AppendBlank(std::string& text) {
    text += '\n';
}

double CurveValue(const std::vector<double>& curve, int i) {
    return i >= 0 && static_cast<size_t>(i) < curve.size() ? curve[static_cast<size_t>(i)] : 0.0;
}

void AppendFillerRow(std::string& text, int columns) {
    if (ActionListMode != ACTIONLIST_FILLZEROS && ActionListMode != ACTIONLIST_FILLWHITE) return;
    const char* cell = ActionListMode == ACTIONLIST_FILLZEROS ? "0.0" : " ";
    std::string row;
    for (int c = 0; c < columns; ++c) {
        if (c > 0) row += '\t';
        row += cell;
    }
    AppendLine(text, row);
}

void AppendCurveRows(std::string& text, int points, int done, size_t held, int columns,
                     const std::function<std::string(int)>& row) {
    points = std::max(points, 0);
    done = std::min(std::max(done, 0), points);
    for (int i = 0; i < points; ++i) {
        if (i >= done || At(i) >= held)
            AppendFillerRow(text, columns);
        else
            AppendLine(text, row(i));
    }
}

bool IsResultOutputMode(int mode) {
    if (mode == OUTPUT_TO_SCREEN || mode == OUTPUT_TO_OPEN_FILE) return true;
    TERVOErrorMessage("Function Save or Show", FmtStr("%s<Output mode %i is not available", mode));
    return false;
}

int EmitResultText(int mode, TextFile* file, const std::string& text) {
    if (mode == OUTPUT_TO_SCREEN) {
        if (std::fputs(text.c_str(), stdout) < 0) return -1;
        std::fflush(stdout);
        return 0;
    }
    if (file == nullptr || !file->IsOpen()) {
        TERVOErrorMessage("Function Save or Show", "No open file to write to");
        return -1;
    }
    // A failed write is told by whoever opened the file, which then keeps the previous file.
    return WriteText(*file, text);
}

int WriteResultToPath(const std::string& path, int filetype, const char* extension,
                      const std::function<int(TextFile&)>& write) {
    std::string full;
    CheckTERVOPaths(&full, nullptr, path, filetype);
    if (full.empty()) {
        TERVOErrorMessage("Function Save or Show", "No file name given");
        return -1;
    }
    const size_t slash = full.find_last_of('/');
    const size_t dot = full.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        full += std::string(".") + extension;
    return WriteWholeFile(full, "Function Save or Show", write);
}

int WriteCurveBlocks(int mode, TextFile* file, const std::function<bool(const DataListElement&)>& hasCurve,
                     const std::function<void(std::string&, const DataListElement&)>& block,
                     const char* nothingYet) {
    if (std::none_of(resultList.begin(), resultList.end(), hasCurve)) {
        TERVOErrorMessage("Function Save or Show", nothingYet);
        return -1;
    }
    if (!IsResultOutputMode(mode)) return -1;
    std::string text;
    for (const DataListElement& e : resultList)
        if (hasCurve(e)) block(text, e);
    return EmitResultText(mode, file, text);
}

} // namespace tervo
