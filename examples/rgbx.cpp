// The road of an RGBX frame: raw counts -> defects cleaned -> R, G, B and X bands -> new WLI at several weights.
//
// Without options a synthetic camera takes an old painting whose charcoal drawing only the X band sees. With options
// the frame is your own, or is made of a photograph that the road should give back; see --help.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "support/drawing.h"
#include "support/host_run.h"
#include "support/quality.h"
#include "support/raw_input.h"
#include "support/result_folder.h"
#include "support/rgbx_demo.h"

using namespace host;

namespace {

struct Options {
  std::string frame;
  std::string dark;
  std::string flat;
  std::string photo;
  unsigned long width = 2048;
  unsigned long height = 1088;
  unsigned short black = 64;
  unsigned short white = 4095;
  double defectThreshold = 0.1;
  std::vector<double> weights{1, 0.5, 0};
  double blur = 1.6;
  std::string output = "results/rgbx";
};

// Luma weights of BT.709.
constexpr double kBlueWeight = 0.0722;
constexpr double kRedWeight = 0.2126;

// ---- The road, step by step ----

// The samples of one filter kind that lie in a regular grid.
struct FilterGrid {
  unsigned long cell;  // spacing of the grid in rows and columns
  unsigned long band;  // number of the filter in that cell, row by row
};

// X and the two halves of G repeat every 2 pixels; R and B every 4, each at two places of the tile.
constexpr FilterGrid kGrids[] = {{2, 0}, {2, 1}, {2, 2}, {4, 5}, {4, 7}, {4, 13}, {4, 15}};

// Cuts each filter grid out of a frame and hands it over with the place of its first sample. A pixel's neighbours on
// the sensor lie under other filters, so a median makes sense only among the samples of one filter.
template <typename Work>
void forEachGrid(Frame const& frame, Work const& work) {
  for (FilterGrid const& grid : kGrids) {
    Frame const bandImage(frame.width() / grid.cell, frame.height() / grid.cell);
    KORVA_Ref_CG_SSM_GetBandImage_uint16(bandImage.rows(), frame.rows(), frame.width(), frame.height(), grid.cell,
                                         grid.cell, grid.band);
    auto const placeOf = [&](unsigned long row, unsigned long column) {
      return (row * grid.cell + grid.band / grid.cell) * frame.width() + column * grid.cell + grid.band % grid.cell;
    };
    work(bandImage, placeOf);
  }
}

// Marks the samples that stand out from the 5 x 5 median of their filter by more than the threshold. In a dark or a
// flat frame those are defects and nothing else; in a frame of a scene the finest detail is among them.
void findDefects(std::vector<char>& defects, Frame const& frame, double threshold) {
  forEachGrid(frame, [&](Frame const& bandImage, auto const& placeOf) {
    unsigned long width = bandImage.width();
    unsigned long height = bandImage.height();
    Frame const median(width, height);
    KORVA_Ref_MF_Median2D_5x5_uint16(median.rows(), bandImage.rows(), &height, &width);
    for (unsigned long row = 0; row < height; ++row) {
      for (unsigned long column = 0; column < width; ++column) {
        if (std::abs(bandImage[row][column] - median[row][column]) > threshold) defects[placeOf(row, column)] = 1;
      }
    }
  });
}

// The frame with the 3 x 3 median of their filter in place of its defects.
Frame cleanDefects(Frame const& frame, std::vector<char> const& defects) {
  Frame cleaned(frame.width(), frame.height());
  std::copy_n(frame.samples(), frame.count(), cleaned.samples());
  forEachGrid(frame, [&](Frame const& bandImage, auto const& placeOf) {
    unsigned long width = bandImage.width();
    unsigned long height = bandImage.height();
    Frame const median(width, height);
    KORVA_Ref_MF_Median2D_3x3_uint16(median.rows(), bandImage.rows(), &height, &width);
    for (unsigned long row = 0; row < height; ++row) {
      for (unsigned long column = 0; column < width; ++column) {
        unsigned long const place = placeOf(row, column);
        if (defects[place] != 0) cleaned.samples()[place] = median[row][column];
      }
    }
  });
  return cleaned;
}

// Counts as shares of white.
Image<float> normalise(Frame const& frame, Levels const& levels) {
  Image<float> image(frame.width(), frame.height());
  auto const black = static_cast<float>(levels.black);
  auto const range = static_cast<float>(levels.white) - black;
  for (unsigned long k = 0; k < frame.count(); ++k) {
    image.samples()[k] = (static_cast<float>(frame.samples()[k]) - black) / range;
  }
  return image;
}

// R, G, B and X in full resolution; 3 pixels are lost on every side.
Cube<float> demosaic(Image<float> const& frame) {
  Cube<float> bands(frame.width() - 6, frame.height() - 6, 4);
  Image<float> const scratch(frame.width(), frame.height());
  KORVA_Ref_RGBX_DemosaicFrame_float(bands.planes(), scratch.rows(), frame.rows(), frame.width(), frame.height());
  return bands;
}

// Working store of the new WLI, made once for all frames of a size.
class WliBuffers {
 public:
  WliBuffers(unsigned long width, unsigned long height) {
    KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(&buffers_, width, height);
  }
  ~WliBuffers() { KORVA_Ref_RGBX_FreeNewWLIBuffers_float(buffers_); }
  WliBuffers(WliBuffers const&) = delete;
  WliBuffers& operator=(WliBuffers const&) = delete;

  NewWLIBuffers const& get() const {
    if (buffers_.xResidual == nullptr || buffers_.yFiltered == nullptr || buffers_.yResidual == nullptr ||
        buffers_.yccImage == nullptr) {
      throw HostError("not enough memory for the working buffers of the new WLI");
    }
    return buffers_;
  }

 private:
  NewWLIBuffers buffers_{};
};

// A Gaussian whose 49 weights sum to 1: the filtered image is the coarse structure, the rest is fine detail.
std::vector<double> smoothingKernel(double deviation) {
  std::vector<double> kernel;
  double sum = 0;
  for (int y = -3; y <= 3; ++y) {
    for (int x = -3; x <= 3; ++x) {
      kernel.push_back(std::exp(-(x * x + y * y) / (2 * deviation * deviation)));
      sum += kernel.back();
    }
  }
  for (double& weight : kernel) weight /= sum;
  return kernel;
}

// Another 3 pixels are lost on every side.
Cube<float> newWli(Cube<float> const& bands, std::vector<double> const& kernel, WliBuffers const& buffers,
                   double weight) {
  Cube<float> image(bands.width() - 6, bands.height() - 6, 3);
  KORVA_Ref_RGBX_ComputeNewWLI_float(image.planes(), bands.planes(), bands.width(), bands.height(), kernel.data(),
                                     buffers.get(), kBlueWeight, kRedWeight, weight);
  return image;
}

struct Result {
  Frame cleaned;
  Cube<float> bands;
  std::vector<Cube<float>> wli;  // one per weight
};

Result process(Frame const& raw, std::vector<char> const& defects, std::vector<double> const& weights, double blur,
               Levels const& levels) {
  Frame cleaned = cleanDefects(raw, defects);
  Cube<float> bands = demosaic(normalise(cleaned, levels));
  std::vector<double> const kernel = smoothingKernel(blur);
  WliBuffers const buffers(bands.width(), bands.height());
  std::vector<Cube<float>> wli;
  for (double const weight : weights) {
    wli.push_back(newWli(bands, kernel, buffers, weight));
    stopIfInterrupted();
  }
  return {std::move(cleaned), std::move(bands), std::move(wli)};
}

// ---- Results ----

Picture showRgb(Cube<float> const& cube, double white) {
  return colourPicture(cube.plane(0), cube.plane(1), cube.plane(2), cube.width(), cube.height(), white);
}

// PSNR of a picture against the part of the truth that it shows, margin pixels inside.
double picturePsnr(Picture const& picture, Picture const& truth, unsigned long margin) {
  Picture const part = cropped(truth, margin, margin, picture.width(), picture.height());
  double sum = 0;
  unsigned long const count = picture.width() * picture.height();
  for (unsigned long k = 0; k < count; ++k) {
    Colour const a = picture.pixels()[k];
    Colour const b = part.pixels()[k];
    for (int const difference : {a.red - b.red, a.green - b.green, a.blue - b.blue}) sum += difference * difference;
  }
  return psnr(sum / (255.0 * 255.0 * 3.0 * static_cast<double>(count)));
}

std::string weightText(double weight) {
  char text[16];
  std::snprintf(text, sizeof text, "%.3g", weight);
  return text;
}

// The same part of pictures that lost different margins, given as shares of the raw frame's size.
Picture part(Picture const& picture, Frame const& raw, double x, double y, unsigned long width, unsigned long height) {
  unsigned long const margin = (raw.width() - picture.width()) / 2;
  auto const start = [margin](double share, unsigned long size) {
    auto const place = static_cast<unsigned long>(share * static_cast<double>(size));
    return place > margin ? place - margin : 0UL;
  };
  return cropped(picture, start(x, raw.width()), start(y, raw.height()), width, height);
}

void writeResults(ResultFolder& folder, Frame const& raw, Result const& result, Options const& options,
                  Levels const& levels, double white) {
  Picture const rawPicture = greyPicture(raw, levels.black, levels.black + white * (levels.white - levels.black));
  Picture const cleanPicture =
      greyPicture(result.cleaned, levels.black, levels.black + white * (levels.white - levels.black));
  Picture const rgb = showRgb(result.bands, white);
  float const* const x = result.bands.plane(3);
  Picture const xBand = colourPicture(x, x, x, result.bands.width(), result.bands.height(), white);

  folder.writeImage("frame", raw, {"Raw RGBX frame", {}, {}, 0});
  folder.writeImage("cleaned_frame", result.cleaned, {"RGBX frame without defects", {}, {}, 0});
  folder.writeCube("bands", result.bands, {"Bands R, G, B, X", {}, {0, 1, 2}, 0});
  folder.writePicture("raw_frame.png", rawPicture);
  folder.writePicture("rgb.png", rgb);
  folder.writePicture("x_band.png", xBand);

  std::vector<Picture> side;
  std::vector<Picture> figure{captioned(part(rgb, raw, 0.42, 0.36, 400, 280), "Demosaiced RGB"),
                              captioned(part(xBand, raw, 0.42, 0.36, 400, 280), "X band")};
  for (std::size_t k = 0; k < result.wli.size(); ++k) {
    std::string const weight = weightText(options.weights[k]);
    Picture const picture = showRgb(result.wli[k], white);
    folder.writeCube("wli_weight_" + weight, result.wli[k], {"New WLI at weight " + weight, {}, {0, 1, 2}, 0});
    folder.writePicture("wli_weight_" + weight + ".png", picture);
    side.push_back(captioned(part(picture, raw, 0.4, 0.34, 620, 560), "New WLI, weight " + weight));
    if (k == 0 || k + 1 == result.wli.size()) {
      figure.push_back(captioned(part(picture, raw, 0.42, 0.36, 400, 280), "New WLI, weight " + weight));
    }
  }
  folder.writePicture("wli_side_by_side.png", sideBySide(side));
  auto const closeUp = [&](Picture const& picture) { return enlarged(part(picture, raw, 0.17, 0.55, 180, 150), 4); };
  folder.writePicture("median_before_after.png",
                      sideBySide({captioned(closeUp(rawPicture), "Raw frame with stuck pixels, 180 x 150"),
                                  captioned(closeUp(cleanPicture), "After the medians")}));
  std::vector<Picture> lower(figure.begin() + 2, figure.end());
  folder.writePicture("overview.png", fewerLevels(stacked({sideBySide({figure[0], figure[1]}), sideBySide(lower)}), 5));
}

void report(RgbxCapture const& capture, Result const& result, Options const& options, double white) {
  std::printf("  PSNR of the demosaiced RGB against the original: %.1f dB\n",
              picturePsnr(showRgb(result.bands, white), capture.truth, 3));
  for (std::size_t k = 0; k < result.wli.size(); ++k) {
    std::printf("  PSNR of the new WLI at weight %s: %.1f dB\n", weightText(options.weights[k]).c_str(),
                picturePsnr(showRgb(result.wli[k], white), capture.truth, 6));
  }
}

// ---- Where the frame comes from ----

void checkLevels(Options const& options) {
  if (options.black < options.white) return;
  throw HostError("--black: expected less than --white-level " + std::to_string(options.white) + ", found " +
                  std::to_string(options.black));
}

unsigned long countOf(std::vector<char> const& defects) {
  return static_cast<unsigned long>(std::count(defects.begin(), defects.end(), 1));
}

void processUserFrame(Options const& options) {
  Levels const levels{options.black, options.white};
  double const threshold = options.defectThreshold * (levels.white - levels.black);
  Frame const frame = readFrame(options.frame, options.width, options.height);
  std::vector<char> defects(frame.count(), 0);
  for (std::string const& path : {options.dark, options.flat}) {
    if (!path.empty()) findDefects(defects, readFrame(path, options.width, options.height), threshold);
  }
  ResultFolder folder(options.output);
  Result const result = process(frame, defects, options.weights, options.blur, levels);
  double const white =
      std::max(0.01, percentile(std::span<float const>(result.bands.plane(1), result.bands.planeCount()), 0.99) * 1.1);
  writeResults(folder, frame, result, options, levels, white);
  folder.publish();
  std::printf("%lu samples replaced; results are in %s\n", countOf(defects), folder.path().c_str());
}

void processPhotograph(Options const& options) {
  Levels const levels{options.black, options.white};
  Picture const photograph = readPng(options.photo);
  if (photograph.width() < 16 || photograph.height() < 16) {
    throw HostError(options.photo + ": expected a picture of at least 16 x 16, found " +
                    std::to_string(photograph.width()) + " x " + std::to_string(photograph.height()));
  }
  ResultFolder folder(options.output);
  RgbxCapture const capture = mosaicPhotograph(photograph, levels);
  std::vector<char> const none(capture.frame.count(), 0);
  Result const result = process(capture.frame, none, options.weights, options.blur, levels);
  std::printf("Photograph of %lu x %lu, mosaicked and reconstructed\n", photograph.width(), photograph.height());
  report(capture, result, options, 1);
  writeResults(folder, capture.frame, result, options, levels, 1);
  folder.publish();
  std::printf("Results are in %s\n", folder.path().c_str());
}

void runDemo(Options const& options) {
  Levels const levels{options.black, options.white};
  double const threshold = options.defectThreshold * (levels.white - levels.black);
  ResultFolder folder(options.output);
  std::printf("RGBX, %lu x %lu samples\n", options.width, options.height);
  RgbxCapture capture = photographScene(oldPainting(options.width, options.height), levels);
  Frame dark = uniformFrame(options.width, options.height, 0, levels);
  Frame flat = uniformFrame(options.width, options.height, 0.8, levels);
  // The same sensor took all three, so the same pixels are stuck.
  unsigned long const planted = plantDefects(capture.frame, levels);
  plantDefects(dark, levels);
  plantDefects(flat, levels);

  std::vector<char> defects(capture.frame.count(), 0);
  Result const defective = process(capture.frame, defects, {}, options.blur, levels);
  findDefects(defects, dark, threshold);
  findDefects(defects, flat, threshold);
  Result const result = process(capture.frame, defects, options.weights, options.blur, levels);
  std::printf("  %lu defects planted, %lu samples replaced by medians\n", planted, countOf(defects));
  std::printf("  PSNR of the demosaiced RGB with its defects: %.1f dB\n",
              picturePsnr(showRgb(defective.bands, kPaintingWhite), capture.truth, 3));
  report(capture, result, options, kPaintingWhite);
  folder.writeImage("dark", dark, {"Dark frame", {}, {}, 0});
  folder.writeImage("flat", flat, {"Flat frame", {}, {}, 0});
  writeResults(folder, capture.frame, result, options, levels, kPaintingWhite);
  folder.publish();
  std::printf("Results are in %s\n", folder.path().c_str());
}

void addOptions(CommandLine& line, Options& options) {
  line.add("--frame", options.frame, "raw frame of 16-bit samples [a synthetic painting]");
  line.add("--dark", options.dark, "raw frame taken in the dark, to find stuck pixels [none]");
  line.add("--flat", options.flat, "raw frame of an even surface, to find stuck pixels [none]");
  line.needs("--dark", "--frame");
  line.needs("--flat", "--frame");
  line.add("--photo", options.photo, "PNG photograph to mosaic and reconstruct");
  line.excludes("--photo", "--frame");
  line.add("--width", options.width, {16, kLargestSize, 4}, "samples per row of the frame, a multiple of 4 [2048]");
  line.add("--height", options.height, {16, kLargestSize}, "rows of the frame [1088]");
  line.add("--black", options.black, {0, 65534}, "counts of a dark sample [64]");
  line.add("--white-level", options.white, {1, 65535}, "counts of a white sample [4095]");
  line.add("--defect-threshold", options.defectThreshold, Number::zeroToOne,
           "share of the range by which a defect stands out in --dark or --flat [0.1]");
  line.add("--weight", options.weights, Number::zeroToOne, "shares of the RGB luma's detail in the new WLI [1 0.5 0]");
  line.add("--blur", options.blur, Number::aboveZero, "deviation of the smoothing kernel in pixels [1.6]");
  line.add("--output", options.output, "folder for the results [" + options.output + "]");
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line("rgbx", "RGBX frames to colour pictures that show what the X band sees.");
  Options options;
  addOptions(line, options);
  return line.run(argc, argv, [&] {
    checkLevels(options);
    if (!options.frame.empty()) {
      processUserFrame(options);
    } else if (!options.photo.empty()) {
      processPhotograph(options);
    } else {
      runDemo(options);
    }
  });
}
