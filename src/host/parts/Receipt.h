/// @file Receipt.h
///
/// What a part tells when it has ended.
#ifndef RECEIPT_H
#define RECEIPT_H

#include "job/RunResult.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// A message that a module sent while it processed.
struct PartMessage
{
    RunMessage message;
    std::string onceKey; ///< of those with the same key and module the first of all parts counts
};

/// What one module of the first stage did in a part.
struct PartModule
{
    std::string name;
    int64_t tracesIn = 0;
    int64_t tracesOut = 0;
    int64_t processMicros = 0;
    int64_t peakBytes = 0;
    /// Of its saved state; -1: it has none.
    int64_t stateBytes = -1;
};

/// What a part has read of a file, as ranges [first byte, byte behind the last).
struct PartReading
{
    std::string module;
    std::string path;
    std::vector<std::pair<int64_t, int64_t>> ranges;
};

/// The facts of one part. It is written when everything else of the part is on disk: a part that
/// has one is done.
struct Receipt
{
    std::string planSha256; ///< of the plan's file
    int part = 0;           ///< from 1
    bool failed = false;    ///< then only the messages count
    std::string host;
    std::string started; ///< local time
    int64_t wallMicros = 0;
    int64_t processWallMicros = 0;
    int64_t peakJobBytes = 0;
    std::vector<PartMessage> messages;
    int64_t messagesLeftOut = 0;
    std::vector<PartModule> modules;
    std::vector<SourceData> sources;
    std::vector<int64_t> spooled; ///< traces in each spool of the plan, in its order
    std::vector<PartReading> readings;
};

/// @name Names in the directory of a plan; parts count from 1
/// @{
std::string receiptPath(const std::string& directory, int part);
std::string failurePath(const std::string& directory, int part); ///< of a part that failed
std::string statePath(const std::string& directory, int part, const std::string& module);
std::string spoolPath(const std::string& directory, int part, std::size_t spool);
std::string livePath(const std::string& directory, int part); ///< counters while it runs
std::string logPath(const std::string& directory, int part);
/// @}

/// Writes a receipt beside its place and renames it. Throws CommandError with `exitTryAgain`.
void writeReceipt(const std::string& path, const Receipt& receipt);

/// Throws CommandError, which names the file and what to do, for one that is damaged, or of another
/// version.
Receipt readReceipt(const std::string& path);

} // namespace host

#endif
