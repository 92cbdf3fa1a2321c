# SPDX-License-Identifier: ISC
# Helpers of the guest that no real router has: the event channel to the host.
# shellcheck shell=sh

# emit SOURCE TEXT: one line on the host's event channel, stamped with the guest's own clock, which
# the scenarios never move.
emit() {
    read -r emit_now _ </proc/uptime
    printf '%s\t%s\t%s\n' "$emit_now" "$1" "$2" >/run/events
}

# emit_lines SOURCE: the same for each line of the standard input.
emit_lines() {
    while IFS= read -r emit_line; do
        emit "$1" "$emit_line"
    done
}

# wait_until SECONDS COMMAND...: repeats the command until it succeeds; fails after the time.
wait_until() {
    wait_tries=$(($1 * 10))
    shift
    while ! "$@" >/dev/null 2>&1; do
        wait_tries=$((wait_tries - 1))
        [ "$wait_tries" -gt 0 ] || return 1
        sleep 0.1
    done
}

# kernel_parameter NAME: the value of a NAME=VALUE word of the kernel's command line.
kernel_parameter() {
    tr ' ' '\n' </proc/cmdline | sed -n "s/^$1=//p"
}

# channel_device NAME: the device of the host's channel of that name.
channel_device() {
    for port in /sys/class/virtio-ports/*; do
        [ "$(cat "$port/name")" != "$1" ] || echo "/dev/${port##*/}"
    done
}

# quoted WORD...: the words as a person would type them at a shell.
quoted() {
    quoted_line=
    for word in "$@"; do
        case $word in
        '' | *[!A-Za-z0-9_./:=@%+,-]*)
            word="'$(printf '%s' "$word" | sed "s/'/'\\\\''/g")'"
            ;;
        esac
        quoted_line="$quoted_line${quoted_line:+ }$word"
    done
    printf '%s' "$quoted_line"
}

# rest_on RADIO FREQUENCY: the channel of a radio of which no interface is up. It is the first that the
# radio knows, 2412, and on the way to a scan and back the radio hears who is there, whatever is scanned.
rest_on() {
    iw phy "$1" interface add rest type monitor
    ip link set rest up
    iw dev rest set freq "$2"
    iw dev rest del
}
