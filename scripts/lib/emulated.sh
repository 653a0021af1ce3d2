# shellcheck shell=bash disable=SC2154 # repo is setup.sh's
# Set-up for building for other machines and for running their programs by an emulator. Source it
# after setup.sh.
#
# An architecture has Debian's name here: armhf (32-bit ARM, hardware floating point) or arm64.

declare -A triplets=([armhf]=arm-linux-gnueabihf [arm64]=aarch64-linux-gnu)
declare -A emulators=([armhf]=qemu-arm [arm64]=qemu-aarch64)

# prepare_debian ARCHITECTURE: installs the cross compiler, and makes the sysroot unless it exists.
prepare_debian() {
    install_missing "g++-${triplets[$1]//_/-}" qemu-user-static mmdebstrap
    "$repo/scripts/debian-sysroot" "$1" >/dev/null || die "the sysroot could not be made"
}

# prepare_musl ARCHITECTURE PRESET: makes the sysroot unless it exists, and prints its path. Removes
# the build of PRESET if another sysroot was made since: Ninja does not notice the new compiler.
prepare_musl() {
    local sysroot build=$repo/build/$2
    sysroot=$("$repo/scripts/musl-sysroot" "$1") || die "the sysroot could not be made"
    if ! cmp -s "$sysroot/.made-from" "$build/.sysroot-made-from"; then
        rm -rf "$build"
        mkdir -p "$build"
        cp "$sysroot/.made-from" "$build/.sysroot-made-from"
    fi
    say "$sysroot"
}

# executes LOADER: returns whether the kernel passes programs like LOADER to the emulator, so that
# every program can execute them. LOADER is a sysroot's dynamic linker, which needs no other file.
executes() {
    local status=0
    "$1" --version >/dev/null 2>&1 || status=$?
    [ "$status" -lt 126 ] # musl's prints its version and returns 1
}

# register_emulator ARCHITECTURE: makes the kernel pass such programs to the emulator until the
# machine restarts. systemd does the same when the machine starts. The emulator's package provides
# the entry. The kernel keeps the emulator's file open, so no mount or change of root hides it from
# a test.
register_emulator() {
    local formats=/proc/sys/fs/binfmt_misc name=${emulators[$1]}
    [ -e "$formats/register" ] || as_root mount -t binfmt_misc binfmt_misc "$formats"
    [ -e "$formats/$name" ] || grep '^:' "/usr/lib/binfmt.d/$name.conf" | as_root tee "$formats/register"
}

# left_out_when_emulated ARCHITECTURE LOADER [LIST...]: prints one regular expression that matches
# the tests that the emulated run leaves out. These are the tests of the lists, and of one more list
# when the kernel does not execute LOADER.
left_out_when_emulated() {
    local architecture=$1 loader=$2 lists=("$repo/tests/emulated-left-out.txt" "${@:3}")
    executes "$loader" || (register_emulator "$architecture") >/dev/null 2>&1 || true
    if ! executes "$loader"; then
        lists+=("$repo/tests/emulated-needs-binfmt.txt")
        say "The kernel here does not run programs for $architecture and cannot be made to (no binfmt_misc, or no right to" \
            "it). The run leaves out the tests in tests/emulated-needs-binfmt.txt." >&2
    fi
    left_out "${lists[@]}"
}
