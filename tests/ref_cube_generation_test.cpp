#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "support/routines.h"

namespace korva::test {
namespace {

using Short = unsigned short;

void distinct(std::span<Short> samples, Random& random) {
  std::iota(samples.begin(), samples.end(), static_cast<Short>(random.bits()));
}

template <class T>
void checkCrop(Routine<void(T**, T**, unsigned long, unsigned long, unsigned long, unsigned long, unsigned long,
                            unsigned long)> routine) {
  forEach(everyWidth(1), 8, [&](Case& c, std::size_t width) {
    std::size_t const height = c.random.between(1, 9);
    std::size_t const left = c.random.below(width), top = c.random.below(height);
    std::size_t const cropWidth = c.random.oneIn(8) ? width - left : c.random.below(width - left + 1);
    std::size_t const cropHeight = c.random.below(height - top + 1);
    auto const in = c.input<T, 2>({width, height}, kSeparateRows);
    // Without more columns and rows than the rectangle has, and with one more, which stay as they were.
    for (std::size_t const more : Sizes{0, 1}) {
      auto out = c.output<T, 2>({cropWidth + more, cropHeight + more}, kSeparateRows);
      c.compare(routine, out, in, width, height, left, top, cropWidth, cropHeight);
    }
  });
}

TEST(SnapshotCube, CropCopiesTheRectangleAndNothingElse) { checkCrop(routine::CG_CropImage_uint16); }
TEST(ImageCrop, MovesRowsWithAllTheirBits) { checkCrop(routine::Crop_float); }

TEST(SnapshotCube, MosaicBandTakesOneSampleOfEveryWholeCell) {
  Cases cases;
  auto const run = [&](std::size_t width, std::size_t height, std::size_t cellWidth, std::size_t cellHeight) {
    cases.run([&](Case& c) {
      auto const in = c.input<Short, 2>({width, height}, kSeparateRows, distinct);
      std::size_t const bands = cellWidth * cellHeight;
      for (std::size_t band = bands > 25 ? c.random.below(bands) : 0; band < bands; ++band) {
        auto out = c.output<Short, 2>({width / cellWidth, height / cellHeight}, kSeparateRows);
        c.compare(routine::CG_SSM_GetBandImage_uint16, out, in, width, height, cellWidth, cellHeight, band);
        if (bands > 25) break;
      }
    });
  };
  for (std::size_t cellWidth = 1; cellWidth <= 8; ++cellWidth)
    for (std::size_t const width : everyWidth(1)) run(width, 1 + width % 13, cellWidth, 1 + (width + cellWidth) % 5);
  for (std::size_t const cell : Sizes{3, 4, 5, 16, 70})
    for (std::size_t height = 1; height <= 21; ++height) run(cell * 37 + height % cell, height, cell, cell % 7 + 1);
  run(640, 480, 4, 4);
  run(643, 482, 5, 5);
}

TEST(SnapshotCube, TileIsCutOutWhole) {
  Cases cases;
  auto const run = [&](std::size_t width, std::size_t height, std::size_t tileWidth, std::size_t tileHeight) {
    cases.run([&](Case& c) {
      auto const in = c.input<Short, 2>({width, height}, kSeparateRows, distinct);
      std::size_t const bands = width / tileWidth * (tileHeight == 0 ? 1 : height / tileHeight);
      for (std::size_t band = 0; band < bands; ++band) {
        auto out = c.output<Short, 2>({tileWidth, tileHeight}, kSeparateRows);
        c.compare(routine::CG_SST_GetBandImage_uint16, out, in, width, height, tileWidth, tileHeight, band);
      }
    });
  };
  for (std::size_t const width : everyWidth(1))
    for (std::size_t divisor = 1; divisor <= 5 && divisor <= width; ++divisor)
      run(width, 4 + width % 5, width / divisor, 1 + divisor % 4);
  run(10, 6, 3, 0);
  run(800, 600, 200, 200);
  run(810, 600, 200, 200);
}

TEST(LineScan, RingHasASlotForEachBandOfTheRange) {
  Short*** ring;
  long const live = liveAllocationCount();
  KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16(&ring, 5, 2, 3, 2, 5);
  EXPECT_EQ(ring[2][7], ring[0][0] + (2 * 8 + 7) * 5);
  std::fill_n(ring[0][0], 3 * 8 * 5, Short{7});
  KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16(ring);
  EXPECT_EQ(liveAllocationCount(), live);
}

TEST(LineScan, StripIsTakenRowByRow) {
  forEach(everyWidth(1), 5, [](Case& c, std::size_t width) {
    std::size_t const strip = c.random.below(5), height = 5 * strip + 2;
    auto const in = c.input<Short, 2>({width, height}, kSeparateRows, distinct);
    auto out = c.output<Short, 2>({width, strip}, kSeparateRows);
    c.compare(routine::CG_LS_GetBandImageStrip_uint16, out, in, width, height, strip, c.random.below(5));
  });
}

// Frame numbers: the first ones, any, and those around the wrap of 64 bits.
std::vector<unsigned long> frameNumbers(Random& random) {
  std::vector<unsigned long> numbers = {random.bits(), random.bits(), 1ul << 63, 1ul << 32};
  for (unsigned long t = 0; t <= 12; ++t) numbers.insert(numbers.end(), {t, 0ul - 1 - t});
  return numbers;
}

TEST(LineScan, RingTakesAndHandsOutEveryFrameNumber) {
  forEach(Sizes{1, 2, 3, 7, 16, 33, 70, 257}, 35, [](Case& c, std::size_t width) {
    std::size_t const n = c.random.between(1, 7), strip = c.random.between(1, 5);
    std::size_t const first = c.random.below(4), last = first + n - 1;
    std::size_t const extra = c.random.below(3);
    std::size_t const height = strip + c.random.below(4 * strip);
    auto ring = c.inOut<Short, 3>({width, n * strip, n + extra}, n * strip, distinct);
    for (unsigned long const t : frameNumbers(c.random)) {
      // The rows of each strip lie back to back; the strips may lie anywhere.
      auto const frame = c.input<Short, 2>({width, (last + 1) * strip}, strip, distinct);
      c.compare(routine::CG_LS_StitchBandImage_uint16, ring, frame, width, strip, first, last, t);
      std::size_t const band = c.random.between(first, last), plane = c.random.below(n + extra);
      auto single = c.input<Short, 2>({width, strip}, kOneBlock, distinct);
      single.forgetLaterRows();
      c.compare(routine::CG_LS_StitchBandImageStrip_uint16, ring, single, width, strip, first, last, band, plane, t);
      std::size_t const bands = c.random.below(n + extra + 1);
      auto slice = c.output<Short, 3>({width, height, bands + 1}, height);
      if (t >= n - 1) {
        c.compare(routine::CG_LS_GetStitchedSlice_BSQ_uint16, slice, ring, width, strip, height, bands, first, last, t);
        continue;
      }
      // Before the ring is full any slots may be handed out, but nothing else.
      KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16(slice.actual(), ring.actual(), width, strip, height, bands, first,
                                                  last, t);
      c.check(2, ring);
      if (!slice.slackIsIntact()) c.fail("an early slice lies outside its planes");
    }
  });
}

}  // namespace
}  // namespace korva::test
