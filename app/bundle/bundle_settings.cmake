# Values the bundle's property lists take from the build's settings. Included
# by bundle.cmake, and run in script mode by the plist test
# (tests/macos/plist_check.py), which configures the templates with test
# values on any system.

# Appends a <key>/<string> pair to the variable named `out`, the value escaped
# for XML character data.
function(zev_plist_string_entry out key value)
  string(REPLACE "&" "&amp;" escaped "${value}")
  string(REPLACE "<" "&lt;" escaped "${escaped}")
  string(REPLACE ">" "&gt;" escaped "${escaped}")
  set(${out} "${${out}}\t<key>${key}</key>\n\t<string>${escaped}</string>\n" PARENT_SCOPE)
endfunction()

# Sparkle reads its feed and the public half of the Ed25519 key that signs
# updates from Info.plist; with neither the updater has no feed and never
# finds an update.
set(ZEV_UPDATE_FEED_URL "" CACHE STRING "SUFeedURL in the bundle's Info.plist (empty: key left out)")
set(ZEV_UPDATE_PUBLIC_ED_KEY "" CACHE STRING
    "SUPublicEDKey in the bundle's Info.plist: base64 of the 32-byte Ed25519 public key (empty: left out)")

if(NOT ZEV_UPDATE_PUBLIC_ED_KEY STREQUAL "" AND
   NOT ZEV_UPDATE_PUBLIC_ED_KEY MATCHES "^[A-Za-z0-9+/]+=$")
  message(FATAL_ERROR "ZEV_UPDATE_PUBLIC_ED_KEY must be the base64 of a 32-byte Ed25519 key")
endif()
string(LENGTH "${ZEV_UPDATE_PUBLIC_ED_KEY}" key_length)
if(NOT key_length EQUAL 0 AND NOT key_length EQUAL 44)
  message(FATAL_ERROR "ZEV_UPDATE_PUBLIC_ED_KEY must be the base64 of a 32-byte Ed25519 key")
endif()

set(ZEV_INFO_PLIST_UPDATER "")
if(NOT ZEV_UPDATE_FEED_URL STREQUAL "")
  zev_plist_string_entry(ZEV_INFO_PLIST_UPDATER SUFeedURL "${ZEV_UPDATE_FEED_URL}")
endif()
if(NOT ZEV_UPDATE_PUBLIC_ED_KEY STREQUAL "")
  zev_plist_string_entry(ZEV_INFO_PLIST_UPDATER SUPublicEDKey "${ZEV_UPDATE_PUBLIC_ED_KEY}")
endif()

# LSMinimumSystemVersion follows the deployment target the code is compiled
# for (set before project() in the top-level list).
if(CMAKE_OSX_DEPLOYMENT_TARGET)
  set(ZEV_MACOS_MINIMUM_VERSION "${CMAKE_OSX_DEPLOYMENT_TARGET}")
else()
  set(ZEV_MACOS_MINIMUM_VERSION 13.0)
endif()
