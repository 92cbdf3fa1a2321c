# shellcheck shell=bash
# SPDX-License-Identifier: ISC
# What script/test and script/steady share: the suites, and that no process of theirs outlives them.
# The caller sets -euo pipefail and "self", is in the tree's root, has read script/lib/advice.sh, calls
# begin_run "$@" first, and sets "results", the folder for result files, before it calls a suite.
: "${self:?}"
results=

# What the names of the build folders begin with.
readonly builds_at=${KELM_BUILD:-build}

# Every process of a run carries this name in its environment. A process group would not do: the
# daemons under test lead sessions of their own.
readonly RUN_MARK=KELM_RUN_$$

on_exit() {
    env -u "$RUN_MARK" tests/end_marked "$RUN_MARK" $$ || echo "${self##*/}: not all processes ended" >&2
    rm -rf "$run_dir"
}

# on_signal NAME STATUS
on_signal() {
    trap '' INT TERM
    echo "${self##*/}: ended by $1" >&2
    exit "$2"
}

# Begins the script anew as a marked process, once; makes a folder "run_dir" that goes with it.
begin_run() {
    [ -n "${!RUN_MARK-}" ] || exec env "$RUN_MARK=1" /bin/bash "$self" "$@"
    # Not under /tmp, which the function tests replace by one of their own.
    run_dir=$(mktemp -d /var/tmp/kelm-test.XXXXXX)
    trap on_exit EXIT
    trap 'on_signal INT 130' INT
    trap 'on_signal TERM 143' TERM
}

# Runs a function or command and returns its status; a signal ends the wait at once. start_watched does
# not wait. In a group of its own, or the shell would have it ignore an interrupt, and the programs under test with it. Such
# a group may not read from the terminal: who did would be stopped for ever.
start_watched() {
    set -m
    "$@" </dev/null &
    set +m
}

run_watched() {
    start_watched "$@"
    wait $!
}

# Most suites mount; where that cannot be it is told once, not by each test.
need_world() {
    local why
    script/bootstrap python3
    why=$(/usr/bin/python3 tests/world/try_world.py) || give_up "$why"
}

# How many shards each unit test program has. Tests that wait for many seconds lie near each other. Of
# 4 shards of unit_tests, one would take 20 s; of 7, none takes more than 12.
readonly -A SHARDS=([unit/core_tests]=4 [unit/unit_tests]=7 [hostlibs/hostlibs_tests]=4)

# Once in a run, though several stages at once may ask for it.
build() {
    (
        flock 9
        [ ! -e "$run_dir/built-$1" ] || exit 0
        cmake --preset "$1" -G Ninja -B "$builds_at-$1" >"$results/configure-$1.log" || {
            cat "$results/configure-$1.log"
            exit 1
        }
        cmake --build "$builds_at-$1" || exit 1
        : >"$run_dir/built-$1"
    ) 9>"$run_dir/build-$1.lock"
}

# The tests wait more than they work, each process in a world of its own: all shards run at once.
unit() {
    local build=$builds_at-$1 failures=0 program shard shards name
    local -A running=()
    local programs="unit/core_tests unit/unit_tests"
    # Where OpenWrt's own libraries are installed there are no stand-ins to test.
    [ ! -d "$build/hostlibs" ] || programs="$programs hostlibs/hostlibs_tests"
    for program in $programs; do
        shards=${SHARDS[$program]}
        for ((shard = 0; shard < shards; ++shard)); do
            name=$1-${program##*/}-$shard
            GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$shard "$build/tests/$program" \
                --gtest_brief=1 --gtest_output="xml:$results/$name.xml" >"$results/$name.log" 2>&1 &
            running[$name]=$!
        done
    done
    for name in "${!running[@]}"; do
        wait "${running[$name]}" || {
            failures=1
            echo "== $name"
            cat "$results/$name.log"
        }
    done
    return "$failures"
}

attempt() {
    /usr/bin/python3 -m pytest -q -n 4 -p no:cacheprovider tests/attempt --build "$builds_at-$1" \
        --junitxml="$results/$1-attempt.xml"
}

watch() {
    /usr/bin/python3 -m pytest -q -n 4 -p no:cacheprovider tests/watch --build "$builds_at-$1" \
        --junitxml="$results/$1-watch.xml"
}

# A router with stock OpenWrt for each test, without a radio.
openwrt() {
    /usr/bin/python3 -m pytest -q -n 4 -p no:cacheprovider tests/openwrt --build "$builds_at-$1" \
        --junitxml="$results/$1-openwrt.xml"
}

# A router for each test, of a maker's or with stock OpenWrt, without a radio.
doctor() {
    /usr/bin/python3 -m pytest -q -n 4 -p no:cacheprovider tests/doctor --build "$builds_at-$1" \
        --junitxml="$results/$1-doctor.xml"
}

# Asks for sudo's password while the terminal can be read, and keeps sudo from forgetting it. Where
# that fails it is told by what needs it.
keep_sudo() {
    [ "$(id -u)" -ne 0 ] && command -v sudo >/dev/null && sudo env true || return 0
    while sleep 60; do
        sudo -n env true || break
    done >/dev/null 2>&1 &
}

# Processes of another user take part, which takes root.
attack() {
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "The attacks need root, to start processes of another user: run this as root or install sudo."
            return 1
        fi
        # sudo empties the environment; the marks, of a run within a run too, and the sanitizers' options are to
        # come along.
        local marks
        mapfile -t marks < <(compgen -e KELM_RUN_ | sed 's/$/=1/')
        as_root=(sudo -n env "${marks[@]}" PYTHONDONTWRITEBYTECODE=1
            "ASAN_OPTIONS=$ASAN_OPTIONS" "UBSAN_OPTIONS=$UBSAN_OPTIONS" "TSAN_OPTIONS=$TSAN_OPTIONS")
    fi
    # pytest fails where it finds no test, and says so at the end only.
    if ! compgen -G 'tests/attack/test_*.py' >/dev/null; then
        echo "There is no attack in tests/attack: nothing was tested."
        return 1
    fi
    "${as_root[@]}" /usr/bin/python3 -m pytest -q -n 4 -p no:cacheprovider tests/attack \
        --build "$builds_at-$1" --junitxml="$results/$1-attack.xml"
}

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
# The bus thread is never joined, and ends before the process does where there is no broker.
export TSAN_OPTIONS=${TSAN_OPTIONS:-report_thread_leaks=0}
