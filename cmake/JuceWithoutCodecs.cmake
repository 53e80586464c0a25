# JUCE with WAV and AIFF only, which needs no libraries for the target processor.

target_compile_definitions(kelvane_juce_codecs INTERFACE JUCE_USE_FLAC=0 JUCE_USE_OGGVORBIS=0)

# Debian's copy includes the system's zlib headers, which are the same for all processors. No code here calls zlib, so
# the linker drops the code that needs the library.
if(EXISTS "${juce_SOURCE_DIR}/debian")
    file(GLOB zlib_headers /usr/include/zlib.h /usr/include/zconf.h /usr/include/*-linux-gnu/zconf.h)
    file(COPY ${zlib_headers} DESTINATION "${CMAKE_BINARY_DIR}/zlib")
    target_include_directories(kelvane_juce_codecs SYSTEM INTERFACE "${CMAKE_BINARY_DIR}/zlib")

    get_target_property(libraries juce_core INTERFACE_LINK_LIBRARIES)
    list(REMOVE_ITEM libraries z)
    set_target_properties(juce_core PROPERTIES INTERFACE_LINK_LIBRARIES "${libraries}")
    target_compile_options(kelvane_juce_codecs INTERFACE -ffunction-sections -fdata-sections)
    target_link_options(kelvane_juce_codecs INTERFACE -Wl,--gc-sections)
endif()
