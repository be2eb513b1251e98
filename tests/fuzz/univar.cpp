// The stream form of UniVar: a text is read into one value several times over, as into a value that
// has held something else before. The size field may never promise more than is there, whatever the
// text claims.
#include "FuzzInput.h"

#include "UniVar.h"

#include <sstream>

namespace {

constexpr int mostElements = 32;

// Arrays are read into blocks of the caller's.
UniVar makeValue(int kind, int elements)
{
    const auto count = static_cast<std::size_t>(elements);
    switch (kind % 6) {
    case 0:
        return UniVar(std::vector<int>(count, 7).data(), elements);
    case 1:
        return UniVar(std::vector<int64_t>(count, 7).data(), elements);
    case 2:
        return UniVar(std::vector<float>(count, 7.5F).data(), elements);
    case 3:
        return UniVar(std::vector<double>(count, 7.5).data(), elements);
    case 4:
        return UniVar(std::string(count, 'x'));
    default:
        return UniVar();
    }
}

// Bytes of the block that an array may use.
std::size_t elementBytes(const UniVar& value)
{
    switch (value.getType()) {
    case int32ArrayType:
    case float32ArrayType:
        return 4;
    case int64ArrayType:
    case float64ArrayType:
        return 8;
    default:
        return 0;
    }
}

// Uses everything that the value says it holds.
void touch(const UniVar& value, std::size_t streamBytes)
{
    if (value.getType() == strType || elementBytes(value) > 0) {
        VORN_ASSERT(value.getArraySize() >= 0);
        // Every element and every character takes a byte of the stream at least.
        VORN_ASSERT(static_cast<std::size_t>(value.getArraySize()) <= streamBytes);
    }
    VORN_ASSERT(value.getLibraryValue() == nullptr && value.getGroupValue() == nullptr);
    VORN_ASSERT(value.getPointerValue() == nullptr);

    const UniVar copy(value);
    VORN_ASSERT(copy.getType() == value.getType());
    VORN_ASSERT(copy.getStrValue() == value.getStrValue());
    VORN_ASSERT(copy.getStrType() == value.getStrType());
    value.getI32Value();
    value.getI64Value();
    value.getF32Value();
    value.getF64Value();
    value.getMemSize();
}

// Numbers as text have no limits between them, but a value alone in its stream comes back: a text
// that does not begin like the rest of its own size, an integer.
void checkRoundTrip(const UniVar& value)
{
    const UniVarType type = value.getType();
    const bool isText = type == strType && value.getArraySize() > 0 &&
                        (value.getStrValue().empty() || value.getStrValue()[0] < '0' ||
                         value.getStrValue()[0] > '9');
    if (!isText)
        return;
    std::ostringstream written;
    written << value;
    // The tag runs into the size: they are told apart here, as a caller has to.
    const std::string text = written.str();
    VORN_ASSERT(text[0] == '1');
    std::istringstream stream("1 " + text.substr(1));
    UniVar again;
    stream >> again;
    VORN_ASSERT(again.getType() == strType);
    VORN_ASSERT(again.getArraySize() == value.getArraySize());
    VORN_ASSERT(again.getStrValue() == value.getStrValue());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const int kind = input.byte();
    const int elements = input.byte() % mostElements;
    const std::string text = input.rest();

    UniVar value = makeValue(kind, elements);
    std::istringstream stream(text);
    // A failed stream is read from as well: values end empty, not with what they held.
    for (int i = 0; i < 8; ++i) {
        stream >> value;
        touch(value, text.size());
        if (stream)
            checkRoundTrip(value);
        if (!stream)
            stream.clear(std::ios::failbit);
    }
    value.clear();
    VORN_ASSERT(value.getType() == undefinedType);
    return 0;
}
