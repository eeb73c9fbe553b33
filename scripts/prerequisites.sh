# Sourced by the scripts that build something. Installs what is missing on a Debian machine, or says how.

# require_packages <package>...: returns when all are installed.
require_packages() {
  local package missing=()
  for package in "$@"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      missing+=("$package")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0

  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
      as_root=(sudo)
    else
      echo "Missing packages; install them with: sudo apt-get install ${missing[*]}" >&2
      exit 1
    fi
  fi
  echo "Installing: ${missing[*]}"
  local install=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install "${missing[@]}")
  # The package lists may be old or absent on a new machine, so they are renewed before the first attempt.
  if ! { "${as_root[@]}" apt-get -qq update && "${as_root[@]}" "${install[@]}"; } >/dev/null; then
    echo "Could not install the packages; try: sudo apt-get update && sudo apt-get install ${missing[*]}" >&2
    exit 1
  fi
}
