/// @file ChannelCoding.h
///
/// What others do to the channels of a module between two calls of it, and what one call of it
/// leaves there, as bytes of a record.
#ifndef CHANNELCODING_H
#define CHANNELCODING_H

#include "watch/RecordBytes.h"

#include <cstdint>
#include <string>
#include <vector>

class DataChannel;
class ModuleEntity;

namespace host {

/// What a channel held at one moment.
struct ChannelMark
{
    /// A place for a trace.
    struct Place
    {
        int64_t arrivalNo = 0; ///< tells traces apart
        int flag = 0;
        bool isEmpty = false; ///< its trace has been moved away
    };
    std::vector<Place> places;
    int64_t layout = 0; ///< SeisTraceSet::layoutNumber
    std::size_t attributes = 0;
};

/// What `channel` holds now.
ChannelMark markOf(const DataChannel& channel);
/// The same of several.
std::vector<ChannelMark> marksOf(const std::vector<DataChannel*>& channels);

/// Appends what has become different since `before`: traces that are gone or new, with their
/// content, flags, and the layout of headers.
void writeChange(DataChannel& channel, const ChannelMark& before, ByteWriter& bytes);

/// Who takes part in a replay besides the module.
struct ChannelOwners
{
    ModuleEntity* producer = nullptr; ///< adds traces
    ModuleEntity* consumer = nullptr; ///< takes them
};

/// Does to `channel` what writeChange() has noted. Traces that a module which behaves differently
/// has left out are not missed.
void repeatChange(ByteReader& bytes, DataChannel& channel, const ChannelOwners& owners);

/// Appends what a call of the module has left in `channel`, with the traces that have come there
/// since `before` where they are `given` by it.
void writeResult(DataChannel& channel, const ChannelMark& before, bool given, ByteWriter& bytes);

/// What is different between two results, in words that follow "output 0: "; "" where nothing is.
/// `channel` has the names of the attributes.
std::string describeResultDifference(ByteReader& recorded, ByteReader& now,
                                     const DataChannel& channel, double tolerance);

} // namespace host

#endif
