# cmake -DSOURCES=<folder> -DOUTPUT=<file> -P embed_assets.cmake
#
# Writes the C++ source that defines what ReportAssets.h declares: the style sheets and scripts of the
# folder as raw string literals.
set(source "// Made by embed_assets.cmake.\n")
string(APPEND source "#include \"report/ReportAssets.h\"\n\nnamespace host {\n")
foreach(asset IN ITEMS reportStyle=report.css graphStyle=graph.css reportScript=report.js
        indexStyle=index.css indexScript=index.js)
    string(REGEX MATCH "(.*)=(.*)" matched ${asset})
    set(name ${CMAKE_MATCH_1})
    file(READ ${SOURCES}/${CMAKE_MATCH_2} text)
    string(FIND "${text}" ")asset\"" end_mark)
    if(NOT end_mark EQUAL -1)
        message(FATAL_ERROR "${CMAKE_MATCH_2} holds the end of the literal that it becomes")
    endif()
    string(APPEND source "\nconst std::string_view ${name} = R\"asset(\n${text})asset\";\n")
endforeach()
string(APPEND source "\n} // namespace host\n")
file(WRITE ${OUTPUT} "${source}")
