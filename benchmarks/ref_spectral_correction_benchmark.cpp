#include <algorithm>

#include "harness.h"
#ifdef KORVA_WITH_OPENBLAS
#include <cblas.h>
#endif

namespace korva::benchmarks {
namespace {

// Weights whose sums stay within the samples' own range.
Planes<double> correctionMatrix(unsigned outBands, unsigned inBands) {
  Planes<double> const matrix = noise<double>({inBands, outBands}, 1, 3);
  for (unsigned k = 0; k < matrix.samples(); ++k) matrix.data()[k] /= 2048.0 * inBands;
  return matrix;
}

#ifdef KORVA_WITH_OPENBLAS

// The product runs over panels of samples that stay in the cache, widened before and narrowed after.
constexpr unsigned kPanel = 1024;

template <class T>
void widen(double* to, T const* from, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) to[k] = static_cast<double>(from[k]);
}

void narrow(float* to, double const* from, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) to[k] = static_cast<float>(std::max(from[k], 0.0));
}
void narrow(unsigned short* to, double const* from, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k)
    to[k] = static_cast<unsigned short>(static_cast<int>(std::max(from[k], 0.0) + 0.5));
}

template <class T>
Run dgemmInterleaved(Size size, unsigned outBands, unsigned inBands) {
  Planes<T> const out({outBands, size.samples()}), in = noise<T>({inBands, size.samples()});
  Planes<double> const matrix = correctionMatrix(outBands, inBands), from({inBands, kPanel}), to({outBands, kPanel});
  return Run{[=] {
               for (std::size_t first = 0; first < size.samples(); first += kPanel) {
                 std::size_t const pixels = std::min<std::size_t>(kPanel, size.samples() - first);
                 widen(from.data(), in.data() + first * inBands, pixels * inBands);
                 cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, static_cast<int>(pixels),
                             static_cast<int>(outBands), static_cast<int>(inBands), 1, from.data(),
                             static_cast<int>(inBands), matrix.data(), static_cast<int>(inBands), 0, to.data(),
                             static_cast<int>(outBands));
                 narrow(out.data() + first * outBands, to.data(), pixels * outBands);
               }
             },
             out};
}

template <class T>
Run dgemmSequential(Size size, unsigned outBands, unsigned inBands) {
  Planes<T> const out(size, outBands), in = noise<T>(size, inBands);
  Planes<double> const matrix = correctionMatrix(outBands, inBands), from({kPanel, inBands}), to({kPanel, outBands});
  return Run{[=] {
               for (std::size_t first = 0; first < size.samples(); first += kPanel) {
                 std::size_t const samples = std::min<std::size_t>(kPanel, size.samples() - first);
                 for (unsigned i = 0; i < inBands; ++i) widen(from.rows()[i], in.data(i) + first, samples);
                 cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, static_cast<int>(outBands),
                             static_cast<int>(samples), static_cast<int>(inBands), 1, matrix.data(),
                             static_cast<int>(inBands), from.data(), kPanel, 0, to.data(), kPanel);
                 for (unsigned o = 0; o < outBands; ++o) narrow(out.data(o) + first, to.rows()[o], samples);
               }
             },
             out};
}

template <class T>
Run dgemvSpectra(Size size, unsigned outBands, unsigned inBands) {
  Planes<T> const out({outBands, size.samples()}), in = noise<T>({inBands, size.samples()});
  Planes<double> const matrix = correctionMatrix(outBands, inBands), from({inBands, 1}), to({outBands, 1});
  return Run{[=] {
               for (std::size_t k = 0; k < size.samples(); ++k) {
                 widen(from.data(), in.data() + k * inBands, inBands);
                 cblas_dgemv(CblasRowMajor, CblasNoTrans, static_cast<int>(outBands), static_cast<int>(inBands), 1,
                             matrix.data(), static_cast<int>(inBands), from.data(), 1, 0, to.data(), 1);
                 narrow(out.data() + k * outBands, to.data(), outBands);
               }
             },
             out};
}

template <class T, class Prepare>
Peer openBlasPeer(char const* name, Prepare prepare) {
  return {.name = name,
          .note = "with conversions, fused",
          .tolerance = std::is_integral_v<T> ? 1 : 1e-2,
          .prepare = prepare};
}
#define KORVA_OPENBLAS_PEER(T, name, call) openBlasPeer<T>(name, [=] { return call; })
#else
#define KORVA_OPENBLAS_PEER(T, name, call) \
  Peer {}
#endif

struct Shape {
  std::string slot;
  Size size;
  unsigned outBands, inBands;

  template <class T>
  Row row(char const* routine) const {
    double const bytes = sizeof(T) * (1.0 + static_cast<double>(inBands) / outBands);
    return {routine,
            std::to_string(inBands) + " to " + std::to_string(outBands) + " bands",
            {slot, size},
            {.doubleOperations = 2.0 * inBands, .bytes = bytes},
            size.samples() * outBands};
  }
};

// Spectra one after another: all with one call, or one with each.
template <class T, class Function, class Call>
void addSpectra(Shape const& shape, char const* routine, Function* plainForm, Call call, Peer peer) {
  add(
      shape.row<T>(routine), plainForm,
      [=](Function* apply) {
        auto const [slot, size, outBands, inBands] = shape;
        return planesRun(Planes<T>({outBands, size.samples()}), noise<T>({inBands, size.samples()}),
                         [=, matrix = correctionMatrix(outBands, inBands)](auto const& out, auto const& in) {
                           call(apply, out, in, matrix.rows(), shape);
                         });
      },
      peer);
}

template <class T, class Function>
void addSingleSpectra(unsigned bands, char const* routine, Function* plainForm) {
  Shape const shape{"one", {1000, 1}, bands, bands};
  addSpectra<T>(
      shape, routine, plainForm,
      [](Function* apply, auto const& out, auto const& in, double** matrix, Shape const& of) {
        for (unsigned long k = 0; k < of.size.samples(); ++k)
          apply(out.rows()[k], in.rows()[k], matrix, of.outBands, of.inBands);
      },
      KORVA_OPENBLAS_PEER(T, "dgemv", dgemvSpectra<T>(shape.size, bands, bands)));
}

template <class T, class Function>
void addInterleaved(Shape const& shape, char const* routine, Function* plainForm) {
  addSpectra<T>(
      shape, routine, plainForm,
      [](Function* apply, auto const& out, auto const& in, double** matrix, Shape const& of) {
        apply(out.data(), in.data(), matrix, of.outBands, of.inBands, static_cast<unsigned>(of.size.samples()));
      },
      KORVA_OPENBLAS_PEER(T, "dgemm", dgemmInterleaved<T>(shape.size, shape.outBands, shape.inBands)));
}

template <class T, class Function>
void addSequential(Shape const& shape, char const* routine, Function* plainForm) {
  add(
      shape.row<T>(routine), plainForm,
      [=](Function* apply) {
        Planes<double> const matrix = correctionMatrix(shape.outBands, shape.inBands), scratch(shape.size);
        return planesRun(Planes<T>(shape.size, shape.outBands), noise<T>(shape.size, shape.inBands),
                         [=](auto const& out, auto const& in) {
                           apply(out.cube(), scratch.data(), in.cube(), matrix.rows(), shape.outBands, shape.inBands,
                                 static_cast<unsigned>(shape.size.samples()));
                         });
      },
      KORVA_OPENBLAS_PEER(T, "dgemm", dgemmSequential<T>(shape.size, shape.outBands, shape.inBands)));
}

}  // namespace

void registerSpectralCorrection() {
  for (unsigned const bands : {16u, 25u}) {
    addSingleSpectra<float>(bands, "KORVA_Ref_SC_ApplySpectralCorrection_float",
                            plain::SC_ApplySpectralCorrection_float);
    addSingleSpectra<unsigned short>(bands, "KORVA_Ref_SC_ApplySpectralCorrection_uint16",
                                     plain::SC_ApplySpectralCorrection_uint16);
  }

  // Cubes from whole frames: 16 bands of a 4 x 4 mosaic, 25 of a 5 x 5 one. And one with a line scanner's bands.
  std::vector<Shape> shapes;
  for (auto const& [slot, size] : frameSizes({16, 16})) {
    shapes.push_back({slot, {size.width / 4, size.height / 4}, 16, 16});
    // The odd frame has as many whole cells of 5 x 5 as the even one.
    if (slot != "odd") shapes.push_back({slot, {size.width / 5, size.height / 5}, 25, 25});
  }
  shapes.push_back({"one", {64, 64}, 100, 150});
  for (Shape const& shape : shapes) {
    addInterleaved<float>(shape, "KORVA_Ref_SC_ApplySpectralCorrection_BIP_float",
                          plain::SC_ApplySpectralCorrection_BIP_float);
    addInterleaved<unsigned short>(shape, "KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16",
                                   plain::SC_ApplySpectralCorrection_BIP_uint16);
    addSequential<float>(shape, "KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float",
                         plain::SC_ApplySpectralCorrection_BSQ_float);
    addSequential<unsigned short>(shape, "KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16",
                                  plain::SC_ApplySpectralCorrection_BSQ_uint16);
  }
}

}  // namespace korva::benchmarks
