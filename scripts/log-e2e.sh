# velmora-log hears the driver while it plays to velmora-target, end to end, in the two namespaces. Sourced by
# scripts/test.sh. The driver is the native one: the other one logs by the same code.
#
# Each case is a function that fails where something is not as it should be; `log_cases` names them. What a case
# prints lies in its log.

log_cases='
tells how punctual a stream is
tells the same of the file it wrote
counts what was sent again
asks for Debug where nothing is heard
'

log_work=
# log_session SETTING PLAYED TARGET_ARGS...: a tone of so many seconds, while velmora-log listens. Leaves its output
# in $log_work/out, its words in $log_work/err, what it wrote in $log_work/kept.log; gives its exit code.
log_session() {
    local setting=$1 played=$2 code=0 tries=0 viewer target
    shift 2
    rm -f "$log_work"/{out,err,kept.log,plot.svg,viewer.pid,target.pid,target.json}
    write_settings "$log_work/config" "PCMRequest=16" "ASIOBufferSizePre=2048" "SyncBufferCount=12" "$setting"
    # Their own numbers, for between them and the shell stand those who entered the namespace.
    # shellcheck disable=SC2016
    in_host sh -c 'echo $$ >"$0"; exec "$@"' "$log_work/viewer.pid" "$(native velmora-log)" --json \
        --write "$log_work/kept.log" --plot "$log_work/plot.svg" >"$log_work/out" 2>"$log_work/err" &
    viewer=$!
    # shellcheck disable=SC2016
    in_target sh -c 'echo $$ >"$0"; exec "$@"' "$log_work/target.pid" "$(native velmora-target)" \
        --interface vtarget --once --seconds 120 --json "$@" >"$log_work/target.json" 2>"$log_work/target.log" &
    target=$!
    until { [ -s "$log_work/target.json" ] && grep -q '^Listening' "$log_work/err"; } || [ $tries -ge 200 ]; do
        sleep 0.05
        tries=$((tries + 1))
    done
    in_host env XDG_CONFIG_HOME="$log_work/config" "$(native velmora-play)" --tone 1000 --bits 16 --seconds "$played" --quiet ||
        echo "the player failed"
    # As somebody at the terminal ends it.
    kill -TERM "$(cat "$log_work/viewer.pid")"
    wait $viewer || code=$?
    end_job $target "$log_work/target.pid"
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

# log_e2e WORK: runs the cases in namespaces that are there. Sets log_passed and log_failed.
log_e2e() {
    log_work=$1/log
    log_passed=0
    log_failed=0
    rm -rf "$log_work"
    mkdir -p "$log_work/cases"
    local name words log
    while read -r name; do
        words=${name// /_}
        log=$log_work/cases/$words.log
        if "case_$words" >"$log" 2>&1; then log_passed=$((log_passed + 1)); else
            log_failed=$((log_failed + 1))
            say "  velmora-log $name: failed; see ${log#"$root"/}"
            tail -n 5 "$log"
        fi
    done < <(grep -vE '^ *$' <<<"$log_cases")
}
