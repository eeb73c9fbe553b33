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

// The runs of a call, as whatever it takes them for.
struct Runs {
  float* f[4];
  Short* s[4];
  double* d[4];
  explicit Runs(auto const& starts) {
    for (Size k = 0; k < starts.size(); ++k) {
      f[k] = reinterpret_cast<float*>(starts[k]);
      s[k] = reinterpret_cast<Short*>(starts[k]);
      d[k] = reinterpret_cast<double*>(starts[k]);
    }
  }
};

struct Call {
  char const* name;
  std::vector<Size> sampleBytes;
  void (*run)(Runs runs, Size rows);
};

double const kWeights[49] = {0.25, -0.5, 0.75, 1.0, 0.125, 0.3};
double const* const kMatrix[2] = {kWeights, kWeights + 2};

Call const kCalls[] = {
    {"Subtract", {4, 4, 4}, [](Runs r, Size n) { KORVA_Ref_Subtract_float(&r.f[0], &r.f[1], &r.f[2], kRow, n); }},
    {"Add", {4, 4, 4}, [](Runs r, Size n) { KORVA_Ref_Add_float(&r.f[0], &r.f[1], &r.f[2], kRow, n); }},
    {"Mix", {4, 4, 4}, [](Runs r, Size n) { KORVA_Ref_Mix_float(&r.f[0], &r.f[1], &r.f[2], kRow, n, 0.3); }},
    {"Crop", {4, 4}, [](Runs r, Size n) { KORVA_Ref_Crop_float(&r.f[0], &r.f[1], 0, 1, 0, 0, n * kRow, 1); }},
    {"Kernel7x7",
     {4, 4},
     [](Runs r, Size n) {
       float *in[7], *out[7];
       std::fill_n(in, 7, r.f[1]);
       std::fill_n(out, 7, r.f[0]);
       KORVA_Ref_ApplyKernel7x7_float(out, in, n * kRow, 7, kWeights);
     }},
    {"RGBToYCbCr",
     {4, 4, 4, 4},
     [](Runs r, Size n) {
       float **out[] = {&r.f[0], &r.f[1], &r.f[2]}, **in[] = {&r.f[3], &r.f[3], &r.f[3]};
       KORVA_Ref_RGBToYCbCr_float(out, in, kRow, n, 0.1, 0.3);
     }},
    {"YCbCrToRGB",
     {4, 4, 4, 4},
     [](Runs r, Size n) {
       float **out[] = {&r.f[0], &r.f[1], &r.f[2]}, **in[] = {&r.f[3], &r.f[3], &r.f[3]};
       KORVA_Ref_YCbCrToRGB_float(out, in, kRow, n, 0.1, 0.3);
     }},
    {"CorrectBias, float",
     {4, 4, 4},
     [](Runs r, Size n) { KORVA_Ref_RC_CorrectBias_float(r.f[0], r.f[1], r.f[2], n * kRow); }},
    {"CorrectBias, uint16",
     {2, 2, 2},
     [](Runs r, Size n) { KORVA_Ref_RC_CorrectBias_uint16(r.s[0], r.s[1], r.s[2], n * kRow); }},
    {"Coefficients, float",
     {8, 4},
     [](Runs r, Size n) {
       KORVA_Ref_RC_ComputeCorrectionCoefficients_float(r.d[0], r.f[1], n * kRow, 0.5, 0.9, 65535.0f);
     }},
    {"Coefficients, uint16",
     {8, 2},
     [](Runs r, Size n) {
       KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16(r.d[0], r.s[1], n * kRow, 0.5, 0.9, 65535);
     }},
    {"Reflectance, float",
     {4, 4, 8},
     [](Runs r, Size n) {
       KORVA_Ref_RC_ComputeReflectance_float(r.f[0], r.f[1], r.d[2], n * kRow, 2.0, 65535.0f, 65535.0f);
     }},
    {"Reflectance, uint16",
     {2, 2, 8},
     [](Runs r, Size n) {
       KORVA_Ref_RC_ComputeReflectance_uint16(r.s[0], r.s[1], r.d[2], n * kRow, 50000.0, 10000, 65535, 65535);
     }},
    {"BIP, uint16",
     {2, 2},
     [](Runs r, Size n) {
       auto const pixels = static_cast<unsigned>(n * kRow / 2);
       KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16(r.s[0], r.s[1], kMatrix, 2, 2, pixels);
     }},
    {"Demosaicing, double",
     {8, 8},
     [](Runs r, Size n) {
       auto const height = static_cast<unsigned>(n);
       KORVA_Ref_DM_ApplyDemosaicingBilinear_dbl(r.d[0], r.d[1], height, kRow, kWeights, 0.5, 0.5);
     }},
    {"Demosaicing, uint16",
     {2, 2},
     [](Runs r, Size n) {
       auto const height = static_cast<unsigned>(n);
       KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16(r.s[0], r.s[1], height, kRow, kWeights, 0.5, 0.5);
     }},
    {"Crop, uint16",
     {2, 2},
     [](Runs r, Size n) { KORVA_Ref_CG_CropImage_uint16(&r.s[0], &r.s[1], 0, 1, 0, 0, n * kRow, 1); }},
    {"Ring, stored",
     {2, 2},
     [](Runs r, Size n) {
       Short **plane = &r.s[0], **strip = &r.s[1];
       KORVA_Ref_CG_LS_StitchBandImageStrip_uint16(&plane, strip, kRow, n, 0, 0, 0, 0, 0);
     }},
    {"Ring, handed out",
     {2, 2},
     [](Runs r, Size n) {
       Short **out = &r.s[0], **plane = &r.s[1];
       KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16(&out, &plane, kRow, n, n, 1, 0, 0, 0);
     }},
};

sigjmp_buf beforeTheCall;

TEST(HugeRuns, CountsKeepTheirHighBits) {
  if (!allocationsAreCounted()) GTEST_SKIP() << "sanitizers end the program at a trap";
  HugeSpace const space(false);
  struct sigaction jumpBack {}, before;
  jumpBack.sa_handler = [](int) { siglongjmp(beforeTheCall, 1); };
  sigaction(SIGSEGV, &jumpBack, &before);
  for (Call const& call : kCalls) {
    if (sigsetjmp(beforeTheCall, 1) != 0) continue;
    call.run(Runs(space.starts(call.sampleBytes)), kRows);
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
    call.run(Runs(copies), 1);
    call.run(Runs(starts), kRows);
    for (Size k = 0; k < starts.size(); ++k) {
      Size const end = expected[k].size() / 2;  // beyond what a window at the row's start can reach
      EXPECT_EQ(std::memcmp(lastRows[k] + end, copies[k] + end, end), 0) << call.name << ", run " << k;
    }
  }
}

}  // namespace
}  // namespace korva::test
