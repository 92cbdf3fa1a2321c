# SPDX-License-Identifier: ISC
# Checks of the networks: whether WPS can hand them out.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; the checks share what they have learnt

# shellcheck source=doctor/lib/running_bss.sh
. "$lib/running_bss.sh"

# net BAND: what is known of the band's access point: part, running_bss, and answer. Status 1 if that is nothing.
net() {
	part "$1"
	[ -n "$ifname" ] || return
	case $1 in
	2g) answer=$answer_2g ;;
	*) answer=$answer_5g ;;
	esac
	running_bss "$ifname" || [ -n "$answer" ]
}

# each_net FUNCTION: calls it as "FUNCTION BAND" for each access point that takes part and of which something is known.
each_net() {
	local band ifname section answer
	[ "$role" = ap ] || return 0
	for band in $parts; do
		! net "$band" || "$1" "$band"
	done
}

# in_answer NAME: prints the value of a line of the answer; status 1 without it.
in_answer() {
	local rest
	case "$LINE$answer" in
	*"$LINE$1="*)
		rest="$LINE$answer"
		rest=${rest#*"$LINE$1="}
		printf '%s\n' "${rest%%"$LINE"*}"
		;;
	*) return 1 ;;
	esac
}
LINE='
'

# has_word WORDS WORD...: whether one of them is among the first.
has_word() {
	local words=" $1 " word
	shift
	for word in "$@"; do
		case $words in
		*" $word "*) return 0 ;;
		esac
	done
	return 1
}

# network_name: the name of the network, for a sentence. hostapd tells it with escapes for strange bytes.
network_name() {
	local name
	name=$(in_answer ssid) && quoted "$name" || echo 'of unknown name'
}

# bad_network BAND CHECK SENTENCE: a fault for which hostapd switches WPS off. That need not be told again.
bad_network() {
	bad_networks="$bad_networks $1"
	fault "$2" "$1" "$3"
}

# --- The file that hostapd was given ---

# check_hostapd_file: half of the next checks look into it, and kelm takes the settings that hostapd has chosen from it.
check_hostapd_file() {
	local band ifname section
	[ "$role" = ap ] || return 0
	for band in $parts; do
		part "$band"
		# Of a radio that does not run there is none.
		{ [ -n "$ifname" ] && ! has_word "$idle_parts" "$band"; } || continue
		if running_bss "$ifname"; then
			ok hostapd-file "$band" "what hostapd was given for $ifname stands in $bss_file"
		elif [ -z "$is_root" ]; then
			warning hostapd-file "$band" "this user is not shown what hostapd was given for $ifname; run kelm-doctor as root"
		elif [ "$face" = stock ]; then
			warning hostapd-file "$band" "no /var/run/hostapd-*.conf is for $ifname, so half of it cannot be seen; let netifd write it: wifi reload"
		else
			warning hostapd-file "$band" "no /var/run/hostapd-*.conf is for $ifname, so kelm finds no settings that hostapd has chosen, and half of it cannot be seen; start hostapd with the file /var/run/hostapd-$ifname.conf"
		fi
	done
}

# --- Hidden ---

check_hidden() {
	bad_networks=''
	each_net look_whether_hidden
}

look_whether_hidden() {
	local cure="ignore_broadcast_ssid=0 in $bss_file"
	if [ "$face" = stock ]; then
		cure="uci set wireless.$section.hidden='0'; uci commit wireless; wifi reload"
		[ -z "$(hidden_trouble "$section" "$1")" ] || bss_hidden=1
	fi
	case ${bss_file:+known}$bss_hidden in
	'') ;;
	known | known0) ok hidden "$1" "the network $(network_name) is not hidden" ;;
	*) bad_network "$1" hidden "the network is hidden: WPS does not serve hidden networks; show it: $cure" ;;
	esac
}

# --- Multi-AP ---

check_backhaul() { each_net look_whether_backhaul; }

look_whether_backhaul() {
	if [ "$bss_backhaul" = 1 ] || { [ "$face" = stock ] && [ -n "$(backhaul_trouble "$section" "$1")" ]; }; then
		bad_network "$1" backhaul 'the network is a Multi-AP backhaul, for which hostapd has no WPS; choose another one'
	elif [ -n "$bss_file" ]; then
		ok backhaul "$1" 'the network is no Multi-AP backhaul'
	fi
}

# --- Encryption ---

check_encryption() { each_net look_at_encryption; }

look_at_encryption() {
	local why=''
	[ "$face" != stock ] || why=$(stock_encryption "$1")
	[ -n "$why" ] || why=$(encryption)
	case $why in
	good) ok encryption "$1" 'the network has a key that WPS can hand out (WPA2)' ;;
	open)
		# A maker's access point without a key gets a network of hostapd's at the first press.
		if [ "$face" = maker ]; then
			warning encryption "$1" 'the network is open: the first press gives it a new name and a key; set a key yourself if that is not wanted'
		else
			bad_network "$1" encryption "the network is open; give it a key, or: uci set kelm.main.open='secure'; uci commit kelm; service wps restart"
		fi
		;;
	wep) bad_network "$1" encryption "the network has WEP, which WPS does not hand out; $(encryption_cure psk2 'wpa=2, wpa_key_mgmt=WPA-PSK, rsn_pairwise=CCMP')" ;;
	wpa3) bad_network "$1" encryption "WPA3 only: WPS has no word for WPA3; $(encryption_cure sae-mixed 'wpa_key_mgmt=WPA-PSK SAE')" ;;
	tkip) bad_network "$1" encryption "TKIP only, or WPA without WPA2: hostapd has no WPS for that; $(encryption_cure psk2 'wpa=2, rsn_pairwise=CCMP')" ;;
	*) bad_network "$1" encryption "WPS cannot work with this encryption; $(encryption_cure psk2 'wpa=2, wpa_key_mgmt=WPA-PSK, rsn_pairwise=CCMP')" ;;
	esac
}

# encryption_cure OPENWRT HOSTAPD
encryption_cure() {
	if [ "$face" = stock ]; then
		printf '%s\n' "uci set wireless.$section.encryption='$1'; uci commit wireless; wifi reload"
	else
		printf '%s\n' "$2 in ${bss_file:-hostapd\'s file}"
	fi
}

# stock_encryption BAND: prints a word for what netifd has been told, nothing if that is good.
stock_encryption() {
	local encryption
	encryption=$(interface_config "$section" "$1" encryption)
	case $(encryption_trouble "$encryption")/$encryption in
	/*) ;;
	'the network is open/'*) echo open ;;
	'WPA3 only/'*) echo wpa3 ;;
	*/wep*) echo wep ;;
	*) echo other ;;
	esac
}

# encryption: prints a word for what hostapd runs with: good, open, wep, wpa3, tkip, other. What it answers counts more
# than the file, of which it has filled the gaps.
encryption() {
	local wpa key_mgmt ciphers
	wpa=$(in_answer wpa) || wpa=$bss_wpa
	key_mgmt=$(in_answer key_mgmt) || key_mgmt=${bss_key_mgmt:-WPA-PSK}
	ciphers=$(in_answer rsn_pairwise_cipher) || ciphers=${bss_rsn:-${bss_pairwise:-TKIP}}
	case $wpa in
	[123]) ;;
	*)
		[ -n "$bss_wep" ] && echo wep || echo open
		return
		;;
	esac
	if ! has_word "$key_mgmt" WPA-PSK WPA-PSK-SHA256 FT-PSK; then
		has_word "$key_mgmt" SAE FT-SAE SAE-EXT-KEY && echo wpa3 || echo other
	elif [ "$wpa" = 1 ] || ! has_word "$ciphers" CCMP GCMP CCMP-256 GCMP-256; then
		echo tkip
	else
		echo good
	fi
}

# --- What hostapd itself makes of it ---

check_wps() { each_net look_at_wps; }

look_at_wps() {
	local why state
	state=$(in_answer wps_state) || return 0
	case $face/$state in
	*/configured) ok wps "$1" 'hostapd has WPS for the network' && return ;;
	maker/'not configured') ok wps "$1" 'hostapd has WPS for the network, and will choose its key' && return ;;
	esac
	! has_word "$bad_networks" "$1" || return 0
	[ "$face" = maker ] || why=$(wps_trouble "$section" "$ifname" "$answer")
	case $why in
	'') fault wps "$1" "hostapd has no WPS for this network; wps_state=2 and eap_server=1 in ${bss_file:-hostapd\'s file}" ;;
	"$NOT_SET_UP") fault wps "$1" 'WPS is not set up for this network; the service sets it up: service wps restart' ;;
	*wps_pushbutton*) fault wps "$1" "$why; uci delete wireless.$section.wps_pushbutton; uci commit wireless; service wps restart" ;;
	*) fault wps "$1" "hostapd has no WPS for this network; logread -e hostapd says why" ;;
	esac
}
