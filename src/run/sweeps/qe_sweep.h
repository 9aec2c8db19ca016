// The quantum-efficiency characteristic at the working point.  A weak monochromatic probe light is
// added to the bias light of the working point, the cell is solved again, and the change of the
// current per incident probe photon is the QE at that wavelength: a differential quantity under
// bias, one full steady-state solve per wavelength, each started from the stored working point.
#pragma once

#include "run/control/work_point.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo {

// Runs the QE request `action.QE` (wavelengths in nm, `points` of them evenly from `start` to
// `stop`) on `cv`, which holds the solved working point with the generation of its bias light; the
// bias light is the record `cv.generation` points at (`generatieparameters` when none).  For the
// duration of the sweep `cv` reads the generation of the sum of the bias and the probe light.
// The probe is `numberOfPhotons` photons per m2 and second (QE mode 1) or `incidentPower` W/m2
// (mode 0) of the bias record, before the filter of the illuminated contact.  QE (%) is the
// magnitude of (J - JWorkingPoint) in mA/cm2 per photon current q F, times 100.  The curve goes into
// the present element of the result list: `qe_as` (nm), `hv_as` (eV) and `qe` (%), `points` values
// each, zeros beyond the wavelengths reached.  A wavelength that does not converge cuts the curve
// at the last good one (reported once).  Sets `action.QE.done` and QEConvergenceFailure; `cv` ends
// on the last solved wavelength and reads the bias light again.
void calcqe(CalculationVariables& cv, Actie& action);

// The wavelengths of `spectrum` and `mono` into `total`, ascending, each (exactly equal) value once;
// `numberOfWavelengths` is their count.  Two empty lists leave `total` with no wavelengths.
void AddSpectra(const GenerationParameters& spectrum, const GenerationParameters& mono,
                GenerationParameters& total);

// Adds P (W/m2) to the power of the first wavelength of `gp` that equals `lambda` exactly; a
// wavelength that is not in the list changes nothing.
void AddPower(GenerationParameters& gp, double lambda, double P);

// Each incoming flux of `total` becomes the sum of the incoming fluxes of `spectrum` and `mono` at
// exactly its wavelength.
void AddIncomingFluxes(const GenerationParameters& spectrum, const GenerationParameters& mono,
                       GenerationParameters& total);

} // namespace tervo
