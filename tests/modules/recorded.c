#include "recorded.inc"
