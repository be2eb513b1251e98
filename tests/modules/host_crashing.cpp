// Crashes while it is loaded.
#include <cstdlib>

namespace {

struct Crash
{
    Crash() { std::abort(); }
};

const Crash crash;

} // namespace

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
    return 0;
}
}
