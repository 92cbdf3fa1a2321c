# SPDX-License-Identifier: ISC
# How a file is looked at: whose it is and what, before it is opened; and its text, as the daemon would see it.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2034,SC2154  # busybox ash has local; what is set is for those who source this

LINKS_MAX=8    # on the way to one file, as the daemon follows them
READ_LIMIT=3   # seconds, for what is a file and yet never ends
TEXT_MAX=65536 # bytes of a settings file that are looked at
NOT_ROOT=''
[ -n "$is_root" ] || NOT_ROOT=' by this user; run kelm-doctor as root'

# limited SECONDS COMMAND...: runs it, and ends it when the time is over. Returns its status, above 128 if it was
# ended. Its standard input is the caller's.
limited() {
	local seconds=$1 child watcher status=0
	shift
	# Without a descriptor of its own for it a job in the background reads /dev/null.
	{ "$@" <&9 9<&- & } 9<&0
	child=$!
	{
		# Before the sleep begins, the newest process is still the child.
		trap '[ $! = $child ] || kill -9 $!; exit' TERM
		sleep "$seconds" &
		wait $!
		kill -9 $child
	} < /dev/null > /dev/null 2>&1 &
	watcher=$!
	wait $child 2> /dev/null || status=$?
	kill $watcher 2> /dev/null
	wait $watcher 2> /dev/null
	return $status
}

# look_at PATH: sets kind (missing, file, link, folder, FIFO, socket or device), mode, links and owner of what stands
# under the name itself. Nothing is opened. Status 1 if there is nothing.
look_at() {
	local rest
	kind=missing mode='' links=0 owner=''
	# Most of what is looked for is not there: no program is run for that.
	[ -e "$1" ] || [ -L "$1" ] || return
	read -r mode links owner rest << EOT
$(ls -ldn "$1" 2> /dev/null)
EOT
	case $mode in
	-*) kind='file' ;;
	l*) kind='link' ;;
	d*) kind=folder ;;
	p*) kind=FIFO ;;
	s*) kind=socket ;;
	[bc]*) kind=device ;;
	*) return 1 ;;
	esac
}

# others_may_write: of what was looked at.
others_may_write() {
	case $mode in
	l*) return 1 ;;
	?????w* | ????????w*) return 0 ;;
	esac
	return 1
}

# others_may_read: of what was looked at.
others_may_read() {
	case $mode in
	????r* | ???????r*) return 0 ;;
	esac
	return 1
}

# is_trusted USER: status 0 for root, and for who owns a control socket of a Wi-Fi daemon that nobody else can have put
# there: the users whose files the daemon believes.
is_trusted() {
	local folder
	[ "$1" != 0 ] || return 0
	is_folder_of /var/run/. 0 || return
	for folder in /var/run/hostapd /var/run/wpa_supplicant; do
		is_folder_of $folder/. "$1" && has_socket_of $folder "$1" && return
	done
	return 1
}

# has_socket_of FOLDER USER
has_socket_of() {
	local socket kind mode links owner
	for socket in "$1"/*; do
		look_at "$socket" && [ "$kind" = socket ] && [ "$owner" = "$2" ] && return
	done
	return 1
}

# is_folder_of PATH USER: a folder of root's or the user's that others cannot write to.
is_folder_of() {
	local kind mode links owner
	look_at "$1" && [ "$kind" = folder ] && ! others_may_write && { [ "$owner" = 0 ] || [ "$owner" = "$2" ]; }
}

# find_file PATH: sets real to what the daemon would open, and why, if it would not use it: words that go on after the
# name. Then the status is 1. kind, mode, links and owner are those of the last thing on the way.
find_file() {
	local count=0 target
	real=$1 why=''
	while look_at "$real"; do
		is_trusted "$owner" || { why="belongs to user $owner, so it is not used" && return 1; }
		[ "$kind" = link ] || break
		count=$((count + 1))
		[ $count -le $LINKS_MAX ] || { why='is a link that leads to no end' && return 1; }
		target=$(readlink "$real" && echo .)
		target=${target%?.}
		case $target in
		/*) real=$target ;;
		*) real=${real%/*}/$target ;;
		esac
	done
	case $kind in
	file) [ "$links" = 1 ] || why='has a second name (a hard link), so it is not used' ;;
	missing) [ $count = 0 ] && why='is missing' || why='is a link to nothing' ;;
	*) why="is a $kind and no file" ;;
	esac
	[ -z "$why" ]
}

# read_text PATH LIMIT: sets text to what the daemon would read of it, as far as LIMIT bytes, and bytes to how many
# there are; has_zero is 1 where a zero byte is among them, which no shell can hold. Or why, and status 1.
read_text() {
	text=''
	find_file "$1" && load_text "$2"
}

# load_text LIMIT: the same of the file that was found.
load_text() {
	local rest
	text='' bytes=0 has_zero=''
	# The size as it is told: what stands in /proc has none.
	read -r rest rest rest rest bytes rest << EOT
$(ls -ldn "$real" 2> /dev/null)
EOT
	text=$(limited $READ_LIMIT head -c "$1" "$real" 2> /dev/null || exit && echo .) || {
		why="cannot be read$NOT_ROOT"
		return 1
	}
	text=${text%.}
	[ "$bytes" -gt "$1" ] || [ "$bytes" -le ${#text} ] || has_zero=1
	[ "$bytes" -gt "$1" ] || bytes=${#text}
}

# may_open_to_write FILE: status 0 if it can be opened for that. It is opened, and left as it is. A test of its mode
# would not see a file system that nobody may write to.
may_open_to_write() { [ -f "$1" ] && (: >> "$1") 2> /dev/null; }

# is_read_only FOLDER: status 0 if it is on such a file system.
is_read_only() {
	awk -v path="$1/" '
		index(path, $2 == "/" ? "/" : $2 "/") == 1 && length($2) >= length(point) { point = $2; options = $4 }
		END { exit options !~ /^ro(,|$)/ }' /proc/mounts 2> /dev/null
}

# daemons: prints the numbers of the processes that are a kelm of this router, and of no container on it.
daemons() {
	local number
	for number in $(pidof kelm); do
		# shellcheck disable=SC3013  # busybox has -ef
		[ ! "/proc/$number/root" -ef / ] || printf '%s\n' "$number"
	done
}
