# shellcheck shell=bash
#
# Functions that the scripts of the top folder share. Each script sources this file after `set -euo pipefail`. Everything that the
# functions make is under build/: the build folders, the Wine prefix, the logs.
#
#   lock_checkout exclusive      waits until no other run uses this checkout
#   lock_checkout shared         waits until no exclusive run uses this checkout
#   need_packages NAME...    installs missing packages with apt
#   start_display            starts an X server of our own, so that no window appears on anybody's screen
#   prepare_prefix           makes the Wine prefix if needed, and starts its wineserver
#   choose_prefix            selects the prefix as it is
#   build_preset NAME [TARGET...]   configures if needed, builds all targets or these
#   use_build NAME           selects the build whose programs and software token are used
#   program NAME             prints the path of one of its programs
#   register_provider DIR    registers DIR/QueltaCSP.dll for CryptoAPI in the prefix
#
# Every process that these functions start ends with the script.

# Wine converts file names and arguments by the locale, and the scripts read English output of openssl and apt.
export LC_ALL=C.UTF-8

self=$(basename "$0")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
build=$root/build
logs=$build/logs
# shellcheck source=scripts/provider.sh
source "$root/scripts/provider.sh"
prefix=$build/wine-prefix

# shellcheck disable=SC2034
build_packages=(wine wine64 xvfb g++-mingw-w64-x86-64-posix mingw-w64-tools cmake ninja-build openssl nlohmann-json3-dev
    libcli11-dev libboost-dev)
# shellcheck disable=SC2034
release_packages=(zip unzip osslsigncode wixl msitools)
# shellcheck disable=SC2034
test_packages=(libgtest-dev googletest libgmock-dev clang libclang-rt-14-dev python3)
# clang-tidy 22 is the oldest version that skips the system's headers. Older versions take an hour.
# shellcheck disable=SC2034
lint_packages=(clang-format clang-tidy-22 shellcheck)

display_pid=
server_pid=
bin=

say() {
    printf '%s\n' "$*"
}

die() {
    printf '%s: %s\n' "$self" "$*" >&2
    exit 1
}

clean_up() {
    local status=$?
    trap '' INT TERM HUP
    stop_wineserver
    [[ -z $display_pid ]] || kill "$display_pid" 2>/dev/null || true
    exit "$status"
}

trap clean_up EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# Descriptor 9 holds the lock. No child may inherit it: a process that outlives the script would keep the lock.
lock_checkout() {
    mkdir -p "$logs" 2>/dev/null || true
    [[ -O $logs && -w $logs ]] ||
        die "$build is not yours to write: remove it, or run as the user who made it"
    exec 9>"$build/lock"
    flock "--$1" -n 9 && return
    say "Waiting until another run in this checkout has ended." >&2
    flock "--$1" 9
}

# quietly LOG COMMAND...: runs COMMAND with its output in LOG, and shows part of the log if COMMAND fails.
quietly() {
    local log=$logs/$1
    shift
    "$@" >"$log" 2>&1 </dev/null 9>&- && return
    show_failure "$log" >&2
    return 1
}

# Shows the first error of a compiler or of CMake, which is the cause; without one, the end of the log.
show_failure() {
    local found
    found=$(grep -n -m1 -E '^FAILED:|CMake Error' "$1" | cut -d: -f1)
    if [[ -n $found ]]; then
        tail -n "+$found" "$1" | head -n 40
    else
        tail -n 30 "$1"
    fi
}

need_packages() {
    local name missing=() as_root=()
    command -v dpkg-query >/dev/null || die "there is no apt here: run this on Debian 12, a container of it will do"
    for name in "$@"; do
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null) == installed ]] || missing+=("$name")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0

    say "Installing with apt: ${missing[*]}"
    if [[ $EUID -ne 0 ]]; then
        as_root=(sudo)
        [[ -t 0 ]] || as_root+=(-n)
        "${as_root[@]}" true 2>/dev/null ||
            die "that needs root: run \"apt-get install ${missing[*]}\" as root, then ./$self again"
    fi
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300)
    # A failed update does not matter if the old package lists are good enough. Only the installation decides.
    "${apt[@]}" update >"$logs/apt.log" 2>&1 </dev/null 9>&- || true
    "${apt[@]}" install --no-install-recommends "${missing[@]}" >>"$logs/apt.log" 2>&1 </dev/null 9>&- ||
        die "apt could not install ${missing[*]}: check the network, then run ./$self again (see build/logs/apt.log)"
}

# Xvfb, like the wineserver, ends even if the script is killed.
start_display() {
    local number channel
    exec {channel}< <(exec setpriv --pdeathsig TERM Xvfb -displayfd 1 -screen 0 1280x1024x24 -nolisten tcp \
        2>"$logs/xvfb.log" </dev/null 9>&-)
    display_pid=$!
    read -r -t 30 -u "$channel" number || die "Xvfb did not start: $(tail -n 1 "$logs/xvfb.log")"
    exec {channel}<&-
    export DISPLAY=:$number
}

# Starts one server for the whole run. Otherwise each of a few hundred test processes would boot Wine anew. A server that already
# serves the prefix belongs to another run and its display; it gets ten seconds to end by itself.
start_wineserver() {
    timeout --foreground 10 wineserver -w 9>&- ||
        die "something else is running in build/wine-prefix: end it (WINEPREFIX=\"$prefix\" wineserver -k), then run ./$self again"
    setpriv --pdeathsig INT wineserver -f -p >"$logs/wineserver.log" 2>&1 </dev/null 9>&- &
    server_pid=$!
}

stop_wineserver() {
    [[ -n $server_pid ]] || return 0
    if kill -0 "$server_pid" 2>/dev/null; then
        wineserver -k 9>&- || kill -9 "$server_pid" 2>/dev/null || true
    fi
    wait "$server_pid" 2>/dev/null || true
    server_pid=
}

# Prints what the prefix is made with. A prefix with another recipe is made again.
prefix_recipe() {
    printf '1 %s\n' "$(wine --version 9>&-)"
}

prefix_is_whole() {
    local file
    [[ -r $prefix/complete && $(<"$prefix/complete") == "$(prefix_recipe)" ]] || return 1
    for file in system.reg user.reg dosdevices/c: dosdevices/z: drive_c/windows/system32/{kernel32,crypt32,user32}.dll; do
        [[ -s $prefix/$file || -d $prefix/$file ]] || return 1
    done
}

prefix_answers() {
    quietly prefix.log timeout --foreground 180 wine reg query 'HKCU\Software\Wine\X11 Driver' /v Managed
}

make_prefix() {
    stop_wineserver
    rm -rf "$prefix"
    mkdir "$prefix"
    start_wineserver
    quietly prefix.log timeout --foreground 600 wineboot -i || return 1
    # There is no window manager. Unmanaged windows get the focus without one.
    quietly prefix.log wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /t REG_SZ /d N /f || return 1
    # This writes the registry to disk.
    stop_wineserver
    prefix_recipe >"$prefix/complete"
    start_wineserver
}

choose_prefix() {
    export WINEPREFIX=$prefix WINEARCH=win64 WINEDEBUG=-all
    # No .NET, no browser engine, and no menu entries in the user's desktop. No debugger either: Wine would start one when a
    # program crashes, and the debugger waits, so that the crash would look like a hang.
    export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe,winedbg.exe=d"
}

prepare_prefix() {
    choose_prefix
    if prefix_is_whole; then
        start_wineserver
        prefix_answers 2>/dev/null && return
    fi
    say "Making a Wine prefix in build/wine-prefix."
    make_prefix || die "Wine could not make its prefix: see build/logs/prefix.log, then run ./$self again"
    prefix_answers || die "Wine does not run in its new prefix: see build/logs/prefix.log"
}

build_preset() {
    local preset=$1 folder=$build/$1
    if needs_configuring "$folder"; then
        say "Building $preset; the first time takes some minutes."
        quietly "configure-$preset.log" cmake --fresh --preset "$preset" -S "$root" ||
            die "CMake could not configure $preset: see build/logs/configure-$preset.log"
    fi
    quietly "build-$preset.log" ninja -C "$folder" "${@:2}" || die "$preset does not build: see build/logs/build-$preset.log"
}

# CMake itself notices changes of its own files, but not of the presets, and not that the checkout has moved.
needs_configuring() {
    [[ ! -e $1/build.ninja || $root/CMakePresets.json -nt $1/CMakeCache.txt ]] ||
        ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$1/CMakeCache.txt"
}

# Prints the path in the form that programs under Wine use.
windows_path() {
    local path="Z:$1"
    printf '%s' "${path//\//\\}"
}

# The software token is in a folder of its own. The module finds that folder through WINEPATH.
use_build() {
    # shellcheck disable=SC2034
    bin=$build/$1/bin
    WINEPATH=$(windows_path "$build/$1/softtoken")
    export WINEPATH
}

program() {
    local folder
    for folder in "$bin" "$bin/../softtoken"; do
        [[ ! -e $folder/$1.exe ]] || printf '%s' "$folder/$1.exe"
    done
}

register_provider() {
    [[ -e $1/QueltaCSP.dll ]] || die "${1#"$root"/}/QueltaCSP.dll was not built"
    registration_of "$(windows_path "$1/QueltaCSP.dll")" >"$build/provider.reg"
    quietly register.log wine regedit /S "$(windows_path "$build/provider.reg")" ||
        die "the provider could not be registered: see build/logs/register.log"
}
