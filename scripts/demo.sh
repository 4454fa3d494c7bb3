# ./dev demo: music through the driver to a target on another machine, as far as this one can be two.
# Sourced by ./dev.

# write_settings FOLDER LINE...: a settings file as the driver reads it. It bears the version of the factory
# file, or the driver would take it for an older release's and put that in its place.
write_settings() {
    mkdir -p "$1/KORVENTE Velmora"
    local file="$1/KORVENTE Velmora/setting.inf"
    shift
    { grep '^Version' packaging/setting_org.inf | tr -d '\r '; printf '%s\r\n' "$@"; } >"$file"
}

# Where the driver under Wine, or the native one, looks for the user's settings.
windows_settings_folder() {
    local users=$wine_prefix/drive_c/users
    printf '%s' "$users/$(id -un)/AppData/Roaming"
}

# The build of player and target that plays natively, and what stands in front of each: a tool that watches it.
native_preset=release
player_prefix=()
target_prefix=()
played() { printf '%s' "$build/$native_preset/bin/$1"; }

# play_over_the_net NATIVE WORK FILE WRITTEN TARGET_ARGS -- PLAYER_ARGS: one session in the two namespaces.
# Leaves target.json, target.log, player.log and driver.log in WORK; gives the player's exit code. Once the
# target answers, the command in before_play runs, if there is one.
before_play=
play_over_the_net() {
    local is_native=$1 work=$2 file=$3 written=$4
    shift 4
    local target_args=()
    while [ "$1" != -- ]; do target_args+=("$1"); shift; done
    shift
    # A row may say itself where the target plays to.
    case " ${target_args[*]} " in *" --output "*) ;; *) target_args+=(--output "$written") ;; esac
    rm -f "$work"/target.json "$work"/target.pid "$work"/target.log "$work"/player.log "$work"/driver.log "$written"
    in_target "${numbered[@]}" "$work/target.pid" "${target_prefix[@]}" "$(played velmora-target)" \
        --interface vtarget --once --seconds 300 --json "${target_args[@]}" >"$work/target.json" 2>"$work/target.log" &
    local target=$! tries=0
    until [ -s "$work/target.json" ] || ! kill -0 $target 2>/dev/null || [ $tries -ge 600 ]; do
        sleep 0.05
        tries=$((tries + 1))
    done
    $before_play
    local code=0
    if [ "$is_native" = yes ]; then
        in_host env XDG_CONFIG_HOME="$work/config" "${player_prefix[@]}" "$(played velmora-play)" --file "$file" \
            --driver-log "$work/driver.log" "$@" 2>"$work/player.log" || code=$?
    else
        in_host env "${wine_variables[@]}" wine "$(exe velmora-play)" \
            --driver "KORVENTE Velmora" --file "$(windows_path "$file")" \
            --driver-log "$(windows_path "$work/driver.log")" "$@" 2>"$work/player.log" || code=$?
        # The server holds this namespace's sockets: it ends before anything moves on.
        in_host env "${wine_variables[@]}" wineserver -k -w 2>/dev/null || true
    fi
    # A target that heard no end of the stream is told to end here.
    local waited=0
    while kill -0 $target 2>/dev/null && [ $waited -lt 100 ] && [ $code = 0 ]; do sleep 0.1; waited=$((waited + 1)); done
    end_job $target "$work/target.pid"
    return $code
}

# play_bit_for_bit NATIVE WORK FILE WRITTEN TARGET_ARGS -- PLAYER_ARGS: a session whose music must come out as it went
# in. Leaves what play_over_the_net leaves, and compare.log; the player's code is in played_code.
play_bit_for_bit() { while_calm "${2##*/}" "$2" play_and_compare "$@"; }
play_and_compare() {
    local work=$2 file=$3 written=$4
    played_code=0
    rm -f "$work/compare.log"
    play_over_the_net "$@" >"$work/out.log" 2>&1 || played_code=$?
    # What a sanitizer said would be gone with the session.
    ! grep -q ThreadSanitizer "$work/player.log" "$work/target.log" || return 2
    [ $played_code = 0 ] || return 1
    "$(native velmora-audio)" compare --target-summary "$work/target.json" "$file" "$written" >"$work/compare.log" 2>&1
}

# deep_ring HERTZ: two settings, of a ring that lasts for a second and a half of that rate, for what is to come through
# on a busy machine, whose host may be late by that. DSD has 32 samples in what the settings call a frame.
deep_ring() { printf 'ASIOBufferSizePre=2048 SyncBufferCount=%d' $((($1 * 3 / 2 + 2047) / 2048)); }

# What a person sees who asks which targets there are.
show_targets_natively() { in_host "$(native velmora-find)" list || true; }
show_targets_under_wine() { in_host env "${wine_variables[@]}" wine "$(exe velmora-find)" list || true; }

windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# show_timing WORK: how punctual the stream was whose log lies in WORK: a line, and a picture beside the log. A log
# that tells nothing of it is no failure: then that is said.
show_timing() {
    local work=$1 picture=$1/timing.svg figures behind bursts late
    rm -f "$picture"
    figures=$("$(native velmora-log)" --read "$work/driver.log" --quiet --plot "$picture" 2>"$work/timing.log") || true
    bursts=$(sed -nE 's/^ +bursts +([0-9]+)$/\1/p' <<<"$figures")
    behind=$(sed -nE 's/^ +behind the deadline +//p' <<<"$figures")
    late=$(sed -nE 's/^ +late turns +//p' <<<"$figures")
    if [ -z "$behind" ] || [ ! -s "$picture" ]; then
        rm -f "$picture"
        say "No picture of how punctual it was: $(tail -n 1 "$work/timing.log" | sed "s#$root/##")"
        return
    fi
    say "  $bursts bursts, behind their deadline $behind; late turns ${late:-0}; drawn in ${picture#"$root"/}"
}

demo() {
    local is_native=no file=
    while [ $# -gt 0 ]; do
        case $1 in
            --native) is_native=yes ;;
            -*) usage >&2; exit 2 ;;
            *) file=$1 ;;
        esac
        shift
    done
    case $file in '' | /*) ;; *) file=$caller/$file ;; esac
    [ -z "$file" ] || [ -r "$file" ] || fail "There is no file $file that can be read."
    need_packages
    build_preset release velmora-target velmora-play velmora-audio velmora-find velmora-log
    if [ $is_native = no ]; then
        build_preset windows asio_korvente_x64 velmora-play velmora-find
        need_wine_prefix
        end_wine
        register_dll
        end_wine
    fi
    local work=$build/demo
    mkdir -p "$work"
    if [ -z "$file" ]; then
        file=$work/music.wav
        [ -f "$file" ] || "$(native velmora-audio)" generate --bits 24 --rate 44100 --seconds 10 "$file"
    fi
    file=$(realpath "$file")
    local written=$work/played.wav
    case ${file,,} in *.dsf) written=$work/played.dsf ;; esac

    local settings
    if [ $is_native = yes ]; then settings=$work/config; else settings=$(windows_settings_folder); fi
    write_settings "$settings" "Debug=enable" "DSDMSB=enable" "PCMRequest=32"

    trap 'end_wine; drop_namespaces' EXIT
    need_namespaces
    say "Playing $file"
    if [ $is_native = yes ]; then
        say "through the driver's Linux build to a target in another network namespace, which it finds:"
        before_play=show_targets_natively
    else
        say "through asio_korvente_x64.dll under Wine to a target in another network namespace, which it finds:"
        before_play=show_targets_under_wine
    fi
    play_over_the_net $is_native "$work" "$file" "$written" --name "Velmora demo target" --state "$work/target-state.inf" -- || {
        local code=$?
        cat "$work/player.log" >&2
        fail "The player ended with code $code; the target's words are in ${work#"$root"/}/target.log."
    }
    local code=0
    "$(native velmora-audio)" compare --target-summary "$work/target.json" --driver-log "$work/driver.log" \
        "$file" "$written" || code=$?
    show_timing "$work"
    return $code
}
