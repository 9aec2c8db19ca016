// Graded properties: the interpolation laws of a Profile, grading files, end values, unit factors,
// and the description of bulk-defect densities used before version 2.7 of the definition file.
#pragma once

#include "cell/cell_records.h"

namespace tervo {

// Values of the profile at n abscissae (composition y or position in µm, by `dependence`).
// With writeBack 1 the laws that define end values store the first and last result in
// leftValue and rightValue.
void interpolation(Profile& p, const double* abscissae, double* results, int writeBack, int n);

// Brings leftValue, rightValue (and pureA, pureB for composition dependence) of the layer's
// profiles up to date; variableId selects one profile, a negative number all of them.
void RecalculateLeftRightValues(LayerParameters& layer, int variableId);
void RecalculateLeftRightNtValue(Profile& Nt, LayerParameters& layer);

// Copy with the values multiplied by factor (lawPar1/2 only where unitPar1/2 say so); the table
// arrays are copied for law 13 and cleared otherwise.
void CopyProfile(Profile& to, const Profile& from, double factor);
void ConvertTotalProfile_to_PeakProfile(Profile& p, double factor);
void ConvertPeakProfile_to_TotalProfile(Profile& p, double factor);

// Between the Nt profile of a level and the old description (profile, Lkar, Nleft, Nright).
void CopyNtProfile_to_TERVO27Data(BulkRecombinationParameters& level);
void CopyTERVO27Data_to_NtProfile(BulkRecombinationParameters& level);

// Multiplies n values by the factor from file form to user form of the profile's quantity.
void Convert_m_To_cm_Units(const Profile& p, double* values, int n);
// The factor from file form to user form of a variableId (1 for an unknown id).
double FileToUserFactor(int variableId);
// Default of logInterpolation for a variableId.
int DefaultLogInterpolation(int variableId);

// Copy a profile out of / into a layer by its variableId.  Writing Eg also sets the cut-off
// wavelengths of the absorption profile to 1239.977/Eg.  Result 0, or -1 for an unknown id.
int GetProfileFromLayer(const LayerParameters& layer, int variableId, Profile& out);
int WriteGradingInfoToMaterial(LayerParameters& layer, int variableId, const Profile& in);

// Interpolation in a table of n points with strictly rising x.  Result 1 with the value in
// `result`; -1 fewer than one point, -3 x not rising, -2 position outside the table (the value is
// then extrapolated).  LinInterp is linear, continuing the end segment outside.  LogInterp is
// linear in ln y (-4 when a y used is not above 0; the value is then linear in y); outside it
// continues the logarithmic slope only where the table grows towards that end and otherwise keeps
// the end value, 0 for an end value not above 0.  With one point the value is that point.
int LinInterp(const double* x, const double* y, int n, double position, double& result);
int LogInterp(const double* x, const double* y, int n, double position, double& result);
// The text that belongs to a result code of LinInterp or LogInterp.
const char* LinInterpMessage(int code);
const char* LogInterpMessage(int code);

// Regularised incomplete beta function I_x(a, b) and its helpers.
double IncompleteBeta(double a, double b, double x);
double betacf(double a, double b, double x);
double gammaln(double x);

} // namespace tervo
