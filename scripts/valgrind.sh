# ./dev valgrind: one whole session with the player under memcheck, and one with the target. Sourced by ./dev.

# Any error, and any byte that is not given back, is a failure; but for what scripts/valgrind.supp names.
memcheck=(valgrind --tool=memcheck --error-exitcode=99 --leak-check=full --show-leak-kinds=all
    --errors-for-leak-kinds=all --suppressions="$root/scripts/valgrind.supp" --num-callers=30 --fair-sched=yes)

# valgrind_session PROGRAM: the other one runs as it is. Under valgrind a program is some thirty times as
# slow: long cycles, deep buffers, and seldom a question that must be answered.
valgrind_session() {
    local program=$1 work=$build/valgrind/$1
    local native_preset=debug player_prefix=() target_prefix=()
    rm -rf "$work"
    mkdir -p "$work"
    write_settings "$work/config" "Debug=enable" "PCMRequest=16" "CycleTime=5000" "InfoCycle=250000" \
        "ASIOBufferSizePre=8192" "SyncBufferCount=8"
    case $program in
        velmora-play) player_prefix=("${memcheck[@]}" --log-file="$work/memcheck.log") ;;
        velmora-target) target_prefix=("${memcheck[@]}" --log-file="$work/memcheck.log") ;;
    esac
    say "Playing, with $program under valgrind"
    local code=0
    play_over_the_net yes "$work" "$valgrind_music" "$work/played.wav" --pcm 16 --buffer 1000 \
        --name "Velmora valgrind target" -- || code=$?
    local failures=()
    [ $code = 0 ] || failures+=("the player ended with code $code")
    "$(native velmora-audio)" compare --target-summary "$work/target.json" "$valgrind_music" "$work/played.wav" \
        >"$work/compare.log" 2>&1 || failures+=("what arrived is not what was played")
    grep -q 'ERROR SUMMARY: 0 errors' "$work/memcheck.log" || failures+=("valgrind has found something")
    sed -nE 's/^==[0-9]+== +(total heap usage|definitely lost|still reachable|All heap blocks|ERROR SUMMARY)/  \1/p' \
        "$work/memcheck.log"
    [ ${#failures[@]} = 0 ] && return 0
    printf '  %s\n' "${failures[@]}"
    tail -n 60 "$work/memcheck.log"
    say "  all of it is in ${work#"$root"/}/"
    return 1
}

run_valgrind() {
    need_packages valgrind libc6-dbg
    build_preset debug velmora-play velmora-target
    build_preset release velmora-audio
    mkdir -p "$build/valgrind"
    valgrind_music=$build/valgrind/music.wav
    "$(native velmora-audio)" generate --bits 16 --rate 44100 --seconds 5 "$valgrind_music"
    trap drop_namespaces EXIT
    need_namespaces
    local failed=0
    valgrind_session velmora-play || failed=1
    valgrind_session velmora-target || failed=1
    [ $failed = 0 ] || fail "NOT clean."
    say "Clean: every bit arrived, no error, and all memory was given back."
}
