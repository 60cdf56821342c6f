# Installing VelmarBS the way a Debian program is laid out, and packing that
# install into velmarbs_<version>_<arch>.deb with CPack (scripts/package.sh):
#
#   bin/velmarbs                      the command-line tool
#   bin/velmarbs-gui                  the desktop application
#   libexec/velmarbs/velmarbs         the copy of the tool the application runs
#                                     (app/paths.h findTool looks there first)
#   share/man/man1/velmarbs.1.gz,     made at build time from --help by help2man
#     velmarbs-gui.1.gz
#   share/applications, share/icons/hicolor, share/metainfo,
#   share/bash-completion/completions/velmarbs
#
# The version everywhere is PROJECT_VERSION, the one --version and the
# window title show.

include(GNUInstallDirs)

set(VELMAR_HOMEPAGE "https://velmarbs.example.com" CACHE STRING
    "Where VelmarBS is published; the package's homepage and the screenshots' base address")
set(VELMAR_DESKTOP_ID "com.example.VelmarBS")
set(VELMAR_PACKAGING_DIR ${CMAKE_SOURCE_DIR}/packaging)
set(VELMAR_GENERATED_DIR ${CMAKE_BINARY_DIR}/packaging)

# --- Programs ---------------------------------------------------------------
if(TARGET velmarbs)
  install(TARGETS velmarbs RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS velmarbs RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/velmarbs)
endif()
if(TARGET VelmarBS)
  # The build tree keeps the name VelmarBS; installed beside velmarbs in a
  # shared bin folder it takes a lower-case name of its own. install(TARGETS)
  # rather than a renaming install(PROGRAMS) so that stripping and the
  # removal of build-tree run paths still apply.
  install(TARGETS VelmarBS RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(CODE "
    set(bin \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    file(RENAME \"\${bin}/VelmarBS\" \"\${bin}/velmarbs-gui\")
    message(STATUS \"Renamed: \${bin}/velmarbs-gui\")")
endif()

# --- Manual pages, from --help by help2man -----------------------------------
find_program(VELMAR_HELP2MAN help2man)
find_program(VELMAR_GZIP gzip)
set(VELMAR_MAN_PAGES)
function(velmar_man_page target page name)
  set(out ${VELMAR_GENERATED_DIR}/${page}.1)
  add_custom_command(OUTPUT ${out}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${VELMAR_GENERATED_DIR}
    COMMAND ${VELMAR_HELP2MAN} --no-info --no-discard-stderr --section=1 --name=${name}
            --include=${VELMAR_PACKAGING_DIR}/${page}.h2m --output=${out} $<TARGET_FILE:${target}>
    COMMAND ${VELMAR_GZIP} -9nf ${out}
    DEPENDS ${target} ${VELMAR_PACKAGING_DIR}/${page}.h2m
    COMMENT "Making the manual page ${page}(1) with help2man"
    VERBATIM)
  set(VELMAR_MAN_PAGES ${VELMAR_MAN_PAGES} ${out}.gz PARENT_SCOPE)
  install(FILES ${out}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()

if(VELMAR_HELP2MAN AND VELMAR_GZIP)
  if(TARGET velmarbs)
    velmar_man_page(velmarbs velmarbs "strip a firmware restore bundle down to some products and stations")
  endif()
  if(TARGET VelmarBS)
    velmar_man_page(VelmarBS velmarbs-gui "strip a firmware restore bundle from a window")
  endif()
  add_custom_target(velmar_man_pages ALL DEPENDS ${VELMAR_MAN_PAGES})
else()
  message(WARNING "help2man or gzip not found (scripts/setup.sh installs them): no manual pages")
endif()

# --- Desktop integration ------------------------------------------------------
if(TARGET VelmarBS)
  install(FILES ${VELMAR_PACKAGING_DIR}/${VELMAR_DESKTOP_ID}.desktop
          DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)

  # The release date follows SOURCE_DATE_EPOCH when set (scripts/package.sh
  # sets it to the last commit's time), so a rebuild makes the same file.
  string(TIMESTAMP VELMAR_RELEASE_DATE "%Y-%m-%d" UTC)
  configure_file(${VELMAR_PACKAGING_DIR}/${VELMAR_DESKTOP_ID}.metainfo.xml.in
                 ${VELMAR_GENERATED_DIR}/${VELMAR_DESKTOP_ID}.metainfo.xml @ONLY)
  install(FILES ${VELMAR_GENERATED_DIR}/${VELMAR_DESKTOP_ID}.metainfo.xml
          DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

  set(icon_svg ${VELMAR_PACKAGING_DIR}/${VELMAR_DESKTOP_ID}.svg)
  install(FILES ${icon_svg} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
  find_program(VELMAR_RSVG_CONVERT rsvg-convert)
  if(VELMAR_RSVG_CONVERT)
    set(icon_pngs)
    foreach(size 16 22 24 32 48 64 128 256 512)
      set(png ${VELMAR_GENERATED_DIR}/icons/${size}x${size}/${VELMAR_DESKTOP_ID}.png)
      add_custom_command(OUTPUT ${png}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${VELMAR_GENERATED_DIR}/icons/${size}x${size}
        COMMAND ${VELMAR_RSVG_CONVERT} --width=${size} --height=${size} --output=${png} ${icon_svg}
        DEPENDS ${icon_svg}
        VERBATIM)
      list(APPEND icon_pngs ${png})
      install(FILES ${png} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
    endforeach()
    add_custom_target(velmar_icons ALL DEPENDS ${icon_pngs} COMMENT "Rendering the icon")
  else()
    message(WARNING "rsvg-convert not found (scripts/setup.sh installs librsvg2-bin): no PNG icons")
  endif()
endif()

if(TARGET velmarbs)
  install(FILES ${VELMAR_PACKAGING_DIR}/velmarbs.bash-completion
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME velmarbs)
endif()
install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/velmarbs)

# --- The Debian package -------------------------------------------------------
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmarbs)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "The VelmarBS developers")
set(CPACK_PACKAGE_CONTACT "The VelmarBS developers <velmarbs@example.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "strip a firmware restore bundle down to what a station needs")
set(CPACK_PACKAGE_DESCRIPTION
    "A restore bundle is a folder, or a .dmg image holding one, of firmware
for many boards. VelmarBS works out the subset that the given products
(board codes) and factory stations use, rewrites the manifests and
firmware map files to describe only it, and writes the stripped bundle
with a cookie that records how it was made.

The package holds the command-line tool velmarbs and the desktop
application velmarbs-gui, which runs the tool and shows its output.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${VELMAR_HOMEPAGE})
# Library dependencies come from what the binaries link (dpkg-shlibdeps);
# the programs velmarbs runs for .dmg images are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "7zip, xorriso")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "xdg-utils, fonts-dejavu-core")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
