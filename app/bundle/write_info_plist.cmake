# Build-time step of bundle.cmake: writes the bundle's Info.plist from the
# configured template, putting in the manifest's public key once the build's
# key pair exists.
#   cmake -DTEMPLATE=<file> -DPUBLIC_KEY_FILE=<file> -DOUTPUT=<file> -P write_info_plist.cmake
file(READ ${TEMPLATE} text)
file(STRINGS ${PUBLIC_KEY_FILE} key LIMIT_COUNT 1)
string(STRIP "${key}" key)
if(NOT key MATCHES "^[A-Za-z0-9+/=]+$")
  message(FATAL_ERROR "no public key in ${PUBLIC_KEY_FILE}")
endif()
string(REPLACE "%ZEV_MANIFEST_PUBLIC_KEY%" "${key}" text "${text}")
file(CONFIGURE OUTPUT ${OUTPUT} CONTENT "${text}" @ONLY)
