/** @file host_records.h
 *
 * What a C compiler makes of the records of hostcallbacks.h. The module library `host_records`,
 * compiled as C, keeps a `host_records` under its module resource "records" when it is
 * pre-processed.
 */
#ifndef HOST_RECORDS_H
#define HOST_RECORDS_H

#include "hostcallbacks.h"

#include <stddef.h>

/** A field of a record, or the whole record. */
typedef struct host_record_field
{
    const char* name; /**< "record.field", or "record" for the whole */
    size_t offset;    /**< bytes */
    size_t size;      /**< bytes */
} host_record_field;

typedef struct host_records
{
    const host_record_field* fields;
    size_t field_count;
    /** Call-backs that write down what they receive: field by field, with one blank between them,
     * into the `char[1024]` that is their `funcObj`. */
    StatFunctionType write_statistic;
    AddPlotToPadFunctionType write_plot;
} host_records;

#endif
