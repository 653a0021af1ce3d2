# What building and running for 32-bit ARM needs. Source it after setup.sh.

armhf_packages=(g++-arm-linux-gnueabihf qemu-user-static mmdebstrap)

# prepare_armhf: installs the cross compiler and the emulator, and makes the sysroot unless there is one.
prepare_armhf() {
    install_missing "${armhf_packages[@]}"
    armhf_sysroot=$("$repo/scripts/armhf-sysroot") || die "the sysroot could not be made"
}

# executes_armhf: tells whether the kernel hands programs for ARM to the emulator, so that every program can execute them.
executes_armhf() {
    "$armhf_sysroot/lib/ld-linux-armhf.so.3" --version >/dev/null 2>&1
}

# register_emulator: tells the kernel to do so, until the machine starts again; at its start systemd does it. What the kernel
# is told comes with the emulator, whose file it then keeps open: no mount or change of root hides it from a test.
register_emulator() {
    local formats=/proc/sys/fs/binfmt_misc
    [ -e "$formats/register" ] || as_root mount -t binfmt_misc binfmt_misc "$formats"
    [ -e "$formats/qemu-arm" ] || grep '^:' /usr/lib/binfmt.d/qemu-arm.conf | as_root tee "$formats/register"
}

# left_out_of_armhf: prints one regular expression that matches the tests which the emulated run leaves out here.
left_out_of_armhf() {
    local lists=("$repo/tests/armhf-left-out.txt")
    executes_armhf || (register_emulator) >/dev/null 2>&1 || true
    if ! executes_armhf; then
        lists+=("$repo/tests/armhf-needs-binfmt.txt")
        say "The kernel here does not run programs for ARM, and cannot be told to (no binfmt_misc, or no right to it):" \
            "without the tests in tests/armhf-needs-binfmt.txt." >&2
    fi
    grep -hv '^\(#\|$\)' "${lists[@]}" | paste -sd '|'
}
