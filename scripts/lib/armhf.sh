# What building and running for 32-bit ARM needs. Source it after setup.sh.

armhf_packages=(g++-arm-linux-gnueabihf qemu-user-static mmdebstrap)

# prepare_armhf: installs the cross compiler and the emulator, and makes the sysroot unless there is one.
prepare_armhf() {
    install_missing "${armhf_packages[@]}"
    "$repo/scripts/armhf-sysroot" >/dev/null || die "the sysroot could not be made"
}

# left_out_of_armhf: prints one regular expression that matches the tests which the emulated run leaves out.
left_out_of_armhf() {
    grep -v '^\(#\|$\)' "$repo/tests/armhf-left-out.txt" | paste -sd '|'
}
