# shellcheck shell=sh
# SPDX-License-Identifier: ISC
# What the scripts share: their help, and a sentence for each thing that the system may lack, with
# the reason and the remedy. Before a script reads this file, it sets "self" to its own path, with
# links resolved.

# The script that the person called. If it runs another script, that one uses this name in its
# messages.
KELM_SCRIPT=${KELM_SCRIPT:-script/${self##*/}}
export KELM_SCRIPT

# tell TEXT: writes a line for the person, to the standard error.
tell() {
    printf '%s: %s\n' "$KELM_SCRIPT" "$1" >&2
}

# give_up TEXT: tells it and ends the script.
give_up() {
    tell "$1"
    exit 1
}

# wrong_use TEXT: tells it and ends the script with the status for a wrong call.
wrong_use() {
    printf 'script/%s: %s; see script/%s --help\n' "${self##*/}" "$1" "${self##*/}" >&2
    exit 2
}

# remove_at_end PATH: removes it when the script ends, and also at an interrupt. A trap on EXIT
# alone is not enough for that.
remove_at_end() {
    removed_at_end=$1
    trap 'rm -rf "$removed_at_end"' EXIT
    trap 'exit 130' INT
}

# Prints the comment at the head of the script.
show_help() {
    sed -e '1,2d' -e '/^[^#]/,$d' -e '/^$/,$d' -e '/^# shellcheck/d' -e 's/^# \{0,1\}//' "$self"
}

# help_asked WORD ...: prints the help and ends the script if one of the words asks for it.
help_asked() {
    for word in "$@"; do
        case $word in -h | --help) show_help && exit 0 ;; esac
    done
}

# Caches lie in the home folder. If HOME is not set, the user's entry in the system names it.
[ -n "${HOME-}" ] || HOME=$(getent passwd "$(id -u)" | cut -d: -f6) || true
export HOME="${HOME:-/}"

# Where the packages of the virtual router are kept.
guest_cache=${XDG_CACHE_HOME:-$HOME/.cache}/kelm/router

# can_write FOLDER: tells whether files can be made in it. Makes the folder if it is missing.
can_write() {
    mkdir -p "$1" 2>/dev/null && probe=$(mktemp "$1/.kelm.XXXXXX" 2>/dev/null) && rm -f "$probe"
}

# need_place BUILD: ends the script if the build folder BUILD cannot be written.
need_place() {
    if [ -d "$1" ]; then
        ! can_write "$1" || return 0
    else
        ! can_write "$(dirname "$1")" || return 0
    fi
    give_up "$(realpath -m "$1") cannot be written; build elsewhere: KELM_BUILD=/var/tmp/kelm-build $KELM_SCRIPT"
}

need_guest_cache() {
    can_write "$guest_cache" || give_up \
        "$guest_cache cannot be written; keep it elsewhere: XDG_CACHE_HOME=/var/tmp/kelm-cache $KELM_SCRIPT"
}

# need_room FOLDER MB: ends the script if there is less room.
need_room() {
    set -- "$1" "$2" "$(df -Pk "$1" | awk 'END { print int($4 / 1024) }')"
    [ "$3" -ge "$2" ] || give_up "$2 MB are needed in $(realpath "$1"), and $3 MB are free there; make room"
}

# The compiler's cache only saves time. If it cannot be written, every compilation would fail. So it
# is switched off then.
use_compiler_cache() {
    command -v ccache >/dev/null || return 0
    [ -z "${CCACHE_DISABLE-}" ] || return 0
    set -- "$(ccache --get-config cache_dir 2>/dev/null || true)"
    if [ -z "$1" ] || ! can_write "$1"; then
        tell "the compiler's cache '$1' cannot be written: building without it; CCACHE_DIR names another"
        export CCACHE_DISABLE=1
    fi
}

# The tests mount file systems and need more rights for that. The demo does not.
need_debian() {
    ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null || return 0
    rights="--privileged "
    case $KELM_SCRIPT in script/demo | script/bootstrap) rights="" ;; esac
    give_up "this is no Debian, apt-get or dpkg-query is missing; run it in one:
    docker run -it ${rights}-v '${self%/script/*}':/kelm -w /kelm debian:12 $KELM_SCRIPT"
}

# warn_other_release FILE: warns if this is not the release that all is tried on. FILE is the
# system's os-release.
warn_other_release() {
    # shellcheck disable=SC1090  # the system's
    set -- "$([ ! -r "$1" ] || . "$1"; echo "${ID:-unknown} ${VERSION_ID-}")"
    [ "$1" = "debian 12" ] || tell "this system is '$1', and all this is tried on 'debian 12' only; going on"
}

# apt_reason LOG: prints a sentence that tells why apt failed and what to do.
apt_reason() {
    log=$1
    # If something could not be fetched, that is the cause of the errors after it. Other warnings
    # cause no error.
    set -- "$(awk '
        /^[WE]: / {
            rank = /Failed to fetch/ ? 1 : /^E/ ? 2 : 3
            if (!best || rank < best) { best = rank; reason = $0 }
        }
        END { sub(/^[WE]: *(Failed to fetch [^ ]* *)?/, "", reason); print reason }' "$1")"
    case $1 in
    *resolv* | *onnect* | *unreachable* | *"timed out"*)
        set -- "$1" "check the network; behind a proxy set http_proxy" ;;
    *"not valid yet"* | *expired*) set -- "$1" "check the clock of this machine" ;;
    *lock*) set -- "$1" "wait until the other apt or dpkg has ended" ;;
    *"Unable to locate"* | *"no installation candidate"*)
        set -- "$1" "check that the network works and /etc/apt names Debian's 'main'" ;;
    *space*) set -- "$1" "make room" ;;
    *404*) set -- "$1" "check what /etc/apt names" ;;
    *)
        tail -n 15 "$log" >&2
        set -- "${1:-apt gave no reason}" "see its last lines above"
        ;;
    esac
    printf '%s; %s, then run it again\n' "${1%.}" "$2"
}
