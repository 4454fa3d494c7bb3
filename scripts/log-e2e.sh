# velmora-log hears the driver while it plays to velmora-target, end to end, in the two namespaces. Sourced by
# scripts/test.sh. Most cases are of the native driver and viewer: the other ones log and read by the same code.
#
# Each case is a function that fails where something is not as it should be; `log_cases` names them and says where
# they run. What a case prints lies in its log.

# name | where: native or wine
log_cases='
tells how punctual a stream is        | native
tells the same of the file it wrote   | native
counts what was sent again            | native
asks for Debug where nothing is heard | native
hears the DLL on Windows              | wine
'

log_work=
log_target_job=
# begin_log_target ARGS...: returns once the target answers and the viewer, begun before it, listens.
begin_log_target() {
    local tries=0
    in_target "${numbered[@]}" "$log_work/target.pid" "$(native velmora-target)" \
        --interface vtarget --once --seconds 120 --json "$@" >"$log_work/target.json" 2>"$log_work/target.log" &
    log_target_job=$!
    until { [ -s "$log_work/target.json" ] && grep -q '^Listening' "$log_work/err"; } || [ $tries -ge 600 ]; do
        sleep 0.05
        tries=$((tries + 1))
    done
}
# log_session SETTING PLAYED TARGET_ARGS...: a tone of so many seconds, while velmora-log listens. Leaves its output in
# $log_work/out, its words in $log_work/err, what it wrote in $log_work/kept.log; gives its exit code.
log_session() {
    local setting=$1 played=$2 code=0 viewer
    shift 2
    rm -f "$log_work"/{out,err,kept.log,plot.svg,viewer.pid,target.pid,target.json}
    # shellcheck disable=SC2046 # two settings
    write_settings "$log_work/config" "PCMRequest=16" $(deep_ring 44100) "$setting"
    in_host "${numbered[@]}" "$log_work/viewer.pid" "$(native velmora-log)" --json \
        --write "$log_work/kept.log" --plot "$log_work/plot.svg" >"$log_work/out" 2>"$log_work/err" &
    viewer=$!
    begin_log_target "$@"
    local played_code=0
    in_host env XDG_CONFIG_HOME="$log_work/config" "$(native velmora-play)" --tone 1000 --bits 16 --seconds "$played" --quiet ||
        played_code=$?
    [ $played_code = 0 ] || echo "the player ended with $played_code"
    # As somebody at the terminal ends it.
    kill -TERM "$(cat "$log_work/viewer.pid")"
    wait $viewer || code=$?
    end_job "$log_target_job" "$log_work/target.pid"
    cat "$log_work/err"
    tail -n 1 "$log_work/out"
    return $code
}

# log_windows_session: a tone through the DLL to the target while velmora-log.exe listens beside it, for a time of its
# own: Wine knows no Ctrl-C from outside. Leaves and gives what log_session does; anew where a slow machine played for
# longer than the viewer listened.
log_windows_session() {
    local code attempt
    for attempt in 1 2 3 4; do
        code=0
        log_one_windows_session || code=$?
        [ $played_in_time = no ] || break
    done
    # The server holds this namespace's sockets: it ends before anything moves on.
    in_host env "${wine_variables[@]}" wineserver -k -w 2>/dev/null || true
    [ "$played_in_time" = yes ] || { echo "it played for longer than the viewer listened"; return 1; }
    return $code
}
log_one_windows_session() {
    local code=0 played_code=0 viewer
    rm -f "$log_work"/{out,err,kept.log,target.pid,target.json}
    # shellcheck disable=SC2046 # two settings
    write_settings "$(windows_settings_folder)" "PCMRequest=16" $(deep_ring 44100) "Debug=enable"
    in_host env "${wine_variables[@]}" wine "$(exe velmora-log)" --seconds 30 --json \
        --write "$(windows_path "$log_work/kept.log")" >"$log_work/out" 2>"$log_work/err" &
    viewer=$!
    begin_log_target
    in_host env "${wine_variables[@]}" wine "$(exe velmora-play)" --driver "KORVENTE Velmora" --tone 1000 --bits 16 \
        --seconds 2 --quiet || played_code=$?
    [ $played_code = 0 ] || echo "the player ended with $played_code"
    if kill -0 $viewer 2>/dev/null; then played_in_time=yes; else played_in_time=no; fi
    wait $viewer || code=$?
    end_job "$log_target_job" "$log_work/target.pid"
    cat "$log_work/err"
    tail -n 1 "$log_work/out"
    return $code
}
# figure NAME: of the figures at the end of the last output.
figure() { tail -n 1 "$log_work/out" | sed -nE "s/^.*\"$1\":([0-9]+|true|false).*$/\1/p"; }

case_tells_how_punctual_a_stream_is() {
    log_session Debug=enable 3 || return 1
    grep -q '"text":"start SPEED=44100"' "$log_work/out" && grep -q '"text":"redy to play loop start' "$log_work/out" &&
        [ "$(figure streams)" = 1 ] && [ "$(figure programs)" = 1 ] && [ "$(figure foreign)" = 0 ] &&
        [ "$(figure recordsMissing)" = 0 ] && [ "$(figure cycleIsEstimated)" = false ] &&
        [ "$(figure errors)" = 0 ] && [ "$(figure records)" -ge 40 ] &&
        [ "$(figure lateTurns)" = "$(grep -cE '"text":"over time [0-9]' "$log_work/out")" ] &&
        tail -n 1 "$log_work/out" | grep -q '"lateMicros":{"count":[0-9]\{4\}' &&
        grep -q '^</svg>' "$log_work/plot.svg" && ! grep -q 'nothing heard' "$log_work/err"
}
case_tells_the_same_of_the_file_it_wrote() {
    log_session Debug=enable 2 && "$(native velmora-log)" --read "$log_work/kept.log" --json >"$log_work/again" &&
        cmp "$log_work/out" "$log_work/again"
}
case_counts_what_was_sent_again() {
    local code=0
    lose 30
    log_session Debug=enable 3 --buffer 300 || code=1
    lose 0
    [ $code = 0 ] && [ "$(figure resendRequests)" -ge 1 ] &&
        [ "$(figure resendRequests)" = "$(grep -c '"text":"   cout resend ' "$log_work/out")" ]
}
case_asks_for_Debug_where_nothing_is_heard() {
    local code=0
    log_session PCMRequest=16 1 || code=$?
    # shellcheck disable=SC2016
    [ $code = 1 ] && [ "$(grep -cxF 'nothing heard yet: is `Debug` set?' "$log_work/err")" = 1 ]
}
case_hears_the_DLL_on_Windows() {
    log_windows_session || return 1
    grep -q '"text":"start SPEED=44100"' "$log_work/out" && [ "$(figure streams)" = 1 ] &&
        [ "$(figure programs)" = 1 ] && [ "$(figure foreign)" = 0 ] && [ "$(figure records)" -gt 0 ] &&
        ! grep -q 'nothing heard' "$log_work/err" || return 1
    # What was written says the same elsewhere.
    "$(native velmora-log)" --read "$log_work/kept.log" --json >"$log_work/again" &&
        tr -d '\r' <"$log_work/out" | cmp - "$log_work/again"
}

try_log_case() { "case_$1" >"$2" 2>&1; }  # WORDS LOG

# log_e2e WHERE WORK: runs the cases in namespaces that are there. Sets log_passed and log_failed.
log_e2e() {
    local where=$1
    log_work=$2/log
    log_passed=0
    log_failed=0
    rm -rf "$log_work"
    mkdir -p "$log_work/cases"
    local name place words log
    while IFS='|' read -r name place; do
        name=$(sed -E 's/ +$//' <<<"$name")
        [ "${place// /}" = "$where" ] || continue
        words=${name// /_}
        log=$log_work/cases/$words.log
        if while_calm "velmora-log $name" "$log_work/cases" try_log_case "$words" "$log"; then
            log_passed=$((log_passed + 1))
        else
            log_failed=$((log_failed + 1))
            say "  velmora-log $name: failed; see ${log#"$root"/}"
            tail -n 5 "$log"
        fi
    done < <(grep -vE '^ *$' <<<"$log_cases")
}
