// The loops of transforms for processors with AVX2.
#include "transform_loops.h"

const transforms::Passes transforms::passesOfEight = transforms::loops<8>;
