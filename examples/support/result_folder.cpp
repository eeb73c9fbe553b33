#include "result_folder.h"

#include <unistd.h>

#include <bit>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr int kEnviFloat = 4;
constexpr int kEnviUint16 = 12;

template <typename Value>
std::string braced(std::vector<Value> const& values, Value offset) {
  std::ostringstream text;
  text << "{";
  for (std::size_t k = 0; k < values.size(); ++k) {
    text << (k == 0 ? "" : ",") << (k != 0 && k % 10 == 0 ? "\n " : " ") << values[k] + offset;
  }
  text << " }";
  return text.str();
}

}  // namespace

ResultFolder::ResultFolder(std::string const& path) : folder_(fs::path(path).lexically_normal()) {
  if (!folder_.has_filename()) folder_ = folder_.parent_path();
  std::error_code error;
  if (fs::exists(folder_, error) && !fs::is_directory(folder_, error)) {
    throw HostError(path + ": expected a folder for the results, found a file");
  }
  std::vector<fs::path> missing;
  for (fs::path part = folder_; !part.empty() && !fs::exists(part, error); part = part.parent_path()) {
    missing.insert(missing.begin(), part);
  }
  for (fs::path const& part : missing) {
    if (fs::create_directory(part, error)) created_.push_back(part);
    if (error) break;
  }
  staging_ = folder_ / (".unfinished-" + std::to_string(getpid()));
  if (!error) fs::create_directory(staging_, error);
  if (error) {
    discard();
    throw HostError(path + ": expected a folder that results can be written to, found none (" + error.message() + ")");
  }
}

ResultFolder::~ResultFolder() { discard(); }

void ResultFolder::discard() {
  std::error_code ignored;
  fs::remove_all(staging_, ignored);
  if (published_) return;
  for (auto folder = created_.rbegin(); folder != created_.rend(); ++folder) fs::remove(*folder, ignored);
}

fs::path ResultFolder::stage(std::string const& name) {
  if (fs::is_directory(folder_ / name)) {
    throw HostError((folder_ / name).string() + ": expected a file or nothing, found a folder");
  }
  names_.push_back(name);
  return staging_ / name;
}

void ResultFolder::checkWritten(std::string const& name, std::uintmax_t bytes) const {
  std::error_code error;
  std::uintmax_t const size = fs::file_size(staging_ / name, error);
  if (error || size != bytes) {
    throw HostError((folder_ / name).string() + ": expected room for " + std::to_string(bytes) +
                    " bytes, could write " + std::to_string(error ? 0 : size) + " (disk full?)");
  }
}

void ResultFolder::writeText(std::string const& name, std::string const& text) {
  std::ofstream(stage(name), std::ios::binary) << text;
  checkWritten(name, text.size());
}

void ResultFolder::writePicture(std::string const& name, Picture const& picture) {
  std::string const file = stage(name).string();
  if (!writePng(file, picture)) {
    throw HostError((folder_ / name).string() + ": the picture could not be written (disk full?)");
  }
}

void ResultFolder::writeRaw(std::string const& name, void const* samples, unsigned long count,
                            unsigned long sampleSize) {
  // The library tells nothing about a write that failed, so the file is measured afterwards.
  stage(name);
  std::string const directory = staging_.string() + "/";
  KORVA_Ref_WriteRawDataToDisk(samples, directory.c_str(), name.c_str(), count, sampleSize);
  checkWritten(name, std::uintmax_t{count} * sampleSize);
}

void ResultFolder::writeHeader(std::string const& name, unsigned long width, unsigned long height, unsigned long bands,
                               int dataType, EnviDescription const& description) {
  std::ostringstream text;
  text << "ENVI\ndescription = { " << description.description << " }\nsamples = " << width << "\nlines = " << height
       << "\nbands = " << bands << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = " << dataType
       << "\ninterleave = bsq\nbyte order = " << (std::endian::native == std::endian::little ? 0 : 1) << "\n";
  if (!description.wavelengths.empty()) {
    text << "wavelength units = Nanometers\nwavelength = " << braced(description.wavelengths, 0.0) << "\n";
  }
  if (!description.defaultBands.empty()) {
    text << "default bands = " << braced(description.defaultBands, 1UL) << "\n";
  }
  if (description.reflectanceScale > 0) {
    text << "reflectance scale factor = " << description.reflectanceScale << "\ndata ignore value = 65535\n";
  }
  writeText(name + ".hdr", text.str());
}

void ResultFolder::writeImage(std::string const& name, Frame const& frame, EnviDescription const& description) {
  writeRaw(name + ".raw", frame.samples(), frame.count(), sizeof(unsigned short));
  writeHeader(name, frame.width(), frame.height(), 1, kEnviUint16, description);
}

void ResultFolder::writeCube(std::string const& name, CountCube const& cube, EnviDescription const& description) {
  writeRaw(name + ".raw", cube.samples(), cube.count(), sizeof(unsigned short));
  writeHeader(name, cube.width(), cube.height(), cube.bands(), kEnviUint16, description);
}

void ResultFolder::writeCube(std::string const& name, Cube<float> const& cube, EnviDescription const& description) {
  writeRaw(name + ".raw", cube.samples(), cube.count(), sizeof(float));
  writeHeader(name, cube.width(), cube.height(), cube.bands(), kEnviFloat, description);
}

void ResultFolder::publish() {
  stopIfInterrupted();
  std::error_code error;
  for (std::string const& name : names_) {
    fs::rename(staging_ / name, folder_ / name, error);
    if (error) throw HostError((folder_ / name).string() + ": could not be replaced (" + error.message() + ")");
    published_ = true;
  }
}

}  // namespace host
