// Sizes and sample values that find faults, drawn from a seed.
#ifndef KORVA_TESTS_SUPPORT_INPUTS_H
#define KORVA_TESTS_SUPPORT_INPUTS_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <span>
#include <vector>

namespace korva::test {

using Sizes = std::initializer_list<std::size_t>;

// The splitmix64 generator: the same numbers on every platform, and cheap to start anew for each case.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t bits() {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }
  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(bits() % limit); }
  std::size_t between(std::size_t least, std::size_t most) { return least + below(most - least + 1); }
  bool oneIn(std::size_t n) { return below(n) == 0; }
  double unit() { return static_cast<double>(bits() >> 11) * 0x1p-53; }
  double real(double least, double most) { return least + unit() * (most - least); }
  template <class Choices>
  auto oneOf(Choices const& choices) {
    return std::data(choices)[below(std::size(choices))];
  }

 private:
  std::uint64_t state_;
};

// Every width from the least allowed to 70, so that each tail length meets each vector width, and those around 256.
std::vector<std::size_t> everyWidth(std::size_t least, std::size_t step = 1);

// Sizes of images: every width and height near the least, every width up to where tiles along a row end, every height
// up to where bands of rows end, and a sensor's whole frame.
struct ImageSize {
  std::size_t width, height;
};
std::vector<ImageSize> imageSizes(std::size_t leastWidth, std::size_t leastHeight, std::size_t widthStep = 1);

// Lengths of flat runs: 0 to 70 and around every power of two up to 4096, where kernels that work in tiles change
// hands.
std::vector<std::size_t> everyRunLength();

// Values at the edges of the conversion to uint16: sums around x.5, 65535.5, -0.5, -1.5 and +-2^31, NaN, infinities.
std::span<double const> conversionEdges();

// Fills samples in one of many ways, the special values of the type and random bits among them.
template <class T>
void anything(std::span<T> samples, Random& random);

// Fills samples with ordinary values of a sensor or a picture: finite, mostly distinct.
template <class T>
void ordinary(std::span<T> samples, Random& random);

// Fills floats with few distinct values around both zeros, with or without NaNs among them.
void zerosOfBothSigns(std::span<float> samples, Random& random);
void zerosAndNans(std::span<float> samples, Random& random);

// Fills weights so large that their rounding shows, with a sum that is small: of equal samples it keeps little but what
// the order of additions and the rounding of products make of it.
void fillCancelling(std::span<double> weights, Random& random);

// A quiet or signalling NaN of either sign with a random payload.
float someNan(Random& random);

}  // namespace korva::test

#endif
