# Installs the four libraries, their headers, qvwsi.pc and the CMake package qvwsi
# (imported target qvwsi::qvwsi).
include(CMakePackageConfigHelpers)

# libqvwsi needs libw3srvpgm, which a host does not link itself: each installed library finds its
# siblings in its own directory, so an installed tree works wherever it is put.
set_target_properties(qvwsi qvwxutil w3srvpgm qvqco PROPERTIES INSTALL_RPATH "$ORIGIN")

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

# qvwsi.pc names the prefix the tree is installed into, also when it is chosen only at install
# time (`cmake --install build --prefix P`): everything else is filled in now, the prefix when
# the install runs.
set(WSI_PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qvwsi.pc.in ${PROJECT_BINARY_DIR}/qvwsi.pc.in @ONLY)
install(CODE "configure_file(\"${PROJECT_BINARY_DIR}/qvwsi.pc.in\" \"${PROJECT_BINARY_DIR}/qvwsi.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/qvwsi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
