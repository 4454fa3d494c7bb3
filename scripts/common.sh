# What the commands share: packages, builds, the Wine prefix, two namespaces with a link between them.
# Sourced by ./dev, never run.

packages=(
    build-essential cmake pkg-config ninja-build ccache g++-mingw-w64-x86-64-posix
    googletest libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev
    libsndfile1-dev libasound2-dev clang-format wine wine64 iproute2 nftables procps
)

# The presets asan, fuzz and lint compile with clang; what is tested under Wine is linked with its linker.
clang_packages=(clang libclang-rt-14-dev lld)

# On a fresh machine nothing is compiled twice, and a cache only costs.
[ -z "${CI-}" ] || export CCACHE_DISABLE=1

say() { printf '%s\n' "$*"; }
fail() { printf '%s\n' "$*" >&2; exit 1; }

as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; elif command -v sudo >/dev/null; then sudo "$@"; else
        fail "This step needs root: run it as root, or install sudo and give yourself the right to use it."
    fi
}

# log_step TITLE NAME COMMAND...: runs quietly, with its output in build/log/NAME.log; shows the end of
# that when it fails.
log_step() {
    local title=$1 log=$logs/$2.log
    shift 2
    if ! "$@" >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        fail "$title failed; all of its output is in ${log#"$root"/}"
    fi
}

# need_packages [PACKAGE...]: those that all commands need, and these.
need_packages() {
    local missing=() package
    for package in "${packages[@]}" "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} = 0 ] && return
    say "Installing: ${missing[*]}"
    log_step "apt-get update" apt-update as_root apt-get update -q
    log_step "apt-get install" apt-install as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# build_preset PRESET [TARGET...]
build_preset() {
    local preset=$1
    shift
    if [ ! -f "$build/$preset/build.ninja" ]; then
        say "Configuring $preset"
        log_step "Configuring $preset" "configure-$preset" cmake --preset "$preset"
    fi
    if [ "$(ninja -C "$build/$preset" -n "$@" 2>/dev/null | tail -n 1)" != "ninja: no work to do." ]; then
        say "Building $preset"
        log_step "Building $preset" "build-$preset" ninja -C "$build/$preset" "$@"
    fi
}

sources() { git ls-files --cached --others --exclude-standard '*.h' '*.cpp'; }

exe() { printf '%s' "$build/windows/bin/$1.exe"; }
native() { printf '%s' "$build/release/bin/$1"; }

# ---- Wine ----

wine_prefix=$build/wine
# A UTF-8 locale: Wine names files by it, and in a plain C locale knows none beyond ASCII.
wine_variables=(WINEPREFIX="$wine_prefix" WINEDEBUG=-all WINEDLLOVERRIDES='mscoree=;mshtml=' LC_ALL=C.UTF-8)
wine_environment() { env "${wine_variables[@]}" "$@"; }
run_wine() { wine_environment wine "$@"; }
# Waits until the last Windows program of the prefix and its server have gone.
end_wine() { [ ! -d "$wine_prefix" ] || wine_environment wineserver -k -w 2>/dev/null || true; }

need_wine_prefix() {
    [ -f "$wine_prefix/.ready" ] && return
    say "Making a Wine prefix"
    rm -rf "$wine_prefix"
    log_step "wineboot" wineboot wine_environment wineboot -i
    wine_environment wineserver -w
    touch "$wine_prefix/.ready"
}

# Hosts find the driver by its path in the registry, and many cut that at 127 characters; so the DLL is
# put where an installer would put it.
dll_folder_unix=drive_c/velmora
register_dll() {
    local dll=$build/windows/bin/asio_korvente_x64.dll to=$wine_prefix/$dll_folder_unix
    mkdir -p "$to"
    cmp -s "$dll" "$to/asio_korvente_x64.dll" && [ -f "$to/.registered" ] && return
    cp "$dll" "$to/"
    [ ! -f packaging/setting_org.inf ] || cp packaging/setting_org.inf "$to/"
    log_step "Registering the DLL" register run_wine regsvr32 /s 'C:\velmora\asio_korvente_x64.dll'
    touch "$to/.registered"
}

# ---- two namespaces: a host and a target, and one link between them ----

# Names carry this process's number, so that two runs do not meet.
net_host=velmora-host-$$
net_target=velmora-target-$$

need_namespaces() {
    as_root true
    if ! as_root ip netns add "$net_host" 2>"$logs/netns.log"; then
        cat "$logs/netns.log" >&2
        fail "No right to make a network namespace here. On a machine of your own: run this as root. In a
container: start it with --privileged, or with --cap-add NET_ADMIN --cap-add SYS_ADMIN."
    fi
    as_root ip netns add "$net_target"
    local space
    for space in "$net_host" "$net_target"; do
        # The link-local address is usable at once, without two seconds of looking for its double.
        as_root ip netns exec "$space" sysctl -qw net.ipv6.conf.all.disable_ipv6=0 \
            net.ipv6.conf.default.disable_ipv6=0 net.ipv6.conf.all.accept_dad=0 net.ipv6.conf.default.accept_dad=0
        as_root ip -n "$space" link set lo up
        # Wine lists IPv6 adapters only where a name server has an IPv6 address.
        as_root mkdir -p "/etc/netns/$space"
        echo "nameserver ::1" | as_root tee "/etc/netns/$space/resolv.conf" >/dev/null
    done
    as_root ip link add vhost netns "$net_host" type veth peer name vtarget netns "$net_target"
    as_root ip -n "$net_host" link set vhost up
    as_root ip -n "$net_target" link set vtarget up
    need_link_local
}

# Until both ends of the link can be spoken to.
need_link_local() {
    local tries=0
    until as_root ip -n "$net_host" -6 addr show dev vhost scope link | grep -q 'fe80' &&
        as_root ip -n "$net_target" -6 addr show dev vtarget scope link | grep -q 'fe80'; do
        tries=$((tries + 1))
        [ $tries -lt 100 ] || fail "The link between the namespaces has no link-local address."
        sleep 0.05
    done
}

drop_namespaces() {
    local space
    for space in "$net_host" "$net_target"; do
        as_root ip netns del "$space" 2>/dev/null || true
        as_root rm -rf "/etc/netns/$space"
    done
}

# Enters a namespace as root and, where somebody else called, becomes that user again in it: files and
# Wine prefixes stay the caller's.
in_space() {
    local space=$1
    shift
    if [ "$(id -u)" = 0 ]; then ip netns exec "$space" "$@"; else
        sudo ip netns exec "$space" sudo -u "$(id -un)" "$@"
    fi
}
in_host() { in_space "$net_host" "$@"; }
in_target() { in_space "$net_target" "$@"; }

# in_target "${numbered[@]}" FILE COMMAND...: writes COMMAND's own number into FILE, for between it and the shell stand
# those who entered the namespace; end_job ends it by that.
# shellcheck disable=SC2016
numbered=(sh -c 'echo $$ >"$0"; exec "$@"')
# end_job JOB FILE: ends the program whose number stands in FILE, and waits for the job around it. Without
# the file the job has not come so far as to start it.
end_job() {
    if [ -s "$2" ]; then kill "$(cat "$2")" 2>/dev/null || true; else kill "$1" 2>/dev/null || true; fi
    wait "$1" 2>/dev/null || true
}

# lose PER_MILLE: so many of a thousand audio datagrams do not reach the target. 0 ends it.
lose() {
    as_root ip netns exec "$net_target" nft flush ruleset
    [ "$1" = 0 ] && return
    # Only what is long enough to carry audio is lost, a millisecond of CD and more: the talk before the stream
    # has its own tests.
    as_root ip netns exec "$net_target" nft -f - <<EOF
table inet velmora {
    chain lossy {
        type filter hook input priority 0;
        udp length > 180 numgen random mod 1000 < $1 counter drop
    }
}
EOF
}
# How many were lost by the rule in force.
lost_so_far() {
    as_root ip netns exec "$net_target" nft list ruleset | sed -nE 's/.*counter packets ([0-9]+).*/\1/p'
}
