# Language, caching and sanitizers. Include this before the first target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

get_property(multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(NOT multi_config AND NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug, Release or RelWithDebInfo" FORCE)
endif()

# The sources are UTF-8. The programs contain the C++ runtime library, so the ZIP works without an installer.
if(MSVC)
    add_compile_options("$<$<COMPILE_LANGUAGE:C,CXX>:/utf-8>")
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
endif()

# Fast enough for audio, and still readable in a debugger.
if(NOT MSVC)
    set(CMAKE_CXX_FLAGS_DEBUG "-g1 -Og")
endif()

find_program(KELVANE_CCACHE ccache)
if(KELVANE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER "${KELVANE_CCACHE}")
    set(CMAKE_CXX_COMPILER_LAUNCHER "${KELVANE_CCACHE}")
endif()

if(KELVANE_SANITIZERS)
    add_compile_options("-fsanitize=${KELVANE_SANITIZERS}" -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options("-fsanitize=${KELVANE_SANITIZERS}")
endif()
