// Fails in its last entry point: with a fatal message, or, with `throws: 1`, with an exception that
// it does not catch.
#include "MOXKernel.h"

#include <stdexcept>

extern "C" {

int preprocess_()
{
    return 0;
}

int process_()
{
    return 0;
}

int postprocess_()
{
    if (isModuleParameterPresent("throws") != 0)
        throw std::runtime_error("the sum does not match");
    sendMessage(4, "the sum does not match");
    return 0;
}
}
