// Subtracts a bias through an overload, which C++ hosts alone have.
#include <korva_reference_api.h>

#include <cstdio>

// A host's own arrays must find their overload without a cast.
void correctSpectra(float*** cube, unsigned short*** counts, double** matrix, double* scratch) {
  unsigned short const flag = 65535;
  KORVA_Ref_RC_CorrectBias(counts[0][0], counts[1][0], counts[2][0], 4);
  KORVA_Ref_RC_ComputeCorrectionCoefficients(scratch, cube[0][0], 4, 1.0, 1.0, 0.0f);
  KORVA_Ref_RC_ComputeCorrectionCoefficients(scratch, counts[0][0], 4, 1.0, 1.0, flag);
  KORVA_Ref_RC_ComputeReflectance(cube[0][0], cube[1][0], scratch, 4, 1.0, 0.0f, 1.0f);
  KORVA_Ref_RC_ComputeReflectance(counts[0][0], counts[1][0], scratch, 4, 1.0, flag, flag, flag);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ(cube, scratch, cube + 3, matrix, 3, 3, 4);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ(counts, scratch, counts + 3, matrix, 3, 3, 4);
}

int main() {
  float const in[4] = {6.0f, 7.0f, 10.0f, 11.0f};
  float const bias[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  float out[4];
  KORVA_Ref_RC_CorrectBias(out, in, bias, 4);
  std::printf("%g %g %g %g\n", out[0], out[1], out[2], out[3]);
}
