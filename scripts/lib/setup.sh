# shellcheck shell=bash disable=SC2034 # its variables are for others
# Shared by the scripts of this folder: the repository's path, and the Debian packages that its
# builds need. Source it; it only defines functions and variables.

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# What every build needs: compiler and build tools, the library's dependencies, and what the sandbox
# runs.
build_packages=(
    g++ cmake ninja-build pkg-config
    libjson-c-dev libpaho-mqtt-dev libssl-dev cyclonedds-dev
    libubootenv-tool util-linux
)

# What the tests and the demo start in addition.
test_packages=(
    libgtest-dev libgmock-dev clang libclang-rt-14-dev
    mosquitto mosquitto-clients openssl e2fsprogs procps sysvinit-utils
)

say() { printf '%s\n' "$*"; }
die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# usage: prints the comment at the head of the script.
usage() { sed -n '2,/^[^#]/{s/^# \{0,1\}//p}' "$0"; }

# bad_usage MESSAGE: ends a script that was called with invalid arguments.
bad_usage() {
    printf '%s: %s\n\n' "${0##*/}" "$*" >&2
    usage >&2
    exit 2
}

# takes_no_arguments "$@": prints the usage and ends the script if there are arguments.
takes_no_arguments() {
    case ${1:-} in
    -h | --help)
        usage
        exit 0
        ;;
    esac
    [ $# -eq 0 ] || bad_usage "unknown argument '$1'"
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "this needs root rights or sudo: $*"
    fi
}

# install_missing PACKAGE...: installs the missing ones quietly. Does not use the network when none
# is missing.
install_missing() {
    local package missing=()
    for package in "$@"; do
        case $(dpkg-query -W -f '${Status}' "$package" 2>/dev/null) in
        "install ok installed") ;;
        *) missing+=("$package") ;;
        esac
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    command -v apt-get >/dev/null || die "please install by hand: ${missing[*]}"
    say "Installing: ${missing[*]}"
    local log
    log=$(mktemp)
    if ! { as_root apt-get update -qq &&
        as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } \
        >"$log" 2>&1 </dev/null; then
        cat "$log" >&2
        rm -f "$log"
        die "the packages could not be installed"
    fi
    rm -f "$log"
}

# with_private_tmp PRIVATE_MOUNTS COMMAND...: runs COMMAND with a private, empty /tmp, which is
# removed afterwards. The library has fixed paths there, and the user may have files of these names.
# PRIVATE_MOUNTS is the sandbox's helper of that name.
with_private_tmp() (
    namespaces=("$1")
    shift
    [ "$(id -u)" -eq 0 ] && "${namespaces[@]}" true 2>/dev/null ||
        namespaces=(unshare --user --map-root-user --mount --)
    "${namespaces[@]}" true 2>/dev/null ||
        die "this user may not make mount namespaces; run it as root"
    mkdir -p "$repo/build"
    own=$(mktemp -d "$repo/build/tmp-XXXXXX")
    trap 'rm -rf "$own"' EXIT
    chmod 1777 "$own"
    # A repository below /tmp stays reachable through a separate mount.
    "${namespaces[@]}" bash -euc '
        own=$1 repo=$2
        shift 2
        exec 9<"$repo"
        mount --bind "$own" /tmp
        case $repo in
        /tmp/*)
            mkdir -p "$repo"
            mount --no-canonicalize --bind /proc/self/fd/9 "$repo"
            ;;
        esac
        exec 9<&-
        cd "$PWD"
        exec "$@"' with_private_tmp "$own" "$repo" "$@"
)

# debian_mirror: prints the address of the mirror from which this machine installs packages of
# "main".
debian_mirror() {
    local release mirror
    release=$(. /etc/os-release && printf %s "${VERSION_CODENAME:?}")
    mirror=$(apt-get indextargets --format '$(RELEASE) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
        awk -v release="$release" '$1 == release && $2 == "main" { print $3; exit }')
    [ -n "$mirror" ] || die "no mirror of Debian $release is configured on this machine"
    printf '%s\n' "$mirror"
}

# left_out LIST...: prints one regular expression that matches all tests of the lists.
left_out() { grep -hv '^\(#\|$\)' "$@" | paste -sd '|'; }

# build PRESET [TARGET...]: configures and builds below build/PRESET, quietly unless something
# fails.
build() {
    local preset=$1
    shift
    local log="$repo/build/$preset.log"
    mkdir -p "$repo/build"
    say "Building (preset $preset)..."
    if ! { cd "$repo" && cmake --preset "$preset" && cmake --build "build/$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        die "the build failed; all of its output is in build/$preset.log"
    fi
}
