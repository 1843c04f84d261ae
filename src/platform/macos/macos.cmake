# The macOS platform: portable Qt and the system's own tools (open, osascript, pluginkit,
# killall), no Objective-C. On macOS it is the application's platform and brindlemark-app becomes
# Brindlemark.app; on other systems its sources build into a library for their test. Included
# from src/CMakeLists.txt.
set(macos ${CMAKE_CURRENT_SOURCE_DIR}/platform/macos)
set(macos_sources ${macos}/MacPlatform.cpp ${macos}/UrlReceiver.cpp)

if(APPLE)
  # The bundle is installed as it is, into the prefix (/Applications, for instance).
  set(BRINDLEMARK_APP_DIR .)

  add_library(brindlemark_platform STATIC platform/Platform.cpp ${macos_sources} ${macos}/CreatePlatform.cpp)
  target_link_libraries(brindlemark_platform PUBLIC brindlemark_core PRIVATE Qt6::Widgets)

  # brindlemark-app, made after this file is read, becomes the bundle: an accessory application
  # (no Dock icon) with the brindlemark URL scheme. The Finder extension, a program of its own,
  # is not built here; the bundle's Contents/PlugIns is where it goes.
  set(CMAKE_MACOSX_BUNDLE ON)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/macos/Info.plist.in
                 ${CMAKE_CURRENT_BINARY_DIR}/Info.plist @ONLY)
  cmake_language(DEFER CALL set_target_properties brindlemark-app PROPERTIES
                 OUTPUT_NAME Brindlemark
                 MACOSX_BUNDLE_INFO_PLIST ${CMAKE_CURRENT_BINARY_DIR}/Info.plist)
else()
  # The interface's own code (and its alert) comes from this system's platform library.
  add_library(brindlemark_macos_platform STATIC ${macos_sources})
  target_link_libraries(brindlemark_macos_platform PUBLIC brindlemark_platform Qt6::Widgets)
endif()
