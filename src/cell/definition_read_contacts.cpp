// The two contact sections of a definition file: work function or flat band, surface recombination
// velocities, the optical filter of the contact, tunnelling to the contact.
#include "cell/definition_reader.h"

namespace tervo::defread {

namespace {

struct ContactTarget {
    ContactParameters& c;
    ContactReadState& st;
};

using Entry = KeyEntry<ContactTarget>;
constexpr KeyMatch NoCase = KeyMatch::NoCase;

// The keys of a contact section, in the order in which they are tried.
constexpr auto kContactKeys = std::to_array<Entry>({
    {"flatband", NoCase,
     [](DefReader& r, ContactTarget& t) {
         if (r.Integer(t.c.flatband, false, 0, 1)) t.st.flatbandSeen = true;
     }},
    {"recalculate", NoCase, [](DefReader& r, ContactTarget& t) { r.Integer(t.c.recalculate, false, 0, 1); }},
    // A work function that is given makes the contact one of that work function.
    {"Fi_m", NoCase,
     [](DefReader& r, ContactTarget& t) {
         if (r.Number(t.c.Fi_m)) {
             t.c.flatband = 0;
             t.st.fiSeen = true;
         }
     }},
    {"Sn", NoCase, [](DefReader& r, ContactTarget& t) { r.Number(t.c.Sn, false, Range::NonNegative); }},
    {"Sp", NoCase, [](DefReader& r, ContactTarget& t) { r.Number(t.c.Sp, false, Range::NonNegative); }},
    {"optical filter", NoCase,
     [](DefReader& r, ContactTarget& t) {
         t.c.opticalFilter = 1;
         if (r.Holds("transmission"))
             t.c.transmission = 1;
         else if (r.Holds("reflection"))
             t.c.transmission = 0;
     }},
    {"filterfile", NoCase, [](DefReader& r, ContactTarget& t) { t.c.filterFile = AfterColon(r.line); }},
    {"wavelength independent", NoCase,
     [](DefReader& r, ContactTarget& t) { r.Integer(t.c.wavelengthIndependent, false, 0, 1); }},
    {"filter value", NoCase,
     [](DefReader& r, ContactTarget& t) { r.Number(t.c.filterValue, false, Range::Fraction); }},
    {"Tunneling to contact", NoCase,
     [](DefReader& r, ContactTarget& t) {
         if (r.Integer(t.c.tunnelling, false, 0, 1))
             NoteTunnelFlagFromElement(r, t.c.tunnelling, r.P.convergence.Tunnelcontact_allowed);
     }},
    {"Relative electron mass", NoCase,
     [](DefReader& r, ContactTarget& t) { r.Number(t.c.relElectronMass, false, Range::Positive); }},
    {"Relative hole mass", NoCase,
     [](DefReader& r, ContactTarget& t) { r.Number(t.c.relHoleMass, false, Range::Positive); }},
});

} // namespace

void ReadContactLine(DefReader& r, ContactParameters& c, ContactReadState& st) {
    ContactTarget target{c, st};
    if (!ReadKeyedLine(r, kContactKeys, target)) r.WarnUnknownKey();
}

// A contact without a flat-band line is a flat-band contact unless its file gave a work function.
void FinishContact(ContactParameters& c, const ContactReadState& st) {
    if (!st.flatbandSeen) c.flatband = st.fiSeen ? 0 : 1;
}

} // namespace tervo::defread
