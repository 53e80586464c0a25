# kelvane_warnings: linked PRIVATE by all our own targets, but not by JUCE's.

add_library(kelvane_warnings INTERFACE)

if(MSVC)
    target_compile_options(kelvane_warnings INTERFACE /W4 $<$<BOOL:${KELVANE_WARNINGS_AS_ERRORS}>:/WX>)
else()
    target_compile_options(kelvane_warnings INTERFACE
        -Wall -Wextra -Wshadow -Wconversion -Wpedantic
        $<$<BOOL:${KELVANE_WARNINGS_AS_ERRORS}>:-Werror>)
endif()
