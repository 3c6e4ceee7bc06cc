# shellcheck shell=bash
# Installs the Debian packages that a script needs and does not find. To be sourced.
#
#   requirePackages cmake:cmake ninja:ninja-build /usr/include/gtest/gtest.h:libgtest-dev
#
# Each argument is a command, or a file by its absolute path, and behind the colon the package that brings it. When all
# are there, nothing is run; otherwise the missing packages are installed, through sudo unless root does it.

requirePackages() {
  local need probe missing=() asRoot=()
  for need in "$@"; do
    probe=${need%%:*}
    if [[ $probe == /* ]]; then [[ -e $probe ]]; else command -v "$probe" >/dev/null; fi || missing+=("${need#*:}")
  done
  ((${#missing[@]})) || return 0
  echo "Installing: ${missing[*]}"
  if ((EUID != 0)); then
    command -v sudo >/dev/null || { echo "Please install as root: ${missing[*]}" >&2; return 1; }
    asRoot=(sudo)
  fi
  "${asRoot[@]}" apt-get -q update </dev/null &&
    "${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install "${missing[@]}" \
      </dev/null
}

# What building, installing and packaging take.
requireBuildTools() {
  requirePackages g++:g++ cmake:cmake ninja:ninja-build gzip:gzip file:file dpkg-shlibdeps:dpkg-dev
}

# clang++ with its sanitizers and libFuzzer.
requireClang() {
  requirePackages clang++:clang &&
    requirePackages "$(clang++ -print-resource-dir)/lib/linux/libclang_rt.fuzzer-$(uname -m).a:libclang-rt-dev"
}
