# The suite `install-e2e` of ./dev test: the setup program and the zip as they are packed, through their whole life
# under Wine, in a prefix of their own. Sourced by scripts/test.sh.

install_prefix=$build/wine-install
install_work=$build/install-e2e
install_drive=$install_prefix/drive_c
install_folder="$install_drive/Program Files/KORVENTE Velmora"
install_shortcuts="$install_drive/ProgramData/Microsoft/Windows/Start Menu/Programs/KORVENTE Velmora"
install_class='{5D2C7A14-9B3E-4C61-8E0F-2A7B41C9D063}'
install_uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\KORVENTE Velmora'
# No menu of this machine's own desktop gets the shortcuts.
install_variables=(WINEPREFIX="$install_prefix" WINEDEBUG=-all LC_ALL=C.UTF-8
    WINEDLLOVERRIDES='mscoree=;mshtml=;winemenubuilder.exe=')
install_target_job=

install_env() { in_host env -u DISPLAY "${install_variables[@]}" "$@"; }
install_wine() { install_env wine "$@"; }
# One server for all that follows: none that is just about to end when the next program starts.
begin_install_wine() { install_env wineserver -p 2>/dev/null || true; }
end_install_wine() { install_env wineserver -k -w 2>/dev/null || true; }
install_settings() { printf '%s' "$install_drive/users/$(id -un)/AppData/Roaming/KORVENTE Velmora"; }

install_passed=0
install_failed=0
# promise WHAT COMMAND...: one check; its output is the reason where it fails.
promise() {
    local what=$1 why
    shift
    if why=$("$@" 2>&1); then install_passed=$((install_passed + 1)); else
        install_failed=$((install_failed + 1))
        printf '  install-e2e: not so: %s: %s\n' "$what" "$(tr '\r\n' '  ' <<<"$why" | cut -c 1-300)"
    fi
}
is() { [ "$1" = "$2" ] || { printf 'it is "%s", not "%s"' "$1" "$2"; return 1; }; }
file_says() { grep -qF -- "$2" "$1" || { printf 'it says "%s"' "$(cat "$1")"; return 1; }; }
files_of() { (cd "$1" && find . | LC_ALL=C sort | tr '\n' ' '); }
does_not_say() { ! grep -qF -- "$1" "$install_work/said.txt" || { printf 'it says "%s"' "$(cat "$install_work/said.txt")"; return 1; }; }
is_there() { [ -e "$1" ] || { printf 'there is no %s' "${1#"$install_drive"/}"; return 1; }; }
is_gone() { [ ! -e "$1" ] || { printf 'there is %s' "${1#"$install_drive"/}"; return 1; }; }
is_same() { cmp "$1" "$2"; }
is_same_tree() { diff -rq "$1" "$2"; }

# in_cmd FILE [ARGS...]: a batch file; its code in $code, its words in said.txt. Now and then Wine does not start a
# program that is there. cmd ends with 9009 then, as nothing of ours does: it is told, and tried again.
code=0
not_started=$((9009 % 256))
in_cmd() {
    local attempt
    for attempt in 1 2 3; do
        code=0
        install_wine cmd /c "$@" >"$install_work/said.txt" 2>&1 </dev/null || code=$?
        [ $code = $not_started ] || return 0
        say "  install-e2e: Wine did not start a program: $(tr -d '\r' <"$install_work/said.txt")"
        sleep 2
    done
}
# batch LINE: a command line as it stands, blanks and quotes included.
batch() {
    printf '@echo off\r\n%s\r\nexit /b %%errorlevel%%\r\n' "$1" >"$install_work/line.cmd"
    in_cmd "$(windows_path "$install_work/line.cmd")"
}
# setup VERSION [ARGS...]: runs a setup program silently.
setup() {
    local version=$1
    shift
    batch "\"$(windows_path "$install_work/setup-$version.exe")\" /S $*"
}
# remove FOLDER [ARGS...]: by the uninstaller there, waited for.
remove() {
    local folder=$1 windows
    shift
    windows="C:\\${folder#"$install_drive"/}"
    windows=${windows//\//\\}
    batch "\"$windows\\uninstall.exe\" /S $* _?=$windows"
}
# What Windows' settings call: the uninstaller goes on from a copy of itself, so that its own file can go.
remove_quietly() {
    local tries=0
    batch "$(registry_value "$install_uninstall_key" QuietUninstallString)"
    until [ ! -e "$install_folder/uninstall.exe" ] || [ $tries -ge 200 ]; do sleep 0.1; tries=$((tries + 1)); done
    sleep 0.5
}
# script FOLDER NAME [ARGS...]: one of the zip's.
script() {
    local folder=$1 name=$2
    shift 2
    cd "$folder"
    in_cmd "$name.cmd" /S "$@"
    cd "$root"
}

# registry_value KEY NAME, and the key's own value without one. Wine's reg once came back with nothing though the value was
# there: it is asked twice.
registry_value() {
    local value attempt
    if [ -n "${2-}" ]; then set -- "$1" /v "$2"; else set -- "$1" /ve; fi
    for attempt in 1 2; do
        value=$(install_wine reg query "$@" 2>>"$logs/install-registry.log" | tr -d '\r' |
            sed -nE 's/^ +.* +REG_(SZ|DWORD) +(.*)$/\2/p')
        [ -z "$value" ] || break
    done
    printf '%s\n' "$value"
}
key_is_gone() { ! install_wine reg query "$1" 2>>"$logs/install-registry.log"; }
class_path() { registry_value "HKCR\\CLSID\\$install_class\\InprocServer32"; }

# snapshot NAME: all of the registry without its times, and every file and folder of the drive with its sum.
snapshot() {
    local to=$install_work/$1 part
    end_install_wine
    rm -rf "$to"
    mkdir -p "$to"
    for part in system user userdef; do
        # Nor what Wine notes down of its display at each start, and which scratch files are to go at the next one:
        # the uninstaller cannot remove the copy of itself that it runs from.
        sed -E -e '/^#time=/d' -e '/^"DriverDateData"=/d' -e '/^@="(Display adapters|Monitors)"$/d' \
            -e '/^"PendingFileRenameOperations"=/d' -e 's/^(\[.*\]) [0-9]+( [0-9]+)?$/\1/' "$install_prefix/$part.reg" >"$to/$part.reg"
    done
    # Not the system's own scratch folders, nor what this suite put onto the drive.
    (cd "$install_drive" && find . -path ./windows/temp -prune -o -path './users/*/Temp' -prune -o \
        -path './users/*/AppData/Local/Temp' -prune -o -path ./host -prune -o -path ./readonly -prune -o \
        -path ./small -prune -o -path ./zip -prune -o -type f -exec sha256sum {} + -o -type d -printf 'folder %p\n' |
        LC_ALL=C sort -k 2) >"$to/files.txt"
    begin_install_wine
}
# snapshots_agree A B: one check a part of them.
snapshots_agree() {
    local part
    for part in system.reg user.reg userdef.reg files.txt; do
        promise "$part is as it was before ($1, $2)" is_same_tree_part "$1" "$2" "$part"
    done
}
is_same_tree_part() {
    local different
    different=$(diff "$install_work/$1/$3" "$install_work/$2/$3" || true)
    [ -z "$different" ] || { grep -E '^[<>]' <<<"$different"; return 1; }
}

# Always a new one: what an earlier run left would be no beginning.
need_install_prefix() {
    say "Making a Wine prefix for the setup program"
    rm -rf "$install_prefix"
    log_step "wineboot" install-wineboot install_env wineboot -i
    # Wine counts as Windows 7 by itself.
    log_step "Windows 10" install-windows install_wine winecfg -v win10
    end_install_wine
    begin_install_wine
}

# make_packages: today's, an older one with one file more, one less and other factory settings, and one whose DLL is
# none.
make_packages() {
    local version
    version=$(package_version)
    package_windows "$install_work/packages"
    local stage=$build/package-windows/stage old=$install_work/stage-old broken=$install_work/stage-broken
    cp "$install_work/packages/velmora-$version-windows-x64-setup.exe" "$install_work/setup-now.exe"
    rm -rf "$old" "$broken"
    cp -r "$stage" "$old"
    sed -i -e 's/^Version=.*/Version=1_111_0/' -e 's/^CycleTime=.*/CycleTime=1500/' "$old/setting_org.inf"
    echo "of old" >"$old/docs/of-old.txt"
    rm "$old/docs/log.svg"
    log_step "Packing an older version" install-old make_setup "$old" 1.111.0 "$install_work/setup-old.exe" zlib
    cp -r "$stage" "$broken"
    echo "no DLL" >"$broken/asio_korvente_x64.dll"
    log_step "Packing a broken version" install-broken make_setup "$broken" "$version" "$install_work/setup-broken.exe" zlib
}

# Once more, from files that came at another time into a folder of another name, with other rights, in another time
# zone; beside the tests, which wait more than they count.
install_packing=
pack_again() {
    local name again=$install_work/another-stage
    name=velmora-$(package_version)-windows-x64
    mkdir -p "$install_work/again"
    rm -f "$install_work/again"/*
    (
        umask 077
        stage_windows "$again"
        export TZ=Asia/Tokyo
        make_setup "$again" "$(package_version)" "$install_work/again/$name-setup.exe"
        make_zip "$again" "$install_work/again/$name.zip"
    ) >"$logs/install-again.log" 2>&1 &
    install_packing=$!
}
try_reproduced() {
    local name
    name=velmora-$(package_version)-windows-x64
    wait "$install_packing" || true
    install_packing=
    promise "the setup program is the same bytes again" is_same "$install_work/packages/$name-setup.exe" "$install_work/again/$name-setup.exe"
    promise "the zip is the same bytes again" is_same "$install_work/packages/$name.zip" "$install_work/again/$name.zip"
}

# look_at_installed FOLDER STAGE VERSION: files, registry, shortcuts.
look_at_installed() {
    local folder=$1 stage=$2 version=$3 windows lists=$install_work/installed
    windows="C:\\${folder#"$install_drive"/}"
    windows=${windows//\//\\}
    rm -rf "$lists"
    mkdir -p "$lists"
    cp -r "$folder/." "$lists/" || true
    promise "there is an uninstaller" is_there "$lists/uninstall.exe"
    rm -f "$lists/uninstall.exe" "$lists/mine.txt"
    promise "$version has all files and no other" is_same_tree "$stage" "$lists"
    promise "the class leads to the DLL" is "$(class_path)" "$(tr '[:upper:]' '[:lower:]' <<<"$windows\\asio_korvente_x64.dll")"
    promise "the class has its threading model" is \
        "$(registry_value "HKCR\\CLSID\\$install_class\\InprocServer32" ThreadingModel)" Apartment
    promise "hosts find the class" is "$(registry_value 'HKLM\SOFTWARE\ASIO\KORVENTE Velmora' CLSID)" "$install_class"
    promise "a host lists the driver" list_has "KORVENTE Velmora"
    promise "Windows' settings show its version" is "$(registry_value "$install_uninstall_key" DisplayVersion)" "$version"
    promise "and where it is" is "$(registry_value "$install_uninstall_key" InstallLocation)" "$windows"
    promise "and how it goes" is "$(registry_value "$install_uninstall_key" UninstallString)" "\"$windows\\uninstall.exe\""
    promise "and how it goes silently" is "$(registry_value "$install_uninstall_key" QuietUninstallString)" "\"$windows\\uninstall.exe\" /S"
    promise "the menu has the settings" is_there "$install_shortcuts/Velmora settings.lnk"
}
list_has() {
    install_wine "$(exe velmora-play)" --list >"$install_work/list.txt" 2>&1 || true
    file_says "$install_work/list.txt" "$1"
}
nothing_listed() { ! list_has "KORVENTE Velmora"; }

refused() {  # CODE SENTENCE
    promise "the code is $1" is "$code" "$1"
    promise "it says why" file_says "$install_work/said.txt" "$2"
}

# Somebody else's folder where a file is to go, and somebody else's key for ASIO drivers.
try_halfway() {
    mkdir -p "$install_folder/velmora-log.exe"
    setup now
    refused 4 "Not all files could be written into C:\\Program Files\\KORVENTE Velmora."
    promise "what was written is gone again" is "$(files_of "$install_folder")" ". ./velmora-log.exe "
    promise "no host sees a driver" nothing_listed
    rm -rf "$install_folder"
    # The uninstaller is written last, when the driver is registered.
    mkdir -p "$install_folder/uninstall.exe"
    setup now
    refused 4 "Not all files could be written into C:\\Program Files\\KORVENTE Velmora."
    promise "it speaks of no older version" does_not_say "installed before"
    promise "what was written is gone again" is "$(files_of "$install_folder")" ". ./uninstall.exe "
    promise "the key of all ASIO drivers is gone again" key_is_gone 'HKLM\SOFTWARE\ASIO'
    rm -rf "$install_folder"
    install_wine reg add 'HKLM\SOFTWARE\ASIO' /f >/dev/null 2>&1 || true
    setup now
    remove "$install_folder"
    promise "an empty key that was there before stays" install_wine reg query 'HKLM\SOFTWARE\ASIO'
    promise "no host sees a driver" nothing_listed
    install_wine reg delete 'HKLM\SOFTWARE\ASIO' /f >/dev/null 2>&1 || true
    rm -rf "$install_folder"
}
# Setup removes the older version, and then cannot go on.
try_failing_upgrade() {
    setup old
    setup broken '/D=C:\other\Velmora'
    refused 6 "The driver could not be registered"
    promise "it says what is lost" file_says "$install_work/said.txt" \
        "The version that was installed before, 1.111.0, is removed already: run setup again."
    promise "the older version is gone" is_gone "$install_folder"
    promise "what was written is gone again" is_gone "$install_drive/other/Velmora"
    promise "the list of apps has no entry" key_is_gone "$install_uninstall_key"
    promise "no host sees a driver" nothing_listed
    rm -rf "$install_drive/other"
    setup old
    mkdir -p "$install_folder/docs/log.svg"
    echo mine >"$install_folder/mine.txt"
    setup now
    refused 4 "Not all files could be written into C:\\Program Files\\KORVENTE Velmora."
    promise "it says what is lost" file_says "$install_work/said.txt" \
        "The version that was installed before, 1.111.0, is removed already: run setup again."
    promise "what was written is gone again" is "$(files_of "$install_folder")" ". ./docs ./docs/log.svg ./mine.txt "
    promise "the list of apps has no entry" key_is_gone "$install_uninstall_key"
    promise "no host sees a driver" nothing_listed
    rmdir "$install_folder/docs/log.svg"
    setup now
    promise "run again, it ends well" is "$code" 0
    look_at_installed "$install_folder" "$build/package-windows/stage" "$(package_version)"
    remove "$install_folder"
    rm -rf "$install_folder"
}
# An uninstaller that refuses: a program that ends with 2, and a file that is none. In the same folder and in another.
try_refusing_uninstaller() {
    local folder
    setup old
    cp "$(exe velmora-register)" "$install_folder/uninstall.exe"
    rm -rf "$install_work/refusing"
    cp -r "$install_folder" "$install_work/refusing"
    for folder in 'C:\Program Files\KORVENTE Velmora' 'C:\other'; do
        setup now "/D=$folder"
        refused 8 "1.111.0 in C:\\Program Files\\KORVENTE Velmora, could not be removed: its uninstaller ended with 2."
    done
    echo "no program" >"$install_folder/uninstall.exe"
    setup now
    refused 8 "its uninstaller cannot be run."
    cp "$(exe velmora-register)" "$install_folder/uninstall.exe"
    promise "nothing has changed" is_same_tree "$install_work/refusing" "$install_folder"
    promise "nothing is left in the other folder" is_gone "$install_drive/other"
    promise "the class leads to the older DLL" is "$(class_path)" 'c:\program files\korvente velmora\asio_korvente_x64.dll'
    promise "the list of apps has the older version" is "$(registry_value "$install_uninstall_key" DisplayVersion)" 1.111.0
    # As the guide says: its own setup brings the uninstaller back.
    setup old
    setup now '/D=C:\other'
    promise "repaired, it can be moved and upgraded" is "$code" 0
    look_at_installed "$install_drive/other" "$build/package-windows/stage" "$(package_version)"
    promise "the folder before is gone" is_gone "$install_folder"
    remove "$install_drive/other"
    rm -rf "$install_drive/other" "$install_work/refusing"
}
# A move of an installation whose uninstaller somebody deleted: of this release, and of one with files of its own.
try_missing_uninstaller() {
    setup now
    rm "$install_folder/uninstall.exe"
    setup broken '/D=C:\other'
    refused 6 "The driver could not be registered"
    promise "what was written is gone again" is_gone "$install_drive/other"
    promise "what was there before is still there" is_there "$install_folder/asio_korvente_x64.dll"
    promise "the list of apps still tells where" is "$(registry_value "$install_uninstall_key" InstallLocation)" \
        'C:\Program Files\KORVENTE Velmora'
    setup now '/D=C:\other'
    promise "without the uninstaller it moves" is "$code" 0
    look_at_installed "$install_drive/other" "$build/package-windows/stage" "$(package_version)"
    promise "the folder before is gone" is_gone "$install_folder"
    promise "there is nothing to say" does_not_say "uninstaller"
    remove "$install_drive/other"
    rm -rf "$install_drive/other"
    setup old
    rm "$install_folder/uninstall.exe"
    echo mine >"$install_folder/mine.txt"
    setup now '/D=C:\other'
    promise "without the older uninstaller it moves" is "$code" 0
    promise "it says what stays" file_says "$install_work/said.txt" "could not tell what else in C:\\Program Files\\KORVENTE Velmora is of it"
    promise "what setup does not know stays" is "$(files_of "$install_folder")" ". ./docs ./docs/of-old.txt ./mine.txt "
    look_at_installed "$install_drive/other" "$build/package-windows/stage" "$(package_version)"
    remove "$install_drive/other"
    rm -rf "$install_drive/other" "$install_folder"
}
# A stream of an older release's settings: the first opening by the new one puts the factory's in their place.
play_installed() {
    local work=$install_work/play file=$install_work/music.wav
    # shellcheck disable=SC2034 # read by play_over_the_net
    local wine_prefix=$install_prefix wine_variables=("${install_variables[@]}")
    mkdir -p "$work"
    [ -f "$file" ] || "$(native velmora-audio)" generate --seconds 2 --bits 16 --rate 44100 "$file"
    play_bit_for_bit no "$work" "$file" "$work/played.wav" --pcm 16 -- || {
        echo "the player ended with $played_code:"
        tail -n 3 "$work/player.log" "$work/compare.log"
        return 1
    }
}

# A host under another name than ours that plays until it is ended.
start_host() {
    local tries=0
    mkdir -p "$install_drive/host"
    cp "$(exe velmora-play)" "$install_drive/host/My Host.exe"
    rm -f "$install_work"/{held.wav,held-target.pid}
    in_target "${numbered[@]}" "$install_work/held-target.pid" "$(native velmora-target)" --interface vtarget --once \
        --seconds 120 --output "$install_work/held.wav" >"$install_work/held-target.log" 2>&1 &
    install_target_job=$!
    install_wine "$install_drive/host/My Host.exe" --driver "KORVENTE Velmora" --tone 440 --seconds 100 \
        >"$install_work/held-host.log" 2>&1 &
    until [ "$(stat -c %s "$install_work/held.wav" 2>/dev/null || echo 0)" -gt 4096 ] || [ $tries -ge 300 ]; do
        sleep 0.1
        tries=$((tries + 1))
    done
}
end_host() {
    end_install_wine
    begin_install_wine
    [ -z "$install_target_job" ] || end_job "$install_target_job" "$install_work/held-target.pid"
    install_target_job=
}

mount_install_disks() {
    mkdir -p "$install_drive/readonly" "$install_drive/small"
    as_root mount -t tmpfs -o ro,size=64k velmora-readonly "$install_drive/readonly"
    as_root mount -t tmpfs -o size=512k,mode=777 velmora-small "$install_drive/small"
}
drop_install_disks() {
    local disk
    for disk in readonly small; do
        ! mountpoint -q "$install_drive/$disk" 2>/dev/null || as_root umount "$install_drive/$disk"
    done
}
end_install_e2e() {
    if [ -d "$install_prefix" ]; then env "${install_variables[@]}" wineserver -k -w 2>/dev/null || true; fi
    [ -z "$install_target_job" ] || end_job "$install_target_job" "$install_work/held-target.pid"
    [ -z "$install_packing" ] || kill "$install_packing" 2>/dev/null || true
    drop_install_disks
}

write_own_settings() {  # VERSION
    mkdir -p "$(install_settings)"
    printf '; mine\r\nVersion=%s\r\nCycleTime=700\r\n' "$1" >"$(install_settings)/setting.inf"
    # The stream of this suite has a busy machine to get along with.
    # shellcheck disable=SC2046 # two settings
    printf '%s\r\n' $(deep_ring 44100) >"$(install_settings)/debug.inf"
    cp "$(install_settings)/setting.inf" "$install_work/own.inf"
}
drop_own_settings() { rm -rf "$(install_settings)"; }

try_refusals_of_folders() {
    local long
    long="C:\\velmora\\$(printf 'a%.0s' {1..100})"
    setup now "/D=$long"
    refused 4 "path is too long: with the driver's name it has 133 characters"
    promise "nothing is left of it" is_gone "$install_drive/velmora"
    setup now '/D=C:\readonly\Velmora'
    refused 4 'Nothing can be written into C:\readonly\Velmora'
    setup now '/D=C:\small\Velmora'
    refused 4 'too little room in C:\small\Velmora'
    promise "nothing is left there" is_gone "$install_drive/small/Velmora"
    # Not through a batch file, which is read in a code page itself.
    code=0
    install_wine "$install_work/setup-now.exe" /S '/D=C:\velmora-音' >"$install_work/said.txt" 2>&1 </dev/null || code=$?
    refused 4 "it has letters beyond this system's code page"
    promise "nothing is left there" is_gone "$install_drive/velmora-音"
    promise "no host sees a driver" nothing_listed
}
# Another program holds what a setup program holds as long as it runs, until its file is taken away.
try_two_at_once() {
    local tries=0 job sign=$install_work/holds.txt
    printf '%s\n' 'Unicode true' 'CPU amd64' 'Name holder' 'SilentInstall silent' 'RequestExecutionLevel user' \
        "OutFile \"$install_work/holder.exe\"" 'Section' \
        "System::Call 'kernel32::CreateMutexW(p 0, i 0, w \"Global\\KORVENTE Velmora setup\") p .r1'" \
        'FileOpen $0 "$EXEDIR\holds.txt" w' 'FileClose $0' 'StrCpy $0 0' \
        'again:' 'Sleep 100' 'IntOp $0 $0 + 1' 'IntCmp $0 600 done' 'IfFileExists "$EXEDIR\holds.txt" again' 'done:' \
        'SectionEnd' >"$install_work/holder.nsi"
    log_step "Making a program that holds setup up" install-holder makensis -V2 -WX -NOCD "$install_work/holder.nsi"
    rm -f "$sign"
    install_wine "$install_work/holder.exe" >"$logs/install-holder-run.log" 2>&1 </dev/null &
    job=$!
    until [ -e "$sign" ] || [ $tries -ge 300 ]; do sleep 0.1; tries=$((tries + 1)); done
    setup now
    rm -f "$sign"
    wait "$job" || true
    refused 3 "Another setup of KORVENTE Velmora is running. Finish that one first."
    promise "nothing was installed" is_gone "$install_folder"
}
try_old_windows() {
    install_wine winecfg -v win7 >/dev/null 2>&1
    setup now
    install_wine winecfg -v win10 >/dev/null 2>&1
    refused 7 "KORVENTE Velmora needs Windows 10 or later."
}
try_broken() {
    setup broken
    refused 6 "The driver could not be registered"
    promise "nothing is left of it" is_gone "$install_folder"
    promise "no host sees a driver" nothing_listed
}

try_upgrade() {
    local now=$build/package-windows/stage
    setup old
    promise "the older version installs" is "$code" 0
    look_at_installed "$install_folder" "$install_work/stage-old" 1.111.0
    write_own_settings 1_111_0
    mkdir -p "$install_folder"
    echo mine >"$install_folder/mine.txt"
    setup now
    promise "the upgrade ends well" is "$code" 0
    look_at_installed "$install_folder" "$now" "$(package_version)"
    promise "somebody's own file stays" is_there "$install_folder/mine.txt"
    promise "the upgrade leaves the settings alone" is_same "$install_work/own.inf" "$(install_settings)/setting.inf"
    promise "the installed DLL plays bit for bit" play_installed
    begin_install_wine  # the player's end was the server's
    promise "opened, it puts the new factory's settings in place" file_says "$(install_settings)/setting.inf" "Version=1_112_1"
    promise "with the factory's values" file_says "$(install_settings)/setting.inf" "CycleTime=1000"
}
try_downgrade() {
    setup old
    refused 5 "A newer version, $(package_version), is installed."
    promise "the newer one is still there" is_same "$build/package-windows/stage/setting_org.inf" "$install_folder/setting_org.inf"
}
try_downgrade_asked_for() {
    setup old /DOWNGRADE
    promise "asked for, an older version replaces a newer one" is "$code" 0
    look_at_installed "$install_folder" "$install_work/stage-old" 1.111.0
    setup now
    promise "and is upgraded again" is "$code" 0
}
try_repair() {
    write_own_settings 1_112_1
    rm -f "$install_folder/velmora-find.exe"
    echo broken >"$install_folder/docs/settings.txt"
    install_wine reg delete 'HKLM\SOFTWARE\ASIO\KORVENTE Velmora' /f >/dev/null 2>&1 || true
    install_wine reg add "HKCR\\CLSID\\$install_class\\InprocServer32" /v ThreadingModel /d Both /f >/dev/null 2>&1 || true
    setup now
    promise "the repair ends well" is "$code" 0
    look_at_installed "$install_folder" "$build/package-windows/stage" "$(package_version)"
    promise "the repair leaves the settings alone" is_same "$install_work/own.inf" "$(install_settings)/setting.inf"
}
try_held() {
    start_host
    rm -rf "$install_work/held"
    cp -r "$install_folder" "$install_work/held"
    setup now
    refused 3 "My Host.exe (process "
    promise "it says what is open" file_says "$install_work/said.txt" "has asio_korvente_x64.dll open. Close it and try again."
    remove "$install_folder"
    refused 3 "My Host.exe (process "
    promise "nothing has changed" is_same_tree "$install_work/held" "$install_folder"
    promise "the driver is still registered" is "$(class_path)" 'c:\program files\korvente velmora\asio_korvente_x64.dll'
    end_host
    rm -rf "$install_work/held"
}
try_move() {
    setup now '/D=C:\music tools\Velmora'
    promise "it moves" is "$code" 0
    look_at_installed "$install_drive/music tools/Velmora" "$build/package-windows/stage" "$(package_version)"
    promise "somebody's own file stays" is "$(ls "$install_folder")" mine.txt
    rm -rf "$install_folder"
    setup now
    promise "without /D= it stays where it is" is "$(registry_value "$install_uninstall_key" InstallLocation)" 'C:\music tools\Velmora'
    setup now '/D=C:\Program Files\KORVENTE Velmora'
    promise "it moves back" is "$code" 0
    promise "the other folder is gone" is_gone "$install_drive/music tools/Velmora"
    rm -rf "$install_drive/music tools"
}
try_removal() {
    mkdir -p "$install_folder"
    echo mine >"$install_folder/mine.txt"
    remove_quietly
    promise "the removal begins well" is "$code" 0
    promise "somebody's own file stays, and nothing else" is "$(ls "$install_folder")" mine.txt
    promise "the settings stay" is_same "$install_work/own.inf" "$(install_settings)/setting.inf"
    rm -rf "$install_folder"
    drop_own_settings
    snapshot after-setup
    snapshots_agree before after-setup
}
# The registration goes without the help of the DLL.
try_removal_without_dll() {
    local state
    for state in missing damaged; do
        setup now
        if [ $state = missing ]; then rm "$install_folder/asio_korvente_x64.dll"; else
            echo "no DLL" >"$install_folder/asio_korvente_x64.dll"
        fi
        remove "$install_folder"
        promise "with a $state DLL the removal ends well" is "$code" 0
        promise "with a $state DLL the class goes" key_is_gone "HKCR\\CLSID\\$install_class"
        promise "with a $state DLL the entry for hosts goes" key_is_gone 'HKLM\SOFTWARE\ASIO'
        promise "with a $state DLL the list of apps has no entry" key_is_gone "$install_uninstall_key"
        promise "with a $state DLL the files go" is "$(files_of "$install_folder")" ". ./uninstall.exe "
        rm -rf "$install_folder"
    done
}
try_removal_with_settings() {
    setup now
    write_own_settings 1_112_1
    echo mine >"$(install_settings)/mine.txt"
    remove "$install_folder" /SETTINGS
    promise "the removal ends well" is "$code" 0
    promise "the settings are gone, somebody's own file is not" is "$(ls "$(install_settings)")" mine.txt
    rm -rf "$install_folder"
    drop_own_settings
    snapshot after-settings
    snapshots_agree before after-settings
}
try_other_registration() {
    setup now
    mkdir -p "$install_drive/host"
    cp "$build/windows/bin/asio_korvente_x64.dll" "$install_drive/host/"
    install_wine regsvr32 /s 'C:\host\asio_korvente_x64.dll' >/dev/null 2>&1 || true
    remove "$install_folder"
    promise "the removal ends well" is "$code" 0
    promise "a registration that leads elsewhere stays" is "$(class_path)" 'c:\host\asio_korvente_x64.dll'
    install_wine regsvr32 /u /s 'C:\host\asio_korvente_x64.dll' >/dev/null 2>&1 || true
    install_wine reg delete 'HKLM\SOFTWARE\ASIO' /f >/dev/null 2>&1 || true
    rm -rf "$install_folder"
}
try_zip() {
    local name folder work=$install_work/zip-as-it-was long
    name=velmora-$(package_version)-windows-x64
    folder=$install_drive/zip/$name
    long=$install_drive/zip/$(printf 'a%.0s' {1..100})
    rm -rf "$install_drive/zip" "$work"
    mkdir -p "$install_drive/zip" "$work"
    unzip -q "$install_work/packages/$name.zip" -d "$install_drive/zip"
    cp -r "$folder" "$work/"
    rm "$work/$name/install.cmd" "$work/$name/uninstall.cmd"
    promise "the zip has the files of the setup program, and two scripts" is_same_tree "$work/$name" "$build/package-windows/stage"
    snapshot before-zip
    setup now
    script "$folder" install
    refused 5 "installed by its setup program already"
    promise "the setup program's registration stays" is "$(class_path)" 'c:\program files\korvente velmora\asio_korvente_x64.dll'
    script "$folder" uninstall
    refused 5 "Left alone, since it is registered from another file"
    remove "$install_folder"
    rm -rf "$install_folder"
    cp -r "$folder" "$install_drive/zip/damaged"
    echo "no DLL" >"$install_drive/zip/damaged/asio_korvente_x64.dll"
    script "$install_drive/zip/damaged" install
    refused 6 "The driver could not be registered: the class is not there."
    promise "it speaks of no earlier registration" does_not_say "earlier registration"
    script "$folder" install
    promise "install.cmd ends well" is "$code" 0
    script "$install_drive/zip/damaged" install
    refused 6 "The earlier registration, of c:\\zip\\$name\\asio_korvente_x64.dll, is gone, too."
    promise "no host sees a driver" nothing_listed
    promise "the class is gone" key_is_gone "HKCR\\CLSID\\$install_class"
    script "$folder" install
    promise "install.cmd mends it" is "$code" 0
    promise "the class leads into its folder" is "$(class_path)" "c:\\zip\\$name\\asio_korvente_x64.dll"
    promise "a host lists the driver" list_has "KORVENTE Velmora"
    write_own_settings 1_112_1
    start_host
    script "$folder" uninstall
    refused 3 "My Host.exe (process "
    end_host
    script "$folder" uninstall
    promise "uninstall.cmd ends well" is "$code" 0
    promise "no host sees a driver" nothing_listed
    promise "the settings stay" is_same "$install_work/own.inf" "$(install_settings)/setting.inf"
    script "$folder" install
    script "$folder" uninstall /SETTINGS
    promise "uninstall.cmd with the settings ends well" is "$code" 0
    promise "the settings are gone" is_gone "$(install_settings)"
    install_wine reg delete 'HKLM\SOFTWARE\ASIO' /f >/dev/null 2>&1 || true
    snapshot after-zip
    snapshots_agree before-zip after-zip
    mkdir -p "$long"
    cp -r "$folder" "$long/v"
    script "$long/v" install
    refused 4 "path is too long"
    promise "no host sees a driver" nothing_listed
    cp -r "$folder" "$install_drive/zip/音"
    script "$install_drive/zip/音" install
    refused 4 "it has letters beyond this system's code page"
    promise "no host sees a driver" nothing_listed
    rm "$folder/velmora-register.exe"
    script "$folder" install
    refused 4 "Unpack the whole zip"
    rm -rf "$install_drive/zip"
}

suite_install-e2e() {
    need_packages "${package_windows_packages[@]}" unzip
    install_passed=0 install_failed=0
    build_preset release velmora-target velmora-audio
    mkdir -p "$install_work"
    make_packages
    pack_again
    need_namespaces
    need_install_prefix
    mount_install_disks
    # What Wine writes at the first start of anything is no trace of ours.
    promise "no host sees a driver" nothing_listed
    snapshot before
    try_refusals_of_folders
    try_old_windows
    try_two_at_once
    try_broken
    try_halfway
    try_failing_upgrade
    try_refusing_uninstaller
    try_missing_uninstaller
    try_upgrade
    try_downgrade
    try_downgrade_asked_for
    try_repair
    try_held
    try_move
    try_removal
    try_removal_without_dll
    try_removal_with_settings
    try_other_registration
    try_zip
    try_reproduced
    end_install_e2e
    drop_namespaces
    count install-e2e $install_passed $install_failed
}
