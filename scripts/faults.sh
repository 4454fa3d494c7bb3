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
    cut-0.2 cut-0.9 cut-3
    target-killed target-stopped target-paused target-restarted
    flood-foreign flood-malformed flood-noise flood-from-the-start flood-targets
    hostile-resend-all hostile-resend-more hostile-contradict hostile-profile hostile-latency
    hostile-mtu-0 hostile-mtu-64 hostile-mtu-65535 hostile-burst-0
    interface-vanishes send-buffer-full callback-3s
)

# Steps of discovery and negotiation, and what an answer to each does to the host.
#   step | manners (velmora-target --misbehave) | player's exit code | bounds, s: init, start, stop
#   Exit codes: 0 played to the end, 5 no device, 8 not started, 9 the stream was lost.
# A message that a target may have to wake up for is waited for three times ten seconds; stop waits for that.
# A target of product 0 passes for everybody's. Formats that it has not are chosen and refused at CONNECT_REQ. The
# garbage of this seed allows bursts that are smaller than one packet.
# The slowest come first, since several run at a time.
step_rows='
DATASIZE_REQ   | dead                                                  | 9 | 5 31 31
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
'

fault_work=''
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

# start_in SPACE NAME WORK COMMAND...: in the background; returns once it has said something. Its own number
# stands in WORK/NAME.pid, for between it and the shell stand those who entered the namespace.
start_in() {
    local space=$1 name=$2 work=$3 tries=0
    shift 3
    rm -f "$work/$name.pid" "$work/$name.json"
    # shellcheck disable=SC2016
    in_space "$space" sh -c 'echo $$ >"$0"; exec "$@"' "$work/$name.pid" "$@" \
        >"$work/$name.json" 2>"$work/$name.log" &
    started_job=$!
    until [ -s "$work/$name.json" ] || [ $tries -ge 100 ]; do sleep 0.02; tries=$((tries + 1)); done
    started_id=$(cat "$work/$name.pid" 2>/dev/null || true)
}
end_started() {  # ID JOB
    [ -n "$2" ] || return 0
    [ -z "$1" ] || as_root kill -CONT "$1" 2>/dev/null || true
    [ -z "$1" ] || as_root kill "$1" 2>/dev/null || true
    wait "$2" 2>/dev/null || true
}
start_relay() {
    rm -f "$fault_here/relay.json" "$fault_here/relay.pid"
    # As root in its namespace, whoever calls: raw sockets.
    # shellcheck disable=SC2016,SC2086 # its own number, and words
    as_root ip netns exec "$net_relay" sh -c 'echo $$ >"$0"; exec "$@"' "$fault_here/relay.pid" \
        "$(native velmora-relay)" rhost rtarget --seconds 120 $1 >"$fault_here/relay.json" 2>"$fault_here/relay.log" &
    relay_job=$!
    local tries=0
    until [ -s "$fault_here/relay.json" ] || [ $tries -ge 100 ]; do sleep 0.02; tries=$((tries + 1)); done
    relay_id=$(cat "$fault_here/relay.pid")
}
end_relay() {
    end_started "$relay_id" "$relay_job"
    relay_id='' relay_job=''
}
# shellcheck disable=SC2086 # words
start_far() {
    start_in "$net_target" target "$fault_here" "$(native velmora-target)" --interface vtarget --seconds 120 --json \
        --name "Faults" --output "$fault_here/played.wav" $1
    far_id=$started_id far_job=$started_job
}
end_far() {
    end_started "$far_id" "$far_job"
    far_id='' far_job=''
}

drop_faults() {
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
    if [ -s "$fault_here/played.wav" ]; then
        "$(native velmora-audio)" compare --json "$(fault_source "$seconds")" "$fault_here/played.wav" \
            >"$fault_here/compare.json" 2>"$fault_here/compare.log" || true
    fi
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
check_code() {  # CODE...
    local wanted
    for wanted in "$@"; do [ "$code" != "$wanted" ] || return 0; done
    broken+=("exit code $code")
}
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

# ---- rows: the link ----

loss_row() {  # PER_MILLE BURST MOST_RATIO [BUFFER]
    local buffer=${4:-50}
    promise "every bit, at most $3x the datagrams, with $buffer ms of buffer"
    relay_args="--above 200 --then-all --lose $1 --burst $2"
    target_args="--buffer $buffer"
    play_exact
    check "$(packet_ratio) <= $3" "$(packet_ratio)x the datagrams"
    check "$(of_target targetMicros) <= $buffer * 1000" "buffer $(of_target targetMicros) us"
}
row_loss-0.1() { loss_row 1 1 1.01; }
row_loss-1() { loss_row 10 1 1.05; }
row_loss-5() { loss_row 50 1 1.15; }
row_loss-10() { loss_row 100 1 1.4; }
# Where a fifth is lost, the packets that are sent again are too, and again: that takes time.
row_loss-20() { loss_row 200 1 2.2 200; }
row_bursts-0.1() { loss_row 1 4 1.01; }
row_bursts-1() { loss_row 10 4 1.05; }
row_bursts-5() { loss_row 50 4 1.15; }
row_bursts-10() { loss_row 100 4 1.4 100; }
row_bursts-20() { loss_row 200 4 2.2 200; }

row_duplication() {
    promise "every bit, and nothing sent again"
    relay_args="--above 200 --then-all --duplicate 100"
    play_exact
    check "$(packet_ratio) <= 1.01" "$(packet_ratio)x the datagrams"
}
row_reordering() {
    promise "every bit, at most 1.35x the datagrams"
    relay_args="--above 200 --then-all --hold 50 --hold-for 3"
    play_exact
    check "$(packet_ratio) <= 1.35" "$(packet_ratio)x the datagrams"
}
row_corruption() {
    promise "every bit, at most 1.1x the datagrams: what is spoiled counts as lost"
    relay_args="--above 200 --then-all --corrupt 20"
    play_exact
    check "$(packet_ratio) <= 1.1" "$(packet_ratio)x the datagrams"
}
row_corruption-unseen() {
    promise "the stream goes on; what was spoiled unseen is wrong, the protocol has no check of its own"
    relay_args="--above 200 --direction forth --corrupt-unseen 2"
    play_session
    tell_code
    tell_bits
    tell "$(relayed forth corruptedUnseen) datagrams spoiled"
    tell_target
    check_code 0
    check_end $stop_bound
}
row_jitter() {
    promise "every bit, and nothing sent again"
    relay_args="--above 200 --then-all --delay 1,20"
    play_exact
    check "$(packet_ratio) <= 1.01" "$(packet_ratio)x the datagrams"
}
row_jitter-disorder() {
    promise "every bit, and nothing sent again, where the target waits for what was only overtaken"
    relay_args="--above 200 --then-all --delay 1,20 --disorder"
    target_args="--buffer 50 --ask 25,400"
    play_exact
    check "$(packet_ratio) <= 1.01" "$(packet_ratio)x the datagrams"
}
row_jitter-disorder-eager() {
    promise "the stream goes on, though the target asks for whatever was overtaken at once"
    relay_args="--above 200 --then-all --delay 1,20 --disorder"
    play_session
    tell_code
    tell_bits
    tell_ratio
    tell_target
    check_code 0
    check_end $stop_bound
}

cut_row() {  # SECONDS
    relay_args="--above 200 --cut 1,$1"
}
row_cut-0.2() {
    promise "every bit, with more buffer than the cut is long"
    cut_row 0.2
    target_args="--buffer 500"
    play_exact
}
row_cut-0.9() {
    promise "every bit, where the target asks for what is 0.9 s old and can wait for it"
    cut_row 0.9
    target_args="--buffer 2000 --ask 0,950"
    seconds=6
    play_exact
}
row_cut-3() {
    promise "the stream ends about a second after the cut, and the next one is whole"
    cut_row 3
    seconds=6
    during=note_cut
    play_session
    tell_code
    check_code 9
    tell_loss_time 2000
    check_end $stop_bound
    next_stream_is_whole
}
note_cut() {
    await_audio 0
    fault_at=$(($(now_ms) + 1000))
}
# A second session on a good link.
next_stream_is_whole() {
    fault_defaults
    seconds=2
    play_session
    tell "then: $([ "$(of_compare exact)" = true ] && echo bit-exact || echo "NOT bit-exact, code $code")"
    check_code 0
    check_exact
}

# ---- rows: the target's life ----

kill_far() {
    await_audio 1
    fault_at=$(now_ms)
    as_root kill -KILL "$far_id"
}
row_target-killed() {
    promise "the stream ends within 2 s, stop returns"
    seconds=6 during=kill_far
    play_session
    tell_code
    check_code 9
    tell_loss_time
    check_end $stop_bound
}
stop_far() {
    await_audio 1
    fault_at=$(now_ms)
    as_root kill -STOP "$far_id"
}
row_target-stopped() {
    promise "the stream ends within 2 s, stop returns"
    seconds=6 during=stop_far
    play_session
    tell_code
    check_code 9
    tell_loss_time
    check_end $stop_bound
}
pause_far() {
    stop_far
    sleep 0.5
    as_root kill -CONT "$far_id"
}
row_target-paused() {
    promise "every bit: half a second is no loss"
    target_args="--buffer 800"
    during=pause_far
    play_exact
}
restart_far() {
    kill_far
    wait "$far_job" 2>/dev/null || true
    rm -f "$fault_here/played.wav"
    start_far "$target_args"
}
row_target-restarted() {
    promise "the stream ends within 2 s, the next one is whole"
    seconds=6 during=restart_far
    play_session
    tell_code
    check_code 9
    tell_loss_time
    check_end $stop_bound
    next_stream_is_whole
}

# ---- rows: strangers ----

flood_row() {  # KIND
    promise "every bit under 20,000 datagrams a second at the driver's port, CPU below $most_cpu %"
    relay_args="--above 200 --flood 20000 --flood-kind $1 --flood-most 200000"
    play_exact
    tell "$(field "$fault_here/relay.json" flooded) datagrams"
    check "$(field "$fault_here/relay.json" flooded) >= 60000" "no flood to speak of"
}
row_flood-foreign() { flood_row foreign; }
row_flood-malformed() { flood_row malformed; }
row_flood-noise() { flood_row noise; }
row_flood-from-the-start() {
    promise "the talk before the stream is held up by the flood, 6 s, and by a wait of 10 s, no longer; then every bit"
    relay_args="--flood 20000 --flood-kind noise --flood-most 120000"
    play_session
    tell_code
    tell_bits
    tell "init $(of_player init) ms, start $(of_player start) ms, $(field "$fault_here/relay.json" flooded) datagrams"
    check "$(of_player init) + $(of_player start) <= 27000" "init and start took $(($(of_player init) + $(of_player start))) ms"
    check_code 0
    check_exact
    check_end $stop_bound
}
row_flood-targets() {
    promise "a search among 100 false targets ends: 0.1 s for each; then every bit"
    relay_args="--flood 200 --flood-kind targets --flood-most 100"
    play_session
    tell_code
    tell_bits
    tell "init $(of_player init) ms, $(field "$fault_here/relay.json" flooded) false targets"
    check "$(of_player init) <= 45000" "init took $(of_player init) ms"
    check_code 0
    check_exact
    check_end $stop_bound
}

# ---- rows: hostile targets ----

# Bounded, whatever it is: the datagrams of a stream at twice its rate, no hang.
hostile_row() {  # ARGS...
    target_args="$*"
    play_session
    tell_code
    tell_bits
    tell "$(relayed forth acted) datagrams in $(calc "($(of_player end) - $(of_player firstSwitch)) / 1000" 1) s"
    check_code 0 5 8 9
    check_end $stop_bound
}
row_hostile-resend-all() {
    promise "the stream may starve; at most 2,500 datagrams a second, stop returns"
    relay_args="--above 200"
    hostile_row --misbehave STREAM_DATA=resend-all
    check "$(relayed forth acted) <= 2500 * ($(of_player end) - $(of_player firstSwitch) + $(of_player stop)) / 1000 + 500" "too many datagrams"
}
row_hostile-resend-more() {
    promise "the stream ends at once, stop returns"
    relay_args="--above 200"
    hostile_row --misbehave STREAM_DATA=resend-more
    check_code 9
}
row_hostile-contradict() {
    promise "the stream goes on within the bounds of its flow, stop returns; the phase is followed, so every bit differs"
    relay_args="--above 200"
    hostile_row --misbehave STREAM_DATA=contradict
    check_code 0
}
row_hostile-profile() {
    promise "a profile of zeros, and one of the largest words: played, or refused at the start"
    settings+=("TargetProfileLimitTime=500")
    relay_args="--above 200"
    hostile_row --misbehave PROFILE_REQ=zeros
    hostile_row --misbehave PROFILE_REQ=ones
}
row_hostile-latency() {
    promise "a latency of 6.5 s: every bit"
    relay_args="--above 200"
    hostile_row --misbehave LATENCY_REQ=ones
    check_code 0
    check_exact
}
mtu_row() {  # ARGS
    promise "$1"
    shift
    relay_args="--above 200"
    hostile_row "$@"
}
row_hostile-mtu-0() { mtu_row "played, or refused at the start" --mtu 0; }
row_hostile-mtu-64() {
    mtu_row "no payload fits: refused at the start" --mtu 64
    check_code 8
}
row_hostile-mtu-65535() {
    settings+=("Fragment=enable" "CycleTime=20000")
    mtu_row "every bit, in datagrams that the link cuts" --mtu 65535 --max-burst 65535
    tell "$(relayed forth frames) frames, fragments for the most part"
    check_code 0
    check_exact
}
row_hostile-burst-0() { mtu_row "played, or refused at the start" --max-burst 0; }

# ---- rows: the host's machine ----

take_interface() {
    await_audio 1
    fault_at=$(now_ms)
    as_root ip -n "$net_host" link del vhost
}
row_interface-vanishes() {
    promise "the stream ends within 2 s, stop returns; the next one is whole"
    seconds=6 during=take_interface
    play_session
    tell_code
    check_code 9
    tell_loss_time
    check_end $stop_bound
    unwire_relay
    wire_relay
    next_stream_is_whole
}
fill_buffer() {
    await_audio 1
    fault_at=$(now_ms)
    # What is sent waits here, on the sender's account, until there is room for no more.
    as_root ip netns exec "$net_host" tc qdisc add dev vhost root tbf rate 100kbit burst 2000 limit 10000000
    sleep 0.5
    tell "$(as_root ip netns exec "$net_host" tc -s qdisc show dev vhost | sed -nE 's/.*backlog ([0-9A-Za-z]+) .*/\1/p' | tail -n 1) waiting to be sent"
    as_root ip netns exec "$net_host" tc qdisc change dev vhost root tbf rate 1gbit burst 200000 limit 10000000
}
row_send-buffer-full() {
    promise "every bit: the send waits, and what is late is made up for"
    target_args="--buffer 1000"
    during=fill_buffer
    play_exact
    as_root ip netns exec "$net_host" tc qdisc del dev vhost root 2>/dev/null || true
}
row_callback-3s() {
    promise "silence for as long as the host is away, and not a frame lost"
    player_args="--stall 3@48000"
    seconds=3
    play_session
    tell_code
    tell_target
    local silent
    silent=$(($(of_target frames) - $(of_compare frames) - $(of_compare leading)))
    tell "$(of_player longestGap) ms between two callbacks, $(calc "$silent / 48" 0) ms of silence besides"
    check_code 0
    check "$(of_target lost) == 0" "lost $(of_target lost)"
    check "$silent >= 2.5 * 48000 && $silent <= 4.5 * 48000" "not the silence that was to be expected"
    check_end $stop_bound
}

# ---- rows: a step of discovery or negotiation ----

# steps_worker NUMBER: takes one step after another, in namespaces of its own, until none is left.
steps_worker() {
    net_host=velmora-host-$$-$1
    net_target=velmora-target-$$-$1
    relay_job='' far_job=''
    trap 'end_far; drop_namespaces' EXIT
    need_namespaces
    local at step manner wanted bounds
    while read -r at step manner wanted bounds; do
        mkdir "$fault_work/steps/claim-$at" 2>/dev/null || continue
        fault_here=$fault_work/steps/$step-$manner
        mkdir -p "$fault_here"
        one_step "$step" "$manner" "$wanted" "$bounds" </dev/null || true
    done <"$fault_work/steps/list"
}
one_step() {
    local step=$1 manner=$2 wanted=$3 init start stop
    read -r init start stop <<<"$4"
    fault_defaults
    promised='' seen=() broken=()
    write_settings "$fault_here/config" "Debug=enable" "${settings[@]}"
    start_far "--misbehave $step=$manner"
    code=0
    player "$fault_here" 2.5 || code=$?
    end_far
    case $wanted in
        0) promise "played to the end, every bit" ;;
        5) promise "no device, init within $init s" ;;
        8) promise "not started" ;;
        9) promise "stream lost, stop within $stop s" ;;
    esac
    tell_code
    check_code "$wanted"
    tell "init $(of_player init) ms, start $(of_player start) ms, stop $(of_player stop) ms, CPU $(cpu_percent) %"
    check "$(of_player init) <= $init * 1000" "init took $(of_player init) ms"
    if [ "$start" != - ]; then
        check "$(of_player start) <= $start * 1000" "start took $(of_player start) ms"
        check "$(of_player stop) <= $stop * 1000" "stop took $(of_player stop) ms"
    fi
    check "$(cpu_percent) <= $most_cpu" "CPU $(cpu_percent) %"
    if [ "$wanted" = 0 ] && [ "$code" = 0 ]; then
        "$(native velmora-audio)" compare --json "$(fault_source 2.5)" "$fault_here/played.wav" \
            >"$fault_here/compare.json" 2>"$fault_here/compare.log" || true
        tell_bits
        check_exact
    fi
    rm -f "$fault_here/played.wav"
    keep_row "$step=$manner" "$fault_work/steps/rows"
}
steps_at_once=8
run_steps() {  # NAME...: those alone, or all
    rm -rf "$fault_work/steps"
    mkdir -p "$fault_work/steps"
    : >"$fault_work/steps/rows"
    fault_source 2.5 >/dev/null
    local step list wanted bounds manner at=0
    while IFS='|' read -r step list wanted bounds; do
        step=${step// /} wanted=${wanted// /}
        for manner in $list; do
            if [ $# -gt 0 ]; then
                case " $* " in *" $step=$manner "*) ;; *) continue ;; esac
            fi
            at=$((at + 1))
            echo "$at $step $manner $wanted $bounds"
        done
    done < <(grep -vE '^ *$' <<<"$step_rows") >"$fault_work/steps/list"
    [ -s "$fault_work/steps/list" ] || fail "There is no such step; ./dev faults --list shows them, each as STEP=MANNER."
    local worker jobs=()
    for worker in $(seq $steps_at_once); do
        [ "$worker" -le "$(wc -l <"$fault_work/steps/list")" ] || break
        (steps_worker "$worker") >"$fault_work/steps/worker-$worker.log" 2>&1 &
        jobs+=($!)
    done
    for worker in "${jobs[@]}"; do wait "$worker" || true; done
    local done_steps
    done_steps=$(wc -l <"$fault_work/steps/rows")
    # In the order of the list, whoever was first.
    while read -r at step manner _; do
        grep -F "$step=$manner|" "$fault_work/steps/rows" || echo "$step=$manner||did not run|BROKEN"
    done <"$fault_work/steps/list" | while IFS= read -r line; do echo "$line" >>"$fault_work/rows"; show_row "$line"; done
    [ "$done_steps" = "$(wc -l <"$fault_work/steps/list")" ] || say "Some steps did not run; see ${fault_work#"$root"/}/steps/"
}

# ---- the table ----

joined() {
    local text=''
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

faults() {
    local wanted=() wanted_steps=() name all=yes
    for name in "$@"; do
        case $name in
            --list) printf '%s\n' "${fault_rows[@]}" steps; sed -nE 's/^([A-Z]+_[A-Z]+) *\| *([^|]*[^ ]) *\|.*/\1: \2/p' <<<"$step_rows"; return ;;
            steps) all=no; wanted_steps+=(all) ;;
            *=*) all=no; wanted_steps+=("$name") ;;
            *)
                case " ${fault_rows[*]} " in *" $name "*) all=no; wanted+=("$name") ;; *) fail "There is no row $name; ./dev faults --list shows them." ;; esac
                ;;
        esac
    done
    [ $all = no ] || { wanted=("${fault_rows[@]}"); wanted_steps=(all); }
    need_packages
    build_preset release velmora-relay velmora-target velmora-play velmora-audio
    fault_work=$build/faults
    mkdir -p "$fault_work"
    : >"$fault_work/rows"
    if [ ${#wanted[@]} -gt 0 ]; then
        trap drop_faults EXIT
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
    fi
    if [ ${#wanted_steps[@]} -gt 0 ]; then
        if [ "${wanted_steps[0]}" = all ]; then run_steps; else run_steps "${wanted_steps[@]}"; fi
    fi
    write_faults_json >"$build/faults.json"
    local rows broken_rows
    rows=$(wc -l <"$fault_work/rows")
    broken_rows=$(grep -c '|BROKEN' "$fault_work/rows" || true)
    say ""
    say "Counters that wrap in mid-stream are tested on the clock and the network in memory: ./dev test asan."
    say "$rows rows, $((rows - broken_rows)) kept, $broken_rows broken; build/faults.json has them all."
    [ "$broken_rows" = 0 ]
}
