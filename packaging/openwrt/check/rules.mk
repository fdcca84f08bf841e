# Stand-in for OpenWrt's rules.mk, for check.sh: the variables a package
# Makefile takes from it, pointing into the check's work folder.
INCLUDE_DIR:=$(TOPDIR)/include
BUILD_DIR:=$(QIRA_CHECK_WORK)/build_dir
STAGING_DIR:=$(QIRA_CHECK_WORK)/staging_dir
INSTALL_DIR:=install -d -m0755
INSTALL_BIN:=install -m0755
INSTALL_DATA:=install -m0644
INSTALL_CONF:=install -m0600
CP:=cp -fpR
LN:=ln -sf
