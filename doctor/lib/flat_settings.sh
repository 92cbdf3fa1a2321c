# SPDX-License-Identifier: ISC
# Checks of the settings files of lines, wps.conf and wifi.conf, as the daemon reads them. Needs settings_files.sh, which
# it reads itself.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154  # busybox ash has local; the checks share what they have learnt

# shellcheck source=doctor/lib/settings_files.sh
. "$lib/settings_files.sh"

WIFI_FILE=/tmp/wifi.conf
LONGEST_LINE=2046

# number_of TEXT [MODULUS]: sets number to what the daemon reads from it: digits up to the first other character; exact
# is 1 if it says just that. The modulus is that of the field that the number goes into.
number_of() {
	local digits=$1 sign=''
	number=0 exact=''
	while :; do
		case $digits in
		[\ "$TAB"]*) digits=${digits#?} ;;
		*) break ;;
		esac
	done
	case $digits in
	-*) sign=- ;;
	esac
	digits=${digits#[-+]}
	digits=${digits%%[!0-9]*}
	while [ "${digits#0}" != "$digits" ]; do
		digits=${digits#0}
	done
	# With more digits it overflows, and no two C libraries agree on what it is then.
	[ ${#digits} -gt 9 ] || number=$((${digits:-0}))
	[ -z "$2" ] || number=$((($sign$number % $2 + $2) % $2))
	[ "$1" != "$number" ] || exact=1
}
TAB=$(printf '\t')

# bit_of BAND: its bit in a mask.
bit_of() {
	case $1 in
	2g) echo 1 ;;
	5g) echo 2 ;;
	5g2) echo 4 ;;
	6g) echo 8 ;;
	esac
}

# --- The flat files ---

# The keys that are known, without the band.
KNOWN_KEYS='enabled apwpsavailable stawpsavailable pinenabled pincode wlansectype_ apbssenabledapmode_ apbssenabled_ stabssenabled_'

# parse_settings: sets parsed to a line "NUMBER BLOCK |KEY=VALUE|" for each line of the text that names a known key, or
# nearly so. The value is the one that the daemon takes: without its last character, whatever that is.
parse_settings() {
	local ended=''
	case $text in
	*"$LINE_FEED") ended=1 ;;
	esac
	parsed=$(printf '%s' "$text" | awk -v ended="$ended" -v keys="$KNOWN_KEYS" '
		BEGIN {
			count = split(keys, known, " ")
		}
		function is_known(key, i) {
			gsub(/[ \t]/, "", key)
			key = tolower(key)
			sub(/_(2g|5g|5g2|6g)$/, "_", key)
			for (i = 1; i <= count; i++)
				if (key == known[i])
					return 1
			return 0
		}
		# A line, or a piece of one that does not fit the room of the daemon.
		function take(piece, at) {
			if (piece ~ /^#/)
				return
			if (piece ~ /^[\n\r]/) {
				block++
				return
			}
			at = index(piece, "=")
			if (at && is_known(substr(piece, 1, at - 1)))
				print NR - 1 + last, block + 0, "|" substr(piece, 1, length(piece) - 1) "|"
		}
		function take_line(line) {
			for (; line != ""; line = substr(line, 2048))
				take(substr(line, 1, 2047))
		}
		NR > 1 { take_line(held "\n") }
		{ held = $0 }
		END {
			last = 1
			if (NR)
				take_line(held (ended ? "\n" : ""))
		}')
}
LINE_FEED='
'

# setting KEY [BLOCK]: sets value to that of the last line with this key in the blocks that the daemon takes for this
# one, number to the number of that line and times to how many there are. Status 1 if there is none.
setting() {
	local line block pair
	value='' number='' times=0
	while IFS=' ' read -r line block pair; do
		[ -z "$2" ] || [ $((block % 5)) = "$2" ] || continue
		case $pair in
		"|$1="*)
			value=${pair#*=}
			value=${value%|}
			number=$line
			times=$((times + 1))
			;;
		esac
	done << EOT
$parsed
EOT
	[ $times -gt 0 ]
}

# read_flat CHECK PATH CONSEQUENCE: tells what is wrong with the file as a file, and parses it. Status 1 if it cannot
# be read.
read_flat() {
	local line block pair key
	parsed=''
	read_text "$2" "$TEXT_MAX" || {
		tell_unread "$1" '' "$2" "$3" "$(settings_cure it)"
		return 1
	}
	if [ -z "$text" ]; then
		fault "$1" '' "$2 is empty: $3; $(settings_cure it)"
		return 1
	fi
	warn_of_writers "$1" '' "$2"
	[ -z "$has_zero" ] || fault "$1" '' "$2 holds a zero byte, which is no text: what stands behind it in its line is lost; write it anew"
	if [ "$bytes" -gt "$TEXT_MAX" ]; then
		warning "$1" '' "$2 has $bytes bytes, of which kelm-doctor has looked at $TEXT_MAX; kelm reads all of it at each press: leave out what it does not need"
		text=${text%"$LINE_FEED"*}$LINE_FEED
	fi
	check_lines "$1" "$2"
	parse_settings
	while IFS=' ' read -r line block pair; do
		key=${pair%%=*}
		key=${key#|}
		[ -z "$key" ] || is_exact "$key" ||
			warning "$1" '' "line $line of $2 begins with $(quoted "$key"), which is no key; mind blanks and capitals"
	done << EOT
$parsed
EOT
}

# is_exact KEY
is_exact() {
	case $1 in
	enabled | apWpsAvailable | staWpsAvailable | pinEnabled | pinCode) return 0 ;;
	wlanSecType_* | apBssEnabledApMode_* | apBssEnabled_* | staBssEnabled_*)
		case $1 in
		*_2g | *_5g | *_5g2 | *_6g) return 0 ;;
		esac
		;;
	esac
	return 1
}

# check_lines CHECK PATH: how the lines end. No value is shown but of a key that is known to hold no secret.
check_lines() {
	local last=${text##*"$LINE_FEED"} what="the last line of $2 has no line feed at its end, so kelm takes its last character away"
	case $last in
	\#* | *[!=]) [ "${last%%=*}" != "$last" ] || last='' ;;
	esac
	if [ -n "$last" ] && [ "${last#\#}" = "$last" ]; then
		if is_exact "${last%%=*}" && [ "${last%%=*}" != pinCode ]; then
			what="$what: $(quoted "$last") counts as $(quoted "${last%?}")"
		elif [ "${last%%=*}" = pinCode ]; then
			what="$what: that of the PIN"
		fi
		fault "$1" '' "$what; end each line with a line feed"
	fi
	case $text in
	*"$CARRIAGE_RETURN"*) warning "$1" '' "$2 has carriage returns, which are part of the value: pinEnabled=on with one counts as off; end each line with a line feed alone" ;;
	esac
	last=$(printf '%s\n' "$text" | awk -v most=$LONGEST_LINE '!/^#/ && length($0) > most { print NR; exit }')
	[ -z "$last" ] || fault "$1" '' "line $last of $2 is longer than $LONGEST_LINE characters: kelm reads it in pieces, each as a line of its own; shorten it"
}
CARRIAGE_RETURN=$(printf '\r')

# --- /tmp/wps.conf ---

# check_wps_conf: sets part_bands to the bands that take part, and wps_parsed to what the file says.
check_wps_conf() {
	local before=$((warnings + faults)) key=apWpsAvailable whose='access point' mask band
	part_bands='' wps_parsed=''
	settings_are_due || return 0
	read_flat settings-wps $WPS_FILE 'WPS counts as off, and a press does nothing' || return
	wps_parsed=$parsed
	if [ "$run_mode" = sta ]; then
		key=staWpsAvailable whose=station
	else
		check_switch
	fi
	mask_of $key "no $whose takes part" || return
	mask=$number
	for band in $ALL_BANDS; do
		[ $((mask & $(bit_of "$band"))) = 0 ] || take_part "$band"
	done
	[ -n "$part_bands" ] || fault settings-wps '' "$key=$mask in $WPS_FILE: no $whose takes part; write the sum of 1 (2.4 GHz) and 2 (5 GHz)"
	! is_clean_since "$before" || ok settings-wps '' "$WPS_FILE has these bands in WPS: $(bands_words "$part_bands")"
}

# check_switch: WPS of the access points as a whole.
check_switch() {
	if ! setting enabled; then
		fault settings-wps '' "$WPS_FILE has no line \"enabled=\": WPS of the access points is off; add enabled=1"
		return
	fi
	number_of "$value" 256
	if [ $number = 0 ]; then
		fault settings-wps '' "$(quoted "enabled=$value") in $WPS_FILE counts as 0: WPS of the access points is off; write enabled=1"
	elif [ -z "$exact" ]; then
		warning settings-wps '' "$(quoted "enabled=$value") in $WPS_FILE counts as $number; write enabled=1"
	fi
}

# mask_of KEY CONSEQUENCE: sets number to the mask; status 1 if there is none.
mask_of() {
	if ! setting "$1"; then
		fault settings-wps '' "$WPS_FILE has no line \"$1=\": $2; add it, with the sum of 1 (2.4 GHz) and 2 (5 GHz)"
		return 1
	fi
	[ $times = 1 ] || warning settings-wps '' "$1 stands $times times in $WPS_FILE, and the last counts; leave the others out"
	number_of "$value" 256
	[ -n "$exact" ] || fault settings-wps '' "$(quoted "$1=$value") in $WPS_FILE counts as $number; write a number from 0 to 15"
}

# take_part BAND: adds a band of the mask to those that take part, if it can.
take_part() {
	case " ${device_bands:-$ALL_BANDS} " in
	*" $1 "*) ;;
	*)
		warning settings-wps "$1" "$key=$mask in $WPS_FILE names this band, but RFBand in $BANDS_FILE does not, so it takes no part; make them agree"
		return
		;;
	esac
	case $1 in
	5g2 | 6g) fault settings-wps "$1" "$key=$mask in $WPS_FILE names this band, which has no interface: kelm does not start; leave its $(bit_of "$1") out of the sum" ;;
	*) part_bands="$part_bands${part_bands:+ }$1" ;;
	esac
}

# --- The access points' own PIN ---

check_pin() {
	local parsed=$wps_parsed before=$((warnings + faults))
	settings_are_due || return 0
	if [ "$run_mode" = sta ]; then
		ok settings-pin '' 'a repeater has no PIN of its own'
		return
	fi
	# Without the file it is off like the rest, which is said already.
	[ -n "$parsed" ] || return 0
	setting pinEnabled || value=off
	case $value in
	on) ;;
	off)
		ok settings-pin '' "the access points' own PIN is off"
		return
		;;
	*)
		warning settings-pin '' "$(quoted "pinEnabled=$value") in $WPS_FILE counts as off; write on or off"
		return
		;;
	esac
	setting pinCode
	check_digits "$value"
	look_at $WPS_FILE
	! others_may_read || warning settings-pin '' "others than root may read $WPS_FILE, and the PIN in it; chmod 600 $WPS_FILE"
	! is_clean_since "$before" || ok settings-pin '' "the access points' own PIN is on, and well formed"
}

# check_digits PIN: the PIN itself is a secret, and never told. Of a long one eight characters count.
check_digits() {
	local rest digit weight=3 sum=0
	rest=$(printf '%.8s' "$1")
	case $rest in
	'') fault settings-pin '' "$WPS_FILE says pinEnabled=on and has no pinCode, so hostapd gets none; add the PIN, or write pinEnabled=off" ;;
	*[!0-9]*) fault settings-pin '' "the PIN in $WPS_FILE holds other characters than digits; $PIN_CURE" ;;
	????) ;;
	????????)
		[ "$rest" = "$1" ] || fault settings-pin '' "the PIN in $WPS_FILE has ${#1} digits, of which eight count; $PIN_CURE"
		while [ -n "$rest" ]; do
			digit=${rest%"${rest#?}"}
			rest=${rest#?}
			sum=$((sum + digit * weight))
			weight=$((4 - weight))
		done
		[ $((sum % 10)) = 0 ] || fault settings-pin '' "the check digit of the PIN in $WPS_FILE is wrong, so hostapd gets none; take the PIN from the label"
		;;
	*) fault settings-pin '' "the PIN in $WPS_FILE has ${#1} digits, so hostapd gets none; $PIN_CURE" ;;
	esac
}
PIN_CURE='a PIN has eight digits, or four'

# --- /tmp/wifi.conf ---

check_wifi_conf() {
	local before=$((warnings + faults)) band
	settings_are_due || return 0
	read_flat settings-wifi $WIFI_FILE 'each success counts as an error, for nothing can be stored' || return
	for band in ${part_bands:-2g 5g}; do
		if [ "$run_mode" = sta ]; then
			check_flag fault "$band" staBssEnabled 2 'what its station learns is not stored'
			check_flag '' "$band" apBssEnabled 1 'its access point does not follow the station'
		else
			check_security "$band"
			check_flag warning "$band" apBssEnabledApMode 1 'new settings would switch its access point off'
		fi
	done
	! is_clean_since "$before" || ok settings-wifi '' "$WIFI_FILE has what kelm reads, in the right blocks"
}

# in_block FINDING BAND KEY BLOCK CONSEQUENCE: as setting; tells what is out of step, and by FINDING (fault, warning, or
# empty for nothing) what is missing.
in_block() {
	local key=$3_$2 block='the second block'
	[ "$4" = 1 ] || block='the third block'
	if setting "$key" "$4"; then
		[ $times = 1 ] || warning settings-wifi "$2" "$key counts $times times in $WIFI_FILE, for the blocks repeat every five: line $number wins; leave the others out"
		return 0
	fi
	if setting "$key"; then
		fault settings-wifi "$2" "$key stands in line $number of $WIFI_FILE, out of step, for kelm looks into $block: $5; part two blocks by one blank line, the stations behind the access points"
	elif [ -n "$1" ]; then
		"$1" settings-wifi "$2" "$WIFI_FILE has no line \"$key=\": $5; add it to $block"
	fi
	return 1
}

# check_flag FINDING BAND KEY BLOCK CONSEQUENCE: a switch that is to be on, as in_block.
check_flag() {
	in_block "$@" || return
	case $value in
	on) return ;;
	on*)
		warning settings-wifi "$2" "$(quoted "$3_$2=$value") in $WIFI_FILE counts as on; write on or off"
		return
		;;
	off) ;;
	*) warning settings-wifi "$2" "$(quoted "$3_$2=$value") in $WIFI_FILE counts as off; write on or off" ;;
	esac
	[ -z "$1" ] || "$1" settings-wifi "$2" "$3_$2 is not on in $WIFI_FILE: $5; switch it on, or leave the band out of $WPS_FILE"
}

# check_security BAND
check_security() {
	in_block fault "$1" wlanSecType 1 'the access point counts as open, and a success there as an error' || return
	number_of "$value"
	[ -n "$exact" ] || fault settings-wifi "$1" "$(quoted "wlanSecType_$1=$value") in $WIFI_FILE counts as $number; write 0 for open, 1 for secured"
}
