# The Debian packages of the Linux programs. Sourced by scripts/package.sh.
#
# By dpkg-deb over folders laid out here, and not by CPack or debhelper: one needs its own words for what is a line of
# `install`, the other a tree with a debian/ folder, and neither saves a check. What makes the same bytes everywhere
# (owners, modes, times, orders) is seen on this page.

# package | the programs in it
debian_packages='
velmora-target | velmora-target
velmora-tools  | velmora-audio velmora-find velmora-log velmora-play
'
# What only the Linux programs need to be built and packed; a board that builds its own needs nothing else.
debian_build_packages=(
    build-essential cmake pkg-config ninja-build ccache googletest libgtest-dev libgmock-dev libbenchmark-dev
    libcli11-dev nlohmann-json3-dev libsndfile1-dev libasound2-dev
)
# Built into the programs, whose terms ask for their words to go along.
debian_built_in=(libcli11-dev nlohmann-json3-dev)

debian_names() { awk -F'|' 'NF == 2 { gsub(/ /, "", $1); print $1 }' <<<"$debian_packages"; }
debian_programs() { awk -F'|' -v name="$1" 'NF == 2 { n = $1; gsub(/ /, "", n); if (n == name) print $2 }' <<<"$debian_packages"; }
debian_architecture() { dpkg --print-architecture; }
release_version() { sed -nE 's/^project\(velmora VERSION ([0-9.]+) .*/\1/p' CMakeLists.txt; }

# The newest release in CHANGELOG.md, as Debian writes it, with the time of the sources.
debian_changelog() {
    local version=$1 newest
    newest=$(sed -nE 's/^## ([0-9_]+)$/\1/p' CHANGELOG.md | head -n 1 | tr _ .)
    [ "$newest" = "$version" ] || fail "CHANGELOG.md begins with release $newest, but this is $version."
    printf 'velmora (%s) unstable; urgency=medium\n\n' "$version"
    # Each item anew in lines of Debian's length.
    awk 'function put(word) {
             if (length(line) + 1 + length(word) > 79) { print line; line = "   " }
             line = line " " word
         }
         function item() { if (line != "") print line; line = "" }
         /^## / { item(); part++; next }
         part == 1 && /^- / { item(); line = "  *"; sub(/^- /, "") }
         part == 1 && line != "" { for (i = 1; i <= NF; i++) put($i) }
         END { item() }' CHANGELOG.md
    printf '\n -- Velmora maintainers <maintainers@velmora.invalid>  %s\n' "$(date -u -R -d "@$SOURCE_DATE_EPOCH")"
}

debian_copyright() {
    cat packaging/debian/copyright
    local library
    for library in "${debian_built_in[@]}"; do
        printf '\n\n---- %s ----\n\n' "$library"
        cat "/usr/share/doc/$library/copyright"
    done
}

# stage_file MODE FROM TO: FROM with the release filled in; "-" is what is piped.
stage_file() {
    mkdir -p "$(dirname "$3")"
    sed "s/@VERSION@/$debian_version/g" "$2" >"$3"
    chmod "$1" "$3"
}
stage_gzipped() { mkdir -p "$(dirname "$2")"; gzip -9n <"$1" >"$2"; chmod 0644 "$2"; }

# stage_debian PACKAGE BIN STAGE: every file of the package, as it will lie on the machine.
stage_debian() {
    local name=$1 bin=$2 stage=$3 program doc=$3/usr/share/doc/$1
    mkdir -p "$stage/usr/bin" "$doc"
    for program in $(debian_programs "$name"); do
        cp "$bin/$program" "$stage/usr/bin/"
        strip --strip-unneeded --remove-section=.comment --remove-section=.note "$stage/usr/bin/$program"
        chmod 0755 "$stage/usr/bin/$program"
        stage_file 0644 "packaging/debian/man/$program.1" "$debian_work/$program.1"
        stage_gzipped "$debian_work/$program.1" "$stage/usr/share/man/man1/$program.1.gz"
    done
    debian_copyright >"$doc/copyright"
    chmod 0644 "$doc/copyright"
    debian_changelog "$debian_version" >"$debian_work/changelog"
    stage_gzipped "$debian_work/changelog" "$doc/changelog.gz"
    [ "$name" = velmora-target ] || return 0
    stage_file 0644 packaging/debian/velmora-target.service "$stage/lib/systemd/system/velmora-target.service"
    stage_file 0644 packaging/debian/velmora-target.default "$stage/etc/default/velmora-target"
    stage_file 0644 docs/target.md "$doc/target.md"
}

# The libraries that the programs of STAGE need, with the oldest releases that will do.
debian_depends() {
    local name=$1 stage=$2 of=$debian_work/depends-$1 program arguments=()
    mkdir -p "$of/debian"
    printf 'Source: velmora\n\nPackage: %s\nArchitecture: any\n' "$name" >"$of/debian/control"
    for program in $(debian_programs "$name"); do arguments+=("-e$stage/usr/bin/$program"); done
    (cd "$of" && dpkg-shlibdeps -O "${arguments[@]}" 2>"$logs/shlibdeps-$name.log") | sed -n 's/^shlibs:Depends=//p'
}

# In KiB: each file rounded up, one for each folder. What the file system takes would differ.
debian_installed_size() {
    find "$1" -mindepth 1 -printf '%y %s\n' | awk '{ sum += $1 == "f" ? int(($2 + 1023) / 1024) : 1 } END { print sum }'
}

# control_debian PACKAGE STAGE: what dpkg reads.
control_debian() {
    local name=$1 stage=$2 control=$2/DEBIAN depends size script
    size=$(debian_installed_size "$stage")
    depends=$(debian_depends "$name" "$stage")
    [ -n "$depends" ] || fail "dpkg-shlibdeps named no library for $name; see build/log/shlibdeps-$name.log."
    mkdir -p "$control"
    sed -e "s/@VERSION@/$debian_version/; s/@ARCHITECTURE@/$(debian_architecture)/; s/@SIZE@/$size/" \
        -e "s/@DEPENDS@/$depends/" "packaging/debian/$name.control" >"$control/control"
    if [ -d "$stage/etc" ]; then (cd "$stage" && find etc -type f -printf '/%p\n' | sort) >"$control/conffiles"; fi
    # Those that a person may change are no matter of sums.
    (cd "$stage" && find . -path ./DEBIAN -prune -o -path ./etc -prune -o -type f -printf '%P\n' | sort | xargs md5sum) \
        >"$control/md5sums"
    find "$control" -type f -exec chmod 0644 {} +
    for script in postinst prerm postrm; do
        [ ! -f "packaging/debian/$name.$script" ] || stage_file 0755 "packaging/debian/$name.$script" "$control/$script"
    done
}

# package_debian FOLDER [BIN]: both packages into FOLDER, of the programs in BIN: those of the release preset.
package_debian() {
    local folder=$1 bin=${2-$build/release/bin} name stage
    debian_version=$(release_version)
    debian_work=$(mktemp -d)
    for name in $(debian_names); do
        stage=$debian_work/$name
        stage_debian "$name" "$bin" "$stage"
        control_debian "$name" "$stage"
        # A folder made in one that hands its group on has a mark of that; and what is newer than the sources is
        # made as old.
        find "$stage" -type d -exec chmod u=rwx,go=rx,g-s {} +
        find "$stage" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
        # One thread: how many there are is no part of the bytes.
        log_step "Packing $name" "package-$name" dpkg-deb --root-owner-group --threads-max=1 -Zxz -z9 \
            --build "$stage" "$folder/${name}_${debian_version}_$(debian_architecture).deb"
    done
    rm -rf "$debian_work"
}
