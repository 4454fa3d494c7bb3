# ./dev test: every suite, and a count of all tests at the end. Sourced by ./dev.

suite_names=(format asan tsan windows dll native-e2e tsan-e2e wine-e2e settings-e2e install-e2e package-e2e)
total_passed=0
total_failed=0

# count SUITE PASSED FAILED
count() {
    total_passed=$((total_passed + $2))
    total_failed=$((total_failed + $3))
    printf '%-12s %5d passed, %d failed\n' "$1" "$2" "$3"
}

# run_ctest SUITE PRESET [ARGS...]: the preset's tests, counted from CTest's own closing line.
run_ctest() {
    local suite=$1 preset=$2 log=$logs/test-$1.log line failed all
    shift 2
    ctest --test-dir "$build/$preset" --output-on-failure "$@" >"$log" 2>&1 || true
    line=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$log" || true)
    if [ -z "$line" ]; then
        tail -n 40 "$log"
        count "$suite" 0 1
        return
    fi
    failed=$(sed -E 's/.* ([0-9]+) tests failed.*/\1/' <<<"$line")
    all=$(sed -E 's/.*out of ([0-9]+)$/\1/' <<<"$line")
    [ "$failed" = 0 ] || { grep -vE 'Passed +[0-9.]+ sec$|^ +Start ' "$log" | tail -n 200; }
    count "$suite" $((all - failed)) "$failed"
}

suite_format() {
    if sources | xargs clang-format --dry-run -Werror >"$logs/test-format.log" 2>&1; then count format 1 0; else
        grep -E 'error' "$logs/test-format.log" | cut -d: -f1 | sort -u | sed 's/^/  not laid out as the tree wants it (.\/dev format): /'
        count format 0 1
    fi
}

suite_asan() {
    build_preset asan tests/all fuzz/all
    run_ctest asan asan -j 2
}

# The rooms whose tests have a second thread; the others would only be compiled once more. The groups that would take
# longest there have the test's own thread alone; and of the ten thousand orders of calls, two thousand are watched.
# The programs' threads are watched in tsan-e2e.
threaded_tests=(platform base log logview network find sync driver com)
suite_tsan() {
    build_preset tsan "${threaded_tests[@]/#/test_}"
    run_ctest tsan tsan -j 2 -R "^($(IFS='|'; printf '%s' "${threaded_tests[*]}"))/" \
        -E '^sync/(ConfigTransferAuto|Recording|Stream/LongRun)\.|AnyOrder\.[A-Za-z]*/[2-9]'
}

# Every cross-built test program once: to start a process costs Wine more than most cases do. Two at a time, for most
# of their time goes into waiting for Wine's server; the driver's, which takes longest, first.
suite_windows() {
    build_preset windows
    need_wine_prefix
    end_wine
    local programs=("$build"/windows/bin/test_driver.exe) program log passed=0 failed=0 p f code
    for program in "$build"/windows/bin/test_*.exe; do
        [ "$program" = "${programs[0]}" ] || programs+=("$program")
    done
    for program in "${programs[@]}"; do
        while [ "$(jobs -rp | wc -l)" -ge 2 ]; do sleep 0.1; done
        log=$logs/test-windows-$(basename "$program" .exe).log
        (
            code=0
            (cd "$build/windows/bin" && run_wine "$program") >"$log" 2>&1 || code=$?
            printf '%s' "$code" >"$log.code"
        ) &
    done
    wait
    for program in "${programs[@]}"; do
        log=$logs/test-windows-$(basename "$program" .exe).log
        code=$(cat "$log.code" || echo 1)
        rm -f "$log.code"
        p=$(sed -nE 's/^\[  PASSED  \] ([0-9]+) tests?\..*/\1/p' "$log" | tail -n 1)
        f=$(sed -nE 's/^ ?([0-9]+) FAILED TESTS?.*/\1/p' "$log" | tail -n 1)
        # A program that did not come to its end, or fell down behind its last test, counts as one failure more.
        if [ $code != 0 ] && [ -z "$f" ]; then
            f=1
            say "$(basename "$program") ended with $code: ${log#"$root"/}"
        fi
        [ "${f:-0}" = 0 ] || { grep -E 'Failure|FAILED|error' "$log" | head -n 40; }
        passed=$((passed + ${p:-0}))
        failed=$((failed + ${f:-0}))
    done
    count windows $passed $failed
    end_wine
}

# rate_of FILE_ARGS: frames a second of such a file, as deep_ring counts them.
rate_of() {
    if [[ $1 =~ --dsd\ ([0-9]+) ]]; then printf '%d' $((BASH_REMATCH[1] * 44100 / 32)); else
        [[ $1 =~ --rate\ ([0-9]+) ]] && printf '%d' "${BASH_REMATCH[1]}"
    fi
}

# suite_e2e SUITE NATIVE WHERE [ONLY]: the table of tests/e2e/cases.txt and the cases of scripts/find-e2e.sh and
# scripts/log-e2e.sh, natively or under Wine; with ONLY those of the table alone whose names it matches. What
# not_this_time matches is left out.
not_this_time=
suite_e2e() {
    local suite=$1 is_native=$2 where=$3 only=${4-} passed=0 failed=0
    local work=$build/e2e-${suite%-e2e} settings
    mkdir -p "$work"
    if [ "$is_native" = yes ]; then settings=$work/config; else settings=$(windows_settings_folder); fi
    # What was built is written down now, not while music plays.
    sync
    need_namespaces
    local name file_args setting_text target_args loss place
    while IFS='|' read -r name file_args setting_text target_args loss place; do
        name=$(sed -E 's/ +$//' <<<"$name")
        place=${place// /}
        loss=${loss// /}
        [ "$place" = both ] || [ "$place" = "$where" ] || continue
        [ -z "$only" ] || [[ $name =~ $only ]] || continue
        [ -z "$not_this_time" ] || ! [[ $name =~ $not_this_time ]] || continue
        local kind=wav
        case $file_args in *--dsd*) kind=dsf ;; esac
        local id file written
        id=$(tr -c 'A-Za-z0-9\n' '-' <<<"$name")
        file=$build/e2e-files/$(tr -c 'A-Za-z0-9\n' '-' <<<"$file_args").$kind
        written=$work/$id.$kind
        target_args=${target_args//WRITTEN/${written#"$root"/}}
        mkdir -p "$build/e2e-files" "$work/$id"
        # shellcheck disable=SC2086 # words of a table
        [ -f "$file" ] || "$(native velmora-audio)" generate --seconds 2 $file_args "$file"
        local lines
        IFS=';' read -r -a lines <<<"$(tr -d ' ' <<<"$setting_text")"
        # What is tried here is the road of the bits: buffers deep enough for a busy machine. What a case
        # says itself comes later, and wins.
        # shellcheck disable=SC2046 # two settings
        write_settings "$settings" $(deep_ring "$(rate_of "$file_args")") "${lines[@]}"
        mkdir -p "$work/$id/config"
        cp -r "$settings/KORVENTE Velmora" "$work/$id/config/"
        lose "$loss"
        local is_whole=yes
        # shellcheck disable=SC2086
        play_bit_for_bit "$is_native" "$work/$id" "$file" "$written" $target_args -- || is_whole=no
        lose 0
        if [ $is_whole = yes ]; then
            passed=$((passed + 1))
            rm -f "$written"
        else
            failed=$((failed + 1))
            say "  $suite: $name failed (player's code $played_code); see ${work#"$root"/}/$id/"
            tail -n 5 "$work/$id/player.log" "$work/$id/target.log" "$work/$id/compare.log" 2>/dev/null || true
            tail -n 1 "$work/$id/target.json" || true
        fi
    done < <(grep -vE '^#|^ *$' tests/e2e/cases.txt)
    if [ -z "$only" ]; then
        find_e2e "$where" "$work"
        passed=$((passed + find_passed))
        failed=$((failed + find_failed))
        log_e2e "$where" "$work"
        passed=$((passed + log_passed))
        failed=$((failed + log_failed))
    fi
    drop_namespaces
    count "$suite" $passed $failed
}

suite_native-e2e() {
    build_preset release velmora-target velmora-play velmora-audio velmora-find velmora-log
    suite_e2e native-e2e yes native
}

# A whole stream with every thread of player and target watched. No report is suppressed: one is a failure, by
# its text, and by the player's code.
suite_tsan-e2e() {
    build_preset tsan velmora-target velmora-play
    build_preset release velmora-audio
    local native_preset=tsan
    local player_prefix=(env TSAN_OPTIONS=halt_on_error=0:exitcode=66) target_prefix
    target_prefix=("${player_prefix[@]}")
    suite_e2e tsan-e2e yes native '^(pcm16 with 1 % lost|cycles of the host)'
}

suite_wine-e2e() {
    build_preset release velmora-target velmora-audio velmora-log
    build_preset windows asio_korvente_x64 velmora-play velmora-find velmora-log
    need_wine_prefix
    end_wine
    register_dll
    end_wine
    suite_e2e wine-e2e no wine
    end_wine
}

run_tests() {
    local suites=("$@") suite
    [ ${#suites[@]} -gt 0 ] || suites=("${suite_names[@]}")
    for suite in "${suites[@]}"; do
        case " ${suite_names[*]} " in *" $suite "*) ;; *) fail "There is no suite $suite; there are: ${suite_names[*]}" ;; esac
    done
    . scripts/demo.sh
    . scripts/find-e2e.sh
    . scripts/log-e2e.sh
    . scripts/dll.sh
    . scripts/settings-e2e.sh
    . scripts/package-windows.sh
    . scripts/install-e2e.sh
    . scripts/package-e2e.sh
    # What any suite needs, at once: a package that cannot be had is told before anything is built.
    need_packages "${clang_packages[@]}" tshark unzip "${settings_packages[@]}" "${package_windows_packages[@]}" \
        "${package_e2e_packages[@]}"
    trap 'drop_find_e2e; end_settings_e2e; end_install_e2e; end_package_e2e; end_wine; drop_namespaces' EXIT
    for suite in "${suites[@]}"; do "suite_$suite"; done
    say ""
    say "$total_passed passed, $total_failed failed"
    [ $total_failed = 0 ]
}
