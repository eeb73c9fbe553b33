#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/routines.h"

namespace korva::test {
namespace {

using Short = unsigned short;

constexpr unsigned long kWidth = 44, kHeight = 22, kCount = kWidth * kHeight;

// What all threads read at the same time.
struct SharedInputs {
  explicit SharedInputs(Case& c)
      : counts(c.input<Short, 3>({kWidth, kHeight, 6})),
        floats(c.input<float, 3>({kWidth, kHeight, 6})),
        doubles(c.input<double, 1>({kCount})),
        matrix(c.input<double, 2>({6, 6})),
        kernel(c.input<double, 1>({49})),
        sizes(c.input<unsigned long, 1>({2}, kOneBlock, [](std::span<unsigned long> all, Random&) {
          all[0] = kHeight;
          all[1] = kWidth;
        })) {}

  Samples<Short, 3> counts;
  Samples<float, 3> floats;
  Samples<double, 1> doubles;
  Samples<double, 2> matrix;
  Samples<double, 1> kernel;
  Samples<unsigned long, 1> sizes;
};

// Calls every routine once, into arrays of the calling thread. Its plain definition runs on the same thread, so the
// results are those that any other thread, or one thread alone, must get.
void callEverything(Case& c, SharedInputs& shared) {
  c.isMoved = Case::nowhere;
  Short*** const counts = shared.counts.actual();
  float*** const floats = shared.floats.actual();
  Short* const run = counts[0][0];
  float* const floatRun = floats[0][0];
  double* const doubles = shared.doubles.actual();
  double** const matrix = shared.matrix.actual();
  unsigned long* const height = shared.sizes.actual();
  unsigned long* const width = height + 1;

  auto image = c.output<Short, 2>({kWidth, kHeight});
  auto floatImage = c.output<float, 2>({kWidth, kHeight});
  auto cube = c.output<Short, 3>({kWidth, kHeight, 6});
  auto floatCube = c.output<float, 3>({kWidth, kHeight, 6});
  auto flat = c.output<Short, 1>({6 * kCount});
  auto floatFlat = c.output<float, 1>({6 * kCount});
  auto doubleFlat = c.output<double, 1>({kCount});

  c.compare(routine::CG_CropImage_uint16, image, counts[0], kWidth, kHeight, 3, 3, kWidth - 6, kHeight - 6);
  c.compare(routine::CG_SSM_GetBandImage_uint16, image, counts[1], kWidth, kHeight, 4, 4, 7);
  c.compare(routine::CG_SST_GetBandImage_uint16, image, counts[2], kWidth, kHeight, 11, 7, 5);
  c.compare(routine::CG_LS_GetBandImageStrip_uint16, image, counts[0], kWidth, kHeight, 3, 2);
  c.compare(routine::CG_LS_StitchBandImageStrip_uint16, cube, counts[0], kWidth, 3, 1, 4, 2, 1, 9);
  c.compare(routine::CG_LS_StitchBandImage_uint16, cube, counts[3], kWidth, 3, 1, 4, 10);
  c.compare(routine::CG_LS_GetStitchedSlice_BSQ_uint16, cube, counts, kWidth, 3, kHeight, 4, 1, 4, 10);

  c.compare(routine::RC_CorrectBias_float, floatFlat, floatRun, floatRun + 5, kCount);
  c.compare(routine::RC_CorrectBias_uint16, flat, run, run + 5, kCount);
  c.compare(routine::RC_ComputeCorrectionCoefficients_float, doubleFlat, floatRun, kCount, 0.5, 3.0, 1.0f);
  c.compare(routine::RC_ComputeReflectance_float, floatFlat, floatRun, doubles, kCount, 3.0, 1.0f, 9.0f);
  c.compare(routine::RC_ComputeCorrectionCoefficients_uint16, doubleFlat, run, kCount, 0.5, 3.0, Short{9});
  c.compare(routine::RC_ComputeReflectance_uint16, flat, run, doubles, kCount, 3.0, Short{10000}, Short{9},
            Short{60000});

  c.compare(routine::SC_ApplySpectralCorrection_float, floatFlat, floatRun, matrix, 6u, 6u);
  c.compare(routine::SC_ApplySpectralCorrection_uint16, flat, run, matrix, 6u, 6u);
  c.compare(routine::SC_ApplySpectralCorrection_BIP_float, floatFlat, floatRun, matrix, 6u, 6u, 968u);
  c.compare(routine::SC_ApplySpectralCorrection_BIP_uint16, flat, run, matrix, 6u, 6u, 968u);
  c.compare(routine::SC_ApplySpectralCorrection_BSQ_float, floatCube, doubleFlat, floats, matrix, 6u, 6u, 968u);
  c.compare(routine::SC_ApplySpectralCorrection_BSQ_uint16, cube, doubleFlat, counts, matrix, 6u, 6u, 968u);

  auto row = c.output<unsigned, 1>({1}), column = c.output<unsigned, 1>({1});
  auto weights = c.output<double, 1>({4}), offsets = c.output<double, 1>({2});
  c.compare(routine::DM_ComputeFilterPosition, row, column, 5u, 17u);
  c.compare(routine::DM_ComputeTargetPositionRelativeToFilterPosition, weights, offsets, 3u, 2u, 1.5, 1.25);
  c.compare(routine::DM_ComputeCoefficientsBilinear, weights, 4u, 5u, -1.5, 0.25);
  c.compare(routine::DM_ApplyDemosaicingBilinear_dbl, doubleFlat, doubles, 22u, 44u, weights, -1.5, 0.25);
  c.compare(routine::DM_ApplyDemosaicingBilinear_uint16, flat, run, 22u, 44u, weights, -1.5, 0.25);

  auto values = c.inOut<Short, 1>({25});
  auto floatValues = c.inOut<float, 1>({25}, kOneBlock, ordinary<float>);
  c.compare(routine::MF_Median1D_9_uint16, values);
  c.compare(routine::MF_Median1D_9_float, floatValues);
  c.compare(routine::MF_Median1D_25_uint16, values);
  c.compare(routine::MF_Median1D_25_float, floatValues);
  c.compare(routine::MF_Median1D_uint16, values, 24);
  c.compare(routine::MF_Median1D_float, floatValues, 24);
  c.compare(routine::MF_Median2D_3x3_uint16, image, counts[0], height, width);
  c.compare(routine::MF_Median2D_5x5_uint16, image, counts[1], height, width);
  c.compare(routine::MF_Median2D_3x3_float, floatImage, floats[0], height, width);
  c.compare(routine::MF_Median2D_5x5_float, floatImage, floats[1], height, width);

  c.compare(routine::Subtract_float, floatImage, floats[0], floats[1], kWidth, kHeight);
  c.compare(routine::Add_float, floatImage, floats[0], floats[2], kWidth, kHeight);
  c.compare(routine::Mix_float, floatImage, floats[0], floats[3], kWidth, kHeight, 0.3);
  c.compare(routine::Crop_float, floatImage, floats[0], kWidth, kHeight, 3, 3, kWidth - 6, kHeight - 6);
  c.compare(routine::ApplyKernel7x7_float, floatImage, floats[0], kWidth, kHeight, shared.kernel);
  c.compare(routine::RGBToYCbCr_float, floatCube, floats, kWidth, kHeight, 0.1, 0.3);
  c.compare(routine::YCbCrToRGB_float, floatCube, floats, kWidth, kHeight, 0.1, 0.3);

  c.compare(routine::RGBX_ComputeBand_R_float, floatImage, floats[0], kWidth, kHeight);
  c.compare(routine::RGBX_ComputeBand_G_float, floatImage, floats[0], kWidth, kHeight);
  c.compare(routine::RGBX_ComputeBand_B_float, floatImage, floats[0], kWidth, kHeight);
  c.compare(routine::RGBX_ComputeBand_X_float, floatImage, floats[0], kWidth, kHeight);
  c.compare(routine::RGBX_DemosaicFrame_float, floatCube, floatImage, floats[0], kWidth, kHeight);

  NewWLIBuffers buffers, plainBuffers;
  KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(&buffers, kWidth, kHeight);
  KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(&plainBuffers, kWidth, kHeight);
  auto out = c.output<float, 3>({kWidth - 6, kHeight - 6, 3});
  struct {
    NewWLIBuffers forLibrary, forPlain;
    NewWLIBuffers actual() const { return forLibrary; }
    NewWLIBuffers expected() const { return forPlain; }
  } const working{buffers, plainBuffers};
  c.compare(routine::RGBX_ComputeNewWLI_float, out, floats, kWidth, kHeight, shared.kernel, working, 0.1, 0.3, 0.4);
  KORVA_Ref_RGBX_FreeNewWLIBuffers_float(plainBuffers);
  KORVA_Ref_RGBX_FreeNewWLIBuffers_float(buffers);

  Short*** ring;
  KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16(&ring, kWidth, 3, 4, 1, 4);
  std::string const file = "korva_threads_" + std::to_string(reinterpret_cast<std::uintptr_t>(ring)) + ".raw";
  KORVA_Ref_WriteRawDataToDisk(run, testing::TempDir().c_str(), file.c_str(), 36 * kWidth, sizeof(Short));
  KORVA_Ref_ReadRawDataFromDisk(ring[0][0], testing::TempDir().c_str(), file.c_str(), 36 * kWidth, sizeof(Short));
  if (std::memcmp(ring[0][0], run, 36 * kWidth * sizeof(Short)) != 0) c.fail("another file is read back");
  std::remove((testing::TempDir() + file).c_str());
  KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16(ring);
}

TEST(EveryRoutine, LeavesMostOfASmallStackFree) {
  if (!allocationsAreCounted()) GTEST_SKIP() << "sanitizers enlarge every frame";
  Cases cases;
  cases.run({}, [](Case& c) {
    SharedInputs shared(c);
    c.watchesStack = true;
    callEverything(c, shared);
  });
}

TEST(Threads, EightCallEverythingOnSharedInputs) {
  Cases cases;
  for (int round = 0; round < 4; ++round) {
    cases.run({}, [](Case& c) {
      SharedInputs shared(c);
      std::vector<std::thread> threads;
      for (unsigned long thread = 0; thread < 8; ++thread) {
        unsigned long const seed = c.random.bits();
        threads.emplace_back([&shared, thread, seed] {
          Case own(seed, "thread " + std::to_string(thread), "the whole test");
          for (int repetition = 0; repetition < 3; ++repetition) callEverything(own, shared);
        });
      }
      for (std::thread& thread : threads) thread.join();
      c.check(1, shared.counts);
      c.check(2, shared.floats);
    });
  }
}

}  // namespace
}  // namespace korva::test
