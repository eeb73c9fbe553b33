// Lines, discs and a stroke font, drawn without jagged edges.
#ifndef KORVA_EXAMPLES_DRAWING_H
#define KORVA_EXAMPLES_DRAWING_H

#include <string>
#include <vector>

#include "picture.h"

namespace host {

struct Point {
  double x;
  double y;
};

void drawLine(Picture& picture, Point from, Point to, double thickness, Colour colour);
void drawPolyline(Picture& picture, std::vector<Point> const& points, double thickness, Colour colour);
// The polyline's length cut into dashes and gaps.
void drawDashes(Picture& picture, std::vector<Point> const& points, double thickness, double dash, double gap,
                Colour colour);
void drawRing(Picture& picture, Point centre, double radius, double thickness, Colour colour);
void fillBox(Picture& picture, Point from, Point to, Colour colour);

// Text whose capitals are the given height; the position is the left end of the baseline.
void drawText(Picture& picture, Point position, double height, std::string const& text, Colour colour,
              double thickness = 0);
double textWidth(std::string const& text, double height);

// The picture under a caption on white.
Picture captioned(Picture const& picture, std::string const& caption);
// Pictures on white, side by side or one under the other.
Picture sideBySide(std::vector<Picture> const& pictures);
Picture stacked(std::vector<Picture> const& pictures);

}  // namespace host

#endif
