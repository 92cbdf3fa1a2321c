# SPDX-License-Identifier: ISC
# Stand-in for OpenWrt's: how a source with a CMakeLists.txt is built there. PREFIX holds the libraries.
ifndef PKG_BUILD_DIR
$(error package.mk is to be included before cmake.mk)
endif

TARGET_CFLAGS:=-Os -pipe

define Build/Configure
	cmake -S $(PKG_BUILD_DIR) -B $(PKG_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_C_FLAGS="$(TARGET_CFLAGS)" -DCMAKE_CXX_FLAGS="$(TARGET_CFLAGS)" \
		-DCMAKE_C_FLAGS_RELEASE=-DNDEBUG -DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG \
		-DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_STRIP=: -DCMAKE_SKIP_RPATH=TRUE -DCMAKE_PREFIX_PATH=$(PREFIX) \
		$(CMAKE_OPTIONS)
endef

define Build/Compile
	cmake --build $(PKG_BUILD_DIR) -j2
	DESTDIR=$(PKG_INSTALL_DIR) cmake --install $(PKG_BUILD_DIR)
endef
