# shellcheck shell=bash
# Shared by ./run, ./check and bench/run: where things are, what they say, and
# how they install what is missing. Sourced, never run.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
# One cache for every clone of the project.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1

# A line a stage: what is being done, and how far we are.
stage() { printf '%s: [%s] %s\n' "$program" "$1" "$2"; }
fail() { printf '%s: %s\n' "$program" "$1" >&2; exit "${2:-1}"; }

# What a build of the server needs.
build_packages=(
    ca-certificates g++ cmake ninja-build ccache mold pkg-config
    libboost1.81-dev libboost-thread1.81-dev libboost-log1.81-dev libboost-filesystem1.81-dev
    libboost-system1.81-dev libboost-chrono1.81-dev libboost-regex1.81-dev
    libtbb-dev libsimdjson-dev libzip-dev zlib1g-dev libssl-dev libcli11-dev libtomlplusplus-dev
    libfast-float-dev python3 python3-dev python3-numpy python3-matplotlib pybind11-dev
)
# What the tests need beyond that; chromium runs the console, the fonts are what
# it draws text with.
check_packages=(
    git libgtest-dev libgmock-dev clang-format-19 clang-tidy-19 python3-pytest python3-pandas
    chromium fonts-dejavu-core
)
# What bench/run compares us with.
bench_packages=(
    libbenchmark-dev nlohmann-json3-dev rapidjson-dev libboost-json1.81-dev
    jupyter-server python3-debugpy python3-ipykernel chromium
)

as_root() {
    if ((EUID == 0)); then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "need root to install packages: run as root, or install sudo, or install these yourself: ${missing[*]}"
    fi
}

# install_packages STAGE PACKAGE...: installs those that are not there yet.
install_packages() {
    local step=$1 package
    shift
    [[ -r /etc/debian_version ]] || fail "packages are installed with Debian's apt-get; this is no Debian"
    missing=()
    local -A installed=()
    while read -r package; do
        installed[$package]=1
    done < <(dpkg-query -W -f '${Package} ${db:Status-Status}\n' 2>/dev/null | sed -n 's/ installed$//p')
    for package; do
        [[ ${installed[$package]-} ]] || missing+=("$package")
    done
    # Any Node.js from 18.20 on will do, whoever installed it.
    command -v node >/dev/null || missing+=(nodejs)
    command -v npm >/dev/null || missing+=(npm)
    if ((${#missing[@]} == 0)); then
        stage "$step" "packages: nothing is missing"
        return
    fi
    stage "$step" "packages: installing ${#missing[@]} (${missing[*]})"
    local log=$root/build/apt.log
    mkdir -p "$root/build"
    {
        as_root env DEBIAN_FRONTEND=noninteractive apt-get update &&
            as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
    } >"$log" 2>&1 || {
        tail -n 20 "$log" >&2
        fail "apt-get could not install the packages; the whole output is in build/apt.log"
    }
}

# configure_and_build STAGE PRESET [CMAKE ARGUMENT]... -- [TARGET]...
configure_and_build() {
    local step=$1 preset=$2 arguments=()
    shift 2
    while [[ ${1---} != -- ]]; do
        arguments+=("$1")
        shift
    done
    (($# == 0)) || shift
    local folder=$root/build/$preset log=$root/build/$preset.log
    mkdir -p "$folder"
    if [[ ! -e $folder/build.ninja ]]; then
        stage "$step" "configuring build/$preset"
        (cd "$root" && cmake --preset "$preset" "${arguments[@]}") >"$log" 2>&1 || {
            tail -n 30 "$log" >&2
            fail "cmake could not configure; the whole output is in build/$preset.log"
        }
    fi
    stage "$step" "building build/$preset"
    ninja -C "$folder" -j "$jobs" "$@" >"$log" 2>&1 || {
        grep -v '^\[[0-9]*/[0-9]*\] Building' "$log" | tail -n 40 >&2
        fail "the build failed; the whole output is in build/$preset.log"
    }
}

# fingerprint PATH...: changes when any file below the paths does.
fingerprint() {
    (cd "$root" && find "$@" -name node_modules -prune -o -name dist -prune -o -type f -print0 |
        LC_ALL=C sort -z | xargs -0 sha256sum | sha256sum | cut -d' ' -f1)
}

# unchanged NAME PATH...: whether the paths are as they were when done_with NAME
# was last called.
unchanged() {
    local name=$1
    shift
    [[ -e $root/build/$name.stamp && $(<"$root/build/$name.stamp") == "$(fingerprint "$@")" ]]
}
done_with() {
    local name=$1
    shift
    mkdir -p "$root/build"
    fingerprint "$@" >"$root/build/$name.stamp"
}

# in_log NAME COMMAND...: runs it in the project's root, its output in build/NAME.log, shown on failure.
in_log() {
    local name=$1
    shift
    mkdir -p "$root/build"
    (cd "$root" && "$@") >"$root/build/$name.log" 2>&1 || {
        tail -n 60 "$root/build/$name.log" >&2
        fail "failed: $*; the whole output is in build/$name.log"
    }
}

install_node_modules() {
    if [[ -d $root/node_modules ]] && unchanged npm package-lock.json; then
        stage "$1" "npm packages: nothing is missing"
    else
        stage "$1" "npm packages: installing"
        in_log npm npm ci --no-audit --no-fund
        done_with npm package-lock.json
    fi
}

build_console() {
    if [[ -e $root/build/console/index.html ]] && unchanged console package-lock.json client console; then
        stage "$1" "console: up to date"
    else
        stage "$1" "console: building the client and the page"
        in_log console npm run build
        done_with console package-lock.json client console
    fi
}
