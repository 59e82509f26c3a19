# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
# How every target of the project is compiled.
function(orv_compile_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -fno-omit-frame-pointer $<$<BOOL:${ORV_WERROR}>:-Werror>
        # Log records name sources relative to the project, whatever machine built it.
        -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
endfunction()

if(ORV_SANITIZE)
    add_compile_options(-fsanitize=${ORV_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${ORV_SANITIZE} -fno-sanitize-recover=all)
endif()
