// The loops of transforms for any processor.
#define WIDTH 4
#define PASSES passesOfFour
#include "transform_loops.h"
