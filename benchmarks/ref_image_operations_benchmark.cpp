#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

constexpr double kKb = 0.114, kKr = 0.299;
constexpr double kWeight = 0.3;

// Two operands, one result, one run of samples each.
template <class Function, class Call, class PeerCall>
void addArithmetic(char const* routine, Function* plainForm, double operations, Call call, char const* peerName,
                   char const* note, double tolerance, [[maybe_unused]] PeerCall peerCall) {
  auto const prepareWith = [](Size size, auto run) {
    Planes<float> const out(size), a = noise<float>(size, 1, 1), b = noise<float>(size, 1, 2);
    return Run{[=] { run(out, a, b); }, out};
  };
  for (auto const& [slot, size] : frameAndSmallSizes()) {
    Peer peer{.name = peerName, .note = note, .tolerance = tolerance};
#ifdef KORVA_WITH_OPENCV
    peer.prepare = [=, size = size] {
      return prepareWith(size, [=](auto const& out, auto const& a, auto const& b) {
        cv::Mat target = mat(out);
        peerCall(mat(a), mat(b), target);
      });
    };
#endif
    add(
        {routine, "", slot, size, {.doubleOperations = operations, .bytes = 12}}, plainForm,
        [=, size = size](Function* function) {
          return prepareWith(size, [=](auto const& out, auto const& a, auto const& b) { call(function, out, a, b); });
        },
        peer);
  }
}

void addCrop() {
  for (auto const& [slot, size] : frameAndSmallSizes()) {
    Size const cropped{size.width - 6, size.height - 6};
    Row const row{"KORVA_Ref_Crop_float", "", slot, size, {.bytes = 8}, cropped.samples()};
    add(
        row, plain::Crop_float,
        [=, size = size](auto* crop) {
          Planes<float> const out(cropped), in = noise<float>(size);
          return Run{[=] { crop(out.rows(), in.rows(), size.width, size.height, 3, 3, cropped.width, cropped.height); },
                     out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::Mat::copyTo", .prepare = [=, size = size] {
                  Planes<float> const out(cropped), in = noise<float>(size);
                  return Run{[=] {
                               cv::Mat target = mat(out);
                               mat(in)(cv::Rect(3, 3, target.cols, target.rows)).copyTo(target);
                             },
                             out};
                }));
  }
}

void addKernel() {
  for (auto const& [slot, size] : frameSizes({7, 7})) {
    Row const row{"KORVA_Ref_ApplyKernel7x7_float", "", slot, size, {.doubleOperations = 98, .bytes = 8}};
    add(
        row, plain::ApplyKernel7x7_float,
        [size = size](auto* applyKernel) {
          Planes<float> const out(size), in = noise<float>(size);
          Planes<double> const kernel = noise<double>({7, 7});
          return Run{[=] { applyKernel(out.rows(), in.rows(), size.width, size.height, kernel.data()); }, out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::filter2D", .note = "converted to double and back", .tolerance = 64, .margin = 3,
                .prepare = [size = size] {
                  Planes<float> const out(size), in = noise<float>(size);
                  Planes<double> const kernel = noise<double>({7, 7});
                  cv::Mat widened, filtered;
                  return Run{[=]() mutable {
                               cv::Mat target = mat(out);
                               mat(in).convertTo(widened, CV_64F);
                               cv::filter2D(widened, filtered, CV_64F, mat(kernel));
                               filtered.convertTo(target, CV_32F);
                             },
                             out};
                }));
  }
}

// OpenCV converts interleaved images, adds 0.5 to the differences and puts Cr first.
template <class Function>
void addConversion(char const* routine, Function* plainForm, double operations, [[maybe_unused]] bool toRgb) {
  for (auto const& [slot, size] : frameAndSmallSizes()) {
    add(
        {routine, "", slot, size, {.doubleOperations = operations, .bytes = 24}}, plainForm,
        [size = size](Function* convert) {
          Planes<float> const out(size, 3), in = noise<float>(size, 3);
          return Run{[=] { convert(out.cube(), in.cube(), size.width, size.height, kKb, kKr); }, out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::cvtColor", .note = "interleaved, float arithmetic", .tolerance = 8,
                .prepare = [size = size, toRgb] {
                  Planes<float> const out(size, 3), in = noise<float>(size, 3);
                  cv::Mat source, target(mat(in).size(), CV_32FC3);
                  if (toRgb)
                    cv::merge(std::vector{mat(in, 0), cv::Mat(mat(in, 2) + 0.5), cv::Mat(mat(in, 1) + 0.5)}, source);
                  else
                    cv::merge(std::vector{mat(in, 0), mat(in, 1), mat(in, 2)}, source);
                  int const code = toRgb ? cv::COLOR_YCrCb2RGB : cv::COLOR_RGB2YCrCb;
                  return Run{[=]() mutable { cv::cvtColor(source, target, code); }, out,
                             [=] {
                               std::vector<cv::Mat> planes{mat(out, 0), mat(out, 1), mat(out, 2)};
                               if (!toRgb) std::swap(planes[1], planes[2]);
                               cv::split(target, planes);
                               if (toRgb) return;
                               planes[1] -= 0.5;
                               planes[2] -= 0.5;
                             }};
                }));
  }
}

}  // namespace

void registerImageOperations() {
  auto const call = [](auto* function, auto const& out, auto const& a, auto const& b) {
    function(out.rows(), a.rows(), b.rows(), out.size().width, out.size().height);
  };
  auto const mix = [](auto* function, auto const& out, auto const& a, auto const& b) {
    function(out.rows(), a.rows(), b.rows(), out.size().width, out.size().height, kWeight);
  };
  addArithmetic("KORVA_Ref_Subtract_float", plain::Subtract_float, 0, call, "cv::subtract", "", 0,
                [](auto a, auto b, auto& out) { cv::subtract(a, b, out); });
  addArithmetic("KORVA_Ref_Add_float", plain::Add_float, 0, call, "cv::add", "", 0,
                [](auto a, auto b, auto& out) { cv::add(a, b, out); });
  addArithmetic("KORVA_Ref_Mix_float", plain::Mix_float, 3, mix, "cv::addWeighted", "float arithmetic", 0.01,
                [](auto a, auto b, auto& out) { cv::addWeighted(a, kWeight, b, 1 - kWeight, 0, out); });
  addCrop();
  addKernel();
  addConversion("KORVA_Ref_RGBToYCbCr_float", plain::RGBToYCbCr_float, 7, false);
  addConversion("KORVA_Ref_YCbCrToRGB_float", plain::YCbCrToRGB_float, 9, true);
}

}  // namespace korva::benchmarks
