// The absorption file of a pure material: its own wavelength grid, and interpolated at the
// wavelengths of a spectrum (in /cm, as shown).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "fuzz_support.h"
#include "setup/absorption.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetMessages();
    const std::string path = tervo::fuzz::WriteInput(data, size, "absorption/fuzz.abs");
    tervo::MaterialParameters material;
    material.absorptionA = 1;
    material.absorptionFileA = path;
    material.absorption.pureA = 1100; // cut-off wavelength, nm
    std::vector<double> grid(tervo::ALPHA_GRID_POINTS, 2 * tervo::ALPHA_GRID_REQUEST);
    std::vector<double> alpha;
    tervo::DetermineLayerAlpha(material, grid, alpha, tervo::ALPHA_GRID_POINTS, 0, 0);
    constexpr int n = 60;
    std::vector<double> wavelengths(n);
    for (int k = 0; k < n; ++k) wavelengths[static_cast<std::size_t>(k)] = 300.0 + 20.0 * k;
    tervo::DetermineLayerAlpha(material, wavelengths, alpha, n, 0, 1);
    return 0;
}
