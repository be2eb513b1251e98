# vorn_add_module(NAME <name> SOURCES <file>... [MANIFEST <file>] [LIBRARIES <library>...]
#                 [NO_INSTALL])
#
# Builds the processing module <name> as the library lib<name>.so from C, C++ and Fortran sources
# (the project enables the languages it uses). Only the entry points preprocess_, process_,
# postprocess_, save_ and merge_ are visible outside the library. A name that neither the sources nor
# the libraries define fails the link; one that the kernel does not have fails the loading of the
# module, with a message, and not the host at the first call.
#
# The library and its manifest, as <name>.yaml, appear in VORN_MODULE_OUTPUT_DIR (by default
# vorn_home/lib in the build directory: point VORN_HOME at vorn_home to try the module), and are
# installed to lib of the installation's module tree, unless NO_INSTALL is given.
#
# From the manifest, sources are made that read the module's parameters, in each language of SOURCES:
# they include <name>_parameters.h (C) or <name>_parameters.hpp (C++), or use the Fortran module
# <name>_parameters. A field that the manifest does not have, or has with another type, fails the
# compilation; a changed manifest makes them anew. A VORN that was built without its host cannot read
# manifests: it makes nothing, and only modules that ask for these sources fail to compile.
#
# C and C++ sources find the kit, vorn_kit.h and vorn_kit.hpp, vorn_stream.h and vorn_stream.hpp,
# vorn_parts.h and vorn_parts.hpp, which know the module by the macro VORN_MODULE_NAME. Fortran
# sources can `use vorn_knl`, `use vorn_kit` and `use vorn_stream`, which are compiled once per
# project with the project's compiler; a Fortran module without a `preprocess` of its own gets the
# entry points of the kit, which call its `vorn_new_module`.
#
# vorn_add_module_test(NAME <name> MODULE <module> [ARGUMENTS <argument>...])
#
# Makes a test of ctest that runs the module <module> alone in a job: `vorn test <module>` with the
# arguments, whose file names are relative to the source directory. `vorn test --help` lists them.
# The project calls enable_testing() before.
#
# vorn_add_module_test_program(NAME <name> MODULE <module> SOURCES <file>...)
#
# Builds the program <name>, in C, C++ or Fortran, and makes it a test of ctest, which ends it after 60
# seconds. The program tests the module <module> on arrays: it includes vorn_module_test.h, or uses the
# Fortran module vorn_module_test, and opens the module by its name. It needs no Qt.

set(VORN_MODULE_CMAKE_DIR ${CMAKE_CURRENT_LIST_DIR})
set(VORN_MODULE_OUTPUT_DIR ${CMAKE_BINARY_DIR}/vorn_home/lib
    CACHE PATH "Where module libraries and their manifests are built")

# Refuses sources whose language the project has not enabled: CMake would leave them out silently.
# Sets `result` to the languages of the sources.
function(_vorn_find_module_languages module result)
    set(C_pattern "\\.c$")
    set(CXX_pattern "\\.(cc|cpp|cxx|c\\+\\+|C)$")
    set(Fortran_pattern "\\.(f|for|ftn|fpp|f77|f90|f95|f03|f08|F|FOR|FTN|FPP|F77|F90|F95|F03|F08)$")
    get_property(enabled GLOBAL PROPERTY ENABLED_LANGUAGES)
    set(languages "")
    foreach(language IN ITEMS C CXX Fortran)
        set(sources ${ARGN})
        list(FILTER sources INCLUDE REGEX "${${language}_pattern}")
        if(sources AND NOT language IN_LIST enabled)
            message(FATAL_ERROR "vorn_add_module: module \"${module}\" has ${language} sources "
                "(${sources}); add ${language} to the LANGUAGES of project()")
        endif()
        if(sources)
            list(APPEND languages ${language})
        endif()
    endforeach()
    set(${result} "${languages}" PARENT_SCOPE)
endfunction()

# The kernel's Fortran interface and the Fortran part of the kit, compiled for this project.
function(_vorn_require_fortran_interface)
    if(TARGET vorn_knl_fortran)
        return()
    endif()
    set(module_directory ${CMAKE_BINARY_DIR}/vorn_fortran)
    add_library(vorn_knl_fortran STATIC ${VORN_FORTRAN_SOURCE} ${VORN_KIT_FORTRAN_SOURCE})
    set_target_properties(vorn_knl_fortran PROPERTIES
        POSITION_INDEPENDENT_CODE ON
        ARCHIVE_OUTPUT_DIRECTORY ${module_directory}
        Fortran_MODULE_DIRECTORY ${module_directory})
    target_include_directories(vorn_knl_fortran INTERFACE ${module_directory})
    # The kernel comes behind this library, which may be the only one that calls it.
    target_link_libraries(vorn_knl_fortran PUBLIC VORN::module)
endfunction()

# Tells the kit the name under which the module's failure is recorded.
function(_vorn_name_module module has_fortran)
    target_compile_definitions(${module} PRIVATE
        "$<$<COMPILE_LANGUAGE:C,CXX>:VORN_MODULE_NAME=\"${module}\">")
    if(NOT has_fortran)
        return()
    endif()
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${module}.kit/vorn_module_name.f90)
    file(CONFIGURE OUTPUT ${source} @ONLY CONTENT
"! Made by vorn_add_module, for vorn_kit.
subroutine vorn_module_name(name)
  implicit none
  character(len=:), allocatable, intent(out) :: name

  name = '@module@'
end subroutine vorn_module_name
")
    target_sources(${module} PRIVATE ${source})
endfunction()

# Adds the sources that read the parameters of `manifest`, in each language of the module's sources.
function(_vorn_generate_parameters module manifest)
    if(NOT TARGET VORN::parameters)
        message(STATUS "vorn_add_module: this VORN was built without its host and makes no "
            "${module}_parameters from ${manifest}")
        return()
    endif()
    cmake_path(ABSOLUTE_PATH manifest BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    string(MAKE_C_IDENTIFIER ${module} name)
    set(directory ${CMAKE_CURRENT_BINARY_DIR}/${module}.kit)
    file(MAKE_DIRECTORY ${directory})
    set(C_arguments c h c)
    set(CXX_arguments c++ hpp cpp)
    set(Fortran_arguments fortran f90)
    foreach(language IN LISTS ARGN)
        list(POP_FRONT ${language}_arguments word)
        list(TRANSFORM ${language}_arguments PREPEND ${directory}/${name}_parameters.
            OUTPUT_VARIABLE outputs)
        add_custom_command(OUTPUT ${outputs}
            COMMAND VORN::parameters ${word} ${module} ${manifest} ${directory}
            DEPENDS VORN::parameters ${manifest}
            COMMENT "Reading the parameters of ${module} (${word})"
            VERBATIM)
        target_sources(${module} PRIVATE ${outputs})
    endforeach()
    target_include_directories(${module} PRIVATE ${directory})
endfunction()

function(vorn_add_module)
    cmake_parse_arguments(PARSE_ARGV 0 MODULE "NO_INSTALL" "NAME;MANIFEST" "SOURCES;LIBRARIES")
    if(NOT MODULE_NAME)
        # vorn_add_module(agc SOURCES agc.c), as with CMake's own commands
        list(POP_FRONT MODULE_UNPARSED_ARGUMENTS MODULE_NAME)
    endif()
    if(NOT MODULE_NAME OR NOT MODULE_SOURCES)
        message(FATAL_ERROR "vorn_add_module: NAME and SOURCES are required")
    endif()
    if(MODULE_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "vorn_add_module: module \"${MODULE_NAME}\" has unknown arguments: "
            "${MODULE_UNPARSED_ARGUMENTS}")
    endif()
    _vorn_find_module_languages(${MODULE_NAME} languages ${MODULE_SOURCES})

    set(version_script ${VORN_MODULE_CMAKE_DIR}/vorn_module.map)
    add_library(${MODULE_NAME} MODULE ${MODULE_SOURCES})
    set_target_properties(${MODULE_NAME} PROPERTIES
        PREFIX lib
        SUFFIX .so
        # The generator expression keeps multi-configuration generators from adding a directory.
        LIBRARY_OUTPUT_DIRECTORY "$<1:${VORN_MODULE_OUTPUT_DIR}>"
        Fortran_MODULE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/${MODULE_NAME}.mods
        LINK_DEPENDS ${version_script}
        INSTALL_RPATH "$ORIGIN/../.."
        INSTALL_RPATH_USE_LINK_PATH ON)
    target_link_options(${MODULE_NAME} PRIVATE
        LINKER:-z,now
        LINKER:--no-undefined
        LINKER:--version-script=${version_script})
    # The kit's functions on numbers in C need the mathematical library.
    target_link_libraries(${MODULE_NAME} PRIVATE ${MODULE_LIBRARIES} VORN::module m)
    if(CXX IN_LIST languages)
        target_compile_features(${MODULE_NAME} PRIVATE cxx_std_17) # the kit needs it
    endif()
    if(Fortran IN_LIST languages)
        _vorn_require_fortran_interface()
        target_link_libraries(${MODULE_NAME} PRIVATE vorn_knl_fortran)
        # Takes the kit's entry points from that library where the sources have none.
        target_link_options(${MODULE_NAME} PRIVATE LINKER:-u,preprocess_)
        _vorn_name_module(${MODULE_NAME} TRUE)
    else()
        _vorn_name_module(${MODULE_NAME} FALSE)
    endif()

    if(MODULE_MANIFEST)
        _vorn_generate_parameters(${MODULE_NAME} ${MODULE_MANIFEST} ${languages})
        configure_file(${MODULE_MANIFEST} ${VORN_MODULE_OUTPUT_DIR}/${MODULE_NAME}.yaml COPYONLY)
    endif()
    if(NOT MODULE_NO_INSTALL)
        if(MODULE_NAME IN_LIST VORN_SHIPPED_MODULES)
            install(CODE "message(FATAL_ERROR \"${MODULE_NAME} is a module that VORN ships, and \"
                \"would be replaced; give this one another name\")")
        endif()
        install(TARGETS ${MODULE_NAME} LIBRARY DESTINATION ${VORN_INSTALL_HOME}/lib)
        if(MODULE_MANIFEST)
            install(FILES ${MODULE_MANIFEST}
                DESTINATION ${VORN_INSTALL_HOME}/lib
                RENAME ${MODULE_NAME}.yaml)
        endif()
    endif()
endfunction()

function(vorn_add_module_test)
    cmake_parse_arguments(PARSE_ARGV 0 TEST "" "NAME;MODULE" "ARGUMENTS")
    if(NOT TEST_NAME OR NOT TEST_MODULE OR TEST_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "vorn_add_module_test: NAME and MODULE are required, and nothing but "
            "ARGUMENTS is known besides")
    endif()
    if(NOT TARGET VORN::vorn)
        message(STATUS "vorn_add_module_test: this VORN was built without its host, which runs "
            "tests; it does not make the test \"${TEST_NAME}\"")
        return()
    endif()
    add_test(NAME ${TEST_NAME}
        COMMAND VORN::vorn test ${TEST_MODULE} --allow-modules-from ${VORN_MODULE_OUTPUT_DIR}
            ${TEST_ARGUMENTS}
        WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    # The modules that bring traces are those of the installation, whatever the person has set.
    set_tests_properties(${TEST_NAME} PROPERTIES ENVIRONMENT_MODIFICATION VORN_HOME=unset:)
endfunction()

function(vorn_add_module_test_program)
    cmake_parse_arguments(PARSE_ARGV 0 TEST "" "NAME;MODULE" "SOURCES")
    if(NOT TEST_NAME OR NOT TEST_MODULE OR NOT TEST_SOURCES OR TEST_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "vorn_add_module_test_program: NAME, MODULE and SOURCES are required, and "
            "nothing else is known")
    endif()
    _vorn_find_module_languages(${TEST_NAME} languages ${TEST_SOURCES})
    add_executable(${TEST_NAME} ${TEST_SOURCES})
    target_link_libraries(${TEST_NAME} PRIVATE VORN::module_test)
    if(Fortran IN_LIST languages)
        if(NOT TARGET vorn_module_test_fortran)
            set(module_directory ${CMAKE_BINARY_DIR}/vorn_fortran)
            add_library(vorn_module_test_fortran STATIC ${VORN_TEST_FORTRAN_SOURCE})
            set_target_properties(vorn_module_test_fortran PROPERTIES
                ARCHIVE_OUTPUT_DIRECTORY ${module_directory}
                Fortran_MODULE_DIRECTORY ${module_directory})
            target_include_directories(vorn_module_test_fortran INTERFACE ${module_directory})
            target_link_libraries(vorn_module_test_fortran PUBLIC VORN::module_test)
        endif()
        target_link_libraries(${TEST_NAME} PRIVATE vorn_module_test_fortran)
    endif()
    if(TARGET ${TEST_MODULE})
        add_dependencies(${TEST_NAME} ${TEST_MODULE})
    endif()
    add_test(NAME ${TEST_NAME} COMMAND ${TEST_NAME})
    set_tests_properties(${TEST_NAME} PROPERTIES
        ENVIRONMENT "VORN_TEST_MODULES=${VORN_MODULE_OUTPUT_DIR}"
        TIMEOUT 60)
endfunction()
