#include "support/inputs.h"

#include <algorithm>
#include <cmath>

namespace korva::test {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

constexpr unsigned short kShortSpecials[] = {0, 1, 2, 255, 256, 32767, 32768, 65534, 65535};

// The neighbours of x.5 lie one unit in the last place to either side.
// clang-format off
constexpr float kFloatSpecials[] = {
    0.0f, -0.0f, 0x1p-149f, -0x1p-149f, 0x1.fffffcp-127f, 0x1p-126f, 0x1.fffffep127f, -0x1.fffffep127f, kInfinity,
    -kInfinity, 1.0f, -1.0f, 0.5f, 0x1.000002p-1f, 0x1.fffffep-2f, -0.5f, 1.5f, -1.5f, 2.5f, 0x1.400002p+1f,
    0x1.3ffffep+1f, 65535.0f, 65535.5f, 65536.0f, 0x1p31f, 0x1.fffffep30f, -0x1p31f, -0x1.000002p31f, 3.0e38f,
};
// clang-format on

// clang-format off
constexpr double kConversionEdges[] = {
    0.0, -0.0, 0.49999999999999994, 0.5, 0.5000000000000001, 1.5, 2.4999, 2.5, 254.5, 65534.5, 65535.0, 65535.4,
    65535.49999999999, 65535.5, 65536.0, 65537.0, 131071.5, -0.25, -0.49999999999999994, -0.5, -0.75, -1.0,
    -1.4999999, -1.5, -1.5000000000000002, -2.0, -2.5, -3.0, -65536.5, 2147418111.5, 2147483646.5, 2147483647.0,
    2147483647.4999998, 2147483647.5, 2147483648.0, 2147483648.5, 4294967297.0, -2147483647.5, -2147483648.0,
    -2147483648.5, -2147483649.0, -2147483649.5, -2147483650.0, -4294967298.0, 1e18, 9223372036854775808.0, 1e300,
    -1e300, kNan, std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(), 0x1p-1074,
};
// clang-format on

template <class T, class Value>
void fillWith(std::span<T> samples, Value value) {
  std::generate(samples.begin(), samples.end(), value);
}

// Numbers of either sign with exponents from least on. Drawn one statement at a time: the order of a call's arguments
// is the compiler's.
double ofManyMagnitudes(Random& random, int least, std::size_t exponents) {
  double const fraction = random.real(-1.0, 1.0);
  return std::ldexp(fraction, least + static_cast<int>(random.below(exponents)));
}

double anyDouble(Random& random) {
  switch (random.below(6)) {
    case 0:
      return random.oneOf(kConversionEdges);
    case 1:
      return static_cast<double>(random.oneOf(kFloatSpecials));
    case 2:
      return std::bit_cast<double>(random.bits());
    case 3:
      return ofManyMagnitudes(random, -20, 60);
    default:
      return random.real(-2.0, 2.0);
  }
}

}  // namespace

std::vector<std::size_t> everyWidth(std::size_t least, std::size_t step) {
  std::vector<std::size_t> widths;
  for (std::size_t width = least; width <= 70; width += step) widths.push_back(width);
  for (std::size_t width = 255; width <= 257; ++width)
    if ((width - least) % step == 0) widths.push_back(width);
  return widths;
}

std::vector<ImageSize> imageSizes(std::size_t leastWidth, std::size_t leastHeight, std::size_t widthStep) {
  std::vector<ImageSize> sizes;
  for (std::size_t const width : everyWidth(leastWidth, widthStep))
    for (std::size_t height = leastHeight; height < leastHeight + 13; ++height) sizes.push_back({width, height});
  for (std::size_t width = leastWidth; width <= 660; width += widthStep)
    if (width > 70) sizes.push_back({width, leastHeight + width % 8});
  for (std::size_t const columns : Sizes{1, 3, 9})
    for (std::size_t height = leastHeight; height <= 140; ++height)
      sizes.push_back({leastWidth + columns * widthStep, height});
  sizes.push_back({2048, 200});
  // Wide and low: beyond the second and the third strip or tile of a row.
  for (std::size_t width = 2048; width <= 8192; width *= 2)
    for (std::size_t more = leastWidth; more < leastWidth + 13; more += widthStep)
      sizes.push_back({width + more, leastHeight + more % 4});
  return sizes;
}

std::vector<std::size_t> everyRunLength() {
  std::vector<std::size_t> lengths;
  for (std::size_t length = 0; length <= 70; ++length) lengths.push_back(length);
  for (std::size_t power = 128; power <= 8192; power *= 2)
    lengths.insert(lengths.end(), {power - 1, power, power + 1, power + power / 2 + 5});
  return lengths;
}

std::span<double const> conversionEdges() { return kConversionEdges; }

float someNan(Random& random) {
  std::uint32_t const payload = static_cast<std::uint32_t>(random.bits()) & 0x807fffffu;
  return std::bit_cast<float>(0x7f800000u | (payload & 0x7fffffu ? payload : payload | 0x400000u));
}

void fillCancelling(std::span<double> weights, Random& random) {
  double sum = 0.0;
  for (double& weight : weights) sum += weight = random.real(-1e16, 1e16);
  weights.back() += random.real(0.0, 60000.0) - sum;
}

template <>
void ordinary(std::span<unsigned short> samples, Random& random) {
  fillWith(samples, [&] { return static_cast<unsigned short>(random.bits()); });
}

template <>
void ordinary(std::span<float> samples, Random& random) {
  if (random.oneIn(2))
    fillWith(samples, [&] { return static_cast<float>(random.below(4096)); });
  else
    fillWith(samples, [&] { return static_cast<float>(random.real(-0.25, 1.25)); });
}

template <>
void ordinary(std::span<double> samples, Random& random) {
  fillWith(samples, [&] { return random.real(-0.25, 1.25); });
}

void zerosOfBothSigns(std::span<float> samples, Random& random) {
  constexpr float kFew[] = {-1.0f, -0.0f, -0.0f, 0.0f, 0.0f, 1.0f};
  fillWith(samples, [&] { return random.oneOf(kFew); });
}

void zerosAndNans(std::span<float> samples, Random& random) {
  zerosOfBothSigns(samples, random);
  std::size_t const rarity = random.oneOf(std::to_array<std::size_t>({2, 5, 20, 200}));
  for (float& sample : samples)
    if (random.oneIn(rarity)) sample = someNan(random);
}

template <>
void anything(std::span<unsigned short> samples, Random& random) {
  std::size_t step = random.below(40);
  switch (random.below(7)) {
    case 0:
      return fillWith(samples, [&] { return random.oneOf(kShortSpecials); });
    case 1:
      return fillWith(samples, [&] { return static_cast<unsigned short>(step++); });
    case 2:
      return fillWith(samples, [&] { return static_cast<unsigned short>(65535 - step++); });
    case 3:
      return std::fill(samples.begin(), samples.end(), random.oneOf(kShortSpecials));
    case 4:
      return fillWith(samples, [&] { return static_cast<unsigned short>(random.below(4)); });
    case 5:
      return fillWith(samples, [&] { return static_cast<unsigned short>(random.below(4096)); });
    default:
      return ordinary(samples, random);
  }
}

template <>
void anything(std::span<float> samples, Random& random) {
  switch (random.below(8)) {
    case 0:
      return fillWith(samples, [&] { return random.oneOf(kFloatSpecials); });
    case 1:
      return fillWith(samples, [&] { return std::bit_cast<float>(static_cast<std::uint32_t>(random.bits())); });
    case 2:
      return zerosOfBothSigns(samples, random);
    case 3:
      return zerosAndNans(samples, random);
    case 4:  // ordinary values with a special one or a NaN here and there
      ordinary(samples, random);
      for (std::size_t n = std::min(samples.size(), random.between(1, 3)); n-- > 0;)
        samples[random.below(samples.size())] = random.oneIn(2) ? someNan(random) : random.oneOf(kFloatSpecials);
      return;
    case 5:
      return fillWith(samples, [&] { return static_cast<float>(ofManyMagnitudes(random, -125, 250)); });
    default:
      return ordinary(samples, random);
  }
}

template <>
void anything(std::span<double> samples, Random& random) {
  if (random.oneIn(2)) return ordinary(samples, random);
  fillWith(samples, [&] { return anyDouble(random); });
}

}  // namespace korva::test
