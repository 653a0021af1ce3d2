# Stand-in for the buildroot's file of this name, with this machine's compiler. As in a buildroot,
# CMake builds for another system, and the flags of the release build are replaced. Everything that
# is installed is staged for recipes that request it.
PKG_INSTALL:=1

define Build/Configure/Default
	CXXFLAGS="-Os -pipe" cmake -S $(PKG_BUILD_DIR) -B $(PKG_BUILD_DIR) -G Ninja \
		-DCMAKE_SYSTEM_NAME=Linux \
		-DCMAKE_SYSTEM_PROCESSOR=$(shell uname -m) \
		-DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG \
		-DCMAKE_SHARED_LINKER_FLAGS=-Wl,-Bsymbolic-functions \
		-DCMAKE_FIND_ROOT_PATH=/usr \
		-DCMAKE_PREFIX_PATH=$(OUT)/staging/usr \
		-DCMAKE_STRIP=: \
		-DCMAKE_INSTALL_PREFIX=/usr \
		-DCMAKE_SKIP_RPATH=TRUE \
		$(CMAKE_OPTIONS)
endef

define Build/Compile/Default
	ninja -C $(PKG_BUILD_DIR)
endef

define Build/Install/Default
	DESTDIR=$(PKG_INSTALL_DIR) ninja -C $(PKG_BUILD_DIR) install
endef

define Build/InstallDev/cmake
	$(INSTALL_DIR) $(1)
	$(CP) $(PKG_INSTALL_DIR)/* $(1)/
endef

Build/InstallDev = $(if $(CMAKE_INSTALL),$(Build/InstallDev/cmake))
