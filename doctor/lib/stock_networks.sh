# SPDX-License-Identifier: ISC
# Why an interface of stock OpenWrt cannot be served, by /etc/config/wireless, netifd and hostapd: what kelm-doctor and
# the service share. It only reads. Needs router.sh, radios.sh and running_bss.sh.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

NOT_YET='radio is still starting'
NOT_SET_UP='WPS is not set up for it'
NO_WPS='has no WPS: install wpad-mbedtls in place of wpad-basic-mbedtls'

# build_trouble ap|sta: prints what no waiting will change.
build_trouble() {
	if [ "$1" = sta ]; then
		wpa_supplicant -vwps > /dev/null 2>&1 || echo "wpa_supplicant $NO_WPS"
	else
		hostapd -vwps > /dev/null 2>&1 || echo "hostapd $NO_WPS"
	fi
}

# interface_config SECTION BAND OPTION: prints what the interface runs with.
interface_config() { ask_status "$(in_status "$(radio_of "$1" "$2")" "$1").config.$3"; }

# off_trouble SECTION
off_trouble() {
	local off
	config_get_bool off "$1" disabled 0
	[ "$off" = 0 ] || echo 'the network is switched off'
}

radio_trouble() {
	local radio=$1
	[ "$(ask_status "@['$radio'].up")/$(ask_status "@['$radio'].pending")" != true/false ] || return
	[ "$(ask_status "@['$radio'].disabled")" != true ] || { echo 'the radio is switched off' && return; }
	[ "$(ask_status "@['$radio'].pending")" != true ] || { echo "$NOT_YET" && return; }
	[ "$(ask_status "@['$radio'].autostart")" != false ] || { echo 'the radio is switched off' && return; }
	[ "$(ask_status "@['$radio'].retry_setup_failed")" != true ] || { echo 'the radio does not start' && return; }
	echo "$NOT_YET"
}

# hidden_trouble SECTION BAND
hidden_trouble() {
	case $(interface_config "$1" "$2" hidden) in
	1 | true) echo 'the network is hidden' ;;
	esac
}

# backhaul_trouble SECTION BAND
backhaul_trouble() {
	[ "$(interface_config "$1" "$2" multi_ap)" != 1 ] || echo 'the network is a Multi-AP backhaul'
}

# encryption_trouble ENCRYPTION, in the words of /etc/config/wireless.
encryption_trouble() {
	case $1 in
	'' | none | open) echo 'the network is open' ;;
	sae-mixed* | psk3-mixed* | psk*-mixed* | psk | psk+* | psk2 | psk2+*) ;;
	sae* | psk3*) echo 'WPA3 only' ;;
	*) echo 'WPS cannot work with this encryption' ;;
	esac
}

# wps_trouble SECTION IFNAME ANSWER: by hostapd's answer to get_config. It takes WPS away by its own rules, TKIP alone
# for one.
wps_trouble() {
	case $3 in
	*wps_state=configured*) return ;;
	*'wps_state=not configured'*) echo 'the network is open' ;;
	*wps_state=disabled*)
		running_bss "$2"
		if [ "$(uci -q get "wireless.$1.wps_pushbutton")" = 0 ]; then
			echo 'its wps_pushbutton is 0'
		elif [ -z "$bss_wps" ]; then
			echo "$NOT_SET_UP"
		else
			echo 'WPS cannot work with this encryption'
		fi
		;;
	*) echo "$NOT_YET" ;;
	esac
}

# left_out KIND LINES: prints a sentence for each section of the owner's list that takes no part. LINES are those of
# chosen, each with a blank behind it.
left_out() {
	local section band
	for section in $(kelm_setting "$1"); do
		case $2 in
		*" $section "*) continue ;;
		esac
		band=$(uci -q get "wireless.$section.device") && band=$(radio_band "${band%% *}")
		case $(uci -q get "wireless.$section").$(uci -q get "wireless.$section.mode").$band in
		wifi-iface."$1".[25]g) printf '%s: one on a band, %s is left out\n' "$(band_words "$band")" "$section" ;;
		wifi-iface."$1".*) printf '%s is left out: no WPS on %s\n' "$section" "${band:-its radio}" ;;
		wifi-iface.*) printf '%s is left out: its mode is not %s\n' "$section" "$1" ;;
		*) printf '%s is not in /etc/config/wireless\n' "$section" ;;
		esac
	done
}
