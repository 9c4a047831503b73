# SPDX-License-Identifier: MIT
SUMMARY = "Notifications and channels between the processes of a device"
DESCRIPTION = "A small C++ library with a publish/subscribe service, message channels over \
local sockets and TCP, and a JSON value that converts instead of failing."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=a560a07fb215f59963a9434aaa3ad9e4"

# Where your copy of the sources lies.
ZEDIPC_GIT ?= "zedipc.example/zedipc.git"
SRC_URI = "git://${ZEDIPC_GIT};protocol=https;nobranch=1;tag=v1.18.0"
S = "${WORKDIR}/git"

inherit cmake pkgconfig systemd bash-completion

# Hardened as a release is. Without "tools" there is the library alone.
EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DZEDIPC_BUILD_EXAMPLES=OFF \
    -DZEDIPC_UNIT_DIR=${systemd_system_unitdir}"
PACKAGECONFIG ??= "tools"
PACKAGECONFIG[tools] = "-DZEDIPC_BUILD_TOOLS=ON,-DZEDIPC_BUILD_TOOLS=OFF,cli11"

PACKAGE_BEFORE_PN = "${@bb.utils.contains('PACKAGECONFIG', 'tools', '${PN}-tools', '', d)}"
FILES:${PN}-dev += "${datadir}/zedipc"
FILES:${PN}-tools = "${bindir}/zedipc ${sysconfdir}/zedipc ${systemd_system_unitdir}"
CONFFILES:${PN}-tools = "${sysconfdir}/zedipc/rules"

SYSTEMD_PACKAGES = "${@bb.utils.contains('PACKAGECONFIG', 'tools', '${PN}-tools', '', d)}"
SYSTEMD_SERVICE:${PN}-tools = "zedipc.service"
# A process of the device's own may be the server instead.
SYSTEMD_AUTO_ENABLE = "disable"
