# What other projects find: the CMake package VORN, and vorn.pc and vorn-module.pc for pkg-config.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VORN)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT VORNTargets NAMESPACE VORN:: DESTINATION ${package_dir})

set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/vorn)
set(lib_dir ${CMAKE_INSTALL_LIBDIR})
set(home_dir ${VORN_INSTALL_HOME})
set(fortran_dir ${CMAKE_INSTALL_DATADIR}/vorn/fortran)
set(libexec_dir ${CMAKE_INSTALL_LIBEXECDIR})
set(bin_dir ${CMAKE_INSTALL_BINDIR})
# Modules of other projects must not replace these in the installation.
set(VORN_SHIPPED_MODULES "")
if(VORN_BUILD_HOST)
    file(GLOB manifests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/modules/*/*.yaml)
    foreach(manifest IN LISTS manifests)
        cmake_path(GET manifest STEM module)
        list(APPEND VORN_SHIPPED_MODULES ${module})
    endforeach()
endif()
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/VORNConfig.cmake.in
    ${PROJECT_BINARY_DIR}/package/VORNConfig.cmake
    INSTALL_DESTINATION ${package_dir}
    PATH_VARS include_dir lib_dir home_dir fortran_dir libexec_dir bin_dir)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/package/VORNConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/package/VORNConfig.cmake
    ${PROJECT_BINARY_DIR}/package/VORNConfigVersion.cmake
    ${PROJECT_SOURCE_DIR}/cmake/VornModule.cmake
    ${PROJECT_SOURCE_DIR}/cmake/vorn_module.map
    DESTINATION ${package_dir})

# The prefix is given relative to the .pc file, so that an installed tree can be moved.
file(RELATIVE_PATH pc_prefix /prefix/${pkgconfig_dir} /prefix)
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
# Qt 5 refuses code that is merely position independent enough for an executable (-fPIE).
set(pc_qt_cflags "")
if(QT_VERSION_MAJOR EQUAL 5)
    set(pc_qt_cflags " -fPIC")
endif()
foreach(name IN ITEMS vorn vorn-module)
    configure_file(
        ${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in
        ${PROJECT_BINARY_DIR}/package/${name}.pc
        @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc DESTINATION ${pkgconfig_dir})
endforeach()

# The module tree exists even while no module is in it.
install(DIRECTORY DESTINATION ${VORN_INSTALL_HOME}/lib)

# Archives and Debian packages of the same tree, by cpack in the build directory. The command finds its
# libraries and modules from its own place, so that an archive runs wherever it is unpacked.
set(CPACK_PACKAGE_NAME vorn)
set(CPACK_PACKAGE_VENDOR VORN)
set(CPACK_PACKAGE_CONTACT "the maintainers of VORN")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
include(CPack)
