# ./dev soak: many minutes of a stream over a network that loses packets, to a target whose clock comes and
# goes. What is looked for takes time to show: a frame here and there, memory, handles, threads. Sourced by
# ./dev.

# What still counts as flat: so much above the first look, ten seconds into the stream, at any later one.
soak_memory_limit=1024 # KiB
soak_handle_limit=0
soak_thread_limit=0

soak_rate=44100
soak_ppm=100 # how far the target's clock goes to either side

soak_jobs=()
soak_work=
end_soak() {
    local name
    for name in player target; do
        [ ! -s "$soak_work/$name.pid" ] || kill "$(cat "$soak_work/$name.pid")" 2>/dev/null || true
    done
    [ ${#soak_jobs[@]} = 0 ] || wait "${soak_jobs[@]}" 2>/dev/null || true
    drop_namespaces
}

# soak_start NAME SPACE PROGRAM ARGS...: its number goes to NAME.pid, for between it and the shell stand
# those who entered the namespace.
soak_start() {
    local name=$1 space=$2
    shift 2
    rm -f "$soak_work/$name.pid"
    # shellcheck disable=SC2016
    in_space "$space" sh -c 'echo $$ >"$0"; exec "$@"' "$soak_work/$name.pid" "$@" &
    soak_jobs+=($!)
}

# soak_look NAME: what /proc says of the program, as "MEMORY HANDLES THREADS".
soak_look() {
    local proc
    proc=/proc/$(cat "$soak_work/$1.pid")
    printf '%s %s %s' "$(sed -n 's/^VmRSS:[^0-9]*\([0-9]*\).*/\1/p' "$proc/status")" \
        "$(find "$proc/fd" -mindepth 1 | wc -l)" "$(sed -n 's/^Threads:[^0-9]*//p' "$proc/status")"
}

# soak_number KEY TEXT: a number of a line of JSON.
soak_number() { sed -nE "s/.*\"$1\": ?(-?[0-9.]+).*/\1/p" <<<"$2"; }
# Datagrams that left the host, all told.
soak_sent() { in_host sed -nE "s/^Udp6OutDatagrams[^0-9]*//p" /proc/net/snmp6; }
soak_lost() { local lost; lost=$(lost_so_far); printf '%s' "${lost:-0}"; }

soak_complaints=()
# soak_flat NAME "MEMORY HANDLES THREADS" "THE FIRST": says what has grown.
soak_flat() {
    local memory handles threads memory0 handles0 threads0
    read -r memory handles threads <<<"$2"
    read -r memory0 handles0 threads0 <<<"$3"
    [ "$memory" -le $((memory0 + soak_memory_limit)) ] ||
        soak_complaints+=("the $1's memory grew from $memory0 to $memory KiB")
    [ "$handles" -le $((handles0 + soak_handle_limit)) ] ||
        soak_complaints+=("the $1's handles grew from $handles0 to $handles")
    [ "$threads" -le $((threads0 + soak_thread_limit)) ] ||
        soak_complaints+=("the $1's threads grew from $threads0 to $threads")
}

soak_player0= soak_target0= soak_looks=0
soak_head() {
    printf '%s\n' \
        "              frames      packets                      asked  came            clock   fill   player                  target" \
        "   min        played         sent     lost    arrived  again  again  gone      ppm     ms      KiB handles threads      KiB handles threads"
}
# soak_row SECONDS: a look at everything; the first one is what later ones are held against.
soak_row() {
    local figures player target
    figures=$(grep '"type":"figures"' "$soak_work/target.json" | tail -n 1)
    # Who ends right now is not looked at.
    player=$(soak_look player 2>/dev/null) && target=$(soak_look target 2>/dev/null) || return 0
    [ -n "$figures" ] && [ "$(wc -w <<<"$player $target")" = 6 ] || return 0
    soak_looks=$((soak_looks + 1))
    # shellcheck disable=SC2086
    printf '%6s %13s %12s %8s %10s %6s %6s %5s %8s %6s %8s %7s %7s %8s %7s %7s\n' \
        "$(awk "BEGIN { printf \"%.1f\", $1 / 60 }")" "$(soak_number frames "$figures")" \
        "$(soak_sent)" "$(soak_lost)" "$(soak_number packets "$figures")" "$(soak_number resendRequests "$figures")" \
        "$(soak_number recovered "$figures")" "$(soak_number lost "$figures")" \
        "$(soak_number clockPpm "$figures")" \
        "$(awk "BEGIN { printf \"%.0f\", $(soak_number fillMicros "$figures") / 1000 }")" $player $target
    if [ -z "$soak_player0" ]; then
        soak_player0=$player soak_target0=$target
    fi
    soak_flat player "$player" "$soak_player0"
    soak_flat target "$target" "$soak_target0"
}

# soak_need MINUTES: the music, and as much again that the target writes; making it keeps it in memory.
soak_need() {
    local disk=$(($1 * 60 * soak_rate * 8 / 1024 * 5 / 4 + 100000)) memory=$(($1 * 60 * soak_rate * 16 / 1024 + 100000))
    [ "$(df --output=avail -k "$build" | tail -n 1)" -gt $disk ] ||
        fail "$1 minutes take $((disk / 1024)) MiB of disk, and there are fewer."
    [ "$(sed -n 's/^MemAvailable:[^0-9]*\([0-9]*\).*/\1/p' /proc/meminfo)" -gt $memory ] ||
        fail "Making $1 minutes of music takes $((memory / 1024)) MiB of memory, and there are fewer."
}

soak() {
    local minutes=10 per_mille=10
    while [ $# -gt 0 ]; do
        case $1 in
            --minutes) minutes=${2-}; shift ;;
            --lose) per_mille=${2-}; shift ;;
            *) usage >&2; exit 2 ;;
        esac
        shift || true
    done
    [[ $minutes =~ ^[0-9]+$ ]] && [ "$minutes" -ge 1 ] && [ "$minutes" -le 60 ] || fail "--minutes goes from 1 to 60."
    [[ $per_mille =~ ^[0-9]+$ ]] && [ "$per_mille" -le 100 ] || fail "--lose goes from 0 to 100, per mille."
    need_packages
    build_preset release velmora-target velmora-play velmora-audio
    soak_need "$minutes"

    soak_work=$build/soak
    local music=$soak_work/music.wav written=$soak_work/played.wav seconds=$((minutes * 60))
    rm -rf "$soak_work"
    mkdir -p "$soak_work"
    say "Making $minutes min of music"
    "$(native velmora-audio)" generate --bits 16 --rate $soak_rate --seconds $seconds "$music"
    # Buffers deep enough for a busy machine.
    write_settings "$soak_work/config" "ASIOBufferSizePre=2048" "SyncBufferCount=12" "PCMRequest=16"

    # There and back at least twice, and not so slowly that an hour sees little of it.
    local drift_seconds=$((seconds / 2 < 600 ? seconds / 2 : 600))
    trap end_soak EXIT
    need_namespaces
    lose "$per_mille"
    soak_start target "$net_target" "$(native velmora-target)" --interface vtarget --once \
        --seconds $((seconds + 120)) --json --output "$written" --pcm 16 --buffer 300 \
        --clock-drift $soak_ppm,$drift_seconds >"$soak_work/target.json" 2>"$soak_work/target.log"
    local target=${soak_jobs[0]} tries=0
    until [ -s "$soak_work/target.json" ] || [ $tries -ge 100 ]; do sleep 0.05; tries=$((tries + 1)); done
    say "Playing; $per_mille of 1000 packets are lost, and the target's clock goes $soak_ppm ppm there and back in $drift_seconds s"
    soak_start player "$net_host" env XDG_CONFIG_HOME="$soak_work/config" "$(native velmora-play)" --file "$music" \
        >"$soak_work/player.out" 2>"$soak_work/player.log"
    local player=${soak_jobs[1]}

    soak_head
    local begin=$SECONDS due=10 last=$((seconds - 5)) elapsed
    while kill -0 "$player" 2>/dev/null; do
        elapsed=$((SECONDS - begin))
        if [ $elapsed -ge $due ]; then
            soak_row $elapsed
            if [ $due -ge $last ]; then due=999999; else
                due=$((due / 60 * 60 + 60))
                [ $due -lt $last ] || due=$last
            fi
        fi
        sleep 0.25
    done
    local code=0 target_code=0
    wait "$player" || code=$?
    # A target that heard no end of the stream is told to end here.
    tries=0
    while [ $code = 0 ] && kill -0 "$target" 2>/dev/null && [ $tries -lt 100 ]; do sleep 0.1; tries=$((tries + 1)); done
    ! kill -0 "$target" 2>/dev/null || kill "$(cat "$soak_work/target.pid")" 2>/dev/null || true
    wait "$target" || target_code=$?
    soak_jobs=()
    rm -f "$soak_work"/*.pid
    soak_verdict "$music" "$written" $code $target_code "$per_mille"
}

# soak_verdict MUSIC WRITTEN PLAYERS_CODE TARGETS_CODE PER_MILLE
soak_verdict() {
    local music=$1 written=$2 code=$3 target_code=$4 per_mille=$5 result='' summary way
    summary=$(tail -n 1 "$soak_work/target.json")
    result=$("$(native velmora-audio)" compare --json "$music" "$written" 2>"$soak_work/compare.log") || true
    way=$(soak_lost)
    local frames missing wrong
    frames=$(soak_number frames "$result")
    missing=$(soak_number missing "$result")
    wrong=$(soak_number wrong "$result")

    [ "$code" = 0 ] || soak_complaints+=("the player ended with code $code")
    [ "$target_code" = 0 ] || soak_complaints+=("the target ended with code $target_code")
    [[ $result == *'"exact":true'* ]] || soak_complaints+=("what arrived is not what was played")
    # One is what the others are held against.
    [ $soak_looks -ge 2 ] || soak_complaints+=("of looks at the programs there were $soak_looks")
    local key
    for key in lost underruns overflows; do
        [ "$(soak_number $key "$summary")" = 0 ] || soak_complaints+=("the target counts $key: $(soak_number $key "$summary")")
    done
    # Without losses nothing was tried.
    [ "$per_mille" = 0 ] || [ "$way" -gt 0 ] || soak_complaints+=("no packet was lost on the way")

    local unknown='not known'
    say ""
    printf '  %-34s %s\n' \
        "frames sent" "${frames:-$unknown}" \
        "frames received" "$([ -z "$frames" ] && echo "$unknown" || echo $((frames - missing)))" \
        "frames lost" "${missing:-$unknown}" "frames wrong" "${wrong:-$unknown}" \
        "packets sent" "$(soak_sent)" "packets lost on the way" "$way" \
        "packets asked for again, times" "$(soak_number resendRequests "$summary")" \
        "packets that came then" "$(soak_number recovered "$summary")" \
        "feedback, lowest to highest" \
        "$(printf '%.3f to %.3f' "$(soak_number feedbackLowest "$summary")" "$(soak_number feedbackHighest "$summary")")" \
        "memory, at most above the first look" "$soak_memory_limit KiB" \
        "handles and threads likewise" "$soak_handle_limit and $soak_thread_limit"
    say ""
    if [ ${#soak_complaints[@]} = 0 ]; then
        rm -f "$music" "$written"
        say "Good: every frame arrived, and nothing grew."
        return 0
    fi
    printf '%s\n' "${soak_complaints[@]}" | sort -u | sed 's/^/  /'
    fail "NOT good; both files and all logs are in ${soak_work#"$root"/}/."
}
