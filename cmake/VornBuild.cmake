# Settings of every target that this tree builds.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
# POSIX names stay visible in C sources.
set(CMAKE_C_EXTENSIONS ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

# Assertions and debug information name files relative to the source tree, never places of the
# machine that built them.
add_compile_options(
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

# The compilers spend a third of their time on the types and variables that only a debugger shows; lines
# are enough for the stacks of the sanitizers and of valgrind.
set(VORN_DEBUG_INFO full CACHE STRING "Debug information: full, or only the lines of the sources")
set_property(CACHE VORN_DEBUG_INFO PROPERTY STRINGS full lines)
if(VORN_DEBUG_INFO STREQUAL lines)
    add_compile_options(-g1)
elseif(NOT VORN_DEBUG_INFO STREQUAL full)
    message(FATAL_ERROR "VORN_DEBUG_INFO is \"${VORN_DEBUG_INFO}\", but must be \"full\" or \"lines\"")
endif()

set(VORN_SANITIZE OFF CACHE STRING
    "Stop at memory errors, leaks and undefined behaviour (address or ON), or at data races (thread); g++, gfortran")
set_property(CACHE VORN_SANITIZE PROPERTY STRINGS OFF address thread)
set(VORN_SANITIZE_FLAGS "")
if(VORN_SANITIZE STREQUAL thread)
    set(VORN_SANITIZE_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(VORN_SANITIZE STREQUAL address OR VORN_SANITIZE MATCHES "^(1|ON|YES|TRUE|Y|on|yes|true|y)$")
    set(VORN_SANITIZE_FLAGS
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
elseif(VORN_SANITIZE)
    message(FATAL_ERROR
        "VORN_SANITIZE is \"${VORN_SANITIZE}\", but must be \"OFF\", \"address\" or \"thread\"")
endif()
add_compile_options(${VORN_SANITIZE_FLAGS})
add_link_options(${VORN_SANITIZE_FLAGS})

# Optimised builds notice most writes beyond a buffer before they do harm, and can neither be loaded
# at known places nor have their tables of functions changed.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
set(VORN_HARDENED "$<AND:$<CONFIG:Release,RelWithDebInfo,MinSizeRel>,$<NOT:$<BOOL:${VORN_SANITIZE}>>>")
add_compile_options(
    "$<$<AND:${VORN_HARDENED},$<COMPILE_LANGUAGE:C,CXX>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>"
    "$<${VORN_HARDENED}:-fstack-protector-strong>")
add_link_options("$<${VORN_HARDENED}:LINKER:-z,relro;LINKER:-z,now>")

# Nothing is compiled in another way but that the kernel gives every block back to the heap.
option(VORN_OPTIMISE_COMMAND "Optimise the command's own code, which clang takes most of its time for" ON)
option(VORN_TESTS_BY_SUITE "Run the tests of a suite in one process" OFF)
option(VORN_VALGRIND "Run the tests under valgrind" OFF)
if(VORN_VALGRIND AND VORN_SANITIZE)
    message(FATAL_ERROR "valgrind cannot run what is built with the sanitizers")
endif()

# Warnings for C and C++ sources of `target`; old-style Fortran cannot do without warnings.
# With CONVERSIONS, of numbers that change by becoming another type as well.
function(vorn_enable_warnings target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "CONVERSIONS" "" "")
    set(warnings -Wall -Wextra -Wpedantic -Wshadow)
    if(arg_CONVERSIONS)
        list(APPEND warnings -Wconversion -Wsign-conversion)
    endif()
    if(VORN_WERROR)
        list(APPEND warnings -Werror)
    endif()
    target_compile_options(${target} PRIVATE "$<$<COMPILE_LANGUAGE:C,CXX>:${warnings}>")
endfunction()
