# The server families are constants of the build: a device maker sets them here, and no file or variable of the device
# can name others. They reach the sources as constants of a generated header.
foreach(family IN ITEMS account identity payment)
  string(TOUPPER ${family} upper)
  set(VARNKIVO_${upper}_HOST "https://${family}.kivo.example" CACHE STRING "The production ${family} host")
  set(VARNKIVO_${upper}_TEST_HOST "https://${family}-test.kivo.example" CACHE STRING "The test ${family} host")
  foreach(host IN ITEMS "${VARNKIVO_${upper}_HOST}" "${VARNKIVO_${upper}_TEST_HOST}")
    if(NOT host MATCHES "^https://[A-Za-z0-9.:-]+$")
      message(FATAL_ERROR "\"${host}\" is no host of the ${family} family: it must be https://NAME without a path")
    endif()
  endforeach()
endforeach()

add_library(varnkivo_generated INTERFACE)
target_include_directories(varnkivo_generated INTERFACE "$<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated>")
configure_file("${PROJECT_SOURCE_DIR}/cmake/server_hosts.h.in" "${PROJECT_BINARY_DIR}/generated/server_hosts.h" @ONLY)
configure_file("${PROJECT_SOURCE_DIR}/cmake/build_version.h.in" "${PROJECT_BINARY_DIR}/generated/build_version.h" @ONLY)
