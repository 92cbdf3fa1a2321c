# SPDX-License-Identifier: ISC
# The key that lasts: what hostapd hands out to a client, in place of one that it cannot
# store. Needs common.sh.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# running_bss IF: looks up what hostapd was given for the access point: bss_key (passphrase, or 64 digits),
# bss_psk_file, bss_wps. That is the key in use, whatever the settings say by now. No other program is started, and
# nothing is printed: a press waits for this.
# shellcheck disable=SC2034  # the caller takes what it needs
running_bss() {
	local file line mine
	bss_key='' bss_psk_file='' bss_wps=''
	for file in /var/run/hostapd-*.conf; do
		[ -f "$file" ] || continue
		mine=''
		while IFS= read -r line || [ -n "$line" ]; do
			case $line in
			"interface=$1" | "bss=$1") mine=1 ;;
			interface=* | bss=*) [ -z "$mine" ] || return 0 ;;
			esac
			[ -n "$mine" ] || continue
			case $line in
			wpa_passphrase=* | wpa_psk=*) bss_key=${line#*=} ;;
			wpa_psk_file=*) bss_psk_file=${line#*=} ;;
			wps_state=*) bss_wps=${line#*=} ;;
			esac
		done < "$file"
		[ -z "$mine" ] || return 0
	done
	return 1
}

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
