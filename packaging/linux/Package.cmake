# The Debian package, made by CPack's DEB generator from the same install rules as a source
# install (`bash scripts/package.sh` configures a build with the prefix /usr and runs cpack).
# CPack rather than a debian/ folder: the install rules are the one list of what is installed and
# where, so the package cannot drift from `cmake --install`; the shared libraries the programs
# link are turned into dependencies by dpkg-shlibdeps all the same, and nothing else (debhelper,
# a second build description) is needed. Included from the top-level CMakeLists.txt on Linux.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME brindlemark)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Brindlemark <dev@brindlemark.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "new files from templates in the file manager's folder")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Brindlemark keeps an ordered list of file templates and makes new, uniquely
numbered files from them in the folder shown in the file manager. It lives in
the system tray, adds a New File menu to Nautilus, Nemo, Caja, Thunar and
Dolphin, opens terminals, and handles brindlemark:// URLs.")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT) # brindlemark_VERSION_ARCH.deb
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# Installed into a staging tree through DESTDIR, with the prefix as it is configured: the entry
# for /etc/xdg/autostart lands in that tree too.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The libraries the programs link (Qt, the C++ runtime, xcb) as dpkg-shlibdeps finds them, and
# what runs without being linked: Qt's X11 platform plug-in; python3 for the file managers' menus,
# Dolphin's menu helper and --doctor; xdg-open, which shows a folder where no file manager answers
# on D-Bus; and desktop-file-utils, whose trigger adds the desktop
# entry's URL scheme to the MIME cache that xdg-open reads, so that brindlemark:// URLs reach
# Brindlemark without an xdg-mime step.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, python3, xdg-utils, desktop-file-utils")
# The symbolic icons the window and menus draw. No session bus is required: every desktop that
# has a file manager runs one, and without one a new file's folder is opened with xdg-open.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "adwaita-icon-theme")
# Each file manager's extension support, for the right-click menu in that file manager.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS
    "python3-nautilus, nemo-python, python3-caja, thunarx-python, gir1.2-thunarx-3.0")

# The autostart entry in /etc is a configuration file: an administrator's change (Hidden=true
# for every user) survives upgrades, and `apt purge` removes it.
set(package_control ${CMAKE_CURRENT_BINARY_DIR}/package-control)
file(WRITE ${package_control}/conffiles
     "${CMAKE_INSTALL_FULL_SYSCONFDIR}/xdg/autostart/${BRINDLEMARK_APP_ID}.desktop\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${package_control}/conffiles)

# The package's copyright statement, changelog and manual page, where Debian looks for them, and lintian's
# overrides; installed with the prefix /usr only, the layout they belong to.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  add_custom_command(OUTPUT ${package_control}/changelog.gz
                     COMMAND gzip -9n -c ${CMAKE_CURRENT_LIST_DIR}/debian/changelog >
                             ${package_control}/changelog.gz
                     DEPENDS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog VERBATIM)
  add_custom_command(OUTPUT ${package_control}/brindlemark.1.gz
                     COMMAND gzip -9n -c ${CMAKE_CURRENT_LIST_DIR}/brindlemark.1 >
                             ${package_control}/brindlemark.1.gz
                     DEPENDS ${CMAKE_CURRENT_LIST_DIR}/brindlemark.1 VERBATIM)
  add_custom_target(brindlemark_package_docs ALL DEPENDS ${package_control}/changelog.gz
                                                         ${package_control}/brindlemark.1.gz)
  install(FILES ${package_control}/brindlemark.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${package_control}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/brindlemark)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/lintian-overrides
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME brindlemark)
endif()

include(CPack)
