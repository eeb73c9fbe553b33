#!/usr/bin/env bash
# Builds the example hosts and runs each on its synthetic scene; the pictures land in results/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

# shellcheck source=scripts/prerequisites.sh
. scripts/prerequisites.sh
require_packages cmake g++ make libcli11-dev libpng-dev

build=build/demo
log=build/demo.log
mkdir -p build
printf 'Building the library and the example hosts ... '
if ! { cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DKORVA_BUILD_EXAMPLES=ON -DKORVA_BUILD_TESTS=OFF &&
  cmake --build "$build" -j "$(nproc)"; } >"$log" 2>&1; then
  echo 'failed:'
  tail -n 30 "$log" >&2
  exit 1
fi
echo 'done'

for host in snapshot_mosaic line_scan rgbx; do
  echo
  "$build/examples/$host" --output "results/$host"
done

# The pictures in the README are these very results.
if [ "${1:-}" = --update-docs ]; then
  mkdir -p docs/images
  for host in snapshot_mosaic line_scan rgbx; do
    cp "results/$host/overview.png" "docs/images/$host.png"
  done
  echo 'docs/images holds the new overviews.'
fi

cat <<END

All results are in $PWD/results: raw files with ENVI headers, and these pictures to look at:

snapshot_mosaic/overview.png           the road at a glance: mosaic, colours before and after, six spectra
snapshot_mosaic/raw_frame.png          zoom in: each cell of 4 x 4 pixels repeats its 16 brightnesses
snapshot_mosaic/colour_before.png      pale colours: every filter also sees what its neighbours see
snapshot_mosaic/colour_after.png       the same three bands after correction: the fruit has its colours back
snapshot_mosaic/spectra.png            blue follows grey (the truth), orange does not; leaf and green paint differ beyond 700 nm
snapshot_mosaic/tiled_raw_frame.png    16 tiles, each the whole still life in one band
snapshot_mosaic/tiled_colour_before.png  the tiles before correction: pale, but free of the mosaic's colour fringes
snapshot_mosaic/tiled_colour_after.png   clean edges: all tiles saw the same points, nothing had to be interpolated
snapshot_mosaic/tiled_spectra.png      the same six points by tiles: closer still to the truth
line_scan/overview.png                 left half before correction, right half after, and six spectra
line_scan/raw_frame.png                each strip of 8 rows sees another wavelength: fields brighten downwards, water stays dark
line_scan/colour_before.png            the stitched scene, without a seam between slices, in washed-out colours
line_scan/colour_after.png             red roofs, yellow rape, blue pool
line_scan/spectra.png                  the sports ground's turf is green but has no red edge: it is artificial
rgbx/overview.png                      RGB sees a sea, X a ship; the new WLI carries the drawing into the colours
rgbx/raw_frame.png                     zoom in: X, G, R and B pixels side by side, and a few stuck ones
rgbx/rgb.png                           the demosaiced painting; not a trace of the drawing
rgbx/x_band.png                        the near infrared: an earlier ship, hatching and two lines of writing
rgbx/wli_side_by_side.png              weight 1, 0.5 and 0: the finest detail moves from what RGB saw to what X saw
rgbx/wli_weight_1.png, _0.5.png, _0.png  the same three at full size
rgbx/median_before_after.png           stuck pixels on the left are gone on the right, while the brush strokes stay
END
