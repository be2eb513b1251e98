# The pages of the documentation, examples and templates, as an installation has them:
#
#   share/doc/vorn        docs, the README of the project as vorn.md, the page of module NAME as
#                         modules/NAME.md
#   share/vorn/examples   modules, hosts and jobs, made to be copied
#   share/vorn/templates  what `vorn new-module` copies, with my_module in the place of the name
#
# As a script, which the installation runs, it rewrites the links of the pages to these places:
#
#     cmake -DSOURCE=TREE -DOUTPUT=FOLDER -DEXAMPLES=../../vorn/examples -P VornInstallPages.cmake
#
# The text of a link to what is not installed, such as a test, stays without the link.

# Sets `result` to the installed place of the file `name` of the source tree, relative to
# share/doc/vorn; empty where it is not installed.
function(vorn_installed_place name result)
    set(place "")
    if(name STREQUAL "README.md")
        set(place vorn.md)
    elseif(name STREQUAL "CHANGELOG.md")
        set(place CHANGELOG.md)
    elseif(name MATCHES "^docs/(.*\\.(md|json|png|svg))$")
        set(place ${CMAKE_MATCH_1})
    elseif(name MATCHES "^modules/([^/]+)(/README\\.md)?$")
        if(EXISTS ${SOURCE}/modules/${CMAKE_MATCH_1}/README.md)
            set(place modules/${CMAKE_MATCH_1}.md)
        endif()
    elseif(name MATCHES "^examples(/.*)?$")
        set(place ${EXAMPLES}${CMAKE_MATCH_1})
    endif()
    set(${result} "${place}" PARENT_SCOPE)
endfunction()

function(vorn_write_page name)
    vorn_installed_place(${name} page)
    cmake_path(GET name PARENT_PATH folder)
    cmake_path(GET page PARENT_PATH page_folder)
    file(READ ${SOURCE}/${name} text)
    # Without brackets, in which CMake's lists would not be taken apart.
    string(REGEX MATCHALL "\\([^]() \n]+\\)" targets "${text}")
    list(REMOVE_DUPLICATES targets)
    foreach(target IN LISTS targets)
        string(REGEX REPLACE "^\\(|\\)$" "" target "${target}")
        string(REGEX REPLACE "#.*" "" file "${target}")
        if(file STREQUAL "" OR target MATCHES "^[a-z]+:")
            continue()
        endif()
        set(linked ${folder})
        cmake_path(APPEND linked ${file})
        cmake_path(NORMAL_PATH linked)
        if(NOT EXISTS ${SOURCE}/${linked})
            continue()
        endif()
        vorn_installed_place(${linked} place)
        if(place STREQUAL "")
            string(REGEX REPLACE "([][+.*()^$?|\\])" "\\\\\\1" pattern "${target}")
            string(REGEX REPLACE "\\[([^]]*)\\]\\(${pattern}\\)" "\\1" text "${text}")
            continue()
        endif()
        file(RELATIVE_PATH place /p/share/doc/vorn/${page_folder} /p/share/doc/vorn/${place})
        string(REPLACE "](${file})" "](${place})" text "${text}")
        string(REPLACE "](${file}#" "](${place}#" text "${text}")
    endforeach()
    file(WRITE ${OUTPUT}/${page} "${text}")
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
    file(REMOVE_RECURSE ${OUTPUT} ${OUTPUT}/${EXAMPLES})
    file(GLOB_RECURSE names RELATIVE ${SOURCE} ${SOURCE}/docs/*.md ${SOURCE}/docs/*.json ${SOURCE}/docs/*.png
        ${SOURCE}/docs/*.svg)
    file(GLOB modules RELATIVE ${SOURCE} ${SOURCE}/modules/*/README.md ${SOURCE}/examples/*/README.md)
    foreach(name IN LISTS names modules ITEMS README.md CHANGELOG.md)
        vorn_installed_place(${name} place)
        if(name MATCHES "\\.md$")
            vorn_write_page(${name})
        elseif(NOT place STREQUAL "")
            configure_file(${SOURCE}/${name} ${OUTPUT}/${place} COPYONLY)
        endif()
    endforeach()
    return()
endif()

set(doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/vorn)
set(examples_dir ${CMAKE_INSTALL_DATADIR}/vorn/examples)
file(RELATIVE_PATH to_examples /${doc_dir} /${examples_dir})
set(pages ${PROJECT_BINARY_DIR}/package/pages)
install(CODE "
    execute_process(COMMAND \"${CMAKE_COMMAND}\" \"-DSOURCE=${PROJECT_SOURCE_DIR}\"
            \"-DOUTPUT=${pages}/${doc_dir}\" -DEXAMPLES=${to_examples} -P \"${CMAKE_CURRENT_LIST_FILE}\"
        COMMAND_ERROR_IS_FATAL ANY)")
foreach(folder IN ITEMS ${doc_dir} ${examples_dir})
    install(DIRECTORY ${pages}/${folder}/ DESTINATION ${folder})
endforeach()
install(DIRECTORY examples/ DESTINATION ${examples_dir} USE_SOURCE_PERMISSIONS
    REGEX "/examples/CMakeLists\\.txt$" EXCLUDE
    PATTERN README.md EXCLUDE
    PATTERN build EXCLUDE)
install(DIRECTORY templates/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vorn/templates
    PATTERN embed_templates.cmake EXCLUDE)
