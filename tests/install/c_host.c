/* Copies a rectangle out of a frame and says which version did it. */
#include <korva_reference_api.h>
#include <stdio.h>

/* A host's own arrays must reach the routines whose inner levels are const in C++ without a cast. */
void correctSpectra(float*** cube, unsigned short*** counts, double** matrix, double* scratch) {
  KORVA_Ref_SC_ApplySpectralCorrection_float(cube[0][0], cube[1][0], matrix, 3, 3);
  KORVA_Ref_SC_ApplySpectralCorrection_uint16(counts[0][0], counts[1][0], matrix, 3, 3);
  KORVA_Ref_SC_ApplySpectralCorrection_BIP_float(cube[0][0], cube[1][0], matrix, 3, 3, 4);
  KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16(counts[0][0], counts[1][0], matrix, 3, 3, 4);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float(cube, scratch, cube + 3, matrix, 3, 3, 4);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16(counts, scratch, counts + 3, matrix, 3, 3, 4);
}

int main(void) {
  unsigned short** frame;
  unsigned short** part;
  KORVA_Ref_AllocateArray2D_uint16(&frame, 4, 3);
  KORVA_Ref_AllocateArray2D_uint16(&part, 2, 2);
  for (unsigned short k = 0; k < 12; ++k) frame[0][k] = k;
  KORVA_Ref_CG_CropImage_uint16(part, frame, 4, 3, 1, 1, 2, 2);
  printf("%d.%d.%d: %d %d %d %d\n", KORVA_REFERENCE_API_VERSION_MAJOR, KORVA_REFERENCE_API_VERSION_MINOR,
         KORVA_REFERENCE_API_VERSION_PATCH, part[0][0], part[0][1], part[1][0], part[1][1]);
  KORVA_Ref_FreeArray2D_uint16(part);
  KORVA_Ref_FreeArray2D_uint16(frame);
  return 0;
}
