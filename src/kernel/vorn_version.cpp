#include "vorn_version.h"

const char* vorn_version(void)
{
    return VORN_VERSION;
}

int vorn_version_number(void)
{
    return VORN_VERSION_NUMBER(VORN_VERSION_MAJOR, VORN_VERSION_MINOR, VORN_VERSION_PATCH);
}

int vorn_qt_major(void)
{
    return VORN_QT_MAJOR;
}
