include(CMakePackageConfigHelpers)

install(TARGETS orv EXPORT orvTargets)
if(ORV_DEBUGINFOD)
    install(TARGETS orv_debuginfod EXPORT orvTargets)
endif()
install(TARGETS orv_client)
set_target_properties(orv_client PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY include/orv TYPE INCLUDE FILES_MATCHING PATTERN "*.h")
install(EXPORT orvTargets NAMESPACE orv:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orv)

configure_package_config_file(cmake/orvConfig.cmake.in ${PROJECT_BINARY_DIR}/orvConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orv)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvConfigVersion.cmake COMPATIBILITY ExactVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvConfig.cmake ${PROJECT_BINARY_DIR}/orvConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orv)

# The installed tree may be moved as a whole.
file(RELATIVE_PATH ORV_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/orv.pc.in ${PROJECT_BINARY_DIR}/orv.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES docs/orv.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES tools/orv/orv.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME orv)
