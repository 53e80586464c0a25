# Desktop entry, metadata, icons, manual pages and commands for Linux and other free systems.

set(packaging "${CMAKE_SOURCE_DIR}/packaging")
set(desktop_id org.kelvane.Kelvane)

# The commands are links, because the programs need the folder `python` beside them and /usr/bin/python is a program.
function(kelvane_install_link name program)
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/links")
    file(CREATE_LINK "../lib/kelvane/${program}" "${CMAKE_BINARY_DIR}/links/${name}" SYMBOLIC)
    install(FILES "${CMAKE_BINARY_DIR}/links/${name}" DESTINATION bin)
endfunction()
kelvane_install_link(kelvane Kelvane)
kelvane_install_link(kelvane-render kelvane-render)

install(FILES "${packaging}/${desktop_id}.desktop" DESTINATION share/applications)
install(FILES "${packaging}/${desktop_id}.metainfo.xml" DESTINATION share/metainfo)

foreach(size IN ITEMS 16 22 24 32 48 64 96 128 192 256 512)
    install(FILES "${packaging}/icons/${size}.png"
        DESTINATION "share/icons/hicolor/${size}x${size}/apps"
        RENAME ${desktop_id}.png)
endforeach()

install(FILES "${packaging}/kelvane.1" "${packaging}/kelvane-render.1" DESTINATION share/man/man1)
