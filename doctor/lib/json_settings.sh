# SPDX-License-Identifier: ISC
# Checks of the settings files in JSON: what the device is, which bands it has, and the links of its stations. Needs
# settings_files.sh, which it reads itself.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154  # busybox ash has local; the checks share what they have learnt

# shellcheck source=doctor/lib/settings_files.sh
. "$lib/settings_files.sh"

MODE_FILE=/tmp/device_runtime.info MODE_LIMIT=512
BANDS_LIMIT=2048
LINK_FILE=/tmp/wifi_runtime_info LINK_LIMIT=512
UNSEEN='whether a file is JSON cannot be seen without jsonfilter; install jsonfilter'

# --- JSON ---

# json_number TEXT KEY: sets found to object, or other; type and value to what the key has, both empty without one.
# Status 1 for what is no JSON.
json_number() {
	local lines
	found=other type='' value=''
	lines=$(printf '%s' "$1" | limited "$READ_LIMIT" jsonfilter -q -t '@' -t "@.$2" -e "@.$2" 2> /dev/null)
	case $? in
	0 | 1) ;;
	*) return 1 ;;
	esac
	{ read -r found && read -r type && read -r value; } << EOT
$lines
EOT
	[ -n "$found" ]
}

# likely_number TEXT KEY: the same where there is no jsonfilter: the number that stands behind the key.
likely_number() {
	type='' value=$(printf '%s' "$1" | tr '\n' ' ' | sed -n "s/.*\"$2\"[[:blank:]]*:[[:blank:]]*\(-\{0,1\}[0-9]\{1,9\}\)[^0-9.].*/\1/p")
	[ -z "$value" ] || type=int
}

# read_json CHECK BAND PATH LIMIT KEY CONSEQUENCE EXAMPLE: tells why the daemon cannot read it, and returns 1; else as
# json_number.
read_json() {
	local limit=$4 cure
	cure=$(settings_cure "$7")
	if ! read_text "$3" "$limit"; then
		tell_unread "$1" "$2" "$3" "$6" "$cure"
	elif [ -z "$text" ]; then
		fault "$1" "$2" "$3 is empty: $6; $cure"
	elif [ -n "$has_zero" ]; then
		fault "$1" "$2" "$3 holds a zero byte, and what is behind it is not read: $6; $cure"
	elif ! command -v jsonfilter > /dev/null; then
		[ -z "$UNSEEN" ] || warning "$1" "$2" "$UNSEEN"
		UNSEEN='' # said once
		likely_number "$text" "$5"
		return 0
	elif json_number "$text" "$5"; then
		warn_of_writers "$1" "$2" "$3"
		return 0
	elif [ "$bytes" -gt "$limit" ]; then
		fault "$1" "$2" "$3 has $bytes bytes, of which $limit are read, and that is no JSON: $6; $cure"
	else
		fault "$1" "$2" "$3 is no JSON: $6; $cure"
	fi
	return 1
}

# warn_of_writers CHECK BAND PATH: of the file that was read last.
warn_of_writers() {
	! others_may_write || warning "$1" "$2" "others than root may write to $3; take that right away: chmod go-w $3"
}

# --- What the device is ---

# check_mode: sets run_mode to ap, sta, or nothing where it cannot be known.
check_mode() {
	run_mode=''
	if [ "$face" = stock ] && kelm_switch enabled && serves_nothing; then
		fault settings-mode '' "the service is not ready: $why; mend that, and it goes on by itself"
		return
	fi
	settings_are_due || { ok settings-mode '' 'kelm is switched off, so there are no settings files yet' && return; }
	read_json settings-mode '' $MODE_FILE $MODE_LIMIT mode 'kelm does not start' \
		'{"mode": 1} for an access point, {"mode": 0} for a repeater,' || return
	case $type:$value in
	int:1) run_mode=ap && tell_mode 'access point' ;;
	int:0) run_mode=sta && tell_mode repeater ;;
	int:*)
		fault settings-mode '' "$MODE_FILE says mode $value, which is neither 1 (access point) nor 0 (repeater): kelm does not start; write one of them"
		;;
	*)
		run_mode=sta
		warning settings-mode '' "$MODE_FILE has no number \"mode\": it counts as 0, a repeater; write {\"mode\": 0} or {\"mode\": 1}"
		;;
	esac
}

# tell_mode WORD: stock OpenWrt: what the owner has set is in effect once the service has written it.
tell_mode() {
	local chosen='access point'
	[ "$face" = maker ] || ! is_repeater || chosen=repeater
	if [ "$face" = maker ] || [ "$chosen" = "$1" ]; then
		ok settings-mode '' "$MODE_FILE says $1"
	else
		fault settings-mode '' "$MODE_FILE says $1, and /etc/config/kelm says $chosen, so a press does the wrong thing; the service takes it over: service wps restart"
	fi
}

# check_bands: sets device_bands to the bands of the device.
check_bands() {
	local before=$((warnings + faults))
	device_bands=''
	settings_are_due || return 0
	read_json settings-bands '' $BANDS_FILE $BANDS_LIMIT RFBand 'kelm does not start' '{"RFBand": 2} for 2.4 and 5 GHz' ||
		return
	[ -z "$is_root" ] || may_open_to_write "$real" ||
		fault settings-bands '' "$BANDS_FILE cannot be written to, and then it counts as missing: kelm does not start; put it where root may write"
	case $type:$value in
	int:0) device_bands=2g ;;
	int:1) device_bands=5g ;;
	int:2) device_bands='2g 5g' ;;
	int:3) device_bands='2g 5g 5g2' ;;
	int:4) device_bands='2g 5g 6g' ;;
	int:5) device_bands=$ALL_BANDS ;;
	int:*) fault settings-bands '' "$BANDS_FILE says RFBand $(quoted "$value"), which is no number from 0 to 5: the device counts as one without bands; write the right one" ;;
	*)
		warning settings-bands '' "$BANDS_FILE has no number \"RFBand\": it counts as 0, which is 2.4 GHz alone; write the right one"
		device_bands=2g
		;;
	esac
	! is_clean_since "$before" || ok settings-bands '' "$BANDS_FILE names the bands $(bands_words "$device_bands")"
}

# --- Links of the stations ---

check_links() {
	local band
	settings_are_due || return 0
	[ "$run_mode" != ap ] || ok settings-link '' 'an access point needs no file of a link'
	[ "$run_mode" = sta ] || return 0
	for band in $part_bands; do
		read_json settings-link "$band" "$LINK_FILE.$band" $LINK_LIMIT status 'each press is refused' '{"status": 1} with a link, 0 without,' ||
			continue
		case $type:$value in
		int:1) ok settings-link "$band" 'the station has a link; it takes part where all stations have one' ;;
		int:*) ok settings-link "$band" 'the station has no link, and takes part' ;;
		*) warning settings-link "$band" "$LINK_FILE.$band has no number \"status\": it counts as 0, no link; write {\"status\": 0} or {\"status\": 1}" ;;
		esac
	done
}
