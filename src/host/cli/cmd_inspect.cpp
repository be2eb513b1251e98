// vorn inspect [MODULE]: the modules of the module tree, or the page of one.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "base/TextLayout.h"
#include "cli/CommandTable.h"
#include "cli/ModuleMarkdown.h"
#include "job/LibraryProbe.h"
#include "job/Manifest.h"
#include "job/ModuleCatalog.h"
#include "job/ParameterValue.h"

#include <cstdio>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace host {

namespace {

using Json = nlohmann::ordered_json;

constexpr int pageWidth = 80;

ManifestPointer manifestOf(const CatalogModule& module, Diagnostics& diagnostics)
{
    return module.manifest.empty() ? nullptr
                                   : readManifest(module.manifest, module.name, diagnostics);
}

void printJson(const Json& json)
{
    fmt::print("{}\n", json.dump(2, ' ', false, Json::error_handler_t::replace));
}

// ---- the list ----

std::string purposeOf(const CatalogModule& module, const ManifestPointer& manifest)
{
    if (manifest != nullptr)
        return manifest->purpose + (module.library.empty() ? " (its library is missing)" : "");
    return module.manifest.empty() ? "(no manifest)" : "(its manifest is not correct)";
}

void printList(const ModuleCatalog& catalog)
{
    TextTable table("llll");
    for (const CatalogModule& module : catalog.modules()) {
        Diagnostics ignored; // the module's own page tells them
        const ManifestPointer manifest = manifestOf(module, ignored);
        table.row({module.name, manifest != nullptr ? escaped(manifest->version) : "",
                   manifest != nullptr ? escaped(manifest->language) : "",
                   escaped(purposeOf(module, manifest))});
    }
    fmt::print("{} in {}\n\n{}", counted(static_cast<int64_t>(catalog.modules().size()), "module"),
               escaped(catalog.libraryDirectory()), table.text(2));
}

void printJsonList(const ModuleCatalog& catalog)
{
    Json list = Json::array();
    for (const CatalogModule& module : catalog.modules()) {
        Diagnostics ignored;
        const ManifestPointer manifest = manifestOf(module, ignored);
        list.push_back({{"module", module.name},
                        {"version", manifest != nullptr ? manifest->version : ""},
                        {"language", manifest != nullptr ? manifest->language : ""},
                        {"purpose", manifest != nullptr ? manifest->purpose : ""},
                        {"library", module.library},
                        {"manifest", module.manifest}});
    }
    printJson(list);
}

// ---- the page of a module: a printer for each section ----

void printHead(const Manifest& manifest)
{
    fmt::print("{}: {}\n", manifest.module, escaped(manifest.purpose));
    std::vector<std::string> facts;
    if (!manifest.version.empty())
        facts.push_back("version " + manifest.version);
    if (!manifest.language.empty())
        facts.push_back("written in " + manifest.language);
    if (!facts.empty())
        fmt::print("{}\n", escaped(joined(facts, ", ")));
}

void printDescription(const Manifest& manifest)
{
    if (!trimmed(manifest.description).empty())
        fmt::print("\n{}", wrapped(escapedLines(manifest.description), pageWidth, 2));
}

void printPorts(const Manifest& manifest)
{
    const auto text = [](const PortSpec& ports) {
        return ports.countText() +
               (ports.names.empty() ? "" : " (" + escaped(joined(ports.names, ", ")) + ")");
    };
    fmt::print("\nInputs: {}\nOutputs: {}\n", text(manifest.inputs), text(manifest.outputs));
}

std::string defaultText(const ParameterSpec& spec)
{
    if (spec.required)
        return "required";
    if (spec.defaultValue == nullptr)
        return "optional";
    const YamlNode& value = *spec.defaultValue;
    std::vector<std::string> items;
    for (const YamlValue& item : value.items)
        items.push_back(item->text);
    return "default " + escaped(value.isList() ? "[" + joined(items, ", ") + "]" : value.text) +
           (spec.unit.empty() || value.isList() ? "" : " " + escaped(spec.unit));
}

void printParameters(const Manifest& manifest)
{
    fmt::print("\nParameters:{}\n", manifest.parameters.empty() ? " none" : "");
    for (const ParameterSpec& spec : manifest.parameters)
        fmt::print("  {}: {}; {}\n{}", escaped(spec.name), escaped(expectedValue(spec)),
                   defaultText(spec), wrapped(escaped(spec.help), pageWidth, 6));
}

void printRules(const Manifest& manifest)
{
    if (!manifest.rules.empty())
        fmt::print("\nRules between parameters:\n");
    for (const ParameterRule& rule : manifest.rules)
        fmt::print("{}", wrapped(escaped(rule.text()), pageWidth, 2));
}

void printAttributes(const Manifest& manifest)
{
    std::vector<std::string> written;
    for (const AttributeSpec& attribute : manifest.writes)
        written.push_back(attribute.name);
    const auto print = [](const char* title, const std::vector<std::string>& names) {
        const std::string text = names.empty() ? "none" : escaped(joined(names, ", "));
        fmt::print("{}", wrapped(std::string(title) + " " + text, pageWidth, 0));
    };
    fmt::print("\n");
    print("Trace attributes read:", manifest.reads);
    print("Trace attributes written:", written);
    for (const AttributeSpec& attribute : manifest.writes) {
        if (!attribute.help.empty())
            fmt::print("  {}: {}\n", escaped(attribute.name), escaped(attribute.help));
    }
}

void printFiles(const CatalogModule& module, const std::string& problem)
{
    if (module.library.empty())
        fmt::print("\nLibrary: missing\n");
    else
        fmt::print("\nLibrary: {}{}\n", escaped(module.library),
                   problem.empty() ? "" : ", which " + escaped(problem));
    if (!module.manifest.empty())
        fmt::print("Manifest: {}\n", escaped(module.manifest));
}

// ---- the same as JSON ----

Json portsJson(const PortSpec& ports)
{
    Json json = {{"min", ports.min}, {"names", ports.names}};
    json["max"] = ports.max == PortSpec::any ? Json("any") : Json(ports.max);
    return json;
}

Json valueJson(const YamlValue& value)
{
    if (!value->isList())
        return value->text;
    Json list = Json::array();
    for (const YamlValue& item : value->items)
        list.push_back(item->text);
    return list;
}

Json parameterJson(const ParameterSpec& spec)
{
    Json json = {{"name", spec.name}, {"type", parameterTypeName(spec.type)},
                 {"unit", spec.unit}, {"required", spec.required},
                 {"help", spec.help}, {"expected", expectedValue(spec)}};
    if (spec.meaning != ParameterMeaning::plain)
        json["is"] = parameterMeaningName(spec.meaning);
    if (spec.defaultValue != nullptr)
        json["default"] = valueJson(spec.defaultValue);
    const auto add = [&](const char* key, const auto& value) {
        if (value)
            json[key] = *value;
    };
    add("min", spec.min);
    add("max", spec.max);
    add("exclusive_min", spec.exclusiveMin);
    add("exclusive_max", spec.exclusiveMax);
    add("min_count", spec.minCount);
    add("max_count", spec.maxCount);
    if (!spec.choices.empty())
        json["choices"] = spec.choices;
    if (!spec.besides.empty())
        json["besides"] = spec.besides;
    return json;
}

Json ruleJson(const ParameterRule& rule)
{
    Json json = {{"rule", ruleKindName(rule.kind)}, {"of", rule.of}, {"text", rule.text()}};
    if (!rule.when.empty())
        json["when"] = rule.when;
    if (!rule.values.empty())
        json["values"] = rule.values;
    return json;
}

Json conditionsJson(const std::vector<ParallelCondition>& conditions)
{
    Json list = Json::array();
    for (const ParallelCondition& condition : conditions)
        list.push_back({{"parameter", condition.parameter}, {"values", condition.values}});
    return list;
}

Json parallelJson(const ParallelSpec& spec)
{
    Json json = {{"work", parallelWorkName(spec.work)},
                 {"count", parallelCountName(spec.count)},
                 {"merge", spec.merge}};
    if (!spec.keyParameter.empty())
        json["key_parameter"] = spec.keyParameter;
    else if (!spec.key.empty())
        json["key"] = spec.key;
    if (!spec.blockParameter.empty())
        json["block_parameter"] = spec.blockParameter;
    if (!spec.rangeParameter.empty())
        json["range"] = spec.rangeParameter;
    if (!spec.wholeWhen.empty())
        json["whole_when"] = conditionsJson(spec.wholeWhen);
    if (!spec.numberedWhen.empty())
        json["numbered_when"] = conditionsJson(spec.numberedWhen);
    json["text"] = spec.text();
    return json;
}

void printJsonPage(const CatalogModule& module, const ManifestPointer& manifest,
                   const std::string& problem)
{
    Json json = {{"module", module.name},
                 {"library", module.library},
                 {"manifest", module.manifest},
                 {"problem", module.library.empty() ? "its library is missing" : problem}};
    if (manifest != nullptr) {
        json["version"] = manifest->version;
        json["language"] = manifest->language;
        json["purpose"] = manifest->purpose;
        json["description"] = manifest->description;
        json["inputs"] = portsJson(manifest->inputs);
        json["outputs"] = portsJson(manifest->outputs);
        json["parameters"] = Json::array();
        for (const ParameterSpec& spec : manifest->parameters)
            json["parameters"].push_back(parameterJson(spec));
        json["rules"] = Json::array();
        for (const ParameterRule& rule : manifest->rules)
            json["rules"].push_back(ruleJson(rule));
        json["reads"] = manifest->reads;
        json["writes"] = Json::array();
        for (const AttributeSpec& attribute : manifest->writes)
            json["writes"].push_back({{"name", attribute.name},
                                      {"type", attributeTypeName(attribute.type)},
                                      {"dimension", attribute.dimension},
                                      {"help", attribute.help}});
        json["draws"] = manifest->draws;
        json["parallel"] = parallelJson(manifest->parallel);
    }
    printJson(json);
}

// ---- the reference of all modules ----

int printReference(const ModuleCatalog& catalog)
{
    Diagnostics diagnostics;
    fmt::print("# Modules\n");
    for (const CatalogModule& module : catalog.modules()) {
        if (const ManifestPointer manifest = manifestOf(module, diagnostics))
            fmt::print("\n{}", chapterMarkdown(*manifest));
    }
    std::fflush(stdout);
    diagnostics.print(stderr);
    return diagnostics.hasErrors() ? exitWrongCall : exitDone;
}

// ---- one module ----

enum class PageForm
{
    text,
    json,
    markdown
};

int printPage(const ModuleCatalog& catalog, const std::string& name, PageForm form)
{
    const CatalogModule* module = catalog.find(name);
    if (module == nullptr)
        throw CommandError(fmt::format("there is no module {} in {}{}", quote(name),
                                       escaped(catalog.libraryDirectory()),
                                       suggestion(name, catalog.names(), "there are")));
    Diagnostics diagnostics;
    const ManifestPointer manifest = manifestOf(*module, diagnostics);
    if (form == PageForm::markdown) {
        if (module->manifest.empty())
            throw CommandError(
                fmt::format("module {} has no manifest, from which Markdown is made", quote(name)));
        if (manifest != nullptr)
            fmt::print("{}", interfaceMarkdown(*manifest));
        std::fflush(stdout);
        diagnostics.print(stderr);
        return diagnostics.hasErrors() ? exitWrongCall : exitDone;
    }
    const std::string problem = module->library.empty() ? "" : probeLibrary(module->library);
    if (form == PageForm::json) {
        printJsonPage(*module, manifest, problem);
    } else if (manifest != nullptr) {
        printHead(*manifest);
        printDescription(*manifest);
        printPorts(*manifest);
        printParameters(*manifest);
        printRules(*manifest);
        printAttributes(*manifest);
        fmt::print("Draws: {}\n", escaped(manifest->draws));
        fmt::print("{}", wrapped("In parts: " + escaped(manifest->parallel.text()), pageWidth, 0));
        printFiles(*module, problem);
    } else {
        fmt::print("{}: {}\n", name, purposeOf(*module, manifest));
        printFiles(*module, problem);
    }
    std::fflush(stdout);
    diagnostics.print(stderr);
    return diagnostics.hasErrors() ? exitWrongCall : exitDone;
}

// Modules of one name, all of them where `name` is empty: after the page or list, on standard
// error.
void tellAmbiguities(const ModuleCatalog& catalog, const std::string& name)
{
    Diagnostics diagnostics;
    for (const CatalogModule& module : catalog.modules()) {
        const std::string text = ambiguity(module);
        if (!text.empty() && (name.empty() || module.name == name))
            diagnostics.warning({"--allow-modules-from", 0, 0}, text);
    }
    std::fflush(stdout);
    diagnostics.print(stderr);
}

int printInspected(const ModuleCatalog& catalog, const Arguments& arguments)
{
    if (arguments.has("MODULE"))
        return printPage(catalog, arguments.text("MODULE"),
                         arguments.has("--json")       ? PageForm::json
                         : arguments.has("--markdown") ? PageForm::markdown
                                                       : PageForm::text);
    if (arguments.has("--markdown"))
        return printReference(catalog);
    if (arguments.has("--names"))
        fmt::print("{}\n", joined(catalog.names(), "\n"));
    else if (arguments.has("--json"))
        printJsonList(catalog);
    else
        printList(catalog);
    return exitDone;
}

int runInspect(const Arguments& arguments)
{
    const ModuleCatalog catalog(findVornHome(), arguments.texts("--allow-modules-from"));
    const int exitCode = printInspected(catalog, arguments);
    tellAmbiguities(catalog, arguments.text("MODULE", ""));
    return exitCode;
}

} // namespace

Command inspectCommand()
{
    return {
        "inspect",
        runInspect,
        "List the modules, or explain one",
        "Without an argument, lists the modules of VORN_HOME. With the name of a module, prints "
        "what it does, its inputs and outputs, its parameters and the trace attributes that it "
        "reads and writes, and whether its library can be loaded.",
        {{"MODULE", "name of a module", ValueKind::module, false}},
        {{"--json", "", "print JSON"},
         {"--markdown", "", "print the parameters as Markdown; without MODULE, of all modules"},
         {"--names", "", "print the names alone, one a line"},
         {"--allow-modules-from",
          "DIR",
          "also look in this directory",
          ValueKind::directory,
          {},
          true}},
        {{"vorn inspect", "which modules are there?"},
         {"vorn inspect bandpass", "the parameters of a module, to write a job file"}}};
}

} // namespace host
