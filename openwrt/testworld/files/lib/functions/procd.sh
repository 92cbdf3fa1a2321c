# shellcheck shell=dash
# SPDX-License-Identifier: ISC
# Stands in for stock OpenWrt's functions with which an init script tells procd what to run. They build one
# message, in a namespace of their own.
# shellcheck disable=SC1091,SC2034,SC2154,SC3023,SC3043  # ash has local, and descriptors above 9

. "$IPKG_INSTROOT/usr/share/libubox/jshn.sh"

PROCD_RELOAD_DELAY=1000

# Held until this process and all that inherit the descriptor are gone: a child that is left in the
# background holds it too, and the service's next verb waits for that child.
procd_lock() {
	flock -n 1000 2> /dev/null && return
	exec 1000> "$IPKG_INSTROOT/var/lock/procd_$service_name.lock"
	flock 1000
}

# _procd FUNCTION ARGUMENT ...: the function, in the message's namespace.
_procd() {
	local _procd_before
	json_set_namespace procd _procd_before
	"$@"
	json_set_namespace "$_procd_before"
}

_procd_send() {
	[ -z "$PROCD_DEBUG" ] || json_dump >&2
	ubus call service "$1" "$(json_dump)"
	json_cleanup
}

_procd_open_service() {
	_procd_instances=0
	json_init
	json_add_string name "$1"
	json_add_string script "$2"
	json_add_object instances
}

_procd_open_triggers() {
	json_close_object
	json_add_array triggers
}

_procd_close_service() {
	json_close_array
	_procd_send "$1"
}

_procd_open_instance() {
	_procd_instances=$((_procd_instances + 1))
	json_add_object "${1:-instance$_procd_instances}"
}

_procd_add_words() {
	local word
	for word in "$@"; do
		json_add_string "" "$word"
	done
}

# NAME=VALUE ...
_procd_add_pairs() {
	local word
	for word in "$@"; do
		json_add_string "${word%%=*}" "${word#*=}"
	done
}

_procd_set_param() {
	local kind="$1"
	shift
	case $kind in
	env | data | limits)
		json_add_object "$kind"
		_procd_add_pairs "$@"
		json_close_object
		;;
	command | netdev | file | respawn | watch | watchdog | error)
		json_add_array "$kind"
		_procd_add_words "$@"
		json_close_array
		;;
	nice | term_timeout) json_add_int "$kind" "$1" ;;
	reload_signal) json_add_int "$kind" "$(kill -l "$1")" ;;
	stdout | stderr | no_new_privs) json_add_boolean "$kind" "$1" ;;
	pidfile | user | group | seccomp | capabilities | facility) json_add_string "$kind" "$1" ;;
	esac
}

_procd_append_param() {
	local kind="$1"
	shift
	if ! json_is_a "$kind" array && ! json_is_a "$kind" object; then
		_procd_set_param "$kind" "$@"
		return
	fi
	json_select "$kind"
	case $kind in
	env | data | limits) _procd_add_pairs "$@" ;;
	*) _procd_add_words "$@" ;;
	esac
	json_select ..
}

# EVENT PACKAGE COMMAND ...
_procd_add_config_trigger() {
	json_add_array
	json_add_string "" "$1"
	json_add_array
	json_add_string "" if
	json_add_array
	_procd_add_words eq package "$2"
	json_close_array
	shift 2
	json_add_array
	_procd_add_words run_script "$@"
	json_close_array
	json_close_array
	json_add_int "" "$PROCD_RELOAD_DELAY"
	json_close_array
}

# EVENT MILLISECONDS COMMAND ...
_procd_add_raw_trigger() {
	local delay="$2"
	json_add_array
	json_add_string "" "$1"
	shift 2
	json_add_array
	_procd_add_words run_script "$@"
	json_close_array
	json_add_int "" "$delay"
	json_close_array
}

_procd_add_reload_trigger() {
	local package
	for package in "$@"; do
		_procd_add_config_trigger config.change "$package" "$initscript" reload
	done
}

_procd_add_jail() {
	json_add_object jail
	json_add_string name "$1"
	json_close_object
}

# NAME [INSTANCE]
_procd_kill() {
	json_init
	json_add_string name "$1"
	[ -z "$2" ] || json_add_string instance "$2"
	_procd_send delete
}

# NAME [INSTANCE] SIGNAL
_procd_send_signal() {
	json_init
	json_add_string name "$1"
	if [ $# -gt 2 ]; then
		json_add_string instance "$2"
		shift
	fi
	json_add_int signal "$(kill -l "$2")"
	_procd_send signal
}

procd_open_service() { _procd _procd_open_service "$@"; }
procd_open_instance() { _procd _procd_open_instance "$@"; }
procd_set_param() { _procd _procd_set_param "$@"; }
procd_append_param() { _procd _procd_append_param "$@"; }
procd_close_instance() { _procd json_close_object; }
procd_add_config_trigger() { _procd _procd_add_config_trigger "$@"; }
procd_add_raw_trigger() { _procd _procd_add_raw_trigger "$@"; }
procd_add_reload_trigger() { _procd _procd_add_reload_trigger "$@"; }
procd_add_jail() { _procd _procd_add_jail "$@"; }
procd_kill() { _procd _procd_kill "$@"; }
procd_send_signal() { _procd _procd_send_signal "$@"; }

# procd_close_service METHOD: the script's service_triggers is asked only now.
procd_close_service() {
	_procd _procd_open_triggers
	! type service_triggers > /dev/null 2>&1 || service_triggers
	_procd _procd_close_service "$1"
}

# procd_running NAME [INSTANCE]
procd_running() {
	local instance="*"
	[ -z "$2" ] || instance="['$2']"
	[ "$instance" != "*" ] || instance="[*]"
	ubus -S call service list "{\"name\": \"$1\"}" 2> /dev/null |
		jsonfilter -q -e "@['$1'].instances$instance.running" | grep -qx true
}
