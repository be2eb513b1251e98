#include "watch/RecordedModule.h"

#include <algorithm>

namespace host {

namespace {

// Groups in groups: deeper than anybody writes, and no endless recursion on damaged bytes.
constexpr int deepest = 32;

void writeValue(const UniVar& value, int depth, ByteWriter& bytes);

void writeValues(const std::map<std::string, UniVar>& values, int depth, ByteWriter& bytes)
{
    bytes.count(values.size());
    for (const auto& [name, value] : values) {
        bytes.text(name);
        writeValue(value, depth, bytes);
    }
}

template <typename T>
void writeArray(const T* first, int count, ByteWriter& bytes)
{
    const auto size = static_cast<std::size_t>(first != nullptr ? std::max(0, count) : 0);
    bytes.count(size);
    bytes.numbers(first, size, sizeof(T));
}

// A pointer of the host's means nothing elsewhere: it is written as null.
void writeValue(const UniVar& value, int depth, ByteWriter& bytes)
{
    const UniVarType type = depth < deepest ? value.getType() : undefinedType;
    bytes.integer(type);
    switch (type) {
    case strType:
        bytes.text(value.getStrValue());
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
        bytes.byte(value.getLibraryValue() != nullptr ? 1 : 0);
        if (const LibraryEntity* library = value.getLibraryValue()) {
            bytes.text(library->libraryType);
            bytes.text(library->libraryPath);
            writeValues(library->libriParams, depth + 1, bytes);
        }
        break;
    case groupType:
        bytes.byte(value.getGroupValue() != nullptr ? 1 : 0);
        if (const GroupEntity* group = value.getGroupValue()) {
            bytes.count(group->groupParams.size());
            for (const auto& row : group->groupParams)
                writeValues(row, depth + 1, bytes);
        }
        break;
    case int32ArrayType:
        writeArray(value.getI32ArrayValue(), value.getArraySize(), bytes);
        break;
    case int64ArrayType:
        writeArray(value.getI64ArrayValue(), value.getArraySize(), bytes);
        break;
    case float32ArrayType:
        writeArray(value.getF32ArrayValue(), value.getArraySize(), bytes);
        break;
    case float64ArrayType:
        writeArray(value.getF64ArrayValue(), value.getArraySize(), bytes);
        break;
    default:
        break;
    }
}

UniVar readValue(OwnedTables& tables, int depth, ByteReader& bytes);

std::map<std::string, UniVar> readValues(OwnedTables& tables, int depth, ByteReader& bytes)
{
    std::map<std::string, UniVar> values;
    const std::size_t count = bytes.countOf(2);
    for (std::size_t i = 0; i < count; ++i) {
        std::string name(bytes.text());
        values[std::move(name)] = readValue(tables, depth, bytes);
    }
    return values;
}

template <typename T>
UniVar readArray(ByteReader& bytes)
{
    const std::size_t count = bytes.countOf(sizeof(T));
    const std::string values = bytes.numbers(count, sizeof(T));
    std::vector<T> numbers(count + 1); // never without an address
    std::copy(values.begin(), values.end(), reinterpret_cast<char*>(numbers.data()));
    UniVar value;
    value.setValue(numbers.data(), static_cast<int>(count));
    return value;
}

UniVar readLibrary(OwnedTables& tables, int depth, ByteReader& bytes)
{
    LibraryEntity* library = nullptr;
    if (bytes.byte() != 0) {
        const std::string type(bytes.text());
        const std::string path(bytes.text());
        tables.libraries.push_back(std::make_unique<LibraryEntity>(type, path));
        library = tables.libraries.back().get();
        library->libriParams = readValues(tables, depth + 1, bytes);
    }
    UniVar value;
    value.setValue(library);
    return value;
}

UniVar readGroup(OwnedTables& tables, int depth, ByteReader& bytes)
{
    GroupEntity* group = nullptr;
    if (bytes.byte() != 0) {
        tables.groups.push_back(std::make_unique<GroupEntity>());
        group = tables.groups.back().get();
        const std::size_t rows = bytes.countOf(1);
        group->groupParams.reserve(rows);
        for (std::size_t i = 0; i < rows; ++i)
            group->groupParams.push_back(readValues(tables, depth + 1, bytes));
    }
    UniVar value;
    value.setValue(group);
    return value;
}

UniVar readValue(OwnedTables& tables, int depth, ByteReader& bytes)
{
    const int type = bytes.number();
    if (depth > deepest)
        throw RecordError("tables lie too deep in one another");
    UniVar value;
    switch (type) {
    case undefinedType:
        break;
    case strType:
        value.setValue(std::string(bytes.text()));
        break;
    case int32Type:
        value.setValue(bytes.number());
        break;
    case int64Type:
        value.setValue(bytes.integer());
        break;
    case float32Type:
        value.setValue(static_cast<float>(bytes.real()));
        break;
    case float64Type:
        value.setValue(bytes.real());
        break;
    case libraryType:
        return readLibrary(tables, depth, bytes);
    case groupType:
        return readGroup(tables, depth, bytes);
    case pointerType:
        value.setValue(static_cast<void*>(nullptr));
        break;
    case int32ArrayType:
        return readArray<int>(bytes);
    case int64ArrayType:
        return readArray<int64_t>(bytes);
    case float32ArrayType:
        return readArray<float>(bytes);
    case float64ArrayType:
        return readArray<double>(bytes);
    default:
        throw RecordError("a parameter has an unknown type");
    }
    return value;
}

void writeTexts(const std::vector<std::string>& texts, ByteWriter& bytes)
{
    bytes.count(texts.size());
    for (const std::string& text : texts)
        bytes.text(text);
}

std::vector<std::string> readTexts(ByteReader& bytes)
{
    std::vector<std::string> texts(bytes.countOf(1));
    for (std::string& text : texts)
        text = bytes.text();
    return texts;
}

void writeMap(const std::map<std::string, std::string>& values, ByteWriter& bytes)
{
    bytes.count(values.size());
    for (const auto& [name, value] : values) {
        bytes.text(name);
        bytes.text(value);
    }
}

std::map<std::string, std::string> readMap(ByteReader& bytes)
{
    std::map<std::string, std::string> values;
    const std::size_t count = bytes.countOf(2);
    for (std::size_t i = 0; i < count; ++i) {
        std::string name(bytes.text());
        values[std::move(name)] = bytes.text();
    }
    return values;
}

} // namespace

void writeModule(const RecordedModule& module, ByteWriter& bytes)
{
    for (const std::string* text :
         {&module.vornVersion, &module.name, &module.module, &module.library, &module.libraryPath,
          &module.vornHome, &module.job, &module.projectDirectory, &module.scratchDirectory})
        bytes.text(*text);
    bytes.integer(module.scratchTraces);
    bytes.integer(module.inputs);
    bytes.count(module.consumers.size());
    for (const int consumers : module.consumers)
        bytes.integer(consumers);
    bytes.integer(module.limit);
    writeTexts(module.inputFiles, bytes);
    writeTexts(module.outputFiles, bytes);
    writeTexts(module.replacedFiles, bytes);
    bytes.count(module.schema.size());
    for (const RecordedAttribute& attribute : module.schema) {
        bytes.text(attribute.name);
        bytes.text(attribute.description);
        for (const int number :
             {attribute.type, attribute.dimension, attribute.cstSlot, attribute.cstType,
              attribute.bitA, attribute.bitZ, attribute.mapCoefficient})
            bytes.integer(number);
    }
    writeValues(module.parameters, 0, bytes);
    writeValues(module.resources, 0, bytes);
    writeValues(module.options, 0, bytes);
}

RecordedModule readModule(ByteReader& bytes)
{
    RecordedModule module;
    for (std::string* text :
         {&module.vornVersion, &module.name, &module.module, &module.library, &module.libraryPath,
          &module.vornHome, &module.job, &module.projectDirectory, &module.scratchDirectory})
        *text = bytes.text();
    module.scratchTraces = bytes.number();
    module.inputs = bytes.number();
    constexpr int mostChannels = 1 << 16;
    if (module.inputs < 0 || module.inputs > mostChannels)
        throw RecordError("the number of channels is not sensible");
    module.consumers.resize(bytes.countOf(1));
    for (int& consumers : module.consumers)
        consumers = bytes.number();
    module.limit = bytes.integer();
    module.inputFiles = readTexts(bytes);
    module.outputFiles = readTexts(bytes);
    module.replacedFiles = readTexts(bytes);
    const std::size_t attributes = bytes.countOf(9);
    module.schema.reserve(attributes);
    for (std::size_t i = 0; i < attributes; ++i) {
        RecordedAttribute attribute;
        attribute.name = bytes.text();
        attribute.description = bytes.text();
        for (int* number :
             {&attribute.type, &attribute.dimension, &attribute.cstSlot, &attribute.cstType,
              &attribute.bitA, &attribute.bitZ, &attribute.mapCoefficient})
            *number = bytes.number();
        module.schema.push_back(std::move(attribute));
    }
    module.parameters = readValues(module.tables, 0, bytes);
    module.resources = readValues(module.tables, 0, bytes);
    module.options = readValues(module.tables, 0, bytes);
    return module;
}

void writeMetaData(const VisibleMetaData& values, ByteWriter& bytes)
{
    writeMap(values.job, bytes);
    bytes.count(values.upstream.size());
    for (const auto& map : values.upstream)
        writeMap(map, bytes);
}

VisibleMetaData readMetaData(ByteReader& bytes)
{
    VisibleMetaData values;
    values.job = readMap(bytes);
    const std::size_t count = bytes.countOf(1);
    values.upstream.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        values.upstream.push_back(readMap(bytes));
    return values;
}

} // namespace host
