// SC: a correction matrix applied to pixel spectra, BIP runs and BSQ cubes.
#include "korva_reference_api.h"

#include <algorithm>
#include <cstddef>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/prefetch.h"
#include "internal/sample_conversion.h"
#include "internal/strict_float.h"

namespace {

// A panel of widened values on the stack, 48 KiB: together with the values of a block's rows it streams through the
// first two cache levels. Cameras have far fewer bands than a panel holds; beyond, the definitions serve as they are.
constexpr std::size_t kPanelDoubles = 6144;
constexpr std::size_t kMaxPanelBlocks = 15;
constexpr std::size_t kMaxPanelBands = 768;

// The definition, for output bands of one spectrum: products added in band order.
template <typename Sample>
void sumBands(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands, std::size_t inBands) {
  for (std::size_t o = 0; o < outBands; ++o) {
    double sum = 0.0;
    for (std::size_t i = 0; i < inBands; ++i) sum += static_cast<double>(in[i]) * matrix[o][i];
    out[o] = korva::toSample<Sample>(sum);
  }
}

// One spectrum, of at least as many output bands as a vector has lanes. Lanes are output bands, so each of their sums
// meets its products in band order; the matrix, stored by output bands, is transposed in registers, two input bands at
// a time.
template <int vectorBytes>
struct CorrectSpectrum {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  using Doubles = korva::Vector<double, kLanes>;

  // Two neighbouring weights of kLanes rows: those of input band i, and of the next.
  KORVA_INLINE static void loadTransposed(Doubles& weights, Doubles& nextWeights, double const* const* rows,
                                          std::size_t i) {
    using Pair = korva::Vector<double, 2>;
    if constexpr (kLanes == 4) {
      auto const r0 = korva::loadLanes<Pair>(rows[0] + i), r1 = korva::loadLanes<Pair>(rows[1] + i);
      auto const r2 = korva::loadLanes<Pair>(rows[2] + i), r3 = korva::loadLanes<Pair>(rows[3] + i);
      auto const even = korva::shuffleLanes<0, 1, 2, 3>(r0, r2), odd = korva::shuffleLanes<0, 1, 2, 3>(r1, r3);
      weights = korva::shuffleLanes<0, 4, 2, 6>(even, odd);
      nextWeights = korva::shuffleLanes<1, 5, 3, 7>(even, odd);
    } else {
      auto const even = korva::loadLanes<Pair>(rows[0] + i), odd = korva::loadLanes<Pair>(rows[1] + i);
      weights = korva::shuffleLanes<0, 2>(even, odd);
      nextWeights = korva::shuffleLanes<1, 3>(even, odd);
    }
  }

  // groups * kLanes output bands.
  template <std::size_t groups, typename Sample>
  KORVA_INLINE static void correctBands(Sample* out, Sample const* in, double const* const* matrix,
                                        std::size_t inBands) {
    Doubles sums[groups] = {};
    std::size_t i = 0;
    for (; i + 2 <= inBands; i += 2) {
      double const sample = static_cast<double>(in[i]), nextSample = static_cast<double>(in[i + 1]);
#pragma GCC unroll 4
      for (std::size_t g = 0; g < groups; ++g) {
        Doubles weights, nextWeights;
        loadTransposed(weights, nextWeights, matrix + g * kLanes, i);
        sums[g] += sample * weights;
        sums[g] += nextSample * nextWeights;
      }
    }
    if (i < inBands) {
      double const sample = static_cast<double>(in[i]);
      for (std::size_t g = 0; g < groups; ++g) {
        Doubles weights;
        for (std::size_t k = 0; k < kLanes; ++k) weights[k] = matrix[g * kLanes + k][i];
        sums[g] += sample * weights;
      }
    }
    for (std::size_t g = 0; g < groups; ++g) korva::storeConverted(out + g * kLanes, sums[g]);
  }

  // The last bands may be computed twice.
  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands,
                               std::size_t inBands) {
    for (std::size_t first = 0; first < outBands;) {
      std::size_t const groups =
          std::min({(outBands - first + kLanes - 1) / kLanes, outBands / kLanes, std::size_t{4}});
      first = std::min(first, outBands - groups * kLanes);
      switch (groups) {
        case 1:
          correctBands<1>(out + first, in, matrix + first, inBands);
          break;
        case 2:
          correctBands<2>(out + first, in, matrix + first, inBands);
          break;
        case 3:
          correctBands<3>(out + first, in, matrix + first, inBands);
          break;
        default:
          correctBands<4>(out + first, in, matrix + first, inBands);
          break;
      }
      first += groups * kLanes;
    }
  }
};

template <typename Sample>
void correctSpectrum(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands,
                     std::size_t inBands) {
  constexpr std::size_t kMostLanes = 4;
  if (outBands < kMostLanes) {
    sumBands(out, in, matrix, outBands, inBands);
  } else {
    korva::dispatchUpTo32<CorrectSpectrum>(out, in, matrix, outBands, inBands);
  }
}

// The definition, for a cube: plane by plane through the working row.
struct CorrectCubeByPlanes {
  template <typename Sample>
  KORVA_INLINE static void run(Sample* const* const* out, double* scratch, Sample const* const* const* in,
                               double const* const* matrix, std::size_t outBands, std::size_t inBands,
                               std::size_t samples) {
    for (std::size_t o = 0; o < outBands; ++o) {
      for (std::size_t k = 0; k < samples; ++k) scratch[k] = 0.0;
      for (std::size_t i = 0; i < inBands; ++i) {
        Sample const* const plane = in[i][0];
        double const weight = matrix[o][i];
        KORVA_INDEPENDENT
        for (std::size_t k = 0; k < samples; ++k) scratch[k] += static_cast<double>(plane[k]) * weight;
      }
      Sample* const result = out[o][0];
      // Not max(): a NaN sum must reach the output.
      for (std::size_t k = 0; k < samples; ++k) {
        result[k] = korva::toSample<Sample>(scratch[k] < 0.0 ? 0.0 : scratch[k]);
      }
    }
  }
};

// Many spectra are a product of matrices, computed in blocks of up to five rows by two vectors whose sums stay in
// registers while the input bands pass in order; six rows would leave none for what else a block needs. One factor lies
// widened in a panel on the stack, [band][lanes]; the other gives one value per row and band. A product of two numbers
// does not depend on their order, so the same block serves cubes, where lanes are neighbouring samples and rows are
// output bands, and interleaved pixels, where lanes are output bands and rows are pixels.
template <int vectorBytes>
struct Blocks {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr std::size_t kWidth = 2 * kLanes;
  static constexpr std::size_t kMaxRows = 5;
  using Doubles = korva::Vector<double, kLanes>;

  // As many lanes as a panel holds with all input bands, in whole blocks. An odd number of blocks keeps the panel's
  // rows, which are read one after another, out of each other's cache sets.
  static std::size_t panelWidth(std::size_t inBands) {
    std::size_t const fitting = kPanelDoubles / (inBands == 0 ? 1 : inBands) / kWidth;
    std::size_t const blocks = fitting < kMaxPanelBlocks ? fitting : kMaxPanelBlocks;
    return (blocks - (blocks + 1) % 2) * kWidth;
  }

  // The sums of `rows` rows and `vectors` vectors of lanes over all input bands.
  template <std::size_t rows, std::size_t vectors>
  KORVA_INLINE static void sumProducts(Doubles (&sums)[rows][vectors], double const* panel, std::size_t width,
                                       double const* const* values, std::size_t inBands) {
    double const* row[rows];
#pragma GCC unroll 5
    for (std::size_t r = 0; r < rows; ++r) {
      row[r] = values[r];
#pragma GCC unroll 2
      for (std::size_t v = 0; v < vectors; ++v) sums[r][v] = Doubles{};
    }
    for (std::size_t band = 0; band < inBands; ++band) {
      Doubles lanes[vectors];
#pragma GCC unroll 2
      for (std::size_t v = 0; v < vectors; ++v) {
        lanes[v] = korva::loadLanes<Doubles>(panel + band * width + v * kLanes);
      }
#pragma GCC unroll 5
      for (std::size_t r = 0; r < rows; ++r) {
        double const value = row[r][band];
#pragma GCC unroll 2
        for (std::size_t v = 0; v < vectors; ++v) sums[r][v] += lanes[v] * value;
      }
    }
  }

  // Rounds a row of sums to samples.
  template <std::size_t vectors, typename Sample>
  KORVA_INLINE static void store(Sample* target, Doubles const (&sums)[vectors]) {
#pragma GCC unroll 2
    for (std::size_t v = 0; v < vectors; ++v) korva::storeConverted(target + v * kLanes, sums[v]);
  }

  // The same for the first `count` lanes.
  template <std::size_t vectors, typename Sample>
  KORVA_INLINE static void store(Sample* target, Doubles const (&sums)[vectors], std::size_t count) {
    if (count >= vectors * kLanes) return store(target, sums);
    double rest[vectors * kLanes];
#pragma GCC unroll 2
    for (std::size_t v = 0; v < vectors; ++v) korva::storeLanes(rest + v * kLanes, sums[v]);
    for (std::size_t k = 0; k < count; ++k) target[k] = korva::toSample<Sample>(rest[k]);
  }
};

// Lanes are neighbouring samples, rows are output bands.
template <int vectorBytes>
struct CorrectCube : Blocks<vectorBytes> {
  using Base = Blocks<vectorBytes>;
  using Base::kWidth;
  using typename Base::Doubles;

  // As many output bands as there are rows, for the panel's samples, at least a block of them. Sums below 0 become 0;
  // NaN stays NaN.
  template <std::size_t rows, typename Sample>
  KORVA_INLINE static void correctRows(Sample* const* const* out, double* scratch, double const* panel,
                                       std::size_t width, double const* const* matrix, std::size_t inBands,
                                       std::size_t left, std::size_t count) {
    for (std::size_t k = 0; k < count; k += kWidth) {
      // The last block overlaps the one before: its sums are the same again.
      std::size_t const first = std::min(k, count - kWidth);
      Doubles sums[rows][2];
      Base::sumProducts(sums, panel + first, width, matrix, inBands);
      // The caller's working row shows the sums of the last output band.
      if (scratch != nullptr) Base::store(scratch + left + first, sums[rows - 1]);
      Doubles const zero = {};
#pragma GCC unroll 5
      for (std::size_t r = 0; r < rows; ++r) {
#pragma GCC unroll 2
        for (std::size_t v = 0; v < 2; ++v) sums[r][v] = sums[r][v] < zero ? zero : sums[r][v];
        Base::store(out[r][0] + left + first, sums[r]);
      }
    }
  }

  // One output band, for fewer samples than a block has.
  template <typename Sample>
  KORVA_INLINE static void correctRest(Sample* out, double* scratch, double const* panel, std::size_t width,
                                       double const* weights, std::size_t inBands, std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) {
      double sum = 0.0;
      for (std::size_t i = 0; i < inBands; ++i) sum += panel[i * width + k] * weights[i];
      if (scratch != nullptr) scratch[k] = sum;
      out[k] = korva::toSample<Sample>(sum < 0.0 ? 0.0 : sum);
    }
  }

  template <typename Sample>
  KORVA_INLINE static void run(Sample* const* const* out, double* scratch, Sample const* const* const* in,
                               double const* const* matrix, std::size_t outBands, std::size_t inBands,
                               std::size_t samples) {
    std::size_t const width = Base::panelWidth(inBands);
    std::size_t const blocks = (outBands + Base::kMaxRows - 1) / Base::kMaxRows;
    alignas(64) double panel[kPanelDoubles];
    for (std::size_t left = 0; left < samples; left += width) {
      std::size_t const count = samples - left < width ? samples - left : width;
      // There are more planes than the processor foresees by itself.
      bool const isNextWhole = samples - left >= 2 * width;
      for (std::size_t i = 0; i < inBands; ++i) {
        korva::widenRow<Doubles>(panel + i * width, in[i][0] + left, count);
        if (isNextWhole) korva::prefetchRow<false>(in[i][0] + left + width, width);
      }
      if (count < kWidth) {
        for (std::size_t o = 0; o < outBands; ++o) {
          double* const sums = o + 1 == outBands ? scratch + left : nullptr;
          correctRest(out[o][0] + left, sums, panel, width, matrix[o], inBands, count);
        }
        return;
      }
      for (std::size_t block = 0; block < blocks; ++block) {
        // Blocks of nearly equal height: four and four run faster than five and three.
        std::size_t const first = block * outBands / blocks;
        double* const lastSums = block + 1 == blocks ? scratch : nullptr;
        switch ((block + 1) * outBands / blocks - first) {
          case 1:
            correctRows<1>(out + first, lastSums, panel, width, matrix + first, inBands, left, count);
            break;
          case 2:
            correctRows<2>(out + first, lastSums, panel, width, matrix + first, inBands, left, count);
            break;
          case 3:
            correctRows<3>(out + first, lastSums, panel, width, matrix + first, inBands, left, count);
            break;
          case 4:
            correctRows<4>(out + first, lastSums, panel, width, matrix + first, inBands, left, count);
            break;
          default:
            correctRows<5>(out + first, lastSums, panel, width, matrix + first, inBands, left, count);
            break;
        }
      }
    }
  }
};

// Lanes are output bands, rows are pixels.
template <int vectorBytes>
struct CorrectPixels : Blocks<vectorBytes> {
  using Base = Blocks<vectorBytes>;
  using Base::kLanes;
  using Base::kMaxRows;
  using Base::kWidth;
  using typename Base::Doubles;

  // Up to five pixels; a missing one repeats the first, and its sums are not stored.
  template <std::size_t vectors, typename Sample>
  KORVA_INLINE static void correctBands(Sample* out, double const* panel, std::size_t width, double const* spectra,
                                        std::size_t outBands, std::size_t inBands, std::size_t pixels,
                                        std::size_t count) {
    double const* values[kMaxRows];
    for (std::size_t r = 0; r < kMaxRows; ++r) values[r] = spectra + (r < pixels ? r : 0) * inBands;
    Doubles sums[kMaxRows][vectors];
    Base::sumProducts(sums, panel, width, values, inBands);
#pragma GCC unroll 5
    for (std::size_t r = 0; r < kMaxRows; ++r) {
      if (r < pixels) Base::store(out + r * outBands, sums[r], count);
    }
  }

  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands,
                               std::size_t inBands, std::size_t pixels) {
    std::size_t const width = Base::panelWidth(inBands);
    alignas(64) double panel[kPanelDoubles];
    alignas(64) double spectra[kMaxRows * kMaxPanelBands];
    for (std::size_t first = 0; first < outBands; first += width) {
      std::size_t const count = outBands - first < width ? outBands - first : width;
      // The matrix transposed, so that neighbouring lanes are neighbouring output bands.
      for (std::size_t o = 0; o < width && o < count + kWidth; ++o) {
        for (std::size_t i = 0; i < inBands; ++i) panel[i * width + o] = o < count ? matrix[first + o][i] : 0.0;
      }
      for (std::size_t pixel = 0; pixel < pixels; pixel += kMaxRows) {
        std::size_t const rows = pixels - pixel < kMaxRows ? pixels - pixel : kMaxRows;
        korva::widenRow<Doubles>(spectra, in + pixel * inBands, rows * inBands);
        Sample* const target = out + pixel * outBands + first;
        for (std::size_t k = 0; k < count; k += kWidth) {
          if (count - k > kLanes) {
            correctBands<2>(target + k, panel + k, width, spectra, outBands, inBands, rows, count - k);
          } else {
            correctBands<1>(target + k, panel + k, width, spectra, outBands, inBands, rows, count - k);
          }
        }
      }
    }
  }
};

template <typename Sample>
void correctPixels(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands,
                   std::size_t inBands, std::size_t pixels) {
  // Transposing the matrix pays from a few pixels on.
  constexpr std::size_t kFewPixels = 6;
  if (pixels >= kFewPixels && inBands <= kMaxPanelBands) {
    return korva::dispatchUpTo32<CorrectPixels>(out, in, matrix, outBands, inBands, pixels);
  }
  for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
    correctSpectrum(out + pixel * outBands, in + pixel * inBands, matrix, outBands, inBands);
  }
}

template <typename Sample>
void correctCube(Sample* const* const* out, double* scratch, Sample const* const* const* in,
                 double const* const* matrix, std::size_t outBands, std::size_t inBands, std::size_t samples) {
  if (outBands == 0) return;
  if (inBands <= kMaxPanelBands) {
    korva::dispatchUpTo32<CorrectCube>(out, scratch, in, matrix, outBands, inBands, samples);
  } else {
    korva::dispatch<CorrectCubeByPlanes>(out, scratch, in, matrix, outBands, inBands, samples);
  }
}

}  // namespace

// Pixel spectra -----------------------------------------------------------------------------------------------------

void KORVA_Ref_SC_ApplySpectralCorrection_float(float* out, float const* in, double const* const* matrix,
                                                unsigned int outBands, unsigned int inBands) {
  correctSpectrum(out, in, matrix, outBands, inBands);
}

void KORVA_Ref_SC_ApplySpectralCorrection_uint16(unsigned short* out, unsigned short const* in,
                                                 double const* const* matrix, unsigned int outBands,
                                                 unsigned int inBands) {
  correctSpectrum(out, in, matrix, outBands, inBands);
}

void KORVA_Ref_SC_ApplySpectralCorrection_BIP_float(float* out, float const* in, double const* const* matrix,
                                                    unsigned int outBands, unsigned int inBands, unsigned int pixels) {
  correctPixels(out, in, matrix, outBands, inBands, pixels);
}

void KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16(unsigned short* out, unsigned short const* in,
                                                     double const* const* matrix, unsigned int outBands,
                                                     unsigned int inBands, unsigned int pixels) {
  correctPixels(out, in, matrix, outBands, inBands, pixels);
}

// Band-sequential cubes ---------------------------------------------------------------------------------------------

void KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float(float* const* const* out, double* scratch,
                                                    float const* const* const* in, double const* const* matrix,
                                                    unsigned int outBands, unsigned int inBands, unsigned int samples) {
  correctCube(out, scratch, in, matrix, outBands, inBands, samples);
}

void KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16(unsigned short* const* const* out, double* scratch,
                                                     unsigned short const* const* const* in,
                                                     double const* const* matrix, unsigned int outBands,
                                                     unsigned int inBands, unsigned int samples) {
  correctCube(out, scratch, in, matrix, outBands, inBands, samples);
}

void KORVA_Ref_SC_ApplySpectralCorrection_BSQ(float* const* const* out, double* scratch, float const* const* const* in,
                                              double const* const* matrix, unsigned int outBands, unsigned int inBands,
                                              unsigned int samples) {
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float(out, scratch, in, matrix, outBands, inBands, samples);
}

void KORVA_Ref_SC_ApplySpectralCorrection_BSQ(unsigned short* const* const* out, double* scratch,
                                              unsigned short const* const* const* in, double const* const* matrix,
                                              unsigned int outBands, unsigned int inBands, unsigned int samples) {
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16(out, scratch, in, matrix, outBands, inBands, samples);
}
