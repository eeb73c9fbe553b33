// What every host does around its road: options in, one clear line and a non-zero exit when something is wrong.
#ifndef KORVA_EXAMPLES_HOST_H
#define KORVA_EXAMPLES_HOST_H

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <new>

#include "files.h"

namespace host {

// Sizes that a host takes. A plane of the largest still counts its samples in 32 bits.
inline CLI::Range const kSize(1UL, 65535UL);

// CLI::Range lets a NaN pass.
inline CLI::Validator const kNumber(
    [](std::string& text) {
      return std::isnan(std::strtod(text.c_str(), nullptr)) ? "Value " + text + " is no number" : std::string();
    },
    "");

// Parses the command line, then walks the road. Returns the exit status: 0, 1 for a fault met on the way, 2 for a wrong
// option. A fault is told on stderr in exactly one line.
inline int run(CLI::App& app, int argc, char** argv, std::function<void()> const& road) {
  auto const fail = [&](std::string message, int status) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", app.get_name().c_str(), message.c_str());
    return status;
  };
  for (int const request : {SIGINT, SIGTERM}) std::signal(request, [](int signal) { stopSignal = signal; });
  // A reader that goes away shows as a failed write to standard output, checked below.
  std::signal(SIGPIPE, SIG_IGN);
  app.set_version_flag("--version", app.get_name() + " " + std::to_string(KORVA_REFERENCE_API_VERSION_MAJOR) + "." +
                                        std::to_string(KORVA_REFERENCE_API_VERSION_MINOR) + "." +
                                        std::to_string(KORVA_REFERENCE_API_VERSION_PATCH));
  try {
    app.parse(argc, argv);
    road();
  } catch (CLI::Success const& answer) {
    app.exit(answer);
  } catch (CLI::ParseError const& error) {
    return fail(std::string(error.what()) + " (see --help)", 2);
  } catch (std::bad_alloc const&) {
    return fail("not enough memory", 1);
  } catch (std::exception const& error) {
    return fail(error.what(), 1);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    return fail(std::string("standard output cannot be written: ") + std::strerror(errno), 1);
  }
  return 0;
}

// Progress of work that takes longer than a second: a line that is written over once a second.
class Progress {
 public:
  Progress(char const* task, unsigned long steps) : task_(task), steps_(steps) {}
  ~Progress() {
    if (shown_) std::printf("\n");
  }

  // One more step is done. Throws when the user asked to stop.
  void advance() {
    stopIfInterrupted();
    ++done_;
    auto const now = Clock::now();
    if (now - told_ < std::chrono::seconds(1)) return;
    told_ = now;
    shown_ = true;
    std::printf("\r%s %lu %%", task_, 100 * done_ / steps_);
    std::fflush(stdout);
  }

 private:
  using Clock = std::chrono::steady_clock;
  char const* task_;
  unsigned long steps_;
  unsigned long done_ = 0;
  bool shown_ = false;
  Clock::time_point told_ = Clock::now();
};

// Correction matrix and wavelengths of its output bands.
struct Correction {
  std::vector<std::vector<double>> matrix;
  std::vector<double> wavelengths;  // empty when unknown

  // The matrix as the library takes it.
  std::vector<double const*> rows() const {
    std::vector<double const*> pointers;
    for (auto const& row : matrix) pointers.push_back(row.data());
    return pointers;
  }

  // The bands that look like red, green and blue; none where wavelengths are unknown.
  std::vector<unsigned long> colours() const {
    std::vector<unsigned long> bands;
    for (double const wanted : {640.0, 550.0, 465.0}) {
      auto const nearest = std::min_element(wavelengths.begin(), wavelengths.end(), [=](double a, double b) {
        return std::abs(a - wanted) < std::abs(b - wanted);
      });
      if (!wavelengths.empty()) bands.push_back(static_cast<unsigned long>(nearest - wavelengths.begin()));
    }
    return bands;
  }
};

// What turns counts into spectra: references, exposures, the correction matrix, and how a user names them.
struct Calibration {
  std::string white;
  std::string bias;
  std::string matrix;
  std::string wavelengths;
  double exposure = 1;
  double whiteExposure = 1;
  double whiteReflectance = 1;
  unsigned short fullScale = 10000;

  void addOptions(CLI::App& app) {
    CLI::Range const positive(1e-6, 1e9);
    app.add_option("--white", white, "raw frame of a white reference")->required();
    app.add_option("--bias", bias, "raw frame taken in the dark; none is subtracted without it");
    app.add_option("--matrix", matrix, "text file: one line per output band, one weight per camera band");
    app.add_option("--wavelengths", wavelengths, "text file: the output bands' wavelengths in nm");
    app.add_option("--exposure", exposure, "exposure time of the scene")->check(kNumber & positive);
    app.add_option("--white-exposure", whiteExposure, "exposure time of the white reference")
        ->check(kNumber & positive);
    app.add_option("--white-reflectance", whiteReflectance, "reflectance of the white reference")
        ->check(kNumber & positive);
    app.add_option("--full-scale", fullScale, "sample value that stands for reflectance 1")
        ->check(CLI::Range(1U, 65534U));
  }

  // Reads the user's files for a camera of the given number of bands. Without a matrix every band stays as it is.
  Correction readCorrection(unsigned long inBands) const {
    Correction correction;
    if (!matrix.empty()) correction.matrix = readNumbers(matrix);
    for (unsigned long band = 0; matrix.empty() && band < inBands; ++band) {
      correction.matrix.emplace_back(inBands, 0.0);
      correction.matrix.back()[band] = 1;
    }
    if (correction.matrix.empty()) throw Error(matrix + ": expected a correction matrix, found no numbers");
    for (std::size_t band = 0; band < correction.matrix.size(); ++band) {
      auto const& weights = correction.matrix[band];
      if (weights.size() != inBands) {
        throw Error(matrix + ": expected " + std::to_string(inBands) + " weights for output band " +
                    std::to_string(band) + ", found " + std::to_string(weights.size()));
      }
      // Sums that 16 bits cannot hold would come out as small numbers.
      double most = 0;
      for (double const weight : weights) most += std::max(weight, 0.0) * fullScale;
      if (most >= kFlagged) {
        throw Error(matrix + ": expected output bands below 65535, found weights that can bring band " +
                    std::to_string(band) + " to " + std::to_string(most) + " (a smaller --full-scale helps)");
      }
    }
    if (wavelengths.empty()) return correction;
    for (auto const& row : readNumbers(wavelengths)) {
      correction.wavelengths.insert(correction.wavelengths.end(), row.begin(), row.end());
    }
    auto const& found = correction.wavelengths;
    if (found.size() != correction.matrix.size() || *std::min_element(found.begin(), found.end()) <= 0) {
      throw Error(wavelengths + ": expected " + std::to_string(correction.matrix.size()) +
                  " wavelengths above 0 nm, found " + std::to_string(found.size()) + " numbers");
    }
    return correction;
  }
};

// A pixel that is flagged in one band has no spectrum: flags it in all bands of the corrected cube.
inline void passFlags(Counts const& corrected, Counts const& reflectance) {
  std::vector<char> flagged(reflectance.planeCount(), 0);
  for (unsigned long band = 0; band < reflectance.bands(); ++band) {
    unsigned short const* const samples = reflectance.samples(band);
    for (std::size_t k = 0; k < flagged.size(); ++k) flagged[k] |= samples[k] == kFlagged;
  }
  for (unsigned long band = 0; band < corrected.bands(); ++band) {
    unsigned short* const samples = corrected.samples(band);
    for (std::size_t k = 0; k < flagged.size(); ++k) {
      if (flagged[k] != 0) samples[k] = kFlagged;
    }
  }
}

// Writes and publishes what a road to spectra ends with.
inline void publishCorrected(ResultFolder& folder, Counts const& corrected, Correction const& correction,
                             unsigned short fullScale) {
  folder.write("corrected", corrected,
               {"Corrected reflectance", correction.wavelengths, correction.colours(), double(fullScale)});
  folder.publish();
  std::printf("%lu bands of %s are in %s\n", corrected.bands(), sizeText(corrected.width(), corrected.height()).c_str(),
              folder.path().c_str());
}

}  // namespace host

#endif
