# shellcheck shell=bash
# Sourced by the scripts beside it: goes to the repository's root and offers two functions.
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

# build PRESET [TARGET]: configures and builds into build/PRESET, with what that needs on Debian 12.
build() {
    install_missing g++ cmake ninja-build pkg-config libxxhash-dev googletest libbenchmark-dev
    [ "$1" != clang ] || install_missing clang
    cmake --preset "$1"
    cmake --build --preset "$1" --parallel "$(nproc)" --target "${2:-all}"
}
