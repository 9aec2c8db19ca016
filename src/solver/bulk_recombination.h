// Recombination in the bulk of the layers and the charge that it holds: what the equations need at
// every mesh point, with the derivatives by psi, u and v.
//
// Two band-to-band mechanisms are formed here: radiative recombination, B (np - ni^2), and Auger
// recombination, (C_n n + C_p p)(np - ni^2).  Both hold no charge.  Defect (Shockley-Read-Hall)
// recombination enters the same sums through `dc_defects`.
#pragma once

#include "setup/parameter_sets.h"

namespace tervo {

// Zero, add and scale the eight arrays of a record over the first n points.
void rec_dc_initialisatie(RecDcTerms& terms, int n);
void tel_dc_termen_op(const RecDcTerms& a, const RecDcTerms& b, RecDcTerms& sum, int n);
void maal_dc_termen(double factor, const RecDcTerms& in, RecDcTerms& out, int n);

// Radiative and Auger terms at the inner points of every layer (the first and last point of a layer
// get 0).  `out` is overwritten on the whole mesh.
void rdcbijdrage_radiative(CalculationVariables& cv, RecDcTerms& out);
void rdcbijdrage_auger(CalculationVariables& cv, RecDcTerms& out);

// All bulk terms of the present iterate into the state: `dc_defects`, `dc_radiative`, `dc_auger`
// and their sum `dc`.  1, or a negative number when a defect routine fails.
int totale_rdcbijdrage_multilevel(CalculationVariables& cv);

// Self-consistency of defect occupation and sub-gap optical absorption (impurity photovoltaic
// mode).  Active only with the internal optical model and IPV_Mode set; otherwise ft_iterations is
// 0 and the result 1.  1 when converged within maxiter_Ft, else 0; sets ft_iterations.
int IterateFt(CalculationVariables& cv);

} // namespace tervo
