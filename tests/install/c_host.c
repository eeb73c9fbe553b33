/* Corrects spectra with const rows throughout and says which version did it. */
#define KORVA_INNER_CONST const
#include <korva_reference_api.h>
#include <stdio.h>

int main(void) {
  static float const low[2] = {2, 4}, high[2] = {4, 6};
  static double const sum[2] = {1, 1}, mean[2] = {0.5, 0.5};
  float const* const in[2] = {low, high};
  float const* const* const cube[2] = {in, in + 1};
  double const* const matrix[2] = {mean, sum};
  float first[2], second[2];
  float* const out[2] = {first, second};
  float* const* const planes[2] = {out, out + 1};
  double scratch[2];
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float(planes, scratch, cube, matrix, 2, 2, 2);
  printf("%d.%d.%d: %g %g %g %g\n", KORVA_REFERENCE_API_VERSION_MAJOR, KORVA_REFERENCE_API_VERSION_MINOR,
         KORVA_REFERENCE_API_VERSION_PATCH, first[0], first[1], second[0], second[1]);
  return 0;
}
