// The light on the cell: the shipped AM1.5G spectrum, cut-off and neutral density, the filters of the
// contacts, the incoming photon flux, and the complaints about unusable files.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/messages.h"
#include "setup/data_file_fixture.h"
#include "setup/generation.h"
#include "setup/spectrum.h"

namespace tervo {
namespace {

const std::string kAM15 = std::string(TERVO_SOURCE_DIR) + "/home/spectrum/AM1_5G 1 sun.spe";

using SpectrumTest = test::DataFileTest;

// The spectrum of `light` in a record, as the driver prepares it.
GenerationParameters Light(SpectrumSettings& light, int side = -1) {
    GenerationParameters gp;
    gp.numberOfWavelengths = bepaal_spectrum(light, gp.lambda, gp.watt_lambda);
    gp.cutoffOn = light.cutoff;
    gp.shortCutoff = light.lambda_short;
    gp.longCutoff = light.lambda_long;
    gp.transmission = std::pow(10.0, -light.ND);
    gp.side = side;
    return gp;
}

// q times the photons per m2 and s, in mA/cm2.
double Current(const std::vector<double>& photons) {
    return 1.602e-19 * std::accumulate(photons.begin(), photons.end(), 0.0) * 0.1;
}

TEST_F(SpectrumTest, ShippedAM15GivesItsPowerAndThePhotonCurrentAboveTheGap) {
    SpectrumSettings light;
    light.dark = 0;
    light.spectrumFile = kAM15;
    GenerationParameters whole = Light(light);
    ASSERT_EQ(whole.numberOfWavelengths, 2002);
    EXPECT_NEAR(light.power_spectrum, 1000.0, 5.0);
    const double total = light.power_spectrum;
    EXPECT_DOUBLE_EQ(light.power_cutoff, light.power_spectrum);
    for (int k = 1; k < whole.numberOfWavelengths; ++k) ASSERT_LT(whole.lambda[k - 1], whole.lambda[k]);

    // The photons above the gap: the spectrum cut off at the gap wavelength, counted in mode 0.
    const std::pair<double, double> cases[] = {{1.50, 28.97}, {1.15, 42.44}, {1.60, 25.47}};
    for (const auto& [Eg, expected] : cases) {
        light.cutoff = 1;
        light.lambda_short = 0;
        light.lambda_long = 1239.977 / Eg;
        GenerationParameters gp = Light(light);
        CalculateIncomingFluxes(gp, PHOTON_FLUX_CONSTANT, 0);
        EXPECT_NEAR(Current(gp.incomingFlux_us), expected, 0.005 * expected) << "Eg " << Eg;
        // Inserting the cut-off points leaves the power of the whole spectrum as it was.
        EXPECT_NEAR(light.power_spectrum, total, 1e-9 * total);
    }
}

TEST_F(SpectrumTest, CutoffPointsKeepTheIntegralAndThePowerWithinMatchesAHandSum) {
    // Six lines with comments and a header in between; the intervals are 50, 100, ..., 100, 50 nm wide,
    // so the spectral density is 0.2, 0.2, 0.3, 0.4, 0.5, 1.2 W/m2/nm.
    const std::string file = Write("six.spe", "wavelength power\n900 60\n400 10\n# middle\n500 20\n600 30\n"
                                              "700 40 W\n800 50\nend\n");
    SpectrumSettings light;
    light.dark = 0;
    light.spectrumFile = file;
    light.cutoff = 1;
    light.lambda_short = 550;
    light.lambda_long = 750;
    light.ND = 0.5;
    GenerationParameters gp = Light(light);
    const std::vector<double> l = {400, 500, 550, 600, 650, 700, 750, 800, 900};
    const std::vector<double> P = {10, 15, 12.5, 15, 17.5, 20, 22.5, 37.5, 60};
    ASSERT_EQ(gp.numberOfWavelengths, 9);
    for (size_t i = 0; i < l.size(); ++i) {
        EXPECT_DOUBLE_EQ(gp.lambda[i], l[i]);
        EXPECT_NEAR(gp.watt_lambda[i], P[i], 1e-12) << l[i];
    }
    EXPECT_NEAR(light.power_spectrum, 210.0, 1e-12);
    // The density from 550 to 750 nm rises linearly from 0.25 to 0.45: 200 nm at 0.35.
    EXPECT_NEAR(light.power_cutoff, 70.0, 1e-12);
    EXPECT_NEAR(light.power_incident, 70.0 * std::pow(10.0, -0.5), 1e-12);

    // The incoming photons of mode 0 carry exactly that power; in mode 1 the whole spectrum counts.
    CalculateIncomingFluxes(gp, PHOTON_FLUX_CONSTANT, 0);
    double power = 0;
    for (size_t k = 0; k < l.size(); ++k) power += gp.incomingFlux_us[k] / (PHOTON_FLUX_CONSTANT * l[k]);
    EXPECT_NEAR(power, light.power_incident, 1e-12);
    CalculateIncomingFluxes(gp, PHOTON_FLUX_CONSTANT, 1);
    EXPECT_NEAR(gp.incomingFlux_us[8], 60 * 900 * PHOTON_FLUX_CONSTANT, 1e4);
    CalculateIncomingFluxes(gp, PHOTON_FLUX_CONSTANT, 2);
    EXPECT_EQ(std::accumulate(gp.incomingFlux_us.begin(), gp.incomingFlux_us.end(), 0.0), 0.0);

    // Dark: two wavelengths without power.
    SpectrumSettings dark;
    GenerationParameters none = Light(dark);
    EXPECT_EQ(none.lambda, (std::vector<double>{200, 5000}));
    EXPECT_EQ(none.watt_lambda, (std::vector<double>{0, 0}));

    // Cut-offs on existing wavelengths add only their mean.
    light.lambda_short = 500;
    light.lambda_long = 800;
    EXPECT_EQ(Light(light).numberOfWavelengths, 7);
    // From 500 to 800 nm the density runs 0.2, 0.3, 0.4, 0.5 at 100 nm steps: 25 + 35 + 45.
    EXPECT_NEAR(light.power_cutoff, 105.0, 1e-12);
}

TEST_F(SpectrumTest, DataFilesSkipTextAndLimitThePoints) {
    const std::string file =
        Write("mixed.gen", "x G\n0.5 1e27\nnote 3 4\n1.5\t2e27 trailing\n7\n2.5e0 3e27\n");
    std::vector<double> x, y;
    ASSERT_EQ(tel_lijnen_in_file(file, DATAFILE_GENERATION), 3);
    ASSERT_EQ(lees_file(file, x, y, DATAFILE_GENERATION), 3);
    for (size_t i = 0; i < 3; ++i) EXPECT_DOUBLE_EQ(x[i], (0.5 + double(i)) * 1e-6); // µm to m
    EXPECT_EQ(y, (std::vector<double>{1e27, 2e27, 3e27}));

    std::string many;
    for (int i = 0; i < 2600; ++i) many += std::to_string(300 + i) + " 1\n";
    const std::string big = Write("big.abs", many);
    EXPECT_EQ(lees_file(big, x, y, DATAFILE_ABSORPTION), MAX_SPECTRUM_LINES);
    EXPECT_EQ(lees_file(big, x, y, DATAFILE_GENERATION), 2000);
}

TEST_F(SpectrumTest, UnusableSpectrumFilesAreReportedAndGiveNoWavelengths) {
    SpectrumSettings light;
    light.dark = 0;
    std::vector<double> l, P;
    light.spectrumFile = dir / "missing.spe";
    EXPECT_EQ(bepaal_spectrum(light, l, P), 0);
    EXPECT_TRUE(Reported("Error occured during opening file: " + light.spectrumFile));

    std::string lines;
    for (int i = 0; i <= MAX_SPECTRUM_LINES; ++i) lines += std::to_string(300.0 + 0.5 * i) + " 0.5\n";
    light.spectrumFile = Write("long.spe", lines);
    EXPECT_EQ(bepaal_spectrum(light, l, P), 0);
    EXPECT_TRUE(Reported("The spectrum file contains too many (> 2500 ) different wavelengths."));

    light.spectrumFile = Write("words.spe", "only words here\n1.0 is one number\n");
    EXPECT_EQ(bepaal_spectrum(light, l, P), 0);
    EXPECT_TRUE(Reported("End of file occured during reading file: " + light.spectrumFile));

    // A wavelength twice would leave an interval of no width for a cut-off to divide by.
    light.spectrumFile = Write("twice.spe", "400 1\n500 2\n400 3\n600 1\n");
    light.cutoff = 1;
    EXPECT_EQ(bepaal_spectrum(light, l, P), 0);
    EXPECT_TRUE(Reported("The spectrum file \"" + light.spectrumFile + "\" holds the wavelength 400"));
}

// ---------------------------------------------------------------------------------------------------
// Filters.

TEST_F(SpectrumTest, FiltersGiveTransmissionInFrontAndReflectionBehind) {
    GenerationParameters gp;
    gp.lambda = {400, 500, 600};
    gp.watt_lambda = {1, 1, 1};
    gp.numberOfWavelengths = 3;
    InputParameters in;
    InitialiseCellDefinition(in.cellParas);

    // No filters: the light passes the front contact whole and nothing comes back from the far one.
    for (int side : {-1, +1}) {
        gp.side = side;
        ASSERT_EQ(BerekenFilterSpectra(gp, in), 1);
        const std::vector<double>& front = side == -1 ? gp.leftFilter : gp.rightFilter;
        const std::vector<double>& back = side == -1 ? gp.rightFilter : gp.leftFilter;
        EXPECT_EQ(front, (std::vector<double>{1, 1, 1}));
        EXPECT_EQ(back, (std::vector<double>{0, 0, 0}));
    }

    // Light from the left.  A 30 % reflector in front lets 70 % in; a transmission file behind gives
    // a reflection of 100 % minus its values, interpolated at the wavelengths.
    gp.side = -1;
    ContactParameters& left = in.cellParas.leftContact;
    left.opticalFilter = 1;
    left.wavelengthIndependent = 1;
    left.transmission = 0;
    left.filterValue = 0.3;
    ContactParameters& right = in.cellParas.rightContact;
    right.opticalFilter = 1;
    right.transmission = 1;
    right.filterFile = Write("t.ftr", "filter\n350 10\n550 30\n650 90\n");
    ASSERT_EQ(BerekenFilterSpectra(gp, in), 1);
    for (double v : gp.leftFilter) EXPECT_DOUBLE_EQ(v, 0.7);
    for (size_t k = 0; k < 3; ++k)
        EXPECT_NEAR(gp.rightFilter[k], 1 - (std::array{0.15, 0.25, 0.6}[k]), 1e-12);
    EXPECT_TRUE(ReportedMessages().empty());

    // The front transmission scales the incoming flux.
    CalculateIncomingFluxes(gp, PHOTON_FLUX_CONSTANT, 0);
    EXPECT_DOUBLE_EQ(gp.incomingFlux_us[1], 0.7 * 500 * PHOTON_FLUX_CONSTANT);

    // A wavelength independent 0.7 acts as a file holding 70 everywhere.
    left.transmission = 1;
    left.filterValue = 0.7;
    ASSERT_EQ(BerekenFilterSpectra(gp, in), 1);
    const std::vector<double> fromValue = gp.leftFilter;
    left.wavelengthIndependent = 0;
    left.filterFile = Write("seventy.ftr", "300 70\n700 70\n");
    ASSERT_EQ(BerekenFilterSpectra(gp, in), 1);
    EXPECT_EQ(gp.leftFilter, fromValue);
    EXPECT_DOUBLE_EQ(fromValue[0], 0.7);
}

TEST_F(SpectrumTest, UnusableFilterFilesAreReported) {
    std::vector<double> values;
    const std::vector<double> l = {400, 500, 600};
    const std::string falling = Write("falling.ftr", "300 10\n500 20\n450 30\n");
    EXPECT_EQ(ReadFilterValues(falling, values, 3, l, "left"), 0);
    EXPECT_TRUE(Reported("The filtervalues from file '" + falling + "' cannot be interpolated"));
    EXPECT_TRUE(Reported("450"));

    ClearReportedMessages();
    const std::string narrow = Write("narrow.ftr", "450 20\n550 40\n");
    EXPECT_EQ(ReadFilterValues(narrow, values, 3, l, "right"), 1);
    EXPECT_TRUE(Reported("cannot be interpolated at the wavelengthvalues from the spectrum."));
    EXPECT_NEAR(values[0], 10, 1e-12); // the straight line through the end points

    ClearReportedMessages();
    std::string lines;
    for (int i = 0; i <= MAX_SPECTRUM_LINES; ++i) lines += std::to_string(300 + i) + " 50\n";
    const std::string big = Write("big.ftr", lines);
    EXPECT_EQ(ReadFilterValues(big, values, 3, l, "left"), 0);
    EXPECT_TRUE(
        Reported("The filtervalues from file '" + big + "' contains too many (2501 > 2500) different"));
}

} // namespace
} // namespace tervo
