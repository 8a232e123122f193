# shellcheck shell=bash
# Shared by ./run, ./test and .ci/run, which source it after setting root to the source tree.
: "${root:?}"

# note TEXT...: says something on standard error; standard output belongs to the program.
note() { printf '%s\n' "${0##*/}: $*" >&2; }

# packages LIST GROUP...: the packages of these groups in packaging/LIST, one a line.
packages() {
  local list=$root/packaging/$1 group
  shift
  for group in "$@"; do
    awk -v group="$group" '$1 == group { print $2 }' "$list"
  done
}

# is_mac: whether this is a Mac, where bash is 3.2.
is_mac() { [[ $(uname) == Darwin ]]; }

# program: the built program.
program() {
  if is_mac; then
    echo "$root/build/release/Marigold.app/Contents/MacOS/Marigold"
  else
    echo "$root/build/release/main/linux/marigold"
  fi
}

# install_on_mac GROUP...: what install_packages does, with Homebrew.
install_on_mac() {
  local formula missing=()
  if ! xcode-select -p >/dev/null 2>&1; then
    note "Xcode's command line tools are missing; run xcode-select --install"
    return 1
  fi
  for formula in $(packages homebrew-packages "$@"); do
    brew list --formula "$formula" >/dev/null 2>&1 || missing+=("$formula")
  done
  if ((${#missing[@]} == 0)); then
    return 0
  fi
  note "installing ${missing[*]}"
  if ! brew install --quiet "${missing[@]}" >&2 </dev/null; then
    note "could not install what is missing. With Homebrew (https://brew.sh), run:"
    note "  brew install ${missing[*]}"
    return 1
  fi
}

# install_packages GROUP...: installs the packages of these groups that are missing.
install_packages() {
  if is_mac; then
    install_on_mac "$@"
    return
  fi
  local wanted installed missing=() package
  mapfile -t wanted < <(packages debian-packages "$@")
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
  # Debian's C++ compiler may be switched to one that is too old for C++23; g++ never is. On a Mac it
  # is another name of Xcode's.
  if ! log=$(CXX=${CXX:-g++} cmake -S "$root" --preset "$preset" ${fresh[@]+"${fresh[@]}"} "$@" 2>&1); then
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
