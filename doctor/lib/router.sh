# SPDX-License-Identifier: ISC
# What the owner has set, what things are called, and whether a daemon lives: what kelm-doctor and the service for
# stock OpenWrt share. It only reads.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# shellcheck disable=SC2034  # for those who source this
KELM_BANDS='2g 5g'

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

# is_own FILE: status 0 for a file that is root's alone: nobody else can put another thing in its place.
is_own() { [ -f "$1" ] && [ ! -L "$1" ] && [ -O "$1" ]; }

# find_daemon: sets pid to the daemon's process number; status 1 if none lives.
find_daemon() {
	local name
	pid=''
	is_own /tmp/kelm.pid || return 1
	# shellcheck disable=SC3045  # busybox ash has read -n; a huge file would be read a byte at a time
	read -r -n 11 pid 2> /dev/null < /tmp/kelm.pid
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
