/** @file knl_fortran.h
 *
 * The module programming interface as Fortran modules call it, seen from C. Modules written in C
 * use knl.h; Fortran authors will rather use the module `vorn_knl`, which declares these functions
 * with Fortran types. Readable by C99 and C++ compilers.
 *
 * What a function does is said in knl.h, at the function of the same name. Here stands what
 * differs, and that differs on purpose. What holds for every function:
 *
 * - **Names** are those of knl.h in lower case with an underscore at the end. Two are not, and are
 *   fixed so: knl_OpenFile() and knl_istracebufferusescratch().
 * - **Arguments** are passed by address. `istat`, `ret` and whatever is marked `[out]` is written,
 *   everything else only read.
 * - **Handles** (trace set, library, group, list of attributes) are `void**`: the address of the
 * caller's 8-byte variable that holds the handle. Functions that obtain a handle write it there.
 * - **Hidden lengths**: one `int` by value for each character argument, behind all others, in
 *   their order. gfortran passes these lengths in 8 bytes where an `int` is declared here. That is
 *   safe where arguments of either size take one register or one 8-byte place on the stack, with
 *   the value in its low half, as on Linux for x86-64 and AArch64, the platforms of this library.
 *   A negative length counts as 0.
 * - **Text in** loses its leading and trailing blanks. Names are cut at 255 bytes, message and
 *   metadata texts at 1023, a message argument has to be shorter than 4096; other texts (values,
 *   file names, commands, titles) have any length. Where a text must end with a NUL instead, it is
 *   said.
 * - **Text out** is cut, or padded with blanks, to the length of the caller's variable, without a
 *   NUL; it ends at its first newline. Parameters and attributes are cut to 255 bytes before.
 * - **Numbers count from one**: channels, work buffers, traces, rows of a group. Functions for a
 *   single trace address the first one.
 * - **Status**: what `*istat` says differs by family, and partly inverts the C form's result. It
 *   is stated at each.
 * - **Outputs** are left as they were where a name is absent, except where said.
 */
#ifndef KNL_FORTRAN_H
#define KNL_FORTRAN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

/* ------------------------------------------------------------------------- array descriptors */

/** One dimension of an array. */
typedef struct one_arr_dim
{
    int64_t extent;   /**< number of elements */
    int64_t distance; /**< bytes from one element to the next */
    int64_t lbound;   /**< index of the first element, written as 1 */
} one_arr_dim;

/** An array of 32-bit integers, and what holds for all five array descriptors: the kernel fills one
 * in to make an array variable of the caller point at kernel memory. It is a record of nine words
 * of 8 bytes, 72 bytes in all, alike but for the type of the elements.
 *
 * This is the layout that the callers of this interface agree on, not that of any one compiler's
 * pointers. In particular **a `pointer` array of gfortran is another record, of 64 bytes**: passed
 * to the functions here, it would be filled wrongly and the 8 bytes behind it overwritten. The
 * Fortran module `vorn_knl` has the record as a type of its own and turns it into an ordinary
 * pointer.
 */
typedef struct one_int_arr
{
    int* data;          /**< address of the first element */
    int64_t dsize;      /**< bytes of one element */
    int64_t offset;     /**< written as 0 */
    int64_t bordr;      /**< kind of the descriptor, written as 3 */
    int64_t rank;       /**< number of dimensions, written as 1 */
    int64_t rserv;      /**< the caller's own: never written */
    one_arr_dim dim[1]; /**< the one dimension */
} one_int_arr;

/** An array of 64-bit integers; fields as in one_int_arr. */
typedef struct one_long_arr
{
    int64_t* data;      /**< address of the first element */
    int64_t dsize;      /**< bytes of one element */
    int64_t offset;     /**< written as 0 */
    int64_t bordr;      /**< kind of the descriptor, written as 3 */
    int64_t rank;       /**< number of dimensions, written as 1 */
    int64_t rserv;      /**< the caller's own: never written */
    one_arr_dim dim[1]; /**< the one dimension */
} one_long_arr;

/** An array of 32-bit floats; fields as in one_int_arr. */
typedef struct one_float_arr
{
    float* data;        /**< address of the first element */
    int64_t dsize;      /**< bytes of one element */
    int64_t offset;     /**< written as 0 */
    int64_t bordr;      /**< kind of the descriptor, written as 3 */
    int64_t rank;       /**< number of dimensions, written as 1 */
    int64_t rserv;      /**< the caller's own: never written */
    one_arr_dim dim[1]; /**< the one dimension */
} one_float_arr;

/** An array of 64-bit floats; fields as in one_int_arr. */
typedef struct one_double_arr
{
    double* data;       /**< address of the first element */
    int64_t dsize;      /**< bytes of one element */
    int64_t offset;     /**< written as 0 */
    int64_t bordr;      /**< kind of the descriptor, written as 3 */
    int64_t rank;       /**< number of dimensions, written as 1 */
    int64_t rserv;      /**< the caller's own: never written */
    one_arr_dim dim[1]; /**< the one dimension */
} one_double_arr;

/** An array of texts of equal length, which is `dsize`; fields as in one_int_arr. */
typedef struct one_char_arr
{
    char* data;         /**< address of the first element */
    int64_t dsize;      /**< bytes of one element */
    int64_t offset;     /**< written as 0 */
    int64_t bordr;      /**< kind of the descriptor, written as 3 */
    int64_t rank;       /**< number of dimensions, written as 1 */
    int64_t rserv;      /**< the caller's own: never written */
    one_arr_dim dim[1]; /**< the one dimension */
} one_char_arr;

/* ------------------------------------------------------------- module parameters and options */

/** Read what the job gave the running module for the parameter `attKey`.
 *
 * @param[out] var    the value, converted
 * @param[out] istat  1 when the parameter exists; 0 when it does not, or when no module is running
 *
 * Array forms: the caller supplies the storage, and `*var` is its address: the kernel copies all
 * `*size` elements there, so the storage must be large enough for any value that the job may hold.
 * A value that is not an array of exactly this element type writes its own array size to `size` and
 * copies nothing; an absent one writes neither.
 * Text form: cut to 255 bytes, and padded with blanks to `lvar`.
 * Library and group forms: the handle, null when the value is none.
 */
/** @{ */
void knl_geti32moduleparameter_(const char* attKey, int* var, int* istat, int lattKey);
void knl_geti64moduleparameter_(const char* attKey, int64_t* var, int* istat, int lattKey);
void knl_getf32moduleparameter_(const char* attKey, float* var, int* istat, int lattKey);
void knl_getf64moduleparameter_(const char* attKey, double* var, int* istat, int lattKey);
void knl_geti32arraymoduleparameter_(const char* attKey, int** var, int* size, int* istat,
                                     int lattKey);
void knl_geti64arraymoduleparameter_(const char* attKey, int64_t** var, int* size, int* istat,
                                     int lattKey);
void knl_getf32arraymoduleparameter_(const char* attKey, float** var, int* size, int* istat,
                                     int lattKey);
void knl_getf64arraymoduleparameter_(const char* attKey, double** var, int* size, int* istat,
                                     int lattKey);
void knl_getstrmoduleparameter_(const char* attKey, char* var, int* istat, int lattKey, int lvar);
void knl_getlibmoduleparameter_(const char* attKey, void** var, int* istat, int lattKey);
void knl_getgroupmoduleparameter_(const char* attKey, void** var, int* istat, int lattKey);
/** @} */

/** Sets a processing option of the running module to an integer, as knl_setModuleProcessingOption()
 * does. Unlike all other names, `option` is taken as it stands: it must end with a NUL
 * (`'RespectEOD'//char(0)`), and its hidden length is not looked at.
 */
void knl_setmoduleprocessingoption_(const char* option, int* value, int option_len);

/* ------------------------------------------------------------------------------------ groups */

/** The number of rows of a group, 0 for a null handle; `*istat` is always 1. */
void knl_getgroupparametersize_(void** group, int* size, int* istat);

/** Read the parameter `attKey` in row `*num` (from 1) of a group.
 *
 * @param[out] var    the value, converted
 * @param[out] istat  1 when that row holds the parameter; 0 when not, or when the handle is null
 *
 * Arrays, texts and handles as for module parameters.
 */
/** @{ */
void knl_geti32groupparameter_(void** group, const char* attKey, int* num, int* var, int* istat,
                               int lattKey);
void knl_geti64groupparameter_(void** group, const char* attKey, int* num, int64_t* var, int* istat,
                               int lattKey);
void knl_getf32groupparameter_(void** group, const char* attKey, int* num, float* var, int* istat,
                               int lattKey);
void knl_getf64groupparameter_(void** group, const char* attKey, int* num, double* var, int* istat,
                               int lattKey);
void knl_geti32arraygroupparameter_(void** group, const char* attKey, int* num, int** var,
                                    int* size, int* istat, int lattKey);
void knl_geti64arraygroupparameter_(void** group, const char* attKey, int* num, int64_t** var,
                                    int* size, int* istat, int lattKey);
void knl_getf32arraygroupparameter_(void** group, const char* attKey, int* num, float** var,
                                    int* size, int* istat, int lattKey);
void knl_getf64arraygroupparameter_(void** group, const char* attKey, int* num, double** var,
                                    int* size, int* istat, int lattKey);
void knl_getstrgroupparameter_(void** group, const char* attKey, int* num, char* var, int* istat,
                               int lattKey, int lvar);
void knl_getlibgroupparameter_(void** group, const char* attKey, int* num, void** var, int* istat,
                               int lattKey);
void knl_getgrpgroupparameter_(void** group, const char* attKey, int* num, void** var, int* istat,
                               int lattKey);
/** @} */

/** Store a value under `attKey` in row `*num` (from 1) of a group, making rows where they are
 * missing.
 *
 * @param var         the value; text without its leading and trailing blanks
 * @param[out] istat  1 when stored, 0 when refused (null handle, row below 1)
 *
 * - `size`: array forms: number of elements at `*var`, which are copied
 */
/** @{ */
void knl_seti32groupparameter_(void** group, const char* attKey, int* num, int* var, int* istat,
                               int lattKey);
void knl_seti64groupparameter_(void** group, const char* attKey, int* num, int64_t* var, int* istat,
                               int lattKey);
void knl_setf32groupparameter_(void** group, const char* attKey, int* num, float* var, int* istat,
                               int lattKey);
void knl_setf64groupparameter_(void** group, const char* attKey, int* num, double* var, int* istat,
                               int lattKey);
void knl_seti32arraygroupparameter_(void** group, const char* attKey, int* num, int** var,
                                    int* size, int* istat, int lattKey);
void knl_seti64arraygroupparameter_(void** group, const char* attKey, int* num, int64_t** var,
                                    int* size, int* istat, int lattKey);
void knl_setf32arraygroupparameter_(void** group, const char* attKey, int* num, float** var,
                                    int* size, int* istat, int lattKey);
void knl_setf64arraygroupparameter_(void** group, const char* attKey, int* num, double** var,
                                    int* size, int* istat, int lattKey);
void knl_setstrgroupparameter_(void** group, const char* attKey, int* num, const char* var,
                               int* istat, int lattKey, int lvar);
/** @} */

/** The group stored under `attKey` in row `*num` (from 1) of a group; an empty one is made there
 * when the row holds no such parameter. A group made here lives as long as the process.
 *
 * @param[out] var    the inner group's handle; null when the parameter is not a group
 * @param[out] istat  1 when present now, 0 when refused (null handle, row below 1; `var`
 *                    untouched)
 */
void knl_setgrpgroupparameter_(void** group, const char* attKey, int* num, void** var, int* istat,
                               int lattKey);

/* --------------------------------------------------------------------------------- libraries */

/** The kind of a library as a number, as knl_getLibraryType() lists them.
 *
 * @param[out] type   the number; untouched when the kind is not listed
 * @param[out] istat  0 when written; 1 for any other kind and for a null handle
 */
void knl_getlibrarytype_(void** libri, int* type, int* istat);

/** Does nothing: `*istat` is not written. Whether a library has a parameter is seen from the status
 * of its getter.
 */
void knl_islibraryattributeexist_(void** libri, const char* attKey, int* istat, int lattKey);

/** Read the parameter `attKey` of a library.
 *
 * @param[out] var    the value, converted
 * @param[out] istat  1 when the library holds the parameter; 0 when not, or when the handle is
 *                    null
 *
 * Arrays, texts and handles as for module parameters.
 */
/** @{ */
void knl_geti32libraryparameter_(void** libri, const char* attKey, int* var, int* istat,
                                 int lattKey);
void knl_geti64libraryparameter_(void** libri, const char* attKey, int64_t* var, int* istat,
                                 int lattKey);
void knl_getf32libraryparameter_(void** libri, const char* attKey, float* var, int* istat,
                                 int lattKey);
void knl_getf64libraryparameter_(void** libri, const char* attKey, double* var, int* istat,
                                 int lattKey);
void knl_geti32arraylibraryparameter_(void** libri, const char* attKey, int** var, int* size,
                                      int* istat, int lattKey);
void knl_geti64arraylibraryparameter_(void** libri, const char* attKey, int64_t** var, int* size,
                                      int* istat, int lattKey);
void knl_getf32arraylibraryparameter_(void** libri, const char* attKey, float** var, int* size,
                                      int* istat, int lattKey);
void knl_getf64arraylibraryparameter_(void** libri, const char* attKey, double** var, int* size,
                                      int* istat, int lattKey);
void knl_getstrlibraryparameter_(void** libri, const char* attKey, char* var, int* istat,
                                 int lattKey, int lvar);
void knl_getliblibraryparameter_(void** libri, const char* attKey, void** var, int* istat,
                                 int lattKey);
void knl_getgrouplibraryparameter_(void** libri, const char* attKey, void** var, int* istat,
                                   int lattKey);
/** @} */

/** Store a value under `attKey` in a library.
 *
 * @param var         the value; text without its leading and trailing blanks
 * @param[out] istat  1 when stored, 0 when refused (null handle)
 *
 * - `size`: array forms: number of elements at `*var`, which are copied
 */
/** @{ */
void knl_seti32libraryparameter_(void** libri, const char* attKey, int* var, int* istat,
                                 int lattKey);
void knl_seti64libraryparameter_(void** libri, const char* attKey, int64_t* var, int* istat,
                                 int lattKey);
void knl_setf32libraryparameter_(void** libri, const char* attKey, float* var, int* istat,
                                 int lattKey);
void knl_setf64libraryparameter_(void** libri, const char* attKey, double* var, int* istat,
                                 int lattKey);
void knl_seti32arraylibraryparameter_(void** libri, const char* attKey, int** var, int* size,
                                      int* istat, int lattKey);
void knl_seti64arraylibraryparameter_(void** libri, const char* attKey, int64_t** var, int* size,
                                      int* istat, int lattKey);
void knl_setf32arraylibraryparameter_(void** libri, const char* attKey, float** var, int* size,
                                      int* istat, int lattKey);
void knl_setf64arraylibraryparameter_(void** libri, const char* attKey, double** var, int* size,
                                      int* istat, int lattKey);
void knl_setstringlibraryparameter_(void** libri, const char* attKey, const char* var, int* istat,
                                    int lattKey, int lvar);
/** @} */

/** The group stored under `attKey` in a library; an empty one is made there when the library holds
 * no such parameter. A group made here lives as long as the process.
 *
 * @param[out] var    the group's handle; null when the parameter is not a group
 * @param[out] istat  1 when present now, 0 when refused (null handle; `var` untouched)
 */
void knl_setgrplibraryparameter_(void** libri, const char* attKey, void** var, int* istat,
                                 int lattKey);

/* -------------------------------------------------------------------------- trace attributes */

/** Gives the attribute `attKey` a place in the headers of a trace set's traces, where it has none.
 * `*istat` is 1, or 0 for a null handle.
 */
void knl_definetraceattribute_(void** trace, const char* attKey, int* istat, int lattKey);

/** Whether a trace set has the attribute `attKey`: `*istat` is 0 when it has and 1 when it has not.
 */
void knl_istraceattributeexist_(void** trace, const char* attKey, int* istat, int lattKey);

/** Read the attribute `attKey` of a trace: the first one, or in the `m` forms trace `*traceno`
 * (from 1).
 *
 * @param[out] var    the value, converted
 * @param[out] istat  **0** when the set has the attribute; **1** when not, when the handle is null
 *                    or the trace number below 1: the other way round than for parameters
 *
 * Array forms: the caller supplies the storage, `*var` is its address and `*size` its capacity in
 * elements, which is not changed. As many elements are copied as the attribute has, at most
 * `*size`; none when it is not an array of exactly this element type.
 * Text form: cut to 255 bytes, and padded with blanks to `lvar`.
 */
/** @{ */
void knl_geti32traceattribute_(void** trace, const char* attKey, int* var, int* istat, int lattKey);
void knl_geti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* istat,
                               int lattKey);
void knl_getf32traceattribute_(void** trace, const char* attKey, float* var, int* istat,
                               int lattKey);
void knl_getf64traceattribute_(void** trace, const char* attKey, double* var, int* istat,
                               int lattKey);
void knl_geti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size,
                                    int* istat, int lattKey);
void knl_geti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size,
                                    int* istat, int lattKey);
void knl_getf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size,
                                    int* istat, int lattKey);
void knl_getf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size,
                                    int* istat, int lattKey);
void knl_getstringtraceattribute_(void** trace, const char* attKey, char* var, int* istat,
                                  int lattKey, int lvar);

void knl_mgeti32traceattribute_(void** trace, const char* attKey, int* var, int* traceno,
                                int* istat, int lattKey);
void knl_mgeti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* traceno,
                                int* istat, int lattKey);
void knl_mgetf32traceattribute_(void** trace, const char* attKey, float* var, int* traceno,
                                int* istat, int lattKey);
void knl_mgetf64traceattribute_(void** trace, const char* attKey, double* var, int* traceno,
                                int* istat, int lattKey);
void knl_mgeti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_mgeti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_mgetf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_mgetf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_mgetstringtraceattribute_(void** trace, const char* attKey, char* var, int* traceno,
                                   int* istat, int lattKey, int lvar);
/** @} */

/** Write the attribute `attKey` of a trace: the first one, or in the `m` forms trace `*traceno`
 * (from 1). Attribute and trace are made where they are missing.
 *
 * @param var         the value, converted to the attribute's own type. **Text ends with a NUL**
 *                    (`text//char(0)`): it has no hidden length
 * @param[out] istat  1 when written, 0 when refused (null handle, trace below 1)
 *
 * - `size`: array forms: number of elements at `*var`, at least as many as the job's schema
 *   states; taken only by an array attribute of the same element type
 */
/** @{ */
void knl_seti32traceattribute_(void** trace, const char* attKey, int* var, int* istat, int lattKey);
void knl_seti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* istat,
                               int lattKey);
void knl_setf32traceattribute_(void** trace, const char* attKey, float* var, int* istat,
                               int lattKey);
void knl_setf64traceattribute_(void** trace, const char* attKey, double* var, int* istat,
                               int lattKey);
void knl_seti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size,
                                    int* istat, int lattKey);
void knl_seti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size,
                                    int* istat, int lattKey);
void knl_setf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size,
                                    int* istat, int lattKey);
void knl_setf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size,
                                    int* istat, int lattKey);
void knl_setstringtraceattribute_(void** trace, const char* attKey, const char* var, int* istat,
                                  int lattKey);

void knl_mseti32traceattribute_(void** trace, const char* attKey, int* var, int* traceno,
                                int* istat, int lattKey);
void knl_mseti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* traceno,
                                int* istat, int lattKey);
void knl_msetf32traceattribute_(void** trace, const char* attKey, float* var, int* traceno,
                                int* istat, int lattKey);
void knl_msetf64traceattribute_(void** trace, const char* attKey, double* var, int* traceno,
                                int* istat, int lattKey);
void knl_mseti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_mseti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_msetf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_msetf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size,
                                     int* traceno, int* istat, int lattKey);
void knl_msetstringtraceattribute_(void** trace, const char* attKey, const char* var, int* traceno,
                                   int* istat, int lattKey);
/** @} */

/* ------------------------------------------------------------- many trace attributes at once */

/** Makes a list of `*count` attribute names, an array of texts of equal length (`lnames`), which
 * are read like any name. `*istat` is 0 on success, else 1, and `*list` null then.
 */
void knl_bldattributelist_(const char* names, int* count, void** list, int* istat, int lnames);

/** Frees a list and sets the caller's handle to null. */
void knl_freeattributelist_(void** list);

/** `*size` is the number of names in a list; 0 for a null handle. */
void knl_getattributelistsize_(void** list, int* size);

/** Which of a list's attributes a trace set has.
 *
 * @param[out] types  types as knl_getAttributeListPresence() gives them, of the first `*size` names
 * @param size        room at `types`
 * @param[out] count  how many of these names the set has
 */
void knl_getattributelistpresence_(void** list, void** trace, int* types, int* size, int* count);

/** Read, or write, the attributes of a list in trace `*traceno` (from 1).
 *
 * @param values      one value per name, in the order of the list; reading leaves those alone that
 *                    the set does not have
 * @param size        number of elements at `values`: names of the list beyond it are left out
 * @param[out] count  how many values were read or written; 0 when a handle is null or the trace
 *                    number is below 1
 */
/** @{ */
void knl_geti32traceattributes_(void** list, void** trace, int* traceno, int* values, int* size,
                                int* count);
void knl_geti64traceattributes_(void** list, void** trace, int* traceno, int64_t* values, int* size,
                                int* count);
void knl_getf32traceattributes_(void** list, void** trace, int* traceno, float* values, int* size,
                                int* count);
void knl_getf64traceattributes_(void** list, void** trace, int* traceno, double* values, int* size,
                                int* count);
void knl_seti32traceattributes_(void** list, void** trace, int* traceno, int* values, int* size,
                                int* count);
void knl_seti64traceattributes_(void** list, void** trace, int* traceno, int64_t* values, int* size,
                                int* count);
void knl_setf32traceattributes_(void** list, void** trace, int* traceno, float* values, int* size,
                                int* count);
void knl_setf64traceattributes_(void** list, void** trace, int* traceno, double* values, int* size,
                                int* count);
/** @} */

/* -------------------------------------------------------------------------- attribute schema */

/** The type code and the dimension that the job's schema states for an attribute name, as
 * knl_getTraceAttributeType() lists them; -1 for a name that it does not know. There is no status.
 */
/** @{ */
void knl_gettraceattributetype_(const char* trAttDefName, int* trAttDefType, int ltrAttDefName);
void knl_gettraceattributedimension_(const char* trAttDefName, int* trAttDefDim, int ltrAttDefName);
/** @} */

/** Leaves `trAttDefDesc` as it is: descriptions cannot be read from Fortran. */
void knl_gettraceattributedescription_(const char* trAttDefName, char* trAttDefDesc,
                                       int ltrAttDefName, int ltrAttDefDesc);

/* --------------------------------------------------------------- memory and module resources */

/** Point an array at zero-filled memory of `*size` elements (texts of `*dim` bytes each), charged
 * to the running module. It lives until knl_freeresource_() is called; nothing frees it at the end
 * of the job.
 *
 * Without such memory (the host gets a message) the array is left with null data, whatever its
 * extent says: so too when size or text length is negative, or when the whole is more than
 * 2147483647 bytes.
 */
/** @{ */
void knl_allocatei32resource_(one_int_arr* resource, int* size);
void knl_allocatei64resource_(one_long_arr* resource, int* size);
void knl_allocatef32resource_(one_float_arr* resource, int* size);
void knl_allocatef64resource_(one_double_arr* resource, int* size);
void knl_allocatestrresource_(one_char_arr* resource, int* dim, int* size);
/** @} */

/** Make the caller's array an empty one: extent 0, with data that is not null (32 zero bytes of the
 * kernel's own) so that it counts as associated. `*dim` is the length of a text.
 */
/** @{ */
void knl_zeroi32array_(one_int_arr* resource);
void knl_zeroi64array_(one_long_arr* resource);
void knl_zerof32array_(one_float_arr* resource);
void knl_zerof64array_(one_double_arr* resource);
void knl_zerostrarray_(one_char_arr* resource, int* dim);
/** @} */

/** Frees the memory that `*ptr` points to. The array itself may be passed, since its data stand
 * first in the descriptor. A null pointer and an empty array of knl_zeroi32array_() and its
 * companions are accepted. `*ptr` is left as it is.
 */
void knl_freeresource_(void** ptr);

/** Point an array at what was kept under `attKey` for the running module, in place.
 *
 * @param[out] resource  data and extent: the address and the size that were given when it was set
 *                       (null data when the resource is not an address); untouched when `*istat` is
 * 0
 * @param[out] istat     1 when the resource exists; 0 when it does not, or when no module is
 *                       running
 *
 * - `dim`: text form: length of a text in bytes
 */
/** @{ */
void knl_getmodulei32resource_(const char* attKey, one_int_arr* resource, int* istat, int lattKey);
void knl_getmodulei64resource_(const char* attKey, one_long_arr* resource, int* istat, int lattKey);
void knl_getmodulef32resource_(const char* attKey, one_float_arr* resource, int* istat,
                               int lattKey);
void knl_getmodulef64resource_(const char* attKey, one_double_arr* resource, int* istat,
                               int lattKey);
void knl_getmodulestrresource_(const char* attKey, one_char_arr* resource, int* dim, int* istat,
                               int lattKey);
/** @} */

/** Copies the block that was kept under `attKey` to the caller's storage at `resource` (as many
 * bytes as were kept; nothing when the resource is not an address).
 *
 * @param[out] istat  1 when the resource exists; 0 when it does not, or when no module is running
 */
void knl_getmodulestructresource_(const char* attKey, void** resource, int* istat, int lattKey);

/** Keep something under `attKey` for the running module, from one entry point to the next.
 *
 * The first form keeps the address `resource` itself: the caller's storage must live as long as the
 * module (`save`, or memory of knl_allocatei32resource_() and its companions). `*size` is the
 * extent that the getters will give. The struct form keeps a copy of the `*size` bytes at
 * `resource`, which lives as long as the module or until the name gets another copy, and is not
 * charged to the module.
 *
 * @param[out] istat  1 when kept; 0 when no module is running
 */
/** @{ */
void knl_setmoduleresource_(const char* attKey, void** resource, int* size, int* istat,
                            int lattKey);
void knl_setmodulestructresource_(const char* attKey, void** resource, int* size, int* istat,
                                  int lattKey);
/** @} */

/* ----------------------------------------------------------------------------- trace samples */

/** Point an array at the samples of a trace, in place: the first trace, or trace `*traceNo` (from
 * 1). A missing trace is made. The samples stay valid while the set is unchanged and no other trace
 * has pushed this one out to the scratch file.
 *
 * @param[out] samples  data, when there are samples; the rest of the descriptor always: the extent
 *                      is the set's trace length, or less when the trace itself is shorter
 * @param[out] istat    0 on success, 1 when there are no samples
 */
/** @{ */
void knl_sgettracesamples_(void** traceSet, one_float_arr* samples, int* istat);
void knl_mgettracesamples_(void** traceSet, one_float_arr* samples, int* traceNo, int* istat);
/** @} */

/** Copy as many samples as the trace has from `*samples`: into the first trace, or into trace
 * `*traceNo` (from 1). `*istat` is 1 when copied, 0 when refused (null handle, trace below 1).
 */
/** @{ */
void knl_ssettracesamples_(void** trace, float** samples, int* istat);
void knl_msettracesamples_(void** trace, float** samples, int* traceNo, int* istat);
/** @} */

/* --------------------------------------------------------------- trace buffers of the module */

/** Find an input channel, an output channel or a work buffer, each counted from 1. A work buffer
 * that does not exist yet is made, with all before it.
 *
 * @param[out] trace  the trace set's handle, null on failure; always written
 * @param[out] istat  0 on success; 1 when the buffer does not exist, or when no module is running
 */
/** @{ */
void knl_getinputtracebuffer_(void** trace, int* channel, int* istat);
void knl_getoutputtracebuffer_(void** trace, int* channel, int* istat);
void knl_getworktracebuffer_(void** trace, int* wtset, int* istat);
/** @} */

/** Give an output channel or a work buffer (`channel`, from 1) its trace length in samples and its
 * sample interval, and the attributes of the trace set `*templ`. The form that ends with `f0` takes
 * no template, the other two work buffer forms are one and the same.
 *
 * @param[out] istat  0 on success; 1 when the buffer does not exist, or when no module is running
 *
 * - `numTraces`: accepted and not used: traces are made when they are asked for
 */
/** @{ */
void knl_bldoutputtracebuffer_(int* channel, int* traceLength, int* sampleInterval, void** templ,
                               int* istat);
void knl_bldworktracebufferf0_(int* channel, int* traceLength, int* sampleInterval, int* numTraces,
                               int* istat);
void knl_bldworktracebufferf1_(int* channel, int* traceLength, int* sampleInterval, int* numTraces,
                               void** templ, int* istat);
void knl_bldworktracebuffer_(int* channel, int* traceLength, int* sampleInterval, int* numTraces,
                             void** templ, int* istat);
/** @} */

/** Sets the bits `*flag` on input channel `*channel` (from 1); bit 1 keeps the current trace for
 * the next call. Nothing happens when the channel does not exist.
 */
void knl_setinputtracebufferflag_(int* channel, int* flag);

/** `*ret` is 1 when any of the bits `*flag` is set on input channel `*channel` (from 1), else 0. */
void knl_isinputtracebufferflagged_(int* channel, int* flag, int* ret);

/* -------------------------------------------------------------------------------- trace sets */

/** Whether the traces of a set may be paged out to the scratch file: 1 or 0 in `use`. The second
 * name has no underscore at its end; Fortran reaches it by `bind(C,
 * name="knl_istracebufferusescratch")`.
 */
/** @{ */
void knl_settracebufferusescratch_(void** trace, int* use);
void knl_istracebufferusescratch(void** trace, int* use);
/** @} */

/** Announces how many traces will pass through the set in all. */
void knl_informtotaltracesnumber_(void** trace, int* numTraces);

/** The trace length in samples, the sample interval, the number of traces.
 *
 * @param[out] istat  0; 1 for a null handle, and `value` is untouched
 */
/** @{ */
void knl_gettracelength_(void** traceSet, int* value, int* istat);
void knl_gettracesampleinterval_(void** traceSet, int* value, int* istat);
void knl_getnumberoftraces_(void** traceSet, int* value, int* istat);
/** @} */

/** Set the length or the interval for traces made from now on, or make traces until there are
 * `*value`. `*istat` is always 0.
 */
/** @{ */
void knl_settracelength_(void** traceSet, int* value, int* istat);
void knl_settracesampleinterval_(void** traceSet, int* value, int* istat);
void knl_setnumberoftraces_(void** traceSet, int* value, int* istat);
/** @} */

/** Reading gives the flag of the first trace, writing sets that of the last one; a set without
 * traces has a flag of its own. Flag 3 on a module's last output channel is its end of data. 0 is
 * read from a null handle, and nothing is set on it.
 */
/** @{ */
void knl_getdatachannelflag_(void** traceSet, int* flag);
void knl_setdatachannelflag_(void** traceSet, int* flag);
/** @} */

/** Sets all samples and header bytes of all traces of a set to zero. `*istat` is 1, or 0 for a null
 * handle.
 */
void knl_cleartraceset_(void** trace, int* istat);

/** Copy a trace into a trace of another set, as knl_mcopyTraceToTrace() does: the first into the
 * first, or trace `*traceNoFrom` into trace `*traceNoTo` (both from 1). `*istat` is 1 when copied,
 * 0 when a handle or a trace is missing.
 */
/** @{ */
void knl_scopytracetotrace_(void** traceFrom, void** traceTo, int* copyHeader, int* copySamples,
                            int* istat);
void knl_mcopytracetotrace_(void** traceFrom, void** traceTo, int* copyHeader, int* copySamples,
                            int* traceNoFrom, int* traceNoTo, int* istat);
/** @} */

/* ------------------------------------------------------------------ messages, commands, pads */

/** Sends one line to the host; `msg` is cut at 1023 bytes. */
void knl_sendmessage_(int* msgType, const char* msg, int lmsg);

/** Hand the host one value, as text, that belongs to a message.
 *
 * Requires: `larg` is below 4096; a longer text argument stops the process.
 */
/** @{ */
void knl_addi32messageargument_(int* arg);
void knl_addi64messageargument_(int64_t* arg);
void knl_addf32messageargument_(float* arg);
void knl_addf64messageargument_(double* arg);
void knl_addstrmessageargument_(const char* arg, int larg);
/** @} */

/** Hands the host a command for another application; the kernel does not look into it. */
void knl_execapplicmd_(const char* cmd, int lcmd);

/** Creates a pad of the host, never visible at first: `*ident` is its identifier for the functions
 * below, -1 when the host offers no pads.
 */
void knl_createpad_(int* ident, int* type, int* align, const char* title, int ltitle);

/** As knl_plot() and its companions.
 */
/** @{ */
void knl_plot_(int* ident, float* xpage, float* ypage, int* ipen);
void knl_number_(int* ident, float* xpage, float* ypage, float* height, float* fpn, float* angle,
                 int* ndec);
void knl_symbol_(int* ident, float* xpage, float* ypage, float* height, const char* cbcd,
                 int* inteq, float* angle, int* inchar, int lcbcd);
void knl_factor_(int* ident, float* factor);
void knl_newpen_(int* ident, int* newpen);
/** @} */

/* -------------------------------------------------------- files, directories, date, metadata */

/** Open a file for reading; create (or empty) one for writing; close a descriptor. `*fileHandle` is
 * the POSIX descriptor, or -1. A new file's permission bits are 0674 (octal) less the process's
 * file creation mask.
 */
/** @{ */
void knl_fileopen_(const char* fileName, int* fileHandle, int lfileName);
void knl_filecreate_(const char* fileName, int* fileHandle, int lfileName);
void knl_fileclose_(int* fileHandle);
/** @} */

/** Opens a file with the flags and the creation mode of POSIX `open`, and returns the descriptor or
 * -1 as its function value. `fileName` is taken as it stands: it must end with a NUL; its hidden
 * length and `unitNumber` are not looked at. The name has capital letters and no underscore at its
 * end; Fortran reaches it by `bind(C, name="knl_OpenFile")`.
 */
int knl_OpenFile(const char* fileName, int* openFlags, int* createMode, int* unitNumber,
                 int filenameLength);

/** `*istat` is 1 when the host has asked to cancel the job, else 0, as knl_isCancelled() says. */
void knl_iscancelled_(int* istat);

/** The texts of knl_currentDate() and knl_getScratchDir(), cut or padded with blanks to the length
 * of the caller's variable.
 */
/** @{ */
void knl_date_(char* datestr, int ldatestr);
void knl_getscratchdir_(char* dirstr, int ldirstr);
/** @} */

/** Attach a value to `name`, as knl_setMetaDataValue() does. Name and value lose their leading and
 * trailing blanks and are cut at 1023 bytes each. The form with `n` takes the first `*n` bytes of
 * `value` only, or all when it is shorter.
 */
/** @{ */
void knl_setmetadatavalue_(int* scope, const char* name, const char* value, int lname, int lvalue);
void knl_setmetadatavaluen_(int* scope, const char* name, const char* value, int* n, int lname,
                            int lvalue);
/** @} */

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif
