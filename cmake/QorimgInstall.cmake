# Installs the library, its public headers (under include/qorimg), a CMake
# package giving qorimg::qorimg, and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS qorimg EXPORT qorimgTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${CMAKE_INSTALL_INCLUDEDIR}/qorimg)

# Public headers: everything in src/ but the kernel layer, the bindings of
# images to it, and files marked internal, which callers never include.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qorimg
  FILES_MATCHING PATTERN "*.h"
  PATTERN "kernels" EXCLUDE
  PATTERN "*Internal.h" EXCLUDE
  PATTERN "*Routes.h" EXCLUDE
  PATTERN "PlaneBinding.h" EXCLUDE)

install(EXPORT qorimgTargets NAMESPACE qorimg:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qorimg)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/qorimgConfig.cmake.in
  "@PACKAGE_INIT@\ninclude(\"\${CMAKE_CURRENT_LIST_DIR}/qorimgTargets.cmake\")\n")
configure_package_config_file(${CMAKE_CURRENT_BINARY_DIR}/qorimgConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/qorimgConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qorimg)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/qorimgConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qorimgConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/qorimgConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qorimg)

file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc.in
"prefix=@CMAKE_INSTALL_PREFIX@
libdir=\${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=\${prefix}/@CMAKE_INSTALL_INCLUDEDIR@

Name: qorimg
Description: Image-processing engine for astronomical frames
Version: @PROJECT_VERSION@
Libs: -L\${libdir} -lqorimg
Cflags: -I\${includedir} -I\${includedir}/qorimg
")
configure_file(${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc.in ${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
