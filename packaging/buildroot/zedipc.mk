# SPDX-License-Identifier: MIT
################################################################################
#
# zedipc
#
################################################################################

ZEDIPC_VERSION = v1.18.0
ZEDIPC_SITE = $(call qstrip,$(BR2_PACKAGE_ZEDIPC_SITE))
ZEDIPC_SITE_METHOD = git
ZEDIPC_LICENSE = MIT
ZEDIPC_LICENSE_FILES = LICENSE
ZEDIPC_INSTALL_STAGING = YES
# Hardened as a release is, with debugging support of Buildroot's own or not.
ZEDIPC_CONF_OPTS = \
	-DCMAKE_BUILD_TYPE=Release \
	-DBUILD_TESTING=OFF \
	-DZEDIPC_BUILD_EXAMPLES=OFF

ifeq ($(BR2_PACKAGE_ZEDIPC_TOOLS),y)
ZEDIPC_DEPENDENCIES += cli11
ZEDIPC_CONF_OPTS += -DZEDIPC_BUILD_TOOLS=ON
else
ZEDIPC_CONF_OPTS += -DZEDIPC_BUILD_TOOLS=OFF
endif

# The dissector is for Wireshark on the developer's machine.
define ZEDIPC_REMOVE_DISSECTOR
	$(RM) -r $(TARGET_DIR)/usr/share/zedipc
endef
ZEDIPC_POST_INSTALL_TARGET_HOOKS += ZEDIPC_REMOVE_DISSECTOR

$(eval $(cmake-package))
