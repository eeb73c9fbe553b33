// 8-bit RGB pictures, PNG files, and what hosts do to make samples visible.
#ifndef KORVA_EXAMPLES_PICTURE_H
#define KORVA_EXAMPLES_PICTURE_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "arrays.h"

namespace host {

struct Colour {
  std::uint8_t red;
  std::uint8_t green;
  std::uint8_t blue;
};

class Picture {
 public:
  Picture(unsigned long width, unsigned long height, Colour fill = {255, 255, 255})
      : width_(width), height_(height), pixels_(width * height, fill) {}

  unsigned long width() const { return width_; }
  unsigned long height() const { return height_; }
  Colour& at(unsigned long x, unsigned long y) { return pixels_[y * width_ + x]; }
  Colour at(unsigned long x, unsigned long y) const { return pixels_[y * width_ + x]; }
  Colour const* pixels() const { return pixels_.data(); }
  Colour* pixels() { return pixels_.data(); }

 private:
  unsigned long width_;
  unsigned long height_;
  std::vector<Colour> pixels_;
};

// Any PNG as 8-bit RGB; throws a HostError when it cannot be read.
Picture readPng(std::string const& path);
bool writePng(std::string const& path, Picture const& picture);

// A value between black 0 and white 1 as it is shown on a screen.
std::uint8_t screenLevel(double value);

// The value below which the given share of the samples lies, looking at every 16th or so of a large run.
template <typename Sample>
double percentile(std::span<Sample const> samples, double share) {
  std::vector<Sample> looked;
  std::size_t const step = samples.size() / 200000 + 1;
  for (std::size_t k = 0; k < samples.size(); k += step) looked.push_back(samples[k]);
  auto const middle = looked.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(looked.size() - 1));
  std::nth_element(looked.begin(), middle, looked.end());
  return static_cast<double>(*middle);
}

// Shows samples between black and white; above white they stay white.
template <typename Sample>
Picture greyPicture(Image<Sample> const& image, double black, double white) {
  Picture picture(image.width(), image.height());
  for (unsigned long k = 0; k < image.count(); ++k) {
    std::uint8_t const level = screenLevel((static_cast<double>(image.samples()[k]) - black) / (white - black));
    picture.pixels()[k] = {level, level, level};
  }
  return picture;
}

// Shows three planes as red, green and blue, white being the given sample value.
template <typename Sample>
Picture colourPicture(Sample const* red, Sample const* green, Sample const* blue, unsigned long width,
                      unsigned long height, double white) {
  Picture picture(width, height);
  for (unsigned long k = 0; k < width * height; ++k) {
    picture.pixels()[k] = {screenLevel(static_cast<double>(red[k]) / white),
                           screenLevel(static_cast<double>(green[k]) / white),
                           screenLevel(static_cast<double>(blue[k]) / white)};
  }
  return picture;
}

Picture cropped(Picture const& picture, unsigned long left, unsigned long top, unsigned long width,
                unsigned long height);
// Repeats each pixel, so that single samples can be seen.
Picture enlarged(Picture const& picture, unsigned long times);
// The mean of each block, no wider than the given width afterwards.
Picture shrunkTo(Picture const& picture, unsigned long width);
// Keeps the given number of bits a colour: half the file for a picture that goes into a document.
Picture fewerLevels(Picture picture, int bits);
void paste(Picture& target, Picture const& source, unsigned long left, unsigned long top);

}  // namespace host

#endif
