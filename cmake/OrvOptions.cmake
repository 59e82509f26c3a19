# How every target of the project is compiled.
function(orv_compile_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -fno-omit-frame-pointer
        # Log records name sources relative to the project, whatever machine built it.
        -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
endfunction()

if(ORV_SANITIZE)
    add_compile_options(-fsanitize=${ORV_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${ORV_SANITIZE} -fno-sanitize-recover=all)
endif()
