// The filter file: read and interpolated at the wavelengths of a spectrum.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "setup/spectrum.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetMessages();
    const std::string path = tervo::fuzz::WriteInput(data, size, "filter/fuzz.ftr");
    constexpr int n = 60;
    std::vector<double> wavelengths(n);
    for (int k = 0; k < n; ++k) wavelengths[static_cast<std::size_t>(k)] = 300.0 + 20.0 * k;
    std::vector<double> values;
    tervo::ReadFilterValues(path, values, n, wavelengths, "left contact");
    return 0;
}
