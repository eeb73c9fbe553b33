#include "support/plain_definitions.h"

#include <algorithm>
#include <cfloat>
#include <cstddef>
#include <iterator>
#include <utility>

namespace korva::plain {

using Short = unsigned short;
using Size = unsigned long;
using Count = unsigned int;

namespace {

// Adds 0.5, truncates to a signed 32-bit integer and keeps its low 16 bits; 0 for NaN and outside that range.
Short toUint16(double value) {
  double const shifted = value + 0.5;
  if (!(shifted > -2147483649.0 && shifted < 2147483648.0)) return 0;
  return static_cast<Short>(static_cast<long long>(shifted) & 0xffff);
}

// ---------------------------------------------------------------------------------------------------------------- CG

template <class T>
void crop(T** out, T** in, Size, Size, Size left, Size top, Size cropWidth, Size cropHeight) {
  for (Size r = 0; r < cropHeight; ++r)
    for (Size c = 0; c < cropWidth; ++c) out[r][c] = in[top + r][left + c];
}

void mosaicBandImage(Short** out, Short** in, Size width, Size height, Size mosaicWidth, Size mosaicHeight, Size band) {
  Size const bandWidth = width / mosaicWidth;
  Size const bandHeight = height / mosaicHeight;
  Size const rowPhase = band / mosaicWidth;
  Size const columnPhase = band % mosaicWidth;
  if (height < mosaicHeight || width < mosaicWidth) return;
  for (Size r = 0; r < bandHeight; ++r)
    for (Size c = 0; c < bandWidth; ++c) out[r][c] = in[rowPhase + r * mosaicHeight][columnPhase + c * mosaicWidth];
}

void tileBandImage(Short** out, Short** in, Size width, Size height, Size tileWidth, Size tileHeight, Size band) {
  Size const tilesAcross = width / tileWidth;
  Size const tileRow = band / tilesAcross;
  Size const tileColumn = band % tilesAcross;
  crop(out, in, width, height, tileColumn * tileWidth, tileRow * tileHeight, tileWidth, tileHeight);
}

void bandStrip(Short** out, Short** in, Size width, Size height, Size stripHeight, Size band) {
  crop(out, in, width, height, 0, band * stripHeight, width, stripHeight);
}

void stitchStrip(Short*** buffer, Short** strip, Size width, Size stripHeight, Size firstBand, Size lastBand, Size band,
                 Size bufferBand, Size frameIndex) {
  Size const n = lastBand - firstBand + 1;
  Size const slot = (frameIndex + firstBand - band + n) % n;
  Short* const target = buffer[bufferBand][slot * stripHeight];
  for (Size k = 0; k < stripHeight * width; ++k) target[k] = strip[0][k];
}

void stitchImage(Short*** buffer, Short** in, Size width, Size stripHeight, Size firstBand, Size lastBand,
                 Size frameIndex) {
  Size const n = lastBand - firstBand + 1;
  for (Size i = 0; i < n; ++i)
    stitchStrip(buffer, in + (firstBand + i) * stripHeight, width, stripHeight, firstBand, lastBand, firstBand + i, i,
                frameIndex);
}

void stitchedSlice(Short*** out, Short*** buffer, Size width, Size stripHeight, Size height, Size bands, Size firstBand,
                   Size lastBand, Size frameIndex) {
  Size const n = lastBand - firstBand + 1;
  Size const x = frameIndex + firstBand - lastBand;
  Size const sourceSlot = x % n;
  Size const m = height / stripHeight;
  Size const targetSlot = m - 1 - x % m;
  for (Size j = 0; j < bands; ++j) {
    Short const* const source = buffer[j][sourceSlot * stripHeight];
    Short* const target = out[j][targetSlot * stripHeight];
    for (Size k = 0; k < stripHeight * width; ++k) target[k] = source[k];
  }
}

// ---------------------------------------------------------------------------------------------------------------- RC

constexpr double kInvalidCoefficient = DBL_MAX;

template <class T>
void correctionCoefficients(double* coefficients, T const* white, Size count, double factor1, double factor2,
                            T flagValue) {
  double const p = factor1 * factor2;
  for (Size i = 0; i < count; ++i) {
    T const w = white[i];
    coefficients[i] = w <= 0 || w == flagValue ? kInvalidCoefficient : p / static_cast<double>(w);
  }
}

float storedReflectance(double r) { return static_cast<float>(r); }

Short storedReflectance(double r, Short fullScale) {
  if (r > 1.0) r = 1.0;
  return toUint16(r * static_cast<double>(fullScale));
}

template <class T, class... FullScale>
void computeReflectance(T* out, T const* in, double const* coefficients, Size count, double divisor,
                        FullScale... fullScale, T flagValue, T limitValue) {
  double const q = 1.0 / divisor;
  for (Size i = 0; i < count; ++i) {
    double const c = coefficients[i];
    T const v = in[i];
    if (c == kInvalidCoefficient) {
      out[i] = v <= 0 ? T{0} : flagValue;
    } else if (v == flagValue) {
      out[i] = flagValue;
    } else if (v >= limitValue) {
      out[i] = limitValue;
    } else {
      double const product = static_cast<double>(v) * c;
      out[i] = storedReflectance(product * q, fullScale...);
    }
  }
}

float difference(float sample, float bias) { return sample - bias; }
Short difference(Short sample, Short bias) { return static_cast<Short>(sample < bias ? 0 : sample - bias); }

template <class T>
void correctBias(T* out, T const* in, T const* bias, Size count) {
  for (Size i = 0; i < count; ++i) out[i] = difference(in[i], bias[i]);
}

// ---------------------------------------------------------------------------------------------------------------- SC

template <class T>
double weightedSum(T const* in, double const* weights, Count inBands) {
  double sum = 0.0;
  for (Count i = 0; i < inBands; ++i) sum = sum + static_cast<double>(in[i]) * weights[i];
  return sum;
}

void store(float& out, double value) { out = static_cast<float>(value); }
void store(Short& out, double value) { out = toUint16(value); }

template <class T>
void correctSpectrum(T* out, T const* in, double const* const* matrix, Count outBands, Count inBands) {
  for (Count o = 0; o < outBands; ++o) store(out[o], weightedSum(in, matrix[o], inBands));
}

template <class T>
void correctRun(T* out, T const* in, double const* const* matrix, Count outBands, Count inBands, Count pixels) {
  for (std::size_t p = 0; p < pixels; ++p)
    correctSpectrum(out + p * outBands, in + p * inBands, matrix, outBands, inBands);
}

template <class T>
void correctCube(T* const* const* out, double* scratch, T const* const* const* in, double const* const* matrix,
                 Count outBands, Count inBands, Count samples) {
  for (Count o = 0; o < outBands; ++o) {
    for (Count k = 0; k < samples; ++k) scratch[k] = 0.0;
    for (Count i = 0; i < inBands; ++i) {
      double const w = matrix[o][i];
      for (Count k = 0; k < samples; ++k) scratch[k] = scratch[k] + static_cast<double>(in[i][0][k]) * w;
    }
    for (Count k = 0; k < samples; ++k) {
      if (scratch[k] < 0.0)
        out[o][0][k] = 0;
      else
        store(out[o][0][k], scratch[k]);
    }
  }
}

// ---------------------------------------------------------------------------------------------------------------- DM

void filterPosition(Count* row, Count* column, Count mosaicWidth, Count band) {
  *row = band / mosaicWidth;
  *column = band % mosaicWidth;
}

void offsetToTarget(double* rowOffset, double* columnOffset, Count filterRow, Count filterColumn, double targetRow,
                    double targetColumn) {
  *rowOffset = targetRow - static_cast<double>(filterRow);
  *columnOffset = targetColumn - static_cast<double>(filterColumn);
}

void bilinearWeights(double* weights, Count mosaicHeight, Count mosaicWidth, double rowOffset, double columnOffset) {
  double const p = static_cast<double>(mosaicHeight);
  double const q = static_cast<double>(mosaicWidth);
  double const r = rowOffset < 0.0 ? rowOffset + p : rowOffset;
  double const c = columnOffset < 0.0 ? columnOffset + q : columnOffset;
  double const inv = 1.0 / static_cast<double>(mosaicHeight * mosaicWidth);
  double const a = (q - c) * inv;
  double const b = c * inv;
  weights[0] = a * (p - r);
  weights[1] = b * (p - r);
  weights[2] = a * r;
  weights[3] = b * r;
}

struct WeightPair {
  double u, v;
};

WeightPair edgePair(double u, double v) {
  double const sum = u + v;
  return sum == 0.0 ? WeightPair{u, v} : WeightPair{u / sum, v / sum};
}

void store(double& out, double value) { out = value; }

template <class T>
void demosaic(T* out, T const* in, Count height, Count width, double const* w, double rowOffset, double columnOffset) {
  WeightPair const top = edgePair(w[0], w[1]);
  WeightPair const bottom = edgePair(w[2], w[3]);
  WeightPair const left = edgePair(w[0], w[2]);
  WeightPair const right = edgePair(w[1], w[3]);
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) {
      long const y0 = y - (rowOffset < 0.0 ? 1 : 0), y1 = y0 + 1;
      long const x0 = x - (columnOffset < 0.0 ? 1 : 0), x1 = x0 + 1;
      bool const hasTop = y0 >= 0, hasBottom = y1 < height, hasLeft = x0 >= 0, hasRight = x1 < width;
      auto const s = [&](long row, long column) { return static_cast<double>(in[row * width + column]); };
      T& result = out[y * width + x];
      if (hasTop && hasBottom && hasLeft && hasRight) {
        store(result, ((w[0] * s(y0, x0) + w[1] * s(y0, x1)) + w[2] * s(y1, x0)) + w[3] * s(y1, x1));
      } else if (hasLeft && hasRight) {
        WeightPair const pair = hasTop ? top : bottom;
        long const row = hasTop ? y0 : y1;
        store(result, pair.u * s(row, x0) + pair.v * s(row, x1));
      } else if (hasTop && hasBottom) {
        WeightPair const pair = hasLeft ? left : right;
        long const column = hasLeft ? x0 : x1;
        store(result, pair.u * s(y0, column) + pair.v * s(y1, column));
      } else {
        result = in[y * width + x];
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------------------------- MF

struct Exchange {
  int low, high;
};

constexpr Exchange kNetwork9[] = {
    {1, 2}, {4, 5}, {7, 8}, {0, 1}, {3, 4}, {6, 7}, {1, 2}, {4, 5}, {7, 8}, {0, 3},
    {5, 8}, {4, 7}, {3, 6}, {1, 4}, {2, 5}, {4, 7}, {4, 2}, {6, 4}, {4, 2},
};

constexpr Exchange kNetwork25[] = {
    {0, 1},   {3, 4},   {2, 4},   {2, 3},   {6, 7},   {5, 7},   {5, 6},   {9, 10},  {8, 10},  {8, 9},   {12, 13},
    {11, 13}, {11, 12}, {15, 16}, {14, 16}, {14, 15}, {18, 19}, {17, 19}, {17, 18}, {21, 22}, {20, 22}, {20, 21},
    {23, 24}, {2, 5},   {3, 6},   {0, 6},   {0, 3},   {4, 7},   {1, 7},   {1, 4},   {11, 14}, {8, 14},  {8, 11},
    {12, 15}, {9, 15},  {9, 12},  {13, 16}, {10, 16}, {10, 13}, {20, 23}, {17, 23}, {17, 20}, {21, 24}, {18, 24},
    {18, 21}, {19, 22}, {8, 17},  {9, 18},  {0, 18},  {0, 9},   {10, 19}, {1, 19},  {1, 10},  {11, 20}, {2, 20},
    {2, 11},  {12, 21}, {3, 21},  {3, 12},  {13, 22}, {4, 22},  {4, 13},  {14, 23}, {5, 23},  {5, 14},  {15, 24},
    {6, 24},  {6, 15},  {7, 16},  {7, 19},  {13, 21}, {15, 23}, {7, 13},  {7, 15},  {1, 9},   {3, 11},  {5, 17},
    {11, 17}, {9, 17},  {4, 10},  {6, 12},  {7, 14},  {4, 6},   {4, 7},   {12, 14}, {10, 14}, {6, 7},   {10, 12},
    {6, 10},  {6, 17},  {12, 17}, {7, 17},  {7, 10},  {12, 18}, {7, 12},  {10, 18}, {12, 20}, {10, 20}, {10, 12},
};
static_assert(std::size(kNetwork9) == 19 && std::size(kNetwork25) == 99);

template <class T, std::size_t kExchanges>
void runNetwork(T* values, Exchange const (&network)[kExchanges]) {
  for (Exchange const& exchange : network)
    if (values[exchange.low] > values[exchange.high]) std::swap(values[exchange.low], values[exchange.high]);
}

template <class T>
T median9(T* values) {
  runNetwork(values, kNetwork9);
  return values[4];
}

template <class T>
T median25(T* values) {
  runNetwork(values, kNetwork25);
  return values[12];
}

float middleOf(float lower, float upper) {
  float const sum = lower + upper;
  return static_cast<float>(static_cast<double>(sum) * 0.5);
}

Short middleOf(Short lower, Short upper) {
  double const sum = static_cast<double>(lower + upper);
  return static_cast<Short>(sum * 0.5 + 0.5);
}

template <class T>
T median(T* values, Size count) {
  Size const k = static_cast<Size>(static_cast<double>(count) * 0.5);
  std::nth_element(values, values + k, values + count);
  T const m = values[k];
  if (count % 2 == 1) return m;
  T lower = values[0];
  for (Size i = 1; i < k; ++i)
    if (lower < values[i]) lower = values[i];
  return middleOf(lower, m);
}

template <class T, Size kRadius>
void median2D(T** out, T** in, Size* height, Size* width) {
  for (Size y = 0; y < *height; ++y) {
    for (Size x = 0; x < *width; ++x) {
      T window[25];
      Size n = 0;
      for (Size row = y < kRadius ? 0 : y - kRadius; row <= std::min(*height - 1, y + kRadius); ++row)
        for (Size column = x < kRadius ? 0 : x - kRadius; column <= std::min(*width - 1, x + kRadius); ++column)
          window[n++] = in[row][column];
      out[y][x] = n == 9 ? median9(window) : n == 25 ? median25(window) : median(window, n);
    }
  }
}

// -------------------------------------------------------------------------------------------------- image operations

void subtract(float** out, float** a, float** b, Size width, Size height) {
  for (Size k = 0; k < width * height; ++k) out[0][k] = a[0][k] - b[0][k];
}

void add(float** out, float** a, float** b, Size width, Size height) {
  for (Size k = 0; k < width * height; ++k) out[0][k] = a[0][k] + b[0][k];
}

void mix(float** out, float** a, float** b, Size width, Size height, double weight) {
  double const complement = 1.0 - weight;
  for (Size k = 0; k < width * height; ++k)
    out[0][k] = static_cast<float>(static_cast<double>(a[0][k]) * weight + static_cast<double>(b[0][k]) * complement);
}

void applyKernel(float** out, float** in, Size width, Size height, double const* kernel) {
  if (width < 7 || height < 7) return;
  for (Size r = 3; r <= height - 4; ++r) {
    for (Size c = 3; c <= width - 4; ++c) {
      double sum = 0.0;
      for (Size ky = 0; ky < 7; ++ky)
        for (Size kx = 0; kx < 7; ++kx)
          sum = sum + static_cast<double>(in[r - 3 + ky][c - 3 + kx]) * kernel[ky * 7 + kx];
      out[r][c] = static_cast<float>(sum);
    }
  }
}

void rgbToYCbCr(float*** out, float*** in, Size width, Size height, double kb, double kr) {
  double const gWeight = (1.0 - kb) - kr;
  double const cbScale = 0.5 / (1.0 - kb);
  double const crScale = 0.5 / (1.0 - kr);
  for (Size k = 0; k < width * height; ++k) {
    double const r = in[0][0][k], g = in[1][0][k], b = in[2][0][k];
    float const y = static_cast<float>((r * kr + g * gWeight) + b * kb);
    float const blueDifference = in[2][0][k] - y, redDifference = in[0][0][k] - y;
    out[0][0][k] = y;
    out[1][0][k] = static_cast<float>(blueDifference * cbScale);
    out[2][0][k] = static_cast<float>(redDifference * crScale);
  }
}

void ycbcrToRGB(float*** out, float*** in, Size width, Size height, double kb, double kr) {
  double const crFactor = (1.0 - kr) + (1.0 - kr);
  double const cbFactor = (1.0 - kb) + (1.0 - kb);
  double const gInverse = 1.0 / ((1.0 - kr) - kb);
  for (Size k = 0; k < width * height; ++k) {
    double const y = in[0][0][k], cb = in[1][0][k], cr = in[2][0][k];
    double const red = cr * crFactor + y, blue = cb * cbFactor + y;
    double const green = ((y - red * kr) - kb * blue) * gInverse;
    out[0][0][k] = static_cast<float>(red);
    out[1][0][k] = static_cast<float>(green);
    out[2][0][k] = static_cast<float>(blue);
  }
}

// -------------------------------------------------------------------------------------------------------------- RGBX

// The red and the blue band differ only in the parity of the rows whose sites start at the first column: in row
// 2 * i + 1, red sites start at column index (i - 1) mod 2, blue ones at i mod 2.
template <Size kParity>
void computeRedOrBlueBand(float** o, float** s, Size width, Size height) {
  Size const hh = height / 2, hw = width / 2;
  if (hh <= 2) return;
  for (Size i = 1; i <= hh - 2; ++i) {
    Size const y = 2 * i + 1;
    Size const start = (i + kParity) % 2;
    for (Size j = start; j < hw - 3 + 2 * start; j += 2) {
      Size const x = 2 * j + 1;
      float const p = s[y][x], u = s[y - 2][x + 2], v = s[y][x + 4], w = s[y + 2][x + 2];
      o[y - 1][x + 1] = (p + u) * 0.5f;
      o[y][x] = p;
      float const q = (((p + u) + v) + w) * 0.25f;
      o[y][x + 2] = q;
      o[y + 1][x + 1] = (p + w) * 0.5f;
      o[y - 1][x + 2] = (u + q) * 0.5f;
      o[y][x + 1] = (p + q) * 0.5f;
      o[y][x + 3] = (v + q) * 0.5f;
      o[y + 1][x + 2] = (q + w) * 0.5f;
    }
  }
}

void computeGreenBand(float** out, float** in, Size width, Size height) {
  if (height <= 2) return;
  for (Size r = 1; r <= height - 2; ++r) {
    for (Size c = (r + 1) % 2; c < width - 1 - r % 2; c += 2) {
      float const left = in[r][c], up = in[r - 1][c + 1], right = in[r][c + 2], down = in[r + 1][c + 1];
      out[r][c] = left;
      out[r][c + 1] = (((left + up) + right) + down) * 0.25f;
    }
  }
}

void computeFourthBand(float** out, float** in, Size width, Size height) {
  Size const hh = height / 2, hw = width / 2;
  if (hh == 1 || hw == 1) return;
  for (Size k = 0; k <= hh - 2; ++k) {
    for (Size m = 0; m <= hw - 2; ++m) {
      float const a = in[2 * k][2 * m], b = in[2 * k][2 * m + 2];
      float const d = in[2 * k + 2][2 * m], e = in[2 * k + 2][2 * m + 2];
      out[2 * k][2 * m] = a;
      out[2 * k][2 * m + 1] = (a + b) * 0.5f;
      out[2 * k + 1][2 * m] = (a + d) * 0.5f;
      out[2 * k + 1][2 * m + 1] = (((a + b) + d) + e) * 0.25f;
    }
  }
}

void demosaicFrame(float*** out, float** scratch, float** frame, Size width, Size height) {
  int band = 0;
  for (auto* compute : {computeRedOrBlueBand<1>, computeGreenBand, computeRedOrBlueBand<0>, computeFourthBand}) {
    compute(scratch, frame, width, height);
    crop(out[band++], scratch, width, height, 3, 3, width - 6, height - 6);
  }
}

void computeNewWLI(float*** out, float*** in, Size width, Size height, double const* kernel, NewWLIBuffers buffers,
                   double kb, double kr, double weight) {
  float** const luma = buffers.yccImage[0];
  applyKernel(buffers.xResidual, in[3], width, height, kernel);
  subtract(buffers.xResidual, in[3], buffers.xResidual, width, height);
  rgbToYCbCr(buffers.yccImage, in, width, height, kb, kr);
  applyKernel(buffers.yFiltered, luma, width, height, kernel);
  subtract(buffers.yResidual, luma, buffers.yFiltered, width, height);
  mix(luma, buffers.yResidual, buffers.xResidual, width, height, weight);
  add(luma, luma, buffers.yFiltered, width, height);
  ycbcrToRGB(buffers.yccImage, buffers.yccImage, width, height, kb, kr);
  for (int plane = 0; plane < 3; ++plane)
    crop(out[plane], buffers.yccImage[plane], width, height, 3, 3, width - 6, height - 6);
}

}  // namespace

#define KORVA_DEFINE(name, definition) decltype(KORVA_Ref_##name)* const name = definition;
KORVA_PROCESSING_ROUTINES(KORVA_DEFINE)

}  // namespace korva::plain
