# shellcheck shell=dash
# SPDX-License-Identifier: ISC
# Stands in for stock OpenWrt's functions for scripts: settings, words in variables, what a package's install
# and removal do.
# shellcheck disable=SC1091,SC2034,SC2154,SC3043  # variables are reached by eval; ash has local

_config_is_name() {
	case $1 in
	'' | *[!A-Za-z0-9_]*) return 1 ;;
	esac
}

# The four words of an exported file.
package() { :; }

config() {
	_CONFIG_UNNAMED=$((_CONFIG_UNNAMED + 1))
	CONFIG_SECTION=${2:-cfg$_CONFIG_UNNAMED}
	CONFIG_SECTIONS="$CONFIG_SECTIONS${CONFIG_SECTIONS:+ }$CONFIG_SECTION"
	config_set "$CONFIG_SECTION" TYPE "$1"
}

option() {
	config_set "$CONFIG_SECTION" "$1" "$2"
}

list() {
	local length whole
	config_get length "$CONFIG_SECTION" "$1_LENGTH" 0
	length=$((length + 1))
	config_set "$CONFIG_SECTION" "$1_ITEM$length" "$2"
	config_set "$CONFIG_SECTION" "$1_LENGTH" "$length"
	config_get whole "$CONFIG_SECTION" "$1"
	config_set "$CONFIG_SECTION" "$1" "$whole${whole:+ }$2"
}

# config_load PACKAGE: a second load takes the place of the first, unless CONFIG_APPEND is set. In an image
# build there is nothing to load.
config_load() {
	[ -z "$IPKG_INSTROOT" ] || return 0
	local text status name
	text=$(uci -P /var/state -S -n export "$1")
	status=$?
	if [ -z "$CONFIG_APPEND" ]; then
		for name in $_CONFIG_NAMES; do
			unset "CONFIG_$name"
		done
		_CONFIG_NAMES=
		CONFIG_SECTIONS=
		_CONFIG_UNNAMED=0
	fi
	eval "$text"
	CONFIG_SECTION=
	return "$status"
}

# config_get VAR SECTION OPTION [DEFAULT], or config_get SECTION OPTION, which prints.
config_get() {
	if [ -z "$3" ]; then
		! _config_is_name "$1_$2" || eval "printf '%s\n' \"\$CONFIG_$1_$2\""
		return 0
	fi
	_config_is_name "$2_$3" || return 0
	eval "$1=\${CONFIG_$2_$3:-\$4}"
}

config_get_bool() {
	local _config_value
	config_get _config_value "$2" "$3"
	case $_config_value in
	1 | on | true | yes | enabled) eval "$1=1" ;;
	0 | off | false | no | disabled) eval "$1=0" ;;
	*) eval "$1=\$4" ;;
	esac
}

# config_set SECTION OPTION VALUE: in the variables alone.
config_set() {
	_config_is_name "$1_$2" || return 0
	eval "CONFIG_$1_$2=\$3"
	_CONFIG_NAMES="$_CONFIG_NAMES $1_$2"
}

config_unset() {
	config_set "$1" "$2" ""
}

# config_foreach FUNCTION [TYPE] ARGUMENT ...: what the function returns stops nothing.
config_foreach() {
	local _config_function="$1" _config_type="$2" _config_section _config_its
	[ $# -lt 1 ] || shift
	[ $# -lt 1 ] || shift
	for _config_section in $CONFIG_SECTIONS; do
		config_get _config_its "$_config_section" TYPE
		[ -z "$_config_type" ] || [ "$_config_its" = "$_config_type" ] || continue
		"$_config_function" "$_config_section" "$@"
	done
	return 0
}

# config_list_foreach SECTION OPTION FUNCTION ARGUMENT ...
config_list_foreach() {
	local _config_section="$1" _config_option="$2" _config_function="$3" _config_length _config_value
	local _config_at=1
	shift 3
	config_get _config_length "$_config_section" "${_config_option}_LENGTH" 0
	while [ "$_config_at" -le "$_config_length" ]; do
		config_get _config_value "$_config_section" "${_config_option}_ITEM$_config_at"
		"$_config_function" "$_config_value" "$@"
		_config_at=$((_config_at + 1))
	done
}

# append VAR VALUE [SEPARATOR]
append() {
	eval "$1=\"\${$1:+\${$1}\${3:- }}\$2\""
}

# list_contains VAR WORD
list_contains() {
	local _list_words
	eval "_list_words=\" \${$1} \""
	case $_list_words in
	*" $2 "*) return 0 ;;
	esac
	return 1
}

# A miss prints the default, and is a miss all the same.
uci_get() {
	local _uci_value
	if _uci_value=$(uci -q get "$1.$2${3:+.$3}"); then
		printf '%s\n' "$_uci_value"
		return 0
	fi
	[ -z "$4" ] || printf '%s\n' "$4"
	return 1
}

uci_set() {
	uci -q set "$1.$2.$3=$4"
}

uci_add() {
	if [ -n "$3" ]; then
		CONFIG_SECTION=$3
		uci -q set "$1.$3=$2"
	else
		CONFIG_SECTION=$(uci -q add "$1" "$2")
	fi
}

uci_add_list() {
	uci -q add_list "$1.$2.$3=$4"
}

uci_remove() {
	uci -q delete "$1.$2${3:+.$3}"
}

uci_commit() {
	uci -q commit "$1"
}

board_name() {
	if [ -e /tmp/sysinfo/board_name ]; then
		cat /tmp/sysinfo/board_name
	else
		echo generic
	fi
}
