// MF: medians of 9, 25 or any number of samples, and 3 x 3 and 5 x 5 median filters with clipped windows.
#include "korva_reference_api.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/strict_float.h"

namespace {

using korva::anyLane;
using korva::greater;
using korva::lesser;
using korva::loadLanes;
using korva::storeLanes;
using korva::Vector;

// Networks ----------------------------------------------------------------------------------------------------------

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

constexpr Exchange kSort3[] = {{1, 2}, {0, 1}, {1, 2}};
constexpr Exchange kSort5[] = {{0, 3}, {1, 4}, {0, 2}, {1, 3}, {0, 1}, {2, 4}, {1, 2}, {3, 4}, {2, 3}};

// Batcher's odd-even merge of slots 0 to 4 and 5 to 9.
constexpr Exchange kMerge5And5[] = {{0, 5}, {4, 9}, {4, 5}, {2, 7}, {2, 4}, {5, 7}, {1, 6},
                                    {3, 8}, {3, 6}, {1, 2}, {3, 4}, {5, 6}, {7, 8}};

// The same merge of slots 0 to 9 and 10 to 19, less the exchanges that slots 7 to 12 do not depend on.
constexpr Exchange kMiddleOf10And10[] = {{0, 10},  {8, 18}, {8, 10},  {4, 14},  {4, 8},  {10, 14}, {2, 12},
                                         {6, 16},  {6, 12}, {6, 8},   {10, 12}, {1, 11}, {9, 19},  {9, 11},
                                         {5, 15},  {5, 9},  {11, 15}, {3, 13},  {7, 17}, {7, 13},  {7, 9},
                                         {11, 13}, {7, 8},  {9, 10},  {11, 12}};

// Leaves the smaller of two samples in the first, lane by lane. A NaN compares false, so it stays where it is.
template <typename Lanes>
KORVA_INLINE void exchange(Lanes& low, Lanes& high) {
  Lanes const a = low;
  Lanes const b = high;
  low = lesser(b, a);    // a > b ? b : a
  high = greater(a, b);  // a > b ? a : b
}

template <auto const& network, std::size_t first, typename Lanes, std::size_t... step>
KORVA_INLINE void runSteps(Lanes* slots, std::index_sequence<step...>) {
  (exchange(slots[network[first + step].low], slots[network[first + step].high]), ...);
}

// Carries out a network, from its exchange `first` on. It is unrolled: samples stay in registers from exchange to
// exchange, and what nobody reads afterwards is not computed.
template <auto const& network, std::size_t first = 0, typename Lanes>
KORVA_INLINE void runNetwork(Lanes* slots) {
  runSteps<network, first>(slots, std::make_index_sequence<std::size(network) - first>());
}

// Medians of a few samples ------------------------------------------------------------------------------------------

template <auto const& network, int count>
unsigned short medianByNetwork(unsigned short* values) {
  runNetwork<network>(values);
  return values[count / 2];
}

// Each float in a vector of its own: there both compilers exchange without branching.
template <auto const& network, int count>
float medianByNetwork(float* values) {
  Vector<float, 4> slots[count];
  for (int i = 0; i < count; ++i) slots[i] = Vector<float, 4>{values[i]};
  runNetwork<network>(slots);
  for (int i = 0; i < count; ++i) {
#if defined(__clang__) && defined(__x86_64__)
    asm("" : "+x"(slots[i]));  // or it branches on the last exchange, which takes 9 floats 1.8 times as long
#endif
    values[i] = slots[i][0];
  }
  return values[count / 2];
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

// Windows, one by one -----------------------------------------------------------------------------------------------

template <typename Sample>
struct Images {
  Sample* const* out;
  Sample const* const* in;
  unsigned long height;
  unsigned long width;
};

// The median of the samples within radius of (y, x) that lie inside the image.
template <unsigned long radius, typename Sample>
Sample medianOfWindow(Images<Sample> const& images, unsigned long y, unsigned long x) {
  unsigned long const top = y < radius ? 0 : y - radius;
  unsigned long const left = x < radius ? 0 : x - radius;
  unsigned long const bottom = std::min(images.height - 1, y + radius);
  unsigned long const right = std::min(images.width - 1, x + radius);
  Sample window[(2 * radius + 1) * (2 * radius + 1)] = {};
  unsigned long count = 0;
  for (unsigned long row = top; row <= bottom; ++row) {
    for (unsigned long column = left; column <= right; ++column) window[count++] = images.in[row][column];
  }
  if constexpr (radius == 2) {
    if (count == 25) return medianByNetwork<kMedianOf25, 25>(window);
  }
  return count == 9 ? medianByNetwork<kMedianOf9, 9>(window) : medianOfAny(window, count);
}

// The filters' definition, for the windows around a part of the image.
template <unsigned long radius, typename Sample>
void filterByDefinition(Images<Sample> const& images, unsigned long top, unsigned long bottom, unsigned long left,
                        unsigned long right) {
  for (unsigned long y = top; y < bottom; ++y) {
    for (unsigned long x = left; x < right; ++x) images.out[y][x] = medianOfWindow<radius>(images, y, x);
  }
}

// Windows, a vector at a time ---------------------------------------------------------------------------------------
//
// Lanes are the windows around neighbouring columns. Loading from the first window's k-th column gives the k-th column
// of them all.
//
// NaN and -0.0 are irregular samples. Among regular ones equal samples have equal bits, so whatever selects the sample
// of the right rank gives the bits that the networks and the general median give.

template <typename Lanes>
constexpr bool kHoldsFloats = std::is_same_v<Lanes, Vector<float, sizeof(Lanes) / sizeof(float)>>;

template <typename Lanes>
KORVA_INLINE auto findIrregular(Lanes lanes) {
  using Bits = Vector<int, sizeof(Lanes) / sizeof(int)>;
  if constexpr (kHoldsFloats<Lanes>) {
#if KORVA_X86_BUILTINS
    // g++ 12 compares lane by lane at this width. 0x85 selects NaN of both kinds and -0.0.
    if constexpr (sizeof(Lanes) == 64) {
      return __builtin_ia32_cvtmask2d512(__builtin_ia32_fpclassps512_mask(lanes, 0x85, -1));
    }
#endif
    return Bits((lanes != lanes) | (reinterpret_cast<Bits>(lanes) == INT_MIN));
  } else {
    return Bits{};
  }
}

// Of a vector of windows: all samples of one of their rows.
template <typename Lanes, typename Sample>
KORVA_INLINE auto findIrregularInReach(Sample const* row, unsigned long radius) {
  return findIrregular(loadLanes<Lanes>(row)) | findIrregular(loadLanes<Lanes>(row + 2 * radius));
}

// mean() without a 17-bit sum, and without double: a float's half is rounded at most once either way.
template <typename Lanes>
KORVA_INLINE Lanes meanOfLanes(Lanes a, Lanes b) {
  if constexpr (kHoldsFloats<Lanes>) {
    return (a + b) * 0.5F;
  } else {
    return (a | b) - ((a ^ b) >> 1);
  }
}

template <auto const& network, int count, typename Lanes, typename Sample>
KORVA_INLINE void sortRow(Lanes* sorted, Sample const* row) {
  Lanes slots[count];
  for (int k = 0; k < count; ++k) slots[k] = loadLanes<Lanes>(row + k);
  runNetwork<network>(slots);
  for (int k = 0; k < count; ++k) sorted[k] = slots[k];
}

// Merges two runs of `count` samples and keeps those of rank `first` to `last`, counted from 0.
template <auto const& network, int count, int first, int last, typename Lanes>
KORVA_INLINE void merge(Lanes* merged, Lanes const* a, Lanes const* b) {
  Lanes slots[2 * count];
  for (int k = 0; k < count; ++k) {
    slots[k] = a[k];
    slots[k + count] = b[k];
  }
  runNetwork<network>(slots);
  for (int k = first; k <= last; ++k) merged[k - first] = slots[k];
}

// The 6th smallest of six and five sorted samples. The six smallest are the first k of the six and the first 6 - k of
// the five, for the k that makes the greatest of them least.
template <typename Lanes>
KORVA_INLINE Lanes sixthOf6And5(Lanes const* six, Lanes const* five) {
  Lanes sixth = six[0];
  for (int k = 1; k < 6; ++k) sixth = greater(sixth, lesser(six[k], five[5 - k]));
  return sixth;
}

// 3 x 3. The first nine exchanges of the 9-sample network sort the window's rows, each by itself, so a row is sorted
// once and serves three windows. Each window sees just the network's exchanges, irregular samples or not.
template <typename Sample, int vectorBytes>
struct Windows3x3 {
  static constexpr unsigned long kRadius = 1;
  static constexpr unsigned long kLanes = vectorBytes / sizeof(Sample);
  static constexpr unsigned long kTileWindows = 8192 / sizeof(Sample);
  using Lanes = Vector<Sample, kLanes>;

  KORVA_INLINE static Lanes medianOfSorted(Lanes const* above, Lanes const* middle, Lanes const* below) {
    Lanes slots[9] = {above[0], above[1], above[2], middle[0], middle[1], middle[2], below[0], below[1], below[2]};
    runNetwork<kMedianOf9, 9>(slots);
    return slots[4];
  }

  KORVA_INLINE static void filterTile(Images<Sample> const& images, unsigned long begin, unsigned long windows) {
    Lanes kept[kTileWindows / kLanes][2][3];  // the sorted rows y - 1 and y
    for (unsigned long i = 0; i * kLanes < windows; ++i) {
      unsigned long const x = begin + std::min(i * kLanes, windows - kLanes);
      for (int k = 0; k < 2; ++k) sortRow<kSort3, 3>(kept[i][k], images.in[k] + x);
    }
    for (unsigned long y = 1; y + 1 < images.height; y += 3) {
      // The windows of rows y to y + 2. Rows that are not there repeat the last one, and are stored before it. The next
      // three are fetched ahead: frames that lie in no cache take 0.65 to 0.75 of the time on Zen 3 and Zen 5 with
      // AVX2. With AVX-512 that gains 1.1 only, and costs as much on frames in the last cache.
      Sample const* rows[3];
      Sample* targets[3];
      Sample const* nextRows[3];
      Sample const* nextTargets[3];
      for (unsigned long k = 0; k < 3; ++k) {
        unsigned long const row = std::min(y + k, images.height - 2);
        rows[k] = images.in[row + 1] + begin;
        targets[k] = images.out[row] + begin + 1;
        nextRows[k] = images.in[std::min(row + 4, images.height - 1)] + begin;
        nextTargets[k] = images.out[std::min(row + 3, images.height - 2)] + begin;
      }
      for (unsigned long i = 0; i * kLanes < windows; ++i) {
        unsigned long const x = std::min(i * kLanes, windows - kLanes);
        Lanes sorted[5][3];
        for (int k = 0; k < 3; ++k) {
          sorted[0][k] = kept[i][0][k];
          sorted[1][k] = kept[i][1][k];
          sortRow<kSort3, 3>(sorted[k + 2], rows[k] + x);
        }
        for (int k = 0; vectorBytes == 32 && i % 2 == 0 && k < 3; ++k) {
          __builtin_prefetch(nextRows[k] + x);
          __builtin_prefetch(nextTargets[k] + x, 1);
        }
        for (int k = 2; k >= 0; --k) {
          storeLanes(targets[k] + x, medianOfSorted(sorted[k], sorted[k + 1], sorted[k + 2]));
        }
        for (int k = 0; k < 3; ++k) {
          kept[i][0][k] = sorted[3][k];
          kept[i][1][k] = sorted[4][k];
        }
      }
    }
  }

  // Around the outermost line of an image: the mean of the 3rd and 4th of 6.
  KORVA_INLINE static void findClippedMedians(Lanes* medians, Sample const* const* lines, unsigned long x) {
    Lanes a[3];
    Lanes b[3];
    sortRow<kSort3, 3>(a, lines[0] + x);
    sortRow<kSort3, 3>(b, lines[1] + x);
    Lanes const third = greater(greater(lesser(a[0], b[2]), lesser(a[1], b[1])), lesser(a[2], b[0]));
    Lanes const fourth = lesser(lesser(greater(a[0], b[2]), greater(a[1], b[1])), greater(a[2], b[0]));
    medians[0] = meanOfLanes(third, fourth);
  }
};

// 5 x 5. Each row's five samples are sorted once. Pairs of sorted rows are merged once, and serve the two windows, one
// above the other, that have two pairs in common: of those 20 samples only the 8th to 13th smallest can be the median
// of either window, and it is the 6th smallest of these six and the five samples of the window's other row.
//
// The selection is exact, but not the 25-sample network: vectors that reach irregular samples take that afterwards.
template <typename Sample, int vectorBytes>
struct Windows5x5 {
  static constexpr unsigned long kRadius = 2;
  static constexpr unsigned long kLanes = vectorBytes / sizeof(Sample);
  // A call takes less than 64 KiB of stack.
  static constexpr unsigned long kTileVectors = vectorBytes == 64 ? 16 : 20;
  static constexpr unsigned long kTileWindows = kTileVectors * kLanes;
  using Lanes = Vector<Sample, kLanes>;

  // Floats become integers of the same order, which compare twice as fast; x86's baseline has no such comparison.
#if defined(__x86_64__)
  static constexpr bool kHasKeys = kHoldsFloats<Lanes> && vectorBytes >= 32;
#else
  static constexpr bool kHasKeys = kHoldsFloats<Lanes>;
#endif
  using Key = std::conditional_t<kHasKeys, int, Sample>;
  using Keys = Vector<Key, kLanes>;

  // Reverses the order of negative floats' bits, or restores it.
  template <typename To, typename From>
  KORVA_INLINE static To flipNegatives(From from) {
    auto const bits = reinterpret_cast<Vector<int, kLanes>>(from);
    return reinterpret_cast<To>(bits ^ ((bits >> 31) & INT_MAX));
  }

  KORVA_INLINE static void storeMedians(Sample* target, Keys medians) {
    if constexpr (kHasKeys) {
      storeLanes(target, flipNegatives<Lanes>(medians));
    } else {
      storeLanes(target, medians);
    }
  }

  // The keys of a tile's row; samples that need none are their own. Sets the bits of vectors that reach irregular ones.
  KORVA_INLINE static Key const* toKeys(Key* keys, unsigned& irregularVectors, Sample const* row,
                                        unsigned long windows) {
    if constexpr (kHoldsFloats<Lanes>) {
      unsigned long const last = windows - kLanes;
      auto irregular = findIrregular(loadLanes<Lanes>(row + last + 4));
      for (unsigned long i = 0; i * kLanes < windows; ++i) {
        unsigned long const x = std::min(i * kLanes, last);
        irregular |= findIrregular(loadLanes<Lanes>(row + x));
        if constexpr (kHasKeys) storeLanes(keys + x, flipNegatives<Keys>(loadLanes<Lanes>(row + x)));
      }
      if constexpr (kHasKeys) storeLanes(keys + last + 4, flipNegatives<Keys>(loadLanes<Lanes>(row + last + 4)));
      for (unsigned long i = 0; anyLane(irregular) && i * kLanes < windows; ++i) {
        bool const isReached = anyLane(findIrregularInReach<Lanes>(row + std::min(i * kLanes, last), kRadius));
        irregularVectors |= isReached ? 1U << i : 0U;
      }
    }
    if constexpr (kHasKeys) {
      return keys;
    } else {
      return row;
    }
  }

  KORVA_INLINE static void filterTile(Images<Sample> const& images, unsigned long begin, unsigned long windows) {
    auto const [out, in, height, width] = images;
    Keys sorted[4][kTileVectors][5];
    Keys merged[2][kTileVectors][10];
    Key keys[4][kHasKeys ? kTileWindows + 4 : 1];
    Key const* rows[4];
    unsigned irregular[3] = {};     // vectors, by the last three pairs of rows
    auto top = sorted[0];           // row y - 2
    auto nextTop = sorted[1];       // row y
    auto spare = sorted[2];         // becomes row y + 2
    auto const bottom = sorted[3];  // row y + 1, then y + 3
    auto upper = merged[0];         // rows y - 1 and y
    auto lower = merged[1];         // rows y + 1 and y + 2

    for (int k = 0; k < 4; ++k) rows[k] = toKeys(keys[k], irregular[1 + k / 2], in[k] + begin, windows);
    for (unsigned long i = 0; i * kLanes < windows; ++i) {
      unsigned long const x = std::min(i * kLanes, windows - kLanes);
      sortRow<kSort5, 5>(top[i], rows[0] + x);
      sortRow<kSort5, 5>(spare[i], rows[1] + x);
      sortRow<kSort5, 5>(nextTop[i], rows[2] + x);
      sortRow<kSort5, 5>(bottom[i], rows[3] + x);
      merge<kMerge5And5, 5, 0, 9>(upper[i], spare[i], nextTop[i]);
    }
    for (unsigned long y = 2; y + 2 < height; y += 2) {
      // The windows of rows y and y + 1. A last row without a next one takes that one's place too, and is stored last.
      unsigned long const second = std::min(y + 1, height - 3);
      irregular[0] = irregular[1];
      irregular[1] = irregular[2];
      irregular[2] = 0;
      rows[0] = toKeys(keys[0], irregular[2], in[y + 2] + begin, windows);
      rows[1] = toKeys(keys[1], irregular[2], in[second + 2] + begin, windows);
      for (unsigned long i = 0; i * kLanes < windows; ++i) {
        unsigned long const x = std::min(i * kLanes, windows - kLanes);
        Keys row[5];
        sortRow<kSort5, 5>(row, rows[0] + x);
        merge<kMerge5And5, 5, 0, 9>(lower[i], bottom[i], row);
        for (int k = 0; k < 5; ++k) spare[i][k] = row[k];
        sortRow<kSort5, 5>(bottom[i], rows[1] + x);
      }
      // A tile's part of a row is too short for the processor to foresee where the next pass goes on.
      Sample const* const nextRows[2] = {in[std::min(y + 4, height - 1)] + begin,
                                         in[std::min(y + 5, height - 1)] + begin};
      Sample* const nextTargets[2] = {out[std::min(y + 2, height - 3)] + begin,
                                      out[std::min(y + 3, height - 3)] + begin};
      for (unsigned long i = 0; i * kLanes < windows; ++i) {
        unsigned long const x = std::min(i * kLanes, windows - kLanes);
        for (int k = 0; k < 2; ++k) {
          __builtin_prefetch(nextRows[k] + x);
          __builtin_prefetch(nextTargets[k] + x, 1);
        }
        Keys middle[6];
        merge<kMiddleOf10And10, 10, 7, 12>(middle, upper[i], lower[i]);
        storeMedians(out[second] + begin + 2 + x, sixthOf6And5(middle, bottom[i]));
        storeMedians(out[y] + begin + 2 + x, sixthOf6And5(middle, top[i]));
      }
      for (unsigned left = irregular[0] | irregular[1] | irregular[2]; left != 0; left &= left - 1) {
        auto const i = static_cast<unsigned long>(std::countr_zero(left));
        unsigned long const x = begin + std::min(i * kLanes, windows - kLanes);
        for (unsigned long row = y; row <= second; ++row) {
          Lanes slots[25];
          for (unsigned long k = 0; k < 25; ++k) slots[k] = loadLanes<Lanes>(in[row - 2 + k / 5] + x + k % 5);
          runNetwork<kMedianOf25>(slots);
          storeLanes(out[row] + x + 2, slots[12]);
        }
      }
      std::swap(top, nextTop);
      std::swap(nextTop, spare);
      std::swap(upper, lower);
    }
  }

  // Around the two outermost lines of an image: the 8th of 15, and the mean of the 10th and 11th of 20.
  KORVA_INLINE static void findClippedMedians(Lanes* medians, Sample const* const* lines, unsigned long x) {
    Lanes sorted[4][5];
    Lanes upper[10];
    Lanes lower[10];
    Lanes middle[6];
    for (int k = 0; k < 4; ++k) sortRow<kSort5, 5>(sorted[k], lines[k] + x);
    merge<kMerge5And5, 5, 0, 9>(upper, sorted[0], sorted[1]);
    merge<kMerge5And5, 5, 0, 9>(lower, sorted[2], sorted[3]);
    merge<kMiddleOf10And10, 10, 7, 12>(middle, upper, lower);
    medians[0] = sixthOf6And5(upper + 2, sorted[2]);
    medians[1] = meanOfLanes(middle[2], middle[3]);
  }
};

// Filters -----------------------------------------------------------------------------------------------------------

// All windows that are not clipped on the left or the right.
template <unsigned long radius, typename Sample>
struct FilterRows {
  template <int vectorBytes>
  struct Kernel {
    using Windows = std::conditional_t<radius == 1, Windows3x3<Sample, vectorBytes>, Windows5x5<Sample, vectorBytes>>;
    using Lanes = typename Windows::Lanes;
    static constexpr unsigned long kLanes = Windows::kLanes;

    KORVA_INLINE static void run(Images<Sample> images) {
      filterClippedRows(images, false);
      if (images.height > 2 * radius) filterFullWindows(images);
      filterClippedRows(images, true);
    }

    // Tile by tile, each as wide as lets a near cache hold what is kept from row to row. The last vector of a row
    // overlaps the one before, be it of another tile.
    KORVA_INLINE static void filterFullWindows(Images<Sample> const& images) {
      unsigned long const windows = images.width - 2 * radius;
      for (unsigned long column = 0; column < windows; column += Windows::kTileWindows) {
        unsigned long const begin = std::min(column, windows - kLanes);
        Windows::filterTile(images, begin, std::min(column + Windows::kTileWindows, windows) - begin);
      }
    }

    KORVA_INLINE static void filterClippedRows(Images<Sample> const& images, bool isBottom) {
      Sample const* lines[2 * radius];  // the outermost first
      Sample* targets[2 * radius];
      for (unsigned long k = 0; k < 2 * radius; ++k) {
        lines[k] = images.in[isBottom ? images.height - 1 - k : k];
        targets[k] = images.out[isBottom ? images.height - 1 - k : k];
      }
      unsigned long const windows = images.width - 2 * radius;
      for (unsigned long i = 0; i * kLanes < windows; ++i) {
        unsigned long const x = std::min(i * kLanes, windows - kLanes);
        Lanes medians[radius];
        Windows::findClippedMedians(medians, lines, x);
        for (unsigned long k = 0; k < radius; ++k) storeLanes(targets[k] + x + radius, medians[k]);
        auto irregular = findIrregular(Lanes{});
        for (Sample const* line : lines) irregular |= findIrregularInReach<Lanes>(line + x, radius);
        if (anyLane(irregular)) {
          unsigned long const top = isBottom ? images.height - radius : 0;
          filterByDefinition<radius>(images, top, top + radius, x + radius, x + radius + kLanes);
        }
      }
    }
  };
};

bool isIrregular(float sample) { return sample != sample || std::bit_cast<int>(sample) == INT_MIN; }
bool isIrregular(unsigned short) { return false; }

// The least width of rows that fill a vector with full windows.
template <unsigned long radius, typename Sample, int vectorBytes = 32>
constexpr unsigned long kLeastWidth = vectorBytes / sizeof(Sample) + 2 * radius;

// The windows around columns `begin` to `end`, which reach `count` columns from `first` on. These are laid down as
// rows, a piece at a time: among regular samples the order within a window does not matter.
template <unsigned long radius, typename Sample>
[[gnu::noinline]] void filterColumns(Images<Sample> const& images, unsigned long begin, unsigned long end,
                                     unsigned long first, unsigned long count) {
  constexpr unsigned long piece = 64;
  constexpr unsigned long least = kLeastWidth<radius, Sample>;
  Sample samples[least][piece];
  Sample medians[least][piece];
  Sample const* rows[least];
  Sample* targets[least];
  for (unsigned long column = 0; column < count; ++column) {
    rows[column] = samples[column];
    targets[column] = medians[column];
  }
  unsigned long const height = images.height;
  unsigned long const length = std::clamp(height, least, piece);  // a short column's last sample is repeated
  for (unsigned long y = radius; y + radius < height; y += piece - 2 * radius) {
    unsigned long const top = std::min(y - radius, std::max(height, length) - length);
    unsigned long const bottom = std::min(top + length, height) - radius;
    bool irregular = false;
    for (unsigned long k = 0; k < length; ++k) {
      Sample const* const row = images.in[std::min(top + k, height - 1)] + first;
      for (unsigned long column = 0; column < count; ++column) {
        samples[column][k] = row[column];
        irregular |= isIrregular(row[column]);
      }
    }
    if (irregular) {
      filterByDefinition<radius>(images, top + radius, bottom, begin, end);
      continue;
    }
    korva::dispatchUpTo32<FilterRows<radius, Sample>::template Kernel>(Images<Sample>{targets, rows, count, length});
    for (unsigned long row = top + radius; row < bottom; ++row) {
      for (unsigned long x = begin; x < end; ++x) images.out[row][x] = medians[x - first][row - top];
    }
  }
  filterByDefinition<radius>(images, 0, radius, begin, end);
  filterByDefinition<radius>(images, height - radius, height, begin, end);
}

template <unsigned long radius, typename Sample>
void filterMedian(Images<Sample> const& images) {
  if (images.width < kLeastWidth<radius, Sample>) {
    filterColumns<radius>(images, 0, images.width, 0, images.width);
  } else {
    if (images.width < kLeastWidth<radius, Sample, 64>) {
      korva::dispatchUpTo32<FilterRows<radius, Sample>::template Kernel>(images);
    } else {
      korva::dispatch<FilterRows<radius, Sample>::template Kernel>(images);
    }
    filterColumns<radius>(images, 0, radius, 0, 2 * radius);
    filterColumns<radius>(images, images.width - radius, images.width, images.width - 2 * radius, 2 * radius);
  }
}

}  // namespace

// Medians of a few samples ------------------------------------------------------------------------------------------

unsigned short KORVA_Ref_MF_Median1D_9_uint16(unsigned short* values) { return medianByNetwork<kMedianOf9, 9>(values); }

float KORVA_Ref_MF_Median1D_9_float(float* values) { return medianByNetwork<kMedianOf9, 9>(values); }

unsigned short KORVA_Ref_MF_Median1D_25_uint16(unsigned short* values) {
  return medianByNetwork<kMedianOf25, 25>(values);
}

float KORVA_Ref_MF_Median1D_25_float(float* values) { return medianByNetwork<kMedianOf25, 25>(values); }

unsigned short KORVA_Ref_MF_Median1D_uint16(unsigned short* values, unsigned long count) {
  return medianOfAny(values, count);
}

float KORVA_Ref_MF_Median1D_float(float* values, unsigned long count) { return medianOfAny(values, count); }

// Two-dimensional filters -------------------------------------------------------------------------------------------

void KORVA_Ref_MF_Median2D_3x3_uint16(unsigned short** out, unsigned short** in, unsigned long* height,
                                      unsigned long* width) {
  filterMedian<1>(Images<unsigned short>{out, in, *height, *width});
}

void KORVA_Ref_MF_Median2D_3x3_float(float** out, float** in, unsigned long* height, unsigned long* width) {
  filterMedian<1>(Images<float>{out, in, *height, *width});
}

void KORVA_Ref_MF_Median2D_5x5_uint16(unsigned short** out, unsigned short** in, unsigned long* height,
                                      unsigned long* width) {
  filterMedian<2>(Images<unsigned short>{out, in, *height, *width});
}

void KORVA_Ref_MF_Median2D_5x5_float(float** out, float** in, unsigned long* height, unsigned long* width) {
  filterMedian<2>(Images<float>{out, in, *height, *width});
}
