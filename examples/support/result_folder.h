// The folder that receives a host's results, all of them or none.
//
// Files are written to a hidden folder inside it and renamed into place by publish(). Until then earlier results
// stay as they were; a host that gives up on the way leaves nothing behind.
#ifndef KORVA_EXAMPLES_RESULT_FOLDER_H
#define KORVA_EXAMPLES_RESULT_FOLDER_H

#include <filesystem>
#include <string>
#include <vector>

#include "arrays.h"
#include "picture.h"

namespace host {

// What an ENVI header tells beyond the sizes: enough for common viewers to open the raw file beside it.
struct EnviDescription {
  std::string description;
  std::vector<double> wavelengths;          // nanometres, one per band; may be empty
  std::vector<unsigned long> defaultBands;  // shown as red, green, blue; counted from 0; may be empty
  double reflectanceScale = 0;              // sample value of reflectance 1; 0 for anything but reflectance
};

class ResultFolder {
 public:
  explicit ResultFolder(std::string const& path);
  ~ResultFolder();
  ResultFolder(ResultFolder const&) = delete;
  ResultFolder& operator=(ResultFolder const&) = delete;

  void writeText(std::string const& name, std::string const& text);
  void writePicture(std::string const& name, Picture const& picture);

  // Each writes NAME.raw and its header NAME.hdr.
  void writeImage(std::string const& name, Frame const& frame, EnviDescription const& description);
  void writeCube(std::string const& name, CountCube const& cube, EnviDescription const& description);
  void writeCube(std::string const& name, Cube<float> const& cube, EnviDescription const& description);

  // Puts everything written so far in its place.
  void publish();

  std::string path() const { return folder_.string(); }

 private:
  std::filesystem::path stage(std::string const& name);
  void checkWritten(std::string const& name, std::uintmax_t bytes) const;
  void writeRaw(std::string const& name, void const* samples, unsigned long count, unsigned long sampleSize);
  void writeHeader(std::string const& name, unsigned long width, unsigned long height, unsigned long bands,
                   int dataType, EnviDescription const& description);
  void discard();

  std::filesystem::path folder_;
  std::filesystem::path staging_;
  std::vector<std::filesystem::path> created_;  // folders that this run made, outermost first
  std::vector<std::string> names_;
  bool published_ = false;
};

}  // namespace host

#endif
