# Installs the library, its public headers (under include/qorimg), a CMake
# package giving qorimg::qorimg, and a relocatable pkg-config file.
include(CMakePackageConfigHelpers)

# The public headers: the exported classes, the platform types their signatures
# use, and nothing else. Operator frame, kernel layer, store internals, sibling
# interfaces the library keeps to itself and test hooks stay out; a header joins
# this list when a public signature needs it.
set(QORIMG_PUBLIC_HEADERS
  qorimg.h
  Export.h
  calibrate/ImgDark.h
  composite/ImgComposit.h
  composite/ImgMedianComposit.h
  core/FPoint.h
  develop/ImgBayerToRgb.h
  core/ImgCalculation.h
  core/LmrImage.h
  core/PixelMath.h
  geometry/ImgCrop.h
  geometry/ImgExpansion.h
  geometry/ImgFlip.h
  geometry/ImgMosaic.h
  geometry/ImgResize.h
  geometry/ImgResolution.h
  geometry/ImgRotate.h
  geometry/ImgScroll.h
  geometry/ImgSoftBinning.h
  geometry/Interp.h
  io/Cfa.h
  io/Fits.h
  io/Png.h
  display/BaseDIB.h
  display/BmpFile.h
  display/MemoryDIB.h
  display/UniqueDib.h
  display/VmDIB.h
  platform/Array.h
  filter/FilterMatrix.h
  filter/FilterProc.h
  filter/ImgFilter.h
  filter/ImgFilterBlur.h
  filter/ImgFilterSpecial.h
  platform/Bitmap.h
  platform/DeviceContext.h
  platform/Diagnostics.h
  platform/Exceptions.h
  platform/Geometry.h
  platform/GlobalMemory.h
  platform/Messages.h
  platform/Object.h
  platform/String.h
  platform/StringResources.h
  platform/WinTypes.h
  restore/Fft.h
  restore/ImgFourier.h
  restore/ImgWavelet.h
  restore/ImgLucy.h
  restore/ImgMem.h
  restore/ImgWiener.h
  sibling/Exceptions.h
  sibling/Header.h
  sibling/Image.h
  sibling/Progress.h
  sibling/VmImage.h
  sibling/VmManager.h
  tone/ImgAutoLevel.h
  tone/ImgBright.h
  tone/ImgCorrectCurve.h
  tone/ImgCutOff.h
  tone/ImgFalseColor.h
  tone/ImgHstEql.h
  tone/ImgInvert.h
  tone/ImgNormalize.h
  tone/ImgReduceTone.h
  tone/ImgToneCurve.h
  tone/Spline.h)

set(public_copies)
foreach(header IN LISTS QORIMG_PUBLIC_HEADERS)
  set(copy ${PROJECT_BINARY_DIR}/include/qorimg/${header})
  add_custom_command(OUTPUT ${copy}
    COMMAND ${CMAKE_COMMAND} -DIN=${PROJECT_SOURCE_DIR}/src/${header} -DOUT=${copy}
            "-DPUBLIC=${QORIMG_PUBLIC_HEADERS}" -P ${PROJECT_SOURCE_DIR}/cmake/PublicHeader.cmake
    DEPENDS ${PROJECT_SOURCE_DIR}/src/${header} ${PROJECT_SOURCE_DIR}/cmake/PublicHeader.cmake
    VERBATIM)
  list(APPEND public_copies ${copy})
  get_filename_component(subdir ${header} DIRECTORY)
  install(FILES ${copy} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qorimg/${subdir})
endforeach()
add_custom_target(qorimg_public_headers DEPENDS ${public_copies})
add_dependencies(qorimg qorimg_public_headers)

# The file library (FITS, PNG) beside the engine: qorimg::io.
install(TARGETS qorimg qorimg_io EXPORT qorimgTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

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

# pkg-config: the prefix is found from where the .pc file lies, so the file is
# right for whatever --prefix the tree was installed under.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH pc_up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" pc_up "${pc_up}")
  set(pc_prefix "\${pcfiledir}/${pc_up}")
endif()
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc.in
"prefix=@pc_prefix@
libdir=\${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=\${prefix}/@CMAKE_INSTALL_INCLUDEDIR@

Name: qorimg
Description: Image-processing engine for astronomical frames
Version: @PROJECT_VERSION@
Libs: -L\${libdir} -lqorimg
Cflags: -I\${includedir}
")
configure_file(${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc.in ${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qorimg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
