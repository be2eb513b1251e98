/* Sets the locale of the process to that of its environment, as an application with windows does,
 * and says what it is then. */
#include "knl.h"

#include <locale.h>
#include <stdio.h>

enum
{
    INFORMATION = 1
};

int preprocess_(void)
{
    char text[200];
    const char* locale = setlocale(LC_ALL, "");

    snprintf(text, sizeof text, "the locale is %s", locale != NULL ? locale : "missing");
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
