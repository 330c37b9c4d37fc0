#!/usr/bin/env bash
# The tests: install what is missing, build and run every suite in release mode (g++) and then in
# the sanitizer builds: the concurrency suite under TSan, then every suite under ASan + UBSan
# (clang, including the fuzz targets for a bounded time). Stops at
# the first failing build or suite; ctest's summary of the last run comes last.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

echo "== release build (g++)"
cmake --preset release >/dev/null
cmake --build --preset release
ctest --preset release

echo "== thread sanitizer (clang, TSan): the concurrency suite"
cmake --preset tsan >/dev/null
cmake --build --preset tsan
ctest --preset tsan

echo "== sanitizer build (clang, ASan + UBSan, fuzz targets)"
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan
