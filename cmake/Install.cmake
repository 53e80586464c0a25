# The tree that `cmake --install` creates. It can be moved as a whole, because the programs look for the folder
# `python`, and for the uv in the package, beside their own executable file, even if started through a link.

set(KELVANE_UV_FOLDER "" CACHE PATH "The folder made by packaging/fetch_uv.py, to include its uv; empty to leave uv out")

if(APPLE)
    set(programs_folder Kelvane.app/Contents/MacOS)
    set(scripts_folder Kelvane.app/Contents/Resources/python)
    set(documents_folder .)
    set(demo_folder .)
elseif(WIN32)
    set(programs_folder .)
    set(scripts_folder python)
    set(documents_folder .)
    set(demo_folder .)
else()
    set(programs_folder lib/kelvane)
    set(scripts_folder lib/kelvane/python)
    set(documents_folder share/doc/kelvane)
    set(demo_folder share/kelvane)
endif()

install(TARGETS Kelvane BUNDLE DESTINATION . RUNTIME DESTINATION ${programs_folder})
install(TARGETS kelvane-render RUNTIME DESTINATION ${programs_folder})
install(DIRECTORY "${CMAKE_SOURCE_DIR}/Resources/python/" DESTINATION ${scripts_folder}
    PATTERN "__pycache__" EXCLUDE
    PATTERN ".*" EXCLUDE)
install(FILES "${CMAKE_SOURCE_DIR}/Resources/demo/kelvane-demo.ogg" DESTINATION ${demo_folder})
# The documents keep their relative places, so that the links between them work.
foreach(document IN ITEMS README.md CHANGELOG.md CONTRIBUTING.md LICENSE)
    install(FILES "${CMAKE_SOURCE_DIR}/${document}" DESTINATION ${documents_folder})
endforeach()
install(FILES "${CMAKE_SOURCE_DIR}/Resources/README.md" DESTINATION "${documents_folder}/Resources")
install(DIRECTORY "${CMAKE_SOURCE_DIR}/docs" DESTINATION ${documents_folder})

# kelvane_install_licence(<name> <file>)
#
# Installs the licence of a component that is compiled in or included.
function(kelvane_install_licence name file)
    install(FILES "${file}" DESTINATION "${documents_folder}/licences" RENAME "${name}.txt")
endfunction()

set(juce_modules "${juce_SOURCE_DIR}/modules")
kelvane_install_licence(Kelvane "${CMAKE_SOURCE_DIR}/LICENSE")
kelvane_install_licence(GeistPixel "${CMAKE_SOURCE_DIR}/Resources/GeistPixel-OFL.txt")
kelvane_install_licence(JUCE "${juce_SOURCE_DIR}/LICENSE.md")
kelvane_install_licence(HarfBuzz "${juce_modules}/juce_graphics/fonts/harfbuzz/COPYING")
kelvane_install_licence(SheenBidi "${juce_modules}/juce_graphics/unicode/sheenbidi/LICENSE")
if(NOT TARGET PkgConfig::KELVANE_CODECS)
    kelvane_install_licence(FLAC "${juce_modules}/juce_audio_formats/codecs/flac/Flac Licence.txt")
    kelvane_install_licence(OggVorbis "${juce_modules}/juce_audio_formats/codecs/oggvorbis/Ogg Vorbis Licence.txt")
    kelvane_install_licence(jpeglib "${juce_modules}/juce_graphics/image_formats/jpglib/README")
    kelvane_install_licence(pnglib "${juce_modules}/juce_graphics/image_formats/pnglib/LICENSE")
    kelvane_install_licence(zlib "${juce_modules}/juce_core/zip/zlib/README")
endif()

if(KELVANE_UV_FOLDER)
    install(PROGRAMS "${KELVANE_UV_FOLDER}/uv${CMAKE_EXECUTABLE_SUFFIX}" DESTINATION ${programs_folder})
    kelvane_install_licence(uv-MIT "${KELVANE_UV_FOLDER}/LICENSE-MIT")
    kelvane_install_licence(uv-Apache "${KELVANE_UV_FOLDER}/LICENSE-APACHE")
    # Lists the parts of uv, each with its licence.
    install(FILES "${KELVANE_UV_FOLDER}/uv.cyclonedx.json" DESTINATION "${documents_folder}/licences")
endif()

if(APPLE)
    # PyTorch has no build for Intel Macs and Python 3.13 or later. uv obeys this file beside the scripts, even if one
    # bundle serves both kinds of Mac.
    file(WRITE "${CMAKE_BINARY_DIR}/.python-version" ">=3.11,<3.13\n")
    install(FILES "${CMAKE_BINARY_DIR}/.python-version" DESTINATION ${scripts_folder})

    # The linker signed the bundle before these files were added, and Apple silicon starts nothing with a broken
    # signature.
    install(CODE [[
        execute_process(
            COMMAND codesign --force --deep --sign - "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/Kelvane.app"
            COMMAND_ERROR_IS_FATAL ANY)
    ]])
elseif(NOT WIN32)
    include(DesktopFiles)
endif()
