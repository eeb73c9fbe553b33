#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

template <class Function>
void addBand(char const* routine, Function* plainForm, unsigned long widthMultiple) {
  for (SlottedSize const& at : frameSizes({8, 6}, widthMultiple)) {
    Size const size = at.size;
    add({routine, "", at, {.bytes = 8}}, plainForm, [=](Function* computeBand) {
      return planesRun(Planes<float>(size), noise<float>(size), [=](auto const& out, auto const& in) {
        computeBand(out.rows(), in.rows(), size.width, size.height);
      });
    });
  }
}

}  // namespace

void registerRgbxDemosaicing() {
  addBand("KORVA_Ref_RGBX_ComputeBand_R_float", plain::RGBX_ComputeBand_R_float, 4);
  addBand("KORVA_Ref_RGBX_ComputeBand_G_float", plain::RGBX_ComputeBand_G_float, 2);
  addBand("KORVA_Ref_RGBX_ComputeBand_B_float", plain::RGBX_ComputeBand_B_float, 4);
  addBand("KORVA_Ref_RGBX_ComputeBand_X_float", plain::RGBX_ComputeBand_X_float, 1);

  for (SlottedSize const& at : frameSizes({8, 6}, 4)) {
    Size const size = at.size, bandSize{size.width - 6, size.height - 6};
    // The frame is read once, four bands and scratch are written once.
    add(
        {"KORVA_Ref_RGBX_DemosaicFrame_float", "", at, {.bytes = 24}}, plain::RGBX_DemosaicFrame_float,
        [=](auto* demosaicFrame) {
          return planesRun(Planes<float>(bandSize, 4), noise<float>(size),
                           [=, scratch = Planes<float>(size)](auto const& out, auto const& frame) {
                             demosaicFrame(out.cube(), scratch.rows(), frame.rows(), size.width, size.height);
                           });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::demosaicing", .note = "three bands of a Bayer frame, uint16", .tolerance = -1,
                .prepare = [=] {
                  return planesRun(Planes<unsigned short>(size, 3), noise<unsigned short>(size),
                                   [](auto const& out, auto const& in) {
                                     cv::Mat const target(mat(in).size(), CV_16UC3, out.data());
                                     cv::demosaicing(mat(in), target, cv::COLOR_BayerBG2RGB);
                                   });
                }));
  }
}

}  // namespace korva::benchmarks
