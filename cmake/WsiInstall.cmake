# Installs the four libraries, their headers, qvwsi.pc and the CMake package qvwsi
# (imported target qvwsi::qvwsi).
include(CMakePackageConfigHelpers)

install(TARGETS qvwsi qvwxutil w3srvpgm qvqco
  EXPORT qvwsiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

foreach(dir wsi/include/wsi wx/include/wx qco/include/qco w3/include/w3)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
          FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
endforeach()

set(WSI_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qvwsi)
install(EXPORT qvwsiTargets NAMESPACE qvwsi:: DESTINATION ${WSI_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qvwsiConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qvwsiConfig.cmake INSTALL_DESTINATION ${WSI_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qvwsiConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qvwsiConfig.cmake ${PROJECT_BINARY_DIR}/qvwsiConfigVersion.cmake
  DESTINATION ${WSI_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/qvwsi.pc.in ${PROJECT_BINARY_DIR}/qvwsi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qvwsi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
