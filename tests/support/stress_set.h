// Variants of shipped cells across the ranges researchers use: the CIGS cell over absorber thickness,
// absorber doping and the conduction-band offset at the buffer, under the light I-V to 1.1 V; and the
// perovskite-type p-i-n cell with a thicker intrinsic layer, swept to 1.4 V, far into high injection
// (both carriers above the doping of the i-layer by orders of magnitude); and the graded CIGS cell on
// adaptive meshes finer than its own (a smaller largest ratio between neighbouring points), as a user
// checks that a result does not depend on the mesh.  The tests run the cheap ones, the benchmarks
// all of them.
#pragma once

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace tervo::test {

struct StressVariant {
    double thickness = 2; // absorber, µm
    double doping = 1e16; // absorber acceptors, /cm3 (0 for the p-i-n: its own i-layer)
    double bufferChi = 0; // electron affinity of the buffer (eV); 0 keeps the shipped one
    bool pin = false;     // the p-i-n cell instead of the CIGS cell
    double meshRatio = 0; // > 0: the graded cell with this largest ratio between neighbouring points
    std::string Name() const {
        char text[96];
        if (meshRatio > 0)
            std::snprintf(text, sizeof text, "graded_ratio%g", meshRatio);
        else if (pin)
            std::snprintf(text, sizeof text, "pin_d%g", thickness);
        else
            std::snprintf(text, sizeof text, "cigs_d%g_na%g%s", thickness, doping,
                          bufferChi > 0 ? "_spike" : "");
        return text;
    }
    // The shipped definition and action list of the variant, relative to the source tree.
    std::string BaseCell() const {
        if (meshRatio > 0) return "examples/cells/graded_cigs.def";
        return pin ? "examples/cells/perovskite.def" : "home/def/cigs.def";
    }
    std::string Actions() const { return pin ? "bench/light_jv_75.act" : "examples/actions/light_iv.act"; }
};

// The thickness-doping grid: 0.3 to 100 µm times 1e14 to 1e18 /cm3, and the cell with a 0.4 eV
// spike of the conduction band at the buffer (absorber affinity 4.5 eV, buffer 4.1 eV).
inline std::vector<StressVariant> StressGrid(bool cheapOnly) {
    std::vector<StressVariant> all;
    const std::vector<double> thin{0.3, 1, 3}, thick{10, 30, 100};
    for (const std::vector<double>* set : {&thin, &thick}) {
        if (cheapOnly && set == &thick) break;
        for (double d : *set)
            for (double na : {1e14, 1e15, 1e16, 1e17, 1e18})
                if (!cheapOnly || (na != 1e15 && na != 1e17)) all.push_back({d, na, 0});
    }
    all.push_back({2, 1e16, 4.1});
    all.push_back({2, 0, 0, true});
    if (!cheapOnly) all.push_back({10, 0, 0, true});
    all.push_back({0, 0, 0, false, 1.2});
    if (!cheapOnly) all.push_back({0, 0, 0, false, 1.1});
    return all;
}

// The definition text of the variant's shipped cell (`shipped`) with the variant's absorber and buffer.
inline std::string StressDefinition(const std::string& shipped, const StressVariant& v) {
    if (v.meshRatio > 0) {
        const std::string key = "maximum ratio between neighbouring points :";
        const size_t at = shipped.find(key);
        if (at == std::string::npos) return "";
        char value[48];
        std::snprintf(value, sizeof value, "  %.2e", v.meshRatio);
        return shipped.substr(0, at + key.size()) + value + shipped.substr(shipped.find('\n', at));
    }
    const int absorber = v.pin ? 2 : 1;
    std::istringstream in(shipped);
    std::ostringstream out;
    std::string line;
    int layer = 0;
    bool thickness = false, doping = false, chi = false;
    char value[160];
    while (std::getline(in, line)) {
        if (line == "layer") ++layer;
        if (layer == absorber && !thickness && line.rfind("d :", 0) == 0) {
            std::snprintf(value, sizeof value, "d : %.4e [m]", v.thickness * 1e-6);
            line = value;
            thickness = true;
        } else if (layer == absorber && !doping && v.doping > 0 && line.rfind("Na(uniform) :", 0) == 0) {
            const double N = v.doping * 1e6;
            std::snprintf(value, sizeof value,
                          "Na(uniform) :\t %e\t %e\t %e\t 1\t 1\t %e\t %e\t 0\t 2\t[/m^3]", N, N, N, N, N);
            line = value;
            doping = true;
        } else if (layer == 2 && !chi && v.bufferChi > 0 && line.rfind("chi :", 0) == 0) {
            const double c = v.bufferChi;
            std::snprintf(value, sizeof value, "chi :\t %f\t %f\t %f\t 1\t 1\t %f\t %f\t 0\t 2\t[eV]", c, c,
                          c, c, c);
            line = value;
            chi = true;
        }
        out << line << '\n';
    }
    // A line that was not found would leave the shipped cell under the variant's name.
    if (!thickness || (v.doping > 0 && !doping) || (v.bufferChi > 0 && !chi)) return "";
    return out.str();
}

} // namespace tervo::test
