#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

template <class T, class Function>
void addBilinear(char const* routine, Function* plainForm, char const* note, double tolerance) {
  // The target is the middle of a 4 x 4 cell, seen from the filter in the cell's second row and column.
  constexpr double kOffset = 0.5;
  auto const weights = [] {
    Planes<double> const four({2, 2});
    plain::DM_ComputeCoefficientsBilinear(four.data(), 4, 4, kOffset, kOffset);
    return four;
  }();
  for (auto const& [slot, size] : frameSizes()) {
    Row const row{routine, "", slot, size, {.doubleOperations = 7, .bytes = 2 * sizeof(T)}};
    add(
        row, plainForm,
        [=, size = size](Function* demosaic) {
          Planes<T> const out(size), in = noise<T>(size);
          auto const width = static_cast<unsigned>(size.width), height = static_cast<unsigned>(size.height);
          return Run{[=] { demosaic(out.data(), in.data(), height, width, weights.data(), kOffset, kOffset); }, out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::filter2D", .note = note, .tolerance = tolerance, .margin = 1, .prepare = [=, size = size] {
                  Planes<T> const out(size), in = noise<T>(size);
                  return Run{[=] {
                               cv::Mat target = mat(out);
                               cv::filter2D(mat(in), target, -1, mat(weights), cv::Point(0, 0), 0,
                                            cv::BORDER_REPLICATE);
                             },
                             out};
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
