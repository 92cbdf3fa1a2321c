# SPDX-License-Identifier: ISC
# What hostapd was given for an access point.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# running_bss IF: looks up what hostapd was given for the access point, whatever the settings say by now: bss_file, the
# file; bss_key (passphrase, or 64 digits), bss_psk_file, bss_wps, and the rest as it stands there, empty if not. No
# other program is started, and nothing is printed: a press waits for this.
# shellcheck disable=SC2034  # the caller takes what it needs
running_bss() {
	local file line mine
	bss_key='' bss_psk_file='' bss_wps='' bss_file='' bss_hidden='' bss_backhaul='' bss_wpa='' bss_key_mgmt=''
	bss_pairwise='' bss_rsn='' bss_wep='' bss_uuid='' bss_independent='' bss_pin='' bss_locked=''
	for file in /var/run/hostapd-*.conf; do
		{ [ -f "$file" ] && [ -r "$file" ]; } || continue
		mine=''
		while IFS= read -r line || [ -n "$line" ]; do
			case $line in
			"interface=$1" | "bss=$1") mine=1 bss_file=$file ;;
			interface=* | bss=*) [ -z "$mine" ] || return 0 ;;
			esac
			[ -n "$mine" ] || continue
			case $line in
			wpa_passphrase=* | wpa_psk=*) bss_key=${line#*=} ;;
			wpa_psk_file=*) bss_psk_file=${line#*=} ;;
			wps_state=*) bss_wps=${line#*=} ;;
			ignore_broadcast_ssid=*) bss_hidden=${line#*=} ;;
			multi_ap=*) bss_backhaul=${line#*=} ;;
			wpa=*) bss_wpa=${line#*=} ;;
			wpa_key_mgmt=*) bss_key_mgmt=${line#*=} ;;
			wpa_pairwise=*) bss_pairwise=${line#*=} ;;
			rsn_pairwise=*) bss_rsn=${line#*=} ;;
			wep_key[0-3]=*) bss_wep=${line#*=} ;;
			uuid=*) bss_uuid=${line#*=} ;;
			wps_independent=*) bss_independent=${line#*=} ;;
			ap_pin=*) bss_pin=${line#*=} ;;
			ap_setup_locked=*) bss_locked=${line#*=} ;;
			esac
		done < "$file"
		[ -z "$mine" ] || return 0
	done
	return 1
}
