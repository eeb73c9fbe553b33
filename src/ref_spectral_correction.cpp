// SC: a correction matrix applied to pixel spectra, BIP runs and BSQ cubes.
#include "korva_reference_api.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/prefetch.h"
#include "internal/sample_conversion.h"
#include "internal/strict_float.h"

namespace {

// Working memory on the stack, 56 KiB: it streams through the first two cache levels.
constexpr std::size_t kWorkDoubles = 7168;

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

  // `wanted` groups of kLanes output bands.
  template <std::size_t groups = 4, typename Sample>
  KORVA_INLINE static void correctBands(std::size_t wanted, Sample* out, Sample const* in, double const* const* matrix,
                                        std::size_t inBands) {
    if constexpr (groups > 1) {
      if (wanted < groups) return correctBands<groups - 1>(wanted, out, in, matrix, inBands);
    }
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
      correctBands(groups, out + first, in, matrix + first, inBands);
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

// Many spectra are a product of matrices, computed in blocks of rows by two vectors whose sums stay in registers while
// the input bands pass in order: five rows leave just enough of 16 registers for what else a block needs, ten of 32; on
// ARM, g++ 12 keeps sums in memory from eight on. One factor lies widened in a panel, one block's lanes after
// another's, [band][lanes]; the other gives one value per row and band. A product of two numbers does not depend on
// their order, so the same block serves cubes, where lanes are neighbouring samples and rows are output bands, and
// interleaved pixels, where lanes are output bands and rows are pixels.
template <int vectorBytes>
struct Blocks {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr std::size_t kWidth = 2 * kLanes;
  static constexpr std::size_t kMaxRows = vectorBytes == 64 ? 10 : KORVA_ARM_INTRINSICS ? 7 : 5;
  using Doubles = korva::Vector<double, kLanes>;

  // The sums of `rows` rows and `vectors` vectors of lanes over all input bands.
  template <std::size_t rows, std::size_t vectors>
  KORVA_INLINE static void sumProducts(Doubles (&sums)[rows][vectors], double const* block, double const* const* values,
                                       std::size_t inBands) {
    double const* row[rows];
#pragma GCC unroll 10
    for (std::size_t r = 0; r < rows; ++r) {
      row[r] = values[r];
#pragma GCC unroll 2
      for (std::size_t v = 0; v < vectors; ++v) sums[r][v] = Doubles{};
    }
    for (std::size_t band = 0; band < inBands; ++band) {
      Doubles lanes[vectors];
#pragma GCC unroll 2
      for (std::size_t v = 0; v < vectors; ++v) {
        lanes[v] = korva::loadLanes<Doubles>(block + band * kWidth + v * kLanes);
      }
#pragma GCC unroll 10
      for (std::size_t r = 0; r < rows; ++r) {
        double const value = row[r][band];
#pragma GCC unroll 2
        for (std::size_t v = 0; v < vectors; ++v) sums[r][v] += lanes[v] * value;
      }
    }
  }

  // Rounds the first `count` lanes of a row of sums to samples.
  template <std::size_t vectors, typename Sample>
  KORVA_INLINE static void store(Sample* target, Doubles const (&sums)[vectors], std::size_t count) {
    Sample rest[vectors * kLanes];
    Sample* const whole = count < vectors * kLanes ? rest : target;
    if constexpr (vectors == 2) {
      korva::storeConverted(whole, sums[0], sums[1]);
    } else {
      korva::storeConverted(whole, sums[0]);
    }
    if (whole == rest) std::memcpy(target, rest, count * sizeof(Sample));
  }
};

// Lanes are neighbouring samples, rows are output bands.
template <int vectorBytes>
struct CorrectCube : Blocks<vectorBytes> {
  using Base = Blocks<vectorBytes>;
  using Base::kLanes;
  using Base::kMaxRows;
  using Base::kWidth;
  using typename Base::Doubles;
  static constexpr std::size_t kMostBlocks = 15;
  static constexpr std::size_t kMostBands = kWorkDoubles / kWidth;

  // `height` output bands, for the panel's samples. Sums below 0 become 0; NaN stays NaN.
  template <std::size_t rows = kMaxRows, typename Sample>
  KORVA_INLINE static void correctRows(std::size_t height, Sample* const* const* out, double* scratch,
                                       double const* panel, double const* const* matrix, std::size_t inBands,
                                       std::size_t left, std::size_t count) {
    if constexpr (rows > 1) {
      if (height < rows) {
        return correctRows<rows - 1>(height, out, scratch, panel, matrix, inBands, left, count);
      }
    }
    for (std::size_t k = 0; k < count; k += kWidth) {
      Doubles sums[rows][2];
      Base::sumProducts(sums, panel + k * inBands, matrix, inBands);
      // The caller's working row shows the sums of the last output band.
      if (scratch != nullptr) Base::store(scratch + left + k, sums[rows - 1], count - k);
#pragma GCC unroll 10
      for (std::size_t r = 0; r < rows; ++r) {
#pragma GCC unroll 2
        for (std::size_t v = 0; v < 2; ++v) sums[r][v] = korva::greater(Doubles{}, sums[r][v]);
        Base::store(out[r][0] + left + k, sums[r], count - k);
      }
    }
  }

  template <typename Sample>
  KORVA_INLINE static void run(Sample* const* const* out, double* scratch, Sample const* const* const* in,
                               double const* const* matrix, std::size_t outBands, std::size_t inBands,
                               std::size_t samples) {
    alignas(64) double panel[kWorkDoubles];
    std::size_t const width = std::min(kWorkDoubles / std::max(inBands, std::size_t{1}) / kWidth, kMostBlocks) * kWidth;
    std::size_t const blocks = (outBands + kMaxRows - 1) / kMaxRows;
    for (std::size_t left = 0; left < samples; left += width) {
      std::size_t const count = std::min(samples - left, width);
      // There are more planes than the processor foresees by itself.
      bool const isNextWhole = samples - left >= 2 * width;
      for (std::size_t i = 0; i < inBands; ++i) {
        Sample const* const source = in[i][0] + left;
        double* target = panel + i * kWidth;
        std::size_t k = 0;
        for (; k + kWidth <= count; k += kWidth, target += kWidth * inBands) {
          for (std::size_t v = 0; v < kWidth; v += kLanes) {
            korva::storeLanes(target + v, korva::loadWidened<Doubles>(source + k + v));
          }
        }
        for (std::size_t lane = 0; k < count && lane < kWidth; ++lane) {
          target[lane] = k + lane < count ? static_cast<double>(source[k + lane]) : 0.0;
        }
        if (isNextWhole) korva::prefetchRow<false>(source + width, width);
      }
      for (std::size_t block = 0; block < blocks; ++block) {
        // Blocks of nearly equal height: four and four run faster than five and three.
        std::size_t const first = block * outBands / blocks;
        std::size_t const height = (block + 1) * outBands / blocks - first;
        correctRows(height, out + first, block + 1 == blocks ? scratch : nullptr, panel, matrix + first, inBands, left,
                    count);
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
  static constexpr std::size_t kMostBands = kWorkDoubles / (kWidth + kMaxRows);

  // Where the block of output bands from `band` on starts: the last one overlaps the one before, if there is one.
  static std::size_t blockStart(std::size_t band, std::size_t outBands) {
    std::size_t const width = outBands - band > kLanes ? kWidth : kLanes;
    return std::min(band, std::max(outBands, width) - width);
  }

  // A block of pixels; a missing one repeats the first, and its sums are not stored.
  template <std::size_t vectors, typename Sample>
  KORVA_INLINE static void correctBands(Sample* out, double const* panel, double const* spectra, std::size_t outBands,
                                        std::size_t inBands, std::size_t pixels, std::size_t count) {
    double const* values[kMaxRows];
    for (std::size_t r = 0; r < kMaxRows; ++r) values[r] = spectra + (r < pixels ? r : 0) * inBands;
    Doubles sums[kMaxRows][vectors];
    Base::sumProducts(sums, panel, values, inBands);
#pragma GCC unroll 10
    for (std::size_t r = 0; r < kMaxRows; ++r) {
      if (r < pixels) Base::store(out + r * outBands, sums[r], count);
    }
  }

  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands,
                               std::size_t inBands, std::size_t pixels) {
    alignas(64) double spectra[kWorkDoubles];
    double* const panel = spectra + kMaxRows * inBands;
    std::size_t const width = (kWorkDoubles / std::max(inBands, std::size_t{1}) - kMaxRows) / kWidth * kWidth;
    for (std::size_t first = 0; first < outBands; first += width) {
      std::size_t const last = std::min(outBands, first + width);
      // The matrix transposed, so that neighbouring lanes are neighbouring output bands.
      for (std::size_t band = first; band < last; band += kWidth) {
        double* const block = panel + (band - first) * inBands;
        for (std::size_t lane = 0, o = blockStart(band, outBands); lane < kWidth; ++lane, ++o) {
          for (std::size_t i = 0; i < inBands; ++i) block[i * kWidth + lane] = o < outBands ? matrix[o][i] : 0.0;
        }
      }
      for (std::size_t pixel = 0; pixel < pixels; pixel += kMaxRows) {
        std::size_t const rows = std::min(pixels - pixel, kMaxRows);
        korva::widenRow<Doubles>(spectra, in + pixel * inBands, rows * inBands);
        for (std::size_t band = first; band < last; band += kWidth) {
          double const* const block = panel + (band - first) * inBands;
          std::size_t const start = blockStart(band, outBands);
          Sample* const target = out + pixel * outBands + start;
          if (outBands - band > kLanes) {
            correctBands<2>(target, block, spectra, outBands, inBands, rows, outBands - start);
          } else {
            correctBands<1>(target, block, spectra, outBands, inBands, rows, outBands - start);
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
  if (pixels >= kFewPixels && inBands <= CorrectPixels<64>::kMostBands) {
    return korva::dispatch<CorrectPixels>(out, in, matrix, outBands, inBands, pixels);
  }
  if (pixels >= kFewPixels && inBands <= CorrectPixels<32>::kMostBands) {
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
  if (inBands <= CorrectCube<64>::kMostBands) {
    korva::dispatch<CorrectCube>(out, scratch, in, matrix, outBands, inBands, samples);
  } else if (inBands <= CorrectCube<32>::kMostBands) {
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
