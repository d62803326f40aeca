# Shared by the scripts in scripts/: package installation and the CMake build.
# Source it from the repository root.

BUILD_PACKAGES=(cmake ninja-build g++ pkg-config qt6-base-dev libqt6svg6 libsecret-1-0 fonts-symbola libmariadb-dev qtkeychain-qt6-dev libssh-dev)
# What scripts/test-server needs for its database servers, certificates, sshd and agent.
SERVER_PACKAGES=(mariadb-server mariadb-client openssl openssh-server openssh-client)
TEST_PACKAGES=(clang-format-16 "${SERVER_PACKAGES[@]}" dbus gnome-keyring xvfb xauth xdotool weston qt6-wayland)
BENCH_PACKAGES=(libbenchmark-dev time)
# What scripts/package needs: dpkg-shlibdeps for the dependencies, fakeroot for root-owned files.
PACKAGE_PACKAGES=(dpkg-dev fakeroot file git)
# What scripts/test adds to check the package: lintian and the AppStream validator.
PACKAGE_CHECK_PACKAGES=(lintian appstream)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null 2>&1; then
        sudo "$@"
    else
        echo "Installing packages needs root: run as root or install sudo." >&2
        return 1
    fi
}

# Installs the named Debian packages that are missing; the package lists are only refreshed
# when something has to be installed.
ensure_packages() {
    local missing=()
    local package
    for package in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    echo "Installing: ${missing[*]}"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# configure_and_build DIR BUILD_TYPE [extra cmake arguments...] [-- targets...]
configure_and_build() {
    local dir=$1 type=$2
    shift 2
    local cmake_args=() targets=()
    while [ $# -gt 0 ] && [ "$1" != "--" ]; do
        cmake_args+=("$1")
        shift
    done
    [ $# -gt 0 ] && shift
    targets=("$@")
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" "${cmake_args[@]}" >/dev/null
    if [ ${#targets[@]} -gt 0 ]; then
        cmake --build "$dir" --target "${targets[@]}"
    else
        cmake --build "$dir"
    fi
}
