# Warnings for the project's own targets; libraries come in as SYSTEM includes so their
# headers never trip -Werror.
function(orvanta_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wno-missing-field-initializers)
endfunction()
