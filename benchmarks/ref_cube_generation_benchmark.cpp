#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

using Samples = Planes<unsigned short>;

constexpr Work kCopy{.bytes = 4};

// A routine that copies a rectangle, beside a copy of the same rectangle.
struct Rectangle {
  unsigned long left, top;
  Size size;
};

template <class Function, class Call>
void addRectangleCopy(char const* routine, Function* plainForm, std::string const& slot, Size size, Rectangle rectangle,
                      Call call) {
  add(
      {routine, "", slot, size, kCopy, rectangle.size.samples()}, plainForm,
      [=](Function* copy) {
        Samples const out(rectangle.size), in = noise<unsigned short>(size);
        return Run{[=] { call(copy, out.rows(), in.rows()); }, out};
      },
      KORVA_OPENCV_PEER(
              .name = "cv::Mat::copyTo", .prepare = [=] {
                Samples const out(rectangle.size), in = noise<unsigned short>(size);
                cv::Rect const from(static_cast<int>(rectangle.left), static_cast<int>(rectangle.top), mat(out).cols,
                                    mat(out).rows);
                return Run{[=] {
                             cv::Mat target = mat(out);
                             mat(in)(from).copyTo(target);
                           },
                           out};
              }));
}

void addMosaic(std::string const& slot, Size size, unsigned long cell) {
  if (size.width < cell) return;
  constexpr unsigned long kBand = 6;
  Size const bandSize{size.width / cell, size.height / cell};
  // Of the rows that hold the band, all samples come along in the same cache lines.
  Work const work{.bytes = 2.0 * static_cast<double>(cell) + 2};
  std::string const variant = std::to_string(cell) + " x " + std::to_string(cell) + " cell";
  Row const row{"KORVA_Ref_CG_SSM_GetBandImage_uint16", variant, slot, size, work, bandSize.samples()};
  add(
      row, plain::CG_SSM_GetBandImage_uint16,
      [=](auto* getBandImage) {
        Samples const out(bandSize), in = noise<unsigned short>(size);
        return Run{[=] { getBandImage(out.rows(), in.rows(), size.width, size.height, cell, cell, kBand); }, out};
      },
      KORVA_OPENCV_PEER(
              .name = "cv::extractChannel", .prepare = [=] {
                Samples const out(bandSize), in = noise<unsigned short>(size);
                // Rows of whole cells, as pixels of one channel per cell column.
                cv::Mat const cells(mat(out).size(), CV_16UC(static_cast<int>(cell)), in.rows()[kBand / cell],
                                    size.width * cell * sizeof(unsigned short));
                return Run{[=] {
                             cv::Mat target = mat(out);
                             cv::extractChannel(cells, target, kBand % cell);
                           },
                           out};
              }));
}

// The ring takes frame after frame, each band's strip in another slot than the one before.
void addLineScan(std::string const& slot, Size size) {
  constexpr unsigned long kStrip = 64;
  unsigned long const bands = size.height / kStrip, last = bands - 1, width = size.width;
  Size const ring{width, bands * kStrip};
  Row row{"KORVA_Ref_CG_LS_StitchBandImageStrip_uint16", "", slot, size, kCopy, width * kStrip};
  add(row, plain::CG_LS_StitchBandImageStrip_uint16, [=](auto* stitch) {
    Samples const buffer(ring, 2), strip = noise<unsigned short>({width, kStrip});
    return Run{
        [=, frame = 0ul]() mutable { stitch(buffer.cube(), strip.rows(), width, kStrip, 0, last, 1, 1, frame++); },
        buffer};
  });
  row = {"KORVA_Ref_CG_LS_StitchBandImage_uint16", "", slot, size, kCopy, width * kStrip * bands};
  add(row, plain::CG_LS_StitchBandImage_uint16, [=](auto* stitch) {
    Samples const buffer(ring, bands), in = noise<unsigned short>(size);
    return Run{[=, frame = 0ul]() mutable { stitch(buffer.cube(), in.rows(), width, kStrip, 0, last, frame++); },
               buffer};
  });
  row = {"KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16", "", slot, size, kCopy, width * kStrip * bands};
  add(row, plain::CG_LS_GetStitchedSlice_BSQ_uint16, [=](auto* getSlice) {
    Samples const out({width, kStrip}, bands), buffer = noise<unsigned short>(ring, bands);
    return Run{[=, frame = last]() mutable {
                 getSlice(out.cube(), buffer.cube(), width, kStrip, kStrip, bands, 0, last, frame++);
               },
               out};
  });
}

}  // namespace

void registerCubeGeneration() {
  for (auto const& [slot, size] : frameSizes()) {
    auto const [width, height] = size;
    addMosaic(slot, size, 4);
    addMosaic(slot, size, 5);
    if (width < 8) continue;
    addRectangleCopy("KORVA_Ref_CG_CropImage_uint16", plain::CG_CropImage_uint16, slot, size,
                     {3, 3, {width - 6, height - 6}},
                     [=](auto* crop, auto out, auto in) { crop(out, in, width, height, 3, 3, width - 6, height - 6); });
    Size const tile{width / 4, height / 4};
    addRectangleCopy("KORVA_Ref_CG_SST_GetBandImage_uint16", plain::CG_SST_GetBandImage_uint16, slot, size,
                     {tile.width, tile.height, tile}, [=](auto* getBandImage, auto out, auto in) {
                       getBandImage(out, in, width, height, tile.width, tile.height, width / tile.width + 1);
                     });
    addRectangleCopy("KORVA_Ref_CG_LS_GetBandImageStrip_uint16", plain::CG_LS_GetBandImageStrip_uint16, slot, size,
                     {0, 64, {width, 64}},
                     [=](auto* getStrip, auto out, auto in) { getStrip(out, in, width, height, 64, 1); });
    addLineScan(slot, size);
  }
}

}  // namespace korva::benchmarks
