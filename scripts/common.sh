# shellcheck shell=bash
# Sourced by the scripts beside it: goes to the repository's root and offers these functions.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# install_missing PACKAGE...: installs those that are not there yet, as root or through sudo.
install_missing() {
    local package missing=() as_root=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q ' installed$' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "Installing ${missing[*]}"
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-get -q update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y --no-install-recommends install "${missing[@]}"
}

# build PRESET [TARGET...]: configures and builds into build/PRESET, with what that needs on Debian
# 12.
build() {
    install_missing g++ cmake ninja-build pkg-config libxxhash-dev googletest libbenchmark-dev
    case $1 in
        clang) install_missing clang ;;
        armv7*) install_missing g++-arm-linux-gnueabihf libc6-dev-armhf-cross qemu-user ;;
    esac
    local preset=$1
    shift
    cmake --preset "$preset"
    cmake --build --preset "$preset" --parallel "$(nproc)" --target "${@:-all}"
}

# emulator PRESET: what runs the preset's programs, one word a line; nothing for the machine's own.
emulator() {
    case $1 in
        armv7*) printf '%s\n' qemu-arm -cpu cortex-a9 -L /usr/arm-linux-gnueabihf ;;
    esac
}
