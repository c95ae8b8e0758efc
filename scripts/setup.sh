#!/usr/bin/env bash
# Installs what is missing, builds the library and the vosys tool, and runs
# vosys on the bundled sample data.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DVOSYS_BUILD_TESTS=OFF
cmake --build build -j"$(nproc)"

echo
echo "== vosys format -f samples/messages.tsv"
build/bin/vosys format -f samples/messages.tsv
echo
echo "== vosys format '%5.2f and \$1' 3.14159 x"
build/bin/vosys format '%5.2f and $1' 3.14159 x
echo
echo "== vosys error -1015"
build/bin/vosys error -1015
echo
echo "== vosys chars 'Åﬁ가١'"
build/bin/vosys chars 'Åﬁ가١'
echo
echo "== vosys encodings"
build/bin/vosys encodings
