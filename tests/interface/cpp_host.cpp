// The public header first and alone: it must bring everything that it uses.
#include "korva_reference_api.h"

// Calls that must find their overload without a cast, from a host's own arrays.
void correctSpectra(float*** floats, unsigned short*** shorts, double** matrix, double* scratch);

void correctSpectra(float*** floats, unsigned short*** shorts, double** matrix, double* scratch) {
  unsigned short const flag = 65535;
  KORVA_Ref_RC_CorrectBias(floats[0][0], floats[1][0], floats[2][0], 4);
  KORVA_Ref_RC_CorrectBias(shorts[0][0], shorts[1][0], shorts[2][0], 4);
  KORVA_Ref_RC_ComputeCorrectionCoefficients(scratch, floats[0][0], 4, 1.0, 1.0, 0.0f);
  KORVA_Ref_RC_ComputeCorrectionCoefficients(scratch, shorts[0][0], 4, 1.0, 1.0, flag);
  KORVA_Ref_RC_ComputeReflectance(floats[0][0], floats[1][0], scratch, 4, 1.0, 0.0f, 1.0f);
  KORVA_Ref_RC_ComputeReflectance(shorts[0][0], shorts[1][0], scratch, 4, 1.0, flag, flag, flag);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ(floats, scratch, floats + 3, matrix, 3, 3, 4);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ(shorts, scratch, shorts + 3, matrix, 3, 3, 4);
}
