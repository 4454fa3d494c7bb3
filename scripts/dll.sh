# The suite `dll` of ./dev test: what anybody can check of the built DLL, and of the programs beside it, from
# outside. Sourced by scripts/test.sh.

dll_exports='DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer DllVelmorafind'
# What every 64-bit Windows has.
windows_libraries='advapi32.dll comctl32.dll gdi32.dll iphlpapi.dll kernel32.dll msvcrt.dll ole32.dll rstrtmgr.dll
shell32.dll user32.dll uxtheme.dll winmm.dll ws2_32.dll'

image_dump() { LC_ALL=C TZ=UTC x86_64-w64-mingw32-objdump "$@"; }

# expect_nothing WHAT [FOUND]: one check, which fails where something was found, and says what.
expect_nothing() {
    if [ -z "${2-}" ]; then dll_passed=$((dll_passed + 1)); else
        dll_failed=$((dll_failed + 1))
        printf '  %s: %s\n' "$1" "$(tr '\n' ' ' <<<"$2" | sed 's/ $//')"
    fi
}

# The lines of the first list that the second has not.
only_in_first() { comm -23 <(tr ' ' '\n' <<<"$1" | sort -u) <(tr ' ' '\n' <<<"$2" | sort -u) | grep . || true; }

# check_image FILE EXPORTS: the tables and flags of one DLL or program.
check_image() {
    local file=$1 expected=$2 name tables exports imports flag missing=
    name=$(basename "$file")
    tables=$(image_dump -p "$file")

    exports=$(sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\t\[ *[0-9]*\] *//p' <<<"$tables")
    expect_nothing "$name exports what it should not" "$(only_in_first "$exports" "$expected")"
    expect_nothing "$name does not export" "$(only_in_first "$expected" "$exports")"
    imports=$(sed -n 's/^\tDLL Name: *//p' <<<"$tables" | tr '[:upper:]' '[:lower:]')
    expect_nothing "$name needs what a plain Windows lacks" "$(only_in_first "$imports" "$windows_libraries")"

    for flag in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT; do
        grep -qE "^[[:space:]]+$flag\$" <<<"$tables" || missing+="$flag "
    done
    expect_nothing "$name lacks flags" "$missing"
    # A base that may change is of no use to an image that cannot be moved.
    expect_nothing "$name cannot be moved" \
        "$(grep -E '^Entry 5 [0-9a-f]+ 0+ |relocations stripped' <<<"$tables" || true)"
    expect_nothing "$name has sections that are both written and executed" \
        "$(image_dump -h "$file" | awk '$1 ~ /^[0-9]+$/ { name = $2 } /CODE/ && !/READONLY/ { print name }')"
    expect_nothing "$name bears a time" \
        "$(grep -E '^Time/Date' <<<"$tables" | grep -vE 'Jan +1 00:00:00 1970$|stamp[[:space:]]+0+$' || true)"
}

# The guards are there where functions have arrays: told by their calls, since the image has no flag for them.
check_guards() {
    local file=$1 calls
    calls=$(image_dump -d --no-show-raw-insn "$file" | grep -cE 'call.*<__stack_chk_fail>' || true)
    expect_nothing "$(basename "$file") has too few functions whose stack is guarded" \
        "$([ "$calls" -ge 50 ] || printf '%s' "$calls")"
}

# Every file of the tree, as it stands, in another folder.
copy_tree() {
    local to=$1 file
    rm -rf "$to"
    mkdir -p "$to"
    git ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' file; do if [ -f "$file" ]; then printf '%s\0' "$file"; fi; done |
        tar --create --null --files-from=- | tar --extract --directory="$to"
}

# check_reproduced FILE: the same bytes come of a tree in another folder, whose path is of another length.
check_reproduced() {
    local file=$1 again=$build/dll-again/a-tree-in-another-folder name different
    name=$(basename "$file")
    say "Building $name once more, in another folder"
    copy_tree "$again"
    log_step "Configuring again" dll-again-configure cmake -S "$again" --preset windows
    # What is compared is compiled there: nothing that a cache took from the first folder.
    log_step "Building again" dll-again-build env CCACHE_DISABLE=1 ninja -C "$again/build/windows" "${name%.dll}"
    different=$(cmp "$file" "$again/build/windows/bin/$name" 2>&1 || true)
    expect_nothing "$name is another one when it is built in another folder (is build/windows an old one?)" \
        "$different"
}

suite_dll() {
    dll_passed=0 dll_failed=0
    build_preset windows asio_korvente_x64 velmora-play velmora-find velmora-log velmora-settings velmora-register
    local dll=$build/windows/bin/asio_korvente_x64.dll
    check_image "$dll" "$dll_exports"
    check_guards "$dll"
    check_image "$(exe velmora-play)" ''
    check_image "$(exe velmora-find)" ''
    check_image "$(exe velmora-settings)" ''
    check_image "$(exe velmora-log)" ''
    check_image "$(exe velmora-register)" ''
    check_reproduced "$dll"
    count dll $dll_passed $dll_failed
}
