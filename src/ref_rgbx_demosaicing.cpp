// RGBX: the R, G, B and X bands of an RGBX frame at full resolution, and the call that makes all four.
#include "korva_reference_api.h"

#include "internal/multiversion.h"
#include "internal/strict_float.h"

namespace {

KORVA_INLINE float mean(float a, float b) { return (a + b) * 0.5f; }

KORVA_INLINE float mean(float a, float b, float c, float d) { return (((a + b) + c) + d) * 0.25f; }

// The R and B bands: each site (y, x) carries its sample to the seven pixels around and right of it that have none.
// The sites of R lie where those of B do not, in the same rows; phaseOfFirstRow tells the two bands apart.
void computeSparseBand(float* const* out, float const* const* in, unsigned long width, unsigned long height,
                       unsigned long phaseOfFirstRow) {
  unsigned long const halfHeight = height / 2;
  unsigned long const halfWidth = width / 2;
  if (halfHeight <= 2) return;
  for (unsigned long i = 1; i + 1 < halfHeight; ++i) {
    unsigned long const y = 2 * i + 1;
    unsigned long const phase = (i - 1 + phaseOfFirstRow) % 2;
    for (unsigned long j = phase; j < halfWidth - 3 + 2 * phase; j += 2) {
      unsigned long const x = 2 * j + 1;
      float const left = in[y][x];
      float const above = in[y - 2][x + 2];
      float const right = in[y][x + 4];
      float const below = in[y + 2][x + 2];
      float const centre = mean(left, above, right, below);
      out[y - 1][x + 1] = mean(left, above);
      out[y][x] = left;
      out[y][x + 2] = centre;
      out[y + 1][x + 1] = mean(left, below);
      out[y - 1][x + 2] = mean(above, centre);
      out[y][x + 1] = mean(left, centre);
      out[y][x + 3] = mean(right, centre);
      out[y + 1][x + 2] = mean(centre, below);
    }
  }
}

constexpr unsigned long kMargin = 3;

}  // namespace

// Bands -------------------------------------------------------------------------------------------------------------

void KORVA_Ref_RGBX_ComputeBand_R_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeSparseBand(out, in, width, height, 0);
}

void KORVA_Ref_RGBX_ComputeBand_G_float(float** out, float** in, unsigned long width, unsigned long height) {
  for (unsigned long row = 1; row + 1 < height; ++row) {
    for (unsigned long column = (row + 1) % 2; column < width - 1 - row % 2; column += 2) {
      float const left = in[row][column];
      float const right = in[row][column + 2];
      out[row][column + 1] = mean(left, in[row - 1][column + 1], right, in[row + 1][column + 1]);
      out[row][column] = left;
    }
  }
}

void KORVA_Ref_RGBX_ComputeBand_B_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeSparseBand(out, in, width, height, 1);
}

void KORVA_Ref_RGBX_ComputeBand_X_float(float** out, float** in, unsigned long width, unsigned long height) {
  for (unsigned long row = 0; row + 3 < height; row += 2) {
    for (unsigned long column = 0; column + 3 < width; column += 2) {
      float const a = in[row][column];
      float const b = in[row][column + 2];
      float const d = in[row + 2][column];
      float const e = in[row + 2][column + 2];
      out[row][column] = a;
      out[row][column + 1] = mean(a, b);
      out[row + 1][column] = mean(a, d);
      out[row + 1][column + 1] = mean(a, b, d, e);
    }
  }
}

// Frame -------------------------------------------------------------------------------------------------------------

void KORVA_Ref_RGBX_DemosaicFrame_float(float*** out, float** scratch, float** frame, unsigned long width,
                                        unsigned long height) {
  using ComputeBand = void (*)(float**, float**, unsigned long, unsigned long);
  constexpr ComputeBand kBands[] = {KORVA_Ref_RGBX_ComputeBand_R_float, KORVA_Ref_RGBX_ComputeBand_G_float,
                                    KORVA_Ref_RGBX_ComputeBand_B_float, KORVA_Ref_RGBX_ComputeBand_X_float};
  for (unsigned long band = 0; band < 4; ++band) {
    kBands[band](scratch, frame, width, height);
    KORVA_Ref_Crop_float(out[band], scratch, width, height, kMargin, kMargin, width - 2 * kMargin,
                         height - 2 * kMargin);
  }
}
