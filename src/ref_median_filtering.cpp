// MF: medians of 9, 25 or any number of samples, and 3 x 3 and 5 x 5 median filters with clipped windows.
#include "korva_reference_api.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "internal/multiversion.h"
#include "internal/strict_float.h"

namespace {

// Medians of a few samples ------------------------------------------------------------------------------------------

struct Exchange {
  int low;
  int high;
};

// The widely published 19-exchange network for the median of 9. In the last three the low slot is the higher index.
constexpr Exchange kMedianOf9[] = {{1, 2}, {4, 5}, {7, 8}, {0, 1}, {3, 4}, {6, 7}, {1, 2}, {4, 5}, {7, 8}, {0, 3},
                                   {5, 8}, {4, 7}, {3, 6}, {1, 4}, {2, 5}, {4, 7}, {4, 2}, {6, 4}, {4, 2}};

// The widely published 99-exchange network for the median of 25.
constexpr Exchange kMedianOf25[] = {
    {0, 1},   {3, 4},   {2, 4},   {2, 3},   {6, 7},   {5, 7},   {5, 6},   {9, 10},  {8, 10},  {8, 9},   {12, 13},
    {11, 13}, {11, 12}, {15, 16}, {14, 16}, {14, 15}, {18, 19}, {17, 19}, {17, 18}, {21, 22}, {20, 22}, {20, 21},
    {23, 24}, {2, 5},   {3, 6},   {0, 6},   {0, 3},   {4, 7},   {1, 7},   {1, 4},   {11, 14}, {8, 14},  {8, 11},
    {12, 15}, {9, 15},  {9, 12},  {13, 16}, {10, 16}, {10, 13}, {20, 23}, {17, 23}, {17, 20}, {21, 24}, {18, 24},
    {18, 21}, {19, 22}, {8, 17},  {9, 18},  {0, 18},  {0, 9},   {10, 19}, {1, 19},  {1, 10},  {11, 20}, {2, 20},
    {2, 11},  {12, 21}, {3, 21},  {3, 12},  {13, 22}, {4, 22},  {4, 13},  {14, 23}, {5, 23},  {5, 14},  {15, 24},
    {6, 24},  {6, 15},  {7, 16},  {7, 19},  {13, 21}, {15, 23}, {7, 13},  {7, 15},  {1, 9},   {3, 11},  {5, 17},
    {11, 17}, {9, 17},  {4, 10},  {6, 12},  {7, 14},  {4, 6},   {4, 7},   {12, 14}, {10, 14}, {6, 7},   {10, 12},
    {6, 10},  {6, 17},  {12, 17}, {7, 17},  {7, 10},  {12, 18}, {7, 12},  {10, 18}, {12, 20}, {10, 20}, {10, 12}};

// Leaves the smaller of two samples in the first. A NaN compares false, so it stays where it is.
template <typename Sample>
KORVA_INLINE void exchange(Sample& low, Sample& high) {
  Sample const a = low;
  Sample const b = high;
  low = a > b ? b : a;
  high = a > b ? a : b;
}

// Unrolls a network: the samples live in registers from the first exchange to the last.
template <auto const& network, typename Sample, std::size_t... step>
KORVA_INLINE void runNetwork(Sample* values, std::index_sequence<step...>) {
  (exchange(values[network[step].low], values[network[step].high]), ...);
}

template <typename Sample>
KORVA_INLINE Sample medianOf9(Sample* values) {
  runNetwork<kMedianOf9>(values, std::make_index_sequence<std::size(kMedianOf9)>());
  return values[4];
}

template <typename Sample>
KORVA_INLINE Sample medianOf25(Sample* values) {
  runNetwork<kMedianOf25>(values, std::make_index_sequence<std::size(kMedianOf25)>());
  return values[12];
}

KORVA_INLINE unsigned short mean(unsigned short a, unsigned short b) {
  return static_cast<unsigned short>((a + b + 1) / 2);
}

KORVA_INLINE float mean(float a, float b) { return static_cast<float>(static_cast<double>(a + b) * 0.5); }

template <typename Sample>
Sample medianOfAny(Sample* values, unsigned long count) {
  auto const middle = static_cast<unsigned long>(static_cast<double>(count) * 0.5);
  std::nth_element(values, values + middle, values + count);
  Sample const upper = values[middle];
  if (count % 2 != 0) return upper;
  Sample lower = values[0];
  for (unsigned long i = 1; i < middle; ++i) lower = lower < values[i] ? values[i] : lower;
  return mean(lower, upper);
}

// Two-dimensional filters -------------------------------------------------------------------------------------------

// The median of the samples within radius of (y, x) that lie inside the image.
template <unsigned long radius, typename Sample>
Sample medianOfWindow(Sample const* const* in, unsigned long height, unsigned long width, unsigned long y,
                      unsigned long x) {
  unsigned long const top = y < radius ? 0 : y - radius;
  unsigned long const left = x < radius ? 0 : x - radius;
  unsigned long const bottom = std::min(height - 1, y + radius);
  unsigned long const right = std::min(width - 1, x + radius);
  Sample window[(2 * radius + 1) * (2 * radius + 1)];
  unsigned long count = 0;
  for (unsigned long row = top; row <= bottom; ++row) {
    for (unsigned long column = left; column <= right; ++column) window[count++] = in[row][column];
  }
  if constexpr (radius == 2) {
    if (count == 25) return medianOf25(window);
  }
  return count == 9 ? medianOf9(window) : medianOfAny(window, count);
}

template <unsigned long radius, typename Sample>
void filterMedian(Sample* const* out, Sample const* const* in, unsigned long height, unsigned long width) {
  for (unsigned long y = 0; y < height; ++y) {
    for (unsigned long x = 0; x < width; ++x) out[y][x] = medianOfWindow<radius>(in, height, width, y, x);
  }
}

}  // namespace

// Medians of a few samples ------------------------------------------------------------------------------------------

unsigned short KORVA_Ref_MF_Median1D_9_uint16(unsigned short* values) { return medianOf9(values); }

float KORVA_Ref_MF_Median1D_9_float(float* values) { return medianOf9(values); }

unsigned short KORVA_Ref_MF_Median1D_25_uint16(unsigned short* values) { return medianOf25(values); }

float KORVA_Ref_MF_Median1D_25_float(float* values) { return medianOf25(values); }

unsigned short KORVA_Ref_MF_Median1D_uint16(unsigned short* values, unsigned long count) {
  return medianOfAny(values, count);
}

float KORVA_Ref_MF_Median1D_float(float* values, unsigned long count) { return medianOfAny(values, count); }

// Two-dimensional filters -------------------------------------------------------------------------------------------

void KORVA_Ref_MF_Median2D_3x3_uint16(unsigned short** out, unsigned short** in, unsigned long* height,
                                      unsigned long* width) {
  filterMedian<1>(out, in, *height, *width);
}

void KORVA_Ref_MF_Median2D_3x3_float(float** out, float** in, unsigned long* height, unsigned long* width) {
  filterMedian<1>(out, in, *height, *width);
}

void KORVA_Ref_MF_Median2D_5x5_uint16(unsigned short** out, unsigned short** in, unsigned long* height,
                                      unsigned long* width) {
  filterMedian<2>(out, in, *height, *width);
}

void KORVA_Ref_MF_Median2D_5x5_float(float** out, float** in, unsigned long* height, unsigned long* width) {
  filterMedian<2>(out, in, *height, *width);
}
