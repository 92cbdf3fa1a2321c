# SPDX-License-Identifier: ISC
# What kelm's scripts share. For busybox ash: `. /usr/lib/kelm/common.sh`. A press waits until it is read, so what
# few need is in the files beside it.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# shellcheck disable=SC2034  # for those who source this
KELM=/usr/libexec/kelm
KELM_STATE=/var/run/kelm
KELM_BANDS='2g 5g'

# say TEXT...: one line for the system log.
say() { logger -t kelm -p daemon.notice -- "$*"; }

# kelm_setting NAME [DEFAULT]: prints the option of /etc/config/kelm; the default where there is none.
kelm_setting() {
	local value
	value=$(uci -q get "kelm.main.$1") || value=
	printf '%s\n' "${value:-$2}"
}

# kelm_switch NAME [DEFAULT]: status 0 if the option is on.
kelm_switch() {
	local value
	value=$(uci -q get "kelm.main.$1") # not by kelm_setting: a press waits for this, and for each process
	case ${value:-$2} in
	1 | on | true | yes | enabled) return 0 ;;
	esac
	return 1
}

# kelm_list NAME: prints the items of a list of UCI section names, one a line. What is no such name is left out.
kelm_list() {
	local item
	for item in $(kelm_setting "$1"); do
		case $item in
		*[!A-Za-z0-9_]*) ;;
		*) printf '%s\n' "$item" ;;
		esac
	done
}

is_repeater() { [ "$(kelm_setting mode ap)" = repeater ]; }

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

# is_own FILE: status 0 for a file that is root's alone: nobody else can put another thing in its place.
is_own() { [ -f "$1" ] && [ ! -L "$1" ] && [ -O "$1" ]; }

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

# band_words BAND: the band as people call it.
band_words() {
	case $1 in
	2g) printf '2.4 GHz\n' ;;
	5g) printf '5 GHz\n' ;;
	*) printf '%s\n' "$1" ;;
	esac
}

# kelm_name BAND: the name that the daemon has for the band's interface, without the station's "-vxd".
kelm_name() {
	case $1 in
	2g) printf 'wlan1\n' ;;
	5g) printf 'wlan0\n' ;;
	*) return 1 ;;
	esac
}

# find_daemon: sets pid to the daemon's process number; status 1 if none lives.
find_daemon() {
	local name
	pid=''
	is_own /tmp/kelm.pid || return 1
	read -r pid 2> /dev/null < /tmp/kelm.pid
	case $pid in
	'' | *[!0-9]*) return 1 ;;
	esac
	read -r name 2> /dev/null < "/proc/$pid/comm" && [ "$name" = kelm ]
}

# daemon_pid: prints it.
daemon_pid() {
	local pid
	find_daemon && printf '%s\n' "$pid"
}

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
