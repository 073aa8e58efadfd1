# Sourced by the scripts beside it: goes to the repository's root and offers two functions.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# What a build with tests and benchmarks needs on Debian 12.
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libxxhash-dev googletest libbenchmark-dev)

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

# build PRESET [TARGET]: configures and builds into build/PRESET.
build() {
    cmake --preset "$1"
    cmake --build --preset "$1" --parallel "$(nproc)" --target "${2:-all}"
}
