#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

template <class T, class Function>
void addBilinear(char const* routine, Function* plainForm, char const* note, double tolerance) {
  // The target is the middle of a 4 x 4 cell, seen from the filter in the cell's second row and column.
  constexpr double kOffset = 0.5;
  Planes<double> const weights({2, 2});
  plain::DM_ComputeCoefficientsBilinear(weights.data(), 4, 4, kOffset, kOffset);
  for (SlottedSize const& at : frameSizes()) {
    Size const size = at.size;
    add(
        {routine, "", at, {.doubleOperations = 7, .bytes = 2 * sizeof(T)}}, plainForm,
        [=](Function* demosaic) {
          return planesRun(Planes<T>(size), noise<T>(size), [=](auto const& out, auto const& in) {
            demosaic(out.data(), in.data(), static_cast<unsigned>(size.height), static_cast<unsigned>(size.width),
                     weights.data(), kOffset, kOffset);
          });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::filter2D", .note = note, .tolerance = tolerance, .margin = 1, .prepare = [=] {
                  return planesRun(Planes<T>(size), noise<T>(size), [=](auto const& out, auto const& in) {
                    cv::filter2D(mat(in), mat(out), -1, mat(weights), {0, 0}, 0, cv::BORDER_REPLICATE);
                  });
                }));
  }
}

}  // namespace

void registerDemosaicing() {
  addBilinear<unsigned short>("KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16", plain::DM_ApplyDemosaicingBilinear_uint16,
                              "float sums", 1);
  addBilinear<double>("KORVA_Ref_DM_ApplyDemosaicingBilinear_dbl", plain::DM_ApplyDemosaicingBilinear_dbl, "", 1e-9);
}

}  // namespace korva::benchmarks
