/* A module without a manifest: says what it got. */
#include "knl.h"

#include <stdio.h>

enum
{
    INFORMATION = 1
};

int preprocess_(void)
{
    char text[1200];
    char name[1024] = "nobody";
    int number = 0;
    double share = 0;

    knl_getStrModuleParameter("name_of_it", name);
    knl_getI32ModuleParameter("number", &number);
    knl_getF64ModuleParameter("share", &share);
    snprintf(text, sizeof text, "%s %d %g", name, number, share);
    knl_sendMessage(INFORMATION, text);
    return 0;
}

int process_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
