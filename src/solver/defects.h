// Occupation, charge and Shockley-Read-Hall recombination of one bulk defect with its derivatives,
// on the level records that set-up builds (setup/defect_levels).
#pragma once

#include "setup/defect_levels.h"
#include "solver/bulk_recombination.h"

namespace tervo {

// Adds `weight` times the terms that `need` names of one bulk defect at energy sample `energy_index`
// to `out`, on the points of the defect's layer; other arrays and points are left alone.  The new
// occupations are stored in the level records, unless the defect is neutral and `need` names only
// charge terms: then nothing is formed.  1, or -1 when the defect has no records.
int AddDefectSample(CalculationVariables& cv, int layer, int defect, int energy_index, double weight,
                    const RecombinationTerms& need, RecDcTerms& out);
// The terms that `need` names of one defect summed over its energy axis (the trapezoid weight of each
// sample; a single level is its one sample), added to `out` on the points of its layer.  1, or -1 - m
// when sample m fails.
int AddDefectTerms(CalculationVariables& cv, int layer, int defect, const RecombinationTerms& need,
                   RecDcTerms& out);

// Charge and recombination of one bulk defect at energy sample `energy_index`, with their derivatives
// by psi, u and v, on the points of the defect's layer of `out` (other points are left alone).  The
// new occupations are stored in the level records.  1, or -1 when the defect has no records.
int rdcbijdrage_een_niveau_multilevel(CalculationVariables& cv, int layer, int defect, int energy_index,
                                      RecDcTerms& out);
// All terms of one defect summed over its energy axis (trapezoid rule; a single level is its one
// sample).  `out` is overwritten on the whole mesh.  1, or -1 - m when sample m fails.
int rdcbijdrage_distributie_multilevel(CalculationVariables& cv, int layer, int defect,
                                       const EnergyAxis& axis, int type, RecDcTerms& out);

} // namespace tervo
