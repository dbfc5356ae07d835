# Assembles the application bundle under the build tree, one shape on every
# system:
#
#   ZEV.app/Contents/Info.plist
#                   /Linux/ZEVLauncher          (MacOS/ on Apple)
#                   /Helpers/zevd               (zevd-sim in the demo build)
#                   /Library/LaunchAgents/com.zev.zevd.plist
#                   /Library/systemd/user/com.zev.zevd.service
#                   /Resources/
#                   /_CodeManifest/files, files.sig   (Linux: signed manifest)
#
# On Linux the build makes a throw-away Ed25519 key pair (never committed:
# <build>/signing/), puts its public key into Info.plist as
# ZEVManifestPublicKey, and once everything else is in the bundle writes the
# manifest of its files signed with that key (tools/zev-sign). A target that
# adds files to the bundle must be a dependency of ZEVBundleManifest.
#
# Included from the top-level list after every subdirectory, so the targets it
# packs (ZEVLauncher, zevd-sim) are known by then.
set(ZEV_RELIABILITY_DIRECTORY "" CACHE STRING
    "ZEVReliabilityDirectory written into the bundle's Info.plist (empty: key left out)")

set(ZEV_BUNDLE ${CMAKE_BINARY_DIR}/ZEV.app)
set(ZEV_BUNDLE_CONTENTS ${ZEV_BUNDLE}/Contents)
if(APPLE)
  set(ZEV_BUNDLE_EXECUTABLE_DIR ${ZEV_BUNDLE_CONTENTS}/MacOS)
else()
  set(ZEV_BUNDLE_EXECUTABLE_DIR ${ZEV_BUNDLE_CONTENTS}/Linux)
endif()

set(ZEV_CERTIFICATION_WINDOW_SECONDS "" CACHE STRING
    "ZEVCertificationWindowSeconds written into Info.plist (empty: key left out, 180 s)")

set(ZEV_INFO_PLIST_EXTRA "")
if(NOT ZEV_RELIABILITY_DIRECTORY STREQUAL "")
  string(REPLACE "&" "&amp;" escaped "${ZEV_RELIABILITY_DIRECTORY}")
  string(REPLACE "<" "&lt;" escaped "${escaped}")
  string(APPEND ZEV_INFO_PLIST_EXTRA
         "\t<key>ZEVReliabilityDirectory</key>\n\t<string>${escaped}</string>\n")
endif()
if(NOT ZEV_CERTIFICATION_WINDOW_SECONDS STREQUAL "")
  if(NOT ZEV_CERTIFICATION_WINDOW_SECONDS MATCHES "^[0-9]+$")
    message(FATAL_ERROR "ZEV_CERTIFICATION_WINDOW_SECONDS must be a whole number of seconds")
  endif()
  string(APPEND ZEV_INFO_PLIST_EXTRA
         "\t<key>ZEVCertificationWindowSeconds</key>\n"
         "\t<string>${ZEV_CERTIFICATION_WINDOW_SECONDS}</string>\n")
endif()

set(bundle_sources ${CMAKE_CURRENT_LIST_DIR})
set(ZEV_SIGN_MANIFEST OFF)
if(TARGET zev-sign AND NOT APPLE)
  set(ZEV_SIGN_MANIFEST ON)
endif()
if(ZEV_SIGN_MANIFEST)
  # The key is only known at build time: configure a template now, and write
  # the Info.plist with the key in it once the key pair exists.
  string(APPEND ZEV_INFO_PLIST_EXTRA
         "\t<key>ZEVManifestPublicKey</key>\n\t<string>%ZEV_MANIFEST_PUBLIC_KEY%</string>\n")
  set(signing ${CMAKE_BINARY_DIR}/signing)
  configure_file(${bundle_sources}/Info.plist.in ${signing}/Info.plist.template @ONLY)
  add_custom_command(
    OUTPUT ${signing}/manifest.key ${signing}/manifest.pub
    COMMAND $<TARGET_FILE:zev-sign> keygen ${signing}/manifest.key > ${signing}/manifest.pub
    DEPENDS zev-sign
    COMMENT "Generating a throw-away key pair for the bundle manifest")
  add_custom_command(
    OUTPUT ${ZEV_BUNDLE_CONTENTS}/Info.plist
    COMMAND ${CMAKE_COMMAND} -DTEMPLATE=${signing}/Info.plist.template
            -DPUBLIC_KEY_FILE=${signing}/manifest.pub -DOUTPUT=${ZEV_BUNDLE_CONTENTS}/Info.plist
            -P ${bundle_sources}/write_info_plist.cmake
    DEPENDS ${signing}/Info.plist.template ${signing}/manifest.pub
            ${bundle_sources}/write_info_plist.cmake
    COMMENT "Writing ZEV.app's Info.plist with the manifest key")
  add_custom_target(ZEVBundleInfo ALL DEPENDS ${ZEV_BUNDLE_CONTENTS}/Info.plist)
else()
  configure_file(${bundle_sources}/Info.plist.in ${ZEV_BUNDLE_CONTENTS}/Info.plist @ONLY)
endif()
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

# Last: the signed manifest of everything in the bundle. Runs on every build
# (hashing the bundle takes a fraction of a second), after every target that
# puts something into it.
if(ZEV_SIGN_MANIFEST)
  add_custom_target(ZEVBundleManifest ALL
    COMMAND $<TARGET_FILE:zev-sign> manifest ${ZEV_BUNDLE} ${signing}/manifest.key
    DEPENDS ${signing}/manifest.key
    COMMENT "Writing ZEV.app's signed manifest")
  add_dependencies(ZEVBundleManifest ZEVBundleInfo zev-sign)
  foreach(part ZEVLauncher ZEVBundleDaemon)
    if(TARGET ${part})
      add_dependencies(ZEVBundleManifest ${part})
    endif()
  endforeach()
endif()

# The launcher's smoke test runs the bundled executable.
if(TARGET app_launcher_smoke_test AND TARGET ZEVLauncher)
  target_compile_definitions(app_launcher_smoke_test PRIVATE ZEV_BUNDLE="${ZEV_BUNDLE}")
  add_dependencies(app_launcher_smoke_test ZEVLauncher)
endif()

# Certified updates end to end: releases made from this bundle with
# tools/release, served on loopback, installed, certified and failed
# (tests/e2e/update_e2e.sh). Writes build/<preset>/artifacts/update-e2e/.
if(ZEV_BUILD_TESTS AND ZEV_SIGN_MANIFEST AND TARGET ZEVLauncher AND TARGET zevd-sim)
  add_test(NAME Update.EndToEnd
           COMMAND ${PROJECT_SOURCE_DIR}/tests/e2e/update_e2e.sh ${ZEV_BUNDLE}
                   $<TARGET_FILE:zev-sign> ${CMAKE_BINARY_DIR}/artifacts/update-e2e)
  set_tests_properties(Update.EndToEnd PROPERTIES LABELS update-e2e SKIP_RETURN_CODE 77
                       TIMEOUT 600)
endif()
