# SPDX-License-Identifier: ISC
# The table of the checks of kelm-doctor, and how they are run.
# shellcheck shell=dash
# shellcheck disable=SC2154  # face and lib are of kelm-doctor

# One check a line: the name that it tells its findings under, the routers that it is for (maker, stock or both), the
# library that it is in, its function. They run in this order, in one shell: what one has learnt the next may use.
CHECKS='
root              both   wifi_daemons   check_root
settings-mode     both   json_settings  check_mode
settings-bands    both   json_settings  check_bands
settings-wps      both   flat_settings  check_wps_conf
settings-pin      both   flat_settings  check_pin
settings-wifi     both   flat_settings  check_wifi_conf
settings-link     both   json_settings  check_links
tmp-folder        both   files          check_folder
tmp-room          both   files          check_room
memory            both   files          check_memory
pid-file          both   files          check_pid_file
start-marker      both   files          check_start_marker
file-owners       both   files          check_owners
interface         both   interfaces     check_interfaces
build             stock  wifi_daemons   check_build
answers           both   wifi_daemons   check_answers
hostapd-file      both   networks       check_hostapd_file
hidden            both   networks       check_hidden
backhaul          both   networks       check_backhaul
encryption        both   networks       check_encryption
wps               both   networks       check_wps
learnt            maker  stations       check_learnt
uuid              both   identity       check_uuid
independent       both   identity       check_independent
key               both   keys           check_key
ap-pin            both   keys           check_ap_pin
locked            both   keys           check_locked
service-wps       both   service        check_service_wps
service-wifi      both   service        check_service_wifi
service-scan      both   service        check_service_scan
at-boot           both   service        check_at_boot
programs          both   service        check_programs
bus               both   bus            check_bus
daemon            both   bus            check_daemon
button-script     maker  bus            check_button_script
button            both   bus            check_button
'

# run_checks: those of $face. The table comes through descriptor 3: a check may read the standard input.
run_checks() {
	while read -r _ faces library check <&3; do
		case $faces in
		both | "$face") ;;
		*) continue ;;
		esac
		# shellcheck source=/dev/null
		command -v "$check" > /dev/null || . "$lib/$library.sh"
		"$check" 3<&-
	done 3<< EOF
$CHECKS
EOF
}
