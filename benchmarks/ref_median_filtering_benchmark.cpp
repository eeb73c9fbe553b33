#include <algorithm>

#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

template <class T, class Function>
void addMedian2D(char const* routine, Function* plainForm, int window, Work work) {
  for (auto const& [slot, size] : frameSizes({4, 4})) {
    add(
        {routine, "", slot, size, work}, plainForm,
        [size = size](Function* median) {
          Planes<T> const out(size), in = noise<T>(size);
          return Run{[=] {
                       auto [width, height] = size;
                       median(out.rows(), in.rows(), &height, &width);
                     },
                     out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::medianBlur", .margin = 2, .prepare = [size = size, window] {
                  Planes<T> const out(size), in = noise<T>(size);
                  return Run{[=] {
                               cv::Mat target = mat(out);
                               cv::medianBlur(mat(in), target, window);
                             },
                             out};
                }));
  }
}

constexpr unsigned long kWindows = 4096;

// Many windows one after another, each copied first because a median rearranges it.
template <class T, class Median>
Run windowsRun(unsigned long count, Median median) {
  Planes<T> const out({kWindows, 1}), in = noise<T>({count, kWindows});
  return Run{[=] {
               T window[25];
               for (unsigned long k = 0; k < kWindows; ++k) {
                 std::copy_n(in.data() + k * count, count, window);
                 out.data()[k] = median(window);
               }
             },
             out};
}

template <class T, class Prepare, class Function>
void addMedian1D(char const* routine, Function* plainForm, unsigned long count, Prepare prepare) {
  Peer const peer{.name = "std::nth_element",
                  .note = count % 2 ? "" : "upper middle sample only",
                  .tolerance = count % 2 ? 0.0 : -1.0,
                  .prepare = [count] {
                    return windowsRun<T>(count, [count](T* window) {
                      std::nth_element(window, window + count / 2, window + count);
                      return window[count / 2];
                    });
                  }};
  add({routine, std::to_string(count) + " samples", "one", {kWindows, 1}}, plainForm, prepare, peer);
}

template <class T>
void addMedian1DOfFixedSize(char const* routine, T (*plainForm)(T*), unsigned long count) {
  addMedian1D<T>(routine, plainForm, count, [count](auto* median) { return windowsRun<T>(count, median); });
}

template <class T>
void addMedian1DOfAnySize(char const* routine, T (*plainForm)(T*, unsigned long), unsigned long count) {
  addMedian1D<T>(routine, plainForm, count, [count](auto* median) {
    return windowsRun<T>(count, [=](T* window) { return median(window, count); });
  });
}

}  // namespace

void registerMedianFiltering() {
  addMedian1DOfFixedSize("KORVA_Ref_MF_Median1D_9_uint16", plain::MF_Median1D_9_uint16, 9);
  addMedian1DOfFixedSize("KORVA_Ref_MF_Median1D_9_float", plain::MF_Median1D_9_float, 9);
  addMedian1DOfFixedSize("KORVA_Ref_MF_Median1D_25_uint16", plain::MF_Median1D_25_uint16, 25);
  addMedian1DOfFixedSize("KORVA_Ref_MF_Median1D_25_float", plain::MF_Median1D_25_float, 25);
  for (unsigned long const count : {20, 25}) {
    addMedian1DOfAnySize("KORVA_Ref_MF_Median1D_uint16", plain::MF_Median1D_uint16, count);
    addMedian1DOfAnySize("KORVA_Ref_MF_Median1D_float", plain::MF_Median1D_float, count);
  }

  addMedian2D<unsigned short>("KORVA_Ref_MF_Median2D_3x3_uint16", plain::MF_Median2D_3x3_uint16, 3,
                              {.minMaxUint16 = 18, .bytes = 4});
  addMedian2D<float>("KORVA_Ref_MF_Median2D_3x3_float", plain::MF_Median2D_3x3_float, 3,
                     {.minMaxFloat = 18, .bytes = 8});
  addMedian2D<unsigned short>("KORVA_Ref_MF_Median2D_5x5_uint16", plain::MF_Median2D_5x5_uint16, 5,
                              {.minMaxUint16 = 70, .bytes = 4});
  addMedian2D<float>("KORVA_Ref_MF_Median2D_5x5_float", plain::MF_Median2D_5x5_float, 5,
                     {.minMaxFloat = 70, .bytes = 8});
}

}  // namespace korva::benchmarks
