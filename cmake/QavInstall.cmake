# cmake --install: the library, its headers, qav.pc, the CMake package with qav::qav, and the tool.

include(CMakePackageConfigHelpers)

install(TARGETS qav EXPORT qavTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/qav.h include/qav.hpp include/qav_inspect.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Both packages find the tree they stand in, wherever it was moved to.
set(QAV_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qav)
install(EXPORT qavTargets NAMESPACE qav:: DESTINATION ${QAV_PACKAGE_DIR})
configure_package_config_file(cmake/qavConfig.cmake.in ${PROJECT_BINARY_DIR}/qavConfig.cmake
                              INSTALL_DESTINATION ${QAV_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qavConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qavConfig.cmake ${PROJECT_BINARY_DIR}/qavConfigVersion.cmake
        DESTINATION ${QAV_PACKAGE_DIR})

file(RELATIVE_PATH QAV_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/qav.pc.in ${PROJECT_BINARY_DIR}/qav.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qav.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET qav_tool)
  file(RELATIVE_PATH QAV_LIBDIR_FROM_BINDIR ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(qav_tool PROPERTIES INSTALL_RPATH $ORIGIN/${QAV_LIBDIR_FROM_BINDIR})
  install(TARGETS qav_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
