#include "camera.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "spectra.h"

namespace host {

Camera::Camera(unsigned long width, unsigned long height) : width_(width), height_(height) {
  Random random(2024);
  for (int k = 0; k < 4096; ++k) {
    double const radius = std::sqrt(-2 * std::log(1 - random.unit()));
    normal_.push_back(static_cast<float>(radius * std::cos(2 * std::numbers::pi * random.unit())));
  }
  auto const normal = [&] { return normal_[static_cast<std::size_t>(random.unit() * 4096)]; };
  std::vector<float> columnOffsets(width);
  for (float& offset : columnOffsets) offset = 3 * normal();
  for (unsigned long row = 0; row < height; ++row) {
    for (unsigned long column = 0; column < width; ++column) {
      double const x = static_cast<double>(column) / static_cast<double>(width) - 0.46;
      double const y = static_cast<double>(row) / static_cast<double>(height) - 0.53;
      double const glow = 20 * std::exp(-30 * ((x - 0.54) * (x - 0.54) + (y + 0.53) * (y + 0.53)));
      double const fall = 1 / (1 + 1.1 * x * x + 0.7 * y * y);
      bias_.push_back(static_cast<float>(128 + glow) + columnOffsets[column] + 1.5F * normal());
      sensitivity_.push_back(static_cast<float>(fall * fall) * (1 + 0.012F * normal()));
    }
  }
}

Frame Camera::biasFrame() const {
  Frame frame(width_, height_);
  std::transform(bias_.begin(), bias_.end(), frame.samples(),
                 [](float level) { return static_cast<unsigned short>(std::max(level + 0.5F, 0.0F)); });
  return frame;
}

std::vector<float> bandStrengths(std::vector<double> const& centres) {
  std::vector<double> strengths;
  std::transform(centres.begin(), centres.end(), std::back_inserter(strengths), signalStrength);
  double const most = *std::max_element(strengths.begin(), strengths.end());
  std::vector<float> relative;
  for (double const strength : strengths) relative.push_back(static_cast<float>(strength / most));
  return relative;
}

}  // namespace host
