# SPDX-License-Identifier: ISC
# Checks of what lies in /tmp, of the room there, and of the memory.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154  # busybox ash has local; looking.sh and kelm-doctor set the rest

# shellcheck source=doctor/lib/looking.sh
. "$lib/looking.sh"

PID_FILE=/tmp/kelm.pid
MARKER=/tmp/wifid_is_starting
STARTS_FOR=120                        # seconds that a wireless may take to start
ROOM_FAULT=64 ROOM_WARNING=512        # KiB
MEMORY_FAULT=2048 MEMORY_WARNING=6144 # KiB
SOCKETS_MAX=100

SECRET_FILES='/tmp/wps_wifi_ap.txt /tmp/wps_wifi_sta.txt /tmp/_wps_wifi_ap.txt /tmp/_wps_wifi_sta.txt
/tmp/wps_wifi_ap_bh.txt /tmp/wps_wifi_ap.bak /tmp/wps_wifi_sta.bak'
OTHER_FILES='/tmp/wps_result /tmp/kelm.info /tmp/wpsactive /tmp/wifi_scan_2g.result /tmp/wifi_scan_5g.result
/tmp/wifi_scan_5g2.result /tmp/wifi_scan_6g.result'

# --- What bars a start, or a press ---

check_pid_file() {
	local text pid name
	if ! look_at $PID_FILE; then
		ok pid-file '' "there is no $PID_FILE, so nothing bars a start"
	elif ! is_trusted "$owner"; then
		warning pid-file '' "$PID_FILE belongs to user $owner: kelm moves it aside at its next start; find out who made it"
	elif [ "$kind" != 'file' ]; then
		fault pid-file '' "$PID_FILE is a $kind, which bars each start of kelm; rm -rf $PID_FILE"
	else
		text=$(limited $READ_LIMIT head -c 32 $PID_FILE 2> /dev/null)
		pid=${text%%[!0-9]*}
		name=''
		[ -z "$pid" ] || read -r name 2> /dev/null < "/proc/$pid/comm"
		tell_pid_file
	fi
}

# tell_pid_file: by pid and name.
tell_pid_file() {
	local cure="it bars each start of kelm; rm -f $PID_FILE"
	if [ "$name" = kelm ]; then
		ok pid-file '' "$PID_FILE has the number of the kelm that runs"
	elif [ -z "$text" ] && [ -n "$(daemons)" ]; then
		warning pid-file '' "$PID_FILE is empty: kelm starts at this moment, or had no room for its number; look again"
	elif [ "$text" != "$pid" ] || [ -z "$pid" ]; then
		fault pid-file '' "$PID_FILE holds no process number, and $cure"
	elif [ -n "$name" ]; then
		fault pid-file '' "$PID_FILE has the number $pid, which is $(quoted "$name") by now, and $cure"
	else
		fault pid-file '' "$PID_FILE has the number $pid of a process that is gone, and $cure"
	fi
}

# check_start_marker: the daemon opens it for reading and writing, so a folder does not count.
check_start_marker() {
	local age begun up rest
	find_file $MARKER
	case $kind:$why in
	missing:* | folder:* | *:*'not used'*)
		ok start-marker '' "no $MARKER keeps kelm from taking a press"
		return
		;;
	esac
	begun=$(date -r "$real" +%s 2> /dev/null)
	age=$(($(date +%s) - ${begun:-0}))
	# After a boot the clock jumps by years, and what is new looks old.
	read -r up rest < /proc/uptime
	if [ $age -lt $STARTS_FOR ] || [ "${up%.*}" -lt $STARTS_FOR ]; then
		warning start-marker '' "$MARKER says that the wireless is starting: kelm takes no press; wait until it is gone"
	else
		fault start-marker '' "$MARKER was left behind $((age / 60)) minutes ago: kelm takes no press; rm -f $MARKER"
	fi
}

# --- Room ---

check_folder() {
	local mode kind links owner
	if ! look_at /tmp/. || is_read_only /tmp; then
		fault tmp-folder '' '/tmp cannot be written to, and kelm has its files there; mount a tmpfs'
	elif [ "$owner" != 0 ]; then
		fault tmp-folder '' "/tmp belongs to user $owner, who may take away any file there; chown root /tmp"
	else
		case $mode in
		*[tT]) ok tmp-folder '' '/tmp is sticky: nobody takes the files of others away' ;;
		*)
			if others_may_write; then
				fault tmp-folder '' 'others may take away the files of kelm in /tmp, which is not sticky; chmod 1777 /tmp'
			else
				ok tmp-folder '' 'nobody but root may write to /tmp'
			fi
			;;
		esac
	fi
}

# check_room: a line of df may be two, where the name of the device is long.
check_room() {
	local free
	free=$(limited $READ_LIMIT df -k /tmp 2> /dev/null | awk 'END { print $(NF - 2) }')
	tell_room tmp-room "$free" $ROOM_FAULT $ROOM_WARNING 'are free in /tmp' 'what is learnt cannot be stored' 'remove what nobody needs'
}

check_memory() {
	local free
	free=$(awk '$1 == "MemAvailable:" { print $2; found = 1 } $1 == "MemFree:" { free = $2 } END { if (!found) print free }' /proc/meminfo 2> /dev/null)
	tell_room memory "$free" $MEMORY_FAULT $MEMORY_WARNING 'of memory are free' 'commands cannot be run, and the kernel may end kelm' 'end what nobody needs'
}

# tell_room CHECK KIB FAULT WARNING WORDS CONSEQUENCE CURE
tell_room() {
	case $2 in
	'' | *[!0-9]*)
		warning "$1" '' "how many KiB $5 cannot be told; look at df and /proc/meminfo"
		return
		;;
	esac
	if [ "$2" -lt "$3" ]; then
		fault "$1" '' "$2 KiB $5: $6; $7"
	elif [ "$2" -lt "$4" ]; then
		warning "$1" '' "$2 KiB $5, and with less $6; $7"
	else
		ok "$1" '' "$2 KiB $5"
	fi
}

# --- Files under the names of the daemon ---

check_owners() {
	local file before=$((warnings + faults))
	for file in $SECRET_FILES; do
		check_own_file "$file" secret
		check_own_file "$file.new" secret
	done
	for file in $OTHER_FILES; do
		check_own_file "$file" ''
		check_own_file "$file.new" ''
	done
	check_sockets
	[ $((warnings + faults)) != "$before" ] || ok file-owners '' 'what has a name of the files of kelm in /tmp is root'\''s alone'
}

# check_own_file PATH SECRET: the daemon replaces what is not its own, and reads none of it; yet somebody wanted
# something. A script might take it before.
check_own_file() {
	look_at "$1" || return 0
	if ! is_trusted "$owner"; then
		warning file-owners '' "$1 is a $kind of user $owner, who is not root: kelm replaces it, but a script may believe it; find out who made it, and rm -rf $1"
	elif [ "$kind" != 'file' ]; then
		warning file-owners '' "$1 is a $kind and no file: kelm replaces it; rm -rf $1"
	elif [ "$links" != 1 ]; then
		warning file-owners '' "$1 has a second name (a hard link): kelm replaces it; rm -f $1"
	elif others_may_write; then
		warning file-owners '' "others than root may write to $1; chmod go-w $1"
	elif [ -n "$2" ] && others_may_read; then
		warning file-owners '' "others than root may read $1, which holds passphrases; chmod 600 $1"
	fi
}

# check_sockets: the daemon's ends of its connections, which have the number of their process in their names.
check_sockets() {
	local socket number count=0 left=0
	for socket in /tmp/wpa_ctrl_*; do
		look_at "$socket" || continue
		count=$((count + 1))
		[ $count -le $SOCKETS_MAX ] || break
		is_trusted "$owner" || {
			warning file-owners '' "$(quoted "$socket") is a $kind of user $owner, who is not root; find out who made it"
			continue
		}
		number=${socket#/tmp/wpa_ctrl_}
		number=${number%%-*}
		case $number in
		'' | *[!0-9]*) continue ;;
		esac
		[ -d "/proc/$number" ] || left=$((left + 1))
	done
	[ $left = 0 ] || warning file-owners '' "$left sockets of processes that are gone are left as /tmp/wpa_ctrl_NUMBER; something was killed: remove them"
}
