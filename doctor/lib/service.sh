# SPDX-License-Identifier: ISC
# Checks of what the daemon calls: the service scripts with their verbs, and the programs. None of them is run.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; looking.sh and kelm-doctor set the rest

# shellcheck source=doctor/lib/looking.sh
. "$lib/looking.sh"

SCRIPT_MAX=262144 # bytes of a script that are looked at
USUAL_PATH=/usr/sbin:/usr/bin:/sbin:/bin
ROOTS_CURE='give it to root: chown root'

# --- What the daemon was told ---

# daemon_variable NAME: prints what the environment of the daemon that runs says. Status 1 if it does not, or none runs.
daemon_variable() {
	local pid line
	find_daemon || return
	line=$(tr '\0' '\n' 2> /dev/null < "/proc/$pid/environ" | grep "^$1=") && printf '%s\n' "${line#*=}"
}

# daemon_path: where the daemon looks for programs, or will.
daemon_path() {
	daemon_variable PATH && return
	if [ "$face" = stock ]; then
		printf '/usr/libexec/kelm/bin:%s\n' $USUAL_PATH
	else
		printf '%s\n' $USUAL_PATH
	fi
}

# scan_program: what the daemon calls in place of /usr/bin/wifi, or will.
scan_program() {
	daemon_variable KELM_WIFI | grep . && return
	if [ "$face" = stock ]; then
		echo /usr/libexec/kelm/scan
	else
		echo /usr/bin/wifi
	fi
}

# --- A program as a file ---

# check_runnable CHECK PATH: tells why it cannot be run, or who else could change it. Status 1 if there is no use in
# reading it.
check_runnable() {
	if ! find_file "$2"; then
		case $why in
		*'hard link'*) ;; # such as those of busybox
		*'belongs to user'*)
			fault "$1" '' "$2 belongs to user $owner, who so chooses what root runs; $ROOTS_CURE $2"
			return 1
			;;
		*) fault "$1" '' "$2 $why; install it" && return 1 ;;
		esac
	fi
	! others_may_write || fault "$1" '' "others than root may write to $real, and so choose what root runs; chmod go-w $real"
	[ -x "$real" ] || { fault "$1" '' "$2 cannot be run; chmod +x $real" && return 1; }
}

# check_interpreter CHECK PATH: of the script in text.
check_interpreter() {
	local first=${text%%"$LINE_FEED"*} program
	case $first in
	'#!'*) ;;
	*) return 0 ;;
	esac
	program=${first#'#!'}
	program=${program#"${program%%[! ]*}"}
	program=${program%%[ ]*}
	case $first in
	*"$CARRIAGE_RETURN") fault "$1" '' "the first line of $2 ends in a carriage return, so it cannot be run; end each line with a line feed alone" ;;
	*) [ -x "$program" ] || fault "$1" '' "$2 is for $(quoted "$program"), which is not there; install that, or write it for /bin/sh" ;;
	esac
}
CARRIAGE_RETURN=$(printf '\r')
LINE_FEED='
'

# --- Verbs ---

# mentions WORD: whether the text has it, as a word, outside of comments.
mentions() {
	printf '%s\n' "$text" | awk -v word="$1" '
		{ line = $0; sub(/(^|[ \t;])#.*/, "", line) }
		{
			while ((at = index(line, word)) > 0) {
				before = at > 1 ? substr(line, at - 1, 1) : " "
				behind = substr(line, at + length(word), 1)
				if (before !~ /[A-Za-z0-9_-]/ && behind !~ /[A-Za-z0-9_-]/) { found = 1; exit }
				line = substr(line, at + length(word))
			}
		}
		END { exit !found }'
}

# knows VERB: whether the script in text, or one that it takes in by its name, knows it, as far as reading can tell. An
# init script of OpenWrt gets start, stop and restart from its interpreter.
knows() {
	local script text=$text
	mentions "$1" && return
	case $1:${text%%"$LINE_FEED"*} in
	start:*/etc/rc.common* | stop:*/etc/rc.common* | restart:*/etc/rc.common*) return 0 ;;
	esac
	for script in $(printf '%s\n' "$text" | awk '($1 == "." || $1 == "source") && $2 ~ /^"?\// { gsub(/[";]/, "", $2); print $2 }' | head -n 20); do
		read_text "$script" $SCRIPT_MAX && mentions "$1" && return
	done
	return 1
}

# check_script CHECK PATH VERB=CONSEQUENCE...: the script is there, root's, can be run, and knows the verbs.
check_script() {
	local check=$1 path=$2 verb before=$((warnings + faults))
	shift 2
	check_runnable "$check" "$path" || return
	load_text $SCRIPT_MAX || { fault "$check" '' "$path $why; write it anew" && return; }
	if [ -z "$text" ]; then
		fault "$check" '' "$path is empty, so it does nothing; write it"
		return
	fi
	case $text in
	?ELF*)
		ok "$check" '' "$path is there, and is root's; it is no script, so what it knows cannot be seen"
		return
		;;
	esac
	check_interpreter "$check" "$path"
	for verb; do
		knows "${verb%%=*}" || warning "$check" '' "$path does not seem to know \"${verb%%=*}\": ${verb#*=}; add that verb"
	done
	[ $((warnings + faults)) != "$before" ] || ok "$check" '' "$path is there, is root's, and knows its verbs"
}

check_service_wps() {
	check_script service-wps /etc/init.d/wps 'restart=after an attempt no kelm is started again' \
		'config_wifi=what was learnt is not stored' 'mesh_config_wifi=what was learnt of a mesh is not stored' \
		're_kelm_info=nobody hears of the outcome after the wireless was restarted'
}

check_service_wifi() {
	check_script service-wifi /etc/init.d/wifi 'force_restart=what was learnt does not take effect, and no kelm is started again' \
		'restart_from_wps=the same, for a mesh'
}

# check_service_scan: a repeater looks for the other radio of the router that it has joined.
check_service_scan() {
	if [ "${run_mode:-$role}" != sta ]; then
		ok service-scan '' 'an access point needs no scan'
		return
	fi
	check_script service-scan "$(scan_program)" 'scan=a band that did not enrol finds no network' \
		'getscanresult=a band that did not enrol finds no network'
}

# check_at_boot: a script that starts itself in another way is none of OpenWrt's.
check_at_boot() {
	local link
	for link in /etc/rc.d/S[0-9][0-9]wps; do
		[ ! -L "$link" ] || { ok at-boot '' 'the service is started at boot' && return; }
	done
	if [ ! -d /etc/rc.d ]; then
		ok at-boot '' 'there is no /etc/rc.d, so whether the service is started at boot cannot be seen'
	else
		warning at-boot '' 'nothing in /etc/rc.d starts the service at boot; /etc/init.d/wps enable'
	fi
}

# --- Programs ---

# find_program NAME PATH: sets program to where it is. Status 1 if it is nowhere.
find_program() {
	local folders=$2: folder
	while [ -n "$folders" ]; do
		folder=${folders%%:*}
		folders=${folders#*:}
		program=${folder:-.}/$1
		[ ! -f "$program" ] || [ ! -x "$program" ] || return 0
	done
	return 1
}

# check_folders PATH: who may put a program there chooses what root runs.
check_folders() {
	local folders=$1: folder
	while [ -n "$folders" ]; do
		folder=${folders%%:*}
		folders=${folders#*:}
		case $folder in
		/*)
			look_at "$folder/." || continue
			if [ "$owner" = 0 ] && ! others_may_write; then
				continue
			fi
			fault programs '' "others than root may put programs into $(quoted "$folder"), a folder of the PATH of kelm; take that right away: chmod go-w, chown root"
			;;
		*) fault programs '' "$(quoted "$folder") in the PATH of kelm is no folder from the root on: who chooses the folder in which kelm is started chooses what it runs; leave it out" ;;
		esac
	done
}

check_programs() {
	local path name before=$((warnings + faults)) program
	path=$(daemon_path)
	check_folders "$path"
	needs_program hostapd_cli ap 'a press is announced, and hostapd is not told of it'
	needs_program wpa_cli sta 'a press is announced, and wpa_supplicant is not told of it'
	needs_program ubus '' 'nobody hears of an attempt'
	for name in sh rm cp touch echo sleep; do
		needs_program $name '' 'kelm cannot write its files'
	done
	find_program killall "$path" || warning programs '' 'killall is not there: a wpa_cli that somebody left running disturbs the attempt; install it'
	[ $((warnings + faults)) != "$before" ] || ok programs '' "the programs that kelm calls are there, in $path"
}

# needs_program NAME MODE CONSEQUENCE: MODE is ap or sta where it is for one of them alone.
needs_program() {
	[ -z "$2" ] || [ "$2" = "${run_mode:-$role}" ] || return 0
	if find_program "$1" "$path"; then
		check_runnable programs "$program"
	else
		fault programs '' "$1 is not there: $3; install it, in a folder of the PATH of kelm ($path)"
	fi
}
