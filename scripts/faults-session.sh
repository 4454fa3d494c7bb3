# ./dev faults: one session between host and target over the relay, and what a row says of it. Sourced by
# scripts/faults.sh.

fault_here='' # the folder of the row that runs
relay_id='' relay_job='' far_id='' far_job=''

# ---- the three namespaces ----

net_relay=velmora-relay-$$
wire_relay() {
    local side far
    as_root ip -n "$net_host" link del vhost 2>/dev/null || true
    for side in "host $net_host" "target $net_target"; do
        far=${side#* } side=${side%% *}
        as_root ip link add "v$side" netns "$far" type veth peer name "r$side" netns "$net_relay"
        as_root ip -n "$net_relay" link set "r$side" up
        as_root ip -n "$far" link set "v$side" up
    done
    need_link_local
}
unwire_relay() {
    as_root ip -n "$net_host" link del vhost 2>/dev/null || true
    as_root ip -n "$net_target" link del vtarget 2>/dev/null || true
}
need_relay_wiring() {
    need_namespaces
    as_root ip netns add "$net_relay"
    # It has no address there and says nothing of its own.
    as_root ip netns exec "$net_relay" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
    wire_relay
}

# start_program NAME COMMAND... -- ARGS...: COMMAND enters a namespace, ARGS are what runs there, in the background.
# Returns once it has said something. Its number stands in NAME.pid of the row's folder, for between it and the
# shell stand those who entered the namespace.
start_program() {
    local file=$fault_here/$1 enter=() tries=0
    shift
    while [ "$1" != -- ]; do enter+=("$1"); shift; done
    shift
    rm -f "$file.pid" "$file.json"
    "${enter[@]}" "${numbered[@]}" "$file.pid" "$@" >"$file.json" 2>"$file.log" &
    started_job=$!
    until [ -s "$file.json" ] || [ $tries -ge 100 ]; do sleep 0.02; tries=$((tries + 1)); done
    started_id=$(cat "$file.pid" 2>/dev/null || true)
}
end_started() {  # ID JOB
    [ -n "$2" ] || return 0
    [ -z "$1" ] || as_root kill -CONT "$1" 2>/dev/null || true
    [ -z "$1" ] || as_root kill "$1" 2>/dev/null || true
    wait "$2" 2>/dev/null || true
}
# shellcheck disable=SC2086 # words
start_relay() {
    # As root in its namespace, whoever calls: raw sockets.
    start_program relay as_root ip netns exec "$net_relay" -- "$(native velmora-relay)" rhost rtarget --seconds 120 $1
    relay_id=$started_id relay_job=$started_job
}
end_relay() {
    end_started "$relay_id" "$relay_job"
    relay_id='' relay_job=''
}
# shellcheck disable=SC2086 # words
start_far() {
    start_program target in_target -- "$(native velmora-target)" --interface vtarget --seconds 120 --json \
        --name "Faults" --output "$fault_here/played.wav" $1
    far_id=$started_id far_job=$started_job
}
end_far() {
    end_started "$far_id" "$far_job"
    far_id='' far_job=''
}

# end_inside SPACE: whatever runs in a namespace of ours. A player that waits for an answer hears no request to end.
end_inside() {
    local id
    for id in $(as_root ip netns pids "$1" 2>/dev/null); do as_root kill -KILL "$id" 2>/dev/null || true; done
}
drop_faults() {
    local space
    for space in "$net_host" "$net_target" "$net_relay"; do end_inside "$space"; done
    end_far
    end_relay
    as_root ip netns del "$net_relay" 2>/dev/null || true
    drop_namespaces
}

# ---- one session ----

# What a row may set before play_session; each row begins with these.
fault_defaults() {
    relay_args='' target_args="--buffer 50" player_args='' seconds=4 during=''
    settings=("PCMRequest=24" "ASIOBufferSizePre=1024" "SyncBufferCount=8")
}
now_ms() { date +%s%3N; }

fault_source() {  # SECONDS: a file of so much music
    local file=$build/faults/music-$1.wav
    [ -f "$file" ] || "$(native velmora-audio)" generate --bits 24 --rate 48000 --seconds "$1" "$file"
    printf '%s' "$file"
}

# player WORK SECONDS ARGS...: one run of the player; gives its exit code, 124 when it hung. Figures in
# WORK/player.json, processor time in WORK/cpu.
player() {
    local work=$1 file
    file=$(fault_source "$2")
    shift 2
    rm -f "$work/player.json" "$work/cpu"
    # shellcheck disable=SC2016
    in_host env XDG_CONFIG_HOME="$work/config" bash -c 'TIMEFORMAT="%R %U %S"; { time "${@:3}" 2>"$1"; } 2>"$2"' - \
        "$work/player.log" "$work/cpu" timeout --foreground -k 5 100 "$(native velmora-play)" --quiet --file "$file" \
        --report "$work/player.json" --driver-log "$work/driver.log" "$@"
}

# play_session: one stream through relay and target as the row's variables say. Sets code, and leaves
# relay.json, target.json, player.json, compare.json and logs in the row's folder.
play_session() {
    write_settings "$fault_here/config" "Debug=enable" "${settings[@]}"
    rm -f "$fault_here/played.wav" "$fault_here/compare.json"
    [ -n "$relay_job" ] || start_relay "$relay_args"
    [ -n "$far_job" ] || start_far "$target_args"
    local job
    # shellcheck disable=SC2086 # words
    player "$fault_here" "$seconds" $player_args &
    job=$!
    fault_at=0
    if [ -n "$during" ]; then $during; fi
    code=0
    wait $job || code=$?
    # The end of the stream reaches the target before the player ends, or never.
    sleep 0.1
    end_far
    end_relay
    if [ -s "$fault_here/played.wav" ]; then compare_with "$fault_here/played.wav"; fi
}
compare_with() {  # FILE: leaves compare.json
    "$(native velmora-audio)" compare --json "$(fault_source "$seconds")" "$1" \
        >"$fault_here/compare.json" 2>"$fault_here/compare.log" || true
}

# field FILE KEY: of the last object in the file that has it; 0 where there is none.
field() {
    local value
    value=$(grep -o "\"$2\":[^,}]*" "$1" 2>/dev/null | tail -n 1 | cut -d: -f2)
    printf '%s' "${value:-0}"
}
# relayed DIRECTION KEY
relayed() {
    local value
    value=$(grep -o "\"$1\":{[^}]*}" "$fault_here/relay.json" 2>/dev/null | tail -n 1 | grep -o "\"$2\":[0-9]*" | cut -d: -f2)
    printf '%s' "${value:-0}"
}
of_target() { field "$fault_here/target.json" "$1"; }
of_player() { field "$fault_here/player.json" "$1"; }
of_compare() { field "$fault_here/compare.json" "$1"; }
calc() { awk "BEGIN { printf \"%.${2:-2}f\", $1 }"; }
holds() { awk "BEGIN { exit !($1) }"; }

# ---- what a row says ----

promised='' seen=() broken=()
promise() { promised=$1; }
tell() { seen+=("$1"); }
check() {  # CONDITION TEXT: a condition of awk's
    if ! holds "$1"; then broken+=("$2"); fi
}

# Whether the fault took place at all.
# check_met COUNTER LEAST: of the relay, both ways.
check_met() {
    local met
    met=$(($(relayed forth "$1") + $(relayed back "$1")))
    check "$met >= $2" "$1: $met datagrams, $2 were to be met"
}
# check_misbehaved [LEAST]: of the target.
check_misbehaved() { check "$(of_target misbehaved) >= ${1:-1}" "the target misbehaved $(of_target misbehaved) times"; }

tell_code() {
    case $code in
        0) tell "played to the end" ;;
        5) tell "no device" ;;
        8) tell "not started" ;;
        9) tell "stream lost" ;;
        124 | 137) tell "HUNG" ;;
        *) tell "player ended with $code" ;;
    esac
}
check_code() { [ "$code" = "$1" ] || broken+=("exit code $code"); }
# Every bit, and how many datagrams it took.
wrong_frames() { printf '%s' $(($(of_compare wrong) + $(of_compare missing))); }
tell_bits() {
    if [ ! -s "$fault_here/compare.json" ]; then tell "nothing written"; elif [ "$(of_compare exact)" = true ]; then
        tell "bit-exact"
    else
        tell "$(of_compare wrong) wrong, $(of_compare missing) missing of $(of_compare frames)"
    fi
}
check_exact() { [ "$(of_compare exact)" = true ] || broken+=("not bit-exact"); }
packets_needed() {
    printf '%s' $(($(of_target packets) - $(of_target duplicates) - $(of_target late) + $(of_target lost)))
}
packets_sent() { printf '%s' $(($(relayed forth acted) + $(relayed forth cut))); }
packet_ratio() {
    local needed
    needed=$(packets_needed)
    if [ "$needed" -gt 0 ]; then calc "$(packets_sent) / $needed" 3; else printf 0; fi
}
tell_ratio() { tell "$(packets_sent) datagrams for $(packets_needed) ($(packet_ratio)x)"; }
# µs of music at the target, at most, at the looks that it takes once a second.
highest_fill() {
    grep '"type":"figures"' "$fault_here/target.json" | grep -o '"fillMicros":[0-9]*' | cut -d: -f2 | sort -n | tail -n 1
}
tell_target() {
    tell "buffer $(calc "$(of_target targetMicros) / 1000" 0) ms, lost $(of_target lost), underruns $(of_target underruns)"
}
cpu_percent() {
    awk '{ if ($1 > 0) printf "%.0f", ($2 + $3) / $1 * 100; else printf "0" }' <(tail -n 1 "$fault_here/cpu" 2>/dev/null || echo 0 0 0)
}
most_cpu=60  # percent of a core
check_end() {  # STOP_BOUND_MS
    tell "stop $(of_player stop) ms, CPU $(cpu_percent) %"
    check "$(of_player stop) <= $1" "stop took $(of_player stop) ms"
    check "$(cpu_percent) <= $most_cpu" "CPU $(cpu_percent) %"
}
stop_bound=7000  # ms: 4 s in which no new packet goes out, and four times half a second of goodbye
# When the host heard no more from the driver, and when the player gave up, both from the fault on.
tell_loss_time() {
    local last
    last=$(($(of_player began) + $(of_player lastSwitch) - fault_at))
    tell "last buffer asked for $last ms behind the fault, player gave up after $(($(of_player began) + $(of_player end) - fault_at)) ms"
    check "$last <= ${1:-2000}" "the stream outlived its target by $last ms"
    check "$last >= -500" "the stream ended $((-last)) ms ahead of the fault"
}
# The same from the start on, where the fault was there all along. -1: the driver asked for no buffer.
tell_stream_time() {  # MOST
    local time=0
    [ "$(of_player lastSwitch)" -lt 0 ] || time=$(($(of_player lastSwitch) - $(of_player init) - $(of_player start)))
    tell "last buffer asked for $time ms behind the start"
    check "$time <= $1" "the stream lasted $time ms"
}

# The whole of most rows.
play_exact() {
    play_session
    tell_code
    tell_bits
    tell_ratio
    tell_target
    check_code 0
    check_exact
    check_end $stop_bound
}

# Behind the first audio, or the end of the player.
await_audio() {
    local tries=0
    until [ -s "$fault_here/played.wav" ] || [ $tries -ge 200 ]; do sleep 0.02; tries=$((tries + 1)); done
    sleep "${1:-1}"
}

