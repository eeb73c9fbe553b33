// A synthetic 12-bit sensor: bias pattern, illumination that falls off to the corners, pixel gains and noise.
#ifndef KORVA_EXAMPLES_CAMERA_H
#define KORVA_EXAMPLES_CAMERA_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "arrays.h"
#include "texture.h"

namespace host {

class Camera {
 public:
  static constexpr unsigned short kSaturation = 4095;

  Camera(unsigned long width, unsigned long height);

  // The mean of many frames behind a closed shutter.
  Frame biasFrame() const;

  // One frame; signalOf(row)(column) is what the pixel's filter sees, 1 for a white surface in the strongest band.
  // Averaging many exposures, as for a white reference, leaves that much less noise.
  template <typename RowSignal>
  void expose(Frame& frame, double exposure, std::uint64_t number, double averaged, RowSignal const& signalOf) const {
    auto const counts = static_cast<float>(kCountsPerExposure * exposure);
    auto const calm = static_cast<float>(1 / std::sqrt(averaged));
    for (unsigned long row = 0; row < frame.height(); ++row) {
      auto const signal = signalOf(row);
      std::uint64_t draw = hash(number * 65536 + row);
      for (unsigned long column = 0; column < frame.width(); ++column) {
        std::size_t const k = row * frame.width() + column;
        float const light = counts * sensitivity_[k] * signal(column);
        draw = draw * 6364136223846793005U + 1442695040888963407U;
        float const noise = std::sqrt(kReadVariance + kShotVariance * light) * normal_[draw >> 52];
        float const sample = bias_[k] + light + calm * noise + 0.5F;
        frame[row][column] = static_cast<unsigned short>(std::min(std::max(sample, 0.0F), float{kSaturation}));
      }
    }
  }

 private:
  static constexpr double kCountsPerExposure = 3000;
  static constexpr float kReadVariance = 6;
  static constexpr float kShotVariance = 0.12F;

  unsigned long width_;
  unsigned long height_;
  std::vector<float> bias_;
  std::vector<float> sensitivity_;
  std::vector<float> normal_;  // draws of a normal distribution
};

// How strongly each band answers to white light, relative to the strongest.
std::vector<float> bandStrengths(std::vector<double> const& centres);

}  // namespace host

#endif
