#define TEXT "trace %d has been multiplied"
#include "recorded.inc"
