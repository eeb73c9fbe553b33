// Whole frames through all steps of a sensor's road, in buffers that stay from frame to frame.
#include "harness.h"

namespace korva::benchmarks {
namespace {

using Samples = Planes<unsigned short>;

Planes<double> roadMatrix(unsigned bands) {
  Planes<double> const matrix = noise<double>({bands, bands});
  for (unsigned k = 0; k < matrix.samples(); ++k) matrix.data()[k] /= 2048.0 * bands;
  return matrix;
}

// Bias and white reference to reflectance, then the spectral correction, for a cube in one run.
std::function<void(Samples const& out, Samples const& in)> cubeCorrection(Form form, Size size, unsigned bands) {
  auto* const correctBias = routine(form, "KORVA_Ref_RC_CorrectBias_uint16", plain::RC_CorrectBias_uint16);
  auto* const computeCoefficients = routine(form, "KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16",
                                            plain::RC_ComputeCorrectionCoefficients_uint16);
  auto* const computeReflectance =
      routine(form, "KORVA_Ref_RC_ComputeReflectance_uint16", plain::RC_ComputeReflectance_uint16);
  auto* const applyCorrection =
      routine(form, "KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16", plain::SC_ApplySpectralCorrection_BSQ_uint16);
  Samples const bias(size, bands), white = noise<unsigned short>(size, bands, 2), reflectance(size, bands);
  for (unsigned long k = 0; k < bias.samples(); ++k) bias.data()[k] = static_cast<unsigned short>(60 + k % 7);
  Planes<double> const coefficients(size, bands), scratch(size), matrix = roadMatrix(bands);
  computeCoefficients(coefficients.data(), white.data(), white.samples(), 0.95, 1.0, 4095);
  return [=](Samples const& out, Samples const& in) {
    correctBias(reflectance.data(), in.data(), bias.data(), in.samples());
    computeReflectance(reflectance.data(), reflectance.data(), coefficients.data(), in.samples(), 2.0, 10000, 4095,
                       4090);
    applyCorrection(out.cube(), scratch.data(), reflectance.cube(), matrix.rows(), bands, bands,
                    static_cast<unsigned>(in.size().samples()));
  };
}

void addSnapshotRoad(Size frameSize, unsigned cell) {
  unsigned const bands = cell * cell;
  Size const size{frameSize.width / cell, frameSize.height / cell};
  std::string const variant = std::to_string(cell) + " x " + std::to_string(cell) + " mosaic";
  addRow({"snapshot road", variant, {"road", frameSize}}, [=](Form form) {
    auto* const getBandImage = routine(form, "KORVA_Ref_CG_SSM_GetBandImage_uint16", plain::CG_SSM_GetBandImage_uint16);
    auto* const demosaic =
        routine(form, "KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16", plain::DM_ApplyDemosaicingBilinear_uint16);
    auto const correct = cubeCorrection(form, size, bands);
    Samples const frame = noise<unsigned short>(frameSize), bandImage(size), cube(size, bands), out(size, bands);
    return Run{[=] {
                 for (unsigned band = 0; band < bands; ++band) {
                   unsigned row, column;
                   double rowOffset, columnOffset, weights[4];
                   double const target = (cell - 1) / 2.0;
                   plain::DM_ComputeFilterPosition(&row, &column, cell, band);
                   plain::DM_ComputeTargetPositionRelativeToFilterPosition(&rowOffset, &columnOffset, row, column,
                                                                           target, target);
                   plain::DM_ComputeCoefficientsBilinear(weights, cell, cell, rowOffset, columnOffset);
                   getBandImage(bandImage.rows(), frame.rows(), frameSize.width, frameSize.height, cell, cell, band);
                   demosaic(cube.data(band), bandImage.data(), static_cast<unsigned>(size.height),
                            static_cast<unsigned>(size.width), weights, rowOffset, columnOffset);
                 }
                 correct(out, cube);
               },
               out};
  });
}

void addLineScanRoad(Size frameSize, unsigned bands, unsigned long strip) {
  std::string const variant = std::to_string(bands) + " bands of " + std::to_string(strip) + " rows";
  unsigned long const width = frameSize.width, last = bands - 1;
  addRow({"line-scan road", variant, {"road", frameSize}}, [=](Form form) {
    auto* const stitch = routine(form, "KORVA_Ref_CG_LS_StitchBandImage_uint16", plain::CG_LS_StitchBandImage_uint16);
    auto* const getSlice =
        routine(form, "KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16", plain::CG_LS_GetStitchedSlice_BSQ_uint16);
    auto const correct = cubeCorrection(form, {width, strip}, bands);
    Samples const frame = noise<unsigned short>(frameSize), ring({width, bands * strip}, bands);
    Samples const slice({width, strip}, bands), out({width, strip}, bands);
    return Run{[=, frameIndex = last]() mutable {
                 stitch(ring.cube(), frame.rows(), width, strip, 0, last, frameIndex);
                 getSlice(slice.cube(), ring.cube(), width, strip, strip, bands, 0, last, frameIndex++);
                 correct(out, slice);
               },
               out};
  });
}

void addRgbxRoad(Size frameSize) {
  addRow({"RGBX road", "with new WLI", {"road", frameSize}}, [=](Form form) {
    auto* const demosaicFrame = routine(form, "KORVA_Ref_RGBX_DemosaicFrame_float", plain::RGBX_DemosaicFrame_float);
    auto* const computeNewWli = routine(form, "KORVA_Ref_RGBX_ComputeNewWLI_float", plain::RGBX_ComputeNewWLI_float);
    Size const size{frameSize.width - 6, frameSize.height - 6};
    Planes<float> const frame = noise<float>(frameSize), scratch(frameSize), bands(size, 4);
    Planes<float> const working(size, 3), ycc(size, 3), out({size.width - 6, size.height - 6}, 3);
    Planes<double> const kernel({7, 7});
    for (int k = 0; k < 49; ++k) kernel.data()[k] = 1.0 / 49;
    NewWLIBuffers const buffers{working.rows(0), working.rows(1), working.rows(2), ycc.cube()};
    return Run{[=, keepWorking = working, keepYcc = ycc] {
                 demosaicFrame(bands.cube(), scratch.rows(), frame.rows(), frameSize.width, frameSize.height);
                 computeNewWli(out.cube(), bands.cube(), size.width, size.height, kernel.data(), buffers, 0.114, 0.299,
                               0.3);
               },
               out};
  });
}

}  // namespace

void registerRoads() {
  constexpr Size kFrame{2048, 1088};
  addSnapshotRoad(kFrame, 4);
  addSnapshotRoad(kFrame, 5);
  addLineScanRoad(kFrame, 64, 8);
  addRgbxRoad(kFrame);
}

}  // namespace korva::benchmarks
