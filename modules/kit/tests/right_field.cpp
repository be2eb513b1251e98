#include "kit_cxx_parameters.hpp"

#ifndef FIELD
#define FIELD count
#endif

int value(const kit_cxx_parameters::Parameters& set)
{
    return {set.FIELD};
}
