# The setup program and the zip for Windows, each the same bytes from the same tree. Sourced by ./dev and by
# scripts/install-e2e.sh: package_windows FOLDER makes both.

package_windows_packages=(nsis zip)
package_windows_programs=(velmora-settings velmora-play velmora-find velmora-log velmora-register)
# Documents, by their place in the tree; each becomes docs/NAME.txt, a picture stays as it is.
package_windows_documents=(README.md CHANGELOG.md SECURITY.md docs/installing.md docs/settings.md docs/log.md
    docs/troubleshooting.md)
package_windows_pictures=(docs/installer.png docs/settings-target.png docs/settings-audio.png docs/settings-transport.png
    docs/settings-diagnostics.png docs/log.svg docs/demo-timing.svg)

# The version by CMake's project.
package_version() { sed -nE 's/^project\(velmora VERSION ([0-9.]+).*/\1/p' "$root/CMakeLists.txt"; }

# The time that all files bear: the last commit's, or the one that the caller has set.
package_time() { printf '%s' "${SOURCE_DATE_EPOCH:-$(git -C "$root" log -1 --format=%ct)}"; }

# A text for Windows' editor: its line ends, and links to documents by the names that they have there.
windows_text() {
    # shellcheck disable=SC2016
    sed -E -e 's#\]\((docs/)?([a-z-]+\.(png|svg))\)#](\2)#g' \
        -e 's#(docs/)?\b(settings|log|installing|troubleshooting|README|CHANGELOG|SECURITY)\.md\b#\2.txt#g' -e 's/$/\r/' "$1"
}

# stage_windows FOLDER: the files as they are installed, and nothing else.
stage_windows() {
    local to=$1 file
    rm -rf "$to"
    mkdir -p "$to/docs"
    install -m 644 "$build/windows/bin/asio_korvente_x64.dll" "$root/packaging/setting_org.inf" "$to/"
    for file in "${package_windows_programs[@]}"; do install -m 644 "$(exe "$file")" "$to/"; done
    for file in "${package_windows_documents[@]}"; do
        windows_text "$root/$file" >"$to/docs/$(basename "$file" .md).txt"
    done
    for file in "${package_windows_pictures[@]}"; do install -m 644 "$root/$file" "$to/docs/"; done
}

# Every file and folder below FOLDER bears the same time, in the order of names.
same_times() { find "$1" -exec touch -h -d "@$(package_time)" {} +; }
files_below() { (cd "$1" && find . -type f -printf '%P\n' | LC_ALL=C sort); }

# setup_lists STAGE: what velmora.nsi includes: each file of STAGE in, and out of a FOLDER again.
setup_lists() {
    local stage=$1 file folder at='' held_installed='' held_before='' name
    printf '!macro InstallFiles\n    SetOutPath "$INSTDIR"\n'
    while read -r file; do
        folder=$(dirname "$file")
        [ "$folder" != . ] || folder=
        if [ "$folder" != "$at" ]; then
            printf '    SetOutPath "$INSTDIR%s"\n' "${folder:+\\${folder//\//\\}}"
            at=$folder
        fi
        printf '    File "${STAGE}/%s"\n' "$file"
    done < <(files_below "$stage")
    printf '!macroend\n!macro RemoveFiles FOLDER\n'
    while read -r file; do
        printf '    Delete "${FOLDER}\\%s"\n' "${file//\//\\}"
    done < <(files_below "$stage")
    printf '!macroend\n!macro RemoveFolders FOLDER\n'
    # The innermost first; one that somebody else put something into stays.
    while read -r folder; do
        printf '    RMDir "${FOLDER}\\%s"\n' "${folder//\//\\}"
    done < <(cd "$stage" && find . -mindepth 1 -type d -printf '%P\n' | LC_ALL=C sort -r)
    printf '!macroend\n'
    while read -r name; do
        held_installed+=" \"\$INSTDIR\\$name\""
        held_before+=" \"\$before\\$name\""
    done < <(files_below "$stage" | grep -E '\.(dll|exe)$')
    printf "!define NAME_HELD_FILES_INSTDIR '%s'\n!define NAME_HELD_FILES_BEFORE '%s'\n" "${held_installed# }" "${held_before# }"
}

# make_setup STAGE VERSION FILE [COMPRESSOR]
make_setup() {
    local stage=$1 version=$2 file=$3 compressor=${4:-lzma} lists=$1-lists.nsh size
    same_times "$stage"
    setup_lists "$stage" >"$lists"
    size=$(find "$stage" -type f -printf '%s\n' | awk '{ sum += $1 } END { print int((sum + 1023) / 1024) }')
    rm -f "$file"
    # NOCD: paths are as they are given here.
    SOURCE_DATE_EPOCH=$(package_time) TZ=UTC makensis -V2 -WX -NOCD -INPUTCHARSET UTF8 -DVERSION="$version" -DCOMPRESSOR="$compressor" \
        -DSTAGE="$stage" -DLISTS="$lists" -DSIZE="$size" -DSIZE_AND_MORE=$((size + 1024)) -DOUTFILE="$file" \
        -DPICTURES="$root/packaging/windows" \
        "$root/packaging/windows/velmora.nsi"
}

# make_zip STAGE FILE: the same files with install.cmd and uninstall.cmd, in a folder of that name.
make_zip() {
    local stage=$1 file=$2 name
    name=$(basename "$file" .zip)
    local work=$1-zip
    rm -rf "$work" "$file"
    mkdir -p "$work"
    cp -r "$stage" "$work/$name"
    for script in install uninstall; do
        sed 's/$/\r/' "$root/packaging/windows/$script.cmd" >"$work/$name/$script.cmd"
    done
    find "$work" -type f -exec chmod 644 {} +
    find "$work" -type d -exec chmod 755 {} +
    same_times "$work"
    (cd "$work" && files_below . | TZ=UTC zip -q -X -9 "$file" -@)
}

# package_windows FOLDER: velmora-VERSION-windows-x64-setup.exe and velmora-VERSION-windows-x64.zip.
package_windows() {
    need_packages "${package_windows_packages[@]}"
    build_preset windows asio_korvente_x64 "${package_windows_programs[@]}"
    local folder=$1 version stage=$build/package-windows/stage name
    version=$(package_version)
    name=velmora-$version-windows-x64
    mkdir -p "$folder" "$(dirname "$stage")"
    folder=$(realpath "$folder")
    stage_windows "$stage"
    log_step "Making the setup program" package-setup make_setup "$stage" "$version" "$folder/$name-setup.exe"
    log_step "Making the zip" package-zip make_zip "$stage" "$folder/$name.zip"
}
