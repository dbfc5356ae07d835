# macOS only (included by bundle.cmake): Sparkle 2, linked and embedded as
# ZEV.app/Contents/Frameworks/Sparkle.framework, and the launcher's run path
# to it. Sparkle is not in Homebrew's or the SDK's search paths: unpack a
# Sparkle 2.x release and point ZEV_SPARKLE_FRAMEWORK_DIR (or
# CMAKE_FRAMEWORK_PATH) at the folder holding Sparkle.framework.
set(ZEV_SPARKLE_FRAMEWORK_DIR "" CACHE PATH "Folder holding Sparkle.framework (Sparkle 2.x)")
find_library(SPARKLE_FRAMEWORK NAMES Sparkle HINTS ${ZEV_SPARKLE_FRAMEWORK_DIR}
             DOC "Sparkle.framework" REQUIRED)
if(NOT SPARKLE_FRAMEWORK MATCHES "/Sparkle\\.framework$")
  message(FATAL_ERROR "Sparkle must be the framework (Sparkle.framework), found ${SPARKLE_FRAMEWORK}")
endif()
target_link_libraries(ZEVLauncherApp PUBLIC ${SPARKLE_FRAMEWORK})
# The adapters call Foundation and Core Graphics directly (system_symbol_mac
# draws through a bitmap context); AppKit does not re-export their symbols.
target_link_libraries(ZEVLauncherApp PUBLIC "-framework Foundation" "-framework CoreGraphics")

if(TARGET ZEVLauncher)
  # Sparkle's install name is @rpath/Sparkle.framework/...; the launcher lives
  # in Contents/MacOS.
  set_target_properties(ZEVLauncher PROPERTIES BUILD_RPATH "@executable_path/../Frameworks"
                                               INSTALL_RPATH "@executable_path/../Frameworks")
  # ditto keeps the framework's symbolic links and its nested helpers (the
  # Autoupdate and Updater.app) as Sparkle ships them.
  add_custom_command(TARGET ZEVLauncher POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${ZEV_BUNDLE_CONTENTS}/Frameworks/Sparkle.framework
    COMMAND ${CMAKE_COMMAND} -E make_directory ${ZEV_BUNDLE_CONTENTS}/Frameworks
    COMMAND /usr/bin/ditto ${SPARKLE_FRAMEWORK} ${ZEV_BUNDLE_CONTENTS}/Frameworks/Sparkle.framework
    COMMENT "Embedding Sparkle.framework in ZEV.app/Contents/Frameworks")
endif()
