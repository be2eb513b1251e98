#include "cli/CommandTable.h"

int main(int argc, char** argv)
{
    return host::runCommandLine({argv + 1, argv + argc});
}
