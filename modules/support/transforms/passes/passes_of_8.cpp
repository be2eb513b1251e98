// The loops of transforms for processors with AVX2.
#define WIDTH 8
#define PASSES passesOfEight
#include "transform_loops.h"
