# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
# What is read beside zlib: zstd in sections, xz in .gnu_debugdata, each with the library that was found for it. Without
# one of them a build is whole, and names what it can't read.
#   ORV_UNPACK_TARGETS      to link
#   ORV_UNPACK_DEFINITIONS  for sources that need to know
#   ORV_UNPACK_FIND         lines that make the same targets for who finds the static library
#   ORV_UNPACK_FLAGS        for who links it by pkg-config
foreach(name ZSTD LZMA)
    string(TOLOWER ${name} lower)
    set(ORV_WITH_${name} AUTO CACHE STRING "Whether lib${lower} is used: AUTO if it is there, ON, OFF")
    set_property(CACHE ORV_WITH_${name} PROPERTY STRINGS AUTO ON OFF)
    if(ORV_WITH_${name} STREQUAL AUTO)
        pkg_check_modules(ORV_${name} QUIET IMPORTED_TARGET lib${lower})
    elseif(ORV_WITH_${name})
        pkg_check_modules(ORV_${name} REQUIRED IMPORTED_TARGET lib${lower})
    else()
        set(ORV_${name}_FOUND FALSE) # whatever was found when it was asked for
    endif()
    if(ORV_${name}_FOUND)
        list(APPEND ORV_UNPACK_TARGETS PkgConfig::ORV_${name})
        list(APPEND ORV_UNPACK_DEFINITIONS ORV_HAS_${name})
        string(APPEND ORV_UNPACK_FIND "    pkg_check_modules(ORV_${name} QUIET IMPORTED_TARGET lib${lower})\n")
        string(APPEND ORV_UNPACK_FLAGS " -l${lower}")
    endif()
endforeach()
