# ./dev lint and ./dev coverage: what reads the code instead of running it, and how much of it the tests
# run. Sourced by ./dev.

own_folders=(platform base src wire find sync driver target apps)

# lint [FOLDER...]: clang-tidy with the checks of .clang-tidy, then cppcheck; a finding of either is a failure.
lint() {
    local folders=("$@")
    [ ${#folders[@]} -gt 0 ] || folders=("${own_folders[@]}")
    need_packages "${clang_packages[@]}" clang-tidy cppcheck
    # Nothing is built: the commands of a build with clang are all that is read.
    local database=$build/lint found=0 filter
    log_step "Configuring lint" configure-lint cmake --preset lint
    filter="^$root/($(IFS='|'; printf '%s' "${folders[*]}"))/"
    say "clang-tidy"
    run-clang-tidy -quiet -p "$database" -j "$(nproc)" "$filter" >"$logs/clang-tidy.log" 2>"$logs/clang-tidy.err" || found=1
    if grep -E '(warning|error):' "$logs/clang-tidy.log" | sort -u; then found=1; fi
    grep -q '^.*clang-tidy.* -p=' "$logs/clang-tidy.log" || fail "clang-tidy read no file: $(head -n 1 "$logs/clang-tidy.err")"
    say "cppcheck"
    local folder filters=()
    for folder in "${folders[@]}"; do filters+=("--file-filter=$root/$folder/*"); done
    cppcheck --project="$database/compile_commands.json" -j "$(nproc)" --quiet --inline-suppr \
        --enable=warning,performance,portability --suppressions-list=.cppcheck \
        "${filters[@]}" \
        --template='{file}:{line}: {severity}: {message} [{id}]' >"$logs/cppcheck.log" 2>&1 || found=1
    if grep -E ': (error|warning|performance|portability):' "$logs/cppcheck.log" | sort -u; then found=1; fi
    [ $found = 0 ] || fail "Findings above; whole logs in build/log/clang-tidy.log and cppcheck.log."
    say "Nothing found."
}

# The system's own code under its native tests: unit tests, and the programs between two namespaces. Branches
# that nobody wrote do not count: what the compiler puts behind a closing brace or a comparison by default, and
# the ways of an exception through every call.
coverage_nobodys='^\s*[]})]+[;,]?\s*(//.*)?$|.*= default;.*'
coverage_lines=95
coverage_branches=90
coverage() {
    need_packages gcovr tshark
    local targets=(tests/all fuzz/all velmora-target velmora-play velmora-audio velmora-find velmora-log)
    build_preset coverage "${targets[@]}"
    find "$build/coverage" -name '*.gcda' -delete
    # What was built for something else, or is gone by now, would count as never run.
    local notes
    while read -r notes; do rm "$build/coverage/$notes"; done < <(comm -13 \
        <(ninja -C "$build/coverage" -t inputs "${targets[@]}" | sed -nE 's/\.cpp\.o$/.cpp.gcno/p' | sort -u) \
        <(cd "$build/coverage" && find . -name '*.cpp.gcno' -printf '%P\n' | sort))
    say "Running the tests"
    run_ctest coverage coverage -j 2
    . scripts/demo.sh
    . scripts/find-e2e.sh
    . scripts/log-e2e.sh
    trap 'drop_find_e2e; drop_namespaces' EXIT
    native() { printf '%s' "$build/coverage/bin/$1"; }
    local native_preset=coverage
    # Eleven million samples a second and channel are too many for code that is not optimized.
    local not_this_time='^dsd256'
    suite_e2e coverage-e2e yes native
    local folder filters=()
    for folder in "${own_folders[@]}"; do filters+=(--filter "$root/$folder/"); done
    mkdir -p "$build/coverage-report"
    gcovr --root "$root" --object-directory "$build/coverage" "${filters[@]}" \
        --exclude '.*/build/.*' --exclude-throw-branches --exclude-unreachable-branches \
        --exclude-branches-by-pattern "$coverage_nobodys" -j "$(nproc)" \
        --html-details "$build/coverage-report/index.html" --json-summary "$build/coverage-report/summary.json" \
        --txt "$build/coverage-report/lines.txt" --print-summary \
        --fail-under-line $coverage_lines --fail-under-branch $coverage_branches
    [ "$total_failed" = 0 ] || fail "$total_failed tests failed; the figures are of what ran."
}
