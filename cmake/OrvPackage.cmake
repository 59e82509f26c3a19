# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
# Debian packages, one for each component that is installed.
set(ORV_DEB_VERSION ${PROJECT_VERSION})
set(ORV_SO ${PROJECT_VERSION})
set(ORV_CONTACT "The ORV authors <authors@orv.invalid>")

# orv_package(COMPONENT NAME SECTION DESCRIPTION [DEPENDS])
macro(orv_package component name section description)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
    if(${ARGC} GREATER 4)
        set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${ARGV4}")
    endif()
    # What every package has to say of its origin.
    set(doc ${PROJECT_BINARY_DIR}/package/${name})
    configure_file(cmake/copyright.in ${doc}/copyright @ONLY)
    configure_file(cmake/changelog.in ${doc}/changelog @ONLY)
    execute_process(COMMAND gzip -9nf ${doc}/changelog)
    install(FILES ${doc}/copyright ${doc}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
            COMPONENT ${component}-package EXCLUDE_FROM_ALL)
    list(APPEND CPACK_COMPONENTS_ALL ${component} ${component}-package)
    # Both go into one package.
    set(CPACK_COMPONENT_${upper}_GROUP ${component})
    string(TOUPPER ${component}-package upper_package)
    set(CPACK_COMPONENT_${upper_package}_GROUP ${component})
endmacro()

set(CPACK_COMPONENTS_ALL)
orv_package(runtime liborv${ORV_SO} libs
    "Reads compiled modules and names what stands at an address: functions,\nsource lines, inlined calls and local variables. This is the library.")
orv_package(dev liborv-dev libdevel
    "What it takes to build against the library: headers, CMake package,\npkg-config file, and its documents."
    "liborv${ORV_SO} (= ${ORV_DEB_VERSION})")
if(ORV_BUILD_CLIENT)
    orv_package(client orv devel
        "The command line client: names what stands at an address of a module.\norv-addr2line takes the place of addr2line in scripts."
        "liborv${ORV_SO} (= ${ORV_DEB_VERSION})")
    if(ORV_BUILD_DEBUGINFOD)
        set(CPACK_DEBIAN_CLIENT_PACKAGE_SUGGESTS "liborv-debuginfod${ORV_SO}")
    endif()
endif()
if(ORV_BUILD_DEBUGINFOD)
    orv_package(debuginfod liborv-debuginfod${ORV_SO} libs
        "Asks debuginfod servers for the debug information of stripped modules, for\nliborv and its client."
        "liborv${ORV_SO} (= ${ORV_DEB_VERSION})")
    orv_package(debuginfod-dev liborv-debuginfod-dev libdevel
        "What it takes to build against liborv_debuginfod: header, CMake package\nand pkg-config file."
        "liborv-dev (= ${ORV_DEB_VERSION}), liborv-debuginfod${ORV_SO} (= ${ORV_DEB_VERSION})")
endif()

# What a package with a shared library tells of it: who links it depends on this very version.
foreach(library "RUNTIME;liborv" "DEBUGINFOD;liborv_debuginfod")
    list(GET library 0 upper)
    list(GET library 1 soname)
    set(name ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    set(control ${PROJECT_BINARY_DIR}/package/${name})
    file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
    file(WRITE ${control}/shlibs "${soname} ${ORV_SO} ${name} (= ${ORV_DEB_VERSION})\n")
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${control}/triggers ${control}/shlibs)
endforeach()

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/OrvCompressManuals.cmake)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orv)
set(CPACK_PACKAGE_VENDOR "The ORV authors")
set(CPACK_PACKAGE_CONTACT "${ORV_CONTACT}")
set(CPACK_PACKAGE_VERSION ${ORV_DEB_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
include(CPack)
