#include "CommandTable.h"

int main(int argc, char** argv)
{
    return vorn::runCommandLine({argv + 1, argv + argc});
}
