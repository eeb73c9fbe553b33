#include "harness.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>
#include <set>

namespace korva::benchmarks {
namespace {

constexpr char const* kFormNames[] = {"ours", "baseline", "plain"};

std::string nameOf(Form form) {
  return form < Form::kPeer ? kFormNames[int(form)] : "peer" + std::to_string(int(form) - int(Form::kPeer));
}

void* libraries[2];  // ours and baseline
bool scaling = false;

// One routine of each family; the others of a family walk their arrays in the same way.
std::set<std::string> const kScaled = {
    "KORVA_Ref_CG_SSM_GetBandImage_uint16",
    "KORVA_Ref_RC_ComputeReflectance_uint16",
    "KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float",
    "KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16",
    "KORVA_Ref_MF_Median2D_5x5_uint16",
    "KORVA_Ref_MF_Median2D_3x3_float",
    "KORVA_Ref_ApplyKernel7x7_float",
    "KORVA_Ref_RGBToYCbCr_float",
    "KORVA_Ref_RGBX_DemosaicFrame_float",
    "KORVA_Ref_RGBX_ComputeNewWLI_float",
};

// The first variant of a routine stands for all, and sizes of their own stay out.
bool isScaled(Row const& row) {
  static std::map<std::string, std::string> variants;
  return kScaled.contains(row.routine) && row.at.slot != "one" &&
         variants.emplace(row.routine, row.variant).first->second == row.variant;
}

// Empty when the outputs agree, otherwise what does not.
std::string difference(Output const& expected, Output const& found) {
  if (expected.bytes == found.bytes && std::memcmp(expected.data, found.data, found.bytes) == 0) return "";
  return "differs from the plain form";
}

std::string difference(Output const& expected, Output const& found, Peer const& peer) {
  if (peer.tolerance < 0) return "";
  if (expected.samples != found.samples) return "is of another size than the plain form";
  unsigned long compared = 0, outside = 0;
  double largest = 0;
  for (unsigned long k = 0; k < expected.samples; ++k) {
    unsigned long const column = k % expected.size.width, row = k / expected.size.width % expected.size.height;
    if (std::min(column, row) < peer.margin) continue;
    if (expected.size.width - column <= peer.margin || expected.size.height - row <= peer.margin) continue;
    double const error = std::abs(expected.read(expected.data, k) - found.read(found.data, k));
    ++compared;
    if (error <= peer.tolerance) continue;
    ++outside;
    largest = std::max(largest, error);
  }
  if (compared > 0 && static_cast<double>(outside) <= peer.outliers * static_cast<double>(compared)) return "";
  return std::to_string(outside) + " of " + std::to_string(compared) + " samples differ, by up to " +
         std::to_string(largest);
}

struct Entry {
  Row row;
  std::function<Run(Form)> prepare;
  std::vector<Peer> peers;
  bool verified = false;

  Peer const* peerOf(Form form) const { return form < Form::kPeer ? nullptr : &peers[int(form) - int(Form::kPeer)]; }
  Run prepareForm(Form form) const { return form < Form::kPeer ? prepare(form) : peerOf(form)->prepare(); }

  std::vector<Form> forms() const {
    std::vector<Form> forms{Form::kOurs};
    if (scaling) return forms;
    bool const isWhole = row.at.slot != "cold" && row.at.slot != "odd";
    if (isWhole) forms.push_back(Form::kBaseline);
    if (row.at.slot != "cold") forms.push_back(Form::kPlain);
    for (int k = 0; row.at.slot != "odd" && k < int(peers.size()); ++k) forms.push_back(Form(int(Form::kPeer) + k));
    return forms;
  }

  std::string verify(Run const& plainRun) {
    if (verified) return "";
    for (Form const form : forms()) {
      if (form == Form::kPlain) continue;
      Run const run = prepareForm(form);
      run.call();
      if (run.rearrange) run.rearrange();
      std::string const fault = form < Form::kPeer ? difference(plainRun.output, run.output)
                                                   : difference(plainRun.output, run.output, *peerOf(form));
      if (!fault.empty()) return nameOf(form) + " " + fault;
    }
    verified = true;
    return "";
  }
};

double threadSeconds() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// What a host does between two frames, as far as the caches can tell: twice the last one of large desktops is touched.
void doOtherWork() {
  static std::vector<unsigned> other(16 << 20);
  for (std::size_t k = 0; k < other.size(); k += 16) ++other[k];
  benchmark::ClobberMemory();
}

void measure(benchmark::State& state, Entry& entry, Form form) {
  Run const run = entry.prepareForm(form);
  // The first call of a peer makes its intermediate images. The plain form, the slowest, has no need of another call.
  if (form != Form::kPlain || !entry.verified) run.call();
  if (form == Form::kPlain) {
    std::string const fault = entry.verify(run);
    if (!fault.empty()) return state.SkipWithError(fault.c_str());
  }
  Row const& row = entry.row;
  bool const isCold = row.at.slot == "cold";
  for (auto _ : state) {
    if (isCold) doOtherWork();
    double const start = isCold ? threadSeconds() : 0;
    run.call();
    benchmark::ClobberMemory();
    if (isCold) state.SetIterationTime(threadSeconds() - start);
  }
  state.counters["samples"] = static_cast<double>(row.samples);
  std::pair<char const*, double> const work[] = {
      {"doubleOperations", row.work.doubleOperations}, {"divisions", row.work.divisions},
      {"minMaxUint16", row.work.minMaxUint16},         {"minMaxFloat", row.work.minMaxFloat},
      {"conversions", row.work.conversions},           {"bytes", row.work.bytes}};
  for (auto const& [resource, perSample] : work)
    if (perSample > 0) state.counters[resource] = perSample;
  Peer const* const peer = entry.peerOf(form);
  state.SetLabel(peer ? std::string(peer->name) + ";" + peer->note : "");
}

}  // namespace

char const* loadLibraries() {
  char const* const paths[] = {KORVA_OURS_PATH, KORVA_BASELINE_PATH};
  for (int k = 0; k < 2; ++k) {
    libraries[k] = dlopen(paths[k], RTLD_NOW | RTLD_LOCAL);
    if (libraries[k]) continue;
    std::cerr << dlerror() << '\n';
    std::exit(1);
  }
  // This program is compiled for what the library may choose.
#if defined(__AVX512VBMI2__)
  return "AVX-512";
#elif defined(__AVX2__)
  return "AVX2";
#else
  return "baseline";
#endif
}

void* symbol(Form form, char const* name) {
  void* const address = dlsym(libraries[int(form)], name);
  if (address) return address;
  std::cerr << dlerror() << '\n';
  std::exit(1);
}

void measureScaling() { scaling = true; }

std::vector<SlottedSize> frameSizes(Size least, unsigned long widthMultiple) {
  std::vector<SlottedSize> sizes;
  if (!scaling) {
    sizes = {{"frame", {2048, 1088}}, {"cold", {2048, 1088}}, {"odd", {2047, 1087}}, {"cache", {512, 512}}};
  } else {
    for (unsigned long const edge : {64ul, 128ul, 256ul, 512ul, 1024ul, 2048ul, 4096ul, 8192ul})
      sizes.push_back({"", {edge, edge}});
    for (unsigned long const width : {511ul, 513ul, 4095ul, 4096ul, 4097ul}) sizes.push_back({"", {width, 512}});
    for (unsigned long const width : {1ul, 2ul, 3ul, 4ul, 5ul, 6ul, 7ul, 8ul, 9ul, 16ul, 17ul, 33ul})
      sizes.push_back({"", {width, 4096}});
    for (SlottedSize& entry : sizes)
      entry.slot = std::to_string(entry.size.width) + "x" + std::to_string(entry.size.height);
  }
  for (SlottedSize& entry : sizes) entry.size.width -= entry.size.width % widthMultiple;
  std::erase_if(sizes, [&](SlottedSize const& entry) {
    return entry.size.width < least.width || entry.size.height < least.height;
  });
  return sizes;
}

void addRow(Row row, std::function<Run(Form)> prepare, std::vector<Peer> peers) {
  if (scaling && !isScaled(row)) return;
  if (row.samples == 0) row.samples = row.at.size.samples();
  std::erase_if(peers, [](Peer const& peer) { return !peer.prepare; });
  auto const entry = std::make_shared<Entry>(Entry{row, std::move(prepare), std::move(peers)});
  for (Form const form : entry->forms()) {
    std::string const name = std::string(row.routine) + "/" + row.variant + "/" + row.at.slot + "/" + nameOf(form);
    auto* const registered =
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { measure(state, *entry, form); });
    registered->Unit(benchmark::kMicrosecond);
    if (row.at.slot == "cold") registered->UseManualTime()->Iterations(3);
  }
}

}  // namespace korva::benchmarks
