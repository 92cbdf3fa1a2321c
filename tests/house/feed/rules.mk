# SPDX-License-Identifier: ISC
# Stand-in for the first file that a package of OpenWrt includes: the commands that it installs by. OUT is the
# folder for all that comes out.
INCLUDE_DIR:=$(TOPDIR)/include
CP:=cp -fpR
INSTALL_BIN:=install -m0755
INSTALL_DIR:=install -d -m0755
INSTALL_DATA:=install -m0644
INSTALL_CONF:=install -m0600
