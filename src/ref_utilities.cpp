// Utilities: the Array2D and Array3D_BSQ layouts, and headerless raw sample files.
#include "korva_reference_api.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/strict_float.h"

namespace {

#define KORVA_TEXT_OF(number) #number
#define KORVA_RELEASE(major, minor, patch) KORVA_TEXT_OF(major) "." KORVA_TEXT_OF(minor) "." KORVA_TEXT_OF(patch)

// The file tells its release to `strings`, to packagers and to bindings, without an exported name.
[[gnu::used]] constexpr char kRelease[] = "korva_reference_api release " KORVA_RELEASE(
    KORVA_REFERENCE_API_VERSION_MAJOR, KORVA_REFERENCE_API_VERSION_MINOR, KORVA_REFERENCE_API_VERSION_PATCH);


// A product of sizes that may exceed 64 bits; such an array cannot exist.
bool multiply(unsigned long& product, unsigned long factor) {
  return !__builtin_mul_overflow(product, factor, &product);
}

// malloc(0) may return null, so null is a failure only where bytes were asked for.
bool failed(void const* block, unsigned long bytes) { return block == nullptr && bytes != 0; }

template <typename Sample>
void allocateArray2D(Sample*** array, unsigned long width, unsigned long height) {
  *array = nullptr;
  unsigned long blockBytes = sizeof(Sample);
  unsigned long tableBytes = sizeof(Sample*);
  if (height == 0 || !multiply(blockBytes, width) || !multiply(blockBytes, height) || !multiply(tableBytes, height)) {
    return;
  }
  auto* const block = static_cast<Sample*>(std::malloc(blockBytes));
  if (failed(block, blockBytes)) return;
  auto** const rows = static_cast<Sample**>(std::malloc(tableBytes));
  if (rows == nullptr) {
    std::free(block);
    return;
  }
  for (unsigned long row = 0; row < height; ++row) rows[row] = block + row * width;
  *array = rows;
}

template <typename Sample>
void freeArray2D(Sample** array) {
  if (array != nullptr) std::free(array[0]);
  std::free(array);
}

template <typename Sample>
void allocateArray3D(Sample**** array, unsigned long width, unsigned long height, unsigned long bands) {
  *array = nullptr;
  unsigned long bandTableBytes = sizeof(Sample**);
  unsigned long rowTableBytes = sizeof(Sample*);
  unsigned long blockBytes = sizeof(Sample);
  if (height == 0 || bands == 0 || !multiply(bandTableBytes, bands) || !multiply(rowTableBytes, height) ||
      !multiply(rowTableBytes, bands) || !multiply(blockBytes, height) || !multiply(blockBytes, width) ||
      !multiply(blockBytes, bands)) {
    return;
  }
  auto*** const bandTable = static_cast<Sample***>(std::malloc(bandTableBytes));
  if (bandTable == nullptr) return;
  auto** const rowTable = static_cast<Sample**>(std::malloc(rowTableBytes));
  if (rowTable == nullptr) {
    std::free(bandTable);
    return;
  }
  auto* const block = static_cast<Sample*>(std::malloc(blockBytes));
  if (failed(block, blockBytes)) {
    std::free(rowTable);
    std::free(bandTable);
    return;
  }
  for (unsigned long row = 0; row < bands * height; ++row) rowTable[row] = block + row * width;
  for (unsigned long band = 0; band < bands; ++band) bandTable[band] = rowTable + band * height;
  *array = bandTable;
}

template <typename Sample>
void freeArray3D(Sample*** array) {
  if (array == nullptr) return;
  if (array[0] != nullptr) {
    std::free(array[0][0]);
    std::free(array[0]);
  }
  std::free(array);
}

// Opens the file whose path is the two strings joined. Null when there is no memory for the path or no such file.
std::FILE* openJoined(char const* directory, char const* fileName, char const* mode) {
  std::size_t const directoryLength = std::strlen(directory);
  std::size_t const fileNameBytes = std::strlen(fileName) + 1;
  auto* const path = static_cast<char*>(std::malloc(directoryLength + fileNameBytes));
  if (path == nullptr) return nullptr;
  std::memcpy(path, directory, directoryLength);
  std::memcpy(path + directoryLength, fileName, fileNameBytes);
  std::FILE* const file = std::fopen(path, mode);
  std::free(path);
  return file;
}

}  // namespace

// Arrays ------------------------------------------------------------------------------------------------------------

void KORVA_Ref_AllocateArray2D_float(float*** array, unsigned long width, unsigned long height) {
  allocateArray2D(array, width, height);
}

void KORVA_Ref_AllocateArray2D_uint16(unsigned short*** array, unsigned long width, unsigned long height) {
  allocateArray2D(array, width, height);
}

void KORVA_Ref_FreeArray2D_float(float** array) { freeArray2D(array); }

void KORVA_Ref_FreeArray2D_uint16(unsigned short** array) { freeArray2D(array); }

void KORVA_Ref_AllocateArray3D_BSQ_float(float**** array, unsigned long width, unsigned long height,
                                         unsigned long bands) {
  allocateArray3D(array, width, height, bands);
}

void KORVA_Ref_AllocateArray3D_BSQ_uint16(unsigned short**** array, unsigned long width, unsigned long height,
                                          unsigned long bands) {
  allocateArray3D(array, width, height, bands);
}

void KORVA_Ref_FreeArray3D_BSQ_float(float*** array) { freeArray3D(array); }

void KORVA_Ref_FreeArray3D_BSQ_uint16(unsigned short*** array) { freeArray3D(array); }

// Raw data files ----------------------------------------------------------------------------------------------------

void KORVA_Ref_ReadRawDataFromDisk(void* data, char const* directory, char const* fileName, unsigned long count,
                                   unsigned long elementSize) {
  std::FILE* const file = openJoined(directory, fileName, "rb");
  if (file == nullptr) return;
  // A short read leaves the rest of data as it was, and the caller learns nothing of it.
  [[maybe_unused]] std::size_t const transferred = std::fread(data, elementSize, count, file);
  std::fclose(file);
}

void KORVA_Ref_WriteRawDataToDisk(void const* data, char const* directory, char const* fileName, unsigned long count,
                                  unsigned long elementSize) {
  std::FILE* const file = openJoined(directory, fileName, "wb");
  if (file == nullptr) return;
  std::fwrite(data, elementSize, count, file);
  std::fclose(file);
}
