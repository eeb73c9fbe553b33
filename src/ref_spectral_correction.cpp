// SC: a correction matrix applied to pixel spectra, BIP runs and BSQ cubes.
#include "korva_reference_api.h"

#include <cstddef>

#include "internal/multiversion.h"
#include "internal/sample_conversion.h"
#include "internal/strict_float.h"

namespace {

template <typename Sample>
void correctSpectrum(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands,
                     std::size_t inBands) {
  for (std::size_t o = 0; o < outBands; ++o) {
    double sum = 0.0;
    for (std::size_t i = 0; i < inBands; ++i) sum += static_cast<double>(in[i]) * matrix[o][i];
    out[o] = korva::toSample<Sample>(sum);
  }
}

template <typename Sample>
void correctPixels(Sample* out, Sample const* in, double const* const* matrix, std::size_t outBands,
                   std::size_t inBands, std::size_t pixels) {
  for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
    correctSpectrum(out + pixel * outBands, in + pixel * inBands, matrix, outBands, inBands);
  }
}

template <typename Sample>
void correctCube(Sample* const* const* out, double* scratch, Sample const* const* const* in,
                 double const* const* matrix, std::size_t outBands, std::size_t inBands, std::size_t samples) {
  for (std::size_t o = 0; o < outBands; ++o) {
    for (std::size_t k = 0; k < samples; ++k) scratch[k] = 0.0;
    for (std::size_t i = 0; i < inBands; ++i) {
      Sample const* const plane = in[i][0];
      double const weight = matrix[o][i];
      for (std::size_t k = 0; k < samples; ++k) scratch[k] += static_cast<double>(plane[k]) * weight;
    }
    Sample* const result = out[o][0];
    for (std::size_t k = 0; k < samples; ++k) {
      // Not max(): a NaN sum must reach the output.
      result[k] = scratch[k] < 0.0 ? Sample{0} : korva::toSample<Sample>(scratch[k]);
    }
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
