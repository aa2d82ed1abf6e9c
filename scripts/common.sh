# Shared by run-demo and run-tests: packages, building, plain messages. Sourced, not run.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

build_packages=(g++ cmake ninja-build pkg-config libswresample-dev libavutil-dev libsndfile1-dev
    libavcodec-dev libcairo2-dev libfftw3-dev libebur128-dev libcli11-dev nlohmann-json3-dev
    libcubeb-dev libdbus-1-dev)

# Headers of the sound libraries that programs bring along: compiled against, never linked.
build_packages+=(libasound2-dev libpulse-dev libsdl2-dev libjack-jackd2-dev libpipewire-0.3-dev)

# Sound servers that need no device. Left out: pipewire-alsa, which conflicts with pulseaudio.
server_packages=(pulseaudio pulseaudio-utils pipewire pipewire-bin pipewire-pulse pipewire-jack wireplumber
    dbus-daemon dbus-session-bus-common jackd2 libasound2-plugins)

# Programs nobody here wrote, one or more per sound library and kind of binding; a game needs a screen.
player_packages=(alsa-utils sox libsox-fmt-all mpv ffmpeg mpg123 sound-theme-freedesktop neverball xvfb xauth
    libsdl1.2-compat)

# The page of a report is looked at in a real browser.
test_packages=(chromium chromium-driver libgtest-dev libgmock-dev libavformat-dev valgrind python3 clang clang-format clang-tidy binutils
    "${server_packages[@]}" "${player_packages[@]}")

# The benchmark frame, and what the library is measured beside.
bench_packages=(libbenchmark-dev python3 libjack-jackd2-dev libboost-dev libreaderwriterqueue-dev
    libsamplerate0-dev libsdl2-dev libavfilter-dev gnuplot-nox "${server_packages[@]}")

say() { printf '%s\n' "$*"; }

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# Installs what is missing of the named Debian packages; silent when nothing is.
need_packages() {
    local missing=() package log
    for package in "$@"; do
        # shellcheck disable=SC2016 # dpkg-query expands it
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null ||
            die "these packages are missing and only root can install them: ${missing[*]}"
        as_root=(sudo)
    fi
    say "Installing: ${missing[*]}"
    log=$(mktemp)
    if ! { "${as_root[@]}" apt-get update -qq &&
        DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq \
            --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        die "could not install: ${missing[*]}"
    fi
    rm -f "$log"
}

# Configures a preset once and brings it up to date; the log is shown only when that fails.
# build_preset PRESET [TARGET ...]
build_preset() {
    local preset=$1 log=$root/build/$1.log
    shift
    mkdir -p "$root/build"
    if [ ! -f "$root/build/$preset/build.ninja" ]; then
        (cd "$root" && cmake --preset "$preset") >"$log" 2>&1 || {
            tail -n 40 "$log" >&2
            die "could not configure the $preset build (whole log: build/$preset.log)"
        }
    fi
    local targets=()
    [ $# -gt 0 ] && targets=(--target "$@")
    (cd "$root" && cmake --build --preset "$preset" "${targets[@]}") >"$log" 2>&1 || {
        grep -E -A12 'FAILED|error:' "$log" | head -n 60 >&2
        die "could not build $preset (whole log: build/$preset.log)"
    }
}
