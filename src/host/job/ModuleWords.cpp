#include "job/ModuleWords.h"

#include "job/JobCheck.h"
#include "words/Assignment.h"

#include <algorithm>
#include <stdexcept>

namespace host {

namespace {

std::vector<std::string> textsOf(const ResolvedParameter& parameter)
{
    return parameter.value.items.value_or(std::vector<std::string>{parameter.value.text});
}

// The formulas of a parameter; none of any other. What does not parse has been reported.
std::vector<words::Assignment> formulasIn(const ResolvedModule& module,
                                          const ResolvedParameter& parameter)
{
    std::vector<words::Assignment> formulas;
    const ParameterSpec* spec = module.manifest->find(parameter.name);
    if (spec == nullptr || (spec->meaning != ParameterMeaning::formula &&
                            spec->meaning != ParameterMeaning::assignment))
        return formulas;
    const std::vector<std::string> texts = textsOf(parameter);
    formulas.reserve(texts.size());
    for (const std::string& text : texts) {
        try {
            if (spec->meaning == ParameterMeaning::assignment)
                formulas.push_back(words::parseAssignment(text));
            else
                formulas.push_back({"", words::Expression(text)});
        } catch (const std::runtime_error&) {
            continue;
        }
    }
    return formulas;
}

} // namespace

std::vector<std::string> wordsWritten(const ResolvedModule& module)
{
    std::vector<std::string> written;
    if (module.manifest == nullptr)
        return written;
    for (const AttributeSpec& attribute : module.manifest->writes)
        written.push_back(attribute.name);
    for (const ResolvedParameter& parameter : module.parameters) {
        for (const words::Assignment& one : formulasIn(module, parameter)) {
            if (!one.word.empty())
                written.push_back(one.word);
        }
    }
    const std::vector<std::string> columns = wordsOfTable(module);
    written.insert(written.end(), columns.begin(), columns.end());
    return written;
}

bool countsInFormulas(const ResolvedModule& module)
{
    return module.manifest != nullptr &&
           std::any_of(module.parameters.begin(), module.parameters.end(),
                       [&](const ResolvedParameter& parameter) {
                           const auto formulas = formulasIn(module, parameter);
                           return std::any_of(formulas.begin(), formulas.end(),
                                              [](const words::Assignment& one) {
                                                  return !one.formula.counters().empty();
                                              });
                       });
}

const ResolvedParameter* findParameter(const ResolvedModule& module, const std::string& name)
{
    const auto found = std::find_if(module.parameters.begin(), module.parameters.end(),
                                    [&](const ResolvedParameter& one) { return one.name == name; });
    return found != module.parameters.end() ? &*found : nullptr;
}

const ParallelSpec& parallelOf(const ResolvedModule& module)
{
    if (module.manifest != nullptr)
        return module.manifest->parallel;
    static const ParallelSpec none;
    return none;
}

std::vector<std::string> gatherWords(const ResolvedModule& module)
{
    if (module.manifest == nullptr)
        return {};
    const ParallelSpec& spec = module.manifest->parallel;
    if (spec.keyParameter.empty())
        return spec.key;
    std::vector<std::string> words;
    const ResolvedParameter* parameter = findParameter(module, spec.keyParameter);
    if (parameter == nullptr)
        return words;
    const auto& besides = module.manifest->find(spec.keyParameter)->besides;
    for (const std::string& text :
         parameter->value.items.value_or(std::vector<std::string>{parameter->value.text}))
    {
        const std::string word = text.starts_with('-') ? text.substr(1) : text;
        if (!word.empty() && std::find(besides.begin(), besides.end(), word) == besides.end())
            words.push_back(word);
    }
    return words;
}

} // namespace host
