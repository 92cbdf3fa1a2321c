# SPDX-License-Identifier: ISC
# Which interfaces take part, by /etc/config/wireless and netifd. Needs router.sh.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# load_wireless: reads /etc/config/wireless, once.
load_wireless() {
	[ -z "$wireless_is_loaded" ] || return 0
	# shellcheck source=/dev/null
	command -v config_load > /dev/null || . /lib/functions.sh
	config_load wireless && wireless_is_loaded=1
}

# wireless_option SECTION OPTION: prints it; status 1 if it is not set.
wireless_option() {
	local value=''
	load_wireless
	config_get value "$1" "$2"
	[ -n "$value" ] && printf '%s\n' "$value"
}

# radio_band RADIO: prints the band of a wifi-device section. Files from before 22.03 have no band.
radio_band() {
	wireless_option "$1" band && return
	case $(wireless_option "$1" hwmode) in
	11a*) printf '5g\n' ;;
	11b* | 11g*) printf '2g\n' ;;
	*) return 1 ;;
	esac
}

# wireless_status: prints what netifd says of the radios. Passphrases are in it: pass it on through a pipe, never
# as an argument, for arguments can be read by everybody.
wireless_status() { ubus -t 5 -S call network.wireless status 2> /dev/null; }

# ask_status EXPRESSION: jsonfilter on $wireless, which the caller has taken from wireless_status.
ask_status() { printf '%s' "$wireless" | jsonfilter -q -e "$1"; }

# radio_of SECTION BAND: prints the radio of that band which the section is in. More than one: the first.
radio_of() {
	local radio
	for radio in $(wireless_option "$1" device); do
		[ "$(radio_band "$radio")" != "$2" ] || { printf '%s\n' "$radio" && return; }
	done
	return 1
}

# chosen ap|sta: prints "BAND SECTION IFNAME" for each interface that takes part, at most one for each band. IFNAME
# is missing while the radio is not set up. Without a list of the owner's these are the first enabled access point
# with a wps_pushbutton that is not ours, and the first enabled station. A section that is in two radios is chosen in
# both. Which they are says the configuration, for netifd does not tell of a section that is switched off.
chosen() {
	local sections section band radio
	: "${wireless:=$(wireless_status)}"
	load_wireless
	sections=$(kelm_list "$1")
	[ -n "$sections" ] || sections=$(first_sections "$1")
	for band in $KELM_BANDS; do
		for section in $sections; do
			[ "$(wireless_option "$section" mode)" = "$1" ] || continue
			radio=$(radio_of "$section" "$band") || continue
			printf '%s %s %s\n' "$band" "$section" "$(ask_status "$(in_status "$radio" "$section").ifname")"
			break
		done
	done
}

# in_status RADIO SECTION: prints where an interface stands in what netifd says.
in_status() { printf '%s\n' "@['$1'].interfaces[@.section='$2']"; }

# first_sections ap|sta: prints the sections that may be chosen without a list, in the order of the file.
first_sections() {
	config_foreach first_section wifi-iface "$1" " $(uci -q get kelm.added.pushbutton) "
}

first_section() {
	local mode off wps
	config_get mode "$1" mode
	config_get_bool off "$1" disabled 0
	config_get_bool wps "$1" wps_pushbutton 0
	[ "$mode" = "$2" ] && [ "$off" = 0 ] || return
	case $2$wps$3 in
	ap0* | *" $1 "*) return ;;
	esac
	printf '%s\n' "$1"
}
