# SPDX-License-Identifier: ISC
# Checks of a repeater's stations.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; the checks share what they have learnt

# check_learnt: the daemon takes what a station has learnt from wpa_supplicant's file, unless it was told to take it from
# the event.
check_learnt() {
	local band ifname section file
	[ "$role" = sta ] || return 0
	for band in $parts; do
		part "$band"
		file=/var/run/wpa_supplicant-$ifname.conf
		if takes_events; then
			ok learnt "$band" 'kelm takes what the station learns from the event of wpa_supplicant'
		elif [ ! -f "$file" ]; then
			fault learnt "$band" "there is no $file, from which kelm takes what the station learns; start wpa_supplicant with this file, or kelm with KELM_CREDENTIALS=event"
		elif [ ! -r "$file" ]; then
			warning learnt "$band" "this user may not read $file; run kelm-doctor as root"
		elif grep -q '^[[:space:]]*update_config=1[[:space:]]*$' "$file"; then
			ok learnt "$band" "wpa_supplicant writes what the station learns into $file"
		else
			fault learnt "$band" "wpa_supplicant does not write what the station learns into $file; update_config=1 in it, or start kelm with KELM_CREDENTIALS=event"
		fi
	done
}

# takes_events: as the environment of the living daemon says.
takes_events() {
	find_daemon && tr '\000' '\n' 2> /dev/null < "/proc/$pid/environ" | grep -q '^KELM_CREDENTIALS=event$'
}
