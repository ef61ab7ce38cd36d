# shellcheck shell=bash
# Set-up of ./run and ./test, sourced by both: installs what is missing, configures and builds.
# Says nothing when there is nothing to do. What it says goes to standard error.

# The packages of Debian 12, in one place.
PACKAGES=(
  cmake ninja-build g++                 # the build
  libedit-dev                           # line editing of the panel
  libcli11-dev                          # the command line of the tools and the panel
  nlohmann-json3-dev                    # the panel's JSON
  libgtest-dev libgmock-dev             # the tests
  snmp snmptrapd                        # tests: send and receive real traps
  libxml2-utils                         # tests: checks that files are well-formed
  libbenchmark-dev libboost-dev         # the benchmarks, and what they compare with
  help2man man-db                       # the manual pages of the tools, and their test
  pkgconf dpkg-dev fakeroot lintian     # tests: the installed library, and its packages
)
# What a preset or the linters need besides.
preset_packages() {
  case "$1" in
    clang) echo clang ;;
    asan) echo clang libclang-rt-14-dev llvm ;;  # llvm: the names in stacks
    m68k | mcf5407) echo g++-m68k-linux-gnu qemu-user googletest ;;
    i686) echo g++-i686-linux-gnu googletest ;;
    coverage) echo gcovr ;;
    lint) echo git clang-format clang-tidy cppcheck ;;
  esac
}

say() { echo "$*" >&2; }

# Installs those of the named packages that are missing.
install_packages() {
  local missing=() package as_root=()
  if ! command -v dpkg-query > /dev/null; then
    say "This is no Debian: the packages ${*} (or what they are called here) have to be there."
    return
  fi
  for package in "$@"; do
    [[ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2> /dev/null)" == installed ]] ||
      missing+=("$package")
  done
  ((${#missing[@]})) || return 0
  if ((EUID != 0)); then
    if ! command -v sudo > /dev/null; then
      say "Missing packages, and no sudo to install them. As root: apt-get install ${missing[*]}"
      exit 1
    fi
    as_root=(sudo)
  fi
  say "Installing ${missing[*]} ..."
  local log
  log="$(mktemp)"
  if ! { "${as_root[@]}" apt-get update -q &&
         "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
           apt-get install -qy --no-install-recommends "${missing[@]}"; } \
       > "$log" 2>&1 < /dev/null; then
    tail -20 "$log" >&2
    say "Cannot install them. By hand: apt-get install ${missing[*]}"
    exit 1
  fi
  rm -f "$log"
}

# build PRESET [TARGET...]: configures the preset, if that was not done as it now is, and builds it.
build() {
  local preset="$1" dir="build/$1"
  shift
  # shellcheck disable=SC2046 # one word per package
  install_packages "${PACKAGES[@]}" $(preset_packages "$preset")
  mkdir -p build
  if [[ ! -f "$dir/build.ninja" || CMakePresets.json -nt "$dir/build.ninja" ]]; then
    say "Configuring $dir ..."
    quietly "$dir.log" '' cmake --preset "$preset"
  fi
  quietly "$dir.log" "Building $dir${1:+, $*} ..." cmake --build "$dir" ${1:+--target "$@"}
}

# quietly LOG MESSAGE COMMAND...: runs a command with its output in a file, which is shown when the
# command fails. MESSAGE is said once something is being compiled or linked.
quietly() {
  local log="$1" message="$2"
  shift 2
  if ! "$@" 2>&1 < /dev/null | tee "$log" |
       { ! grep -qm1 -E '\] (Building|Linking)' || say "$message"; cat > /dev/null; }; then
    tail -60 "$log" >&2
    say "Failed: $* (all of it: $log)"
    exit 1
  fi
}
