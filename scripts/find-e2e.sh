# velmora-find against velmora-target, end to end, in the two namespaces. Sourced by scripts/test.sh.
#
# Each case is a function that fails where something is not as it should be; `find_cases` names them and
# says where they run. What a case prints lies in its log.

# name | where: both, native or wine
find_cases='
finds nobody before anyone is there | both
lists by the finder that is exported | both
lists by the registered DLL         | wine
lists every product                 | both
tells all about a target            | both
shows the settings                  | both
sets and keeps over a restart       | both
refuses a value out of range        | native
sends a file                        | both
sends a file past losses            | native
sees a target come                  | both
finds nothing wrong                 | both
tells two links and two targets apart | native
'

find_work=
find_target_job=
find_second_job=
# start_find_target WORK ARGS...: returns once it answers.
start_find_target() {
    local work=$1 tries=0
    shift
    rm -f "$work/target.json" "$work/target.pid"
    in_target "${numbered[@]}" "$work/target.pid" "$(native velmora-target)" \
        --interface vtarget --name "Find me" --config "http://[myaddress]/" --seconds 300 --json \
        --state "$work/state" --inbox "$work/inbox" --channel 1024,64,64 "$@" \
        >"$work/target.json" 2>"$work/target.log" &
    find_target_job=$!
    until [ -s "$work/target.json" ] || [ $tries -ge 100 ]; do sleep 0.05; tries=$((tries + 1)); done
}
stop_find_target() {
    [ -n "$find_target_job" ] || return 0
    end_job "$find_target_job" "$find_work/target.pid"
    find_target_job=
}
stop_second_target() {
    [ -n "$find_second_job" ] || return 0
    end_job "$find_second_job" "$find_work/second.pid"
    find_second_job=
}
# What a run leaves that was broken off; nothing where nothing runs.
drop_find_e2e() {
    stop_second_target
    stop_find_target
    [ -z "$find_work" ] || drop_second_link
}

# The program in the host's namespace.
finder() {
    if [ "$find_where" = native ]; then in_host "$(native velmora-find)" "$@"; else
        in_host env "${wine_variables[@]}" wine "$(exe velmora-find)" "$@"
    fi
}
# finder_exits CODE ARGS...: its output goes to $find_work/out.
finder_exits() {
    local wanted=$1 code=0
    shift
    finder "$@" >"$find_work/out" || code=$?
    cat "$find_work/out"
    [ $code = "$wanted" ] || { echo "velmora-find $* ended with $code, not $wanted"; return 1; }
}
# says TEXT...: each stands in what the program printed last.
says() {
    local text
    for text in "$@"; do
        grep -qF -- "$text" "$find_work/out" || { echo "it does not say: $text"; return 1; }
    done
}
find_file() { if [ "$find_where" = native ]; then printf '%s' "$1"; else windows_path "$1"; fi; }

case_finds_nobody_before_anyone_is_there() {
    stop_find_target
    finder_exits 1 list --json && says '[]' && finder_exits 1 doctor && says "nobody answered"
}
case_lists_by_the_finder_that_is_exported() {
    finder_exits 0 list && says "Find me(Main)" "KORVENTE" "http://[fe80::" &&
        finder_exits 0 list --json && says '"name": "Find me(Main)"' '"port": 19650' '"version": 1'
}
case_lists_by_the_registered_DLL() {
    mkdir -p "$find_work/alone" && cp "$(exe velmora-find)" "$find_work/alone/" &&
        in_host env "${wine_variables[@]}" wine "$find_work/alone/velmora-find.exe" list >"$find_work/out" &&
        says "Find me(Main)" && finder_exits 0 list --dll 'C:\velmora\asio_korvente_x64.dll' &&
        says "Find me(Main)" && finder_exits 4 list --dll 'C:\velmora\nothing.dll'
}
case_lists_every_product() {
    stop_find_target
    start_find_target "$find_work" --product OTHERONE --sink-version 2
    finder_exits 1 list && finder_exits 0 list --all && says "OTHERONE" "Find me(Main)"
    local code=$?
    stop_find_target
    start_find_target "$find_work"
    return $code
}
case_tells_all_about_a_target() {
    finder_exits 0 info "Find me" && says "Name           Find me" "Sink 1         Main, port 19650, version 1" \
        "Configuration  http://[fe80::" && finder_exits 0 info "Find me" --json && says '"product": "KORVENTE"'
}
case_shows_the_settings() {
    finder_exits 0 settings "Find me" && says "Name" "Buffer length" "Clock trim" "-1000 to 1000" &&
        finder_exits 0 settings "Find me" --json && says '"label": "Buffer length"'
}
case_sets_and_keeps_over_a_restart() {
    finder_exits 0 set "Find me" "Clock trim" -25 --keep && says "Clock trim = -25" || return 1
    finder_exits 0 set "Find me" "Buffer length" 40 && says "Buffer length = 40" || return 1
    finder_exits 0 set "Find me" "Name" "Küche" && says "Name = Küche" || return 1
    stop_find_target
    start_find_target "$find_work"
    # What was committed for good is there, and what was not is as it was.
    finder_exits 0 settings "Find me" && grep -q 'Clock trim  *-25 ' "$find_work/out" &&
        ! grep -q 'Buffer length  *40 ' "$find_work/out"
}
case_refuses_a_value_out_of_range() {
    finder_exits 2 set "Find me" "Clock trim" 1001 2>"$find_work/err" && grep -qF -- "-1000 to 1000" "$find_work/err" &&
        finder_exits 2 set "Find me" "No such thing" 1 && finder_exits 1 set fe80::dead Name x
}
find_send() {
    rm -rf "$find_work/inbox"
    mkdir -p "$find_work/inbox"
    stop_find_target
    start_find_target "$find_work" "$@"
    head -c 1048576 /dev/urandom >"$find_work/sent.bin"
    finder_exits 0 send "Find me" 0 "$(find_file "$find_work/sent.bin")" --json && says '"complete":true' &&
        cmp "$find_work/sent.bin" "$find_work/inbox/channel-0-1.bin"
}
case_sends_a_file() { find_send; }
case_sends_a_file_past_losses() {
    find_send --burst-limit 8192 --lose TRANSFER_DATA=1 && ! grep -q '"resends":0,' "$find_work/out"
    local code=$?
    stop_find_target
    start_find_target "$find_work"
    return $code
}
case_sees_a_target_come() {
    stop_find_target
    finder watch --seconds 12 --json >"$find_work/out" 2>"$find_work/err" &
    local watch=$! code=0
    sleep 2
    start_find_target "$find_work"
    wait $watch || code=$?
    cat "$find_work/out"
    [ $code = 0 ] && says '"event":"watching"' '"event":"added"' '"name":"Find me(Main)"'
}
case_finds_nothing_wrong() {
    finder_exits 0 doctor && says "Find me" "The driver will find one target." &&
        finder_exits 0 doctor --json && says '"otherProduct": false' '"targets": 1'
}

# A second link, from the host through a bridge to the target and to a second target: so the first one is
# there twice, once on each link.
net_switch=velmora-switch-$$
net_second=velmora-second-$$
add_second_link() {
    local space
    for space in "$net_switch" "$net_second"; do
        as_root ip netns add "$space"
        as_root ip netns exec "$space" sysctl -qw net.ipv6.conf.all.accept_dad=0 net.ipv6.conf.default.accept_dad=0
    done
    as_root ip -n "$net_switch" link add bridge type bridge mcast_snooping 0
    as_root ip -n "$net_switch" link set bridge up
    local far port
    while read -r far port; do
        as_root ip link add "$port" netns "$far" type veth peer name "to-$port" netns "$net_switch"
        as_root ip -n "$net_switch" link set "to-$port" master bridge up
        as_root ip -n "$far" link set "$port" up
    done <<<"$net_host vhost2
$net_target vtarget2
$net_second vsecond"
    local tries=0
    until [ "$(for space in "$net_host vhost2" "$net_target vtarget2" "$net_second vsecond"; do
        # shellcheck disable=SC2086 # a name and an interface
        set -- $space
        as_root ip -n "$1" -6 addr show dev "$2" scope link
    done | grep -c 'inet6 fe80')" = 3 ]; do
        tries=$((tries + 1))
        [ $tries -lt 100 ] || return 1
        sleep 0.05
    done
}
drop_second_link() {
    as_root ip -n "$net_host" link del vhost2 2>/dev/null || true
    as_root ip -n "$net_target" link del vtarget2 2>/dev/null || true
    as_root ip netns del "$net_second" 2>/dev/null || true
    as_root ip netns del "$net_switch" 2>/dev/null || true
}
case_tells_two_links_and_two_targets_apart() {
    stop_find_target
    add_second_link || { drop_second_link; return 1; }
    start_find_target "$find_work" --interface vtarget2
    rm -f "$find_work/second.pid"
    in_space "$net_second" "${numbered[@]}" "$find_work/second.pid" "$(native velmora-target)" \
        --name Second --seconds 60 --quiet >"$find_work/second.log" 2>&1 &
    find_second_job=$!
    local code=0
    sleep 1
    finder_exits 0 list --json && [ "$(grep -c '"name": "Find me(Main)"' "$find_work/out")" = 2 ] &&
        [ "$(grep -c '"name": "Second(Main)"' "$find_work/out")" = 1 ] &&
        finder_exits 0 list --interface vhost --json && [ "$(grep -c '"name": ' "$find_work/out")" = 1 ] &&
        finder_exits 2 info "Find me" && finder_exits 0 info Second && says "Name           Second" &&
        finder_exits 0 watch --seconds 6 --json && [ "$(grep -c '"event":"added"' "$find_work/out")" = 3 ] || code=1
    stop_second_target
    drop_second_link
    stop_find_target
    start_find_target "$find_work"
    return $code
}

# Most cases talk to a target that is there.
try_find_case() {  # WORDS LOG
    [ -n "$find_target_job" ] || start_find_target "$find_work"
    "case_$1" >"$2" 2>&1
}

# find_e2e WHERE WORK: runs the cases in namespaces that are there. Sets find_passed and find_failed.
find_e2e() {
    find_where=$1
    find_work=$2/find
    find_passed=0
    find_failed=0
    rm -rf "$find_work"
    mkdir -p "$find_work/inbox" "$find_work/log"
    local name place words log
    while IFS='|' read -r name place; do
        name=$(sed -E 's/ +$//' <<<"$name")
        place=${place// /}
        [ "$place" = both ] || [ "$place" = "$find_where" ] || continue
        words=${name// /_}
        log=$find_work/log/$words.log
        if while_calm "velmora-find $name" "$find_work/log" try_find_case "$words" "$log"; then
            find_passed=$((find_passed + 1))
        else
            find_failed=$((find_failed + 1))
            say "  velmora-find $name: failed; see ${log#"$root"/}"
            tail -n 5 "$log"
        fi
    done < <(grep -vE '^ *$' <<<"$find_cases")
    stop_find_target
    # The server holds this namespace's sockets: it ends before anything moves on.
    [ "$find_where" = native ] || in_host env "${wine_variables[@]}" wineserver -k -w 2>/dev/null || true
}
