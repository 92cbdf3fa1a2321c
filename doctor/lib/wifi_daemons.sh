# SPDX-License-Identifier: ISC
# Checks of hostapd and wpa_supplicant themselves: there, answering, built with WPS.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local
# shellcheck disable=SC2034  # the next checks use what one has learnt

# check_root: others may read some files, and ask nobody.
check_root() {
	is_root=''
	if [ "$(id -u)" = 0 ]; then
		is_root=1
		ok root '' 'runs as root, so hostapd and wpa_supplicant can be asked'
	else
		warning root '' 'does not run as root: hostapd and wpa_supplicant cannot be asked, and some files not be read; run it as root'
	fi
}
