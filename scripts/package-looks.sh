# The cases of the suite `package-e2e` that look at the packages from outside: their files, sums, words and programs.
# Sourced by scripts/package-e2e.sh, which names the cases and holds what they share.

case_lists_what_it_should() {
    local name=velmora-target
    same "drwxr-xr-x ./
drwxr-xr-x ./etc/
drwxr-xr-x ./etc/default/
-rw-r--r-- ./etc/default/velmora-target
drwxr-xr-x ./lib/
drwxr-xr-x ./lib/systemd/
drwxr-xr-x ./lib/systemd/system/
-rw-r--r-- ./lib/systemd/system/velmora-target.service
drwxr-xr-x ./usr/
drwxr-xr-x ./usr/bin/
-rwxr-xr-x ./usr/bin/velmora-target
drwxr-xr-x ./usr/share/
drwxr-xr-x ./usr/share/doc/
drwxr-xr-x ./usr/share/doc/velmora-target/
-rw-r--r-- ./usr/share/doc/velmora-target/changelog.gz
-rw-r--r-- ./usr/share/doc/velmora-target/copyright
-rw-r--r-- ./usr/share/doc/velmora-target/target.md
drwxr-xr-x ./usr/share/man/
drwxr-xr-x ./usr/share/man/man1/
-rw-r--r-- ./usr/share/man/man1/velmora-target.1.gz" "$(packed_files $name)" || return 1
    same "-rwxr-xr-x ./usr/bin/velmora-audio
-rwxr-xr-x ./usr/bin/velmora-find
-rwxr-xr-x ./usr/bin/velmora-log
-rwxr-xr-x ./usr/bin/velmora-play
-rw-r--r-- ./usr/share/doc/velmora-tools/changelog.gz
-rw-r--r-- ./usr/share/doc/velmora-tools/copyright
-rw-r--r-- ./usr/share/man/man1/velmora-audio.1.gz
-rw-r--r-- ./usr/share/man/man1/velmora-find.1.gz
-rw-r--r-- ./usr/share/man/man1/velmora-log.1.gz
-rw-r--r-- ./usr/share/man/man1/velmora-play.1.gz" "$(packed_files velmora-tools | grep -v '/$')" || return 1
    # Nobody's but root's, and all of one time.
    for name in $(debian_names); do
        same root/root "$(dpkg-deb -c "$(package_deb "$name")" | awk '{ print $2 }' | sort -u)" || return 1
        same "$(date -u -d "@$SOURCE_DATE_EPOCH" '+%Y-%m-%d %H:%M')" \
            "$(TZ=UTC dpkg-deb -c "$(package_deb "$name")" | awk '{ print $4, $5 }' | sort -u)" || return 1
    done
    same "postinst 755
postrm 755
prerm 755" "$(cd "$(unpacked velmora-target)/DEBIAN" && stat -c '%n %a' p* | sort)" &&
        same /etc/default/velmora-target "$(cat "$(unpacked velmora-target)/DEBIAN/conffiles")"
}
packed_files() { dpkg-deb -c "$(package_deb "$1")" | awk '{ print $1, $6 }'; }

# What a program asks the loader for comes from a package that is named.
case_names_every_library() {
    local name program library file package
    for name in $(debian_names); do
        dpkg-deb -f "$(package_deb "$name")" Depends | tr ',' '\n' | sed -E 's/^ *([^ ]+).*/\1/' >"$package_work/depends"
        contains "$package_work/depends" libc6 'libstdc++6' || return 1
        for program in "$(unpacked "$name")"/usr/bin/*; do
            for library in $(objdump -p "$program" | awk '/NEEDED/ { print $2 }'); do
                file=$(ldd "$program" | awk -v l="$library" '$1 == l { print $3 } $1 ~ "/" l "$" { print $1 }')
                package=$(dpkg-query -S "$(realpath "$file")" "$file" 2>/dev/null | head -n 1 | cut -d: -f1)
                grep -qxF "$package" "$package_work/depends" ||
                    { echo "$(basename "$program") needs $library of $package, which $name does not name"; return 1; }
            done
        done
    done
    same "libasound2 libsndfile1" "$(dpkg-deb -f "$(package_deb velmora-target)" Depends | grep -oE 'libasound2|libsndfile1' | sort | xargs)"
}

case_has_true_md5sums() {
    local name
    for name in $(debian_names); do
        (
            cd "$(unpacked "$name")"
            md5sum --quiet --strict -c DEBIAN/md5sums &&
                same "$(find . -type f ! -path './DEBIAN/*' ! -path './etc/*' -printf '%P\n' | sort)" \
                    "$(cut -c 35- DEBIAN/md5sums)"
        ) || return 1
    done
}

case_tells_of_itself() {
    local name deb
    for name in $(debian_names); do
        deb=$(package_deb "$name")
        same "$name velmora $(release_version) $(dpkg --print-architecture) sound optional" \
            "$(for field in Package Source Version Architecture Section Priority; do dpkg-deb -f "$deb" $field; done | xargs)" || return 1
        [ "$(dpkg-deb -f "$deb" Installed-Size)" -ge "$(du -sk --apparent-size "$(unpacked "$name")/usr/bin" | cut -f 1)" ] || return 1
        nothing "$(dpkg-deb -f "$deb" | grep -E '@[A-Z]+@')" || return 1
        gzip -dc "$(unpacked "$name")/usr/share/doc/$name/changelog.gz" >"$package_work/changelog"
        contains "$package_work/changelog" "velmora ($(release_version)) " "  * " || return 1
        same "$(release_version) $SOURCE_DATE_EPOCH" \
            "$(dpkg-parsechangelog -l "$package_work/changelog" -S Version) $(dpkg-parsechangelog -l "$package_work/changelog" -S Timestamp)" || return 1
        contains "$(unpacked "$name")/usr/share/doc/$name/copyright" CLI11 nlohmann || return 1
    done
}

case_has_programs_without_paths() {
    local name program
    for name in $(debian_names); do
        for program in "$(unpacked "$name")"/usr/bin/*; do
            ! grep -qF -- "$root" "$program" || { echo "$program holds the path of the tree"; return 1; }
            nothing "$(readelf -SW "$program" | grep -E '\.(symtab|debug_|comment)')" &&
                nothing "$(readelf -dW "$program" | grep -E 'RPATH|RUNPATH')" || return 1
            # At addresses that nobody can know, with tables that are closed once they are filled.
            readelf -adW "$program" >"$package_work/readelf"
            nothing "$(grep -E 'GNU_STACK.*RWE' "$package_work/readelf")" &&
                contains "$package_work/readelf" 'Position-Independent' GNU_RELRO BIND_NOW __stack_chk_fail _chk@GLIBC || return 1
        done
    done
}

# Another user's mask and language, another hour, another folder, programs copied a moment ago, an empty environment.
case_is_the_same_bytes_from_any_surroundings() {
    local again="$package_work/made again, elsewhere" bin=$package_work/bin
    rm -rf "$again" "$bin"
    mkdir -p "$again" "$bin"
    chmod g+s "$again"
    cp "$(native velmora-target)" "$(native velmora-play)" "$(native velmora-audio)" "$(native velmora-find)" "$(native velmora-log)" "$bin"
    chmod 700 "$bin"/*
    (
        umask 077
        # shellcheck disable=SC2030
        export TZ=Pacific/Kiritimati LC_ALL=C.UTF-8 TMPDIR=$again DPKG_DEB_COMPRESSOR_TYPE=gzip DPKG_DEB_THREADS_MAX=7
        settle_surroundings
        package_debian "$again" "$bin"
        finish_package "$again"
    ) || return 1
    diff -r "$package_made" "$again"
}

# The list, file by file, against what the packages unpack to.
case_lists_every_file_with_its_sums() {
    local list name
    list=$package_made/velmora-$(release_version).spdx
    contains "$list" 'SPDXVersion: SPDX-2.3' 'DataLicense: CC0-1.0' 'SPDXID: SPDXRef-DOCUMENT' \
        'DocumentNamespace: https://velmora.invalid/spdx/' "Created: $(date -u -d "@$SOURCE_DATE_EPOCH" +%Y-%m-%dT%H:%M:%SZ)" || return 1
    for name in $(debian_names); do
        awk -v part="##### $name" 'index($0, "#####") == 1 { on = index($0, part "_") == 1 } on' "$list" >"$package_work/part"
        same "$(cd "$(unpacked "$name")" && find . -type f ! -path './DEBIAN/*' | sort |
            while read -r file; do printf '%s %s %s\n' "$file" "$(sha1sum <"$file" | cut -c 1-40)" "$(sha256sum <"$file" | cut -c 1-64)"; done)" \
            "$(awk '/^FileName: / { file = $2 } /^FileChecksum: SHA1: / { one = $3 } /^FileChecksum: SHA256: / { print file, one, $3 }' "$package_work/part")" || return 1
        same "$(awk '/^FileChecksum: SHA1: / { print $3 }' "$package_work/part" | sort | tr -d '\n' | sha1sum | cut -c 1-40)" \
            "$(awk '/^PackageVerificationCode: / { print $2 }' "$package_work/part")" &&
            same "$(sha256sum <"$(package_deb "$name")" | cut -c 1-64)" \
                "$(awk '/^PackageChecksum: SHA256: / { print $3 }' "$package_work/part")" || return 1
        contains "$package_work/part" "Relationship: SPDXRef-DOCUMENT DESCRIBES $(awk '/^SPDXID: SPDXRef-Package/ { print $2; exit }' "$package_work/part")" || return 1
    done
    # Every id is one thing's, and every relation is between things that are there.
    nothing "$(awk '/^SPDXID: / { print $2 }' "$list" | sort | uniq -d)" &&
        nothing "$(comm -13 <(awk '/^SPDXID: / { print $2 }' "$list" | sort) \
            <(awk '/^Relationship: / { print $2; print $4 }' "$list" | sort -u))"
}

case_sums_up_what_is_handed_out() {
    (cd "$package_made" && sha256sum --quiet --strict -c SHA256SUMS) &&
        same "$(cd "$package_made" && printf '%s\n' * | grep -vx SHA256SUMS)" "$(cut -c 67- "$package_made/SHA256SUMS")" || return 1
    local other=$package_work/other
    rm -rf "$other"
    cp -r "$package_made" "$other"
    printf x >>"$other/velmora-$(release_version).spdx"
    ! (cd "$other" && sha256sum --quiet -c SHA256SUMS 2>/dev/null)
}

case_refuses_to_mix_and_to_go_without() {
    local empty=$package_work/empty code=0
    rm -rf "$empty"
    mkdir -p "$empty"
    (cd "$empty" && package "$empty/out") >"$package_work/out" 2>&1 || code=$?
    [ $code = 1 ] && contains "$package_work/out" 'There is no scripts/package-windows.sh' && [ ! -e "$empty/out" ] || return 1
    code=0
    (package --deb "$package_made") >"$package_work/out" 2>&1 || code=$?
    [ $code = 1 ] && contains "$package_work/out" "$package_made is not empty" || return 1
    code=0
    (unset SOURCE_DATE_EPOCH; cd "$package_disk" && GIT_CEILING_DIRECTORIES=$build GIT_DIR=$package_disk/none need_source_date) \
        >"$package_work/out" 2>&1 || code=$?
    [ $code = 1 ] && contains "$package_work/out" 'Here is no commit'
}

# Every option that a program or one of its commands tells stands in its manual, and no other does.
case_has_manuals_that_are_true() {
    local name program page commands command
    for name in $(debian_names); do
        for program in $(debian_programs "$name"); do
            page=$package_work/page
            gzip -dc "$(unpacked "$name")/usr/share/man/man1/$program.1.gz" >"$page"
            nothing "$(groff -man -Tutf8 -ww -z "$page" 2>&1)" && contains "$page" "Velmora $(release_version)" || return 1
            "$(unpacked "$name")/usr/bin/$program" --help >"$package_work/help"
            commands=$(awk '/^Subcommands:/ { on = 1; next } /^$/ { on = 0 } on && /^  [a-z]/ { print $1 }' "$package_work/help")
            for command in $commands; do
                "$(unpacked "$name")/usr/bin/$program" "$command" --help >>"$package_work/help"
                contains "$page" "$command" || return 1
            done
            # Where an option is told; the words about it may name others.
            same "$(grep -oE '^ +(-[a-z], ?)?--[a-z-]+' "$package_work/help" | grep -oE -- '--[a-z-]+' | sort -u)" \
                "$(sed 's/\\-/-/g' "$page" | grep -E '^\.(B|BI|BR) .*--' | grep -oE -- '--[a-z-]+' | sort -u)" || { echo "of $program"; return 1; }
        done
    done
}

case_has_options_that_are_there() {
    local told=$package_work/told
    "$(unpacked velmora-target)/usr/bin/velmora-target" --help >"$package_work/help"
    grep -oE -- '(^|[ "=])--[a-z-]+' "$(unpacked velmora-target)/etc/default/velmora-target" \
        "$(unpacked velmora-target)/lib/systemd/system/velmora-target.service" -h | grep -oE -- '--[a-z-]+' |
        grep -vxE -- '--(help|keep)' | sort -u >"$told"
    [ "$(wc -l <"$told")" -ge 10 ] || return 1
    nothing "$(comm -23 "$told" <(grep -oE '^ +(-[a-z], ?)?--[a-z-]+' "$package_work/help" | grep -oE -- '--[a-z-]+' | sort -u))" || return 1
    # Each variable of the file is one that the unit hands on, and the other way round.
    same "$(unit_lines ExecStart | grep -oE 'VELMORA_[A-Z]+' | sort -u)" \
        "$(grep -oE '^#VELMORA_[A-Z]+' "$(unpacked velmora-target)/etc/default/velmora-target" | cut -c 2- | sort -u)"
}
unit_lines() { sed -n "s/^$1=//p" "$(unpacked velmora-target)/lib/systemd/system/velmora-target.service"; }

case_has_a_unit_that_is_sound() {
    as_root cp "$(unpacked velmora-target)/usr/bin/velmora-target" "$package_root/usr/bin/" || return 1
    local found
    found=$(in_root systemd-analyze verify --man=no \
        "$(in_root_place "$(unpacked velmora-target)/lib/systemd/system/velmora-target.service")" 2>&1 || echo "ended with $?")
    as_root rm "$package_root/usr/bin/velmora-target"
    # Of other units it may say what it likes.
    nothing "$(grep -E 'velmora|ended with' <<<"$found")"
}

# Its exposure by systemd's own reckoning, in tenths; 17 where this was written.
case_lets_the_service_have_little() {
    in_root systemd-analyze security --offline=true --no-pager --threshold=20 \
        "$(in_root_place "$(unpacked velmora-target)/lib/systemd/system/velmora-target.service")"
}
