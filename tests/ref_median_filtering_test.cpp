#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "support/routines.h"

namespace korva::test {
namespace {

using Short = unsigned short;

// The array after the call is compared too: every sample must lie where the list of exchanges leaves it.
template <class T>
void checkNetwork(Routine<T(T*)> routine, std::size_t size) {
  auto const shuffled = [](std::span<T> all, Random& random) {
    std::iota(all.begin(), all.end(), T{0});
    for (std::size_t k = all.size(); k > 1; --k) std::swap(all[k - 1], all[random.below(k)]);
  };
  auto const zerosAndOnes = [](std::span<T> all, Random& random) {
    for (T& sample : all) sample = static_cast<T>(random.below(2));
  };
  forCases(3000, [&](Case& c) {
    auto values = c.random.oneIn(3)   ? c.inOut<T, 1>({size}, kOneBlock, shuffled)
                  : c.random.oneIn(2) ? c.inOut<T, 1>({size}, kOneBlock, zerosAndOnes)
                                      : c.inOut<T, 1>({size});
    c.compare(routine, values);
  });
}

TEST(MedianNetworks, NineCounts) { checkNetwork(routine::MF_Median1D_9_uint16, 9); }
TEST(MedianNetworks, NineFloats) { checkNetwork(routine::MF_Median1D_9_float, 9); }
TEST(MedianNetworks, TwentyFiveCounts) { checkNetwork(routine::MF_Median1D_25_uint16, 25); }
TEST(MedianNetworks, TwentyFiveFloats) { checkNetwork(routine::MF_Median1D_25_float, 25); }

// The array that a general median rearranges as it likes: the same samples, parted by the middle one.
template <class T>
struct Rearranged {
  Samples<T, 1>& values;
  bool ordered;
  std::vector<T> before = std::vector<T>(values.expectedRow(0), values.expectedRow(0) + values.shape().width);

  T* actual() { return values.actual(); }
  T* expected() { return values.expected(); }
  void checkWith(Case& c, std::size_t) {
    if (!values.slackIsIntact()) c.fail("memory beside the samples is written");
    std::vector<T> after(values.actualRow(0), values.actualRow(0) + before.size());
    auto const middle = after.begin() + static_cast<std::ptrdiff_t>(after.size() / 2);
    if (ordered && std::any_of(after.begin(), middle, [&](T sample) { return sample > *middle; }))
      c.fail("a sample before the middle is greater");
    if (ordered && std::any_of(middle, after.end(), [&](T sample) { return sample < *middle; }))
      c.fail("a sample after the middle is smaller");
    auto const byBits = [](T const& a, T const& b) { return std::memcmp(&a, &b, sizeof a) < 0; };
    std::sort(after.begin(), after.end(), byBits);
    std::sort(before.begin(), before.end(), byBits);
    if (std::memcmp(after.data(), before.data(), after.size() * sizeof(T)) != 0) c.fail("other samples than before");
  }
};

template <class T>
void checkGeneral(Routine<T(T*, unsigned long)> routine) {
  forEach(everyRunLength(), 12, [&](Case& c, std::size_t count) {
    if (count == 0) return;
    auto const withoutNans = [](std::span<T> all, Random& random) {
      random.oneIn(9) ? std::fill(all.begin(), all.end(), std::numeric_limits<T>::max()) : anything(all, random);
      std::replace_if(
          all.begin(), all.end(), [](T sample) { return sample != sample; }, T{5});
    };
    auto values = c.inOut<T, 1>({count}, kOneBlock, withoutNans);
    Rearranged<T> rearranged{values, true};
    c.isMoved = Case::nowhere;  // two infinities average to a NaN
    c.compare(routine, rearranged, count);
  });
}

TEST(GeneralMedian, Counts) { checkGeneral(routine::MF_Median1D_uint16); }
TEST(GeneralMedian, Floats) { checkGeneral(routine::MF_Median1D_float); }

TEST(GeneralMedian, KeepsItsSamplesAmongNans) {
  forEach(everyWidth(1), 8, [](Case& c, std::size_t count) {
    auto values = c.inOut<float, 1>({count}, kOneBlock, zerosAndNans);
    Rearranged<float> rearranged{values, false};
    KORVA_Ref_MF_Median1D_float(rearranged.actual(), count);
    rearranged.checkWith(c, 1);
  });
}

template <class T>
struct Filter {
  Routine<void(T**, T**, unsigned long*, unsigned long*)> routine;
  std::size_t radius;
};

Filter<float> const kFloatFilters[] = {{routine::MF_Median2D_3x3_float, 1}, {routine::MF_Median2D_5x5_float, 2}};
Filter<Short> const kCountFilters[] = {{routine::MF_Median2D_3x3_uint16, 1}, {routine::MF_Median2D_5x5_uint16, 2}};

template <class T, class Fill>
void checkImage(Filter<T> const& filter, Case& c, std::size_t height, std::size_t width, Fill fill) {
  auto const extent = [r = filter.radius](std::size_t at, std::size_t size) {
    return std::min(size - 1, at + r) - (at < r ? 0 : at - r) + 1;
  };
  // An odd window moves its middle sample, an even one averages two.
  c.isMoved = [=](std::size_t, std::size_t row, std::size_t column) {
    return extent(row, height) * extent(column, width) % 2 == 1;
  };
  auto const in = c.input<T, 2>({width, height}, kSeparateRows, fill);
  auto const sizes = c.input<unsigned long, 1>({2}, kOneBlock, [=](std::span<unsigned long> all, Random&) {
    all[0] = height;
    all[1] = width;
  });
  auto out = c.output<T, 2>({width, height}, kSeparateRows);
  c.compare(filter.routine, out, in, sizes.actual(), sizes.actual() + 1);
}

template <class T>
void checkAllSizes(std::span<Filter<T> const> filters) {
  for (Filter<T> const& filter : filters)
    forEach(imageSizes(2 * filter.radius, 2 * filter.radius), 2, [&](Case& c, ImageSize size) {
      checkImage(filter, c, size.height, size.width, anything<T>);
    });
}

TEST(MedianFilter, FloatImagesOfAllSizes) { checkAllSizes<float>(kFloatFilters); }
TEST(MedianFilter, CountImagesOfAllSizes) { checkAllSizes<Short>(kCountFilters); }

// A single special sample wanders along every column of each of the rows, so that it meets every window position and
// every border of blocks that a filter may work in; all other windows must not notice it.
TEST(MedianFilter, SingleNanOrNegativeZeroAtEveryColumn) {
  auto const positive = [](std::span<float> all, Random& random) {
    for (float& sample : all) sample = static_cast<float>(random.real(0.0, 1.0));
  };
  auto const zeros = [](std::span<float> all, Random& random) {
    for (float& sample : all) sample = random.oneIn(2) ? 0.0f : random.oneIn(2) ? 1.0f : -1.0f;
  };
  Cases cases;
  for (auto const& filter : kFloatFilters) {
    auto const run = [&](std::size_t height, std::size_t width, std::size_t row, std::size_t column) {
      cases.run([&](Case& c) {
        bool const nan = c.random.oneIn(2);
        checkImage(filter, c, height, width, [&](std::span<float> all, Random& random) {
          nan ? positive(all, random) : zeros(all, random);
          all[row * width + column] = nan ? someNan(random) : -0.0f;
        });
      });
    };
    for (std::size_t const width : Sizes{37, 70})
      for (std::size_t row = 0; row < 9; ++row)
        for (std::size_t column = 0; column < width; ++column) run(9, width, row, column);
    for (std::size_t column = 0; column < 530; ++column) run(5, 530, column % 5, column);
    // Tall and narrow: the special sample at every row, near the borders of bands of rows.
    for (std::size_t row = 0; row < 140; ++row) run(140, 19, row, row % 19);
  }
}

}  // namespace
}  // namespace korva::test
