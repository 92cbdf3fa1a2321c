#!/bin/sh
# SPDX-License-Identifier: ISC
# OpenWrt's CI looks for the version in what each program says of itself, and calls every program of a package
# for it, unless there is this. kelm tells its version in its log alone; the scripts have none of their own.
#
# usage: test-version.sh PACKAGE VERSION
# PKG_VERSION is the version without OpenWrt's revision.

case $1 in
kelm-doctor) echo "kelm-doctor tells no version" ;;
kelm-watch) /usr/sbin/kelm-watch --version | grep "kelm-watch $PKG_VERSION\$" ;;
kelm | kelm-stock) tr '\000' '\n' < /usr/sbin/kelm | grep "kelm $PKG_VERSION\$" ;;
*)
	echo "no version is known for package '$1'"
	exit 1
	;;
esac
