/* A host in C99 that hands its own arrays, without casts, to every routine that takes nested ones. */
#include "korva_reference_api.h"

#include <stdio.h>

static int failures = 0;

static void expect(int holds, char const* what) {
  if (holds) return;
  printf("does not hold: %s\n", what);
  ++failures;
}

static void snapshotAndLineScan(void) {
  unsigned short **frame, **band;
  unsigned short ***ring, ***slice;
  unsigned long row, column;
  KORVA_Ref_AllocateArray2D_uint16(&frame, 8, 8);
  KORVA_Ref_AllocateArray2D_uint16(&band, 8, 8);
  for (row = 0; row < 8; ++row)
    for (column = 0; column < 8; ++column) frame[row][column] = (unsigned short)(10 * row + column);

  KORVA_Ref_CG_CropImage_uint16(band, frame, 8, 8, 2, 1, 3, 2);
  expect(band[1][2] == 24, "the crop starts at column 2 of row 1");
  KORVA_Ref_CG_SSM_GetBandImage_uint16(band, frame, 8, 8, 4, 4, 6);
  expect(band[0][0] == 12 && band[0][1] == 16 && band[1][0] == 52, "band 6 of a 4 x 4 mosaic");
  KORVA_Ref_CG_SST_GetBandImage_uint16(band, frame, 8, 8, 4, 4, 3);
  expect(band[0][0] == 44, "tile 3 of a 2 x 2 grid");

  KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16(&ring, 8, 2, 2, 1, 2);
  KORVA_Ref_AllocateArray3D_BSQ_uint16(&slice, 8, 4, 2);
  KORVA_Ref_CG_LS_GetBandImageStrip_uint16(band, frame, 8, 8, 2, 1);
  KORVA_Ref_CG_LS_StitchBandImageStrip_uint16(ring, band, 8, 2, 1, 2, 1, 0, 1);
  expect(ring[0][2][0] == 20, "band 1 of frame 1 lies in slot 1");
  KORVA_Ref_CG_LS_StitchBandImage_uint16(ring, frame, 8, 2, 1, 2, 0);
  KORVA_Ref_CG_LS_StitchBandImage_uint16(ring, frame, 8, 2, 1, 2, 1);
  KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16(slice, ring, 8, 2, 4, 2, 1, 2, 1);
  expect(slice[0][2][0] == 20 && slice[1][3][7] == 57, "the first slice lies in the bottom slot");
  KORVA_Ref_FreeArray3D_BSQ_uint16(slice);
  KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16(ring);
  KORVA_Ref_FreeArray2D_uint16(band);
  KORVA_Ref_FreeArray2D_uint16(frame);
}

static void spectra(void) {
  double weights[2][3] = {{1.0, 0.0, -1.0}, {0.5, 0.5, 0.5}};
  double* matrix[2];
  double scratch[4];
  float ***in, ***out;
  unsigned short ***countsIn, ***countsOut;
  float spectrum[2];
  unsigned short counts[2];
  unsigned long band, k;
  matrix[0] = weights[0];
  matrix[1] = weights[1];
  KORVA_Ref_AllocateArray3D_BSQ_float(&in, 2, 2, 3);
  KORVA_Ref_AllocateArray3D_BSQ_float(&out, 2, 2, 2);
  KORVA_Ref_AllocateArray3D_BSQ_uint16(&countsIn, 2, 2, 3);
  KORVA_Ref_AllocateArray3D_BSQ_uint16(&countsOut, 2, 2, 2);
  for (band = 0; band < 3; ++band) {
    for (k = 0; k < 4; ++k) {
      in[band][0][k] = (float)(band + 1);
      countsIn[band][0][k] = (unsigned short)(band + 1);
    }
  }
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float(out, scratch, in, matrix, 2, 3, 4);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16(countsOut, scratch, countsIn, matrix, 2, 3, 4);
  expect(out[0][1][1] == 0.0f && out[1][1][1] == 3.0f, "negative sums of a cube become 0");
  expect(countsOut[0][1][1] == 0 && countsOut[1][1][1] == 3 && scratch[3] == 3.0, "so do those of counts");
  KORVA_Ref_SC_ApplySpectralCorrection_float(spectrum, in[0][0], matrix, 2, 3);
  KORVA_Ref_SC_ApplySpectralCorrection_uint16(counts, countsIn[0][0], matrix, 2, 3);
  expect(spectrum[0] == 0.0f && spectrum[1] == 1.5f && counts[1] == 2, "halves round up");
  KORVA_Ref_SC_ApplySpectralCorrection_BIP_float(spectrum, in[0][0], matrix, 2, 3, 1);
  KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16(counts, countsIn[0][0], matrix, 2, 3, 1);
  expect(spectrum[1] == 1.5f && counts[1] == 2, "a run of one pixel is that pixel");
  KORVA_Ref_FreeArray3D_BSQ_uint16(countsOut);
  KORVA_Ref_FreeArray3D_BSQ_uint16(countsIn);
  KORVA_Ref_FreeArray3D_BSQ_float(out);
  KORVA_Ref_FreeArray3D_BSQ_float(in);
}

static void images(void) {
  unsigned long width = 8, height = 8, row, column;
  double kernel[49] = {0.0};
  float **a, **b;
  unsigned short **counts, **filtered;
  float ***colours, ***converted;
  KORVA_Ref_AllocateArray2D_float(&a, width, height);
  KORVA_Ref_AllocateArray2D_float(&b, width, height);
  KORVA_Ref_AllocateArray2D_uint16(&counts, width, height);
  KORVA_Ref_AllocateArray2D_uint16(&filtered, width, height);
  for (row = 0; row < height; ++row) {
    for (column = 0; column < width; ++column) {
      a[row][column] = (float)(10 * row + column);
      counts[row][column] = (unsigned short)(row == 3 && column == 3 ? 65535 : 7);
    }
  }
  KORVA_Ref_MF_Median2D_3x3_uint16(filtered, counts, &height, &width);
  expect(filtered[3][3] == 7, "a defect pixel vanishes under 3 x 3");
  KORVA_Ref_MF_Median2D_5x5_uint16(filtered, counts, &height, &width);
  expect(filtered[3][3] == 7, "a defect pixel vanishes under 5 x 5");
  KORVA_Ref_MF_Median2D_3x3_float(b, a, &height, &width);
  expect(b[4][4] == 44.0f, "a slope keeps its median under 3 x 3");
  KORVA_Ref_MF_Median2D_5x5_float(b, a, &height, &width);
  expect(b[4][4] == 44.0f, "a slope keeps its median under 5 x 5");

  kernel[24] = 1.0;
  KORVA_Ref_ApplyKernel7x7_float(b, a, width, height, kernel);
  expect(b[3][4] == 34.0f, "the centre weight copies");
  KORVA_Ref_Subtract_float(b, a, a, width, height);
  KORVA_Ref_Add_float(b, b, a, width, height);
  KORVA_Ref_Mix_float(b, a, b, width, height, 0.25);
  expect(b[7][7] == 77.0f, "a mix of equal images is that image");
  KORVA_Ref_Crop_float(b, a, width, height, 3, 3, 2, 2);
  expect(b[1][1] == 44.0f, "the crop starts at (3, 3)");

  KORVA_Ref_AllocateArray3D_BSQ_float(&colours, width, height, 4);
  KORVA_Ref_AllocateArray3D_BSQ_float(&converted, width, height, 4);
  KORVA_Ref_RGBX_ComputeBand_R_float(colours[0], a, width, height);
  KORVA_Ref_RGBX_ComputeBand_G_float(colours[1], a, width, height);
  KORVA_Ref_RGBX_ComputeBand_B_float(colours[2], a, width, height);
  KORVA_Ref_RGBX_ComputeBand_X_float(colours[3], a, width, height);
  KORVA_Ref_RGBX_DemosaicFrame_float(converted, b, a, width, height);
  for (row = 0; row < 4; ++row)
    expect(colours[row][3][3] == 33.0f && converted[row][0][0] == 33.0f, "a slope is reproduced in every band");
  for (row = 0; row < 4; ++row)
    for (column = 0; column < width * height; ++column) colours[row][0][column] = 0.5f;
  KORVA_Ref_RGBToYCbCr_float(converted, colours, width, height, 0.25, 0.25);
  KORVA_Ref_YCbCrToRGB_float(converted, converted, width, height, 0.25, 0.25);
  expect(converted[1][7][7] == 0.5f, "grey stays grey");
  {
    NewWLIBuffers buffers;
    KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(&buffers, width, height);
    KORVA_Ref_RGBX_ComputeNewWLI_float(converted, colours, width, height, kernel, buffers, 0.25, 0.25, 0.5);
    expect(converted[2][1][1] == 0.5f, "a grey image keeps its grey");
    KORVA_Ref_RGBX_FreeNewWLIBuffers_float(buffers);
  }
  KORVA_Ref_FreeArray3D_BSQ_float(converted);
  KORVA_Ref_FreeArray3D_BSQ_float(colours);
  KORVA_Ref_FreeArray2D_uint16(filtered);
  KORVA_Ref_FreeArray2D_uint16(counts);
  KORVA_Ref_FreeArray2D_float(b);
  KORVA_Ref_FreeArray2D_float(a);
}

int main(void) {
  snapshotAndLineScan();
  spectra();
  images();
  return failures;
}
