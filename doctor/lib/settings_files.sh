# SPDX-License-Identifier: ISC
# What the checks of the settings files share: who writes them, and how it is told that one was not read. Needs
# looking.sh, which it reads itself.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; looking.sh and kelm-doctor set the rest

# shellcheck source=doctor/lib/looking.sh
. "$lib/looking.sh"

ALL_BANDS='2g 5g 5g2 6g'
BANDS_FILE=/tmp/device.info
WPS_FILE=/tmp/wps.conf

# settings_cure WHAT: who writes the settings files, as the end of a sentence.
settings_cure() {
	if [ "$face" = stock ]; then
		echo 'the service writes it: service wps start'
	else
		echo "have /etc/init.d/wps write $1 before it starts kelm"
	fi
}

# tell_unread CHECK BAND PATH CONSEQUENCE CURE: why it was not read. What this user may not see need be no fault.
tell_unread() {
	case $why in
	*"${NOT_ROOT:-by nobody}") warning "$1" "$2" "$3 $why" ;;
	*) fault "$1" "$2" "$3 $why: $4; $5" ;;
	esac
}

# settings_are_due: on stock OpenWrt the service takes them away while it is off, and writes none while it can serve no
# band.
settings_are_due() { [ "$face" = maker ] || { kelm_switch enabled && ! serves_nothing; }; }

# serves_nothing: whether the service says so. Sets why to its reason.
serves_nothing() {
	local name value state=''
	why=''
	[ -f /var/run/kelm/state ] || return
	while IFS='=' read -r name value; do
		case $name in
		state) state=$value ;;
		message) why=$value ;;
		esac
	done < /var/run/kelm/state
	[ "$state" = not-ready ]
}

# is_clean_since COUNT: whether nothing was found since there were so many findings. A check that has found nothing says
# so.
is_clean_since() { [ $((warnings + faults)) = "$1" ]; }

# bands_words BANDS: the bands as people call them.
bands_words() {
	local band words=''
	for band in $1; do
		words="$words${words:+, }$(band_words "$band")"
	done
	printf '%s\n' "$words"
}
