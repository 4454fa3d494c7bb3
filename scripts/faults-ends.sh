# ./dev faults: rows of bad targets and bad hosts. Sourced by scripts/faults.sh.

# ---- rows: the target's life ----

signal_far() {  # SIGNAL
    await_audio 1
    fault_at=$(now_ms)
    as_root kill "-$1" "$far_id"
}
kill_far() { signal_far KILL; }
stop_far() { signal_far STOP; }
lost_row() {  # DURING
    promise "the stream ends within 2 s, stop returns"
    seconds=6 during=$1
    play_session
    tell_code
    check_code 9
    tell_loss_time
    check_end $stop_bound
}
row_target-killed() { lost_row kill_far; }
row_target-stopped() { lost_row stop_far; }
pause_far() {
    stop_far
    sleep 0.5
    far_state=$(sed -nE 's/^State:[^A-Z]*([A-Z]).*/\1/p' "/proc/$far_id/status")
    as_root kill -CONT "$far_id"
}
row_target-paused() {
    promise "every bit: half a second is no loss"
    target_args="--buffer 800"
    local far_state=''
    during=pause_far
    play_exact
    [ "$far_state" = T ] || broken+=("the target was not stopped")
}
restart_far() {
    kill_far
    wait "$far_job" 2>/dev/null || true
    rm -f "$fault_here/played.wav"
    start_far "$target_args"
}
row_target-restarted() {
    lost_row restart_far
    promise "the stream ends within 2 s, stop returns; the next one is whole"
    next_stream_is_whole
}

# ---- rows: hostile targets ----

# hostile_row CODE ARGS...: bounded, whatever it is: at most twice the datagrams of a stream in good order (1,080 a
# second), and some for its beginning and its end; no hang.
hostile_row() {
    local wanted=$1 time
    shift
    [ -n "$relay_args" ] || relay_args="--above 200"
    target_args="$*"
    play_session
    # From the start on: packets go out before the host is asked for the first buffer.
    time=$(($(of_player end) - $(of_player init) - $(of_player start) + $(of_player stop)))
    tell_code
    tell_bits
    tell "$(relayed forth acted) datagrams in $(calc "$time / 1000" 1) s"
    check_code "$wanted"
    case $target_args in *--misbehave*) check_misbehaved ;; esac
    check "$(relayed forth acted) <= 2200 * $time / 1000 + 200" "too many datagrams"
    check_end $stop_bound
}
row_hostile-resend-all() {
    promise "the stream starves and ends within 4 s; at most 2,200 datagrams a second, twice its own; stop returns"
    hostile_row 9 --misbehave STREAM_DATA=resend-all
    tell_stream_time 4000
}
row_hostile-resend-more() {
    promise "the stream ends within 0.5 s, stop returns"
    hostile_row 9 --misbehave STREAM_DATA=resend-more
    tell_stream_time 500
}
row_hostile-contradict() {
    promise "the stream goes on within the bounds of its flow, stop returns; the phase is followed, so every bit differs"
    hostile_row 0 --misbehave STREAM_DATA=contradict
    check_misbehaved 1000
}
row_hostile-profile() {
    promise "a profile of zeros, one of the largest words, and three that are drawn: every bit"
    settings+=("TargetProfileLimitTime=500")
    local manner
    for manner in zeros ones "garbage --seed 1" "garbage --seed 2" "garbage --seed 3"; do
        seconds=2
        # shellcheck disable=SC2086 # words
        hostile_row 0 --misbehave PROFILE_REQ=$manner
        check_exact
    done
}
row_hostile-latency() {
    promise "a latency of 6.5 s, and two that are drawn: every bit"
    local manner
    for manner in ones "garbage --seed 1" "garbage --seed 2"; do
        # shellcheck disable=SC2086 # words
        hostile_row 0 --misbehave LATENCY_REQ=$manner
        check_exact
    done
}
# size_row MTU BURST: none allows a packet with payload.
size_row() {
    promise "no payload fits: refused at the start"
    hostile_row 8 --mtu "$1" --max-burst "$2"
    grep -q "DATASIZE_REQ mtu=$1 max=$2\$" "$fault_here/driver.log" || broken+=("the driver took other limits")
}
row_hostile-mtu-0() { size_row 0 15000; }
row_hostile-mtu-64() { size_row 64 15000; }
row_hostile-burst-0() { size_row 1500 0; }
row_hostile-mtu-65535() {
    promise "every bit, in datagrams that the link cuts"
    settings+=("Fragment=enable" "CycleTime=20000")
    hostile_row 0 --mtu 65535 --max-burst 65535
    local cut
    cut=$(($(relayed forth frames) - $(relayed forth datagrams)))
    tell "$cut of $(relayed forth frames) frames are fragments"
    check_exact
    check "$cut >= 500" "only $cut fragments"
}

# ---- rows: the host's machine ----

take_interface() {
    await_audio 1
    fault_at=$(now_ms)
    as_root ip -n "$net_host" link del vhost
}
row_interface-vanishes() {
    lost_row take_interface
    promise "the stream ends within 2 s, stop returns; the next one is whole"
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
    backlog=$(as_root ip netns exec "$net_host" tc -j -s qdisc show dev vhost | grep -o '"backlog":[0-9]*' | cut -d: -f2)
    as_root ip netns exec "$net_host" tc qdisc change dev vhost root tbf rate 1gbit burst 200000 limit 10000000
}
row_send-buffer-full() {
    promise "every bit: the send waits, and what is late is made up for"
    target_args="--buffer 1000"
    local backlog=0
    during=fill_buffer
    play_exact
    tell "$backlog bytes waiting to be sent, $(of_player longestGap) ms between two callbacks"
    check "$backlog >= 20000" "only $backlog bytes waited to be sent"
    check "$(of_player longestGap) >= 100" "the driver never waited: $(of_player longestGap) ms between two callbacks"
    as_root ip netns exec "$net_host" tc qdisc del dev vhost root 2>/dev/null || true
}
# cut_silence FILE OUT: without the longest silence behind the first sound. 24 bits, two channels.
cut_silence() {
    local header at count
    header=$(($(grep -abo -m 1 data "$1" | head -n 1 | cut -d: -f1) + 8))
    read -r at count < <(od -An -v -tx1 -w6 -j $header "$1" | uniq -c | awk '
        $2 $3 $4 $5 $6 $7 == "000000000000" && begun && $1 > most { most = $1; where = at }
        { begun = 1; at += $1 }
        END { print where + 0, most + 0 }')
    head -c $((header + 6 * at)) "$1" >"$2"
    tail -c +$((header + 6 * (at + count) + 1)) "$1" >>"$2"
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
    check "$(of_player longestGap) >= 2900" "the host was away for $(of_player longestGap) ms"
    check "$(of_target lost) == 0" "lost $(of_target lost)"
    check "$silent >= 2.5 * 48000 && $silent <= 4.5 * 48000" "not the silence that was to be expected"
    check_end $stop_bound
    # What is wrong is what lies between: without it every frame of both sides is right.
    cut_silence "$fault_here/played.wav" "$fault_here/joined.wav"
    compare_with "$fault_here/joined.wav"
    tell "without it: $([ "$(of_compare exact)" = true ] && echo bit-exact || echo "$(wrong_frames) frames wrong or missing")"
    check_exact
}

