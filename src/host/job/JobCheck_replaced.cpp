// Sources and sinks of the application in the place of modules.
#include "base/Escaping.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "job/JobCheck.h"
#include "job/ModuleWords.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <map>

namespace host {

namespace {

// Diagnostics without a line in the job file.
Place placeOf(const std::string& name, const ReplacedModule& own)
{
    return {(own.isSource ? "source " : "sink ") + quote(name), 0, 0};
}

bool isNumber(int type)
{
    const std::array names = {"int32", "int64", "float32", "float64"};
    return std::any_of(names.begin(), names.end(),
                       [type](const char* name) { return attributeTypeCode(name) == type; });
}

class WordCheck
{
public:
    WordCheck(const ResolvedJob& resolved, Diagnostics& list) : diagnostics(list)
    {
        for (const ResolvedAttribute& attribute : resolved.attributes) {
            defined[attribute.name] = &attribute;
            names.push_back(attribute.name);
        }
        for (const ResolvedModule& module : resolved.modules) {
            isAllKnown = isAllKnown && module.manifest != nullptr;
            const std::vector<std::string> more = wordsWritten(module);
            written.insert(written.end(), more.begin(), more.end());
        }
    }

    void check(const std::string& name, const ReplacedModule& own) const
    {
        for (std::size_t i = 0; i < own.words.size(); ++i) {
            const std::string& word = own.words[i];
            const auto place = own.words.begin() + static_cast<std::ptrdiff_t>(i);
            const std::string problem = std::find(own.words.begin(), place, word) != place
                                            ? "it is named twice"
                                            : problemOf(word, own);
            if (!problem.empty())
                diagnostics.error(placeOf(name, own),
                                  fmt::format("header word {}: {}", quote(word), problem));
        }
    }

private:
    std::string problemOf(const std::string& word, const ReplacedModule& own) const
    {
        const auto known = defined.find(word);
        if (known == defined.end()) {
            // A sink may also ask for what modules define while they run.
            const bool isWritten =
                !isAllKnown || std::find(written.begin(), written.end(), word) != written.end();
            if (!own.isSource && isWritten)
                return "";
            return "the traces of this job have no attribute of that name" +
                   suggestion(word, names, "") +
                   (own.isSource ? "; a job defines further ones in \"schema\"" : "");
        }
        const ResolvedAttribute& attribute = *known->second;
        if (!isNumber(attribute.type) || attribute.dimension != 1)
            return fmt::format("it is {} in this job; numbers alone are exchanged",
                               attribute.dimension != 1 ? "an array" : "a text");
        return own.problemOfWord ? own.problemOfWord(attribute) : "";
    }

    Diagnostics& diagnostics;
    std::map<std::string, const ResolvedAttribute*> defined;
    std::vector<std::string> names;   // of `defined`
    std::vector<std::string> written; // by modules
    bool isAllKnown = true;
};

} // namespace

void checkReplaced(const JobFile& job, const ResolvedJob& resolved, Diagnostics& diagnostics)
{
    if (job.replaced.empty())
        return;
    const WordCheck words(resolved, diagnostics);
    std::map<const void*, std::string> storages;
    for (const auto& [name, own] : job.replaced) {
        const Place place = placeOf(name, *own);
        if (job.find(name) == nullptr) {
            diagnostics.error(place, "the job has no module " + quote(name) +
                                         suggestion(name, job.moduleNames(), "it has"));
            continue;
        }
        for (const std::string& problem : own->problems)
            diagnostics.error(place, problem);
        words.check(name, *own);
        if (own->storage == nullptr)
            continue;
        const auto [other, isFirst] = storages.insert({own->storage, name});
        if (!isFirst)
            diagnostics.error(place, fmt::format("its collection is that of the sink {}, too; give "
                                                 "each sink one of its own",
                                                 quote(other->second)));
    }
}

} // namespace host
