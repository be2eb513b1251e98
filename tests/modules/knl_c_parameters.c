/* The C form, first part: module parameters and options, groups and libraries. What the job sets is
 * in ModuleInterfaceJobTest.cpp. */
#include "checks.h"

#include <stddef.h>

/* Numbers of each type under the names I32, I64, F32, F64, arrays under the same names with an S.
 */
static void read_module_parameters(void)
{
    int i32 = -7, size = -7;
    int64_t i64 = -7;
    float f32 = -7;
    double f64 = -7;
    int* i32s = NULL;
    int64_t* i64s = NULL;
    float* f32s = NULL;
    double* f64s = NULL;
    char text[300] = "before";

    CHECK_INT(1, knl_getI32ModuleParameter("I32", &i32));
    CHECK_INT(42, i32);
    CHECK_INT(1, knl_getI64ModuleParameter("I64", &i64));
    CHECK_INT(1L << 40, i64);
    CHECK_INT(1, knl_getF32ModuleParameter("F32", &f32));
    CHECK_REAL(1.5, f32);
    CHECK_INT(1, knl_getF64ModuleParameter("F64", &f64));
    CHECK_REAL(0.1, f64);
    CHECK_INT(1, knl_getStrModuleParameter("TEXT", text));
    CHECK_TEXT("some text", text);
    CHECK_INT(9, knl_getStrModuleParameterN("TEXT", text, 5));
    CHECK_TEXT("some", text);

    CHECK_INT(1, knl_getI32ArrayModuleParameter("I32S", &i32s, &size));
    CHECK_INT(3, size);
    CHECK(i32s[0] == 1 && i32s[1] == -2 && i32s[2] == 3);
    CHECK_INT(1, knl_getI64ArrayModuleParameter("I64S", &i64s, &size));
    CHECK_INT(2, size);
    CHECK(i64s[0] == 1L << 40 && i64s[1] == -1);
    CHECK_INT(1, knl_getF32ArrayModuleParameter("F32S", &f32s, &size));
    CHECK_INT(4, size);
    CHECK(f32s[0] == 0.5f && f32s[3] == 3.5f);
    CHECK_INT(1, knl_getF64ArrayModuleParameter("F64S", &f64s, &size));
    CHECK_INT(1, size);
    CHECK_REAL(0.1, f64s[0]);
    /* All of them stay until this entry point returns. */
    CHECK(i32s[2] == 3 && i64s[1] == -1 && f32s[3] == 3.5f);
}

static void convert_module_parameters(void)
{
    int i32 = -7, size = -7;
    double f64 = -7;
    int* i32s = &i32;
    void* library = &i32;
    char text[300];

    CHECK_INT(1, knl_getF64ModuleParameter("I32", &f64));
    CHECK_REAL(42, f64);
    CHECK_INT(1, knl_getI32ModuleParameter("NUMBER", &i32)); /* the text 12abc */
    CHECK_INT(12, i32);
    CHECK_INT(1, knl_getI32ModuleParameter("LIBRARY", &i32));
    CHECK_INT(0, i32);
    CHECK_INT(1, knl_getStrModuleParameter("F32", text));
    CHECK_TEXT("1.500000", text);
    CHECK_INT(1, knl_getI32ArrayModuleParameter("I32", &i32s, &size));
    CHECK(i32s == NULL);
    i32s = &i32;
    CHECK_INT(1, knl_getI32ArrayModuleParameter("F32S", &i32s, &size));
    CHECK(i32s == NULL);
    CHECK_INT(4, size);
    CHECK_INT(1, knl_getLibModuleParameter("I32", &library));
    CHECK(library == NULL);
}

/* Every element is converted as the single number is; the number of elements comes back. */
static void copy_module_parameters(void)
{
    int i32[4] = {-7, -7, -7, -7};
    int64_t i64[4] = {-7, -7, -7, -7};
    float f32[4] = {-7, -7, -7, -7};
    double f64[4] = {-7, -7, -7, -7};

    CHECK_INT(4, knl_copyI32ModuleParameter("F32S", i32, 4));
    CHECK(i32[0] == 0 && i32[1] == 1 && i32[2] == 2 && i32[3] == 3);
    CHECK_INT(3, knl_copyI64ModuleParameter("I32S", i64, 4));
    CHECK(i64[0] == 1 && i64[1] == -2 && i64[2] == 3 && i64[3] == -7);
    CHECK_INT(2, knl_copyF32ModuleParameter("I64S", f32, 1));
    CHECK(f32[0] == (float)(1L << 40) && f32[1] == -7);
    CHECK_INT(1, knl_copyF64ModuleParameter("F64S", f64, 4));
    CHECK(f64[0] == 0.1 && f64[1] == -7);
    CHECK_INT(1, knl_copyF64ModuleParameter("NUMBER", f64, 4)); /* the text 12abc */
    CHECK(f64[0] == 12 && f64[1] == -7);
    CHECK_INT(1, knl_copyI32ModuleParameter("I32", i32, 1));
    CHECK_INT(42, i32[0]);
    CHECK_INT(4, knl_copyI32ModuleParameter("F32S", NULL, 0));
    CHECK_INT(-1, knl_copyI32ModuleParameter("NONE", i32, 4));
    CHECK_INT(-1, knl_copyI64ModuleParameter("NONE", i64, 4));
    CHECK_INT(-1, knl_copyF32ModuleParameter("NONE", f32, 4));
    CHECK_INT(-1, knl_copyF64ModuleParameter("NONE", f64, 4));
    CHECK_INT(42, i32[0]);
}

static void copy_from_group_and_library(void* group, void* library)
{
    int i32[4] = {-7, -7, -7, -7};
    int64_t i64[4] = {-7, -7, -7, -7};
    float f32[4] = {-7, -7, -7, -7};
    double f64[4] = {-7, -7, -7, -7};
    char text[5];

    CHECK_INT(9, knl_getStrGroupParameterN(group, "TEXT", 1, text, sizeof text));
    CHECK_TEXT("some", text);
    CHECK_INT(-1, knl_getStrGroupParameterN(group, "TEXT", 0, text, sizeof text));
    CHECK_INT(-1, knl_getStrGroupParameterN(NULL, "TEXT", 1, text, sizeof text));
    CHECK_INT(4, knl_copyI32GroupParameter(group, "F32S", 1, i32, 4));
    CHECK(i32[0] == 0 && i32[3] == 3);
    CHECK_INT(3, knl_copyI64GroupParameter(group, "I32S", 1, i64, 4));
    CHECK(i64[1] == -2 && i64[3] == -7);
    CHECK_INT(3, knl_copyF32GroupParameter(group, "I32S", 1, f32, 2));
    CHECK(f32[1] == -2 && f32[2] == -7);
    CHECK_INT(4, knl_copyF64GroupParameter(group, "F32S", 1, f64, 4));
    CHECK(f64[3] == 3.5);
    CHECK_INT(-1, knl_copyF64GroupParameter(group, "F32S", 7, f64, 4));
    CHECK_INT(2, knl_getGroupParameterSize(group)); /* asking makes no row */

    CHECK_INT(9, knl_getStrLibraryParameterN(library, "TEXT", text, sizeof text));
    CHECK_TEXT("some", text);
    CHECK_INT(-1, knl_getStrLibraryParameterN(library, "NONE", text, sizeof text));
    CHECK_INT(2, knl_copyI32LibraryParameter(library, "I64S", i32, 4));
    CHECK(i32[0] == 0 && i32[1] == -1); /* the low 32 bits */
    CHECK_INT(4, knl_copyI64LibraryParameter(library, "F32S", i64, 4));
    CHECK(i64[3] == 3);
    CHECK_INT(1, knl_copyF32LibraryParameter(library, "F64S", f32, 4));
    CHECK(f32[0] == 0.1f);
    CHECK_INT(1, knl_copyF64LibraryParameter(library, "F64", f64, 4));
    CHECK(f64[0] == 0.1);
    CHECK_INT(-1, knl_copyF64LibraryParameter(NULL, "F64", f64, 4));
}

static void ask_for_absent_module_parameters(void)
{
    int i32 = -7, size = -7;
    int64_t i64 = -7;
    float f32 = -7;
    double f64 = -7;
    int* i32s = &i32;
    int64_t* i64s = &i64;
    float* f32s = &f32;
    double* f64s = &f64;
    char text[300] = "before";
    void* handle = &size;

    CHECK_INT(0, knl_getI32ModuleParameter("NONE", &i32));
    CHECK_INT(0, knl_getI64ModuleParameter("NONE", &i64));
    CHECK_INT(0, knl_getF32ModuleParameter("NONE", &f32));
    CHECK_INT(0, knl_getF64ModuleParameter("NONE", &f64));
    CHECK_INT(0, knl_getStrModuleParameter("NONE", text));
    CHECK_INT(-1, knl_getStrModuleParameterN("NONE", text, sizeof text));
    CHECK_INT(0, knl_getI32ArrayModuleParameter("NONE", &i32s, &size));
    CHECK_INT(0, knl_getI64ArrayModuleParameter("NONE", &i64s, &size));
    CHECK_INT(0, knl_getF32ArrayModuleParameter("NONE", &f32s, &size));
    CHECK_INT(0, knl_getF64ArrayModuleParameter("NONE", &f64s, &size));
    CHECK_INT(0, knl_getLibModuleParameter("NONE", &handle));
    CHECK_INT(0, knl_getGroupModuleParameter("NONE", &handle));
    CHECK(i32 == -7 && i64 == -7 && f32 == -7 && f64 == -7 && size == -7);
    CHECK(i32s == &i32 && i64s == &i64 && f32s == &f32 && f64s == &f64 && handle == &size);
    CHECK_TEXT("before", text);
}

/* The job's group has the values of the module parameters in its second row. */
static void read_group(void* group)
{
    int i32 = -7, size = -7;
    int64_t i64 = -7;
    float f32 = -7;
    double f64 = -7;
    int* i32s = NULL;
    int64_t* i64s = NULL;
    float* f32s = NULL;
    double* f64s = NULL;
    char text[300] = "before";
    void* library = NULL;
    void* inner = NULL;

    CHECK_INT(2, knl_getGroupParameterSize(group));
    CHECK_INT(0, knl_getGroupParameterSize(NULL));

    CHECK_INT(1, knl_getI32GroupParameter(group, "I32", 1, &i32));
    CHECK_INT(42, i32);
    CHECK_INT(1, knl_getI64GroupParameter(group, "I64", 1, &i64));
    CHECK_INT(1L << 40, i64);
    CHECK_INT(1, knl_getF32GroupParameter(group, "F32", 1, &f32));
    CHECK_REAL(1.5, f32);
    CHECK_INT(1, knl_getF64GroupParameter(group, "F64", 1, &f64));
    CHECK_REAL(0.1, f64);
    CHECK_INT(1, knl_getStrGroupParameter(group, "TEXT", 1, text));
    CHECK_TEXT("some text", text);
    CHECK_INT(1, knl_getI32ArrayGroupParameter(group, "I32S", 1, &i32s, &size));
    CHECK(size == 3 && i32s[2] == 3);
    CHECK_INT(1, knl_getI64ArrayGroupParameter(group, "I64S", 1, &i64s, &size));
    CHECK(size == 2 && i64s[0] == 1L << 40);
    CHECK_INT(1, knl_getF32ArrayGroupParameter(group, "F32S", 1, &f32s, &size));
    CHECK(size == 4 && f32s[3] == 3.5f);
    CHECK_INT(1, knl_getF64ArrayGroupParameter(group, "F64S", 1, &f64s, &size));
    CHECK(size == 1 && f64s[0] == 0.1);
    CHECK_INT(1, knl_getLibGroupParameter(group, "LIBRARY", 1, &library));
    CHECK_INT(12, knl_getLibraryType(library));
    CHECK_INT(1, knl_getGrpGroupParameter(group, "GROUP", 1, &inner));
    CHECK_INT(1, knl_getGroupParameterSize(inner));

    CHECK_INT(0, knl_getI32GroupParameter(group, "I32", 0, &i32)); /* not in the first row */
    CHECK_INT(0, knl_getI32GroupParameter(group, "I32", 7, &i32)); /* no such row */
    CHECK_INT(0, knl_getI32GroupParameter(NULL, "I32", 1, &i32));
    CHECK_INT(42, i32);
    CHECK_INT(2, knl_getGroupParameterSize(group)); /* asking makes no rows */
}

static void write_group(void* group)
{
    const int i32s[2] = {5, 6};
    const int64_t i64s[2] = {7, 8};
    const float f32s[2] = {0.5f, 0.25f};
    const double f64s[2] = {0.1, 0.2};
    int i32, size;
    int64_t i64;
    float f32;
    double f64;
    int* read_i32s;
    int64_t* read_i64s;
    float* read_f32s;
    double* read_f64s;
    char text[300];
    void* made = NULL;
    void* again = NULL;

    CHECK_INT(1, knl_setI32GroupParameter(group, "NEW I32", 3, -3));
    CHECK_INT(4, knl_getGroupParameterSize(group));
    CHECK_INT(1, knl_setI64GroupParameter(group, "NEW I64", 3, -(1L << 40)));
    CHECK_INT(1, knl_setF32GroupParameter(group, "NEW F32", 3, 2.5f));
    CHECK_INT(1, knl_setF64GroupParameter(group, "NEW F64", 3, 0.2));
    CHECK_INT(1, knl_setStringGroupParameter(group, "NEW TEXT", 3, "a text of more than 16 bytes"));
    CHECK_INT(1, knl_setI32ArrayGroupParameter(group, "NEW I32S", 3, i32s, 2));
    CHECK_INT(1, knl_setI64ArrayGroupParameter(group, "NEW I64S", 3, i64s, 2));
    CHECK_INT(1, knl_setF32ArrayGroupParameter(group, "NEW F32S", 3, f32s, 2));
    CHECK_INT(1, knl_setF64ArrayGroupParameter(group, "NEW F64S", 3, f64s, 2));

    CHECK(knl_getI32GroupParameter(group, "NEW I32", 3, &i32) == 1 && i32 == -3);
    CHECK(knl_getI64GroupParameter(group, "NEW I64", 3, &i64) == 1 && i64 == -(1L << 40));
    CHECK(knl_getF32GroupParameter(group, "NEW F32", 3, &f32) == 1 && f32 == 2.5f);
    CHECK(knl_getF64GroupParameter(group, "NEW F64", 3, &f64) == 1 && f64 == 0.2);
    CHECK_INT(1, knl_getStrGroupParameter(group, "NEW TEXT", 3, text));
    CHECK_TEXT("a text of more than 16 bytes", text);
    CHECK_INT(1, knl_getI32ArrayGroupParameter(group, "NEW I32S", 3, &read_i32s, &size));
    CHECK(size == 2 && read_i32s != i32s && memcmp(read_i32s, i32s, sizeof i32s) == 0);
    CHECK_INT(1, knl_getI64ArrayGroupParameter(group, "NEW I64S", 3, &read_i64s, &size));
    CHECK(size == 2 && memcmp(read_i64s, i64s, sizeof i64s) == 0);
    CHECK_INT(1, knl_getF32ArrayGroupParameter(group, "NEW F32S", 3, &read_f32s, &size));
    CHECK(size == 2 && memcmp(read_f32s, f32s, sizeof f32s) == 0);
    CHECK_INT(1, knl_getF64ArrayGroupParameter(group, "NEW F64S", 3, &read_f64s, &size));
    CHECK(size == 2 && memcmp(read_f64s, f64s, sizeof f64s) == 0);

    CHECK_INT(1, knl_setGrpGroupParameter(group, "NEW GROUP", 3, &made));
    CHECK(made != NULL);
    CHECK_INT(0, knl_getGroupParameterSize(made));
    CHECK_INT(1, knl_setGrpGroupParameter(group, "NEW GROUP", 3, &again));
    CHECK(again == made);
}

static void read_library(void* library)
{
    int i32 = -7, size = -7;
    int64_t i64 = -7;
    float f32 = -7;
    double f64 = -7;
    int* i32s = NULL;
    int64_t* i64s = NULL;
    float* f32s = NULL;
    double* f64s = NULL;
    char text[300] = "before";
    void* inner = NULL;
    void* group = NULL;

    CHECK_INT(12, knl_getLibraryType(library)); /* HZ */
    CHECK_INT(1, knl_getI32LibraryParameter(library, "I32", &i32));
    CHECK_INT(42, i32);
    CHECK_INT(1, knl_getI64LibraryParameter(library, "I64", &i64));
    CHECK_INT(1L << 40, i64);
    CHECK_INT(1, knl_getF32LibraryParameter(library, "F32", &f32));
    CHECK_REAL(1.5, f32);
    CHECK_INT(1, knl_getF64LibraryParameter(library, "F64", &f64));
    CHECK_REAL(0.1, f64);
    CHECK_INT(1, knl_getStrLibraryParameter(library, "TEXT", text));
    CHECK_TEXT("some text", text);
    CHECK_INT(1, knl_getI32ArrayLibraryParameter(library, "I32S", &i32s, &size));
    CHECK(size == 3 && i32s[2] == 3);
    CHECK_INT(1, knl_getI64ArrayLibraryParameter(library, "I64S", &i64s, &size));
    CHECK(size == 2 && i64s[0] == 1L << 40);
    CHECK_INT(1, knl_getF32ArrayLibraryParameter(library, "F32S", &f32s, &size));
    CHECK(size == 4 && f32s[3] == 3.5f);
    CHECK_INT(1, knl_getF64ArrayLibraryParameter(library, "F64S", &f64s, &size));
    CHECK(size == 1 && f64s[0] == 0.1);
    CHECK_INT(1, knl_getLibLibraryParameter(library, "OTHER", &inner));
    CHECK_INT(-1, knl_getLibraryType(inner));
    CHECK_INT(1, knl_getGroupLibraryParameter(library, "GROUP", &group));
    CHECK_INT(1, knl_getGroupParameterSize(group));

    CHECK_INT(0, knl_getI32LibraryParameter(library, "NONE", &i32));
    CHECK_INT(0, knl_getStrLibraryParameter(library, "NONE", text));
    CHECK_INT(0, knl_getI32ArrayLibraryParameter(library, "NONE", &i32s, &size));
    CHECK(i32 == 42 && size == 1);
    CHECK_TEXT("some text", text);
}

static void write_library(void* library)
{
    const int i32s[2] = {5, 6};
    const int64_t i64s[2] = {7, 8};
    const float f32s[2] = {0.5f, 0.25f};
    const double f64s[2] = {0.1, 0.2};
    int i32, size;
    int64_t i64;
    float f32;
    double f64;
    int* read_i32s;
    int64_t* read_i64s;
    float* read_f32s;
    double* read_f64s;
    char text[300];
    void* made = NULL;
    void* again = NULL;

    CHECK_INT(1, knl_setI32LibraryParameter(library, "NEW I32", -3));
    CHECK_INT(1, knl_setI64LibraryParameter(library, "NEW I64", -(1L << 40)));
    CHECK_INT(1, knl_setF32LibraryParameter(library, "NEW F32", 2.5f));
    CHECK_INT(1, knl_setF64LibraryParameter(library, "NEW F64", 0.2));
    CHECK_INT(1, knl_setStringLibraryParameter(library, "NEW TEXT", "written"));
    CHECK_INT(1, knl_setI32ArrayLibraryParameter(library, "NEW I32S", i32s, 2));
    CHECK_INT(1, knl_setI64ArrayLibraryParameter(library, "NEW I64S", i64s, 2));
    CHECK_INT(1, knl_setF32ArrayLibraryParameter(library, "NEW F32S", f32s, 2));
    CHECK_INT(1, knl_setF64ArrayLibraryParameter(library, "NEW F64S", f64s, 2));

    CHECK(knl_getI32LibraryParameter(library, "NEW I32", &i32) == 1 && i32 == -3);
    CHECK(knl_getI64LibraryParameter(library, "NEW I64", &i64) == 1 && i64 == -(1L << 40));
    CHECK(knl_getF32LibraryParameter(library, "NEW F32", &f32) == 1 && f32 == 2.5f);
    CHECK(knl_getF64LibraryParameter(library, "NEW F64", &f64) == 1 && f64 == 0.2);
    CHECK_INT(1, knl_getStrLibraryParameter(library, "NEW TEXT", text));
    CHECK_TEXT("written", text);
    CHECK_INT(1, knl_getI32ArrayLibraryParameter(library, "NEW I32S", &read_i32s, &size));
    CHECK(size == 2 && memcmp(read_i32s, i32s, sizeof i32s) == 0);
    CHECK_INT(1, knl_getI64ArrayLibraryParameter(library, "NEW I64S", &read_i64s, &size));
    CHECK(size == 2 && memcmp(read_i64s, i64s, sizeof i64s) == 0);
    CHECK_INT(1, knl_getF32ArrayLibraryParameter(library, "NEW F32S", &read_f32s, &size));
    CHECK(size == 2 && memcmp(read_f32s, f32s, sizeof f32s) == 0);
    CHECK_INT(1, knl_getF64ArrayLibraryParameter(library, "NEW F64S", &read_f64s, &size));
    CHECK(size == 2 && memcmp(read_f64s, f64s, sizeof f64s) == 0);

    CHECK_INT(1, knl_setGrpLibraryParameter(library, "NEW GROUP", &made));
    CHECK(made != NULL);
    CHECK_INT(0, knl_getGroupParameterSize(made));
    CHECK_INT(1, knl_setGrpLibraryParameter(library, "NEW GROUP", &again));
    CHECK(again == made);
}

int preprocess_(void)
{
    void* group = NULL;
    void* library = NULL;
    int option = -7;

    read_module_parameters();
    convert_module_parameters();
    copy_module_parameters();
    ask_for_absent_module_parameters();
    CHECK_INT(1, knl_getGroupModuleParameter("GROUP", &group));
    CHECK_INT(1, knl_getLibModuleParameter("LIBRARY", &library));
    CHECK(group != NULL && library != NULL);
    copy_from_group_and_library(group, library);
    read_group(group);
    write_group(group);
    read_library(library);
    write_library(library);
    /* The job's test finds this option on the module. */
    CHECK_INT(0, knl_getModuleProcessingOption("C OPTION", &option));
    CHECK_INT(-7, option);
    knl_setModuleProcessingOption("C OPTION", 17);
    CHECK_INT(1, knl_getModuleProcessingOption("C OPTION", &option));
    CHECK_INT(17, option);
    return 0;
}

int process_(void)
{
    return 0;
}

int postprocess_(void)
{
    report_checks();
    return 0;
}
