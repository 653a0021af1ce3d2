# Stand-in for the buildroot's file of this name.
CP:=cp -a
INSTALL_DIR:=install -d -m0755
all:
