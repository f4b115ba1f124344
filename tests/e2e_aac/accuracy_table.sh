#!/usr/bin/env bash
# Prints akl-aacdec's accuracy table on the complete AAC conformance streams
# and public test vectors of the shared folder (the e2e test runs the same
# measurement on the truncated copies in tests/data).
#
# usage: tests/e2e_aac/accuracy_table.sh [SHARED_DIR] [BUILD_DIR]
#   SHARED_DIR  holds conformance/aac and testvectors (default /work/shared)
#   BUILD_DIR   a configured build tree (default build/release; built if needed)
set -euo pipefail
cd "$(dirname "$0")/../.."
shared=${1:-/work/shared}
build=${2:-build/release}
if [ ! -d "$build" ]; then cmake --preset release >/dev/null; fi
cmake --build "$build" --target aac_accuracy -j2 >/dev/null
"$build/tests/e2e_aac/aac_accuracy" --full "$shared"
