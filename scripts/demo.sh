#!/usr/bin/env bash
# Installs what is needed, builds Release and runs the demo: the service in a temporary root
# against the LLRP reader simulator, driven over its command channel.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" >/dev/null
ninja -C build -j"$(nproc)" tessera tessera-readersim
exec /usr/bin/python3 scripts/demo.py "$@"
