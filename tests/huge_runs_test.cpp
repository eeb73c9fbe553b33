// Runs of more than 2^32 samples. No machine needs the memory for them: either the samples end early at a forbidden
// page, which a routine that takes the whole count must reach, or a few pages are mapped again and again.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csetjmp>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "korva_reference_api.h"
#include "support/call_conditions.h"
#include "support/inputs.h"

namespace korva::test {
namespace {

using Short = unsigned short;
using Size = unsigned long;

// Samples come in rows. Cut to 32 bits, the number of all samples is that of one row.
constexpr Size kRow = 1ul << 16, kRows = kRow + 1;

// Address space in slots that hold all rows but one of uint16 samples. The first block of a slot has pages of its own;
// the others of the slot share the pages of one, or are forbidden. So a run that starts with a slot, whatever the size
// of its samples, has its last row at the start of another.
class HugeSpace {
 public:
  static constexpr Size kSlots = 12, kSlotBytes = kRow * kRow * sizeof(Short), kBlock = 1ul << 21;

  explicit HugeSpace(bool isWhole) {
    void* const space = mmap(nullptr, kSlots * kSlotBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    int const file = memfd_create("huge runs", 0);
    if (space == MAP_FAILED || ftruncate(file, 2 * kSlots * kBlock) != 0) throw std::runtime_error("no address space");
    start_ = static_cast<char*>(space);
    for (Size slot = 0; slot < kSlots; ++slot) {
      for (Size at = 0; at < (isWhole ? kSlotBytes : kBlock); at += kBlock) {
        Size const offset = (2 * slot + (at == 0 ? 0 : 1)) * kBlock;
        if (mmap(start_ + slot * kSlotBytes + at, kBlock, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file,
                 static_cast<off_t>(offset)) == MAP_FAILED)
          throw std::runtime_error("cannot map a block");
      }
    }
    close(file);
  }
  ~HugeSpace() { munmap(start_, kSlots * kSlotBytes); }
  HugeSpace(HugeSpace const&) = delete;

  // Where runs of these sizes of samples start.
  std::vector<char*> starts(std::vector<Size> const& sampleBytes) const {
    std::vector<char*> starts;
    Size slot = 0;
    for (Size const bytes : sampleBytes) {
      starts.push_back(start_ + slot * kSlotBytes);
      slot += bytes / sizeof(Short) + 1;
    }
    return starts;
  }

 private:
  char* start_;
};

// The runs of a call, as whatever it takes them for, and the number of their rows and samples.
struct Runs {
  float* f[4] = {};
  Short* s[4] = {};
  double* d[4] = {};
  Size n, count;
  float** planes[3] = {&f[0], &f[1], &f[2]};
  float** sameThree[3] = {&f[3], &f[3], &f[3]};
  float *outRows[7], *inRows[7];
  Short **out = &s[0], **in = &s[1];
  unsigned height = static_cast<unsigned>(n), pixels = static_cast<unsigned>(count / 2);

  Runs(std::vector<char*> const& starts, Size rows) : n(rows), count(rows * kRow) {
    for (Size k = 0; k < starts.size(); ++k) {
      f[k] = reinterpret_cast<float*>(starts[k]);
      s[k] = reinterpret_cast<Short*>(starts[k]);
      d[k] = reinterpret_cast<double*>(starts[k]);
    }
    std::fill_n(outRows, 7, f[0]);
    std::fill_n(inRows, 7, f[1]);
  }
  Runs(Runs const&) = delete;
};

struct Call {
  char const* name;
  std::vector<Size> sampleBytes;
  void (*run)(Runs& r);
};

double const kWeights[49] = {0.25, -0.5, 0.75, 1.0, 0.125, 0.3};
double const* const kMatrix[2] = {kWeights, kWeights + 2};

// clang-format off
#define KORVA_CALL(routine, ...) #routine, {__VA_ARGS__}, [](Runs& r) { KORVA_Ref_##routine
Call const kCalls[] = {
    {KORVA_CALL(Subtract_float, 4, 4, 4)(&r.f[0], &r.f[1], &r.f[2], kRow, r.n); }},
    {KORVA_CALL(Add_float, 4, 4, 4)(&r.f[0], &r.f[1], &r.f[2], kRow, r.n); }},
    {KORVA_CALL(Mix_float, 4, 4, 4)(&r.f[0], &r.f[1], &r.f[2], kRow, r.n, 0.3); }},
    {KORVA_CALL(Crop_float, 4, 4)(&r.f[0], &r.f[1], 0, 1, 0, 0, r.count, 1); }},
    {KORVA_CALL(ApplyKernel7x7_float, 4, 4)(r.outRows, r.inRows, r.count, 7, kWeights); }},
    {KORVA_CALL(RGBToYCbCr_float, 4, 4, 4, 4)(r.planes, r.sameThree, kRow, r.n, 0.1, 0.3); }},
    {KORVA_CALL(YCbCrToRGB_float, 4, 4, 4, 4)(r.planes, r.sameThree, kRow, r.n, 0.1, 0.3); }},
    {KORVA_CALL(RC_CorrectBias_float, 4, 4, 4)(r.f[0], r.f[1], r.f[2], r.count); }},
    {KORVA_CALL(RC_CorrectBias_uint16, 2, 2, 2)(r.s[0], r.s[1], r.s[2], r.count); }},
    {KORVA_CALL(RC_ComputeCorrectionCoefficients_float, 8, 4)(r.d[0], r.f[1], r.count, 0.5, 0.9, 65535.0f); }},
    {KORVA_CALL(RC_ComputeCorrectionCoefficients_uint16, 8, 2)(r.d[0], r.s[1], r.count, 0.5, 0.9, 65535); }},
    {KORVA_CALL(RC_ComputeReflectance_float, 4, 4, 8)(r.f[0], r.f[1], r.d[2], r.count, 2.0, 65535.0f, 65535.0f); }},
    {KORVA_CALL(RC_ComputeReflectance_uint16, 2, 2, 8)(r.s[0], r.s[1], r.d[2], r.count, 5e4, 10000, 65535, 65535); }},
    {KORVA_CALL(SC_ApplySpectralCorrection_BIP_uint16, 2, 2)(r.s[0], r.s[1], kMatrix, 2, 2, r.pixels); }},
    {KORVA_CALL(DM_ApplyDemosaicingBilinear_dbl, 8, 8)(r.d[0], r.d[1], r.height, kRow, kWeights, 0.5, 0.5); }},
    {KORVA_CALL(DM_ApplyDemosaicingBilinear_uint16, 2, 2)(r.s[0], r.s[1], r.height, kRow, kWeights, 0.5, 0.5); }},
    {KORVA_CALL(CG_CropImage_uint16, 2, 2)(r.out, r.in, 0, 1, 0, 0, r.count, 1); }},
    {KORVA_CALL(CG_LS_StitchBandImageStrip_uint16, 2, 2)(&r.out, r.in, kRow, r.n, 0, 0, 0, 0, 0); }},
    {KORVA_CALL(CG_LS_GetStitchedSlice_BSQ_uint16, 2, 2)(&r.out, &r.in, kRow, r.n, r.n, 1, 0, 0, 0); }},
};
// clang-format on

sigjmp_buf beforeTheCall;

TEST(HugeRuns, CountsKeepTheirHighBits) {
  if (!allocationsAreCounted()) GTEST_SKIP() << "sanitizers end the program at a trap";
  HugeSpace const space(false);
  struct sigaction jumpBack {}, before;
  jumpBack.sa_handler = [](int) { siglongjmp(beforeTheCall, 1); };
  sigaction(SIGSEGV, &jumpBack, &before);
  for (Call const& call : kCalls) {
    if (sigsetjmp(beforeTheCall, 1) != 0) continue;
    Runs runs(space.starts(call.sampleBytes), kRows);
    call.run(runs);
    ADD_FAILURE() << call.name << " ends before the forbidden page";
  }
  sigaction(SIGSEGV, &before, nullptr);
}

template <class T>
void fill(char* block) {
  Random random(1);
  ordinary(std::span(reinterpret_cast<T*>(block), HugeSpace::kBlock / sizeof(T)), random);
}

// The last row must hold what a call for it alone gives there.
TEST(LengthyHugeRuns, EndAsAShortRunDoes) {
  HugeSpace const space(true);
  for (Call const& call : kCalls) {
    std::vector<char*> const starts = space.starts(call.sampleBytes);
    std::vector<char*> lastRows, copies;
    std::vector<std::vector<char>> expected;
    for (Size k = 0; k < starts.size(); ++k) {
      Size const bytes = call.sampleBytes[k];
      lastRows.push_back(starts[k] + kRow * kRow * bytes);
      for (char* const block : {starts[k], starts[k] + HugeSpace::kBlock, lastRows[k]})
        (bytes == 2 ? fill<Short> : bytes == 4 ? fill<float> : fill<double>)(block);
      expected.emplace_back(lastRows[k], lastRows[k] + kRow * bytes);
      copies.push_back(expected[k].data());
    }
    Runs row(copies, 1), rows(starts, kRows);
    call.run(row);
    call.run(rows);
    for (Size k = 0; k < starts.size(); ++k) {
      Size const end = expected[k].size() / 2;  // beyond what a window at the row's start can reach
      EXPECT_EQ(std::memcmp(lastRows[k] + end, copies[k] + end, end), 0) << call.name << ", run " << k;
    }
  }
}

}  // namespace
}  // namespace korva::test
