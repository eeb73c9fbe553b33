#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

constexpr double kKb = 0.114, kKr = 0.299, kWeight = 0.3;

#ifdef KORVA_WITH_OPENCV

// The same steps on interleaved colours, with float sums in the filter and float colour arithmetic.
Run openCvPipeline(Size size, Planes<float> const& in, Planes<float> const& kernel) {
  Planes<float> const out({size.width - 6, size.height - 6}, 3);
  cv::Mat rgb, ycc, xFiltered, yFiltered, xResidual, yResidual, mixed, newRgb;
  cv::merge(std::vector{mat(in, 0), mat(in, 1), mat(in, 2)}, rgb);
  std::vector<cv::Mat> planes(3);
  return Run{[=]() mutable {
               cv::filter2D(mat(in, 3), xFiltered, CV_32F, mat(kernel));
               cv::subtract(mat(in, 3), xFiltered, xResidual);
               cv::cvtColor(rgb, ycc, cv::COLOR_RGB2YCrCb);
               cv::split(ycc, planes);
               cv::filter2D(planes[0], yFiltered, CV_32F, mat(kernel));
               cv::subtract(planes[0], yFiltered, yResidual);
               cv::addWeighted(yResidual, kWeight, xResidual, 1 - kWeight, 0, mixed);
               cv::add(mixed, yFiltered, planes[0]);
               cv::merge(planes, ycc);
               cv::cvtColor(ycc, newRgb, cv::COLOR_YCrCb2RGB);
               cv::Mat target[] = {mat(out, 0), mat(out, 1), mat(out, 2)};
               cv::split(newRgb(cv::Rect(3, 3, target[0].cols, target[0].rows)), target);
             },
             out};
}

#endif

}  // namespace

void registerRgbxNewWli() {
  for (SlottedSize const& at : frameSizes({7, 7})) {
    Size const size = at.size;
    // Two filters, both colour conversions and the mix; four bands in, three out.
    Work const work{.doubleOperations = 2 * 98 + 7 + 9 + 3, .bytes = 28};
    Planes<float> kernel = noise<float>({7, 7});
    for (int k = 0; k < 49; ++k) kernel.data()[k] /= 49 * 2048;
    add(
        {"KORVA_Ref_RGBX_ComputeNewWLI_float", "", at, work}, plain::RGBX_ComputeNewWLI_float,
        [=](auto* compute) {
          Planes<float> const out({size.width - 6, size.height - 6}, 3), in = noise<float>(size, 4);
          Planes<float> const working(size, 3), ycc(size, 3);
          Planes<double> const weights({7, 7});
          for (int k = 0; k < 49; ++k) weights.data()[k] = static_cast<double>(kernel.data()[k]);
          NewWLIBuffers const buffers{working.rows(0), working.rows(1), working.rows(2), ycc.cube()};
          return Run{[=, keepWorking = working, keepYcc = ycc] {
                       compute(out.cube(), in.cube(), size.width, size.height, weights.data(), buffers, kKb, kKr,
                               kWeight);
                     },
                     out};
        },
        KORVA_OPENCV_PEER(
                .name = "OpenCV, the same steps", .note = "interleaved colours, float sums", .tolerance = 8,
                .prepare = [=] { return openCvPipeline(size, noise<float>(size, 4), kernel); }));
  }
}

}  // namespace korva::benchmarks
