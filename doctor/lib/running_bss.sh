# SPDX-License-Identifier: ISC
# What hostapd was given for an access point.
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
