#define CALLS_MORE
#include "recorded.inc"
