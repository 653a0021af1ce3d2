# Stand-in for the buildroot's file of this name.
PKG_INSTALL_DIR:=$(PKG_BUILD_DIR)/ipkg-install
