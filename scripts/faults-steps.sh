# ./dev faults: a target that misbehaves in one step of discovery or negotiation, step by step. Sourced by
# scripts/faults.sh.

# Steps, and what an answer to each does to the host.
#   step | manners | player's exit code | bounds, s: init, start, stop
#   Manners are those of velmora-target --misbehave; @N: with this --seed.
#   Exit codes: 0 played to the end, 5 no device, 8 not started, 9 the stream was lost.
# A message that a target may have to wake up for is waited for three times ten seconds; stop waits for that.
# A target of product 0 passes for everybody's. Formats that it has not are chosen and refused at CONNECT_REQ. The
# garbage of this seed allows bursts that are smaller than one packet. An accepted NOPBREAK_REQ ends a search.
# With TargetAddress: the driver is given the target's address, and searches no more.
# The slowest come first, since several run at a time.
step_rows='
DATASIZE_REQ   | dead                                                  | 9 | 5 31 31
LOG_REQ        | dead                                                  | 9 | 5 31 31
CONNECTPRE_REQ | dead                                                  | 9 | 5 31 31
CONNECTPRE_REQ | silent other-id short other-port                      | 0 | 5 31 7
CLIENT_REQ     | dead                                                  | 9 | 5 2 31
CONNECT_REQ    | silent dead other-id short other-port                 | 9 | 5 2 31
CONNECTPRE_REQ | refuse echo zeros ones garbage                        | 0 | 5 2 7
CLIENT_REQ     | silent refuse other-id short echo other-port zeros ones garbage | 0 | 5 2 7
CONNECT_REQ    | refuse echo zeros ones garbage                        | 9 | 5 2 7
STREAM_DATA    | silent dead short other-port                          | 9 | 5 2 7
STREAM_DATA    | refuse other-id echo zeros ones garbage               | 0 | 5 2 7
DSICONNECT_REQ | silent dead refuse other-id short echo other-port zeros ones garbage | 0 | 5 2 7
FIND_REQ       | silent dead refuse other-id short echo other-port ones garbage | 5 | 5 - -
FIND_REQ       | zeros                                                 | 0 | 5 2 7
HELLO_REQ      | silent refuse other-id short echo other-port zeros ones garbage | 0 | 5 2 7
HELLO_REQ      | dead                                                  | 5 | 5 - -
SINK_REQ       | silent dead refuse other-id short echo other-port zeros ones garbage | 5 | 5 - -
CONFIG_REQ     | silent refuse other-id short echo other-port zeros ones garbage | 0 | 5 2 7
CONFIG_REQ     | dead                                                  | 5 | 5 - -
SUPPORT_REQ    | silent dead refuse other-id short echo other-port zeros | 5 | 5 - -
SUPPORT_REQ    | ones                                                  | 0 | 5 2 7
SUPPORT_REQ    | garbage                                               | 9 | 5 2 7
PROFILE_REQ    | silent refuse other-id short echo other-port zeros ones garbage | 0 | 5 2 7
PROFILE_REQ    | dead                                                  | 5 | 5 - -
LATENCY_REQ    | silent dead refuse other-id short echo other-port     | 5 | 5 - -
LATENCY_REQ    | zeros ones garbage                                    | 0 | 5 2 7
DATASIZE_REQ   | silent refuse other-id short echo other-port ones     | 0 | 5 2 7
DATASIZE_REQ   | zeros garbage                                         | 8 | 5 2 7
NOPBREAK_REQ   | silent refuse other-id short echo other-port zeros ones garbage | 0 | 5 2 7
NOPBREAK_REQ   | dead accept                                           | 5 | 5 - -
LOG_REQ        | silent refuse other-id short echo other-port zeros ones garbage | 0 | 5 2 7
PROFILE_REQ    | garbage@2 garbage@3                                   | 0 | 5 2 7
LATENCY_REQ    | garbage@2 garbage@3                                   | 0 | 5 2 7
TargetAddress+SINK_REQ   | silent dead refuse garbage                  | 5 | 5 - -
TargetAddress+FIND_REQ   | silent refuse garbage                       | 0 | 5 2 7
TargetAddress+FIND_REQ   | dead                                        | 5 | 5 - -
TargetAddress+CONFIG_REQ | silent refuse garbage                       | 0 | 5 2 7
'

# every_step: "STEP MANNER CODE BOUNDS" of each.
every_step() {
    local step list wanted bounds manner
    while IFS='|' read -r step list wanted bounds; do
        for manner in $list; do echo "${step// /} $manner ${wanted// /} $bounds"; done
    done < <(grep -vE '^ *$' <<<"$step_rows")
}
list_steps() { sed -nE 's/^([^ |]+) *\| *([^|]*[^ ]) *\|.*/\1: \2/p' <<<"$step_rows"; }
is_step() { every_step | awk -v "name=$1" '$1 "=" $2 == name { found = 1 } END { exit !found }'; }

# steps_worker NUMBER: takes one step after another, in namespaces of its own, until none is left or all are to stop.
worker_space() { printf '%s' "velmora-$1-$$-$2"; }
steps_worker() {
    net_host=$(worker_space host "$1") net_target=$(worker_space target "$1")
    relay_job='' far_job=''
    trap 'end_far; drop_namespaces' EXIT
    need_namespaces
    local at step manner wanted bounds
    while read -r at step manner wanted bounds; do
        [ ! -e "$fault_work/steps/stop" ] || break
        mkdir "$fault_work/steps/claim-$at" 2>/dev/null || continue
        fault_here=$fault_work/steps/$step-$manner
        mkdir -p "$fault_here"
        one_step "$step" "$manner" "$wanted" "$bounds" </dev/null || true
    done <"$fault_work/steps/list"
}
# The target's address, as the settings want it.
far_address() {
    as_root ip -n "$net_target" -6 -o addr show dev vtarget scope link | sed -nE 's/.* (fe80[^/]*)\/.*/\1/p'
}
one_step() {
    local step=$1 manner=$2 wanted=$3 init start stop
    read -r init start stop <<<"$4"
    fault_defaults
    seconds=2.5
    case $step in
        NOPBREAK_REQ) settings+=("NopBreak=Enable") ;;
        TargetAddress+*) settings+=("TargetAddress=$(far_address),19642" "TargetPO=1") ;;
    esac
    promised='' seen=() broken=()
    write_settings "$fault_here/config" "Debug=enable" "${settings[@]}"
    case $manner in
        *@*) start_far "--misbehave ${step#*+}=${manner%@*} --seed ${manner#*@}" ;;
        *) start_far "--misbehave ${step#*+}=$manner" ;;
    esac
    code=0
    player "$fault_here" $seconds || code=$?
    end_far
    case $wanted in
        0) promise "played to the end, every bit" ;;
        5) promise "no device, init within $init s" ;;
        8) promise "not started" ;;
        9) promise "stream lost within 2 s, stop within $stop s" ;;
    esac
    tell_code
    check_code "$wanted"
    check_misbehaved
    tell "init $(of_player init) ms, start $(of_player start) ms, stop $(of_player stop) ms, CPU $(cpu_percent) %"
    check "$(of_player init) <= $init * 1000" "init took $(of_player init) ms"
    if [ "$start" != - ]; then
        check "$(of_player start) <= $start * 1000" "start took $(of_player start) ms"
        check "$(of_player stop) <= $stop * 1000" "stop took $(of_player stop) ms"
    fi
    check "$(cpu_percent) <= $most_cpu" "CPU $(cpu_percent) %"
    [ "$wanted" != 9 ] || tell_stream_time 2000
    if [ "$wanted" = 0 ] && [ "$code" = 0 ]; then
        compare_with "$fault_here/played.wav"
        tell_bits
        check_exact
    fi
    rm -f "$fault_here/played.wav"
    keep_row "$step=$manner" "$fault_work/steps/rows"
}

steps_at_once=8
step_jobs=()
# Ctrl-C is ignored by what a shell has put into the background, and ends the shell alone.
end_steps() {
    trap '' INT TERM
    : >"$fault_work/steps/stop"
    local worker job
    for job in "${step_jobs[@]}"; do
        while kill -0 "$job" 2>/dev/null; do
            for worker in $(seq $steps_at_once); do
                end_inside "$(worker_space host "$worker")"
                end_inside "$(worker_space target "$worker")"
            done
            sleep 0.2
        done
    done
}
# run_steps NAME...: those alone, or all.
run_steps() {
    rm -rf "$fault_work/steps"
    mkdir -p "$fault_work/steps"
    : >"$fault_work/steps/rows"
    fault_source 2.5 >/dev/null
    local step manner rest at=0
    while read -r step manner rest; do
        if [ $# -gt 0 ]; then
            case " $* " in *" $step=$manner "*) ;; *) continue ;; esac
        fi
        at=$((at + 1))
        echo "$at $step $manner $rest"
    done < <(every_step) >"$fault_work/steps/list"
    local worker
    trap end_steps EXIT
    for worker in $(seq $steps_at_once); do
        [ "$worker" -le "$(wc -l <"$fault_work/steps/list")" ] || break
        (steps_worker "$worker") >"$fault_work/steps/worker-$worker.log" 2>&1 &
        step_jobs+=($!)
    done
    for worker in "${step_jobs[@]}"; do wait "$worker" || true; done
    trap - EXIT
    local done_steps
    done_steps=$(wc -l <"$fault_work/steps/rows")
    # In the order of the list, whoever was first.
    while read -r at step manner rest; do
        awk -F '|' -v "name=$step=$manner" '$1 == name { print; found = 1; exit } END { exit !found }' \
            "$fault_work/steps/rows" || echo "$step=$manner||did not run|BROKEN: did not run"
    done <"$fault_work/steps/list" | while IFS= read -r line; do
        echo "$line" >>"$fault_work/rows"
        show_row "$line"
    done
    [ "$done_steps" = "$(wc -l <"$fault_work/steps/list")" ] ||
        say "Some steps did not run; see ${fault_work#"$root"/}/steps/"
}
