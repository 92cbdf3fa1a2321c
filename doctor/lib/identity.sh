# SPDX-License-Identifier: ISC
# Checks of what the radios of one device must have in common, and of what they must not.
# shellcheck shell=dash
# shellcheck disable=SC3043,SC2154,SC2034  # busybox ash has local; the checks share what they have learnt

# check_uuid: a device that looks for push buttons on both bands tells two registrars by their UUID.
check_uuid() {
	local band ifname section answer uuid='' first='' count=0 missing='' other=''
	for band in $parts; do
		if [ "$role" = ap ]; then
			{ net "$band" && [ -n "$bss_file" ]; } || continue
			uuid=$bss_uuid
		else
			part "$band"
			uuid=$(station_uuid "$band") || continue
		fi
		count=$((count + 1))
		[ -n "$uuid" ] || missing=1
		[ $count = 1 ] && first=$uuid
		[ "$uuid" = "$first" ] || other=1
	done
	if [ $count -lt 2 ]; then
		[ $count = 0 ] || ok uuid '' 'one radio takes part, so there is one UUID'
	elif [ -n "$other" ]; then
		warning uuid '' "the radios have different UUIDs: a device that looks at both takes them for two, and refuses (overlap); $(uuid_cure)"
	elif [ -n "$missing" ]; then
		warning uuid '' "no radio has a uuid= line: each makes one up, and a device that looks at both may take them for two (overlap); $(uuid_cure)"
	else
		ok uuid '' 'the radios have the same UUID'
	fi
}

station_uuid() {
	local answer=$answer_2g
	[ "$1" = 2g ] || answer=$answer_5g
	in_answer uuid
}

uuid_cure() {
	if [ "$role" = sta ]; then
		echo 'give the files of all stations the same uuid= line'
	elif [ "$face" = stock ]; then
		echo 'the service gives them one: service wps restart; or take your own uuid= out of list hostapd_bss_options'
	else
		echo 'give the files of all radios the same uuid= line'
	fi
}

# check_independent: one press opens all networks of one hostapd that have WPS, unless one of the two is independent.
check_independent() { each_net look_at_neighbours; }

look_at_neighbours() {
	local own=$ifname own_file=$bss_file line name others=''
	[ -n "$own_file" ] || return 0
	if [ "$bss_independent" = 1 ]; then
		ok independent "$1" 'a press opens this network alone (wps_independent=1)'
		return
	fi
	while IFS= read -r line; do
		case $line in
		interface=* | bss=*) name=${line#*=} ;;
		*) continue ;;
		esac
		case " $own $ifname_2g $ifname_5g " in
		*" $name "*) continue ;;
		esac
		running_bss "$name"
		[ "${bss_wps:-0}" = 0 ] || [ "$bss_independent" = 1 ] || others="$others${others:+ }$name"
	done < "$own_file"
	if [ -n "$others" ]; then
		warning independent "$1" "a press opens $others too, for wps_independent is 0; $(independent_cure)"
	else
		ok independent "$1" 'no other network of this radio opens at a press'
	fi
}

independent_cure() {
	if [ "$face" = stock ]; then
		printf '%s\n' "uci delete wireless.$section.wps_independent; uci commit wireless; wifi reload"
	else
		printf '%s\n' "wps_independent=1 for it in $own_file"
	fi
}
