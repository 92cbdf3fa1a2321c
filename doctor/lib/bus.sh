# SPDX-License-Identifier: ISC
# Checks of the bus, of the daemon, and of the button.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local
# shellcheck disable=SC2154,SC2034  # looking.sh and kelm-doctor set the rest

# shellcheck source=doctor/lib/looking.sh
. "$lib/looking.sh"

BUS_LIMIT=5     # seconds for the broker to answer
RELEASE_WAIT=3  # seconds that are waited for a second event of the same press
NAMES_MAX=5     # of other events that are told
NOTHING_THERE=4 # what ubus ends with where no object is on the bus
TIMED_OUT=7
MARK=kelm-doctor # an event of our own, to know that events come

# check_bus: what is on the bus is asked, and not looked at.
check_bus() {
	local status=0
	bus_answers=''
	if ! command -v ubus > /dev/null; then
		fault bus '' 'the command ubus is not there, so nobody can send or hear anything; install ubus'
		return
	fi
	limited $BUS_LIMIT ubus -S -t $BUS_LIMIT list < /dev/null > /dev/null 2>&1 || status=$?
	case $status in
	0 | "$NOTHING_THERE")
		bus_answers=1
		ok bus '' 'ubus answers'
		;;
	*)
		if [ $status -gt 128 ] && [ $status -lt 160 ] || [ $status = $TIMED_OUT ]; then
			fault bus '' "ubusd does not answer within $BUS_LIMIT seconds, so kelm hears no press; restart ubusd, then kelm: /etc/init.d/wps restart"
		elif [ -n "$NOT_ROOT" ]; then
			warning bus '' "ubus cannot be asked$NOT_ROOT"
		else
			fault bus '' 'ubusd is not there, so kelm hears no press; start ubusd, then kelm: /etc/init.d/wps restart'
		fi
		;;
	esac
}

# --- The daemon ---

# check_daemon: one that waits for its last restart script beside the next one is as it should be, and so is a command
# that begins.
check_daemon() {
	local pid other start='/etc/init.d/wps start'
	if [ -n "$NOT_ROOT" ]; then
		warning daemon '' "whether kelm runs cannot be seen$NOT_ROOT"
		return
	fi
	[ "$face" = maker ] || start='service wps start'
	if ! find_daemon; then
		other=$(daemons | head -n 1)
		if [ -n "$other" ]; then
			warning daemon '' "kelm runs, process $other, and /tmp/kelm.pid does not have its number: a start would put a second one beside it; kill $other; rm -f /tmp/kelm.pid; $start"
		elif [ "$face" = stock ] && ! kelm_switch enabled; then
			ok daemon '' 'kelm does not run, for it is switched off'
		else
			fault daemon '' "kelm does not run, so a press does nothing; mend what else is at fault here, then $start"
		fi
		return
	fi
	for other in $(daemons); do
		[ "$other" = "$pid" ] || is_child_of "$other" "$pid" || has_child "$other" ||
			warning daemon '' "a second kelm runs, process $other, beside that of the pid file, and both take a press; kill $other"
	done
	set -- "/proc/$pid/task"/*
	if [ $# -lt 2 ]; then
		fault daemon '' 'kelm has found no ubus at its start, so it hears no press; /etc/init.d/wps restart'
	else
		ok daemon '' "kelm runs, process $pid, and has found the bus"
	fi
}

# parent_of PROCESS: prints its number.
parent_of() { sed -n 's/^PPid:[^0-9]*//p' "/proc/$1/status" 2> /dev/null; }

is_child_of() { [ "$(parent_of "$1")" = "$2" ]; }

# has_child PROCESS: by one program for all processes, for there may be many.
has_child() { grep -qs "^PPid:[^0-9]*$1\$" /proc/[0-9]*/status; }

# --- The button ---

# check_button_script: OpenWrt's own scripts start WPS in hostapd themselves.
check_button_script() {
	local script text bytes has_zero real why
	for script in /etc/rc.button/wps /etc/rc.wps/*; do
		read_text "$script" "$TEXT_MAX" || continue
		printf '%s\n' "$text" | grep -v '^[[:space:]]*#' | grep -Eq 'wps_start|wps_pbc' || continue
		warning button-script '' "$(printf '%.60s' "$script") starts WPS in hostapd itself, so one press starts it twice; remove it, or have it send the event gpio alone"
		return
	done
	ok button-script '' 'no script of the button starts WPS beside kelm'
}

# check_button: with --button alone.
check_button() {
	local heard line hears='' presses=0 page='' bare='' kind='' others=''
	[ -n "$button" ] || return 0
	if [ -z "$bus_answers" ]; then
		fault button '' 'a press cannot be seen while ubus does not answer; see the line of the bus'
		return
	fi
	# Of the end of the listener the shell itself would tell.
	heard=$(listen_for_press "$button" 4>&2 2> /dev/null)
	while IFS= read -r line; do
		case $line in
		hears) hears=1 ;;
		press:*) presses=$((presses + 1)) kind=${line#press:} ;;
		page) page=1 ;;
		bare) bare=1 ;;
		other:*) others="$others${others:+, }$(quoted "${line#other:}")" ;;
		esac
	done << EOT
$heard
EOT
	tell_press
}

# tell_press: by what was heard.
tell_press() {
	if [ -z "$hears" ]; then
		fault button '' 'events do not come over the bus: one of our own did not arrive; restart ubusd, then kelm'
	elif [ "$presses" -gt 1 ]; then
		warning button '' "one press came as $presses events gpio, and each counts as a press, the release too; have the driver send one"
	elif [ "$presses" = 1 ] && [ "$kind" != wps ]; then
		warning button '' "the press came as gpio with type $(quoted "$kind"): if that is another button, kelm takes it for a press, too; send gpio for the WPS button alone"
	elif [ "$presses" = 1 ]; then
		ok button '' 'the press came as gpio with type "wps"'
	elif [ -n "$page" ]; then
		ok button '' 'the press came as wps_cli, as a script or a page sends it'
	elif [ -n "$bare" ]; then
		fault button '' 'the press came as gpio without a member "type", which kelm refuses; have the driver send {"type":"wps","pressed":1}'
	elif [ -n "$others" ]; then
		fault button '' "no press came in $button seconds, but the events $others; have the driver send: ubus send gpio '{\"type\":\"wps\",\"pressed\":1}'"
	else
		fault button '' "no press came in $button seconds; have the driver send: ubus send gpio '{\"type\":\"wps\",\"pressed\":1}'"
	fi
}

# listen_for_press SECONDS: prints a line for each thing that is heard: "hears" for our own event, which nobody else
# looks at and which shows that the bus brings events; press:TYPE, page, bare, other:NAME. Asks for the press once it
# hears, on descriptor 4, and listens a moment longer after one, for the release may come as one, too.
listen_for_press() {
	sh -c 'echo $$; exec ubus -t "$0" listen' $(($1 + BUS_LIMIT + RELEASE_WAIT)) < /dev/null | {
		read -r process
		hear "$1" "$process"
		kill "$process" 2> /dev/null
	}
}

seconds_up() {
	local up rest
	read -r up rest < /proc/uptime
	printf '%s\n' "${up%%.*}"
}

send_mark() { limited $RELEASE_WAIT ubus send $MARK '{}' < /dev/null > /dev/null 2>&1; }

# hear SECONDS LISTENER: to the end of the time, or of the process that listens.
hear() {
	local line end hears='' pressed='' names=0
	end=$(($(seconds_up) + BUS_LIMIT))
	send_mark
	while [ "$(seconds_up)" -lt $end ]; do
		# shellcheck disable=SC3045  # busybox ash has read -t
		if ! IFS= read -r -t 1 line; then
			[ -e "/proc/$2/exe" ] || return
			[ -n "$hears" ] || send_mark
			continue
		fi
		case $line in
		"{ \"$MARK\":"*)
			[ -z "$hears" ] || continue
			hears=1
			echo hears
			end=$(($(seconds_up) + $1))
			echo "kelm-doctor: press the WPS button now, within $1 seconds" >&4
			continue
			;;
		esac
		print_event "$line"
		if [ -n "$press" ] && [ -z "$pressed" ]; then
			pressed=1
			end=$(($(seconds_up) + RELEASE_WAIT))
		fi
	done
}

# print_event LINE: as ubus shows it. Sets press if it is one. Of other names a few are told, and no value of theirs.
print_event() {
	local name=${1#'{ "'} type
	name=${name%%'":'*}
	press=''
	case $1 in
	'{ "gpio":'*'"type":'*)
		type=${1#*'"type":'}
		type=${type%%[,\}]*}
		type=${type#'"'}
		printf 'press:%s\n' "${type%'"'}"
		press=1
		;;
	'{ "gpio":'*) echo bare ;;
	'{ "wps_cli":'*'"action":1,"method":1'[,\}]*)
		echo page
		press=1
		;;
	'{ "wps":'* | '{ "wps_cli":'*) ;;
	*)
		names=$((names + 1))
		[ "$names" -gt $NAMES_MAX ] || printf 'other:%.64s\n' "$name"
		;;
	esac
}
