// The value area holds one of three things: a number, an address, or up to 16 characters. What an
// owned block contains is known from the tag alone, so the functions here that manage blocks treat
// them as bytes, and only setters, getters and the stream operators know element types.
#include "UniVar.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <istream>
#include <limits>
#include <locale.h>
#include <locale>
#include <malloc.h>
#include <new>
#include <ostream>
#include <sstream>
#include <string_view>
#include <utility>

static_assert(sizeof(UniVar) == 24, "hosts and modules see this layout");

namespace {

constexpr int inlineTextSize = sizeof(UniVar::strValue);

bool isArray(UniVarType type)
{
    return type >= int32ArrayType && type <= float64ArrayType;
}

// Texts of 16 stored bytes lie in the value when they were set, and in a block when they were read
// from a stream. The last byte tells them apart: it is the NUL of an inline text of that size, and
// never 0 in the complement of an address, which stands behind the address of a block.
uintptr_t wordAt(const UniVar& value, size_t offset)
{
    uintptr_t word;
    std::memcpy(&word, value.strValue + offset, sizeof word);
    return word;
}

bool isMarkedAsBlock(const UniVar& value)
{
    return value.strValue[inlineTextSize - 1] != '\0' &&
           wordAt(value, sizeof(uintptr_t)) == ~wordAt(value, 0);
}

bool isOutOfLineText(const UniVar& value)
{
    return value.varType == strType &&
           (value.varArraySize > inlineTextSize ||
            (value.varArraySize == inlineTextSize && isMarkedAsBlock(value)));
}

bool ownsBlock(const UniVar& value)
{
    return isArray(value.varType) || isOutOfLineText(value);
}

bool isReference(UniVarType type)
{
    return type == libraryType || type == groupType || type == pointerType;
}

bool isSizeMeaningful(UniVarType type)
{
    return type == strType || type == pointerType || isArray(type);
}

// The address in the value area, whichever pointer member is in use.
char* addressOf(const UniVar& value)
{
    char* address;
    std::memcpy(&address, value.strValue, sizeof address);
    return address;
}

void setAddress(UniVar& value, const void* address)
{
    std::memcpy(value.strValue, &address, sizeof address);
}

// The same for the block of a text.
void setTextBlock(UniVar& value, const char* block)
{
    setAddress(value, block);
    const uintptr_t mark = ~reinterpret_cast<uintptr_t>(block);
    std::memcpy(value.strValue + sizeof block, &mark, sizeof mark);
}

char* newBlock(size_t bytes)
{
    return static_cast<char*>(::operator new[](bytes));
}

// A new block with the bytes of `source`, or with zeros when there is none.
char* newCopy(const void* source, size_t bytes)
{
    char* block = newBlock(bytes);
    if (source == nullptr)
        std::memset(block, 0, bytes);
    else
        std::memcpy(block, source, bytes);
    return block;
}

void releaseBlock(const UniVar& value)
{
    if (ownsBlock(value))
        ::operator delete[](addressOf(value));
}

size_t blockBytes(const UniVar& value)
{
    const size_t count = static_cast<size_t>(std::max(value.varArraySize, 0));
    switch (value.varType) {
    case int32ArrayType:
    case float32ArrayType:
        return count * 4;
    case int64ArrayType:
    case float64ArrayType:
        return count * 8;
    default:
        return count;
    }
}

// All stored bytes of a text, its NUL included.
std::string_view storedText(const UniVar& value)
{
    if (value.varArraySize <= 0)
        return {};
    const size_t size = static_cast<size_t>(value.varArraySize);
    if (!isOutOfLineText(value))
        return {value.strValue, size};
    const char* block = addressOf(value);
    return block == nullptr ? std::string_view() : std::string_view(block, size);
}

// Makes an undefined `value` a text of these bytes, inline up to `largestInline` of them.
void storeText(UniVar& value, std::string_view bytes, size_t largestInline)
{
    if (bytes.size() > largestInline)
        setTextBlock(value, newCopy(bytes.data(), bytes.size()));
    else
        std::memcpy(value.strValue, bytes.data(), bytes.size());
    value.varType = strType;
    value.varArraySize = static_cast<int>(bytes.size());
}

template <typename T>
void storeArray(UniVar& value, UniVarType type, const T* elements, int count)
{
    const int stored = std::max(count, 0);
    // Before the old block goes: the elements may lie in it.
    const char* block = newCopy(elements, static_cast<size_t>(stored) * sizeof(T));
    value.clear();
    value.varType = type;
    value.varArraySize = stored;
    setAddress(value, block);
}

// Makes an undefined `target` what a copy of `source` would be, and leaves `source` undefined.
void takeOver(UniVar& target, UniVar& source)
{
    target.varType = source.varType;
    if (isSizeMeaningful(source.varType))
        target.varArraySize = source.varArraySize;
    std::memcpy(target.strValue, source.strValue, sizeof target.strValue);
    source.varType = undefinedType;
    source.varArraySize = 0;
}

// The text that the numeric getters scan: deliberate, only the inline area is ever converted. A
// text that was read from a stream may lack its NUL, so this one brings its own.
class InlineText
{
public:
    explicit InlineText(const UniVar& value)
    {
        if (!isOutOfLineText(value)) {
            const std::string_view text = storedText(value);
            text.copy(characters, text.size());
        }
    }
    const char* get() const { return characters; }

private:
    char characters[inlineTextSize + 1] = {};
};

// Conversion toward zero for every input: the language defines it for fitting numbers only.
template <typename Integer>
Integer truncated(double number)
{
    // The largest 64-bit integer is not a double; the power of two above it is.
    constexpr double beyond =
        2.0 * static_cast<double>(Integer{1} << (std::numeric_limits<Integer>::digits - 1));
    if (std::isnan(number))
        return 0;
    if (number >= beyond)
        return std::numeric_limits<Integer>::max();
    if (number < -beyond)
        return std::numeric_limits<Integer>::min();
    return static_cast<Integer>(number);
}

// While one of these lives, this thread's C functions read numbers with a decimal point, whatever
// the host has made of the process's locale.
class ClassicNumbers
{
public:
    ClassicNumbers() : previous(uselocale(classic())) {}
    ~ClassicNumbers() { uselocale(previous); }
    ClassicNumbers(const ClassicNumbers&) = delete;
    ClassicNumbers& operator=(const ClassicNumbers&) = delete;

private:
    // Made once and kept: creating a locale costs more than all that is done in it.
    static locale_t classic()
    {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }

    locale_t previous;
};

std::string fixed2string(double value, int decimals)
{
    // Sign, the digits of the largest double, point, decimals.
    char buffer[1 + std::numeric_limits<double>::max_exponent10 + 1 + 1 + 12];
    const auto result = std::to_chars(std::begin(buffer), std::end(buffer), value,
                                      std::chars_format::fixed, decimals);
    return std::string(buffer, result.ptr);
}

template <typename T>
std::string array2string(const T* elements, int count, std::string (*toString)(T))
{
    std::string text = "[";
    for (int i = 0; elements != nullptr && i < count; ++i) {
        if (i > 0)
            text += ',';
        text += toString(elements[i]);
    }
    return text + "]";
}

// Up to `size` bytes, in pieces: a size that the stream only claims must cost no memory.
std::string readBytes(std::istream& stream, int size)
{
    constexpr size_t pieceSize = 65536;
    std::string bytes;
    size_t left = static_cast<size_t>(std::max(size, 0));
    while (left > 0) {
        const size_t piece = std::min(left, pieceSize);
        const size_t start = bytes.size();
        bytes.resize(start + piece);
        stream.read(bytes.data() + start, static_cast<std::streamsize>(piece));
        bytes.resize(start + static_cast<size_t>(stream.gcount()));
        if (!stream)
            break;
        left -= piece;
    }
    return bytes;
}

// 0 when there is no number, then and later: a failed stream stays failed.
template <typename T>
T readNumber(std::istream& stream)
{
    T number = 0;
    stream >> number;
    return number;
}

// Deliberate: a text of exactly 16 bytes goes into a block here, and stays inline elsewhere.
// Programs that look at the fields of what they have read depend on it.
void readText(std::istream& stream, UniVar& value)
{
    storeText(value, readBytes(stream, readNumber<int>(stream)), inlineTextSize - 1);
}

// Elements go into the block at hand. Its allocation is the one thing that tells how many it can
// take: a block assigned by hand has no count, and an earlier reading may have lowered it.
template <typename T>
void readArray(std::istream& stream, UniVar& value)
{
    char* block = addressOf(value);
    const size_t capacity = block == nullptr ? 0 : malloc_usable_size(block) / sizeof(T);
    size_t held = 0;
    value.varArraySize = 0; // the old count may be one of narrower elements
    const int claimed = readNumber<int>(stream);
    for (int i = 0; i < claimed; ++i) {
        const T element = readNumber<T>(stream);
        if (!stream)
            break;
        if (held < capacity) {
            std::memcpy(block + held * sizeof(T), &element, sizeof(T));
            value.varArraySize = static_cast<int>(++held);
        }
    }
}

template <typename T>
void writeArray(std::ostream& stream, const T* elements, int count)
{
    stream << count;
    for (int i = 0; elements != nullptr && i < count; ++i)
        stream << elements[i];
}

} // namespace

// --- Construction and destruction ----------------------------------------------------------------

UniVar::UniVar() noexcept : UniVar(undefinedType) {}

UniVar::UniVar(UniVarType type) noexcept : varType(type), varArraySize(0), strValue{} {}

UniVar::UniVar(int value) noexcept : UniVar()
{
    setValue(value);
}

UniVar::UniVar(int64_t value) noexcept : UniVar()
{
    setValue(value);
}

UniVar::UniVar(float value) noexcept : UniVar()
{
    setValue(value);
}

UniVar::UniVar(double value) noexcept : UniVar()
{
    setValue(value);
}

UniVar::UniVar(const std::string& text) : UniVar()
{
    setValue(text);
}

UniVar::UniVar(void* address) noexcept : UniVar()
{
    setValue(address);
}

UniVar::UniVar(LibraryEntity* library) noexcept : UniVar()
{
    setValue(library);
}

UniVar::UniVar(GroupEntity* group) noexcept : UniVar()
{
    setValue(group);
}

UniVar::UniVar(const int* elements, int count) : UniVar()
{
    setValue(elements, count);
}

UniVar::UniVar(const int64_t* elements, int count) : UniVar()
{
    setValue(elements, count);
}

UniVar::UniVar(const float* elements, int count) : UniVar()
{
    setValue(elements, count);
}

UniVar::UniVar(const double* elements, int count) : UniVar()
{
    setValue(elements, count);
}

UniVar::UniVar(void* address, int byteCount) noexcept : UniVar()
{
    setValue(address, byteCount);
}

UniVar::UniVar(const UniVar& other) : UniVar(other.varType)
{
    if (isSizeMeaningful(varType))
        varArraySize = other.varArraySize;
    if (isOutOfLineText(other))
        setTextBlock(*this, newCopy(addressOf(other), blockBytes(other)));
    else if (ownsBlock(other))
        setAddress(*this, newCopy(addressOf(other), blockBytes(other)));
    else
        std::memcpy(strValue, other.strValue, sizeof strValue);
}

UniVar::UniVar(UniVar&& other) noexcept : UniVar()
{
    takeOver(*this, other);
}

UniVar::~UniVar()
{
    releaseBlock(*this);
}

// --- Setters and assignment ----------------------------------------------------------------------

void UniVar::setValue(int value) noexcept
{
    clear();
    varType = int32Type;
    int32Value = value;
}

void UniVar::setValue(int64_t value) noexcept
{
    clear();
    varType = int64Type;
    int64Value = value;
}

void UniVar::setValue(float value) noexcept
{
    clear();
    varType = float32Type;
    float32Value = value;
}

void UniVar::setValue(double value) noexcept
{
    clear();
    varType = float64Type;
    float64Value = value;
}

void UniVar::setValue(const std::string& text)
{
    constexpr size_t longest = std::numeric_limits<int>::max() - 1;
    clear();
    if (text.size() <= longest)
        storeText(*this, std::string_view(text.c_str(), text.size() + 1), inlineTextSize);
    else
        setValue(text.substr(0, longest));
}

void UniVar::setValue(void* address) noexcept
{
    setValue(address, 0);
}

void UniVar::setValue(LibraryEntity* library) noexcept
{
    clear();
    varType = libraryType;
    libraryValue = library;
}

void UniVar::setValue(GroupEntity* group) noexcept
{
    clear();
    varType = groupType;
    groupValue = group;
}

void UniVar::setValue(const int* elements, int count)
{
    storeArray(*this, int32ArrayType, elements, count);
}

void UniVar::setValue(const int64_t* elements, int count)
{
    storeArray(*this, int64ArrayType, elements, count);
}

void UniVar::setValue(const float* elements, int count)
{
    storeArray(*this, float32ArrayType, elements, count);
}

void UniVar::setValue(const double* elements, int count)
{
    storeArray(*this, float64ArrayType, elements, count);
}

void UniVar::setValue(void* address, int byteCount) noexcept
{
    clear();
    varType = pointerType;
    varArraySize = byteCount;
    pointerValue = address;
}

UniVar& UniVar::operator=(int value) noexcept
{
    setValue(value);
    return *this;
}

UniVar& UniVar::operator=(int64_t value) noexcept
{
    setValue(value);
    return *this;
}

UniVar& UniVar::operator=(float value) noexcept
{
    setValue(value);
    return *this;
}

UniVar& UniVar::operator=(double value) noexcept
{
    setValue(value);
    return *this;
}

UniVar& UniVar::operator=(const std::string& text)
{
    setValue(text);
    return *this;
}

UniVar& UniVar::operator=(void* address) noexcept
{
    setValue(address);
    return *this;
}

UniVar& UniVar::operator=(LibraryEntity* library) noexcept
{
    setValue(library);
    return *this;
}

UniVar& UniVar::operator=(GroupEntity* group) noexcept
{
    setValue(group);
    return *this;
}

UniVar& UniVar::operator=(UniVar other) noexcept
{
    clear();
    takeOver(*this, other);
    return *this;
}

void UniVar::clear() noexcept
{
    releaseBlock(*this);
    setAddress(*this, nullptr);
    // deliberate: a pointer's byte count survives, as what is in the field of a number does.
    if (varType == strType || isArray(varType))
        varArraySize = 0;
    varType = undefinedType;
}

// --- Getters -------------------------------------------------------------------------------------

int UniVar::getI32Value() const
{
    switch (varType) {
    case strType:
        return string2int(InlineText(*this).get());
    case int32Type:
        return int32Value;
    case int64Type:
        return static_cast<int>(int64Value); // the low 32 bits
    case float32Type:
        return truncated<int>(float32Value);
    case float64Type:
        return truncated<int>(float64Value);
    default:
        return 0;
    }
}

int64_t UniVar::getI64Value() const
{
    switch (varType) {
    case strType:
        return string2longint(InlineText(*this).get());
    case int32Type:
        return int32Value;
    case int64Type:
        return int64Value;
    case float32Type:
        return truncated<int64_t>(float32Value);
    case float64Type:
        return truncated<int64_t>(float64Value);
    default:
        return 0;
    }
}

float UniVar::getF32Value() const
{
    switch (varType) {
    case strType:
        return string2float(InlineText(*this).get());
    case int32Type:
        return static_cast<float>(int32Value);
    case int64Type:
        return static_cast<float>(int64Value);
    case float32Type:
        return float32Value;
    case float64Type:
        return static_cast<float>(float64Value);
    default:
        return 0.0F;
    }
}

double UniVar::getF64Value() const
{
    switch (varType) {
    case strType:
        return string2double(InlineText(*this).get());
    case int32Type:
        return int32Value;
    case int64Type:
        return static_cast<double>(int64Value);
    case float32Type:
        return float32Value;
    case float64Type:
        return float64Value;
    default:
        return 0.0;
    }
}

std::string UniVar::getStrValue() const
{
    switch (varType) {
    case strType: {
        std::string_view text = storedText(*this);
        if (!text.empty() && text.back() == '\0')
            text.remove_suffix(1);
        return std::string(text);
    }
    case int32Type:
        return int2string(int32Value);
    case int64Type:
        return lint2string(int64Value);
    case float32Type:
        return float2string(float32Value);
    case float64Type:
        return double2string(float64Value);
    case libraryType:
    case groupType:
    case pointerType:
        return "-/-";
    case int32ArrayType:
        return intarr2string(int32ArrayValue, varArraySize);
    case int64ArrayType:
        return lintarr2string(int64ArrayValue, varArraySize);
    case float32ArrayType:
        return floatarr2string(float32ArrayValue, varArraySize);
    case float64ArrayType:
        return doublearr2string(float64ArrayValue, varArraySize);
    default:
        return "";
    }
}

std::string UniVar::getStrType() const
{
    const auto arrayLabel = [this](const char* element) {
        return std::string(element) + "(" + int2string(varArraySize) + ")";
    };
    switch (varType) {
    case strType:
        return "STR";
    case int32Type:
        return "I32";
    case int64Type:
        return "I64";
    case float32Type:
        return "F32";
    case float64Type:
        return "F64";
    case int32ArrayType:
        return arrayLabel("I32");
    case int64ArrayType:
        return arrayLabel("I64");
    case float32ArrayType:
        return arrayLabel("F32");
    case float64ArrayType:
        return arrayLabel("F64");
    default:
        return "-";
    }
}

void* UniVar::getPointerValue() const noexcept
{
    return varType == pointerType ? pointerValue : nullptr;
}

LibraryEntity* UniVar::getLibraryValue() const noexcept
{
    return varType == libraryType ? libraryValue : nullptr;
}

GroupEntity* UniVar::getGroupValue() const noexcept
{
    return varType == groupType ? groupValue : nullptr;
}

int* UniVar::getI32ArrayValue() const noexcept
{
    return varType == int32ArrayType ? int32ArrayValue : nullptr;
}

int64_t* UniVar::getI64ArrayValue() const noexcept
{
    return varType == int64ArrayType ? int64ArrayValue : nullptr;
}

float* UniVar::getF32ArrayValue() const noexcept
{
    return varType == float32ArrayType ? float32ArrayValue : nullptr;
}

double* UniVar::getF64ArrayValue() const noexcept
{
    return varType == float64ArrayType ? float64ArrayValue : nullptr;
}

int UniVar::getMemSize() const noexcept
{
    const unsigned tagBytes = 4;
    const unsigned size = static_cast<unsigned>(varArraySize);
    const auto payloadBytes = [&]() -> unsigned {
        switch (varType) {
        case undefinedType: // deliberate: also with the size field that a pointer has left behind
        case strType:
            return 4 + size;
        case int32Type:
        case float32Type:
            return 4;
        case int64Type:
        case float64Type:
            return 8;
        case int32ArrayType:
        case float32ArrayType:
            return 4 * (size + 1);
        case int64ArrayType:
        case float64ArrayType:
            return 4 * (2 * size + 1);
        default:
            return 0;
        }
    };
    return static_cast<int>(tagBytes + payloadBytes());
}

// --- Streams -------------------------------------------------------------------------------------

std::ostream& operator<<(std::ostream& stream, const UniVar& value)
{
    stream << static_cast<int>(value.varType);
    switch (value.varType) {
    case strType: {
        const std::string_view text = storedText(value);
        stream << value.varArraySize;
        return stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    }
    case int32Type:
        return stream << value.int32Value;
    case int64Type:
        return stream << value.int64Value;
    case float32Type:
        return stream << value.float32Value;
    case float64Type:
        return stream << value.float64Value;
    case int32ArrayType:
        writeArray(stream, value.int32ArrayValue, value.varArraySize);
        return stream;
    case int64ArrayType:
        writeArray(stream, value.int64ArrayValue, value.varArraySize);
        return stream;
    case float32ArrayType:
        writeArray(stream, value.float32ArrayValue, value.varArraySize);
        return stream;
    case float64ArrayType:
        writeArray(stream, value.float64ArrayValue, value.varArraySize);
        return stream;
    default:
        return stream;
    }
}

std::istream& operator>>(std::istream& stream, UniVar& value)
{
    int tag = readNumber<int>(stream);
    if (!stream)
        tag = undefinedType;
    const auto type = static_cast<UniVarType>(tag);

    // What does not set the size field or the value area leaves them as they are: a reader does not
    // clear (deliberate). A block goes, though, unless it is an array's and stays one: nothing
    // could release it later.
    const bool hadArray = isArray(value.varType);
    if (ownsBlock(value) && !(hadArray && isArray(type))) {
        releaseBlock(value);
        setAddress(value, nullptr);
    }
    value.varType = type;
    // Only an array leaves a block that elements can be read into.
    if (isReference(type) || (isArray(type) && !hadArray))
        setAddress(value, nullptr);

    switch (type) {
    case strType:
        value.varType = undefinedType; // until there is a text
        readText(stream, value);
        break;
    case int32Type:
        value.int32Value = readNumber<int>(stream);
        break;
    case int64Type:
        value.int64Value = readNumber<int64_t>(stream);
        break;
    case float32Type:
        value.float32Value = readNumber<float>(stream);
        break;
    case float64Type:
        value.float64Value = readNumber<double>(stream);
        break;
    case int32ArrayType:
        readArray<int>(stream, value);
        break;
    case int64ArrayType:
        readArray<int64_t>(stream, value);
        break;
    case float32ArrayType:
        readArray<float>(stream, value);
        break;
    case float64ArrayType:
        readArray<double>(stream, value);
        break;
    default: // references are null; the rest holds nothing
        break;
    }
    return stream;
}

// --- Numbers and text ----------------------------------------------------------------------------

std::string int2string(int value)
{
    return std::to_string(value);
}

std::string lint2string(int64_t value)
{
    return std::to_string(value);
}

std::string float2string(float value)
{
    return fixed2string(value, 6);
}

std::string double2string(double value)
{
    return fixed2string(value, 12);
}

std::string intarr2string(const int* elements, int count)
{
    return array2string(elements, count, int2string);
}

std::string lintarr2string(const int64_t* elements, int count)
{
    return array2string(elements, count, lint2string);
}

std::string floatarr2string(const float* elements, int count)
{
    return array2string(elements, count, float2string);
}

std::string doublearr2string(const double* elements, int count)
{
    return array2string(elements, count, double2string);
}

int string2int(const char* text)
{
    int value = 0;
    const ClassicNumbers numbers;
    return text != nullptr && std::sscanf(text, "%d", &value) == 1 ? value : 0;
}

int string2int(const std::string& text)
{
    return string2int(text.c_str());
}

int64_t string2longint(const char* text)
{
    long long value = 0;
    const ClassicNumbers numbers;
    return text != nullptr && std::sscanf(text, "%lld", &value) == 1 ? value : 0;
}

int64_t string2longint(const std::string& text)
{
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    int64_t value = 0;
    return stream >> value ? value : 0;
}

float string2float(const char* text)
{
    float value = 0.0F;
    const ClassicNumbers numbers;
    return text != nullptr && std::sscanf(text, "%f", &value) == 1 ? value : 0.0F;
}

float string2float(const std::string& text)
{
    return string2float(text.c_str());
}

double string2double(const char* text)
{
    double value = 0.0;
    const ClassicNumbers numbers;
    return text != nullptr && std::sscanf(text, "%lf", &value) == 1 ? value : 0.0;
}

double string2double(const std::string& text)
{
    return string2double(text.c_str());
}
