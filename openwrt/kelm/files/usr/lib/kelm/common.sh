# SPDX-License-Identifier: ISC
# What kelm's scripts share. For busybox ash: `. /usr/lib/kelm/common.sh`. A press waits until it is read, so what
# few need is in the files beside it.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# shellcheck disable=SC2034  # for those who source this
KELM=/usr/libexec/kelm
KELM_STATE=/var/run/kelm

# shellcheck source=doctor/lib/router.sh
. "$IPKG_INSTROOT/usr/lib/kelm/doctor/router.sh"

# say TEXT...: one line for the system log.
say() { logger -t kelm -p daemon.notice -- "$*"; }

# read_state FILE NAME: sets value to that of a name in a file of the state folder; status 1 if it is not there.
read_state() {
	local line
	value=''
	[ -f "$KELM_STATE/$1" ] || return 1
	while IFS= read -r line; do
		case $line in
		"$2="*)
			value=${line#*=}
			return 0
			;;
		esac
	done < "$KELM_STATE/$1"
	return 1
}

# state_of FILE NAME: prints it.
state_of() {
	local value
	read_state "$1" "$2" && printf '%s\n' "$value"
}

# clear_folder PATH: moves a folder away that bars the name of a file. Nothing is removed in it: it may be a
# stranger's, who could put a link there meanwhile.
clear_folder() {
	[ ! -d "$1" ] || [ -L "$1" ] || mv "$1" "$(mktemp -d "$1.XXXXXX")"
}

# write_file PATH MODE: the standard input becomes the file, whole or not at all. What waits under the name, a link, a
# FIFO or a folder, is replaced and not followed.
write_file() {
	local new
	clear_folder "$1"
	new=$(mktemp "$1.XXXXXX" 2> /dev/null) || return 1
	# mv takes a link to a folder for the folder.
	[ ! -L "$1" ] || rm -f "$1"
	if cat 2> /dev/null > "$new" && chmod "$2" "$new" && mv -fT "$new" "$1" 2> /dev/null; then
		return 0
	fi
	rm -f "$new"
	return 1
}

# write_state FILE: the same for a file of the state folder, which all may read.
write_state() {
	mkdir -p "$KELM_STATE" || return 1
	write_file "$KELM_STATE/$1" 0644
}

# set_state STATE MESSAGE: what the service does, and in words for a person.
set_state() { printf 'state=%s\nmessage=%s\n' "$1" "$2" | write_state state; }

# attempt_runs: status 0 while the daemon serves an attempt. A note of a daemon that was killed does not count.
attempt_runs() {
	local value pid
	read_state attempt running && [ "$value" = 1 ] && find_daemon
}

# note_link BAND IFNAME: writes down for the daemon whether the station has a link. It reads that at each press.
note_link() {
	local up=0
	case $(/usr/sbin/wpa_cli -p /var/run/wpa_supplicant -i "$2" status 2> /dev/null) in
	*wpa_state=COMPLETED*) up=1 ;;
	esac
	printf '{"status": %s}\n' "$up" | write_file "/tmp/wifi_runtime_info.$1" 0644
}
