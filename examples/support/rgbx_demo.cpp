#include "rgbx_demo.h"

#include <array>
#include <cmath>
#include <numbers>

#include "texture.h"

namespace host {
namespace {

// Which of R, G, B, X lies over a pixel.
std::size_t filterAt(unsigned long row, unsigned long column) {
  if (row % 2 == 0 && column % 2 == 0) return 3;
  if ((row + column) % 2 == 1) return 1;
  return (row + column) % 4 == 0 ? 0 : 2;
}

// What a sensor makes of the light on a pixel, 1 being white: shot and read noise, and whole counts.
unsigned short countsOf(double light, Levels const& levels, Random& random) {
  double const range = levels.white - levels.black;
  double const deviation = range * std::sqrt(4e-7 + 3e-5 * light);
  double const normal = std::sqrt(-2 * std::log(1 - random.unit())) * std::cos(2 * std::numbers::pi * random.unit());
  double const counts = levels.black + range * light + deviation * normal + 0.5;
  return static_cast<unsigned short>(std::clamp(counts, 0.0, static_cast<double>(levels.white)));
}

}  // namespace

RgbxCapture photographScene(Scene const& scene, Levels const& levels) {
  BandTable const filters(idealBands({610, 545, 465, 850}, 70));
  unsigned long const width = scene.width();
  unsigned long const height = scene.height();
  // The lens spreads each point over its neighbours, a quarter each way and half in the middle.
  Cube<float> const light(width, height, 4);
  for (std::size_t band = 0; band < 4; ++band) {
    Image<float> const sharp(width, height);
    for (unsigned long k = 0; k < sharp.count(); ++k) {
      sharp.samples()[k] = seen(scene.at(k / width, k % width), filters, band);
    }
    for (unsigned long row = 0; row < height; ++row) {
      float const* const rows[] = {sharp[row == 0 ? 0 : row - 1], sharp[row], sharp[std::min(row + 1, height - 1)]};
      auto const column3 = [&](unsigned long column) {
        return rows[0][column] + 2 * rows[1][column] + rows[2][column];
      };
      for (unsigned long column = 0; column < width; ++column) {
        light[band][row][column] =
            (column3(column == 0 ? 0 : column - 1) + 2 * column3(column) + column3(std::min(column + 1, width - 1))) /
            16;
      }
    }
  }
  RgbxCapture capture{Frame(width, height),
                      colourPicture(light.plane(0), light.plane(1), light.plane(2), width, height, kPaintingWhite)};
  Random random(7);
  for (unsigned long row = 0; row < height; ++row) {
    for (unsigned long column = 0; column < width; ++column) {
      auto const signal = static_cast<double>(light[filterAt(row, column)][row][column]);
      capture.frame[row][column] = countsOf(signal, levels, random);
    }
  }
  return capture;
}

RgbxCapture mosaicPhotograph(Picture const& photograph, Levels const& levels) {
  std::array<double, 256> light{};
  for (std::size_t level = 0; level < light.size(); ++level) {
    double const shown = static_cast<double>(level) / 255;
    light[level] = shown <= 0.04045 ? shown / 12.92 : std::pow((shown + 0.055) / 1.055, 2.4);
  }
  Picture const truth = cropped(photograph, 0, 0, photograph.width() / 4 * 4, photograph.height() / 4 * 4);
  RgbxCapture capture{Frame(truth.width(), truth.height()), truth};
  for (unsigned long row = 0; row < truth.height(); ++row) {
    for (unsigned long column = 0; column < truth.width(); ++column) {
      Colour const pixel = truth.at(column, row);
      double const red = light[pixel.red];
      double const green = light[pixel.green];
      double const blue = light[pixel.blue];
      double const filters[] = {red, green, blue, 0.2126 * red + 0.7152 * green + 0.0722 * blue};
      double const counts = levels.black + (levels.white - levels.black) * filters[filterAt(row, column)] + 0.5;
      capture.frame[row][column] = static_cast<unsigned short>(counts);
    }
  }
  return capture;
}

Frame uniformFrame(unsigned long width, unsigned long height, double light, Levels const& levels) {
  Frame frame(width, height);
  Random random(static_cast<std::uint64_t>(1000 * light) + 3);
  for (unsigned long k = 0; k < frame.count(); ++k) frame.samples()[k] = countsOf(light, levels, random);
  return frame;
}

unsigned long plantDefects(Frame& frame, Levels const& levels) {
  Random random(13);
  unsigned long const defects = frame.count() / 2000;
  for (unsigned long k = 0; k < defects; ++k) {
    auto const place = static_cast<unsigned long>(random.unit() * static_cast<double>(frame.count()));
    frame.samples()[place] = random.unit() < 0.6 ? levels.white : static_cast<unsigned short>(0);
  }
  return defects;
}

}  // namespace host
