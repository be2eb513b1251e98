#define FACTOR 2.5F
#include "recorded.inc"
