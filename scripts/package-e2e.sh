# The suite `package-e2e` of ./dev test: the Debian packages as ./dev package makes them, looked at from outside, and
# installed, started, upgraded and removed in a root of their own. Sourced by scripts/test.sh.
#
# Each case is a function that fails where something is not as it should be; `package_cases` names them. What a case
# prints lies in its log. They come in this order: later ones use what earlier ones installed.

package_cases='
lists what it should
names every library
has true md5sums
tells of itself
has programs without paths
is the same bytes from any surroundings
lists every file with its sums
sums up what is handed out
refuses to mix and to go without
has manuals that are true
has options that are there
has a unit that is sound
lets the service have little
installs where there is no systemd
installs beside a systemd that sleeps
is found by its name
keeps what a host has set
bears the name of the machine
says what is wrong
starts where systemd runs
is upgraded without a word lost
leaves settings when it is removed
leaves nothing when it is purged
'
# systemd-analyze reads the unit, groff-base the manuals.
package_e2e_packages=(systemd groff-base)

package_work=$build/package-e2e
package_made=$package_work/made
package_disk=$package_work/disk
package_root=$package_disk/root
package_small=$package_disk/small
package_target_job=

package_deb() { printf '%s/%s_%s_%s.deb' "$package_made" "$1" "$(release_version)" "$(debian_architecture)"; }
# unpacked PACKAGE: the folder with its files, and DEBIAN in it.
unpacked() { printf '%s' "$package_work/unpacked/$1"; }
# same WANTED FOUND: fails and shows where two texts differ.
same() { diff <(printf '%s\n' "$1") <(printf '%s\n' "$2"); }
# nothing FOUND: fails and shows what there is.
nothing() { [ -z "$1" ] || { printf '%s\n' "$1"; return 1; }; }
# contains FILE TEXT...
contains() {
    local file=$1 text
    shift
    for text in "$@"; do grep -qF -- "$text" "$file" || { echo "it does not say: $text"; cat "$file"; return 1; }; done
}

. scripts/package-looks.sh

# in_root COMMAND...: on a machine that is this one to begin with, and throws away what is changed.
in_root() { as_root env PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$package_root" "$@"; }
# A file, brought to where that machine sees it.
in_root_place() {
    as_root mkdir -p "$package_root/tmp/velmora"
    as_root cp "$1" "$package_root/tmp/velmora/"
    printf '/tmp/velmora/%s' "$(basename "$1")"
}
dpkg_in_root() { in_root env DEBIAN_FRONTEND=noninteractive dpkg --no-triggers --force-confold "$@" </dev/null; }

need_package_roots() {
    drop_package_roots
    mkdir -p "$package_disk"
    # In memory: not every file system may be the upper layer of another.
    as_root mount -t tmpfs -o mode=755 velmora-package "$package_disk"
    as_root mkdir "$package_disk"/{root,upper,work,small}
    as_root mount -t overlay -o "lowerdir=/,upperdir=$package_disk/upper,workdir=$package_disk/work" velmora-root "$package_root" ||
        fail "No root of its own for the packages: this machine mounts no overlay."
    as_root mount -t proc proc "$package_root/proc"
    as_root mount --bind /dev "$package_root/dev"
    # Nobody forbids services there, and none runs.
    as_root rm -rf "$package_root/usr/sbin/policy-rc.d" "$package_root/run/systemd"
    # What a machine has by itself must not look like what a package left.
    in_root dpkg --purge velmora-target velmora-tools >/dev/null 2>&1 || true
}
drop_package_roots() {
    if mountpoint -q "$package_disk" 2>/dev/null; then as_root umount -R "$package_disk"; fi
}
end_package_e2e() {
    mountpoint -q "$package_disk" 2>/dev/null || return 0
    stop_packaged_target
    drop_package_roots
}

# All that was made or changed in that root, but for what dpkg and systemd's helper remember.
changed_files() {
    (cd "$package_disk/upper" && as_root find . ! -type d -printf '%P\n' &&
        as_root find . -type d -printf '%P\n' | while IFS= read -r folder; do [ -d "/$folder" ] || printf '%s/\n' "$folder"; done) |
        grep -vE '^(var/lib/dpkg/|var/log/dpkg\.log|tmp/velmora/|usr/sbin/policy-rc\.d|root/)' | sort
}

# A machine with a shell and a handful of tools, and what dpkg knows of this one: no systemd, none of its helpers.
case_installs_where_there_is_no_systemd() {
    local tool library target
    as_root mkdir -p "$package_small"/{bin,etc,usr,var/log,tmp,dev} "$package_small"/var/lib/dpkg/{info,updates,triggers}
    # So that dpkg does not take them for folders of the package alone, and scripts have something to be silent into.
    as_root touch "$package_small/etc/hostname"
    as_root cp -a /dev/null "$package_small/dev/"
    for tool in sh rm; do
        for library in "$(realpath "$(command -v $tool)")" $(ldd "$(command -v $tool)" | grep -oE '/[^ ]+'); do
            target=$package_small$library
            if [ "$(basename "$library")" = dash ]; then target=$package_small/bin/sh; fi
            as_root mkdir -p "$(dirname "$target")"
            as_root cp -L "$library" "$target"
        done
    done
    [ -e "$package_small/bin/rm" ] || as_root cp "$package_small/usr/bin/rm" "$package_small/bin/rm"
    as_root cp /var/lib/dpkg/status "$package_small/var/lib/dpkg/"
    local before dpkg=(as_root env PATH=/usr/sbin:/usr/bin:/sbin:/bin dpkg "--root=$package_small" --no-triggers --log=/dev/null)
    before=$(small_files)
    "${dpkg[@]}" -i "$(package_deb velmora-target)" "$(package_deb velmora-tools)" || return 1
    [ -x "$package_small/usr/bin/velmora-target" ] && [ -x "$package_small/usr/bin/velmora-find" ] &&
        [ -f "$package_small/etc/default/velmora-target" ] || return 1
    "${dpkg[@]}" -i "$(package_deb velmora-target)" || return 1
    as_root mkdir -p "$package_small/var/lib/private/velmora-target"
    "${dpkg[@]}" --purge velmora-target velmora-tools || return 1
    as_root rmdir "$package_small/var/lib/private"
    same "$before" "$(small_files)"
}
small_files() { (cd "$package_small" && as_root find . ! -path './var/lib/dpkg/*' | sort); }

# As in a container or on a disk that another machine will start from: enabled, not started.
case_installs_beside_a_systemd_that_sleeps() {
    note_systemctl
    dpkg_in_root -i "$(in_root_place "$(package_deb velmora-target)")" "$(in_root_place "$(package_deb velmora-tools)")" || return 1
    same "velmora-target install ok installed
velmora-tools install ok installed" "$(in_root dpkg-query -W -f='${Package} ${Status}\n' velmora-target velmora-tools)" &&
        same /lib/systemd/system/velmora-target.service \
            "$(readlink "$package_root/etc/systemd/system/multi-user.target.wants/velmora-target.service")" || return 1
    nothing "$(systemctl_calls)" && nothing "$(in_root dpkg --verify velmora-target velmora-tools)" || return 1
    # What lies there is what the packages list.
    local name file
    for name in $(debian_names); do
        while read -r file; do
            cmp "$(unpacked "$name")/$file" "$package_root/$file" || return 1
        done < <(cd "$(unpacked "$name")" && find . -type f ! -path './DEBIAN/*')
    done
}

# The service's command line, with what it may read: as systemd would put them together.
packaged_command() {
    local file=$package_root/etc/default/velmora-target line word
    packaged_words=()
    local VELMORA_NAME='' VELMORA_OUTPUT='' VELMORA_OPTIONS='' more
    while read -r line; do
        line=${line//%H/$(uname -n)}
        case ${line%%=*} in VELMORA_NAME | VELMORA_OUTPUT | VELMORA_OPTIONS) ;; *) echo "unknown: $line"; return 1 ;; esac
        printf -v "${line%%=*}" '%s' "${line#*=}"
    done < <(unit_lines Environment)
    same "-/etc/default/velmora-target" "$(unit_lines EnvironmentFile)" || return 1
    # shellcheck disable=SC1090
    [ ! -f "$file" ] || . "$file"
    read -r -a words <<<"$(unit_lines ExecStart)"
    for word in "${words[@]}"; do
        case $word in
            '${'*'}') word=${word#??}; word=${word%?}; packaged_words+=("${!word}") ;;
            '$'*) word=${word#?}; eval "more=(${!word})"; packaged_words+=("${more[@]}") ;;
            *) packaged_words+=("$word") ;;
        esac
    done
}

# run_packaged COMMAND...: in the target's namespace and that root, as a user without any right but the sound group's
# and the folder of the state.
run_packaged() {
    as_root install -d -o nobody -g nogroup -m 755 "$package_root/var/lib/velmora-target"
    as_root ip netns exec "$net_target" chroot "$package_root" \
        setpriv --reuid=nobody --regid=nogroup --groups=audio --no-new-privs --inh-caps=-all --bounding-set=-all "$@"
}
# start_packaged_target: by the service's own command line; returns once it answers.
start_packaged_target() {
    local tries=0
    packaged_command || return 1
    rm -f "$package_work"/target.{out,err}
    as_root rm -f "$package_root/var/lib/velmora-target/pid"
    # shellcheck disable=SC2016
    run_packaged sh -c 'echo $$ >/var/lib/velmora-target/pid; exec "$@"' sh "${packaged_words[@]}" \
        >"$package_work/target.out" 2>"$package_work/target.err" &
    package_target_job=$!
    until [ -s "$package_work/target.out" ] || ! kill -0 $package_target_job 2>/dev/null || [ $tries -ge 200 ]; do
        sleep 0.05
        tries=$((tries + 1))
    done
    [ -s "$package_work/target.out" ] || { cat "$package_work/target.err"; return 1; }
}
# By the number that it wrote, so that it ends too where the shell that started it has been broken off.
stop_packaged_target() {
    local file=$package_root/var/lib/velmora-target/pid number
    number=$(as_root cat "$file" 2>/dev/null || true)
    [ -z "$number" ] || as_root kill "$number" 2>/dev/null || true
    [ -z "$package_target_job" ] || wait "$package_target_job" 2>/dev/null || true
    package_target_job=
    as_root rm -f "$file"
}
# set_packaged LINE...: what /etc/default/velmora-target says besides its comments.
set_packaged() {
    { grep '^#' "$(unpacked velmora-target)/etc/default/velmora-target"; printf '%s\n' "$@"; } |
        as_root tee "$package_root/etc/default/velmora-target" >/dev/null
}
packaged_find() { as_root ip netns exec "$net_host" chroot "$package_root" /usr/bin/velmora-find "$@" >"$package_work/found"; }

case_is_found_by_its_name() {
    set_packaged 'VELMORA_NAME="Kitchen board"' VELMORA_OUTPUT=alsa:null 'VELMORA_OPTIONS="--buffer 200 --config '"'http://kitchen.invalid/'"'"'
    start_packaged_target || return 1
    contains "$package_work/target.out" '"Kitchen board" on ' 'vtarget, sink "Main" at port 19650' || return 1
    packaged_find list && contains "$package_work/found" "Kitchen board(Main)" &&
        packaged_find info "Kitchen board" && contains "$package_work/found" "http://kitchen.invalid/" || return 1
    packaged_find settings "Kitchen board" && grep -qE 'Buffer length +200 ' "$package_work/found" &&
        grep -qE 'Output +ALSA device.*null' "$package_work/found"
}

case_keeps_what_a_host_has_set() {
    packaged_find set "Kitchen board" "Clock trim" -25 --keep || return 1
    stop_packaged_target
    contains "$package_root/var/lib/velmora-target/target.inf" "clockTrim=-25" || return 1
    start_packaged_target && packaged_find settings "Kitchen board" && grep -qE 'Clock trim +-25 ' "$package_work/found"
}

case_bears_the_name_of_the_machine() {
    stop_packaged_target
    as_root rm -f "$package_root/var/lib/velmora-target/target.inf"
    set_packaged VELMORA_OUTPUT=none
    start_packaged_target && packaged_find list && contains "$package_work/found" "$(uname -n | cut -c 1-20)"
    local code=$?
    stop_packaged_target
    return $code
}

# wrong_value CODE SENTENCE LINE...
wrong_value() {
    local wanted=$1 sentence=$2 code=0
    shift 2
    set_packaged VELMORA_OUTPUT=none "$@"
    packaged_command || return 1
    run_packaged timeout 20 "${packaged_words[@]}" >"$package_work/said" 2>&1 || code=$?
    [ $code = "$wanted" ] || { echo "ended with $code, not $wanted: $*"; cat "$package_work/said"; return 1; }
    contains "$package_work/said" "$sentence"
}
case_says_what_is_wrong() {
    wrong_value 2 '--buffer: Value soon not in range' 'VELMORA_OPTIONS="--buffer soon"' &&
        wrong_value 2 '--rates: 44101 is not 44100 or 48000 times' 'VELMORA_OPTIONS="--rates 44101"' &&
        wrong_value 2 'not expected: --loud' 'VELMORA_OPTIONS=--loud' &&
        wrong_value 2 '--name: ' 'VELMORA_NAME=' &&
        wrong_value 3 'no interface nowhere0 with a link-local address' 'VELMORA_OPTIONS="--interface nowhere0"' &&
        wrong_value 4 'there is no sound device alsa:hw:CARD=Nothing' 'VELMORA_OUTPUT=alsa:hw:CARD=Nothing' &&
        wrong_value 4 'files end in .wav or .dsf' 'VELMORA_OUTPUT=hw:0.1' &&
        same 2 "$(unit_lines RestartPreventExitStatus)"
}

# A systemctl that notes what it is asked for, and leaves to the real one what is about files alone: whether systemd
# starts what it is told to start is systemd's.
note_systemctl() {
    as_root mkdir -p "$package_root/tmp/velmora"
    as_root mv "$package_root/usr/bin/systemctl" "$package_root/usr/bin/systemctl.real"
    as_root tee "$package_root/usr/bin/systemctl" >/dev/null <<'EOF'
#!/bin/sh
echo "$*" >>/tmp/velmora/calls
case " $* " in
    *" is-active "*) [ -e /tmp/velmora/is-active ] ;;
    *" preset "* | *" enable "* | *" is-enabled "*) SYSTEMD_OFFLINE=1 exec systemctl.real "$@" ;;
esac
EOF
    as_root chmod 755 "$package_root/usr/bin/systemctl"
}
# What it was asked to do, and not what it was asked.
systemctl_calls() {
    local calls=$package_root/tmp/velmora/calls
    [ ! -f "$calls" ] || as_root sed -E 's/ *--(quiet|system) *//g' "$calls" | grep -E '^(daemon-reload|start|stop|restart|try-restart)' || true
}
forget_calls() { as_root rm -f "$package_root/tmp/velmora/calls"; }

case_starts_where_systemd_runs() {
    dpkg_in_root --purge velmora-target || return 1
    as_root mkdir -p "$package_root/run/systemd/system"
    forget_calls
    dpkg_in_root -i "$(in_root_place "$(package_deb velmora-target)")" || return 1
    same "daemon-reload
start velmora-target.service" "$(systemctl_calls)"
}

# A release that comes later: the same package under another number.
case_is_upgraded_without_a_word_lost() {
    local later=$package_work/later
    rm -rf "$later"
    dpkg-deb -R "$(package_deb velmora-target)" "$later"
    sed -i -E 's/^Version: .*/&.1/' "$later/DEBIAN/control"
    dpkg-deb --root-owner-group -Zgzip -z1 --build "$later" "$package_work/later.deb" || return 1
    set_packaged 'VELMORA_NAME="My words"'
    as_root touch "$package_root/tmp/velmora/is-active"
    forget_calls
    dpkg_in_root -i "$(in_root_place "$package_work/later.deb")" || return 1
    contains "$package_root/etc/default/velmora-target" 'VELMORA_NAME="My words"' &&
        same "daemon-reload
restart velmora-target.service" "$(systemctl_calls)" || return 1
    # What was switched off stays off.
    as_root rm "$package_root/etc/systemd/system/multi-user.target.wants/velmora-target.service"
    dpkg_in_root -i "$(in_root_place "$package_work/later.deb")" &&
        [ ! -e "$package_root/etc/systemd/system/multi-user.target.wants/velmora-target.service" ] &&
        [ ! -L "$package_root/etc/systemd/system/multi-user.target.wants/velmora-target.service" ]
}

case_leaves_settings_when_it_is_removed() {
    forget_calls
    dpkg_in_root --remove velmora-target || return 1
    same "stop velmora-target.service
daemon-reload" "$(systemctl_calls)" &&
        contains "$package_root/etc/default/velmora-target" 'VELMORA_NAME="My words"' &&
        [ ! -e "$package_root/usr/bin/velmora-target" ] && [ ! -e "$package_root/lib/systemd/system/velmora-target.service" ]
}

case_leaves_nothing_when_it_is_purged() {
    as_root install -d -m 700 "$package_root/var/lib/private/velmora-target"
    as_root ln -sfn private/velmora-target "$package_root/var/lib/velmora-target"
    echo kept | as_root tee "$package_root/var/lib/private/velmora-target/target.inf" >/dev/null
    dpkg_in_root --purge velmora-target velmora-tools || return 1
    as_root rm -rf "$package_root/run/systemd" "$package_root/tmp/velmora"
    # What this suite brought itself.
    nothing "$(changed_files | grep -vxE 'usr/bin/systemctl(\.real)?|var/lib/private/|run/systemd.*')"
}

suite_package-e2e() {
    need_packages "${package_e2e_packages[@]}"
    . scripts/package.sh
    local name words log passed=0 failed=0
    # shellcheck disable=SC2046 # words of a table
    build_preset release $(for name in $(debian_names); do debian_programs "$name"; done)
    rm -rf "$package_work/made" "$package_work/cases" "$package_work/unpacked"
    mkdir -p "$package_made" "$package_work/cases" "$package_work/unpacked"
    need_namespaces
    need_package_roots
    # In a shell of its own: what is settled for packing is not for the suites that follow.
    local result
    result=$(
        settle_surroundings
        {
            package_debian "$package_made"
            finish_package "$package_made"
            for name in $(debian_names); do dpkg-deb -R "$(package_deb "$name")" "$(unpacked "$name")"; done
        } >&2
        while read -r name; do
            words=${name// /_}
            log=$package_work/cases/$words.log
            if "case_$words" >"$log" 2>&1 </dev/null; then passed=$((passed + 1)); else
                failed=$((failed + 1))
                say "  package $name: failed; see ${log#"$root"/}" >&2
                tail -n 12 "$log" >&2
            fi
        done < <(grep -vE '^ *$' <<<"$package_cases")
        stop_packaged_target
        printf '%s %s' $passed $failed
    )
    end_package_e2e
    drop_namespaces
    # shellcheck disable=SC2086 # two numbers
    count package-e2e ${result:-0 1}
}
