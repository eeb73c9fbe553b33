/* Corrects spectra of a host whose rows are const. */
#define KORVA_INNER_CONST const
#include <korva_reference_api.h>
#include <stdio.h>

int main(void) {
  static float const low[2] = {1, 2}, high[2] = {4, 4};
  static double const single[2] = {1, 1}, twice[2] = {1, 2};
  float const* const in[2] = {low, high};
  float const* const* const cube[2] = {in, in + 1};
  double const* const matrix[2] = {single, twice};
  float first[2], second[2];
  float* const out[2] = {first, second};
  float* const* const planes[2] = {out, out + 1};
  double scratch[2];
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float(planes, scratch, cube, matrix, 2, 2, 2);
  printf("%g %g %g %g\n", first[0], first[1], second[0], second[1]);
  return 0;
}
