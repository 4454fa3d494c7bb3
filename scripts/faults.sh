# ./dev faults: what goes wrong on a link, at a target and in a host, one fault a row, and what the driver makes
# of it. Sourced by ./dev; docs/faults.md tells how to read the table.
#
# Host, relay and target live in a network namespace each:
#
#   velmora-play  vhost ---- rhost  velmora-relay  rtarget ---- vtarget  velmora-target
#
# A row is a function row_NAME that plays one session, or more, and says what it saw: it calls `promise` once,
# `check` for each part of the promise, and `tell` for each figure.

# Links and floods; then one target after another that misbehaves; then the host.
fault_rows=(
    loss-0.1 loss-1 loss-5 loss-10 loss-20
    bursts-0.1 bursts-1 bursts-5 bursts-10 bursts-20
    duplication reordering corruption corruption-unseen jitter jitter-disorder jitter-disorder-eager
    cut-0.2 cut-0.9 cut-0.9-given-up cut-3
    target-killed target-stopped target-paused target-restarted
    flood-foreign flood-malformed flood-noise flood-from-the-start flood-targets
    hostile-resend-all hostile-resend-more hostile-contradict hostile-profile hostile-latency
    hostile-mtu-0 hostile-mtu-64 hostile-mtu-65535 hostile-burst-0
    interface-vanishes send-buffer-full callback-3s
)

fault_work=''

# shellcheck source=scripts/faults-session.sh
. scripts/faults-session.sh
# shellcheck source=scripts/faults-links.sh
. scripts/faults-links.sh
# shellcheck source=scripts/faults-ends.sh
. scripts/faults-ends.sh
# shellcheck source=scripts/faults-steps.sh
. scripts/faults-steps.sh

# ---- the table ----

joined() {
    local text='' part
    for part in "$@"; do text+="${text:+; }$part"; done
    printf '%s' "$text"
}
keep_row() {  # NAME FILE
    local verdict=kept
    [ ${#broken[@]} = 0 ] || verdict="BROKEN: $(joined "${broken[@]}")"
    printf '%s|%s|%s|%s\n' "$1" "$promised" "$(joined "${seen[@]}")" "$verdict" >>"$2"
}
show_row() {
    local name what saw verdict
    IFS='|' read -r name what saw verdict <<<"$1"
    printf '%-28s %s\n' "$name" "$verdict"
    printf '    promised  %s\n    seen      %s\n' "$what" "$saw"
}
write_faults_json() {
    local name what saw verdict comma=''
    echo "["
    while IFS='|' read -r name what saw verdict; do
        printf '%s{"row":"%s","promised":"%s","seen":"%s","kept":%s,"verdict":"%s"}' "$comma" "$name" "$what" "$saw" \
            "$([ "$verdict" = kept ] && echo true || echo false)" "$verdict"
        comma=$',\n'
    done <"$fault_work/rows"
    printf '\n]\n'
}

no_row() { fail "There is no row $1; ./dev faults --list shows them, steps as STEP: MANNERS."; }
faults() {
    local wanted=() steps=() name all_steps=no
    for name in "$@"; do
        case $name in
            --list) printf '%s\n' "${fault_rows[@]}" steps; list_steps; return ;;
            steps) all_steps=yes ;;
            *=*) is_step "$name" || no_row "$name"; steps+=("$name") ;;
            *) case " ${fault_rows[*]} " in *" $name "*) wanted+=("$name") ;; *) no_row "$name" ;; esac ;;
        esac
    done
    [ $# -gt 0 ] || { wanted=("${fault_rows[@]}"); all_steps=yes; }
    need_packages
    build_preset release velmora-relay velmora-target velmora-play velmora-audio
    fault_work=$build/faults
    mkdir -p "$fault_work"
    : >"$fault_work/rows"
    if [ ${#wanted[@]} -gt 0 ]; then
        trap "trap '' INT TERM; drop_faults" EXIT
        need_relay_wiring
        for name in "${wanted[@]}"; do
            fault_here=$fault_work/$name
            rm -rf "$fault_here"
            mkdir -p "$fault_here"
            fault_defaults
            promised='' seen=() broken=()
            "row_$name" || true
            keep_row "$name" "$fault_work/rows"
            show_row "$(tail -n 1 "$fault_work/rows")"
        done
        drop_faults
        trap - EXIT
    fi
    if [ $all_steps = yes ]; then run_steps; elif [ ${#steps[@]} -gt 0 ]; then run_steps "${steps[@]}"; fi
    write_faults_json >"$build/faults.json"
    local rows broken_rows
    rows=$(wc -l <"$fault_work/rows")
    broken_rows=$(grep -c '|BROKEN' "$fault_work/rows" || true)
    say ""
    say "Counters that wrap in mid-stream are tested on the clock and the network in memory: ./dev test asan."
    say "$rows rows, $((rows - broken_rows)) kept, $broken_rows broken; build/faults.json has them all."
    [ "$broken_rows" = 0 ]
}
