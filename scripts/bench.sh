#!/usr/bin/env bash
# ./dev bench: the figures, in two namespaces of their own; what it is given goes to velmora-bench.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
build=$root/build
logs=$build/log
# shellcheck source=scripts/common.sh
. scripts/common.sh
trap drop_namespaces EXIT
need_namespaces
in_target "$(native velmora-target)" --interface vtarget --seconds 1200 --quiet --output none >"$logs/bench-target.log" 2>&1 &
target=$!
sleep 0.5
code=0
in_host "$(native velmora-bench)" --interfaces 1 "$@" || code=$?
kill $target 2>/dev/null || true
wait $target 2>/dev/null || true
exit $code
