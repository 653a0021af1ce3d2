# Stand-in for the buildroot's file of this name: the steps in their order, by this machine's compiler.
define BuildPackage
ifeq ($$(strip $$(Package/$(1))$$(Package/$(1)/install)),)
$$(error the recipe describes no package $(1))
endif
all:
	$$(call Build/Prepare)
	cmake -S $$(PKG_BUILD_DIR) -B $$(PKG_BUILD_DIR)/build -G Ninja -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib $$(CMAKE_OPTIONS)
	cmake --build $$(PKG_BUILD_DIR)/build
	DESTDIR=$$(PKG_INSTALL_DIR) cmake --install $$(PKG_BUILD_DIR)/build
	$$(call Build/InstallDev,$$(OUT)/staging)
	$$(call Package/$(1)/install,$$(OUT)/package)
version:
	@echo $$(PKG_VERSION)
.PHONY: all version
endef
