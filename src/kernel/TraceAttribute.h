/// @file TraceAttribute.h
///
/// Named values in trace headers. The host describes them once in the job's schema (`trAttDefStr`,
/// kept by the job manager); every trace set turns a name into a place in its own headers
/// (`traceAttIdent`) when it first meets the name.
#ifndef TRACEATTRIBUTE_H
#define TRACEATTRIBUTE_H

#include "vorn_export.h"

#include <string>

/// One definition of the job's attribute schema. The kernel interprets `type` and `dim` alone and
/// hands the rest back as it was given.
struct VORN_EXPORT trAttDefStr
{
    int type; ///< 1 text, 2/3 integer of 32/64 bits, 4/5 float of 32/64 bits, 9/10 text slot
              ///< of 32/64 characters; anything else counts as one 32-bit integer
    int dim;  ///< elements (numbers), characters (type 1), slots (types 9 and 10)
    std::string descr; ///< free description
    int cstSlot;       ///< kept for the host and the modules
    int cstType;       ///< kept for the host and the modules
    int bitA;          ///< kept for the host and the modules
    int bitZ;          ///< kept for the host and the modules
    int mapCoef;       ///< kept for the host and the modules
};

/// How an attribute is stored in a trace header.
enum traceAttVarType : int
{
    undefinedAttType = 0,
    strAttType = 1,
    int32AttType = 2,
    int64AttType = 3,
    float32AttType = 4,
    float64AttType = 5,
    int32ArrayAttType = 6,
    int64ArrayAttType = 7,
    float32ArrayAttType = 8,
    float64ArrayAttType = 9
};

/// The place of an attribute in every trace header of one trace set. Attributes stand one after
/// another in the order in which the set first asked for them, without alignment, in the machine's
/// byte order.
class VORN_EXPORT traceAttIdent
{
public:
    traceAttVarType type; ///< how the value is stored
    int offset;           ///< bytes from the start of the header
    int dim;              ///< elements as resolved; -1 for a name that the schema does not know
    int size;             ///< bytes of one stored value, as reads and writes use them

    /// All four fields zero.
    traceAttIdent();

    /// Resolves `name` against the schema of the job and places it at `nextOffset`, which then
    /// moves past the space reserved: max(1, dim) * size bytes. Deliberate: an array of n elements
    /// reserves n times its own size, of which reads and writes use the first; layouts written by
    /// existing modules depend on it. A name that the schema does not know becomes one 32-bit
    /// integer.
    traceAttIdent(const std::string& name, int& nextOffset);
};

#endif
