/// @file LazyLibrary.h
///
/// Shared libraries that most calls of the command do not need. Loading one costs a millisecond
/// with all that it needs itself, and every symbol that a module library uses is looked up in it:
/// such a library is loaded when its first function is called, not with the command.
#ifndef LAZYLIBRARY_H
#define LAZYLIBRARY_H

namespace host {

/// A library that stays loaded once it is. Safe to use from several threads.
class LazyLibrary
{
public:
    /// `soname` is its name as the dynamic linker knows it, `purpose` what needs it, as in
    /// "pictures": for the message. Keeps both pointers.
    constexpr LazyLibrary(const char* soname, const char* purpose) : name(soname), use(purpose) {}

    /// The function of that name. The library is loaded where it is not yet. Throws CommandError
    /// when the library or the function does not exist.
    void* function(const char* function) const;

private:
    const char* name;
    const char* use;
};

} // namespace host

#endif
