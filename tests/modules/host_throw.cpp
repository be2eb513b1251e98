// Ends with an exception that it does not catch.
#include <stdexcept>

extern "C" {

int preprocess_()
{
    return 0;
}

int process_()
{
    throw std::runtime_error("no luck today");
}

int postprocess_()
{
    return 0;
}
}
