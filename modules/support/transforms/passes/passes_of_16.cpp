// The loops of transforms for processors with AVX-512.
#include "transform_loops.h"

const transforms::Passes transforms::passesOfSixteen = transforms::loops<16>;
