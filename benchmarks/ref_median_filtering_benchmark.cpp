#include <algorithm>

#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

constexpr unsigned long kWindows = 4096;

// Many windows one after another, each copied first because a median rearranges it.
template <class T, class Median>
Run windowsRun(unsigned long count, Median median) {
  return planesRun(Planes<T>({kWindows, 1}), noise<T>({count, kWindows}), [=](auto const& out, auto const& in) {
    T window[25];
    for (unsigned long k = 0; k < kWindows; ++k) {
      std::copy_n(in.rows()[k], count, window);
      out.data()[k] = median(window);
    }
  });
}

template <class T>
Peer nthElement(unsigned long count) {
  bool const isOdd = count % 2 == 1;
  return {.name = "std::nth_element",
          .note = isOdd ? "" : "upper middle sample only",
          .tolerance = isOdd ? 0.0 : -1.0,
          .prepare = [=] {
            return windowsRun<T>(count, [=](T* window) {
              std::nth_element(window, window + count / 2, window + count);
              return window[count / 2];
            });
          }};
}

template <class T>
void addMedian1D(char const* routine, T (*plainForm)(T*), unsigned long count) {
  add({routine, "", {"one", {kWindows, 1}}}, plainForm, [=](auto* median) { return windowsRun<T>(count, median); },
      {nthElement<T>(count)});
}

template <class T>
void addMedian1D(char const* routine, T (*plainForm)(T*, unsigned long)) {
  for (unsigned long const count : {20ul, 25ul}) {
    add({routine, std::to_string(count) + " samples", {"one", {kWindows, 1}}}, plainForm,
        [=](auto* median) { return windowsRun<T>(count, [=](T* window) { return median(window, count); }); },
        {nthElement<T>(count)});
  }
}

template <class T, class Function>
void addMedian2D(char const* routine, Function* plainForm, int window, Work work) {
  for (SlottedSize const& at : frameSizes({4, 4})) {
    Size const size = at.size;
    add(
        {routine, "", at, work}, plainForm,
        [=](Function* median) {
          return planesRun(Planes<T>(size), noise<T>(size), [=](auto const& out, auto const& in) {
            auto [width, height] = size;
            median(out.rows(), in.rows(), &height, &width);
          });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::medianBlur", .margin = 2, .prepare = [=] {
                  return planesRun(Planes<T>(size), noise<T>(size),
                                   [=](auto const& out, auto const& in) { cv::medianBlur(mat(in), mat(out), window); });
                }));
  }
}

}  // namespace

void registerMedianFiltering() {
  addMedian1D("KORVA_Ref_MF_Median1D_9_uint16", plain::MF_Median1D_9_uint16, 9);
  addMedian1D("KORVA_Ref_MF_Median1D_9_float", plain::MF_Median1D_9_float, 9);
  addMedian1D("KORVA_Ref_MF_Median1D_25_uint16", plain::MF_Median1D_25_uint16, 25);
  addMedian1D("KORVA_Ref_MF_Median1D_25_float", plain::MF_Median1D_25_float, 25);
  addMedian1D("KORVA_Ref_MF_Median1D_uint16", plain::MF_Median1D_uint16);
  addMedian1D("KORVA_Ref_MF_Median1D_float", plain::MF_Median1D_float);

  // 3 x 3: each row's triple is sorted once (6); of the three triples the greatest minimum (2), the least maximum (2)
  // and the middle of the middles (4) are found, and then the middle of these (4).
  addMedian2D<unsigned short>("KORVA_Ref_MF_Median2D_3x3_uint16", plain::MF_Median2D_3x3_uint16, 3,
                              {.minMaxUint16 = 18, .bytes = 4});
  addMedian2D<float>("KORVA_Ref_MF_Median2D_3x3_float", plain::MF_Median2D_3x3_float, 3,
                     {.minMaxFloat = 18, .bytes = 8});
  // 5 x 5: each row's five samples are sorted once (16, the first exchange shared between columns). Two rows of output
  // share the merging of two row pairs (26 for the new one) and the selection of the pairs' middle six (36); each then
  // finds its median among these and its fifth row (10).
  addMedian2D<unsigned short>("KORVA_Ref_MF_Median2D_5x5_uint16", plain::MF_Median2D_5x5_uint16, 5,
                              {.minMaxUint16 = 57, .bytes = 4});
  addMedian2D<float>("KORVA_Ref_MF_Median2D_5x5_float", plain::MF_Median2D_5x5_float, 5,
                     {.minMaxFloat = 57, .bytes = 8});
}

}  // namespace korva::benchmarks
