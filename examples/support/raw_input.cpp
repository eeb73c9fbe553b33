#include "raw_input.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

namespace host {
namespace {

namespace fs = std::filesystem;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// Opens a regular file for reading, or says in one sentence why it is none.
std::unique_ptr<std::FILE, CloseFile> openInput(std::string const& path, std::string const& expected) {
  std::error_code error;
  fs::file_status const status = fs::status(path, error);
  if (status.type() == fs::file_type::directory) throw HostError(path + ": expected " + expected + ", found a folder");
  std::unique_ptr<std::FILE, CloseFile> file;
  if (!error && (fs::is_regular_file(status))) file.reset(std::fopen(path.c_str(), "rb"));
  if (file) return file;
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw HostError(path + ": expected " + expected + ", found something that is not a file");
  }
  std::string const reason = error ? error.message() : std::strerror(errno);
  throw HostError(path + ": expected " + expected + ", found none that can be read (" + reason + ")");
}

std::string describeFrame(unsigned long width, unsigned long height) {
  return std::to_string(2 * width * height) + " bytes (" + std::to_string(width) + " x " + std::to_string(height) +
         " samples of 2 bytes)";
}

std::uint64_t sizeOf(std::string const& path) {
  std::error_code error;
  std::uint64_t const size = fs::file_size(path, error);
  if (error) throw HostError(path + ": its size cannot be found (" + error.message() + ")");
  return size;
}

// The numbers of a text file, line by line; lines without any are left out.
std::vector<std::vector<double>> readNumbers(std::string const& path, std::string const& expected) {
  openInput(path, expected);
  std::ifstream file(path);
  std::vector<std::vector<double>> rows;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    line = line.substr(0, line.find('#'));
    for (char& character : line) {
      if (character == ',' || character == ';') character = ' ';
    }
    std::istringstream words(line);
    std::vector<double> row;
    for (std::string word; words >> word;) {
      char* end = nullptr;
      double const value = std::strtod(word.c_str(), &end);
      if (*end != '\0' || !std::isfinite(value)) {
        throw HostError(path + " line " + std::to_string(number) + ": expected finite numbers, found '" +
                        word.substr(0, 40) + "'");
      }
      row.push_back(value);
    }
    if (!row.empty()) rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace

Frame readFrame(std::string const& path, unsigned long width, unsigned long height) {
  std::string const expected = "a raw file of " + describeFrame(width, height);
  openInput(path, expected);
  std::uint64_t const size = sizeOf(path);
  if (size != 2 * width * height) {
    throw HostError(path + ": expected " + expected + ", found " + std::to_string(size) + " bytes");
  }
  Frame frame(width, height);
  KORVA_Ref_ReadRawDataFromDisk(frame.samples(), "", path.c_str(), frame.count(), sizeof(unsigned short));
  return frame;
}

FrameSequence::FrameSequence(std::vector<std::string> const& paths, unsigned long width, unsigned long height) {
  std::string const expected = "raw frames of " + describeFrame(width, height) + " each";
  std::uint64_t const frameBytes = 2 * width * height;
  for (std::string const& path : paths) {
    openInput(path, expected);
    std::uint64_t const size = sizeOf(path);
    if (size == 0 || size % frameBytes != 0) {
      throw HostError(path + ": expected " + expected + ", found " + std::to_string(size) + " bytes");
    }
    for (std::uint64_t offset = 0; offset < size; offset += frameBytes) frames_.push_back({path, offset});
  }
}

void FrameSequence::read(Frame& frame, unsigned long index) const {
  Place const& place = frames_[index];
  auto const file = openInput(place.path, "the frames found before");
  if (fseeko(file.get(), static_cast<off_t>(place.offset), SEEK_SET) != 0 ||
      std::fread(frame.samples(), sizeof(unsigned short), frame.count(), file.get()) != frame.count()) {
    throw HostError(place.path + ": expected a whole frame at byte " + std::to_string(place.offset) +
                    ", found fewer bytes");
  }
}

Matrix readMatrix(std::string const& path, unsigned long inBands) {
  std::string const width = std::to_string(inBands);
  Matrix matrix = readNumbers(path, "a correction matrix of " + width + " weights a line");
  for (std::size_t row = 0; row < matrix.size(); ++row) {
    if (matrix[row].size() != inBands) {
      throw HostError(path + ": expected " + width + " weights for output band " + std::to_string(row) + ", found " +
                      std::to_string(matrix[row].size()));
    }
  }
  if (matrix.empty()) throw HostError(path + ": expected a correction matrix, found no numbers");
  return matrix;
}

std::vector<double> readWavelengths(std::string const& path, unsigned long expected) {
  std::string const wanted = std::to_string(expected) + " wavelengths";
  std::vector<double> wavelengths;
  for (auto const& row : readNumbers(path, wanted)) wavelengths.insert(wavelengths.end(), row.begin(), row.end());
  if (wavelengths.size() != expected) {
    throw HostError(path + ": expected " + wanted + ", found " + std::to_string(wavelengths.size()));
  }
  for (double const wavelength : wavelengths) {
    if (wavelength <= 0) {
      throw HostError(path + ": expected wavelengths above 0 nm, found " + std::to_string(wavelength));
    }
  }
  return wavelengths;
}

}  // namespace host
