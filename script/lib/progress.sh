# shellcheck shell=sh
# SPDX-License-Identifier: ISC
# Shows how far a long command has come: on a terminal by one line that changes, in a pipe by a few
# lines.

# show_percent WHAT PERCENT: prints both. In a pipe it does so only at every 20 percent.
show_percent() {
    case $2 in '' | *[!0-9]*) return 0 ;; esac
    [ "$1" = "$shown" ] || next_shown=0
    shown=$1
    if [ -t 1 ]; then
        printf '\r  %-40s' "$1: $2 %"
    elif [ "$2" -ge "$next_shown" ]; then
        printf '  %s: %s %%\n' "$1" "$2"
    fi
    [ "$2" -lt "$next_shown" ] || next_shown=$(($2 / 20 * 20 + 20))
}

# progress LABEL LOG: reads a command's output. The percentage comes from apt's status lines and
# from the counters of make and ninja. All lines go to the log except apt's status lines.
progress() {
    shown='' next_shown=0
    while IFS= read -r line; do
        case $line in
        dlstatus:*:*:* | pmstatus:*:*:*)
            rest=${line#*:*:}
            rest=${rest%%:*}
            case $line in
            d*) show_percent downloading "${rest%%.*}" ;;
            *) show_percent installing "${rest%%.*}" ;;
            esac
            continue
            ;;
        '['*%']'*)
            rest=${line%%\%*}
            show_percent "$1" "${rest##*[[ ]}"
            ;;
        '['[0-9]*/[0-9]*']'*)
            rest=${line%%]*}
            rest=${rest#[}
            show_percent "$1" $((100 * ${rest%/*} / ${rest#*/}))
            ;;
        esac
        printf '%s\n' "$line" >>"$2"
    done
    [ -z "$shown" ] || [ ! -t 1 ] || echo
}

# with_progress LABEL LOG COMMAND ...: runs the command and returns its status. LOG gets its output
# and errors.
with_progress() {
    progress_label=$1 progress_log=$2
    shift 2
    : >"$progress_log"
    {
        progress_status=0
        "$@" 2>&1 || progress_status=$?
        echo "$progress_status" >"$progress_log.status"
    } | progress "$progress_label" "$progress_log"
    read -r progress_status <"$progress_log.status"
    rm -f "$progress_log.status"
    return "$progress_status"
}
