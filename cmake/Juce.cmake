# JUCE, pinned. scripts/bootstrap puts a copy into the user's cache folder: upstream's, or Debian's if upstream cannot
# be reached. Without a copy, upstream's is fetched here.

include(FetchContent)

set(KELVANE_JUCE_TAG 8.0.12)

set(cache_home "$ENV{XDG_CACHE_HOME}")
if(NOT cache_home)
    set(cache_home "$ENV{HOME}/.cache")
endif()
set(upstream_tree "${cache_home}/kelvane/juce-${KELVANE_JUCE_TAG}")
set(debian_tree "${cache_home}/kelvane/juce-debian")

if(NOT FETCHCONTENT_SOURCE_DIR_JUCE)
    foreach(tree IN ITEMS "${upstream_tree}" "${debian_tree}")
        if(EXISTS "${tree}/CMakeLists.txt")
            set(FETCHCONTENT_SOURCE_DIR_JUCE "${tree}")
            break()
        endif()
    endforeach()
endif()

# SOURCE_SUBDIR names a folder without a CMakeLists.txt, so that MakeAvailable only fetches. add_subdirectory then gets
# EXCLUDE_FROM_ALL, which keeps JUCE out of the installation.
FetchContent_Declare(JUCE
    GIT_REPOSITORY https://github.com/juce-framework/JUCE.git
    GIT_TAG ${KELVANE_JUCE_TAG}
    GIT_SHALLOW TRUE
    UPDATE_DISCONNECTED TRUE
    SOURCE_SUBDIR docs)
FetchContent_MakeAvailable(JUCE)
set(JUCE_MODULES_ONLY ${KELVANE_AUDIO_ONLY})
add_subdirectory("${juce_SOURCE_DIR}" "${juce_BINARY_DIR}" EXCLUDE_FROM_ALL)

if(FETCHCONTENT_SOURCE_DIR_JUCE STREQUAL debian_tree)
    get_directory_property(juce_version DIRECTORY "${juce_SOURCE_DIR}" DEFINITION PROJECT_VERSION)
    message(STATUS "JUCE ${KELVANE_JUCE_TAG} was out of reach: building with Debian's JUCE ${juce_version} from ${debian_tree}")
endif()

# Debian removes the bundled codecs from its copy and uses the system's.
add_library(kelvane_juce_codecs INTERFACE)
if(KELVANE_AUDIO_ONLY)
    include(JuceWithoutCodecs)
elseif(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND EXISTS "${juce_SOURCE_DIR}/debian")
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(KELVANE_CODECS REQUIRED IMPORTED_TARGET
        flac vorbis vorbisenc vorbisfile ogg libpng libjpeg zlib)
    target_link_libraries(kelvane_juce_codecs INTERFACE PkgConfig::KELVANE_CODECS)
endif()

# kelvane_add_juce_library(<target> MODULES <module>... [USES <target>...])
#
# Compiles JUCE modules into one static library. Linking JUCE's own module targets would compile a module, and all
# modules that it depends on, again in each library. This takes only a module's own properties; USES names the
# libraries with the modules that it depends on.
function(kelvane_add_juce_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "MODULES;USES")
    get_property(all_modules GLOBAL PROPERTY _juce_module_names)

    add_library(${target} STATIC)
    foreach(module IN LISTS arg_MODULES)
        get_target_property(sources ${module} INTERFACE_SOURCES)
        target_sources(${target} PRIVATE ${sources})

        get_target_property(includes ${module} INTERFACE_INCLUDE_DIRECTORIES)
        target_include_directories(${target} SYSTEM PUBLIC ${includes})

        get_target_property(definitions ${module} INTERFACE_COMPILE_DEFINITIONS)
        target_compile_definitions(${target} PUBLIC ${definitions})

        get_target_property(options ${module} INTERFACE_COMPILE_OPTIONS)
        if(options)
            target_compile_options(${target} PRIVATE ${options})
        endif()

        get_target_property(libraries ${module} INTERFACE_LINK_LIBRARIES)
        list(REMOVE_ITEM libraries ${all_modules})
        target_link_libraries(${target} PUBLIC ${libraries})
    endforeach()
    target_link_libraries(${target} PUBLIC ${arg_USES} kelvane_juce_codecs)
endfunction()

kelvane_add_juce_library(kelvane_juce_audio MODULES juce_core juce_audio_basics juce_audio_formats)
if(NOT KELVANE_AUDIO_ONLY)
    kelvane_add_juce_library(kelvane_juce_events MODULES juce_events USES kelvane_juce_audio)
    kelvane_add_juce_library(kelvane_juce_gui
        MODULES juce_data_structures juce_graphics juce_gui_basics
        USES kelvane_juce_events)
endif()

target_compile_definitions(kelvane_juce_audio PUBLIC
    JUCE_USE_CURL=0
    JUCE_WEB_BROWSER=0
    JUCE_STRICT_REFCOUNTEDPOINTER=1)
