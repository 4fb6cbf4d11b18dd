# Shared by the scripts at the root; to be sourced from there.

# What the build needs, and the programs that tolquin runs.
build_packages=(g++ cmake make pkg-config libdw-dev libcli11-dev libcsv-dev nlohmann-json3-dev libsqlite3-dev zlib1g-dev binutils gdb)
# What the tests need as well.
test_packages=(libgtest-dev clang lld llvm dwz procps strace python3-jsonschema python3-yaml cmark-gfm git sqlite3)
# What .ci/run checks with as well.
check_packages=(clang-format clang-tidy mandoc lintian)

# With these the page of `tolquin report` is tested too.
page_packages=(chromium chromium-driver python3-selenium)

# Makes sure that the named Debian packages are there: installs the missing ones as root, otherwise says which to install.
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

# Configures and builds a preset of CMakePresets.json; further arguments go to the configuration step.
build_preset() {
  local preset=$1
  shift
  cmake --preset "$preset" "$@" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)"
}
