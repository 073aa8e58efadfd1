# shellcheck shell=bash
# Sourced by the scripts beside it: goes to the repository's root and offers these functions.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# install_missing PACKAGE...: installs those that are not there yet, as root or through sudo. Where
# there is neither, it names them and stops.
install_missing() {
    local package missing=() as_root=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q ' installed$' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            printf '%s\n' "Packages are missing, and there is no sudo to install them. As root:" \
                "    apt-get install --no-install-recommends ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}"
    "${as_root[@]}" apt-get -q update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y --no-install-recommends install "${missing[@]}"
}

# build PRESET [TARGET...]: configures and builds into build/PRESET, with what that needs on Debian
# 12. The presets use Ninja; make is there for CMake projects that choose no generator.
build() {
    local preset=$1 packages
    packages=(g++ cmake make ninja-build pkg-config python3 libxxhash-dev libcli11-dev
        googletest libbenchmark-dev)
    case $preset in
        clang) packages+=(clang) ;;
        armv7*) packages+=(g++-arm-linux-gnueabihf libc6-dev-armhf-cross qemu-user) ;;
    esac
    install_missing "${packages[@]}"
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
