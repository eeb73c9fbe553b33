// A synthetic snapshot camera in front of a synthetic scene.
#ifndef KORVA_EXAMPLES_SNAPSHOT_DEMO_H
#define KORVA_EXAMPLES_SNAPSHOT_DEMO_H

#include <vector>

#include "calibration.h"
#include "camera.h"
#include "cube_report.h"
#include "scene.h"
#include "snapshot_layout.h"

namespace host {

struct SnapshotDemo {
  Frame scene;
  Frame white;
  Frame bias;
  SpectralCorrection correction;
  TruthRow truthRow;  // refers to the scene it was made from
  std::vector<Landmark> points;
};

SnapshotDemo takeSnapshot(Scene const& scene, Camera const& camera, SnapshotLayout const& layout,
                          CalibrationOptions const& options);

}  // namespace host

#endif
