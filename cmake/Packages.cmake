# Debian packages, one a component: "cpack --preset release", or "cpack -G DEB" in the folder of any build. A component is
# installed alone by "cmake --install DIR --component NAME".
#
#   daemon              qvcd                 the daemon, qvc, qvmeta; nothing is started
#   appliance           qvcd-appliance       the model that ships, with what it needs; the daemon is enabled
#   web                 qvcd-web             qvweb with its console, enabled
#   client-library      libqvclient1
#   client-development  libqvclient-dev
#   python              python3-qvclient
#
# A folder that brings a package of its own (COMPONENT on its install() lines) adds a qvcd_package() below; what has a
# component without one is installed, and packaged by nobody.
set(QVCD_MAINTAINER "The qvcd developers <qvcd@lists.example.org>" CACHE STRING "Who answers for the packages")
set(package_files ${CMAKE_SOURCE_DIR}/share/package)

# What every Debian package has to say of itself.
file(STRINGS ${CMAKE_SOURCE_DIR}/LICENSE license_lines)
set(QVCD_LICENSE)
foreach(line IN LISTS license_lines)
  string(APPEND QVCD_LICENSE " ${line}\n")
endforeach()
string(REPLACE " \n" " .\n" QVCD_LICENSE "${QVCD_LICENSE}")
configure_file(${package_files}/copyright.in package/copyright @ONLY)
configure_file(${package_files}/changelog.in package/changelog @ONLY)
execute_process(COMMAND gzip -9nf package/changelog WORKING_DIRECTORY ${CMAKE_BINARY_DIR} COMMAND_ERROR_IS_FATAL ANY)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qvcd)
set(CPACK_PACKAGE_CONTACT ${QVCD_MAINTAINER})
set(CPACK_PACKAGE_VENDOR "The qvcd developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENTS_ALL)

# qvcd_package(component NAME deb DESCRIPTION text [SECTION s] [DEPENDS text] [SUGGESTS text]
#                [CONTROL file...] [AFTER component...] [ALL] [SHLIBDEPS])
# The first line of the description is the summary. AFTER: depends on this release of them. ALL: the same on every
# architecture. SHLIBDEPS: depends on the libraries that its programs are linked with.
function(qvcd_package component)
  cmake_parse_arguments(P "ALL;SHLIBDEPS" "NAME;SECTION;DEPENDS;SUGGESTS;DESCRIPTION" "CONTROL;AFTER" ${ARGN})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${P_NAME} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ${P_SHLIBDEPS} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION ${P_DESCRIPTION} PARENT_SCOPE)
  set(CPACK_COMPONENT_${upper}_DEPENDS ${P_AFTER} PARENT_SCOPE)
  foreach(field SECTION DEPENDS SUGGESTS)
    if(P_${field})
      set(CPACK_DEBIAN_${upper}_PACKAGE_${field} ${P_${field}} PARENT_SCOPE)
    endif()
  endforeach()
  if(P_ALL)
    set(CPACK_DEBIAN_${upper}_PACKAGE_ARCHITECTURE all PARENT_SCOPE)
  endif()
  list(TRANSFORM P_CONTROL PREPEND ${package_files}/)
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${P_CONTROL} PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  install(FILES ${CMAKE_BINARY_DIR}/package/copyright ${CMAKE_BINARY_DIR}/package/changelog.gz
    ${CMAKE_SOURCE_DIR}/THIRD-PARTY-NOTICES.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${P_NAME} COMPONENT ${component})
endfunction()

# Below /etc when the prefix ends in /usr, else below the prefix.
#   qvcd_install_etc(daemon default qvcd.default qvcd): share/package/qvcd.default as etc/default/qvcd
function(qvcd_install_etc component folder file name)
  install(CODE "
    if(CMAKE_INSTALL_PREFIX MATCHES \"^(.*)/usr/?$\")
      set(etc \"\${CMAKE_MATCH_1}/etc\")
    else()
      set(etc \"\${CMAKE_INSTALL_PREFIX}/etc\")
    endif()
    file(INSTALL DESTINATION \"\${etc}/${folder}\" TYPE FILE RENAME ${name} FILES \"${package_files}/${file}\")"
    COMPONENT ${component})
endfunction()

qvcd_package(daemon NAME qvcd SHLIBDEPS
  DEPENDS "init-system-helpers (>= 1.54), systemd | systemd-standalone-sysusers | systemd-sysusers"
  CONTROL daemon/postinst daemon/prerm daemon/postrm daemon/triggers daemon/conffiles
  DESCRIPTION "configuration daemon of a networked video appliance
Every setting and status value of the appliance is a named leaf of one tree,
which qvcd owns: it checks, saves and applies changes, undoes what nobody
confirms, and remembers who changed what.
.
With it come qvc, its command line and shell, and qvmeta, which checks and
documents the metadata that describes an appliance. Installing this changes no
setting of the system and starts nothing.")
qvcd_package(appliance NAME qvcd-appliance ALL AFTER daemon
  DEPENDS "init-system-helpers (>= 1.54), openssl, systemd, tzdata"
  SUGGESTS "curl, linuxptp, msmtp, nftables, ntpsec, openssh-server, rsyslog, snmpd, wpasupplicant"
  CONTROL appliance/postinst appliance/prerm appliance/postrm
  DESCRIPTION "video encoder and decoder as a model for qvcd
Metadata, menu and tools of a whole appliance: network, time, security,
monitoring, encoders, decoders, streams, recording, tally and bonding.
.
The model owns the system's network and writes below /etc. Install it on an
appliance, not on a workstation. Settings are kept by upgrades and go with a
purge.")
qvcd_package(client-library NAME libqvclient1 SECTION libs SHLIBDEPS CONTROL library/shlibs library/triggers
  DESCRIPTION "client library of the configuration daemon qvcd
Commands, replies and events of qvcd, over its local socket or over TCP with
TLS, for programs in C and other languages.")
qvcd_package(client-development NAME libqvclient-dev SECTION libdevel AFTER client-library
  DEPENDS "libssl-dev"
  DESCRIPTION "client library of the configuration daemon qvcd (development files)
Commands, replies and events of qvcd, over its local socket or over TCP with
TLS, for programs in C and other languages.
.
This has the header, the static library and what pkg-config needs.")
qvcd_package(python NAME python3-qvclient SECTION python ALL
  DEPENDS "python3, libqvclient1 (>= ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})"
  CONTROL python/postinst python/prerm
  DESCRIPTION "client library of the configuration daemon qvcd (Python module)
Commands, replies and events of qvcd for programs in Python, as types and
exceptions of the language.")

if(QVCD_WEB)
  qvcd_package(web NAME qvcd-web SHLIBDEPS AFTER daemon
    DEPENDS "init-system-helpers (>= 1.54), systemd | systemd-standalone-sysusers | systemd-sysusers"
    CONTROL web/postinst web/prerm web/postrm web/conffiles
    DESCRIPTION "web console and HTTP API of the configuration daemon qvcd
The appliance in a browser, for scripts over HTTP, and for Prometheus. qvweb
runs as a user of its own without rights, and asks the daemon in the name of
whoever logs in.
.
It listens on loopback, with TLS, until /etc/default/qvweb says more.")
  qvcd_install_etc(web default qvweb.default qvweb)
endif()

qvcd_install_etc(daemon default qvcd.default qvcd)
qvcd_install_etc(daemon logrotate.d qvcd.logrotate qvcd)

include(CPack)
