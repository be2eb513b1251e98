/* A host in C, as far as the records of the call-backs go. */
#include "../support/host_records.h"
#include "knl.h"

#include <stdio.h>

/* clang-format off */
#define RECORD(record) {#record, 0, sizeof(struct record)}
#define FIELD(record, field)                                                                       \
    {#record "." #field, offsetof(struct record, field), sizeof(((struct record*)0)->field)}

static const host_record_field fields[] = {
    RECORD(modStatisticStr),
    FIELD(modStatisticStr, ident),
    FIELD(modStatisticStr, modName),
    FIELD(modStatisticStr, inp_traces),
    FIELD(modStatisticStr, out_traces),
    FIELD(modStatisticStr, total_time),
    FIELD(modStatisticStr, avg_time),
    FIELD(modStatisticStr, mem_used),
    FIELD(modStatisticStr, progress),
    RECORD(jobStatisticStr),
    FIELD(jobStatisticStr, jobName),
    FIELD(jobStatisticStr, jobPhase),
    FIELD(jobStatisticStr, jobStatus),
    FIELD(jobStatisticStr, jobCmd),
    FIELD(jobStatisticStr, numMod),
    FIELD(jobStatisticStr, modStatistics),
    FIELD(jobStatisticStr, jobStatistics),
    RECORD(plotCommandStr),
    FIELD(plotCommandStr, cmdType),
    FIELD(plotCommandStr, xpage),
    FIELD(plotCommandStr, ypage),
    FIELD(plotCommandStr, ipen),
    FIELD(plotCommandStr, height),
    FIELD(plotCommandStr, fpn),
    FIELD(plotCommandStr, angle),
    FIELD(plotCommandStr, ndec),
    FIELD(plotCommandStr, cbcd),
    FIELD(plotCommandStr, inteq),
    FIELD(plotCommandStr, inchar),
    FIELD(plotCommandStr, factor),
};
/* clang-format on */

enum
{
    text_size = 1024
};

static int write_row(char* text, size_t size, const modStatisticStruct* row)
{
    return snprintf(text, size, " %d %s %d %d %d %d %d %d", row->ident, row->modName,
                    row->inp_traces, row->out_traces, row->total_time, row->avg_time, row->mem_used,
                    row->progress);
}

/* The job's fields, the first two rows and the last one, and the job's row. */
static int write_statistic(jobStatisticStruct* record, void* object)
{
    char* text = object;
    int n = snprintf(text, text_size, "%.64s %d %d %d %d", record->jobName, record->jobPhase,
                     record->jobStatus, record->jobCmd, record->numMod);
    n += write_row(text + n, text_size - (size_t)n, &record->modStatistics[0]);
    n += write_row(text + n, text_size - (size_t)n, &record->modStatistics[1]);
    n += write_row(text + n, text_size - (size_t)n, &record->modStatistics[31]);
    write_row(text + n, text_size - (size_t)n, &record->jobStatistics);
    return 0;
}

static int write_plot(int ident, plotCommandStruct command, void* object)
{
    snprintf(object, text_size, "%d %d %g %g %d %g %g %g %d %s %d %d %g", ident, command.cmdType,
             command.xpage, command.ypage, command.ipen, command.height, command.fpn, command.angle,
             command.ndec, command.cbcd != NULL ? command.cbcd : "(null)", command.inteq,
             command.inchar, command.factor);
    return 0;
}

static host_records records = {fields, sizeof fields / sizeof fields[0], write_statistic,
                               write_plot};

int preprocess_(void)
{
    return knl_setModuleResource("records", &records);
}

int process_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
