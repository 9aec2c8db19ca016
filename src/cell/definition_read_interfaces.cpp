// The interface sections of a definition file: the properties of the interface behind the last
// layer read (name, intraband tunnelling) and its defects (type, cross sections from both sides,
// energy distribution, density, tunnelling to the trap).
#include "cell/definition_reader.h"
#include "platform/format.h"
#include "platform/text_util.h"

namespace tervo::defread {

namespace {

constexpr KeyMatch NoCase = KeyMatch::NoCase;
constexpr KeyMatch Exact = KeyMatch::Exact;
constexpr KeyMatch Anywhere = KeyMatch::Anywhere;

void ReadInterfaceName(DefReader& r, InterfaceParameters& f) {
    std::string name = AfterColon(r.line);
    if (name.size() > MAX_INTERFACE_NAME) name.resize(MAX_INTERFACE_NAME);
    f.name = name;
}

// The keys of the interface properties, in the order in which they are tried.
constexpr auto kInterfaceKeys = std::to_array<KeyEntry<InterfaceParameters>>({
    {"Intraband tunneling", NoCase,
     [](DefReader& r, InterfaceParameters& f) {
         if (r.Integer(f.intrabandTunnelling, false, 0, 1))
             NoteTunnelFlagFromElement(r, f.intrabandTunnelling, r.P.convergence.Tunnelintraband_allowed);
     }},
    {"Relative electron mass", NoCase,
     [](DefReader& r, InterfaceParameters& f) { r.Number(f.relElectronMass, false, Range::Positive); }},
    {"Relative hole mass", NoCase,
     [](DefReader& r, InterfaceParameters& f) { r.Number(f.relHoleMass, false, Range::Positive); }},
    {"interfacename", NoCase, ReadInterfaceName},
});

struct InterfaceDefectTarget {
    InterfaceParameters& f;
    InterfaceRecombinationParameters& d;
    bool& referenceSeen;
};

template <double InterfaceRecombinationParameters::*field, Range range = Range::NonNegative>
void DefectNumber(DefReader& r, InterfaceDefectTarget& t) {
    r.Number(t.d.*field, false, range);
}

// The keys of an interface defect, in the order in which they are tried.
constexpr auto kInterfaceDefectKeys = std::to_array<KeyEntry<InterfaceDefectTarget>>({
    {"interfacename", NoCase, [](DefReader& r, InterfaceDefectTarget& t) { ReadInterfaceName(r, t.f); }},
    {"type", NoCase,
     [](DefReader& r, InterfaceDefectTarget& t) {
         const int type = TypeFromLine(r.line);
         if (type >= 0) t.d.type = type;
     }},
    {"sigma_nleft", NoCase, DefectNumber<&InterfaceRecombinationParameters::sigma_nleft>},
    {"sigma_nright", NoCase, DefectNumber<&InterfaceRecombinationParameters::sigma_nright>},
    {"sigma_pleft", NoCase, DefectNumber<&InterfaceRecombinationParameters::sigma_pleft>},
    {"sigma_pright", NoCase, DefectNumber<&InterfaceRecombinationParameters::sigma_pright>},
    {"Tunneling to trap", NoCase,
     [](DefReader& r, InterfaceDefectTarget& t) {
         if (r.Integer(t.d.tunnelling, false, 0, 1))
             NoteTunnelFlagFromElement(r, t.d.tunnelling, r.P.convergence.Tunneliface_allowed);
     }},
    {"Relative electron mass", NoCase,
     DefectNumber<&InterfaceRecombinationParameters::relElectronMass, Range::Positive>},
    {"Relative hole mass", NoCase,
     DefectNumber<&InterfaceRecombinationParameters::relHoleMass, Range::Positive>},
    {"energy distribution", NoCase,
     [](DefReader& r, InterfaceDefectTarget& t) {
         const int type = EnergyTypeFromLine(AfterColon(r.line));
         if (type >= 0) t.d.energy.type = type;
     }},
    {"Reference for defect energy", Exact,
     [](DefReader& r, InterfaceDefectTarget& t) {
         if (r.Integer(t.d.energy.reference, true, 0, 7)) t.referenceSeen = true;
     }},
    {"Et", Exact, [](DefReader& r, InterfaceDefectTarget& t) { r.Number(t.d.energy.Et); }},
    {"Ekar", Exact, [](DefReader& r, InterfaceDefectTarget& t) { r.Number(t.d.energy.Ekar); }},
    {"tailtype", Anywhere,
     [](DefReader& r, InterfaceDefectTarget& t) {
         if (r.Holds("valenceband"))
             t.d.energy.type = EDIST_VBTAIL;
         else if (r.Holds("conductionband"))
             t.d.energy.type = EDIST_CBTAIL;
     }},
    {"N", NoCase, DefectNumber<&InterfaceRecombinationParameters::N>},
});

} // namespace

bool ReadInterfacePropertiesSection(DefReader& r) {
    CellDefinition& cell = r.cell();
    const int index = cell.numberOfLayers - 1;
    if (index >= MAX_INTERFACES) {
        r.Fail("interface properties behind the last possible layer");
        return false;
    }
    InterfaceParameters& f = cell.interface[static_cast<size_t>(index)];
    r.where = FmtStr("%s<interface %i", index + 1);
    while (r.Next()) {
        if (StartsLayer(r) || r.Holds("interface recombination") || r.Holds("front contact") ||
            r.Holds("right contact") || r.Holds("spectrumfile") || r.Holds("working point"))
            return true;
        if (!ReadKeyedLine(r, kInterfaceKeys, f)) r.WarnUnknownKey();
    }
    return false;
}

bool ReadInterfaceDefectSection(DefReader& r) {
    CellDefinition& cell = r.cell();
    const int index = cell.numberOfLayers - 1;
    if (index >= MAX_INTERFACES) {
        r.Fail("interface recombination behind the last possible layer");
        return false;
    }
    InterfaceParameters& f = cell.interface[static_cast<size_t>(index)];
    for (;;) {
        if (f.numberOfDefects >= MAX_IFDEFECTS) {
            r.Fail(FmtStr("interface %i holds more than %i defects", index + 1, MAX_IFDEFECTS));
            return false;
        }
        InterfaceRecombinationParameters& d = f.defect[static_cast<size_t>(f.numberOfDefects)];
        r.where = FmtStr("%s<interface %i, defect %i", index + 1, f.numberOfDefects + 1);
        bool referenceSeen = false;
        bool more = false;
        while (r.Next()) {
            if (StartsLayer(r) || r.Holds("front contact") || r.Holds("right contact") ||
                r.Holds("spectrumfile") || r.Holds("working point"))
                break;
            if (StartsWithNoCase(r.TrimLeft(), "next")) {
                more = true;
                break;
            }
            InterfaceDefectTarget target{f, d, referenceSeen};
            if (!ReadKeyedLine(r, kInterfaceDefectKeys, target)) r.WarnUnknownKey();
        }
        if (r.failed) return false;
        if (!referenceSeen) d.energy.reference = 7;
        DeterminePeakToTotal(d.energy);
        d.Ntotal = d.N / d.energy.peakToTotal;
        d.interfaceNumber = index;
        d.defectnumber = f.numberOfDefects;
        ++f.numberOfDefects;
        if (!more) return true;
    }
}

} // namespace tervo::defread
