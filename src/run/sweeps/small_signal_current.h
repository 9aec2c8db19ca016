// The small-signal currents of a solved small-signal system, point by point over the mesh.
//
// The electron and hole currents of the steady state are linearised in the deviations left by
// bereken_klein_signaal (solver/ac_system), link by link, and taken at the points as the steady
// currents are: the mean of the two links at an inner point, the one link inside the layer at the
// first and last point of a layer.  With the displacement current eps eps0 i omega E this gives the
// total current, which is the same at every point when the system is solved exactly.  All currents
// run from the left contact to the right one, in A/m2 for the applied `amplitude`.
#pragma once

#include "setup/parameter_sets.h"

namespace tervo {

// Signs of the three parts in the imaginary part of the total current (diagnostics; 1 by default).
extern int teken_Jn;
extern int teken_Jp;
extern int teken_Jdisplacement;

extern MeshArray del_jn_re, del_jn_im, del_jp_re, del_jp_im, J_displ_re, J_displ_im, del_j_tot_re,
    del_j_tot_im;

// Fills the arrays above from del_Psi, del_u, del_v and omega_us (solver/ac_system).
void extraheer_kleinsignaalstroom(const CalculationVariables& cv);

// The admittance of the cell proper, S/m2: the mean over the mesh of the total small-signal current,
// by amplitude and kT.  Real part conductance, imaginary part omega_us times capacitance.
struct Admittance {
    double re = 0;
    double im = 0;
};
Admittance SmallSignalAdmittance(const CalculationVariables& cv);

// Adds a shunt conductance Gsh (S/m2, when `shunt`) over the cell and then a series resistance Rs
// (ohm m2, when `series`) outside it.
Admittance WithShuntAndSeries(Admittance y, bool shunt, double Gsh, bool series, double Rs);

} // namespace tervo
