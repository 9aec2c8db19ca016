#include "setup/spectrum.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string_view>
#include <utility>

#include "cell/grading.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "platform/text_file.h"
#include "platform/text_util.h"

namespace tervo {

namespace {

// Two points closer than this are one wavelength.
constexpr double kSameWavelength = 0.0001; // nm

const char* FolderOfType(int type) {
    switch (type) {
    case DATAFILE_SPECTRUM:
        return "spectrum";
    case DATAFILE_ABSORPTION:
        return "absorption";
    case DATAFILE_FILTER:
        return "filter";
    case DATAFILE_GENERATION:
        return "generation";
    case DATAFILE_OPTCAPT:
        return "optcapt";
    case DATAFILE_BATCHLIST:
    case DATAFILE_FILELIST:
        return "bdf";
    case DATAFILE_GRADING:
        return "grading";
    case DATAFILE_MATERIAL:
        return "materials";
    default:
        return nullptr;
    }
}

std::string_view SkipWhite(std::string_view text) {
    size_t k = 0;
    while (k < text.size() && IsWhite(text[k])) ++k;
    return text.substr(k);
}

// A data line starts with a number and, unless only one is wanted, a second one behind white space.
bool ReadDataLine(std::string_view line, int wanted, double& a, double& b) {
    std::string_view rest = SkipWhite(line);
    const size_t first = ReadReal(rest, a);
    if (first == 0) return false;
    rest = rest.substr(first);
    if (wanted == 1) return rest.empty() || IsWhite(rest[0]);
    if (rest.empty() || !IsWhite(rest[0])) return false;
    return ReadReal(SkipWhite(rest), b) > 0;
}

bool IsFileLine(std::string_view line) {
    return StartsWithNoCase(line, "file:");
}

int NumbersPerLine(int type) {
    return type == DATAFILE_BATCHLIST ? 1 : 2;
}

int PointLimit(int type) {
    return type == DATAFILE_GENERATION ? 2000 : MAX_SPECTRUM_LINES;
}

// Half the distance of the neighbours of point i: the width of its wavelength interval.  At the ends
// the missing neighbour is the point itself.
double IntervalWidth(const std::vector<double>& l, int i, int n) {
    const double below = l[At(i > 0 ? i - 1 : 0)];
    const double above = l[At(i + 1 < n ? i + 1 : n - 1)];
    return 0.5 * (above - below);
}

// Sorts n pairs by the first member, keeping the order of equal wavelengths.
void SortPairs(std::vector<double>& x, std::vector<double>& y, int n) {
    std::vector<std::pair<double, double>> pairs(At(n));
    for (int i = 0; i < n; ++i) pairs[At(i)] = {x[At(i)], y[At(i)]};
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const auto& p, const auto& q) { return p.first < q.first; });
    for (int i = 0; i < n; ++i) {
        x[At(i)] = pairs[At(i)].first;
        y[At(i)] = pairs[At(i)].second;
    }
}

} // namespace

// ---------------------------------------------------------------------------------------------------
// Data files.

std::string MakeFullPath(const std::string& name, int type) {
    if (name.empty() || name.find_first_of("/\\") != std::string::npos) return name;
    const char* folder = FolderOfType(type);
    if (folder == nullptr) return name;
    return MakePathname(MakePathname(GetProjectDir(), folder), name);
}

int tel_lijnen_in_file(const std::string& file, int type) {
    const std::string path = MakeFullPath(file, type);
    TextFile f = OpenFile(path, FileMode::Read);
    if (!f.IsOpen()) {
        TERVOErrorMessage("Error",
                          IoErrorText(f.lastError) +
                              "\nFunction tel_lijnen_in_file(): Error occured during opening file: " + path +
                              " !");
        return -1;
    }
    int count = 0;
    std::string line;
    double a = 0, b = 0;
    for (;;) {
        const int length = ReadLine(f, line, MAX_FILE_LINE);
        if (length == -2) break;
        if (length < 0) {
            TERVOErrorMessage("Error in Function tel_lijnen_in_file()",
                              IoErrorText(f.lastError) + "Error occured during reading file: " + path +
                                  "\n(filetype " + std::to_string(type) + ")");
            return -1;
        }
        if (type == DATAFILE_FILELIST ? IsFileLine(line) : ReadDataLine(line, NumbersPerLine(type), a, b))
            ++count;
    }
    if (count == 0) {
        TERVOErrorMessage("Error in Function tel_lijnen_in_file()",
                          "End of file occured during reading file: " + path + "\n(filetype " +
                              std::to_string(type) + ")");
        return -1;
    }
    return count;
}

int lees_file(const std::string& file, std::vector<double>& x, std::vector<double>& y, int type) {
    const std::string path = MakeFullPath(file, type);
    x.clear();
    y.clear();
    TextFile f = OpenFile(path, FileMode::Read);
    if (!f.IsOpen()) {
        TERVOErrorMessage("Error during opening file",
                          "Function leef_file(). Error occured during opening file: " + path + " !\n" +
                              IoErrorText(f.lastError));
        return -1;
    }
    const int limit = PointLimit(type);
    const int wanted = NumbersPerLine(type);
    const double positionFactor = type == DATAFILE_GENERATION ? 1e-6 : 1.0; // µm to m
    std::string line;
    int lineNumber = 0;
    while (static_cast<int>(x.size()) < limit) {
        const int length = ReadLine(f, line, MAX_FILE_LINE);
        ++lineNumber;
        if (length == -2) break;
        if (length < 0) {
            TERVOErrorMessage("Function lees_file(): Error occured during reading file: " + path + " !",
                              IoErrorText(f.lastError));
            x.clear();
            y.clear();
            return -1;
        }
        double a = 0, b = 0;
        if (!ReadDataLine(line, wanted, a, b)) continue;
        if (!std::isfinite(a) || !std::isfinite(b)) {
            TERVOReadingWarning("Warning whilst reading a data file",
                                FmtStr("%s[q]<\"%s\", line %i: \"%s\" holds a number beyond the range of the "
                                       "program; the line is passed over.",
                                       path, lineNumber, TrimRight(line)));
            continue;
        }
        x.push_back(a * positionFactor);
        y.push_back(b);
    }
    if (x.empty()) {
        TERVOErrorMessage("Function lees_file(): End of file occured during reading file: " + path + " !",
                          "File contains no useful information.");
        return -1;
    }
    return static_cast<int>(x.size());
}

int lees_char_file(const std::string& file, std::vector<std::string>& names, int type) {
    const std::string path = MakeFullPath(file, type);
    names.clear();
    TextFile f = OpenFile(path, FileMode::Read);
    if (!f.IsOpen()) {
        TERVOErrorMessage("Error during opening file",
                          "Function lees_char_file(). Error occured during opening file: " + path + " !\n" +
                              IoErrorText(f.lastError));
        return -1;
    }
    std::string line;
    while (static_cast<int>(names.size()) < MAX_SPECTRUM_LINES) {
        const int length = ReadLine(f, line, MAX_FILE_LINE);
        if (length == -2) break;
        if (length < 0) {
            TERVOErrorMessage("Function lees_char_file(): Error occured during reading file: " + path + " !",
                              IoErrorText(f.lastError));
            names.clear();
            return -1;
        }
        if (IsFileLine(line)) names.push_back(TextBehindColon(line));
    }
    if (names.empty()) {
        TERVOErrorMessage("Function lees_char_file(): End of file occured during reading file: " + path +
                              " !",
                          "File contains no useful information.");
        return -1;
    }
    return static_cast<int>(names.size());
}

// ---------------------------------------------------------------------------------------------------
// Spectrum.

int SpectrumInterpolation(std::vector<double>& lambda, std::vector<double>& watt, int n) {
    n = std::clamp(n, 0, static_cast<int>(std::min(lambda.size(), watt.size())));
    const int extrasGiven = std::min(3, static_cast<int>(std::min(lambda.size(), watt.size())) - n);
    std::vector<double> extras(lambda.begin() + n, lambda.begin() + n + extrasGiven);
    lambda.resize(At(n));
    watt.resize(At(n));
    SortPairs(lambda, watt, n);
    if (n < 2) return n;

    // Work on the spectral density, so that a new point takes its share of the power from its
    // neighbours and the trapezoid integral of the density stays what it was.
    std::vector<double> density(At(n));
    for (int i = 0; i < n; ++i) {
        const double width = IntervalWidth(lambda, i, n);
        density[At(i)] = width > 0 ? watt[At(i)] / width : watt[At(i)];
    }
    std::vector<double> newLambda, newDensity;
    for (double e : extras) {
        if (!(e > lambda.front()) || !(e < lambda.back())) continue;
        const auto above = std::upper_bound(lambda.begin(), lambda.end(), e);
        const int k = static_cast<int>(above - lambda.begin()) - 1; // lambda[k] <= e < lambda[k+1]
        if (e - lambda[At(k)] < kSameWavelength || lambda[At(k + 1)] - e < kSameWavelength) continue;
        if (std::find(newLambda.begin(), newLambda.end(), e) != newLambda.end()) continue;
        const double t = (e - lambda[At(k)]) / (lambda[At(k + 1)] - lambda[At(k)]);
        newLambda.push_back(e);
        newDensity.push_back(density[At(k)] + t * (density[At(k + 1)] - density[At(k)]));
    }
    if (newLambda.empty()) return n;

    lambda.insert(lambda.end(), newLambda.begin(), newLambda.end());
    density.insert(density.end(), newDensity.begin(), newDensity.end());
    const int count = static_cast<int>(lambda.size());
    SortPairs(lambda, density, count);
    watt.assign(At(count), 0.0);
    for (int i = 0; i < count; ++i) {
        const double width = IntervalWidth(lambda, i, count);
        watt[At(i)] = width > 0 ? density[At(i)] * width : density[At(i)];
    }
    return count;
}

int bepaal_spectrum(SpectrumSettings& light, std::vector<double>& lambda, std::vector<double>& watt) {
    if (light.dark) {
        // Two wavelengths without power, so that everything downstream runs unchanged.
        lambda = {200.0, 5000.0};
        watt = {0.0, 0.0};
        light.power_spectrum = light.power_cutoff = light.power_incident = 0;
        return 2;
    }
    const int lines = tel_lijnen_in_file(light.spectrumFile, DATAFILE_SPECTRUM);
    if (lines < 0) return 0;
    if (lines > MAX_SPECTRUM_LINES) {
        TERVOErrorMessage("Error !", "The spectrum file contains too many (> " +
                                         std::to_string(MAX_SPECTRUM_LINES) + " ) different wavelengths.");
        return 0;
    }
    int n = lees_file(light.spectrumFile, lambda, watt, DATAFILE_SPECTRUM);
    if (n <= 0) return 0;
    // Each wavelength stands for its own interval: two lines of one wavelength leave an interval of
    // no width, and a cut-off inside it would divide by zero.
    SortPairs(lambda, watt, n);
    for (int i = 1; i < n; ++i) {
        if (lambda[At(i)] == lambda[At(i - 1)]) {
            TERVOErrorMessage("Error whilst reading the spectrum file",
                              FmtStr("%s[q]<The spectrum file \"%s\" holds the wavelength %f nm twice; each "
                                     "wavelength may stand once.",
                                     MakeFullPath(light.spectrumFile, DATAFILE_SPECTRUM), lambda[At(i)]));
            return 0;
        }
    }

    if (!light.cutoff) {
        SortPairs(lambda, watt, n);
        light.power_spectrum = std::accumulate(watt.begin(), watt.end(), 0.0);
        light.power_cutoff = light.power_spectrum;
    } else {
        const double lo = light.lambda_short, hi = light.lambda_long;
        lambda.insert(lambda.end(), {lo, 0.5 * (lo + hi), hi});
        watt.insert(watt.end(), {0.0, 0.0, 0.0});
        n = SpectrumInterpolation(lambda, watt, n);
        light.power_spectrum = std::accumulate(watt.begin(), watt.end(), 0.0);

        // The points from the first at or above the short cut-off to the last at or below the long one;
        // the intervals of the two end points count only with their share inside the cut-off.
        int first = 0;
        while (first < n && lambda[At(first)] < lo) ++first;
        int last = n - 1;
        while (last >= 0 && lambda[At(last)] > hi) --last;
        double power = 0;
        for (int i = first; i <= last; ++i) {
            double share = 1.0;
            if (i == first && i > 0 && i + 1 < n)
                share *= (lambda[At(i + 1)] - lambda[At(i)]) / (lambda[At(i + 1)] - lambda[At(i - 1)]);
            if (i == last && i > 0 && i + 1 < n)
                share *= (lambda[At(i)] - lambda[At(i - 1)]) / (lambda[At(i + 1)] - lambda[At(i - 1)]);
            power += share * watt[At(i)];
        }
        light.power_cutoff = power;
    }
    light.power_incident = light.power_cutoff * std::pow(10.0, -light.ND);
    return n;
}

// ---------------------------------------------------------------------------------------------------
// Filters.

int ReadFilterValues(const std::string& file, std::vector<double>& target, int n,
                     const std::vector<double>& wavelengths, const std::string& sideText) {
    const std::string title = "Error whilst reading the filter file of the " + sideText + " contact";
    const std::string path = MakeFullPath(file, DATAFILE_FILTER);
    const int lines = tel_lijnen_in_file(path, DATAFILE_FILTER);
    if (lines <= 0) return 0;
    if (lines > MAX_SPECTRUM_LINES) {
        TERVOErrorMessage(title,
                          FmtStr("The filtervalues from file '%s' contains too many (%i %> %i) different "
                                 "wavelengths.",
                                 path, lines, MAX_SPECTRUM_LINES));
        return 0;
    }
    std::vector<double> x, y;
    const int count = lees_file(path, x, y, DATAFILE_FILTER);
    if (count <= 0) return 0;
    for (int i = 1; i < count; ++i) {
        if (!(x[At(i)] > x[At(i - 1)])) {
            TERVOErrorMessage(title,
                              "The filtervalues from file '" + path +
                                  "' cannot be interpolated at the wavelengthvalues from the spectrum.\n" +
                                  FmtStr("The wavelengths must rise: %f nm (point %i) follows %f nm.",
                                         x[At(i)], i + 1, x[At(i - 1)]));
            return 0;
        }
    }
    n = std::clamp(n, 0, static_cast<int>(wavelengths.size()));
    target.assign(At(n), 0.0);
    bool outside = false;
    for (int k = 0; k < n; ++k) {
        double value = 0;
        if (LinInterp(x.data(), y.data(), count, wavelengths[At(k)], value) != 1) outside = true;
        target[At(k)] = value;
    }
    if (outside)
        TERVOErrorMessage(title, "The filtervalues from file '" + path +
                                     "' cannot be interpolated at the wavelengthvalues from the spectrum.");
    return 1;
}

void CalculateFilterValues(int filterOn, int isTransmission, int wantReflection, double defaultValue,
                           std::vector<double>& values, int n) {
    values.resize(At(std::max(n, 0)));
    if (!filterOn) {
        std::fill(values.begin(), values.end(), defaultValue);
        return;
    }
    const bool wantedKind = (isTransmission != 0) == (wantReflection == 0);
    for (double& v : values) v = wantedKind ? v / 100.0 : 1.0 - v / 100.0;
}

int BerekenFilterSpectra(GenerationParameters& gp, const InputParameters& input) {
    const int n = std::clamp(gp.numberOfWavelengths, 0, static_cast<int>(gp.lambda.size()));
    struct Contact {
        const ContactParameters& parameters;
        std::vector<double>& values;
        const char* name;
        int illuminated;
    };
    const Contact contacts[2] = {
        {input.cellParas.leftContact, gp.leftFilter, "left", gp.side == -1},
        {input.cellParas.rightContact, gp.rightFilter, "right", gp.side == +1},
    };
    for (const Contact& c : contacts) {
        const ContactParameters& p = c.parameters;
        c.values.assign(At(n), 0.0);
        if (p.opticalFilter) {
            if (p.wavelengthIndependent) {
                std::fill(c.values.begin(), c.values.end(), p.filterValue * 100.0);
            } else if (!ReadFilterValues(p.filterFile, c.values, n, gp.lambda, c.name)) {
                return 0;
            }
        }
        // Light enters through the contact on the illuminated side and is reflected at the far one.
        CalculateFilterValues(p.opticalFilter, p.transmission, c.illuminated ? 0 : 1,
                              c.illuminated ? 1.0 : 0.0, c.values, n);
    }
    return 1;
}

// ---------------------------------------------------------------------------------------------------
// Incoming flux.

namespace {

// Share of the wavelength interval of point k that lies within the cut-off range [lo, hi].
double ShareWithinCutoff(const std::vector<double>& l, int k, int n, double lo, double hi) {
    const auto K = At(k);
    const bool firstPoint = k == 0, lastPoint = k == n - 1;
    double f1 = 1.0, f2 = 1.0;
    if (l[0] <= lo) {
        if (firstPoint)
            f1 = (l[1] + l[0] - 2 * lo) / (l[1] - l[0]);
        else if (lastPoint)
            f1 = (l[K] - lo) * 2 / (l[K] - l[K - 1]);
        else
            f1 = (l[K] + l[K + 1] - 2 * lo) / (l[K + 1] - l[K - 1]);
        f1 = std::clamp(f1, 0.0, 1.0);
    }
    if (l[At(n - 1)] >= hi) {
        if (firstPoint)
            f2 = (hi - l[0]) * 2 / (l[1] - l[0]);
        else if (lastPoint)
            f2 = (2 * hi - l[K] - l[K - 1]) / (l[K] - l[K - 1]);
        else
            f2 = (2 * hi - l[K] - l[K - 1]) / (l[K + 1] - l[K - 1]);
        f2 = std::clamp(f2, 0.0, 1.0);
    }
    return std::clamp(f1 + f2 - 1.0, 0.0, 1.0);
}

} // namespace

void CalculateIncomingFluxes(GenerationParameters& gp, double fluxConstant, int mode) {
    const int n = std::clamp(gp.numberOfWavelengths, 0,
                             static_cast<int>(std::min(gp.lambda.size(), gp.watt_lambda.size())));
    gp.incomingFlux_us.assign(At(n), 0.0);
    const double attenuation = mode == 0 ? gp.transmission : (mode == 1 ? 1.0 : 0.0);
    const std::vector<double>& front = gp.side == +1 ? gp.rightFilter : gp.leftFilter;
    const std::vector<double>& l = gp.lambda;
    const bool cut = mode == 0 && gp.cutoffOn && n >= 2;
    const bool allOutside = cut && (l[At(n - 1)] < gp.shortCutoff || l[0] > gp.longCutoff);
    const bool allInside = cut && l[0] >= gp.shortCutoff && l[At(n - 1)] <= gp.longCutoff;
    for (int k = 0; k < n; ++k) {
        const auto K = At(k);
        const double T = K < front.size() ? front[K] : 1.0;
        double share = 1.0;
        if (allOutside)
            share = 0.0;
        else if (cut && !allInside)
            share = ShareWithinCutoff(l, k, n, gp.shortCutoff, gp.longCutoff);
        gp.incomingFlux_us[K] = T * l[K] * gp.watt_lambda[K] * fluxConstant * attenuation * share;
    }
}

} // namespace tervo
