# Stand-in for OpenWrt's package.mk, for check.sh. BuildPackage evaluates a
# package's definition as OpenWrt does (Package/Default, then Package/<name>)
# and records its fields; the qira-check-* targets print them and run the
# package's install steps.
PKG_BUILD_DIR?=$(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)
PKG_INSTALL_DIR?=$(PKG_BUILD_DIR)/ipkg-install

define Package/Default
  SECTION:=
  CATEGORY:=
  TITLE:=
  DEPENDS:=
  URL:=
endef

QIRA_CHECK_PACKAGES:=

define BuildPackage
  $(eval $(Package/Default))
  $(eval $(Package/$(1)))
  $(if $(value Package/$(1)/install),,$(error Package/$(1)/install is not defined))
  $(if $(value Package/$(1)/description),,$(error Package/$(1)/description is not defined))
  QIRA_CHECK_PACKAGES+=$(1)
  QIRA_CHECK_SECTION_$(1):=$(SECTION)
  QIRA_CHECK_CATEGORY_$(1):=$(CATEGORY)
  QIRA_CHECK_TITLE_$(1):=$(TITLE)
  QIRA_CHECK_DEPENDS_$(1):=$(DEPENDS)
endef

.DEFAULT_GOAL:=qira-check-info

# One block per package, in BuildPackage order.
qira-check-info:
	@:$(foreach package,$(QIRA_CHECK_PACKAGES),\
	  $(info Package: $(package))\
	  $(info Version: $(PKG_VERSION)-$(PKG_RELEASE))\
	  $(info License: $(PKG_LICENSE))\
	  $(info Section: $(QIRA_CHECK_SECTION_$(package)))\
	  $(info Category: $(QIRA_CHECK_CATEGORY_$(package)))\
	  $(info Title: $(QIRA_CHECK_TITLE_$(package)))\
	  $(info Depends: $(strip $(QIRA_CHECK_DEPENDS_$(package)))))

qira-check-prepare:
	$(Build/Prepare)

# Each package's files into $(QIRA_CHECK_WORK)/root/<package>, and the
# development files into $(STAGING_DIR).
define QIRA_CHECK_NEWLINE


endef

qira-check-install:
	$(foreach package,$(QIRA_CHECK_PACKAGES),$(call Package/$(package)/install,$(QIRA_CHECK_WORK)/root/$(package))$(QIRA_CHECK_NEWLINE))
	$(call Build/InstallDev,$(STAGING_DIR))
