// Rows of the benchmark: one routine at one size, in several forms that run interleaved in one program.
//
//   ours       the library, which chooses its kernels for the processor
//   baseline   the same library without vector copies
//   plain      the literal definition, one sample at a time
//   peer0 ...  what a user would call instead, where something is
//
// korva_benchmark_avx2 is the same program with everything, peers included, held to AVX2, where there is more.
// The libraries export the same names, so they are loaded by path. Every form runs once on the row's input before
// anything is measured: our copies have to equal the plain form in every bit, a peer within what its row allows.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/plain_definitions.h"

namespace korva::benchmarks {

namespace plain = korva::plain;

struct Size {
  unsigned long width, height;
  unsigned long samples() const { return width * height; }
};

// Band planes in the library's array layout; copies share the samples.
template <class T>
class Planes {
 public:
  explicit Planes(Size size, unsigned long bands = 1) : size_(size), bands_(bands), store_(std::make_shared<Store>()) {
    store_->samples.resize(size.samples() * bands);
    for (unsigned long row = 0; row < size.height * bands; ++row)
      store_->rows.push_back(store_->samples.data() + row * size.width);
    for (unsigned long band = 0; band < bands; ++band)
      store_->bands.push_back(store_->rows.data() + band * size.height);
  }

  Size size() const { return size_; }
  unsigned long bands() const { return bands_; }
  unsigned long samples() const { return size_.samples() * bands_; }
  T*** cube() const { return store_->bands.data(); }
  T** rows(unsigned long band = 0) const { return store_->bands[band]; }
  T* data(unsigned long band = 0) const { return store_->samples.data() + band * size_.samples(); }

 private:
  struct Store {
    std::vector<T> samples;
    std::vector<T*> rows;
    std::vector<T**> bands;
  };
  Size size_;
  unsigned long bands_;
  std::shared_ptr<Store> store_;
};

// Uniformly distributed 12-bit counts, with a fraction where the type has one. The same seed gives the same samples.
template <class T>
Planes<T> noise(Size size, unsigned long bands = 1, unsigned seed = 1) {
  Planes<T> planes(size, bands);
  T* const samples = planes.data();
  for (unsigned k = 0; k < planes.samples(); ++k) {
    unsigned hash = (k + seed * 0x9e3779b9u) * 0x85ebca6bu;
    hash = (hash ^ (hash >> 15)) * 0xc2b2ae35u;
    hash ^= hash >> 16;
    samples[k] = static_cast<T>((hash >> 8) / 4096.0);
  }
  return planes;
}

// What a form wrote, for comparison with another form's.
struct Output {
  template <class T>
  Output(Planes<T> const& planes)
      : data(planes.data()),
        bytes(planes.samples() * sizeof(T)),
        size(planes.size()),
        samples(planes.samples()),
        read([](void const* from, unsigned long k) { return static_cast<double>(static_cast<T const*>(from)[k]); }) {}

  void const* data;
  unsigned long bytes;
  Size size;
  unsigned long samples;
  double (*read)(void const* from, unsigned long k);
};

// One form, ready to be called again and again. The closure owns the arrays.
struct Run {
  std::function<void()> call;
  Output output;
  std::function<void()> rearrange = {};  // brings a peer's result into our layout, for comparison only
};

// The usual form: one set of planes in, one out.
template <class Out, class In, class Call>
Run planesRun(Planes<Out> out, Planes<In> in, Call call) {
  return {[=]() mutable { call(out, in); }, out};
}

struct Peer {
  char const* name = "";
  char const* note = "";     // how its arithmetic or its work differs
  double tolerance = 0;      // largest difference from the plain form; negative: not the same work, no comparison
  unsigned long margin = 0;  // samples at each edge that follow another rule
  double outliers = 0;       // share of samples that may differ by more
  std::function<Run()> prepare = {};
};

// What the definition asks of the machine per sample, if everything that can be shared between samples is: the row's
// limit is the slowest of these at the machine's rates. Bytes count each array that must be read or written once.
struct Work {
  double doubleOperations = 0;  // multiplications and additions, half of each
  double divisions = 0;         // of doubles
  double minMaxUint16 = 0;
  double minMaxFloat = 0;
  double conversions = 0;  // between float and double
  double bytes = 0;
};

// A size and its place in the tables: frame, cold (a frame after other work), odd, cache, one or road; in the scaling
// run, the size itself.
struct SlottedSize {
  std::string slot;
  Size size;
};

struct Row {
  char const* routine;
  std::string variant;  // tells rows of one routine apart
  SlottedSize at;
  Work work = {};
  unsigned long samples = 0;  // written by a call, where these are not width * height
};

enum class Form { kOurs, kBaseline, kPlain, kPeer };  // from kPeer on, the row's peers

void* symbol(Form form, char const* name);

template <class Function>
Function* routine(Form form, char const* name, Function* plainForm) {
  return form == Form::kPlain ? plainForm : reinterpret_cast<Function*>(symbol(form, name));
}

void addRow(Row row, std::function<Run(Form)> prepare, std::vector<Peer> peers = {});

// A row of a single routine: prepare gets the function of the form.
template <class Function, class Prepare>
void add(Row row, Function* plainForm, Prepare prepare, std::vector<Peer> peers = {}) {
  addRow(
      row, [=](Form form) { return prepare(routine(form, row.routine, plainForm)); }, std::move(peers));
}

// The sizes to register: those of the table, or those of the scaling run. Widths are rounded down to the multiple.
std::vector<SlottedSize> frameSizes(Size least = {1, 1}, unsigned long widthMultiple = 1);

// Loads the copies of the library; returns the vectors that ours uses on this machine.
char const* loadLibraries();
void measureScaling();
void registerMachineLimits();

void registerCubeGeneration();
void registerReflectanceCalculation();
void registerSpectralCorrection();
void registerDemosaicing();
void registerMedianFiltering();
void registerImageOperations();
void registerRgbxDemosaicing();
void registerRgbxNewWli();
void registerRoads();

}  // namespace korva::benchmarks
