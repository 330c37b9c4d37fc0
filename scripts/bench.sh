#!/usr/bin/env bash
# The main job: install what is missing, build in release mode and run zemdc-bench. Arguments are
# passed on (for example: --corpus /path/to/silesia/* or --family lz4).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target zemdc-bench >/dev/null
exec ./build/release/tools/bench/zemdc-bench "$@"
