// Repeatable randomness and the textures made of it: the same scene on every machine, every time.
#ifndef KORVA_EXAMPLES_TEXTURE_H
#define KORVA_EXAMPLES_TEXTURE_H

#include <array>
#include <cstdint>

namespace host {

// A well-mixed 64-bit hash, which serves as a generator when fed with a counter.
constexpr std::uint64_t hash(std::uint64_t value) {
  value += 0x9e3779b97f4a7c15U;
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9U;
  value = (value ^ (value >> 27)) * 0x94d049bb133111ebU;
  return value ^ (value >> 31);
}

class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(hash(seed)) {}
  double unit() { return static_cast<double>(hash(state_++) >> 11) * 0x1p-53; }
  double between(double low, double high) { return low + (high - low) * unit(); }

 private:
  std::uint64_t state_;
};

// Random heights of a grid that repeats every 256 points.
inline std::array<float, 65536> const kGridHeights = [] {
  std::array<float, 65536> heights{};
  for (std::uint64_t k = 0; k < heights.size(); ++k) {
    heights[k] = static_cast<float>(static_cast<double>(hash(k) >> 40) * 0x1p-23 - 1);
  }
  return heights;
}();

// Smooth bumps of about unit size, from -1 to 1.
inline double bumps(double x, double y, std::uint64_t seed) {
  auto const below = [](double value) {
    auto const whole = static_cast<std::int64_t>(value);
    return whole - (value < static_cast<double>(whole) ? 1 : 0);
  };
  std::int64_t const column = below(x);
  std::int64_t const row = below(y);
  auto const corner = [&](std::int64_t dx, std::int64_t dy) {
    auto const cx = static_cast<std::uint64_t>(column + dx) + 37 * seed;
    auto const cy = static_cast<std::uint64_t>(row + dy) + 101 * seed;
    return static_cast<double>(kGridHeights[(cy % 256) * 256 + cx % 256]);
  };
  auto const ease = [](double t) { return t * t * (3 - 2 * t); };
  double const u = ease(x - static_cast<double>(column));
  double const v = ease(y - static_cast<double>(row));
  double const upper = corner(0, 0) + u * (corner(1, 0) - corner(0, 0));
  double const lower = corner(0, 1) + u * (corner(1, 1) - corner(0, 1));
  return upper + v * (lower - upper);
}

// Bumps with finer and fainter bumps on them, about -1 to 1.
inline double texture(double x, double y, int octaves, std::uint64_t seed) {
  double sum = 0;
  double height = 0.5;
  for (int octave = 0; octave < octaves; ++octave) {
    sum += height * bumps(x, y, seed + static_cast<std::uint64_t>(octave));
    x *= 2.03;
    y *= 2.03;
    height *= 0.55;
  }
  return sum;
}

}  // namespace host

#endif
