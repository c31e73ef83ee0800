# Install layout and the files through which other projects find the installed library.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(OVEX_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})
set(OVEX_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ovex_install_package(NAME EXPORT_SET): the CMake package NAME (its targets under the ovex::
# namespace, a version file that accepts the same major version) and NAME.pc. The CMake package
# finds its prefix from where it lies, so an unpacked tree works from anywhere.
function(ovex_install_package name export_set)
    install(EXPORT ${export_set} NAMESPACE ovex:: FILE ${name}Targets.cmake
        DESTINATION ${OVEX_INSTALL_CMAKEDIR} COMPONENT sdk)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${name}Config.cmake.in
        ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake
        INSTALL_DESTINATION ${OVEX_INSTALL_CMAKEDIR})
    write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake
        COMPATIBILITY SameMajorVersion)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake
                  ${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake
        DESTINATION ${OVEX_INSTALL_CMAKEDIR} COMPONENT sdk)

    # The prefix is known only when installing (cmake --install --prefix, or a package's
    # staging), so NAME.pc is made in two steps: everything else now, the prefix then.
    set(OVEX_PC_PREFIX "@OVEX_PC_PREFIX@")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in
        ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc.stage @ONLY)
    install(CODE "set(OVEX_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
        configure_file(\"${CMAKE_CURRENT_BINARY_DIR}/${name}.pc.stage\"
                       \"${CMAKE_CURRENT_BINARY_DIR}/${name}.pc\" @ONLY)" COMPONENT sdk)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${OVEX_INSTALL_PKGCONFIGDIR}
        COMPONENT sdk)
endfunction()
