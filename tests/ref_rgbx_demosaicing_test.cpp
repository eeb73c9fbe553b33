#include <gtest/gtest.h>

#include "support/routines.h"

namespace korva::test {
namespace {

using Band = Routine<void(float**, float**, unsigned long, unsigned long)>;

// The filter of a pixel, from the tile as it is printed.
char filterAt(std::size_t row, std::size_t column) {
  constexpr char const* kTile[4] = {"XGXG", "GBGR", "XGXG", "GRGB"};
  return kTile[row % 4][column % 4];
}

void checkBand(Band band, char filter, std::size_t leastWidth, std::size_t step, std::size_t leastHeight) {
  forEach(imageSizes(leastWidth, leastHeight, step), 1, [&](Case& c, ImageSize size) {
    c.isMoved = [=](std::size_t, std::size_t row, std::size_t column) { return filterAt(row, column) == filter; };
    auto const in = c.input<float, 2>({size.width, size.height}, kSeparateRows);
    auto out = c.output<float, 2>({size.width, size.height}, kSeparateRows);
    c.compare(band, out, in, size.width, size.height);
    auto inPlace = c.inOut<float, 2>({size.width, size.height}, kSeparateRows);
    c.compare(band, inPlace, inPlace, size.width, size.height);
  });
}

TEST(RgbxBands, Red) { checkBand(routine::RGBX_ComputeBand_R_float, 'R', 8, 4, 2); }
TEST(RgbxBands, Green) { checkBand(routine::RGBX_ComputeBand_G_float, 'G', 2, 2, 1); }
TEST(RgbxBands, Blue) { checkBand(routine::RGBX_ComputeBand_B_float, 'B', 8, 4, 2); }
TEST(RgbxBands, FourthBand) { checkBand(routine::RGBX_ComputeBand_X_float, 'X', 2, 1, 2); }

// The scratch image is compared as well: where no band writes, it keeps what it held.
TEST(RgbxFrame, BandsAndScratchForEverySize) {
  forEach(imageSizes(8, 6, 4), 1, [](Case& c, ImageSize size) {
    c.isMoved = Case::nowhere;
    auto const frame = c.input<float, 2>({size.width, size.height}, kSeparateRows);
    auto scratch = c.inOut<float, 2>({size.width, size.height}, kSeparateRows);
    auto out = c.output<float, 3>({size.width - 6, size.height - 6, 4}, kSeparateRows);
    c.compare(routine::RGBX_DemosaicFrame_float, out, scratch, frame, size.width, size.height);
  });
}

}  // namespace
}  // namespace korva::test
