# Whether the machine stood still while something ran. Sourced by ./dev.
#
# Music needs a processor every few milliseconds, and a virtual machine's may be away for half a second. What fails
# then says nothing of the driver, and is tried again; what fails on a machine that was there all the time is a failure
# at once. So that the one is not taken for the other, the machine is watched beside what is tried, by processes that
# do nothing else.

stillness=0             # of the last watch, ms: how long a processor was away at the most
still_from=50           # ms that may break a session: half of what the driver waits for an answer
stillness_watchers=()

# One on each processor sleeps 10 ms at a time, before everything else if it may, so that our own work does not count.
# It writes down each pause, in µs, that is longer than those before, and ends with the script that started it.
# shellcheck disable=SC2016
watcher='LC_ALL=C
exec {nothing}<> <(:)
longest=0
before=${EPOCHREALTIME/./}
while kill -0 $PPID 2>/dev/null; do
    read -r -t 0.01 -u $nothing
    now=${EPOCHREALTIME/./}
    if [ $((now - before)) -gt $longest ]; then longest=$((now - before)); echo $longest; fi
    before=$now
done'

begin_watch() {  # FOLDER, which keeps what was seen
    local processor urgent=()
    if chrt -f 99 true 2>/dev/null; then urgent=(chrt -f 99); fi
    stillness_seen=$1
    rm -f "$stillness_seen"/still.*
    stillness=0
    stillness_watchers=()
    for processor in $(seq 0 $(($(nproc --all) - 1))); do
        taskset -c "$processor" true 2>/dev/null || continue
        taskset -c "$processor" "${urgent[@]}" bash -c "$watcher" >"$stillness_seen/still.$processor" &
        stillness_watchers+=($!)
    done
}
end_watch() {
    local longest
    [ ${#stillness_watchers[@]} -gt 0 ] || return 0
    kill "${stillness_watchers[@]}" 2>/dev/null || true
    wait "${stillness_watchers[@]}" 2>/dev/null || true
    stillness_watchers=()
    longest=$(tail -q -n 1 "$stillness_seen"/still.* 2>/dev/null | sort -n | tail -n 1)
    stillness=$((${longest:-0} / 1000))
}

# while_calm NAME FOLDER COMMAND...: runs it, and once more, and says so, as long as it fails while the machine stood
# still, six times at most. COMMAND ends with 2 where it is a failure whatever the machine did.
while_calm() {
    local name=$1 folder=$2 attempt code
    shift 2
    for attempt in 1 2 3 4 5 6; do
        code=0
        begin_watch "$folder"
        "$@" || code=$?
        end_watch
        [ $code != 0 ] || return 0
        if [ $attempt = 6 ] || [ $code = 2 ] || [ "$stillness" -lt $still_from ]; then return $code; fi
        say "  $name: failed, but the machine stood still for $stillness ms: once more"
    done
}
