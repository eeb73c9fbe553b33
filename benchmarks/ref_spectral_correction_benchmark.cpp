#include <algorithm>

#include "harness.h"
#include "product_peers.h"

namespace korva::benchmarks {
namespace {

// Weights whose sums stay within the samples' own range.
Planes<double> correctionMatrix(unsigned outBands, unsigned inBands) {
  Planes<double> const matrix = noise<double>({inBands, outBands}, 1, 3);
  for (unsigned k = 0; k < matrix.samples(); ++k) matrix.data()[k] /= 2048.0 * inBands;
  return matrix;
}

// A peer's product runs over panels of samples that stay in the cache, widened before and narrowed after.
constexpr unsigned long kPanel = 1024;

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

// prepare gets the peer's product and gives the whole call.
template <class T, class Prepare>
std::vector<Peer> spectralPeers(Prepare prepare) {
  std::vector<Peer> peers;
  for (ProductPeer const& product : productPeers()) {
    peers.push_back({.name = product.name,
                     .note = "with conversions, fused",
                     .tolerance = std::is_integral_v<T> ? 1 : 1e-2,
                     .prepare = [=] { return prepare(product.multiply); }});
  }
  return peers;
}

// Spectra one after another, all with one call or one with each; a peer takes `panel` of them at once.
template <class T, class Function, class Call>
void addSpectra(Shape const& shape, char const* routine, Function* plainForm, unsigned long panel, Call call) {
  auto const [slot, size, outBands, inBands] = shape;
  Planes<double> const matrix = correctionMatrix(outBands, inBands);
  Size const outSize{outBands, size.samples()}, inSize{inBands, size.samples()};
  add(
      shape.row<T>(routine), plainForm,
      [=](Function* apply) {
        return planesRun(Planes<T>(outSize), noise<T>(inSize),
                         [=](auto const& out, auto const& in) { call(apply, out, in, matrix.rows(), shape); });
      },
      spectralPeers<T>([=](auto* multiply) {
        Planes<double> const from({inSize.width, panel}), to({outSize.width, panel});
        return planesRun(Planes<T>(outSize), noise<T>(inSize), [=](auto const& out, auto const& in) {
          for (unsigned long first = 0; first < inSize.height; first += panel) {
            unsigned long const pixels = std::min(panel, inSize.height - first);
            widen(from.data(), in.rows()[first], pixels * inSize.width);
            multiply(to.data(), from.data(), matrix.data(), int(pixels), int(outSize.width), int(inSize.width), true);
            narrow(out.rows()[first], to.data(), pixels * outSize.width);
          }
        });
      }));
}

template <class T, class Function>
void addSingleSpectra(unsigned bands, char const* routine, Function* plainForm) {
  addSpectra<T>({"one", {1000, 1}, bands, bands}, routine, plainForm, 1,
                [](Function* apply, auto const& out, auto const& in, double** matrix, Shape const& of) {
                  for (unsigned long k = 0; k < of.size.samples(); ++k)
                    apply(out.rows()[k], in.rows()[k], matrix, of.outBands, of.inBands);
                });
}

template <class T, class Function>
void addInterleaved(Shape const& shape, char const* routine, Function* plainForm) {
  addSpectra<T>(shape, routine, plainForm, kPanel,
                [](Function* apply, auto const& out, auto const& in, double** matrix, Shape const& of) {
                  apply(out.data(), in.data(), matrix, of.outBands, of.inBands,
                        static_cast<unsigned>(of.size.samples()));
                });
}

template <class T, class Function>
void addSequential(Shape const& shape, char const* routine, Function* plainForm) {
  auto const [slot, size, outBands, inBands] = shape;
  Planes<double> const matrix = correctionMatrix(outBands, inBands);
  add(
      shape.row<T>(routine), plainForm,
      [=](Function* apply) {
        return planesRun(Planes<T>(size, outBands), noise<T>(size, inBands),
                         [=, scratch = Planes<double>(size)](auto const& out, auto const& in) {
                           apply(out.cube(), scratch.data(), in.cube(), matrix.rows(), outBands, inBands,
                                 static_cast<unsigned>(size.samples()));
                         });
      },
      spectralPeers<T>([=](auto* multiply) {
        Planes<double> const from({kPanel, inBands}), to({kPanel, outBands});
        return planesRun(Planes<T>(size, outBands), noise<T>(size, inBands), [=](auto const& out, auto const& in) {
          for (unsigned long first = 0; first < size.samples(); first += kPanel) {
            unsigned long const samples = std::min(kPanel, size.samples() - first);
            for (unsigned i = 0; i < inBands; ++i) widen(from.data() + i * samples, in.data(i) + first, samples);
            multiply(to.data(), matrix.data(), from.data(), int(outBands), int(samples), int(inBands), false);
            for (unsigned o = 0; o < outBands; ++o) narrow(out.data(o) + first, to.data() + o * samples, samples);
          }
        });
      }));
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
