# cmake -DSOURCES=templates -DOUTPUT=ModuleTemplates.cpp -P embed_templates.cmake
#
# Makes a C++ source with the bytes of all templates, so that the command has them wherever it is.
file(GLOB_RECURSE files RELATIVE ${SOURCES} ${SOURCES}/*)
list(FILTER files EXCLUDE REGEX "\\.cmake$")
list(SORT files)
set(arrays "")
set(rows "")
set(number 0)
foreach(file IN LISTS files)
    file(READ ${SOURCES}/${file} bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
    string(APPEND arrays "const unsigned char bytes${number}[] = {${bytes}};\n")
    string(APPEND rows
        "    {\"${file}\", {reinterpret_cast<const char*>(bytes${number}), sizeof bytes${number}}},\n")
    math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT}
"// Made by embed_templates.cmake from the folder templates.
#include \"kit/ModuleTemplates.h\"

namespace host {

namespace {

${arrays}
} // namespace

const std::map<std::string, std::string_view>& moduleTemplates()
{
    static const std::map<std::string, std::string_view> templates = {
${rows}    };
    return templates;
}

} // namespace host
")
