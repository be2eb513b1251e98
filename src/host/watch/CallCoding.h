/// @file CallCoding.h
///
/// Calls of a module as bytes that mean the same in another process: addresses become what they
/// stand for, and what differs from run to run by its nature is left out.
#ifndef CALLCODING_H
#define CALLCODING_H

#include "watch/RecordBytes.h"
#include "watched/WatchedCalls.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

class ModuleEntity;

namespace host {

/// What an address that a module sees stands for.
struct Identity
{
    enum class Kind
    {
        null,
        input, ///< channel `number`, from 0, as the two below
        output,
        work,
        other ///< the object that this module was the `number`th to see, from 0
    };
    Kind kind = Kind::null;
    uint64_t number = 0;

    bool operator==(const Identity& to) const { return kind == to.kind && number == to.number; }
    bool operator!=(const Identity& to) const { return !(*this == to); }
};

/// An argument or a result, read from a record.
struct CallValue
{
    enum class Kind
    {
        none,
        identity,
        integer,
        real,
        text,    ///< `isNull` for a null address
        numbers, ///< `type`, `count` and `bytes`; `isNull`
        unread,  ///< numbers of which only `count` is known; `isNull`
        names,   ///< `names`; `isNull`
        value,   ///< a UniVar: `uniType`, and what it holds in the fields above
    };
    Kind kind = Kind::none;
    bool isNull = false;
    int uniType = 0;
    Identity identity;
    int64_t integer = 0;
    double real = 0;
    watched::Numbers::Type type = watched::Numbers::Type::int32;
    uint64_t count = 0;
    std::string bytes; ///< of a text or of numbers, which this machine can read
    std::vector<std::string> names;

    /// As a person would write it: `input 0`, `"offset"`, `250 samples`.
    std::string text() const;
};

/// Reads what CallCoder has written. Throws RecordError.
std::vector<CallValue> readValues(std::string_view bytes);

/// The largest difference of numbers.
struct NumberDifference
{
    uint64_t index = 0; ///< of the first number that differs, from 0
    std::string recorded;
    std::string now;        ///< there
    double largest = 0;     ///< of all numbers; NaN where one of two is not a number
    uint64_t differing = 0; ///< how many differ
};

/// How the numbers of two blocks of `count` differ; nothing where all are equal, bit for bit or by
/// not more than `tolerance` times the largest recorded one. Not-numbers are equal.
std::optional<NumberDifference> compareNumbers(watched::Numbers::Type type, const char* recorded,
                                               const char* now, uint64_t count, double tolerance);

/// What is different, in words; "" where nothing is.
std::string describeDifference(const CallValue& recorded, const CallValue& now, double tolerance);

/// Writes the calls of one module. Requires: its calls are seen in order, on one thread.
class CallCoder
{
public:
    explicit CallCoder(const ModuleEntity& of) : module(of) {}

    /// Appends the arguments.
    void called(const watched::Call& call, ByteWriter& bytes);
    /// Appends the arguments that the call has written, and the result.
    void returned(const watched::Call& call, const watched::Argument& result, ByteWriter& bytes);

    /// Every occurrence of `now` in a text is written as `recorded` from now on; pairs in the order
    /// in which they are given.
    void replaceInTexts(const std::string& now, const std::string& recorded);

private:
    enum class Rule
    {
        none,
        clock,           // the result differs from run to run
        directory,       // likewise
        fileAside,       // the result depends on where the data file lies
        descriptor,      // so does the number of a result from 0
        noArguments,     // so do the arguments
        makesPad,        // the result is the identifier of a pad
        drawsOnPad,      // the first argument is one
        makesObject,     // the result is a new object, whatever has been at its address
        freesObject,     // the object of the first argument ends
        copiesBytes,     // an argument is an address of the module's
        givesSamples,    // the result is the way to samples, not their values
        readsAttributes, // the output holds values only where the trace set has the attributes
    };

    Rule ruleOf(const char* function);
    Identity identityOf(const void* address);
    void writeIdentity(const Identity& identity, ByteWriter& bytes);
    void writePad(int64_t pad, ByteWriter& bytes);
    void writeText(std::string_view text, ByteWriter& bytes);
    void write(const watched::Argument& argument, ByteWriter& bytes);
    void write(const UniVar& value, ByteWriter& bytes);
    static void write(const watched::Numbers& numbers, ByteWriter& bytes);
    static void writeAttributes(const watched::Call& call, const watched::Numbers& numbers,
                                const watched::Argument& result, ByteWriter& bytes);

    const ModuleEntity& module;
    std::unordered_map<const char*, Rule> rules; // by the address of the name
    std::unordered_map<const void*, uint64_t> objects;
    uint64_t objectsSeen = 0;
    std::unordered_map<int64_t, int64_t> pads;
    std::vector<std::pair<std::string, std::string>> replacements;
};

} // namespace host

#endif
