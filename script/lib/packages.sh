# shellcheck shell=sh
# SPDX-License-Identifier: ISC
# The Debian packages that each script needs. script/test installs the packages of all its stages
# before the first stage begins: stages run at the same time, and only one could install.

# packages_of USE ...: prints the names.
packages_of() {
    for use in "$@"; do
        case $use in
        build)
            echo g++ cmake make ninja-build ccache pkg-config libjson-c-dev libgtest-dev git \
                python3 python3-pytest python3-pytest-xdist procps psmisc util-linux busybox
            ;;
        lint) echo clang clang-tidy-14 clang-format-14 cppcheck shellcheck shfmt python3-flake8 ;;
        report) echo python3-jinja2 python3-selenium chromium chromium-driver ;;
        radio) echo qemu-system-x86 gcc libc6-dev python3-jinja2 ;;
        coverage) echo gcovr ;;
        fuzz) echo clang libclang-rt-14-dev llvm ;;
        bench) echo binutils valgrind libc6-dev ;;
        armhf) echo g++-arm-linux-gnueabihf qemu-user-static libc6-dev dpkg-dev ;;
        s390x) echo g++-s390x-linux-gnu qemu-user-static libc6-dev dpkg-dev ;;
        musl) echo musl-tools linux-libc-dev dpkg-dev binutils ;;
        mips) echo g++-mips-linux-gnu qemu-user-static libc6-dev dpkg-dev ;;
        esac
    done
}
