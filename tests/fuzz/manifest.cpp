// Manifests of modules. Up to the first NUL the input is the manifest; what is between it and the
// next is a value that a job gives to every parameter in turn.
#include "FuzzInput.h"

#include "YamlChecks.h"
#include "job/Manifest.h"
#include "job/ParameterValue.h"

#include <cmath>
#include <set>

namespace {

using host::Diagnostics;
using host::Manifest;
using host::ParameterSpec;
using host::ParameterValue;
using host::PortSpec;

void checkPorts(const PortSpec& ports)
{
    VORN_ASSERT(ports.min >= 0);
    VORN_ASSERT(ports.max == PortSpec::any || ports.max >= ports.min);
    VORN_ASSERT(!ports.countText().empty());
}

void checkManifest(const Manifest& manifest)
{
    VORN_ASSERT(manifest.module == "input" && !manifest.purpose.empty());
    checkPorts(manifest.inputs);
    checkPorts(manifest.outputs);
    std::set<std::string> names;
    for (const ParameterSpec& spec : manifest.parameters) {
        VORN_ASSERT(!spec.name.empty() && !host::isReservedKey(spec.name));
        VORN_ASSERT(names.insert(spec.name).second);
        VORN_ASSERT(manifest.find(spec.name) == &spec);
        VORN_ASSERT(!spec.required || spec.defaultValue == nullptr);
        VORN_ASSERT(!host::expectedValue(spec).empty());
    }
    VORN_ASSERT(manifest.parameterNames().size() == manifest.parameters.size());
    for (const host::AttributeSpec& attribute : manifest.writes)
        VORN_ASSERT(attribute.dimension > 0);
}

bool isWithin(const ParameterSpec& spec, double value)
{
    return std::isfinite(value) && (!spec.min || value >= *spec.min) &&
           (!spec.max || value <= *spec.max) &&
           (!spec.exclusiveMin || value > *spec.exclusiveMin) &&
           (!spec.exclusiveMax || value < *spec.exclusiveMax);
}

void checkNumbers(const ParameterSpec& spec, const ParameterValue& given)
{
    const UniVar& value = given.value;
    std::vector<double> numbers;
    for (int i = 0; i < value.getArraySize(); ++i) {
        if (value.getType() == int32ArrayType)
            numbers.push_back(value.getI32ArrayValue()[i]);
        else if (value.getType() == int64ArrayType)
            numbers.push_back(static_cast<double>(value.getI64ArrayValue()[i]));
        else if (value.getType() == float64ArrayType)
            numbers.push_back(value.getF64ArrayValue()[i]);
    }
    if (!host::isListType(spec.type))
        numbers.push_back(value.getF64Value());
    for (const double number : numbers)
        VORN_ASSERT(isWithin(spec, number));
}

// A value that was accepted is one that the manifest allows.
void checkValue(const ParameterSpec& spec, const ParameterValue& given)
{
    if (host::isNumberType(spec.type))
        checkNumbers(spec, given);
    if (host::isListType(spec.type)) {
        VORN_ASSERT(given.items.has_value());
        const int count = static_cast<int>(given.items->size());
        VORN_ASSERT(count >= spec.minCount.value_or(0) && count <= spec.maxCount.value_or(INT_MAX));
    }
    if (spec.type == host::ParameterType::choice) {
        VORN_ASSERT(std::find(spec.choices.begin(), spec.choices.end(),
                              given.value.getStrValue()) != spec.choices.end());
    }
    if (spec.type == host::ParameterType::boolean)
        VORN_ASSERT(given.value.getI32Value() == 0 || given.value.getI32Value() == 1);
    if (spec.type == host::ParameterType::file || spec.type == host::ParameterType::outfile)
        VORN_ASSERT(given.value.getStrValue()[0] == '/');
}

void giveValue(const Manifest& manifest, const std::string& text)
{
    Diagnostics diagnostics;
    const host::YamlValue value = host::readYamlValue(text, "--set", diagnostics);
    VORN_ASSERT(value != nullptr || diagnostics.hasErrors());
    for (const ParameterSpec& spec : manifest.parameters) {
        if (value == nullptr)
            break;
        const int before = diagnostics.errors();
        const auto given = host::convertParameter(spec, value, "/folder", "parameter", diagnostics);
        VORN_ASSERT(given.has_value() == (diagnostics.errors() == before));
        if (given)
            checkValue(spec, *given);
    }
    checkDiagnostics(diagnostics);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\0'), input.size());
    const std::string text = input.substr(0, end);
    checkYaml(text);

    Diagnostics diagnostics;
    const host::ManifestPointer manifest =
        host::parseManifest(text, "input.yaml", "input", diagnostics);
    VORN_ASSERT((manifest != nullptr) == !diagnostics.hasErrors());
    checkDiagnostics(diagnostics);
    if (manifest == nullptr)
        return 0;
    checkManifest(*manifest);
    giveValue(*manifest, end < input.size() ? input.c_str() + end + 1 : std::string());
    return 0;
}
