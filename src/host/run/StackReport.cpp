#include "run/StackReport.h"

#include "run/SignalLine.h"
#include "run/SignalProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

namespace host {

namespace {

// Everything here has static memory: the heap may be broken, and the stack be that of a signal.

constexpr std::size_t mostFrames = 64;
constexpr int64_t mostSteps = 300000; // a function may have called itself until the stack was full
constexpr std::size_t mostShown = 24;
constexpr std::size_t mostObjects = 16;

// A program or library that functions lie in.
struct Object
{
    std::array<char, PATH_MAX> path;
    uintptr_t base = 0; // where it is mapped
};

struct Frame
{
    uintptr_t pc = 0;
    bool isCall = true; // `pc` is behind a call, not at the instruction that has failed
    int64_t times = 1;  // one behind the other, of a function that calls itself
    const Object* object = nullptr;

    // Within the call, not behind it: that may be another line.
    uintptr_t code() const { return isCall && pc > 0 ? pc - 1 : pc; }
    uintptr_t offset() const { return code() - object->base; }
};

std::array<Object, mostObjects> objects;
std::size_t objectCount = 0;
std::array<Frame, mostFrames> frames;
std::size_t frameCount = 0;
int64_t steps = 0;
bool isLoaderLocked = false;

// ---- Addresses ----

// False when there is no room for more.
bool addFrame(uintptr_t pc, bool isCall)
{
    if (frameCount > 0 && frames[frameCount - 1].pc == pc && steps++ < mostSteps) {
        ++frames[frameCount - 1].times;
        return true;
    }
    if (pc == 0 || frameCount == frames.size())
        return false;
    frames[frameCount++] = {pc, isCall, 1, nullptr};
    return true;
}

_Unwind_Reason_Code takeFrame(_Unwind_Context* context, void*)
{
    int isBefore = 0;
    const uintptr_t pc = _Unwind_GetIPInfo(context, &isBefore);
    return addFrame(pc, isBefore == 0) ? _URC_NO_REASON : _URC_END_OF_STACK;
}

uintptr_t failedAt(const ucontext_t& context)
{
#if defined(__x86_64__)
    return static_cast<uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
    return static_cast<uintptr_t>(context.uc_mcontext.pc);
#else
    static_cast<void>(context);
    return 0;
#endif
}

void dropFirst(std::size_t count)
{
    std::move(frames.begin() + static_cast<std::ptrdiff_t>(count),
              frames.begin() + static_cast<std::ptrdiff_t>(frameCount), frames.begin());
    frameCount -= count;
}

// What lies below the instruction that has failed is the handler of the signal.
void dropHandler(uintptr_t failed)
{
    for (std::size_t i = 0; i < frameCount; ++i) {
        if (frames[i].pc == failed) {
            dropFirst(i);
            return;
        }
    }
}

// ---- The libraries that they lie in ----

// Reads /proc/self/maps line by line.
class Mappings
{
public:
    Mappings() : file(open("/proc/self/maps", O_RDONLY | O_CLOEXEC)) {}
    ~Mappings() { close(file); }
    Mappings(const Mappings&) = delete;
    Mappings& operator=(const Mappings&) = delete;

    // Null behind the last one.
    const char* next()
    {
        for (std::size_t length = 0;;) {
            if (at == end && !fill())
                return nullptr;
            const char byte = buffer[at++];
            if (byte == '\n') {
                line[length] = '\0';
                return line.data();
            }
            if (length + 1 < line.size())
                line[length++] = byte;
        }
    }

private:
    bool fill()
    {
        at = 0;
        const ssize_t count = read(file, buffer.data(), buffer.size());
        end = count > 0 ? static_cast<std::size_t>(count) : 0;
        return end > 0;
    }

    int file;
    std::array<char, 4096> buffer;
    std::size_t at = 0;
    std::size_t end = 0;
    std::array<char, PATH_MAX + 100> line;
};

// A line of these, as in "7f01-7f02 r-xp 00001000 08:01 1234   /usr/lib/libm.so".
struct Mapping
{
    explicit Mapping(const char* text)
    {
        char* rest = nullptr;
        begin = std::strtoull(text, &rest, 16);
        if (*rest == '-')
            end = std::strtoull(rest + 1, &rest, 16);
        isCode = std::strlen(rest) > 4 && rest[3] == 'x';
        offset = std::strlen(rest) > 6 ? std::strtoull(rest + 6, nullptr, 16) : 0;
        path = std::strchr(text, '/');
    }

    uintptr_t begin = 0;
    uintptr_t end = 0;
    uintptr_t offset = 0;
    bool isCode = false;
    const char* path = nullptr; // null: of no file
};

bool isCode(uintptr_t address)
{
    Mappings all;
    while (const char* text = all.next()) {
        const Mapping one(text);
        if (address >= one.begin && address < one.end)
            return one.isCode;
    }
    return false;
}

// The last object again, or the next one; null where there are too many.
const Object* keepObject(const Object& found)
{
    for (std::size_t i = 0; i < objectCount; ++i) {
        if (objects[i].base == found.base)
            return &objects[i];
    }
    if (objectCount == objects.size())
        return nullptr;
    objects[objectCount] = found;
    return &objects[objectCount++];
}

void findObjects()
{
    static Object present;
    present.base = 0;
    present.path.front() = '\0';
    Mappings all;
    while (const char* text = all.next()) {
        const Mapping one(text);
        if (one.path == nullptr || std::strlen(one.path) >= present.path.size())
            continue;
        if (one.offset == 0 && std::strcmp(one.path, present.path.data()) != 0) {
            std::strcpy(present.path.data(), one.path);
            present.base = one.begin;
        }
        if (!one.isCode || std::strcmp(one.path, present.path.data()) != 0)
            continue;
        for (std::size_t i = 0; i < frameCount; ++i) {
            if (frames[i].code() >= one.begin && frames[i].code() < one.end)
                frames[i].object = keepObject(present);
        }
    }
}

const char* fileName(const Object& object)
{
    const char* slash = std::strrchr(object.path.data(), '/');
    return slash != nullptr ? slash + 1 : object.path.data();
}

// The program itself, which calls the entry points of modules.
bool isProgram(const Object* object)
{
    static std::array<char, PATH_MAX> own;
    if (own.front() == '\0') {
        const ssize_t length = readlink("/proc/self/exe", own.data(), own.size() - 1);
        own[length > 0 ? static_cast<std::size_t>(length) : 0] = '\0';
    }
    return object != nullptr && std::strcmp(object->path.data(), own.data()) == 0;
}

bool isCLibrary(const Object* object)
{
    return object != nullptr && (std::strncmp(fileName(*object), "libc.so", 7) == 0 ||
                                 std::strncmp(fileName(*object), "libc-", 5) == 0);
}

// exit() and what it has called, or what has noted an exception.
void dropExit()
{
    std::size_t count = 0;
    while (count < frameCount &&
           (isProgram(frames[count].object) || isCLibrary(frames[count].object)))
        ++count;
    if (count < frameCount) // else it was the program's own
        dropFirst(count);
}

bool isLoader(const Object* object)
{
    return object != nullptr && std::strncmp(fileName(*object), "ld-", 3) == 0;
}

// What lies above the entry point is the command, or the loader of libraries. The first frame may
// be a function of these that the module has called in a wrong way.
void dropCallers()
{
    for (std::size_t i = 1; i < frameCount; ++i) {
        if (isProgram(frames[i].object) || isLoader(frames[i].object)) {
            frameCount = i;
            return;
        }
    }
}

// ---- Names and lines ----

constexpr char lineReader[] = "addr2line";

// Its path; null where it is not installed.
const char* findLineReader()
{
    static std::array<char, PATH_MAX> path;
    const char* directories = std::getenv("PATH");
    while (directories != nullptr && *directories != '\0') {
        const std::size_t length = std::strcspn(directories, ":");
        if (length > 0 && length + sizeof lineReader + 1 < path.size()) {
            std::memcpy(path.data(), directories, length);
            path[length] = '/';
            std::strcpy(&path[length + 1], lineReader);
            if (access(path.data(), X_OK) == 0)
                return path.data();
        }
        directories += length + (directories[length] == ':' ? 1 : 0);
    }
    return nullptr;
}

// An address as a word of a command line.
using Word = std::array<char, 20>;

void writeWord(Word& word, uintptr_t number)
{
    std::size_t at = word.size() - 1;
    word[at] = '\0';
    do {
        word[--at] = "0123456789abcdef"[number % 16];
        number /= 16;
    } while (number != 0);
    word[--at] = 'x';
    word[--at] = '0';
    std::memmove(word.data(), &word[at], word.size() - at);
}

// What addr2line has printed of frames that lie in one object: for each address a line with it,
// then a line with a function and a line with its place, and two more for each function into which
// it was inlined.
class Lines
{
public:
    // False where it could not be run.
    bool read(const char* program, std::size_t first, std::size_t behind)
    {
        char options[] = "-Caife";
        std::array<char*, mostFrames + 4> words = {};
        std::size_t count = 0;
        words[count++] = const_cast<char*>(lineReader); // execve() changes none of these
        words[count++] = options;
        words[count++] = const_cast<char*>(frames[first].object->path.data());
        for (std::size_t i = first; i < behind; ++i) {
            writeWord(addresses[i], frames[i].offset());
            words[count++] = addresses[i].data();
        }
        length = 0;
        at = nullptr;
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        const pid_t child = forkInHandler();
        if (child == 0) {
            const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
            dup2(nothing, STDIN_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            dup2(nothing, STDERR_FILENO);
            sigset_t none; // those of a handler are blocked here
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            char locale[] = "LC_ALL=C";
            std::array<char*, 2> environment = {locale, nullptr}; // above all no LD_PRELOAD
            execve(program, words.data(), environment.data());
            _exit(127);
        }
        close(ends[1]);
        while (child > 0 && take(ends[0])) {
        }
        close(ends[0]);
        text[length] = '\0';
        int status = 0;
        return child > 0 && waitpid(child, &status, 0) == child && status == 0;
    }

    // The first function of the next address, which stays until the next call; false behind the
    // last one.
    bool next()
    {
        if (at == nullptr)
            at = text.data();
        while (*at != '\0') {
            const bool isAddress = std::strncmp(at, "0x", 2) == 0;
            takeLine();
            if (isAddress)
                return true;
        }
        return false;
    }

    // The next function of this address, and its place; false behind the last one.
    bool nextFunction(const char*& function, const char*& place)
    {
        if (*at == '\0' || std::strncmp(at, "0x", 2) == 0)
            return false;
        function = takeLine();
        place = takeLine();
        return true;
    }

private:
    bool take(int descriptor)
    {
        if (length + 1 >= text.size())
            return false;
        const ssize_t count = ::read(descriptor, &text[length], text.size() - 1 - length);
        if (count < 0 && errno == EINTR)
            return true;
        if (count > 0)
            length += static_cast<std::size_t>(count);
        return count > 0;
    }

    const char* takeLine()
    {
        const char* line = at;
        while (*at != '\0' && *at != '\n')
            ++at;
        if (*at == '\n')
            *at++ = '\0';
        return line;
    }

    std::array<char, 65536> text;
    std::size_t length = 0;
    char* at = nullptr;
    std::array<Word, mostFrames> addresses;
};

// The places of functions on a line of the report.
SignalLine stackLine(bool isFirst)
{
    SignalLine line("  ");
    line.add(isFirst ? "stack" : "").padTo(14);
    return line;
}

void addOffset(SignalLine& line, const Frame& frame)
{
    if (frame.object != nullptr)
        line.addForeign(fileName(*frame.object)).add("+").addAddress(frame.offset());
    else
        line.addAddress(frame.pc);
}

void* pointerTo(uintptr_t address)
{
    void* pointer = nullptr;
    std::memcpy(&pointer, &address, sizeof pointer);
    return pointer;
}

// Where the library exports a function whose code this is. The loader itself would give the nearest
// one, of which most often it is not.
bool addExported(SignalLine& line, const Frame& frame)
{
    if (isLoaderLocked)
        return false;
    Dl_info info;
    void* entry = nullptr;
    if (dladdr1(pointerTo(frame.code()), &info, &entry, RTLD_DL_SYMENT) == 0 ||
        info.dli_sname == nullptr || entry == nullptr ||
        frame.code() - reinterpret_cast<uintptr_t>(info.dli_saddr) >=
            static_cast<const ElfW(Sym)*>(entry)->st_size)
        return false;
    int status = 0;
    const char* plain = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
    line.addForeign(status == 0 && plain != nullptr ? plain : info.dli_sname);
    return true;
}

bool isKnown(const char* text)
{
    return std::strncmp(text, "??", 2) != 0;
}

// Without what compilers append to the names of parts and copies of functions: "process_.cold",
// "gain(int) [clone .isra.0]".
void addFunction(SignalLine& line, const char* name)
{
    static std::array<char, 1000> plain;
    const bool isPlain = std::strchr(name, '(') == nullptr && std::strchr(name, ' ') == nullptr;
    const char* behind = isPlain ? std::strchr(name, '.') : std::strstr(name, " [clone ");
    const std::size_t all =
        behind != nullptr ? static_cast<std::size_t>(behind - name) : std::strlen(name);
    const std::size_t length = std::min(all, plain.size() - 1);
    std::memcpy(plain.data(), name, length);
    plain[length] = '\0';
    line.addForeign(plain.data());
}

// "/src/gain.c:71 (discriminator 2)" without its end; "??:0" is not a place.
void addPlace(SignalLine& line, const char* place)
{
    static std::array<char, PATH_MAX> plain;
    const std::size_t length = std::min(std::strcspn(place, " "), plain.size() - 1);
    std::memcpy(plain.data(), place, length);
    plain[length] = '\0';
    line.add(" at ").addForeign(plain.data());
}

// The library of C++ is full of small functions, which are not at fault.
bool isOfLibrary(const char* place)
{
    return place != nullptr && std::strncmp(place, "/usr/include/c++/", 17) == 0;
}

// `function` and `place`: null where they are not known.
void writeFrame(const Frame& frame, const char* function, const char* place, int64_t times,
                bool isFirst)
{
    SignalLine line = stackLine(isFirst);
    const bool isNamed = function != nullptr && isKnown(function);
    if (isNamed)
        addFunction(line, function);
    const bool hasName = isNamed || addExported(line, frame);
    if (place != nullptr && isKnown(place)) {
        addPlace(line, place);
    } else {
        line.add(hasName ? " in " : "");
        addOffset(line, frame);
    }
    if (times > 1)
        line.add(", ").add(times).add(" times");
    line.write();
}

// With `lines`, the functions that were inlined too.
void writeFrames(std::size_t first, std::size_t behind, Lines* lines)
{
    for (std::size_t i = first; i < behind; ++i) {
        const char* function = nullptr;
        const char* place = nullptr;
        bool isFirst = i == 0;
        int64_t times = frames[i].times;
        if (lines == nullptr || !lines->next() || !lines->nextFunction(function, place)) {
            writeFrame(frames[i], nullptr, nullptr, times, isFirst);
            continue;
        }
        do {
            if (isOfLibrary(place) && !isFirst)
                continue;
            writeFrame(frames[i], function, place, times, isFirst);
            isFirst = false;
            times = 1;
        } while (lines->nextFunction(function, place));
    }
}

// The call that tells the lines where the program is installed.
void writeCall(std::size_t first, std::size_t behind)
{
    SignalLine line("  lines       addr2line -Caife ");
    line.addForeign(frames[first].object->path.data());
    for (std::size_t i = first; i < behind; ++i)
        line.add(" ").addAddress(frames[i].offset());
    line.write();
}

// Frames that lie in one object are looked up together.
void writeAll()
{
    static Lines lines;
    const char* const program = findLineReader();
    const std::size_t shown = std::min(frameCount, mostShown);
    for (std::size_t first = 0; first < shown;) {
        std::size_t behind = first + 1;
        const Object* const object = frames[first].object;
        while (behind < shown && frames[behind].object == object)
            ++behind;
        const bool hasLines =
            object != nullptr && program != nullptr && lines.read(program, first, behind);
        writeFrames(first, behind, hasLines ? &lines : nullptr);
        if (object != nullptr && program == nullptr)
            writeCall(first, behind);
        first = behind;
    }
    if (shown < frameCount)
        stackLine(false).add("and more").write();
}

} // namespace

void writeStack(const StackOwner& owner) noexcept
{
    isLoaderLocked = owner.isLoaderLocked;
    auto* const signalled = static_cast<ucontext_t*>(owner.context);
#if defined(__x86_64__)
    // Nothing can be unwound from where no code is: the function that has called that is the first.
    if (signalled != nullptr && !isCode(failedAt(*signalled))) {
        auto& registers = signalled->uc_mcontext.gregs;
        const void* const top = pointerTo(static_cast<uintptr_t>(registers[REG_RSP]));
        std::memcpy(&registers[REG_RIP], top, sizeof registers[REG_RIP]);
        registers[REG_RSP] += static_cast<greg_t>(sizeof registers[REG_RIP]);
    }
#endif
    for (std::size_t i = 0; i < owner.count; ++i)
        addFrame(owner.codes[i], true);
    if (owner.codes == nullptr)
        _Unwind_Backtrace(takeFrame, nullptr);
    if (signalled != nullptr)
        dropHandler(failedAt(*signalled));
    findObjects();
    if (signalled == nullptr)
        dropExit();
    if (owner.isModule)
        dropCallers();
    writeAll();
}

} // namespace host
