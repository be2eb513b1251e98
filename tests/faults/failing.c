/* Stands before the C library and makes the n-th call of a function fail; see failing.h.
 *
 * Each function is here under all names under which compilers and the C library's own headers call
 * it: with 64-bit offsets, and as the checked form that fortified sources use. What the C library
 * calls within itself does not come by here: a failing `write` leaves `fwrite` as it is, which has
 * a name of its own. */
#define _GNU_SOURCE
#undef _FORTIFY_SOURCE /* its functions would be inlined from the headers, and are defined here */
#include "failing.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

static const char* const names[] = {"malloc",  "fopen",     "fdopen", "fwrite", "fread",  "fseeko",
                                    "fflush",  "fclose",    "open",   "write",  "read",   "close",
                                    "fcntl",   "ftruncate", "unlink", "rename", "fchmod", "fsync",
                                    "mkdtemp", "dlopen",    "stat",   NULL};

enum function
{
    MALLOC,
    FOPEN,
    FDOPEN,
    FWRITE,
    FREAD,
    FSEEKO,
    FFLUSH,
    FCLOSE,
    OPEN,
    WRITE,
    READ,
    CLOSE,
    FCNTL,
    FTRUNCATE,
    UNLINK,
    RENAME,
    FCHMOD,
    FSYNC,
    MKDTEMP,
    DLOPEN,
    STAT
};

static atomic_int armed = -1; /* an enum function */
static atomic_long calls;
static atomic_int paused;
static long failing_call;
static int failing_error;
static int failing_kind;
static int* happened;

EXPORT const char* const* vorn_fault_functions(void)
{
    return names;
}

EXPORT int vorn_fault_arm(const char* function, long nth, int error, int kind, int* flag)
{
    int i;

    atomic_store(&armed, -1);
    for (i = 0; names[i] != NULL && strcmp(names[i], function) != 0; ++i) {
    }
    if (names[i] == NULL)
        return -1;
    failing_call = nth;
    failing_error = error;
    failing_kind = kind;
    atomic_store(&calls, 0);
    happened = flag;
    atomic_store(&armed, i);
    return 0;
}

EXPORT long vorn_fault_disarm(void)
{
    atomic_store(&armed, -1);
    return atomic_load(&calls);
}

EXPORT void vorn_fault_pause(void)
{
    atomic_fetch_add(&paused, 1);
}

EXPORT void vorn_fault_resume(void)
{
    atomic_fetch_sub(&paused, 1);
}

/* Whether this call is the one. */
static int is_due(enum function function)
{
    long call;

    if (atomic_load(&armed) != (int)function || atomic_load(&paused) > 0)
        return 0;
    call = atomic_fetch_add(&calls, 1) + 1;
    if (failing_call == 0 || call < failing_call ||
        (call > failing_call && failing_kind != VORN_FAULT_FROM_NOW))
        return 0;
    *happened = 1;
    return 1;
}

/* Whether this call is to fail; errno is then set. */
static int fails(enum function function)
{
    if (!is_due(function))
        return 0;
    errno = failing_error;
    return 1;
}

/* How much a call that was asked for `wanted` bytes may transfer; -1 when it is to fail. A transfer
 * that cannot be shorter stays what it is. */
static ssize_t allowed(enum function function, size_t wanted)
{
    if (!is_due(function))
        return (ssize_t)wanted;
    if (failing_kind == VORN_FAULT_SHORT)
        return wanted > 1 ? (ssize_t)(wanted / 2) : (ssize_t)wanted;
    errno = failing_error;
    return -1;
}

/* The function of this name behind us. */
static void* behind(const char* name)
{
    void* address = dlsym(RTLD_NEXT, name);

    if (address == NULL)
        _exit(99);
    return address;
}

/* Whether transfers through the descriptor can fail at all: those of files, pipes and devices can,
 * those of the kernel's own objects, as counters of events, cannot. */
static int can_fail(int descriptor)
{
    static int (*real)(int, struct stat*);
    struct stat status;

    if (atomic_load(&armed) < 0)
        return 0;
    if (real == NULL) {
        void* found = behind("fstat");
        memcpy(&real, &found, sizeof real);
    }
    return real(descriptor, &status) == 0 && (status.st_mode & S_IFMT) != 0;
}

/* As `allowed`, for a transfer through a descriptor. */
static ssize_t allowed_at(int descriptor, enum function function, size_t wanted)
{
    return can_fail(descriptor) ? allowed(function, wanted) : (ssize_t)wanted;
}

/* Declares `real`, the function `name` behind us. The address is looked up once. */
#define REAL(name, result, ...)                                                                    \
    static result (*real)(__VA_ARGS__);                                                            \
    if (real == NULL) {                                                                            \
        void* found = behind(#name);                                                               \
        memcpy(&real, &found, sizeof real);                                                        \
    }

/* ---- Memory ---- */

EXPORT void* malloc(size_t size)
{
    REAL(malloc, void*, size_t)
    return fails(MALLOC) ? NULL : real(size);
}

EXPORT void* calloc(size_t count, size_t size)
{
    REAL(calloc, void*, size_t, size_t)
    return fails(MALLOC) ? NULL : real(count, size);
}

EXPORT void* realloc(void* block, size_t size)
{
    REAL(realloc, void*, void*, size_t)
    return fails(MALLOC) ? NULL : real(block, size);
}

EXPORT void* aligned_alloc(size_t alignment, size_t size)
{
    REAL(aligned_alloc, void*, size_t, size_t)
    return fails(MALLOC) ? NULL : real(alignment, size);
}

/* ---- Streams ---- */

#define OPENING_STREAM(name)                                                                       \
    EXPORT FILE* name(const char* path, const char* mode)                                          \
    {                                                                                              \
        REAL(name, FILE*, const char*, const char*)                                                \
        return fails(FOPEN) ? NULL : real(path, mode);                                             \
    }
OPENING_STREAM(fopen)
OPENING_STREAM(fopen64)

EXPORT FILE* fdopen(int descriptor, const char* mode)
{
    REAL(fdopen, FILE*, int, const char*)
    return fails(FDOPEN) ? NULL : real(descriptor, mode);
}

EXPORT size_t fwrite(const void* from, size_t size, size_t count, FILE* file)
{
    REAL(fwrite, size_t, const void*, size_t, size_t, FILE*)
    const ssize_t some = allowed(FWRITE, count);
    return some < 0 ? 0 : real(from, size, (size_t)some, file);
}

EXPORT size_t fread(void* to, size_t size, size_t count, FILE* file)
{
    REAL(fread, size_t, void*, size_t, size_t, FILE*)
    const ssize_t some = allowed(FREAD, count);
    return some < 0 ? 0 : real(to, size, (size_t)some, file);
}

EXPORT size_t __fread_chk(void* to, size_t room, size_t size, size_t count, FILE* file)
{
    REAL(__fread_chk, size_t, void*, size_t, size_t, size_t, FILE*)
    const ssize_t some = allowed(FREAD, count);
    return some < 0 ? 0 : real(to, room, size, (size_t)some, file);
}

#define SEEKING(name, offset_type)                                                                 \
    EXPORT int name(FILE* file, offset_type offset, int whence)                                    \
    {                                                                                              \
        REAL(name, int, FILE*, offset_type, int)                                                   \
        return fails(FSEEKO) ? -1 : real(file, offset, whence);                                    \
    }
SEEKING(fseek, long)
SEEKING(fseeko, off_t)
SEEKING(fseeko64, off64_t)

EXPORT int fflush(FILE* file)
{
    REAL(fflush, int, FILE*)
    return fails(FFLUSH) ? EOF : real(file);
}

/* Closes all the same, as the system does when it reports what went wrong before. */
EXPORT int fclose(FILE* file)
{
    REAL(fclose, int, FILE*)
    const int due = is_due(FCLOSE);
    const int result = real(file);
    if (!due)
        return result;
    errno = failing_error;
    return EOF;
}

/* ---- Files ---- */

static int needs_mode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

#define OPENING(name)                                                                              \
    EXPORT int name(const char* path, int flags, ...)                                              \
    {                                                                                              \
        REAL(name, int, const char*, int, ...)                                                     \
        mode_t mode = 0;                                                                           \
        if (needs_mode(flags)) {                                                                   \
            va_list rest;                                                                          \
            va_start(rest, flags);                                                                 \
            mode = va_arg(rest, mode_t);                                                           \
            va_end(rest);                                                                          \
        }                                                                                          \
        return fails(OPEN) ? -1 : real(path, flags, mode);                                         \
    }
OPENING(open)
OPENING(open64)

#define OPENING_AT(name)                                                                           \
    EXPORT int name(int directory, const char* path, int flags, ...)                               \
    {                                                                                              \
        REAL(name, int, int, const char*, int, ...)                                                \
        mode_t mode = 0;                                                                           \
        if (needs_mode(flags)) {                                                                   \
            va_list rest;                                                                          \
            va_start(rest, flags);                                                                 \
            mode = va_arg(rest, mode_t);                                                           \
            va_end(rest);                                                                          \
        }                                                                                          \
        return fails(OPEN) ? -1 : real(directory, path, flags, mode);                              \
    }
OPENING_AT(openat)
OPENING_AT(openat64)

#define OPENING_CHECKED(name)                                                                      \
    EXPORT int name(const char* path, int flags)                                                   \
    {                                                                                              \
        REAL(name, int, const char*, int)                                                          \
        return fails(OPEN) ? -1 : real(path, flags);                                               \
    }
OPENING_CHECKED(__open_2)
OPENING_CHECKED(__open64_2)

#define OPENING_TEMPORARY(name)                                                                    \
    EXPORT int name(char* pattern, int flags)                                                      \
    {                                                                                              \
        REAL(name, int, char*, int)                                                                \
        return fails(OPEN) ? -1 : real(pattern, flags);                                            \
    }
OPENING_TEMPORARY(mkostemp)
OPENING_TEMPORARY(mkostemp64)

#define MAKING_TEMPORARY(name)                                                                     \
    EXPORT int name(char* pattern)                                                                 \
    {                                                                                              \
        REAL(name, int, char*)                                                                     \
        return fails(OPEN) ? -1 : real(pattern);                                                   \
    }
MAKING_TEMPORARY(mkstemp)
MAKING_TEMPORARY(mkstemp64)

EXPORT ssize_t write(int descriptor, const void* from, size_t count)
{
    REAL(write, ssize_t, int, const void*, size_t)
    const ssize_t some = allowed_at(descriptor, WRITE, count);
    return some < 0 ? -1 : real(descriptor, from, (size_t)some);
}

#define WRITING_AT(name, offset_type)                                                              \
    EXPORT ssize_t name(int descriptor, const void* from, size_t count, offset_type offset)        \
    {                                                                                              \
        REAL(name, ssize_t, int, const void*, size_t, offset_type)                                 \
        const ssize_t some = allowed_at(descriptor, WRITE, count);                                 \
        return some < 0 ? -1 : real(descriptor, from, (size_t)some, offset);                       \
    }
WRITING_AT(pwrite, off_t)
WRITING_AT(pwrite64, off64_t)

EXPORT ssize_t read(int descriptor, void* to, size_t count)
{
    REAL(read, ssize_t, int, void*, size_t)
    const ssize_t some = allowed_at(descriptor, READ, count);
    return some < 0 ? -1 : real(descriptor, to, (size_t)some);
}

EXPORT ssize_t __read_chk(int descriptor, void* to, size_t count, size_t room)
{
    REAL(__read_chk, ssize_t, int, void*, size_t, size_t)
    const ssize_t some = allowed_at(descriptor, READ, count);
    return some < 0 ? -1 : real(descriptor, to, (size_t)some, room);
}

#define READING_AT(name, offset_type)                                                              \
    EXPORT ssize_t name(int descriptor, void* to, size_t count, offset_type offset)                \
    {                                                                                              \
        REAL(name, ssize_t, int, void*, size_t, offset_type)                                       \
        const ssize_t some = allowed_at(descriptor, READ, count);                                  \
        return some < 0 ? -1 : real(descriptor, to, (size_t)some, offset);                         \
    }
READING_AT(pread, off_t)
READING_AT(pread64, off64_t)

#define READING_AT_CHECKED(name, offset_type)                                                      \
    EXPORT ssize_t name(int descriptor, void* to, size_t count, offset_type offset, size_t room)   \
    {                                                                                              \
        REAL(name, ssize_t, int, void*, size_t, offset_type, size_t)                               \
        const ssize_t some = allowed_at(descriptor, READ, count);                                  \
        return some < 0 ? -1 : real(descriptor, to, (size_t)some, offset, room);                   \
    }
READING_AT_CHECKED(__pread_chk, off_t)
READING_AT_CHECKED(__pread64_chk, off64_t)

enum
{
    MOST_PARTS = 16
};

/* The first bytes of `parts`, as many as may be transferred, in `some`. Returns their number of
 * parts; -1 when the call is to fail. */
static int allowed_parts(enum function function, const struct iovec* parts, int count,
                         struct iovec* some)
{
    size_t wanted = 0;
    ssize_t rest;
    int i;

    for (i = 0; i < count; ++i)
        wanted += parts[i].iov_len;
    rest = allowed(function, wanted);
    if (rest < 0)
        return -1;
    for (i = 0; i < count && rest > 0; ++i) {
        some[i] = parts[i];
        if (some[i].iov_len > (size_t)rest)
            some[i].iov_len = (size_t)rest;
        rest -= (ssize_t)some[i].iov_len;
    }
    return i;
}

#define PARTS_AT(name, function, offset_type)                                                      \
    EXPORT ssize_t name(int descriptor, const struct iovec* parts, int count, offset_type offset)  \
    {                                                                                              \
        REAL(name, ssize_t, int, const struct iovec*, int, offset_type)                            \
        struct iovec some[MOST_PARTS];                                                             \
        if (count > MOST_PARTS)                                                                    \
            return real(descriptor, parts, count, offset);                                         \
        count = allowed_parts(function, parts, count, some);                                       \
        return count < 0 ? -1 : real(descriptor, some, count, offset);                             \
    }
PARTS_AT(pwritev, WRITE, off_t)
PARTS_AT(pwritev64, WRITE, off64_t)
PARTS_AT(preadv, READ, off_t)
PARTS_AT(preadv64, READ, off64_t)

EXPORT ssize_t writev(int descriptor, const struct iovec* parts, int count)
{
    REAL(writev, ssize_t, int, const struct iovec*, int)
    struct iovec some[MOST_PARTS];
    if (count > MOST_PARTS)
        return real(descriptor, parts, count);
    count = allowed_parts(WRITE, parts, count, some);
    return count < 0 ? -1 : real(descriptor, some, count);
}

/* Closes all the same. */
EXPORT int close(int descriptor)
{
    REAL(close, int, int)
    const int due = is_due(CLOSE);
    const int result = real(descriptor);
    if (!due)
        return result;
    errno = failing_error;
    return -1;
}

#define CONTROLLING(name)                                                                          \
    EXPORT int name(int descriptor, int command, ...)                                              \
    {                                                                                              \
        REAL(name, int, int, int, ...)                                                             \
        void* argument;                                                                            \
        va_list rest;                                                                              \
        va_start(rest, command);                                                                   \
        argument = va_arg(rest, void*);                                                            \
        va_end(rest);                                                                              \
        return fails(FCNTL) ? -1 : real(descriptor, command, argument);                            \
    }
CONTROLLING(fcntl)
CONTROLLING(fcntl64)

#define TRUNCATING(name, offset_type)                                                              \
    EXPORT int name(int descriptor, offset_type size)                                              \
    {                                                                                              \
        REAL(name, int, int, offset_type)                                                          \
        return fails(FTRUNCATE) ? -1 : real(descriptor, size);                                     \
    }
TRUNCATING(ftruncate, off_t)
TRUNCATING(ftruncate64, off64_t)

EXPORT int unlink(const char* path)
{
    REAL(unlink, int, const char*)
    return fails(UNLINK) ? -1 : real(path);
}

EXPORT int rename(const char* from, const char* to)
{
    REAL(rename, int, const char*, const char*)
    return fails(RENAME) ? -1 : real(from, to);
}

EXPORT int renameat2(int from_directory, const char* from, int to_directory, const char* to,
                     unsigned flags)
{
    REAL(renameat2, int, int, const char*, int, const char*, unsigned)
    return fails(RENAME) ? -1 : real(from_directory, from, to_directory, to, flags);
}

EXPORT int fchmod(int descriptor, mode_t mode)
{
    REAL(fchmod, int, int, mode_t)
    return fails(FCHMOD) ? -1 : real(descriptor, mode);
}

EXPORT int fsync(int descriptor)
{
    REAL(fsync, int, int)
    return fails(FSYNC) ? -1 : real(descriptor);
}

EXPORT char* mkdtemp(char* pattern)
{
    REAL(mkdtemp, char*, char*)
    return fails(MKDTEMP) ? NULL : real(pattern);
}

#define ASKING(name, type)                                                                         \
    EXPORT int name(type file, struct stat* status)                                                \
    {                                                                                              \
        REAL(name, int, type, struct stat*)                                                        \
        return fails(STAT) ? -1 : real(file, status);                                              \
    }
ASKING(stat, const char*)
ASKING(lstat, const char*)
ASKING(fstat, int)

/* The loader's error text then speaks of an earlier call, or there is none. */
EXPORT void* dlopen(const char* path, int flags)
{
    REAL(dlopen, void*, const char*, int)
    return fails(DLOPEN) ? NULL : real(path, flags);
}
