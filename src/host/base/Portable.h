/// @file Portable.h
///
/// Results that are the same on every x86-64 machine.
#ifndef PORTABLE_H
#define PORTABLE_H

namespace host {

/// Whether this process uses no vector instructions beyond those that every x86-64 processor has:
/// the environment has VORN_PORTABLE, which transforms look at, and the C library was told when
/// the process began.
bool isPortable();

/// Starts this program again, with its own words, so that it is portable; returns where it is
/// already. The mathematical functions of the C library choose their code when a process begins:
/// with fused multiplication and addition, last digits differ. Throws CommandError.
void becomePortable();

} // namespace host

#endif
