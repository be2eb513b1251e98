#define CALLS_LESS
#include "recorded.inc"
