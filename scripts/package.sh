# ./dev package: everything that is handed out, and what lets anybody check it (docs/releasing.md). The same sources
# make the same bytes, in any folder and at any time. Sourced by ./dev.
. scripts/package-debian.sh
. scripts/package-spdx.sh

# The time that all files bear: that of the last commit, unless the caller says another.
need_source_date() {
    if [ -z "${SOURCE_DATE_EPOCH-}" ]; then
        SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null) ||
            fail "Here is no commit whose time the packages could bear: make them in a clone, or set SOURCE_DATE_EPOCH."
    fi
    export SOURCE_DATE_EPOCH
}

# What would differ between one caller and the next.
settle_surroundings() {
    umask 022
    export LC_ALL=C TZ=UTC
    need_source_date
}

# finish_package FOLDER: the list of contents, and the sums of all.
finish_package() {
    local version
    version=$(release_version)
    (
        cd "$1" || exit
        shopt -s nullglob
        # shellcheck disable=SC2035 # the names are those given here
        spdx_list "$version" *.deb *.exe *.zip >"velmora-$version.spdx"
        sha256sum -- *.deb *.exe *.zip *.spdx | sort -k 2 >SHA256SUMS
    )
}

package() {
    local is_debian_only=no folder=$build/package
    while [ $# -gt 0 ]; do
        case $1 in
            --deb) is_debian_only=yes ;;
            -*) usage >&2; exit 2 ;;
            *) folder=$1 ;;
        esac
        shift
    done
    case $folder in /*) ;; *) folder=$caller/$folder ;; esac
    [ $is_debian_only = yes ] || [ -f scripts/package-windows.sh ] ||
        fail "There is no scripts/package-windows.sh, which makes the installer and the zip. ./dev package --deb makes the Debian packages alone."
    if [ "$folder" = "$build/package" ]; then rm -rf "$folder"; fi
    [ -z "$(ls -A "$folder" 2>/dev/null)" ] || fail "$folder is not empty: packages of two makings would be taken for one."
    mkdir -p "$folder"
    if [ $is_debian_only = yes ]; then
        local packages=("${debian_build_packages[@]}")
        need_packages
    else
        . scripts/package-windows.sh
        # They look into the zip and the installer, for the list of contents.
        need_packages unzip p7zip-full
    fi
    settle_surroundings
    [ -z "$(git status --porcelain 2>/dev/null)" ] ||
        say "There are changes that are not committed: nobody else can make these bytes."
    # shellcheck disable=SC2046 # words of a table
    build_preset release $(for name in $(debian_names); do debian_programs "$name"; done)
    package_debian "$folder"
    [ $is_debian_only = yes ] || package_windows "$folder"
    finish_package "$folder"
    say "In $folder:"
    (cd "$folder" && cat SHA256SUMS)
}
