# Warnings for the project's own targets; libraries come in as SYSTEM includes so their
# headers never trip -Werror.
function(orvanta_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wno-missing-field-initializers)
    # g++ 12 reports std::string concatenation inside its own headers as overlapping
    # memcpy at -O2 and above (GCC bug 105329); the warning says nothing about our code.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
endfunction()
