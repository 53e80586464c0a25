# CPack runs this on the tree that it is about to pack, to apply Debian's policy to a .deb.

if(NOT CPACK_GENERATOR STREQUAL DEB)
    return()
endif()

set(share "${CPACK_TEMPORARY_DIRECTORY}/usr/share")
set(documents "${share}/doc/kelvane")

configure_file("${CMAKE_CURRENT_LIST_DIR}/copyright" "${documents}/copyright" COPYONLY)

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${documents}/changelog"
"kelvane (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * See CHANGELOG.md.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")

file(GLOB pages "${share}/man/man1/*.1")
execute_process(COMMAND gzip --best --no-name ${pages} "${documents}/changelog" COMMAND_ERROR_IS_FATAL ANY)
