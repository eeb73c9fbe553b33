#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

using Samples = Planes<unsigned short>;

constexpr Work kCopy{.bytes = 4};

// A routine that copies a rectangle, beside a copy of the same rectangle.
template <class Function, class Call>
void addRectangleCopy(char const* routine, Function* plainForm, SlottedSize const& at, unsigned long left,
                      unsigned long top, Size rectangle, Call call) {
  Size const size = at.size;
  add(
      {routine, "", at, kCopy, rectangle.samples()}, plainForm,
      [=](Function* copy) {
        return planesRun(Samples(rectangle), noise<unsigned short>(size),
                         [=](auto const& out, auto const& in) { call(copy, out.rows(), in.rows()); });
      },
      KORVA_OPENCV_PEER(
              .name = "cv::Mat::copyTo", .prepare = [=] {
                cv::Point const from(static_cast<int>(left), static_cast<int>(top));
                return planesRun(Samples(rectangle), noise<unsigned short>(size), [=](auto const& out, auto const& in) {
                  mat(in)(cv::Rect(from, mat(out).size())).copyTo(mat(out));
                });
              }));
}

void addMosaic(SlottedSize const& at, unsigned long cell) {
  constexpr unsigned long kBand = 6;
  Size const size = at.size, bandSize{size.width / cell, size.height / cell};
  if (bandSize.samples() == 0) return;
  // Of the rows that hold the band, all samples come along in the same cache lines.
  Work const work{.bytes = 2.0 * static_cast<double>(cell) + 2};
  std::string const variant = std::to_string(cell) + " x " + std::to_string(cell) + " cell";
  add(
      {"KORVA_Ref_CG_SSM_GetBandImage_uint16", variant, at, work, bandSize.samples()},
      plain::CG_SSM_GetBandImage_uint16,
      [=](auto* getBandImage) {
        return planesRun(Samples(bandSize), noise<unsigned short>(size), [=](auto const& out, auto const& in) {
          getBandImage(out.rows(), in.rows(), size.width, size.height, cell, cell, kBand);
        });
      },
      KORVA_OPENCV_PEER(
              .name = "cv::extractChannel", .prepare = [=] {
                return planesRun(Samples(bandSize), noise<unsigned short>(size), [=](auto const& out, auto const& in) {
                  // Rows of whole cells, as pixels of one channel per cell column.
                  cv::Mat const cells(mat(out).size(), CV_16UC(static_cast<int>(cell)), in.rows()[kBand / cell],
                                      size.width * cell * sizeof(unsigned short));
                  cv::extractChannel(cells, mat(out), static_cast<int>(kBand % cell));
                });
              }));
}

// The ring takes frame after frame, each band's strip in another slot than the one before.
void addLineScan(SlottedSize const& at) {
  constexpr unsigned long kStrip = 64;
  Size const size = at.size;
  unsigned long const bands = size.height / kStrip, last = bands - 1, width = size.width;
  Size const strip{width, kStrip}, ring{width, bands * kStrip};
  add({"KORVA_Ref_CG_LS_StitchBandImageStrip_uint16", "", at, kCopy, strip.samples()},
      plain::CG_LS_StitchBandImageStrip_uint16, [=](auto* stitch) {
        return planesRun(Samples(ring, 2), noise<unsigned short>(strip),
                         [=, frame = 0ul](auto const& buffer, auto const& in) mutable {
                           stitch(buffer.cube(), in.rows(), width, kStrip, 0, last, 1, 1, frame++);
                         });
      });
  add({"KORVA_Ref_CG_LS_StitchBandImage_uint16", "", at, kCopy, ring.samples()}, plain::CG_LS_StitchBandImage_uint16,
      [=](auto* stitch) {
        return planesRun(Samples(ring, bands), noise<unsigned short>(size),
                         [=, frame = 0ul](auto const& buffer, auto const& in) mutable {
                           stitch(buffer.cube(), in.rows(), width, kStrip, 0, last, frame++);
                         });
      });
  add({"KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16", "", at, kCopy, ring.samples()},
      plain::CG_LS_GetStitchedSlice_BSQ_uint16, [=](auto* getSlice) {
        return planesRun(Samples(strip, bands), noise<unsigned short>(ring, bands),
                         [=, frame = last](auto const& out, auto const& buffer) mutable {
                           getSlice(out.cube(), buffer.cube(), width, kStrip, kStrip, bands, 0, last, frame++);
                         });
      });
}

}  // namespace

void registerCubeGeneration() {
  for (SlottedSize const& at : frameSizes()) {
    addMosaic(at, 4);
    addMosaic(at, 5);
  }
  for (SlottedSize const& at : frameSizes({8, 64})) {
    auto const [width, height] = at.size;
    unsigned long const cropWidth = width - 6, cropHeight = height - 6, tileWidth = width / 4, tileHeight = height / 4;
    addRectangleCopy("KORVA_Ref_CG_CropImage_uint16", plain::CG_CropImage_uint16, at, 3, 3, {cropWidth, cropHeight},
                     [=, size = at.size](auto* crop, auto out, auto in) {
                       crop(out, in, size.width, size.height, 3, 3, cropWidth, cropHeight);
                     });
    addRectangleCopy("KORVA_Ref_CG_SST_GetBandImage_uint16", plain::CG_SST_GetBandImage_uint16, at, 0, tileHeight,
                     {tileWidth, tileHeight}, [=, size = at.size](auto* getBandImage, auto out, auto in) {
                       unsigned long const band = size.width / tileWidth;
                       getBandImage(out, in, size.width, size.height, tileWidth, tileHeight, band);
                     });
    addRectangleCopy(
        "KORVA_Ref_CG_LS_GetBandImageStrip_uint16", plain::CG_LS_GetBandImageStrip_uint16, at, 0, 64, {width, 64},
        [=, size = at.size](auto* getStrip, auto out, auto in) { getStrip(out, in, size.width, size.height, 64, 1); });
    addLineScan(at);
  }
}

}  // namespace korva::benchmarks
