# SPDX-License-Identifier: ISC
# How kelm-doctor tells what it has found: a line for people, or a member of one JSON object. Needs
# json.sh and router.sh.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# A check tells each thing by one of these:
#
#   ok|warning|fault CHECK BAND SENTENCE
#
# CHECK is the name in the table of checks, BAND is 2g, 5g or empty, SENTENCE ends with the cure, behind a semicolon.
# It may hold bytes of strangers, and no secret. What is told within a pipe or $( ) is not counted: tell in the shell
# itself.
ok() { tell_check ok "$@"; }
warning() {
	warnings=$((warnings + 1))
	tell_check warning "$@"
}
fault() {
	faults=$((faults + 1))
	tell_check fault "$@"
}

# begin_telling FACE JSON: JSON is 1 for one JSON object, empty for lines.
begin_telling() {
	tells_json=$2 told=0 warnings=0 faults=0
	[ -z "$tells_json" ] || printf '{ "version": 1, "face": "%s", "checks": [' "$1"
}

# end_telling: returns the exit status of the program: 0 all is well, 1 there was a warning, 2 a fault.
end_telling() {
	local status=0
	[ "$warnings" = 0 ] || status=1
	[ "$faults" = 0 ] || status=2
	[ -z "$tells_json" ] ||
		printf '\n  ], "warnings": %d, "faults": %d, "status": %d }\n' "$warnings" "$faults" "$status"
	return $status
}

# tell_check RESULT CHECK BAND SENTENCE: where nothing strange is in the sentence no other process is started, for there
# are many.
tell_check() {
	local band=$3 text=$4 comma=,
	case $band in
	2g) band='2.4 GHz' ;;
	5g) band='5 GHz' ;;
	?*) band=$(band_words "$band") ;;
	esac
	if [ -z "$tells_json" ]; then
		case $text in
		*[!\ -~]*) text=$(printable "$text") ;;
		esac
		printf '%-8s %-8s %s\n' "$1" "$band" "$text"
		return
	fi
	case $text in
	*[!\ !#-Z^-~[]*) text=$(json_text "$text") ;;
	*) text="\"$text\"" ;;
	esac
	[ "$told" != 0 ] || comma=''
	told=$((told + 1))
	printf '%s\n    { "check": "%s", "band": "%s", "result": "%s", "text": %s }' "$comma" "$2" "$band" "$1" "$text"
}

# quoted NAME: prints a name of a stranger's, cut, for a sentence.
quoted() { printf '"%.64s"\n' "$1"; }

# printable TEXT: prints one line that a terminal can show: control characters and signs that turn the direction of
# writing become question marks, and what is no UTF-8 a sign of its own.
printable() {
	case $1 in
	*[!\ -~]*) ;;
	*) printf '%s\n' "$1" && return ;;
	esac
	json_text "$1" | LC_ALL=C awk '{
		text = ""
		for (i = 2; i < length($0); i++) {
			sign = substr($0, i, 1)
			if (sign == "\\") {
				sign = substr($0, ++i, 1)
				if (sign == "u") { sign = "?"; i += 4 }
			}
			text = text sign
		}
		gsub(/\302[\200-\237]|\342\200[\216\217\250-\256]|\342\201[\246-\251]/, "?", text)
		print text
	}'
}
