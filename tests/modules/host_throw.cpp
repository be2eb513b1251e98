// Ends with an exception that it does not catch; with `handled: n`, after n traces, for each of
// which it throws one that it does catch.
#include "MOXKernel.h"

#include <stdexcept>

static int handled = 0;

extern "C" {

int preprocess_()
{
    handled = 0;
    if (isModuleParameterPresent("handled") != 0)
        handled = getModuleParameter("handled").getI32Value();
    return 0;
}

int process_()
{
    if (handled-- <= 0)
        throw std::runtime_error("no luck today");
    try {
        throw std::runtime_error("no luck for one trace");
    } catch (const std::runtime_error&) {
        return 0;
    }
}

int postprocess_()
{
    return 0;
}
}
