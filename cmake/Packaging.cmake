# Debian packages of the viewer, the command and the library (vorngraph) and of what a host
# developer builds against (vorngraph-dev): cmake --build build --target package.
# The version is the project's, set once in the top CMakeLists.txt.

include(GNUInstallDirs)

# Manual pages from the programs' own --help and --version, where help2man is installed.
find_program(HELP2MAN_PROGRAM help2man)
function(vorn_manual_page target description)
    if(NOT HELP2MAN_PROGRAM)
        return()
    endif()
    set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
    add_custom_command(OUTPUT ${page}
        COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
                ${HELP2MAN_PROGRAM} --no-info --no-discard-stderr --section 1 --name "${description}"
                --output ${page} $<TARGET_FILE:${target}>
        DEPENDS ${target}
        COMMENT "Manual page ${target}(1)")
    add_custom_target(${target}_manual ALL DEPENDS ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
endfunction()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vorngraph)
set(CPACK_PACKAGE_VENDOR "VornGraph")
set(CPACK_PACKAGE_CONTACT "VornGraph developers <vorngraph@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The programs link the package's own library, which dpkg-shlibdeps finds in the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME vorngraph)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION electronics)
# The platform plugins are loaded, not linked: shlibdeps cannot see them.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "qt6-qpa-plugins")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "sigrok-cli")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "oscilloscope-like viewer and mask test for sigrok captures
 VornGraph shows the waveforms of sigrok session files (.sr) like an oscilloscope
 screen and edits their tolerance envelopes. vornview is the viewer; vorn lists,
 dumps, builds envelopes from good captures and judges captures against them for
 scripts and CI (JSON, JUnit). The package also holds the widget library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME vorngraph-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "vorngraph (= ${PROJECT_VERSION}), qt6-base-dev, qt6-charts-dev, libzip-dev, libdeflate-dev, libglib2.0-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION "development files for the VornGraph widget library
 Headers, CMake package files (find_package(VornGraph)) and the static companion
 libraries for hosts that embed the VornGraph waveform and envelope widgets.")

include(CPack)
