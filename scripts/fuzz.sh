# ./dev fuzz: every fuzzer in turn, each for a while, and a table of what came of it. Sourced by ./dev.

fuzz_corpora=$build/fuzz-corpus   # what was found to be new, kept from run to run
fuzz_findings=$build/fuzz-findings
fuzz_logs=$logs/fuzz
# What no input may take: bytes in one piece, of memory at all, and seconds.
fuzz_limits=(-malloc_limit_mb=700 -rss_limit_mb=2048 -timeout=20)

fuzzer_names() { find fuzz/corpus -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort; }

# run_fuzzer NAME SECONDS
run_fuzzer() {
    local name=$1 seconds=$2 log=$fuzz_logs/$1.log
    mkdir -p "$fuzz_corpora/$name"
    # It ends by itself; the time above that is for an input that hangs where no time is looked at.
    timeout --foreground $((seconds + 120)) "$build/fuzz/bin/fuzz_$name" -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix="$fuzz_findings/$name-" "${fuzz_limits[@]}" \
        "$fuzz_corpora/$name" "fuzz/corpus/$name" >"$log" 2>&1 || true
}

# Inputs that ended a fuzzer, since the run began.
findings_of() { find "$fuzz_findings" -type f -newer "$fuzz_findings/.begun" -name "$1-*" ! -name '*.txt' ! -name "$1-slow-unit-*"; }

# stat_of LOG NAME: a figure of libFuzzer's closing lines; 0 where it did not come to them.
stat_of() { sed -nE "s/^stat::$2: +([0-9]+)$/\1/p" "$1" | tail -n 1 | grep . || printf 0; }

# tell_fuzzer NAME: its row of the table. What it found gets its last words and the way to see it again.
tell_fuzzer() {
    local name=$1 log=$fuzz_logs/$1.log file edges found=0
    edges=$(grep -oE ' cov: [0-9]+' "$log" | tail -n 1 | tr -dc 0-9 || true)
    for file in $(findings_of "$name"); do
        found=$((found + 1))
        {
            printf 'build/fuzz/bin/fuzz_%s %s\n\n' "$name" "${file#"$root"/}"
            tail -n 60 "$log"
        } >"$file.txt"
    done
    # One that ended without its figures and without an input of its own has found something all the same.
    if [ $found = 0 ] && ! grep -q '^stat::number_of_executed_units' "$log"; then
        found=1
        cp "$log" "$fuzz_findings/$name-ended.txt"
    fi
    total_findings=$((total_findings + found))
    printf '%-18s %12s %9s %7s %7s %9s\n' "$name" "$(stat_of "$log" number_of_executed_units)" \
        "$(stat_of "$log" average_exec_per_sec)" "${edges:-0}" "$(stat_of "$log" new_units_added)" "$found"
}

fuzz() {
    local seconds=60 jobs names=() name known
    jobs=$(nproc)
    while [ $# -gt 0 ]; do
        case $1 in
            --seconds) seconds=${2:-}; shift ;;
            -j) jobs=${2:-}; shift ;;
            -*) usage >&2; exit 2 ;;
            *) names+=("$1") ;;
        esac
        shift
    done
    case $seconds$jobs in '' | *[!0-9]*) usage >&2; exit 2 ;; esac
    mapfile -t known < <(fuzzer_names)
    [ ${#names[@]} -gt 0 ] || names=("${known[@]}")
    for name in "${names[@]}"; do
        case " ${known[*]} " in *" $name "*) ;; *) fail "There is no fuzzer $name; there are: ${known[*]}" ;; esac
    done
    need_packages "${clang_packages[@]}"
    build_preset fuzz "${names[@]/#/fuzz_}"
    mkdir -p "$fuzz_corpora" "$fuzz_findings" "$fuzz_logs"
    touch "$fuzz_findings/.begun"
    say "${#names[@]} fuzzers, $seconds s each, $jobs at a time; their own words are in ${fuzz_logs#"$root"/}/"
    local running=0
    for name in "${names[@]}"; do
        if [ $running -ge "$jobs" ]; then wait -n; else running=$((running + 1)); fi
        run_fuzzer "$name" "$seconds" &
    done
    wait
    total_findings=0
    printf '\n%-18s %12s %9s %7s %7s %9s\n' fuzzer executions a-second edges new findings
    for name in "${names[@]}"; do tell_fuzzer "$name"; done
    [ $total_findings = 0 ] && return
    say ""
    say "Findings, each with its last words in a .txt beside it:"
    find "$fuzz_findings" -type f -newer "$fuzz_findings/.begun" -name '*.txt' -printf '%f\n' | sort | while read -r name; do
        say "  ${fuzz_findings#"$root"/}/$name"
        case $name in *-ended.txt) ;; *) say "    $(head -n 1 "$fuzz_findings/$name")" ;; esac
    done
    return 1
}
