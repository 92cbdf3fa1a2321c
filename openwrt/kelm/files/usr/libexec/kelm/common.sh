# SPDX-License-Identifier: ISC
# What kelm's scripts share. For busybox ash: `. /usr/libexec/kelm/common.sh`.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# shellcheck source=/dev/null
. /lib/functions.sh

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
	case $(kelm_setting "$1" "$2") in
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

# write_file PATH MODE: the standard input becomes the file, whole or not at all. What waits under the name, a link or
# a FIFO, is replaced and not followed.
write_file() {
	local new
	new=$(mktemp "$1.XXXXXX" 2> /dev/null) || return 1
	if cat 2> /dev/null > "$new" && chmod "$2" "$new" && mv -fT "$new" "$1"; then
		return 0
	fi
	rm -f "$new"
	return 1
}

# write_state FILE: the same for a file of the state folder, which all may read.
write_state() {
	[ -d "$KELM_STATE" ] || mkdir -p "$KELM_STATE" || return 1
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
	band=$(uci -q get "wireless.$1.device") && band=$(radio_band "${band%% *}") && printf '%s\n' "$band"
}

# radio_band RADIO: prints the band of a wifi-device section. Files from before 22.03 have no band.
radio_band() {
	uci -q get "wireless.$1.band" && return
	case $(uci -q get "wireless.$1.hwmode") in
	11a*) printf '5g\n' ;;
	11b* | 11g*) printf '2g\n' ;;
	*) return 1 ;;
	esac
}

# wireless_status: prints what netifd says of the radios. Passphrases are in it: pass it on through a pipe, never
# as an argument, for arguments can be read by everybody.
wireless_status() { ubus -S call network.wireless status 2> /dev/null; }

# ask_status EXPRESSION: jsonfilter on $wireless, which the caller has taken from wireless_status.
ask_status() { printf '%s' "$wireless" | jsonfilter -q -e "$1"; }

# chosen ap|sta: prints "BAND SECTION IFNAME" for each interface that takes part, at most one for each band. IFNAME
# is missing while the radio is not set up. Without a list of the owner's these are the first enabled access point
# with wps_pushbutton and the first enabled station. A section that is in two radios is chosen in both.
chosen() {
	local wireless sections section band
	wireless=$(wireless_status) || return 1
	sections=$(kelm_list "$1")
	[ -n "$sections" ] || sections=$(first_sections "$1")
	for band in $KELM_BANDS; do
		for section in $sections; do
			section_in_band "$1" "$section" "$band" || continue
			printf '%s %s %s\n' "$band" "$section" "$(ifname_of "$section" "$band")"
			break
		done
	done
}

ifname_of() { ask_status "@[@.config.band='$2'].interfaces[@.section='$1'].ifname" | head -n 1; }

section_in_band() {
	local radio
	[ -n "$(ask_status "@[@.config.band='$3'].interfaces[@.section='$2'].section")" ] && return
	# netifd does not tell of a section that is switched off: where it would be says the configuration.
	[ "$(uci -q get "wireless.$2.mode")" = "$1" ] || return 1
	for radio in $(uci -q get "wireless.$2.device"); do
		[ "$(radio_band "$radio")" != "$3" ] || return 0
	done
	return 1
}

# first_sections ap|sta: prints the sections that may be chosen without a list, in the order of the file.
first_sections() {
	config_load wireless || return
	config_foreach first_section wifi-iface "$1"
}

first_section() {
	local mode off wps
	config_get mode "$1" mode
	config_get_bool off "$1" disabled 0
	config_get_bool wps "$1" wps_pushbutton 0
	[ "$mode" = "$2" ] && [ "$off" = 0 ] || return
	[ "$2" = sta ] || [ "$wps" = 1 ] || return
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
