#include "watch/CallCoding.h"

#include "DataChannel.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"
#include "base/Escaping.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <string>

namespace host {

namespace {

using watched::Argument;
using watched::Call;
using watched::Numbers;
using Kind = CallValue::Kind;

constexpr std::size_t longestText = 60; // of a value in a message
constexpr uint64_t fewNumbers = 4;

std::size_t widthOf(Numbers::Type type)
{
    return type == Numbers::Type::int64 || type == Numbers::Type::float64 ? 8 : 4;
}

Numbers::Type typeOf(int number)
{
    if (number < 0 || number > static_cast<int>(Numbers::Type::float64))
        throw RecordError("numbers have an unknown type");
    return static_cast<Numbers::Type>(number);
}

// The trace set at `address` among `sets`, or -1. Handles are SeisTraceSet, channels are derived
// from it.
template <typename Set>
int placeOf(const std::vector<Set*>& sets, const void* address)
{
    for (std::size_t i = 0; i < sets.size(); ++i) {
        if (static_cast<const SeisTraceSet*>(sets[i]) == address)
            return static_cast<int>(i);
    }
    return -1;
}

template <typename T>
T numberAt(const char* bytes, uint64_t index)
{
    T value;
    std::memcpy(&value, bytes + index * sizeof value, sizeof value);
    return value;
}

template <typename T>
std::string textOf(T number)
{
    if constexpr (std::is_floating_point_v<T>)
        return fmt::format("{:.9g}", number);
    else
        return fmt::format("{}", number);
}

std::string textAt(Numbers::Type type, const char* bytes, uint64_t index)
{
    switch (type) {
    case Numbers::Type::int32:
        return textOf(numberAt<int32_t>(bytes, index));
    case Numbers::Type::int64:
        return textOf(numberAt<int64_t>(bytes, index));
    case Numbers::Type::float32:
        return textOf(numberAt<float>(bytes, index));
    case Numbers::Type::float64:
        break;
    }
    return textOf(numberAt<double>(bytes, index));
}

template <typename T>
std::optional<NumberDifference> compare(const char* recorded, const char* now, uint64_t count,
                                        double tolerance)
{
    double allowed = 0;
    if (tolerance > 0) {
        for (uint64_t i = 0; i < count; ++i) {
            const double size = std::fabs(static_cast<double>(numberAt<T>(recorded, i)));
            if (size > allowed && size <= std::numeric_limits<double>::max())
                allowed = size;
        }
        allowed *= tolerance;
    }
    NumberDifference found;
    for (uint64_t i = 0; i < count; ++i) {
        if (std::memcmp(recorded + i * sizeof(T), now + i * sizeof(T), sizeof(T)) == 0)
            continue;
        const auto one = static_cast<double>(numberAt<T>(recorded, i));
        const auto other = static_cast<double>(numberAt<T>(now, i));
        if (std::isnan(one) && std::isnan(other))
            continue;
        const double difference = std::fabs(one - other);
        if (tolerance > 0 && difference <= allowed)
            continue;
        if (found.differing++ == 0) {
            found.index = i;
            found.recorded = textOf(numberAt<T>(recorded, i));
            found.now = textOf(numberAt<T>(now, i));
        }
        if (std::isnan(difference) || difference > found.largest)
            found.largest = std::isnan(found.largest) ? found.largest : difference;
    }
    return found.differing == 0 ? std::nullopt : std::optional(found);
}

std::string shortened(const std::string& text)
{
    return text.size() <= longestText
               ? quote(text)
               : quote(text.substr(0, utf8Prefix(text.substr(0, longestText)))) + "...";
}

CallValue readUniVar(ByteReader& bytes)
{
    CallValue value;
    value.kind = Kind::value;
    value.uniType = bytes.number();
    switch (value.uniType) {
    case strType:
        value.bytes = bytes.text();
        break;
    case int32Type:
    case int64Type:
        value.integer = bytes.integer();
        break;
    case float32Type:
    case float64Type:
        value.real = bytes.real();
        break;
    case libraryType:
    case groupType:
        value.identity.kind = static_cast<Identity::Kind>(bytes.number());
        value.identity.number = bytes.count();
        break;
    case pointerType:
        value.isNull = bytes.byte() == 0;
        value.integer = bytes.integer();
        break;
    case int32ArrayType:
    case int64ArrayType:
    case float32ArrayType:
    case float64ArrayType:
        value.type = typeOf(value.uniType - int32ArrayType);
        value.count = bytes.count();
        value.bytes = bytes.numbers(value.count, widthOf(value.type));
        break;
    default:
        break;
    }
    return value;
}

std::string arrayText(const CallValue& value, const char* what)
{
    if (value.isNull)
        return "a null address";
    if (value.kind == Kind::unread || value.count > fewNumbers)
        return fmt::format("{} {}", value.count, what);
    std::string text = "[";
    for (uint64_t i = 0; i < value.count; ++i)
        text += (i > 0 ? ", " : "") + textAt(value.type, value.bytes.data(), i);
    return text + "]";
}

std::string identityText(const Identity& identity)
{
    switch (identity.kind) {
    case Identity::Kind::null:
        return "a null handle";
    case Identity::Kind::input:
        return fmt::format("input {}", identity.number);
    case Identity::Kind::output:
        return fmt::format("output {}", identity.number);
    case Identity::Kind::work:
        return fmt::format("work buffer {}", identity.number);
    case Identity::Kind::other:
        break;
    }
    return fmt::format("handle {}", identity.number);
}

std::string uniVarText(const CallValue& value)
{
    switch (value.uniType) {
    case undefinedType:
        return "an empty value";
    case strType:
        return shortened(value.bytes);
    case int32Type:
    case int64Type:
        return textOf(value.integer);
    case float32Type:
    case float64Type:
        return textOf(value.real);
    case libraryType:
    case groupType:
        return identityText(value.identity);
    case pointerType:
        return value.isNull ? "a null address" : "an address";
    default:
        return arrayText(value, "numbers");
    }
}

} // namespace

std::string CallValue::text() const
{
    switch (kind) {
    case Kind::none:
        return "nothing";
    case Kind::identity:
        return identityText(identity);
    case Kind::integer:
        return textOf(integer);
    case Kind::real:
        return textOf(real);
    case Kind::text:
        return isNull ? "a null address" : shortened(bytes);
    case Kind::numbers:
    case Kind::unread:
        return arrayText(*this, "numbers");
    case Kind::names:
        return isNull ? "a null address" : fmt::format("{} names", names.size());
    case Kind::value:
        break;
    }
    return uniVarText(*this);
}

std::vector<CallValue> readValues(std::string_view all)
{
    ByteReader bytes(all);
    std::vector<CallValue> values;
    while (!bytes.atEnd()) {
        CallValue value;
        value.kind = static_cast<Kind>(bytes.byte());
        switch (value.kind) {
        case Kind::none:
            break;
        case Kind::identity:
            value.identity.kind = static_cast<Identity::Kind>(bytes.number());
            value.identity.number = bytes.count();
            break;
        case Kind::integer:
            value.integer = bytes.integer();
            break;
        case Kind::real:
            value.real = bytes.real();
            break;
        case Kind::text:
            value.isNull = bytes.byte() == 0;
            value.bytes = bytes.text();
            break;
        case Kind::numbers:
            value.isNull = bytes.byte() == 0;
            value.type = typeOf(bytes.number());
            value.count = bytes.count();
            value.bytes = bytes.numbers(value.count, widthOf(value.type));
            break;
        case Kind::unread:
            value.isNull = bytes.byte() == 0;
            value.count = bytes.count();
            break;
        case Kind::names: {
            value.isNull = bytes.byte() == 0;
            const std::size_t count = bytes.countOf(1);
            value.names.reserve(count);
            for (std::size_t i = 0; i < count; ++i)
                value.names.emplace_back(bytes.text());
            break;
        }
        case Kind::value:
            value = readUniVar(bytes);
            break;
        default:
            throw RecordError("a value has an unknown kind");
        }
        values.push_back(std::move(value));
    }
    return values;
}

std::optional<NumberDifference> compareNumbers(Numbers::Type type, const char* recorded,
                                               const char* now, uint64_t count, double tolerance)
{
    switch (type) {
    case Numbers::Type::int32:
        return compare<int32_t>(recorded, now, count, 0);
    case Numbers::Type::int64:
        return compare<int64_t>(recorded, now, count, 0);
    case Numbers::Type::float32:
        return compare<float>(recorded, now, count, tolerance);
    case Numbers::Type::float64:
        break;
    }
    return compare<double>(recorded, now, count, tolerance);
}

std::string describeDifference(const CallValue& recorded, const CallValue& now, double tolerance)
{
    std::string values = fmt::format("recorded {}, now {}", recorded.text(), now.text());
    if (recorded.kind != now.kind || recorded.isNull != now.isNull ||
        recorded.uniType != now.uniType || recorded.identity != now.identity ||
        recorded.integer != now.integer || recorded.count != now.count || recorded.type != now.type)
        return values;
    if (recorded.names != now.names) {
        for (std::size_t i = 0; i < std::min(recorded.names.size(), now.names.size()); ++i) {
            if (recorded.names[i] != now.names[i])
                return fmt::format("name {}: recorded {}, now {}", i, quote(recorded.names[i]),
                                   quote(now.names[i]));
        }
        return values;
    }
    if (std::bit_cast<uint64_t>(recorded.real) != std::bit_cast<uint64_t>(now.real) &&
        !(std::isnan(recorded.real) && std::isnan(now.real)) &&
        !(tolerance > 0 &&
          std::fabs(recorded.real - now.real) <= tolerance * std::fabs(recorded.real)))
        return values;
    const bool isText = recorded.kind == Kind::text ||
                        (recorded.kind == Kind::value && recorded.uniType == strType);
    if (isText || recorded.bytes == now.bytes)
        return recorded.bytes == now.bytes ? "" : values;
    const auto difference = compareNumbers(recorded.type, recorded.bytes.data(), now.bytes.data(),
                                           recorded.count, tolerance);
    if (!difference)
        return "";
    return fmt::format("number {} of {}: recorded {}, now {}; {} differ, by {:.6g} at most",
                       difference->index, recorded.count, difference->recorded, difference->now,
                       difference->differing, difference->largest);
}

CallCoder::Rule CallCoder::ruleOf(const char* function)
{
    const auto [known, isNew] = rules.try_emplace(function, Rule::none);
    if (!isNew)
        return known->second;
    static const std::unordered_map<std::string_view, Rule> all = {
        {"getCurrentDate", Rule::clock},
        {"getScratchDir", Rule::directory},
        {"storeExternalMetaDataFor", Rule::fileAside},
        {"lockDataFile", Rule::fileAside},
        {"unlockDataFile", Rule::fileAside},
        {"fileOpen", Rule::descriptor},
        {"fileCreate", Rule::descriptor},
        {"fileClose", Rule::noArguments},
        {"createPad", Rule::makesPad},
        {"addTraceToPad", Rule::drawsOnPad},
        {"addPlotToPad", Rule::drawsOnPad},
        {"addNumberToPad", Rule::drawsOnPad},
        {"addSymbolToPad", Rule::drawsOnPad},
        {"addFactorToPad", Rule::drawsOnPad},
        {"addNewPenToPad", Rule::drawsOnPad},
        {"bldAttributeList", Rule::makesObject},
        {"allocateResource", Rule::makesObject},
        {"freeAttributeList", Rule::freesObject},
        {"freeResource", Rule::freesObject},
        {"setModuleStructResource", Rule::copiesBytes},
        {"getTraceSamples", Rule::givesSamples},
        {"getTraceAttributes", Rule::readsAttributes},
    };
    if (const auto rule = all.find(function); rule != all.end())
        known->second = rule->second;
    return known->second;
}

Identity CallCoder::identityOf(const void* address)
{
    using Kinds = Identity::Kind;
    if (address == nullptr)
        return {};
    if (const int place = placeOf(module.inputDataChannels, address); place >= 0)
        return {Kinds::input, static_cast<uint64_t>(place)};
    if (const int place = placeOf(module.outputDataChannels, address); place >= 0)
        return {Kinds::output, static_cast<uint64_t>(place)};
    if (const int place = placeOf(module.workTraceSets, address); place >= 0)
        return {Kinds::work, static_cast<uint64_t>(place)};
    const auto [known, isNew] = objects.try_emplace(address, objectsSeen);
    objectsSeen += isNew ? 1 : 0;
    return {Kinds::other, known->second};
}

void CallCoder::writeIdentity(const Identity& identity, ByteWriter& bytes)
{
    bytes.integer(static_cast<int>(identity.kind));
    bytes.count(identity.number);
}

void CallCoder::writePad(int64_t pad, ByteWriter& bytes)
{
    bytes.byte(static_cast<int>(Kind::integer));
    const auto known = pads.find(pad);
    bytes.integer(known != pads.end() ? known->second : -1);
}

void CallCoder::replaceInTexts(const std::string& now, const std::string& recorded)
{
    replacements.emplace_back(now, recorded);
}

void CallCoder::writeText(std::string_view text, ByteWriter& bytes)
{
    // The modules that read and write files tell each other of them by what identifies a file on
    // this machine, until it is written again.
    for (const std::string_view mark : {"segy.reads.", "segy.writes."}) {
        if (text.starts_with(mark) && text.size() > mark.size() && text[mark.size()] != '/')
            text = mark;
    }
    std::string replaced;
    for (const auto& [now, recorded] : replacements) {
        // A short path is also a piece of other texts.
        constexpr std::size_t fewest = 4;
        auto at = text.find(now);
        if (at == std::string_view::npos || (now.size() < fewest && now != text))
            continue;
        std::string result;
        for (std::size_t from = 0;; at = text.find(now, from)) {
            result.append(text.substr(from, at - from));
            if (at == std::string_view::npos)
                break;
            result += recorded;
            from = at + now.size();
        }
        replaced = std::move(result);
        text = replaced;
    }
    bytes.text(text);
}

void CallCoder::write(const UniVar& value, ByteWriter& bytes)
{
    bytes.byte(static_cast<int>(Kind::value));
    bytes.integer(value.getType());
    const auto array = [&bytes, &value](const void* first, std::size_t width) {
        const auto count =
            static_cast<std::size_t>(first != nullptr ? std::max(0, value.getArraySize()) : 0);
        bytes.count(count);
        bytes.numbers(first, count, width);
    };
    switch (value.getType()) {
    case strType:
        writeText(value.getStrValue(), bytes);
        break;
    case int32Type:
    case int64Type:
        bytes.integer(value.getI64Value());
        break;
    case float32Type:
    case float64Type:
        bytes.real(value.getF64Value());
        break;
    case libraryType:
        writeIdentity(identityOf(value.getLibraryValue()), bytes);
        break;
    case groupType:
        writeIdentity(identityOf(value.getGroupValue()), bytes);
        break;
    case pointerType:
        // Memory of the module's own: at which address it lies is chance.
        bytes.byte(value.getPointerValue() != nullptr ? 1 : 0);
        bytes.integer(value.getArraySize());
        break;
    case int32ArrayType:
        array(value.getI32ArrayValue(), 4);
        break;
    case int64ArrayType:
        array(value.getI64ArrayValue(), 8);
        break;
    case float32ArrayType:
        array(value.getF32ArrayValue(), 4);
        break;
    case float64ArrayType:
        array(value.getF64ArrayValue(), 8);
        break;
    default:
        break;
    }
}

void CallCoder::write(const Numbers& numbers, ByteWriter& bytes)
{
    const auto count = static_cast<std::size_t>(
        numbers.first != nullptr ? std::max<int64_t>(0, numbers.count) : 0);
    bytes.byte(static_cast<int>(Kind::numbers));
    bytes.byte(numbers.first != nullptr ? 1 : 0);
    bytes.integer(static_cast<int>(numbers.type));
    bytes.count(count);
    bytes.numbers(numbers.first, count, widthOf(numbers.type));
}

void CallCoder::write(const Argument& argument, ByteWriter& bytes)
{
    if (const auto* handle = std::get_if<watched::Handle>(&argument.value)) {
        bytes.byte(static_cast<int>(Kind::identity));
        writeIdentity(identityOf(handle->address), bytes);
    } else if (const auto* integer = std::get_if<int64_t>(&argument.value)) {
        bytes.byte(static_cast<int>(Kind::integer));
        bytes.integer(*integer);
    } else if (const auto* real = std::get_if<double>(&argument.value)) {
        bytes.byte(static_cast<int>(Kind::real));
        bytes.real(*real);
    } else if (const auto* text = std::get_if<watched::Text>(&argument.value)) {
        bytes.byte(static_cast<int>(Kind::text));
        bytes.byte(text->first != nullptr ? 1 : 0);
        writeText({text->first != nullptr ? text->first : "", text->size}, bytes);
    } else if (const auto* value = std::get_if<const UniVar*>(&argument.value)) {
        write(**value, bytes);
    } else if (const auto* numbers = std::get_if<Numbers>(&argument.value)) {
        write(*numbers, bytes);
    } else if (const auto* names = std::get_if<watched::Names>(&argument.value)) {
        bytes.byte(static_cast<int>(Kind::names));
        bytes.byte(names->first != nullptr ? 1 : 0);
        const auto count =
            static_cast<std::size_t>(names->first != nullptr ? std::max(0, names->count) : 0);
        bytes.count(count);
        for (std::size_t i = 0; i < count; ++i)
            bytes.text(names->first[i] != nullptr ? names->first[i] : "");
    } else {
        bytes.byte(static_cast<int>(Kind::none));
    }
}

void CallCoder::called(const Call& call, ByteWriter& bytes)
{
    const Rule rule = ruleOf(call.function);
    if (rule == Rule::noArguments)
        return;
    bool isFirst = true;
    for (const Argument& argument : call.arguments) {
        const auto* numbers = std::get_if<Numbers>(&argument.value);
        const auto* integer = std::get_if<int64_t>(&argument.value);
        const auto* handle = std::get_if<watched::Handle>(&argument.value);
        if (rule == Rule::copiesBytes && handle != nullptr) {
            bytes.byte(static_cast<int>(Kind::integer));
            bytes.integer(handle->address != nullptr ? 1 : 0);
        } else if (isFirst && rule == Rule::drawsOnPad && integer != nullptr) {
            writePad(*integer, bytes);
        } else if (numbers != nullptr && numbers->isOutput) {
            bytes.byte(static_cast<int>(Kind::unread));
            bytes.byte(numbers->first != nullptr ? 1 : 0);
            bytes.count(static_cast<uint64_t>(std::max<int64_t>(0, numbers->count)));
        } else {
            write(argument, bytes);
        }
        isFirst = false;
    }
}

// The values of attributes that the set does not have are whatever the module's memory held.
void CallCoder::writeAttributes(const Call& call, const Numbers& numbers, const Argument& result,
                                ByteWriter& bytes)
{
    const auto* list = std::get_if<watched::Handle>(&call.arguments[0].value);
    const auto* set = std::get_if<watched::Handle>(&call.arguments[1].value);
    const auto* read = std::get_if<int64_t>(&result.value);
    if (list == nullptr || set == nullptr || read == nullptr || numbers.first == nullptr ||
        *read == numbers.count)
    {
        write(numbers, bytes);
        return;
    }
    auto* const listHandle = const_cast<void*>(list->address);
    std::vector<int> types(static_cast<std::size_t>(getAttributeListSize(listHandle)), 0);
    if (*read > 0)
        getAttributeListPresence(listHandle, const_cast<void*>(set->address), types.data());
    const std::size_t width = widthOf(numbers.type);
    std::string known(static_cast<const char*>(numbers.first),
                      static_cast<std::size_t>(numbers.count) * width);
    for (std::size_t i = 0; i < static_cast<std::size_t>(numbers.count); ++i) {
        if (types[i] == 0)
            std::fill_n(known.begin() + static_cast<std::ptrdiff_t>(i * width), width, '\0');
    }
    Numbers cleared = numbers;
    cleared.first = known.data();
    write(cleared, bytes);
}

void CallCoder::returned(const Call& call, const Argument& result, ByteWriter& bytes)
{
    const Rule rule = ruleOf(call.function);
    for (const Argument& argument : call.arguments) {
        const auto* numbers = std::get_if<Numbers>(&argument.value);
        if (numbers == nullptr || !numbers->isOutput)
            continue;
        if (rule == Rule::readsAttributes)
            writeAttributes(call, *numbers, result, bytes);
        else
            write(*numbers, bytes);
    }
    const auto* integer = std::get_if<int64_t>(&result.value);
    const auto* handle = std::get_if<watched::Handle>(&result.value);
    const auto* numbers = std::get_if<Numbers>(&result.value);
    if (rule == Rule::freesObject) {
        if (const auto* freed = std::get_if<watched::Handle>(&call.arguments[0].value))
            objects.erase(freed->address);
    } else if (rule == Rule::makesObject && handle != nullptr) {
        objects.erase(handle->address);
    } else if (rule == Rule::makesPad && integer != nullptr && *integer >= 0) {
        pads.try_emplace(*integer, static_cast<int64_t>(pads.size()));
    }

    if (rule == Rule::clock || rule == Rule::directory || rule == Rule::fileAside) {
        bytes.byte(static_cast<int>(Kind::none));
    } else if (rule == Rule::descriptor && integer != nullptr) {
        write(Argument(*integer < 0 ? -1 : 0), bytes);
    } else if (rule == Rule::makesPad && integer != nullptr) {
        writePad(*integer, bytes);
    } else if (rule == Rule::givesSamples && numbers != nullptr) {
        bytes.byte(static_cast<int>(Kind::unread));
        bytes.byte(numbers->first != nullptr ? 1 : 0);
        bytes.count(static_cast<uint64_t>(std::max<int64_t>(0, numbers->count)));
    } else {
        write(result, bytes);
    }
}

} // namespace host
