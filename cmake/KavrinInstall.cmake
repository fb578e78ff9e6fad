# `cmake --install` gives the two libraries, their headers, a CMake package (find_package(Kavrin)) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS kavrin nbrynd EXPORT KavrinTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kavrin)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/kavrin/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kavrin
        FILES_MATCHING PATTERN "kavrin*.h" PATTERN "kavrin_statuses.def")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/engine/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kavrin
        FILES_MATCHING PATTERN "brynd*.h")
install(EXPORT KavrinTargets NAMESPACE Kavrin:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kavrin)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KavrinConfig.cmake.in KavrinConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kavrin)
write_basic_package_version_file(KavrinConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KavrinConfig.cmake ${PROJECT_BINARY_DIR}/KavrinConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kavrin)
configure_file(${PROJECT_SOURCE_DIR}/cmake/kavrin.pc.in kavrin.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kavrin.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
