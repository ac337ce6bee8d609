#!/bin/bash
# Formatting and static analysis of every tracked source. With file names as arguments: of those.
# With --formatting alone: no static analysis, which takes minutes.
#
#   LENSLARK_LINT_JOBS   how many files are analysed at once (default: one for each processor)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
jobs=${LENSLARK_LINT_JOBS:-$(nproc)}

analyse=1
if [ "${1:-}" = --formatting ]; then
  analyse=
  shift
fi
if [ $# -gt 0 ]; then
  sources=("$@")
else
  mapfile -t sources < <(git ls-files '*.h' '*.cpp' '*.c')
fi

echo "lint: formatting of ${#sources[@]} files"
clang-format --dry-run -Werror "${sources[@]}"

echo "lint: scripts"
for script in $(git ls-files '*.sh' .ci/run); do bash -n "$script"; done
mapfile -t scripts < <(git ls-files '*.py')
[ ${#scripts[@]} -eq 0 ] || PYTHONDONTWRITEBYTECODE=1 python3 - "${scripts[@]}" <<'PYTHON'
import ast, sys
for path in sys.argv[1:]:
    ast.parse(open(path, encoding="utf-8").read(), path)
PYTHON

if [ -z "$analyse" ]; then
  echo "lint: clean, not analysed"
  exit 0
fi

# The analyser reads the flags of clang, so that it gets a configuration of its own; nothing in it
# is built.
echo "lint: static analysis"
cmake -S . -B build-lint -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DLENSLARK_TESTS=ON -DLENSLARK_BENCH=ON >/dev/null
python3 - "${sources[@]}" > build-lint/analysed.txt <<'PYTHON'
import json, os, sys
built = {os.path.relpath(entry["file"]) for entry in json.load(open("build-lint/compile_commands.json"))}
print("\n".join(path for path in sys.argv[1:] if path in built))
PYTHON
xargs -a build-lint/analysed.txt -r -P "$jobs" -n 4 clang-tidy --quiet -p build-lint 2>build-lint/tidy.log ||
  { grep -E 'error:' build-lint/tidy.log >&2 || true; echo "lint: failed" >&2; exit 1; }
echo "lint: clean"
