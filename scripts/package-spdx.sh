# A list of contents in SPDX 2.3, as tags and values: every package, every file in it, its sums. Sourced by
# scripts/package.sh. Licences are stated where the tree states them, which is nowhere yet.

spdx_id() { tr -c 'A-Za-z0-9.\n' '-' <<<"$1"; }

# spdx_unpack FILE TO: the files that FILE brings.
spdx_unpack() {
    mkdir -p "$2"
    case $1 in
        *.deb) dpkg-deb --extract "$1" "$2" ;;
        *.zip) unzip -q "$1" -d "$2" ;;
        *.exe) 7z x -y -o"$2" "$1" >"$logs/spdx-unpack.log" ;;
        *) fail "There is no way to look into $1." ;;
    esac
}

# spdx_verification FOLDER: one sum over all files, as SPDX defines it: that of their SHA1 sums, sorted and joined.
spdx_verification() { find "$1" -type f -exec sha1sum {} + | cut -c 1-40 | sort | tr -d '\n' | sha1sum | cut -c 1-40; }

# spdx_part FILE VERSION: one package.
spdx_part() {
    local file=$1 version=$2 name id contents path files=0 file_id
    name=$(basename "$file")
    id=SPDXRef-Package-$(spdx_id "$name")
    contents=$(mktemp -d)
    spdx_unpack "$file" "$contents"
    cat <<EOF

##### $name

PackageName: $(case $name in *.deb) printf '%s' "${name%%_*}" ;; *) printf '%s' "${name%.*}" ;; esac)
SPDXID: $id
PackageVersion: $version
PackageFileName: ./$name
PackageSupplier: NOASSERTION
PackageDownloadLocation: NOASSERTION
FilesAnalyzed: true
PackageVerificationCode: $(spdx_verification "$contents")
PackageChecksum: SHA1: $(sha1sum "$file" | cut -c 1-40)
PackageChecksum: SHA256: $(sha256sum "$file" | cut -c 1-64)
PackageLicenseConcluded: NOASSERTION
PackageLicenseInfoFromFiles: NOASSERTION
PackageLicenseDeclared: NOASSERTION
PackageCopyrightText: NOASSERTION
EOF
    while IFS= read -r path; do
        files=$((files + 1))
        file_id=SPDXRef-File-$(spdx_id "$name")-$files
        cat <<EOF

FileName: ./$path
SPDXID: $file_id
FileChecksum: SHA1: $(sha1sum <"$contents/$path" | cut -c 1-40)
FileChecksum: SHA256: $(sha256sum <"$contents/$path" | cut -c 1-64)
LicenseConcluded: NOASSERTION
LicenseInfoInFile: NOASSERTION
FileCopyrightText: NOASSERTION
EOF
    done < <(cd "$contents" && find . -type f -printf '%P\n' | sort)
    printf '\nRelationship: SPDXRef-DOCUMENT DESCRIBES %s\n' "$id"
    rm -rf "$contents"
}

# What goes into the programs, and what makes the bytes what they are: by the machine's packages, with their releases.
# Other releases of these make other bytes.
#
# packages that are handed out | package of this machine | what the one is to the other
spdx_others='
*.deb            | libcli11-dev                | STATIC_LINK
*.deb            | nlohmann-json3-dev          | STATIC_LINK
velmora-target_* | libasound2-dev              | BUILD_DEPENDENCY_OF
velmora-target_* | libsndfile1-dev             | BUILD_DEPENDENCY_OF
*.deb            | g++-12                      | BUILD_TOOL_OF
*.deb            | binutils                    | BUILD_TOOL_OF
*.deb            | dpkg                        | BUILD_TOOL_OF
*-windows-*      | libcli11-dev                | STATIC_LINK
*-windows-*      | nlohmann-json3-dev          | STATIC_LINK
*-windows-*      | g++-mingw-w64-x86-64-posix  | STATIC_LINK
*-windows-*      | mingw-w64-x86-64-dev        | STATIC_LINK
*-windows-*      | binutils-mingw-w64-x86-64   | BUILD_TOOL_OF
*.exe            | nsis                        | BUILD_TOOL_OF
*.zip            | zip                         | BUILD_TOOL_OF
'

# spdx_other_packages FILE...: each of them once, and what it is to those that are handed out.
spdx_other_packages() {
    local file name of package relation release id of_id described=' '
    for file in "$@"; do
        name=$(basename "$file")
        of_id=SPDXRef-Package-$(spdx_id "$name")
        while IFS='|' read -r of package relation; do
            # shellcheck disable=SC2053 # a pattern
            [ -n "$of" ] && [[ $name == ${of// /} ]] || continue
            package=${package// /} relation=${relation// /}
            release=$(dpkg-query -W -f='${Version}' "$package" 2>/dev/null) || continue
            [ -n "$release" ] || continue
            id=SPDXRef-Other-$(spdx_id "${package//+/p}")
            case $described in *" $package "*) ;; *)
                described+="$package "
                cat <<EOF

PackageName: $package
SPDXID: $id
PackageVersion: $release
PackageSupplier: Organization: Debian
PackageDownloadLocation: NOASSERTION
FilesAnalyzed: false
PackageLicenseConcluded: NOASSERTION
PackageLicenseDeclared: NOASSERTION
PackageCopyrightText: NOASSERTION

EOF
                ;;
            esac
            case $relation in
                *_OF) printf 'Relationship: %s %s %s\n' "$id" "$relation" "$of_id" ;;
                *) printf 'Relationship: %s %s %s\n' "$of_id" "$relation" "$id" ;;
            esac
        done <<<"$spdx_others"
    done
}

# spdx_list VERSION FILE...: the document. Its name space is this list's own and nobody's host: made of what it lists.
spdx_list() {
    local version=$1 file sum
    shift
    sum=$(for file in "$@"; do printf '%s %s\n' "$(sha256sum <"$file" | cut -c 1-64)" "$(basename "$file")"; done |
        sha256sum | cut -c 1-32)
    cat <<EOF
SPDXVersion: SPDX-2.3
DataLicense: CC0-1.0
SPDXID: SPDXRef-DOCUMENT
DocumentName: velmora-$version
DocumentNamespace: https://velmora.invalid/spdx/velmora-$version-$sum
Creator: Tool: velmora-package-$version
Created: $(date -u -d "@$SOURCE_DATE_EPOCH" +%Y-%m-%dT%H:%M:%SZ)
EOF
    for file in "$@"; do spdx_part "$file" "$version"; done
    spdx_other_packages "$@"
}
