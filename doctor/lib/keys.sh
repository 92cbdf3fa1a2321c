# SPDX-License-Identifier: ISC
# Checks of what lets a device in: the key that it gets, and the access point's own PIN. Neither is ever told.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; the checks share what they have learnt

LASTING='wps=1 00:00:00:00:00:00 '

# --- The key ---

# check_key: beside a file of keys for devices hostapd makes up a key for each client, and it must be able to keep it.
check_key() { each_net look_at_keys; }

look_at_keys() {
	local kind mode links owner file
	[ -n "$bss_file" ] || return 0
	# The service sees to the keys of what it can serve.
	[ "$face" = maker ] || ! has_word "$bad_networks" "$1" || return 0
	if [ -z "$bss_psk_file" ]; then
		ok key "$1" 'each device gets the key of the network, which lasts'
		return
	fi
	# hostapd follows links, whosever they are.
	file=$(readlink -f "$bss_psk_file") || file=$bss_psk_file
	if ! look_at "$file"; then
		fault key "$1" "hostapd has a file of keys that is not there, $(quoted "$bss_psk_file"); $(key_cure)"
	elif [ "$kind" != file ]; then
		fault key "$1" "the file of keys, $(quoted "$bss_psk_file"), is a $kind; $(key_cure)"
	elif [ ! -r "$file" ]; then
		warning key "$1" 'the file of keys cannot be read by this user; run kelm-doctor as root'
	elif hands_out_own_key; then
		ok key "$1" 'each device gets the key of the network, by a line in the file of keys'
	else
		look_where_keys_go "$1"
	fi
}

# hands_out_own_key: whether $file has the line that names what a client gets. On stock OpenWrt it is made anew at each
# setup, so another key than the network's would not last there.
hands_out_own_key() {
	local line
	while IFS= read -r line || [ -n "$line" ]; do
		case $face/$line in
		maker/"$LASTING"?* | stock/"$LASTING$bss_key") return 0 ;;
		esac
	done 2> /dev/null < "$file"
	return 1
}

# look_where_keys_go BAND: each client gets a key of its own, which hostapd adds to the file.
look_where_keys_go() {
	local where=$file file_owner=$owner all_may=''
	! others_may_write || all_may=1
	# The socket is made by whom hostapd runs as.
	look_at "/var/run/hostapd/$ifname"
	case $where in
	/tmp/* | /var/run/* | /run/*) where=gone ;;
	esac
	if [ "${owner:-0}" != 0 ] && [ "$owner" != "$file_owner" ] && [ -z "$all_may" ]; then
		fault key "$1" "hostapd makes up a key for each device, and may not write it to the file of keys: the device joins once and never again; $(key_cure)"
	elif [ "$where" = gone ]; then
		warning key "$1" "each device gets a key of its own, in $(quoted "$bss_psk_file"), which a restart takes away; $(key_cure)"
	else
		ok key "$1" 'each device gets a key of its own, in a file that lasts'
	fi
}

key_cure() {
	if [ "$face" = stock ]; then
		echo 'the service mends it: service wps restart'
	else
		printf '%s\n' "leave wpa_psk_file out of $bss_file, or add a line to the file of keys: ${LASTING}KEY, the key of the network"
	fi
}

# --- The access point's own PIN ---

check_ap_pin() { each_net look_at_pin; }

look_at_pin() {
	[ -n "$bss_file" ] || return 0
	if [ -z "$bss_pin" ]; then
		ok ap-pin "$1" 'hostapd was given no PIN of its own'
	elif is_pin "$bss_pin"; then
		ok ap-pin "$1" 'the PIN that hostapd was given is well formed'
	else
		fault ap-pin "$1" "the PIN that hostapd was given (ap_pin) is wrong: four digits, or eight of which the last is right; $(pin_cure)"
	fi
}

# is_pin PIN: four digits, or eight of which the last is the check digit of the others.
is_pin() {
	local rest=$1 digit weight=3 sum=0
	case $1 in
	*[!0-9]*) return 1 ;;
	????) return 0 ;;
	????????) ;;
	*) return 1 ;;
	esac
	while [ -n "$rest" ]; do
		digit=${rest%"${rest#?}"}
		rest=${rest#?}
		sum=$((sum + digit * weight))
		weight=$((4 - weight))
	done
	[ $((sum % 10)) = 0 ]
}

pin_cure() {
	if [ "$face" = stock ]; then
		printf '%s\n' "take it from the label: uci set wireless.$section.wps_pin=..."
	else
		printf '%s\n' "take it from the label, and correct $bss_file"
	fi
}

# check_locked: a press and a client's PIN do not mind.
check_locked() { each_net look_whether_locked; }

look_whether_locked() {
	[ -n "$bss_file" ] || return 0
	if [ "$bss_locked" != 1 ]; then
		ok locked "$1" "the access point may be set up with its own PIN"
	elif [ -n "$bss_pin" ] || gives_pin; then
		warning locked "$1" "who types the access point's own PIN is refused, for set-up is locked; $(lock_cure)"
	else
		ok locked "$1" "set-up is locked, and nobody may type the access point's own PIN: a press does not mind"
	fi
}

# gives_pin: whether kelm gives hostapd a PIN at its start, by what the checks of the settings have read.
gives_pin() {
	local parsed=$wps_parsed value number times
	[ "$face" = maker ] && setting pinEnabled && [ "$value" = on ]
}

lock_cure() {
	if [ "$face" = stock ]; then
		printf '%s\n' "uci set wireless.$section.wps_ap_setup_locked='0'; uci commit wireless; wifi reload"
	else
		printf '%s\n' "ap_setup_locked=0 in $bss_file"
	fi
}
