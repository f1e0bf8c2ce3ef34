# Defines what `cmake --install` installs and what cpack puts into Debian packages. "orvane" has the
# renderer, the plug-in, manual page, completion and documents. "orvane-desktop" has the client for the
# desktop's sound, its window and its service. "liborvane0" and "liborvane-dev" have the C library; what
# goes into them stands in capi/CMakeLists.txt. The effect library goes to a folder of its own, where the
# renderer finds it. The plug-in goes where hosts look for plug-ins.

include(GNUInstallDirs)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME orvane)

install(TARGETS orvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The linker doesn't look for libraries in this folder.
set(soundfx lib/orvane/soundfx)
install(TARGETS qth_orvane LIBRARY DESTINATION ${soundfx})
if(ORVANE_X86_64)
  install(TARGETS qth_orvane_avx2 LIBRARY DESTINATION ${soundfx}/avx2)
endif()
install(TARGETS orvane_lv2 LIBRARY DESTINATION lib/lv2/orvane.lv2)
foreach(name manifest orvane presets)
  install(FILES ${CMAKE_BINARY_DIR}/orvane.lv2/${name}.ttl DESTINATION lib/lv2/orvane.lv2)
endforeach()
# make_file FILE LINE: makes the file from the standard output of a line of shell.
function(make_file file line)
  add_custom_command(OUTPUT ${file} COMMAND sh -c "${line} >${file}"
    DEPENDS orvane liborvane_manual packaging/changelog VERBATIM)
endfunction()
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
make_file(orvane.1.gz "${emulator} '$<TARGET_FILE:orvane>' --man-page | gzip -9n")
make_file(orvane.bash "${emulator} '$<TARGET_FILE:orvane>' --bash-completion")
make_file(changelog.gz "gzip -9nc '${CMAKE_SOURCE_DIR}/packaging/changelog'")
make_file(orvane-desktop.1.gz "gzip -9nc '${CMAKE_SOURCE_DIR}/packaging/orvane-desktop.1'")
make_file(orvane.3.gz "${emulator} '$<TARGET_FILE:liborvane_manual>' | gzip -9n")
add_custom_target(manual ALL DEPENDS orvane.1.gz orvane.3.gz orvane-desktop.1.gz orvane.bash changelog.gz)
install(FILES ${CMAKE_BINARY_DIR}/orvane.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${CMAKE_BINARY_DIR}/orvane.bash RENAME orvane
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)

install(TARGETS orvane_desktop COMPONENT desktop RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES desktop/orvane-desktop.service COMPONENT desktop DESTINATION lib/systemd/user)
install(FILES ${CMAKE_BINARY_DIR}/orvane-desktop.1.gz COMPONENT desktop
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
if(TARGET orvane_desktop_window)
  set(id com.quenthra.Orvane)  # the window's, by which the desktop finds its entry and its icon
  file(CONFIGURE OUTPUT ${id}.desktop CONTENT "[Desktop Entry]
Type=Application
Name=Orvane
Comment=Sound effects for everything that this computer plays
Exec=orvane-desktop window
Icon=${id}
Categories=AudioVideo;Audio;GTK;
Keywords=equalizer;loudness;bass;volume;headphones;
")
  # `orvane-desktop window` finds it there.
  install(TARGETS orvane_desktop_window COMPONENT desktop RUNTIME DESTINATION lib/orvane)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${id}.desktop COMPONENT desktop
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/applications)
  install(FILES packaging/${id}.svg COMPONENT desktop
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/scalable/apps)
endif()

# What each package has to have. install_documents COMPONENT PACKAGE FILE...
function(install_documents component package)
  install(FILES packaging/copyright ${CMAKE_BINARY_DIR}/changelog.gz ${ARGN} COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
  configure_file(packaging/lintian-overrides lintian/${package})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/lintian/${package} COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides)
endfunction()
install_documents(orvane orvane docs/batch.md docs/plugin.md docs/presets.md)
install_documents(desktop orvane-desktop docs/desktop.md docs/window.png)
install_documents(library liborvane0)
install_documents(development liborvane-dev docs/c-library.md)
install(FILES ${CMAKE_BINARY_DIR}/orvane.3.gz COMPONENT development
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)

# The page is installed if scripts/web.sh has made it.
install(FILES ${CMAKE_BINARY_DIR}/../web/orvane.html DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/orvane
  OPTIONAL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Quenthra Orvane project <orvane@quenthra.invalid>")
set(CPACK_COMPONENTS_ALL orvane desktop library development)
set(CPACK_COMPONENT_ORVANE_DESCRIPTION
  "renders audio files through the Quenthra Orvane effect
Levels, equalises, enhances and limits music and speech, exactly as the
effect library does on a device. It does this to files, through a pipe,
or as an LV2 plug-in in any host.
Pictures show what changed: spectrum, loudness and gain, before and after.")
set(CPACK_COMPONENT_DESKTOP_DESCRIPTION
  "applies the Quenthra Orvane effect to all that a desktop plays
Passes what applications play through the effect, with settings of its
own for each output. The volume keys act after the effect.
A window shows presets, the tone curve, levels, outputs and applications.")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
  "Quenthra Orvane effect on a running sound
A C library that levels, equalises, enhances and limits a running sound.
Its parameters may change at any time without a click.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Quenthra Orvane effect on a running sound, development files
The header, the static library, the manual page and an example of the C
library, and what pkg-config and CMake need to find it.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/reproducible_package.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CPACK_PROJECT_CONFIG_FILE})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ORVANE_PACKAGE_NAME orvane)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ORVANE_PACKAGE_RECOMMENDS "ffmpeg, gnuplot-nox | gnuplot, fonts-dejavu-core")
set(CPACK_DEBIAN_ORVANE_PACKAGE_SUGGESTS "parallel")
set(CPACK_DEBIAN_DESKTOP_PACKAGE_DEPENDS "pipewire, wireplumber")
set(CPACK_DEBIAN_DESKTOP_PACKAGE_RECOMMENDS "pipewire-pulse")
set(CPACK_DEBIAN_DESKTOP_PACKAGE_SUGGESTS "orvane")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME liborvane0)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# This tells dpkg-shlibdeps which package a program needs that is linked with the library.
file(CONFIGURE OUTPUT shlibs CONTENT "liborvane 0 liborvane0 (>= ${PROJECT_VERSION})
")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/shlibs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liborvane-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "liborvane0 (= ${PROJECT_VERSION}), libspeexdsp-dev")
include(CPack)
