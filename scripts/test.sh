#!/usr/bin/env bash
# Builds the release and runs all tests, after installing what this takes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/packages.sh

requireBuildTools
requirePackages /usr/include/gtest/gtest.h:libgtest-dev
cmake --preset release
cmake --build --preset release
ctest --preset release
