# shellcheck shell=bash
# Shared by ./run, ./test and .ci/run, which source it after setting root to the source tree.
: "${root:?}"

# note TEXT...: says something on standard error; standard output belongs to the program.
note() { printf '%s\n' "${0##*/}: $*" >&2; }

# packages GROUP...: the packages of these groups, one a line.
packages() {
  local group
  for group in "$@"; do
    awk -v group="$group" '$1 == group { print $2 }' "$root/packaging/debian-packages"
  done
}

# install_packages GROUP...: installs the packages of these groups that are missing.
install_packages() {
  local wanted installed missing=() package
  mapfile -t wanted < <(packages "$@")
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    note "this is not a Debian system, so nothing is installed; needed are the equivalents of" "${wanted[@]}"
    return 0
  fi
  installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null |
    awk '$1 == "installed" { print $2 }') || true
  for package in "${wanted[@]}"; do
    grep -qxF -- "$package" <<<"$installed" || missing+=("$package")
  done
  if ((${#missing[@]} == 0)); then
    return 0
  fi

  local as_root=(env DEBIAN_FRONTEND=noninteractive) apt
  if ((EUID != 0)); then
    if ! command -v sudo >/dev/null; then
      cannot_install "${missing[@]}"
      return 1
    fi
    as_root=(sudo "${as_root[@]}")
  fi
  apt=("${as_root[@]}" apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0)
  note "installing ${missing[*]}"
  # A stale or unreachable list matters only if the installation then fails.
  "${apt[@]}" update >&2 </dev/null || note "apt-get update failed; going on with the lists at hand"
  if ! "${apt[@]}" install -y --no-install-recommends "${missing[@]}" >&2 </dev/null; then
    cannot_install "${missing[@]}"
    return 1
  fi
}

cannot_install() {
  note "could not install what is missing. As root, run:"
  note "  apt-get update && apt-get install --no-install-recommends $*"
}

# configure PRESET [CMAKE-ARGUMENT...]: configures build/PRESET, quietly unless it fails.
configure() {
  local preset=$1 build=$root/build/$1 fresh=() log
  shift
  mkdir -p "$build"
  # A tree that was moved or copied brings along a cache that names its old place.
  if [[ -f $build/CMakeCache.txt ]] &&
    ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$build/CMakeCache.txt"; then
    fresh=(--fresh)
  fi
  # Debian's C++ compiler may be switched to one that is too old for C++23; g++ never is.
  if ! log=$(CXX=${CXX:-g++} cmake -S "$root" --preset "$preset" "${fresh[@]}" "$@" 2>&1); then
    printf '%s\n' "$log" >&2
    note "configuring build/$preset failed"
    return 1
  fi
  # CMake watches its own files but not the presets.
  touch "$build/.configured"
}

# is_configured PRESET: whether build/PRESET can be built as it is.
is_configured() {
  local build=$root/build/$1
  [[ -f $build/build.ninja && $build/.configured -nt $root/CMakePresets.json ]] &&
    grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$build/CMakeCache.txt"
}

# builds_tests PRESET: whether build/PRESET is configured with its tests.
builds_tests() {
  grep -qsx 'BUILD_TESTING:BOOL=ON' "$root/build/$1/CMakeCache.txt"
}

# build PRESET [TARGET...]: builds, on standard error and silent when all is up to date.
build() {
  local build=$root/build/$1
  shift
  cmake --build "$build" ${1:+--target "$@"} 2>&1 </dev/null |
    { grep --line-buffered -vE '^(\[.*\] Re-checking globbed directories\.\.\.|ninja: no work to do\.)$' || true; } >&2
}
