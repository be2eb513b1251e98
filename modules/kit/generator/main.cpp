// vorn_parameters LANGUAGE MODULE MANIFEST DIRECTORY: writes the sources that read the parameters
// of a module, as its manifest states them. LANGUAGE is c, c++ or fortran. vorn_add_module calls
// it.
#include "Names.h"
#include "Writers.h"
#include "job/Manifest.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace generator;

constexpr int failed = 1;
constexpr int wrongCall = 2;

bool writeFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file.fail())
        return true;
    std::fprintf(stderr, "vorn_parameters: %s cannot be written\n", path.c_str());
    return false;
}

std::vector<SourceFile> write(const std::string& language, const std::string& module,
                              const std::vector<Field>& fields)
{
    if (language == "c")
        return writeC(module, fields);
    if (language == "c++")
        return writeCxx(module, fields);
    return writeFortran(module, fields);
}

} // namespace

int main(int count, char** words)
try {
    const std::vector<std::string> arguments(words + 1, words + count);
    if (arguments.size() != 4 ||
        (arguments[0] != "c" && arguments[0] != "c++" && arguments[0] != "fortran"))
    {
        std::fprintf(stderr, "usage: vorn_parameters c|c++|fortran MODULE MANIFEST DIRECTORY\n");
        return wrongCall;
    }
    // Its header would be that of the kit, or have the same include guard.
    if (upperCase(moduleIdentifier(arguments[1])) == "VORN") {
        std::fprintf(
            stderr,
            "vorn_parameters: a module cannot be called %s: vorn_parameters.h is a header of "
            "the kit; choose another name\n",
            arguments[1].c_str());
        return failed;
    }
    host::Diagnostics diagnostics;
    const host::ManifestPointer manifest =
        host::readManifest(arguments[2], arguments[1], diagnostics);
    diagnostics.print(stderr);
    if (manifest == nullptr)
        return failed;
    for (const SourceFile& file : write(arguments[0], arguments[1], fieldsOf(*manifest))) {
        if (!writeFile(arguments[3] + "/" + file.name, file.text))
            return failed;
    }
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "vorn_parameters: %s\n", e.what());
    return failed;
}
