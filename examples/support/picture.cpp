#include "picture.h"

#include <png.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace host {

static_assert(sizeof(Colour) == 3, "libpng takes the pixels as one run of bytes");

Picture readPng(std::string const& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  auto const fault = [&] {
    std::string const found = std::filesystem::is_directory(path) ? "found a folder" : image.message;
    png_image_free(&image);
    return HostError(path + ": expected a PNG picture (" + found + ")");
  };
  if (std::filesystem::is_directory(path) || png_image_begin_read_from_file(&image, path.c_str()) == 0) throw fault();
  image.format = PNG_FORMAT_RGB;
  if (image.width > kLargestSize || image.height > kLargestSize) throw fault();
  Picture picture(image.width, image.height);
  png_color const background{255, 255, 255};
  if (png_image_finish_read(&image, &background, picture.pixels(), 0, nullptr) == 0) throw fault();
  return picture;
}

bool writePng(std::string const& path, Picture const& picture) {
  bool grey = true;
  std::vector<std::uint8_t> levels;
  for (unsigned long k = 0; k < picture.width() * picture.height() && grey; ++k) {
    Colour const& pixel = picture.pixels()[k];
    grey = pixel.red == pixel.green && pixel.green == pixel.blue;
    levels.push_back(pixel.red);
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.width());
  image.height = static_cast<png_uint_32>(picture.height());
  image.format = grey ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
  // Full frames are mostly noise, which slow compression does not make smaller.
  if (picture.width() * picture.height() > 1000000) image.flags = PNG_IMAGE_FLAG_FAST;
  void const* const samples = grey ? static_cast<void const*>(levels.data()) : picture.pixels();
  return png_image_write_to_file(&image, path.c_str(), 0, samples, 0, nullptr) != 0;
}

std::uint8_t screenLevel(double value) {
  // The screen's own curve, tabled: a frame has millions of samples.
  static std::array<std::uint8_t, 4096> const levels = [] {
    std::array<std::uint8_t, 4096> table{};
    for (std::size_t k = 0; k < table.size(); ++k) {
      double const linear = static_cast<double>(k) / static_cast<double>(table.size() - 1);
      double const shown = linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
      table[k] = static_cast<std::uint8_t>(std::lround(255 * shown));
    }
    return table;
  }();
  // A NaN, as an all-black frame makes of its own contrast, is black too.
  double const position = (value > 0 ? std::min(value, 1.0) : 0.0) * static_cast<double>(levels.size() - 1);
  return levels[static_cast<std::size_t>(position + 0.5)];
}

Picture cropped(Picture const& picture, unsigned long left, unsigned long top, unsigned long width,
                unsigned long height) {
  left = std::min(left, picture.width() - 1);
  top = std::min(top, picture.height() - 1);
  Picture result(std::min(width, picture.width() - left), std::min(height, picture.height() - top));
  for (unsigned long y = 0; y < result.height(); ++y) {
    for (unsigned long x = 0; x < result.width(); ++x) result.at(x, y) = picture.at(left + x, top + y);
  }
  return result;
}

Picture enlarged(Picture const& picture, unsigned long times) {
  Picture result(picture.width() * times, picture.height() * times);
  for (unsigned long y = 0; y < result.height(); ++y) {
    for (unsigned long x = 0; x < result.width(); ++x) result.at(x, y) = picture.at(x / times, y / times);
  }
  return result;
}

Picture shrunkTo(Picture const& picture, unsigned long width) {
  unsigned long const block = (picture.width() + width - 1) / width;
  Picture result(std::max(picture.width() / block, 1UL), std::max(picture.height() / block, 1UL));
  for (unsigned long y = 0; y < result.height(); ++y) {
    for (unsigned long x = 0; x < result.width(); ++x) {
      Picture const part = cropped(picture, x * block, y * block, block, block);
      unsigned long const count = part.width() * part.height();
      unsigned long red = count / 2, green = count / 2, blue = count / 2;
      for (unsigned long k = 0; k < count; ++k) {
        red += part.pixels()[k].red;
        green += part.pixels()[k].green;
        blue += part.pixels()[k].blue;
      }
      result.at(x, y) = {static_cast<std::uint8_t>(red / count), static_cast<std::uint8_t>(green / count),
                         static_cast<std::uint8_t>(blue / count)};
    }
  }
  return result;
}

Picture fewerLevels(Picture picture, int bits) {
  // White stays white, so that margins do not turn grey.
  auto const rounded = [step = 255.0 / ((1 << bits) - 1)](std::uint8_t level) {
    return static_cast<std::uint8_t>(std::lround(std::round(level / step) * step));
  };
  for (unsigned long k = 0; k < picture.width() * picture.height(); ++k) {
    Colour& pixel = picture.pixels()[k];
    pixel = {rounded(pixel.red), rounded(pixel.green), rounded(pixel.blue)};
  }
  return picture;
}

void paste(Picture& target, Picture const& source, unsigned long left, unsigned long top) {
  for (unsigned long y = 0; y < source.height() && top + y < target.height(); ++y) {
    for (unsigned long x = 0; x < source.width() && left + x < target.width(); ++x) {
      target.at(left + x, top + y) = source.at(x, y);
    }
  }
}

}  // namespace host
