// The arrays of a host, made by the library's allocators and given back to its free functions, and its files: raw frames
// and lists of numbers come in, raw files with ENVI headers go out, all or none.
#ifndef KORVA_EXAMPLES_FILES_H
#define KORVA_EXAMPLES_FILES_H

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "korva_reference_api.h"

namespace host {

namespace fs = std::filesystem;

// A fault that the user can mend; the message says what was expected and what was found.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline void allocate(float**** planes, unsigned long width, unsigned long height, unsigned long bands) {
  KORVA_Ref_AllocateArray3D_BSQ_float(planes, width, height, bands);
}
inline void allocate(unsigned short**** planes, unsigned long width, unsigned long height, unsigned long bands) {
  KORVA_Ref_AllocateArray3D_BSQ_uint16(planes, width, height, bands);
}

struct FreePlanes {
  void operator()(float*** planes) const { KORVA_Ref_FreeArray3D_BSQ_float(planes); }
  void operator()(unsigned short*** planes) const { KORVA_Ref_FreeArray3D_BSQ_uint16(planes); }
};

// A band-sequential cube; a frame is a cube of one band. The library takes it as planes()[band][row][column], one image
// of it as rows(band)[row][column], and its samples as one run. Inputs and outputs have the same types there, so
// constness of the owner does not reach the samples.
template <typename Sample>
class Cube {
 public:
  Cube(unsigned long width, unsigned long height, unsigned long bands = 1)
      : width_(width), height_(height), bands_(bands) {
    Sample*** planes = nullptr;
    allocate(&planes, width, height, bands);
    planes_.reset(planes);
    if (planes == nullptr) {
      throw Error("not enough memory for " + std::to_string(bands) + " bands of " + std::to_string(width) + " x " +
                  std::to_string(height));
    }
  }

  unsigned long width() const { return width_; }
  unsigned long height() const { return height_; }
  unsigned long bands() const { return bands_; }
  unsigned long planeCount() const { return width_ * height_; }
  unsigned long count() const { return planeCount() * bands_; }
  Sample*** planes() const { return planes_.get(); }
  Sample** rows(unsigned long band = 0) const { return planes_.get()[band]; }
  Sample* samples(unsigned long band = 0) const { return rows(band)[0]; }

 private:
  unsigned long width_;
  unsigned long height_;
  unsigned long bands_;
  std::unique_ptr<Sample**, FreePlanes> planes_;
};

using Counts = Cube<unsigned short>;

// A sample without a usable white reference; no reflectance comes near it.
inline constexpr unsigned short kFlagged = 65535;

inline volatile std::sig_atomic_t stopSignal = 0;

inline void stopIfInterrupted() {
  if (stopSignal != 0) throw Error("stopped on request; nothing was written");
}

inline std::string sizeText(unsigned long width, unsigned long height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

// Opens a regular file; anything else could keep the reader waiting for ever.
inline std::ifstream openInput(std::string const& path) {
  std::error_code error;
  std::string reason = "it is no regular file";
  if (fs::is_regular_file(path, error)) {
    std::ifstream file(path, std::ios::binary);
    if (file) return file;
    reason = std::strerror(errno);
  }
  throw Error(path + ": expected a file that can be read, found none (" + (error ? error.message() : reason) + ")");
}

// Raw files of one or more whole frames of 16-bit samples each, read one frame at a time.
class Frames {
 public:
  Frames(std::vector<std::string> const& paths, unsigned long width, unsigned long height) {
    std::uintmax_t const frameBytes = std::uintmax_t{2} * width * height;
    for (std::string const& path : paths) {
      openInput(path);
      std::uintmax_t const size = fs::file_size(path);
      if (size == 0 || size % frameBytes != 0) {
        throw Error(path + ": expected frames of " + std::to_string(frameBytes) + " bytes (" + sizeText(width, height) +
                    " samples of 2), found " + std::to_string(size) + " bytes");
      }
      for (std::uintmax_t place = 0; place < size; place += frameBytes) places_.push_back({path, place});
    }
  }

  unsigned long size() const { return places_.size(); }

  void read(Counts const& frame, unsigned long index) const {
    // The library's own reader does not tell a short read from a whole one.
    Place const& place = places_[index];
    std::ifstream file = openInput(place.path);
    file.seekg(static_cast<std::streamoff>(place.offset));
    if (!file.read(reinterpret_cast<char*>(frame.samples()), static_cast<std::streamsize>(2 * frame.count()))) {
      throw Error(place.path + ": expected a whole frame at byte " + std::to_string(place.offset) + ", found less");
    }
  }

 private:
  struct Place {
    std::string path;
    std::uintmax_t offset;
  };
  std::vector<Place> places_;
};

inline Counts readFrame(std::string const& path, unsigned long width, unsigned long height) {
  Frames const frames({path}, width, height);
  if (frames.size() != 1) {
    throw Error(path + ": expected one frame of " + sizeText(width, height) + ", found " +
                std::to_string(frames.size()));
  }
  Counts frame(width, height);
  frames.read(frame, 0);
  return frame;
}

// The numbers of a text file line by line, with blanks, commas or semicolons between; # starts a comment. Lines without
// numbers are left out, and a byte-order mark and carriage returns are no part of the text.
inline std::vector<std::vector<double>> readNumbers(std::string const& path) {
  std::ifstream file = openInput(path);
  std::vector<std::vector<double>> rows;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    if (number == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    line = line.substr(0, line.find('#'));
    for (char& character : line) {
      if (character == ',' || character == ';') character = ' ';
    }
    std::istringstream words(line);
    std::vector<double> row;
    for (std::string word; words >> word;) {
      char* end = nullptr;
      row.push_back(std::strtod(word.c_str(), &end));
      if (*end != '\0' || !std::isfinite(row.back())) {
        throw Error(path + " line " + std::to_string(number) + ": expected finite numbers, found '" +
                    word.substr(0, 40) + "'");
      }
    }
    if (!row.empty()) rows.push_back(std::move(row));
  }
  return rows;
}

// What an ENVI header tells beyond the sizes.
struct Envi {
  std::string description;
  std::vector<double> wavelengths = {};        // nanometres, one per band; may be empty
  std::vector<unsigned long> shownBands = {};  // as red, green and blue, counted from 0; may be empty
  double reflectanceScale = 0;                 // sample value of reflectance 1; 0 for anything but reflectance
};

// The folder that receives a host's results. Files are written to a hidden folder inside it and renamed into place by
// publish(). Until then earlier results stay as they were, and a host that gives up leaves nothing behind. What a
// killed run left is cleared by the next, which the lock keeps from disturbing one that still runs.
class ResultFolder {
 public:
  explicit ResultFolder(std::string const& path) : folder_(fs::absolute(path)), staging_(folder_ / ".unfinished") {
    std::error_code error;
    for (fs::path part = folder_; !fs::exists(part, error) && part.has_relative_path(); part = part.parent_path()) {
      created_.push_back(part);
    }
    fs::create_directories(folder_, error);
    lock_ = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::string reason;
    if (lock_ >= 0 && flock(lock_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
      reason = "another run is writing there";
    } else if (lock_ >= 0) {
      fs::create_directory(staging_, error);
    } else if (!error) {
      error.assign(errno, std::generic_category());
    }
    if (error) reason = error.message();
    if (reason.empty()) return;
    removeCreated();
    throw Error(path + ": expected a folder that results can be written to, found none (" + reason + ")");
  }

  ~ResultFolder() {
    std::error_code ignored;
    fs::remove_all(staging_, ignored);
    if (!published_) removeCreated();
    close(lock_);
  }
  ResultFolder(ResultFolder const&) = delete;
  ResultFolder& operator=(ResultFolder const&) = delete;

  std::string path() const { return folder_.string(); }

  // Writes NAME.raw and its header NAME.hdr, which common viewers open.
  template <typename Sample>
  void write(std::string const& name, Cube<Sample> const& cube, Envi const& about) {
    std::ostringstream header;
    header.precision(10);
    header << "ENVI\ndescription = {" << about.description << "}\nsamples = " << cube.width()
           << "\nlines = " << cube.height() << "\nbands = " << cube.bands()
           << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = " << (std::is_same_v<Sample, float> ? 4 : 12)
           << "\ninterleave = bsq\nbyte order = " << (std::endian::native == std::endian::little ? 0 : 1) << "\n";
    auto const list = [&header](char const* field, auto const& values, auto offset) {
      for (std::size_t k = 0; k < values.size(); ++k) header << (k == 0 ? field : ", ") << values[k] + offset;
      if (!values.empty()) header << "}\n";
    };
    list("wavelength units = Nanometers\nwavelength = {", about.wavelengths, 0.0);
    list("default bands = {", about.shownBands, 1UL);
    if (about.reflectanceScale > 0) {
      header << "reflectance scale factor = " << about.reflectanceScale << "\ndata ignore value = " << kFlagged << "\n";
    }
    save(name + ".raw", cube.samples(), cube.count(), sizeof(Sample));
    save(name + ".hdr", header.str().data(), header.str().size(), 1);
  }

  // Puts everything written so far in its place.
  void publish() {
    stopIfInterrupted();
    for (std::string const& name : names_) {
      fs::rename(staging_ / name, folder_ / name);
      published_ = true;
    }
  }

 private:
  // The library's writer tells nothing about a failure, so the file is measured afterwards.
  void save(std::string const& name, void const* data, unsigned long count, unsigned long elementSize) {
    if (fs::is_directory(folder_ / name)) {
      throw Error((folder_ / name).string() + ": expected a file or nothing, found a folder");
    }
    names_.push_back(name);
    KORVA_Ref_WriteRawDataToDisk(data, (staging_.string() + "/").c_str(), name.c_str(), count, elementSize);
    std::error_code error;
    std::uintmax_t const size = fs::file_size(staging_ / name, error);
    if (error || size != std::uintmax_t{count} * elementSize) {
      throw Error((folder_ / name).string() + ": expected room for " + std::to_string(count * elementSize) +
                  " bytes, could write " + std::to_string(error ? 0 : size) + " (disk full?)");
    }
  }

  void removeCreated() const {
    std::error_code ignored;
    for (fs::path const& folder : created_) fs::remove(folder, ignored);
  }

  fs::path folder_;
  fs::path staging_;
  std::vector<fs::path> created_;  // by this run, innermost first
  std::vector<std::string> names_;
  int lock_ = -1;
  bool published_ = false;
};

}  // namespace host

#endif
