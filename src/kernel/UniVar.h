/// @file UniVar.h
///
/// The kernel's one tagged value, and the conversions between numbers and text that go with it.
///
/// Numbers become text and text becomes numbers in the same way everywhere: with a decimal point,
/// without grouping of digits, whatever locale the host's process or its streams use by default.
#ifndef UNIVAR_H
#define UNIVAR_H

#include "vorn_export.h"

#include <cstdint>
#include <iosfwd>
#include <string>

class LibraryEntity;
class GroupEntity;

/// What a UniVar holds. The numbers are part of the interface: modules and hosts see them. A value
/// read from a stream may carry any other number; such an unknown tag holds nothing.
enum UniVarType : int
{
    undefinedType = 0,     ///< nothing
    strType = 1,           ///< text, owned
    int32Type = 2,         ///< signed 32-bit integer
    int64Type = 3,         ///< signed 64-bit integer
    float32Type = 4,       ///< 32-bit float
    float64Type = 5,       ///< 64-bit float
    libraryType = 6,       ///< reference to a LibraryEntity, not owned
    groupType = 7,         ///< reference to a GroupEntity, not owned
    pointerType = 8,       ///< untyped address and a byte count, not owned
    int32ArrayType = 9,    ///< array of signed 32-bit integers, owned
    int64ArrayType = 10,   ///< array of signed 64-bit integers, owned
    float32ArrayType = 11, ///< array of 32-bit floats, owned
    float64ArrayType = 12  ///< array of 64-bit floats, owned
};

/// A value of one of the kinds of UniVarType: one number, one text, one array of numbers, or a
/// reference to something that lives elsewhere. Parameters, resources, processing options,
/// attribute values and message arguments are all held and passed as this type.
///
/// A value owns its text and its array: a copy has its own, and `clear` and the destructor release
/// them. Libraries, groups and raw blocks are only referred to: copies share them, nothing here
/// ever releases them. Short texts (up to 15 characters) lie inside the value, so that copying
/// them and numbers allocates nothing.
///
/// No operation reports an error. A request that the stored kind cannot answer gives 0, 0.0, a null
/// address, "" or "-/-", as said at each getter.
///
/// The fields are public for readers. Code that writes them by hand must keep them consistent;
/// owned blocks come from `%operator new[]` (thus also from `new int[n]` and the like).
class VORN_EXPORT UniVar
{
public:
    UniVarType varType; ///< which member of the value area is in use
    /// strType: bytes stored, that is the length plus one for the terminating NUL; arrays:
    /// elements; pointerType: bytes of the block referred to, 0 when unknown; without meaning
    /// otherwise.
    int varArraySize;
    union
    {
        char strValue[16];   ///< text of a stored size up to 16, NUL included
        char* strBlock;      ///< text of a stored size from 17 on, or of 16 when it was read
                             ///< from a stream: exactly that many bytes
        void* pointerValue;  ///< of a pointerType
        int int32Value;      ///< of an int32Type
        int64_t int64Value;  ///< of an int64Type
        float float32Value;  ///< of a float32Type
        double float64Value; ///< of a float64Type
        LibraryEntity* libraryValue; ///< of a libraryType
        GroupEntity* groupValue;     ///< of a groupType
        int* int32ArrayValue;        ///< of an int32ArrayType; null only before it is filled
        int64_t* int64ArrayValue;    ///< of an int64ArrayType, likewise
        float* float32ArrayValue;    ///< of a float32ArrayType, likewise
        double* float64ArrayValue;   ///< of a float64ArrayType, likewise
    };

    /// An undefined value.
    UniVar() noexcept;

    /// A value with the given tag and nothing behind it (zero, empty, null), for `operator>>` to
    /// fill. An array read into it needs a block: see there.
    UniVar(UniVarType type) noexcept;

    /// @name Values from what they hold
    /// @{

    /// As the matching `setValue`. A `const char*` makes a text. A mutable `char*` does not: it
    /// converts to `void*` first and makes a pointerType, so wrap it in a `std::string`.
    UniVar(int value) noexcept;
    UniVar(int64_t value) noexcept;
    UniVar(float value) noexcept;
    UniVar(double value) noexcept;
    UniVar(const std::string& text);
    UniVar(void* address) noexcept;
    UniVar(LibraryEntity* library) noexcept;
    UniVar(GroupEntity* group) noexcept;
    UniVar(const int* elements, int count);
    UniVar(const int64_t* elements, int count);
    UniVar(const float* elements, int count);
    UniVar(const double* elements, int count);
    UniVar(void* address, int byteCount) noexcept;
    /// @}

    /// A copy with its own text or array; what is referred to is shared. `varArraySize` comes
    /// along only where it means something (text, arrays, pointerType); otherwise it is 0.
    UniVar(const UniVar& other);

    /// As the copy, but takes over the text or array of `other`, which is undefined afterwards.
    UniVar(UniVar&& other) noexcept;

    /// Releases what the value owns.
    ~UniVar();

    /// @name Setters
    /// @{

    /// Each releases the old content as `clear` does, then stores the new one.
    void setValue(int value) noexcept;
    void setValue(int64_t value) noexcept;
    void setValue(float value) noexcept;
    void setValue(double value) noexcept;
    /// Stores a copy of the whole text, NUL characters within it included. (The size field counts
    /// in 32 bits: of a text of 2 GiB or more the first 2147483646 characters are kept.)
    void setValue(const std::string& text);
    /// Refers to `address`, with a byte count of 0.
    void setValue(void* address) noexcept;
    void setValue(LibraryEntity* library) noexcept;
    void setValue(GroupEntity* group) noexcept;
    /// @}

    /// @name Array setters
    /// @{

    /// Store a copy of `count` elements; the caller keeps the array, which may even be the one that
    /// this value holds. A negative count stores an empty array; a null `elements` stores `count`
    /// zeros.
    void setValue(const int* elements, int count);
    void setValue(const int64_t* elements, int count);
    void setValue(const float* elements, int count);
    void setValue(const double* elements, int count);
    /// @}

    /// Refers to a block of `byteCount` bytes, which is neither copied nor ever released here.
    void setValue(void* address, int byteCount) noexcept;

    /// @name Assignment
    /// @{

    /// As the matching `setValue`; the caveat about a mutable `char*` holds here, too.
    UniVar& operator=(int value) noexcept;
    UniVar& operator=(int64_t value) noexcept;
    UniVar& operator=(float value) noexcept;
    UniVar& operator=(double value) noexcept;
    UniVar& operator=(const std::string& text);
    UniVar& operator=(void* address) noexcept;
    UniVar& operator=(LibraryEntity* library) noexcept;
    UniVar& operator=(GroupEntity* group) noexcept;
    /// @}

    /// Releases the old content as `clear` does, then becomes what a copy of `other` is. The size
    /// field is overwritten only where it means something for the new content.
    UniVar& operator=(UniVar other) noexcept;

    /// The tag.
    UniVarType getType() const noexcept { return varType; }

    /// The size field as stored: see `varArraySize`.
    int getArraySize() const noexcept { return varArraySize; }

    /// @name Numbers
    /// @{

    /// The stored number, converted. Fractions are cut toward zero; what is too large for an
    /// integer becomes its largest or smallest value, and a NaN becomes 0; a 64-bit integer keeps
    /// its low 32 bits. A text is scanned as `string2int` and the others do, if it has at most 15
    /// characters; a longer one gives 0. Everything else gives 0.
    int getI32Value() const;
    int64_t getI64Value() const;
    float getF32Value() const;
    double getF64Value() const;
    /// @}

    /// The value as text: a text itself, a number as `int2string` and the others write it, an array
    /// in brackets; "-/-" for a library, a group or a pointer; "" for anything else. Of a stored
    /// text one final NUL is dropped; one that was read without a NUL comes back whole.
    std::string getStrValue() const;

    /// A short label: "STR", "I32", "I64", "F32", "F64", for arrays with the number of elements, as
    /// in "F32(250)"; "-" for anything else.
    std::string getStrType() const;

    /// @name References and arrays
    /// @{

    /// The stored address when the tag is exactly the matching one, else null. Arrays stay the
    /// value's own: valid until it is changed or destroyed, never released by the caller.
    void* getPointerValue() const noexcept;
    LibraryEntity* getLibraryValue() const noexcept;
    GroupEntity* getGroupValue() const noexcept;
    int* getI32ArrayValue() const noexcept;
    int64_t* getI64ArrayValue() const noexcept;
    float* getF32ArrayValue() const noexcept;
    double* getF64ArrayValue() const noexcept;
    /// @}

    /// Makes the value undefined and releases nothing: whatever it owned is lost. Only for storage
    /// that never held a value.
    void clean() noexcept { varType = undefinedType; }

    /// Releases what the value owns and makes it undefined; payload and size field become 0, except
    /// that scalars and references leave the size field as it was.
    void clear() noexcept;

    /// Bytes that the value counts for: 4 for the tag, and the payload (numbers 4 or 8; arrays 4
    /// and their elements; texts and undefined values 4 and the size field, whatever it says;
    /// references nothing). Wraps at 32 bits.
    int getMemSize() const noexcept;
};

/// Writes the tag, then a number; or a text's stored size and its raw bytes, NUL included; or an
/// array's count and its elements; after any other tag nothing. Numbers have the format that is set
/// in `stream`. Nothing stands between the items, so that what is written can in general not be
/// read back (deliberate: tag 2 and value 5 are "25").
VORN_EXPORT std::ostream& operator<<(std::ostream& stream, const UniVar& value);

/// Reads a tag and what belongs to it. It is not a full assignment:
///
/// - A text is stored as read, that is without a NUL of its own. From a stored size of 16 on it
/// lies in
///   a block of its own, where other texts of 16 lie inside the value (deliberate).
/// - The elements of an array go into the block that `value` already holds, from an array before or
///   assigned by hand to a `UniVar(UniVarType)`; nothing is allocated for them. Elements for which
///   the block has no room are read and dropped; without a block, that is all of them.
/// - Libraries, groups and pointers become null.
/// - The target is not cleared first: the size field and bytes of the value area that the new
/// content
///   does not use stay as they were. Tag 0 read into a short text leaves its bytes and its size.
///
/// The size field ends as what is really there, less than the stream claims where it delivers less.
/// A number that cannot be read is 0; without a readable tag the value becomes undefined. Any text
/// or array in a block that the new content replaces is released.
VORN_EXPORT std::istream& operator>>(std::istream& stream, UniVar& value);

/// @name Numbers to text
/// @{

/// Decimal digits; floats with always 6, doubles with always 12 decimals, rounded as `printf`
/// does, however large; also its "inf", "-inf", "nan", "-nan".
VORN_EXPORT std::string int2string(int value);
VORN_EXPORT std::string lint2string(int64_t value);
VORN_EXPORT std::string float2string(float value);
VORN_EXPORT std::string double2string(double value);
/// @}

/// @name Arrays to text
/// @{

/// "[" + the elements as above, separated by "," + "]". No elements, a negative count or a null
/// array give "[]".
VORN_EXPORT std::string intarr2string(const int* elements, int count);
VORN_EXPORT std::string lintarr2string(const int64_t* elements, int count);
VORN_EXPORT std::string floatarr2string(const float* elements, int count);
VORN_EXPORT std::string doublearr2string(const double* elements, int count);
/// @}

/// @name Text to numbers
/// @{

/// The number at the start of the text, as `scanf` reads it with "%d", "%lld", "%f" and "%lf";
/// white space before it is skipped, what follows is ignored. 0 without a number, and for null.
VORN_EXPORT int string2int(const char* text);
VORN_EXPORT int string2int(const std::string& text);
VORN_EXPORT int64_t string2longint(const char* text);
/// Reads as a stream does: a number outside the 64-bit range gives 0, not its nearest value.
VORN_EXPORT int64_t string2longint(const std::string& text);
VORN_EXPORT float string2float(const char* text);
VORN_EXPORT float string2float(const std::string& text);
VORN_EXPORT double string2double(const char* text);
VORN_EXPORT double string2double(const std::string& text);
/// @}

#endif
