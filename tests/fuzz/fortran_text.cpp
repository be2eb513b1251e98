// Texts between Fortran and C, with lengths as no compiler would pass them. Every text lies in a
// block of exactly its length; results are held against the rules written once more, in the
// simplest way.
#include "FuzzInput.h"

#include "GroupEntity.h"
#include "JobManager.h"
#include "knl.h"
#include "knl_fortran.h"
#include "vorn_tools.h"

namespace {

constexpr std::size_t longestField = 1500;
constexpr std::size_t longestName = 255;
constexpr std::size_t longestMessage = 1023;
constexpr std::size_t longestValue = 255;

std::string withoutTrailingBlanks(std::string text)
{
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

std::string withoutBlanks(const std::string& text)
{
    std::size_t start = 0;
    while (start < text.size() && text[start] == ' ')
        ++start;
    return withoutTrailingBlanks(text.substr(start));
}

// What C sees of a text that may hold NULs.
std::string asC(const std::string& text)
{
    return text.c_str();
}

std::string padded(const std::string& text, std::size_t length)
{
    std::string field = text.substr(0, std::min(text.find('\n'), text.size())).substr(0, length);
    field.resize(length, ' ');
    return field;
}

/// A text as Fortran passes it: an address and a length, which is sometimes 0 or negative although
/// there are bytes.
class Field
{
public:
    explicit Field(FuzzInput& input)
    {
        const int kind = input.byte();
        const auto most = static_cast<std::size_t>(256 * (input.byte() % 6) + input.byte());
        text = input.text(std::min(most, longestField));
        // Sometimes all of the length is used, sometimes the rest is blank.
        if ((kind & 1) != 0)
            text.resize(most, ' ');
        bytes.assign(text.begin(), text.end());
        lengthPassed = static_cast<int>(text.size());
        if ((kind & 6) == 2)
            lengthPassed = 0;
        if ((kind & 6) == 4)
            lengthPassed = (kind & 8) != 0 ? INT_MIN : -static_cast<int>(text.size()) - 1;
        if (lengthPassed <= 0)
            text.clear();
    }

    const char* data() const { return bytes.data(); }
    int length() const { return lengthPassed; }
    const std::string& content() const { return text; }

private:
    std::vector<char> bytes; // without a NUL behind
    std::string text;        // of the length that is passed
    int lengthPassed;
};

/// Room for a text of Fortran's, of a length that may be 0 or negative.
class Room
{
public:
    explicit Room(FuzzInput& input)
        : lengthPassed(256 * (input.byte() % 3) + input.byte() - 8),
          block(static_cast<std::size_t>(std::max(lengthPassed, 0)))
    {
    }

    char* data() { return block.data(); }
    int length() const { return lengthPassed; }

    void expect(const std::string& text)
    {
        block.check();
        VORN_ASSERT(block.text() == padded(text, block.size()));
    }

    void expectUntouched()
    {
        block.check();
        VORN_ASSERT(block.text() == std::string(block.size(), '?'));
    }

private:
    int lengthPassed;
    GuardedBlock block;
};

// ---- The conversions themselves ----

// To a C text: its bytes, then NULs over the whole length of what was copied, nothing behind.
void expectCText(GuardedBlock& block, const std::string& text, std::size_t copied)
{
    block.check();
    VORN_ASSERT(copied < block.size());
    std::string expected = text;
    expected.resize(copied + 1, '\0');
    expected.resize(block.size(), '?');
    VORN_ASSERT(block.text() == expected);
}

void convertToC(FuzzInput& input)
{
    const Field field(input);
    const std::string& content = field.content();
    const std::string text = withoutBlanks(content);
    const std::size_t leading = std::min(content.find_first_not_of(' '), content.size());
    GuardedBlock stripped(content.size() + 1);
    f2ccpy(field.data(), stripped.data(), field.length());
    expectCText(stripped, text, content.size() - leading);

    GuardedBlock kept(content.size() + 1);
    f2ccpy_leadbl(field.data(), kept.data(), field.length());
    expectCText(kept, withoutTrailingBlanks(content), content.size());

    GuardedBlock inPlace(content.size() + 1);
    std::memcpy(inPlace.data(), content.data(), content.size());
    f2ccpy(inPlace.data(), inPlace.data(), field.length());
    inPlace.check();
    VORN_ASSERT(inPlace.text().compare(0, text.size(), text) == 0);
    VORN_ASSERT(inPlace.text()[text.size()] == '\0');

    f2ccpy(field.data(), nullptr, field.length());
    GuardedBlock nothing(content.size() + 1);
    f2ccpy(nullptr, nothing.data(), field.length());
    expectCText(nothing, "", 0);
}

void convertToFortran(FuzzInput& input)
{
    Room room(input);
    const std::string text = asC(input.text(longestField));
    c2fcpy(text.c_str(), room.data(), room.length());
    room.expect(text);

    // A source that is no longer than the field need not be terminated.
    GuardedBlock exact(static_cast<std::size_t>(std::max(room.length(), 0)), 'x');
    c2fcpy(exact.data(), room.data(), room.length());
    room.expect(exact.text());
    c2fcpy(nullptr, room.data(), room.length());
    room.expect("");
    c2fcpy(text.c_str(), nullptr, room.length());
}

void compare(FuzzInput& input)
{
    const Field field(input);
    const std::string text = asC(input.text(longestField));
    const std::string content = withoutBlanks(field.content());
    VORN_ASSERT(f2ccmp(field.data(), text.c_str(), field.length()) ==
                (content == withoutTrailingBlanks(text) ? 1 : 0));
    const bool comparable = content.find('\0') == std::string::npos;
    if (comparable)
        VORN_ASSERT(f2ccmp(field.data(), content.c_str(), field.length()) == 1);
    VORN_ASSERT(f2ccmp(field.data(), nullptr, field.length()) == (content.empty() ? 1 : 0));
}

// ---- Functions of the kernel that take and give texts ----

void storeInGroup(FuzzInput& input)
{
    GroupEntity group;
    void* handle = &group;
    const Field name(input);
    const Field value(input);
    Room room(input);
    int row = 1;
    int status = 77;
    knl_setstrgroupparameter_(&handle, name.data(), &row, value.data(), &status, name.length(),
                              value.length());
    VORN_ASSERT(status == 1);
    const std::string key = asC(withoutBlanks(name.content()).substr(0, longestName));
    const std::string text = asC(withoutBlanks(value.content()));
    VORN_ASSERT(group.isParameterPresent(key, 0));
    VORN_ASSERT(group.getParameter(key, 0).getStrValue() == text);

    status = 77;
    knl_getstrgroupparameter_(&handle, name.data(), &row, room.data(), &status, name.length(),
                              room.length());
    VORN_ASSERT(status == 1);
    room.expect(text.substr(0, longestValue));
}

void askForAbsent(FuzzInput& input)
{
    GroupEntity group;
    void* handle = &group;
    const Field name(input);
    Room room(input);
    for (int row : {1, 0, -1, INT_MIN, INT_MAX}) {
        int status = 77;
        knl_getstrgroupparameter_(&handle, name.data(), &row, room.data(), &status, name.length(),
                                  room.length());
        VORN_ASSERT(status == 0);
        room.expectUntouched();
    }
}

std::string lastText;

int keepMessage(int, char*, const char*, const char* message, void*)
{
    lastText = message;
    return 0;
}

int keepArgument(const char* argument, void*)
{
    lastText = argument;
    return 0;
}

void sendMessages(FuzzInput& input)
{
    JobManager::getInstance()->installMessageFunc(keepMessage, keepArgument, nullptr);
    const Field field(input);
    const std::string text = withoutBlanks(field.content());
    int type = 1;
    knl_sendmessage_(&type, field.data(), field.length());
    VORN_ASSERT(lastText == asC(text.substr(0, longestMessage)));
    knl_addstrmessageargument_(field.data(), field.length());
    VORN_ASSERT(lastText == asC(text));
}

void readSettings(FuzzInput& input)
{
    Room date(input);
    knl_date_(date.data(), date.length());
    date.expect(knl_currentDate());
    Room directory(input);
    knl_getscratchdir_(directory.data(), directory.length());
    directory.expect(knl_getScratchDir());
}

// The number of bytes of the value is the caller's, and may be anything.
void setMetadata(FuzzInput& input)
{
    JobManager::getInstance()->metaDataMap.clear();
    const Field name(input);
    const Field value(input);
    const int kind = input.byte();
    int count = kind < 200 ? kind - 20 : kind % 2 == 0 ? INT_MAX : INT_MIN;
    int scope = 0;
    knl_setmetadatavaluen_(&scope, name.data(), value.data(), &count, name.length(),
                           value.length());
    const std::string key = asC(withoutBlanks(name.content()).substr(0, longestMessage));
    const std::string some =
        value.content().substr(0, static_cast<std::size_t>(std::max(count, 0)));
    const std::string text = asC(withoutBlanks(some).substr(0, longestMessage));

    GuardedBlock room(static_cast<std::size_t>(input.byte()));
    const int size = static_cast<int>(room.size());
    VORN_ASSERT(knl_getMetaDataValue(0, key.c_str(), room.data(), size) ==
                static_cast<int>(text.size()));
    room.check();
    if (size > 0)
        VORN_ASSERT(asC(room.text()) == text.substr(0, room.size() - 1));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    constexpr void (*uses[])(FuzzInput&) = {convertToC,   convertToFortran, compare,
                                            storeInGroup, askForAbsent,     sendMessages,
                                            readSettings, setMetadata};
    FuzzInput input(data, size);
    for (int i = 0; i < 8 && (i == 0 || !input.isEmpty()); ++i)
        uses[static_cast<std::size_t>(input.byte()) % std::size(uses)](input);
    return 0;
}
