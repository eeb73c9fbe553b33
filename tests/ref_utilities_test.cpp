#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "korva_reference_api.h"
#include "support/call_conditions.h"
#include "support/samples.h"

namespace korva::test {
namespace {

struct Floats {
  using Sample = float;
  static constexpr auto allocate2D = &KORVA_Ref_AllocateArray2D_float;
  static constexpr auto free2D = &KORVA_Ref_FreeArray2D_float;
  static constexpr auto allocate3D = &KORVA_Ref_AllocateArray3D_BSQ_float;
  static constexpr auto free3D = &KORVA_Ref_FreeArray3D_BSQ_float;
};

struct Shorts {
  using Sample = unsigned short;
  static constexpr auto allocate2D = &KORVA_Ref_AllocateArray2D_uint16;
  static constexpr auto free2D = &KORVA_Ref_FreeArray2D_uint16;
  static constexpr auto allocate3D = &KORVA_Ref_AllocateArray3D_BSQ_uint16;
  static constexpr auto free3D = &KORVA_Ref_FreeArray3D_BSQ_uint16;
};

template <class Type>
class Arrays : public testing::Test {
 protected:
  using Sample = typename Type::Sample;
  Sample* stale_ = nullptr;
  // What a caller's variable may hold before the call.
  Sample** image_ = &stale_;
  Sample*** cube_ = &image_;
};
using SampleTypes = testing::Types<Floats, Shorts>;
TYPED_TEST_SUITE(Arrays, SampleTypes);

// All samples may be written, which AddressSanitizer watches.
TYPED_TEST(Arrays, RowsAndPlanesLieBackToBack) {
  for (auto const& [width, height, bands] : {Shape{4, 2, 3}, {1, 1, 1}, {0, 2, 2}, {65, 33, 16}, {640, 481, 2}}) {
    TypeParam::allocate2D(&this->image_, width, height);
    ASSERT_NE(this->image_, nullptr);
    for (unsigned long row = 0; row < height; ++row) EXPECT_EQ(this->image_[row], this->image_[0] + row * width);
    std::fill_n(this->image_[0], width * height, typename TestFixture::Sample{7});
    TypeParam::free2D(this->image_);

    TypeParam::allocate3D(&this->cube_, width, height, bands);
    auto*** const cube = this->cube_;
    ASSERT_NE(cube, nullptr);
    for (unsigned long row = 0; row < bands * height; ++row) {
      EXPECT_EQ(cube[row / height], cube[0] + row / height * height);
      EXPECT_EQ(cube[row / height][row % height], cube[0][0] + row * width);
    }
    std::fill_n(cube[0][0], width * height * bands, typename TestFixture::Sample{7});
    TypeParam::free3D(cube);
  }
}

TYPED_TEST(Arrays, FreeingSkipsNullLevels) {
  using T = typename TypeParam::Sample;
  long const before = liveAllocationCount();
  for (bool const hasRows : {false, true}) {
    auto* const cube = static_cast<T***>(std::malloc(sizeof(T**)));
    cube[0] = hasRows ? static_cast<T**>(std::malloc(sizeof(T*))) : nullptr;
    if (hasRows) cube[0][0] = nullptr;
    TypeParam::free3D(cube);
  }
  EXPECT_EQ(liveAllocationCount(), before);
}

TYPED_TEST(Arrays, SizesThatCannotBeHadStoreNull) {
  constexpr unsigned long kHuge = 1ul << 60, kHalf = 1ul << 63, kAll = ~0ul;
  constexpr std::pair<unsigned long, unsigned long> kSizes[] = {
      {5, 0},     {0, 0},        {kHuge, 1}, {kHalf, 2},    {kHalf, 4},    {1ul << 32, 1ul << 32}, {kAll, 1}, {1, kAll},
      {kAll, kAll}, {2, kHalf}, {1ul << 61, 4}, {1ul << 58, 4}, {0, 1ul << 61}, {0, kAll}};
  long const before = liveAllocationCount();
  auto const expectNoCube = [this](unsigned long width, unsigned long height, unsigned long bands) {
    TypeParam::allocate3D(&this->cube_, width, height, bands);
    EXPECT_EQ(this->cube_, nullptr) << width << " x " << height << " x " << bands;
    TypeParam::free3D(this->cube_);
  };
  for (auto const& [width, height] : kSizes) {
    TypeParam::allocate2D(&this->image_, width, height);
    EXPECT_EQ(this->image_, nullptr) << width << " x " << height;
    TypeParam::free2D(this->image_);
    for (unsigned long const bands : {1ul, 2ul, 16ul, kHalf}) expectNoCube(width, height, bands);
  }
  for (unsigned long const bands : {0ul, kHuge, kHalf, kAll}) expectNoCube(2, 2, bands);
  EXPECT_EQ(liveAllocationCount(), before);
}

TYPED_TEST(Arrays, EveryFailingAllocationStoresNullAndLeavesNothingBehind) {
  if (!allocationsAreCounted()) GTEST_SKIP() << "the sanitizer brings its own allocator";
  long const before = liveAllocationCount();
  for (long ordinal = 1; ordinal <= 3; ++ordinal) {
    failAllocation(ordinal);
    TypeParam::allocate2D(&this->image_, 5, 4);
    failAllocation(ordinal);
    TypeParam::allocate3D(&this->cube_, 5, 4, 3);
    failNoAllocation();
    EXPECT_EQ(this->image_ == nullptr, ordinal <= 2) << "allocation " << ordinal;
    EXPECT_EQ(this->cube_, nullptr) << "allocation " << ordinal;
    TypeParam::free2D(this->image_);
    TypeParam::free3D(this->cube_);
    EXPECT_EQ(liveAllocationCount(), before);
  }
}

class RawFiles : public testing::Test {
 protected:
  using Shorts = std::vector<unsigned short>;
  RawFiles() {
    std::string pattern = testing::TempDir() + "korva_raw_files_XXXXXX";
    directory_ = std::string(mkdtemp(pattern.data())) + "/";
  }
  ~RawFiles() override { std::filesystem::remove_all(directory_); }

  void write(std::string const& name, unsigned long count, unsigned long elementSize, Shorts const& data) const {
    KORVA_Ref_WriteRawDataToDisk(data.data(), directory_.c_str(), name.c_str(), count, elementSize);
  }
  // Into samples that are 9 before.
  Shorts read(std::string const& name, unsigned long count, unsigned long elementSize) const {
    Shorts data = kNines;
    KORVA_Ref_ReadRawDataFromDisk(data.data(), directory_.c_str(), name.c_str(), count, elementSize);
    return data;
  }
  auto sizeOf(std::string const& name) const { return std::filesystem::file_size(directory_ + name); }

  std::string directory_;
  Shorts const kSamples = {1, 2, 3, 4, 5, 6}, kNines = Shorts(6, 9);
};

TEST_F(RawFiles, HoldTheSamplesAsTheyLieInMemory) {
  GuardedRuns guarded(1, 12, Placement::EndsAtForbiddenPage), back(1, 12, Placement::EndsAtForbiddenPage);
  std::memcpy(guarded.writable(0), kSamples.data(), 12);
  KORVA_Ref_WriteRawDataToDisk(guarded.readOnly(0), directory_.c_str(), "white.raw", 6, 2);
  EXPECT_EQ(sizeOf("white.raw"), 12u);
  for (auto const& [count, elementSize] : {std::pair{6ul, 2ul}, {3ul, 4ul}, {1ul, 12ul}}) {
    std::memset(back.writable(0), 0, 12);
    KORVA_Ref_ReadRawDataFromDisk(back.writable(0), directory_.c_str(), "white.raw", count, elementSize);
    EXPECT_EQ(std::memcmp(back.readOnly(0), kSamples.data(), 12), 0);
    EXPECT_TRUE(back.slackIsIntact());
  }
}

TEST_F(RawFiles, PathIsTheTwoStringsJoinedAsTheyAre) {
  KORVA_Ref_WriteRawDataToDisk(kSamples.data(), (directory_ + "run1").c_str(), "white.raw", 6, 2);
  EXPECT_EQ(sizeOf("run1white.raw"), 12u);
  std::string const whole = directory_ + "whole.raw";
  KORVA_Ref_WriteRawDataToDisk(kSamples.data(), "", whole.c_str(), 5, 2);
  KORVA_Ref_WriteRawDataToDisk(kSamples.data(), whole.c_str(), "", 4, 2);
  EXPECT_EQ(sizeOf("whole.raw"), 8u) << "the later, shorter write replaces the file";
}

TEST_F(RawFiles, OnlyWhatIsThereIsTransferred) {
  write("short.raw", 3, 2, kSamples);
  EXPECT_EQ(read("short.raw", 6, 2), (Shorts{1, 2, 3, 9, 9, 9}));
  EXPECT_EQ(read("missing.raw", 6, 2), kNines);
  write("missing/a.raw", 6, 2, kSamples);
  EXPECT_FALSE(std::filesystem::exists(directory_ + "missing.raw") || std::filesystem::exists(directory_ + "missing"));
  // Nothing to transfer keeps the samples on reading, and truncates the file on writing.
  for (auto const& [count, elementSize] : {std::pair{0ul, 2ul}, {6ul, 0ul}, {0ul, 0ul}}) {
    write("a.raw", 6, 2, kSamples);
    EXPECT_EQ(read("a.raw", count, elementSize), kNines);
    write("a.raw", count, elementSize, kSamples);
    EXPECT_EQ(sizeOf("a.raw"), 0u);
  }
}

// More bytes than 32 bits count: of the file there are twelve, of the samples a page up to a forbidden one.
TEST_F(RawFiles, CountsKeepTheirHighBits) {
  if (!allocationsAreCounted()) GTEST_SKIP() << "sanitizers look at all the samples that are not there";
  constexpr unsigned long kCount = (1ul << 32) + 6;
  write("short.raw", 6, 2, kSamples);
  GuardedRuns page(1, 4096, Placement::EndsAtForbiddenPage);
  KORVA_Ref_ReadRawDataFromDisk(page.writable(0), directory_.c_str(), "short.raw", kCount, 1);
  EXPECT_EQ(std::memcmp(page.readOnly(0), kSamples.data(), 12), 0);
  KORVA_Ref_WriteRawDataToDisk(page.readOnly(0), directory_.c_str(), "page.raw", kCount, 1);
  EXPECT_EQ(sizeOf("page.raw"), 4096u);
}

TEST_F(RawFiles, NothingStaysAllocatedOrOpenAndAFailedAllocationTouchesNothing) {
  auto const openFiles = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  write("a.raw", 6, 2, kSamples);
  auto const filesBefore = openFiles();
  long const live = liveAllocationCount();
  // The first allocation holds the path, the second the C library's open file; there is no third.
  for (long ordinal = 1; ordinal <= 3; ++ordinal) {
    Shorts data = kNines;
    failAllocation(ordinal);
    KORVA_Ref_ReadRawDataFromDisk(data.data(), directory_.c_str(), "a.raw", 6, 2);
    failAllocation(ordinal);
    KORVA_Ref_WriteRawDataToDisk(kNines.data(), directory_.c_str(), "a.raw", 3, 2);
    failNoAllocation();
    bool const done = ordinal == 3 || !allocationsAreCounted();
    EXPECT_EQ(data, done ? kSamples : kNines);
    EXPECT_EQ(sizeOf("a.raw"), done ? 6u : 12u);
    write("a.raw", 6, 2, kSamples);
  }
  EXPECT_EQ(liveAllocationCount(), live);
  EXPECT_EQ(openFiles(), filesBefore);
}

}  // namespace
}  // namespace korva::test
