# SPDX-License-Identifier: ISC
# Stand-in for OpenWrt's: writes down what a package says of itself, and installs it.
#
# OUT/package         NAME=VALUE lines of the source
# OUT/NAME.fields     the same of the package NAME
# OUT/NAME.SCRIPT     its conffiles, postinst and so on, as they get into the package
# install-NAME        puts its files into OUT/NAME
# prepare, build      the source in OUT/build, the built program in OUT/installed
ifndef INCLUDE_DIR
$(error rules.mk is to be included first)
endif
ifndef PKG_NAME
$(error PKG_NAME is to be set before package.mk is included)
endif

PKG_BUILD_DIR:=$(OUT)/build
PKG_INSTALL_DIR:=$(OUT)/installed
package_fields:=NAME VERSION RELEASE MAINTAINER LICENSE LICENSE_FILES SOURCE SOURCE_URL HASH
fields:=SECTION CATEGORY TITLE DEPENDS PKGARCH
scripts:=conffiles preinst postinst prerm postrm

# What is done where the package says nothing: an archive is unpacked.
Build/Prepare=@echo "unpacks $(PKG_SOURCE)"

$(file >$(OUT)/package)
$(foreach field,$(package_fields),$(file >>$(OUT)/package,$(field)=$(PKG_$(field))))

define BuildPackage
$(foreach field,$(fields),$(eval $(field):=))
$(eval $(Package/$(1)))
$(file >$(OUT)/$(1).fields)
$(foreach field,$(fields),$(file >>$(OUT)/$(1).fields,$(field)=$($(field))))
$(foreach script,$(scripts),$(file >$(OUT)/$(1).$(script),$(Package/$(1)/$(script))))
.PHONY: install-$(1)
install-$(1):
	$$(call Package/$(1)/install,$(OUT)/$(1))
endef

.PHONY: describe prepare build
describe: ;
prepare:
	$(call Build/Prepare)
build:
	$(call Build/Configure)
	$(call Build/Compile)
