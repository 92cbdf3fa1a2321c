# SPDX-License-Identifier: ISC
# What kelm's scripts share. For busybox ash: `. /usr/libexec/kelm/common.sh`.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# shellcheck source=/dev/null
. "$IPKG_INSTROOT/lib/functions.sh"

# shellcheck disable=SC2034  # for those who source this
KELM=/usr/libexec/kelm
KELM_STATE=/var/run/kelm
KELM_BANDS='2g 5g'

# say TEXT...: one line for the system log.
say() { logger -t kelm -p daemon.notice -- "$*"; }

# kelm_setting NAME [DEFAULT]: prints the option of /etc/config/kelm; the default where there is none.
kelm_setting() {
	local value
	value=$(uci -q get "kelm.main.$1") || value=
	printf '%s\n' "${value:-$2}"
}

# kelm_switch NAME [DEFAULT]: status 0 if the option is on.
kelm_switch() {
	local value
	value=$(uci -q get "kelm.main.$1") # not by kelm_setting: a press waits for this, and for each process
	case ${value:-$2} in
	1 | on | true | yes | enabled) return 0 ;;
	esac
	return 1
}

# kelm_list NAME: prints the items of a list of UCI section names, one a line. What is no such name is left out.
kelm_list() {
	local item
	for item in $(kelm_setting "$1"); do
		case $item in
		*[!A-Za-z0-9_]*) ;;
		*) printf '%s\n' "$item" ;;
		esac
	done
}

is_repeater() { [ "$(kelm_setting mode ap)" = repeater ]; }

# state_of FILE NAME: prints the value of a name in a file of the state folder; status 1 if it is not there.
state_of() {
	local line
	[ -f "$KELM_STATE/$1" ] || return 1
	while IFS= read -r line; do
		case $line in
		"$2="*)
			printf '%s\n' "${line#*=}"
			return 0
			;;
		esac
	done < "$KELM_STATE/$1"
	return 1
}

# is_own FILE: status 0 for a file that is root's alone: nobody else can put another thing in its place.
is_own() { [ -f "$1" ] && [ ! -L "$1" ] && [ -O "$1" ]; }

# clear_folder PATH: moves a folder away that bars the name of a file. Nothing is removed in it: it may be a
# stranger's, who could put a link there meanwhile.
clear_folder() {
	[ ! -d "$1" ] || [ -L "$1" ] || mv "$1" "$(mktemp -d "$1.XXXXXX")"
}

# write_file PATH MODE: the standard input becomes the file, whole or not at all. What waits under the name, a link, a
# FIFO or a folder, is replaced and not followed.
write_file() {
	local new
	clear_folder "$1"
	new=$(mktemp "$1.XXXXXX" 2> /dev/null) || return 1
	# mv takes a link to a folder for the folder.
	[ ! -L "$1" ] || rm -f "$1"
	if cat 2> /dev/null > "$new" && chmod "$2" "$new" && mv -fT "$new" "$1" 2> /dev/null; then
		return 0
	fi
	rm -f "$new"
	return 1
}

# write_state FILE: the same for a file of the state folder, which all may read.
write_state() {
	mkdir -p "$KELM_STATE" || return 1
	write_file "$KELM_STATE/$1" 0644
}

# set_state STATE MESSAGE: what the service does, and in words for a person.
set_state() { printf 'state=%s\nmessage=%s\n' "$1" "$2" | write_state state; }

# band_words BAND: the band as people call it.
band_words() {
	case $1 in
	2g) printf '2.4 GHz\n' ;;
	5g) printf '5 GHz\n' ;;
	*) printf '%s\n' "$1" ;;
	esac
}

# kelm_name BAND: the name that the daemon has for the band's interface, without the station's "-vxd".
kelm_name() {
	case $1 in
	2g) printf 'wlan1\n' ;;
	5g) printf 'wlan0\n' ;;
	*) return 1 ;;
	esac
}

# band_of IF|SECTION: prints 2g or 5g, for the daemon's name, the interface's own, or its UCI section.
band_of() {
	local band
	case $1 in
	wlan1 | wlan1-vxd) printf '2g\n' && return ;;
	wlan0 | wlan0-vxd) printf '5g\n' && return ;;
	esac
	for band in $KELM_BANDS; do
		[ "$1" = "$(state_of "band.$band" ifname)" ] || [ "$1" = "$(state_of "band.$band" section)" ] || continue
		printf '%s\n' "$band"
		return
	done
	band=$(wireless_option "$1" device) && band=$(radio_band "${band%% *}") && printf '%s\n' "$band"
}

# load_wireless: reads /etc/config/wireless, once.
load_wireless() {
	[ -z "$wireless_is_loaded" ] || return 0
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
# with a wps_pushbutton that is not ours, and the first enabled station. A section that is in two radios is chosen in both. Which they
# are says the configuration, for netifd does not tell of a section that is switched off.
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

# json_text TEXT: prints a JSON string of any bytes. Bytes that are no UTF-8 become U+FFFD.
json_text() {
	case $1 in
	*[!\ !#-Z^-~[]*) ;;
	*) printf '"%s"\n' "$1" && return ;;
	esac
	printf '%s' "$1" | hexdump -v -e '1/1 "%u\n"' | awk '
		# How many bytes follow the first of a sequence, and the range of the second: no overlong form,
		# no surrogate, nothing above U+10FFFF.
		function follows(first) {
			low = first == 224 ? 160 : first == 240 ? 144 : 128
			high = first == 237 ? 159 : first == 244 ? 143 : 191
			return first < 194 || first > 244 ? -1 : first < 224 ? 1 : first < 240 ? 2 : 3
		}
		function put(i, last) { for (; i <= last; i++) printf "%c", byte[i] }
		{ byte[NR] = $1 + 0 }
		END {
			printf "\""
			for (i = 1; i <= NR; i++) {
				b = byte[i]
				if (b == 34 || b == 92) { printf "\\%c", b; continue }
				if (b < 32 || b == 127) { printf "\\u%04x", b; continue }
				if (b < 128) { printf "%c", b; continue }
				more = follows(b)
				good = more > 0 && i + more <= NR
				for (k = 1; good && k <= more; k++) {
					good = byte[i + k] >= low && byte[i + k] <= high
					low = 128; high = 191
				}
				if (!good) { printf "\357\277\275"; continue }
				put(i, i + more)
				i += more
			}
			printf "\"\n"
		}'
}

# daemon_pid: prints the daemon's process number; status 1 if none lives.
daemon_pid() {
	local pid name
	is_own /tmp/kelm.pid || return 1
	read -r pid 2> /dev/null < /tmp/kelm.pid
	case $pid in
	'' | *[!0-9]*) return 1 ;;
	esac
	read -r name 2> /dev/null < "/proc/$pid/comm" && [ "$name" = kelm ] && printf '%s\n' "$pid"
}

# attempt_runs: status 0 while the daemon serves an attempt. A note of a daemon that was killed does not count.
attempt_runs() { [ "$(state_of attempt running)" = 1 ] && daemon_pid > /dev/null; }

# note_link BAND IFNAME: writes down for the daemon whether the station has a link. It reads that at each press.
note_link() {
	local up=0
	case $(/usr/sbin/wpa_cli -p /var/run/wpa_supplicant -i "$2" status 2> /dev/null) in
	*wpa_state=COMPLETED*) up=1 ;;
	esac
	printf '{"status": %s}\n' "$up" | write_file "/tmp/wifi_runtime_info.$1" 0644
}

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

# lasting_key IF: sees to it that hostapd hands out the network's own key. Beside a file of keys for devices it would
# make up a new one for each client, which it cannot store: it is not root. A line for the address of zeros tells it
# what to hand out. Without such a file it hands out the network's key by itself.
lasting_key() {
	local line wanted new
	running_bss "$1" || return
	case $bss_psk_file in
	/var/run/* | /tmp/run/*) ;;
	*) return 0 ;; # none, or a file of the owner's, who sees to it himself
	esac
	[ -n "$bss_key" ] && is_own "$bss_psk_file" || return 1
	wanted="wps=1 00:00:00:00:00:00 $bss_key"
	while IFS= read -r line; do
		[ "$line" != "$wanted" ] || return 0
	done < "$bss_psk_file"

	new=$(mktemp "$bss_psk_file.XXXXXX" 2> /dev/null) || return 1
	if cp -p "$bss_psk_file" "$new" && {
		grep -v '^wps=1 00:00:00:00:00:00 ' "$bss_psk_file"
		printf '%s\n' "$wanted"
	} 2> /dev/null > "$new" && mv -f "$new" "$bss_psk_file"; then
		load_keys "$1"
		return
	fi
	rm -f "$new"
	return 1
}

# load_keys IF: has hostapd read its file of keys again. Nobody is disconnected.
load_keys() {
	[ "$(/usr/sbin/hostapd_cli -p /var/run/hostapd -i "$1" raw RELOAD_WPA_PSK 2> /dev/null)" = OK ]
}
