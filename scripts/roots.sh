# Clean Debian roots: small systems in a folder, for builds and tests that must not see what is
# installed here. Sourced after lib.sh, not run.

# Where roots are kept from one run to the next.
roots=${FRAMEWELL_MATRIX_DIR:-${TMPDIR:-/tmp}/framewell-matrix}

# Says what keeps roots from being made here; says nothing if nothing does.
no_roots_because() {
    local tool
    [ "$(id -u)" = 0 ] || { echo "only the root user can make a Debian root"; return; }
    for tool in debootstrap unshare flock chroot apt-get; do
        command -v "$tool" >/dev/null || { echo "$tool is not installed"; return; }
    done
    [ -n "$(apt_repository Debian)" ] || echo "apt has no index of Debian here: apt-get update"
}

# apt_repository LABEL: the address that this machine's apt has for it ("Debian", "Debian-Security").
apt_repository() {
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' \
        "Label: $1" 2>/dev/null | sort -u | head -n 1
}

# make_root SUITE ROOT [PACKAGE...]: leaves a minimal system of that suite with these packages in
# ROOT, or nothing at all. One that is there already is taken if it was made with the same words.
# Whoever comes second waits for the first.
make_root() {
    local suite=$1 folder=$2 recipe="$*" reason
    shift 2
    mkdir -p "$(dirname "$folder")"
    (
        flock 9
        [ "$(cat "$folder.recipe" 2>/dev/null)" != "$recipe" ] || exit 0
        reason=$(no_roots_because)
        [ -z "$reason" ] || die "$reason"
        say "making a clean $suite in $folder ..."
        rm -rf --one-file-system "$folder" "$folder.new" "$folder.recipe"
        fill_root "$suite" "$folder.new" "$@" >"$folder.log" 2>&1 || {
            tail -n 20 "$folder.log" >&2
            die "no root of $suite could be made; the whole log: $folder.log"
        }
        mv "$folder.new" "$folder"
        printf '%s\n' "$recipe" >"$folder.recipe"
    ) 9>"$folder.lock"
}

# fill_root SUITE ROOT [PACKAGE...]: the work of make_root.
fill_root() {
    local suite=$1 folder=$2 mirror security
    shift 2
    mirror=$(apt_repository Debian)
    security=$(apt_repository Debian-Security)
    debootstrap --variant=minbase --keyring=/usr/share/keyrings/debian-archive-keyring.gpg \
        "$suite" "$folder" "$mirror" || return
    {
        echo "deb $mirror $suite main"
        echo "deb $mirror $suite-updates main"
        [ -z "$security" ] || echo "deb $security $suite-security main"
    } >"$folder/etc/apt/sources.list"
    # The way to the mirror that works here (a proxy, a certificate) is the way from there, too.
    apt-config dump Acquire >"$folder/etc/apt/apt.conf.d/10acquire"
    # Archives are kept where a folder of the outside may be bound: apt fetches them once.
    cat >"$folder/etc/apt/apt.conf.d/20small" <<'CONF'
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Binary::apt-get::APT::Keep-Downloaded-Packages "true";
Acquire::Languages "none";
Dpkg::Options { "--force-unsafe-io"; };
CONF
    cp /etc/resolv.conf /etc/hosts "$folder/etc/"
    # A package's start of a service would start it here.
    printf '#!/bin/sh\nexit 101\n' >"$folder/usr/sbin/policy-rc.d"
    chmod 755 "$folder/usr/sbin/policy-rc.d"
    in_root "$folder" 'apt-get -q update' || return
    [ $# = 0 ] || in_root "$folder" 'apt-get -q install -y "$@"' "$@" || return
}

# in_root [--offline] ROOT SCRIPT [ARGUMENT...]: runs the text SCRIPT with bash in ROOT, with mounts and
# processes of its own that end with it. --offline: without a network. The script's input comes from
# nowhere, and of this machine's environment it sees nothing but the words of root_environment.
# root_binds: words "FOLDER:PLACE" or "FOLDER:PLACE:ro": a folder of the outside and where it is to be seen
# inside meanwhile, to be read only with the third.
root_binds=()
root_environment=()
in_root() {
    local network=()
    if [ "$1" = --offline ]; then
        network=(--net)
        shift
    fi
    # shellcheck disable=SC2016  # expanded in the namespace
    unshare --mount --pid --fork --kill-child "${network[@]}" bash -c '
        set -euo pipefail
        root=$1 nb_binds=$2
        shift 2
        mount --make-rprivate /
        mount -t proc proc "$root/proc"
        mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
        mount -t devpts -o newinstance devpts "$root/dev/pts"
        for bind in "${@:1:nb_binds}"; do
            IFS=: read -r folder place access <<<"$bind"
            mkdir -p "$folder" "$root$place"
            mount --bind "$folder" "$root$place"
            [ "$access" != ro ] || mount -o remount,bind,ro "$root$place"
        done
        shift "$nb_binds"
        exec chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"
    ' in_root "$1" "${#root_binds[@]}" "${root_binds[@]}" LANG=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive JOBS="$jobs" "${root_environment[@]}" \
        /bin/bash -euo pipefail -c "$2" in_root "${@:3}" </dev/null
}
