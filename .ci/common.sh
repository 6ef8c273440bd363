# shellcheck shell=bash
# Functions that ./demo, ./check and other scripts source, with the repository's top as working
# directory.

fail() {
    echo "$(basename "$0"): $*" >&2
    exit 2
}

# Takes NAME:PACKAGE for each requirement, where NAME is a command or the path of a file. As root it
# installs the missing packages, otherwise it lists them and fails.
need() {
    local each what missing=()
    for each in "$@"; do
        what=${each%%:*}
        if [[ $what == */* ]]; then
            [[ -e $what ]] && continue
        else
            command -v "$what" >/dev/null && continue
        fi
        missing+=("${each#*:}")
    done
    ((${#missing[@]} > 0)) || return 0
    ((EUID == 0)) || fail "missing packages; as root: apt-get install ${missing[*]}"
    echo "Installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    { apt-get update -qq && apt-get install -qq -y --no-install-recommends "${missing[@]}"; } \
        </dev/null >/dev/null || fail "could not install ${missing[*]}"
}

# shellcheck disable=SC2034
readonly build_tools=(cmake:cmake ninja:ninja-build g++:g++ srec_cat:srecord objcopy:binutils
    /usr/include/nlohmann/json.hpp:nlohmann-json3-dev /usr/include/CLI/CLI.hpp:libcli11-dev)

# shellcheck disable=SC2034
readonly arm_tools=(arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf qemu-arm:qemu-user
    /usr/src/googletest/CMakeLists.txt:googletest)

# What makes the firmware page, and what its tests need, too.
# shellcheck disable=SC2034
readonly page_tools=(clang++:clang wasm-ld:lld esbuild:esbuild node:nodejs
    /usr/lib/wasm32-wasi/libc.a:wasi-libc /usr/lib/wasm32-wasi/libc++.a:libc++-dev-wasm32
    /var/lib/dpkg/info/libclang-rt-dev-wasm32.list:libclang-rt-dev-wasm32)
# shellcheck disable=SC2034
readonly page_test_tools=(npm:npm chromium:chromium)

# Installs the packages of npm that the tests of the page need, into build/npm.
install_page_modules() {
    local installed=build/npm/node_modules/.package-lock.json
    [[ $installed -nt page/package-lock.json ]] && return
    mkdir -p build/npm
    cp page/package.json page/package-lock.json build/npm
    (cd build/npm && npm ci --loglevel=error --ignore-scripts --no-audit --no-fund &&
        touch node_modules/.package-lock.json) ||
        fail "could not install the packages of npm"
}

# Takes PRESET [OPTION...] [TARGET...]. Configures the preset with the options of cmake and builds
# the targets, by default all. Shows the output only after a failure.
build() {
    local preset=$1 log=build/$1.log options=()
    shift
    while [[ ${1:-} == -* ]]; do
        options+=("$1")
        shift
    done
    mkdir -p build
    command -v ccache >/dev/null && options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    {
        cmake --preset "$preset" "${options[@]}" &&
            cmake --build --preset "$preset" -j "$(nproc)" ${1:+--target "$@"}
    } >"$log" 2>&1 || { cat "$log" >&2; fail "the $preset build failed"; }
}
