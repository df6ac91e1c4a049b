# Shared by the scripts: what they say, and what they need. Sourced, not run.

cd "$(dirname "${BASH_SOURCE[0]}")/../.."
ROOT=$PWD
started_at=$SECONDS

# Objects are found again by ccache wherever the tree lies.
export CCACHE_BASEDIR="$ROOT" CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=time_macros

say() { printf '[%4ds] %s\n' "$((SECONDS - started_at))" "$*"; }

die() {
  printf '%s\n' "$*" >&2
  exit 1
}

# The packages of each kind of work, in Debian's names.
packages_build="g++ clang cmake ninja-build ccache git googletest nlohmann-json3-dev python3"
packages_windows="g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 openssl osslsigncode locales"
packages_picture="xvfb imagemagick x11-utils"
packages_check="clang-format clang-tidy libclang-rt-14-dev"
packages_coverage="llvm-14"
packages_bench="libbenchmark-dev libre2-dev libpcre2-dev rapidjson-dev libmsgpack-cxx-dev libcurl4-openssl-dev libspdlog-dev libsqlite3-dev valgrind"

# need KIND...: installs what of these kinds is missing.
need() {
  local kind missing=()
  for kind in "$@"; do
    local list="packages_$kind" package
    for package in ${!list}; do
      dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
        missing+=("$package")
    done
  done
  [ ${#missing[@]} -eq 0 ] && return
  say "installing ${missing[*]}"
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq >/dev/null || die "apt-get update failed"
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null || die "could not install: ${missing[*]}"
}

# quietly LOG COMMAND...: runs a command and shows what it wrote only when it fails.
quietly() {
  local log=$1
  shift
  mkdir -p build
  "$@" >"$log" 2>&1 || {
    tail -n 60 "$log"
    die "failed: $*; all of it is in $log"
  }
}

# configure PRESET [OPTION...], build PRESET [TARGET...]
configure() { quietly "build/$1.configure.log" cmake --preset "$@"; }

build() {
  say "building $1"
  local preset=$1
  shift
  quietly "build/$preset.build.log" cmake --build --preset "$preset" ${1:+--target "$@"}
}
