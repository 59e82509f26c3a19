# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
# What is installed, by component: each is a package of its own.
#   runtime          the shared library
#   dev              headers, CMake package, .pc file, the static library on request, documents
#   client           orv and orv-addr2line with man pages and completion
#   debuginfod       the shared library that asks servers
#   debuginfod-dev   what a client needs to build against it
include(CMakePackageConfigHelpers)

set(ORV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orv)
set(ORV_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# The installed tree may be moved as a whole.
file(RELATIVE_PATH ORV_PC_TO_PREFIX /${ORV_PC_DIR} /)

# install_library(TARGET COMPONENT DEV_COMPONENT EXPORT)
function(orv_install_library target component dev_component export)
    install(TARGETS ${target} EXPORT ${export}
            LIBRARY COMPONENT ${component} NAMELINK_COMPONENT ${dev_component}
            ARCHIVE COMPONENT ${dev_component})
    install(EXPORT ${export} NAMESPACE orv:: DESTINATION ${ORV_CMAKE_DIR} COMPONENT ${dev_component})
endfunction()

function(orv_install_pc name component)
    configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${ORV_PC_DIR} COMPONENT ${component})
endfunction()

orv_install_library(orv runtime dev orvTargets)
if(ORV_BUILD_STATIC)
    orv_install_library(orv_static dev dev orvStaticTargets)
endif()
install(DIRECTORY include/orv TYPE INCLUDE COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN orv_debuginfod.h EXCLUDE)
orv_install_pc(orv dev)
configure_package_config_file(cmake/orvConfig.cmake.in ${PROJECT_BINARY_DIR}/orvConfig.cmake
    INSTALL_DESTINATION ${ORV_CMAKE_DIR})
configure_file(cmake/orvConfigVersion.cmake.in ${PROJECT_BINARY_DIR}/orvConfigVersion.cmake @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvConfig.cmake ${PROJECT_BINARY_DIR}/orvConfigVersion.cmake
    DESTINATION ${ORV_CMAKE_DIR} COMPONENT dev)
# Laid out as in the tree, so that documents find each other.
set(ORV_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/orv)
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${ORV_DOC_DIR} COMPONENT dev)
install(DIRECTORY docs DESTINATION ${ORV_DOC_DIR} COMPONENT dev FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${ORV_DOC_DIR} COMPONENT dev
        FILES_MATCHING PATTERN "*.cpp" PATTERN installed/CMakeLists.txt)

if(ORV_BUILD_DEBUGINFOD)
    orv_install_library(orv_debuginfod debuginfod debuginfod-dev orvDebuginfodTargets)
    install(FILES include/orv/orv_debuginfod.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orv COMPONENT debuginfod-dev)
    orv_install_pc(orv_debuginfod debuginfod-dev)
endif()

if(ORV_BUILD_CLIENT)
    install(TARGETS orv_client COMPONENT client)
    # The same program under the name by which it tells that it stands for addr2line.
    set(ORV_LINK ${PROJECT_BINARY_DIR}/tools/orv/orv-addr2line)
    file(CREATE_LINK orv ${ORV_LINK} SYMBOLIC)
    install(FILES ${ORV_LINK} TYPE BIN COMPONENT client)
    install(FILES docs/orv.1 docs/orv-addr2line.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT client)
    install(FILES tools/orv/orv.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME orv
            COMPONENT client)
endif()
