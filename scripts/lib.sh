# Shared by the scripts of this folder and by .ci/run. Sourced, not run.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '%s\n' "$*" >&2; }
die() { say "error: $*"; exit 1; }

jobs=${JOBS:-$(nproc)}

# Tests that need the shared collection of media files skip themselves without it.
if [ -z "${FRAMEWELL_SHARED_MEDIA:-}" ] && [ -d "$root/../shared/media" ]; then
    FRAMEWELL_SHARED_MEDIA=$(cd "$root/../shared/media" && pwd)
    export FRAMEWELL_SHARED_MEDIA
fi

# configure FOLDER CMAKE-ARGUMENT...: makes FOLDER ready to build framewell in.
configure() {
    local folder=$1
    shift
    local launcher=()
    if command -v ccache >/dev/null; then
        launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
        # Paths below the checkout are taken relative to the build, so that one clone's results
        # serve the next.
        export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$root}
    fi
    cmake -S "$root" -B "$folder" -G Ninja "${launcher[@]}" "$@"
}

# configure_and_build FOLDER CMAKE-ARGUMENT...: builds all of framewell into FOLDER.
configure_and_build() {
    configure "$@"
    cmake --build "$1" --parallel "$jobs"
}

# build_one FOLDER TARGET CMAKE-ARGUMENT...: builds one program of the tests into FOLDER, silently
# unless that fails.
build_one() {
    local folder=$1 target=$2 log
    shift 2
    log=$(mktemp)
    if ! { configure "$folder" -DFRAMEWELL_BUILD_BENCH=OFF -DFRAMEWELL_BUILD_TOOL=OFF \
               -DFRAMEWELL_BUILD_EXAMPLES=OFF "$@" &&
           cmake --build "$folder" --parallel "$jobs" --target "$target"; } >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        rm -f "$log"
        die "the build failed"
    fi
    rm -f "$log"
}

# run_tests FOLDER CTEST-ARGUMENT...: runs the tests of a build; fails if there are none.
run_tests() {
    local folder=$1
    shift
    # Not ctest --test-dir, which CMake has from 3.20 on.
    (cd "$folder" && ctest --output-on-failure --no-tests=error --parallel "$jobs" "$@")
}
