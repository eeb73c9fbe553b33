// Peers from OpenCV; without the library, a row has none.
#pragma once

#include "harness.h"

#ifdef KORVA_WITH_OPENCV
#include <opencv2/imgproc.hpp>

#define KORVA_OPENCV_PEER(...) \
  std::vector<Peer> {          \
    Peer { __VA_ARGS__ }       \
  }
#define KORVA_OPENCV_CALL(...) __VA_ARGS__

namespace korva::benchmarks {

// The same samples, not a copy.
template <class T>
cv::Mat mat(Planes<T> const& planes, unsigned long band = 0) {
  return cv::Mat(static_cast<int>(planes.size().height), static_cast<int>(planes.size().width), cv::DataType<T>::type,
                 planes.data(band));
}

}  // namespace korva::benchmarks
#else
#define KORVA_OPENCV_PEER(...) \
  std::vector<Peer> {}
#define KORVA_OPENCV_CALL(...) nullptr
#endif
