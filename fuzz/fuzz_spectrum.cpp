// The spectrum file: read, sorted, cut off between two wavelengths (with the powers of the cut-off
// interpolation) and without a cut-off.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "setup/spectrum.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetMessages();
    const std::string path = tervo::fuzz::WriteInput(data, size, "spectrum/fuzz.spe");
    for (int cutoff = 0; cutoff < 2; ++cutoff) {
        tervo::SpectrumSettings light;
        light.dark = 0;
        light.spectrumFile = path;
        light.cutoff = cutoff;
        light.lambda_short = 350;
        light.lambda_long = 1100;
        light.ND = 0.3;
        std::vector<double> lambda, watt;
        tervo::bepaal_spectrum(light, lambda, watt);
    }
    return 0;
}
