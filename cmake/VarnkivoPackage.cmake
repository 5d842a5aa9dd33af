# What another project finds the installed library by: varnkivo.pc and find_package(varnkivo 1). Both tell the prefix
# from where they lie, so that an installation can be moved into an image.
include(CMakePackageConfigHelpers)

file(RELATIVE_PATH VARNKIVO_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file("${PROJECT_SOURCE_DIR}/cmake/varnkivo.pc.in" "${PROJECT_BINARY_DIR}/varnkivo.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/varnkivo.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/varnkivo")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/varnkivo-config.cmake.in"
  "${PROJECT_BINARY_DIR}/varnkivo-config.cmake" INSTALL_DESTINATION "${package_folder}"
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/varnkivo-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/varnkivo-config.cmake" "${PROJECT_BINARY_DIR}/varnkivo-config-version.cmake"
  DESTINATION "${package_folder}" COMPONENT development)
install(EXPORT varnkivo-targets NAMESPACE varnkivo:: DESTINATION "${package_folder}" COMPONENT development)
