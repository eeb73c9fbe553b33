// How the bands of a snapshot sensor lie on its surface.
#ifndef KORVA_EXAMPLES_SNAPSHOT_LAYOUT_H
#define KORVA_EXAMPLES_SNAPSHOT_LAYOUT_H

namespace host {

struct Box {
  unsigned long left;
  unsigned long top;
  unsigned long width;
  unsigned long height;
};

struct SnapshotLayout {
  enum class Kind { mosaic, tiled };

  Kind kind;
  unsigned long unitWidth;  // of a mosaic cell, or of a tile
  unsigned long unitHeight;
  Box crop;  // the part of the frame that is used; it starts on a whole unit

  unsigned long unitsAcross() const { return crop.width / unitWidth; }
  unsigned long unitsDown() const { return crop.height / unitHeight; }
  // A mosaic has a band for each filter of the cell and a sample for each cell; with tiles it is the other way round.
  unsigned long bands() const { return kind == Kind::mosaic ? unitWidth * unitHeight : unitsAcross() * unitsDown(); }
  unsigned long bandWidth() const { return kind == Kind::mosaic ? unitsAcross() : unitWidth; }
  unsigned long bandHeight() const { return kind == Kind::mosaic ? unitsDown() : unitHeight; }
};

}  // namespace host

#endif
