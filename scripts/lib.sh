# Functions shared by the scripts, which source this file.
# shellcheck shell=bash
set -euo pipefail

# shellcheck disable=SC2034 # used by the scripts
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
# shellcheck disable=SC2034 # used by the scripts
program=$root/build/program/quarnex

say() { printf '== %s\n' "$*"; }

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# quietly LOG COMMAND...: runs a command with its output in LOG; on failure prints the end of LOG and exits.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 && return
    tail -n 60 "$log" >&2
    fail "failed: $* (full output in $log)"
}

# need_packages PACKAGE...: installs the Debian packages that are missing.
need_packages() {
    local package missing=() as_root=()
    if ! command -v dpkg-query >/dev/null; then
        say "not a Debian system; make sure that these are installed: $*"
        return
    fi
    for package in "$@"; do
        dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q ' installed$' ||
            missing+=("$package")
    done
    ((${#missing[@]} != 0)) || return 0
    say "installing ${missing[*]}"
    ((EUID == 0)) || as_root=(sudo)
    quietly "$root/build/logs/apt-update" "${as_root[@]}" apt-get update
    quietly "$root/build/logs/apt-install" "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}

# debian_archive: prints the URL of the archive that this system's packages come from.
debian_archive() {
    local address
    address=$(sed -nE '/^(URIs:|deb([ \t]+\[[^]]*\])?)[ \t]+([a-z+]+:\/[^ \t]+).*/ { s//\3/p; q }' \
        /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list 2>/dev/null) || true # one of the two is missing
    echo "${address:-http://deb.debian.org/debian}"
}

# own_apt DIRECTORY TYPE [OPTION...]: sets the array `apt` to an apt-get command for packages (TYPE deb)
# or sources (deb-src) that keeps its lists and downloads in DIRECTORY, considers nothing installed and
# doesn't touch the system's configuration.  It uses only the base release, without the updates and
# security suites, which can have different versions for different architectures for a while.
own_apt() {
    local own=$1 type=$2 suite
    shift 2
    # shellcheck source=/dev/null
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mkdir -p "$own"/{lists/partial,archives/partial,parts}
    : >"$own/status"
    printf '%s\n' "Types: $type" "URIs: $(debian_archive)" "Suites: $suite" 'Components: main' \
        'Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg' >"$own/parts/debian.sources"
    apt=(apt-get "$@" -o "Dir::State::lists=$own/lists" -o "Dir::State::status=$own/status"
         -o "Dir::Cache=$own" -o "Dir::Etc::sourceparts=$own/parts" -o Dir::Etc::sourcelist=/dev/null
         -o APT::Sandbox::User=)
    quietly "$root/build/logs/apt-$type-update" "${apt[@]}" update
}

# The library that computes checksums on this machine: packages to run and to build with
case $(dpkg --print-architecture 2>/dev/null) in
amd64 | arm64) checksum_packages=(libisal2 libisal-dev) ;;
*) checksum_packages=(libdeflate0 libdeflate-dev) ;;
esac
build_packages=(g++ cmake ninja-build libcli11-dev libdivsufsort-dev nlohmann-json3-dev "${checksum_packages[@]}")
clang_packages=("${build_packages[@]}" clang clang-format clang-tidy libclang-rt-dev)
# What the benchmarks are linked with
bench_packages=(libbenchmark-dev libbrotli-dev libbz2-dev liblz4-dev liblzma-dev zlib1g-dev libzstd-dev)
# shellcheck disable=SC2034 # used by the scripts
test_packages=("${clang_packages[@]}" "${bench_packages[@]}" python3 libgtest-dev libxxhash-dev
               python3-dask python3-distributed python3-fsspec python3-matplotlib python3-numpy python3-pandas
               python3-jsonschema file git jq parallel strace xz-utils zstd)

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    say "building preset '$preset'${*:+: $*}"
    quietly "$root/build/logs/$preset-configure" cmake -S "$root" --preset "$preset"
    quietly "$root/build/logs/$preset-build" \
        cmake --build "$root/build/$preset" -j "$jobs" --target "${@:-all}"
}

# The presets for other systems, and what compilers call those
# shellcheck disable=SC2034 # used by the scripts
declare -A triples=(
    [windows64]=x86_64-w64-mingw32
    [windows32]=i686-w64-mingw32
    [linux32]=i686-linux-gnu
)

# end_wine: stops the Wine server, if one was started.
wineserver=
end_wine() { [[ -z $wineserver ]] || "$wineserver" -k || true; } # fails if no server runs

# prepare_wine PRESET: sets `wine` to the command that runs programs of a preset, none for linux32.  Installs
# that Wine, gives it a separate configuration and starts a persistent server: a program that starts while a
# server shuts down would crash.
prepare_wine() {
    wine=
    export WINEPREFIX=$root/build/wine64 WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml='
    case $1 in
    windows64)
        need_packages wine wine64
        wine=wine
        mkdir -p "$WINEPREFIX"
        ;;
    windows32)
        wine=$root/build/deps/wine32/wine
        [[ -x ${wine}server ]] || "$root/scripts/get_wine32"
        ;;
    *) return ;;
    esac
    wineserver=${wine}server
    end_wine # left over from a killed run
    quietly "$root/build/logs/$1-wineserver" "$wineserver" -p
    quietly "$root/build/logs/$1-wine" "$wine" cmd /c ver # creates the configuration
}

# run_tests PRESET [CTEST_ARGUMENT...]: runs the tests of a preset that was built before.
run_tests() {
    local preset=$1 log=$root/build/logs/$1-test
    shift
    say "testing preset '$preset'"
    # Without ASLR: some kernels randomize addresses beyond what sanitizers support.
    local no_aslr=()
    if setarch "$(uname -m)" -R true 2>/dev/null; then no_aslr=(setarch "$(uname -m)" -R); fi
    "${no_aslr[@]}" ctest --test-dir "$root/build/$preset" -j "$jobs" --output-on-failure \
        --no-tests=error "$@" >"$log" 2>&1 || {
        grep -v -E '^ +Start | Passed ' "$log" >&2
        fail "tests of preset '$preset' failed (the log is $log)"
    }
    sed -n '/tests passed/,$p' "$log"
}

check_format() {
    say "checking the format of all sources"
    find "$root"/{include,src,examples,tests,fuzz,bench} \( -name "*.[ch]" -o -name "*.cpp" \) -print0 |
        xargs -0 clang-format --dry-run --Werror || fail "run clang-format -i on these files"
}

check_words() {
    say "checking the words of sources and pages"
    python3 "$root/scripts/check_words" "$root" || fail "say these in plainer words"
}

# refuse_partial CSV_FILE OPTIONS: fails if the file is in docs/results/, whose tables hold full runs only.
refuse_partial() {
    [[ $(dirname "$(realpath -m "$1")") != "$(realpath "$root")/docs/results" ]] ||
        fail "$1 is for full runs: with $2, --csv needs a file elsewhere"
}

# at_exit FUNCTION: registers a function to run when the script exits, before those registered earlier.
at_exit() {
    at_exit="$1; ${at_exit-}"
    trap 'eval "$at_exit"' EXIT
}

remove_work_dir() { rm -rf "$work"; }

# make_work_dir: sets `work` to a new temporary directory, RAM-backed if possible, removed at exit.
make_work_dir() {
    local place=${TMPDIR:-/tmp}
    if [[ -d /dev/shm && -w /dev/shm ]]; then place=/dev/shm; fi
    work=$(mktemp -d "$place/quarnex-XXXXXX")
    at_exit remove_work_dir
}

# collect_files DIRECTORY: copies about 40 MB of files of several kinds into a flat directory.
collect_files() {
    local dest=$1 file size left=20000000
    mkdir -p "$dest"
    cp -L /usr/share/common-licenses/* "$dest"
    while IFS= read -r file; do cp "$root/$file" "$dest/${file//\//_}"; done \
        < <(cd "$root" && find src tests fuzz scripts -type f)
    tar -C /usr/include -cf "$dest/headers.tar" c++
    while read -r size file; do # the largest programs that fit into 20 MB
        if ((size <= left)); then
            cp "$file" "$dest"
            left=$((left - size))
        fi
    done < <(find /usr/bin -xdev -type f -readable -printf '%s %p\n' | sort -rn | head -n 200)
}
