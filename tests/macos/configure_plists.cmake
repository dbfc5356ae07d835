# Writes the bundle's property lists from their templates as the build would,
# with the values given on the command line, on any system:
#   cmake -DSOURCE_DIR=<repo> -DOUTPUT_DIR=<dir> [-DZEV_RELIABILITY_DIRECTORY=…]
#         [-DZEV_UPDATE_FEED_URL=…] [-DZEV_UPDATE_PUBLIC_ED_KEY=…]
#         [-DCMAKE_OSX_DEPLOYMENT_TARGET=…] -P configure_plists.cmake
cmake_minimum_required(VERSION 3.25)
include(${SOURCE_DIR}/app/bundle/bundle_settings.cmake)
set(ZEV_INFO_PLIST_EXTRA "")
if(DEFINED ZEV_RELIABILITY_DIRECTORY AND NOT ZEV_RELIABILITY_DIRECTORY STREQUAL "")
  zev_plist_string_entry(ZEV_INFO_PLIST_EXTRA ZEVReliabilityDirectory "${ZEV_RELIABILITY_DIRECTORY}")
endif()
set(PROJECT_VERSION 1.2.3)
set(ZEV_BUNDLE_CONTENTS "${OUTPUT_DIR}/ZEV.app/Contents")
configure_file(${SOURCE_DIR}/app/bundle/Info.plist.in ${OUTPUT_DIR}/Info.plist @ONLY)
configure_file(${SOURCE_DIR}/app/bundle/com.zev.zevd.plist.in ${OUTPUT_DIR}/com.zev.zevd.plist @ONLY)
