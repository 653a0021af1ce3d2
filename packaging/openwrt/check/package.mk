# Stand-in for the buildroot's file of this name: runs the steps in order. Each package of a recipe
# is installed into a separate folder below $(OUT)/package.
PKG_BUILD_DIR ?= $(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)
PKG_INSTALL_DIR ?= $(PKG_BUILD_DIR)/ipkg-install

Build/Configure=$(Build/Configure/Default)
Build/Compile=$(Build/Compile/Default)
Build/Install=$(if $(PKG_INSTALL),$(Build/Install/Default))

built:
	mkdir -p $(PKG_BUILD_DIR)
	$(call Build/Prepare)
	$(call Build/Configure)
	$(call Build/Compile)
	$(call Build/Install)
	$(call Build/InstallDev,$(OUT)/staging)

missing=$(foreach file,$(PKG_FILE_DEPENDS),$(if $(wildcard $(file)),,$(file)))
describe:
	@echo "version $(PKG_VERSION)"
	@echo "options $(CMAKE_OPTIONS)"
	@echo "missing $(strip $(missing))"

define BuildPackage
$$(eval $$(Package/$(1)))
ifeq ($$(and $$(SECTION),$$(CATEGORY),$$(TITLE),$$(Package/$(1)/install)),)
$$(error the recipe does not describe the package $(1))
endif
all: install-$(1)
install-$(1): built
	$$(call Package/$(1)/install,$$(OUT)/package/$(1))
describe: describe-$(1)
describe-$(1):
	@echo "package $(1)"
.PHONY: install-$(1) describe-$(1)
endef
.PHONY: all built describe
