#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

template <class Function>
void addBand(char const* routine, Function* plainForm, unsigned long widthMultiple) {
  for (auto const& [slot, size] : frameSizes({8, 6}, widthMultiple)) {
    add({routine, "", slot, size, {.bytes = 8}}, plainForm, [size = size](Function* computeBand) {
      Planes<float> const out(size), in = noise<float>(size);
      return Run{[=] { computeBand(out.rows(), in.rows(), size.width, size.height); }, out};
    });
  }
}

}  // namespace

void registerRgbxDemosaicing() {
  addBand("KORVA_Ref_RGBX_ComputeBand_R_float", plain::RGBX_ComputeBand_R_float, 4);
  addBand("KORVA_Ref_RGBX_ComputeBand_G_float", plain::RGBX_ComputeBand_G_float, 2);
  addBand("KORVA_Ref_RGBX_ComputeBand_B_float", plain::RGBX_ComputeBand_B_float, 4);
  addBand("KORVA_Ref_RGBX_ComputeBand_X_float", plain::RGBX_ComputeBand_X_float, 1);

  for (auto const& [slot, size] : frameSizes({8, 6}, 4)) {
    // The frame is read once, four bands and scratch are written once.
    Row const row{"KORVA_Ref_RGBX_DemosaicFrame_float", "", slot, size, {.bytes = 24}};
    add(
        row, plain::RGBX_DemosaicFrame_float,
        [size = size](auto* demosaicFrame) {
          Planes<float> const out({size.width - 6, size.height - 6}, 4), scratch(size), frame = noise<float>(size);
          return Run{[=] { demosaicFrame(out.cube(), scratch.rows(), frame.rows(), size.width, size.height); }, out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::demosaicing", .note = "three bands of a Bayer frame, uint16", .tolerance = -1,
                .prepare = [size = size] {
                  Planes<unsigned short> const out(size, 3), in = noise<unsigned short>(size);
                  return Run{[=] {
                               cv::Mat target(mat(in).size(), CV_16UC3, out.data());
                               cv::demosaicing(mat(in), target, cv::COLOR_BayerBG2RGB);
                             },
                             out};
                }));
  }
}

}  // namespace korva::benchmarks
