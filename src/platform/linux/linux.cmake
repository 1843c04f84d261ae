# The Linux platform: XDG folders, INI settings, D-Bus, the launch socket, and the small tools
# that stand in for macOS's open, pluginkit and killall. Included from src/CMakeLists.txt.
set(linux ${CMAKE_CURRENT_SOURCE_DIR}/platform/linux)
set(BRINDLEMARK_TOOLS_DIR ${CMAKE_INSTALL_LIBEXECDIR}/brindlemark)
set(BRINDLEMARK_APP_DIR ${BRINDLEMARK_TOOLS_DIR})
file(RELATIVE_PATH libexec_from_bin ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}
     ${CMAKE_INSTALL_PREFIX}/${BRINDLEMARK_TOOLS_DIR})

# The XDG folders, plain C++: one rule for the application, the launcher and the registry tool.
add_library(brindlemark_xdg STATIC ${linux}/XdgFolders.cpp)
target_include_directories(brindlemark_xdg PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})

# The launch channel, plain C++: shared by the Qt-free launcher and the application.
add_library(brindlemark_channel STATIC ${linux}/InstanceChannel.cpp)
target_include_directories(brindlemark_channel PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}
                           ${CMAKE_CURRENT_BINARY_DIR}/generated)
target_link_libraries(brindlemark_channel PRIVATE brindlemark_xdg)

# The settings files and the autostart entries, on Qt Core alone.
add_library(brindlemark_linux_base STATIC ${linux}/IniFile.cpp ${linux}/Autostart.cpp)
target_link_libraries(brindlemark_linux_base PUBLIC brindlemark_core PRIVATE brindlemark_xdg)

# The autostart entry: installed for every user of the machine (/etc/xdg/autostart) and, the same
# text, the one Brindlemark writes for its user where none is installed.
set(BRINDLEMARK_LAUNCHER_PATH ${CMAKE_INSTALL_FULL_BINDIR}/brindlemark)
configure_file(${PROJECT_SOURCE_DIR}/packaging/linux/autostart.desktop.in
               ${CMAKE_CURRENT_BINARY_DIR}/autostart/${BRINDLEMARK_APP_ID}.desktop @ONLY)
file(READ ${CMAKE_CURRENT_BINARY_DIR}/autostart/${BRINDLEMARK_APP_ID}.desktop
     BRINDLEMARK_AUTOSTART_ENTRY)
install(CODE "set(entry \"${CMAKE_CURRENT_BINARY_DIR}/autostart/${BRINDLEMARK_APP_ID}.desktop\")
              set(name ${BRINDLEMARK_APP_ID}.desktop)")
install(SCRIPT ${PROJECT_SOURCE_DIR}/packaging/linux/InstallAutostart.cmake)
configure_file(${linux}/AutostartEntry.h.in ${CMAKE_CURRENT_BINARY_DIR}/generated/AutostartEntry.h
               @ONLY)

# The plug-in registry behind brindlemark-pluginkit, plain C++: the application runs the tool at
# every opening of its tray menu, and without Qt it starts as fast as the smallest program.
add_library(brindlemark_plugin_registry STATIC ${linux}/PluginRegistry.cpp)
target_link_libraries(brindlemark_plugin_registry PUBLIC brindlemark_atomic_write brindlemark_xdg
                      brindlemark_json)
target_include_directories(brindlemark_plugin_registry PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})

# The front file-manager folder: the X server (xcb) and the file managers' D-Bus interfaces.
find_package(PkgConfig REQUIRED)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET GLOBAL xcb)
add_library(brindlemark_front_folder STATIC ${linux}/FrontFolder.cpp)
target_link_libraries(brindlemark_front_folder PUBLIC Qt6::DBus PRIVATE PkgConfig::XCB)
target_include_directories(brindlemark_front_folder PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})

add_library(brindlemark_platform STATIC
  platform/Platform.cpp
  ${linux}/InstanceServer.cpp
  ${linux}/LinuxPlatform.cpp
  ${linux}/LinuxPlatformLogin.cpp
)
target_link_libraries(brindlemark_platform
  PUBLIC brindlemark_core
  PRIVATE brindlemark_linux_base brindlemark_xdg brindlemark_channel brindlemark_plugin_registry
          brindlemark_front_folder Qt6::Widgets Qt6::DBus)

# The launcher's command line, plain C++.
add_library(brindlemark_command_line STATIC ${linux}/launcher/CommandLine.cpp)
target_include_directories(brindlemark_command_line PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})

# What the desktop and the user run: forwards to a running instance without loading Qt.
add_executable(brindlemark ${linux}/launcher/main.cpp)
target_link_libraries(brindlemark PRIVATE brindlemark_channel brindlemark_command_line)
target_compile_definitions(brindlemark PRIVATE BRINDLEMARK_LIBEXEC_FROM_BIN="${libexec_from_bin}")
add_dependencies(brindlemark brindlemark-app brindlemark-pluginkit brindlemark-killall)
install(TARGETS brindlemark RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

add_executable(brindlemark-pluginkit ${linux}/tools/pluginkit/main.cpp)
target_link_libraries(brindlemark-pluginkit PRIVATE brindlemark_plugin_registry)
# Linked whole, C library too, as a static PIE (its address still random): with nothing for the
# dynamic loader to load and relocate, a run takes less time than /bin/true's (measured 0.48 ms
# against 0.50 ms; 0.63 ms with only its own C++ runtime, 1.1 ms with the shared one). It calls
# nothing that needs the shared C library (no user or host lookups). The sanitizers of the fuzz
# build link no static program.
if(NOT BRINDLEMARK_FUZZ)
  target_link_options(brindlemark-pluginkit PRIVATE -static-pie)
endif()
install(TARGETS brindlemark-pluginkit RUNTIME DESTINATION ${BRINDLEMARK_TOOLS_DIR})

# The tools the application runs: beside it in the build tree, in libexec once installed.
foreach(tool brindlemark-open brindlemark-doctor)
  configure_file(${linux}/tools/${tool} ${CMAKE_CURRENT_BINARY_DIR}/${tool} COPYONLY)
  install(PROGRAMS ${linux}/tools/${tool} DESTINATION ${BRINDLEMARK_TOOLS_DIR})
endforeach()

# Restarts the file managers that must load the menu extension, and opens their windows again.
add_executable(brindlemark-killall ${linux}/tools/killall/main.cpp)
target_link_libraries(brindlemark-killall PRIVATE brindlemark_front_folder brindlemark_xdg
                      Qt6::Core)
target_include_directories(brindlemark-killall PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/generated)
install(TARGETS brindlemark-killall RUNTIME DESTINATION ${BRINDLEMARK_TOOLS_DIR})

# The file-manager extension's bundle, in the application's plug-ins folder.
set(appex ${CMAKE_CURRENT_BINARY_DIR}/PlugIns/BrindlemarkFinderSync.appex)
configure_file(${PROJECT_SOURCE_DIR}/packaging/linux/Info.ini.in ${appex}/Info.ini @ONLY)
foreach(part brindlemark_menu.py brindlemark-menu-action install uninstall gnome-shell/metadata.json
             gnome-shell/extension.js)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/linux/extension/${part} ${appex}/${part} COPYONLY)
endforeach()
# The built-in templates, which the menus list until the user's own list is stored.
add_executable(brindlemark-default-templates ${linux}/tools/default-templates/main.cpp)
target_link_libraries(brindlemark-default-templates PRIVATE brindlemark_core)
add_custom_command(OUTPUT ${appex}/default-templates.json
                   COMMAND brindlemark-default-templates ${appex}/default-templates.json
                   DEPENDS brindlemark-default-templates VERBATIM)
add_custom_target(brindlemark_default_templates ALL DEPENDS ${appex}/default-templates.json)
install(DIRECTORY ${appex} DESTINATION ${BRINDLEMARK_TOOLS_DIR}/PlugIns USE_SOURCE_PERMISSIONS)

configure_file(${PROJECT_SOURCE_DIR}/packaging/brindlemark.desktop.in
               ${CMAKE_CURRENT_BINARY_DIR}/${BRINDLEMARK_APP_ID}.desktop @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${BRINDLEMARK_APP_ID}.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/icons/brindlemark.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
        RENAME ${BRINDLEMARK_APP_ID}.svg)
# The mark in one colour: panels that look the tray icon up by name recolour it to their style.
install(FILES ${PROJECT_SOURCE_DIR}/packaging/icons/brindlemark-symbolic.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
        RENAME ${BRINDLEMARK_APP_ID}-symbolic.svg)
foreach(size 16 22 24 32 48 64 128 256)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/icons/png/brindlemark-${size}.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps
          RENAME ${BRINDLEMARK_APP_ID}.png)
endforeach()
