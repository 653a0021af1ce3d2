# Stand-in for the buildroot's file of this name: the steps in their order.
PKG_BUILD_DIR ?= $(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)
PKG_INSTALL_DIR ?= $(PKG_BUILD_DIR)/ipkg-install

Build/Configure=$(Build/Configure/Default)
Build/Compile=$(Build/Compile/Default)
Build/Install=$(if $(PKG_INSTALL),$(Build/Install/Default))

define BuildPackage
$$(eval $$(Package/$(1)))
ifeq ($$(and $$(SECTION),$$(CATEGORY),$$(TITLE),$$(Package/$(1)/install)),)
$$(error the recipe does not describe the package $(1))
endif
all:
	mkdir -p $$(PKG_BUILD_DIR)
	$$(call Build/Prepare)
	$$(call Build/Configure)
	$$(call Build/Compile)
	$$(call Build/Install)
	$$(call Build/InstallDev,$$(OUT)/staging)
	$$(call Package/$(1)/install,$$(OUT)/package)
describe:
	@echo "version $$(PKG_VERSION)"
	@echo "options $$(CMAKE_OPTIONS)"
	@echo "missing $$(strip $$(foreach file,$$(PKG_FILE_DEPENDS),$$(if $$(wildcard $$(file)),,$$(file))))"
.PHONY: all describe
endef
