# The suite `settings-e2e` of ./dev test, and ./dev screenshots: velmora-settings.exe as it is built, under Wine, on
# a screen in memory, with a target in another namespace that comes and goes. Sourced by ./dev and scripts/test.sh.

settings_packages=(xvfb fonts-wine imagemagick)
settings_work=$build/settings-e2e
settings_signals=$settings_work/signals
settings_prefix=$build/wine-settings
settings_variables=(WINEPREFIX="$settings_prefix" WINEDEBUG=-all WINEDLLOVERRIDES='mscoree=;mshtml=' LC_ALL=C.UTF-8)
settings_screen_job=
settings_target_job=
settings_watcher=

settings_wine() { in_host env "${settings_variables[@]}" DISPLAY="${settings_display-}" "$@"; }

# A prefix of its own: its desktop is a window with frames as Windows has them, its settings are nobody else's.
need_settings_prefix() {
    [ -f "$settings_prefix/.ready" ] && return
    say "Making a Wine prefix with a desktop"
    rm -rf "$settings_prefix"
    log_step "wineboot" settings-wineboot env "${settings_variables[@]}" wineboot -i
    local explorer='HKEY_CURRENT_USER\Software\Wine\Explorer'
    log_step "A desktop" settings-desktop env "${settings_variables[@]}" \
        wine reg add "$explorer" /v Desktop /d velmora /f
    log_step "A desktop" settings-desktop env "${settings_variables[@]}" \
        wine reg add "$explorer\\Desktops" /v velmora /d 1320x1040 /f
    env "${settings_variables[@]}" wineserver -w
    # The buttons of a frame are letters of a font.
    mkdir -p "$settings_prefix/drive_c/windows/Fonts"
    cp /usr/share/wine/fonts/marlett.ttf /usr/share/wine/fonts/tahoma*.ttf "$settings_prefix/drive_c/windows/Fonts/"
    touch "$settings_prefix/.ready"
}

# settings_dots DPI: from the next start on.
settings_dots() {
    settings_wine wine reg add 'HKEY_CURRENT_USER\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$1" /f \
        >"$logs/settings-dots.log" 2>&1
    settings_wine wineserver -k -w 2>/dev/null || true
}

need_settings_screen() {
    rm -f "$settings_work/display"
    Xvfb -displayfd 3 -screen 0 1320x1040x24 -nolisten tcp 3>"$settings_work/display" >"$logs/settings-screen.log" 2>&1 &
    settings_screen_job=$!
    local tries=0
    until [ -s "$settings_work/display" ] || [ $tries -ge 200 ]; do sleep 0.05; tries=$((tries + 1)); done
    [ -s "$settings_work/display" ] || fail "There is no screen; see build/log/settings-screen.log."
    settings_display=:$(cat "$settings_work/display")
}

# The target that the tests ask for by a file. The file goes when it is done.
start_settings_target() {
    local tries=0
    rm -f "$settings_work/target.json" "$settings_work/target.pid"
    in_target "${numbered[@]}" "$settings_work/target.pid" "$(native velmora-target)" \
        --interface vtarget --name Kitchen --seconds 600 --json \
        >"$settings_work/target.json" 2>"$settings_work/target.log" &
    settings_target_job=$!
    until [ -s "$settings_work/target.json" ] || [ $tries -ge 200 ]; do sleep 0.05; tries=$((tries + 1)); done
}
stop_settings_target() {
    [ -n "$settings_target_job" ] || return 0
    end_job "$settings_target_job" "$settings_work/target.pid"
    settings_target_job=
}
watch_settings_signals() {
    trap 'stop_settings_target; exit 0' TERM
    while :; do
        if [ -f "$settings_signals/start-target" ]; then
            stop_settings_target
            start_settings_target
            rm -f "$settings_signals/start-target"
        fi
        if [ -f "$settings_signals/stop-target" ]; then
            stop_settings_target
            rm -f "$settings_signals/stop-target"
        fi
        sleep 0.05
    done
}

# Everything that a run needs, and what ends it.
begin_settings_e2e() {
    build_preset release velmora-target
    build_preset windows settings-window velmora-settings velmora-find asio_korvente_x64
    mkdir -p "$settings_work"
    rm -rf "$settings_signals"
    mkdir -p "$settings_signals"
    need_namespaces
    need_settings_prefix
    need_settings_screen
    watch_settings_signals &
    settings_watcher=$!
}
end_settings_e2e() {
    [ ! -d "$settings_prefix" ] || env "${settings_variables[@]}" wineserver -k -w 2>/dev/null || true
    drop_small_disk
    if [ -n "$settings_watcher" ]; then kill "$settings_watcher" 2>/dev/null || true; wait "$settings_watcher" 2>/dev/null || true; fi
    if [ -n "$settings_screen_job" ]; then kill "$settings_screen_job" 2>/dev/null || true; wait "$settings_screen_job" 2>/dev/null || true; fi
    settings_watcher=''
    settings_screen_job=''
}

settings_folder() { printf '%s' "$settings_prefix/drive_c/users/$(id -un)/AppData/Roaming/KORVENTE Velmora"; }
make_small_disk() {
    mkdir -p "$(settings_folder)"
    as_root mount -t tmpfs -o "size=64k,mode=777" velmora-small "$(settings_folder)"
}
drop_small_disk() {
    ! mountpoint -q "$(settings_folder)" 2>/dev/null || as_root umount "$(settings_folder)"
}

# run_settings_window LOG [NAME=VALUE...] -- ARGS...
run_settings_window() {
    local log=$1 variables=()
    shift
    while [ "$1" != -- ]; do variables+=("$1"); shift; done
    shift
    settings_wine env "${variables[@]}" VELMORA_TEST_SIGNALS="$(settings_path "$settings_signals")" \
        VELMORA_FACTORY_SETTINGS="$(settings_path "$root/packaging/setting_org.inf")" \
        wine "$(exe settings-window)" "$@" >"$log" 2>&1 || true
}
settings_path() { printf 'Z:%s' "${1//\//\\}"; }

settings_passed=0
settings_failed=0
# count_settings LOG: what a run of it counted; a run that did not come to its end is one failure more.
count_settings() {
    local p f
    p=$(sed -nE 's/^\[  PASSED  \] ([0-9]+) tests?\..*/\1/p' "$1" | tail -n 1)
    f=$(sed -nE 's/^ ?([0-9]+) FAILED TESTS?.*/\1/p' "$1" | tail -n 1)
    if [ -z "$p" ] && [ -z "$f" ]; then f=1; fi
    [ "${f:-0}" = 0 ] || { grep -E 'Failure|FAILED|error|Actual|Which is' "$1" | head -n 40; }
    settings_passed=$((settings_passed + ${p:-0}))
    settings_failed=$((settings_failed + ${f:-0}))
}

suite_settings-e2e() {
    need_packages "${settings_packages[@]}"
    settings_passed=0 settings_failed=0
    begin_settings_e2e
    settings_dots 96
    run_settings_window "$logs/test-settings.log" -- --gtest_filter='-*FullDisk:Screenshots.*'
    count_settings "$logs/test-settings.log"
    # The server of before does not see a disk that came later.
    settings_wine wineserver -k -w 2>/dev/null || true
    make_small_disk
    run_settings_window "$logs/test-settings-disk.log" VELMORA_TEST_SMALL_DISK=1 -- --gtest_filter='*FullDisk'
    count_settings "$logs/test-settings-disk.log"
    settings_wine wineserver -k -w 2>/dev/null || true
    drop_small_disk
    # A monitor of 144 dots an inch.
    settings_dots 144
    run_settings_window "$logs/test-settings-144.log" -- --gtest_filter='*EveryText*:*TabGoesRound*:*KeysAlone'
    count_settings "$logs/test-settings-144.log"
    end_settings_e2e
    drop_namespaces
    count settings-e2e $settings_passed $settings_failed
}

# ./dev screenshots [FOLDER]: the pictures of docs/settings.md anew, by default into docs; those of 144 dots an inch
# lie in build/settings-e2e/144 to be looked at.
screenshots() {
    need_packages "${settings_packages[@]}"
    trap 'end_settings_e2e; drop_namespaces' EXIT
    local to=${1:-$root/docs} dots shots picture
    begin_settings_e2e
    for dots in 96 144; do
        shots=$settings_work/$dots
        rm -rf "$shots"
        mkdir -p "$shots"
        settings_dots $dots
        run_settings_window "$logs/screenshots-$dots.log" VELMORA_TEST_SHOTS="$(settings_path "$shots")" -- \
            --gtest_filter='Screenshots.*'
        for picture in target audio transport diagnostics; do
            [ -f "$shots/settings-$picture.bmp" ] || fail "No picture of $picture; see build/log/screenshots-$dots.log."
            # Without the time and the tool's version: the same picture is the same file.
            convert "$shots/settings-$picture.bmp" -strip -define png:exclude-chunks=date,time +dither -colors 64 \
                "$shots/settings-$picture.png"
        done
    done
    cp "$settings_work"/96/settings-*.png "$to/"
    say "Pictures: $to/settings-*.png; at 144 dots an inch: ${settings_work#"$root"/}/144."
}
