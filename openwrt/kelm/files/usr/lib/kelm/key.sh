# SPDX-License-Identifier: ISC
# The key that lasts: what hostapd hands out to a client, in place of one that it cannot
# store. Needs common.sh.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# shellcheck source=doctor/lib/running_bss.sh
. /usr/lib/kelm/doctor/running_bss.sh

# lasting_key IF: sees to it that hostapd hands out the network's own key. Beside a file of keys for devices it would
# make up a new one for each client, which it cannot store: it is not root. A line for the address of zeros tells it
# what to hand out. Without such a file it hands out the network's key by itself.
lasting_key() {
	local line wanted new
	running_bss "$1" || return
	case $bss_psk_file in
	/var/run/* | /tmp/run/*) ;;
	*) return 0 ;; # none, or a file of the owner's, who sees to it himself
	esac
	[ -n "$bss_key" ] && is_own "$bss_psk_file" || return 1
	wanted="wps=1 00:00:00:00:00:00 $bss_key"
	while IFS= read -r line; do
		[ "$line" != "$wanted" ] || return 0
	done < "$bss_psk_file"

	new=$(mktemp "$bss_psk_file.XXXXXX" 2> /dev/null) || return 1
	if cp -p "$bss_psk_file" "$new" && {
		grep -v '^wps=1 00:00:00:00:00:00 ' "$bss_psk_file"
		printf '%s\n' "$wanted"
	} 2> /dev/null > "$new" && mv -f "$new" "$bss_psk_file"; then
		load_keys "$1"
		return
	fi
	rm -f "$new"
	return 1
}

# load_keys IF: has hostapd read its file of keys again. Nobody is disconnected.
load_keys() {
	[ "$(/usr/sbin/hostapd_cli -p /var/run/hostapd -i "$1" raw RELOAD_WPA_PSK 2> /dev/null)" = OK ]
}
