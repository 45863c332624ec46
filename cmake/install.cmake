# What `cmake --install` puts where, and the packages that CPack makes of it: deb, rpm, tar.gz.
#
# The places are fixed: the unit names them, and the suite expects them. So the prefix is /usr unless it
# is set when the build is configured, and what lies outside of it has absolute names.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set(CMAKE_INSTALL_PREFIX /usr CACHE PATH "Where zorn is installed" FORCE)
  include(GNUInstallDirs)
endif()
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS  # whatever the caller's umask allows to others
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(packaging ${CMAKE_SOURCE_DIR}/packaging)
set(examples_dir ${CMAKE_INSTALL_DOCDIR}/examples)
set(headers_dir ${CMAKE_INSTALL_INCLUDEDIR}/zorn)
set(suite_dir /opt/Corvanthimex)

# --- The service -----------------------------------------------------------------------------------

install(TARGETS zorn DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/zorn)

configure_file(${packaging}/systemd/zorn.service.in zorn.service @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zorn.service DESTINATION lib/systemd/system)
install(FILES ${packaging}/systemd/zorn.tmpfiles DESTINATION lib/tmpfiles.d RENAME zorn.conf)

# Never the folder alone: empty it means "no settings at all". A file that is there stays: somebody may
# have changed it.
set(settings ${suite_dir}/vital/etc/kelmora/TarnhollowSuite/TraceConfig/global_trace.ini)
install(CODE "set(ZORN_SETTINGS \"${packaging}/trace/global_trace.ini\")
set(ZORN_SETTINGS_PLACE \"${settings}\")")
install(SCRIPT ${packaging}/cmake/keep_settings.cmake)
install(DIRECTORY DESTINATION ${suite_dir}/lib64)
install(DIRECTORY DESTINATION ${suite_dir}/vital/etc/tolbrin)
install(DIRECTORY DESTINATION /var/log/tolbrin)

# --- For authors of modules ------------------------------------------------------------------------

install(CODE "set(ZORN_SOURCE_DIR \"${CMAKE_SOURCE_DIR}\")\nset(ZORN_HEADERS_DIR \"${headers_dir}\")")
install(SCRIPT ${packaging}/cmake/public_headers.cmake)

# Under share/, which is the same for all families of packages.
set(EXAMPLES_DIR ${examples_dir})
set(HEADERS_DIR ${headers_dir})
configure_package_config_file(${packaging}/cmake/zornConfig.cmake.in zornConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_DATADIR}/cmake/zorn
  PATH_VARS EXAMPLES_DIR HEADERS_DIR
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(zornConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zornConfig.cmake ${CMAKE_BINARY_DIR}/zornConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_DATADIR}/cmake/zorn)
configure_file(${packaging}/cmake/zorn.pc.in zorn.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zorn.pc DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig)

# --- Manuals and examples --------------------------------------------------------------------------

find_program(GZIP gzip REQUIRED)
set(written)  # what the build writes for this section

# make_file(FILE DEPENDENCY COMMAND...): a file of the build tree, from what the command writes.
macro(make_file file dependency)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/${file} DEPENDS ${dependency} VERBATIM
    COMMAND sh -c "exec \"$@\" >\"$0\"" ${CMAKE_BINARY_DIR}/${file} ${ARGN})
  list(APPEND written ${CMAKE_BINARY_DIR}/${file})
endmacro()

# install_manual(PAGE): compresses and installs a man page; its name tells the section.
macro(install_manual page)
  get_filename_component(name ${page} NAME)
  string(REGEX MATCH "[0-9]$" section ${name})
  make_file(${name}.gz ${page} ${GZIP} -9nc ${page})
  install(FILES ${CMAKE_BINARY_DIR}/${name}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endmacro()

foreach(page zorn.8 zorn-log.5 zorn-profile.5 zorn-registry.5 zorn-ring.5 zorn-trace.ini.5)
  install_manual(${packaging}/man/${page})
endforeach()

# The program for people writes its own manual and completions.
install(TARGETS zornctl DESTINATION ${CMAKE_INSTALL_BINDIR})
make_file(zornctl.1 zornctl $<TARGET_FILE:zornctl> generate man)
make_file(zornctl.bash zornctl $<TARGET_FILE:zornctl> generate bash)
make_file(_zornctl zornctl $<TARGET_FILE:zornctl> generate zsh)
install_manual(${CMAKE_BINARY_DIR}/zornctl.1)
install(FILES ${CMAKE_BINARY_DIR}/zornctl.bash RENAME zornctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
foreach(folder site-functions vendor-completions)  # zsh at large, and Debian's
  install(FILES ${CMAKE_BINARY_DIR}/_zornctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${folder})
endforeach()

add_custom_target(manuals ALL DEPENDS ${written})

install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md ${packaging}/copyright
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(FILES ${packaging}/systemd/hardening.conf ${packaging}/systemd/inventory.conf
  DESTINATION ${examples_dir}/systemd)
install(FILES ${packaging}/examples/CMakeLists.txt DESTINATION ${examples_dir})
install(DIRECTORY examples/ DESTINATION ${examples_dir}
  FILES_MATCHING PATTERN "*.h" PATTERN "*.cpp")

# --- Packages --------------------------------------------------------------------------------------

# The address that the packages name for reports (SECURITY.md).
set(ZORN_CONTACT "" CACHE STRING "Who answers for the packages: NAME <ADDRESS>")
set(contact ${ZORN_CONTACT})
if(NOT contact)
  set(contact "nobody named (built without ZORN_CONTACT)")
endif()

set(CPACK_GENERATOR DEB RPM TGZ)
set(CPACK_PACKAGE_NAME zorn)
set(CPACK_PACKAGE_VENDOR Kelmora)
set(CPACK_PACKAGE_CONTACT ${contact})
set(CPACK_PACKAGE_DESCRIPTION "\
zorn sets up its process, loads a module host, which is not part of this
package, and lets it run extension modules. In the same executable stand the
trace and the library that the modules use; the headers come with it.")
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_SET_DESTDIR ON)  # the archive, too, has files outside of the prefix
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)  # to be unpacked in /
set(CPACK_PACKAGE_FILE_NAME zorn-${PROJECT_VERSION}-x86_64)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS pciutils)  # lspci knows the names of adapters
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${packaging}/deb/conffiles ${packaging}/deb/postinst ${packaging}/deb/prerm ${packaging}/deb/postrm)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_COMPRESSION_TYPE xz)
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_RPM_PACKAGE_LICENSE Proprietary)
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
set(CPACK_RPM_PACKAGE_REQUIRES gzip)  # essential for Debian
# A server needs no pkg-config for the sake of a file that only authors of modules read.
set(CPACK_RPM_SPEC_MORE_DEFINE "Packager: ${contact}
%global _build_id_links none
%global __requires_exclude ^/usr/bin/pkg-config$")
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${packaging}/rpm/post)
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${packaging}/rpm/preun)
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${packaging}/rpm/postun)
set(CPACK_RPM_USER_FILELIST
  "%config(noreplace) ${settings}")
# Folders of every system; other packages may share the rest.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /opt /var /var/log /usr/bin /usr/include /usr/lib/systemd /usr/lib/systemd/system
  /usr/lib/tmpfiles.d /usr/libexec /usr/share/doc
  /usr/share/man /usr/share/man/man1 /usr/share/man/man5 /usr/share/man/man8)

include(CPack)
