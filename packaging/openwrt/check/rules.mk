# Stand-in for the buildroot's file of this name.
CP:=cp -a
INSTALL_DIR:=install -d -m0755
INSTALL_BIN:=install -m0755
INSTALL_CONF:=install -m0600
all:
