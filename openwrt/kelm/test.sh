#!/bin/sh
# SPDX-License-Identifier: ISC
# OpenWrt's CI runs this with busybox sh, as root, where the package is installed and neither procd nor a bus
# nor a radio is.
#
# usage: test.sh PACKAGE VERSION

# fails TEXT: so does the test.
fails() {
	echo "$*"
	exit 1
}

# says TEXT COMMAND...: the command's output holds the text, and is seen.
says() {
	local text=$1 output
	shift
	output=$("$@" 2>&1)
	echo "$output"
	case $output in
	*"$text"*) ;;
	*) fails "$* does not say: $text" ;;
	esac
}

test_kelm() {
	says "Usage: kelm" /usr/sbin/kelm --help
	ldd /usr/sbin/kelm || fails "not all libraries of kelm are there"
}

test_kelm_stock() {
	local file
	for file in /usr/libexec/kelm/* /usr/libexec/kelm/bin/* /usr/libexec/rpcd/kelm /etc/rc.wps/30-kelm \
		/etc/init.d/wps /etc/init.d/wifi; do
		[ -d "$file" ] || sh -n "$file" || fails "$file cannot be read by this shell"
	done
	for file in hostapd_cli wpa_cli jsonfilter uci ubus; do
		command -v "$file" || fails "$file is not there"
	done
	# The daemon calls these by name.
	for file in config_wifi mesh_config_wifi re_kelm_info; do
		says "$file" /etc/init.d/wps help
	done
	for file in force_restart restart_from_wps; do
		says "$file" /etc/init.d/wifi help
	done
	says 0 uci get kelm.main.enabled
	says status jsonfilter -i /usr/share/rpcd/acl.d/kelm.json -e '@.kelm.read.ubus.kelm[*]'
	says '"status"' /usr/libexec/rpcd/kelm list
}

test_kelm_doctor() {
	local file
	for file in /usr/lib/kelm/doctor/*.sh; do
		sh -n "$file" || fails "$file cannot be read by this shell"
	done
	says "usage: kelm-doctor" /usr/sbin/kelm-doctor --help
}

test_kelm_watch() {
	says "Usage: kelm-watch" /usr/sbin/kelm-watch --help
	ldd /usr/sbin/kelm-watch || fails "not all libraries of kelm-watch are there"
}

case $1 in
kelm) test_kelm ;;
kelm-doctor) test_kelm_doctor ;;
kelm-stock) test_kelm_stock ;;
kelm-watch) test_kelm_watch ;;
*) fails "no test for package '$1'" ;;
esac
