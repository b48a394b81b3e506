# The Debian packages: libdt1 and libdt-dev; dtctl and dtfleet from a build that has them (see
# `./dt package`).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "libdt developers <libdt@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL dt_runtime dt_development)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/files.cmake)
set(CPACK_DT_SOURCE_DIR ${CMAKE_CURRENT_SOURCE_DIR})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE libdt)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# A cross build has no package database to ask: its preset states what it depends on.
if(NOT CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

# A field that this cpack does not know, on a line behind one that it does.
set(multiarch "\nMulti-Arch: same")
set(purpose "Accounted memory, lists and buffers, packed records in bounded stores, logs,
a registry of faults, console tables, timers, settings from a server, and
delivery of collected data; for embedded Linux devices and for the hosts
where they are developed.")

set(CPACK_DEBIAN_DT_RUNTIME_PACKAGE_NAME libdt1)
set(CPACK_DEBIAN_DT_RUNTIME_PACKAGE_SECTION "libs${multiarch}")
set(CPACK_DEBIAN_DT_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_DT_RUNTIME_DESCRIPTION
    "diagnostics and data collection for devices - shared library\n${purpose}")

set(CPACK_DEBIAN_DT_DEVELOPMENT_PACKAGE_NAME libdt-dev)
set(CPACK_DEBIAN_DT_DEVELOPMENT_PACKAGE_SECTION "libdevel${multiarch}")
set(CPACK_DEBIAN_DT_DEVELOPMENT_PACKAGE_DEPENDS "libdt1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DT_DEVELOPMENT_DESCRIPTION
    "diagnostics and data collection for devices - headers\n${purpose}")

set(CPACK_DEBIAN_DT_TOOLS_PACKAGE_NAME dtctl)
set(CPACK_DEBIAN_DT_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DT_TOOLS_DESCRIPTION
    "diagnostics and data collection for devices - host program\n${purpose}\n
This is the host's side: collection server, configuration server and
fault log reader.")

set(scripts ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/dtfleet)
set(CPACK_DEBIAN_DT_FLEET_PACKAGE_NAME dtfleet)
set(CPACK_DEBIAN_DT_FLEET_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DT_FLEET_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers")
set(CPACK_DEBIAN_DT_FLEET_PACKAGE_CONTROL_EXTRA
    ${scripts}/postinst ${scripts}/prerm ${scripts}/postrm ${scripts}/conffiles)
set(CPACK_DEBIAN_DT_FLEET_DESCRIPTION
    "diagnostics and data collection for devices - service for a fleet\n${purpose}\n
This is a service of the host's side: it asks many devices for their data on a
schedule, keeps the history in a database, and shows it on a page.")
include(CPack)
