# SPDX-License-Identifier: ISC
# The table of the checks of kelm-doctor, and how they are run.
# shellcheck shell=dash
# shellcheck disable=SC2154  # face and lib are of kelm-doctor

# One check a line: the name that it tells its findings under, the routers that it is for (maker, stock or both), the
# library that it is in, its function. They run in this order, in one shell: what one has learnt the next may use.
CHECKS='
root              both   wifi_daemons  check_root
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
