#!/usr/bin/env bash
# Lines of test code against lines of product code: the *.cpp and *.h files git tracks under
# tests/, against those under core/, cli/, tools/ and app/.
set -euo pipefail
cd "$(dirname "$0")/.."
lines() { git ls-files -z -- "$@" | xargs -0 cat | wc -l; }
tests=$(lines 'tests/*.cpp' 'tests/*.h')
product=$(lines 'core/*.cpp' 'core/*.h' 'cli/*.cpp' 'cli/*.h' 'tools/*.cpp' 'tools/*.h' 'app/*.cpp' 'app/*.h')
echo "test code $tests lines, product code $product lines: $(awk "BEGIN { printf \"%.2f\", $tests / $product }")"
