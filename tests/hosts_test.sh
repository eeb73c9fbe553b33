#!/usr/bin/env bash
# Drives the example hosts as a user with good, bad and hostile files would.
#
# usage: tests/hosts_test.sh <folder with the host programs>
set -euo pipefail

hosts=$(cd "$1" && pwd)
work=$(mktemp -d)
chmod 755 "$work"
mounted=
cleanup() {
  [ -z "$mounted" ] || umount "$mounted"
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"

passed=0
failed=0
skipped=0
pass() { passed=$((passed + 1)); }
fail() {
  failed=$((failed + 1))
  printf 'FAILED %s\n' "$@"
}
skip() {
  skipped=$((skipped + 1))
  printf 'skipped %s\n' "$1"
}

# Names and contents of everything below a folder, hidden files included.
state_of() { (cd "$1" && find . | sort && find . -type f -exec sha256sum {} + | sort); }

# check_refusal <what> <host> <words in the message> <status> <folder>: after a run whose output is in stderr.txt.
check_refusal() {
  local what=$1 host=$2 words=$3 status=$4 before=$5 folder=$6
  local problems=()
  if [ "$status" -eq 0 ] || [ "$status" -ge 126 ]; then problems+=("exit status $status"); fi
  [ "$(wc -l <stderr.txt)" -eq 1 ] || problems+=("stderr has $(wc -l <stderr.txt) lines")
  grep -q "^$host: " stderr.txt || problems+=('stderr does not name the host')
  grep -qE -- "$words" stderr.txt || problems+=("stderr lacks '$words'")
  [ "$(state_of "$folder")" = "$before" ] || problems+=('the folder of earlier results has changed')
  if [ ${#problems[@]} -eq 0 ]; then
    pass
  else
    fail "$what: ${problems[*]}" "  stderr: $(head -c 300 stderr.txt)"
  fi
}

# refuses <what> <words> <host> <options...>: exit status, one line with the words, earlier results untouched.
refuses() {
  local what=$1 words=$2 host=$3 before status=0
  shift 3
  before=$(state_of "earlier/$host")
  "$hosts/$host" "$@" --output "earlier/$host" >stdout.txt 2>stderr.txt || status=$?
  check_refusal "$host, $what" "$host" "$words" "$status" "$before" "earlier/$host"
}

# runs <what> <host> <options...>
runs() {
  local what=$1 host=$2
  shift 2
  if "$hosts/$host" "$@" >stdout.txt 2>stderr.txt && [ ! -s stderr.txt ]; then
    pass
  else
    fail "$host, $what" "  stderr: $(head -c 300 stderr.txt)"
  fi
}

same() {
  if cmp -s "$2" "$3"; then pass; else fail "$1: $2 and $3 differ"; fi
}

# ---- Good input ----

exposures=(--exposure 1.1 --white-exposure 1 --white-reflectance 0.95)
calibration_of() { printf '%s\n' --white "$1white.raw" --bias "$1bias.raw" --matrix "$1matrix.txt" --wavelengths "$1wavelengths.txt"; }

small_snapshot=(--width 256 --height 136)
runs 'its synthetic scene' snapshot_mosaic "${small_snapshot[@]}" --output earlier/snapshot_mosaic
mapfile -t mosaic_files < <(calibration_of earlier/snapshot_mosaic/)
mosaic_run=("${small_snapshot[@]}" --frame earlier/snapshot_mosaic/frame.raw "${mosaic_files[@]}" "${exposures[@]}")
runs 'its own frame given back' snapshot_mosaic "${mosaic_run[@]}" --output again/mosaic
same 'mosaic' earlier/snapshot_mosaic/corrected.raw again/mosaic/corrected.raw
mapfile -t tiled_files < <(calibration_of earlier/snapshot_mosaic/tiled_)
runs 'its own tiles given back' snapshot_mosaic "${small_snapshot[@]}" --tile 64 34 \
  --frame earlier/snapshot_mosaic/tiled_frame.raw "${tiled_files[@]}" "${exposures[@]}" --output again/tiled
same 'tiles' earlier/snapshot_mosaic/tiled_corrected.raw again/tiled/corrected.raw

# A crop is the same as a smaller frame: rows and columns away from its border are those of the whole frame.
runs 'a crop' snapshot_mosaic "${mosaic_run[@]}" --crop 0 0 256 68 --output again/crop
same 'the crop up to its last row of cells' <(head -c $((64 * 16 * 2)) again/mosaic/corrected.raw) \
  <(head -c $((64 * 16 * 2)) again/crop/corrected.raw)
runs 'a 5 x 5 mosaic' snapshot_mosaic --width 163 --height 122 --mosaic 5 5 --output again/five
runs 'no matrix and no bias' snapshot_mosaic "${small_snapshot[@]}" --frame earlier/snapshot_mosaic/frame.raw \
  --white earlier/snapshot_mosaic/white.raw --output again/plain

small_scan=(--width 64 --height 96 --strip-height 4 --first-band 2 --last-band 21)
# 20 slices are more than the slice cube's 16 slots.
runs 'its synthetic scene' line_scan "${small_scan[@]}" --scene-rows 80 --keep-frames --output earlier/line_scan
mapfile -t scan_files < <(calibration_of earlier/line_scan/)
scan_run=("${small_scan[@]}" "${scan_files[@]}" "${exposures[@]}")
runs 'its own frames given back' line_scan "${scan_run[@]}" --frames earlier/line_scan/frame_?????.raw --output again/scan
same 'line scan' earlier/line_scan/corrected.raw again/scan/corrected.raw
cat earlier/line_scan/frame_?????.raw >all_frames.raw
runs 'all frames in one file' line_scan "${scan_run[@]}" --frames all_frames.raw --output again/one_file
same 'line scan from one file' earlier/line_scan/corrected.raw again/one_file/corrected.raw

small_rgbx=(--width 256 --height 136)
runs 'its synthetic scene' rgbx "${small_rgbx[@]}" --output earlier/rgbx
runs 'its own frame given back' rgbx "${small_rgbx[@]}" --frame earlier/rgbx/frame.raw --dark earlier/rgbx/dark.raw \
  --flat earlier/rgbx/flat.raw --output again/rgbx
for result in cleaned_frame bands wli_weight_1 wli_weight_0.5 wli_weight_0; do
  same 'RGBX' "earlier/rgbx/$result.raw" "again/rgbx/$result.raw"
done
runs 'a photograph' rgbx --photo earlier/rgbx/rgb.png --output again/photo
runs 'the least size' rgbx --width 16 --height 16 --output again/least

# The results are close to the truth: no slice, tile or band is out of its place. The small mosaic's cells are too
# coarse for its scene, so a whole sensor is looked at.
reaches() {
  if awk -F, -v least="$3" 'NR > 1 { sum += $4 } END { exit !(sum / (NR - 1) >= least) }' "$2"; then
    pass
  else
    fail "$1: the mean PSNR of $2 is below $3 dB"
  fi
}
reaches 'line scan' earlier/line_scan/quality.csv 42
reaches 'tiles' earlier/snapshot_mosaic/tiled_quality.csv 39
runs 'a whole sensor' snapshot_mosaic --output again/sensor
reaches 'mosaic' again/sensor/quality.csv 26
"$hosts/rgbx" "${small_rgbx[@]}" --output again/rgbx >stdout.txt
for line in '17 defects planted, 17 samples replaced' 'demosaiced RGB against the original: 3[0-9]' 'weight 1: 3[0-9]'; do
  if grep -q "$line" stdout.txt; then pass; else fail "rgbx does not report '$line'"; fi
done

# Headers and raw files agree.
value_of() { sed -n "s/^$2 = //p" "$1"; }
while IFS= read -r header; do
  case $(value_of "$header" 'data type') in
    12) size=2 ;;
    4) size=4 ;;
    *) size=0 ;;
  esac
  expected=$(($(value_of "$header" samples) * $(value_of "$header" lines) * $(value_of "$header" bands) * size))
  wavelengths=$(tr '\n' ' ' <"$header" | sed -n 's/.*wavelength = {\([^}]*\)}.*/\1/p' | tr ',' '\n' | grep -c '[0-9]' || true)
  if [ "$expected" -gt 0 ] && [ "$expected" -eq "$(stat -c %s "${header%.hdr}.raw")" ] &&
    [ "$(value_of "$header" interleave)" = bsq ] && [ "$(value_of "$header" 'byte order')" = 0 ] &&
    [ "$(value_of "$header" 'header offset')" = 0 ] && [ "$(head -n 1 "$header")" = ENVI ] &&
    { [ "$wavelengths" -eq 0 ] || [ "$wavelengths" -eq "$(value_of "$header" bands)" ]; }; then
    pass
  else
    fail "$header does not describe ${header%.hdr}.raw"
  fi
done < <(find earlier again -name '*.hdr' ! -name 'frame_0*')
for header in earlier/snapshot_mosaic/corrected.hdr earlier/line_scan/corrected.hdr; do
  if grep -q '^wavelength = {' "$header" && grep -q '^default bands = {' "$header"; then pass; else fail "$header lacks wavelengths"; fi
done

# ---- Bad options ----

for host in snapshot_mosaic line_scan rgbx; do
  refuses 'an unknown option' 'nonsense' "$host" --nonsense
  for number in 0 -1 -2048 4294967296 18446744073709551616 99999999999999999999999 1e3 2048.5 wide ''; do
    refuses "--width '$number'" "--width.*expected .*found '$number'" "$host" --width "$number"
    refuses "--height '$number'" "--height.*expected .*found '$number'" "$host" --height "$number"
  done
done
for number in 0 -3 5000000000; do
  refuses "--mosaic $number 4" "expected .*found '$number'" snapshot_mosaic --mosaic "$number" 4
  refuses "--strip-height $number" "expected .*found '$number'" line_scan --strip-height "$number"
done
refuses 'half a mosaic' '--mosaic' snapshot_mosaic --mosaic 4
refuses 'a crop beyond the frame' 'expected .*256 x 136.*found 200 x 200' snapshot_mosaic "${small_snapshot[@]}" --crop 8 8 200 200
refuses 'a crop inside a cell' 'expected .*4 x 4.*found column 3' snapshot_mosaic "${small_snapshot[@]}" --crop 3 0 64 64
refuses 'a frame below a cell' 'expected .*4 x 4.*found 3 x 3' snapshot_mosaic --width 3 --height 3
refuses 'a tile beyond the frame' 'expected .*found 256 x 136' snapshot_mosaic "${small_snapshot[@]}" --tile 300 300
refuses 'bands below the frame' 'expected .*found band 24' line_scan --width 64 --height 96 --strip-height 4 --last-band 24
refuses 'bands in the wrong order' 'expected .*found 1' line_scan --first-band 2 --last-band 1
refuses 'a width that is no multiple of 4' "multiple of 4, found '18'" rgbx --width 18
refuses 'black above white' 'expected less than .*found 5000' rgbx --black 5000
refuses 'a weight above 1' "expected .*found '1.5'" rgbx --weight 1.5
refuses 'a weight that is no number' "expected .*found 'nan'" rgbx --weight nan
refuses 'a white reference without a frame' '--white requires --frame' snapshot_mosaic --white earlier/snapshot_mosaic/white.raw
refuses 'no exposure' "expected .*found '0'" line_scan --exposure 0
refuses 'an endless exposure' "expected .*found 'inf'" snapshot_mosaic --exposure inf
refuses 'no white reference' 'expected a white reference' snapshot_mosaic "${small_snapshot[@]}" --frame earlier/snapshot_mosaic/frame.raw

# ---- Bad files ----

head -c 1000 earlier/snapshot_mosaic/frame.raw >truncated.raw
cat earlier/snapshot_mosaic/frame.raw truncated.raw >oversized.raw
: >empty.raw
mkdir folder.raw
mkfifo fifo.raw

# refuses_file <bytes> <host> <option> <run...>: every kind of bad file as the value of one option.
refuses_file() {
  local bytes=$1 host=$2 option=$3 file
  shift 3
  for file in truncated oversized empty; do
    refuses "$option $file.raw" "expected .*$bytes.*found $(stat -c %s "$file.raw") bytes" "$host" "$@" "$option" "$file.raw"
  done
  refuses "$option missing" 'missing.raw: expected .*No such file' "$host" "$@" "$option" missing.raw
  refuses "$option folder" 'folder.raw: expected .*found a folder' "$host" "$@" "$option" folder.raw
  refuses "$option fifo" 'fifo.raw: expected .*not a file' "$host" "$@" "$option" fifo.raw
}
snapshot_bytes=$((256 * 136 * 2))
refuses_file $snapshot_bytes snapshot_mosaic --frame "${small_snapshot[@]}" --white earlier/snapshot_mosaic/white.raw
refuses_file $snapshot_bytes snapshot_mosaic --white "${small_snapshot[@]}" --frame earlier/snapshot_mosaic/frame.raw
refuses_file $snapshot_bytes snapshot_mosaic --bias "${small_snapshot[@]}" --frame earlier/snapshot_mosaic/frame.raw \
  --white earlier/snapshot_mosaic/white.raw
refuses_file $((64 * 96 * 2)) line_scan --frames "${scan_run[@]}"
refuses_file $snapshot_bytes rgbx --frame "${small_rgbx[@]}"
refuses_file $snapshot_bytes rgbx --dark "${small_rgbx[@]}" --frame earlier/rgbx/frame.raw
refuses 'too few frames' 'expected at least 20 frames.*found 1' line_scan "${scan_run[@]}" --frames earlier/line_scan/frame_00000.raw
refuses 'the largest frame with a small file' 'expected .*8589672450 bytes.*found 69632' snapshot_mosaic --width 65535 --height 65535 \
  --frame earlier/snapshot_mosaic/frame.raw --white earlier/snapshot_mosaic/white.raw

matrix=earlier/snapshot_mosaic/matrix.txt
sed '4s/^[^ ]*/nan/' $matrix >nan.txt
sed '3s/^[^ ]*/1e999/' $matrix >infinite.txt
sed '2s/^[^ ]* //' $matrix >ragged.txt
sed '2s/^[^ ]*/0.5x/' $matrix >letters.txt
sed '5s/^[^ ]*/70/' $matrix >large.txt
printf '# no weights at all\n' >blank.txt
refuses_matrix() { refuses "matrix $1" "$2" snapshot_mosaic "${mosaic_run[@]/$matrix/$1}"; }
refuses_matrix nan.txt "nan.txt line 4: expected finite numbers, found 'nan'"
refuses_matrix infinite.txt "infinite.txt line 3: expected finite numbers, found '1e999'"
refuses_matrix ragged.txt 'expected 16 weights for output band 0, found 15'
refuses_matrix letters.txt "letters.txt line 2: expected finite numbers, found '0.5x'"
refuses_matrix large.txt 'large.txt: expected .*found weights .* band 3'
refuses_matrix blank.txt 'blank.txt: expected a correction matrix, found no numbers'
refuses_matrix folder.raw 'folder.raw: expected a correction matrix .*found a folder'
refuses_matrix missing.txt 'missing.txt: expected a correction matrix .*No such file'
printf '500 600\n' >two.txt
refuses 'two wavelengths' 'two.txt: expected 16 wavelengths, found 2' snapshot_mosaic "${mosaic_run[@]/earlier\/snapshot_mosaic\/wavelengths.txt/two.txt}"

head -c 2000 earlier/rgbx/rgb.png >truncated.png
refuses 'a truncated picture' 'truncated.png: expected a PNG picture' rgbx --photo truncated.png
refuses 'no picture at all' 'empty.raw: expected a PNG picture' rgbx --photo empty.raw
refuses 'a folder as a picture' 'folder.raw: expected a PNG picture .found a folder' rgbx --photo folder.raw
refuses 'a missing picture' 'missing.png: expected a PNG picture .*No such file' rgbx --photo missing.png

# Root reads everything, so the unreadable file is tried as nobody.
cp earlier/snapshot_mosaic/frame.raw unreadable.raw
chmod 000 unreadable.raw
as_other=()
if [ "$(id -u)" -eq 0 ]; then as_other=(setpriv --reuid 65534 --regid 65534 --clear-groups); fi
if "${as_other[@]}" "$hosts/snapshot_mosaic" --help >/dev/null 2>&1; then
  status=0
  before=$(state_of earlier/snapshot_mosaic)
  "${as_other[@]}" "$hosts/snapshot_mosaic" "${small_snapshot[@]}" --frame unreadable.raw \
    --white earlier/snapshot_mosaic/white.raw --output earlier/snapshot_mosaic >stdout.txt 2>stderr.txt || status=$?
  check_refusal 'an unreadable file' snapshot_mosaic 'expected .*Permission denied' "$status" "$before" earlier/snapshot_mosaic
  if [ "$(id -u)" -eq 0 ]; then
    status=0
    "${as_other[@]}" "$hosts/snapshot_mosaic" "${mosaic_run[@]}" --output earlier/snapshot_mosaic >stdout.txt 2>stderr.txt || status=$?
    check_refusal 'a folder that is not ours' snapshot_mosaic 'expected a folder .*Permission denied' "$status" "$before" earlier/snapshot_mosaic
  fi
else
  skip 'unreadable files: another user cannot reach the programs'
fi

# ---- Bad places for results ----

before=$(state_of earlier/rgbx)
status=0
"$hosts/rgbx" "${small_rgbx[@]}" --output earlier/rgbx/frame.raw >stdout.txt 2>stderr.txt || status=$?
check_refusal 'a file as the folder' rgbx 'expected a folder for the results, found a file' "$status" "$before" earlier/rgbx
mkdir -p blocked/rgb.png
before=$(state_of blocked)
status=0
"$hosts/rgbx" "${small_rgbx[@]}" --output blocked >stdout.txt 2>stderr.txt || status=$?
check_refusal 'a folder in the place of a result' rgbx 'rgb.png: expected a file or nothing, found a folder' "$status" "$before" blocked

# A write that fails half-way: a limit on the size of files, which tells the program as a full disk does.
for host in snapshot_mosaic line_scan rgbx; do
  case $host in
    line_scan) run=("${small_scan[@]}" --scene-rows 80) ;;
    *) run=(--width 256 --height 136) ;;
  esac
  before=$(state_of "earlier/$host")
  status=0
  (
    trap '' XFSZ
    ulimit -f 40
    exec "$hosts/$host" "${run[@]}" --output "earlier/$host"
  ) >stdout.txt 2>stderr.txt || status=$?
  check_refusal "$host, files cut at 40 KiB" "$host" 'expected room for [0-9]+ bytes, could write [0-9]+' "$status" "$before" "earlier/$host"
  status=0
  "$hosts/$host" "${run[@]}" --output "again/full_$host" >/dev/full 2>stderr.txt || status=$?
  check_refusal "$host, standard output full" "$host" 'standard output cannot be written: No space left' "$status" "$before" "earlier/$host"
done

mkdir small_disk
if mount -t tmpfs -o size=300k tmpfs small_disk 2>/dev/null; then
  mounted=$work/small_disk
  for host in snapshot_mosaic line_scan rgbx; do
    mkdir "small_disk/$host"
    printf 'an earlier result\n' >"small_disk/$host/corrected.raw"
    before=$(state_of small_disk)
    status=0
    "$hosts/$host" --width 256 --height 1088 --output "small_disk/$host" >stdout.txt 2>stderr.txt || status=$?
    check_refusal "$host, a full disk" "$host" 'disk full' "$status" "$before" small_disk
  done
  umount small_disk
  mounted=
else
  skip 'a full disk: file systems cannot be mounted here'
fi

# Folders that a failed run had to make are gone again.
status=0
mkdir nest
before=$(state_of nest)
"$hosts/rgbx" --photo truncated.png --output nest/a/b >stdout.txt 2>stderr.txt || status=$?
check_refusal 'folders made for nothing' rgbx 'truncated.png' "$status" "$before" nest

# Stopped on the way.
before=$(state_of earlier/line_scan)
status=0
"$hosts/line_scan" --width 2048 --output earlier/line_scan >stdout.txt 2>stderr.txt &
host_process=$!
for _ in $(seq 100); do
  [ -e "earlier/line_scan/.unfinished-$host_process" ] && break
  sleep 0.05
done
kill -TERM "$host_process"
wait "$host_process" || status=$?
check_refusal 'stopped by a signal' line_scan 'stopped on request' "$status" "$before" earlier/line_scan

printf '%d passed, %d failed, %d skipped\n' "$passed" "$failed" "$skipped"
[ "$failed" -eq 0 ]
