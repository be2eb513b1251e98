# The target `docs`: the reference of the installed headers as HTML, in reference/html of the build
# directory. Needs Doxygen and Python 3; a warning of Doxygen (above all, a public name without
# documentation) fails the build. Not part of `all`.
#
# The target `docs_pictures`: docs/pictures/architecture.svg from its description, with Graphviz. The
# result is checked in.
find_package(Doxygen QUIET)
find_package(Python3 QUIET COMPONENTS Interpreter)

find_program(VORN_DOT dot)
mark_as_advanced(VORN_DOT)
if(VORN_DOT)
    set(picture ${PROJECT_SOURCE_DIR}/docs/pictures/architecture)
    add_custom_target(docs_pictures
        COMMAND ${VORN_DOT} -Tsvg ${picture}.dot -o ${picture}.svg
        VERBATIM)
endif()

if(NOT TARGET Doxygen::doxygen OR NOT Python3_FOUND)
    add_custom_target(docs
        COMMAND ${CMAKE_COMMAND} -E echo "docs: needs Doxygen and Python 3"
        COMMAND ${CMAKE_COMMAND} -E false
        VERBATIM)
    return()
endif()

get_target_property(public_headers VORN_kernel VORN_PUBLIC_HEADERS)
set(VORN_REFERENCE_DIR ${PROJECT_BINARY_DIR}/reference)
set(reference_pages ${PROJECT_SOURCE_DIR}/docs/reference.md)
list(JOIN public_headers "\" \"" VORN_REFERENCE_INPUT)
set(VORN_REFERENCE_INPUT "\"${VORN_REFERENCE_INPUT}\" \"${reference_pages}\"")
# Headers are shown by the names under which they are installed and included.
set(reference_folders ${public_headers})
list(TRANSFORM reference_folders REPLACE "[^/]+$" "")
list(REMOVE_DUPLICATES reference_folders)
list(JOIN reference_folders "\" \"" VORN_REFERENCE_STRIP)
set(VORN_REFERENCE_STRIP "\"${VORN_REFERENCE_STRIP}\"")
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)

set(reference_check ${PROJECT_SOURCE_DIR}/docs/check_reference.py)
set(reference_stamp ${VORN_REFERENCE_DIR}/html/index.html)
add_custom_command(OUTPUT ${reference_stamp}
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${VORN_REFERENCE_DIR}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${VORN_REFERENCE_DIR}
    COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/Doxyfile
    COMMAND Python3::Interpreter ${reference_check} ${VORN_REFERENCE_DIR}/warnings.txt
    DEPENDS ${public_headers} ${reference_pages} ${reference_check} ${PROJECT_BINARY_DIR}/Doxyfile
    COMMENT "Making the reference of the installed headers"
    VERBATIM)
add_custom_target(docs DEPENDS ${reference_stamp})

# The same check as a test, beside the target's own files.
if(VORN_BUILD_TESTS)
    set(VORN_REFERENCE_DIR ${PROJECT_BINARY_DIR}/tests/docs/reference)
    configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${PROJECT_BINARY_DIR}/tests/docs/Doxyfile
        @ONLY)
    add_test(NAME page.reference
        COMMAND sh -c "rm -rf \"$1\" && mkdir -p \"$1\" && \"$2\" \"$3\" && \"$4\" \"$5\" \"$1/warnings.txt\""
            page.reference ${VORN_REFERENCE_DIR} $<TARGET_FILE:Doxygen::doxygen>
            ${PROJECT_BINARY_DIR}/tests/docs/Doxyfile $<TARGET_FILE:Python3::Interpreter>
            ${reference_check})
    set_tests_properties(page.reference PROPERTIES LABELS docs)
endif()
