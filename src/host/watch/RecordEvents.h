/// @file RecordEvents.h
///
/// What stands before each call and each result in the frames of a record.
#ifndef RECORDEVENTS_H
#define RECORDEVENTS_H

namespace host {

/// The byte before an event.
enum class RecordEvent
{
    none = 0,  ///< there are no more: the entry point has returned
    call = 1,  ///< number of the function's name, with the names where it is new; arguments
    result = 2 ///< what the call has written; result
};

} // namespace host

#endif
