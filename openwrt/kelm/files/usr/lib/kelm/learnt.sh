# SPDX-License-Identifier: ISC
# What the daemon's credential files hold, and UCI's words for it. For apply.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

FILE_MAX=65536 # bytes; the daemon's have less than two thousand

NL='
'

# is_learnt FILE: whether it is the daemon's and holds JSON. An empty one means "nothing new".
is_learnt() {
	[ -s "$1" ] || return 1
	if [ ! -f "$1" ] || [ -L "$1" ] || [ ! -O "$1" ] || [ "$(wc -c < "$1")" -gt "$FILE_MAX" ] ||
		! jsonfilter -q -i "$1" -e @ > /dev/null; then
		say "$1 is not what kelm writes: it is not used"
		return 1
	fi
}

# member FILE STEM BAND: prints a word of a band's.
member() { jsonfilter -q -i "$1" -e "@.$2_$3"; }

# text_of FILE STEM BAND: prints a text byte for byte. Status 1 if there is none, or if it
# holds a zero byte or a newline, which UCI cannot.
text_of() {
	local text
	if text=$(member "$1" "$2_hex" "$3"); then
		[ $((${#text} % 2)) -eq 0 ] || return 1
		text=$(printf '%s' "$text" | sed 's/../\\x&/g')
		case $text in
		*[!0-9a-fx\\]* | *\\x00* | *\\x0a*) return 1 ;;
		esac
		printf '%b' "$text"
		return 0
	fi
	# The mark keeps a newline at the end, which the shell would take away.
	text=$(member "$1" "$2" "$3" && printf x) || return 1
	text=${text%"${NL}x"}
	case $text in
	*"$NL"*) return 1 ;;
	esac
	printf '%s' "$text"
}

# uci_encryption SECURITY CIPHER: prints UCI's word for the two; status 1 for what a stock station cannot do.
uci_encryption() {
	local cipher=""
	case $2 in
	aes) cipher=+ccmp ;;
	tkip) cipher=+tkip ;;
	esac
	case $1 in
	none | owe) printf '%s\n' "$1" ;;
	wpa) printf 'psk%s\n' "$cipher" ;;
	wpa2) printf 'psk2%s\n' "$cipher" ;;
	wpa/wpa2) printf 'psk-mixed%s\n' "$cipher" ;;
	sae_only | wpa3) printf 'sae\n' ;;
	psk_sae | wpa2/wpa3) printf 'sae-mixed\n' ;;
	*) return 1 ;;
	esac
}

# rank ENCRYPTION: prints how safe one is that has a key: the more, the safer. 0: it has none worth the name; 9: it
# has users in place of a key.
rank() {
	case ${1%%+*} in
	psk) echo 1 ;;
	psk-mixed) echo 2 ;;
	psk2) echo 3 ;;
	sae-mixed | psk-sae) echo 4 ;;
	sae) echo 5 ;;
	wpa* | eap* | dpp*) echo 9 ;;
	*) echo 0 ;;
	esac
}

# is_raw_key KEY: 64 hexadecimal digits are the key itself, no passphrase that it is made of.
is_raw_key() {
	[ "${#1}" -eq 64 ] || return 1
	case $1 in
	*[!0-9A-Fa-f]*) return 1 ;;
	esac
}

# is_usable SSID KEY ENCRYPTION: whether netifd can set up a network of these.
is_usable() {
	[ "${#1}" -ge 1 ] && [ "${#1}" -le 32 ] || return 1
	case $3 in
	none | owe) [ -z "$2" ] ;;
	sae) [ -n "$2" ] && [ "${#2}" -le 63 ] ;;
	*) is_raw_key "$2" || { [ "${#2}" -ge 8 ] && [ "${#2}" -le 63 ]; } ;;
	esac
}

# quoted TEXT: prints it as one word of uci's batch language.
quoted() {
	local rest="$1" out=""
	while [ "$rest" != "${rest#*\'}" ]; do
		out="$out${rest%%\'*}'\\''"
		rest=${rest#*\'}
	done
	printf "'%s'" "$out$rest"
}
