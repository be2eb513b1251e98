/* The C form, third part: resources, memory and files, messages and commands, pads, directories and
 * date, metadata; and the text helpers for Fortran. What the host sees of it is asserted in
 * ModuleInterfaceJobTest.cpp. */
#include "checks.h"
#include "vorn_tools.h"
#include "vorn_version.h"

#include <fcntl.h>
#include <stddef.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

/* A resource of the host, and one of the module's own that it finds again in its later calls. */
static void keep_resources(void)
{
    int here;
    void* address = &here;
    int* counter;

    CHECK_INT(0, knl_getModuleResource("NONE", &address));
    CHECK(address == &here);
    CHECK_INT(1, knl_getModuleResource("HOST", &address));
    CHECK_INT(1234, *(const int*)address);
    CHECK_INT(1, knl_getModuleResource("NUMBER", &address)); /* a number, no address */
    CHECK(address == NULL);

    counter = knl_allocateResource((int)sizeof *counter);
    CHECK(counter != NULL && *counter == 0);
    CHECK_INT(1, knl_setModuleResource("COUNTER", counter));
}

static void allocate_and_free(void)
{
    char* block = knl_allocateResource(1000);
    int i, zeros = 0;

    CHECK(block != NULL);
    for (i = 0; i < 1000; ++i)
        zeros += block[i] == 0;
    CHECK_INT(1000, zeros);
    CHECK_INT(0, knl_freeResource(block));
    CHECK_INT(0, knl_freeResource(NULL));
    CHECK(knl_allocateResource(-1) == NULL); /* and the host is told */
}

/* In the scratch directory of the job. */
static void use_files(void)
{
    char path[512], content[8] = "";
    struct stat status;
    int file = -7;

    snprintf(path, sizeof path, "%s/knl_c_services.txt", knl_getScratchDir());
    knl_fileCreate(path, &file);
    CHECK(file >= 0);
    CHECK_INT(5, write(file, "bytes", 5));
    knl_fileClose(file);
    CHECK_INT(-1, fcntl(file, F_GETFD)); /* it is closed */
    CHECK_INT(0, stat(path, &status));
    CHECK_INT(0, status.st_mode & 0777 & ~0674);

    knl_fileOpen(path, &file);
    CHECK(file >= 0);
    CHECK_INT(5, read(file, content, sizeof content - 1));
    CHECK_TEXT("bytes", content);
    CHECK_INT(-1, write(file, "more", 4)); /* opened for reading */
    knl_fileClose(file);

    unlink(path);
    knl_fileOpen(path, &file);
    CHECK_INT(-1, file);
}

static void send_messages(void)
{
    knl_sendMessage(0, "from C");
    knl_addI32MessageArgument(-42);
    knl_addI64MessageArgument(1L << 40);
    knl_addF32MessageArgument(1.5f);
    knl_addF64MessageArgument(0.25);
    knl_addStrMessageArgument("some text");
    knl_execAppliCmd("show c.sgy");
}

static void draw(void)
{
    const int pad = knl_createPad(1, 2, 3, "C pad");

    CHECK(pad >= 0);
    knl_plot(pad, 1.5f, 2.5f, 3);
    knl_number(pad, 1, 2, 0.5f, 3.25f, 90, 4);
    knl_symbol(pad, 1, 2, 0.5f, "label", 7, 45, 5);
    knl_factor(pad, 0.75f);
    knl_newpen(pad, 6);
}

static void ask_for_directories_and_date(void)
{
    const time_t now = time(NULL);
    const struct tm* local = localtime(&now);
    char text[64], date[64], scratch[512];

    CHECK_INT(0, knl_isCancelled());
    CHECK_TEXT(VORN_VERSION, vorn_version());
    CHECK_INT(VORN_VERSION_NUMBER(VORN_VERSION_MAJOR, VORN_VERSION_MINOR, VORN_VERSION_PATCH),
              vorn_version_number());
    CHECK_INT(VORN_QT_MAJOR, vorn_qt_major());
    snprintf(text, sizeof text, "%d.%d.%d", local->tm_mday, local->tm_mon, local->tm_year);
    snprintf(date, sizeof date, "%s", knl_currentDate());
    CHECK_TEXT(text, date);
    /* Text stays as it is while others are asked for. */
    snprintf(scratch, sizeof scratch, "%s", knl_getScratchDir());
    {
        const char* held = knl_getScratchDir();
        CHECK(strlen(knl_getProjectDir()) > 0);
        CHECK_TEXT(scratch, held);
    }
    knl_setProjectDir(scratch);
    CHECK_TEXT(scratch, knl_getProjectDir());
}

static void set_metadata(void)
{
    char value[16] = "before";

    knl_setMetaDataValue(0, "job key", "first");
    knl_setMetaDataValue(0, "job key", "second");
    CHECK_INT(5, knl_getMetaDataValue(0, "job key", value, sizeof value));
    CHECK_TEXT("first", value);
    CHECK_INT(5, knl_getMetaDataValue(0, "job key", value, 6));
    CHECK_TEXT("first", value);
    CHECK_INT(5, knl_getMetaDataValue(0, "job key", value, 3));
    CHECK_TEXT("fi", value);
    value[0] = 'x';
    CHECK_INT(5, knl_getMetaDataValue(0, "job key", value, 0));
    CHECK(value[0] == 'x');
    CHECK_INT(0, knl_getMetaDataValue(0, "none", value, sizeof value));
    CHECK_TEXT("", value);

    knl_setMetaDataValueN(1, "module key", "abcdef", 3);
    /* A module does not see its own values, only those of the modules before it. */
    CHECK_INT(0, knl_getMetaDataValue(1, "module key", value, sizeof value));
    CHECK_INT(0, knl_getMetaDataValue(1, "", value, sizeof value));
}

static void convert_texts(void)
{
    char text[16], field[6];

    f2ccpy("  ab  ", text, 6);
    CHECK_TEXT("ab", text);
    f2ccpy_leadbl("  ab  ", text, 6);
    CHECK_TEXT("  ab", text);
    c2fcpy("abc", field, 5);
    CHECK(memcmp(field, "abc  ", 5) == 0);
    CHECK_INT(1, f2ccmp("  ab   ", "ab", 7));
    CHECK_INT(0, f2ccmp("ab", "abc", 2));
}

int preprocess_(void)
{
    keep_resources();
    allocate_and_free();
    use_files();
    send_messages();
    draw();
    ask_for_directories_and_date();
    set_metadata();
    convert_texts();
    return 0;
}

int process_(void)
{
    void* counter;

    CHECK_INT(1, knl_getModuleResource("COUNTER", &counter));
    ++*(int*)counter;
    return 0;
}

int postprocess_(void)
{
    void* counter;

    CHECK_INT(1, knl_getModuleResource("COUNTER", &counter));
    CHECK_INT(2, *(int*)counter); /* the calls of process_ */
    CHECK_INT(0, knl_freeResource(counter));
    report_checks();
    return 0;
}
