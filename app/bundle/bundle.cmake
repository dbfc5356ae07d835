# Assembles the application bundle under the build tree, one shape on every
# system:
#
#   ZEV.app/Contents/Info.plist
#                   /Linux/ZEVLauncher          (MacOS/ on Apple)
#                   /Helpers/zevd               (zevd-sim in the demo build)
#                   /Library/LaunchAgents/com.zev.zevd.plist
#                   /Library/systemd/user/com.zev.zevd.service
#                   /Resources/
#
# Included from the top-level list after every subdirectory, so the targets it
# packs (ZEVLauncher, zevd-sim) are known by then.
include(${CMAKE_CURRENT_LIST_DIR}/bundle_settings.cmake)

set(ZEV_RELIABILITY_DIRECTORY "" CACHE STRING
    "ZEVReliabilityDirectory written into the bundle's Info.plist (empty: key left out)")

set(ZEV_BUNDLE ${CMAKE_BINARY_DIR}/ZEV.app)
set(ZEV_BUNDLE_CONTENTS ${ZEV_BUNDLE}/Contents)
if(APPLE)
  set(ZEV_BUNDLE_EXECUTABLE_DIR ${ZEV_BUNDLE_CONTENTS}/MacOS)
else()
  set(ZEV_BUNDLE_EXECUTABLE_DIR ${ZEV_BUNDLE_CONTENTS}/Linux)
endif()

set(ZEV_INFO_PLIST_EXTRA "")
if(NOT ZEV_RELIABILITY_DIRECTORY STREQUAL "")
  zev_plist_string_entry(ZEV_INFO_PLIST_EXTRA ZEVReliabilityDirectory "${ZEV_RELIABILITY_DIRECTORY}")
endif()

set(bundle_sources ${CMAKE_CURRENT_LIST_DIR})
configure_file(${bundle_sources}/Info.plist.in ${ZEV_BUNDLE_CONTENTS}/Info.plist @ONLY)
configure_file(${bundle_sources}/com.zev.zevd.plist.in
               ${ZEV_BUNDLE_CONTENTS}/Library/LaunchAgents/com.zev.zevd.plist @ONLY)
configure_file(${bundle_sources}/com.zev.zevd.service.in
               ${ZEV_BUNDLE_CONTENTS}/Library/systemd/user/com.zev.zevd.service @ONLY)
file(MAKE_DIRECTORY ${ZEV_BUNDLE_CONTENTS}/Resources ${ZEV_BUNDLE_CONTENTS}/Helpers)

# The launcher is linked straight into the bundle: the executable decides
# where its bundle is from its own location.
if(TARGET ZEVLauncher)
  set_target_properties(ZEVLauncher PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${ZEV_BUNDLE_EXECUTABLE_DIR})
endif()

if(TARGET zevd-sim)
  add_custom_command(
    OUTPUT ${ZEV_BUNDLE_CONTENTS}/Helpers/zevd
    COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:zevd-sim> ${ZEV_BUNDLE_CONTENTS}/Helpers/zevd
    DEPENDS zevd-sim $<TARGET_FILE:zevd-sim>
    COMMENT "Copying zevd-sim into ZEV.app as Contents/Helpers/zevd")
  add_custom_target(ZEVBundleDaemon ALL DEPENDS ${ZEV_BUNDLE_CONTENTS}/Helpers/zevd)
endif()

if(APPLE)
  include(${CMAKE_CURRENT_LIST_DIR}/bundle_mac.cmake)
endif()

# The launcher's smoke test runs the bundled executable.
if(TARGET app_launcher_smoke_test AND TARGET ZEVLauncher)
  target_compile_definitions(app_launcher_smoke_test PRIVATE ZEV_BUNDLE="${ZEV_BUNDLE}")
  add_dependencies(app_launcher_smoke_test ZEVLauncher)
endif()
