// The grading file: a band gap graded by position through a layer, and by composition.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "cell/grading.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetMessages();
    const std::string path = tervo::fuzz::WriteInput(data, size, "grading/fuzz.grad");
    constexpr int n = 50;
    for (int dependence : {tervo::DEP_POSITION, tervo::DEP_COMPOSITION}) {
        tervo::Profile p;
        p.law = tervo::LAW_FROM_FILE;
        p.dependence = dependence;
        p.variableId = tervo::VAR_EG;
        p.gradingFile = path;
        p.thickness = 1e-6;
        const double end = dependence == tervo::DEP_POSITION ? p.thickness : 1.0;
        std::vector<double> abscissae(n), results(n);
        for (int i = 0; i < n; ++i) abscissae[static_cast<std::size_t>(i)] = end * i / (n - 1);
        tervo::interpolation(p, abscissae.data(), results.data(), 0, n);
    }
    return 0;
}
