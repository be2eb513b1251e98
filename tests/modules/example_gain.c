/* The example as its authors find it, for the tests. */
#include "../../examples/module-c/gain.c"
