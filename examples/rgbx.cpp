// The road of an RGBX frame: raw counts -> defects cleaned -> R, G, B and X bands -> new WLI at several weights.
#include "host.h"

using namespace host;

namespace {

struct Options {
  std::string frame;
  std::string dark;
  std::string flat;
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

// The samples of one filter kind that lie in a regular grid.
struct FilterGrid {
  unsigned long cell;  // spacing of the grid in rows and columns
  unsigned long band;  // number of the filter in that cell, row by row
};

// X and the two halves of G repeat every 2 pixels; R and B every 4, each at two places of the tile.
constexpr FilterGrid kGrids[] = {{2, 0}, {2, 1}, {2, 2}, {4, 5}, {4, 7}, {4, 13}, {4, 15}};

// Filters each filter grid of a frame with a median, and calls use(sample, its median, its place in the frame). A
// pixel's neighbours on the sensor lie under other filters, so a median makes sense only among the samples of one.
template <typename Median, typename Use>
void forEachMedian(Counts const& frame, Median const& filter, Use const& use) {
  for (FilterGrid const& grid : kGrids) {
    unsigned long width = frame.width() / grid.cell;
    unsigned long height = frame.height() / grid.cell;
    Counts const bandImage(width, height);
    Counts const median(width, height);
    KORVA_Ref_CG_SSM_GetBandImage_uint16(bandImage.rows(), frame.rows(), frame.width(), frame.height(), grid.cell,
                                         grid.cell, grid.band);
    filter(median.rows(), bandImage.rows(), &height, &width);
    for (unsigned long row = 0; row < height; ++row) {
      for (unsigned long column = 0; column < width; ++column) {
        use(bandImage.rows()[row][column], median.rows()[row][column],
            (row * grid.cell + grid.band / grid.cell) * frame.width() + column * grid.cell + grid.band % grid.cell);
      }
    }
  }
}

// Marks the samples that stand out from the 5 x 5 median of their filter by more than the threshold. In a dark or a
// flat frame those are defects and nothing else; in a frame of a scene the finest detail is among them.
void findDefects(std::vector<char>& defects, Counts const& frame, double threshold) {
  forEachMedian(frame, KORVA_Ref_MF_Median2D_5x5_uint16, [&](int sample, int median, unsigned long place) {
    if (std::abs(sample - median) > threshold) defects[place] = 1;
  });
}

// The frame with the 3 x 3 median of their filter in place of its defects.
Counts cleanDefects(Counts const& frame, std::vector<char> const& defects) {
  Counts cleaned(frame.width(), frame.height());
  std::copy_n(frame.samples(), frame.count(), cleaned.samples());
  forEachMedian(frame, KORVA_Ref_MF_Median2D_3x3_uint16,
                [&](unsigned short, unsigned short median, unsigned long place) {
                  if (defects[place] != 0) cleaned.samples()[place] = median;
                });
  return cleaned;
}

// R, G, B and X as shares of white in full resolution; 3 pixels are lost on every side.
Cube<float> demosaic(Counts const& counts, Options const& options) {
  Cube<float> const frame(counts.width(), counts.height());
  auto const black = static_cast<float>(options.black);
  auto const range = static_cast<float>(options.white) - black;
  for (unsigned long k = 0; k < frame.count(); ++k) {
    frame.samples()[k] = (static_cast<float>(counts.samples()[k]) - black) / range;
  }
  Cube<float> bands(frame.width() - 6, frame.height() - 6, 4);
  Cube<float> const scratch(frame.width(), frame.height());
  KORVA_Ref_RGBX_DemosaicFrame_float(bands.planes(), scratch.rows(), frame.rows(), frame.width(), frame.height());
  return bands;
}

// Working store of the new WLI, made once for all frames of a size.
struct WliBuffers : NewWLIBuffers {
  WliBuffers(unsigned long width, unsigned long height) : NewWLIBuffers{} {
    KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(this, width, height);
    if (xResidual != nullptr && yFiltered != nullptr && yResidual != nullptr && yccImage != nullptr) return;
    KORVA_Ref_RGBX_FreeNewWLIBuffers_float(*this);
    throw Error("not enough memory for the working buffers of the new WLI");
  }
  ~WliBuffers() { KORVA_Ref_RGBX_FreeNewWLIBuffers_float(*this); }
  WliBuffers(WliBuffers const&) = delete;
  WliBuffers& operator=(WliBuffers const&) = delete;
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

void process(Options const& options) {
  if (options.black >= options.white || options.width % 4 != 0) {
    throw Error("expected a --width that is a multiple of 4 and --black below --white-level, found " +
                std::to_string(options.width) + " and " + std::to_string(options.black) + " of " +
                std::to_string(options.white));
  }
  double const threshold = options.defectThreshold * (options.white - options.black);
  Counts const frame = readFrame(options.frame, options.width, options.height);
  std::vector<char> defects(frame.count(), 0);
  for (std::string const& path : {options.dark, options.flat}) {
    if (!path.empty()) findDefects(defects, readFrame(path, options.width, options.height), threshold);
  }
  ResultFolder folder(options.output);
  Counts const cleaned = cleanDefects(frame, defects);
  folder.write("cleaned_frame", cleaned, {"RGBX frame without defects"});
  Cube<float> const bands = demosaic(cleaned, options);
  folder.write("bands", bands, {"Bands R, G, B, X", {}, {0, 1, 2}});

  // Another 3 pixels are lost on every side.
  std::vector<double> const kernel = smoothingKernel(options.blur);
  WliBuffers const buffers(bands.width(), bands.height());
  Cube<float> const image(bands.width() - 6, bands.height() - 6, 3);
  for (double const weight : options.weights) {
    stopIfInterrupted();
    KORVA_Ref_RGBX_ComputeNewWLI_float(image.planes(), bands.planes(), bands.width(), bands.height(), kernel.data(),
                                       buffers, kBlueWeight, kRedWeight, weight);
    char text[16];
    std::snprintf(text, sizeof text, "%.3g", weight);
    folder.write(std::string("wli_weight_") + text, image, {std::string("New WLI at weight ") + text, {}, {0, 1, 2}});
  }
  folder.publish();
  std::printf("%ld samples replaced; results are in %s\n", std::count(defects.begin(), defects.end(), 1),
              options.output.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("RGBX frames to colour pictures that show what the X band sees.", "rgbx");
  app.option_defaults()->always_capture_default();
  Options options;
  CLI::Range const size(16UL, 65535UL);
  app.add_option("--frame", options.frame, "raw frame of 16-bit samples")->required();
  app.add_option("--dark", options.dark, "raw frame taken in the dark, to find stuck pixels");
  app.add_option("--flat", options.flat, "raw frame of an even surface, to find stuck pixels");
  app.add_option("--width", options.width, "samples per row of the frame, a multiple of 4")->check(size);
  app.add_option("--height", options.height, "rows of the frame")->check(size);
  app.add_option("--black", options.black, "counts of a dark sample")->check(CLI::Range(0U, 65534U));
  app.add_option("--white-level", options.white, "counts of a white sample")->check(CLI::Range(1U, 65535U));
  app.add_option("--defect-threshold", options.defectThreshold,
                 "share of the range by which a defect stands out in --dark or --flat")
      ->check(kNumber & CLI::Range(0.0, 1.0));
  app.add_option("--weight", options.weights, "shares of the RGB luma's detail in the new WLI")
      ->check(kNumber & CLI::Range(0.0, 1.0));
  app.add_option("--blur", options.blur, "deviation of the smoothing kernel in pixels")
      ->check(kNumber & CLI::Range(1e-6, 1e6));
  app.add_option("--output", options.output, "folder for the results");
  return run(app, argc, argv, [&] { process(options); });
}
