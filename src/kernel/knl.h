/** @file knl.h
 *
 * The module programming interface in C: what a processing module calls while one of its entry
 * points (`preprocess_`, `process_`, `postprocess_`) runs. Readable by C99 and C++ compilers;
 * Fortran modules use the functions of knl_fortran.h instead.
 *
 * What holds for every function here:
 *
 * - **The running module.** Parameters, resources, buffers, options, memory and metadata are those
 *   of the module whose entry point is running. Called while none runs, every parameter, resource
 *   and buffer counts as absent. All calls are to be made on the thread that called the entry
 *   point: the kernel locks nothing, and a call from another thread is a programming error that it
 *   does not notice.
 * - **Return codes differ by family**, and are stated at each. Typed getters return 1 when the
 *   name exists and 0 when it does not; buffer look-ups and builds return 0 on success and 1 on
 *   failure.
 * - **Outputs** are written only where the text says so: a getter that returns 0 leaves them as
 *   they were. Output addresses must not be null.
 * - **Values convert.** Each value has a type of its own, and a getter converts it to the type
 *   that it is named for: text of up to 15 characters is parsed (a leading number is enough,
 *   `12abc` gives 12), single numbers are converted, anything else arrives as 0, as a null pointer
 *   or as a null handle. Arrays are handed out only as what they are: one of other numbers arrives
 *   as a null pointer; the `knl_copy...` functions convert their elements. A type that does not fit
 *   is not a failure: the getter still returns 1.
 * - **Type words in names:** `I32` int, `I64` int64_t, `F32` float, `F64` double, `Str` and
 *   `String` NUL-terminated text, `Lib` library handle, `Group` and `Grp` group handle, `...Array`
 *   a pointer to the first element and the number of elements.
 * - **Text in** is copied by the kernel: the caller's buffer may be reused at once. A null name
 *   counts as the empty text.
 * - **Text out** is copied into the caller's buffer with its NUL, and no length is checked: the
 *   buffer must have room for the whole text. The functions that end with `N`, and
 *   knl_getMetaDataValue(), take the length of the buffer and return that of the text.
 * - **Arrays in** are copied by the kernel. **Arrays out** are kernel memory, handed out as
 *   pointer and count: they stay valid until the entry point returns, however many are asked for,
 *   and the module never frees them.
 * - **Handles** are `void*`: a trace set (input, output or work buffer), a library, a group or a
 *   list of attributes. They are made by this interface only; the module may free lists of
 *   attributes, and nothing else. On a null handle, getters
 *   of trace sets and groups find nothing, setters do nothing, and the result is the one stated
 *   for "absent" or "refused"; any other address that is not a handle is a programming error.
 * - **Numbers count from zero**: channels, work buffers, traces, rows of a group. Sample intervals
 *   are kept and handed back as set (modules use microseconds); lengths count samples.
 */
#ifndef KNL_H
#define KNL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

/* ---------------------------------------------------------------------------- names of numbers */

/** Types of messages, for knl_sendMessage(). */
enum
{
    KNL_MESSAGE_DETAIL = 0,
    KNL_MESSAGE_INFORMATION = 1,
    KNL_MESSAGE_WARNING = 2,
    KNL_MESSAGE_ERROR = 3, /**< the job goes on */
    KNL_MESSAGE_FATAL = 4  /**< the module ends its data */
};

/** Flags of data channels, for knl_setDataChannelFlag() and knl_getDataChannelFlag(). */
enum
{
    KNL_END_OF_DATA = 3 /**< this trace is the last one, or no trace follows */
};

/** Flags of inputs, for knl_setInputTraceBufferFlag(). */
enum
{
    KNL_KEEP_TRACE = 1 /**< the trace stays for the next call */
};

/** Where metadata are kept, for knl_setMetaDataValue() and knl_getMetaDataValue(). */
enum
{
    KNL_SCOPE_JOB = 0,
    KNL_SCOPE_MODULE = 1 /**< written: the running module; read: those upstream of it */
};

/** Type codes of the schema, as knl_getTraceAttributeType() gives them. */
enum
{
    KNL_TYPE_TEXT = 1,
    KNL_TYPE_I32 = 2,
    KNL_TYPE_I64 = 3,
    KNL_TYPE_F32 = 4,
    KNL_TYPE_F64 = 5,
    KNL_TYPE_TEXT32 = 9, /**< text of 32 bytes */
    KNL_TYPE_TEXT64 = 10 /**< text of 64 bytes */
};

/** How a set stores an attribute, as knl_getAttributeListPresence() gives it: these, and 1 to 5 as
 * in the schema. */
enum
{
    KNL_STORED_NOT = 0,
    KNL_STORED_I32_ARRAY = 6,
    KNL_STORED_I64_ARRAY = 7,
    KNL_STORED_F32_ARRAY = 8,
    KNL_STORED_F64_ARRAY = 9
};

/** Types of pads for knl_createPad(), and codes of the pen for knl_plot(), as the command `vorn`
 * understands them. */
enum
{
    KNL_PAD_SECTION = 1,
    KNL_PAD_GRAPH = 2,
    KNL_PAD_SECTION_AND_GRAPH = 3,
    KNL_PEN_DRAW = 2,
    KNL_PEN_MOVE = 3
};

/* ------------------------------------------------------------- module parameters and options */

/** Read what the job gave the running module for the parameter `attKey`.
 *
 * @param attKey    parameter name
 * @param[out] var  the value, converted; untouched when the result is 0
 * @return 1 when the parameter exists; 0 when it does not, or when no module is running
 *
 * Array forms: `*var` points to the first element, kernel memory that stays valid until the entry
 * point returns; `*size` is the number of elements. A value that is not an array of exactly this
 * element type gives a null `*var` and its own array size, with the result 1.
 * Text form: the value as text, whole and with its NUL; `var` must have room for it.
 * Library and group forms: `*var` is the handle, null when the value is none.
 */
/** @{ */
int knl_getI32ModuleParameter(const char* attKey, int* var);
int knl_getI64ModuleParameter(const char* attKey, int64_t* var);
int knl_getF32ModuleParameter(const char* attKey, float* var);
int knl_getF64ModuleParameter(const char* attKey, double* var);
int knl_getI32ArrayModuleParameter(const char* attKey, int** var, int* size);
int knl_getI64ArrayModuleParameter(const char* attKey, int64_t** var, int* size);
int knl_getF32ArrayModuleParameter(const char* attKey, float** var, int* size);
int knl_getF64ArrayModuleParameter(const char* attKey, double** var, int* size);
int knl_getStrModuleParameter(const char* attKey, char* var);
int knl_getLibModuleParameter(const char* attKey, void** var);
int knl_getGroupModuleParameter(const char* attKey, void** var);
/** @} */

/** As knl_getStrModuleParameter(), into a buffer of stated size.
 *
 * @param attKey    parameter name
 * @param[out] var  at most `n` bytes, the NUL included: the text or its first n - 1 bytes;
 *                  untouched when the parameter does not exist or `n` is below 1
 * @param n         room at `var` in bytes
 * @return the length of the whole text in bytes without its NUL (`n` or more means that it was
 *         cut); -1 when the parameter does not exist, or when no module is running
 */
int knl_getStrModuleParameterN(const char* attKey, char* var, int n);

/** Copy the numbers of the parameter `attKey`, each converted as the function for a single number
 * of that type converts it.
 *
 * @param attKey       parameter name
 * @param[out] values  the first `n` elements of an array of any type of numbers, or, from a value
 *                     that is not an array, the one element that the function for a single number
 *                     gives; untouched when the parameter does not exist
 * @param n            room at `values` in elements; with 0, `values` may be null
 * @return the number of elements of the value (more than `n` means that some were left out); -1
 *         when the parameter does not exist, or when no module is running
 */
/** @{ */
int knl_copyI32ModuleParameter(const char* attKey, int* values, int n);
int knl_copyI64ModuleParameter(const char* attKey, int64_t* values, int n);
int knl_copyF32ModuleParameter(const char* attKey, float* values, int n);
int knl_copyF64ModuleParameter(const char* attKey, double* values, int n);
/** @} */

/** Sets a processing option of the running module, which the scheduler reads: with "RespectEOD" set
 * to anything but 0, the module goes on being called, with empty inputs, when they have ended,
 * until it marks its own end of data. Nothing happens when no module is running.
 *
 * @param option  option name
 * @param value   its new value
 */
void knl_setModuleProcessingOption(const char* option, int value);

/** Read a processing option of the running module.
 *
 * @param option      option name
 * @param[out] value  its value, converted; untouched when the result is 0
 * @return 1 when the option is set, else 0
 */
int knl_getModuleProcessingOption(const char* option, int* value);

/* ------------------------------------------------------------------------------------ groups */

/** The number of rows (repetitions) of a group; 0 for a null handle. */
int knl_getGroupParameterSize(void* group);

/** Read the parameter `attKey` in row `num` (from 0) of a group.
 *
 * @param group     group handle; a null one holds nothing
 * @param attKey    parameter name
 * @param num       row; a row that does not exist holds nothing, and asking does not make it
 * @param[out] var  the value, converted; untouched when the result is 0
 * @return 1 when that row holds the parameter, else 0
 *
 * Arrays, texts and handles as for module parameters.
 */
/** @{ */
int knl_getI32GroupParameter(void* group, const char* attKey, int num, int* var);
int knl_getI64GroupParameter(void* group, const char* attKey, int num, int64_t* var);
int knl_getF32GroupParameter(void* group, const char* attKey, int num, float* var);
int knl_getF64GroupParameter(void* group, const char* attKey, int num, double* var);
int knl_getI32ArrayGroupParameter(void* group, const char* attKey, int num, int** var, int* size);
int knl_getI64ArrayGroupParameter(void* group, const char* attKey, int num, int64_t** var,
                                  int* size);
int knl_getF32ArrayGroupParameter(void* group, const char* attKey, int num, float** var, int* size);
int knl_getF64ArrayGroupParameter(void* group, const char* attKey, int num, double** var,
                                  int* size);
int knl_getStrGroupParameter(void* group, const char* attKey, int num, char* var);
int knl_getLibGroupParameter(void* group, const char* attKey, int num, void** var);
int knl_getGrpGroupParameter(void* group, const char* attKey, int num, void** var);
/** @} */

/** As knl_getStrModuleParameterN() and the functions after it, of row `num` (from 0) of a group. */
/** @{ */
int knl_getStrGroupParameterN(void* group, const char* attKey, int num, char* var, int n);
int knl_copyI32GroupParameter(void* group, const char* attKey, int num, int* values, int n);
int knl_copyI64GroupParameter(void* group, const char* attKey, int num, int64_t* values, int n);
int knl_copyF32GroupParameter(void* group, const char* attKey, int num, float* values, int n);
int knl_copyF64GroupParameter(void* group, const char* attKey, int num, double* values, int n);
/** @} */

/** Store a value under `attKey` in row `num` (from 0) of a group, in place of an earlier one. Rows
 * up to `num` are made where they are missing.
 *
 * @param group   group handle
 * @param attKey  parameter name
 * @param num     row
 * @param var     the value; texts and arrays are copied
 * @return 1 when stored, 0 when refused (null handle, negative row)
 *
 * - `size`: array forms: number of elements
 */
/** @{ */
int knl_setI32GroupParameter(void* group, const char* attKey, int num, int var);
int knl_setI64GroupParameter(void* group, const char* attKey, int num, int64_t var);
int knl_setF32GroupParameter(void* group, const char* attKey, int num, float var);
int knl_setF64GroupParameter(void* group, const char* attKey, int num, double var);
int knl_setI32ArrayGroupParameter(void* group, const char* attKey, int num, const int* var,
                                  int size);
int knl_setI64ArrayGroupParameter(void* group, const char* attKey, int num, const int64_t* var,
                                  int size);
int knl_setF32ArrayGroupParameter(void* group, const char* attKey, int num, const float* var,
                                  int size);
int knl_setF64ArrayGroupParameter(void* group, const char* attKey, int num, const double* var,
                                  int size);
int knl_setStringGroupParameter(void* group, const char* attKey, int num, const char* var);
/** @} */

/** The group stored under `attKey` in row `num` of a group; a new one without rows is made and
 * stored there first when the row holds no such parameter. A group made here lives as long as the
 * process.
 *
 * @param group     handle of the outer group
 * @param attKey    parameter name
 * @param num       row of the outer group, from 0
 * @param[out] var  the inner group's handle; null when the parameter exists and is not a group;
 *                  untouched when the result is 0
 * @return 1 when the parameter is present afterwards; 0 when refused (null handle, negative row)
 */
int knl_setGrpGroupParameter(void* group, const char* attKey, int num, void** var);

/* --------------------------------------------------------------------------------- libraries */

/** The kind of a library as a number: "CN" 0, "GD" 1, "GR" 2, "MU" 3, "VI" 4, "ED" 5, "GE" 6, "GX"
 * 7, "ST" 8, "XY" 9, "UM" 10, "FD" 11, "HZ" 12; -1 for any other kind and for a null handle.
 */
int knl_getLibraryType(void* libri);

/** Read the parameter `attKey` of a library.
 *
 * @param libri     library handle
 * @param attKey    parameter name
 * @param[out] var  the value, converted; untouched when the result is 0
 * @return 1 when the library holds the parameter, else 0
 *
 * Arrays, texts and handles as for module parameters.
 */
/** @{ */
int knl_getI32LibraryParameter(void* libri, const char* attKey, int* var);
int knl_getI64LibraryParameter(void* libri, const char* attKey, int64_t* var);
int knl_getF32LibraryParameter(void* libri, const char* attKey, float* var);
int knl_getF64LibraryParameter(void* libri, const char* attKey, double* var);
int knl_getI32ArrayLibraryParameter(void* libri, const char* attKey, int** var, int* size);
int knl_getI64ArrayLibraryParameter(void* libri, const char* attKey, int64_t** var, int* size);
int knl_getF32ArrayLibraryParameter(void* libri, const char* attKey, float** var, int* size);
int knl_getF64ArrayLibraryParameter(void* libri, const char* attKey, double** var, int* size);
int knl_getStrLibraryParameter(void* libri, const char* attKey, char* var);
int knl_getLibLibraryParameter(void* libri, const char* attKey, void** var);
int knl_getGroupLibraryParameter(void* libri, const char* attKey, void** var);
/** @} */

/** As knl_getStrModuleParameterN() and the functions after it, of a library. */
/** @{ */
int knl_getStrLibraryParameterN(void* libri, const char* attKey, char* var, int n);
int knl_copyI32LibraryParameter(void* libri, const char* attKey, int* values, int n);
int knl_copyI64LibraryParameter(void* libri, const char* attKey, int64_t* values, int n);
int knl_copyF32LibraryParameter(void* libri, const char* attKey, float* values, int n);
int knl_copyF64LibraryParameter(void* libri, const char* attKey, double* values, int n);
/** @} */

/** Store a value under `attKey` in a library, in place of an earlier one.
 *
 * @param libri   library handle
 * @param attKey  parameter name
 * @param var     the value; texts and arrays are copied
 * @return 1 when stored, 0 when refused (null handle)
 *
 * - `size`: array forms: number of elements
 */
/** @{ */
int knl_setI32LibraryParameter(void* libri, const char* attKey, int var);
int knl_setI64LibraryParameter(void* libri, const char* attKey, int64_t var);
int knl_setF32LibraryParameter(void* libri, const char* attKey, float var);
int knl_setF64LibraryParameter(void* libri, const char* attKey, double var);
int knl_setI32ArrayLibraryParameter(void* libri, const char* attKey, const int* var, int size);
int knl_setI64ArrayLibraryParameter(void* libri, const char* attKey, const int64_t* var, int size);
int knl_setF32ArrayLibraryParameter(void* libri, const char* attKey, const float* var, int size);
int knl_setF64ArrayLibraryParameter(void* libri, const char* attKey, const double* var, int size);
int knl_setStringLibraryParameter(void* libri, const char* attKey, const char* var);
/** @} */

/** The group stored under `attKey` in a library; a new one without rows is made and stored there
 * first when the library holds no such parameter. A group made here lives as long as the process.
 *
 * @param libri     library handle
 * @param attKey    parameter name
 * @param[out] var  the group's handle; null when the parameter exists and is not a group; untouched
 *                  when the result is 0
 * @return 1 when the parameter is present afterwards; 0 when refused (null handle)
 */
int knl_setGrpLibraryParameter(void* libri, const char* attKey, void** var);

/* -------------------------------------------------------------------------- trace attributes */

/** Gives the attribute `attKey` a place in the headers of a trace set's traces, of the type that
 * the job's schema states for the name (a 32-bit integer for a name that the schema does not know).
 * Nothing changes when the set has the attribute already.
 *
 * @return 1 when the set has the attribute now, 0 when refused (null handle)
 */
int knl_defineTraceAttribute(void* trace, const char* attKey);

/** Read the attribute `attKey` of trace 0 of a trace set.
 *
 * @param trace     trace set handle
 * @param attKey    attribute name
 * @param[out] var  the value, converted; untouched when the result is 0
 * @return 1 when the set has the attribute, else 0
 *
 * An attribute that the set has and that this trace's header is too short to hold was never written
 * there: it arrives as 0, as the empty text or as a null array. A set without traces makes trace 0.
 * Arrays and texts as for module parameters.
 */
/** @{ */
int knl_getI32TraceAttribute(void* trace, const char* attKey, int* var);
int knl_getI64TraceAttribute(void* trace, const char* attKey, int64_t* var);
int knl_getF32TraceAttribute(void* trace, const char* attKey, float* var);
int knl_getF64TraceAttribute(void* trace, const char* attKey, double* var);
int knl_getI32ArrayTraceAttribute(void* trace, const char* attKey, int** var, int* size);
int knl_getI64ArrayTraceAttribute(void* trace, const char* attKey, int64_t** var, int* size);
int knl_getF32ArrayTraceAttribute(void* trace, const char* attKey, float** var, int* size);
int knl_getF64ArrayTraceAttribute(void* trace, const char* attKey, double** var, int* size);
int knl_getStrTraceAttribute(void* trace, const char* attKey, char* var);
/** @} */

/** Write the attribute `attKey` of trace 0 of a trace set, defining it first where it is missing
 * and making the trace where the set has none.
 *
 * @param trace   trace set handle
 * @param attKey  attribute name
 * @param var     the value; it is converted to the attribute's own type, except that arrays are
 *                taken only by an array attribute of the same element type, from at least as many
 *                elements as the schema states for it
 * @return 1 when written, 0 when refused (null handle). An array for an attribute that does not
 *         take it leaves the header as it was, and the result is 1 all the same
 *
 * - `size`: array forms: number of elements
 */
/** @{ */
int knl_setI32TraceAttribute(void* trace, const char* attKey, int var);
int knl_setI64TraceAttribute(void* trace, const char* attKey, int64_t var);
int knl_setF32TraceAttribute(void* trace, const char* attKey, float var);
int knl_setF64TraceAttribute(void* trace, const char* attKey, double var);
int knl_setI32ArrayTraceAttribute(void* trace, const char* attKey, const int* var, int size);
int knl_setI64ArrayTraceAttribute(void* trace, const char* attKey, const int64_t* var, int size);
int knl_setF32ArrayTraceAttribute(void* trace, const char* attKey, const float* var, int size);
int knl_setF64ArrayTraceAttribute(void* trace, const char* attKey, const double* var, int size);
int knl_setStrTraceAttribute(void* trace, const char* attKey, const char* var);
/** @} */

/** Read the attribute `attKey` of trace `traceNo` (from 0) of a trace set, as the functions above
 * do of trace 0. A missing trace is made, with all before it, unless the set has no such attribute.
 *
 * @return 1 when the set has the attribute; 0, with the outputs as they were, when not, for a null
 *         handle, and when `traceNo` is negative
 */
/** @{ */
int knl_mgetI32TraceAttribute(void* trace, const char* attKey, int traceNo, int* var);
int knl_mgetI64TraceAttribute(void* trace, const char* attKey, int traceNo, int64_t* var);
int knl_mgetF32TraceAttribute(void* trace, const char* attKey, int traceNo, float* var);
int knl_mgetF64TraceAttribute(void* trace, const char* attKey, int traceNo, double* var);
int knl_mgetI32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, int** var,
                                   int* size);
int knl_mgetI64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, int64_t** var,
                                   int* size);
int knl_mgetF32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, float** var,
                                   int* size);
int knl_mgetF64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, double** var,
                                   int* size);
/** @} */

/** As knl_getStrModuleParameterN() and the functions after it, of trace `traceNo` (from 0) of a
 * trace set; -1 also when `traceNo` is negative. */
/** @{ */
int knl_mgetStrTraceAttributeN(void* trace, const char* attKey, int traceNo, char* var, int n);
int knl_mcopyI32TraceAttribute(void* trace, const char* attKey, int traceNo, int* values, int n);
int knl_mcopyI64TraceAttribute(void* trace, const char* attKey, int traceNo, int64_t* values,
                               int n);
int knl_mcopyF32TraceAttribute(void* trace, const char* attKey, int traceNo, float* values, int n);
int knl_mcopyF64TraceAttribute(void* trace, const char* attKey, int traceNo, double* values, int n);
/** @} */

/** Write the attribute `attKey` of trace `traceNo` (from 0) of a trace set, as the functions above
 * do of trace 0.
 *
 * @return 1 when written, 0 when refused (null handle, negative trace)
 */
/** @{ */
int knl_msetI32TraceAttribute(void* trace, const char* attKey, int traceNo, int var);
int knl_msetI64TraceAttribute(void* trace, const char* attKey, int traceNo, int64_t var);
int knl_msetF32TraceAttribute(void* trace, const char* attKey, int traceNo, float var);
int knl_msetF64TraceAttribute(void* trace, const char* attKey, int traceNo, double var);
int knl_msetI32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const int* var,
                                   int size);
int knl_msetI64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const int64_t* var,
                                   int size);
int knl_msetF32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const float* var,
                                   int size);
int knl_msetF64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const double* var,
                                   int size);
int knl_msetStrTraceAttribute(void* trace, const char* attKey, int traceNo, const char* var);
/** @} */

/* ------------------------------------------------------------- many trace attributes at once */

/** Makes a list of attribute names, for a module that reads or writes the same ones in every trace:
 * the functions below then take one call per trace instead of one per name. A list serves any
 * number of trace sets. It looks the names up when a set is used first, and again when the set's
 * layout has changed: attributes may be defined before the list is made or after. One call looks at
 * all names; where only a few change, another list of these few is quicker.
 *
 * @param names      attribute names, copied; a name may stand in the list more than once
 * @param count      number of names
 * @param[out] list  the list's handle, null on failure; always written. It belongs to the running
 *                   module and ends with it, unless the module frees it before
 * @return 0 on success; 1 when no module is running, when `count` is negative, or when `names` is
 *         null and `count` is not 0
 */
int knl_bldAttributeList(const char* const* names, int count, void** list);

/** Frees a list; a null handle is accepted. */
void knl_freeAttributeList(void* list);

/** The number of names in a list; 0 for a null handle. */
int knl_getAttributeListSize(void* list);

/** Which of a list's attributes a trace set has.
 *
 * @param list        list handle
 * @param traceSet    trace set handle
 * @param[out] types  room for one number per name, or null. The type under which the set stores the
 *                    attribute: 0 when it does not have it, 1 text, 2 and 3 integers of 32 and 64
 *                    bits, 4 and 5 floats of 32 and 64 bits, 6 to 9 arrays of these four; not
 *                    written when a handle is null
 * @return how many of the names the set has; 0 when a handle is null
 */
int knl_getAttributeListPresence(void* list, void* traceSet, int* types);

/** Read the attributes of a list from trace `traceNo` (from 0) of a trace set.
 *
 * @param list         list handle
 * @param traceSet     trace set handle
 * @param traceNo      trace; a missing one is made, unless the set has none of the attributes
 * @param[out] values  room for one value per name, in the order of the list. Each is what the
 *                     function by name of the same type gives, converted as there; the values of
 *                     attributes that the set does not have stay as they are
 * @return how many values were written, which is how many of the attributes the set has; 0 when a
 *         handle is null or `traceNo` is negative
 */
/** @{ */
int knl_getI32TraceAttributes(void* list, void* traceSet, int traceNo, int* values);
int knl_getI64TraceAttributes(void* list, void* traceSet, int traceNo, int64_t* values);
int knl_getF32TraceAttributes(void* list, void* traceSet, int traceNo, float* values);
int knl_getF64TraceAttributes(void* list, void* traceSet, int traceNo, double* values);
/** @} */

/** Write the attributes of a list to trace `traceNo` (from 0) of a trace set. Attributes that the
 * set does not have are defined, in the order of the list, and the trace is made where it is
 * missing, as the functions by name do one after the other.
 *
 * @param list      list handle
 * @param traceSet  trace set handle
 * @param traceNo   trace
 * @param values    one value per name, in the order of the list, converted to the attribute's type
 * @return how many values were written: all of them, or 0 when a handle is null, `traceNo` is
 *         negative or the trace was moved away
 */
/** @{ */
int knl_setI32TraceAttributes(void* list, void* traceSet, int traceNo, const int* values);
int knl_setI64TraceAttributes(void* list, void* traceSet, int traceNo, const int64_t* values);
int knl_setF32TraceAttributes(void* list, void* traceSet, int traceNo, const float* values);
int knl_setF64TraceAttributes(void* list, void* traceSet, int traceNo, const double* values);
/** @} */

/* -------------------------------------------------------------------------- attribute schema */

/** What the job's schema says about the attribute name `trAttDefName`.
 *
 * @param trAttDefName       attribute name
 * @return 0 when the value is at least 1, else 1 (here 0 is success)
 *
 * - `trAttDefType` (output): type code: 1 text, 2 and 3 integers of 32 and 64 bits, 4 and 5 floats
 *   of 32 and 64 bits, 9 and 10 texts of 32 and 64 bytes; -1 for a name that the schema does not
 *   know; always written
 * - `trAttDefDim` (output): dimension: elements of an array, characters of a text; -1 likewise;
 *   always written
 */
/** @{ */
int knl_getTraceAttributeType(const char* trAttDefName, int* trAttDefType);
int knl_getTraceAttributeDimension(const char* trAttDefName, int* trAttDefDim);
/** @} */

/** Copies the schema's description of `trAttDefName` with its NUL into `trAttDefDesc`, which must
 * have room for it; the empty text for a name that the schema does not know.
 *
 * @return always 0
 */
int knl_getTraceAttributeDescription(const char* trAttDefName, char* trAttDefDesc);

/** As knl_getTraceAttributeDescription(), into a buffer of stated size.
 *
 * @param[out] trAttDefDesc  at most `n` bytes, the NUL included; untouched when `n` is below 1
 * @return the length of the whole description in bytes without its NUL
 */
int knl_getTraceAttributeDescriptionN(const char* trAttDefName, char* trAttDefDesc, int n);

/* --------------------------------------------------------------- resources, memory and files */

/** Fetches the address that was kept under `attKey` for the running module.
 *
 * @param[out] attrib  the address, null when the resource is none; untouched when the result is 0
 * @return 1 when the resource exists; 0 when it does not, or when no module is running
 */
int knl_getModuleResource(const char* attKey, void** attrib);

/** Keeps an address under `attKey` for the running module, from one entry point to the next: the
 * place for a module's own state, since global data of a library are shared by all modules that
 * use it. The kernel neither copies nor frees what it points to.
 *
 * @return 1 when kept; 0 when no module is running
 */
int knl_setModuleResource(const char* attKey, void* attrib);

/** `size` bytes of zero-filled memory, charged to the running module and to the job in the
 * statistics. Null, and a message to the host, when the memory cannot be had (a negative size is
 * such a case). Freed with knl_freeResource() only; nothing frees it at the end of the job.
 */
void* knl_allocateResource(int size);

/** Frees memory of knl_allocateResource(); a null pointer is accepted.
 *
 * @return always 0
 */
int knl_freeResource(void* ptr);

/** Open a file for reading, or create one (or empty an existing one) for writing.
 *
 * @param fileName         path, taken as it is
 * @param[out] fileHandle  the POSIX descriptor, or -1 with the reason in `errno`; always written
 *
 * A new file's permission bits are 0674 (octal) less the process's file creation mask.
 */
/** @{ */
void knl_fileOpen(const char* fileName, int* fileHandle);
void knl_fileCreate(const char* fileName, int* fileHandle);
/** @} */

/** Closes a descriptor of knl_fileOpen() or knl_fileCreate(). */
void knl_fileClose(int fileHandle);

/* --------------------------------------------------------------- trace buffers of the module */

/** Find an input channel, an output channel or a work buffer. A work buffer that does not exist yet
 * is made, with all those below it.
 *
 * @param[out] trace  the trace set's handle, null on failure; always written
 * @return 0 on success; 1 when the buffer does not exist, or when no module is running
 *
 * - `channel`: channel number, from 0
 * - `wtset`: work buffer number, from 0
 */
/** @{ */
int knl_getInputTraceBuffer(void** trace, int channel);
int knl_getOutputTraceBuffer(void** trace, int channel);
int knl_getWorkTraceBuffer(void** trace, int wtset);
/** @} */

/** Give an output channel or a work buffer its trace length and sample interval, and the attributes
 * of a template (in the order of their names).
 *
 * @param channel         number of the output channel or work buffer, from 0
 * @param traceLength     samples of each trace made from now on
 * @param sampleInterval  sample interval
 * @param templ           handle of the trace set whose attributes are taken over, or null
 * @return 0 on success; 1 when the buffer does not exist, or when no module is running
 *
 * - `numTraces`: accepted and not used: traces are made when they are asked for
 */
/** @{ */
int knl_bldOutputTraceBuffer(int channel, int traceLength, int sampleInterval, void* templ);
int knl_bldWorkTraceBuffer(int channel, int traceLength, int sampleInterval, int numTraces,
                           void* templ);
/** @} */

/** Gives a work buffer the trace length, the sample interval and the very header layout of another
 * trace set, so that traces can be moved between the two without a change of their headers.
 *
 * @param channel  number of the work buffer, from 0
 * @param model    handle of the other set
 * @return 0 on success; 1, nothing changed, when the work buffer has attributes or traces already,
 *         for a null handle, for a negative number, or when no module is running
 */
int knl_bldWorkTraceBufferLike(int channel, void* model);

/** Sets the bits `flag` on an input channel of the running module: with #KNL_KEEP_TRACE, the trace
 * that the channel shows stays there for the next call.
 *
 * @param channel  channel number, from 0
 * @return 1; 0 when the channel does not exist, or when no module is running
 */
int knl_setInputTraceBufferFlag(int channel, int flag);

/** 1 when any of the bits `flag` is set on the input channel `channel` (from 0), else 0. */
int knl_isInputTraceBufferFlagged(int channel, int flag);

/* -------------------------------------------------------------------------------- trace sets */

/** Copy a trace into a trace of another set: with `copyHeader`, the header is cleared and gets
 * every attribute of the source that has the same type and size in both sets; with `copySamples`,
 * as many samples as both sets' trace lengths allow; the trace flag always. Missing traces are
 * made.
 *
 * @param traceFrom    handle of the source set
 * @param traceTo      handle of the destination set
 * @param copyHeader   0: leave the header
 * @param copySamples  0: leave the samples
 * @return 1 when copied; 0 when a handle or a trace is null
 *
 * - `traceNoFrom`: source trace, from 0 (trace 0 where it is not given)
 * - `traceNoTo`: destination trace, from 0 (trace 0 where it is not given)
 */
/** @{ */
int knl_copyTraceToTrace(void* traceFrom, void* traceTo, int copyHeader, int copySamples);
int knl_mcopyTraceToTrace(void* traceFrom, void* traceTo, int copyHeader, int copySamples,
                          int traceNoFrom, int traceNoTo);
/** @} */

/** Moves a trace, without copying, into another set of the same attribute layout. The source keeps
 * an empty place under the trace's number; a trace that was at the destination is let go of.
 *
 * @return 1 when moved; 0, with both sets as they were, when the source trace does not exist (none
 * is made), when `traceNoTo` is negative, or when a handle is null
 */
int knl_moveTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom, int traceNoTo);

/** What knl_mcopyTraceToTrace() of header and samples gives, without copying where that is
 * possible: the trace itself goes into the other set, its header is laid out as there, and the
 * source keeps an empty place under the trace's number. Where the trace must stay, it is copied:
 * while other modules have yet to take it from a shared input, and where the lengths differ. After
 * the call, the source trace is not to be used in either case.
 *
 * @return 1 when done; 0, with both sets as they were, when the source trace does not exist (none
 * is made), when `traceNoTo` is negative, when a handle is null, or when there is no memory for the
 * header
 */
int knl_transferTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom, int traceNoTo);

/** Destroys trace `traceNo` (from 0) of a work buffer, or takes away the empty place of one that
 * has been moved; later traces move down.
 *
 * @return 1 when done; 0, nothing changed, when the place does not exist, for a null handle, and
 * for an input or an output, whose traces are the scheduler's to take
 */
int knl_removeTrace(void* traceSet, int traceNo);

/** Destroys all traces of all work buffers of the running module; the buffers stay. To be called in
 * `postprocess_`: the job deletes the buffers and not their traces.
 *
 * @return how many places for traces the buffers had; 0 when no module is running
 */
int knl_removeWorkTraces(void);

/** Points `*samples` at the samples of trace `traceNo` (from 0), in place; a missing trace is made.
 * The address is valid while the set is unchanged and no other trace has pushed this one out to
 * the scratch file.
 *
 * @param[out] samples  the samples, null when there are none; always written
 * @return 1 on success, 0 when there are none
 */
int knl_getTraceSamples(void* trace, float** samples, int traceNo);

/** Copies as many samples as trace `traceNo` (from 0) has from `*samples`; a missing trace is made.
 *
 * @return 1 when copied, 0 when refused (null handle)
 */
int knl_setTraceSamples(void* trace, float** samples, int traceNo);

/** Sets all samples and all header bytes of every trace of the set to zero; the traces stay.
 *
 * @return 1 on success, 0 when refused (null handle)
 */
int knl_clearTraceSet(void* trace);

/** The number of traces, their length in samples, their sample interval; 0 for a null handle.
 */
/** @{ */
int knl_getNumberOfTraces(void* traceSet);
int knl_getTraceLength(void* traceSet);
int knl_getTraceSampleInterval(void* traceSet);
/** @} */

/** Set the length or the interval for the traces made from now on (those that exist stay as they
 * are), or make traces until there are `numTraces` (none is taken away).
 *
 * @return always 0
 */
/** @{ */
int knl_setNumberOfTraces(void* traceSet, int numTraces);
int knl_setTraceLength(void* traceSet, int traceLength);
int knl_setTraceSampleInterval(void* traceSet, int sampleInterval);
/** @} */

/** The flag of the set's first trace, or of the set itself when it holds no trace; 0 for a null
 * handle. Flag 3 on the last output channel of a module is its end of data.
 */
int knl_getDataChannelFlag(void* traceSet);

/** Sets the flag of the set's last trace (knl_getDataChannelFlag() reads the first one's), or of
 * the set itself when it holds no trace.
 *
 * @return 0; 1 for a null handle
 */
int knl_setDataChannelFlag(void* traceSet, int flag);

/** Announces how many traces will pass through the set in all, from which the host's statistics
 * compute the module's progress. Nothing happens for a null handle.
 */
void knl_informTotalTracesNumber(void* trace, int64_t numTraces);

/* ------------------------------------------------------------------------ messages, commands */

/** Sends one line to the host, under the running module's name and the time of day.
 *
 * @param msgType  0 detail, 1 information, 2 warning, 3 error, 4 fatal; passed on as it is
 * @param msg      the text
 */
void knl_sendMessage(int msgType, const char* msg);

/** Hand the host one value, as text, that belongs to a message; each is delivered at once.
 */
/** @{ */
void knl_addI32MessageArgument(int arg);
void knl_addI64MessageArgument(int64_t arg);
void knl_addF32MessageArgument(float arg);
void knl_addF64MessageArgument(double arg);
void knl_addStrMessageArgument(const char* arg);
/** @} */

/** Hands the host a command for another application; the kernel does not look into it. */
void knl_execAppliCmd(const char* cmd);

/* -------------------------------------------------------------------------------------- pads */

/** Creates a pad, a drawing surface of the host.
 *
 * @param type, align, visible  passed on to the host, which gives them their meaning
 * @param title                 title of the pad
 * @return the pad's identifier for the functions below; -1 when the host offers no pads
 */
int knl_createPad(int type, int align, int visible, const char* title);

/** The pen plotter's commands, passed on to the host, which gives positions, heights, angles, pen
 * codes and special symbols their meaning. An unknown pad is for the host to refuse.
 *
 * @param ident         pad identifier
 *
 * - `xpage`, `ypage`: position on the pad
 * - `ipen`: pen code: move or draw
 * - `height`: height of the characters
 * - `fpn`: the number to draw
 * - `angle`: writing angle
 * - `ndec`: number of decimals
 * - `cbcd`: the text to draw
 * - `inteq`: code of a special symbol
 * - `inchar`: number of characters
 * - `factor`: scale of what follows
 * - `newpen`: number of the pen to take
 */
/** @{ */
void knl_plot(int ident, float xpage, float ypage, int ipen);
void knl_number(int ident, float xpage, float ypage, float height, float fpn, float angle,
                int ndec);
void knl_symbol(int ident, float xpage, float ypage, float height, const char* cbcd, int inteq,
                float angle, int inchar);
void knl_factor(int ident, float factor);
void knl_newpen(int ident, int newpen);
/** @} */

/** Whether the host has asked to cancel the job. No entry point is called for data any more when
 * the running one has returned; a loop that takes long asks now and then, and ends early. May be
 * called by any thread.
 *
 * @return 1 when it has, else 0
 */
int knl_isCancelled(void);

/* ---------------------------------------------------------------------- directories and date */

/** Kernel-held text in the local 8-bit encoding: never freed by the module, valid until the next
 * call of the same function. The date is day.month.year with the month counted from 0 and the year
 * from 1900: 15 November 2026 reads 15.10.126.
 */
/** @{ */
const char* knl_currentDate(void);
const char* knl_getProjectDir(void);
const char* knl_getScratchDir(void);
/** @} */

/** Sets the project directory of the whole job, where metadata files are read and written from now
 * on. The empty text leaves the job without one.
 *
 * @param project  path in the local 8-bit encoding
 */
void knl_setProjectDir(const char* project);

/* ---------------------------------------------------------------------------------- metadata */

/** Attach the value `value` to `name`. The first value written for a name stays; later ones are
 * ignored. In module scope, the empty name and names that begin with "#" are not stored.
 *
 * @param scope  0: the whole job; anything else: the running module (the job when none is running)
 * @param name   key; one that ends with "$" collects the values of several modules
 * @param value  the value; in the N form exactly `n` bytes, which may hold NULs and need no
 *               terminator (none when `n` is negative)
 */
/** @{ */
void knl_setMetaDataValue(int scope, const char* name, const char* value);
void knl_setMetaDataValueN(int scope, const char* name, const char* value, int n);
/** @} */

/** Reads a metadata value: in job scope the job's own, in module scope what the modules upstream of
 * the running one attached (the nearest first, values of a "$" key joined), not its own. An unknown
 * name, and the empty one in module scope, has the empty value.
 *
 * @param scope           0: the whole job; anything else: upstream of the running module
 * @param name            key
 * @param[out] value_ret  at most `n` bytes, the NUL included: the value or its first n - 1 bytes;
 *                        nothing is written when `n` is below 1
 * @param n               room at `value_ret` in bytes
 * @return the length of the whole value in bytes without its NUL; `n` or more means that it was
 *         cut
 */
int knl_getMetaDataValue(int scope, const char* name, char* value_ret, int n);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif
