# The .deb: its control file, and what Debian's policy requires besides the installed tree.

list(APPEND CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Kelvane takes a song or a link to one, splits it into drums, bass, vocals and
the rest, changes its tempo or key, and writes WAV files, ready to drop into a
session. It has a program with a window, and kelvane-render for the command
line.
.
Python workers, which uv starts, do the downloads, the detection and the
separation. They install what they need into the user's cache on first use,
which takes an internet connection.")

# dpkg-shlibdeps finds only linked libraries. JUCE loads the X libraries when it opens a window, and Kelvane loads
# FFmpeg's when it reads a song that needs them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libx11-6, libxcursor1, libxext6, libxinerama1, libxrandr2")
if(KELVANE_HAS_FFMPEG)
    foreach(library IN ITEMS avcodec avformat avutil swresample)
        string(REGEX MATCH "^[0-9]+" major "${KELVANE_FFMPEG_LIBRARIES_lib${library}_VERSION}")
        string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", lib${library}${major}")
        if(library MATCHES "^av(codec|format)$")
            string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS " | lib${library}-extra${major}")
        endif()
    endforeach()
endif()
# Without an interpreter uv would download one, which some networks block.
string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", python3 (>= 3.11)")
# The desktop's own file dialogs, and the certificates that the download of the model needs.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates, zenity | kdialog")

set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${CMAKE_SOURCE_DIR}/packaging/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_SOURCE_DIR}/packaging/debian/files.cmake")
