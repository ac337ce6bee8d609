#!/bin/sh
# Builds the camera library alone, as build/LenslarkEmuInject.so, with lenslark-run beside it.
set -eu
cd "$(dirname "$0")/.."
if [ ! -f build/CMakeCache.txt ]; then
  cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
fi
cmake --build build --target lenslark-injector lenslark-run
echo "built build/LenslarkEmuInject.so"
