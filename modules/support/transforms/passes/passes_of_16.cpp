// The loops of transforms for processors with AVX-512.
#define WIDTH 16
#define PASSES passesOfSixteen
#include "transform_loops.h"
