# Lists of Debian packages, and functions for the scripts of the project, which source this file from its root.

# For the build, and the programs that tolquin runs.
build_packages=(g++ cmake make pkg-config libdw-dev libcli11-dev libcsv-dev nlohmann-json3-dev libsqlite3-dev zlib1g-dev binutils gdb)
# Also needed by the tests.
test_packages=(libgtest-dev clang lld llvm dwz procps strace python3-jsonschema python3-yaml cmark-gfm git sqlite3)
# Also needed by .ci/run.
check_packages=(clang-format clang-tidy mandoc lintian)
# Optional: for testing the page of `tolquin report` in a browser.
page_packages=(chromium chromium-driver python3-selenium)

# Installs the given packages if they are missing; without root, prints which to install, and exits.
require_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  if [ "$(id -u)" -ne 0 ]; then
    echo "Please install these packages first, as root: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  echo "installing ${missing[*]}" >&2
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Configures and builds a preset of CMakePresets.json; passes further arguments to the configuration step.
build_preset() {
  local preset=$1
  shift
  cmake --preset "$preset" "$@" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)"
}
