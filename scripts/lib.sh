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

# configure_and_build FOLDER CMAKE-ARGUMENT...: builds all of framewell into FOLDER.
configure_and_build() {
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
    cmake --build "$folder" --parallel "$jobs"
}

# run_tests FOLDER CTEST-ARGUMENT...: runs the tests of a build; fails if there are none.
run_tests() {
    local folder=$1
    shift
    # Not ctest --test-dir, which CMake has from 3.20 on.
    (cd "$folder" && ctest --output-on-failure --no-tests=error --parallel "$jobs" "$@")
}
