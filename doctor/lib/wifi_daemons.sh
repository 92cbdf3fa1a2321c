# SPDX-License-Identifier: ISC
# Checks of hostapd and wpa_supplicant themselves: answering, and built with WPS.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; the checks share what they have learnt

# shellcheck source=doctor/lib/looking.sh
. "$lib/looking.sh"

# hostapd_cli and wpa_cli give up by themselves after ten seconds, and take their socket away then. This is for those
# that do not.
ANSWER_LIMIT=15

# check_root: others may read some files, and ask nobody.
check_root() {
	is_root=''
	if [ "$(id -u)" = 0 ]; then
		is_root=1
		ok root '' 'runs as root, so hostapd and wpa_supplicant can be asked'
	else
		warning root '' 'does not run as root: hostapd and wpa_supplicant cannot be asked, and some files not be read; run it as root'
	fi
}

# ask hostapd|wpa_supplicant IF QUESTION: prints the answer. The questions are those that change nothing.
ask() {
	local client=hostapd_cli
	[ "$1" = hostapd ] || client=wpa_cli
	limited $ANSWER_LIMIT $client -p "/var/run/$1" -i "$2" "$3" 2> /dev/null < /dev/null
}

# check_build: stock OpenWrt's programs say by themselves whether they have WPS.
check_build() {
	local why program=hostapd
	[ "$role" = ap ] || program=wpa_supplicant
	why=$(build_trouble "$role")
	if [ -z "$why" ]; then
		ok build '' "$program has WPS"
	else
		fault build '' "${why%%: *}; ${why#*: }, and restart the router"
	fi
}

# check_answers: sets answer_2g and answer_5g to what the next checks look into, empty without an answer. The
# passphrase is in it.
check_answers() {
	local band ifname section program=hostapd question=get_config answer
	answer_2g='' answer_5g=''
	[ "$role" = ap ] || program=wpa_supplicant question=status
	for band in $parts; do
		part "$band"
		case " $idle_parts " in
		*" $band "*) continue ;;
		esac
		{ can_ask $program "$band" && answers $program "$band"; } || continue
		answer=$(ask $program "$ifname" $question)
		case $band in
		2g) answer_2g=$answer ;;
		*) answer_5g=$answer ;;
		esac
		[ "$face" = stock ] || has_wps $program "$band" "$answer"
	done
}

# can_ask PROGRAM BAND
can_ask() {
	local socket=/var/run/$1/$ifname
	if [ -z "$is_root" ]; then
		warning answers "$2" "$1 cannot be asked by this user; run kelm-doctor as root"
	elif [ ! -e "$socket" ]; then
		fault answers "$2" "$1 has no socket $socket: it does not run, or not for this interface; start it, with ctrl_interface=/var/run/$1"
	elif [ ! -S "$socket" ]; then
		fault answers "$2" "$socket is no socket of $1; remove it, and restart $1"
	else
		return 0
	fi
	return 1
}

# answers PROGRAM BAND: one that hangs is told by the time that it takes.
answers() {
	local answer begin end rest
	read -r begin rest < /proc/uptime
	answer=$(ask "$1" "$ifname" ping)
	read -r end rest < /proc/uptime
	case $answer in
	*PONG*)
		ok answers "$2" "$1 answers on $ifname"
		return 0
		;;
	esac
	if [ $((${end%.*} - ${begin%.*})) -ge 5 ]; then
		fault answers "$2" "$1 does not answer on $ifname: it hangs; restart it"
	else
		fault answers "$2" "$1 does not answer on $ifname: its socket is left from one that is gone, or lets nobody in; restart it"
	fi
	return 1
}

# has_wps PROGRAM BAND ANSWER: what is in the answer of a build with WPS alone.
has_wps() {
	case $1/$3 in
	hostapd/*wps_state=* | wpa_supplicant/*uuid=*) ok build "$2" "$1 has WPS" ;;
	*/) fault build "$2" "$1 answers on $ifname, and then says nothing; restart it" ;;
	*) fault build "$2" "$1 was built without WPS; build it with CONFIG_WPS=y" ;;
	esac
}
