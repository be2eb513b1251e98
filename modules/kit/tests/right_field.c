#include "kit_c_parameters.h"

#ifndef FIELD
#define FIELD count
#endif

int value(const kit_c_parameters* set);
int value(const kit_c_parameters* set)
{
    return set->FIELD;
}
