# ./dev faults: rows of a bad link and of strangers on it. Sourced by scripts/faults.sh.

# ---- rows: the link ----

loss_row() {  # PER_MILLE BURST MOST_RATIO [BUFFER]
    local buffer=${4:-50} acted
    promise "every bit, at most $3x the datagrams, with $buffer ms of buffer"
    # So few losses take time to come.
    [ "$1" != 1 ] || seconds=20
    relay_args="--above 200 --then-all --lose $1 --burst $2"
    target_args="--buffer $buffer"
    play_exact
    tell "$(relayed forth lost) lost on the way, fill at most $(calc "$(highest_fill) / 1000" 1) ms"
    acted=$(relayed forth acted)
    # A third of the share: bursts come in heaps.
    check "$(relayed forth lost) >= $acted * $1 / 3000" "only $(relayed forth lost) of $acted were lost on the way"
    check "$(relayed forth lost) > 0" "none was lost on the way"
    check "$(packet_ratio) <= $3" "$(packet_ratio)x the datagrams"
    check "$(highest_fill) > 0 && $(highest_fill) < $buffer * 1200" "$(highest_fill) us of music at the target"
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
    check_met doubled 100
    check "$(packet_ratio) <= 1.01" "$(packet_ratio)x the datagrams"
}
row_reordering() {
    promise "every bit, at most 1.35x the datagrams"
    relay_args="--above 200 --then-all --hold 50 --hold-for 3"
    play_exact
    check_met heldBack 50
    check "$(packet_ratio) <= 1.35" "$(packet_ratio)x the datagrams"
}
row_corruption() {
    promise "every bit, at most 1.1x the datagrams: what is spoiled counts as lost"
    relay_args="--above 200 --then-all --corrupt 20"
    play_exact
    check_met corrupted 20
    check "$(packet_ratio) <= 1.1" "$(packet_ratio)x the datagrams"
}
row_corruption-unseen() {
    promise "the stream goes on; what was spoiled unseen is wrong, the protocol has no check of its own"
    relay_args="--above 200 --direction forth --corrupt-unseen 2"
    play_session
    tell_code
    tell_bits
    local spoiled
    spoiled=$(relayed forth corruptedUnseen)
    tell "$spoiled datagrams spoiled"
    tell_target
    check_code 0
    # At worst its header is spoiled, and all of it lies in the wrong place or nowhere.
    check "0 < $(wrong_frames) && $(wrong_frames) <= 100 * $spoiled" \
        "$(wrong_frames) frames wrong or missing for $spoiled datagrams"
    check_end $stop_bound
}
row_jitter() {
    promise "every bit, and nothing sent again"
    relay_args="--above 200 --then-all --delay 1,20"
    play_exact
    check_met delayed 3000
    check "$(packet_ratio) <= 1.01" "$(packet_ratio)x the datagrams"
}
row_jitter-disorder() {
    promise "every bit, and nothing sent again, where the target waits for what was only overtaken"
    relay_args="--above 200 --then-all --delay 1,20 --disorder"
    target_args="--buffer 100 --ask 40,400"
    play_exact
    tell "$(of_target reordered) came out of order"
    check_met delayed 3000
    check "$(of_target reordered) >= 1000" "only $(of_target reordered) came out of order"
    check "$(packet_ratio) <= 1.01" "$(packet_ratio)x the datagrams"
}
row_jitter-disorder-eager() {
    promise "the stream goes on, though the target asks for whatever was overtaken at once; at most 4x the datagrams"
    relay_args="--above 200 --then-all --delay 1,20 --disorder"
    play_session
    tell_code
    tell_bits
    tell_ratio
    tell_target
    check_code 0
    check_met delayed 3000
    check "$(of_target reordered) >= 50" "only $(of_target reordered) came out of order"
    check "$(packet_ratio) > 0 && $(packet_ratio) <= 4" "$(packet_ratio)x the datagrams"
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
    check_met cut 50
}
row_cut-0.9() {
    promise "every bit, where the target asks for what is 0.9 s old and can wait for it"
    cut_row 0.9
    target_args="--buffer 2000 --ask 0,950"
    seconds=6
    play_exact
    check_met cut 50
}
row_cut-0.9-given-up() {
    promise "where the target asks for nothing older than 0.4 s: the stream goes on with a hole, or ends within 2 s"
    cut_row 0.9
    target_args="--buffer 2000"
    seconds=6 during=note_cut
    play_session
    tell_code
    tell_bits
    tell_target
    check_met cut 50
    if [ "$code" = 9 ]; then tell_loss_time; else
        check_code 0
        check "$(of_target lost) > 0" "nothing was lost at the target"
        check "0 < $(wrong_frames) && $(wrong_frames) <= 48000" "$(wrong_frames) frames wrong or missing"
    fi
    check_end $stop_bound
}
row_cut-3() {
    promise "the stream ends about a second after the cut, and the next one is whole"
    cut_row 3
    seconds=6
    during=note_cut
    play_session
    tell_code
    check_code 9
    check_met cut 50
    tell_loss_time
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

# ---- rows: strangers ----

# tell_flood LEAST: so many datagrams, at three quarters of 20,000 a second or more: the machine has the relay, the
# player and the target to run besides.
tell_flood() {
    local count time
    count=$(field "$fault_here/relay.json" flooded) time=$(field "$fault_here/relay.json" floodSeconds)
    tell "$count datagrams of a flood in $(calc "$time" 1) s"
    check "$count >= $1" "no flood to speak of: $count datagrams"
    check "$count >= 15000 * $time" "a flood of only $count datagrams in $time s"
}
flood_row() {  # KIND
    promise "every bit under 20,000 datagrams a second at the driver's port, CPU below $most_cpu %"
    relay_args="--above 200 --flood 20000 --flood-kind $1 --flood-most 200000"
    play_exact
    tell_flood 60000
}
row_flood-foreign() { flood_row foreign; }
row_flood-malformed() { flood_row malformed; }
row_flood-noise() { flood_row noise; }
row_flood-from-the-start() {
    promise "the talk before the stream ends with the flood, 6 s, and 3 s more, no wait of 10 s; every bit"
    relay_args="--flood 20000 --flood-kind noise --flood-most 120000"
    seconds=6
    play_session
    tell_code
    tell_bits
    tell "init $(of_player init) ms, start $(of_player start) ms"
    tell_flood 100000
    check "$(of_player init) + $(of_player start) <= 9000" "init and start took $(($(of_player init) + $(of_player start))) ms"
    check_code 0
    check_exact
    check_end $stop_bound
}
row_flood-targets() {
    promise "a search among 100 false targets ends: four questions of 0.1 s to each that it hears; then every bit"
    relay_args="--flood 200 --flood-kind targets --flood-most 100"
    play_session
    tell_code
    tell_bits
    tell "init $(of_player init) ms, $(field "$fault_here/relay.json" flooded) false targets"
    check "$(field "$fault_here/relay.json" flooded) == 100" "not so many false targets"
    check "$(of_player init) <= 45000" "init took $(of_player init) ms"
    check_code 0
    check_exact
    check_end $stop_bound
}

