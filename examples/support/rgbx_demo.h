// Raw RGBX frames made of a synthetic scene or of a photograph, and defects to be cleaned from them.
#ifndef KORVA_EXAMPLES_RGBX_DEMO_H
#define KORVA_EXAMPLES_RGBX_DEMO_H

#include "arrays.h"
#include "picture.h"
#include "scene.h"

namespace host {

// Counts of a sample that sees nothing and of one that sees white.
struct Levels {
  unsigned short black;
  unsigned short white;
};

// A frame and the picture that a perfect reconstruction would show.
struct RgbxCapture {
  Frame frame;
  Picture truth;
};

// White of the scene's pictures: most of it reflects less.
inline constexpr double kPaintingWhite = 0.62;

RgbxCapture photographScene(Scene const& scene, Levels const& levels);
// X is taken as the luma of the photograph, as if its filter were clear. The size is cut to whole filter tiles.
RgbxCapture mosaicPhotograph(Picture const& photograph, Levels const& levels);

// A dark (light 0) or evenly lit frame.
Frame uniformFrame(unsigned long width, unsigned long height, double light, Levels const& levels);

// Makes about one sample in two thousand stuck at its highest or lowest value, the same
// ones in every frame of a size. Returns how many.
unsigned long plantDefects(Frame& frame, Levels const& levels);

}  // namespace host

#endif
