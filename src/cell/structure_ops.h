// Operations on the stack that keep its parts consistent: the contacts follow the layers behind
// them (a flat-band contact takes the work function that leaves the bands flat at the contact).
#pragma once

#include "cell/cell_records.h"

namespace tervo {

// Which contact value the user changed last; the other two follow from it.
enum ContactField : int {
    CONTACT_FIELD_FI_M = 0,
    CONTACT_FIELD_MAJORITY_BARRIER = 1,
    CONTACT_FIELD_CONTACT_BARRIER = 2
};

// What the neutral Fermi level of a layer edge depends on (user form, /cm^3 and eV).
struct NeutralLayerDefect {
    int type = DEFECT_NEUTRAL;
    double sigma_n = 1e-15;
    double sigma_p = 1e-15;
    double Nt = 0;
    EDistribution energy; // Et above EV (reference 0)
};
struct NeutralLayerData {
    double Nc = 0, Nv = 0, Nd = 0, Na = 0, Eg = 0, kT = 0.0259;
    std::vector<NeutralLayerDefect> defects;
    int discretisations = 7;
    double widthtail = 7.0;
    double widthgauss = 6.0;
};

// The equilibrium Fermi level of the neutral bulk with the charge of its defects: distances to the
// band edges (eV), the net charge N, and the type (-1 n, +1 p, 0 intrinsic).
struct NeutralFermiLevel {
    double N = 0;
    double toEC = 0;
    double toEV = 0;
    int type = 0;
};
NeutralFermiLevel CalculateNeutralBulkEquilibriumFermiLevel(const NeutralLayerData& data);
// Net positive charge density in the defects for electron and hole densities n and p.
double NChargedInDefects(const NeutralLayerData& data, double n, double p);

// The data of the left (side -1) or right (+1) edge of a layer in user form at temperature T.
NeutralLayerData NeutralDataOfLayerEdge(const LayerParameters& layer, int side, double temperature,
                                        const ConvergenceParameters& convergence);

// Sets Fi_m, contactBarrier, majorityBarrier and contactType of a contact from the layer behind it
// (the first layer for side -1, the last for +1), by the rule of flatband and the field edited.
void CheckContactsWithActualLayerParameters(int side, ContactParameters& contact,
                                            const LayerParameters& layer, int editedField, double temperature,
                                            const ConvergenceParameters& convergence);

// Renews the work function of each flat-band contact of `cell` (user form) that is to be
// recalculated, from its layer's present values.
void Recalculate_Workfunctions(CellDefinition& cell, double temperature,
                               const ConvergenceParameters& convergence);

} // namespace tervo
