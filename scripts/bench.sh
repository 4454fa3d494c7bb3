#!/usr/bin/env bash
# ./dev bench: the figures, in two namespaces of their own; what it is given goes to velmora-bench.
# Names of files are relative to where the caller stands. The rows are kept in build/bench/last.json;
# --plot without a folder draws into build/bench.
set -euo pipefail
caller=${caller:-$PWD}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
build=$root/build
logs=$build/log
results=$build/bench
mkdir -p "$logs" "$results"
# shellcheck source=scripts/common.sh
. scripts/common.sh

arguments=(--json "$results/last.json")
while [ $# -gt 0 ]; do
    arguments+=("$1")
    if [ "$1" = --plot ]; then
        case ${2:-} in "" | -*) arguments+=("$results") ;; esac
    elif [ "$1" = --help ] || [ "$1" = -h ]; then
        exec "$(native velmora-bench)" --help
    fi
    shift
done

inbox=
# Ends what was started at the target's end, and that alone: whatever lives in this namespace.
end_bench() {
    local id
    for id in $(as_root ip netns pids "$net_target" 2>/dev/null); do as_root kill "$id" 2>/dev/null || true; done
    wait
    drop_namespaces
    [ -z "$inbox" ] || rm -rf "$inbox"
    [ "$(id -u)" = 0 ] || as_root chown -R "$(id -u):$(id -g)" "$results"
}
trap end_bench EXIT
trap 'exit 130' INT TERM
need_namespaces
inbox=$(mktemp -d)
# As the bare end of the row "send" cuts it (bench/Responder.h).
in_target "$(native velmora-target)" --interface vtarget --seconds 3600 --quiet --output none \
    --inbox "$inbox" --channel 1424,32,8192 >"$logs/bench-target.log" 2>&1 &
in_target timeout 3600 "$(native velmora-bench)" --respond &
sleep 0.5
code=0
cd "$caller"
# As root, whoever calls: it enters the target's namespace for the far end of each stream, and the
# driver's threads shall have the priorities that they ask for.
as_root ip netns exec "$net_host" "$(native velmora-bench)" --interfaces 1 --find "$(native velmora-find)" \
    --space "$net_target" "${arguments[@]}" || code=$?
exit $code
