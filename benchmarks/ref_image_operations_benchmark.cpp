#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

constexpr double kKb = 0.114, kKr = 0.299;
constexpr double kWeight = 0.3;

// Two operands, one result, one run of samples each.
template <class Function, class... Weight>
void addArithmetic(char const* routine, Function* plainForm, double conversions, Peer peer,
                   void (*peerCall)(Planes<float> const& out, Planes<float> const& in), Weight... weight) {
  for (SlottedSize const& at : frameSizes()) {
    Size const size = at.size;
    if (peerCall) peer.prepare = [=] { return planesRun(Planes<float>(size), noise<float>(size, 2), peerCall); };
    add({routine, "", at, {.conversions = conversions, .bytes = 12}}, plainForm,
        [=](Function* function) {
          return planesRun(Planes<float>(size), noise<float>(size, 2), [=](auto const& out, auto const& in) {
            function(out.rows(), in.rows(0), in.rows(1), size.width, size.height, weight...);
          });
        },
        {peer});
  }
}

void addCrop() {
  for (SlottedSize const& at : frameSizes()) {
    Size const size = at.size, cropped{size.width - 6, size.height - 6};
    add(
        {"KORVA_Ref_Crop_float", "", at, {.bytes = 8}, cropped.samples()}, plain::Crop_float,
        [=](auto* crop) {
          return planesRun(Planes<float>(cropped), noise<float>(size), [=](auto const& out, auto const& in) {
            crop(out.rows(), in.rows(), size.width, size.height, 3, 3, cropped.width, cropped.height);
          });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::Mat::copyTo", .prepare = [=] {
                  return planesRun(Planes<float>(cropped), noise<float>(size), [](auto const& out, auto const& in) {
                    mat(in)(cv::Rect({3, 3}, mat(out).size())).copyTo(mat(out));
                  });
                }));
  }
}

#ifdef KORVA_WITH_OPENCV

// To double and back, because OpenCV filters a float image only to a float one.
Run filter2DInDouble(Size size, Planes<double> const& kernel) {
  return planesRun(Planes<float>(size), noise<float>(size),
                   [=, widened = cv::Mat(), filtered = cv::Mat()](auto const& out, auto const& in) mutable {
                     mat(in).convertTo(widened, CV_64F);
                     cv::filter2D(widened, filtered, CV_64F, mat(kernel));
                     filtered.convertTo(mat(out), CV_32F);
                   });
}

Run filter2DInFloat(Size size, Planes<double> const& kernel) {
  return planesRun(Planes<float>(size), noise<float>(size),
                   [=](auto const& out, auto const& in) { cv::filter2D(mat(in), mat(out), CV_32F, mat(kernel)); });
}

#endif

void addKernel(char const* variant, Planes<double> const& kernel, std::function<std::vector<Peer>(Size)> peers) {
  for (SlottedSize const& at : frameSizes({7, 7})) {
    Size const size = at.size;
    Work const work{.doubleOperations = 98, .bytes = 8};
    add(
        {"KORVA_Ref_ApplyKernel7x7_float", variant, at, work}, plain::ApplyKernel7x7_float,
        [=](auto* applyKernel) {
          return planesRun(Planes<float>(size), noise<float>(size), [=](auto const& out, auto const& in) {
            applyKernel(out.rows(), in.rows(), size.width, size.height, kernel.data());
          });
        },
        peers(size));
  }
}

#ifdef KORVA_WITH_OPENCV

// OpenCV converts interleaved images, adds 0.5 to the differences and puts Cr first.
Run cvtColor(Size size, bool toRgb) {
  Planes<float> const out(size, 3), in = noise<float>(size, 3);
  cv::Mat source, target(mat(in).size(), CV_32FC3);
  cv::merge(toRgb ? std::vector{mat(in, 0), cv::Mat(mat(in, 2) + 0.5), cv::Mat(mat(in, 1) + 0.5)}
                  : std::vector{mat(in, 0), mat(in, 1), mat(in, 2)},
            source);
  return {[=] { cv::cvtColor(source, target, toRgb ? cv::COLOR_YCrCb2RGB : cv::COLOR_RGB2YCrCb); }, out,
          [=] {
            std::vector<cv::Mat> planes{mat(out, 0), mat(out, toRgb ? 1 : 2), mat(out, toRgb ? 2 : 1)};
            cv::split(target, planes);
            if (toRgb) return;
            planes[1] -= 0.5;
            planes[2] -= 0.5;
          }};
}

#endif

template <class Function>
void addConversion(char const* routine, Function* plainForm, double conversions, bool toRgb) {
  for (SlottedSize const& at : frameSizes()) {
    Size const size = at.size;
    add(
        {routine, "", at, {.conversions = conversions, .bytes = 24}}, plainForm,
        [=](Function* convert) {
          return planesRun(Planes<float>(size, 3), noise<float>(size, 3), [=](auto const& out, auto const& in) {
            convert(out.cube(), in.cube(), size.width, size.height, kKb, kKr);
          });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::cvtColor", .note = "interleaved, float arithmetic", .tolerance = 8,
                .prepare = [=] { return cvtColor(size, toRgb); }));
  }
}

}  // namespace

void registerImageOperations() {
  using Image = Planes<float> const&;
  addArithmetic("KORVA_Ref_Subtract_float", plain::Subtract_float, 0, {.name = "cv::subtract"},
                KORVA_OPENCV_CALL([](Image out, Image in) { cv::subtract(mat(in, 0), mat(in, 1), mat(out)); }));
  addArithmetic("KORVA_Ref_Add_float", plain::Add_float, 0, {.name = "cv::add"},
                KORVA_OPENCV_CALL([](Image out, Image in) { cv::add(mat(in, 0), mat(in, 1), mat(out)); }));
  addArithmetic("KORVA_Ref_Mix_float", plain::Mix_float, 3,
                {.name = "cv::addWeighted", .note = "float arithmetic", .tolerance = 0.01},
                KORVA_OPENCV_CALL([](Image out, Image in) {
                  cv::addWeighted(mat(in, 0), kWeight, mat(in, 1), 1 - kWeight, 0, mat(out));
                }),
                kWeight);
  addCrop();
  Planes<double> const kernel = noise<double>({7, 7});
  addKernel("", kernel, [=](Size size) {
    return KORVA_OPENCV_PEER(
            .name = "cv::filter2D", .note = "in double, with conversions", .tolerance = 1, .margin = 3,
            .prepare = [=] { return filter2DInDouble(size, kernel); });
  });
  addKernel("beside float sums", kernel, [=](Size size) {
    return KORVA_OPENCV_PEER(
            .name = "cv::filter2D", .note = "float sums", .tolerance = 256, .margin = 3,
            .prepare = [=] { return filter2DInFloat(size, kernel); });
  });
  addConversion("KORVA_Ref_RGBToYCbCr_float", plain::RGBToYCbCr_float, 8, false);
  addConversion("KORVA_Ref_YCbCrToRGB_float", plain::YCbCrToRGB_float, 6, true);
}

}  // namespace korva::benchmarks
