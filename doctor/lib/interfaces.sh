# SPDX-License-Identifier: ISC
# Checks of the interfaces that take part: which they are, whether they are there and up.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; the checks share what they have learnt

# The next checks ask of each band by these: "for band in $parts; do part $band ...".
#   role     ap or sta, what the device is
#   parts    the bands that take part, 2g and 5g
#   idle_parts  stock: those of them whose radio does not run, so that nobody need be asked
#   wireless, section_2g, section_5g   stock: what netifd says, and the sections

# part BAND: sets ifname and section to those of the band; empty where there is none.
part() {
	case $1 in
	2g) ifname=$ifname_2g section=$section_2g ;;
	*) ifname=$ifname_5g section=$section_5g ;;
	esac
}

check_interfaces() {
	local band ifname section
	role=ap parts='' idle_parts='' ifname_2g='' ifname_5g='' section_2g='' section_5g='' wireless=''
	"see_parts_of_$face"
	for band in $parts; do
		part "$band"
		if ! "look_at_interface_of_$face" "$band"; then
			idle_parts="$idle_parts $band"
		elif is_up "$ifname"; then
			ok interface "$band" "$ifname is there and up"
		elif [ -d "/sys/class/net/$ifname" ]; then
			fault interface "$band" "$ifname is down; switch the Wi-Fi on, or: ip link set $ifname up"
		else
			fault interface "$band" "there is no interface $ifname; load the driver of the radio, and give its interface this name"
		fi
	done
}

# is_up IF: by its flags, of which the first is IFF_UP.
is_up() {
	local flags=''
	read -r flags 2> /dev/null < "/sys/class/net/$1/flags"
	case $flags in
	0x*[!0-9a-fA-F]* | 0x) return 1 ;;
	0x*) [ $((flags & 1)) = 1 ] ;;
	*) return 1 ;;
	esac
}

# --- A maker's firmware: the daemon knows these names and no other. ---

# The checks of the settings files have said what the device is and which bands take part.
see_parts_of_maker() {
	local band suffix=''
	[ "$run_mode" != sta ] || role=sta suffix=-vxd
	ifname_2g=wlan1$suffix ifname_5g=wlan0$suffix
	for band in ${part_bands:-2g 5g}; do
		case " ${device_bands:-2g 5g} " in
		*" $band "*) ;;
		*) continue ;;
		esac
		case $band in
		[25]g) parts="$parts${parts:+ }$band" ;;
		esac
	done
}

look_at_interface_of_maker() { :; }

# --- Stock OpenWrt ---

see_parts_of_stock() {
	local lines band section ifname none='no access point is chosen' word='access point' example=default_radio0 line
	! is_repeater || role=sta none='no station for a repeater' word=station example=wwan0
	# shellcheck source=doctor/lib/radios.sh
	. "$lib/radios.sh"
	# shellcheck source=doctor/lib/running_bss.sh
	. "$lib/running_bss.sh"
	# shellcheck source=doctor/lib/stock_networks.sh
	. "$lib/stock_networks.sh"
	wireless=$(wireless_status)
	if [ -z "$is_root" ] && { [ -z "$wireless" ] || [ ! -r /etc/config/wireless ]; }; then
		warning chosen '' 'this user is not told what the radios do; run kelm-doctor as root'
		return
	elif [ ! -f /etc/config/wireless ]; then
		fault chosen '' 'there is no /etc/config/wireless, so no radio does anything; make one: wifi config'
		return
	elif [ -z "$wireless" ]; then
		fault chosen '' 'netifd does not say what the radios do; is it there: ubus call network.wireless status'
		return
	fi
	load_wireless
	lines=$(chosen "$role")
	while read -r band section ifname; do
		case $band in
		2g) ifname_2g=$ifname section_2g=$section ;;
		5g) ifname_5g=$ifname section_5g=$section ;;
		*) continue ;;
		esac
		parts="$parts${parts:+ }$band"
		ok chosen "$band" "the $word \"$section\" takes part"
	done << EOF
$lines
EOF
	[ -n "$parts" ] ||
		fault chosen '' "$none; name one: uci add_list kelm.main.$role='$example'; uci commit kelm; service wps restart"
	while IFS= read -r line; do
		[ -z "$line" ] || warning chosen '' "$line; correct list $role in /etc/config/kelm"
	done << EOF
$(left_out "$role" "$(printf '%s\n' "$lines" | sed 's/$/ /')")
EOF
}

# look_at_interface_of_stock BAND: status 1 where there is nothing more to be looked at.
look_at_interface_of_stock() {
	local radio why
	radio=$(radio_of "$section" "$1")
	why=$(off_trouble "$section" | grep . || radio_trouble "$radio")
	case $why in
	'')
		[ -n "$ifname" ] && return
		fault interface "$1" "netifd has made no interface for \"$section\"; logread -e netifd -e hostapd says why"
		;;
	"$NOT_YET") warning interface "$1" "$why; wait, on 5 GHz it may take minutes: logread -e hostapd says more" ;;
	'the network is switched off')
		fault interface "$1" "$why; uci set wireless.$section.disabled='0'; uci commit wireless; wifi reload"
		;;
	'the radio is switched off')
		fault interface "$1" "$why; uci set wireless.$radio.disabled='0'; uci commit wireless; wifi up"
		;;
	*) fault interface "$1" "$why; logread -e netifd -e hostapd says why" ;;
	esac
	return 1
}
