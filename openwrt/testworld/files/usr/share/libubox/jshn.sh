# shellcheck shell=dash
# SPDX-License-Identifier: ISC
# Stands in for stock OpenWrt's JSON functions for scripts. Keeps its traps: what cannot be parsed is told
# on stderr and returns 0, a missing key is left where it was, keys lose what no variable's name may have.
#
# The tree is in variables. N is the number of an object or array, K a key as a variable's name has it:
#   _J_c_N object or array   _J_p_N its parent   _J_k_N its keys   _J_m_N how many an array has
#   _J_t_N_K type            _J_v_N_K value, or the number of what is below     _J_n_N_K the key as written
#   _J_cur where we are      _J_root the top     _J_seq the last number given
# A namespace stands between _J and the rest. Numbers are never used twice, so nothing need be cleared.
# shellcheck disable=SC2034,SC2154,SC3043  # variables are reached by eval; ash has local

_json_munge() {
	case $1 in
	*[!A-Za-z0-9_]*) ;;
	*)
		_json_key=$1
		return
		;;
	esac
	local rest="$1" head
	_json_key=
	while [ -n "$rest" ]; do
		head=${rest%%[!A-Za-z0-9_]*}
		rest=${rest#"$head"}
		_json_key=$_json_key$head
		if [ -n "$rest" ]; then
			rest=${rest#?}
			_json_key=${_json_key}_
		fi
	done
}

# Sets _json_cur and _json_key for a key of where we are.
_json_look() {
	eval "_json_cur=\${_J${JSON_PREFIX}_cur}"
	_json_munge "$1"
}

json_set_namespace() {
	[ -z "$2" ] || eval "$2=\$JSON_PREFIX"
	JSON_PREFIX=$1
}

json_init() {
	local p="_J$JSON_PREFIX"
	eval "${p}_seq=\$((\${${p}_seq:-0} + 1))
		${p}_root=\$${p}_seq
		${p}_cur=\$${p}_seq
		eval \"${p}_c_\$${p}_seq=object ${p}_p_\$${p}_seq=0 ${p}_k_\$${p}_seq=\""
}

json_cleanup() {
	json_init
}

json_load() {
	eval "$(jshn -p "$JSON_PREFIX" -s "$(eval "echo \${_J${JSON_PREFIX}_seq:-0}")" -r "$1")"
	return 0
}

json_load_file() {
	eval "$(jshn -p "$JSON_PREFIX" -s "$(eval "echo \${_J${JSON_PREFIX}_seq:-0}")" -R "$1")"
	return 0
}

# _json_put NAME TYPE VALUE: in an array the name is not looked at.
_json_put() {
	local p="_J$JSON_PREFIX" kind known
	_json_look "$1"
	eval "kind=\${${p}_c_$_json_cur}"
	if [ "$kind" = array ]; then
		eval "_json_key=\$((\${${p}_m_$_json_cur:-0} + 1)); ${p}_m_$_json_cur=\$_json_key"
	elif [ "$_json_key" != "$1" ]; then
		eval "${p}_n_${_json_cur}_$_json_key=\$1"
	fi
	eval "known=\${${p}_t_${_json_cur}_$_json_key}"
	[ -n "$known" ] || eval "${p}_k_$_json_cur=\"\${${p}_k_$_json_cur} \$_json_key\""
	eval "${p}_t_${_json_cur}_$_json_key=\$2 ${p}_v_${_json_cur}_$_json_key=\$3"
}

_json_open() {
	local p="_J$JSON_PREFIX" node
	eval "node=\$((\${${p}_seq} + 1)); ${p}_seq=\$node"
	_json_put "$1" "$2" "$node"
	eval "${p}_c_$node=\$2 ${p}_p_$node=$_json_cur ${p}_k_$node= ${p}_m_$node=0 ${p}_cur=$node"
}

_json_up() {
	local parent
	_json_look ""
	eval "parent=\${_J${JSON_PREFIX}_p_$_json_cur}"
	[ "${parent:-0}" = 0 ] || eval "_J${JSON_PREFIX}_cur=\$parent"
}

json_add_object() { _json_open "$1" object; }
json_add_array() { _json_open "$1" array; }
json_close_object() { _json_up; }
json_close_array() { _json_up; }
json_add_string() { _json_put "$1" string "$2"; }
json_add_int() { _json_put "$1" int "$2"; }
json_add_boolean() { _json_put "$1" boolean "$2"; }
json_add_double() { _json_put "$1" double "$2"; }
json_add_null() { _json_put "$1" null ""; }

# Adds to _json_words, for each element below a node, three words for jshn -w; they name the variables.
_json_flatten() {
	local p="_J$JSON_PREFIX" node="$1" keys key kind name child
	eval "keys=\${${p}_k_$node}"
	for key in $keys; do
		eval "kind=\${${p}_t_${node}_$key} name=\${${p}_n_${node}_$key+x}"
		name=${name:+"\"\$${p}_n_${node}_$key\""}
		name=${name:-$key}
		case $kind in
		object | array)
			eval "child=\${${p}_v_${node}_$key}"
			_json_words="$_json_words $kind $name x"
			_json_flatten "$child"
			_json_words="$_json_words end x x"
			;;
		*) _json_words="$_json_words $kind $name \"\$${p}_v_${node}_$key\"" ;;
		esac
	done
}

json_dump() {
	local _json_words=
	eval "_json_flatten \"\${_J${JSON_PREFIX}_root}\""
	eval "jshn $1 -w $_json_words"
}

# json_select [KEY|..]: without one to the top.
json_select() {
	local kind
	if [ -z "$1" ]; then
		eval "_J${JSON_PREFIX}_cur=\${_J${JSON_PREFIX}_root}"
		return 0
	fi
	if [ "$1" = .. ]; then
		_json_up
		return 0
	fi
	_json_look "$1"
	eval "kind=\${_J${JSON_PREFIX}_t_${_json_cur}_$_json_key}"
	case $kind in
	object | array)
		eval "_J${JSON_PREFIX}_cur=\${_J${JSON_PREFIX}_v_${_json_cur}_$_json_key}"
		;;
	*)
		echo "WARNING: Variable '$1' does not exist or is not an array/object" >&2
		return 1
		;;
	esac
}

# json_get_type VAR KEY
json_get_type() {
	_json_look "$2"
	eval "$1=\${_J${JSON_PREFIX}_t_${_json_cur}_$_json_key}
		[ -n \"\${_J${JSON_PREFIX}_t_${_json_cur}_$_json_key}\" ]"
}

json_is_a() {
	local _json_type
	json_get_type _json_type "$1"
	[ "$_json_type" = "$2" ]
}

# json_get_var VAR KEY [DEFAULT]: the default stands for an empty value too.
json_get_var() {
	_json_look "$2"
	eval "$1=\${_J${JSON_PREFIX}_v_${_json_cur}_$_json_key:-\$3}
		[ -n \"\${_J${JSON_PREFIX}_t_${_json_cur}_$_json_key+x}\${3+x}\" ]"
}

# json_get_vars KEY[:DEFAULT] ...: each into the variable of its name.
json_get_vars() {
	local _json_word _json_status=0
	for _json_word in "$@"; do
		case $_json_word in
		*:*) json_get_var "${_json_word%%:*}" "${_json_word%%:*}" "${_json_word#*:}" || _json_status=1 ;;
		*) json_get_var "$_json_word" "$_json_word" || _json_status=1 ;;
		esac
	done
	return "$_json_status"
}

# json_get_keys VAR [KEY]
json_get_keys() {
	local _json_node _json_list
	eval "$1="
	if [ -n "$2" ]; then
		json_is_a "$2" object || json_is_a "$2" array || return 1
		_json_look "$2"
		eval "_json_node=\${_J${JSON_PREFIX}_v_${_json_cur}_$_json_key}"
	else
		eval "_json_node=\${_J${JSON_PREFIX}_cur}"
	fi
	eval "_json_list=\${_J${JSON_PREFIX}_k_$_json_node}"
	eval "$1=\${_json_list# }"
}

# json_get_values VAR [KEY]: joined by spaces, whatever is in them.
json_get_values() {
	local _json_keys _json_one _json_value _json_all=
	eval "$1="
	json_get_keys _json_keys "$2" || return 1
	[ -z "$2" ] || json_select "$2"
	for _json_one in $_json_keys; do
		json_get_var _json_value "$_json_one"
		_json_all="$_json_all${_json_all:+ }$_json_value"
	done
	[ -z "$2" ] || json_select ..
	eval "$1=\$_json_all"
}

# json_for_each_item FUNCTION KEY ARGUMENT ...: called with value, key and the arguments.
json_for_each_item() {
	local _json_function="$1" _json_target="$2" _json_keys _json_one _json_value
	[ $# -ge 2 ] || return 0
	shift 2
	if ! json_get_keys _json_keys "$_json_target"; then
		json_get_var _json_value "$_json_target"
		"$_json_function" "$_json_value" "" "$@"
		return
	fi
	json_select "$_json_target"
	for _json_one in $_json_keys; do
		json_get_var _json_value "$_json_one"
		"$_json_function" "$_json_value" "$_json_one" "$@"
	done
	json_select ..
}
