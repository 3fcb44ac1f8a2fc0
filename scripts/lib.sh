# What the scripts share.  Sourced by each of them, not run.
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

# quietly LOG COMMAND...: runs a command and shows what it says only if it fails.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 && return
    tail -n 60 "$log" >&2
    fail "this failed: $* (all it said is in $log)"
}

# need_packages PACKAGE...: installs the Debian packages that are missing.
need_packages() {
    local package missing=() as_root=()
    if ! command -v dpkg-query >/dev/null; then
        say "not a Debian system; these must be there: $*"
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

# debian_archive: the address of the archive that this system's packages come from.
debian_archive() {
    local address
    address=$(sed -nE '/^(URIs:|deb([ \t]+\[[^]]*\])?)[ \t]+([a-z+]+:\/[^ \t]+).*/ { s//\3/p; q }' \
        /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list 2>/dev/null) || true # one is missing
    echo "${address:-http://deb.debian.org/debian}"
}

# own_apt DIRECTORY TYPE [OPTION...]: sets `apt` to a command for packages (TYPE deb) or for sources
# (deb-src) that has its list of them and what it fetches in a directory, knows nothing as installed,
# and leaves the system's own settings as they are.  It knows the release as such, without the updates
# and the security archive: those at times have a package for some processors and not yet for others.
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

build_packages=(g++ cmake ninja-build libdivsufsort-dev)
clang_packages=("${build_packages[@]}" clang clang-format clang-tidy libclang-rt-dev)
# shellcheck disable=SC2034 # used by the scripts
test_packages=("${clang_packages[@]}" python3 libgtest-dev libxxhash-dev libbenchmark-dev liblz4-dev liblzma-dev
               zlib1g-dev libzstd-dev)

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    say "building preset '$preset'${*:+: $*}"
    quietly "$root/build/logs/$preset-configure" cmake -S "$root" --preset "$preset"
    quietly "$root/build/logs/$preset-build" \
        cmake --build "$root/build/$preset" -j "$jobs" --target "${@:-all}"
}

# run_tests PRESET [CTEST_ARGUMENT...]: runs the tests of a preset that is built.
run_tests() {
    local preset=$1 log=$root/build/logs/$1-test
    shift
    say "testing preset '$preset'"
    # Sanitizers need their usual places in memory; some kernels move things too far.
    local steady=()
    if setarch "$(uname -m)" -R true 2>/dev/null; then steady=(setarch "$(uname -m)" -R); fi
    "${steady[@]}" ctest --test-dir "$root/build/$preset" -j "$jobs" --output-on-failure \
        --no-tests=error "$@" >"$log" 2>&1 || {
        grep -v -E '^ +Start | Passed ' "$log" >&2
        fail "tests of preset '$preset' failed (the log is $log)"
    }
    sed -n '/tests passed/,$p' "$log"
}

check_format() {
    say "checking the format of all sources"
    find "$root"/{src,tests,fuzz,bench} \( -name '*.h' -o -name '*.cpp' \) -print0 |
        xargs -0 clang-format --dry-run --Werror || fail "clang-format -i puts that right"
}

check_words() {
    say "checking the words of sources and pages"
    python3 "$root/scripts/check_words" "$root" || fail "say these in plainer words"
}

# at_exit FUNCTION: has a function run when the script ends, before those that were asked for earlier.
at_exit() {
    at_exit="$1; ${at_exit-}"
    trap 'eval "$at_exit"' EXIT
}

remove_work_dir() { rm -rf "$work"; }

# make_work_dir: sets `work` to a new directory, in memory where possible, that goes at the end.
make_work_dir() {
    local place=${TMPDIR:-/tmp}
    if [[ -d /dev/shm && -w /dev/shm ]]; then place=/dev/shm; fi
    work=$(mktemp -d "$place/quarnex-XXXXXX")
    at_exit remove_work_dir
}

# collect_files DIRECTORY: copies files of several kinds, some 40 MB, into a flat directory.
collect_files() {
    local to=$1 file size left=20000000
    mkdir -p "$to"
    cp -L /usr/share/common-licenses/* "$to"
    while IFS= read -r file; do cp "$root/$file" "$to/${file//\//_}"; done \
        < <(cd "$root" && find src tests fuzz scripts -type f)
    tar -C /usr/include -cf "$to/headers.tar" c++
    while read -r size file; do # the largest programs that fit
        if ((size <= left)); then
            cp "$file" "$to"
            left=$((left - size))
        fi
    done < <(find /usr/bin -xdev -type f -readable -printf '%s %p\n' | sort -rn | head -n 200)
}
