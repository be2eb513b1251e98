#include "YamlChecks.h"
#include "base/Escaping.h"

#include "FuzzInput.h"
#include "YamlText.h"

void checkYaml(const std::string& text)
{
    constexpr std::size_t mostNodes = 2000;
    constexpr std::size_t mostLevels = 100;
    host::Diagnostics diagnostics;
    const host::YamlValue document = host::readYaml(text, "input", diagnostics);
    VORN_ASSERT(document != nullptr || diagnostics.hasErrors());
    checkDiagnostics(diagnostics);
    VORN_ASSERT(document == nullptr || document->levels <= 500);
    if (document == nullptr || !isWithin(document, mostNodes, mostLevels))
        return;

    host::Diagnostics again;
    const host::YamlValue copy = host::readYaml(yamlText(document), "copy", again);
    VORN_ASSERT(copy != nullptr && !again.hasErrors());
    VORN_ASSERT(sameContent(document, copy));
}

void checkDiagnostics(const host::Diagnostics& diagnostics)
{
    const auto all = diagnostics.sorted();
    VORN_ASSERT(static_cast<int>(all.size()) == diagnostics.errors() + diagnostics.warnings());
    for (const host::Diagnostic& one : all) {
        const std::string line = one.line();
        VORN_ASSERT(isPlainLine(line));
        VORN_ASSERT(host::escaped(line) == line);
        VORN_ASSERT(one.place.line >= 0 && one.place.column >= 0);
    }
}
