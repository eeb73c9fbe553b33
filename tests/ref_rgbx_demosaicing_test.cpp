#include <gtest/gtest.h>

#include <string>
#include <vector>

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

// One bright R pixel spreads by halves and quarters, and into no other band.
TEST(RgbxBands, SpreadOfOnePixel) {
  constexpr float kSpread[7][7] = {{0, 0, 0, 1, 0, 0, 0}, {0, 0, 1, 2, 1, 0, 0}, {0, 1, 4, 5, 4, 1, 0},
                                   {1, 2, 5, 8, 5, 2, 1}, {0, 1, 4, 5, 4, 1, 0}, {0, 0, 1, 2, 1, 0, 0},
                                   {0, 0, 0, 1, 0, 0, 0}};
  forCases(1, [&](Case& c) {
    auto const dark = [](std::span<float> all, Random&) { std::fill(all.begin(), all.end(), 0.0f); };
    auto frame = c.input<float, 2>({16, 16}, kSeparateRows, dark);
    ASSERT_EQ(filterAt(7, 5), 'R');
    frame.set(7, 5, 8.0f);
    for (Band const& band : {routine::RGBX_ComputeBand_R_float, routine::RGBX_ComputeBand_G_float,
                             routine::RGBX_ComputeBand_B_float, routine::RGBX_ComputeBand_X_float}) {
      auto out = c.inOut<float, 2>({16, 16}, kSeparateRows, dark);
      band.library(out.actual(), frame.actual(), 16, 16);
      bool const isRed = band.library == KORVA_Ref_RGBX_ComputeBand_R_float;
      for (std::size_t row = 4; row <= 10; ++row)
        for (std::size_t column = 2; column <= 8; ++column)
          EXPECT_EQ(out.actualRow(row)[column], isRed ? kSpread[row - 4][column - 2] : 0.0f)
              << band.name << row << ", " << column;
    }
  });
}

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

TEST(RgbxFrame, SlopeIsReproducedInEveryBand) {
  forCases(1, [](Case& c) {
    auto const slope = [](std::span<float> all, Random&) {
      for (std::size_t k = 0; k < all.size(); ++k) all[k] = static_cast<float>(10 * (k / 12) + k % 12);
    };
    auto const frame = c.input<float, 2>({12, 9}, kSeparateRows, slope);
    auto scratch = c.inOut<float, 2>({12, 9}, kSeparateRows);
    auto out = c.output<float, 3>({6, 3, 4}, kSeparateRows);
    KORVA_Ref_RGBX_DemosaicFrame_float(out.actual(), scratch.actual(), frame.actual(), 12, 9);
    for (std::size_t row = 0; row < 3 * 4; ++row)
      for (std::size_t column = 0; column < 6; ++column)
        EXPECT_EQ(out.actualRow(row)[column], static_cast<float>(10 * (row % 3 + 3) + column + 3));
  });
}

}  // namespace
}  // namespace korva::test
